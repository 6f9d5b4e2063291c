// The CUDA driver back end (framework code 1): one device per CUDA device, working in the device's
// primary context on one non-blocking stream, with kernels from the fatbins built into the library.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <vector>

#include "gpu/asset_cache.h"
#include "gpu/block_pool.h"
#include "gpu/cuda/cuda_context.h"
#include "gpu/cuda/cuda_driver.h"
#include "gpu/cuda/cuda_kernel_images.h"
#include "gpu/gpu_backend.h"
#include "host/log.h"

namespace host {

int CudaResult(const CudaDriver& driver, CUresult result, const char* what) {
  if (result == CUDA_SUCCESS) return 0;
  WriteLog(LogLevel::Warning,
           std::string("CUDA: ") + what + " failed: " + driver.ErrorName(result));
  return result == CUDA_ERROR_OUT_OF_MEMORY ? kGPUErrorOutOfMemory : kGPUErrorBackend;
}

namespace {

/// CUDA devices run the module's 16 x 16 blocks.
constexpr uint32_t kCudaKindCode = 3;
/// Idle staging memory kept for reuse: kernel constants and the odd upload.
constexpr uint64_t kStagingRetainBytes = uint64_t{64} << 20;
/// Idle device memory kept for reuse at most; a quarter of the device when that is less.
constexpr uint64_t kDeviceRetainBytes = uint64_t{2} << 30;
/// Parameters per texture slot (see kernel_abi.h).
constexpr size_t kTextureParameters = 6;

using ContextPointer = std::shared_ptr<SCudaContext>;

/// An event recorded on the device's stream: a launch's completion for callers, and the fence
/// of a released staging block. An event of an older generation went with its context, whose
/// reset waited for all work: it counts as passed.
class CCudaEvent final : public IGPUEvent {
 public:
  CCudaEvent(ContextPointer context, uint64_t generation, CUevent event)
      : context_(std::move(context)), generation_(generation), event_(event) {}
  ~CCudaEvent() override {
    std::shared_lock state(context_->mutex);
    if (context_->generation.load() != generation_) return;
    CCudaContextScope scope(context_->driver, context_->context);
    context_->driver.EventDestroy(event_);
  }

  /// An event after the work queued so far on `context`'s stream; null when the driver refuses.
  static std::shared_ptr<CCudaEvent> Record(const ContextPointer& context) {
    std::shared_lock state(context->mutex);
    const CudaDriver& driver = context->driver;
    CCudaContextScope scope(driver, context->context);
    if (!scope.bEntered()) return nullptr;
    CUevent event = nullptr;
    if (CudaResult(driver, driver.EventCreate(&event, CU_EVENT_DISABLE_TIMING), "cuEventCreate"))
      return nullptr;
    if (CudaResult(driver, driver.EventRecord(event, context->stream), "cuEventRecord")) {
      driver.EventDestroy(event);
      return nullptr;
    }
    try {
      return std::make_shared<CCudaEvent>(context, context->generation.load(), event);
    } catch (const std::bad_alloc&) {
      driver.EventDestroy(event);
      return nullptr;
    }
  }

  int Wait() override {
    std::shared_lock state(context_->mutex);
    if (context_->generation.load() != generation_) return 0;
    CCudaContextScope scope(context_->driver, context_->context);
    if (!scope.bEntered()) return kGPUErrorBackend;
    return CudaResult(context_->driver, context_->driver.EventSynchronize(event_),
                      "cuEventSynchronize");
  }

  /// Whether the work before the event is done; waits for it when `wait`. A failed context
  /// counts as done: nothing of it will read the block again.
  bool bPassed(bool wait) {
    std::shared_lock state(context_->mutex);
    if (context_->generation.load() != generation_) return true;
    CCudaContextScope scope(context_->driver, context_->context);
    if (!scope.bEntered()) return true;
    const CUresult result =
        wait ? context_->driver.EventSynchronize(event_) : context_->driver.EventQuery(event_);
    return result != CUDA_ERROR_NOT_READY;
  }

