// What the format tests share: parsing a buffer with given arguments, entry access, and a fixture
// that keeps the upsampling setting out of the way.
#pragma once

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "format_samples.h"
#include "host/settings.h"
#include "lut/lut3d.h"

namespace crandle_test {

struct SParseArgs {
  bool upsample = false;
  Tincta::ELUTKindFilter kind = Tincta::ELUTKindFilter::Any;
  bool allowTransformText = true;
};

inline bool Parse(Tincta::COv3DLUT& lut, std::string_view bytes, SParseArgs args = {}) {
  return lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), args.upsample, args.kind,
                          args.allowTransformText);
}

inline bool Parse(Tincta::COv3DLUT& lut, const std::vector<uint8_t>& bytes, SParseArgs args = {}) {
  return lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), args.upsample, args.kind,
                          args.allowTransformText);
}

/// Entry (r, g, b) of a 3-D table, or entry r of a 1-D table.
inline Tincta::Vec4 At(const Tincta::COv3DLUT& lut, uint32_t r, uint32_t g = 0, uint32_t b = 0) {
  const size_t size = lut.Size();
  const float* entry = lut.Table() + 4 * (r + size * g + size * size * b);
  return {entry[0], entry[1], entry[2], entry[3]};
}

/// A failed read leaves nothing behind.
inline void ExpectCleared(const Tincta::COv3DLUT& lut) {
  EXPECT_EQ(lut.Size(), 0u);
  EXPECT_EQ(lut.Table(), nullptr);
  EXPECT_EQ(lut.InputShaper(), nullptr);
}

class FormatTest : public testing::Test {
 protected:
  void SetUp() override { host::Settings::Instance().Remove(host::kSettingAlwaysUpsampleToPoT); }
  void TearDown() override { host::Settings::Instance().Remove(host::kSettingAlwaysUpsampleToPoT); }
};

}  // namespace crandle_test
