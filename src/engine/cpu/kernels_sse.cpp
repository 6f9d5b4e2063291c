// 128-bit kernels (SSE4.1). One pixel per vector for the texel arithmetic, four lanes per vector
// for the coordinate arithmetic; every rounding happens where it is written (a + (b - a) x f is
// a subtraction, a product and a sum).
#include <immintrin.h>

#include <cstring>

#include "engine/cpu/cpu_kernels.h"

namespace Tincta {
namespace {

void SwapRedBlue(float* pixels, size_t count);

// Runs `block` on whole groups of eight pixels; a tail of fewer than eight goes through a
// zero-padded copy so that the block never reads or writes past the row. `writeBack` is the
// source itself when the exchanged source pixels are to be kept, else null.
template <bool kExchange, bool kStream, class Block>
void RunBlocksAs(const float* source, float* writeBack, float* destination, size_t pixels,
                 const Block& block) {
  size_t p = 0;
  for (; p + kSamplerLanes <= pixels; p += kSamplerLanes) {
    block.template Run<kExchange, kStream>(source + 4 * p, writeBack ? writeBack + 4 * p : nullptr,
                                           destination + 4 * p);
  }
  if (p == pixels) return;
  alignas(32) float tail[4 * kSamplerLanes] = {};
  const size_t bytes = (pixels - p) * 16;
  std::memcpy(tail, source + 4 * p, bytes);
  if (writeBack) SwapRedBlue(writeBack + 4 * p, pixels - p);
  block.template Run<kExchange, false>(tail, nullptr, tail);
  std::memcpy(destination + 4 * p, tail, bytes);
}

// Streams the destination where asked, unless it is the source (whose lines the pass has just
// read) or not aligned for the streaming stores.
template <bool kExchange, class Block>
void RunBlocks(const float* source, float* writeBack, float* destination, size_t pixels,
               EDestinationWrites writes, const Block& block) {
  if (writes == EDestinationWrites::kStreamed && destination != source &&
      (reinterpret_cast<uintptr_t>(destination) & 15) == 0) {
    RunBlocksAs<kExchange, true>(source, writeBack, destination, pixels, block);
    _mm_sfence();
  } else {
    RunBlocksAs<kExchange, false>(source, writeBack, destination, pixels, block);
  }
}

inline __m128 Lerp(__m128 a, __m128 b, __m128 f) {
  return _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(b, a), f));
}

constexpr int kRedBlueOrder = _MM_SHUFFLE(3, 0, 1, 2);

inline __m128 ExchangeRedBlue(__m128 pixel) {
  return _mm_shuffle_ps(pixel, pixel, kRedBlueOrder);
}

inline __m128 LoadTexel(const char* address) {
  return _mm_loadu_ps(reinterpret_cast<const float*>(address));
}

// x = s x size - 0.5, clamped to [0, limit]; NaN lands on 0 because max returns its second
// operand when the first is NaN.
inline void Coordinate(__m128 s, const SLanes<float>& size, const SLanes<float>& limit,
                       __m128i& index, __m128& fraction) {
  __m128 x = _mm_sub_ps(_mm_mul_ps(s, _mm_load_ps(size.lane)), _mm_set1_ps(0.5f));
  x = _mm_min_ps(_mm_max_ps(x, _mm_setzero_ps()), _mm_load_ps(limit.lane));
  index = _mm_cvttps_epi32(x);
  fraction = _mm_sub_ps(x, _mm_cvtepi32_ps(index));
}

inline __m128 Map(__m128 value, const SLUTDomainMapping& mapping, int channel) {
  return _mm_add_ps(_mm_mul_ps(value, _mm_set1_ps(mapping.scale[channel])),
                    _mm_set1_ps(mapping.offset[channel]));
}

// Four pixels in, red, green and blue planes out; with kExchange the pixels are held blue first.
template <bool kExchange>
inline void ToPlanes(const __m128* pixels, __m128& red, __m128& green, __m128& blue) {
  __m128 p0 = pixels[0], p1 = pixels[1], p2 = pixels[2], p3 = pixels[3];
  _MM_TRANSPOSE4_PS(p0, p1, p2, p3);
  red = kExchange ? p2 : p0;
  green = p1;
  blue = kExchange ? p0 : p2;
}

// Four lanes of (x, y, z) fractions out as one (fx, fy, fz, 0) vector per pixel.
inline void ToPixels(__m128 x, __m128 y, __m128 z, __m128* pixels) {
  __m128 w = _mm_setzero_ps();
  _MM_TRANSPOSE4_PS(x, y, z, w);
  pixels[0] = x;
  pixels[1] = y;
  pixels[2] = z;
  pixels[3] = w;
}

