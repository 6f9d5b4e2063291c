// The OpenCL back end (framework code 2). Device memory is coarse-grained shared virtual memory,
// so a device pointer is an SVM address and any byte offset inside an allocation is valid,
// passed to kernels with clSetKernelArgSVMPointer. Kernels are OpenCL C 1.2 source embedded in
// the library and built once per device generation at first use.
#define CL_TARGET_OPENCL_VERSION 300
#include <CL/cl.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <shared_mutex>
#include <span>
#include <string>

#include "../asset_cache.h"
#include "../block_pool.h"
#include "../gpu_backend.h"
#include "host/log.h"

namespace host {
namespace opencl {
std::span<const unsigned char> FindKernelSource(std::string_view name);
}  // namespace opencl

namespace {

// Idle blocks kept for reuse per device generation; released blocks beyond these are freed.
constexpr uint64_t kRetainedStagingBytes = uint64_t{64} << 20;
constexpr uint64_t kRetainedDeviceBytes = uint64_t{512} << 20;
// Staging blocks start on a cache line.
constexpr size_t kStagingAlignment = 64;

std::string DeviceText(cl_device_id device, cl_device_info what) {
  size_t size = 0;
  if (clGetDeviceInfo(device, what, 0, nullptr, &size) != CL_SUCCESS || size == 0) return {};
  std::string text(size, '\0');
  if (clGetDeviceInfo(device, what, size, text.data(), nullptr) != CL_SUCCESS) return {};
  text.resize(std::strlen(text.c_str()));
  return text;
}

std::string PlatformText(cl_platform_id platform, cl_platform_info what) {
  size_t size = 0;
  if (clGetPlatformInfo(platform, what, 0, nullptr, &size) != CL_SUCCESS || size == 0) return {};
  std::string text(size, '\0');
  if (clGetPlatformInfo(platform, what, size, text.data(), nullptr) != CL_SUCCESS) return {};
  text.resize(std::strlen(text.c_str()));
  return text;
}

void* SvmAddress(DevicePointer pointer) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(pointer));
}

using EventHandle = std::shared_ptr<std::remove_pointer_t<cl_event>>;

EventHandle WrapEvent(cl_event event) {
  return EventHandle(event, [](cl_event e) { clReleaseEvent(e); });
}

bool IsComplete(cl_event event) {
  cl_int status = CL_COMPLETE;
  if (clGetEventInfo(event, CL_EVENT_COMMAND_EXECUTION_STATUS, sizeof status, &status, nullptr) !=
      CL_SUCCESS)
    return true;  // a broken event holds nothing back
  return status == CL_COMPLETE || status < 0;
}

class CEvent final : public IGPUEvent {
 public:
  explicit CEvent(EventHandle event) : event_(std::move(event)) {}
  int Wait() override {
    cl_event event = event_.get();
    return clWaitForEvents(1, &event) == CL_SUCCESS ? 0 : kGPUErrorBackend;
  }

 private:
  EventHandle event_;
};

// One generation of a device: its context, its in-order queue and the programs built in it.
class CContext {
 public:
  static std::shared_ptr<CContext> Create(cl_device_id device) {
    cl_int error = CL_SUCCESS;
    cl_context context = clCreateContext(nullptr, 1, &device, nullptr, nullptr, &error);
    if (!context) return nullptr;
    cl_command_queue queue = clCreateCommandQueueWithProperties(context, device, nullptr, &error);
    if (!queue) {
      clReleaseContext(context);
      return nullptr;
    }
    try {
      return std::make_shared<CContext>(device, context, queue);
    } catch (const std::bad_alloc&) {
      clReleaseCommandQueue(queue);
      clReleaseContext(context);
      return nullptr;
    }
  }

  CContext(cl_device_id device, cl_context context, cl_command_queue queue)
      : device(device), context(context), queue(queue) {}
  ~CContext() {
    clFinish(queue);
    for (auto& [name, program] : programs_)
      if (program) clReleaseProgram(program);
    clReleaseCommandQueue(queue);
    clReleaseContext(context);
  }
  CContext(const CContext&) = delete;
  CContext& operator=(const CContext&) = delete;

