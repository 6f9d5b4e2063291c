// The processor-feature record: what the processor and the operating system support, detected
// once per process, and whether the 256-bit kernels have been switched off. Which kernels run
// follows from it in foundation/simd_tier.h.
#pragma once

namespace Tincta {

struct SProcessorFeatures {
  bool sse41 = false;
  bool sse42 = false;
  bool avx = false;
  bool avx2 = false;
  bool fma = false;
  bool f16c = false;
  /// The operating system saves the 256-bit registers (XGETBV reports XMM and YMM state).
  bool osSavesYmm = false;
  /// Set by CRANDLE_CPU_ISA=sse: the 256-bit kernels are not used even where they would run.
  bool wideVectorsSwitchedOff = false;
};

/// The record of this process: detected on first use, never changed afterwards.
const SProcessorFeatures& ProcessorFeatures();

/// Detects the features of this processor, applying `isaOverride` ("sse" switches the 256-bit
/// kernels off; "avx2", null or anything else leaves the detection as it is).
SProcessorFeatures DetectProcessorFeatures(const char* isaOverride);

}  // namespace Tincta
