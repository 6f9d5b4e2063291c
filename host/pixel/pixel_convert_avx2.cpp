// 256-bit forms of the row conversions, with the 128-bit ones' results (pixel_convert.cpp: a
// correctly rounded division for integers to float; a clamp in float, then the scale, the half
// and the truncation, exact in double, for float to integers) on twice the lanes, reached with
// fused multiply-adds in float instead of a division and a detour through double.
#include <immintrin.h>

#include "pixel_convert_vector.h"

namespace host {
namespace {

// values / FullScale, correctly rounded as a division would be, without the division's cost: the
// product with the rounded reciprocal is within an ulp, its remainder is exact, and one fused
// step corrects it (checked for every integer up to 65535).
template <uint32_t FullScale>
void ToUnitEight(__m256i values, uint8_t* dst) {
  const __m256 scale = _mm256_set1_ps(float(FullScale));
  const __m256 reciprocal = _mm256_set1_ps(1.0f / float(FullScale));
  const __m256 dividend = _mm256_cvtepi32_ps(values);
  const __m256 estimate = _mm256_mul_ps(dividend, reciprocal);
  const __m256 remainder = _mm256_fnmadd_ps(estimate, scale, dividend);
  _mm256_storeu_ps(reinterpret_cast<float*>(dst), _mm256_fmadd_ps(remainder, reciprocal, estimate));
}

size_t Bgra8ToFloat(const uint8_t* src, uint8_t* dst, size_t samples) {
  size_t i = 0;
  for (; i + 16 <= samples; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    ToUnitEight<255>(_mm256_cvtepu8_epi32(bytes), dst + 4 * i);
    ToUnitEight<255>(_mm256_cvtepu8_epi32(_mm_srli_si128(bytes, 8)), dst + 4 * i + 32);
  }
  return i;
}

size_t Bgra16ToFloat(const uint8_t* src, uint8_t* dst, size_t samples) {
  size_t i = 0;
  for (; i + 16 <= samples; i += 16) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i + 16));
    ToUnitEight<65535>(_mm256_cvtepu16_epi32(low), dst + 4 * i);
    ToUnitEight<65535>(_mm256_cvtepu16_epi32(high), dst + 4 * i + 32);
  }
  return i;
}

// Eight samples rounded half up to [0, FullScale] as 32-bit integers: floor(v x FullScale + 0.5)
// of the clamped sample, which in double is exact. Here the fused v x FullScale + 2^23 is rounded
// once where the float spacing is 1, to the nearest integer, ties to even; the only tie in
// [0, FullScale] for an odd scale is v = 0.5, whose even neighbour is the upper one, as half up
// wants. The integer then sits in the low bits of the float.
template <uint32_t FullScale>
__m256i FromUnitEight(const uint8_t* src) {
  static_assert(FullScale % 2 == 1 && FullScale < (1u << 23));
  constexpr float kUnitSpacing = 0x1p23f;
  __m256 samples = _mm256_loadu_ps(reinterpret_cast<const float*>(src));
  samples = _mm256_min_ps(_mm256_max_ps(samples, _mm256_setzero_ps()), _mm256_set1_ps(1.0f));
  const __m256 shifted =
      _mm256_fmadd_ps(samples, _mm256_set1_ps(float(FullScale)), _mm256_set1_ps(kUnitSpacing));
  return _mm256_sub_epi32(_mm256_castps_si256(shifted),
                          _mm256_castps_si256(_mm256_set1_ps(kUnitSpacing)));
}

// Sixteen samples rounded as FromUnitEight does, as 16-bit words in order. Packing works within
// 128-bit halves (words come out a0 b0 a1 b1 in quarters); one cross-lane permutation puts them
// back. Unsigned saturation never bites: the values are within [0, FullScale] already.
template <uint32_t FullScale>
__m256i FromUnitSixteen(const uint8_t* src) {
  const __m256i a = FromUnitEight<FullScale>(src);
  const __m256i b = FromUnitEight<FullScale>(src + 32);
  return _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0b11011000);
}

size_t FloatToBgra8(const uint8_t* src, uint8_t* dst, size_t samples) {
  size_t i = 0;
  for (; i + 16 <= samples; i += 16) {
    const __m256i words = FromUnitSixteen<255>(src + 4 * i);
    const __m128i bytes =
        _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), bytes);
  }
  return i;
}

size_t FloatToBgra16(const uint8_t* src, uint8_t* dst, size_t samples) {
  size_t i = 0;
  for (; i + 16 <= samples; i += 16)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 2 * i),
                        FromUnitSixteen<65535>(src + 4 * i));
  return i;
}

constexpr SVectorConversions kConversions{"avx2", Bgra8ToFloat, Bgra16ToFloat, FloatToBgra8,
                                          FloatToBgra16};

}  // namespace

const SVectorConversions& VectorConversionsAVX2() {
  return kConversions;
}

}  // namespace host
