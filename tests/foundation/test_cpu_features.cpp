// The processor-feature record against the kernel's own report, and the "sse" switch.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "foundation/cpu_features.h"

namespace {

// The feature flags the kernel lists for the first processor; empty when it cannot be read.
std::set<std::string> KernelFlags() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("flags", 0) != 0) continue;
    std::istringstream words(line.substr(line.find(':') + 1));
    std::set<std::string> flags;
    for (std::string word; words >> word;)
      flags.insert(word);
    return flags;
  }
  return {};
}

TEST(ProcessorFeatures, AgreeWithTheKernel) {
  const auto flags = KernelFlags();
  if (flags.empty()) GTEST_SKIP() << "/proc/cpuinfo has no flags line";
  const auto features = Tincta::DetectProcessorFeatures(nullptr);
  EXPECT_EQ(features.sse41, flags.count("sse4_1") == 1);
  EXPECT_EQ(features.sse42, flags.count("sse4_2") == 1);
  EXPECT_EQ(features.fma, flags.count("fma") == 1);
  EXPECT_EQ(features.f16c, flags.count("f16c") == 1);
  EXPECT_EQ(features.avx2, flags.count("avx2") == 1);
  // The kernel lists avx only when it saves the 256-bit registers.
  EXPECT_EQ(features.avx && features.osSavesYmm, flags.count("avx") == 1);
  const bool wide = flags.count("avx") && flags.count("avx2") && flags.count("fma");
  EXPECT_EQ(features.Use256BitKernels(), wide);
  EXPECT_STREQ(Tincta::KernelTierName(features), wide ? "avx2" : "sse");
}

TEST(ProcessorFeatures, OverrideSwitchesOnlyTheWideKernelsOff) {
  const auto detected = Tincta::DetectProcessorFeatures(nullptr);
  struct Case {
    const char* value;
    bool switchedOff;
  };
  const Case cases[] = {
      {"sse", true}, {"avx2", false}, {"", false}, {"sse4", false}, {"SSE", false}};
  for (const Case& c : cases) {
    const auto features = Tincta::DetectProcessorFeatures(c.value);
    EXPECT_EQ(features.wideVectorsSwitchedOff, c.switchedOff) << c.value;
    // Detection itself is unchanged.
    EXPECT_EQ(features.avx2, detected.avx2);
    EXPECT_EQ(features.sse42, detected.sse42);
    if (c.switchedOff) {
      EXPECT_FALSE(features.Use256BitKernels());
      EXPECT_STREQ(Tincta::KernelTierName(features), "sse");
    } else {
      EXPECT_EQ(features.Use256BitKernels(), detected.Use256BitKernels());
    }
  }
}

// The process record reads CRANDLE_CPU_ISA once, at first use: checked in a fresh process.
TEST(ProcessorFeatures, EnvironmentOverrideAtFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("CRANDLE_CPU_ISA", "sse", 1);
        const auto& features = Tincta::ProcessorFeatures();
        ::setenv("CRANDLE_CPU_ISA", "avx2", 1);
        const bool ok = features.wideVectorsSwitchedOff &&
                        Tincta::ProcessorFeatures().wideVectorsSwitchedOff &&
                        std::string(Tincta::KernelTierName(features)) == "sse";
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
