#include "foundation/heap_buffer.h"

#include <cstring>
#include <new>

namespace Tincta {

COvHeapBuffer::~COvHeapBuffer() { Free(); }

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

}  // namespace Tincta
