#include "lut/formats/float_image_reader.h"

namespace Tincta {

// PLACEHOLDER: reader not written yet.
bool IsFloatImage(const uint8_t*, uint32_t) { return false; }

EReadOutcome ReadFloatImage(COv3DLUT&, const uint8_t*, uint32_t, const SParseOptions&) {
  return EReadOutcome::Failed;
}

}  // namespace Tincta
