// Line kernels of the optimized converter for SSE4.1. Compiled with -msse4.1; everything here
// but the table getter has internal linkage.
#include <immintrin.h>

#include <cstring>

#include "engine/convert/convert_kernels.h"

namespace Tincta {
namespace {

constexpr size_t kPrefetchBytes = 512;

void Prefetch(const void* at) {
  _mm_prefetch(static_cast<const char*>(at) + kPrefetchBytes, _MM_HINT_T0);
}

// 4 pixels of float to 16 bytes: cvtps rounds to nearest even in the default MXCSR mode, and
// the signed then unsigned saturating packs send negatives (and NaN's min(NaN, 1) = 1) home.
__m128i FourPixelsTo8Bits(const float* source) {
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 scale = _mm_set1_ps(255.0f);
  const __m128i a = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source), one), scale));
  const __m128i b = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source + 4), one), scale));
  const __m128i c = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source + 8), one), scale));
  const __m128i d = _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(_mm_loadu_ps(source + 12), one), scale));
  return _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
}

__m128 Scale10(__m128 x) {
  const __m128 clamped = _mm_max_ps(_mm_min_ps(x, _mm_set1_ps(1.0f)), _mm_setzero_ps());
  return _mm_mul_ps(clamped, _mm_set1_ps(1023.0f));
}

__m128i Word10(__m128 first, __m128 second, __m128 third) {
  return _mm_or_si128(_mm_or_si128(_mm_slli_epi32(_mm_cvtps_epi32(first), 22),
                                   _mm_slli_epi32(_mm_cvtps_epi32(second), 12)),
                      _mm_slli_epi32(_mm_cvtps_epi32(third), 2));
}

__m128i ByteSwapWords(__m128i words) {
  return _mm_shuffle_epi8(words,
                          _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
}

void FloatToRgba8(const float* source, uint8_t* target, size_t groups) {
  for (size_t g = 0; g < groups; ++g, source += 16, target += 16) {
    Prefetch(source);
    _mm_stream_si128(reinterpret_cast<__m128i*>(target), FourPixelsTo8Bits(source));
  }
}

__m128i DropFourthBytes(__m128i pixels) {
  return _mm_shuffle_epi8(pixels,
                          _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
}

void FloatToRgb8(const float* source, uint8_t* target, size_t groups) {
  size_t g = 0;
  // Four groups make 48 bytes: three aligned streaming stores.
  for (; g + 4 <= groups; g += 4, source += 64, target += 48) {
    Prefetch(source);
    Prefetch(source + 32);
    const __m128i c0 = DropFourthBytes(FourPixelsTo8Bits(source));
    const __m128i c1 = DropFourthBytes(FourPixelsTo8Bits(source + 16));
    const __m128i c2 = DropFourthBytes(FourPixelsTo8Bits(source + 32));
    const __m128i c3 = DropFourthBytes(FourPixelsTo8Bits(source + 48));
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

template <bool kBigEndian>
void FloatToRgb10(const float* source, uint8_t* target, size_t groups) {
  for (size_t g = 0; g < groups; ++g, source += 16, target += 16) {
    Prefetch(source);
    __m128 p0 = Scale10(_mm_loadu_ps(source));
    __m128 p1 = Scale10(_mm_loadu_ps(source + 4));
    __m128 p2 = Scale10(_mm_loadu_ps(source + 8));
    __m128 p3 = Scale10(_mm_loadu_ps(source + 12));
    _MM_TRANSPOSE4_PS(p0, p1, p2, p3);
    __m128i words = Word10(p0, p1, p2);
    if constexpr (kBigEndian) words = ByteSwapWords(words);
    _mm_stream_si128(reinterpret_cast<__m128i*>(target), words);
  }
}

// Three RGBA pixels a, b, c hold twelve samples; word k takes samples 3k, 3k+1 and 3k+2, so the
// first slots are (a0, a3, b2, c1), the second (a1, b0, b3, c2) and the third (a2, b1, c0, c3).
template <bool kBigEndian>
void FloatToRgba10(const float* source, uint8_t* target, size_t groups) {
  for (size_t g = 0; g < groups; ++g, source += 12, target += 16) {
    Prefetch(source);
    const __m128 a = Scale10(_mm_loadu_ps(source));
    const __m128 b = Scale10(_mm_loadu_ps(source + 4));
    const __m128 c = Scale10(_mm_loadu_ps(source + 8));
    __m128 first = _mm_blend_ps(_mm_shuffle_ps(a, a, _MM_SHUFFLE(0, 0, 3, 0)), b, 0x4);
    first = _mm_blend_ps(first, _mm_shuffle_ps(c, c, _MM_SHUFFLE(1, 0, 0, 0)), 0x8);
    __m128 second = _mm_blend_ps(_mm_shuffle_ps(a, a, _MM_SHUFFLE(1, 1, 1, 1)),
                                 _mm_shuffle_ps(b, b, _MM_SHUFFLE(3, 3, 0, 0)), 0x6);
    second = _mm_blend_ps(second, _mm_shuffle_ps(c, c, _MM_SHUFFLE(2, 2, 2, 2)), 0x8);
    __m128 third = _mm_blend_ps(_mm_shuffle_ps(a, a, _MM_SHUFFLE(2, 2, 2, 2)),
                                _mm_shuffle_ps(b, b, _MM_SHUFFLE(1, 1, 1, 1)), 0x2);
    third = _mm_blend_ps(third, _mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 0, 0, 0)), 0xC);
    __m128i words = Word10(first, second, third);
    if constexpr (kBigEndian) words = ByteSwapWords(words);
    _mm_stream_si128(reinterpret_cast<__m128i*>(target), words);
  }
}

template <bool kSwap>
void Rgba16ToRgba8(const uint16_t* source, uint8_t* target, size_t groups) {
  const __m128i swap = _mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15);
  for (size_t g = 0; g < groups; ++g) {
    Prefetch(source);
    Prefetch(source + 32);
    for (int quarter = 0; quarter < 4; ++quarter, source += 16, target += 16) {
      const __m128i low =
          _mm_srli_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(source)), 8);
      const __m128i high =
          _mm_srli_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 8)), 8);
      __m128i bytes = _mm_packus_epi16(low, high);
      if constexpr (kSwap) bytes = _mm_shuffle_epi8(bytes, swap);
      _mm_stream_si128(reinterpret_cast<__m128i*>(target), bytes);
    }
  }
}

void StoreFence() {
  _mm_sfence();
}

constexpr SConvertKernels kSse41Kernels = {SimdTierName(ESimdTier::kSSE),
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

const SConvertKernels& ConvertKernelsSse41() {
  return kSse41Kernels;
}

}  // namespace Tincta
