// IEEE 754 half precision <-> single precision, bit exact, without relying on F16C.
#pragma once

#include <cstdint>

namespace Tincta {

/// The half nearest to `value` (ties to even); overflow gives infinity, NaN stays NaN (quiet).
uint16_t FloatToHalf(float value);

/// The exact single-precision value of a half.
float HalfToFloat(uint16_t half);

}  // namespace Tincta