 private:
  ContextPointer context_;
  uint64_t generation_;
  CUevent event_;
};

/// The pool of page-locked staging blocks of one generation. A block released while a copy from
/// it may still be queued waits behind an event recorded at its release.
std::shared_ptr<CBlockPool> MakeStagingPool(const ContextPointer& context, uint64_t generation) {
  CBlockPool::SOperations operations;
  operations.allocate = [context, generation](size_t size, CBlockPool::SBlock& block) {
    std::shared_lock state(context->mutex);
    if (context->generation.load() != generation) return false;
    CCudaContextScope scope(context->driver, context->context);
    if (!scope.bEntered()) return false;
    void* memory = nullptr;
    if (CudaResult(context->driver, context->driver.MemHostAlloc(&memory, size, 0),
                   "cuMemHostAlloc"))
      return false;
    block.host = memory;
    return true;
  };
  operations.free = [context, generation](const CBlockPool::SBlock& block) {
    std::shared_lock state(context->mutex);
    // A block from before a reset: the old context's teardown has taken care of it.
    if (context->generation.load() != generation) return;
    CCudaContextScope scope(context->driver, context->context);
    if (scope.bEntered()) context->driver.MemFreeHost(block.host);
  };
  operations.fence = [context]() -> CBlockPool::Fence {
    std::shared_ptr<CCudaEvent> event = CCudaEvent::Record(context);
    if (!event) {
      // Without an event the block's last copy cannot be tracked: wait for the stream once.
      std::shared_lock state(context->mutex);
      CCudaContextScope scope(context->driver, context->context);
      if (scope.bEntered()) context->driver.StreamSynchronize(context->stream);
      return [](bool) { return true; };
    }
    return [event](bool wait) { return event->bPassed(wait); };
  };
  return std::make_shared<CBlockPool>(std::move(operations), kStagingRetainBytes);
}

/// The pool of device blocks of one generation. Released blocks are reused at once: the stream
/// runs in order, so work that reuses a block comes after every earlier use of it.
std::shared_ptr<CBlockPool> MakeDevicePool(const ContextPointer& context, uint64_t generation,
                                           uint64_t memoryBytes) {
  CBlockPool::SOperations operations;
  operations.allocate = [context, generation](size_t size, CBlockPool::SBlock& block) {
    std::shared_lock state(context->mutex);
    if (context->generation.load() != generation) return false;
    CCudaContextScope scope(context->driver, context->context);
    if (!scope.bEntered()) return false;
    CUdeviceptr pointer = 0;
    if (CudaResult(context->driver, context->driver.MemAlloc(&pointer, size), "cuMemAlloc"))
      return false;
    block.device = pointer;
    return true;
  };
  operations.free = [context, generation](const CBlockPool::SBlock& block) {
    std::shared_lock state(context->mutex);
    if (context->generation.load() != generation) return;
    CCudaContextScope scope(context->driver, context->context);
    if (scope.bEntered()) context->driver.MemFree(block.device);
  };
  const uint64_t retain = std::min(kDeviceRetainBytes, memoryBytes / 4);
  return std::make_shared<CBlockPool>(std::move(operations), retain);
}

/// A kernel entry of a loaded module, with the sizes of its parameters as the driver reports
/// them: a launch whose arguments do not match is refused instead of reading past them.
class CCudaKernel final : public GPUKernel {
 public:
  CCudaKernel(const IGPUDevice* owner, uint64_t generation, const SKernelModule& module,
              std::string_view entry, CUfunction function, std::vector<size_t> parameterSizes)
      : GPUKernel(owner, generation, module, entry),
        function_(function),
        parameterSizes_(std::move(parameterSizes)) {}

  void Retire() override { function_ = nullptr; }
  CUfunction Function() const { return function_; }
  const std::vector<size_t>& ParameterSizes() const { return parameterSizes_; }