  /// The program of `module`, built at first use; null when this back end has no source for it
  /// or it does not build (remembered, so a broken source is built once).
  cl_program Program(std::string_view module) {
    std::lock_guard lock(mutex_);
    if (auto found = programs_.find(module); found != programs_.end()) return found->second;
    cl_program program = Build(module);
    programs_.emplace(std::string(module), program);
    return program;
  }

  const cl_device_id device;
  const cl_context context;
  const cl_command_queue queue;

 private:
  cl_program Build(std::string_view module) {
    const std::span<const unsigned char> source = opencl::FindKernelSource(module);
    if (source.empty()) return nullptr;
    const char* text = reinterpret_cast<const char*>(source.data());
    const size_t length = source.size();
    cl_int error = CL_SUCCESS;
    cl_program program = clCreateProgramWithSource(context, 1, &text, &length, &error);
    if (!program) return nullptr;
    // No fast-math options: the kernels must round as the host's reference formulas do.
    error = clBuildProgram(program, 1, &device, "-cl-std=CL1.2", nullptr, nullptr);
    if (error != CL_SUCCESS) {
      size_t size = 0;
      clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size);
      std::string log(size, '\0');
      clGetProgramBuildInfo(program, device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
      WriteLog(LogLevel::Error, "OpenCL: building kernel module " + std::string(module) +
                                    " failed (" + std::to_string(error) + "): " + log);
      clReleaseProgram(program);
      return nullptr;
    }
    return program;
  }

  std::mutex mutex_;
  std::map<std::string, cl_program, std::less<>> programs_;
};

class COpenCLKernel final : public GPUKernel {
 public:
  COpenCLKernel(const IGPUDevice* owner, uint64_t generation, const SKernelModule& module,
                std::string_view entry, cl_kernel kernel, cl_uint argumentCount)
      : GPUKernel(owner, generation, module, entry),
        argumentCount(argumentCount),
        kernel_(kernel) {}
  ~COpenCLKernel() override { Retire(); }
  void Retire() override {
    std::lock_guard lock(mutex_);
    if (kernel_) clReleaseKernel(kernel_);
    kernel_ = nullptr;
  }
  /// Sets the arguments and queues the kernel; clSetKernelArg is not safe across threads, so
  /// both happen under the kernel's own lock.
  cl_int Enqueue(cl_command_queue queue, cl_uint dimensions, const size_t* global,
                 const size_t* local, const GPUTextureBindings& bindings,
                 std::span<const GPUKernelArgument> arguments) const {
    std::lock_guard lock(mutex_);
    if (!kernel_) return CL_INVALID_KERNEL;
    cl_uint index = 0;
    auto setUInt = [&](uint32_t value) {
      return clSetKernelArg(kernel_, index++, sizeof value, &value);
    };
    for (uint32_t slot = 0; slot < module->textureCount; ++slot) {
      const GPUTextureBinding& binding = bindings.entries[slot];
      cl_int error = clSetKernelArgSVMPointer(kernel_, index++, SvmAddress(binding.texels));
      if (error == CL_SUCCESS) error = setUInt(uint32_t(binding.rowBytes));
      if (error == CL_SUCCESS) error = setUInt(binding.width);
      if (error == CL_SUCCESS) error = setUInt(binding.height);
      if (error == CL_SUCCESS) error = setUInt(binding.depth);
      if (error == CL_SUCCESS) error = setUInt(binding.format.variant);
      if (error != CL_SUCCESS) return error;
    }
    for (const GPUKernelArgument& argument : arguments) {
      const cl_int error =
          argument.kind == GPUKernelArgument::Kind::Pointer
              ? clSetKernelArgSVMPointer(kernel_, index++, SvmAddress(argument.bits))
              : setUInt(uint32_t(argument.bits));
      if (error != CL_SUCCESS) return error;
    }
    return clEnqueueNDRangeKernel(queue, kernel_, dimensions, nullptr, global, local, 0, nullptr,
                                  nullptr);
  }

  const cl_uint argumentCount;

 private:
  mutable std::mutex mutex_;
  cl_kernel kernel_;
};

class COpenCLDevice final : public IGPUDevice {
 public:
  COpenCLDevice(GPUDeviceInfo info, std::shared_ptr<CContext> context)
      : info_(std::move(info)),
        deviceId_(context->device),
        cache_(DefaultAssetCacheBudget(info_.memoryBytes)) {
    Adopt(std::move(context));
  }

