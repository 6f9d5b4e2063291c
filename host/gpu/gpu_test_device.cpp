#include "host/gpu_test_device.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>

#include "asset_cache.h"
#include "block_pool.h"
#include "gpu_backend.h"

namespace host {

GPUTestDevice::~GPUTestDevice() = default;

namespace {

constexpr size_t kOperationCount = size_t(GPUTestOperation::Launch) + 1;

std::string KernelName(const GPUKernel* kernel) {
  return kernel ? std::string(kernel->module->name) + "/" + kernel->entry : "null";
}

std::string TextureName(const GPUTexture* texture) {
  if (!texture) return "null";
  return std::string(texture->module->name) + "/" +
         std::string(texture->module->textures[texture->slot]);
}

// "Device" memory of a test device without a back end: host memory whose address is the device
// pointer, so tests can look at what a kernel would have read.
CBlockPool::SOperations HostMemoryOperations(bool asDevice) {
  CBlockPool::SOperations operations;
  operations.allocate = [asDevice](size_t size, CBlockPool::SBlock& block) {
    void* memory = ::operator new (size, std::align_val_t{256}, std::nothrow);
    if (!memory) return false;
    block.host = memory;
    if (asDevice) block.device = reinterpret_cast<uintptr_t>(memory);
    return true;
  };
  operations.free = [](const CBlockPool::SBlock& block) {
    ::operator delete (block.host, std::align_val_t{256});
  };
  return operations;
}

int CopyHostRows(void* destination, size_t destinationPitch, const void* source, size_t sourcePitch,
                 size_t rowWidthBytes, size_t rows) {
  if (!destination || !source) return kGPUErrorInvalidArgument;
  if (const int checked = CheckRowCopy(destinationPitch, sourcePitch, rowWidthBytes, rows))
    return checked;
  for (size_t row = 0; row < rows; ++row)
    std::memmove(static_cast<uint8_t*>(destination) + row * destinationPitch,
                 static_cast<const uint8_t*>(source) + row * sourcePitch, rowWidthBytes);
  return 0;
}

void* HostAddress(DevicePointer pointer) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(pointer));
}

class CDoneEvent final : public IGPUEvent {
 public:
  int Wait() override { return 0; }
};

class CTestDevice;

class CRecordingHostAllocator final : public IGPUHostAllocator {
 public:
  explicit CRecordingHostAllocator(CTestDevice& device) : device_(device) {}
  GPUHostBlock* Allocate(size_t size, uint32_t flags, uint32_t usage) override;
  int Unmap(GPUHostBlock* block) override;
  void Release(GPUHostBlock* block) override;

 private:
  CTestDevice& device_;
};

class CRecordingDeviceAllocator final : public IGPUDeviceAllocator {
 public:
  explicit CRecordingDeviceAllocator(CTestDevice& device) : device_(device) {}
  GPUDeviceBlock* Allocate(size_t size, uint32_t flags, uint32_t usage) override;
  void Release(GPUDeviceBlock* block) override;

 private:
  CTestDevice& device_;
};

class CRecordingAssetCache final : public IGPUDeviceAssetCache {
 public:
  explicit CRecordingAssetCache(CTestDevice& device) : device_(device) {}
  std::shared_ptr<GPUDeviceTexture> Find(const Guid& key) override;
  std::shared_ptr<GPUDeviceTexture> Insert(const Guid& key,
                                           std::shared_ptr<GPUDeviceTexture> texture) override;
  void SetBudget(uint64_t bytes) override;
  uint64_t GetBudget() const override;
  uint64_t GetBytesHeld() const override;
  void Clear() override;

 private:
  CTestDevice& device_;
};