// Trilinear sampling of four lanes; out[p] is pixel p's RGBA.
inline void Trilinear4(const SCPUTextureUnit& unit, __m128 s, __m128 t, __m128 r, __m128* out) {
  __m128i i, j, k;
  __m128 fx, fy, fz;
  Coordinate(s, unit.size[0], unit.linearClamp[0], i, fx);
  Coordinate(t, unit.size[1], unit.linearClamp[1], j, fy);
  Coordinate(r, unit.size[2], unit.linearClamp[2], k, fz);
  const __m128 rowsAndSlices =
      _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(j), _mm_load_ps(unit.size[0].lane)),
                 _mm_mul_ps(_mm_cvtepi32_ps(k), _mm_load_ps(unit.planeArea.lane)));
  const __m128i index = _mm_add_epi32(i, _mm_cvttps_epi32(rowsAndSlices));
  alignas(16) int32_t offset[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(offset), _mm_slli_epi32(index, 4));
  __m128 fractions[4];
  ToPixels(fx, fy, fz, fractions);

  const char* base = reinterpret_cast<const char*>(unit.data);
  const size_t row = unit.rowBytes.Value();
  const size_t slice = unit.sliceBytes.Value();
  for (int p = 0; p < 4; ++p) {
    const char* c = base + offset[p];
    const __m128 f = fractions[p];
    const __m128 wx = _mm_shuffle_ps(f, f, _MM_SHUFFLE(0, 0, 0, 0));
    const __m128 wy = _mm_shuffle_ps(f, f, _MM_SHUFFLE(1, 1, 1, 1));
    const __m128 wz = _mm_shuffle_ps(f, f, _MM_SHUFFLE(2, 2, 2, 2));
    const __m128 c00 = Lerp(LoadTexel(c), LoadTexel(c + 16), wx);
    const __m128 c10 = Lerp(LoadTexel(c + row), LoadTexel(c + row + 16), wx);
    const __m128 c01 = Lerp(LoadTexel(c + slice), LoadTexel(c + slice + 16), wx);
    const __m128 c11 = Lerp(LoadTexel(c + row + slice), LoadTexel(c + row + slice + 16), wx);
    const __m128 c0 = Lerp(c00, c10, wy);
    const __m128 c1 = Lerp(c01, c11, wy);
    out[p] = Lerp(c0, c1, wz);
  }
}

// One 1-D lookup per channel for four pixels: out[p] holds the red curve at pixel p's red
// coordinate, the green curve at its green coordinate, the blue curve at its blue coordinate.
// Lane for lane this is the 1-D sampler's result with the other channels dropped.
inline void Curves4(const SCPUTextureUnit& unit, __m128 s, __m128 t, __m128 r, __m128* out) {
  __m128i iRed, iGreen, iBlue;
  __m128 fRed, fGreen, fBlue;
  Coordinate(s, unit.size[0], unit.linearClamp[0], iRed, fRed);
  Coordinate(t, unit.size[0], unit.linearClamp[0], iGreen, fGreen);
  Coordinate(r, unit.size[0], unit.linearClamp[0], iBlue, fBlue);
  alignas(16) int32_t offRed[4], offGreen[4], offBlue[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(offRed), _mm_slli_epi32(iRed, 4));
  _mm_store_si128(reinterpret_cast<__m128i*>(offGreen), _mm_slli_epi32(iGreen, 4));
  _mm_store_si128(reinterpret_cast<__m128i*>(offBlue), _mm_slli_epi32(iBlue, 4));
  __m128 fractions[4];
  ToPixels(fRed, fGreen, fBlue, fractions);

  const char* base = reinterpret_cast<const char*>(unit.data);
  for (int p = 0; p < 4; ++p) {
    const char* red = base + offRed[p];
    const char* green = base + offGreen[p];
    const char* blue = base + offBlue[p];
    const __m128 low = _mm_blend_ps(_mm_blend_ps(LoadTexel(red), LoadTexel(green), 0b0010),
                                    LoadTexel(blue), 0b0100);
    const __m128 high =
        _mm_blend_ps(_mm_blend_ps(LoadTexel(red + 16), LoadTexel(green + 16), 0b0010),
                     LoadTexel(blue + 16), 0b0100);
    out[p] = Lerp(low, high, fractions[p]);
  }
}

// Loads four pixels; with kExchange `writeBack` (when not null) receives them red first.
template <bool kExchange>
inline void LoadPixels4(const float* source, float* writeBack, __m128* pixels) {
  for (int p = 0; p < 4; ++p) {
    pixels[p] = _mm_loadu_ps(source + 4 * p);
    if (kExchange && writeBack) _mm_storeu_ps(writeBack + 4 * p, ExchangeRedBlue(pixels[p]));
  }
}

