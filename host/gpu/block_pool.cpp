#include "block_pool.h"

#include <bit>
#include <cstdint>
#include <new>
#include <utility>

namespace host {

CBlockPool::CBlockPool(SOperations operations, uint64_t retainBytes)
    : operations_(std::move(operations)), retainBytes_(retainBytes) {}

CBlockPool::~CBlockPool() {
  for (SFenced& fenced : fenced_) {
    fenced.fence(true);
    operations_.free(fenced.block);
  }
  for (const auto& [size, block] : idle_)
    operations_.free(block);
}

size_t CBlockPool::SizeClass(size_t size) {
  constexpr size_t kSmallest = 256;
  constexpr size_t kMiB = size_t{1} << 20;
  if (size <= kSmallest) return kSmallest;
  if (size <= kMiB) return std::bit_ceil(size);
  if (size > SIZE_MAX - kMiB) return 0;
  return (size + kMiB - 1) / kMiB * kMiB;
}

void CBlockPool::CollectPassedLocked() {
  for (auto it = fenced_.begin(); it != fenced_.end();) {
    if (!it->fence(false)) {
      ++it;
      continue;
    }
    idle_.emplace(it->block.size, it->block);
    idleBytes_ += it->block.size;
    it = fenced_.erase(it);
  }
}

bool CBlockPool::Acquire(size_t size, SBlock& block) {
  const size_t sizeClass = SizeClass(size);
  if (size == 0 || sizeClass == 0) return false;
  {
    std::lock_guard lock(mutex_);
    CollectPassedLocked();
    if (auto found = idle_.find(sizeClass); found != idle_.end()) {
      block = found->second;
      idle_.erase(found);
      idleBytes_ -= block.size;
      return true;
    }
  }
  SBlock made;
  if (!operations_.allocate(sizeClass, made)) {
    // Idle blocks of other classes may be what the driver is missing.
    Trim();
    if (!operations_.allocate(sizeClass, made)) return false;
  }
  made.size = sizeClass;
  block = made;
  return true;
}

void CBlockPool::Release(const SBlock& block) {
  std::unique_lock lock(mutex_);
  if (operations_.fence) {
    fenced_.push_back({block, operations_.fence()});
    return;
  }
  if (idleBytes_ + block.size > retainBytes_) {
    lock.unlock();
    operations_.free(block);
    return;
  }
  idle_.emplace(block.size, block);
  idleBytes_ += block.size;
}

void CBlockPool::Trim() {
  std::multimap<size_t, SBlock> idle;
  {
    std::lock_guard lock(mutex_);
    CollectPassedLocked();
    idle.swap(idle_);
    idleBytes_ = 0;
  }
  for (const auto& [size, block] : idle)
    operations_.free(block);
}

uint64_t CBlockPool::IdleBytes() const {
  std::lock_guard lock(mutex_);
  return idleBytes_;
}

void CPooledHostAllocator::SetPool(std::shared_ptr<CBlockPool> pool) {
  std::lock_guard lock(mutex_);
  pool_ = std::move(pool);
}

GPUHostBlock* CPooledHostAllocator::Allocate(size_t size, uint32_t flags, uint32_t) {
  if (size == 0 || flags != 0) return nullptr;
  std::shared_ptr<CBlockPool> pool;
  {
    std::lock_guard lock(mutex_);
    pool = pool_;
  }
  if (!pool) return nullptr;
  auto* node = new (std::nothrow) SPooledHostBlock;
  if (!node) return nullptr;
  if (!pool->Acquire(size, node->raw)) {
    delete node;
    return nullptr;
  }
  node->pool = std::move(pool);
  node->data = node->raw.host;
  node->size = size;
  node->mappedView = node->raw.host;
  return node;
}

int CPooledHostAllocator::Unmap(GPUHostBlock* block) {
  if (!block) return kGPUErrorInvalidArgument;
  // Staging blocks are plain host memory that copies read directly: the view is the block.
  block->mappedView = nullptr;
  return 0;
}

void CPooledHostAllocator::Release(GPUHostBlock* block) {
  if (!block) return;
  auto* node = static_cast<SPooledHostBlock*>(block);
  node->pool->Release(node->raw);
  delete node;
}

void CPooledDeviceAllocator::SetPool(std::shared_ptr<CBlockPool> pool) {
  std::lock_guard lock(mutex_);
  pool_ = std::move(pool);
}

GPUDeviceBlock* CPooledDeviceAllocator::Allocate(size_t size, uint32_t flags, uint32_t) {
  if (size == 0 || flags != 0) return nullptr;
  std::shared_ptr<CBlockPool> pool;
  {
    std::lock_guard lock(mutex_);
    pool = pool_;
  }
  if (!pool) return nullptr;
  auto* node = new (std::nothrow) SPooledDeviceBlock;
  if (!node) return nullptr;
  if (!pool->Acquire(size, node->raw)) {
    delete node;
    return nullptr;
  }
  node->pool = std::move(pool);
  node->pointer = node->raw.device;
  node->size = size;
  return node;
}

void CPooledDeviceAllocator::Release(GPUDeviceBlock* block) {
  if (!block) return;
  auto* node = static_cast<SPooledDeviceBlock*>(block);
  node->pool->Release(node->raw);
  delete node;
}

namespace {

class CPooledDeviceTexture final : public GPUDeviceTexture {
 public:
  explicit CPooledDeviceTexture(SPooledDeviceBlock* block) : block_(block) {}
  ~CPooledDeviceTexture() override {
    block_->pool->Release(block_->raw);
    delete block_;
  }

 private:
  SPooledDeviceBlock* block_;
};

}  // namespace

std::shared_ptr<GPUDeviceTexture> UploadPooledTexture(const HostToDeviceCopy& copy,
                                                      CPooledDeviceAllocator& allocator,
                                                      const void* texels, size_t sourceRowBytes,
                                                      uint32_t width, uint32_t height,
                                                      uint32_t depth) {
  constexpr size_t kTexelBytes = 16;
  if (!texels || width == 0 || height == 0 || depth == 0) return nullptr;
  const size_t rowBytes = size_t(width) * kTexelBytes;
  size_t rows = 0, bytes = 0;
  if (__builtin_mul_overflow(size_t(height), size_t(depth), &rows) ||
      __builtin_mul_overflow(rowBytes, rows, &bytes) || (rows > 1 && sourceRowBytes < rowBytes))
    return nullptr;
  auto* block = static_cast<SPooledDeviceBlock*>(allocator.Allocate(bytes, 0, 0));
  if (!block) return nullptr;
  std::shared_ptr<CPooledDeviceTexture> texture;
  try {
    texture = std::make_shared<CPooledDeviceTexture>(block);
  } catch (const std::bad_alloc&) {
    allocator.Release(block);
    return nullptr;
  }
  if (copy(block->pointer, rowBytes, texels, sourceRowBytes, rowBytes, rows) != 0) return nullptr;
  texture->texels = block->pointer;
  texture->rowBytes = rowBytes;
  texture->width = width;
  texture->height = height;
  texture->depth = depth;
  texture->byteCount = bytes;
  return texture;
}

}  // namespace host