class CTestDevice final : public GPUTestDevice {
 public:
  CTestDevice(std::shared_ptr<IGPUDevice> inner, uint32_t index)
      : inner_(std::move(inner)),
        hostAllocator_(*this),
        deviceAllocator_(*this),
        cache_(*this),
        ownCache_(DefaultAssetCacheBudget(0)),
        stamp_(NextGPUGenerationStamp()) {
    if (inner_) {
      info_ = inner_->GetInfo();
    } else {
      info_.name = "crandle test device";
      info_.driverVersion = "none";
      ownHostPool_ = std::make_shared<CBlockPool>(HostMemoryOperations(false), 64u << 20);
      ownDevicePool_ = std::make_shared<CBlockPool>(HostMemoryOperations(true), 256u << 20);
      ownHostAllocator_.SetPool(ownHostPool_);
      ownDeviceAllocator_.SetPool(ownDevicePool_);
    }
    info_.index = index;
  }

  // Records `call` and hands back its result.
  int Record(GPUTestCall call) {
    std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    return calls_.back().result;
  }
  bool Fails(GPUTestOperation operation) const {
    return failures_[size_t(operation)].load(std::memory_order_relaxed);
  }

  IGPUDevice* Inner() const { return inner_.get(); }
  IGPUHostAllocator* InnerHostAllocator() {
    return inner_ ? inner_->GetHostAllocator() : &ownHostAllocator_;
  }
  IGPUDeviceAllocator* InnerDeviceAllocator() {
    return inner_ ? inner_->GetDeviceAllocator() : &ownDeviceAllocator_;
  }
  IGPUDeviceAssetCache& InnerCache() { return inner_ ? inner_->GetAssetCache() : ownCache_; }

