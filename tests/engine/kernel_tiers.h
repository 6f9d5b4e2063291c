// The kernel tables under test: both tiers in one process, the 256-bit one only where the
// processor runs it.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "engine/cpu/cpu_kernels.h"
#include "foundation/cpu_features.h"

namespace crandle_test {

enum class ETier { SSE, AVX2 };

inline bool TierRunsHere(ETier tier) {
  if (tier == ETier::SSE) return true;
  const Tincta::SProcessorFeatures& f = Tincta::ProcessorFeatures();
  return f.avx && f.avx2 && f.fma && f.osSavesYmm;
}

inline const Tincta::SCPUKernelTable& TierTable(ETier tier) {
  return tier == ETier::SSE ? Tincta::CPUKernelsSSE() : Tincta::CPUKernelsAVX2();
}

inline std::string TierName(const testing::TestParamInfo<ETier>& info) {
  return info.param == ETier::SSE ? "SSE" : "AVX2";
}

/// Distance in units in the last place between two floats of the same sign region; NaN against
/// anything but NaN is infinitely far.
inline int64_t UlpDistance(float a, float b) {
  if (std::isnan(a) || std::isnan(b)) {
    return std::isnan(a) && std::isnan(b) ? 0 : std::numeric_limits<int64_t>::max();
  }
  auto ordered = [](float v) {
    const auto bits = std::bit_cast<int32_t>(v);
    return bits < 0 ? int64_t(std::numeric_limits<int32_t>::min()) - bits : int64_t(bits);
  };
  const int64_t d = ordered(a) - ordered(b);
  return d < 0 ? -d : d;
}

/// Fixture for tests that run once per tier; the 256-bit tier is skipped where it cannot run.
class TierTest : public testing::TestWithParam<ETier> {
 protected:
  void SetUp() override {
    if (!TierRunsHere(GetParam())) GTEST_SKIP() << "this processor has no AVX2 + FMA";
  }
  const Tincta::SCPUKernelTable& Kernels() const { return TierTable(GetParam()); }
};

}  // namespace crandle_test
