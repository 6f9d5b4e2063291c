#include "lut/formats/packed10_reader.h"

namespace Tincta {

// PLACEHOLDER: reader not written yet.
bool IsPacked10Cube(const uint8_t*, uint32_t) { return false; }

EReadOutcome ReadPacked10Cube(COv3DLUT&, const uint8_t*, uint32_t, const SParseOptions&) {
  return EReadOutcome::Failed;
}

}  // namespace Tincta
