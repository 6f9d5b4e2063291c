#include "engine/convert/default_channel_converter.h"

#include <cstring>
#include <memory>
#include <new>

#include "engine/convert/channel_converters.h"
#include "engine/frame_buffer/sample_codes.h"

namespace Tincta {

bool COvDefaultChannelConverter::CanConvert(const FrameBufferFormat& source,
                                            const FrameBufferFormat& target) const {
  if (!IsConvertibleFormat(source) || !IsConvertibleFormat(target)) return false;
  if (source.type != target.type || source.precision != target.precision) return false;
  return source.type == kFrameBufferTypeIntensity || source.channelOrder == target.channelOrder;
}

bool COvDefaultChannelConverter::Convert(const COvComplexFrameBuffer& source,
                                         COvComplexFrameBuffer& target) const {
  if (!bReadyToConvert(source, target)) return false;
  const FrameBufferFormat& from = source.Format();
  const FrameBufferFormat& to = target.Format();
  const uint32_t width = source.Width();
  if (from.bigEndian != to.bigEndian && ByteOrderMatters(from.precision)) {
    std::unique_ptr<uint32_t[]> codes(new (std::nothrow) uint32_t[size_t{width} * 4 + 1]);
    if (!codes) return false;
    for (uint32_t y = 0; y < source.Height(); ++y) {
      ReadSampleCodes(source.Line(y), from, width, codes.get());
      WriteSampleCodes(codes.get(), to, width, target.Line(y));
    }
    return true;
  }
  const size_t lineBytes = static_cast<size_t>(PixelLineBytes(from, width));
  for (uint32_t y = 0; y < source.Height(); ++y) {
    std::memmove(target.Line(y), source.Line(y), lineBytes);
  }
  return true;
}

}  // namespace Tincta
