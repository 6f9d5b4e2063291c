// Integer mesh text (3DMESH/3DMESHHW, "LUT_SIZE :" or "entries =" headers, or a bare shaper line), blue fastest.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"
#include "lut/lut3d.h"

namespace Tincta {

/// Reads the text into `lut`, or reports that it is not this format.
EReadOutcome ReadMesh(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
