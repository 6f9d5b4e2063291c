// The vector converter for the conversions the apply path needs every frame.
#pragma once

#include "engine/convert/convert_kernels.h"
#include "engine/convert/frame_buffer_converter.h"

namespace Tincta {

/// Converts "32 bit float" RGBA (little endian) to "8 bits" RGBA or RGB and to "10 bits" RGB
/// or RGBA in either byte order, and "16 bit int" RGBA (little endian) to "8 bits" RGBA, with
/// the vector kernels. `Convert` refuses (false, nothing written) unless both buffers' lowest
/// lines start on 16-byte boundaries and both strides are multiples of 16 that cover whole
/// kernel groups; the caller then takes the general path, which gives the same bytes. Pixels
/// after the last whole group of a line are converted one by one, so nothing past a line's
/// pixels is written. Not registered in the list: the fallback converter holds it.
class COvOptimizedFrameBufferConverter final : public COvFrameBufferConverter {
 public:
  /// Uses the kernels chosen once per process through the resolver slots, or `kernels` when
  /// given (to compare instruction sets).
  explicit COvOptimizedFrameBufferConverter(const SConvertKernels* kernels = nullptr)
      : kernels_(kernels) {}

  const char* Name() const override { return "optimized"; }
  bool CanConvert(const FrameBufferFormat& source, const FrameBufferFormat& target) const override;
  bool Convert(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target) const override;

 private:
  const SConvertKernels* kernels_;
};

}  // namespace Tincta
