// Heap blocks: an aligned heap buffer, its reference-counted form shared by frame buffers, and
// the deleter that hands a counted object back.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Tincta {

/// A block of bytes: either an aligned allocation of its own or memory that it only wraps.
/// `Data()` may sit above the block's start (after a shift); `Size()` counts the bytes from
/// `Data()` to the end of the block.
class COvHeapBuffer {
 public:
  static constexpr size_t kDefaultAlignment = 16;

  COvHeapBuffer() = default;
  virtual ~COvHeapBuffer();
  COvHeapBuffer(const COvHeapBuffer&) = delete;
  COvHeapBuffer& operator=(const COvHeapBuffer&) = delete;

  /// Replaces the block with a new allocation of `bytes` bytes aligned to `alignment` (a power
  /// of two, at least 16). The content is not kept. False, with the block unchanged, when the
  /// memory is not there.
  bool Allocate(size_t bytes, size_t alignment = kDefaultAlignment);

  /// Makes the block view `bytes` bytes at `memory`, which stay the caller's and are never freed.
  void Wrap(void* memory, size_t bytes);

  /// Ensures at least `bytes` bytes from `Data()` on. When the block is smaller it is replaced by
  /// an owned, aligned allocation holding the old bytes from `Data()` on, and `Data()` moves to
  /// its start. False, with the block unchanged, when the memory is not there.
  bool Reserve(size_t bytes);

  /// Moves `Data()` by `delta` bytes within the block (negative moves towards the start).
  /// The caller keeps `Data()` between the block's start and its end.
  void ShiftData(ptrdiff_t delta);

  /// Frees an owned allocation (a wrapped one is just forgotten); the block becomes empty.
  void Free();

  uint8_t* Data() const { return data_; }
  size_t Size() const { return size_; }
  /// First byte of the block (aligned when the block is owned).
  uint8_t* Start() const { return start_; }
  bool OwnsMemory() const { return owned_; }
  bool Empty() const { return data_ == nullptr; }

 private:
  uint8_t* start_ = nullptr;
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  size_t alignment_ = kDefaultAlignment;
  bool owned_ = false;
};

/// A heap buffer shared by reference count; the count starts at 1 and the last `Release`
/// destroys the buffer (an owned block is freed, wrapped memory is not). Create with `new`;
/// destroy only through `Release`.
class COvSharedBuffer final : public COvHeapBuffer {
 public:
  COvSharedBuffer() = default;

  void AddRef() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  uint32_t ReferenceCount() const noexcept { return references_.load(std::memory_order_acquire); }

 private:
  ~COvSharedBuffer() override = default;
  std::atomic<uint32_t> references_{1};
};

/// Deleter for `std::unique_ptr`/`std::shared_ptr` of counted objects: drops one reference.
template <class T>
struct CustomDeleter {
  void operator()(T* object) const noexcept {
    if (object) object->Release();
  }
};

/// Asks the system to back the whole pages of a large block that nothing has touched yet with
/// large pages, so that filling it takes a few hundred page faults instead of one per 4 KiB.
/// Only a hint: where the system has no such pages, or the block is small, nothing changes.
void HintLargePages(void* memory, size_t bytes);

}  // namespace Tincta
