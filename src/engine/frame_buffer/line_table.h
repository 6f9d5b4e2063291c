// Helpers shared by the frame buffer's translation units: line tables and size arithmetic that
// refuses what does not fit instead of wrapping.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/frame_buffer/frame_buffer_format.h"
#include "foundation/heap_buffer.h"

namespace Tincta::frame_buffer_detail {

using SharedBlock = std::unique_ptr<COvSharedBuffer, CustomDeleter<COvSharedBuffer>>;

/// `height` line addresses over `lowestLine`, top line first; null when out of memory.
std::unique_ptr<uint8_t*[]> MakeLineTable(uint8_t* lowestLine, uint32_t stride, uint32_t height,
                                          bool topToBottom);

/// Fills an existing table of `height` entries the same way.
void FillLineTable(uint8_t** lines, uint8_t* lowestLine, uint32_t stride, uint32_t height,
                   bool topToBottom);

/// The line stride of `format` at `width`, false when it does not fit in 32 bits.
bool bStrideFor(const FrameBufferFormat& format, uint32_t width, uint32_t& stride);

/// stride × height + offset in bytes, false when it does not fit in memory.
bool bBytesFor(uint32_t stride, uint32_t height, uint64_t offset, size_t& bytes);

/// A new shared block of `bytes` bytes (16-byte aligned); null when out of memory.
SharedBlock NewBlock(size_t bytes);

}  // namespace Tincta::frame_buffer_detail
