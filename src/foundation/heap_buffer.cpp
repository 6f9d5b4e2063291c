#include "foundation/heap_buffer.h"

#include <cstring>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace Tincta {

COvHeapBuffer::~COvHeapBuffer() {
  Free();
}

bool COvHeapBuffer::Allocate(size_t bytes, size_t alignment) {
  if (alignment < kDefaultAlignment || (alignment & (alignment - 1)) != 0) return false;
  // Zero-byte requests still get a block so that Data() tells "allocated" from "empty".
  void* block = ::operator new[](bytes == 0 ? 1 : bytes, std::align_val_t(alignment), std::nothrow);
  if (!block) return false;
  Free();
  start_ = data_ = static_cast<uint8_t*>(block);
  size_ = bytes;
  alignment_ = alignment;
  owned_ = true;
  return true;
}

void COvHeapBuffer::Wrap(void* memory, size_t bytes) {
  Free();
  start_ = data_ = static_cast<uint8_t*>(memory);
  size_ = bytes;
  owned_ = false;
}

bool COvHeapBuffer::Reserve(size_t bytes) {
  if (bytes <= size_ && data_) return true;
  const size_t alignment = alignment_;
  void* block = ::operator new[](bytes == 0 ? 1 : bytes, std::align_val_t(alignment), std::nothrow);
  if (!block) return false;
  if (data_ && size_ != 0) std::memcpy(block, data_, size_);
  Free();
  start_ = data_ = static_cast<uint8_t*>(block);
  size_ = bytes;
  alignment_ = alignment;
  owned_ = true;
  return true;
}

void COvHeapBuffer::ShiftData(ptrdiff_t delta) {
  data_ += delta;
  size_ = static_cast<size_t>(static_cast<ptrdiff_t>(size_) - delta);
}

void COvHeapBuffer::Free() {
  if (owned_ && start_) ::operator delete[](start_, std::align_val_t(alignment_));
  start_ = data_ = nullptr;
  size_ = 0;
  owned_ = false;
}

void HintLargePages(void* memory, size_t bytes) {
#if defined(__linux__)
  constexpr uintptr_t kLargePage = 2 * 1024 * 1024;
  if (memory == nullptr || bytes < 2 * kLargePage) return;
  // Only whole pages of the block are advised: the pages at its ends may hold other allocations.
  const long pageSize = sysconf(_SC_PAGESIZE);
  if (pageSize <= 0) return;
  const auto page = static_cast<uintptr_t>(pageSize);
  const auto start = reinterpret_cast<uintptr_t>(memory);
  const uintptr_t first = (start + page - 1) / page * page;
  const uintptr_t end = (start + bytes) / page * page;
  if (end > first) madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#else
  (void)memory;
  (void)bytes;
#endif
}

}  // namespace Tincta
