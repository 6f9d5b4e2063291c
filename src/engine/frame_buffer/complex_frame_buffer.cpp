// Construction, sharing and the pixel-moving operations of the complex frame buffer.
#include "engine/frame_buffer/complex_frame_buffer.h"

#include <cstring>
#include <new>

#include "engine/frame_buffer/line_table.h"
#include "engine/frame_buffer/simple_frame_buffer.h"

namespace Tincta {

using namespace frame_buffer_detail;

COvComplexFrameBuffer::COvComplexFrameBuffer() {
  RegisterType(kTypeId);
  path_.AddText("Constructed empty");
}

COvComplexFrameBuffer::COvComplexFrameBuffer(const COvComplexFrameBuffer& other)
    : COvFrameBuffer() {
  RegisterType(kTypeId);
  if (other.buffer_ && !bShareBlockOf(other)) return;
  width_ = other.width_;
  height_ = other.height_;
  lineStride_ = other.lineStride_;
  format_ = other.format_;
  path_.Append(other.path_);
  path_.AddText("Constructed as a copy (see pipeline above)");
  path_.AddSize(width_, height_);
  path_.AddFormat(format_);
}

bool COvComplexFrameBuffer::bShareBlockOf(const COvComplexFrameBuffer& other) {
  lines_.reset(new (std::nothrow) uint8_t*[other.height_ ? other.height_ : 1]);
  if (!lines_) return false;
  std::memcpy(lines_.get(), other.lines_.get(), sizeof(uint8_t*) * other.height_);
  buffer_ = other.buffer_;
  buffer_->AddRef();
  offset_ = other.offset_;
  width_ = other.width_;
  height_ = other.height_;
  lineStride_ = other.lineStride_;
  return true;
}

COvComplexFrameBuffer::COvComplexFrameBuffer(SInPlace, COvComplexFrameBuffer& source,
                                             const FrameBufferFormat& format) {
  RegisterType(kTypeId);
  uint32_t stride = 0;
  size_t needed = 0;
  if (!source.buffer_ || !bStrideFor(format, source.width_, stride) ||
      !bBytesFor(stride, source.height_, source.offset_, needed)) {
    return;
  }
  bool resized = false;
  if (needed > source.buffer_->Size()) {
    // Growing may move the block; anyone else's line pointers into it would dangle.
    if (source.buffer_->ReferenceCount() > 1 && !source.bMakeUnique()) return;
    if (!bBytesFor(stride, source.height_, source.offset_, needed)) return;
    if (needed > source.buffer_->Size()) {
      std::unique_ptr<uint8_t*[]> sourceLines(new (std::nothrow)
                                                  uint8_t*[source.height_ ? source.height_ : 1]);
      if (!sourceLines || !source.buffer_->Reserve(needed)) return;
      FillLineTable(sourceLines.get(), source.FirstLineInMemory(), source.lineStride_,
                    source.height_, source.format_.topToBottom);
      source.lines_ = std::move(sourceLines);
      resized = true;
    }
  }
  lines_ = MakeLineTable(source.FirstLineInMemory(), stride, source.height_, format.topToBottom);
  if (!lines_) return;
  buffer_ = source.buffer_;
  buffer_->AddRef();
  offset_ = source.offset_;
  width_ = source.width_;
  height_ = source.height_;
  lineStride_ = stride;
  format_ = format;
  path_.Append(source.path_);
  path_.AddText(resized ? "Constructed in-place with resizing (see pipeline above)"
                        : "Constructed in-place (see pipeline above)");
  path_.AddSize(width_, height_);
}

COvComplexFrameBuffer::COvComplexFrameBuffer(COvSharedBuffer* buffer, uint32_t width,
                                             uint32_t height, const FrameBufferFormat& format,
                                             uint64_t offset) {
  RegisterType(kTypeId);
  uint32_t stride = 0;
  size_t needed = 0;
  if (!buffer || !bStrideFor(format, width, stride) || !bBytesFor(stride, height, offset, needed)) {
    return;
  }
  bool resized = false;
  if (buffer->Empty() || needed > buffer->Size()) {
    if (buffer->ReferenceCount() != 1 || !buffer->Reserve(needed)) return;
    resized = true;
  }
  lines_ = MakeLineTable(buffer->Data() + offset, stride, height, format.topToBottom);
  if (!lines_) return;
  buffer_ = buffer;
  buffer_->AddRef();
  offset_ = offset;
  width_ = width;
  height_ = height;
  lineStride_ = stride;
  format_ = format;
  path_.AddText(resized ? "Constructed from a shared buffer with resizing"
                        : "Constructed from a shared buffer");
  path_.AddSize(width_, height_);
}

COvComplexFrameBuffer::COvComplexFrameBuffer(const COvSimpleFrameBuffer& simple) {
  RegisterType(kTypeId);
  if (!simple.IsValid()) return;
  std::unique_ptr<uint8_t*[]> lines(new (std::nothrow)
                                        uint8_t*[simple.Height() ? simple.Height() : 1]);
  SharedBlock block(new (std::nothrow) COvSharedBuffer);
  if (!lines || !block) return;
  block->Wrap(simple.Memory(), simple.Size());
  std::memcpy(lines.get(), simple.LinePointers(), sizeof(uint8_t*) * simple.Height());
  format_.type = simple.ChannelCount() == 3 ? kFrameBufferTypeRGB : kFrameBufferTypeRGBA;
  format_.precision = kPrecision8Bits;
  format_.channelOrder = simple.ChannelOrder();
  format_.bigEndian = false;
  format_.topToBottom = simple.TopToBottom();
  format_.lineStride = simple.LineStride();
  width_ = simple.Width();
  height_ = simple.Height();
  lineStride_ = simple.LineStride();
  offset_ = simple.Offset();
  buffer_ = block.release();
  lines_ = std::move(lines);
  path_.AddText("Constructed as a SimpleFB wrapper");
  path_.AddSize(width_, height_);
}

COvComplexFrameBuffer::~COvComplexFrameBuffer() {
  ReleaseBlock();
}

void COvComplexFrameBuffer::ReleaseBlock() {
  if (buffer_) buffer_->Release();
  buffer_ = nullptr;
}

void COvComplexFrameBuffer::Reset() {
  ReleaseBlock();
  lines_.reset();
  width_ = height_ = lineStride_ = 0;
  offset_ = 0;
  path_.Clear();
}

bool COvComplexFrameBuffer::bRebuildLinePointers() {
  auto lines = MakeLineTable(FirstLineInMemory(), lineStride_, height_, format_.topToBottom);
  if (!lines) return false;
  lines_ = std::move(lines);
  return true;
}

void COvComplexFrameBuffer::TakeOver(COvComplexFrameBuffer& other) {
  ReleaseBlock();
  width_ = other.width_;
  height_ = other.height_;
  lineStride_ = other.lineStride_;
  format_ = other.format_;
  buffer_ = other.buffer_;
  offset_ = other.offset_;
  lines_ = std::move(other.lines_);
  other.buffer_ = nullptr;
  other.height_ = 0;
}

bool COvComplexFrameBuffer::bMakeUnique() {
  if (!buffer_ || buffer_->Empty() || buffer_->ReferenceCount() < 2) return true;
  size_t bytes = 0;
  if (!bBytesFor(lineStride_, height_, 0, bytes)) return false;
  SharedBlock block = NewBlock(bytes);
  if (!block) return false;
  auto lines = MakeLineTable(block->Data(), lineStride_, height_, format_.topToBottom);
  if (!lines) return false;
  std::memcpy(block->Data(), FirstLineInMemory(), bytes);
  ReleaseBlock();
  buffer_ = block.release();
  offset_ = 0;
  lines_ = std::move(lines);
  path_.AddText("Buffer was made unique (copied)");
  return true;
}

bool COvComplexFrameBuffer::bEnsureAlignment() {
  if (!buffer_ || buffer_->Empty()) return true;
  uint8_t* const first = FirstLineInMemory();
  const auto misalignment = reinterpret_cast<uintptr_t>(first) % 16;
  if (misalignment == 0) return true;
  // Moving the pixels would overwrite whatever other buffers keep around them.
  if (buffer_->ReferenceCount() > 1) return bMakeUnique();

  size_t bytes = 0;
  if (!bBytesFor(lineStride_, height_, 0, bytes)) return false;
  uint8_t* const start = buffer_->Start();
  uint8_t* const end = buffer_->Data() + buffer_->Size();
  uint8_t* target = first - misalignment;
  if (target < start) {
    target = first + (16 - misalignment);
    if (target > end || size_t(end - target) < bytes) return false;
  }
  auto lines = MakeLineTable(target, lineStride_, height_, format_.topToBottom);
  if (!lines) return false;
  std::memmove(target, first, bytes);
  // Keep the offset where the block leaves room for it; else the data pointer starts the lines.
  const uint64_t offset = size_t(target - start) >= offset_ ? offset_ : uint64_t(target - start);
  buffer_->ShiftData((target - static_cast<ptrdiff_t>(offset)) - buffer_->Data());
  offset_ = offset;
  lines_ = std::move(lines);
  path_.AddText("Data was shifted to ensure alignment");
  return true;
}

bool COvComplexFrameBuffer::bMirrorHorizontally() {
  const uint32_t pixelBytes = BytesPerPixel(format_);
  if (!IsValidLayout(format_) || pixelBytes < 1) return false;
  if (width_ < 2 || !buffer_) return true;
  const size_t lineBytes = size_t{width_} * pixelBytes;
  std::unique_ptr<uint8_t[]> scratch(new (std::nothrow) uint8_t[lineBytes]);
  if (!scratch || !bMakeUnique()) return false;
  for (uint32_t y = 0; y < height_; ++y) {
    uint8_t* line = lines_[y];
    std::memcpy(scratch.get(), line, lineBytes);
    for (uint32_t x = 0; x < width_; ++x) {
      std::memcpy(line + size_t{x} * pixelBytes,
                  scratch.get() + size_t{width_ - 1 - x} * pixelBytes, pixelBytes);
    }
  }
  path_.AddText("Mirrored horizontally");
  return true;
}

bool COvComplexFrameBuffer::bAllocateNewBuffer(const FrameBufferFormat& format, uint32_t width,
                                               uint32_t height) {
  uint32_t stride = 0;
  size_t bytes = 0;
  if (!bStrideFor(format, width, stride) || !bBytesFor(stride, height, 0, bytes)) return false;
  SharedBlock block = NewBlock(bytes);
  if (!block) return false;
  auto lines = MakeLineTable(block->Data(), stride, height, format.topToBottom);
  if (!lines) return false;
  ReleaseBlock();
  buffer_ = block.release();
  offset_ = 0;
  width_ = width;
  height_ = height;
  lineStride_ = stride;
  format_ = format;
  lines_ = std::move(lines);
  path_.AddText("Allocated new buffer");
  path_.AddSize(width_, height_);
  return true;
}

}  // namespace Tincta
