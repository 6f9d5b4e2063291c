#include "engine/frame_buffer/frame_buffer.h"

namespace Tincta {

bool COvFrameBuffer::IsKindOf(uint32_t typeId) const {
  for (uint32_t i = 0; i < typeCount_; ++i) {
    if (typeIds_[i] == typeId) return true;
  }
  return false;
}

void COvFrameBuffer::RegisterType(uint32_t typeId) {
  if (typeCount_ < kMaxDepth) typeIds_[typeCount_++] = typeId;
}

}  // namespace Tincta
