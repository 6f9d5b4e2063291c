// Packed 10-bit binary cubes: "3LUT" (big-endian) and "TUL3" (little-endian).
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"

namespace Tincta {

/// The detector's probe: the magic and the least length of the format.
bool IsPacked10Cube(const uint8_t* bytes, uint32_t length, const SParseOptions& options);

/// Reads the bytes (which passed `IsPacked10Cube`) into `lut`.
bool ReadPacked10Cube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                      const SParseOptions& options);

}  // namespace Tincta
