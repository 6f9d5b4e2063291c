// Which reader gets a buffer: the fixed order of the detector, which results are final, and the
// fallback for text no reader takes, an ASC CDL correction baked into 1024 entries.
#include <algorithm>
#include <cmath>

#include "lut_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;

using Detection = LUTTest;

TEST_F(Detection, EachTextGoesToTheReaderItsFirstLinesName) {
  const std::string mesh = MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024));
  const std::string sop =
      "<SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>2 2 2</Power></SOPNode>";
  const std::string correction = "<?xml version=\"1.0\"?>\n<ColorCorrection>" + sop;
  std::string lookAndCorrection = XMLLookText(2, NodeColours(2));
  lookAndCorrection.insert(lookAndCorrection.find("</look>"),
                           "<ColorCorrection>" + sop + "</ColorCorrection>");
  // 808 bytes behind "3LUT" are text; from 809 on the packed reader takes them and refuses them
  // (no 0xFFFFFFFF marker) with nothing else tried.
  std::string packedText = "3LUT\n" + CDLText("1 1 1", "0 0 0", "1 1 1");
  packedText.resize(808, ' ');
  // Tables of 1024 entries are corrections, the others cubes; 0: the read fails.
  const std::pair<std::string, uint32_t> cases[] = {
      {"# Truelight Cube v2.0\n# width 3 3 3\n" + CubeText3D(2), 2},  // the cube's size line wins
      {"# exported by hand\n# iDims 3\n" + mesh, 3},
      {"# Truelight Cube v2.0\n" + mesh, 0},
      {correction + "<note>look</note></ColorCorrection>", 1024},
      {correction + "<look><LUT/></look></ColorCorrection>", 0},
      {lookAndCorrection, 2},
      {packedText, 1024},
      {packedText + " ", 0},
      {"OVTX" + std::string(12, '\x01'), 0},  // 16 bytes: text
      {"just some words\n", 0},
      {"", 0},
  };
  for (const auto& [text, size] : cases) {
    COv3DLUT lut;
    EXPECT_EQ(Parse(lut, text), size > 0) << text.substr(0, 80);
    EXPECT_EQ(lut.Size(), size) << text.substr(0, 80);
    EXPECT_EQ(lut.Is3D(), size > 0 && size != 1024) << text.substr(0, 80);
  }
}

TEST_F(Detection, AFailedReadDropsTheTableAndShaperItHeld) {
  std::vector<Rgb> shaper = IdentityRamp(4);
  shaper[1] = {0.5f, 0.5f, 0.5f};
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, TruelightText(2, shaper, NodeColours(2))));
  const std::weak_ptr<const COv3DLUT> held = lut.SharedInputShaper();
  ASSERT_FALSE(held.expired());
  EXPECT_FALSE(Parse(lut, "# Truelight Cube v2.0\n# iDims 2\n"));
  ExpectCleared(lut);
  EXPECT_TRUE(held.expired());
  EXPECT_FALSE(lut.ParseLUTData(nullptr, 10, false, Tincta::ELUTKindFilter::Any, true));
}

TEST_F(Detection, TextNoReaderTakesIsBakedAsACorrectionOrRefused) {
  COv3DLUT lut;
  ASSERT_TRUE(
      Parse(lut, CDLText("2 1 0.5", "-0.5 0 0.25", "2 1 0.5"), {.kind = ELUTKindFilter::Only1D}));
  ASSERT_EQ(lut.Size(), 1024u);
  EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  for (uint32_t i = 0; i < 1024; ++i) {
    const long double x = (long double)i / 1023, red = std::clamp(2 * x - 0.5L, 0.0L, 1.0L);
    ASSERT_NEAR(At(lut, i)[0], double(red * red), 1e-6) << i;
    ASSERT_NEAR(At(lut, i)[1], double(x), 1e-6) << i;
    ASSERT_NEAR(At(lut, i)[2], double(std::sqrt(x / 2 + 0.25L)), 1e-6) << i;
  }
  const std::string sop =
      "<SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode>";
  const std::pair<std::string, bool> cases[] = {
      {"<ColorDecisionList><ColorDecision><ColorCorrection>" + sop +
           "<SatNode><Saturation> 1.0 "
           "</Saturation></SatNode></ColorCorrection></ColorDecision></ColorDecisionList>",
       true},
      {"<ColorCorrectionCollection><Description>a</Description><ColorCorrection>" + sop +
           "</ColorCorrection></ColorCorrectionCollection>",
       true},
      {CDLText("1 1", "0 0 0", "1 1 1"), false},
      {CDLText("1 1 nan", "0 0 0", "1 1 1"), false},
      {CDLText("1 1 1", "0 0 0", "1 1 1", "<SatNode><Saturation>0.5</Saturation></SatNode>"),
       false},
      {"<ColorCorrectionCollection><ColorCorrection>" + sop +
           "</ColorCorrection><ColorCorrection>" + sop +
           "</ColorCorrection></ColorCorrectionCollection>",
       false},
      {"<Grade>" + sop + "</Grade>", false},
  };
  for (const auto& [text, accepted] : cases) {
    EXPECT_EQ(Parse(lut, text), accepted) << text;
    EXPECT_EQ(lut.Size(), accepted ? 1024u : 0u);
  }
  // Only where text is allowed and a 1-D table may come out.
  EXPECT_FALSE(Parse(lut, CDLText("1 1 1", "0 0 0", "1 1 1"), {.kind = ELUTKindFilter::Only3D}));
  EXPECT_FALSE(Parse(lut, CDLText("1 1 1", "0 0 0", "1 1 1"), {.allowTransformText = false}));
}

}  // namespace
}  // namespace crandle_test
