// The host media library's LUT interpolation choice.
#pragma once

#include <cstdint>

namespace host {

/// How a 3-D LUT is interpolated on the GPU. The CPU path always interpolates trilinearly.
enum class LUTInterpolationMethod : int32_t {
  Trilinear = 0,    ///< eight neighbours weighted per axis
  Tetrahedral = 1,  ///< four neighbours of the tetrahedron that holds the point
};

}  // namespace host
