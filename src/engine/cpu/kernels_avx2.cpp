// 256-bit kernels (AVX2 with fused multiply-add). Coordinate arithmetic runs on eight lanes;
// trilinear texel arithmetic on two pixels per vector, one in each half, so that an in-lane
// transpose turns pixels into planes and back; 1-D curves load pairs of neighbours into planes.
// a + (b - a) x f is one subtraction and one fused multiply-add; everything else rounds where it
// is written, exactly as the 128-bit kernels do (the file is built without floating-point
// contraction).
#include <immintrin.h>

#include <cstring>

#include "engine/cpu/cpu_kernels.h"

namespace Tincta {
namespace {

inline __m256 Lerp(__m256 a, __m256 b, __m256 f) {
  return _mm256_fmadd_ps(_mm256_sub_ps(b, a), f, a);
}

inline __m128 Lerp(__m128 a, __m128 b, __m128 f) {
  return _mm_fmadd_ps(_mm_sub_ps(b, a), f, a);
}

// Texels x and x + 1 of two lookups, `low`'s in the low half and `high`'s in the high half,
// each pair read in one 32-byte load and interpolated at f.
inline __m256 LerpNeighbours(const char* low, const char* high, __m256 f) {
  const __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(low));
  const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(high));
  return Lerp(_mm256_permute2f128_ps(a, b, 0x20), _mm256_permute2f128_ps(a, b, 0x31), f);
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

// Streaming (non-temporal) stores skip reading the destination's lines before they are written.
template <bool kStream>
inline void Store8(float* destination, __m256 value) {
  if constexpr (kStream) {
    _mm256_stream_ps(destination, value);
  } else {
    _mm256_storeu_ps(destination, value);
  }
}

constexpr int kRedBlueOrder = _MM_SHUFFLE(3, 0, 1, 2);

inline __m256 ExchangeRedBlue(__m256 pixels) {
  return _mm256_permute_ps(pixels, kRedBlueOrder);
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

// Where the eight lanes of a trilinear lookup read the table (byte offsets), and with which
// weights: fractions[q] holds (fx, fy, fz, 0) of lane q in its low half and of lane q + 4 in its
// high half.
struct STrilinearLookups {
  alignas(32) int32_t offset[8];
  __m256 fractions[4];
};

inline void PrepareTrilinear(const SCPUTextureUnit& unit, __m256 s, __m256 t, __m256 r,
                             STrilinearLookups& lookups) {
  __m256i i, j, k;
  __m256 fx, fy, fz;
  Coordinate(s, unit.size[0], unit.linearClamp[0], i, fx);
  Coordinate(t, unit.size[1], unit.linearClamp[1], j, fy);
  Coordinate(r, unit.size[2], unit.linearClamp[2], k, fz);
  const __m256 rowsAndSlices =
      _mm256_add_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(j), _mm256_load_ps(unit.size[0].lane)),
                    _mm256_mul_ps(_mm256_cvtepi32_ps(k), _mm256_load_ps(unit.planeArea.lane)));
  const __m256i index = _mm256_add_epi32(i, _mm256_cvttps_epi32(rowsAndSlices));
  _mm256_store_si256(reinterpret_cast<__m256i*>(lookups.offset), _mm256_slli_epi32(index, 4));
  __m256 w = _mm256_setzero_ps();
  Transpose4(fx, fy, fz, w);
  lookups.fractions[0] = fx;
  lookups.fractions[1] = fy;
  lookups.fractions[2] = fz;
  lookups.fractions[3] = w;
}

// Trilinear result of lanes q (low half) and q + 4 (high half).
inline __m256 Trilinear(const SCPUTextureUnit& unit, const STrilinearLookups& lookups, int q) {
  const char* base = reinterpret_cast<const char*>(unit.data);
  const size_t row = unit.rowBytes.Value();
  const size_t slice = unit.sliceBytes.Value();
  const char* low = base + lookups.offset[q];
  const char* high = base + lookups.offset[q + 4];
  const __m256 f = lookups.fractions[q];
  const __m256 wx = _mm256_permute_ps(f, _MM_SHUFFLE(0, 0, 0, 0));
  const __m256 wy = _mm256_permute_ps(f, _MM_SHUFFLE(1, 1, 1, 1));
  const __m256 wz = _mm256_permute_ps(f, _MM_SHUFFLE(2, 2, 2, 2));
  const __m256 c00 = LerpNeighbours(low, high, wx);
  const __m256 c10 = LerpNeighbours(low + row, high + row, wx);
  const __m256 c01 = LerpNeighbours(low + slice, high + slice, wx);
  const __m256 c11 = LerpNeighbours(low + row + slice, high + row + slice, wx);
  const __m256 c0 = Lerp(c00, c10, wy);
  const __m256 c1 = Lerp(c01, c11, wy);
  return Lerp(c0, c1, wz);
}

