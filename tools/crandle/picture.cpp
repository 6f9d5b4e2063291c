#include "picture.h"

#include <new>

namespace crandle_tool {

void CPicture::SAlignedFree::operator()(uint8_t* p) const noexcept {
  ::operator delete[](p, std::align_val_t(64));
}

bool CPicture::Allocate(uint32_t width, uint32_t height, host::PixelFormat format) {
  const size_t pixelBytes = host::BytesPerPixel(format);
  if (pixelBytes == 0 || width == 0 || height == 0) return false;
  const size_t rowBytes = pixelBytes * width;
  auto* block =
      static_cast<uint8_t*>(::operator new[](rowBytes* height, std::align_val_t(64), std::nothrow));
  if (!block) return false;
  bytes_ = std::shared_ptr<uint8_t>(block, SAlignedFree());
  width_ = width;
  height_ = height;
  format_ = format;
  rowBytes_ = rowBytes;
  return true;
}

host::InterfaceRef<host::IVideoFrame> CPicture::View(uint32_t firstRow, uint32_t rows) const {
  host::InterfaceRef<host::IVideoFrame> frame;
  if (host::CreateVideoFrameView(frame, format_, width_, rows, Row(firstRow), rowBytes_, bytes_) !=
      0) {
    frame.Reset();
  }
  return frame;
}

}  // namespace crandle_tool
