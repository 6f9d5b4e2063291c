#include "api/apply_paths.h"
#include "crandle/crandle.h"

namespace CRANDLE::detail {

int ApplyLUTToFrames(const FrameRef& source, const std::shared_ptr<void>& lut,
                     host::LUTInterpolationMethod method, FrameRef& destination) {
  const bool sourceOnGPU = !source.Query<host::IGPUVideoFrame>().IsEmpty();
  const bool destinationOnGPU = !destination.Query<host::IGPUVideoFrame>().IsEmpty();
  if (sourceOnGPU && destinationOnGPU) return ApplyLUTOnGPU(source, lut, method, destination);
  if (sourceOnGPU || destinationOnGPU) return kResultUnsupported;
  return ApplyLUTOnCPU(source, lut, destination);
}

}  // namespace CRANDLE::detail
