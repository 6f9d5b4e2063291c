// Cube text: TITLE, DOMAIN_MIN/DOMAIN_MAX and LUT_*_SIZE lines, then RGB data lines, red fastest.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"
#include "lut/lut3d.h"

namespace Tincta {

/// Reads the text into `lut`, or reports that it is not this format.
EReadOutcome ReadCube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
