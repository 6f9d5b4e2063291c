// Image sequences: a path with one frame-number field, and the frames a range names.
//
// The frame-number field is one of
//   %d, %4d, %04d   printf's forms: %04d pads with zeros to 4 digits, %4d with spaces;
//   ####            one '#' per digit, padded with zeros: shot.####.exr gives shot.0007.exr;
//   @@@             one '@' per digit, the same: shot.@@@.exr gives shot.007.exr.
// A frame number wider than its field is written whole (frame 12345 of #### is 12345). "%%" is a
// literal %; a path with two fields, or with a '%' that begins no field, is not a pattern.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace crandle_tool {

/// Frames first, first + step, ... up to and including last when the step lands on it.
struct SFrameRange {
  long first = 0;
  long last = 0;
  long step = 1;
};

/// True when `path` holds exactly one frame-number field.
bool IsSequencePattern(const std::string& path);

/// `pattern` with its frame-number field replaced by `frame`.
std::string FramePath(const std::string& pattern, long frame);

/// "A", "A-B" or "A-BxN": non-negative frames, A <= B, a step N >= 1. No value when malformed;
/// `why` (when given) then says what is wrong, in words for the user.
std::optional<SFrameRange> ParseFrameRange(const std::string& text, std::string* why = nullptr);

/// The frame numbers of a range, in order.
std::vector<long> FramesOf(const SFrameRange& range);

/// The plain files of a folder, hidden ones (".name") left out, sorted by name byte by byte.
std::vector<std::string> FilesInFolder(const std::string& folder);

}  // namespace crandle_tool