  // GPUTestDevice
  void SetFailure(GPUTestOperation operation, bool fail) override {
    if (size_t(operation) < kOperationCount)
      failures_[size_t(operation)].store(fail, std::memory_order_relaxed);
  }
  void SetCodes(uint32_t frameworkCode, uint32_t kindCode) override {
    info_.frameworkCode = frameworkCode;
    info_.kindCode = kindCode;
  }
  std::vector<GPUTestCall> Calls() const override {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  void ClearCalls() override {
    std::lock_guard lock(mutex_);
    calls_.clear();
  }

  // IGPUDevice
  const GPUDeviceInfo& GetInfo() const override { return info_; }
  uint64_t GetGenerationStamp() const override {
    return inner_ ? inner_->GetGenerationStamp() : stamp_.load();
  }
  int Reset() override {
    int result = 0;
    if (inner_) {
      result = inner_->Reset();
    } else {
      store_.Retire();
      ownCache_.Clear();
      stamp_ = NextGPUGenerationStamp();
    }
    return Record({.operation = "Reset", .result = result});
  }
  IGPUHostAllocator* GetHostAllocator() override {
    return InnerHostAllocator() ? &hostAllocator_ : nullptr;
  }
  IGPUDeviceAllocator* GetDeviceAllocator() override {
    return InnerDeviceAllocator() ? &deviceAllocator_ : nullptr;
  }
  IGPUDeviceAssetCache& GetAssetCache() override { return cache_; }

  int CopyStagingToDevice(DevicePointer destination, const GPUHostBlock& source, size_t bytes,
                          bool fromMappedView) override {
    GPUTestCall call{.operation = "CopyStagingToDevice", .bytes = bytes};
    const void* from = fromMappedView ? source.mappedView : source.data;
    if (from && bytes <= source.size) {
      const auto* first = static_cast<const uint8_t*>(from);
      call.payload.assign(first, first + bytes);
    }
    if (Fails(GPUTestOperation::ConstantCopy)) {
      call.result = kGPUErrorInjected;
    } else if (inner_) {
      call.result = inner_->CopyStagingToDevice(destination, source, bytes, fromMappedView);
    } else if (!from || bytes > source.size || destination == 0) {
      call.result = kGPUErrorInvalidArgument;
    } else {
      std::memcpy(HostAddress(destination), from, bytes);
    }
    return Record(std::move(call));
  }
  int CopyHostToDevice(DevicePointer destination, size_t destinationPitch, const void* source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) override {
    const int result = inner_ ? inner_->CopyHostToDevice(destination, destinationPitch, source,
                                                         sourcePitch, rowWidthBytes, rows)
                              : CopyHostRows(HostAddress(destination), destinationPitch, source,
                                             sourcePitch, rowWidthBytes, rows);
    return Record({.operation = "CopyHostToDevice",
                   .bytes = rowWidthBytes * rows,
                   .width = uint32_t(rowWidthBytes),
                   .height = uint32_t(rows),
                   .result = result});
  }
  int CopyDeviceToHost(void* destination, size_t destinationPitch, DevicePointer source,
                       size_t sourcePitch, size_t rowWidthBytes, size_t rows) override {
    const int result = inner_ ? inner_->CopyDeviceToHost(destination, destinationPitch, source,
                                                         sourcePitch, rowWidthBytes, rows)
                              : CopyHostRows(destination, destinationPitch, HostAddress(source),
                                             sourcePitch, rowWidthBytes, rows);
    return Record({.operation = "CopyDeviceToHost",
                   .bytes = rowWidthBytes * rows,
                   .width = uint32_t(rowWidthBytes),
                   .height = uint32_t(rows),
                   .result = result});
  }
  int CopyDeviceToDevice(DevicePointer destination, DevicePointer source, size_t bytes) override {
    const int result = inner_ ? inner_->CopyDeviceToDevice(destination, source, bytes)
                              : CopyHostRows(HostAddress(destination), bytes, HostAddress(source),
                                             bytes, bytes, 1);
    return Record({.operation = "CopyDeviceToDevice", .bytes = bytes, .result = result});
  }
  int Synchronize() override {
    return Record({.operation = "Synchronize", .result = inner_ ? inner_->Synchronize() : 0});
  }
  std::shared_ptr<IGPUEvent> RecordEvent() override {
    std::shared_ptr<IGPUEvent> event =
        inner_ ? inner_->RecordEvent() : std::make_shared<CDoneEvent>();
    Record({.operation = "RecordEvent", .result = event ? 0 : kGPUErrorBackend});
    return event;
  }

  std::shared_ptr<GPUDeviceTexture> UploadTexture(const void* texels, size_t sourceRowBytes,
                                                  uint32_t width, uint32_t height,
                                                  uint32_t depth) override {
    std::shared_ptr<GPUDeviceTexture> texture;
    if (Fails(GPUTestOperation::UploadTexture)) {
    } else if (inner_) {
      texture = inner_->UploadTexture(texels, sourceRowBytes, width, height, depth);
    } else {
      const HostToDeviceCopy copy = [](DevicePointer destination, size_t destinationPitch,
                                       const void* source, size_t sourcePitch, size_t rowWidthBytes,
                                       size_t rows) {
        return CopyHostRows(HostAddress(destination), destinationPitch, source, sourcePitch,
                            rowWidthBytes, rows);
      };
      texture = UploadPooledTexture(copy, ownDeviceAllocator_, texels, sourceRowBytes, width,
                                    height, depth);
    }
    Record({.operation = "UploadTexture",
            .bytes = texture ? texture->byteCount : 0,
            .width = width,
            .height = height,
            .depth = depth,
            .result = texture ? 0 : kGPUErrorOutOfMemory});
    return texture;
  }

  const GPUKernel* LoadKernel(std::string_view module, std::string_view kernel) override {
    const GPUKernel* loaded = nullptr;
    if (Fails(GPUTestOperation::LoadKernel)) {
    } else if (inner_) {
      loaded = inner_->LoadKernel(module, kernel);
    } else {
      // Without a back end every registry entry "loads"; launches are only recorded.
      loaded = store_.FindOrLoadKernel(
          module, kernel,
          [this](const SKernelModule& row, std::string_view entry) -> std::unique_ptr<GPUKernel> {
            if (entry != row.entry) return nullptr;
            return std::make_unique<GPUKernel>(this, stamp_.load(), row, entry);
          });
    }
    Record({.operation = "LoadKernel",
            .detail = std::string(module) + "/" + std::string(kernel),
            .result = loaded ? 0 : kGPUErrorNotFound});
    return loaded;
  }
  const GPUTexture* LoadTexture(std::string_view module, std::string_view textureName) override {
    const GPUTexture* loaded = nullptr;
    if (Fails(GPUTestOperation::LoadTexture)) {
    } else if (inner_) {
      loaded = inner_->LoadTexture(module, textureName);
    } else {
      loaded = store_.FindTexture(this, stamp_.load(), module, textureName);
    }
    Record({.operation = "LoadTexture",
            .detail = std::string(module) + "/" + std::string(textureName),
            .result = loaded ? 0 : kGPUErrorNotFound});
    return loaded;
  }
  int BindTexture(GPUTextureBindings& bindings, const GPUTexture* texture, DevicePointer texels,
                  size_t offset, size_t rowBytes, uint32_t width, uint32_t height,
                  PixelFormat format, uint32_t flags) override {
    int result = 0;
    if (Fails(GPUTestOperation::BindTexture)) {
      result = kGPUErrorInjected;
    } else if (inner_) {
      result = inner_->BindTexture(bindings, texture, texels, offset, rowBytes, width, height,
                                   format, flags);
    } else {
      result = texels > UINT64_MAX - offset
                   ? kGPUErrorInvalidArgument
                   : FillTextureBinding(bindings, *this, stamp_.load(), texture, texels + offset,
                                        rowBytes, width, height, 1, format, flags);
    }
    return Record({.operation = "BindTexture",
                   .detail = TextureName(texture),
                   .bytes = rowBytes,
                   .width = width,
                   .height = height,
                   .depth = 1,
                   .result = result});
  }
  int Bind3DTexture(GPUTextureBindings& bindings, const GPUTexture* texture, DevicePointer texels,
                    size_t rowBytes, uint32_t width, uint32_t height, uint32_t depth,
                    PixelFormat format, uint32_t flags) override {
    int result = 0;
    if (Fails(GPUTestOperation::Bind3DTexture)) {
      result = kGPUErrorInjected;
    } else if (inner_) {
      result = inner_->Bind3DTexture(bindings, texture, texels, rowBytes, width, height, depth,
                                     format, flags);
    } else {
      result = FillTextureBinding(bindings, *this, stamp_.load(), texture, texels, rowBytes, width,
                                  height, depth, format, flags);
    }
    return Record({.operation = "Bind3DTexture",
                   .detail = TextureName(texture),
                   .bytes = rowBytes,
                   .width = width,
                   .height = height,
                   .depth = depth,
                   .result = result});
  }
  int Launch(const GPUKernel* kernel, GPUDim3 grid, GPUDim3 block,
             const GPUTextureBindings& bindings,
             std::span<const GPUKernelArgument> arguments) override {
    GPUTestCall call{
        .operation = "Launch", .detail = KernelName(kernel), .grid = grid, .block = block};
    for (const GPUKernelArgument& argument : arguments)
      for (int byte = 0; byte < 8; ++byte)
        call.payload.push_back(uint8_t(argument.bits >> (8 * byte)));
    if (Fails(GPUTestOperation::Launch)) {
      call.result = kGPUErrorInjected;
    } else if (inner_) {
      call.result = inner_->Launch(kernel, grid, block, bindings, arguments);
    } else {
      call.result = CheckLaunch(*this, stamp_.load(), kernel, grid, block, bindings);
    }
    return Record(std::move(call));
  }

 private:
  friend class CRecordingHostAllocator;
  friend class CRecordingDeviceAllocator;

  std::shared_ptr<IGPUDevice> inner_;
  GPUDeviceInfo info_;
  CRecordingHostAllocator hostAllocator_;
  CRecordingDeviceAllocator deviceAllocator_;
  CRecordingAssetCache cache_;
  // What stands in for a back end when there is no inner device.
  std::shared_ptr<CBlockPool> ownHostPool_, ownDevicePool_;
  CPooledHostAllocator ownHostAllocator_;
  CPooledDeviceAllocator ownDeviceAllocator_;
  CDeviceAssetCache ownCache_;
  CKernelStore store_;
  std::atomic<uint64_t> stamp_;

  std::array<std::atomic<bool>, kOperationCount> failures_{};
  mutable std::mutex mutex_;
  std::vector<GPUTestCall> calls_;
};

GPUHostBlock* CRecordingHostAllocator::Allocate(size_t size, uint32_t flags, uint32_t usage) {
  GPUHostBlock* block = nullptr;
  if (!device_.Fails(GPUTestOperation::HostAllocate))
    block = device_.InnerHostAllocator()->Allocate(size, flags, usage);
  if (block && device_.Fails(GPUTestOperation::MapView)) block->mappedView = nullptr;
  device_.Record({.operation = "HostAllocator.Allocate",
                  .bytes = size,
                  .result = block ? 0 : kGPUErrorOutOfMemory});
  return block;
}

int CRecordingHostAllocator::Unmap(GPUHostBlock* block) {
  const int result = device_.Fails(GPUTestOperation::Unmap)
                         ? kGPUErrorInjected
                         : device_.InnerHostAllocator()->Unmap(block);
  return device_.Record(
      {.operation = "HostAllocator.Unmap", .bytes = block ? block->size : 0, .result = result});
}

void CRecordingHostAllocator::Release(GPUHostBlock* block) {
  device_.Record({.operation = "HostAllocator.Release", .bytes = block ? block->size : 0});
  device_.InnerHostAllocator()->Release(block);
}

GPUDeviceBlock* CRecordingDeviceAllocator::Allocate(size_t size, uint32_t flags, uint32_t usage) {
  GPUDeviceBlock* block = nullptr;
  if (!device_.Fails(GPUTestOperation::DeviceAllocate))
    block = device_.InnerDeviceAllocator()->Allocate(size, flags, usage);
  device_.Record({.operation = "DeviceAllocator.Allocate",
                  .bytes = size,
                  .result = block ? 0 : kGPUErrorOutOfMemory});
  return block;
}

void CRecordingDeviceAllocator::Release(GPUDeviceBlock* block) {
  device_.Record({.operation = "DeviceAllocator.Release", .bytes = block ? block->size : 0});
  device_.InnerDeviceAllocator()->Release(block);
}

std::shared_ptr<GPUDeviceTexture> CRecordingAssetCache::Find(const Guid& key) {
  std::shared_ptr<GPUDeviceTexture> found = device_.InnerCache().Find(key);
  device_.Record({.operation = "AssetCache.Find",
                  .detail = key.ToString(),
                  .result = found ? 0 : kGPUErrorNotFound});
  return found;
}

std::shared_ptr<GPUDeviceTexture> CRecordingAssetCache::Insert(
    const Guid& key, std::shared_ptr<GPUDeviceTexture> texture) {
  const uint64_t bytes = texture ? texture->byteCount : 0;
  std::shared_ptr<GPUDeviceTexture> kept = device_.InnerCache().Insert(key, std::move(texture));
  device_.Record({.operation = "AssetCache.Insert",
                  .detail = key.ToString(),
                  .bytes = bytes,
                  .result = kept ? 0 : kGPUErrorInvalidArgument});
  return kept;
}

void CRecordingAssetCache::SetBudget(uint64_t bytes) {
  device_.InnerCache().SetBudget(bytes);
}
uint64_t CRecordingAssetCache::GetBudget() const {
  return device_.InnerCache().GetBudget();
}
uint64_t CRecordingAssetCache::GetBytesHeld() const {
  return device_.InnerCache().GetBytesHeld();
}
void CRecordingAssetCache::Clear() {
  device_.InnerCache().Clear();
}

}  // namespace

std::shared_ptr<GPUTestDevice> CreateGPUTestDevice(std::shared_ptr<IGPUDevice> inner,
                                                   uint32_t index) {
  try {
    return std::make_shared<CTestDevice>(std::move(inner), index);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace host
