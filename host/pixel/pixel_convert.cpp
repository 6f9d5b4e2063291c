#include "host/pixel_convert.h"

#include <cstdlib>
#include <cstring>

#include "pixel_convert_vector.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace host {
namespace {

// Every access goes through memcpy: views may place rows at any byte address, and the compiler
// turns these copies into plain (unaligned) vector loads and stores.
template <class T>
T LoadAt(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return value;
}

template <class T>
void StoreAt(uint8_t* bytes, T value) {
  std::memcpy(bytes, &value, sizeof(T));
}

// Integer formats with their channels in blue, green, red, alpha order.
template <class TSampleType, uint32_t FullScale>
struct SBgraInteger {
  using TSample = TSampleType;
  static constexpr size_t kBytesPerPixel = 4 * sizeof(TSample);
  static constexpr uint32_t kFullScale = FullScale;

  static void Load(const uint8_t* pixel, uint32_t channels[4]) {
    for (int k = 0; k < 4; ++k)
      channels[k] = LoadAt<TSampleType>(pixel + k * sizeof(TSampleType));
  }
  static void Store(uint8_t* pixel, const uint32_t channels[4]) {
    for (int k = 0; k < 4; ++k)
      StoreAt<TSampleType>(pixel + k * sizeof(TSampleType), static_cast<TSampleType>(channels[k]));
  }
};

using SBgra8 = SBgraInteger<uint8_t, 255>;
using SBgra16 = SBgraInteger<uint16_t, 65535>;

// One big-endian word per pixel: red in bits 31..22, green 21..12, blue 11..2, two zero bits.
struct SRgb10 {
  static constexpr size_t kBytesPerPixel = 4;
  static constexpr uint32_t kFullScale = 1023;

  static void Load(const uint8_t* pixel, uint32_t channels[4]) {
    const uint32_t word =
        uint32_t(pixel[0]) << 24 | uint32_t(pixel[1]) << 16 | uint32_t(pixel[2]) << 8 | pixel[3];
    channels[0] = (word >> 2) & 1023;
    channels[1] = (word >> 12) & 1023;
    channels[2] = (word >> 22) & 1023;
    channels[3] = kFullScale;  // no alpha: opaque
  }
  static void Store(uint8_t* pixel, const uint32_t channels[4]) {
    const uint32_t word = channels[2] << 22 | channels[1] << 12 | channels[0] << 2;
    pixel[0] = static_cast<uint8_t>(word >> 24);
    pixel[1] = static_cast<uint8_t>(word >> 16);
    pixel[2] = static_cast<uint8_t>(word >> 8);
    pixel[3] = static_cast<uint8_t>(word);
  }
};

constexpr size_t kFloatBytesPerPixel = 16;

// The nearest float to value / FullScale. The product with the reciprocal is taken in double:
// its error is far below the distance of any such quotient from a float rounding boundary, so
// the result is the correctly rounded quotient without a division per sample.
template <uint32_t FullScale>
float ToUnit(uint32_t value) {
  constexpr double kReciprocal = 1.0 / FullScale;
  // Through int32 (exact below 2^31): the vector units convert signed integers only.
  return static_cast<float>(static_cast<double>(static_cast<int32_t>(value)) * kReciprocal);
}

// Rounds value x FullScale half up after clamping to [0, FullScale]; NaN gives 0. The product
// of a float and a 16-bit integer is exact in double, so ties are real ties. Clamping after the
// half is added keeps the loop free of branches (truncation then rounds).
template <uint32_t FullScale>
uint32_t FromUnit(float value) {
  double scaled = static_cast<double>(value) * FullScale + 0.5;
  scaled = scaled > 0.0 ? scaled : 0.0;
  scaled = scaled < FullScale + 0.5 ? scaled : FullScale + 0.5;
  return static_cast<uint32_t>(static_cast<int32_t>(scaled));
}

// value x To / From rounded half up, in integers (no ties occur between these full scales).
template <uint32_t From, uint32_t To>
uint32_t Rescale(uint32_t value) {
  if constexpr (From == To) {
    return value;
  } else {
    return (value * (2 * To) + From) / (2 * From);
  }
}

using RowFunction = void (*)(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width);

template <size_t BytesPerPixel>
void CopyRow(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width) {
  std::memcpy(dst, src, width * BytesPerPixel);
}

#if defined(__SSE2__)
// ToUnit for four samples (32-bit integers below 2^24). The quotient of two exactly held floats
// is correctly rounded, so one division gives what ToUnit gives, at about a third of the time of
// the compiler's vectorised form of ToUnit (through double, two samples at a time).
void ToUnitFour(__m128i values, __m128 fullScale, uint8_t* dst) {
  _mm_storeu_ps(reinterpret_cast<float*>(dst), _mm_div_ps(_mm_cvtepi32_ps(values), fullScale));
}

// Converts the leading samples in blocks of 16 (8-bit) or 8 (16-bit); returns how many.
template <class TFormat>
size_t BgraSamplesToFloatVector(const uint8_t* src, uint8_t* dst, size_t samples) {
  const __m128 fullScale = _mm_set1_ps(float(TFormat::kFullScale));
  const __m128i zero = _mm_setzero_si128();
  size_t i = 0;
  if constexpr (sizeof(typename TFormat::TSample) == 1) {
    for (; i + 16 <= samples; i += 16) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
      const __m128i low = _mm_unpacklo_epi8(bytes, zero);
      const __m128i high = _mm_unpackhi_epi8(bytes, zero);
      ToUnitFour(_mm_unpacklo_epi16(low, zero), fullScale, dst + 4 * i);
      ToUnitFour(_mm_unpackhi_epi16(low, zero), fullScale, dst + 4 * i + 16);
      ToUnitFour(_mm_unpacklo_epi16(high, zero), fullScale, dst + 4 * i + 32);
      ToUnitFour(_mm_unpackhi_epi16(high, zero), fullScale, dst + 4 * i + 48);
    }
  } else {
    for (; i + 8 <= samples; i += 8) {
      const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i));
      ToUnitFour(_mm_unpacklo_epi16(words, zero), fullScale, dst + 4 * i);
      ToUnitFour(_mm_unpackhi_epi16(words, zero), fullScale, dst + 4 * i + 16);
    }
  }
  return i;
}

