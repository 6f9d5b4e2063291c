// The one place where the GPU operators learn a LUT's kind, domain mapping and edge length: the
// engine's LUT binding, shared with the CPU engine.
//
// MERGE POINT: until engine/lut_binding.h is in this tree, a stand-in with the same names lives
// below in namespace Tincta::gpu_binding. Once it is merged, replace everything between the two
// markers by `#include "engine/lut_binding.h"` and `namespace Tincta::gpu_binding { using
// Tincta::ELUTKind; using Tincta::LUTKindOf; using Tincta::SDomainMapping; using
// Tincta::DomainMappingOf; }`; the GPU code then needs the alpha lanes of SDomainMapping
// (`alphaScale`, `alphaOffset`: the domain LUT's own texture scale and offset of alpha), which the
// constant block carries in its fourth lane.
#pragma once

// ---- stand-in begin ----
#include <array>
#include <cstdint>

#include "lut/lut3d.h"

namespace Tincta::gpu_binding {

/// A 1-D table, a 3-D table, or a 3-D table behind a 1-D input shaper.
enum class ELUTKind { k1D, k3D, k1D3D };

/// 1-D + 3-D when `lut` is 3-D and has an input shaper, 3-D when it is 3-D, else 1-D.
inline ELUTKind LUTKindOf(const COv3DLUT& lut) {
  if (lut.Is3D() && lut.InputShaper() != nullptr) return ELUTKind::k1D3D;
  if (lut.Is3D()) return ELUTKind::k3D;
  return ELUTKind::k1D;
}

/// coordinate = value x scale + offset per channel, with the input shaper's domain when the LUT
/// has one, else its own.
struct SDomainMapping {
  /// Red, green, blue.
  std::array<float, 3> scale{};
  std::array<float, 3> offset{};
  /// The same domain's alpha lanes.
  float alphaScale = 1.0f;
  float alphaOffset = 0.0f;
  /// Edge length of the LUT's own table (the cube's behind a shaper).
  uint32_t size = 0;
};

inline SDomainMapping DomainMappingOf(const COv3DLUT& lut) {
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

}  // namespace Tincta::gpu_binding
// ---- stand-in end ----
