// The converter from 16-bit integer samples to 8 bits for layouts the vector kernels skip.
#pragma once

#include "engine/convert/frame_buffer_converter.h"

namespace Tincta {

/// "16 bit int" (little endian) to "8 bits" with equal type and channel order, for Intensity
/// and RGB: each sample becomes its high byte (x >> 8, no rounding). RGBA is left to the
/// fallback converter, which tries the vector kernels first. A target line that overlaps its
/// own source line is written sample by sample where that is safe, else from a copy.
class COvScalarFrameBufferConverter final : public COvFrameBufferConverter {
 public:
  const char* Name() const override { return "scalar"; }
  bool CanConvert(const FrameBufferFormat& source, const FrameBufferFormat& target) const override;
  bool Convert(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target) const override;
};

}  // namespace Tincta
