// 256-bit kernels (AVX2 with fused multiply-add). Coordinate arithmetic runs on eight lanes;
// texel arithmetic on two pixels per vector, pixel p in the low half and pixel p + 4 in the high
// half, so that an in-lane transpose turns pixels into planes and back. a + (b - a) x f is one
// subtraction and one fused multiply-add; everything else rounds where it is written, exactly as
// the 128-bit kernels do (the file is built without floating-point contraction).
#include <immintrin.h>

#include <cstring>

#include "engine/cpu/cpu_kernels.h"

namespace Tincta {
namespace {

template <class Block>
void RunBlocks(const float* source, float* destination, size_t pixels, const Block& block) {
  size_t p = 0;
  for (; p + kSamplerLanes <= pixels; p += kSamplerLanes)
    block(source + 4 * p, destination + 4 * p);
  if (p == pixels) return;
  alignas(32) float tail[4 * kSamplerLanes] = {};
  const size_t bytes = (pixels - p) * 16;
  std::memcpy(tail, source + 4 * p, bytes);
  block(tail, tail);
  std::memcpy(destination + 4 * p, tail, bytes);
}

inline __m256 Lerp(__m256 a, __m256 b, __m256 f) {
  return _mm256_fmadd_ps(_mm256_sub_ps(b, a), f, a);
}

inline __m128 Lerp(__m128 a, __m128 b, __m128 f) {
  return _mm_fmadd_ps(_mm_sub_ps(b, a), f, a);
}

// Two 16-byte texels: `low` into the low half, `high` into the high half.
inline __m256 LoadPair(const char* low, const char* high) {
  return _mm256_insertf128_ps(
      _mm256_castps128_ps256(_mm_loadu_ps(reinterpret_cast<const float*>(low))),
      _mm_loadu_ps(reinterpret_cast<const float*>(high)), 1);
}

inline void StorePair(float* low, float* high, __m256 value) {
  _mm_storeu_ps(low, _mm256_castps256_ps128(value));
  _mm_storeu_ps(high, _mm256_extractf128_ps(value, 1));
}

// In-lane 4 x 4 transpose of four vectors.
inline void Transpose4(__m256& a, __m256& b, __m256& c, __m256& d) {
  const __m256 t0 = _mm256_unpacklo_ps(a, b);
  const __m256 t1 = _mm256_unpackhi_ps(a, b);
  const __m256 t2 = _mm256_unpacklo_ps(c, d);
  const __m256 t3 = _mm256_unpackhi_ps(c, d);
  a = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
  b = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
  c = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
  d = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
}

// x = s x size - 0.5, clamped to [0, limit]; NaN lands on 0 (max returns its second operand
// when the first is NaN).
inline void Coordinate(__m256 s, const SLanes<float>& size, const SLanes<float>& limit,
                       __m256i& index, __m256& fraction) {
  __m256 x = _mm256_sub_ps(_mm256_mul_ps(s, _mm256_load_ps(size.lane)), _mm256_set1_ps(0.5f));
  x = _mm256_min_ps(_mm256_max_ps(x, _mm256_setzero_ps()), _mm256_load_ps(limit.lane));
  index = _mm256_cvttps_epi32(x);
  fraction = _mm256_sub_ps(x, _mm256_cvtepi32_ps(index));
}

inline __m256 Map(__m256 value, const SLUTDomainMapping& mapping, int channel) {
  return _mm256_add_ps(_mm256_mul_ps(value, _mm256_set1_ps(mapping.scale[channel])),
                       _mm256_set1_ps(mapping.offset[channel]));
}

// pairs[p] = pixels p and p + 4.
inline void LoadPixels(const float* source, __m256* pairs) {
  for (int p = 0; p < 4; ++p) {
    pairs[p] = LoadPair(reinterpret_cast<const char*>(source + 4 * p),
                        reinterpret_cast<const char*>(source + 4 * (p + 4)));
  }
}

inline void ToPlanes(const __m256* pairs, __m256& red, __m256& green, __m256& blue) {
  __m256 a = pairs[0], b = pairs[1], c = pairs[2], d = pairs[3];
  Transpose4(a, b, c, d);
  red = a;
  green = b;
  blue = c;
}

inline void ToPairs(__m256 x, __m256 y, __m256 z, __m256* pairs) {
  __m256 w = _mm256_setzero_ps();
  Transpose4(x, y, z, w);
  pairs[0] = x;
  pairs[1] = y;
  pairs[2] = z;
  pairs[3] = w;
}

inline void StorePixels(float* destination, const __m256* results, const __m256* pairs) {
  for (int p = 0; p < 4; ++p) {
    StorePair(destination + 4 * p, destination + 4 * (p + 4),
              _mm256_blend_ps(results[p], pairs[p], 0b10001000));
  }
}

// Trilinear sampling of eight lanes; out[p] holds pixels p and p + 4.
inline void Trilinear(const SCPUTextureUnit& unit, __m256 s, __m256 t, __m256 r, __m256* out) {
  __m256i i, j, k;
  __m256 fx, fy, fz;
  Coordinate(s, unit.size[0], unit.linearClamp[0], i, fx);
  Coordinate(t, unit.size[1], unit.linearClamp[1], j, fy);
  Coordinate(r, unit.size[2], unit.linearClamp[2], k, fz);
  const __m256 rowsAndSlices =
      _mm256_add_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(j), _mm256_load_ps(unit.size[0].lane)),
                    _mm256_mul_ps(_mm256_cvtepi32_ps(k), _mm256_load_ps(unit.planeArea.lane)));
  const __m256i index = _mm256_add_epi32(i, _mm256_cvttps_epi32(rowsAndSlices));
  alignas(32) int32_t offset[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(offset), _mm256_slli_epi32(index, 4));
  __m256 fractions[4];
  ToPairs(fx, fy, fz, fractions);

