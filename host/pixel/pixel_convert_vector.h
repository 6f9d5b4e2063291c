// The vector forms of the frequent row conversions (integer BGRA to float and back), one set per
// instruction set. Each converts the leading samples of a run in whole blocks and returns how
// many it converted; the caller finishes the rest one sample at a time. Every form gives the
// scalar conversion's result bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host {

struct SVectorConversions {
  /// "avx2" or "sse2".
  const char* name;
  size_t (*bgra8ToFloat)(const uint8_t* src, uint8_t* dst, size_t samples);
  size_t (*bgra16ToFloat)(const uint8_t* src, uint8_t* dst, size_t samples);
  size_t (*floatToBgra8)(const uint8_t* src, uint8_t* dst, size_t samples);
  size_t (*floatToBgra16)(const uint8_t* src, uint8_t* dst, size_t samples);
};

/// The 256-bit set; call it only where the processor has AVX2.
const SVectorConversions& VectorConversionsAVX2();

}  // namespace host