// FromUnit for four samples. The compiler vectorises the scalar form with compares and masks
// (it may not use max/min, whose NaN rule it does not rely on), and narrowing the results then
// costs more again; written out, the conversion back to integers runs about twice as fast.
// Clamping the floats to [0, 1] first gives what clamping the scaled value does, in half the
// steps; MAXPS(x, 0) yields 0 for NaN, like the scalar form.
__m128i FromUnitFour(const uint8_t* src, __m128d scale) {
  __m128 samples = _mm_loadu_ps(reinterpret_cast<const float*>(src));
  samples = _mm_min_ps(_mm_max_ps(samples, _mm_setzero_ps()), _mm_set1_ps(1.0f));
  const __m128d half = _mm_set1_pd(0.5);
  const __m128d low = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(samples), scale), half);
  const __m128d high =
      _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(samples, samples)), scale), half);
  return _mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high));
}

// Converts the leading samples in blocks of 16 (8-bit) or 8 (16-bit); returns how many.
template <class TFormat>
size_t FloatSamplesToBgraVector(const uint8_t* src, uint8_t* dst, size_t samples) {
  const __m128d scale = _mm_set1_pd(TFormat::kFullScale);
  size_t i = 0;
  if constexpr (sizeof(typename TFormat::TSample) == 1) {
    for (; i + 16 <= samples; i += 16) {
      const __m128i a = FromUnitFour(src + 4 * i, scale);
      const __m128i b = FromUnitFour(src + 4 * i + 16, scale);
      const __m128i c = FromUnitFour(src + 4 * i + 32, scale);
      const __m128i d = FromUnitFour(src + 4 * i + 48, scale);
      const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), bytes);
    }
  } else {
    // Signed packing saturates at 32767: pack value - 32768, then flip the top bit back.
    const __m128i bias32 = _mm_set1_epi32(32768);
    const __m128i bias16 = _mm_set1_epi16(-32768);
    for (; i + 8 <= samples; i += 8) {
      const __m128i a = _mm_sub_epi32(FromUnitFour(src + 4 * i, scale), bias32);
      const __m128i b = _mm_sub_epi32(FromUnitFour(src + 4 * i + 16, scale), bias32);
      const __m128i words = _mm_xor_si128(_mm_packs_epi32(a, b), bias16);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 2 * i), words);
    }
  }
  return i;
}

