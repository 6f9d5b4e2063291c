// Truelight cube text: "# Truelight Cube" header comments, an optional InputLUT block (a 1-D
// table, or the input shaper of the cube) and a Cube block.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"

namespace Tincta {

/// The detector's probe: the comment lines carry the version line " Truelight Cube v%f " before
/// the header scan stops.
bool IsTruelight(const uint8_t* bytes, uint32_t length, const SParseOptions& options);

/// Reads Truelight text that `IsTruelight` claimed into `lut`.
bool ReadTruelight(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                   const SParseOptions& options);

}  // namespace Tincta
