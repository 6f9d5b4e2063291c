// Line kernels of the optimized converter for AVX2. Compiled with -mavx2 -mfma; everything here
// but the table getter has internal linkage. Two groups go through each 256-bit step; the
// stores stay 128-bit because a line is only promised 16-byte alignment.
#include <immintrin.h>

#include <cstring>

#include "engine/convert/convert_kernels.h"

namespace Tincta {
namespace {

constexpr size_t kPrefetchBytes = 512;

void Prefetch(const void* at) {
  _mm_prefetch(static_cast<const char*>(at) + kPrefetchBytes, _MM_HINT_T0);
}

void Stream256(uint8_t* target, __m256i value) {
  _mm_stream_si128(reinterpret_cast<__m128i*>(target), _mm256_castsi256_si128(value));
  _mm_stream_si128(reinterpret_cast<__m128i*>(target + 16), _mm256_extracti128_si256(value, 1));
}

__m256i Unorm8(__m256 x) {
  return _mm256_cvtps_epi32(
      _mm256_mul_ps(_mm256_min_ps(x, _mm256_set1_ps(1.0f)), _mm256_set1_ps(255.0f)));
}

// 8 pixels of float to 32 bytes. The lane-wise packs leave the pixels in the order
// 0 2 4 6 | 1 3 5 7; one cross-lane permute restores them.
__m256i EightPixelsTo8Bits(const float* source) {
  const __m256i a = Unorm8(_mm256_loadu_ps(source));
  const __m256i b = Unorm8(_mm256_loadu_ps(source + 8));
  const __m256i c = Unorm8(_mm256_loadu_ps(source + 16));
  const __m256i d = Unorm8(_mm256_loadu_ps(source + 24));
  const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
  return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

__m128i FourPixelsTo8Bits(const float* source) {
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 scale = _mm_set1_ps(255.0f);
  const __m128i a = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source), one), scale));
  const __m128i b = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source + 4), one), scale));
  const __m128i c = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source + 8), one), scale));
  const __m128i d = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source + 12), one), scale));
  return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

__m256 Scale10(__m256 x) {
  const __m256 clamped = _mm256_max_ps(_mm256_min_ps(x, _mm256_set1_ps(1.0f)), _mm256_setzero_ps());
  return _mm256_mul_ps(clamped, _mm256_set1_ps(1023.0f));
}

__m256i Word10(__m256 first, __m256 second, __m256 third) {
  return _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi32(_mm256_cvtps_epi32(first), 22),
                                         _mm256_slli_epi32(_mm256_cvtps_epi32(second), 12)),
                         _mm256_slli_epi32(_mm256_cvtps_epi32(third), 2));
}

__m256i ByteSwapWords(__m256i words) {
  const __m256i mask = _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12, 3, 2,
                                        1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
  return _mm256_shuffle_epi8(words, mask);
}

void FloatToRgba8(const float* source, uint8_t* target, size_t groups) {
  size_t g = 0;
  for (; g + 2 <= groups; g += 2, source += 32, target += 32) {
    Prefetch(source);
    Stream256(target, EightPixelsTo8Bits(source));
  }
  if (g < groups) _mm_stream_si128(reinterpret_cast<__m128i*>(target), FourPixelsTo8Bits(source));
}

__m128i DropFourthBytes(__m128i pixels) {
  return _mm_shuffle_epi8(pixels,
                          _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
}

void FloatToRgb8(const float* source, uint8_t* target, size_t groups) {
  size_t g = 0;
  for (; g + 4 <= groups; g += 4, source += 64, target += 48) {
    Prefetch(source);
    Prefetch(source + 32);
    const __m256i low = EightPixelsTo8Bits(source);
    const __m256i high = EightPixelsTo8Bits(source + 32);
    const __m128i c0 = DropFourthBytes(_mm256_castsi256_si128(low));
    const __m128i c1 = DropFourthBytes(_mm256_extracti128_si256(low, 1));
    const __m128i c2 = DropFourthBytes(_mm256_castsi256_si128(high));
    const __m128i c3 = DropFourthBytes(_mm256_extracti128_si256(high, 1));
    auto* out = reinterpret_cast<__m128i*>(target);
    _mm_stream_si128(out, _mm_or_si128(c0, _mm_slli_si128(c1, 12)));
    _mm_stream_si128(out + 1, _mm_or_si128(_mm_srli_si128(c1, 4), _mm_slli_si128(c2, 8)));
    _mm_stream_si128(out + 2, _mm_or_si128(_mm_srli_si128(c2, 8), _mm_slli_si128(c3, 4)));
  }
  for (; g < groups; ++g, source += 16, target += 12) {
    const __m128i packed = DropFourthBytes(FourPixelsTo8Bits(source));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(target), packed);
    const int last = _mm_cvtsi128_si32(_mm_srli_si128(packed, 8));
    std::memcpy(target + 8, &last, 4);
  }
}

