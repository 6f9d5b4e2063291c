#include "engine/frame_buffer/frame_buffer_format.h"

#include <algorithm>

namespace Tincta {

uint32_t BitsPerSample(uint32_t precision) {
  static constexpr uint32_t kBits[kPrecisionCount] = {8, 10, 10, 16, 16, 32, 32};
  return precision < kPrecisionCount ? kBits[precision] : 0;
}

bool IsValidLayout(const FrameBufferFormat& format) {
  const bool knownType = format.type == kFrameBufferTypeIntensity ||
                         format.type == kFrameBufferTypeRGB || format.type == kFrameBufferTypeRGBA;
  return knownType && format.precision < kPrecisionCount;
}

uint64_t ComputeLineStride(const FrameBufferFormat& format, uint32_t width) {
  const uint64_t channels = ChannelCount(format);
  const uint64_t w = width;
  uint64_t stride;
  if (channels != 3 && format.precision == kPrecision10Bits) {
    stride = ((channels * w + 2) / 3) * 4;
  } else if (format.precision == kPrecision10Plus2Bits) {
    stride = 4 * w;
  } else {
    const uint64_t bytesPerPixel = (channels * BitsPerSample(format.precision) + 7) >> 3;
    stride = (bytesPerPixel * w + 3) & ~uint64_t{3};
  }
  return std::max<uint64_t>(stride, format.lineStride);
}

uint32_t BytesPerPixel(const FrameBufferFormat& format) {
  const uint32_t channels = ChannelCount(format);
  if (format.precision == kPrecision10Plus2Bits) return 4;
  if (channels == 3 || format.precision != kPrecision10Bits) {
    return (channels * BitsPerSample(format.precision) + 7) >> 3;
  }
  return 0;
}

bool ByteOrderMatters(uint32_t precision) {
  return precision != kPrecision8Bits;
}

bool FormatsMatch(const FrameBufferFormat& a, const FrameBufferFormat& b) {
  if (a.type != b.type || a.precision != b.precision) return false;
  if (a.channelOrder != b.channelOrder && a.type != kFrameBufferTypeIntensity) return false;
  if (a.bigEndian != b.bigEndian && ByteOrderMatters(a.precision)) return false;
  return a.topToBottom == b.topToBottom && a.lineStride == b.lineStride;
}

const char* FrameBufferTypeWord(uint32_t type) {
  switch (type) {
    case kFrameBufferTypeIntensity:
      return "Intensity";
    case kFrameBufferTypeRGB:
      return "RGB";
    case kFrameBufferTypeRGBA:
      return "RGBA";
    default:
      return "Invalid";
  }
}

const char* PrecisionWord(uint32_t precision) {
  static constexpr const char* kWords[kPrecisionCount] = {
      "8 bits", "10 bits", "10+2 bits", "16 bit int", "16 bit float", "32 bit int", "32 bit float"};
  return precision < kPrecisionCount ? kWords[precision] : "Invalid";
}

const char* ChannelOrderWord(int32_t channelOrder) {
  switch (channelOrder) {
    case kChannelOrderBGR:
      return " BGR(A)";
    case kChannelOrderRGB:
      return " RGB(A)";
    case kChannelOrderNone:
      return " None (error)";
    default:
      return " Invalid";
  }
}

std::string DescribeFrameBufferFormat(const FrameBufferFormat& format) {
  std::string text = "Format: Type = ";
  text += FrameBufferTypeWord(format.type);
  text += ", Precision = ";
  text += PrecisionWord(format.precision);
  if (format.type != kFrameBufferTypeIntensity) {
    text += ", Channel order = ";
    text += ChannelOrderWord(format.channelOrder);
  }
  if (format.precision > 0) text += format.bigEndian ? ", Big Endian" : ", Little Endian";
  text += format.topToBottom ? ", Top to bottom" : ", Bottom to top";
  if (format.bufferSize != 0) text += ", Buffer size = " + std::to_string(format.bufferSize);
  if (format.lineStride != 0) text += ", Line stride = " + std::to_string(format.lineStride);
  return text;
}

}  // namespace Tincta
