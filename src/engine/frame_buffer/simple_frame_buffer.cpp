#include "engine/frame_buffer/simple_frame_buffer.h"

#include <new>

namespace Tincta {

COvSimpleFrameBuffer::COvSimpleFrameBuffer(void* memory, size_t size, uint32_t width,
                                           uint32_t height, uint32_t channels, uint32_t lineStride,
                                           size_t offset, int32_t channelOrder, bool topToBottom) {
  RegisterType(kTypeId);
  if (memory == nullptr || (channels != 3 && channels != 4)) return;
  if (uint64_t{lineStride} < uint64_t{width} * channels) return;
  if (offset > size || (size - offset) / (lineStride ? lineStride : 1) < height) return;
  std::unique_ptr<uint8_t*[]> lines(new (std::nothrow) uint8_t*[height ? height : 1]);
  if (!lines) return;
  auto* base = static_cast<uint8_t*>(memory) + offset;
  for (uint32_t i = 0; i < height; ++i) {
    lines[topToBottom ? i : height - 1 - i] = base + size_t{i} * lineStride;
  }
  memory_ = static_cast<uint8_t*>(memory);
  size_ = size;
  width_ = width;
  height_ = height;
  channels_ = channels;
  lineStride_ = lineStride;
  offset_ = offset;
  channelOrder_ = channelOrder;
  topToBottom_ = topToBottom;
  lines_ = std::move(lines);
}

}  // namespace Tincta
