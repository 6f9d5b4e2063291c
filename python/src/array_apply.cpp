#include "array_apply.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "crandle/crandle.h"
#include "host/video_frame.h"

namespace crandle_python {
namespace {

// Working rows per ApplyLUT call: big enough that a call's fixed cost (the table's upload into
// the CPU engine) is small beside the pixels, small enough that a strip packed here is still in
// the cache when the module reads it.
constexpr size_t kStripBytes = 4 * 1024 * 1024;
constexpr size_t kColoursPerCall = 65536;

// Samples as numpy holds them; half floats as their bits.
template <class T>
T Load(const uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}
template <class T>
void Store(uint8_t* at, T value) {
  std::memcpy(at, &value, sizeof(T));
}

float HalfToFloat(uint16_t bits) {
  _Float16 half;
  std::memcpy(&half, &bits, sizeof(bits));
  return static_cast<float>(half);
}
uint16_t FloatToHalf(float value) {
  const _Float16 half = static_cast<_Float16>(value);
  uint16_t bits;
  std::memcpy(&bits, &half, sizeof(bits));
  return bits;
}

// A sample type as numpy stores it (`Stored`) and as the host frame holds it (`Working`).
template <ESampleType kType>
struct SSample;
template <>
struct SSample<ESampleType::kUInt8> {
  using Stored = uint8_t;
  using Working = uint8_t;
  static constexpr Working kOpaque = 255;
  static Working In(Stored v) { return v; }
  static Stored Out(Working v) { return v; }
};
template <>
struct SSample<ESampleType::kUInt16> {
  using Stored = uint16_t;
  using Working = uint16_t;
  static constexpr Working kOpaque = 65535;
  static Working In(Stored v) { return v; }
  static Stored Out(Working v) { return v; }
};
template <>
struct SSample<ESampleType::kFloat> {
  using Stored = float;
  using Working = float;
  static constexpr Working kOpaque = 1.0f;
  static Working In(Stored v) { return v; }
  static Stored Out(Working v) { return v; }
};
template <>
struct SSample<ESampleType::kHalf> {
  using Stored = uint16_t;
  using Working = float;
  static constexpr Working kOpaque = 1.0f;
  static Working In(Stored v) { return HalfToFloat(v); }
  static Stored Out(Working v) { return FloatToHalf(v); }
};

host::PixelFormat WorkingFormat(ESampleType type) {
  switch (type) {
    case ESampleType::kUInt8:
      return host::kPixelFormat_BGRA_4444_8u;
    case ESampleType::kUInt16:
      return host::kPixelFormat_BGRA_4444_16u;
    default:
      return host::kPixelFormat_BGRA_4444_32f;
  }
}

// Strides as template arguments where the array is packed, so that the common layouts compile to
// straight loops; 0 means "as the array says".
template <ESampleType kType, int kChannels, bool kPacked>
struct SRowCopy {
  using S = SSample<kType>;
  using Stored = typename S::Stored;
  using Working = typename S::Working;
  static constexpr ptrdiff_t kSample = sizeof(Stored);

  // RGB(A) samples of one row into BGRA working pixels. Each pixel is read whole before it is
  // written, so `out` may be the row itself.
  static void Pack(const uint8_t* in, ptrdiff_t pixelStride, ptrdiff_t channelStride,
                   uint32_t width, Working* out) {
    if constexpr (kPacked) {
      pixelStride = kChannels * kSample;
      channelStride = kSample;
    }
    for (uint32_t x = 0; x < width; ++x, in += pixelStride, out += 4) {
      const Working r = S::In(Load<Stored>(in));
      const Working g = S::In(Load<Stored>(in + channelStride));
      const Working b = S::In(Load<Stored>(in + 2 * channelStride));
      const Working a = kChannels == 4 ? S::In(Load<Stored>(in + 3 * channelStride)) : S::kOpaque;
      out[0] = b;
      out[1] = g;
      out[2] = r;
      out[3] = a;
    }
  }