  const GPUDeviceInfo& GetInfo() const override { return info_; }
  uint64_t GetGenerationStamp() const override {
    std::shared_lock lock(mutex_);
    return stamp_;
  }

  int Reset() override {
    std::shared_ptr<CContext> fresh = CContext::Create(deviceId_);
    if (!fresh) return kGPUErrorBackend;
    std::unique_lock lock(mutex_);
    kernels_.Retire();
    cache_.Clear();
    Adopt(std::move(fresh));
    return 0;
  }

  IGPUHostAllocator* GetHostAllocator() override { return &hostAllocator_; }
  IGPUDeviceAllocator* GetDeviceAllocator() override { return &deviceAllocator_; }
  IGPUDeviceAssetCache& GetAssetCache() override { return cache_; }

  int CopyStagingToDevice(DevicePointer destination, const GPUHostBlock& source, size_t bytes,
                          bool fromMappedView) override {
    const void* from = fromMappedView ? source.mappedView : source.data;
    if (!from || destination == 0 || bytes > source.size) return kGPUErrorInvalidArgument;
    if (bytes == 0) return 0;
    std::shared_lock lock(mutex_);
    // Asynchronous: the staging pool keeps the block until the queue has passed this copy.
    return Result(clEnqueueSVMMemcpy(context_->queue, CL_FALSE, SvmAddress(destination), from,
                                     bytes, 0, nullptr, nullptr));
  }

  int CopyHostToDevice(DevicePointer destination, size_t destinationPitch, const void* source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) override {
    if (destination == 0 || !source) return kGPUErrorInvalidArgument;
    if (const int checked = CheckRowCopy(destinationPitch, sourcePitch, rowWidthBytes, rows))
      return checked;
    if (rows == 0 || rowWidthBytes == 0) return 0;
    std::shared_lock lock(mutex_);
    const cl_command_queue queue = context_->queue;
    if (rows == 1 || (destinationPitch == rowWidthBytes && sourcePitch == rowWidthBytes))
      return Result(clEnqueueSVMMemcpy(queue, CL_TRUE, SvmAddress(destination), source,
                                       rowWidthBytes * rows, 0, nullptr, nullptr));
    // Pitched rows: map the span once instead of queueing a copy per row. Mapped for writing
    // without invalidation, so the bytes between rows keep their contents.
    void* base = SvmAddress(destination);
    const size_t span = RowCopySpan(destinationPitch, rowWidthBytes, rows);
    cl_int error = clEnqueueSVMMap(queue, CL_TRUE, CL_MAP_WRITE, base, span, 0, nullptr, nullptr);
    if (error != CL_SUCCESS) return Result(error);
    for (size_t row = 0; row < rows; ++row)
      std::memcpy(static_cast<uint8_t*>(base) + row * destinationPitch,
                  static_cast<const uint8_t*>(source) + row * sourcePitch, rowWidthBytes);
    return Result(clEnqueueSVMUnmap(queue, base, 0, nullptr, nullptr));
  }

  int CopyDeviceToHost(void* destination, size_t destinationPitch, DevicePointer source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) override {
    if (!destination || source == 0) return kGPUErrorInvalidArgument;
    if (const int checked = CheckRowCopy(destinationPitch, sourcePitch, rowWidthBytes, rows))
      return checked;
    if (rows == 0 || rowWidthBytes == 0) return 0;
    std::shared_lock lock(mutex_);
    const cl_command_queue queue = context_->queue;
    if (rows == 1 || (destinationPitch == rowWidthBytes && sourcePitch == rowWidthBytes))
      return Result(clEnqueueSVMMemcpy(queue, CL_TRUE, destination, SvmAddress(source),
                                       rowWidthBytes * rows, 0, nullptr, nullptr));
    void* base = SvmAddress(source);
    const size_t span = RowCopySpan(sourcePitch, rowWidthBytes, rows);
    cl_int error = clEnqueueSVMMap(queue, CL_TRUE, CL_MAP_READ, base, span, 0, nullptr, nullptr);
    if (error != CL_SUCCESS) return Result(error);
    for (size_t row = 0; row < rows; ++row)
      std::memcpy(static_cast<uint8_t*>(destination) + row * destinationPitch,
                  static_cast<const uint8_t*>(base) + row * sourcePitch, rowWidthBytes);
    return Result(clEnqueueSVMUnmap(queue, base, 0, nullptr, nullptr));
  }

