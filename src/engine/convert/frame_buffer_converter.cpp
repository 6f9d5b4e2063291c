#include "engine/convert/frame_buffer_converter.h"

namespace Tincta {

bool COvFrameBufferConverter::bReadyToConvert(const COvComplexFrameBuffer& source,
                                              const COvComplexFrameBuffer& target) const {
  if (!source.HasPixels() || !target.HasPixels()) return false;
  if (source.Width() != target.Width() || source.Height() != target.Height()) return false;
  return CanConvert(source.Format(), target.Format());
}

}  // namespace Tincta
