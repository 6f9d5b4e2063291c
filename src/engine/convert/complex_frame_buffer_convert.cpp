// Format conversions of the complex frame buffer: the converting copy, copy conversion and
// conversion in place. They are the frame buffer's members but live with the converters, whose
// list they need, so that frame buffers never reach up to the converters.
#include <cstring>
#include <new>

#include "engine/convert/channel_converters.h"
#include "engine/convert/converter_list.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/line_table.h"

namespace Tincta {

using namespace frame_buffer_detail;

COvComplexFrameBuffer::COvComplexFrameBuffer(const COvComplexFrameBuffer& other,
                                             const FrameBufferFormat& format) {
  RegisterType(kTypeId);
  if (other.buffer_ && FormatsMatch(other.format_, format)) {
    if (!bShareBlockOf(other)) return;
    format_ = format;
    path_.Append(other.path_);
  } else if (other.buffer_) {
    std::unique_ptr<COvComplexFrameBuffer> converted = CopyConvertFrameBuffer(other, format);
    if (!converted) return;
    TakeOver(*converted);
    path_.Append(converted->path_);
  } else {
    uint32_t stride = 0;
    if (!bStrideFor(format, other.width_, stride)) return;
    width_ = other.width_;
    height_ = other.height_;
    lineStride_ = stride;
    format_ = format;
    path_.Append(other.path_);
  }
  path_.AddText("Constructed as a copy (see pipeline above) with format conversion");
  path_.AddSize(width_, height_);
  path_.AddFormat(format_);
}

bool COvComplexFrameBuffer::bCopyConvert(const FrameBufferFormat& format) {
  return bCopyConvertWithText(format, "Copy conversion");
}

bool COvComplexFrameBuffer::bCopyConvertWithText(const FrameBufferFormat& format,
                                                 const char* text) {
  if (!buffer_) return false;
  if (FormatsMatch(format_, format)) {
    format_ = format;
  } else {
    std::unique_ptr<COvComplexFrameBuffer> converted = CopyConvertFrameBuffer(*this, format);
    if (!converted) return false;
    TakeOver(*converted);
  }
  path_.AddText(text);
  path_.AddFormat(format_);
  return true;
}

bool COvComplexFrameBuffer::bConvertInPlace(const FrameBufferFormat& format) {
  if (!buffer_) return false;
  if (FormatsMatch(format_, format)) {
    format_ = format;
  } else {
    // Writing into a shared block would change the other buffers; turning the picture over
    // would make rows overwrite rows not yet read.
    const bool possible = IsConvertibleFormat(format_) && IsConvertibleFormat(format) &&
                          buffer_->ReferenceCount() == 1 &&
                          format_.topToBottom == format.topToBottom;
    const ERowConversion rows = possible ? ConvertRowsInPlace(format) : ERowConversion::kNotStarted;
    if (rows == ERowConversion::kBroken) {
      path_.AddText("In-place conversion failed part way");
      return false;
    }
    if (rows == ERowConversion::kNotStarted) {
      return bCopyConvertWithText(format,
                                  "Copy conversion was invoked from in-place (in-place failed)");
    }
  }
  path_.AddText("In-place conversion");
  path_.AddFormat(format_);
  return true;
}

// Rows go through a one-row copy of the source, in the memory order that never writes a row
// before reading it: upwards when rows shrink, downwards when they grow.
COvComplexFrameBuffer::ERowConversion COvComplexFrameBuffer::ConvertRowsInPlace(
    const FrameBufferFormat& format) {
  const COvFrameBufferConverter* converter =
      COvChannelConverterList::Instance().Find(format_, format);
  if (!converter) return ERowConversion::kNotStarted;
  COvComplexFrameBuffer target(kInPlace, *this, format);
  if (!target.HasPixels()) return ERowConversion::kNotStarted;
  FrameBufferFormat rowFormat = format_;
  rowFormat.lineStride = lineStride_;
  COvComplexFrameBuffer rowSource;
  if (!rowSource.bAllocateNewBuffer(rowFormat, width_, 1)) return ERowConversion::kNotStarted;
  FrameBufferFormat targetRowFormat = format;
  targetRowFormat.lineStride = target.lineStride_;

  const uint32_t sourceStride = lineStride_;
  const uint32_t targetStride = target.lineStride_;
  const bool upwards = targetStride <= sourceStride;
  uint8_t* const first = FirstLineInMemory();
  for (uint32_t k = 0; k < height_; ++k) {
    const uint32_t row = upwards ? k : height_ - 1 - k;
    std::memcpy(rowSource.Line(0), first + size_t{row} * sourceStride, sourceStride);
    COvComplexFrameBuffer rowTarget(buffer_, width_, 1, targetRowFormat,
                                    offset_ + uint64_t{row} * targetStride);
    // Converters fail before writing, so a failure on the first row leaves the picture whole
    // for the copy conversion; later rows fail only when scratch memory runs out.
    if (!rowTarget.HasPixels() || !converter->Convert(rowSource, rowTarget)) {
      return k == 0 ? ERowConversion::kNotStarted : ERowConversion::kBroken;
    }
  }
  format_ = format;
  lineStride_ = targetStride;
  lines_ = std::move(target.lines_);
  return ERowConversion::kDone;
}

}  // namespace Tincta
