// Image sequences: a path with one printf-style frame-number field ("shot.%04d.exr").
#pragma once

#include <optional>
#include <string>

namespace crandle_tool {

struct SFrameRange {
  long first = 0;
  long last = 0;
};

/// True when `path` holds exactly one frame-number field (%d, %4d or %04d); "%%" is a literal %.
bool IsSequencePattern(const std::string& path);

/// `pattern` with its frame-number field replaced by `frame`.
std::string FramePath(const std::string& pattern, long frame);

/// "A-B" (A <= B, both non-negative) or a single "A"; no value when malformed.
std::optional<SFrameRange> ParseFrameRange(const std::string& text);

}  // namespace crandle_tool
