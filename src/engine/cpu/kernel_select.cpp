#include "engine/cpu/cpu_kernels.h"
#include "foundation/cpu_features.h"

namespace Tincta {

const SCPUKernelTable& ActiveCPUKernels() {
  static const SCPUKernelTable& table =
      ProcessorFeatures().Use256BitKernels() ? CPUKernelsAVX2() : CPUKernelsSSE();
  return table;
}

}  // namespace Tincta
