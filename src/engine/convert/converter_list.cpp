#include "engine/convert/converter_list.h"

#include <new>

#include "engine/convert/default_channel_converter.h"
#include "engine/convert/fallback_frame_buffer_converter.h"
#include "engine/convert/scalar_frame_buffer_converter.h"

namespace Tincta {

COvChannelConverterList::COvChannelConverterList() {
  converters_.push_back(std::make_unique<COvDefaultChannelConverter>());
  converters_.push_back(std::make_unique<COvScalarFrameBufferConverter>());
  converters_.push_back(std::make_unique<COvFallbackFrameBufferConverter>());
}

const COvChannelConverterList& COvChannelConverterList::Instance() {
  static const COvChannelConverterList list;
  return list;
}

const COvFrameBufferConverter* COvChannelConverterList::Find(
    const FrameBufferFormat& source, const FrameBufferFormat& target) const {
  for (const auto& converter : converters_) {
    if (converter->CanConvert(source, target)) return converter.get();
  }
  return nullptr;
}

std::unique_ptr<COvComplexFrameBuffer> CopyConvertFrameBuffer(const COvComplexFrameBuffer& source,
                                                              const FrameBufferFormat& format) {
  if (!source.HasPixels()) return nullptr;
  if (FormatsMatch(source.Format(), format)) {
    std::unique_ptr<COvComplexFrameBuffer> copy(new (std::nothrow) COvComplexFrameBuffer(source));
    if (!copy || !copy->HasPixels()) return nullptr;
    return copy;
  }
  const COvFrameBufferConverter* converter =
      COvChannelConverterList::Instance().Find(source.Format(), format);
  if (!converter) return nullptr;
  std::unique_ptr<COvComplexFrameBuffer> result(new (std::nothrow) COvComplexFrameBuffer());
  if (!result || !result->bAllocateNewBuffer(format, source.Width(), source.Height())) {
    return nullptr;
  }
  if (!converter->Convert(source, *result)) return nullptr;
  result->ReplacePipelinePath(source.PipelinePath());
  result->AddPipelineText("Copy conversion");
  result->AddPipelineFormat(format);
  return result;
}

}  // namespace Tincta
