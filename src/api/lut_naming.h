// Display names and identifiers of LUT objects.
#pragma once

#include <string>

#include "host/guid.h"
#include "lut/lut3d.h"

namespace CRANDLE::detail {

/// The file title of the source path, else the title, else "Embedded LUT".
std::string DisplayNameOf(const Tincta::COv3DLUT& lut);

/// Murmur3 over "VEXACrandle", the content digest, the title, the file title of the source path
/// and the RGB of domainMax then domainMin.
host::Guid IdentifierOf(const Tincta::COv3DLUT& lut);

}  // namespace CRANDLE::detail
