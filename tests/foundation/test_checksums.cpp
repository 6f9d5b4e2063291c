// CRC-32C against its check value and its two implementations against each other; the
// processor-feature record behind that choice and the SIMD tier of the kernel tables, against the
// kernel's own report, with its "sse" switch. MD5 is pinned by the golden values of tests/api.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "foundation/cpu_features.h"
#include "foundation/crc32c.h"
#include "foundation/simd_tier.h"

namespace {

std::vector<uint8_t> RandomBytes(size_t count) {
  std::mt19937 random(3);
  std::vector<uint8_t> bytes(count);
  for (auto& b : bytes)
    b = uint8_t(random());
  return bytes;
}

TEST(CRC32C, CheckValueAndContinuation) {
  EXPECT_EQ(Tincta::Crc32c("123456789", 9), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32cTable("123456789", 9), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32c("56789", 5, Tincta::Crc32c("1234", 4)), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32c(nullptr, 0), 0u);
}

// Every length through the 8-byte steps and their tails, at every alignment and start value.
TEST(CRC32C, InstructionEqualsTable) {
  if (!Tincta::ProcessorFeatures().sse42) GTEST_SKIP() << "this processor has no SSE4.2";
  const auto buffer = RandomBytes(72);
  for (size_t offset = 0; offset < 8; ++offset)
    for (size_t length = 0; length <= 64; ++length)
      for (uint32_t start : {0u, 0xFFFFFFFFu, 0x12345678u})
        ASSERT_EQ(Tincta::Crc32cSse42(&buffer[offset], length, start),
                  Tincta::Crc32cTable(&buffer[offset], length, start))
            << offset << " " << length << " " << start;
}

TEST(ProcessorFeatures, AgreeWithTheKernel) {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line) && line.rfind("flags", 0) != 0) {
  }
  std::istringstream words(line.substr(line.find(':') + 1));
  std::set<std::string> flags;
  for (std::string word; words >> word;)
    flags.insert(word);
  if (flags.empty()) GTEST_SKIP() << "/proc/cpuinfo has no flags line";
  const auto features = Tincta::DetectProcessorFeatures(nullptr);
  for (const auto& [flag, name] : {std::pair{features.sse41, "sse4_1"},
                                   {features.sse42, "sse4_2"},
                                   {features.fma, "fma"},
                                   {features.f16c, "f16c"},
                                   {features.avx2, "avx2"}})
    EXPECT_EQ(flag, flags.count(name) == 1) << name;
  EXPECT_EQ(features.avx && features.osSavesYmm, flags.count("avx") == 1);  // the kernel's rule
  const bool wide = flags.count("avx") && flags.count("avx2") && flags.count("fma");
  const char* tier = !flags.count("sse4_1") ? "scalar" : wide ? "avx2" : "sse";
  EXPECT_STREQ(Tincta::SimdTierName(Tincta::SimdTierOf(features)), tier);
}

// Each requirement of a tier, taken away alone, drops the tier; tiers nest, so a processor
// without SSE4.1 runs no vector kernel whatever else it reports.
TEST(SimdTier, FollowsTheRecord) {
  using Tincta::SProcessorFeatures;
  SProcessorFeatures full;
  full.sse41 = full.avx = full.avx2 = full.fma = full.osSavesYmm = true;
  const std::tuple<bool SProcessorFeatures::*, bool, const char*> cases[] = {
      {&SProcessorFeatures::sse42, true, "avx2"},  // everything
      {&SProcessorFeatures::avx, false, "sse"},
      {&SProcessorFeatures::avx2, false, "sse"},
      {&SProcessorFeatures::fma, false, "sse"},
      {&SProcessorFeatures::osSavesYmm, false, "sse"},
      {&SProcessorFeatures::wideVectorsSwitchedOff, true, "sse"},
      {&SProcessorFeatures::sse41, false, "scalar"},
  };
  for (const auto& [change, value, tier] : cases) {
    SProcessorFeatures features = full;
    features.*change = value;
    EXPECT_STREQ(Tincta::SimdTierName(Tincta::SimdTierOf(features)), tier) << tier << value;
  }
  EXPECT_EQ(Tincta::SimdTierOf(full), Tincta::ESimdTier::kAVX2);
  EXPECT_EQ(Tincta::SimdTierOf(SProcessorFeatures{}), Tincta::ESimdTier::kScalar);
}

// Only the exact word "sse" switches the wide kernels off, and detection stays as it is.
TEST(ProcessorFeatures, OverrideSwitchesOnlyTheWideKernelsOff) {
  const auto detected = Tincta::DetectProcessorFeatures(nullptr);
  for (const char* value : {"sse", "avx2", "", "sse4", "SSE"}) {
    const auto features = Tincta::DetectProcessorFeatures(value);
    const bool off = std::string(value) == "sse";
    EXPECT_EQ(features.wideVectorsSwitchedOff, off) << value;
    EXPECT_EQ(features.avx2, detected.avx2) << value;
    const bool wide = Tincta::SimdTierOf(detected) == Tincta::ESimdTier::kAVX2;
    EXPECT_EQ(Tincta::SimdTierOf(features) == Tincta::ESimdTier::kAVX2, !off && wide) << value;
  }
}

// CRANDLE_CPU_ISA is read once, at first use: checked in a fresh process.
TEST(ProcessorFeatures, EnvironmentOverrideAtFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("CRANDLE_CPU_ISA", "sse", 1);
        const auto& features = Tincta::ProcessorFeatures();
        ::setenv("CRANDLE_CPU_ISA", "avx2", 1);
        std::exit(features.wideVectorsSwitchedOff &&
                          Tincta::ProcessorFeatures().wideVectorsSwitchedOff &&
                          Tincta::ActiveSimdTier() != Tincta::ESimdTier::kAVX2
                      ? 0
                      : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
