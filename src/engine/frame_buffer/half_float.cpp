#include "engine/frame_buffer/half_float.h"

#include <bit>

namespace Tincta {

uint16_t FloatToHalf(float value) {
  const uint32_t bits = std::bit_cast<uint32_t>(value);
  const uint32_t sign = (bits >> 16) & 0x8000;
  const uint32_t exponent = (bits >> 23) & 0xFF;
  const uint32_t mantissa = bits & 0x7FFFFF;

  if (exponent == 0xFF) {
    if (mantissa == 0) return static_cast<uint16_t>(sign | 0x7C00);
    return static_cast<uint16_t>(sign | 0x7C00 | 0x200 | (mantissa >> 13));
  }
  if (exponent >= 143) return static_cast<uint16_t>(sign | 0x7C00);
  if (exponent >= 113) {
    uint32_t half = ((exponent - 112) << 10) | (mantissa >> 13);
    const uint32_t rest = mantissa & 0x1FFF;
    // Ties go up only from an odd half. A carry out of the mantissa lands in the exponent, up
    // to infinity, as it should. Kept free of branches: rounding bits are noise to a predictor.
    half += (rest + (half & 1)) > 0x1000;
    return static_cast<uint16_t>(sign | half);
  }
  if (exponent < 102) return static_cast<uint16_t>(sign);
  // Subnormal half: the value in units of 2^-24, rounded to nearest even.
  const uint32_t full = mantissa | 0x800000;
  const uint32_t shift = 126 - exponent;
  uint32_t half = full >> shift;
  const uint32_t rest = full & ((1u << shift) - 1);
  const uint32_t middle = 1u << (shift - 1);
  half += (rest + (half & 1)) > middle;
  return static_cast<uint16_t>(sign | half);
}

float HalfToFloat(uint16_t half) {
  const uint32_t sign = uint32_t{half & 0x8000u} << 16;
  int32_t exponent = (half >> 10) & 0x1F;
  uint32_t mantissa = half & 0x3FF;
  uint32_t bits;
  if (exponent == 0x1F) {
    bits = sign | 0x7F800000 | (mantissa << 13);
  } else if (exponent != 0) {
    bits = sign | (uint32_t(exponent + 112) << 23) | (mantissa << 13);
  } else if (mantissa == 0) {
    bits = sign;
  } else {
    exponent = 1;
    while ((mantissa & 0x400) == 0) {
      mantissa <<= 1;
      --exponent;
    }
    bits = sign | (uint32_t(exponent + 112) << 23) | ((mantissa & 0x3FF) << 13);
  }
  return std::bit_cast<float>(bits);
}

}  // namespace Tincta
