#include "lut/formats/xml_look_reader.h"

namespace Tincta {

// PLACEHOLDER: reader not written yet.
bool LooksLikeXMLLook(const uint8_t*, uint32_t) { return false; }

EReadOutcome ReadXMLLook(COv3DLUT&, const uint8_t*, uint32_t, const SParseOptions&) {
  return EReadOutcome::Failed;
}

}  // namespace Tincta