  const char* base = reinterpret_cast<const char*>(unit.data);
  const size_t row = unit.rowBytes.Value();
  const size_t slice = unit.sliceBytes.Value();
  for (int p = 0; p < 4; ++p) {
    const char* low = base + offset[p];
    const char* high = base + offset[p + 4];
    const __m256 f = fractions[p];
    const __m256 wx = _mm256_permute_ps(f, _MM_SHUFFLE(0, 0, 0, 0));
    const __m256 wy = _mm256_permute_ps(f, _MM_SHUFFLE(1, 1, 1, 1));
    const __m256 wz = _mm256_permute_ps(f, _MM_SHUFFLE(2, 2, 2, 2));
    const __m256 c00 = Lerp(LoadPair(low, high), LoadPair(low + 16, high + 16), wx);
    const __m256 c10 =
        Lerp(LoadPair(low + row, high + row), LoadPair(low + row + 16, high + row + 16), wx);
    const __m256 c01 = Lerp(LoadPair(low + slice, high + slice),
                            LoadPair(low + slice + 16, high + slice + 16), wx);
    const __m256 c11 = Lerp(LoadPair(low + row + slice, high + row + slice),
                            LoadPair(low + row + slice + 16, high + row + slice + 16), wx);
    const __m256 c0 = Lerp(c00, c10, wy);
    const __m256 c1 = Lerp(c01, c11, wy);
    out[p] = Lerp(c0, c1, wz);
  }
}