  int CopyDeviceToDevice(DevicePointer destination, DevicePointer source, size_t bytes) override {
    if (destination == 0 || source == 0) return kGPUErrorInvalidArgument;
    if (bytes == 0) return 0;
    std::shared_lock lock(mutex_);
    return Result(clEnqueueSVMMemcpy(context_->queue, CL_FALSE, SvmAddress(destination),
                                     SvmAddress(source), bytes, 0, nullptr, nullptr));
  }

  int Synchronize() override {
    std::shared_lock lock(mutex_);
    return Result(clFinish(context_->queue));
  }

  std::shared_ptr<IGPUEvent> RecordEvent() override {
    std::shared_lock lock(mutex_);
    cl_event event = nullptr;
    if (clEnqueueMarkerWithWaitList(context_->queue, 0, nullptr, &event) != CL_SUCCESS)
      return nullptr;
    try {
      return std::make_shared<CEvent>(WrapEvent(event));
    } catch (const std::bad_alloc&) {
      return nullptr;  // the wrapper already released the event
    }
  }

  std::shared_ptr<GPUDeviceTexture> UploadTexture(const void* texels, size_t sourceRowBytes,
                                                  uint32_t width, uint32_t height,
                                                  uint32_t depth) override {
    const HostToDeviceCopy copy = [this](DevicePointer destination, size_t destinationPitch,
                                         const void* source, size_t sourcePitch,
                                         size_t rowWidthBytes, size_t rows) {
      return CopyHostToDevice(destination, destinationPitch, source, sourcePitch, rowWidthBytes,
                              rows);
    };
    return UploadPooledTexture(copy, deviceAllocator_, texels, sourceRowBytes, width, height,
                               depth);
  }

  const GPUKernel* LoadKernel(std::string_view module, std::string_view kernel) override {
    std::shared_lock lock(mutex_);
    CContext& context = *context_;
    const uint64_t stamp = stamp_;
    return kernels_.FindOrLoadKernel(
        module, kernel,
        [&](const SKernelModule& row, std::string_view entry) -> std::unique_ptr<GPUKernel> {
          cl_program program = context.Program(row.name);
          if (!program) return nullptr;
          cl_int error = CL_SUCCESS;
          cl_kernel made = clCreateKernel(program, std::string(entry).c_str(), &error);
          if (!made) return nullptr;
          cl_uint count = 0;
          clGetKernelInfo(made, CL_KERNEL_NUM_ARGS, sizeof count, &count, nullptr);
          try {
            return std::make_unique<COpenCLKernel>(this, stamp, row, entry, made, count);
          } catch (const std::bad_alloc&) {
            clReleaseKernel(made);
            return nullptr;
          }
        });
  }

  const GPUTexture* LoadTexture(std::string_view module, std::string_view textureName) override {
    // A module this back end has no source for has no slots either.
    if (opencl::FindKernelSource(module).empty()) return nullptr;
    std::shared_lock lock(mutex_);
    return kernels_.FindTexture(this, stamp_, module, textureName);
  }

  int BindTexture(GPUTextureBindings& bindings, const GPUTexture* texture, DevicePointer texels,
                  size_t offset, size_t rowBytes, uint32_t width, uint32_t height,
                  PixelFormat format, uint32_t flags) override {
    if (texels > UINT64_MAX - offset) return kGPUErrorInvalidArgument;
    std::shared_lock lock(mutex_);
    return FillTextureBinding(bindings, *this, stamp_, texture, texels + offset, rowBytes, width,
                              height, 1, format, flags);
  }

  int Bind3DTexture(GPUTextureBindings& bindings, const GPUTexture* texture, DevicePointer texels,
                    size_t rowBytes, uint32_t width, uint32_t height, uint32_t depth,
                    PixelFormat format, uint32_t flags) override {
    std::shared_lock lock(mutex_);
    return FillTextureBinding(bindings, *this, stamp_, texture, texels, rowBytes, width, height,
                              depth, format, flags);
  }

