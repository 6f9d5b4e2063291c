#include "api/lut_naming.h"

#include "lut/lut_identifier.h"

namespace CRANDLE::detail {

std::string DisplayNameOf(const Tincta::COv3DLUT& lut) {
  return Tincta::LUTDisplayName(lut);
}

host::Guid IdentifierOf(const Tincta::COv3DLUT& lut) {
  return Tincta::LUTIdentifier(lut);
}

}  // namespace CRANDLE::detail