// One 1-D lookup per channel: out[p] holds, for pixels p and p + 4, the red curve at the red
// coordinate, the green curve at the green one, the blue curve at the blue one. Lane for lane
// this is the 1-D sampler's result with the other channels dropped.
inline void Curves(const SCPUTextureUnit& unit, __m256 s, __m256 t, __m256 r, __m256* out) {
  __m256i iRed, iGreen, iBlue;
  __m256 fRed, fGreen, fBlue;
  Coordinate(s, unit.size[0], unit.linearClamp[0], iRed, fRed);
  Coordinate(t, unit.size[0], unit.linearClamp[0], iGreen, fGreen);
  Coordinate(r, unit.size[0], unit.linearClamp[0], iBlue, fBlue);
  alignas(32) int32_t offRed[8], offGreen[8], offBlue[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(offRed), _mm256_slli_epi32(iRed, 4));
  _mm256_store_si256(reinterpret_cast<__m256i*>(offGreen), _mm256_slli_epi32(iGreen, 4));
  _mm256_store_si256(reinterpret_cast<__m256i*>(offBlue), _mm256_slli_epi32(iBlue, 4));
  __m256 fractions[4];
  ToPairs(fRed, fGreen, fBlue, fractions);

  // A texel and its upper neighbour are one 32-byte load: [T[i] | T[i + 1]].
  const char* base = reinterpret_cast<const char*>(unit.data);
  auto neighbours = [base](int32_t offset) {
    return _mm256_loadu_ps(reinterpret_cast<const float*>(base + offset));
  };
  for (int p = 0; p < 4; ++p) {
    __m128 half[2];
    for (int h = 0; h < 2; ++h) {
      const int q = p + 4 * h;
      const __m256 both = _mm256_blend_ps(
          _mm256_blend_ps(neighbours(offRed[q]), neighbours(offGreen[q]), 0b00100010),
          neighbours(offBlue[q]), 0b01000100);
      const __m128 f =
          h == 0 ? _mm256_castps256_ps128(fractions[p]) : _mm256_extractf128_ps(fractions[p], 1);
      half[h] = Lerp(_mm256_castps256_ps128(both), _mm256_extractf128_ps(both, 1), f);
    }
    out[p] = _mm256_set_m128(half[1], half[0]);
  }
}

struct SBlockLUT1D {
  const SCPUTextureUnit& table;
  const SLUTDomainMapping& mapping;
  void operator()(const float* source, float* destination) const {
    __m256 pairs[4], results[4], red, green, blue;
    LoadPixels(source, pairs);
    ToPlanes(pairs, red, green, blue);
    Curves(table, Map(red, mapping, 0), Map(green, mapping, 1), Map(blue, mapping, 2), results);
    StorePixels(destination, results, pairs);
  }
};

struct SBlockLUT3D {
  const SCPUTextureUnit& table;
  const SLUTDomainMapping& mapping;
  void operator()(const float* source, float* destination) const {
    __m256 pairs[4], results[4], red, green, blue;
    LoadPixels(source, pairs);
    ToPlanes(pairs, red, green, blue);
    Trilinear(table, Map(red, mapping, 0), Map(green, mapping, 1), Map(blue, mapping, 2), results);
    StorePixels(destination, results, pairs);
  }
};

struct SBlockLUT1D3D {
  const SCPUTextureUnit& shaper;
  const SCPUTextureUnit& cube;
  const SLUTDomainMapping& mapping;
  void operator()(const float* source, float* destination) const {
    __m256 pairs[4], shaped[4], results[4], red, green, blue;
    LoadPixels(source, pairs);
    ToPlanes(pairs, red, green, blue);
    Curves(shaper, Map(red, mapping, 0), Map(green, mapping, 1), Map(blue, mapping, 2), shaped);
    ToPlanes(shaped, red, green, blue);
    Trilinear(cube, red, green, blue, results);
    StorePixels(destination, results, pairs);
  }
};

void Sample1D(const SCPUTextureUnit& unit, const float* s, float* texels) {
  __m256i index;
  __m256 fraction;
  Coordinate(_mm256_loadu_ps(s), unit.size[0], unit.linearClamp[0], index, fraction);
  alignas(32) int32_t offset[8];
  alignas(32) float weight[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(offset), _mm256_slli_epi32(index, 4));
  _mm256_store_ps(weight, fraction);
  const char* base = reinterpret_cast<const char*>(unit.data);
  for (int p = 0; p < 8; ++p) {
    const char* c = base + offset[p];
    _mm_storeu_ps(texels + 4 * p, Lerp(_mm_loadu_ps(reinterpret_cast<const float*>(c)),
                                       _mm_loadu_ps(reinterpret_cast<const float*>(c + 16)),
                                       _mm_set1_ps(weight[p])));
  }
}

void Sample3D(const SCPUTextureUnit& unit, const float* s, const float* t, const float* r,
              float* texels) {
  __m256 results[4];
  Trilinear(unit, _mm256_loadu_ps(s), _mm256_loadu_ps(t), _mm256_loadu_ps(r), results);
  for (int p = 0; p < 4; ++p)
    StorePair(texels + 4 * p, texels + 4 * (p + 4), results[p]);
}

