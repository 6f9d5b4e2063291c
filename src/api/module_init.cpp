// Module start-up: the LUT cache's initialiser and the module's own, which fills the list of
// frame-buffer converters and loads the CUDA driver.
#include "api/cuda_driver_loader.h"
#include "engine/convert/converter_list.h"
#include "host/initializer.h"
#include "lut/lut_cache.h"

namespace CRANDLE::detail {
namespace {

constexpr uint32_t kModuleContextFlags = 4;

bool InitializeModule() {
  // Filled here once, so that no frame conversion ever races to build it.
  Tincta::COvChannelConverterList::Instance();
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
