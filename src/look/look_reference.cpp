#include "look/look_reference.h"

#include <cstring>

namespace Tincta {
namespace {

uint32_t ReadU32LE(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

}  // namespace

bool IsLookReference(const void* bytes, uint64_t size) {
  const auto count = static_cast<uint32_t>(size);
  if (bytes == nullptr || count < kLookReferenceBytes) return false;
  const auto* p = static_cast<const uint8_t*>(bytes);
  return std::memcmp(p, "AELT", 4) == 0 && ReadU32LE(p + 4) == 2;
}

// PLACEHOLDER: look grids are not read yet.
std::unique_ptr<COv3DLUT> LoadLookReference(const void*, uint64_t) { return nullptr; }

}  // namespace Tincta
