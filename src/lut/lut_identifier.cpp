#include "lut/lut_identifier.h"

#include "foundation/path_title.h"
#include "host/hash.h"

namespace Tincta {

std::string LUTDisplayName(const COv3DLUT& lut) {
  std::string name;
  if (!lut.SourcePath().empty()) name = PathTitleUtf8(lut.SourcePath());
  if (name.empty()) name = lut.Title();
  if (name.empty()) name = "Embedded LUT";
  return name;
}

host::Guid LUTIdentifier(const COv3DLUT& lut) {
  static constexpr char kSalt[] = "VEXACrandle";
  host::Murmur3MixerState state;
  state.Mix(kSalt, sizeof(kSalt) - 1);

  // The digest travels through the host's Guid byte conversions, as every Guid-shaped value does.
  unsigned char digest[16];
  host::Guid::GuidFromBytes(lut.ContentDigest().data()).GuidToBytes(digest);
  state.Mix(digest, sizeof(digest));

  state.Mix(lut.Title().data(), lut.Title().size());
  if (!lut.SourcePath().empty()) {
    const std::string fileTitle = PathTitleUtf8(lut.SourcePath());
    state.Mix(fileTitle.data(), fileTitle.size());
  }
  const Vec4& max = lut.DomainMax();
  const Vec4& min = lut.DomainMin();
  for (int c = 0; c < 3; ++c)
    state.Mix(&max[c], sizeof(float));
  for (int c = 0; c < 3; ++c)
    state.Mix(&min[c], sizeof(float));
  return state.GetHashResult();
}

}  // namespace Tincta
