#include "foundation/simd_tier.h"

namespace Tincta {

ESimdTier SimdTierOf(const SProcessorFeatures& features) {
  if (!features.sse41) return ESimdTier::kScalar;
  const bool wideUsable = features.avx && features.avx2 && features.fma && features.osSavesYmm;
  return wideUsable && !features.wideVectorsSwitchedOff ? ESimdTier::kAVX2 : ESimdTier::kSSE;
}

ESimdTier ActiveSimdTier() {
  static const ESimdTier tier = SimdTierOf(ProcessorFeatures());
  return tier;
}

}  // namespace Tincta