size_t Bgra8ToFloatSSE2(const uint8_t* src, uint8_t* dst, size_t samples) {
  return BgraSamplesToFloatVector<SBgra8>(src, dst, samples);
}
size_t Bgra16ToFloatSSE2(const uint8_t* src, uint8_t* dst, size_t samples) {
  return BgraSamplesToFloatVector<SBgra16>(src, dst, samples);
}
size_t FloatToBgra8SSE2(const uint8_t* src, uint8_t* dst, size_t samples) {
  return FloatSamplesToBgraVector<SBgra8>(src, dst, samples);
}
size_t FloatToBgra16SSE2(const uint8_t* src, uint8_t* dst, size_t samples) {
  return FloatSamplesToBgraVector<SBgra16>(src, dst, samples);
}
constexpr SVectorConversions kVectorConversions{"sse2", Bgra8ToFloatSSE2, Bgra16ToFloatSSE2,
                                                FloatToBgra8SSE2, FloatToBgra16SSE2};
#else
size_t NoVectorForm(const uint8_t*, uint8_t*, size_t) {
  return 0;
}
constexpr SVectorConversions kVectorConversions{"scalar", NoVectorForm, NoVectorForm, NoVectorForm,
                                                NoVectorForm};
#endif

// Chosen once: the 256-bit forms where the processor (and the operating system) run AVX2 and FMA,
// unless CRANDLE_CPU_ISA=sse keeps every kernel family of the process at 128 bits.
const SVectorConversions& ActiveVectorConversions() {
  static const SVectorConversions& chosen = []() -> const SVectorConversions& {
#if defined(__x86_64__) && defined(__GNUC__)
    const char* cap = std::getenv("CRANDLE_CPU_ISA");
    const bool capped = cap != nullptr && std::strcmp(cap, "sse") == 0;
    if (!capped && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
      return VectorConversionsAVX2();
#endif
    return kVectorConversions;
  }();
  return chosen;
}

// The frequent conversions (every non-float frame of the CPU apply path) run over the whole row
// as one flat run of samples.
template <class TFormat>
void BgraRowToFloat(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width) {
  using TSample = typename TFormat::TSample;
  const size_t samples = 4 * width;
  const SVectorConversions& vector = ActiveVectorConversions();
  size_t i = sizeof(TSample) == 1 ? vector.bgra8ToFloat(src, dst, samples)
                                  : vector.bgra16ToFloat(src, dst, samples);
  for (; i < samples; ++i) {
    const auto value = LoadAt<TSample>(src + i * sizeof(TSample));
    StoreAt<float>(dst + 4 * i, ToUnit<TFormat::kFullScale>(value));
  }
}

template <class TFormat>
void FloatRowToBgra(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width) {
  using TSample = typename TFormat::TSample;
  const size_t samples = 4 * width;
  const SVectorConversions& vector = ActiveVectorConversions();
  size_t i = sizeof(TSample) == 1 ? vector.floatToBgra8(src, dst, samples)
                                  : vector.floatToBgra16(src, dst, samples);
  for (; i < samples; ++i) {
    const uint32_t value = FromUnit<TFormat::kFullScale>(LoadAt<float>(src + 4 * i));
    StoreAt<TSample>(dst + i * sizeof(TSample), static_cast<TSample>(value));
  }
}

template <class TSrc>
void IntegerRowToFloat(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width) {
  for (size_t x = 0; x < width; ++x) {
    uint32_t channels[4];
    TSrc::Load(src + x * TSrc::kBytesPerPixel, channels);
    for (int k = 0; k < 4; ++k)
      StoreAt<float>(dst + x * kFloatBytesPerPixel + 4 * k, ToUnit<TSrc::kFullScale>(channels[k]));
  }
}

template <class TDst>
void FloatRowToInteger(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width) {
  for (size_t x = 0; x < width; ++x) {
    uint32_t channels[4];
    for (int k = 0; k < 4; ++k)
      channels[k] =
          FromUnit<TDst::kFullScale>(LoadAt<float>(src + x * kFloatBytesPerPixel + 4 * k));
    TDst::Store(dst + x * TDst::kBytesPerPixel, channels);
  }
}

template <class TSrc, class TDst>
void IntegerRowToInteger(const uint8_t* __restrict src, uint8_t* __restrict dst, size_t width) {
  for (size_t x = 0; x < width; ++x) {
    uint32_t channels[4];
    TSrc::Load(src + x * TSrc::kBytesPerPixel, channels);
    for (int k = 0; k < 4; ++k)
      channels[k] = Rescale<TSrc::kFullScale, TDst::kFullScale>(channels[k]);
    TDst::Store(dst + x * TDst::kBytesPerPixel, channels);
  }
}

struct SFormat {
  int code;
  size_t bytesPerPixel;
};

// Indexed like the rows and columns of kRowFunctions.
constexpr SFormat kFormats[] = {
    {kIRFormat_BGRA_8u, SBgra8::kBytesPerPixel},
    {kIRFormat_BGRA_16u, SBgra16::kBytesPerPixel},
    {kIRFormat_BGRA_32f, kFloatBytesPerPixel},
    {kIRFormat_RGB_10u_BE, SRgb10::kBytesPerPixel},
};

constexpr RowFunction kRowFunctions[4][4] = {
    {CopyRow<4>, IntegerRowToInteger<SBgra8, SBgra16>, BgraRowToFloat<SBgra8>,
     IntegerRowToInteger<SBgra8, SRgb10>},
    {IntegerRowToInteger<SBgra16, SBgra8>, CopyRow<8>, BgraRowToFloat<SBgra16>,
     IntegerRowToInteger<SBgra16, SRgb10>},
    {FloatRowToBgra<SBgra8>, FloatRowToBgra<SBgra16>, CopyRow<16>, FloatRowToInteger<SRgb10>},
    {IntegerRowToInteger<SRgb10, SBgra8>, IntegerRowToInteger<SRgb10, SBgra16>,
     IntegerRowToFloat<SRgb10>, CopyRow<4>},
};

int FormatIndex(int code) {
  for (int i = 0; i < 4; ++i)
    if (kFormats[i].code == code) return i;
  return -1;
}

// The address one past the last byte that `height` rows of `rowLength` bytes touch; false
// when the span does not fit in the address space.
bool EndOfRows(const void* base, size_t rowBytes, size_t rowLength, uint32_t height,
               uintptr_t& end) {
  uintptr_t span = 0;
  if (__builtin_mul_overflow(static_cast<uintptr_t>(height - 1), rowBytes, &span)) return false;
  if (__builtin_add_overflow(span, rowLength, &span)) return false;
  return !__builtin_add_overflow(reinterpret_cast<uintptr_t>(base), span, &end);
}

}  // namespace

