#include "foundation/cpu_features.h"

#include <cpuid.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/simd_tier.h"

namespace Tincta {
namespace {

uint64_t ReadXcr0() {
  uint32_t eax = 0;
  uint32_t edx = 0;
  __asm__ volatile("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
  return (uint64_t(edx) << 32) | eax;
}

}  // namespace

SProcessorFeatures DetectProcessorFeatures(const char* isaOverride) {
  SProcessorFeatures features;
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  const unsigned maxLeaf = __get_cpuid_max(0, nullptr);
  if (maxLeaf >= 1 && __get_cpuid(1, &eax, &ebx, &ecx, &edx)) {
    features.sse41 = (ecx & bit_SSE4_1) != 0;
    features.sse42 = (ecx & bit_SSE4_2) != 0;
    features.fma = (ecx & bit_FMA) != 0;
    features.f16c = (ecx & bit_F16C) != 0;
    features.avx = (ecx & bit_AVX) != 0;
    const bool osxsave = (ecx & bit_OSXSAVE) != 0;
    features.osSavesYmm = osxsave && (ReadXcr0() & 0x6) == 0x6;
  }
  if (maxLeaf >= 7 && __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
    features.avx2 = (ebx & bit_AVX2) != 0;
  }
  features.wideVectorsSwitchedOff =
      isaOverride != nullptr && std::strcmp(isaOverride, SimdTierName(ESimdTier::kSSE)) == 0;
  return features;
}

const SProcessorFeatures& ProcessorFeatures() {
  static const SProcessorFeatures features =
      DetectProcessorFeatures(std::getenv("CRANDLE_CPU_ISA"));
  return features;
}

}  // namespace Tincta
