// Module start-up: the LUT cache's initialiser and the module's own, which loads the CUDA driver.
#include "api/cuda_driver_loader.h"
#include "host/initializer.h"
#include "lut/lut_cache.h"

namespace CRANDLE::detail {
namespace {

constexpr uint32_t kModuleContextFlags = 4;

bool InitializeModule() {
  // Without a CUDA driver the module still works on the CPU and through OpenCL.
  LoadCudaDriver(0);
  return true;
}

void TerminateModule() {}

struct SModuleRegistration {
  SModuleRegistration() { Tincta::RegisterLUTCacheInitializer(); }
};

const SModuleRegistration gLUTCacheRegistration;
const host::InitializerRegistrar gModuleRegistration("vexacrandle", kModuleContextFlags,
                                                     {"vexalutcache"}, InitializeModule,
                                                     TerminateModule);

}  // namespace
}  // namespace CRANDLE::detail
