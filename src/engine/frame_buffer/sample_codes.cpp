#include "engine/frame_buffer/sample_codes.h"

#include <cstring>

namespace Tincta {
namespace {

template <class T>
T LoadSample(const uint8_t* at, bool bigEndian) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  if (bigEndian) {
    if constexpr (sizeof(T) == 2) value = __builtin_bswap16(value);
    if constexpr (sizeof(T) == 4) value = __builtin_bswap32(value);
  }
  return value;
}

template <class T>
void StoreSample(uint8_t* at, T value, bool bigEndian) {
  if (bigEndian) {
    if constexpr (sizeof(T) == 2) value = __builtin_bswap16(value);
    if constexpr (sizeof(T) == 4) value = __builtin_bswap32(value);
  }
  std::memcpy(at, &value, sizeof(T));
}

constexpr uint32_t kSlotShift[3] = {22, 12, 2};

template <class T>
void ReadWhole(const uint8_t* line, size_t count, bool bigEndian, uint32_t* codes) {
  for (size_t i = 0; i < count; ++i)
    codes[i] = LoadSample<T>(line + i * sizeof(T), bigEndian);
}

template <class T>
void WriteWhole(const uint32_t* codes, size_t count, bool bigEndian, uint8_t* line) {
  for (size_t i = 0; i < count; ++i) {
    StoreSample<T>(line + i * sizeof(T), static_cast<T>(codes[i]), bigEndian);
  }
}

}  // namespace

void ReadSampleCodes(const uint8_t* line, const FrameBufferFormat& format, uint32_t width,
                     uint32_t* codes) {
  const uint32_t channels = ChannelCount(format);
  const size_t count = size_t{width} * channels;
  const bool big = format.bigEndian;
  switch (format.precision) {
    case kPrecision8Bits:
      for (size_t i = 0; i < count; ++i)
        codes[i] = line[i];
      break;
    case kPrecision10Bits:
      for (size_t i = 0; i < count; ++i) {
        const uint32_t word = LoadSample<uint32_t>(line + (i / 3) * 4, big);
        codes[i] = (word >> kSlotShift[i % 3]) & 0x3FF;
      }
      break;
    case kPrecision10Plus2Bits:
      for (size_t x = 0; x < width; ++x) {
        const uint32_t word = LoadSample<uint32_t>(line + x * 4, big);
        uint32_t* pixel = codes + x * channels;
        for (uint32_t c = 0; c < channels && c < 3; ++c)
          pixel[c] = (word >> kSlotShift[c]) & 0x3FF;
        if (channels == 4) pixel[3] = word & 0x3;
      }
      break;
    case kPrecision16BitInt:
    case kPrecision16BitFloat:
      ReadWhole<uint16_t>(line, count, big, codes);
      break;
    default:
      ReadWhole<uint32_t>(line, count, big, codes);
      break;
  }
}

void WriteSampleCodes(const uint32_t* codes, const FrameBufferFormat& format, uint32_t width,
                      uint8_t* line) {
  const uint32_t channels = ChannelCount(format);
  const size_t count = size_t{width} * channels;
  const bool big = format.bigEndian;
  switch (format.precision) {
    case kPrecision8Bits:
      for (size_t i = 0; i < count; ++i)
        line[i] = static_cast<uint8_t>(codes[i]);
      break;
    case kPrecision10Bits:
      for (size_t first = 0; first < count; first += 3) {
        uint32_t word = 0;
        for (size_t slot = 0; slot < 3 && first + slot < count; ++slot) {
          word |= (codes[first + slot] & 0x3FF) << kSlotShift[slot];
        }
        StoreSample<uint32_t>(line + (first / 3) * 4, word, big);
      }
      break;
    case kPrecision10Plus2Bits:
      for (size_t x = 0; x < width; ++x) {
        const uint32_t* pixel = codes + x * channels;
        uint32_t word = 0;
        for (uint32_t c = 0; c < channels && c < 3; ++c)
          word |= (pixel[c] & 0x3FF) << kSlotShift[c];
        if (channels == 4) word |= pixel[3] & 0x3;
        StoreSample<uint32_t>(line + x * 4, word, big);
      }
      break;
    case kPrecision16BitInt:
    case kPrecision16BitFloat:
      WriteWhole<uint16_t>(codes, count, big, line);
      break;
    default:
      WriteWhole<uint32_t>(codes, count, big, line);
      break;
  }
}

uint64_t PackedLineBytes(const FrameBufferFormat& format, uint32_t width) {
  FrameBufferFormat packed = format;
  packed.lineStride = 0;
  return ComputeLineStride(packed, width);
}

uint64_t PixelLineBytes(const FrameBufferFormat& format, uint32_t width) {
  const uint32_t pixelBytes = BytesPerPixel(format);
  return pixelBytes ? uint64_t{pixelBytes} * width : PackedLineBytes(format, width);
}

uint32_t FullScaleCode(const FrameBufferFormat& format, uint32_t channel) {
  switch (format.precision) {
    case kPrecision8Bits:
      return 0xFF;
    case kPrecision10Bits:
      return 0x3FF;
    case kPrecision10Plus2Bits:
      return channel == 3 ? 0x3 : 0x3FF;
    case kPrecision16BitInt:
      return 0xFFFF;
    case kPrecision16BitFloat:
      return 0x3C00;
    case kPrecision32BitInt:
      return 0xFFFFFFFF;
    default:
      return 0x3F800000;
  }
}

}  // namespace Tincta
