// Shaper lines of mesh files: a line of non-decreasing unsigned integers, the input code values at
// which the mesh's grid is sampled (0 64 128 ... 1023 for a 17-point grid over 10-bit input).
// Unevenly spaced positions become a 1-D input shaper that maps each code to the grid's texel
// coordinate.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "lut/lut3d.h"

namespace Tincta {

/// Least and most positions a shaper line may hold.
inline constexpr uint32_t kMinShaperLinePoints = 4;
inline constexpr uint32_t kMaxShaperLinePoints = 256;
/// Most input codes a shaper line may span.
inline constexpr uint32_t kMaxShaperLineCodes = 4096;

enum class EShaperLineOutcome {
  /// A token is not an unsigned integer, or a value falls below its predecessor.
  NotAShaperLine,
  /// A shaper line that breaks a limit (count, code range) or whose shaper cannot be allocated.
  Invalid,
  /// `SShaperLine` holds the result.
  Read,
};

struct SShaperLine {
  /// The number of positions, which is the grid's points per axis.
  uint32_t pointCount = 0;
  /// Whether the positions are unevenly spaced, so that the line makes a shaper (evenly spaced
  /// ones describe the identity).
  bool uneven = false;
  /// The input shaper of an uneven line; null when even, or when it was not asked for.
  std::shared_ptr<COv3DLUT> shaper;
};

/// Reads a trimmed line as a shaper line. Codes run over 0..P-1 with P the smallest power of two
/// not below the last value; the shaper has P entries and maps codes up to the first position to
/// 0.5/M and rises by 1/M between neighbouring positions, M being the point count (or its power
/// of two not below it when `upsampleToPowerOfTwo`). `result` is written only on `Read`. With
/// `buildShaper` false the line is checked in full but no shaper is built, so that a reader can
/// defer the table (up to 4096 entries) until it knows the line is the one it keeps.
/// `whyInvalid`, when given, receives the reason of an `Invalid` outcome.
EShaperLineOutcome ReadShaperLine(std::string_view line, bool upsampleToPowerOfTwo,
                                  SShaperLine& result, bool buildShaper = true,
                                  std::string* whyInvalid = nullptr);

}  // namespace Tincta
