#include <cmath>
#include <string>

#include "format_test.h"
#include "lut/formats/truelight_reader.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using Tincta::EReadOutcome;

using TruelightTest = FormatTest;

EReadOutcome ReadDirect(COv3DLUT& lut, std::string_view text, SParseArgs args = {}) {
  Tincta::SParseOptions options;
  options.upsampleToPowerOfTwo = args.upsample;
  options.kindFilter = args.kind;
  return Tincta::ReadTruelight(lut, reinterpret_cast<const uint8_t*>(text.data()),
                               uint32_t(text.size()), options);
}

void ExpectCube(const COv3DLUT& lut, uint32_t width) {
  ASSERT_TRUE(lut.Is3D());
  ASSERT_EQ(lut.Size(), width);
  for (uint32_t b = 0; b < width; ++b)
    for (uint32_t g = 0; g < width; ++g)
      for (uint32_t r = 0; r < width; ++r) {
        const Rgb expected = NodeColour(r, g, b, width);
        const auto entry = At(lut, r, g, b);
        for (int c = 0; c < 3; ++c)
          ASSERT_EQ(entry[c], Printed(expected[c])) << r << g << b << c;
        ASSERT_EQ(entry[3], 1.0f);
      }
}

TEST_F(TruelightTest, ReadsCubeRedFastestWithUnitDomain) {
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, TruelightText(3, {}, NodeColours(3))));
  ExpectCube(lut, 3);
  EXPECT_EQ(lut.InputShaper(), nullptr);
  EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  EXPECT_EQ(lut.DomainMax(), (Tincta::Vec4{1, 1, 1, 1}));
}

TEST_F(TruelightTest, IdentityInputLUTIsDropped) {
  // Within 1e-5 of i / (n - 1) counts as the identity; beyond it the shaper is kept.
  struct SCase {
    float offset;
    bool kept;
  };
  for (const SCase& c : {SCase{0.0f, false}, SCase{0.000008f, false}, SCase{-0.000008f, false},
                         SCase{0.000013f, true}, SCase{-0.000013f, true}}) {
    std::vector<Rgb> ramp = IdentityRamp(16);
    ramp[7][1] += c.offset;
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, TruelightText(2, ramp, NodeColours(2)))) << c.offset;
    EXPECT_EQ(lut.InputShaper() != nullptr, c.kept) << c.offset;
    ExpectCube(lut, 2);
    const float low = c.kept ? 0.25f : 0.0f;  // 0.5 / 2 with a shaper
    EXPECT_FLOAT_EQ(lut.DomainMin()[0], low) << c.offset;
  }
}

TEST_F(TruelightTest, KeptShaperAddressesTexelCentresOfPowerOfTwoCube) {
  // v is stored as v (1 - 1/P) + 0.5/P, P the power of two not below the width (at most 128).
  struct SCase {
    uint32_t width;
    double texels;
  };
  for (const SCase& c : {SCase{2, 2}, SCase{3, 4}, SCase{5, 8}}) {
    const std::vector<Rgb> shaper = {{0, 0, 0}, {0.1f, 0.2f, 0.3f}, {0.5f, 0.6f, 0.7f}, {1, 1, 1}};
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, TruelightText(c.width, shaper, NodeColours(c.width)))) << c.width;
    ExpectCube(lut, c.width);
    const COv3DLUT* kept = lut.InputShaper();
    ASSERT_NE(kept, nullptr);
    ASSERT_FALSE(kept->Is3D());
    ASSERT_EQ(kept->Size(), 4u);
    for (uint32_t i = 0; i < 4; ++i)
      for (int ch = 0; ch < 3; ++ch)
        EXPECT_NEAR(At(*kept, i)[ch], shaper[i][ch] * (1 - 1 / c.texels) + 0.5 / c.texels, 1e-6);
    // With a shaper the cube's domain is its own half-texel range.
    const float low = 0.5f / float(c.width);
    EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{low, low, low, low}));
    EXPECT_EQ(lut.DomainMax(), (Tincta::Vec4{1 - low, 1 - low, 1 - low, 1 - low}));
  }
}

TEST_F(TruelightTest, InputLUTWithoutWidthIsTheTable) {
  COv3DLUT lut;
  const std::vector<Rgb> curve = {{0, 0.1f, 0.2f}, {0.3f, 0.4f, 0.5f}, {0.9f, 0.95f, 1}};
  ASSERT_TRUE(Parse(lut, TruelightText(0, curve, NodeColours(2))));
  ASSERT_FALSE(lut.Is3D());
  ASSERT_EQ(lut.Size(), 3u);
  for (uint32_t i = 0; i < 3; ++i)
    for (int c = 0; c < 3; ++c)
      EXPECT_EQ(At(lut, i)[c], Printed(curve[i][c]));

  COv3DLUT only3D;
  EXPECT_FALSE(
      Parse(only3D, TruelightText(0, curve, NodeColours(2)), {.kind = ELUTKindFilter::Only3D}));
  ExpectCleared(only3D);
}

TEST_F(TruelightTest, LinesAfterEndAreNotRead) {
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, TruelightText(2, {}, NodeColours(2)) + "stray text\n0 0\n"));
  ExpectCube(lut, 2);
}

