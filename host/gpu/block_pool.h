// Pooled memory blocks shared by the back ends' allocators: blocks are kept by size class after
// release and handed out again, so that a frame's allocations do not reach the driver (and a
// device free does not synchronise the device) on every call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>

#include "host/gpu.h"

namespace host {

/// One device generation's blocks of one kind (staging or device memory).
class CBlockPool {
 public:
  /// A block as the driver gave it: host memory, device memory or both.
  struct SBlock {
    void* host = nullptr;
    DevicePointer device = 0;
    size_t size = 0;  ///< the size class actually allocated
  };
  /// Tells whether the device has finished with a released block; waits for it when `wait`.
  using Fence = std::function<bool(bool wait)>;
  struct SOperations {
    std::function<bool(size_t size, SBlock& block)> allocate;
    std::function<void(const SBlock& block)> free;
    /// Made at each release when set: the block is reused only once the fence has passed
    /// (staging blocks that a queued copy still reads). Unset: reused at once, which is right
    /// for device blocks since later work is queued behind the work that used them.
    std::function<Fence()> fence;
  };

  /// `retainBytes`: idle bytes kept for reuse; blocks released beyond it are freed.
  CBlockPool(SOperations operations, uint64_t retainBytes);
  ~CBlockPool();
  CBlockPool(const CBlockPool&) = delete;
  CBlockPool& operator=(const CBlockPool&) = delete;

  /// A block of at least `size` bytes, reused when one of its class is idle; frees the idle
  /// blocks and asks again when the driver has no memory. False when there is none.
  bool Acquire(size_t size, SBlock& block);
  void Release(const SBlock& block);
  /// Frees every idle block (not those a fence still holds).
  void Trim();
  uint64_t IdleBytes() const;

  /// The size class of `size`: powers of two from 256 bytes to 1 MiB, then whole MiB.
  static size_t SizeClass(size_t size);

 private:
  struct SFenced {
    SBlock block;
    Fence fence;
  };
  void CollectPassedLocked();

  SOperations operations_;
  uint64_t retainBytes_;
  mutable std::mutex mutex_;
  std::multimap<size_t, SBlock> idle_;
  std::list<SFenced> fenced_;
  uint64_t idleBytes_ = 0;
};

/// A staging block handed out by `CPooledHostAllocator`; the public block is its base.
struct SPooledHostBlock : GPUHostBlock {
  CBlockPool::SBlock raw;
  std::shared_ptr<CBlockPool> pool;
};

/// A device block handed out by `CPooledDeviceAllocator`.
struct SPooledDeviceBlock : GPUDeviceBlock {
  CBlockPool::SBlock raw;
  std::shared_ptr<CBlockPool> pool;
};

/// A device's staging allocator over the pool of its current generation. Blocks remember their
/// own pool, so a block from before a reset goes back to the pool it came from.
class CPooledHostAllocator final : public IGPUHostAllocator {
 public:
  void SetPool(std::shared_ptr<CBlockPool> pool);
  GPUHostBlock* Allocate(size_t size, uint32_t flags, uint32_t usage) override;
  int Unmap(GPUHostBlock* block) override;
  void Release(GPUHostBlock* block) override;

 private:
  std::mutex mutex_;
  std::shared_ptr<CBlockPool> pool_;
};

class CPooledDeviceAllocator final : public IGPUDeviceAllocator {
 public:
  void SetPool(std::shared_ptr<CBlockPool> pool);
  GPUDeviceBlock* Allocate(size_t size, uint32_t flags, uint32_t usage) override;
  void Release(GPUDeviceBlock* block) override;

 private:
  std::mutex mutex_;
  std::shared_ptr<CBlockPool> pool_;
};

/// A device's blocking host-to-device copy (`IGPUDevice::CopyHostToDevice`'s parameters).
using HostToDeviceCopy =
    std::function<int(DevicePointer destination, size_t destinationPitch, const void* source,
                      size_t sourcePitch, size_t rowWidthBytes, size_t rows)>;

/// Uploads a table with `copy` into a block of `allocator`: the shared body of
/// `IGPUDevice::UploadTexture`. Rows are packed (width x 16 bytes); the texture gives its block
/// back to the block's pool, so it may outlive the allocator.
std::shared_ptr<GPUDeviceTexture> UploadPooledTexture(const HostToDeviceCopy& copy,
                                                      CPooledDeviceAllocator& allocator,
                                                      const void* texels, size_t sourceRowBytes,
                                                      uint32_t width, uint32_t height,
                                                      uint32_t depth);

}  // namespace host