// Stores four results (red first) with the source pixels' alpha.
template <bool kExchange, bool kStream>
inline void StorePixels4(float* destination, const __m128* results, const __m128* pixels) {
  for (int p = 0; p < 4; ++p) {
    const __m128 result = kExchange ? ExchangeRedBlue(results[p]) : results[p];
    const __m128 pixel = _mm_blend_ps(result, pixels[p], 0b1000);
    if constexpr (kStream) {
      _mm_stream_ps(destination + 4 * p, pixel);
    } else {
      _mm_storeu_ps(destination + 4 * p, pixel);
    }
  }
}

// Copies, not references, of the tables and mapping: the destination's stores could alias a
// reference's target and make every block read it again.
struct SBlockLUT1D {
  const SCPUTextureUnit table;
  const SLUTDomainMapping mapping;
  template <bool kExchange, bool kStream>
  void Run(const float* source, float* writeBack, float* destination) const {
    for (int group = 0; group < 2; ++group) {
      __m128 pixels[4], results[4], red, green, blue;
      LoadPixels4<kExchange>(source + 16 * group, writeBack ? writeBack + 16 * group : nullptr,
                             pixels);
      ToPlanes<kExchange>(pixels, red, green, blue);
      Curves4(table, Map(red, mapping, 0), Map(green, mapping, 1), Map(blue, mapping, 2), results);
      StorePixels4<kExchange, kStream>(destination + 16 * group, results, pixels);
    }
  }
};

struct SBlockLUT3D {
  const SCPUTextureUnit table;
  const SLUTDomainMapping mapping;
  template <bool kExchange, bool kStream>
  void Run(const float* source, float* writeBack, float* destination) const {
    for (int group = 0; group < 2; ++group) {
      __m128 pixels[4], results[4], red, green, blue;
      LoadPixels4<kExchange>(source + 16 * group, writeBack ? writeBack + 16 * group : nullptr,
                             pixels);
      ToPlanes<kExchange>(pixels, red, green, blue);
      Trilinear4(table, Map(red, mapping, 0), Map(green, mapping, 1), Map(blue, mapping, 2),
                 results);
      StorePixels4<kExchange, kStream>(destination + 16 * group, results, pixels);
    }
  }
};

struct SBlockLUT1D3D {
  const SCPUTextureUnit shaper;
  const SCPUTextureUnit cube;
  const SLUTDomainMapping mapping;
  template <bool kExchange, bool kStream>
  void Run(const float* source, float* writeBack, float* destination) const {
    for (int group = 0; group < 2; ++group) {
      __m128 pixels[4], shaped[4], results[4], red, green, blue;
      LoadPixels4<kExchange>(source + 16 * group, writeBack ? writeBack + 16 * group : nullptr,
                             pixels);
      ToPlanes<kExchange>(pixels, red, green, blue);
      Curves4(shaper, Map(red, mapping, 0), Map(green, mapping, 1), Map(blue, mapping, 2), shaped);
      ToPlanes<false>(shaped, red, green, blue);
      Trilinear4(cube, red, green, blue, results);
      StorePixels4<kExchange, kStream>(destination + 16 * group, results, pixels);
    }
  }
};

void Sample1D(const SCPUTextureUnit& unit, const float* s, float* texels) {
  const char* base = reinterpret_cast<const char*>(unit.data);
  for (int group = 0; group < 2; ++group) {
    __m128i index;
    __m128 fraction;
    Coordinate(_mm_loadu_ps(s + 4 * group), unit.size[0], unit.linearClamp[0], index, fraction);
    alignas(16) int32_t offset[4];
    alignas(16) float weight[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(offset), _mm_slli_epi32(index, 4));
    _mm_store_ps(weight, fraction);
    for (int p = 0; p < 4; ++p) {
      const char* c = base + offset[p];
      _mm_storeu_ps(texels + 16 * group + 4 * p,
                    Lerp(LoadTexel(c), LoadTexel(c + 16), _mm_set1_ps(weight[p])));
    }
  }
}

void Sample3D(const SCPUTextureUnit& unit, const float* s, const float* t, const float* r,
              float* texels) {
  for (int group = 0; group < 2; ++group) {
    __m128 results[4];
    Trilinear4(unit, _mm_loadu_ps(s + 4 * group), _mm_loadu_ps(t + 4 * group),
               _mm_loadu_ps(r + 4 * group), results);
    for (int p = 0; p < 4; ++p)
      _mm_storeu_ps(texels + 16 * group + 4 * p, results[p]);
  }
}

