// Compiled with -msse4.2; called only when the processor has it.
#include <nmmintrin.h>

#include <cstring>

#include "foundation/crc32c.h"

namespace Tincta {

uint32_t Crc32cSse42(const void* bytes, size_t count, uint32_t crc) {
  const auto* p = static_cast<const uint8_t*>(bytes);
  uint64_t value = ~crc;
  while (count >= 8) {
    uint64_t word;
    std::memcpy(&word, p, 8);
    value = _mm_crc32_u64(value, word);
    p += 8;
    count -= 8;
  }
  auto narrow = static_cast<uint32_t>(value);
  while (count-- > 0) narrow = _mm_crc32_u8(narrow, *p++);
  return ~narrow;
}

}  // namespace Tincta
