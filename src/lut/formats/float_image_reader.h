// Binary float LUT images: "OVTX" (16-byte header, domain 0..1) and "OTX2"/"OTX3" (40-byte header
// with a domain).
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"

namespace Tincta {

/// The detector's probe: the magic and the least length of the format.
bool IsFloatImage(const uint8_t* bytes, uint32_t length, const SParseOptions& options);

/// Reads the bytes (which passed `IsFloatImage`) into `lut`.
bool ReadFloatImage(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                    const SParseOptions& options);

}  // namespace Tincta
