// Helpers shared by the LUT core tests: entry access, generated cube text, and a fixture that
// leaves the process-wide LUT cache and settings as it found them.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

#include "host/settings.h"
#include "lut/lut3d.h"
#include "lut/lut_cache.h"

namespace crandle_test {

inline Tincta::Vec4 EntryAt(const Tincta::COv3DLUT& lut, size_t index) {
  const float* entry = lut.Table() + 4 * index;
  return {entry[0], entry[1], entry[2], entry[3]};
}

/// Text of a float that reads back to exactly the same float.
inline std::string ExactText(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", double(value));
  return text;
}

using RGBFunction = std::function<std::array<float, 3>(uint32_t index)>;

/// A cube file: `header` lines, then `entries` data lines from `rgb` (in file order).
inline std::string CubeText(std::string_view header, size_t entries, const RGBFunction& rgb) {
  std::string text(header);
  for (size_t i = 0; i < entries; ++i) {
    const auto value = rgb(uint32_t(i));
    text += ExactText(value[0]) + " " + ExactText(value[1]) + " " + ExactText(value[2]) + "\n";
  }
  return text;
}

/// The identity: entry i of an n-entry 1-D table holds i / (n - 1) on every channel.
inline RGBFunction Identity1D(uint32_t n) {
  return [n](uint32_t i) {
    const float v = n > 1 ? float(double(i) / (n - 1)) : 0.0f;
    return std::array<float, 3>{v, v, v};
  };
}

/// The identity cube: entry r + n g + n^2 b holds (r, g, b) / (n - 1).
inline RGBFunction Identity3D(uint32_t n) {
  return [n](uint32_t i) {
    const double scale = 1.0 / (n - 1);
    return std::array<float, 3>{float((i % n) * scale), float((i / n % n) * scale),
                                float((i / n / n) * scale)};
  };
}

/// Caps this process's address space at what it uses now plus `extraBytes`, so that a larger
/// allocation fails. For death-test children only (the sanitizers reserve address space that
/// such a cap would break, so callers skip themselves under them).
inline bool LimitAddressSpace(uint64_t extraBytes) {
  std::ifstream status("/proc/self/status");
  std::string word;
  uint64_t kibibytes = 0;
  while (status >> word) {
    if (word == "VmSize:") {
      status >> kibibytes;
      break;
    }
  }
  if (kibibytes == 0) return false;
  const rlimit limit{kibibytes * 1024 + extraBytes, kibibytes * 1024 + extraBytes};
  return ::setrlimit(RLIMIT_AS, &limit) == 0;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kUnderSanitizer = true;
#else
inline constexpr bool kUnderSanitizer = false;
#endif

/// Each test starts and ends with no unused cache entries, the default budget, and without the
/// settings the LUT core reads.
class LUTCoreTest : public testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }

  static void Reset() {
    auto& settings = host::Settings::Instance();
    settings.Remove(host::kSettingLUTBaseDirectory);
    settings.Remove(host::kSettingAlwaysUpsampleToPoT);
    auto& cache = Tincta::COvLUTCache::Instance();
    cache.SetByteBudget(Tincta::COvLUTCache::kDefaultByteBudget);
    cache.EvictUnused();
  }
};

}  // namespace crandle_test
