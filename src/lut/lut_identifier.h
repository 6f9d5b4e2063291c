// Identifiers and display names of LUT objects: what the exported interface hands out and what
// look documents use to name embedded and shipped LUTs.
#pragma once

#include <string>

#include "host/guid.h"
#include "lut/lut3d.h"

namespace Tincta {

/// Murmur3 over "VEXACrandle", the content digest, the title, the file title of the source path
/// and the RGB of domainMax then domainMin. Stable across calls and processes.
host::Guid LUTIdentifier(const COv3DLUT& lut);

/// The file title of the source path, else the title, else "Embedded LUT".
std::string LUTDisplayName(const COv3DLUT& lut);

}  // namespace Tincta