// One 1-D lookup per channel for eight lanes: the red curve at the red coordinate, the green
// curve at the green one, the blue curve at the blue one, as planes. Only T[i].c and T[i + 1].c
// of channel c are needed: both come in one 64-bit load from the unit's curve pairs (plain
// loads: on the processors measured, eight of them beat two 4-lane gathers), or from two 8-lane
// gathers of single floats for a table too wide for pairs. Lane for lane this is the 1-D
// sampler's result with the other channels dropped.
struct SCurveLookups {
  __m256i index[3];  // texel indices
  __m256 fraction[3];
  __m256 alpha;  // the source pixels' alpha
};

inline void PrepareCurves(const SCPUTextureUnit& unit, const __m256 coordinates[3],
                          SCurveLookups& lookups) {
  for (int c = 0; c < 3; ++c) {
    Coordinate(coordinates[c], unit.size[0], unit.linearClamp[0], lookups.index[c],
               lookups.fraction[c]);
  }
}

// Loads the pairs of lanes 0, 1, 4, 5 and of lanes 2, 3, 6, 7 (the order in which AVX2 unzips
// two vectors of pairs within their 128-bit halves), so that the unzipped lanes come out in order.
inline void CurvesFromPairs(const SCPUTextureUnit& unit, const SCurveLookups& lookups,
                            __m256 planes[3]) {
  for (size_t c = 0; c < 3; ++c) {
    const auto* pairs = reinterpret_cast<const double*>(unit.curvePairs) + c * unit.width;
    alignas(32) int32_t texel[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(texel), lookups.index[c]);
    const __m128d p0 = _mm_loadh_pd(_mm_load_sd(pairs + texel[0]), pairs + texel[1]);
    const __m128d p2 = _mm_loadh_pd(_mm_load_sd(pairs + texel[2]), pairs + texel[3]);
    const __m128d p4 = _mm_loadh_pd(_mm_load_sd(pairs + texel[4]), pairs + texel[5]);
    const __m128d p6 = _mm_loadh_pd(_mm_load_sd(pairs + texel[6]), pairs + texel[7]);
    const __m256 first = _mm256_castpd_ps(_mm256_insertf128_pd(_mm256_castpd128_pd256(p0), p4, 1));
    const __m256 second = _mm256_castpd_ps(_mm256_insertf128_pd(_mm256_castpd128_pd256(p2), p6, 1));
    const __m256 low = _mm256_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0));
    const __m256 high = _mm256_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1));
    planes[c] = Lerp(low, high, lookups.fraction[c]);
  }
}

inline void Curves(const SCPUTextureUnit& unit, const SCurveLookups& lookups, __m256 planes[3]) {
  if (unit.curvePairs != nullptr) {
    CurvesFromPairs(unit, lookups, planes);
    return;
  }
  for (int c = 0; c < 3; ++c) {
    const __m256i floats = _mm256_slli_epi32(lookups.index[c], 2);
    const __m256 low = _mm256_i32gather_ps(unit.data + c, floats, 4);
    const __m256 high = _mm256_i32gather_ps(unit.data + 4 + c, floats, 4);
    planes[c] = Lerp(low, high, lookups.fraction[c]);
  }
}

// Eight source pixels as red, green, blue and alpha planes: the four vectors of the block hold
// pixels 2q and 2q + 1, so plane lane q is pixel 2q and lane q + 4 pixel 2q + 1. With kExchange
// the pixels are held blue first; `writeBack` (when not null) receives them red first.
template <bool kExchange>
inline void LoadPlanes(const float* source, float* writeBack, __m256 planes[4]) {
  __m256 a = _mm256_loadu_ps(source);
  __m256 b = _mm256_loadu_ps(source + 8);
  __m256 c = _mm256_loadu_ps(source + 16);
  __m256 d = _mm256_loadu_ps(source + 24);
  if (kExchange && writeBack != nullptr) {
    _mm256_storeu_ps(writeBack, ExchangeRedBlue(a));
    _mm256_storeu_ps(writeBack + 8, ExchangeRedBlue(b));
    _mm256_storeu_ps(writeBack + 16, ExchangeRedBlue(c));
    _mm256_storeu_ps(writeBack + 24, ExchangeRedBlue(d));
  }
  Transpose4(a, b, c, d);
  planes[0] = kExchange ? c : a;
  planes[1] = b;
  planes[2] = kExchange ? a : c;
  planes[3] = d;
}

