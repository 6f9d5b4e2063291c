// What the host GPU library's back ends share: the objects behind the kernel and texture-slot
// handles, generation stamps, the checks every back end makes before a bind or a launch, and the
// entry point through which each back end offers its devices.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/gpu.h"
#include "kernel_registry.h"

namespace host {

/// A loaded kernel entry. Back ends derive their own; the object outlives a reset (only its
/// driver handles go), so a stale handle is caught by its generation instead of crashing.
class GPUKernel {
 public:
  GPUKernel(const IGPUDevice* owner, uint64_t generation, const SKernelModule& module,
            std::string_view entry)
      : owner(owner), generation(generation), module(&module), entry(entry) {}
  virtual ~GPUKernel() = default;
  /// Drops the driver handles when the device resets; later launches of it are refused.
  virtual void Retire() {}

  const IGPUDevice* const owner;
  const uint64_t generation;
  const SKernelModule* const module;
  const std::string entry;
};

/// A texture argument slot of one module on one device generation.
class GPUTexture {
 public:
  GPUTexture(const IGPUDevice* owner, uint64_t generation, const SKernelModule& module,
             uint32_t slot)
      : owner(owner), generation(generation), module(&module), slot(slot) {}

  const IGPUDevice* const owner;
  const uint64_t generation;
  const SKernelModule* const module;
  const uint32_t slot;
};

/// A stamp no device of this process has had: devices take one at creation and at every reset.
uint64_t NextGPUGenerationStamp();

/// The default asset cache budget for a device with `memoryBytes` (0: unknown): 512 MiB, or a
/// quarter of the device's memory when that is less.
uint64_t DefaultAssetCacheBudget(uint64_t memoryBytes);

/// Fills `texture`'s binding after checking it (a texture of `device` in `generation`, flags 0,
/// non-zero texels and extents, rows long enough, BGRA 8/16-bit or 32-bit float pixels; 3-D
/// tables of 16-byte texels only). 0 or `kGPUErrorInvalidArgument`.
int FillTextureBinding(GPUTextureBindings& bindings, const IGPUDevice& device, uint64_t generation,
                       const GPUTexture* texture, DevicePointer texels, size_t rowBytes,
                       uint32_t width, uint32_t height, uint32_t depth, PixelFormat format,
                       uint32_t flags);

/// Checks a launch before a back end queues it: a kernel of `device` in `generation`, non-zero
/// grid and block extents, and every texture slot of the kernel's module bound with a texture of
/// that module. 0 or `kGPUErrorInvalidArgument`.
int CheckLaunch(const IGPUDevice& device, uint64_t generation, const GPUKernel* kernel,
                GPUDim3 grid, GPUDim3 block, const GPUTextureBindings& bindings);

/// Checks the shape of a row copy: with more than one row both pitches must hold a row. 0 or
/// `kGPUErrorInvalidArgument`.
int CheckRowCopy(size_t destinationPitch, size_t sourcePitch, size_t rowWidthBytes, size_t rows);
/// The region a row copy touches on the side with `pitch`: (rows - 1) x pitch + row bytes.
size_t RowCopySpan(size_t pitch, size_t rowWidthBytes, size_t rows);

/// A device's loaded kernels and texture slots of the current generation, found by name. Objects
/// of earlier generations are kept (retired) until the store goes, so old handles stay readable.
class CKernelStore {
 public:
  using Loader = std::function<std::unique_ptr<GPUKernel>(const SKernelModule& module,
                                                          std::string_view entry)>;
  CKernelStore() = default;
  CKernelStore(const CKernelStore&) = delete;
  CKernelStore& operator=(const CKernelStore&) = delete;

  /// The kernel `entry` of `module`, loaded through `load` at first use; null when the module is
  /// not in the registry or `load` gives nothing. Failed loads are not remembered.
  const GPUKernel* FindOrLoadKernel(std::string_view module, std::string_view entry,
                                    const Loader& load);
  /// The slot of `texture` in `module` for `owner`'s `generation`; null when unknown.
  const GPUTexture* FindTexture(const IGPUDevice* owner, uint64_t generation,
                                std::string_view module, std::string_view texture);
  /// Retires every kernel and slot: the next lookups load afresh.
  void Retire();

 private:
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<GPUKernel>, std::less<>> kernels_;
  std::map<std::string, std::unique_ptr<GPUTexture>, std::less<>> textures_;
  std::vector<std::unique_ptr<GPUKernel>> retiredKernels_;
  std::vector<std::unique_ptr<GPUTexture>> retiredTextures_;
};

/// The CUDA driver back end's devices (at most four, indexed from 0), filling `status`. Without
/// CRANDLE_HAVE_CUDA the library has none and says so.
std::vector<std::shared_ptr<IGPUDevice>> EnumerateCudaDevices(GPUBackendStatus& status);
/// The OpenCL back end's devices (at most four, indexed from 0), filling `status`. Without
/// CRANDLE_HAVE_OPENCL the library has none and says so.
std::vector<std::shared_ptr<IGPUDevice>> EnumerateOpenCLDevices(GPUBackendStatus& status);

}  // namespace host
