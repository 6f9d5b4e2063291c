// CRC-32C (Castagnoli), as used for registry keys.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Tincta {

/// CRC-32C of `count` bytes, continuing from `crc` (0 to start). Uses the SSE4.2 instruction
/// when the processor has it, else a table; both give the same result.
uint32_t Crc32c(const void* bytes, size_t count, uint32_t crc = 0);

/// The table implementation (always available).
uint32_t Crc32cTable(const void* bytes, size_t count, uint32_t crc = 0);
/// The SSE4.2 implementation; call only when `ProcessorFeatures().sse42` is true.
uint32_t Crc32cSse42(const void* bytes, size_t count, uint32_t crc = 0);

}  // namespace Tincta
