// The base of all frame buffers: a small run-time type record that every constructor fills.
#pragma once

#include <cstdint>

namespace Tincta {

/// Base class of the library's frame buffers. Each constructor along the class chain registers
/// its class's identifier, so a buffer can tell which classes it is an instance of.
class COvFrameBuffer {
 public:
  static constexpr uint32_t kTypeId = 0x46425546;  // "FBUF"

  virtual ~COvFrameBuffer() = default;

  /// True when the buffer is an instance of the class with identifier `typeId`.
  bool IsKindOf(uint32_t typeId) const;
  /// Identifier of the most derived class.
  uint32_t TypeId() const { return typeIds_[typeCount_ - 1]; }

 protected:
  COvFrameBuffer() { RegisterType(kTypeId); }
  COvFrameBuffer(const COvFrameBuffer&) : COvFrameBuffer() {}
  COvFrameBuffer& operator=(const COvFrameBuffer&) { return *this; }
  void RegisterType(uint32_t typeId);

 private:
  static constexpr uint32_t kMaxDepth = 4;
  uint32_t typeIds_[kMaxDepth] = {};
  uint32_t typeCount_ = 0;
};

}  // namespace Tincta
