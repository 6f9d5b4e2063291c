#include "engine/convert/scalar_frame_buffer_converter.h"

#include <cstring>
#include <memory>
#include <new>

#include "engine/convert/channel_converters.h"

namespace Tincta {
namespace {

// Little-endian samples: the high byte of sample i is byte 2i + 1.
void HighBytes(const uint8_t* source, uint8_t* target, size_t count) {
  size_t i = 0;
  for (; i + 32 <= count; i += 32) {
    for (size_t k = 0; k < 32; ++k)
      target[i + k] = source[2 * (i + k) + 1];
  }
  for (; i + 4 <= count; i += 4) {
    for (size_t k = 0; k < 4; ++k)
      target[i + k] = source[2 * (i + k) + 1];
  }
  for (; i < count; ++i)
    target[i] = source[2 * i + 1];
}

}  // namespace

bool COvScalarFrameBufferConverter::CanConvert(const FrameBufferFormat& source,
                                               const FrameBufferFormat& target) const {
  if (!IsConvertibleFormat(source) || !IsConvertibleFormat(target)) return false;
  if (source.precision != kPrecision16BitInt || target.precision != kPrecision8Bits) return false;
  if (source.bigEndian || source.type != target.type || source.type == kFrameBufferTypeRGBA) {
    return false;
  }
  return source.type == kFrameBufferTypeIntensity || source.channelOrder == target.channelOrder;
}

bool COvScalarFrameBufferConverter::Convert(const COvComplexFrameBuffer& source,
                                            COvComplexFrameBuffer& target) const {
  if (!bReadyToConvert(source, target)) return false;
  const size_t count = size_t{source.Width()} * ChannelCount(source.Format());
  std::unique_ptr<uint8_t[]> copy;
  for (uint32_t y = 0; y < source.Height(); ++y) {
    const uint8_t* from = source.Line(y);
    uint8_t* to = target.Line(y);
    const auto source0 = reinterpret_cast<uintptr_t>(from);
    const auto target0 = reinterpret_cast<uintptr_t>(to);
    if (!(target0 < source0 + 2 * count && source0 < target0 + count)) {
      HighBytes(from, to, count);
    } else if (target0 <= source0 + 1) {
      // Sample i is read at 2i + 1 before byte i is written, and no later sample reads there.
      for (size_t i = 0; i < count; ++i)
        to[i] = from[2 * i + 1];
    } else {
      // Further ahead the writes would overtake the reads: read from a copy of the line.
      if (!copy) copy.reset(new (std::nothrow) uint8_t[2 * count]);
      if (!copy) return false;
      std::memcpy(copy.get(), from, 2 * count);
      HighBytes(copy.get(), to, count);
    }
  }
  return true;
}

}  // namespace Tincta
