// The last resort for text: a colour transformation baked into a 1024-entry 1-D table.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"

namespace Tincta {

/// The detector's probe: the caller allows transformation text and a 1-D table. Whatever text
/// reaches this last step is then this reader's to accept or refuse.
bool IsColorTransformationAllowed(const uint8_t* bytes, uint32_t length,
                                  const SParseOptions& options);

/// Reads the text as a colour transformation and bakes it into `lut`.
bool ReadColorTransformation(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                             const SParseOptions& options);

}  // namespace Tincta
