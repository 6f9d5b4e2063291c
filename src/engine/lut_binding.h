// What an engine needs to know of a LUT to apply it: its kind, the texture unit of each of its
// tables and the mapping of input values onto the table. The CPU engine's LUT programs and the GPU
// LUT operators take these facts from here, so that neither side composes them on its own.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace Tincta {

class COv3DLUT;

/// A 1-D table, a 3-D table, or a 3-D table behind a 1-D input shaper.
enum class ELUTKind { k1D, k3D, k1D3D };

/// The names of the kinds, which select the CPU engine's native LUT programs.
inline constexpr std::string_view kLUTKind1D = "ORVANE.LUT.1D";
inline constexpr std::string_view kLUTKind3D = "ORVANE.LUT.3D";
inline constexpr std::string_view kLUTKind1D3D = "ORVANE.LUT.1D3D";

/// 1-D + 3-D when `lut` is 3-D and has an input shaper, 3-D when it is 3-D, else 1-D: the shaper
/// of a 1-D LUT does not change its kind.
ELUTKind LUTKindOf(const COv3DLUT& lut);

/// kLUTKind1D, kLUTKind3D or kLUTKind1D3D (each ends in a NUL, for callers that need C text).
std::string_view LUTKindName(ELUTKind kind);

/// The CPU texture units of a kind's tables.
struct SLUTTextureUnits {
  /// The LUT's own table: unit 1, or unit 2 behind a shaper.
  uint32_t table = 1;
  /// The input shaper's table (unit 1) for 1-D + 3-D; 0 (no shaper) for the other kinds.
  uint32_t shaper = 0;
};
SLUTTextureUnits LUTTextureUnits(ELUTKind kind);

/// How input values reach a table: coordinate = value × scale + offset, per channel, with the
/// domain of the input shaper when the LUT has one (whatever its kind), else the LUT's own.
struct SDomainMapping {
  /// Red, green, blue.
  std::array<float, 3> scale{};
  std::array<float, 3> offset{};
  /// The same domain's own texture scale and offset of alpha, which the GPU constant block
  /// carries in its fourth lane (no kernel reads it).
  float alphaScale = 1.0f;
  float alphaOffset = 0.0f;
  /// Edge length of the LUT's own table (the cube's behind a shaper): the texture size that the
  /// tetrahedral kernels need.
  uint32_t size = 0;

  /// Scale and offset in blue, green, red, alpha order, for frames held blue first; alpha maps
  /// with scale 1 and offset 0, so it passes through.
  std::array<float, 4> ScaleBGRA() const { return {scale[2], scale[1], scale[0], 1.0f}; }
  std::array<float, 4> OffsetBGRA() const { return {offset[2], offset[1], offset[0], 0.0f}; }
};
SDomainMapping DomainMappingOf(const COv3DLUT& lut);

/// The names of the domain's script parameters: x, y, z for red, green, blue, then w.
inline constexpr const char* kDomainScaleParameters[4] = {"__scale1.x", "__scale1.y", "__scale1.z",
                                                          "__scale1.w"};
inline constexpr const char* kDomainOffsetParameters[4] = {"__offset1.x", "__offset1.y",
                                                           "__offset1.z", "__offset1.w"};

struct SDomainParameter {
  const char* name;
  double value;
};

/// The eight script parameters of `mapping`, in the order they are set: the scales of red, green
/// and blue and 1.0, then the offsets of red, green and blue and 0.0; each float widened.
std::array<SDomainParameter, 8> DomainParameters(const SDomainMapping& mapping);

}  // namespace Tincta
