// The library's picture in memory: size, format, a pixel block shared by reference count, line
// pointers with the top line first, and the history of how the buffer came to be.
#pragma once

#include <cstdint>
#include <memory>

#include "engine/frame_buffer/frame_buffer.h"
#include "engine/frame_buffer/frame_buffer_format.h"
#include "engine/frame_buffer/pipeline_path.h"
#include "foundation/heap_buffer.h"

namespace Tincta {

class COvSimpleFrameBuffer;

/// A frame buffer over a `COvSharedBuffer`. Several buffers may share one block (at different
/// offsets); every operation that writes pixels first makes the block this buffer's own, so the
/// others never change. Each change appends a line to `PipelinePath()`.
///
/// A construction that cannot be completed (a stride beyond 32 bits, lines that do not fit, a
/// failed allocation) leaves a buffer without pixels (`HasPixels()` false) and an empty path.
/// Operations that fail return false and leave the buffer as it was.
class COvComplexFrameBuffer final : public COvFrameBuffer {
 public:
  static constexpr uint32_t kTypeId = 0x43504C58;  // "CPLX"

  /// Selects the in-place constructor.
  struct SInPlace {};
  static constexpr SInPlace kInPlace{};

  /// No size, default format, no pixels. Path: "Constructed empty".
  COvComplexFrameBuffer();

  /// Shares `other`'s pixel block (same offset, same line pointers). Path: `other`'s path, then
  /// "Constructed as a copy (see pipeline above)", the size and the format.
  COvComplexFrameBuffer(const COvComplexFrameBuffer& other);

  /// A copy of `other` in `format`: shares the block when the formats match (`FormatsMatch`),
  /// else holds pixels converted by the registered converters. Without a converter for the pair
  /// the result has no pixels. Path: `other`'s path (with the conversion's lines), then
  /// "Constructed as a copy (see pipeline above) with format conversion", size and format.
  COvComplexFrameBuffer(const COvComplexFrameBuffer& other, const FrameBufferFormat& format);

  /// Reinterprets `source`'s block in `format` for a conversion that then runs in place; no
  /// pixel changes. The block grows when the lines in `format` need more room; a block that
  /// other buffers share is first made `source`'s own (and `source`'s line pointers follow a
  /// grown block). Path: `source`'s path, then "Constructed in-place (see pipeline above)" or
  /// "Constructed in-place with resizing (see pipeline above)", and the size.
  COvComplexFrameBuffer(SInPlace, COvComplexFrameBuffer& source, const FrameBufferFormat& format);

  /// Lines of `width` × `height` pixels in `format`, starting `offset` bytes after the block's
  /// data pointer; takes a reference on `buffer` (the caller keeps its own). A block too small
  /// for the lines is grown, but only while no one else holds a reference to it. Path:
  /// "Constructed from a shared buffer" or "Constructed from a shared buffer with resizing",
  /// and the size.
  COvComplexFrameBuffer(COvSharedBuffer* buffer, uint32_t width, uint32_t height,
                        const FrameBufferFormat& format, uint64_t offset);

  /// Wraps the memory of an 8-bit simple buffer without copying: RGB for 3 channels, else
  /// RGBA, with its stride, offset, channel order and orientation. Path: "Constructed as a
  /// SimpleFB wrapper" and the size.
  explicit COvComplexFrameBuffer(const COvSimpleFrameBuffer& simple);

  ~COvComplexFrameBuffer() override;
  COvComplexFrameBuffer& operator=(const COvComplexFrameBuffer&) = delete;

  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  /// Bytes from one line in memory to the next.
  uint32_t LineStride() const { return lineStride_; }
  const FrameBufferFormat& Format() const { return format_; }
  bool HasPixels() const { return buffer_ != nullptr; }
  /// The pixel block (null without pixels); the buffer holds one reference on it.
  COvSharedBuffer* SharedBuffer() const { return buffer_; }
  /// Bytes from the block's data pointer to the lowest line in memory.
  uint64_t Offset() const { return offset_; }
  /// The lowest line in memory: the top line when top to bottom, else the bottom line.
  uint8_t* FirstLineInMemory() const { return buffer_ ? buffer_->Data() + offset_ : nullptr; }
  /// Line `y` of the picture, 0 being the top line whatever the memory order. Only for
  /// `y < Height()` of a buffer with pixels.
  uint8_t* Line(uint32_t y) const { return lines_[y]; }
  /// The `Height()` line addresses, top line first (null without pixels).
  uint8_t* const* LinePointers() const { return lines_.get(); }

