#include "engine/convert/channel_converters.h"

#include <bit>
#include <cmath>
#include <memory>
#include <new>

#include "engine/convert/conversion_tables.h"
#include "engine/frame_buffer/half_float.h"
#include "engine/frame_buffer/sample_codes.h"

namespace Tincta {
namespace {

float Clamp01(float value) {
  const float low = value < 1.0f ? value : 1.0f;  // NaN fails the test and becomes 1
  return low > 0.0f ? low : 0.0f;
}

uint32_t QuantizeTwoBits(float value) {
  return static_cast<uint32_t>(std::nearbyint(Clamp01(value) * 3.0f));
}

uint32_t QuantizeTo16Bits(float value) {
  return static_cast<uint32_t>(std::nearbyint(Clamp01(value) * 65535.0f));
}

uint32_t QuantizeTo32Bits(float value) {
  return static_cast<uint32_t>(std::nearbyint(double{Clamp01(value)} * 4294967295.0));
}

uint32_t QuantizeToHalf(float value) {
  return FloatToHalf(value);
}
uint32_t QuantizeToFloat(float value) {
  return std::bit_cast<uint32_t>(value);
}

using QuantizeFunction = uint32_t (*)(float);

QuantizeFunction QuantizerFor(uint32_t precision) {
  switch (precision) {
    case kPrecision8Bits:
      return QuantizeTo8Bits;
    case kPrecision10Bits:
    case kPrecision10Plus2Bits:
      return QuantizeTo10Bits;
    case kPrecision16BitInt:
      return QuantizeTo16Bits;
    case kPrecision16BitFloat:
      return QuantizeToHalf;
    case kPrecision32BitInt:
      return QuantizeTo32Bits;
    default:
      return QuantizeToFloat;
  }
}

}  // namespace

uint32_t QuantizeTo8Bits(float value) {
  const float scaled = (value < 1.0f ? value : 1.0f) * 255.0f;
  return scaled > 0.0f ? static_cast<uint32_t>(std::nearbyint(scaled)) : 0;
}

uint32_t QuantizeTo10Bits(float value) {
  return static_cast<uint32_t>(std::nearbyint(Clamp01(value) * 1023.0f));
}

uint32_t QuantizeSample(float value, uint32_t precision, bool twoBitAlpha) {
  if (twoBitAlpha && precision == kPrecision10Plus2Bits) return QuantizeTwoBits(value);
  return QuantizerFor(precision)(value);
}

bool IsConvertibleFormat(const FrameBufferFormat& format) {
  if (!IsValidLayout(format)) return false;
  return format.type == kFrameBufferTypeIntensity || format.channelOrder == kChannelOrderBGR ||
         format.channelOrder == kChannelOrderRGB;
}

namespace {

template <class Value>
void ExpandToRgba(const uint32_t* codes, uint32_t width, uint32_t channels, bool bgr,
                  bool twoBitAlpha, Value value, float* rgba) {
  for (size_t x = 0; x < width; ++x, rgba += 4) {
    const uint32_t* pixel = codes + x * channels;
    if (channels == 1) {
      rgba[0] = rgba[1] = rgba[2] = value(pixel[0]);
      rgba[3] = 1.0f;
      continue;
    }
    rgba[0] = value(pixel[bgr ? 2 : 0]);
    rgba[1] = value(pixel[1]);
    rgba[2] = value(pixel[bgr ? 0 : 2]);
    if (channels == 4) {
      rgba[3] = twoBitAlpha ? static_cast<float>(pixel[3] / 3.0) : value(pixel[3]);
    } else {
      rgba[3] = 1.0f;
    }
  }
}

template <class Quantize, class QuantizeAlpha>
void CompressFromRgba(const float* rgba, uint32_t width, uint32_t channels, bool bgr,
                      Quantize quantize, QuantizeAlpha quantizeAlpha, uint32_t* codes) {
  for (size_t x = 0; x < width; ++x, rgba += 4) {
    uint32_t* pixel = codes + x * channels;
    if (channels == 1) {
      pixel[0] = quantize(0.2126f * rgba[0] + 0.7152f * rgba[1] + 0.0722f * rgba[2]);
      continue;
    }
    pixel[0] = quantize(rgba[bgr ? 2 : 0]);
    pixel[1] = quantize(rgba[1]);
    pixel[2] = quantize(rgba[bgr ? 0 : 2]);
    if (channels == 4) pixel[3] = quantizeAlpha(rgba[3]);
  }
}

}  // namespace

void ReadLineAsRgba(const uint8_t* line, const FrameBufferFormat& format, uint32_t width,
                    uint32_t targetPrecision, const float* table, uint32_t* codes, float* rgba) {
  ReadSampleCodes(line, format, width, codes);
  const uint32_t channels = ChannelCount(format);
  const uint32_t precision = format.precision;
  const bool twoBitAlpha = precision == kPrecision10Plus2Bits;
  const bool bgr = format.channelOrder == kChannelOrderBGR;
  if (table) {
    ExpandToRgba(
        codes, width, channels, bgr, twoBitAlpha, [table](uint32_t code) { return table[code]; },
        rgba);
  } else if (precision == kPrecision32BitFloat) {
    ExpandToRgba(
        codes, width, channels, bgr, false,
        [](uint32_t code) { return std::bit_cast<float>(code); }, rgba);
  } else {
    ExpandToRgba(
        codes, width, channels, bgr, twoBitAlpha,
        [=](uint32_t code) { return CodeValue(code, precision, targetPrecision); }, rgba);
  }
}

void WriteLineFromRgba(const float* rgba, const FrameBufferFormat& format, uint32_t width,
                       uint32_t* codes, uint8_t* line) {
  const uint32_t channels = ChannelCount(format);
  const bool bgr = format.channelOrder == kChannelOrderBGR;
  // One instantiation per precision keeps the quantisers inline.
  auto compress = [&](auto quantize, auto quantizeAlpha) {
    CompressFromRgba(rgba, width, channels, bgr, quantize, quantizeAlpha, codes);
  };
  switch (format.precision) {
    case kPrecision8Bits: {
      auto q = [](float v) { return QuantizeTo8Bits(v); };
      compress(q, q);
      break;
    }
    case kPrecision10Bits: {
      auto q = [](float v) { return QuantizeTo10Bits(v); };
      compress(q, q);
      break;
    }
    case kPrecision10Plus2Bits:
      compress([](float v) { return QuantizeTo10Bits(v); },
               [](float v) { return QuantizeTwoBits(v); });
      break;
    case kPrecision16BitInt: {
      auto q = [](float v) { return QuantizeTo16Bits(v); };
      compress(q, q);
      break;
    }
    case kPrecision16BitFloat: {
      auto q = [](float v) { return uint32_t{FloatToHalf(v)}; };
      compress(q, q);
      break;
    }
    case kPrecision32BitInt: {
      auto q = [](float v) { return QuantizeTo32Bits(v); };
      compress(q, q);
      break;
    }
    default: {
      auto q = [](float v) { return std::bit_cast<uint32_t>(v); };
      compress(q, q);
      break;
    }
  }
  WriteSampleCodes(codes, format, width, line);
}

bool bConvertThroughFloat(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target) {
  const FrameBufferFormat& from = source.Format();
  const FrameBufferFormat& to = target.Format();
  if (!source.HasPixels() || !target.HasPixels() || source.Width() != target.Width() ||
      source.Height() != target.Height() || !IsConvertibleFormat(from) ||
      !IsConvertibleFormat(to)) {
    return false;
  }
  const size_t samples = size_t{source.Width()} * 4 + 4;
  std::unique_ptr<float[]> rgba(new (std::nothrow) float[samples]);
  std::unique_ptr<uint32_t[]> codes(new (std::nothrow) uint32_t[samples]);
  if (!rgba || !codes) return false;
  const float* table = ConversionTable(from.precision, to.precision);
  for (uint32_t y = 0; y < source.Height(); ++y) {
    ReadLineAsRgba(source.Line(y), from, source.Width(), to.precision, table, codes.get(),
                   rgba.get());
    WriteLineFromRgba(rgba.get(), to, target.Width(), codes.get(), target.Line(y));
  }
  return true;
}

}  // namespace Tincta
