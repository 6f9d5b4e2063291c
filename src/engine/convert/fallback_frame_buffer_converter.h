// The converter of last resort: vector kernels where they apply, else a channel exchange, else
// the general path through float.
#pragma once

#include "engine/convert/frame_buffer_converter.h"
#include "engine/convert/optimized_frame_buffer_converter.h"

namespace Tincta {

/// Accepts every pair of convertible formats (`IsConvertibleFormat`). Tries, in order: the
/// optimized converter for RGBA sources of "32 bit float" or of "16 bit int" going to "8 bits";
/// an exchange of the first and third samples when only the channel order differs (exact at
/// every precision, byte orders may differ too); the general path through a float RGBA line.
class COvFallbackFrameBufferConverter final : public COvFrameBufferConverter {
 public:
  /// `kernels` as for `COvOptimizedFrameBufferConverter`.
  explicit COvFallbackFrameBufferConverter(const SConvertKernels* kernels = nullptr)
      : optimized_(kernels) {}

  const char* Name() const override { return "fallback"; }
  bool CanConvert(const FrameBufferFormat& source, const FrameBufferFormat& target) const override;
  bool Convert(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target) const override;

 private:
  COvOptimizedFrameBufferConverter optimized_;
};

}  // namespace Tincta
