#include "lut/lut3d.h"

namespace Tincta {

// PLACEHOLDER: resampling not written yet.
bool COv3DLUT::Resample(uint32_t newSize) { return newSize == 0 || newSize == size_; }

}  // namespace Tincta