 private:
  CUfunction function_;
  std::vector<size_t> parameterSizes_;
};

// Kernel parameters of 4 bytes are passed as the first bytes of a 64-bit slot.
static_assert(std::endian::native == std::endian::little);

/// One kernel parameter: its value and its size in the kernel's parameter layout.
struct SParameter {
  uint64_t value = 0;
  size_t size = 0;
};

SParameter PointerParameter(uint64_t pointer) {
  return {pointer, sizeof(CUdeviceptr)};
}
SParameter Word(uint32_t bits) {
  return {bits, sizeof(uint32_t)};
}

class CCudaDevice final : public IGPUDevice {
 public:
  CCudaDevice(ContextPointer context, GPUDeviceInfo info, int computeMajor, int computeMinor)
      : context_(std::move(context)),
        info_(std::move(info)),
        computeMajor_(computeMajor),
        computeMinor_(computeMinor),
        assetCache_(DefaultAssetCacheBudget(info_.memoryBytes)) {
    InstallPools(context_->generation.load());
  }

  // Devices live for the whole process (see EnumerateCudaDevices); this runs only for a device
  // whose creation failed half-way, before any work was queued.
  ~CCudaDevice() override {
    const CudaDriver& driver = context_->driver;
    std::unique_lock state(context_->mutex);
    CCudaContextScope scope(driver, context_->context);
    if (scope.bEntered()) {
      for (auto& [name, module] : modules_)
        if (module.module) driver.ModuleUnload(module.module);
      if (context_->stream) driver.StreamDestroy(context_->stream);
    }
    if (context_->context) driver.DevicePrimaryCtxRelease(context_->device);
    // The pools that outlive this body must find the context gone.
    context_->context = nullptr;
    context_->stream = nullptr;
    context_->generation.store(NextGPUGenerationStamp());
  }

  const GPUDeviceInfo& GetInfo() const override { return info_; }
  uint64_t GetGenerationStamp() const override { return context_->generation.load(); }

  int Reset() override {
    const CudaDriver& driver = context_->driver;
    // Idle memory goes back while the old context can still free it, and cached tables with it.
    assetCache_.Clear();
    if (auto pools = Pools(); pools.first) {
      pools.first->Trim();
      pools.second->Trim();
    }
    int result = 0;
    uint64_t generation = 0;
    {
      std::unique_lock state(context_->mutex);
      {
        CCudaContextScope scope(driver, context_->context);
        if (scope.bEntered()) {
          // A lost context fails here too; the reset is what recovers it.
          driver.StreamSynchronize(context_->stream);
          for (auto& [name, module] : modules_)
            if (module.module) driver.ModuleUnload(module.module);
          driver.StreamDestroy(context_->stream);
        }
      }
      modules_.clear();
      kernels_.Retire();
      context_->stream = nullptr;
      if (context_->context) {
        driver.DevicePrimaryCtxReset(context_->device);
        driver.DevicePrimaryCtxRelease(context_->device);
        context_->context = nullptr;
      }
      generation = NextGPUGenerationStamp();
      context_->generation.store(generation);
      result = OpenContext(*context_);
    }
    // Outside the lock: dropping the old pools may run their (now idle) closures, which lock.
    InstallPools(generation);
    assetCache_.Clear();
    return result;
  }

  IGPUHostAllocator* GetHostAllocator() override { return &hostAllocator_; }
  IGPUDeviceAllocator* GetDeviceAllocator() override { return &deviceAllocator_; }
  IGPUDeviceAssetCache& GetAssetCache() override { return assetCache_; }

  int CopyStagingToDevice(DevicePointer destination, const GPUHostBlock& source, size_t bytes,
                          bool fromMappedView) override {
    const void* from = fromMappedView ? source.mappedView : source.data;
    if (destination == 0 || !from || bytes > source.size) return kGPUErrorInvalidArgument;
    if (bytes == 0) return 0;
    return Run("cuMemcpyHtoDAsync", [&](const CudaDriver& driver, CUstream stream) {
      return driver.MemcpyHtoDAsync(destination, from, bytes, stream);
    });
  }