  const COvPipelinePath& PipelinePath() const { return path_; }
  /// Appends a line of history.
  void AddPipelineText(std::string text) { path_.AddText(std::move(text)); }
  /// Appends a format step.
  void AddPipelineFormat(const FrameBufferFormat& format) { path_.AddFormat(format); }
  /// Replaces the history by a copy of `path` (a converted buffer takes over its source's).
  void ReplacePipelinePath(const COvPipelinePath& path) { path_ = path; }

  /// Gives the buffer a block of its own when others share it, copying the pixels ("Buffer was
  /// made unique (copied)"). False only when the copy cannot be allocated.
  bool bMakeUnique();

  /// Moves the pixels so that the lowest line starts on a 16-byte boundary ("Data was shifted
  /// to ensure alignment"); a shared block is made unique instead, which aligns it. False when
  /// the block has no aligned room for the lines or memory runs out.
  bool bEnsureAlignment();

  /// Turns RGBA into RGB by dropping the fourth sample of every pixel, at any precision
  /// ("Alpha channel stripped"). Other types are left alone.
  void StripAlpha();

  /// Turns RGB into RGBA with an alpha of `value` clamped to [0, 1] at the precision's scale
  /// (integers truncate: 8 bits store trunc(value × 255)). True at once for RGBA; false for
  /// other types. Path: "Alpha channel added, value: " and the clamped value.
  bool bAddAlpha(float value);

  /// Reverses every line ("Mirrored horizontally"). False for packed "10 bits" with 1 or 4
  /// channels, whose pixels do not start on bytes; true without change below 2 pixels.
  bool bMirrorHorizontally();

  /// Converts the pixels to `format` inside the buffer's own block ("In-place conversion").
  /// When that cannot be done (another buffer shares the block, the orientation changes, no
  /// converter) a copy conversion runs instead ("Copy conversion was invoked from in-place
  /// (in-place failed)"). False when neither works, and in the one case that cannot be
  /// undone: scratch memory running out after the first rows were converted ("In-place
  /// conversion failed part way"; the pixels are then partly converted).
  bool bConvertInPlace(const FrameBufferFormat& format);

  /// Replaces the pixels by a converted copy in `format` ("Copy conversion" and the format).
  bool bCopyConvert(const FrameBufferFormat& format);

  /// Replaces the block by a new one for `width` × `height` pixels in `format` (content not
  /// set). Path: "Allocated new buffer" and the size. False, unchanged, when the stride exceeds
  /// 32 bits or memory runs out.
  bool bAllocateNewBuffer(const FrameBufferFormat& format, uint32_t width, uint32_t height);

 private:
  void ReleaseBlock();
  void Reset();
  /// Builds `height_` line pointers over `base` with `lineStride_`; false when out of memory.
  bool bRebuildLinePointers();
  /// Takes width, height, stride, format, block, offset and lines from `other`.
  void TakeOver(COvComplexFrameBuffer& other);
  /// Shares `other`'s block, offset, size, stride and line pointers; false (nothing shared)
  /// without memory for the line table.
  bool bShareBlockOf(const COvComplexFrameBuffer& other);
  bool bCopyConvertWithText(const FrameBufferFormat& format, const char* text);
  enum class ERowConversion { kDone, kNotStarted, kBroken };
  ERowConversion ConvertRowsInPlace(const FrameBufferFormat& format);

  COvPipelinePath path_;
  uint32_t width_ = 0;
  uint32_t height_ = 0;
  uint32_t lineStride_ = 0;
  FrameBufferFormat format_;
  COvSharedBuffer* buffer_ = nullptr;
  uint64_t offset_ = 0;
  std::unique_ptr<uint8_t*[]> lines_;
};

}  // namespace Tincta