  int Launch(const GPUKernel* kernel, GPUDim3 grid, GPUDim3 block,
             const GPUTextureBindings& bindings,
             std::span<const GPUKernelArgument> arguments) override {
    std::shared_lock lock(mutex_);
    if (const int checked = CheckLaunch(*this, stamp_, kernel, grid, block, bindings))
      return checked;
    const auto* openclKernel = static_cast<const COpenCLKernel*>(kernel);
    // A wrong argument count would leave parameters unset or set the wrong ones.
    if (openclKernel->argumentCount != kernel->module->textureCount * 6 + arguments.size())
      return kGPUErrorInvalidArgument;
    const size_t global[3] = {size_t(grid.x) * block.x, size_t(grid.y) * block.y,
                              size_t(grid.z) * block.z};
    const size_t local[3] = {block.x, block.y, block.z};
    const bool implementationChoosesLocal = block.x == 1 && block.y == 1 && block.z == 1;
    const cl_uint dimensions = global[2] > 1 ? 3 : 2;
    return Result(openclKernel->Enqueue(context_->queue, dimensions, global,
                                        implementationChoosesLocal ? nullptr : local, bindings,
                                        arguments));
  }

 private:
  static int Result(cl_int error) {
    if (error == CL_SUCCESS) return 0;
    if (error == CL_OUT_OF_RESOURCES || error == CL_OUT_OF_HOST_MEMORY ||
        error == CL_MEM_OBJECT_ALLOCATION_FAILURE)
      return kGPUErrorOutOfMemory;
    if (error == CL_INVALID_VALUE || error == CL_INVALID_WORK_GROUP_SIZE ||
        error == CL_INVALID_WORK_ITEM_SIZE || error == CL_INVALID_GLOBAL_WORK_SIZE)
      return kGPUErrorInvalidArgument;
    return kGPUErrorBackend;
  }

  // Takes `context` as the device's current generation, with fresh pools over it.
  void Adopt(std::shared_ptr<CContext> context) {
    CBlockPool::SOperations staging;
    staging.allocate = [](size_t size, CBlockPool::SBlock& block) {
      block.host = ::operator new (size, std::align_val_t{kStagingAlignment}, std::nothrow);
      return block.host != nullptr;
    };
    staging.free = [](const CBlockPool::SBlock& block) {
      ::operator delete (block.host, std::align_val_t{kStagingAlignment});
    };
    staging.fence = [context]() -> CBlockPool::Fence {
      cl_event marker = nullptr;
      if (clEnqueueMarkerWithWaitList(context->queue, 0, nullptr, &marker) != CL_SUCCESS) {
        clFinish(context->queue);
        return [](bool) { return true; };
      }
      EventHandle event = WrapEvent(marker);
      return [event](bool wait) {
        cl_event e = event.get();
        if (wait) clWaitForEvents(1, &e);
        return IsComplete(e);
      };
    };
    CBlockPool::SOperations device;
    // Aligned as the device aligns its buffers (128 bytes on PoCL, which refuses more).
    cl_uint alignmentBits = 0;
    clGetDeviceInfo(context->device, CL_DEVICE_MEM_BASE_ADDR_ALIGN, sizeof alignmentBits,
                    &alignmentBits, nullptr);
    const cl_uint alignment = alignmentBits / 8;
    device.allocate = [context, alignment](size_t size, CBlockPool::SBlock& block) {
      void* memory = clSVMAlloc(context->context, CL_MEM_READ_WRITE, size, alignment);
      block.device = reinterpret_cast<uintptr_t>(memory);
      return memory != nullptr;
    };
    // Queued, so that the memory goes only after the work queued before has used it.
    device.free = [context](const CBlockPool::SBlock& block) {
      void* memory = SvmAddress(block.device);
      if (clEnqueueSVMFree(context->queue, 1, &memory, nullptr, nullptr, 0, nullptr, nullptr) !=
          CL_SUCCESS) {
        clFinish(context->queue);
        clSVMFree(context->context, memory);
      }
    };
    hostAllocator_.SetPool(std::make_shared<CBlockPool>(std::move(staging), kRetainedStagingBytes));
    deviceAllocator_.SetPool(std::make_shared<CBlockPool>(std::move(device), kRetainedDeviceBytes));
    context_ = std::move(context);
    stamp_ = NextGPUGenerationStamp();
  }

