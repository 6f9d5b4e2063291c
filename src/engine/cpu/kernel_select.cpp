#include "engine/cpu/cpu_kernels.h"

namespace Tincta {

const SCPUKernelTable& CPUKernelsFor(ESimdTier tier) {
  return tier == ESimdTier::kAVX2 ? CPUKernelsAVX2() : CPUKernelsSSE();
}

const SCPUKernelTable& ActiveCPUKernels() {
  static const SCPUKernelTable& table = CPUKernelsFor(ActiveSimdTier());
  return table;
}

}  // namespace Tincta
