// The mathematical content of a LUT at a colour, in double precision: what its tables say,
// without any renderer's edge behaviour. Used to bake LUTs into other sizes and formats and to
// show a LUT's own values beside what the module applies.
//
//   1-D: per channel, the input maps linearly from [domainMin, domainMax] onto the entries
//        [0, size - 1], clamped there, and the two neighbouring entries are interpolated.
//   3-D: the same on each axis, trilinear; the last entry is reached exactly at domainMax.
//   3-D with a shaper: the shaper (a 1-D table over its own domain) gives the cube's texture
//        coordinates s per channel, the centres of the first and last texels at 0.5/size and
//        1 - 0.5/size, so the cube's entry coordinate is s * size - 0.5, clamped.
// A degenerate domain (max equal to min) uses the object's own index scale, (size - 1) x 10000.
// NaN in a coordinate gives NaN in what depends on it.
#pragma once

#include <array>

#include "lut/lut3d.h"

namespace Tincta {

using Rgb64 = std::array<double, 3>;

/// The LUT's value at `rgb`. An empty LUT returns `rgb` unchanged.
Rgb64 EvaluateLUT(const COv3DLUT& lut, const Rgb64& rgb);

/// The input domain a colour meets first: the shaper's when there is one, else the table's (red,
/// green, blue).
void InputDomainOf(const COv3DLUT& lut, Rgb64& min, Rgb64& max);

}  // namespace Tincta
