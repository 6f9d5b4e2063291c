// Packed 10-bit binary cubes: "3LUT" (big-endian) and "TUL3" (little-endian).
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"
#include "lut/lut3d.h"

namespace Tincta {

/// The detector's test: the magic and the least length of the format.
bool IsPacked10Cube(const uint8_t* bytes, uint32_t length);

/// Reads the bytes (which passed `IsPacked10Cube`) into `lut`; the outcome is final.
EReadOutcome ReadPacked10Cube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
