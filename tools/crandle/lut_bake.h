// Baking LUTs, one after another, into one plain 3-D table: each grid node is run through the
// LUTs' exact evaluation (lut/lut_evaluate.h), so that the new table holds their mathematical
// content rather than any renderer's edge behaviour.
#pragma once

#include <cstdint>
#include <span>

#include "lut/lut3d.h"

namespace crandle_tool {

/// Fills `baked` with a 3-D table of `size` points per axis over the first LUT's input domain
/// (its shaper's, where it has one): node (r, g, b) holds the colour at that point run through
/// every LUT in order. False without memory, for no LUTs, or a size outside 2..256.
bool BakeLUTs(std::span<const Tincta::COv3DLUT* const> luts, uint32_t size,
              Tincta::COv3DLUT& baked);

}  // namespace crandle_tool
