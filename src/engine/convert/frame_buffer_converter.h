// The converter interface: writes one frame buffer's pixels from another's in another format.
#pragma once

#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/frame_buffer_format.h"

namespace Tincta {

/// A frame-buffer converter. Converters hold no state between calls and may be used from
/// several threads at once.
class COvFrameBufferConverter {
 public:
  virtual ~COvFrameBufferConverter() = default;

  /// Short name of the converter, for diagnostics and tests of the list's order.
  virtual const char* Name() const = 0;

  /// Whether the converter handles pixels of `source` format written as `target` format.
  virtual bool CanConvert(const FrameBufferFormat& source,
                          const FrameBufferFormat& target) const = 0;

  /// Writes `target`'s pixels from `source`'s, picture line for picture line, so that the
  /// picture keeps its orientation. Both need pixels and the same width and height; the formats
  /// are checked with `CanConvert` again. False when anything does not hold; `target`'s pixels
  /// are then unspecified but no byte outside its lines is written.
  virtual bool Convert(const COvComplexFrameBuffer& source,
                       COvComplexFrameBuffer& target) const = 0;

 protected:
  /// The checks every `Convert` starts with.
  bool bReadyToConvert(const COvComplexFrameBuffer& source,
                       const COvComplexFrameBuffer& target) const;
};

}  // namespace Tincta
