// Dropping and adding the alpha sample of a complex frame buffer, at every precision.
#include <bit>
#include <charconv>
#include <cstring>
#include <new>

#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/half_float.h"
#include "engine/frame_buffer/line_table.h"
#include "engine/frame_buffer/sample_codes.h"

namespace Tincta {

using namespace frame_buffer_detail;

namespace {

// Integers truncate, as the 8-bit case does with trunc(value × 255).
uint32_t AlphaCode(uint32_t precision, float value) {
  switch (precision) {
    case kPrecision8Bits:
      return static_cast<uint32_t>(value * 255.0f);
    case kPrecision10Bits:
      return static_cast<uint32_t>(value * 1023.0f);
    case kPrecision10Plus2Bits:
      return static_cast<uint32_t>(value * 3.0f);
    case kPrecision16BitInt:
      return static_cast<uint32_t>(value * 65535.0f);
    case kPrecision16BitFloat:
      return FloatToHalf(value);
    case kPrecision32BitInt:
      return static_cast<uint32_t>(double{value} * 4294967295.0);
    default:
      return std::bit_cast<uint32_t>(value);
  }
}

std::string ShortestText(float value) {
  char text[32];
  const auto result = std::to_chars(text, text + sizeof(text), value);
  return std::string(text, result.ptr);
}

}  // namespace

void COvComplexFrameBuffer::StripAlpha() {
  if (format_.type != kFrameBufferTypeRGBA || format_.precision >= kPrecisionCount) return;
  FrameBufferFormat rgb = format_;
  rgb.type = kFrameBufferTypeRGB;
  uint32_t stride = 0;
  if (!bStrideFor(rgb, width_, stride) || stride > lineStride_) return;
  if (buffer_) {
    std::unique_ptr<uint32_t[]> codes(new (std::nothrow) uint32_t[size_t{width_} * 4 + 1]);
    if (!codes || !bMakeUnique()) return;
    uint8_t* const first = FirstLineInMemory();
    auto lines = MakeLineTable(first, stride, height_, rgb.topToBottom);
    if (!lines) return;
    // Memory order from the lowest line: an RGB line never reaches past its RGBA original.
    for (uint32_t row = 0; row < height_; ++row) {
      ReadSampleCodes(first + size_t{row} * lineStride_, format_, width_, codes.get());
      for (size_t x = 0; x < width_; ++x) {
        for (size_t c = 0; c < 3; ++c)
          codes[x * 3 + c] = codes[x * 4 + c];
      }
      WriteSampleCodes(codes.get(), rgb, width_, first + size_t{row} * stride);
    }
    lines_ = std::move(lines);
  }
  format_ = rgb;
  lineStride_ = stride;
  path_.AddText("Alpha channel stripped");
}

bool COvComplexFrameBuffer::bAddAlpha(float value) {
  if (format_.type == kFrameBufferTypeRGBA) return true;
  if (format_.type != kFrameBufferTypeRGB || format_.precision >= kPrecisionCount) return false;
  const float alpha = value > 0.0f ? (value < 1.0f ? value : 1.0f) : 0.0f;
  FrameBufferFormat rgba = format_;
  rgba.type = kFrameBufferTypeRGBA;
  uint32_t stride = 0;
  size_t bytes = 0;
  if (!bStrideFor(rgba, width_, stride) || !bBytesFor(stride, height_, 0, bytes)) return false;
  if (buffer_) {
    std::unique_ptr<uint32_t[]> codes(new (std::nothrow) uint32_t[size_t{width_} * 4 + 1]);
    SharedBlock block = NewBlock(bytes);
    if (!codes || !block) return false;
    auto lines = MakeLineTable(block->Data(), stride, height_, rgba.topToBottom);
    if (!lines) return false;
    const uint32_t alphaCode = AlphaCode(format_.precision, alpha);
    for (uint32_t y = 0; y < height_; ++y) {
      ReadSampleCodes(lines_[y], format_, width_, codes.get());
      for (size_t x = width_; x-- > 0;) {
        codes[x * 4 + 3] = alphaCode;
        for (size_t c = 3; c-- > 0;)
          codes[x * 4 + c] = codes[x * 3 + c];
      }
      WriteSampleCodes(codes.get(), rgba, width_, lines[y]);
    }
    ReleaseBlock();
    buffer_ = block.release();
    offset_ = 0;
    lines_ = std::move(lines);
  }
  format_ = rgba;
  lineStride_ = stride;
  path_.AddText("Alpha channel added, value: " + ShortestText(alpha));
  return true;
}

}  // namespace Tincta
