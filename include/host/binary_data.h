// Host-owned byte buffers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/export.h"

namespace host {

/// The host's recycled-memory allocator: blocks are kept in size classes and handed out again,
/// so that per-frame buffers of the same size do not go back to the system allocator.
class HOST_API RecycledMemory {
 public:
  /// A block of at least `bytes` bytes, 64-byte aligned, or null when the memory is not there.
  static void* Allocate(size_t bytes) noexcept;
  /// Returns a block that `Allocate(bytes)` gave. Null is ignored.
  static void Release(void* block, size_t bytes) noexcept;
  /// Drops every block kept for reuse (for tests and memory pressure).
  static void Purge() noexcept;
};

/// A move-only byte buffer that owns a block of `RecycledMemory` and gives it back when destroyed.
/// Empty (null data, size 0) when default-constructed or moved from.
class HOST_API BinaryData {
 public:
  BinaryData() = default;
  /// Takes ownership of `block`, which `RecycledMemory::Allocate(size)` returned.
  BinaryData(void* block, size_t size) noexcept;
  /// Takes `other`'s block, leaving `other` empty; assignment first gives back the block held.
  BinaryData(BinaryData&& other) noexcept;
  BinaryData& operator=(BinaryData&& other) noexcept;
  BinaryData(const BinaryData&) = delete;
  BinaryData& operator=(const BinaryData&) = delete;
  /// Gives the block back to `RecycledMemory`.
  ~BinaryData();

  /// The bytes, owned by this object and valid while it holds them; null when empty.
  const uint8_t* Data() const { return static_cast<const uint8_t*>(block_); }
  uint8_t* Data() { return static_cast<uint8_t*>(block_); }
  /// Number of bytes; 0 when empty.
  size_t Size() const { return size_; }
  /// True when no block is held.
  bool Empty() const { return block_ == nullptr; }

 private:
  void* block_ = nullptr;
  size_t size_ = 0;
};

}  // namespace host