int IR_Convert(const void* src, size_t srcRowBytes, int srcFormatCode, void* dst,
               size_t dstRowBytes, int dstFormatCode, uint32_t width, uint32_t height,
               int components) {
  constexpr int kBadArgument = -1;
  const int from = FormatIndex(srcFormatCode);
  const int to = FormatIndex(dstFormatCode);
  if (from < 0 || to < 0 || components != 4 || !src || !dst) return kBadArgument;
  if (width == 0 || height == 0) return 0;

  const size_t srcRowLength = width * kFormats[from].bytesPerPixel;
  const size_t dstRowLength = width * kFormats[to].bytesPerPixel;
  if (srcRowBytes < srcRowLength || dstRowBytes < dstRowLength) return kBadArgument;
  uintptr_t srcEnd = 0;
  uintptr_t dstEnd = 0;
  if (!EndOfRows(src, srcRowBytes, srcRowLength, height, srcEnd) ||
      !EndOfRows(dst, dstRowBytes, dstRowLength, height, dstEnd))
    return kBadArgument;
  const auto srcStart = reinterpret_cast<uintptr_t>(src);
  const auto dstStart = reinterpret_cast<uintptr_t>(dst);
  if (srcStart < dstEnd && dstStart < srcEnd) return kBadArgument;

  const RowFunction convertRow = kRowFunctions[from][to];
  const auto* srcRow = static_cast<const uint8_t*>(src);
  auto* dstRow = static_cast<uint8_t*>(dst);
  for (uint32_t y = 0; y < height; ++y) {
    convertRow(srcRow, dstRow, width);
    srcRow += srcRowBytes;
    dstRow += dstRowBytes;
  }
  return 0;
}

const char* IR_ConvertInstructionSet() {
  return ActiveVectorConversions().name;
}

int IR_Transpose(const void* src, size_t srcRowBytes, void* dst, size_t dstRowBytes, uint32_t width,
                 uint32_t height, size_t elementSize) {
  if (src == nullptr || dst == nullptr || elementSize == 0) return 1;
  if (width == 0 || height == 0) return 0;
  if (srcRowBytes < width * elementSize || dstRowBytes < height * elementSize) return 1;
  const auto* from = static_cast<const uint8_t*>(src);
  auto* to = static_cast<uint8_t*>(dst);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      std::memcpy(to + x * dstRowBytes + y * elementSize, from + y * srcRowBytes + x * elementSize,
                  elementSize);
    }
  }
  return 0;
}

}  // namespace host