void Mix(float* first, const float* second, float k, size_t pixels) {
  const __m128 weight = _mm_set1_ps(k);
  for (size_t p = 0; p < pixels; ++p) {
    const __m128 a = _mm_loadu_ps(first + 4 * p);
    const __m128 b = _mm_loadu_ps(second + 4 * p);
    const __m128 mixed = _mm_add_ps(_mm_mul_ps(_mm_sub_ps(a, b), weight), b);
    _mm_storeu_ps(first + 4 * p, _mm_blend_ps(mixed, a, 0b1000));
  }
}

void SwapRedBlue(float* pixels, size_t count) {
  constexpr int kOrder = _MM_SHUFFLE(3, 0, 1, 2);
  size_t p = 0;
  for (; p + 4 <= count; p += 4) {
    float* at = pixels + 4 * p;
    const __m128 a = _mm_loadu_ps(at);
    const __m128 b = _mm_loadu_ps(at + 4);
    const __m128 c = _mm_loadu_ps(at + 8);
    const __m128 d = _mm_loadu_ps(at + 12);
    _mm_storeu_ps(at, _mm_shuffle_ps(a, a, kOrder));
    _mm_storeu_ps(at + 4, _mm_shuffle_ps(b, b, kOrder));
    _mm_storeu_ps(at + 8, _mm_shuffle_ps(c, c, kOrder));
    _mm_storeu_ps(at + 12, _mm_shuffle_ps(d, d, kOrder));
  }
  for (; p < count; ++p) {
    const __m128 a = _mm_loadu_ps(pixels + 4 * p);
    _mm_storeu_ps(pixels + 4 * p, _mm_shuffle_ps(a, a, kOrder));
  }
}

void CopyBlock(void* destination, const void* source, size_t bytes) {
  auto* to = static_cast<char*>(destination);
  const auto* from = static_cast<const char*>(source);
  size_t at = 0;
  for (; at + 64 <= bytes; at += 64) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at + 16));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at + 32));
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at + 48));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at + 16), b);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at + 32), c);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at + 48), d);
  }
  if (at < bytes) std::memcpy(to + at, from + at, bytes - at);
}

void Fill32(void* destination, uint32_t value, size_t count) {
  auto* to = static_cast<uint32_t*>(destination);
  const __m128i v = _mm_set1_epi32(static_cast<int>(value));
  size_t at = 0;
  for (; at + 4 <= count; at += 4)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), v);
  for (; at < count; ++at)
    to[at] = value;
}

void ApplyLUT1D(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping, const float* source,
                float* destination, size_t pixels, EDestinationWrites writes) {
  RunBlocks<false>(source, nullptr, destination, pixels, writes, SBlockLUT1D{table, mapping});
}

void ApplyLUT3D(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping, const float* source,
                float* destination, size_t pixels, EDestinationWrites writes) {
  RunBlocks<false>(source, nullptr, destination, pixels, writes, SBlockLUT3D{table, mapping});
}

void ApplyLUT1D3D(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                  const SLUTDomainMapping& mapping, const float* source, float* destination,
                  size_t pixels, EDestinationWrites writes) {
  RunBlocks<false>(source, nullptr, destination, pixels, writes,
                   SBlockLUT1D3D{shaper, cube, mapping});
}

float* WriteBack(float* exchangedSource, const float* destination) {
  return exchangedSource == destination ? nullptr : exchangedSource;
}

void ApplyLUT1DExchanging(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                          const float* source, float* exchangedSource, float* destination,
                          size_t pixels, EDestinationWrites writes) {
  RunBlocks<true>(source, WriteBack(exchangedSource, destination), destination, pixels, writes,
                  SBlockLUT1D{table, mapping});
}

void ApplyLUT3DExchanging(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                          const float* source, float* exchangedSource, float* destination,
                          size_t pixels, EDestinationWrites writes) {
  RunBlocks<true>(source, WriteBack(exchangedSource, destination), destination, pixels, writes,
                  SBlockLUT3D{table, mapping});
}

void ApplyLUT1D3DExchanging(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                            const SLUTDomainMapping& mapping, const float* source,
                            float* exchangedSource, float* destination, size_t pixels,
                            EDestinationWrites writes) {
  RunBlocks<true>(source, WriteBack(exchangedSource, destination), destination, pixels, writes,
                  SBlockLUT1D3D{shaper, cube, mapping});
}

constexpr SCPUKernelTable kTable{
    SimdTierName(ESimdTier::kSSE),
    Sample1D,
    Sample3D,
    Mix,
    SwapRedBlue,
    CopyBlock,
    Fill32,
    ApplyLUT1D,
    ApplyLUT3D,
    ApplyLUT1D3D,
    ApplyLUT1DExchanging,
    ApplyLUT3DExchanging,
    ApplyLUT1D3DExchanging,
};

}  // namespace

const SCPUKernelTable& CPUKernelsSSE() {
  return kTable;
}

}  // namespace Tincta
