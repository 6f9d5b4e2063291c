#include "host/binary_data.h"

#include <array>
#include <mutex>
#include <new>
#include <vector>

namespace host {
namespace {

constexpr size_t kAlignment = 64;
constexpr size_t kClassCount = 48;
constexpr size_t kKeptPerClass = 4;

// Size classes are powers of two, so a freed block serves any later request of its class.
size_t ClassOf(size_t bytes) {
  size_t cls = 0;
  while ((size_t(1) << cls) < bytes && cls + 1 < kClassCount) ++cls;
  return cls;
}

struct SPool {
  std::mutex mutex;
  std::array<std::vector<void*>, kClassCount> kept;

  ~SPool() { Purge(); }

  void Purge() {
    std::lock_guard lock(mutex);
    for (auto& blocks : kept) {
      for (void* block : blocks) ::operator delete[](block, std::align_val_t(kAlignment));
      blocks.clear();
    }
  }
};

SPool& Pool() {
  static SPool pool;
  return pool;
}

}  // namespace

void* RecycledMemory::Allocate(size_t bytes) noexcept {
  const size_t cls = ClassOf(bytes == 0 ? 1 : bytes);
  if ((size_t(1) << cls) < bytes) return nullptr;
  SPool& pool = Pool();
  {
    std::lock_guard lock(pool.mutex);
    auto& blocks = pool.kept[cls];
    if (!blocks.empty()) {
      void* block = blocks.back();
      blocks.pop_back();
      return block;
    }
  }
  return ::operator new[](size_t(1) << cls, std::align_val_t(kAlignment), std::nothrow);
}

void RecycledMemory::Release(void* block, size_t bytes) noexcept {
  if (!block) return;
  const size_t cls = ClassOf(bytes == 0 ? 1 : bytes);
  SPool& pool = Pool();
  {
    std::lock_guard lock(pool.mutex);
    auto& blocks = pool.kept[cls];
    if (blocks.size() < kKeptPerClass) {
      try {
        blocks.push_back(block);
        return;
      } catch (...) {
        // No room to remember the block: free it below.
      }
    }
  }
  ::operator delete[](block, std::align_val_t(kAlignment));
}

void RecycledMemory::Purge() noexcept { Pool().Purge(); }

BinaryData::BinaryData(void* block, size_t size) noexcept : block_(block), size_(block ? size : 0) {}

BinaryData::BinaryData(BinaryData&& other) noexcept : block_(other.block_), size_(other.size_) {
  other.block_ = nullptr;
  other.size_ = 0;
}

BinaryData& BinaryData::operator=(BinaryData&& other) noexcept {
  if (this != &other) {
    RecycledMemory::Release(block_, size_);
    block_ = other.block_;
    size_ = other.size_;
    other.block_ = nullptr;
    other.size_ = 0;
  }
  return *this;
}

BinaryData::~BinaryData() { RecycledMemory::Release(block_, size_); }

}  // namespace host