void Mix(float* first, const float* second, float k, size_t pixels) {
  const __m256 weight = _mm256_set1_ps(k);
  size_t p = 0;
  for (; p + 2 <= pixels; p += 2) {
    const __m256 a = _mm256_loadu_ps(first + 4 * p);
    const __m256 b = _mm256_loadu_ps(second + 4 * p);
    const __m256 mixed = _mm256_fmadd_ps(_mm256_sub_ps(a, b), weight, b);
    _mm256_storeu_ps(first + 4 * p, _mm256_blend_ps(mixed, a, 0b10001000));
  }
  if (p < pixels) {
    const __m128 a = _mm_loadu_ps(first + 4 * p);
    const __m128 b = _mm_loadu_ps(second + 4 * p);
    const __m128 mixed = _mm_fmadd_ps(_mm_sub_ps(a, b), _mm256_castps256_ps128(weight), b);
    _mm_storeu_ps(first + 4 * p, _mm_blend_ps(mixed, a, 0b1000));
  }
}

void SwapRedBlue(float* pixels, size_t count) {
  constexpr int kOrder = _MM_SHUFFLE(3, 0, 1, 2);
  size_t p = 0;
  for (; p + 8 <= count; p += 8) {
    float* at = pixels + 4 * p;
    const __m256 a = _mm256_loadu_ps(at);
    const __m256 b = _mm256_loadu_ps(at + 8);
    const __m256 c = _mm256_loadu_ps(at + 16);
    const __m256 d = _mm256_loadu_ps(at + 24);
    _mm256_storeu_ps(at, _mm256_permute_ps(a, kOrder));
    _mm256_storeu_ps(at + 8, _mm256_permute_ps(b, kOrder));
    _mm256_storeu_ps(at + 16, _mm256_permute_ps(c, kOrder));
    _mm256_storeu_ps(at + 24, _mm256_permute_ps(d, kOrder));
  }
  for (; p < count; ++p) {
    const __m128 a = _mm_loadu_ps(pixels + 4 * p);
    _mm_storeu_ps(pixels + 4 * p, _mm_permute_ps(a, kOrder));
  }
}

void CopyBlock(void* destination, const void* source, size_t bytes) {
  auto* to = static_cast<char*>(destination);
  const auto* from = static_cast<const char*>(source);
  size_t at = 0;
  for (; at + 128 <= bytes; at += 128) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + at));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + at + 32));
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + at + 64));
    const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + at + 96));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at), a);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at + 32), b);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at + 64), c);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at + 96), d);
  }
  if (at < bytes) std::memcpy(to + at, from + at, bytes - at);
}

void Fill32(void* destination, uint32_t value, size_t count) {
  auto* to = static_cast<uint32_t*>(destination);
  const __m256i v = _mm256_set1_epi32(static_cast<int>(value));
  size_t at = 0;
  for (; at + 8 <= count; at += 8)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at), v);
  for (; at < count; ++at)
    to[at] = value;
}

void ApplyLUT1D(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping, const float* source,
                float* destination, size_t pixels) {
  RunBlocks(source, destination, pixels, SBlockLUT1D{table, mapping});
}

void ApplyLUT3D(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping, const float* source,
                float* destination, size_t pixels) {
  RunBlocks(source, destination, pixels, SBlockLUT3D{table, mapping});
}

void ApplyLUT1D3D(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                  const SLUTDomainMapping& mapping, const float* source, float* destination,
                  size_t pixels) {
  RunBlocks(source, destination, pixels, SBlockLUT1D3D{shaper, cube, mapping});
}

constexpr SCPUKernelTable kTable{
    "avx2",    Sample1D, Sample3D,   Mix,        SwapRedBlue,
    CopyBlock, Fill32,   ApplyLUT1D, ApplyLUT3D, ApplyLUT1D3D,
};

}  // namespace

const SCPUKernelTable& CPUKernelsAVX2() {
  return kTable;
}

}  // namespace Tincta
