#include "lut/formats/cube_reader.h"

namespace Tincta {

// PLACEHOLDER: reader not written yet.
EReadOutcome ReadCube(COv3DLUT&, const uint8_t*, uint32_t, const SParseOptions&) {
  return EReadOutcome::NotThisFormat;
}

}  // namespace Tincta
