// Truelight cube text (.cub) out of a table: a 1-D table as an InputLUT alone, a 3-D table as a
// Cube block, and a 3-D table's input shaper as the InputLUT in front of it. Numbers are written
// so that they read back as the same float.
#pragma once

#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// Most entries of a Truelight InputLUT.
inline constexpr uint32_t kMaxTruelightInputLUT = 4096;

/// Writes `lut` as Truelight text. False, with `out` empty and `why` set, when the format cannot
/// hold it: a domain other than [0, 1] (the shaper's, where there is one), a 1-D table or shaper of
/// fewer than 2 or more than 4096 entries, a cube above 256 points.
bool bWriteTruelightText(const COv3DLUT& lut, std::string& out, std::string& why);

}  // namespace Tincta