// Eight pixels: an in-lane 4 × 4 transpose gives the samples of pixels 0 2 4 6 | 1 3 5 7.
template <bool kBigEndian>
__m256i EightRgbWords(const float* source) {
  const __m256 y0 = Scale10(_mm256_loadu_ps(source));
  const __m256 y1 = Scale10(_mm256_loadu_ps(source + 8));
  const __m256 y2 = Scale10(_mm256_loadu_ps(source + 16));
  const __m256 y3 = Scale10(_mm256_loadu_ps(source + 24));
  const __m256 t0 = _mm256_unpacklo_ps(y0, y1);
  const __m256 t1 = _mm256_unpackhi_ps(y0, y1);
  const __m256 t2 = _mm256_unpacklo_ps(y2, y3);
  const __m256 t3 = _mm256_unpackhi_ps(y2, y3);
  const __m256 first = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
  const __m256 second = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
  const __m256 third = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
  __m256i words = _mm256_permutevar8x32_epi32(Word10(first, second, third),
                                              _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  if constexpr (kBigEndian) words = ByteSwapWords(words);
  return words;
}

template <bool kBigEndian>
void FloatToRgb10(const float* source, uint8_t* target, size_t groups) {
  size_t g = 0;
  for (; g + 2 <= groups; g += 2, source += 32, target += 32) {
    Prefetch(source);
    Stream256(target, EightRgbWords<kBigEndian>(source));
  }
  if (g < groups) {
    // The last odd group: the pixels after it are padding; only its 16 bytes are stored.
    alignas(32) float padded[32] = {};
    std::memcpy(padded, source, 16 * sizeof(float));
    _mm_stream_si128(reinterpret_cast<__m128i*>(target),
                     _mm256_castsi256_si128(EightRgbWords<kBigEndian>(padded)));
  }
}

// Two groups of three pixels: A = (p0 | p3), B = (p1 | p4), C = (p2 | p5), then the same
// in-lane sample selection as the 128-bit kernel.
template <bool kBigEndian>
__m256i TwoRgbaGroups(const float* source) {
  const __m256 y0 = Scale10(_mm256_loadu_ps(source));
  const __m256 y1 = Scale10(_mm256_loadu_ps(source + 8));
  const __m256 y2 = Scale10(_mm256_loadu_ps(source + 16));
  const __m256 a = _mm256_permute2f128_ps(y0, y1, 0x30);
  const __m256 b = _mm256_permute2f128_ps(y0, y2, 0x21);
  const __m256 c = _mm256_permute2f128_ps(y1, y2, 0x30);
  __m256 first = _mm256_blend_ps(_mm256_shuffle_ps(a, a, _MM_SHUFFLE(0, 0, 3, 0)), b, 0x44);
  first = _mm256_blend_ps(first, _mm256_shuffle_ps(c, c, _MM_SHUFFLE(1, 0, 0, 0)), 0x88);
  __m256 second = _mm256_blend_ps(_mm256_shuffle_ps(a, a, _MM_SHUFFLE(1, 1, 1, 1)),
                                  _mm256_shuffle_ps(b, b, _MM_SHUFFLE(3, 3, 0, 0)), 0x66);
  second = _mm256_blend_ps(second, _mm256_shuffle_ps(c, c, _MM_SHUFFLE(2, 2, 2, 2)), 0x88);
  __m256 third = _mm256_blend_ps(_mm256_shuffle_ps(a, a, _MM_SHUFFLE(2, 2, 2, 2)),
                                 _mm256_shuffle_ps(b, b, _MM_SHUFFLE(1, 1, 1, 1)), 0x22);
  third = _mm256_blend_ps(third, _mm256_shuffle_ps(c, c, _MM_SHUFFLE(3, 0, 0, 0)), 0xCC);
  __m256i words = Word10(first, second, third);
  if constexpr (kBigEndian) words = ByteSwapWords(words);
  return words;
}

template <bool kBigEndian>
void FloatToRgba10(const float* source, uint8_t* target, size_t groups) {
  size_t g = 0;
  for (; g + 2 <= groups; g += 2, source += 24, target += 32) {
    Prefetch(source);
    Stream256(target, TwoRgbaGroups<kBigEndian>(source));
  }
  if (g < groups) {
    alignas(32) float padded[24] = {};
    std::memcpy(padded, source, 12 * sizeof(float));
    _mm_stream_si128(reinterpret_cast<__m128i*>(target),
                     _mm256_castsi256_si128(TwoRgbaGroups<kBigEndian>(padded)));
  }
}

template <bool kSwap>
void Rgba16ToRgba8(const uint16_t* source, uint8_t* target, size_t groups) {
  const __m256i swap = _mm256_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15, 2, 1,
                                        0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15);
  for (size_t g = 0; g < groups; ++g) {
    Prefetch(source);
    Prefetch(source + 32);
    for (int half = 0; half < 2; ++half, source += 32, target += 32) {
      const auto* in = reinterpret_cast<const __m256i*>(source);
      const __m256i a = _mm256_srli_epi16(_mm256_loadu_si256(in), 8);
      const __m256i b = _mm256_srli_epi16(_mm256_loadu_si256(in + 1), 8);
      // packus works per lane: samples 0-7 of a, 0-7 of b, 8-15 of a, 8-15 of b.
      __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), _MM_SHUFFLE(3, 1, 2, 0));
      if constexpr (kSwap) bytes = _mm256_shuffle_epi8(bytes, swap);
      Stream256(target, bytes);
    }
  }
}

void StoreFence() {
  _mm_sfence();
}

constexpr SConvertKernels kAvx2Kernels = {SimdTierName(ESimdTier::kAVX2),
                                          FloatToRgba8,
                                          FloatToRgb8,
                                          FloatToRgb10<false>,
                                          FloatToRgb10<true>,
                                          FloatToRgba10<false>,
                                          FloatToRgba10<true>,
                                          Rgba16ToRgba8<false>,
                                          Rgba16ToRgba8<true>,
                                          StoreFence};

}  // namespace

const SConvertKernels& ConvertKernelsAvx2() {
  return kAvx2Kernels;
}

}  // namespace Tincta