  const GPUDeviceInfo info_;
  const cl_device_id deviceId_;
  // Shared by every operation, exclusive for a reset: a reset never swaps the context under a
  // copy or launch in flight.
  mutable std::shared_mutex mutex_;
  std::shared_ptr<CContext> context_;
  uint64_t stamp_ = 0;
  CPooledHostAllocator hostAllocator_;
  CPooledDeviceAllocator deviceAllocator_;
  CDeviceAssetCache cache_;
  CKernelStore kernels_;
};

struct SCandidate {
  cl_platform_id platform;
  cl_device_id device;
  cl_device_type type;
};

}  // namespace

std::vector<std::shared_ptr<IGPUDevice>> EnumerateOpenCLDevices(GPUBackendStatus& status) {
  status = {kGPUFrameworkOpenCL, "OpenCL", true, false, ""};
  cl_uint platformCount = 0;
  if (clGetPlatformIDs(0, nullptr, &platformCount) != CL_SUCCESS || platformCount == 0) {
    status.message = "no OpenCL platform installed";
    return {};
  }
  std::vector<cl_platform_id> platforms(platformCount);
  clGetPlatformIDs(platformCount, platforms.data(), nullptr);

  std::vector<SCandidate> candidates;
  std::string platformNames;
  for (cl_platform_id platform : platforms) {
    if (!platformNames.empty()) platformNames += "; ";
    platformNames += PlatformText(platform, CL_PLATFORM_NAME) + " (" +
                     PlatformText(platform, CL_PLATFORM_VERSION) + ")";
    cl_uint count = 0;
    if (clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &count) != CL_SUCCESS) continue;
    std::vector<cl_device_id> ids(count);
    clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, count, ids.data(), nullptr);
    for (cl_device_id id : ids) {
      cl_device_type type = 0;
      clGetDeviceInfo(id, CL_DEVICE_TYPE, sizeof type, &type, nullptr);
      candidates.push_back({platform, id, type});
    }
  }
  // GPUs take the low indices, whichever platform lists them first.
  std::stable_partition(candidates.begin(), candidates.end(),
                        [](const SCandidate& c) { return (c.type & CL_DEVICE_TYPE_GPU) != 0; });

  std::vector<std::shared_ptr<IGPUDevice>> devices;
  size_t withoutSvm = 0;
  for (const SCandidate& candidate : candidates) {
    if (devices.size() == kMaxGPUDevicesPerFramework) break;
    cl_device_svm_capabilities svm = 0;
    if (clGetDeviceInfo(candidate.device, CL_DEVICE_SVM_CAPABILITIES, sizeof svm, &svm, nullptr) !=
            CL_SUCCESS ||
        !(svm & CL_DEVICE_SVM_COARSE_GRAIN_BUFFER)) {
      ++withoutSvm;
      continue;
    }
    std::shared_ptr<CContext> context = CContext::Create(candidate.device);
    if (!context) continue;
    GPUDeviceInfo info;
    info.frameworkCode = kGPUFrameworkOpenCL;
    info.kindCode = (candidate.type & CL_DEVICE_TYPE_CPU) ? 2 : 1;
    info.index = uint32_t(devices.size());
    info.name = DeviceText(candidate.device, CL_DEVICE_NAME);
    cl_ulong memory = 0;
    clGetDeviceInfo(candidate.device, CL_DEVICE_GLOBAL_MEM_SIZE, sizeof memory, &memory, nullptr);
    info.memoryBytes = memory;
    info.driverVersion = PlatformText(candidate.platform, CL_PLATFORM_NAME) + " " +
                         DeviceText(candidate.device, CL_DRIVER_VERSION);
    try {
      devices.push_back(std::make_shared<COpenCLDevice>(std::move(info), std::move(context)));
    } catch (const std::bad_alloc&) {
      break;
    }
  }
  status.available = !devices.empty();
  status.message = platformNames;
  if (withoutSvm > 0)
    status.message += "; " + std::to_string(withoutSvm) +
                      " device(s) skipped: no coarse-grained shared virtual memory";
  if (devices.empty() && candidates.empty()) status.message += "; no devices";
  return devices;
}

}  // namespace host
