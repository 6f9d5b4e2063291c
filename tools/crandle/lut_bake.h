// Baking any LUT (1-D, 3-D with a shaper, any domain) into a plain 3-D table over [0, 1], by
// applying it through the exported interface to a frame that holds every grid node once.
#pragma once

#include <memory>

#include "lut/lut3d.h"

namespace crandle_tool {

/// Fills `baked` with a 3-D table of `size` points per axis: the LUT's output at each node of an
/// even [0, 1] grid. Returns 0 or the result code of the failing apply (0xa00f0001 without memory).
int BakeLUT(const std::shared_ptr<void>& lut, uint32_t size, Tincta::COv3DLUT& baked);

}  // namespace crandle_tool