  int CopyHostToDevice(DevicePointer destination, size_t destinationPitch, const void* source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) override {
    if (destination == 0 || !source) return kGPUErrorInvalidArgument;
    CUDA_MEMCPY2D copy{};
    copy.srcMemoryType = CU_MEMORYTYPE_HOST;
    copy.srcHost = source;
    copy.dstMemoryType = CU_MEMORYTYPE_DEVICE;
    copy.dstDevice = destination;
    return CopyRowsAndWait(copy, destinationPitch, sourcePitch, rowWidthBytes, rows);
  }

  int CopyDeviceToHost(void* destination, size_t destinationPitch, DevicePointer source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) override {
    if (!destination || source == 0) return kGPUErrorInvalidArgument;
    CUDA_MEMCPY2D copy{};
    copy.srcMemoryType = CU_MEMORYTYPE_DEVICE;
    copy.srcDevice = source;
    copy.dstMemoryType = CU_MEMORYTYPE_HOST;
    copy.dstHost = destination;
    return CopyRowsAndWait(copy, destinationPitch, sourcePitch, rowWidthBytes, rows);
  }

  // Rows between host and device memory, queued on the device's stream behind earlier work and
  // then awaited: the host side may be pageable and is reused as soon as the caller returns.
  int CopyRowsAndWait(CUDA_MEMCPY2D& copy, size_t destinationPitch, size_t sourcePitch,
                      size_t rowWidthBytes, size_t rows) {
    if (const int checked = CheckRowCopy(destinationPitch, sourcePitch, rowWidthBytes, rows))
      return checked;
    if (rowWidthBytes == 0 || rows == 0) return 0;
    if (rows == 1) destinationPitch = sourcePitch = rowWidthBytes;
    copy.srcPitch = sourcePitch;
    copy.dstPitch = destinationPitch;
    copy.WidthInBytes = rowWidthBytes;
    copy.Height = rows;
    return Run("cuMemcpy2DAsync", [&](const CudaDriver& driver, CUstream stream) {
      CUresult result = driver.Memcpy2DAsync(&copy, stream);
      return result == CUDA_SUCCESS ? driver.StreamSynchronize(stream) : result;
    });
  }

  int CopyDeviceToDevice(DevicePointer destination, DevicePointer source, size_t bytes) override {
    if (destination == 0 || source == 0) return kGPUErrorInvalidArgument;
    if (bytes == 0) return 0;
    return Run("cuMemcpyDtoDAsync", [&](const CudaDriver& driver, CUstream stream) {
      return driver.MemcpyDtoDAsync(destination, source, bytes, stream);
    });
  }

  int Synchronize() override {
    return Run("cuStreamSynchronize", [](const CudaDriver& driver, CUstream stream) {
      return driver.StreamSynchronize(stream);
    });
  }

  std::shared_ptr<IGPUEvent> RecordEvent() override { return CCudaEvent::Record(context_); }

  std::shared_ptr<GPUDeviceTexture> UploadTexture(const void* texels, size_t sourceRowBytes,
                                                  uint32_t width, uint32_t height,
                                                  uint32_t depth) override {
    auto copy = [this](DevicePointer destination, size_t destinationPitch, const void* source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) {
      return CopyHostToDevice(destination, destinationPitch, source, sourcePitch, rowWidthBytes,
                              rows);
    };
    return UploadPooledTexture(copy, deviceAllocator_, texels, sourceRowBytes, width, height,
                               depth);
  }