  static void Unpack(const Working* in, uint8_t* out, ptrdiff_t pixelStride,
                     ptrdiff_t channelStride, uint32_t width) {
    if constexpr (kPacked) {
      pixelStride = kChannels * kSample;
      channelStride = kSample;
    }
    for (uint32_t x = 0; x < width; ++x, in += 4, out += pixelStride) {
      const Working b = in[0], g = in[1], r = in[2], a = in[3];
      Store(out, S::Out(r));
      Store(out + channelStride, S::Out(g));
      Store(out + 2 * channelStride, S::Out(b));
      if constexpr (kChannels == 4) Store(out + 3 * channelStride, S::Out(a));
    }
  }
};

bool bPacked(const SPixelArray& array) {
  const ptrdiff_t sample = static_cast<ptrdiff_t>(SampleBytes(array.type));
  return array.channelStride == sample && array.pixelStride == array.channels * sample;
}

// The destination's rows can be the host frame itself: packed BGRA-sized pixels of a sample type
// that the host frames hold, rows apart by at least a row, aligned for their samples.
bool bViewable(const SPixelArray& array) {
  const size_t sample = SampleBytes(array.type);
  return array.type != ESampleType::kHalf && array.channels == 4 && bPacked(array) &&
         array.rowStride >= static_cast<ptrdiff_t>(array.width * 4 * sample) &&
         reinterpret_cast<uintptr_t>(array.base) % sample == 0 && array.rowStride % sample == 0;
}

// The bytes an array's samples span.
void Extent(const SPixelArray& array, const uint8_t*& low, const uint8_t*& high) {
  low = high = array.base;
  const ptrdiff_t spans[3] = {array.rowStride * (ptrdiff_t(array.height) - 1),
                              array.pixelStride * (ptrdiff_t(array.width) - 1),
                              array.channelStride * (array.channels - 1)};
  for (ptrdiff_t span : spans)
    (span < 0 ? low : high) += span;
  high += SampleBytes(array.type);
}

template <ESampleType kType, int kChannels, bool kSourcePacked, bool kDestinationPacked>
int Run(const std::shared_ptr<void>& lut, const SPixelArray& source, const SPixelArray& destination,
        SApplyReport& report) {
  using Working = typename SSample<kType>::Working;
  using In = SRowCopy<kType, kChannels, kSourcePacked>;
  using Out = SRowCopy<kType, kChannels, kDestinationPacked>;
  const uint32_t width = source.width;
  const uint32_t height = source.height;
  const uint32_t stripRows =
      uint32_t(std::clamp<size_t>(kStripBytes / (size_t(width) * 16), 1, height));
  const bool direct = bViewable(destination);
  report.viewedDestination = direct;
  std::vector<Working> scratch(direct ? 0 : size_t(stripRows) * width * 4);
  const size_t scratchRowBytes = size_t(width) * 4 * sizeof(Working);

  for (uint32_t first = 0; first < height; first += stripRows) {
    const uint32_t rows = std::min(stripRows, height - first);
    auto* target = direct ? destination.base + ptrdiff_t(first) * destination.rowStride
                          : reinterpret_cast<uint8_t*>(scratch.data());
    const size_t targetRowBytes = direct ? size_t(destination.rowStride) : scratchRowBytes;
    for (uint32_t y = 0; y < rows; ++y) {
      In::Pack(source.base + ptrdiff_t(first + y) * source.rowStride, source.pixelStride,
               source.channelStride, width,
               reinterpret_cast<Working*>(target + y * targetRowBytes));
    }
    host::InterfaceRef<host::IVideoFrame> frame;
    if (host::CreateVideoFrameView(frame, WorkingFormat(kType), width, rows, target, targetRowBytes,
                                   nullptr) != 0) {
      return CRANDLE::kResultEmptyArgument;
    }
    // In place: the CPU path reads each strip of its source before it writes that strip.
    const int result =
        CRANDLE::ApplyLUT(frame, lut, host::LUTInterpolationMethod::Trilinear, frame);
    ++report.calls;
    if (result != CRANDLE::kResultOK) return result;
    for (uint32_t y = 0; y < rows; ++y) {
      Out::Unpack(reinterpret_cast<const Working*>(target + y * targetRowBytes),
                  destination.base + ptrdiff_t(first + y) * destination.rowStride,
                  destination.pixelStride, destination.channelStride, width);
    }
  }
  return CRANDLE::kResultOK;
}

template <ESampleType kType, int kChannels>
int RunLayouts(const std::shared_ptr<void>& lut, const SPixelArray& source,
               const SPixelArray& destination, SApplyReport& report) {
  const bool sourcePacked = bPacked(source);
  const bool destinationPacked = bPacked(destination);
  if (sourcePacked && destinationPacked)
    return Run<kType, kChannels, true, true>(lut, source, destination, report);
  if (sourcePacked) return Run<kType, kChannels, true, false>(lut, source, destination, report);
  if (destinationPacked)
    return Run<kType, kChannels, false, true>(lut, source, destination, report);
  return Run<kType, kChannels, false, false>(lut, source, destination, report);
}

template <ESampleType kType>
int RunChannels(const std::shared_ptr<void>& lut, const SPixelArray& source,
                const SPixelArray& destination, SApplyReport& report) {
  return source.channels == 4 ? RunLayouts<kType, 4>(lut, source, destination, report)
                              : RunLayouts<kType, 3>(lut, source, destination, report);
}

}  // namespace

size_t SampleBytes(ESampleType type) {
  switch (type) {
    case ESampleType::kUInt8:
      return 1;
    case ESampleType::kFloat:
      return 4;
    default:
      return 2;
  }
}

std::string CheckArrays(const SPixelArray& source, const SPixelArray& destination) {
  if (source.channels != 3 && source.channels != 4)
    return "arrays must have 3 (RGB) or 4 (RGBA) channels";
  if (source.height != destination.height || source.width != destination.width ||
      source.channels != destination.channels) {
    return "out must have the input's shape";
  }
  if (source.type != destination.type) return "out must have the input's dtype";
  if (source.width == 0 || source.height == 0) return {};
  const bool same = source.base == destination.base && source.rowStride == destination.rowStride &&
                    source.pixelStride == destination.pixelStride &&
                    source.channelStride == destination.channelStride;
  const uint8_t *sourceLow, *sourceHigh, *destinationLow, *destinationHigh;
  Extent(source, sourceLow, sourceHigh);
  Extent(destination, destinationLow, destinationHigh);
  if (!same && sourceLow < destinationHigh && destinationLow < sourceHigh)
    return "out overlaps the input without being the same array";
  return {};
}

int ApplyToArray(const std::shared_ptr<void>& lut, const SPixelArray& source,
                 const SPixelArray& destination, SApplyReport* report) {
  SApplyReport ignored;
  SApplyReport& into = report ? *report : ignored;
  into = SApplyReport();
  if (!lut) return CRANDLE::kResultEmptyArgument;
  if (source.width == 0 || source.height == 0) return CRANDLE::kResultOK;
  switch (source.type) {
    case ESampleType::kUInt8:
      return RunChannels<ESampleType::kUInt8>(lut, source, destination, into);
    case ESampleType::kUInt16:
      return RunChannels<ESampleType::kUInt16>(lut, source, destination, into);
    case ESampleType::kHalf:
      return RunChannels<ESampleType::kHalf>(lut, source, destination, into);
    case ESampleType::kFloat:
      return RunChannels<ESampleType::kFloat>(lut, source, destination, into);
  }
  return CRANDLE::kResultUnsupported;
}

int EvaluateColours(const std::shared_ptr<void>& lut, const float* rgb, size_t count, float* out) {
  for (size_t first = 0; first < count; first += kColoursPerCall) {
    const uint32_t n = uint32_t(std::min(kColoursPerCall, count - first));
    SPixelArray in;
    in.base = reinterpret_cast<uint8_t*>(const_cast<float*>(rgb + first * 3));
    in.height = 1;
    in.width = n;
    in.channels = 3;
    in.type = ESampleType::kFloat;
    in.pixelStride = 3 * sizeof(float);
    in.channelStride = sizeof(float);
    in.rowStride = ptrdiff_t(n) * in.pixelStride;
    SPixelArray to = in;
    to.base = reinterpret_cast<uint8_t*>(out + first * 3);
    if (const int result = ApplyToArray(lut, in, to); result != CRANDLE::kResultOK) return result;
  }
  return CRANDLE::kResultOK;
}

}  // namespace crandle_python
