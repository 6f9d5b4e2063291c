// The last steps shared by the text readers of 3-D grids (Truelight, mesh): the optional
// power-of-two resampling with its cap, then the domain, which with a shaper is the half-texel
// range that the shaper's output already lands in.
#pragma once

#include <cstdint>
#include <memory>

#include "lut/lut3d.h"

namespace Tincta {

/// Text readers never upsample a grid beyond this many points per axis.
inline constexpr uint32_t kTextGridUpsampleCap = 128;

/// Resamples `lut` to a power of two (capped) when asked and its size is none, attaches `shaper`
/// (may be null) and sets the domain. False when the resampling fails.
bool FinishTextGrid(COv3DLUT& lut, std::shared_ptr<COv3DLUT> shaper, bool upsampleToPowerOfTwo);

}  // namespace Tincta
