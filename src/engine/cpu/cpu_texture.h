// CPU texture units: the eight table slots that the CPU renderer samples, and the rules for
// uploading a table into one of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "foundation/heap_buffer.h"

namespace Tincta {

/// Texture kinds, numbered as OpenGL numbers them.
inline constexpr uint32_t kTexture1D = 0x0DE0;
inline constexpr uint32_t kTexture2D = 0x0DE1;
inline constexpr uint32_t kTexture3D = 0x806F;
inline constexpr uint32_t kTextureRectangle = 0x84F5;

/// Number of texture units of the CPU renderer.
inline constexpr uint32_t kCPUTextureUnitCount = 8;
/// Most texels of a 3-D texture (256^3).
inline constexpr uint64_t kMaxCPU3DTexels = 0x1000000;
/// Widest four-channel table that gets curve pairs (see `SCPUTextureUnit::curvePairs`): the
/// longest 1-D LUT.
inline constexpr uint32_t kMaxCurvePairWidth = 65536;

/// One value repeated in eight lanes, so that a 128-bit kernel loads the first four and a
/// 256-bit kernel all eight without a broadcast in the inner loop.
template <class T>
struct alignas(32) SLanes {
  T lane[8];
  void Broadcast(T value) {
    for (T& each : lane)
      each = value;
  }
  T Value() const { return lane[0]; }
};

/// The record of one texture unit as the samplers read it. Texels are one float (1 channel) or
/// four floats RGBA (4 channels); the samplers address four-float texels.
struct SCPUTextureUnit {
  /// First texel; for a flipped rectangle the first texel of the last row.
  const float* data = nullptr;
  /// A second copy of the data pointer (both point at the last row of a flipped rectangle).
  const float* dataSecond = nullptr;
  /// Four-channel tables up to kMaxCurvePairWidth wide: for red, green and blue in turn, `width`
  /// pairs (data[i].c, data[i + 1].c), the last pair repeating its texel, so that a lookup of one
  /// channel of a 1-D table reads both neighbours in one 64-bit load. Null otherwise.
  const float* curvePairs = nullptr;
  /// Bytes from one row to the next (width x channels x 4), negative when flipped.
  SLanes<int32_t> rowStride{};
  /// width x height (3-D only).
  SLanes<float> planeArea{};
  /// size - 0.501 per axis: the clamp of nearest sampling.
  std::array<SLanes<float>, 3> nearestClamp{};
  /// Width, height, depth as floats.
  std::array<SLanes<float>, 3> size{};
  /// size - 1.01 per axis: the clamp of linear sampling, which keeps the upper neighbour inside.
  std::array<SLanes<float>, 3> linearClamp{};
  /// width x channels x 4 (3-D only).
  SLanes<uint32_t> rowBytes{};
  /// rowBytes x height (3-D only).
  SLanes<uint32_t> sliceBytes{};
  /// width x 16 (3-D only).
  SLanes<uint32_t> texelRowBytes{};
  /// width x 16 x height (3-D only).
  SLanes<uint32_t> texelSliceBytes{};
  /// The texture kind; 0 while nothing is uploaded.
  SLanes<uint32_t> target{};

  // Plain copies for the code around the kernels.
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t depth = 0;
  uint32_t channels = 0;
  /// 2-D textures: log2 of the row pitch in bytes (rows are addressed by a shift).
  uint32_t rowShift = 0;
  bool flipped = false;

  bool IsLoaded() const { return data != nullptr; }
};

/// What the engine keeps of a texture: the copy of a 2-D texture, whose rows the engine re-lays at
/// a power-of-two pitch so that a row is found by a shift, and the curve pairs of a four-channel
/// table.
class COvCPUTexture {
 public:
  COvCPUTexture() = default;
  COvCPUTexture(const COvCPUTexture&) = delete;
  COvCPUTexture& operator=(const COvCPUTexture&) = delete;

  /// Copies `height` rows of `rowBytes` bytes from `source` into rows `pitch` bytes apart (the
  /// rest of each row is zero). False, texture unchanged, when the memory is not there.
  bool bCopyRows(const void* source, size_t rowBytes, uint32_t height, size_t pitch);

  /// Builds the curve pairs of the `width` four-channel texels at `texels`. False, pairs
  /// unchanged, when the memory is not there.
  bool bBuildCurvePairs(const float* texels, uint32_t width);

  const float* Data() const { return reinterpret_cast<const float*>(rows_.Data()); }
  const float* CurvePairs() const { return reinterpret_cast<const float*>(pairs_.Data()); }

 private:
  COvHeapBuffer rows_;
  COvHeapBuffer pairs_;
};

/// The engine's eight texture units.
class COvCPUTextureUnits {
 public:
  /// Uploads a table into `unit`. The table stays the caller's (except 2-D textures, which are
  /// copied) and must live until the rendering that uses it has ended. Fails, leaving the unit as
  /// it was, for a unit above 7, a target other than 1-D, 2-D, 3-D or rectangle, unit 0 with
  /// anything but a rectangle, 1 or 4 channels not given, a zero extent, a null table, a 3-D
  /// texture of more than 16,777,216 texels, rows too long for a 32-bit stride, or no memory for
  /// the engine's copy or curve pairs.
  bool bUpload(uint32_t unit, uint32_t width, uint32_t height, uint32_t depth, uint32_t target,
               uint32_t channels, const void* data, bool flip);

  /// Unit `unit` (0..7) as the samplers read it.
  const SCPUTextureUnit& Unit(uint32_t unit) const { return units_[unit]; }

  /// Empties every unit and drops the engine's texture copies.
  void Reset();

  /// Counts the uploads and resets, so that what was bound to the units can tell it is current.
  uint64_t Revision() const { return revision_; }

 private:
  uint64_t revision_ = 0;
  std::array<SCPUTextureUnit, kCPUTextureUnitCount> units_{};
  std::array<std::unique_ptr<COvCPUTexture>, kCPUTextureUnitCount> copies_{};
};

}  // namespace Tincta
