// Truelight cubes: the cube, the input shaper (kept, dropped as the identity, or the table
// itself), limits, upsampling.
#include <cmath>

#include "lut/formats/truelight_reader.h"
#include "lut_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using Tincta::EReadOutcome;
using Tincta::Vec4;

using Truelight = LUTTest;

TEST_F(Truelight, ShapersWithinTheToleranceOfTheIdentityAreDropped) {
  // A kept one stores v as v (1 - 1/P) + 0.5/P, P the power of two not below the width, and
  // makes the cube's domain its half-texel range.
  const struct {
    uint32_t width;
    float offset;   // of one value of a 16-entry identity
    double texels;  // 0: dropped
  } cases[] = {{3, 0, 0},         {3, 0.000008f, 0},  {3, -0.000008f, 0},
               {2, 0.000013f, 2}, {3, -0.000013f, 4}, {5, 0.3f, 8}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << " " << c.offset);
    std::vector<Rgb> ramp = IdentityRamp(16);
    ramp[7][1] += c.offset;
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, TruelightText(c.width, ramp, NodeColours(c.width))));
    ASSERT_EQ(lut.Size(), c.width);
    for (uint32_t i = 0; i < lut.EntryCount(); i += 7) {
      const Rgb node =
          NodeColour(i % c.width, i / c.width % c.width, i / c.width / c.width, c.width);
      ASSERT_EQ(At(lut, i), (Vec4{Printed(node[0]), Printed(node[1]), Printed(node[2]), 1})) << i;
    }
    const float low = c.texels > 0 ? 0.5f / float(c.width) : 0;
    EXPECT_EQ(lut.DomainMin(), (Vec4{low, low, low, c.texels > 0 ? low : 1}));
    EXPECT_EQ(lut.DomainMax()[3], 1 - low);
    ASSERT_EQ(lut.InputShaper() != nullptr, c.texels > 0);
    for (uint32_t i = 0; c.texels > 0 && i < 16; ++i) {
      const double v = Printed(ramp[i][1]);
      EXPECT_NEAR(At(*lut.InputShaper(), i)[1], v * (1 - 1 / c.texels) + 0.5 / c.texels, 1e-6);
    }
  }
}

TEST_F(Truelight, BrokenFilesFailAndLeaveNothing) {
  std::vector<Rgb> shaper = IdentityRamp(4), longest = IdentityRamp(4096), curve = IdentityRamp(3);
  shaper[1] = longest[100] = curve[1] = {0.5f, 0.1f, 0.7f};
  std::vector<Rgb> tooLong = longest;
  tooLong.push_back({1, 1, 1});
  const std::string good = TruelightText(2, shaper, NodeColours(2));
  const std::string cubeOnly = TruelightText(2, {}, NodeColours(2));
  // At the limits, and an InputLUT without a width, which is the table; the end ends the text.
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, TruelightText(2, longest, NodeColours(2))));
  EXPECT_EQ(lut.InputShaper()->Size(), 4096u);
  ASSERT_TRUE(Parse(lut, TruelightText(0, curve, NodeColours(2)) + "stray text\n0 0\n"));
  EXPECT_EQ(At(lut, 1), (Vec4{0.5f, 0.1f, 0.7f, 1}));
  EXPECT_FALSE(lut.Is3D());
  const struct {
    std::string text;
    SParseArgs args = {};
  } cases[] = {
      {TruelightText(0, curve, NodeColours(2)), {.kind = ELUTKindFilter::Only3D}},
      {good, {.kind = ELUTKindFilter::Only1D}},
      {Replace(good, "iDims     3", "iDims 4")},
      {Replace(good, "oDims     3", "oDims 1")},
      {Replace(good, "width     2 2 2", "width 2 2 3")},
      {Replace(good, "width     2 2 2", "width 257 257 257")},
      {TruelightText(2, tooLong, NodeColours(2))},
      {Replace(good, "lutLength 4", "lutLength 1")},
      {Replace(good, " 0.500000 0.100000 0.700000", "0.5 0.1")},
      {Replace(cubeOnly, "width     2 2 2", "width 3 3 3")},
      {Replace(cubeOnly, "# end\n", "0 0 0\n# end\n")},
      {"# Truelight Cube v2.0\n# iDims 3\n# oDims 3\n# end\n"},
      {Replace(good, "# Cube", "# InputLUT\n0 0 0\n1 1 1\n1 1 1\n1 1 1\n# Cube")},
  };
  for (const auto& c : cases) {
    COv3DLUT direct;
    EXPECT_FALSE(Parse(lut, c.text, c.args)) << c.text.substr(0, 120);
    ExpectCleared(lut);
    EXPECT_EQ(Tincta::ReadTruelight(direct, reinterpret_cast<const uint8_t*>(c.text.data()),
                                    uint32_t(c.text.size()), {.kindFilter = c.args.kind}),
              EReadOutcome::Failed);
  }
  // Only the version line makes a text Truelight; a broken header before it is someone else's.
  for (const std::string& text :
       {cubeOnly.substr(cubeOnly.find('\n') + 1), std::string("# iDims 7\n# Truelight Cube v2.0\n"),
        std::string("3DMESH\n# Truelight Cube v2.0\n")}) {
    EXPECT_EQ(Tincta::ReadTruelight(lut, reinterpret_cast<const uint8_t*>(text.data()),
                                    uint32_t(text.size()), {}),
              EReadOutcome::NotThisFormat);
  }
}

TEST_F(Truelight, UpsamplingBringsCubeTo128AndShaperTo4096AtMost) {
  const struct {
    uint32_t width, cube, shaperLength, shaper;
  } cases[] = {{3, 4, 5, 8}, {5, 8, 4, 4}, {4, 4, 17, 32}, {9, 16, 3, 4}, {129, 128, 2, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.width);
    std::vector<Rgb> ramp(c.shaperLength);
    for (uint32_t i = 0; i < c.shaperLength; ++i)
      ramp[i].fill(std::pow(float(i) / float(c.shaperLength - 1), 2.0f) + (i == 0 ? 0.1f : 0));
    const auto identity = [w = float(c.width - 1)](uint32_t r, uint32_t g, uint32_t b) {
      return Rgb{float(r) / w, float(g) / w, float(b) / w};
    };
    const std::string text = TruelightText(c.width, ramp, identity);
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, text, {.upsample = true}));
    ASSERT_EQ(lut.Size(), c.cube);
    EXPECT_EQ(lut.InputShaper()->Size(), c.shaper);
    for (uint32_t i = 0; i < c.cube; ++i) {  // the identity stays the identity
      EXPECT_NEAR(At(lut, i, 0, 0)[0], float(i) / float(c.cube - 1), 1e-4);
      EXPECT_NEAR(At(lut, 0, 0, i)[2], float(i) / float(c.cube - 1), 1e-4);
    }
    EXPECT_FLOAT_EQ(lut.DomainMin()[0], 0.5f / float(c.cube));
    ASSERT_TRUE(Parse(lut, text));
    EXPECT_EQ(lut.Size(), c.width);
  }
}

}  // namespace
}  // namespace crandle_test
