#include "lut/formats/color_transformation_reader.h"

namespace Tincta {

// PLACEHOLDER: reader not written yet.
EReadOutcome ReadColorTransformation(COv3DLUT&, const uint8_t*, uint32_t, const SParseOptions&) {
  return EReadOutcome::NotThisFormat;
}

}  // namespace Tincta
