#include "engine/lut_binding.h"

#include "lut/lut3d.h"

namespace Tincta {

ELUTKind LUTKindOf(const COv3DLUT& lut) {
  if (lut.Is3D() && lut.InputShaper() != nullptr) return ELUTKind::k1D3D;
  if (lut.Is3D()) return ELUTKind::k3D;
  return ELUTKind::k1D;
}

std::string_view LUTKindName(ELUTKind kind) {
  switch (kind) {
    case ELUTKind::k1D3D:
      return kLUTKind1D3D;
    case ELUTKind::k3D:
      return kLUTKind3D;
    case ELUTKind::k1D:
      break;
  }
  return kLUTKind1D;
}

SLUTTextureUnits LUTTextureUnits(ELUTKind kind) {
  if (kind == ELUTKind::k1D3D) return SLUTTextureUnits{2, 1};
  return SLUTTextureUnits{1, 0};
}

SDomainMapping DomainMappingOf(const COv3DLUT& lut) {
  const COv3DLUT& domain = lut.InputShaper() != nullptr ? *lut.InputShaper() : lut;
  SDomainMapping mapping;
  for (int c = 0; c < 3; ++c) {
    mapping.scale[c] = domain.TextureScale()[c];
    mapping.offset[c] = domain.TextureOffset()[c];
  }
  mapping.alphaScale = domain.TextureScale()[3];
  mapping.alphaOffset = domain.TextureOffset()[3];
  mapping.size = lut.Size();
  return mapping;
}

std::array<SDomainParameter, 8> DomainParameters(const SDomainMapping& mapping) {
  return {{
      {kDomainScaleParameters[0], mapping.scale[0]},
      {kDomainScaleParameters[1], mapping.scale[1]},
      {kDomainScaleParameters[2], mapping.scale[2]},
      {kDomainScaleParameters[3], 1.0},
      {kDomainOffsetParameters[0], mapping.offset[0]},
      {kDomainOffsetParameters[1], mapping.offset[1]},
      {kDomainOffsetParameters[2], mapping.offset[2]},
      {kDomainOffsetParameters[3], 0.0},
  }};
}

}  // namespace Tincta
