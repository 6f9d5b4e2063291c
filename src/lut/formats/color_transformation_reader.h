// The last resort for text: a colour transformation baked into a 1024-entry 1-D table.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"
#include "lut/lut3d.h"

namespace Tincta {

/// Reads the text into `lut`, or reports that it is not this format.
EReadOutcome ReadColorTransformation(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
