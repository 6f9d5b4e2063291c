// The SIMD tier: which instruction-set variant of the vector kernels this process runs. Every
// kernel family (the CPU engine's samplers and programs, the frame-buffer converters) picks its
// variant from this one choice, so the families never disagree and one switch forces them all.
#pragma once

#include "foundation/cpu_features.h"

namespace Tincta {

/// Tiers nest: each one's processor needs include those of the tiers below it.
enum class ESimdTier {
  /// No vector kernels: the processor lacks SSE4.1.
  kScalar,
  /// 128-bit SSE4.1 kernels.
  kSSE,
  /// 256-bit AVX2 kernels with fused multiply-add.
  kAVX2,
};

/// The tier's name, which is also the word CRANDLE_CPU_ISA takes for it: "scalar", "sse",
/// "avx2".
constexpr const char* SimdTierName(ESimdTier tier) {
  switch (tier) {
    case ESimdTier::kScalar:
      return "scalar";
    case ESimdTier::kSSE:
      return "sse";
    case ESimdTier::kAVX2:
      return "avx2";
  }
  return "scalar";
}

/// The best tier that `features` allows: AVX2 where the processor has AVX, AVX2 and FMA, the
/// operating system saves the 256-bit registers and the record's switch-off flag is clear; else
/// SSE where it has SSE4.1; else scalar. Pass `DetectProcessorFeatures(nullptr)` for what the
/// hardware itself can run.
ESimdTier SimdTierOf(const SProcessorFeatures& features);

/// The tier of this process: `SimdTierOf(ProcessorFeatures())`, chosen on first use (so
/// CRANDLE_CPU_ISA=sse caps it at SSE) and never changed afterwards.
ESimdTier ActiveSimdTier();

}  // namespace Tincta
