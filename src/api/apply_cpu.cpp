#include "api/apply_paths.h"
#include "crandle/crandle.h"

namespace CRANDLE::detail {

// PLACEHOLDER: the CPU engine is not built yet.
int ApplyLUTOnCPU(const FrameRef&, const std::shared_ptr<void>&, FrameRef&) {
  return kResultLUTFailed;
}

}  // namespace CRANDLE::detail