inline void MapPlanes(const SLUTDomainMapping& mapping, __m256 planes[3]) {
  for (int c = 0; c < 3; ++c)
    planes[c] = Map(planes[c], mapping, c);
}

// Stores result q (pixels 2q and 2q + 1, red first) with the source pixels' alpha.
template <bool kExchange, bool kStream>
inline void StoreResult(__m256 result, const float* source, float* destination, int q) {
  if (kExchange) result = ExchangeRedBlue(result);
  Store8<kStream>(destination + 8 * q,
                  _mm256_blend_ps(result, _mm256_loadu_ps(source + 8 * q), 0b10001000));
}

// The LUT programs work in two stages per block of eight pixels: Prepare reads the pixels and
// works out where the lanes read the tables; Finish reads the tables, interpolates and stores.
// RunPipelined prepares block n + 1 before it finishes block n, so that the long chain from a
// pixel to its texel addresses runs beside the previous block's loads and interpolations
// instead of in front of them (one block at a time, the processor cannot look far enough ahead
// to overlap them by itself).
// The programs hold copies of their tables and mapping, not references: a store to the
// destination could alias what a reference points at, so each would be read again after it.
struct SProgram1D {
  using SLookups = SCurveLookups;
  const SCPUTextureUnit table;
  const SLUTDomainMapping mapping;
  template <bool kExchange>
  void Prepare(const float* source, float* writeBack, SLookups& lookups) const {
    __m256 planes[4];
    LoadPlanes<kExchange>(source, writeBack, planes);
    MapPlanes(mapping, planes);
    PrepareCurves(table, planes, lookups);
    lookups.alpha = planes[3];
  }
  template <bool kExchange, bool kStream>
  void Finish(const SLookups& lookups, const float*, float* destination) const {
    __m256 planes[3];
    Curves(table, lookups, planes);
    __m256 a = planes[kExchange ? 2 : 0], b = planes[1], c = planes[kExchange ? 0 : 2];
    __m256 d = lookups.alpha;
    Transpose4(a, b, c, d);
    Store8<kStream>(destination, a);
    Store8<kStream>(destination + 8, b);
    Store8<kStream>(destination + 16, c);
    Store8<kStream>(destination + 24, d);
  }
};

struct SProgram3D {
  using SLookups = STrilinearLookups;
  const SCPUTextureUnit table;
  const SLUTDomainMapping mapping;
  template <bool kExchange>
  void Prepare(const float* source, float* writeBack, SLookups& lookups) const {
    __m256 planes[4];
    LoadPlanes<kExchange>(source, writeBack, planes);
    MapPlanes(mapping, planes);
    PrepareTrilinear(table, planes[0], planes[1], planes[2], lookups);
  }
  template <bool kExchange, bool kStream>
  void Finish(const SLookups& lookups, const float* source, float* destination) const {
    for (int q = 0; q < 4; ++q)
      StoreResult<kExchange, kStream>(Trilinear(table, lookups, q), source, destination, q);
  }
};

// The shaper's lookups complete in Prepare; Finish samples the cube.
struct SProgram1D3D {
  using SLookups = STrilinearLookups;
  const SCPUTextureUnit shaper;
  const SCPUTextureUnit cube;
  const SLUTDomainMapping mapping;
  template <bool kExchange>
  void Prepare(const float* source, float* writeBack, SLookups& lookups) const {
    __m256 planes[4];
    LoadPlanes<kExchange>(source, writeBack, planes);
    MapPlanes(mapping, planes);
    SCurveLookups curves;
    PrepareCurves(shaper, planes, curves);
    Curves(shaper, curves, planes);
    PrepareTrilinear(cube, planes[0], planes[1], planes[2], lookups);
  }
  template <bool kExchange, bool kStream>
  void Finish(const SLookups& lookups, const float* source, float* destination) const {
    for (int q = 0; q < 4; ++q)
      StoreResult<kExchange, kStream>(Trilinear(cube, lookups, q), source, destination, q);
  }
};

void SwapRedBlue(float* pixels, size_t count);

