#include "engine/frame_buffer/line_table.h"

#include <limits>
#include <new>

namespace Tincta::frame_buffer_detail {

std::unique_ptr<uint8_t* []> MakeLineTable(uint8_t* lowestLine, uint32_t stride, uint32_t height,
                                           bool topToBottom) {
  std::unique_ptr<uint8_t*[]> lines(new (std::nothrow) uint8_t*[height ? height : 1]);
  if (lines) FillLineTable(lines.get(), lowestLine, stride, height, topToBottom);
  return lines;
}

void FillLineTable(uint8_t** lines, uint8_t* lowestLine, uint32_t stride, uint32_t height,
                   bool topToBottom) {
  for (uint32_t i = 0; i < height; ++i) {
    lines[topToBottom ? i : height - 1 - i] = lowestLine + size_t{i} * stride;
  }
}

bool bStrideFor(const FrameBufferFormat& format, uint32_t width, uint32_t& stride) {
  const uint64_t computed = ComputeLineStride(format, width);
  if (computed > std::numeric_limits<uint32_t>::max()) return false;
  stride = static_cast<uint32_t>(computed);
  return true;
}

bool bBytesFor(uint32_t stride, uint32_t height, uint64_t offset, size_t& bytes) {
  const uint64_t lines = uint64_t{stride} * height;  // below 2^64: both factors are 32-bit
  if (offset > std::numeric_limits<uint64_t>::max() - lines) return false;
  if (lines + offset > std::numeric_limits<size_t>::max() / 2) return false;
  bytes = static_cast<size_t>(lines + offset);
  return true;
}

SharedBlock NewBlock(size_t bytes) {
  SharedBlock block(new (std::nothrow) COvSharedBuffer);
  if (block && !block->Allocate(bytes)) block.reset();
  return block;
}

}  // namespace Tincta::frame_buffer_detail
