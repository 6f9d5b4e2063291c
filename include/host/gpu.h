// The reference host's GPU library: devices, device memory, kernels, texture bindings, launches
// and the per-device asset cache. Two back ends stand behind it (the CUDA driver, framework code 1,
// and OpenCL, framework code 2); neither's headers appear here.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/export.h"
#include "host/guid.h"
#include "host/pixel_format.h"

namespace host {

/// Framework code of a device driven through the CUDA driver API.
inline constexpr uint32_t kGPUFrameworkCUDA = 1;
/// Framework code of a device driven through OpenCL.
inline constexpr uint32_t kGPUFrameworkOpenCL = 2;
/// Devices per framework: device indices run from 0 to 3; an index of 4 or more is refused.
inline constexpr uint32_t kMaxGPUDevicesPerFramework = 4;

/// Result codes of the GPU library. Every operation that reports an `int` returns 0 on success and
/// one of these (or another negative value) on failure.
inline constexpr int kGPUErrorInvalidArgument = -1;
inline constexpr int kGPUErrorOutOfMemory = -2;
inline constexpr int kGPUErrorNoDevice = -3;
inline constexpr int kGPUErrorNotFound = -4;  ///< no such module, kernel or texture
inline constexpr int kGPUErrorBackend = -5;   ///< the driver reported a failure
inline constexpr int kGPUErrorInjected = -6;  ///< a test device was told to fail this operation

/// A device memory address as kernels see it. Adding a byte offset inside one allocation gives
/// the address of that byte (on OpenCL through shared virtual memory or the back end's own
/// translation; see docs/gpu-host-library.md). 0 is never a valid address.
using DevicePointer = uint64_t;

/// What a device is.
struct GPUDeviceInfo {
  uint32_t frameworkCode =
      0;  ///< `kGPUFrameworkCUDA` or `kGPUFrameworkOpenCL` (0 for a bare test device)
  /// The back end's kind code, which decides the thread-block size that callers choose
  /// (documented per back end in docs/gpu-host-library.md).
  uint32_t kindCode = 0;
  uint32_t index = 0;  ///< 0 to 3, counted per framework
  std::string name;    ///< the driver's device name
  uint64_t memoryBytes = 0;
  std::string driverVersion;  ///< the driver's version text
};

/// Grid or block extents of a launch.
struct GPUDim3 {
  uint32_t x = 1;
  uint32_t y = 1;
  uint32_t z = 1;
};

/// A block of host memory for staging copies to a device. Owned by the allocator that made it;
/// `mappedView`, when not null, is where the caller writes (until `Unmap`).
struct GPUHostBlock {
  void* data = nullptr;
  size_t size = 0;
  void* mappedView = nullptr;
};

/// A block of device memory, owned by the allocator that made it.
struct GPUDeviceBlock {
  DevicePointer pointer = 0;
  size_t size = 0;
};

/// Allocation `usage` value for small blocks of kernel constants, as the LUT apply path asks.
inline constexpr uint32_t kGPUUsageConstants = 2;

/// The device's allocator of host staging blocks. Blocks are pooled: a released block is reused
/// only after the device has finished every copy queued from it.
class IGPUHostAllocator {
 public:
  /// A staging block of at least `size` bytes (`flags` must be 0; `usage` is a pool hint), with a
  /// mapped view. Null when there is no memory or `size` is 0.
  virtual GPUHostBlock* Allocate(size_t size, uint32_t flags, uint32_t usage) = 0;
  /// Ends the block's mapped view: 0 and `mappedView` cleared, or a negative result (view kept).
  virtual int Unmap(GPUHostBlock* block) = 0;
  /// Gives the block back to the pool; null is ignored.
  virtual void Release(GPUHostBlock* block) = 0;

 protected:
  ~IGPUHostAllocator() = default;
};

/// The device's allocator of device blocks. Blocks are pooled: a release never waits for the
/// device; a released block is reused only by work queued after the release.
class IGPUDeviceAllocator {
 public:
  /// A device block of at least `size` bytes (`flags` must be 0; `usage` is a pool hint). Null
  /// when the device has no memory left or `size` is 0.
  virtual GPUDeviceBlock* Allocate(size_t size, uint32_t flags, uint32_t usage) = 0;
  /// Gives the block back to the pool; null is ignored.
  virtual void Release(GPUDeviceBlock* block) = 0;

