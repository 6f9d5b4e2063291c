// Process-wide tables of kernels and texture slots loaded per device, kept across calls.
//
// One table per (module, name): a row per framework code and a slot per device index, each slot
// holding the device's generation stamp at load time and the handle. Before use the slot takes
// the device's current stamp; the handle is loaded again when the stamps differ (the device was
// reset) or when the last load found nothing. Safe under concurrent callers: two threads that
// load the same handle at once both end with a valid one.
#pragma once

#include <memory>
#include <string_view>

#include "host/gpu.h"

namespace Tincta {

/// The kernel `entry` of `module` on `device`, loaded once per device generation; null when the
/// device cannot load it.
const host::GPUKernel* LoadKernelCached(const std::shared_ptr<host::IGPUDevice>& device,
                                        std::string_view module, std::string_view entry);

/// The texture slot `textureName` of `module` on `device`, with the same rule.
const host::GPUTexture* LoadTextureCached(const std::shared_ptr<host::IGPUDevice>& device,
                                          std::string_view module, std::string_view textureName);

}  // namespace Tincta
