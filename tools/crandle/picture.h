// Pictures in host pixel formats (blue, green, red, alpha), owned by the tool, and the host
// frames that view them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "host/video_frame.h"

namespace crandle_tool {

/// A packed BGRA picture in one of the host's BGRA formats, on a 64-byte aligned block.
class CPicture {
 public:
  CPicture() = default;
  /// False when the format is not a BGRA format or the memory is not there.
  bool Allocate(uint32_t width, uint32_t height, host::PixelFormat format);

  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  host::PixelFormat Format() const { return format_; }
  size_t RowBytes() const { return rowBytes_; }
  uint8_t* Row(uint32_t y) const { return bytes_.get() + y * rowBytes_; }
  uint8_t* Data() const { return bytes_.get(); }
  size_t Bytes() const { return rowBytes_ * height_; }

  /// A host frame over rows [firstRow, firstRow + rows); null reference when the host refuses.
  host::InterfaceRef<host::IVideoFrame> View(uint32_t firstRow, uint32_t rows) const;

 private:
  struct SAlignedFree {
    void operator()(uint8_t* p) const noexcept;
  };
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  host::PixelFormat format_{};
  size_t rowBytes_ = 0;
  std::shared_ptr<uint8_t> bytes_;
};

}  // namespace crandle_tool
