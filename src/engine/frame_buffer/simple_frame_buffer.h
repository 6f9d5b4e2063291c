// A light frame buffer: a view of 8-bit RGB or RGBA pixels in memory that stays its owner's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/frame_buffer/frame_buffer.h"

namespace Tincta {

/// A view of 8-bit pixels (3 or 4 samples each) in caller-owned memory, with line pointers
/// that put the top line first whatever the memory order. A complex frame buffer can wrap it.
class COvSimpleFrameBuffer final : public COvFrameBuffer {
 public:
  static constexpr uint32_t kTypeId = 0x53494D50;  // "SIMP"

  /// Views `height` lines of `width` pixels starting `offset` bytes into the `size` bytes at
  /// `memory`, `lineStride` bytes apart. `channelOrder` is 0 (BGR(A)) or 1 (RGB(A)). Arguments
  /// that do not fit (channels other than 3 or 4, a stride shorter than a line, lines beyond
  /// `size`, no memory, no room for the line table) leave an empty view: `IsValid()` is false.
  COvSimpleFrameBuffer(void* memory, size_t size, uint32_t width, uint32_t height,
                       uint32_t channels, uint32_t lineStride, size_t offset, int32_t channelOrder,
                       bool topToBottom);
  COvSimpleFrameBuffer(const COvSimpleFrameBuffer&) = delete;
  COvSimpleFrameBuffer& operator=(const COvSimpleFrameBuffer&) = delete;

  bool IsValid() const { return memory_ != nullptr; }
  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  uint32_t LineStride() const { return lineStride_; }
  /// Bytes from `Memory()` to the first pixel line in memory.
  size_t Offset() const { return offset_; }
  uint32_t ChannelCount() const { return channels_; }
  int32_t ChannelOrder() const { return channelOrder_; }
  bool TopToBottom() const { return topToBottom_; }
  /// Start of the viewed memory and its size in bytes.
  uint8_t* Memory() const { return memory_; }
  size_t Size() const { return size_; }
  /// Line `y` of the picture, 0 being the top line.
  uint8_t* Line(uint32_t y) const { return lines_[y]; }
  /// The `Height()` line addresses, top line first.
  uint8_t* const* LinePointers() const { return lines_.get(); }

 private:
  uint8_t* memory_ = nullptr;
  size_t size_ = 0;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  uint32_t channels_ = 0;
  uint32_t lineStride_ = 0;
  size_t offset_ = 0;
  int32_t channelOrder_ = 0;
  bool topToBottom_ = false;
  std::unique_ptr<uint8_t*[]> lines_;
};

}  // namespace Tincta