std::string Replace(std::string text, std::string_view from, std::string_view to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

TEST_F(TruelightTest, BrokenFilesFailAndLeaveNothing) {
  std::vector<Rgb> shaper = IdentityRamp(4);
  shaper[1] = {0.5f, 0.5f, 0.5f};
  const std::string good = TruelightText(2, shaper, NodeColours(2));
  const std::string cubeOnly = TruelightText(2, {}, NodeColours(2));
  struct SCase {
    const char* what;
    std::string text;
    SParseArgs args;
  };
  const SCase cases[] = {
      {"iDims not 3", Replace(good, "iDims     3", "iDims 4"), {}},
      {"oDims not 3", Replace(good, "oDims     3", "oDims 1"), {}},
      {"oDims with only 1-D", good, {.kind = ELUTKindFilter::Only1D}},
      {"unequal width", Replace(good, "width     2 2 2", "width 2 2 3"), {}},
      {"width above 256", Replace(good, "width     2 2 2", "width 257 257 257"), {}},
      {"negative width", Replace(good, "width     2 2 2", "width -1 -1 -1"), {}},
      {"lutLength above 4096", Replace(good, "lutLength 4", "lutLength 4097"), {}},
      {"lutLength below 2", Replace(good, "lutLength 4", "lutLength 1"), {}},
      {"short InputLUT line", Replace(good, " 0.500000 0.500000 0.500000", "0.5 0.5"), {}},
      {"InputLUT longer than the text", Replace(good, "lutLength 4", "lutLength 400"), {}},
      {"Cube shorter than width^3", Replace(cubeOnly, "width     2 2 2", "width 3 3 3"), {}},
      {"short Cube line", Replace(cubeOnly, " 1.000000 ", " "), {}},
      {"stray line after the Cube block", Replace(cubeOnly, "# end\n", "0 0 0\n# end\n"), {}},
      {"stray line between the blocks", Replace(good, "\n# Cube", "\nhello\n# Cube"), {}},
      {"no table", "# Truelight Cube v2.0\n# iDims 3\n# oDims 3\n# end\n", {}},
      {"shaper but no cube", Replace(good, "width     2 2 2", "width 0 0 0"), {}},
      {"second InputLUT",
       Replace(good, "# Cube", "# InputLUT\n0 0 0\n1 1 1\n1 1 1\n1 1 1\n# Cube"),
       {}},
  };
  for (const SCase& c : cases) {
    COv3DLUT lut;
    EXPECT_FALSE(Parse(lut, c.text, c.args)) << c.what;
    ExpectCleared(lut);
    COv3DLUT direct;
    EXPECT_EQ(ReadDirect(direct, c.text, c.args), EReadOutcome::Failed) << c.what;
  }
}

TEST_F(TruelightTest, LimitsAtTheirBoundaryAreAccepted) {
  std::vector<Rgb> ramp = IdentityRamp(4096);
  ramp[100] = {0.5f, 0.5f, 0.5f};
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, TruelightText(2, ramp, NodeColours(2))));
  ASSERT_NE(lut.InputShaper(), nullptr);
  EXPECT_EQ(lut.InputShaper()->Size(), 4096u);
}

TEST_F(TruelightTest, WithoutVersionLineItIsNotTruelight) {
  std::string text = TruelightText(2, {}, NodeColours(2));
  text.erase(0, text.find('\n') + 1);
  COv3DLUT lut;
  EXPECT_EQ(ReadDirect(lut, text), EReadOutcome::NotThisFormat);
  // A broken header before the version line is someone else's text too.
  EXPECT_EQ(ReadDirect(lut, "# iDims 7\n# Truelight Cube v2.0\n"), EReadOutcome::NotThisFormat);
  EXPECT_EQ(ReadDirect(lut, "3DMESH\n# Truelight Cube v2.0\n"), EReadOutcome::NotThisFormat);
}

TEST_F(TruelightTest, UpsamplingBringsCubeAndShaperToPowersOfTwo) {
  struct SCase {
    uint32_t width, cube;
    uint32_t shaperLength, shaper;
  };
  for (const SCase& c :
       {SCase{3, 4, 5, 8}, SCase{5, 8, 4, 4}, SCase{4, 4, 17, 32}, SCase{9, 16, 3, 4}}) {
    std::vector<Rgb> ramp(c.shaperLength);
    for (uint32_t i = 0; i < c.shaperLength; ++i) {
      const float v = std::pow(float(i) / float(c.shaperLength - 1), 2.0f);
      ramp[i] = {v, v, v};
    }
    // The identity cube stays the identity when resampled.
    const auto identity = [w = c.width](uint32_t r, uint32_t g, uint32_t b) {
      return Rgb{float(r) / float(w - 1), float(g) / float(w - 1), float(b) / float(w - 1)};
    };
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, TruelightText(c.width, ramp, identity), {.upsample = true})) << c.width;
    ASSERT_EQ(lut.Size(), c.cube) << c.width;
    ASSERT_NE(lut.InputShaper(), nullptr);
    EXPECT_EQ(lut.InputShaper()->Size(), c.shaper) << c.shaperLength;
    for (uint32_t i = 0; i < c.cube; ++i) {
      EXPECT_NEAR(At(lut, i, 0, 0)[0], float(i) / float(c.cube - 1), 1e-4);
      EXPECT_NEAR(At(lut, 0, 0, i)[2], float(i) / float(c.cube - 1), 1e-4);
    }
    const float low = 0.5f / float(c.cube);
    EXPECT_FLOAT_EQ(lut.DomainMin()[0], low);
    EXPECT_FLOAT_EQ(lut.DomainMax()[2], 1 - low);
  }
}

TEST_F(TruelightTest, UpsamplingStopsAt128) {
  // 129 points per axis come down to 128.
  std::string text = "# Truelight Cube v2.0\n# width 129 129 129\n# Cube\n";
  for (uint32_t i = 0; i < 129u * 129 * 129; ++i)
    text += "0 0 0\n";
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text, {.upsample = true}));
  EXPECT_EQ(lut.Size(), 128u);
  ASSERT_TRUE(Parse(lut, text));
  EXPECT_EQ(lut.Size(), 129u);
}

}  // namespace
}  // namespace crandle_test
