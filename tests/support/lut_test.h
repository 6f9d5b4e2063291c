// What the LUT tests share: parsing bytes, entry access, the check that a failed read left nothing,
// and a fixture that leaves the LUT cache and the readers' settings as it found them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/settings.h"
#include "lut/formats/reader.h"
#include "lut/lut3d.h"
#include "lut/lut_cache.h"
#include "support/format_samples.h"
#include "support/lut_samples.h"

namespace crandle_test {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using Tincta::Vec4;

/// ParseLUTData on exactly `text.size()` heap bytes, so that the sanitizers see any overread.
inline bool Parse(Tincta::COv3DLUT& lut, std::string_view text,
                  const Tincta::SParseOptions& options = {}) {
  const std::vector<uint8_t> bytes(text.begin(), text.end());
  return lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), options.upsampleToPowerOfTwo,
                          options.kindFilter, options.allowTransformText, options.diagnostics,
                          options.correctionId);
}

/// What one reader makes of bytes on its own: someone else's (its probe declines them, and the
/// detector would go on), a failed read, or a table.
enum class EReadOutcome { NotThisFormat, Failed, Loaded };
constexpr auto kNot = EReadOutcome::NotThisFormat, kFailed = EReadOutcome::Failed,
               kLoaded = EReadOutcome::Loaded;
/// A reader by its name in the detector's table.
using Reader = std::string_view;
/// One reader alone, probe then read, on exactly `text.size()` heap bytes, with the options.
inline EReadOutcome ReadAlone(Reader name, Tincta::COv3DLUT& lut, std::string_view text,
                              const Tincta::SParseOptions& options = {}) {
  const std::vector<uint8_t> bytes(text.begin(), text.end());
  for (const Tincta::SLUTFormatReader& reader : Tincta::LUTFormatReaders()) {
    if (reader.name != name) continue;
    if (!reader.probe(bytes.data(), uint32_t(bytes.size()), options)) return kNot;
    return reader.read(lut, bytes.data(), uint32_t(bytes.size()), options) ? kLoaded : kFailed;
  }
  ADD_FAILURE() << "no reader named " << name;
  return kFailed;
}

/// Entry (r, g, b) of a 3-D table, or entry r of a 1-D table.
inline Tincta::Vec4 At(const Tincta::COv3DLUT& lut, size_t r, size_t g = 0, size_t b = 0) {
  const size_t n = lut.Size();
  const float* entry = lut.Table() + 4 * (r + n * g + n * n * b);
  return {entry[0], entry[1], entry[2], entry[3]};
}

/// A table of `n` entries (1-D) or n^3 (3-D, red fastest) whose entry i holds `entry(i)`.
template <class F>
void Fill(Tincta::COv3DLUT& lut, uint32_t n, bool is3D, F entry) {
  ASSERT_TRUE(lut.Allocate(n, is3D));
  for (size_t i = 0; i < lut.EntryCount(); ++i) {
    const Tincta::Vec4 v = entry(i);
    std::copy(v.begin(), v.end(), lut.Table() + 4 * i);
  }
}

/// The eight corners of a two-point cube, one a line: line i holds (r, g, b) with i = r + 2g + 4b.
inline const std::string kCorners2 = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";

/// Parses a two-point Truelight cube behind a kept four-entry shaper into `lut`, so that a later
/// read can be seen to drop both.
inline void HoldShapedTable(Tincta::COv3DLUT& lut) {
  std::vector<Rgb> shaper = IdentityRamp(4);
  shaper[1] = {0.5f, 0.1f, 0.7f};
  EXPECT_TRUE(Parse(lut, TruelightText(2, shaper, NodeColours(2))) && lut.InputShaper());
}

inline void ExpectCleared(const Tincta::COv3DLUT& lut) {
  EXPECT_EQ(lut.Size(), 0u);
  EXPECT_EQ(lut.Table(), nullptr);
  EXPECT_EQ(lut.InputShaper(), nullptr);
}

/// `text` with its first `from` replaced by `to`.
inline std::string Replace(std::string text, std::string_view from, std::string_view to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

class LUTTest : public testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }
  static void Reset() {
    for (const char* key : {host::kSettingLUTBaseDirectory, host::kSettingAlwaysUpsampleToPoT})
      host::Settings::Instance().Remove(key);
    Tincta::COvLUTCache::Instance().SetByteBudget(Tincta::COvLUTCache::kDefaultByteBudget);
    Tincta::COvLUTCache::Instance().EvictUnused();
  }
};

}  // namespace crandle_test