  const GPUKernel* LoadKernel(std::string_view module, std::string_view kernel) override {
    try {
      std::shared_lock state(context_->mutex);
      const uint64_t generation = context_->generation.load();
      return kernels_.FindOrLoadKernel(module, kernel,
                                       [&](const SKernelModule& row, std::string_view entry) {
                                         return LoadEntry(row, entry, generation);
                                       });
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }

  const GPUTexture* LoadTexture(std::string_view module, std::string_view textureName) override {
    try {
      std::shared_lock state(context_->mutex);
      return kernels_.FindTexture(this, context_->generation.load(), module, textureName);
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }

  int BindTexture(GPUTextureBindings& bindings, const GPUTexture* texture, DevicePointer texels,
                  size_t offset, size_t rowBytes, uint32_t width, uint32_t height,
                  PixelFormat format, uint32_t flags) override {
    if (texels == 0 || offset > UINT64_MAX - texels) return kGPUErrorInvalidArgument;
    return FillTextureBinding(bindings, *this, context_->generation.load(), texture,
                              texels + offset, rowBytes, width, height, 1, format, flags);
  }

  int Bind3DTexture(GPUTextureBindings& bindings, const GPUTexture* texture, DevicePointer texels,
                    size_t rowBytes, uint32_t width, uint32_t height, uint32_t depth,
                    PixelFormat format, uint32_t flags) override {
    return FillTextureBinding(bindings, *this, context_->generation.load(), texture, texels,
                              rowBytes, width, height, depth, format, flags);
  }

  int Launch(const GPUKernel* kernel, GPUDim3 grid, GPUDim3 block,
             const GPUTextureBindings& bindings,
             std::span<const GPUKernelArgument> arguments) override {
    std::shared_lock state(context_->mutex);
    if (const int checked =
            CheckLaunch(*this, context_->generation.load(), kernel, grid, block, bindings))
      return checked;
    const auto& cudaKernel = static_cast<const CCudaKernel&>(*kernel);
    if (!cudaKernel.Function()) return kGPUErrorInvalidArgument;
    std::vector<SParameter> parameters;
    std::vector<void*> pointers;
    try {
      const uint32_t slots = kernel->module->textureCount;
      parameters.reserve(slots * kTextureParameters + arguments.size());
      for (uint32_t slot = 0; slot < slots; ++slot) {
        const GPUTextureBinding& binding = bindings.entries[slot];
        parameters.push_back(PointerParameter(binding.texels));
        parameters.push_back(Word(static_cast<uint32_t>(binding.rowBytes)));
        parameters.push_back(Word(binding.width));
        parameters.push_back(Word(binding.height));
        parameters.push_back(Word(binding.depth));
        parameters.push_back(Word(binding.format.variant));
      }
      for (const GPUKernelArgument& argument : arguments) {
        if (argument.kind == GPUKernelArgument::Kind::Pointer)
          parameters.push_back(PointerParameter(argument.bits));
        else
          parameters.push_back(Word(static_cast<uint32_t>(argument.bits)));
      }
      const std::vector<size_t>& expected = cudaKernel.ParameterSizes();
      if (expected.size() != parameters.size()) {
        WriteLog(LogLevel::Warning, "CUDA: " + cudaKernel.entry + " takes " +
                                        std::to_string(expected.size()) + " parameters, given " +
                                        std::to_string(parameters.size()));
        return kGPUErrorInvalidArgument;
      }
      pointers.reserve(parameters.size());
      for (size_t index = 0; index < parameters.size(); ++index) {
        if (parameters[index].size != expected[index]) {
          WriteLog(LogLevel::Warning, "CUDA: parameter " + std::to_string(index) + " of " +
                                          cudaKernel.entry + " has " +
                                          std::to_string(expected[index]) + " bytes, given " +
                                          std::to_string(parameters[index].size));
          return kGPUErrorInvalidArgument;
        }
        // The driver copies as many bytes as the parameter has from where each pointer points:
        // the low bytes of the stored value, which are its first bytes on this little-endian
        // platform.
        pointers.push_back(&parameters[index].value);
      }
    } catch (const std::bad_alloc&) {
      return kGPUErrorOutOfMemory;
    }
    const CudaDriver& driver = context_->driver;
    CCudaContextScope scope(driver, context_->context);
    if (!scope.bEntered()) return kGPUErrorBackend;
    return CudaResult(
        driver,
        driver.LaunchKernel(cudaKernel.Function(), grid.x, grid.y, grid.z, block.x, block.y,
                            block.z, 0, context_->stream, pointers.data(), nullptr),
        "cuLaunchKernel");
  }

  /// Retains the primary context of `state.device` and makes the stream; on failure leaves
  /// whatever was made in `state` for the destructor.
  static int OpenContext(SCudaContext& state) {
    const CudaDriver& driver = state.driver;
    if (const int result =
            CudaResult(driver, driver.DevicePrimaryCtxRetain(&state.context, state.device),
                       "cuDevicePrimaryCtxRetain")) {
      state.context = nullptr;
      return result;
    }
    CCudaContextScope scope(driver, state.context);
    if (!scope.bEntered()) return kGPUErrorBackend;
    return CudaResult(driver, driver.StreamCreate(&state.stream, CU_STREAM_NON_BLOCKING),
                      "cuStreamCreate");
  }

 private:
  struct SModule {
    CUmodule module = nullptr;
    CUresult result = CUDA_SUCCESS;
  };

  // Runs `call` with the context current and its stream; the driver's failure as a result.
  template <typename Call>
  int Run(const char* what, Call&& call) {
    std::shared_lock state(context_->mutex);
    const CudaDriver& driver = context_->driver;
    CCudaContextScope scope(driver, context_->context);
    if (!scope.bEntered() || !context_->stream) return kGPUErrorBackend;
    return CudaResult(driver, call(driver, context_->stream), what);
  }

  std::pair<std::shared_ptr<CBlockPool>, std::shared_ptr<CBlockPool>> Pools() {
    std::lock_guard lock(poolsMutex_);
    return {stagingPool_, devicePool_};
  }

  void InstallPools(uint64_t generation) {
    auto staging = MakeStagingPool(context_, generation);
    auto device = MakeDevicePool(context_, generation, info_.memoryBytes);
    hostAllocator_.SetPool(staging);
    deviceAllocator_.SetPool(device);
    std::lock_guard lock(poolsMutex_);
    stagingPool_ = std::move(staging);
    devicePool_ = std::move(device);
  }

  // Called by the kernel store under its lock, with the context's mutex held shared: each
  // module is loaded once per generation, and a module that failed is not tried again until a
  // reset (its reason was logged once).
  std::unique_ptr<GPUKernel> LoadEntry(const SKernelModule& row, std::string_view entry,
                                       uint64_t generation) {
    const CudaDriver& driver = context_->driver;
    CCudaContextScope scope(driver, context_->context);
    if (!scope.bEntered()) return nullptr;
    auto [found, inserted] = modules_.try_emplace(std::string(row.name));
    SModule& module = found->second;
    if (inserted) {
      const CudaKernelImage* image = FindCudaKernelImage(row.name);
      if (!image) {
        module.result = CUDA_ERROR_NOT_FOUND;
        WriteLog(LogLevel::Warning,
                 "CUDA: no kernel module " + std::string(row.name) + " in this build");
      } else {
        module.result = driver.ModuleLoadData(&module.module, image->fatbin.data());
        if (module.result != CUDA_SUCCESS) {
          module.module = nullptr;
          WriteLog(LogLevel::Error, "CUDA: kernel module " + std::string(row.name) +
                                        " does not load on " + info_.name + ": " +
                                        ModuleLoadMessage(module.result));
        }
      }
    }
    if (!module.module) return nullptr;
    const std::string name(entry);
    CUfunction function = nullptr;
    if (driver.ModuleGetFunction(&function, module.module, name.c_str()) != CUDA_SUCCESS) {
      WriteLog(LogLevel::Warning,
               "CUDA: no kernel " + name + " in module " + std::string(row.name));
      return nullptr;
    }
    std::vector<size_t> sizes;
    for (size_t index = 0;; ++index) {
      size_t offset = 0, size = 0;
      // The driver answers CUDA_ERROR_INVALID_VALUE past the last parameter.
      if (driver.FuncGetParamInfo(function, index, &offset, &size) != CUDA_SUCCESS) break;
      sizes.push_back(size);
    }
    return std::make_unique<CCudaKernel>(this, generation, row, entry, function, std::move(sizes));
  }

  // An architecture the fatbin has no code for is the device's limit, not the driver's.
  std::string ModuleLoadMessage(CUresult result) const {
    if (result == CUDA_ERROR_NO_BINARY_FOR_GPU && computeMajor_ < 8)
      return context_->driver.ErrorName(result) + ": the kernels are built for compute " +
             "capability 8.0 and newer; this device has " + std::to_string(computeMajor_) + "." +
             std::to_string(computeMinor_);
    return CudaModuleLoadMessage(context_->driver, result);
  }

  ContextPointer context_;
  const GPUDeviceInfo info_;
  const int computeMajor_;
  const int computeMinor_;
  CPooledHostAllocator hostAllocator_;
  CPooledDeviceAllocator deviceAllocator_;
  CDeviceAssetCache assetCache_;
  CKernelStore kernels_;
  std::map<std::string, SModule, std::less<>> modules_;
  std::mutex poolsMutex_;
  std::shared_ptr<CBlockPool> stagingPool_;
  std::shared_ptr<CBlockPool> devicePool_;
};

/// The device behind CUDA ordinal `ordinal`, or null with the reason in `why`.
std::shared_ptr<IGPUDevice> OpenDevice(const CudaDriver& driver, int ordinal, uint32_t index,
                                       const std::string& driverVersion, std::string& why) {
  CUdevice device = 0;
  if (driver.DeviceGet(&device, ordinal) != CUDA_SUCCESS) {
    why = "cuDeviceGet failed";
    return nullptr;
  }
  GPUDeviceInfo info;
  info.frameworkCode = kGPUFrameworkCUDA;
  info.kindCode = kCudaKindCode;
  info.index = index;
  info.driverVersion = driverVersion;
  char name[256] = {};
  if (driver.DeviceGetName(name, sizeof(name) - 1, device) == CUDA_SUCCESS) info.name = name;
  size_t memory = 0;
  if (driver.DeviceTotalMem(&memory, device) == CUDA_SUCCESS) info.memoryBytes = memory;
  int major = 0, minor = 0;
  driver.DeviceGetAttribute(&major, CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR, device);
  driver.DeviceGetAttribute(&minor, CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR, device);

  auto context = std::make_shared<SCudaContext>(driver, device);
  context->generation.store(NextGPUGenerationStamp());
  const int opened = CCudaDevice::OpenContext(*context);
  auto made = std::make_shared<CCudaDevice>(context, std::move(info), major, minor);
  if (opened != 0) {
    why = "device " + std::to_string(ordinal) + " has no usable context";
    return nullptr;
  }
  return made;
}

}  // namespace

std::vector<std::shared_ptr<IGPUDevice>> EnumerateCudaDevices(GPUBackendStatus& status) {
  status = {kGPUFrameworkCUDA, "CUDA driver", true, false, {}};
  const CudaDriverLoad& load = LoadCudaDriver();
  status.message = load.message;
  if (!load.driver) return {};
  const CudaDriver& driver = *load.driver;
  std::vector<std::shared_ptr<IGPUDevice>> devices;
  try {
    int count = 0;
    if (driver.DeviceGetCount(&count) != CUDA_SUCCESS || count <= 0) {
      status.message += "; no CUDA device";
      return {};
    }
    std::string problems;
    for (int ordinal = 0; ordinal < count && devices.size() < kMaxGPUDevicesPerFramework;
         ++ordinal) {
      std::string why;
      if (auto device =
              OpenDevice(driver, ordinal, static_cast<uint32_t>(devices.size()), load.message, why))
        devices.push_back(std::move(device));
      else
        problems += "; " + why;
    }
    status.available = !devices.empty();
    status.message += "; " + std::to_string(devices.size()) +
                      (devices.size() == 1 ? " device" : " devices") + problems;
  } catch (const std::bad_alloc&) {
    status.message += "; out of memory";
    return {};
  }
  // The devices are never destroyed: tearing down contexts while the driver unloads at exit is
  // not safe, and the process's end frees them anyway.
  static auto* keep = new std::vector<std::shared_ptr<IGPUDevice>>();
  keep->insert(keep->end(), devices.begin(), devices.end());
  return devices;
}

}  // namespace host
