// Truelight cube text: commented header, optional InputLUT shaper, Cube block.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"
#include "lut/lut3d.h"

namespace Tincta {

/// Reads the text into `lut`, or reports that it is not this format.
EReadOutcome ReadTruelight(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
