#include "engine/convert/fallback_frame_buffer_converter.h"

#include <memory>
#include <new>
#include <utility>

#include "engine/convert/channel_converters.h"
#include "engine/frame_buffer/sample_codes.h"

namespace Tincta {
namespace {

bool bExchangeFirstAndThird(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target) {
  const uint32_t width = source.Width();
  const uint32_t channels = ChannelCount(source.Format());
  std::unique_ptr<uint32_t[]> codes(new (std::nothrow) uint32_t[size_t{width} * 4 + 1]);
  if (!codes) return false;
  for (uint32_t y = 0; y < source.Height(); ++y) {
    ReadSampleCodes(source.Line(y), source.Format(), width, codes.get());
    for (size_t x = 0; x < width; ++x)
      std::swap(codes[x * channels], codes[x * channels + 2]);
    WriteSampleCodes(codes.get(), target.Format(), width, target.Line(y));
  }
  return true;
}

}  // namespace

bool COvFallbackFrameBufferConverter::CanConvert(const FrameBufferFormat& source,
                                                 const FrameBufferFormat& target) const {
  return IsConvertibleFormat(source) && IsConvertibleFormat(target);
}

bool COvFallbackFrameBufferConverter::Convert(const COvComplexFrameBuffer& source,
                                              COvComplexFrameBuffer& target) const {
  if (!bReadyToConvert(source, target)) return false;
  const FrameBufferFormat& from = source.Format();
  const FrameBufferFormat& to = target.Format();
  const bool vectorCandidate =
      from.precision == kPrecision32BitFloat ||
      (from.precision == kPrecision16BitInt && to.precision == kPrecision8Bits);
  if (vectorCandidate && from.type == kFrameBufferTypeRGBA && optimized_.CanConvert(from, to) &&
      optimized_.Convert(source, target)) {
    return true;
  }
  if (from.type == to.type && from.precision == to.precision &&
      from.type != kFrameBufferTypeIntensity && from.channelOrder != to.channelOrder) {
    return bExchangeFirstAndThird(source, target);
  }
  return bConvertThroughFloat(source, target);
}

}  // namespace Tincta
