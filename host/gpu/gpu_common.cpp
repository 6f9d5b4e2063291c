#include <algorithm>
#include <atomic>
#include <limits>

#include "gpu_backend.h"

namespace host {

uint64_t NextGPUGenerationStamp() {
  static std::atomic<uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint64_t DefaultAssetCacheBudget(uint64_t memoryBytes) {
  constexpr uint64_t kDefault = uint64_t{512} << 20;
  if (memoryBytes == 0) return kDefault;
  return std::min(kDefault, memoryBytes / 4);
}

namespace {

bool IsTexturePixelFormat(PixelFormat format) {
  return format == kPixelFormat_BGRA_4444_8u || format == kPixelFormat_BGRA_4444_16u ||
         format == kPixelFormat_BGRA_4444_32f;
}

}  // namespace

int FillTextureBinding(GPUTextureBindings& bindings, const IGPUDevice& device, uint64_t generation,
                       const GPUTexture* texture, DevicePointer texels, size_t rowBytes,
                       uint32_t width, uint32_t height, uint32_t depth, PixelFormat format,
                       uint32_t flags) {
  if (!texture || texture->owner != &device || texture->generation != generation)
    return kGPUErrorInvalidArgument;
  if (flags != 0 || texels == 0 || width == 0 || height == 0 || depth == 0)
    return kGPUErrorInvalidArgument;
  if (!IsTexturePixelFormat(format)) return kGPUErrorInvalidArgument;
  // 3-D textures are LUT tables, always four floats a texel.
  if (depth > 1 && format != kPixelFormat_BGRA_4444_32f) return kGPUErrorInvalidArgument;
  // Kernels receive row bytes as a 32-bit value.
  if (rowBytes < size_t(width) * BytesPerPixel(format) ||
      rowBytes > std::numeric_limits<uint32_t>::max())
    return kGPUErrorInvalidArgument;
  GPUTextureBinding& binding = bindings.entries[texture->slot];
  binding = {texture, texels, rowBytes, width, height, depth, format};
  bindings.count = std::max<size_t>(bindings.count, texture->slot + 1);
  return 0;
}

int CheckLaunch(const IGPUDevice& device, uint64_t generation, const GPUKernel* kernel,
                GPUDim3 grid, GPUDim3 block, const GPUTextureBindings& bindings) {
  if (!kernel || kernel->owner != &device || kernel->generation != generation)
    return kGPUErrorInvalidArgument;
  for (const GPUDim3& extent : {grid, block})
    if (extent.x == 0 || extent.y == 0 || extent.z == 0) return kGPUErrorInvalidArgument;
  for (uint32_t slot = 0; slot < kernel->module->textureCount; ++slot) {
    const GPUTextureBinding& binding = bindings.entries[slot];
    if (!binding.texture || binding.texture->module != kernel->module ||
        binding.texture->slot != slot || binding.texture->generation != generation)
      return kGPUErrorInvalidArgument;
  }
  return 0;
}

int CheckRowCopy(size_t destinationPitch, size_t sourcePitch, size_t rowWidthBytes, size_t rows) {
  if (rows > 1 && (destinationPitch < rowWidthBytes || sourcePitch < rowWidthBytes))
    return kGPUErrorInvalidArgument;
  size_t span = 0;
  if (rows > 1 && (__builtin_mul_overflow(std::max(destinationPitch, sourcePitch), rows, &span)))
    return kGPUErrorInvalidArgument;
  return 0;
}

size_t RowCopySpan(size_t pitch, size_t rowWidthBytes, size_t rows) {
  return rows <= 1 ? rowWidthBytes : (rows - 1) * pitch + rowWidthBytes;
}

const GPUKernel* CKernelStore::FindOrLoadKernel(std::string_view module, std::string_view entry,
                                                const Loader& load) {
  const SKernelModule* row = FindKernelModule(module);
  if (!row || entry.empty()) return nullptr;
  std::string key;
  key.append(module).append("/").append(entry);
  // Loads happen under the lock: two threads asking for one kernel build its program once.
  std::lock_guard lock(mutex_);
  if (auto found = kernels_.find(key); found != kernels_.end()) return found->second.get();
  std::unique_ptr<GPUKernel> kernel = load(*row, entry);
  if (!kernel) return nullptr;
  const GPUKernel* result = kernel.get();
  kernels_.emplace(std::move(key), std::move(kernel));
  return result;
}

const GPUTexture* CKernelStore::FindTexture(const IGPUDevice* owner, uint64_t generation,
                                            std::string_view module, std::string_view texture) {
  const SKernelModule* row = FindKernelModule(module);
  if (!row) return nullptr;
  const int slot = FindTextureSlot(*row, texture);
  if (slot < 0) return nullptr;
  std::string key;
  key.append(module).append("/").append(texture);
  std::lock_guard lock(mutex_);
  auto found = textures_.find(key);
  if (found == textures_.end())
    found = textures_
                .emplace(std::move(key),
                         std::make_unique<GPUTexture>(owner, generation, *row, uint32_t(slot)))
                .first;
  return found->second.get();
}

void CKernelStore::Retire() {
  std::lock_guard lock(mutex_);
  for (auto& [key, kernel] : kernels_) {
    kernel->Retire();
    retiredKernels_.push_back(std::move(kernel));
  }
  kernels_.clear();
  for (auto& [key, texture] : textures_)
    retiredTextures_.push_back(std::move(texture));
  textures_.clear();
}

GPUDeviceTexture::~GPUDeviceTexture() = default;

#if !defined(CRANDLE_HAVE_CUDA)
std::vector<std::shared_ptr<IGPUDevice>> EnumerateCudaDevices(GPUBackendStatus& status) {
  status = {kGPUFrameworkCUDA, "CUDA driver", false, false,
            "not built in (the CUDA toolkit was not found when the library was configured)"};
  return {};
}
#endif

#if !defined(CRANDLE_HAVE_OPENCL)
std::vector<std::shared_ptr<IGPUDevice>> EnumerateOpenCLDevices(GPUBackendStatus& status) {
  status = {kGPUFrameworkOpenCL, "OpenCL", false, false,
            "not built in (OpenCL was not found when the library was configured)"};
  return {};
}
#endif

namespace {

struct SGPUSystem {
  std::vector<std::shared_ptr<IGPUDevice>> devices;
  std::vector<GPUBackendStatus> statuses;
};

const SGPUSystem& GPUSystem() {
  static const SGPUSystem system = [] {
    SGPUSystem made;
    for (auto enumerate : {EnumerateCudaDevices, EnumerateOpenCLDevices}) {
      GPUBackendStatus status;
      std::vector<std::shared_ptr<IGPUDevice>> devices = enumerate(status);
      if (devices.size() > kMaxGPUDevicesPerFramework) devices.resize(kMaxGPUDevicesPerFramework);
      made.devices.insert(made.devices.end(), devices.begin(), devices.end());
      made.statuses.push_back(std::move(status));
    }
    return made;
  }();
  return system;
}

}  // namespace

std::vector<std::shared_ptr<IGPUDevice>> EnumerateGPUDevices() {
  return GPUSystem().devices;
}

std::shared_ptr<IGPUDevice> GetGPUDevice(uint32_t frameworkCode, uint32_t index) {
  if (index >= kMaxGPUDevicesPerFramework) return nullptr;
  for (const auto& device : GPUSystem().devices) {
    const GPUDeviceInfo& info = device->GetInfo();
    if (info.frameworkCode == frameworkCode && info.index == index) return device;
  }
  return nullptr;
}

std::vector<GPUBackendStatus> GetGPUBackendStatus() {
  return GPUSystem().statuses;
}

}  // namespace host
