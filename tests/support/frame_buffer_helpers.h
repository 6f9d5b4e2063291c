// Small helpers shared by the frame-buffer and converter tests.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/sample_codes.h"

namespace crandle_test {

inline Tincta::FrameBufferFormat MakeFormat(uint32_t type, uint32_t precision,
                                            int32_t order = Tincta::kChannelOrderRGB,
                                            bool bigEndian = false, bool topToBottom = true,
                                            uint32_t lineStride = 0) {
  return {type, precision, order, bigEndian, topToBottom, 0, lineStride};
}

/// A buffer with freshly allocated pixels, every byte of its block set to `fill`.
inline std::unique_ptr<Tincta::COvComplexFrameBuffer> NewBuffer(
    const Tincta::FrameBufferFormat& format, uint32_t width, uint32_t height, uint8_t fill = 0) {
  auto buffer = std::make_unique<Tincta::COvComplexFrameBuffer>();
  EXPECT_TRUE(buffer->bAllocateNewBuffer(format, width, height));
  if (buffer->HasPixels())
    std::memset(buffer->SharedBuffer()->Data(), fill, buffer->SharedBuffer()->Size());
  return buffer;
}

/// The bytes that hold the pixels of every line, top line first.
inline std::vector<uint8_t> PictureBytes(const Tincta::COvComplexFrameBuffer& buffer) {
  const auto lineBytes = size_t(Tincta::PixelLineBytes(buffer.Format(), buffer.Width()));
  std::vector<uint8_t> bytes;
  for (uint32_t y = 0; y < buffer.Height(); ++y)
    bytes.insert(bytes.end(), buffer.Line(y), buffer.Line(y) + lineBytes);
  return bytes;
}

}  // namespace crandle_test
