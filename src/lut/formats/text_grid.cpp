#include "lut/formats/text_grid.h"

#include <algorithm>

namespace Tincta {

bool FinishTextGrid(COv3DLUT& lut, std::shared_ptr<COv3DLUT> shaper, bool upsampleToPowerOfTwo) {
  if (upsampleToPowerOfTwo && !IsPowerOfTwo(lut.Size())) {
    if (!lut.Resample(std::min(PowerOfTwoNotBelow(lut.Size()), kTextGridUpsampleCap))) {
      return false;
    }
  }
  if (shaper) {
    // The shaper's output is already a texel coordinate of the grid.
    const float low = 0.5f / float(lut.Size());
    const float high = 1.0f - low;
    lut.SetInputShaper(std::move(shaper));
    lut.SetDomain({low, low, low, low}, {high, high, high, high});
  } else {
    lut.SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});
  }
  return true;
}

}  // namespace Tincta