 protected:
  ~IGPUDeviceAllocator() = default;
};

/// A loaded kernel entry of a module. Owned by its device; valid until the device is reset or
/// destroyed (its generation stamp then changes, which tells callers to load it again).
class GPUKernel;
/// A texture argument slot of a module's kernels, found by the texture's name. Owned by its
/// device, with the same lifetime as a `GPUKernel`.
class GPUTexture;

/// One texture bound for one launch: which slot, and the texels it reads.
struct GPUTextureBinding {
  const GPUTexture* texture = nullptr;
  DevicePointer texels = 0;  ///< address of texel (0, 0, 0)
  size_t rowBytes = 0;       ///< bytes from one row to the next
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t depth = 1;  ///< 1 for a 2-D texture
  PixelFormat format{};
};

/// The textures of one launch. Nothing is bound module-wide: each call fills its own bindings
/// and hands them to `Launch`, so concurrent calls cannot disturb each other.
struct GPUTextureBindings {
  static constexpr size_t kMaxTextures = 4;
  std::array<GPUTextureBinding, kMaxTextures> entries{};
  size_t count = 0;
};

/// One argument of a launch after the textures.
struct GPUKernelArgument {
  enum class Kind : uint32_t { Pointer, UInt32, Int32, Float32 };
  Kind kind = Kind::UInt32;
  uint64_t bits = 0;  ///< the pointer, or the 32-bit value in the low bits

  static GPUKernelArgument Pointer(DevicePointer pointer) { return {Kind::Pointer, pointer}; }
  static GPUKernelArgument UInt32(uint32_t value) { return {Kind::UInt32, value}; }
  static GPUKernelArgument Int32(int32_t value) {
    return {Kind::Int32, static_cast<uint32_t>(value)};
  }
  static GPUKernelArgument Float32(float value) {
    return {Kind::Float32, std::bit_cast<uint32_t>(value)};
  }
};

/// A table uploaded to one device: 16-byte texels (four 32-bit floats) in rows of `rowBytes`.
/// Owns its device memory, which goes back to the device's allocator with the last reference.
class HOST_API GPUDeviceTexture {
 public:
  virtual ~GPUDeviceTexture();
  DevicePointer texels = 0;
  size_t rowBytes = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t depth = 1;
  size_t byteCount = 0;  ///< device memory held, counted against the asset cache's budget
};

/// Device-resident tables kept across calls, looked up by `Guid`. Bounded by a budget in bytes:
/// inserting past it evicts the least recently used entries (an evicted texture stays valid for
/// whoever still holds it). Safe under concurrent callers.
class IGPUDeviceAssetCache {
 public:
  /// The texture under `key` (now the most recently used), or null.
  virtual std::shared_ptr<GPUDeviceTexture> Find(const Guid& key) = 0;
  /// Keeps `texture` under `key` and returns the entry that the cache now holds under it: the
  /// one already there when another caller inserted first, else `texture`. A texture larger than
  /// the whole budget is returned but not kept.
  virtual std::shared_ptr<GPUDeviceTexture> Insert(const Guid& key,
                                                   std::shared_ptr<GPUDeviceTexture> texture) = 0;
  /// The budget in bytes; lowering it evicts at once.
  virtual void SetBudget(uint64_t bytes) = 0;
  virtual uint64_t GetBudget() const = 0;
  /// Bytes held by the entries kept now.
  virtual uint64_t GetBytesHeld() const = 0;
  /// Drops every entry.
  virtual void Clear() = 0;

 protected:
  ~IGPUDeviceAssetCache() = default;
};

/// Something a device finished: a point in the device's queue of work.
class IGPUEvent {
 public:
  virtual ~IGPUEvent() = default;
  /// Blocks until the device has done all work queued before the event: 0, or a negative result.
  virtual int Wait() = 0;
};

/// A GPU device. Held through `std::shared_ptr`; every operation may be called from any thread.
/// Work is queued in order on the device's one stream (CUDA) or in-order queue (OpenCL).
class IGPUDevice {
 public:
  virtual ~IGPUDevice() = default;

  virtual const GPUDeviceInfo& GetInfo() const = 0;
  /// Changes whenever the device is reset: kernels and texture slots loaded before are gone.
  virtual uint64_t GetGenerationStamp() const = 0;
  /// Drops the device's context (kernels, texture slots, asset cache entries) and makes a new
  /// one; for tests and for recovery after a lost context. 0, or a negative result.
  virtual int Reset() = 0;

  /// The device's allocators; null when the device has none.
  virtual IGPUHostAllocator* GetHostAllocator() = 0;
  virtual IGPUDeviceAllocator* GetDeviceAllocator() = 0;
  virtual IGPUDeviceAssetCache& GetAssetCache() = 0;

