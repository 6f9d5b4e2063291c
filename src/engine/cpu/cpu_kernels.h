// The CPU renderer's samplers and pixel kernels, one table per instruction set. The tables are
// built in kernels_sse.cpp (128-bit SSE4.1) and kernels_avx2.cpp (256-bit AVX2 with fused
// multiply-add); this header carries no intrinsics so that any file may include it.
//
// Pixels are RGBA float32 quadruples. Where a kernel takes a source and a destination, the two
// may be the same memory but must not overlap otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/cpu/cpu_texture.h"
#include "foundation/simd_tier.h"

namespace Tincta {

/// Pixels per sampler call.
inline constexpr size_t kSamplerLanes = 8;

/// The mapping of a LUT's input domain onto texture coordinates: s = value x scale + offset,
/// per channel (red, green, blue, alpha).
struct SLUTDomainMapping {
  float scale[4] = {1, 1, 1, 1};
  float offset[4] = {0, 0, 0, 0};
};

/// How a LUT program writes its destination. kStreamed writes around the caches (non-temporal
/// stores) where the destination is not the source and is aligned to the table's vector width:
/// for a destination far larger than the caches, which nothing reads soon, it saves reading each
/// line before it is overwritten. Results are the same either way.
enum class EDestinationWrites { kCached, kStreamed };

struct SCPUKernelTable {
  /// The tier's name (`SimdTierName`): "sse" or "avx2".
  const char* name;

  /// 1-D linear sampling of `unit` over its width at 8 coordinates `s`; writes 8 RGBA texels
  /// (32 floats, pixel after pixel) to `texels`.
  void (*sample1D)(const SCPUTextureUnit& unit, const float* s, float* texels);
  /// 3-D trilinear sampling of `unit` at 8 coordinates (s, t, r); writes 8 RGBA texels.
  void (*sample3D)(const SCPUTextureUnit& unit, const float* s, const float* t, const float* r,
                   float* texels);

  /// first = (first - second) x k + second on red, green and blue; first's alpha is kept.
  void (*mix)(float* first, const float* second, float k, size_t pixels);
  /// Exchanges the first and third float of each pixel, in place.
  void (*swapRedBlue)(float* pixels, size_t count);
  /// Copies `bytes` bytes; the blocks must not overlap.
  void (*copyBlock)(void* destination, const void* source, size_t bytes);
  /// Writes `value` into `count` consecutive 32-bit words.
  void (*fill32)(void* destination, uint32_t value, size_t count);

  /// The LUT programs. Each maps every pixel's red, green and blue through `mapping`, samples
  /// the table(s) and keeps the source pixel's alpha. `table` is a 1-D table for applyLUT1D and
  /// a 3-D table for applyLUT3D; applyLUT1D3D runs `shaper` 1-D per channel and samples `cube`
  /// trilinearly at the shaper's output. `writes` says how the destination is written.
  void (*applyLUT1D)(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                     const float* source, float* destination, size_t pixels,
                     EDestinationWrites writes);
  void (*applyLUT3D)(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                     const float* source, float* destination, size_t pixels,
                     EDestinationWrites writes);
  void (*applyLUT1D3D)(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                       const SLUTDomainMapping& mapping, const float* source, float* destination,
                       size_t pixels, EDestinationWrites writes);

  /// The LUT programs fused with the red-blue exchanges around them, for frames held blue first:
  /// bit for bit swapRedBlue over `source`, the program from `source` to `destination`, then
  /// swapRedBlue over `destination`, in one pass. `exchangedSource` is `source` itself, which
  /// then keeps its pixels exchanged (unless it is the destination, which ends up holding the
  /// result blue first), or null where nothing reads the source afterwards: it is left as it was.
  void (*applyLUT1DExchanging)(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                               const float* source, float* exchangedSource, float* destination,
                               size_t pixels, EDestinationWrites writes);
  void (*applyLUT3DExchanging)(const SCPUTextureUnit& table, const SLUTDomainMapping& mapping,
                               const float* source, float* exchangedSource, float* destination,
                               size_t pixels, EDestinationWrites writes);
  void (*applyLUT1D3DExchanging)(const SCPUTextureUnit& shaper, const SCPUTextureUnit& cube,
                                 const SLUTDomainMapping& mapping, const float* source,
                                 float* exchangedSource, float* destination, size_t pixels,
                                 EDestinationWrites writes);
};

/// The 128-bit table; runs on every processor with SSE4.1.
const SCPUKernelTable& CPUKernelsSSE();
/// The 256-bit table; call its kernels only where the processor-feature record allows them.
const SCPUKernelTable& CPUKernelsAVX2();
/// The table that runs at `tier`: the 256-bit one at AVX2, else the 128-bit one (the engine has
/// no scalar table, so it needs SSE4.1).
const SCPUKernelTable& CPUKernelsFor(ESimdTier tier);
/// The table of this process: `CPUKernelsFor(ActiveSimdTier())`.
const SCPUKernelTable& ActiveCPUKernels();

}  // namespace Tincta