// Runs `program` over whole blocks of eight pixels, block n + 1 prepared before block n is
// finished; a tail of fewer than eight goes through a zero-padded copy so that nothing is read
// or written past the row. `writeBack` is the source itself when the exchanged source pixels are
// to be kept, else null.
template <bool kExchange, bool kStream, class Program>
void RunPipelinedAs(const Program& program, const float* source, float* writeBack,
                    float* destination, size_t pixels) {
  const size_t whole = pixels / kSamplerLanes * kSamplerLanes;
  auto at = [](size_t p) { return 4 * p; };
  auto back = [writeBack, at](size_t p) { return writeBack ? writeBack + at(p) : nullptr; };
  if (whole != 0) {
    typename Program::SLookups even, odd;
    program.template Prepare<kExchange>(source, back(0), even);
    size_t p = 0;
    for (; p + 2 * kSamplerLanes <= whole; p += 2 * kSamplerLanes) {
      const size_t next = p + kSamplerLanes, afterNext = p + 2 * kSamplerLanes;
      program.template Prepare<kExchange>(source + at(next), back(next), odd);
      program.template Finish<kExchange, kStream>(even, source + at(p), destination + at(p));
      if (afterNext < whole) {
        program.template Prepare<kExchange>(source + at(afterNext), back(afterNext), even);
      }
      program.template Finish<kExchange, kStream>(odd, source + at(next), destination + at(next));
    }
    if (p != whole)
      program.template Finish<kExchange, kStream>(even, source + at(p), destination + at(p));
  }
  if (whole == pixels) return;
  alignas(32) float tail[4 * kSamplerLanes] = {};
  const size_t bytes = (pixels - whole) * 16;
  std::memcpy(tail, source + at(whole), bytes);
  if (writeBack) SwapRedBlue(writeBack + at(whole), pixels - whole);
  typename Program::SLookups lookups;
  program.template Prepare<kExchange>(tail, nullptr, lookups);
  program.template Finish<kExchange, false>(lookups, tail, tail);
  std::memcpy(destination + at(whole), tail, bytes);
}

// Streams the destination where asked, unless it is the source (whose lines the pass has just
// read) or not aligned for the streaming stores.
template <bool kExchange, class Program>
void RunPipelined(const Program& program, const float* source, float* writeBack, float* destination,
                  size_t pixels, EDestinationWrites writes) {
  if (writes == EDestinationWrites::kStreamed && destination != source &&
      (reinterpret_cast<uintptr_t>(destination) & 31) == 0) {
    RunPipelinedAs<kExchange, true>(program, source, writeBack, destination, pixels);
    _mm_sfence();
  } else {
    RunPipelinedAs<kExchange, false>(program, source, writeBack, destination, pixels);
  }
}

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
  STrilinearLookups lookups;
  PrepareTrilinear(unit, _mm256_loadu_ps(s), _mm256_loadu_ps(t), _mm256_loadu_ps(r), lookups);
  for (int q = 0; q < 4; ++q)
    StorePair(texels + 4 * q, texels + 4 * (q + 4), Trilinear(unit, lookups, q));
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
                float* destination, size_t pixels, EDestinationWrites writes) {
  RunPipelined<false>(SProgram1D{table, mapping}, source, nullptr, destination, pixels, writes);
}

void ApplyLUT3D(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping, const float* source,
                float* destination, size_t pixels, EDestinationWrites writes) {
  RunPipelined<false>(SProgram3D{table, mapping}, source, nullptr, destination, pixels, writes);
}

void ApplyLUT1D3D(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                  const SLUTDomainMapping& mapping, const float* source, float* destination,
                  size_t pixels, EDestinationWrites writes) {
  RunPipelined<false>(SProgram1D3D{shaper, cube, mapping}, source, nullptr, destination, pixels,
                      writes);
}

float* WriteBack(float* exchangedSource, const float* destination) {
  return exchangedSource == destination ? nullptr : exchangedSource;
}

void ApplyLUT1DExchanging(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                          const float* source, float* exchangedSource, float* destination,
                          size_t pixels, EDestinationWrites writes) {
  RunPipelined<true>(SProgram1D{table, mapping}, source, WriteBack(exchangedSource, destination),
                     destination, pixels, writes);
}

void ApplyLUT3DExchanging(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                          const float* source, float* exchangedSource, float* destination,
                          size_t pixels, EDestinationWrites writes) {
  RunPipelined<true>(SProgram3D{table, mapping}, source, WriteBack(exchangedSource, destination),
                     destination, pixels, writes);
}

void ApplyLUT1D3DExchanging(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                            const SLUTDomainMapping& mapping, const float* source,
                            float* exchangedSource, float* destination, size_t pixels,
                            EDestinationWrites writes) {
  RunPipelined<true>(SProgram1D3D{shaper, cube, mapping}, source,
                     WriteBack(exchangedSource, destination), destination, pixels, writes);
}

constexpr SCPUKernelTable kTable{
    SimdTierName(ESimdTier::kAVX2),
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

const SCPUKernelTable& CPUKernelsAVX2() {
  return kTable;
}

}  // namespace Tincta
