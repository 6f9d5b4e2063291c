#include "engine/gpu/gpu_handle_cache.h"

#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Tincta {
namespace {

// Framework codes 0 (test devices) to 3 have rows; devices of other codes load every time.
constexpr uint32_t kFrameworkRows = 4;

struct SSlot {
  std::mutex mutex;
  uint64_t stamp = 0;
  // The device the handle came from: a test device and the device it wraps share framework and
  // index, and a device made after another one died may reuse its address.
  std::weak_ptr<host::IGPUDevice> device;
  const void* handle = nullptr;
};

struct STable {
  std::array<std::array<SSlot, host::kMaxGPUDevicesPerFramework>, kFrameworkRows> slots;
};

template <class TLoad>
const void* Cached(const std::shared_ptr<host::IGPUDevice>& device, char kind,
                   std::string_view module, std::string_view name, TLoad&& load) {
  const host::GPUDeviceInfo& info = device->GetInfo();
  if (info.frameworkCode >= kFrameworkRows || info.index >= host::kMaxGPUDevicesPerFramework) {
    return load();
  }
  static std::mutex tablesMutex;
  static std::map<std::string, std::unique_ptr<STable>, std::less<>> tables;
  std::string key;
  key.reserve(module.size() + name.size() + 2);
  key.append(1, kind).append(module).append(1, '/').append(name);
  STable* table;
  {
    std::lock_guard lock(tablesMutex);
    auto it = tables.find(key);
    if (it == tables.end()) it = tables.emplace(key, std::make_unique<STable>()).first;
    table = it->second.get();
  }
  SSlot& slot = table->slots[info.frameworkCode][info.index];
  std::lock_guard lock(slot.mutex);
  const uint64_t stamp = device->GetGenerationStamp();
  const bool stale = slot.stamp != stamp || slot.device.lock() != device || slot.handle == nullptr;
  slot.stamp = stamp;
  slot.device = device;
  if (stale) slot.handle = load();
  return slot.handle;
}

}  // namespace

const host::GPUKernel* LoadKernelCached(const std::shared_ptr<host::IGPUDevice>& device,
                                        std::string_view module, std::string_view entry) {
  return static_cast<const host::GPUKernel*>(
      Cached(device, 'K', module, entry,
             [&]() -> const void* { return host::LoadKernel(*device, module, entry); }));
}

const host::GPUTexture* LoadTextureCached(const std::shared_ptr<host::IGPUDevice>& device,
                                          std::string_view module, std::string_view textureName) {
  return static_cast<const host::GPUTexture*>(
      Cached(device, 'T', module, textureName,
             [&]() -> const void* { return host::LoadTexture(*device, module, textureName); }));
}

}  // namespace Tincta
