#include "api/apply_paths.h"
#include "crandle/crandle.h"

namespace CRANDLE::detail {

// PLACEHOLDER: the GPU LUT operators are not built yet.
int ApplyLUTOnGPU(const FrameRef&, const std::shared_ptr<void>&, host::LUTInterpolationMethod,
                  FrameRef&) {
  return kResultLUTFailed;
}

}  // namespace CRANDLE::detail
