// What the tool reports about a parsed LUT, and plain-words reasons for result codes.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace crandle_tool {

struct SLUTReport {
  std::string kind;  // "1D", "3D" or "1D3D"
  uint32_t size = 0;
  uint32_t shaperSize = 0;
  std::array<float, 3> domainMin{};
  std::array<float, 3> domainMax{};
  std::string title;
  std::string displayName;
  std::string identifier;  // 32 upper-case hexadecimal digits
  uint64_t blobBytes = 0;
};

/// Describes the LUT behind a handle that `CRANDLE::ParseLUT` made.
SLUTReport DescribeLUT(const std::shared_ptr<void>& lut);

/// "0xa00f0001" and so on.
std::string ResultCodeText(int result);

/// Why parsing `path` (with `correctionId` as `--cc-id` gave it) failed with `result`, in plain
/// words: a missing file, an oversized one, or what the reader found wrong, with its line.
std::string ParseFailureReason(const std::string& path, int result,
                               const std::string& correctionId = {});

}  // namespace crandle_tool