  /// Queues a copy of `bytes` from a staging block of this device's host allocator (from its
  /// mapped view when `fromMappedView`, else from `data`) to `destination`; returns at once.
  virtual int CopyStagingToDevice(DevicePointer destination, const GPUHostBlock& source,
                                  size_t bytes, bool fromMappedView) = 0;
  /// Copies `rows` rows of `rowWidthBytes` from host memory to the device and returns when the
  /// host memory may be reused. One row when `rows` is 1 (the pitches are then ignored).
  virtual int CopyHostToDevice(DevicePointer destination, size_t destinationPitch,
                               const void* source, size_t sourcePitch, size_t rowWidthBytes,
                               size_t rows) = 0;
  /// Waits for the work queued before, then copies rows from the device to host memory.
  virtual int CopyDeviceToHost(void* destination, size_t destinationPitch, DevicePointer source,
                               size_t sourcePitch, size_t rowWidthBytes, size_t rows) = 0;
  /// Queues a copy between two device addresses.
  virtual int CopyDeviceToDevice(DevicePointer destination, DevicePointer source, size_t bytes) = 0;
  /// Blocks until all queued work is done.
  virtual int Synchronize() = 0;
  /// An event after the work queued so far; null on failure.
  virtual std::shared_ptr<IGPUEvent> RecordEvent() = 0;

  /// Uploads a table of 16-byte texels (`width` x `height` x `depth`, rows `sourceRowBytes` apart
  /// in host memory) into new device memory and returns when the upload is done; null when the
  /// device has no memory or the extents are zero.
  virtual std::shared_ptr<GPUDeviceTexture> UploadTexture(const void* texels, size_t sourceRowBytes,
                                                          uint32_t width, uint32_t height,
                                                          uint32_t depth) = 0;

  /// The kernel `kernel` of the module `module` from the host's kernel registry, built or loaded
  /// for this device at first use; null when either is unknown or cannot be built.
  virtual const GPUKernel* LoadKernel(std::string_view module, std::string_view kernel) = 0;
  /// The argument slot of the texture `textureName` of `module`'s kernels; null when unknown.
  virtual const GPUTexture* LoadTexture(std::string_view module, std::string_view textureName) = 0;
  /// Fills the binding of `texture` in `bindings` with a 2-D picture: `texels` + `offset` is
  /// pixel (0, 0), rows `rowBytes` apart, in `format`. `flags` must be 0.
  virtual int BindTexture(GPUTextureBindings& bindings, const GPUTexture* texture,
                          DevicePointer texels, size_t offset, size_t rowBytes, uint32_t width,
                          uint32_t height, PixelFormat format, uint32_t flags) = 0;
  /// Fills the binding of `texture` with a 3-D table of 16-byte texels: rows `rowBytes` apart,
  /// slices `rowBytes` x `height` apart.
  virtual int Bind3DTexture(GPUTextureBindings& bindings, const GPUTexture* texture,
                            DevicePointer texels, size_t rowBytes, uint32_t width, uint32_t height,
                            uint32_t depth, PixelFormat format, uint32_t flags) = 0;
  /// Queues `kernel` over `grid` blocks of `block` threads. Its parameters are, first, six per
  /// texture slot of its module in the registry's order (texels, row bytes, width, height, depth,
  /// pixel-format bits) from `bindings`, then `arguments` in order. 0 once queued.
  virtual int Launch(const GPUKernel* kernel, GPUDim3 grid, GPUDim3 block,
                     const GPUTextureBindings& bindings,
                     std::span<const GPUKernelArgument> arguments) = 0;
};

/// What one back end found at start-up.
struct GPUBackendStatus {
  uint32_t frameworkCode = 0;
  std::string name;         ///< "CUDA driver" or "OpenCL"
  bool compiledIn = false;  ///< the library was built with this back end
  bool available = false;   ///< its driver loaded and it offers devices
  std::string message;      ///< why not, or the driver's version
};

/// Every device of every back end compiled in, CUDA first, each framework's devices indexed
/// from 0 (at most four each). Made once per process; empty without devices.
HOST_API std::vector<std::shared_ptr<IGPUDevice>> EnumerateGPUDevices();
/// The device of `frameworkCode` with `index`; null when there is none or `index` is 4 or more.
HOST_API std::shared_ptr<IGPUDevice> GetGPUDevice(uint32_t frameworkCode, uint32_t index);
/// The back ends and what became of each.
HOST_API std::vector<GPUBackendStatus> GetGPUBackendStatus();

/// The host GPU library's operations under the names callers know them by.
inline IGPUDeviceAssetCache& GetDeviceAssetCache(IGPUDevice& device) {
  return device.GetAssetCache();
}
inline const GPUKernel* LoadKernel(IGPUDevice& device, std::string_view module,
                                   std::string_view kernel) {
  return device.LoadKernel(module, kernel);
}
inline const GPUTexture* LoadTexture(IGPUDevice& device, std::string_view module,
                                     std::string_view textureName) {
  return device.LoadTexture(module, textureName);
}

}  // namespace host
