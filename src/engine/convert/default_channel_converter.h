// The converter for buffers whose samples already have the target's layout.
#pragma once

#include "engine/convert/frame_buffer_converter.h"

namespace Tincta {

/// Handles formats with equal type, precision and channel order (any order for Intensity)
/// that differ only in orientation, line stride or byte order: lines are copied in picture
/// order, with every sample (or 32-bit word of the 10-bit precisions) byte-swapped when the
/// byte orders differ.
class COvDefaultChannelConverter final : public COvFrameBufferConverter {
 public:
  const char* Name() const override { return "default"; }
  bool CanConvert(const FrameBufferFormat& source, const FrameBufferFormat& target) const override;
  bool Convert(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target) const override;
};

}  // namespace Tincta
