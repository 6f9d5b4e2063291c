// Cube text: TITLE, DOMAIN_MIN/DOMAIN_MAX and LUT_*_SIZE lines, then RGB data lines, red fastest.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"

namespace Tincta {

/// The detector's probe: a size line comes before the first data line, and no later size line
/// of 0 entries hands the text on before the read would end.
bool IsCube(const uint8_t* bytes, uint32_t length, const SParseOptions& options);

/// Reads cube text that `IsCube` claimed into `lut`.
bool ReadCube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
