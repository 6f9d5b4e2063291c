// Line kernels of the optimized frame-buffer converter, one table per instruction set. Plain
// declarations only: the kernels live in their own translation units with their own flags.
#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/simd_tier.h"

namespace Tincta {

/// Each kernel converts `groups` whole groups of one line and writes exactly the groups' bytes
/// with non-temporal stores where they are 16-byte aligned; `target` must be 16-byte aligned.
/// Float sources hold four floats per pixel; samples keep their order (channel exchange is the
/// caller's business, except in the swapping 16-bit kernel).
struct SConvertKernels {
  /// The tier's name (`SimdTierName`): "sse" or "avx2".
  const char* name;
  /// 4 pixels → 16 bytes: min(x, 1) × 255 rounded to nearest even, saturated to 0..255.
  void (*floatToRgba8)(const float* source, uint8_t* target, size_t groups);
  /// 4 pixels → 12 bytes: as above, the fourth sample dropped.
  void (*floatToRgb8)(const float* source, uint8_t* target, size_t groups);
  /// 4 pixels → 4 words: samples clamped to [0, 1], × 1023 rounded; word = s0 << 22 | s1 << 12
  /// | s2 << 2. Little-endian and big-endian words.
  void (*floatToRgb10)(const float* source, uint8_t* target, size_t groups);
  void (*floatToRgb10BigEndian)(const float* source, uint8_t* target, size_t groups);
  /// 3 pixels (12 samples) → 4 words of three samples each, same scaling and bit positions.
  void (*floatToRgba10)(const float* source, uint8_t* target, size_t groups);
  void (*floatToRgba10BigEndian)(const float* source, uint8_t* target, size_t groups);
  /// 16 pixels of four 16-bit samples → 64 bytes: the high byte of each sample.
  void (*rgba16ToRgba8)(const uint16_t* source, uint8_t* target, size_t groups);
  /// The same with the first and third sample of every pixel exchanged.
  void (*rgba16ToRgba8Swapped)(const uint16_t* source, uint8_t* target, size_t groups);
  /// Orders the non-temporal stores before anything that follows.
  void (*storeFence)();
};

/// The SSE4.1 table; call only when the processor has SSE4.1.
const SConvertKernels& ConvertKernelsSse41();
/// The AVX2 table; call only where `SimdTierOf(DetectProcessorFeatures(nullptr))` is AVX2.
const SConvertKernels& ConvertKernelsAvx2();

/// The table that runs at `tier`; null at the scalar tier, where the general path converts.
const SConvertKernels* ConvertKernelsFor(ESimdTier tier);

/// Whether this process runs any kernel table (its tier is above scalar).
bool bConvertKernelsAvailable();

/// A table whose entries go through per-kernel slots: each slot starts at a resolver that, on
/// the first call, takes the variant of `ActiveSimdTier()`, stores it in the slot and calls it.
/// Only for a process where `bConvertKernelsAvailable()` holds.
const SConvertKernels& DispatchedConvertKernels();

/// Name of the tier whose kernels the slots take ("sse", "avx2"), or "scalar".
const char* SelectedConvertKernelsName();

}  // namespace Tincta
