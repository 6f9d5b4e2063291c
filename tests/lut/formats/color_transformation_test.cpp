#include <algorithm>
#include <cmath>
#include <string>

#include "format_test.h"
#include "lut/color_transformation.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;

using ColorTransformationTest = FormatTest;

TEST_F(ColorTransformationTest, CorrectionIsBakedInto1024Entries) {
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, CDLText("2 1 0.5", "-0.5 0 0.25", "2 1 0.5")));
  ASSERT_FALSE(lut.Is3D());
  ASSERT_EQ(lut.Size(), 1024u);
  EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  EXPECT_EQ(lut.DomainMax(), (Tincta::Vec4{1, 1, 1, 1}));
  // Hand-worked nodes: red 2x - 0.5 squared, green untouched, blue sqrt(x/2 + 0.25).
  EXPECT_EQ(At(lut, 0)[0], 0.0f);
  EXPECT_EQ(At(lut, 255)[0], 0.0f);  // 2 * 255/1023 - 0.5 < 0 clamps
  EXPECT_NEAR(At(lut, 1023)[0], 1.0f, 1e-7);
  EXPECT_NEAR(At(lut, 1023)[2], std::sqrt(0.75), 1e-6);
  EXPECT_NEAR(At(lut, 0)[2], 0.5, 1e-7);
  for (uint32_t i = 0; i < 1024; ++i) {
    const long double x = (long double)i / 1023;
    const long double red = std::clamp(2 * x - 0.5L, 0.0L, 1.0L);
    EXPECT_NEAR(At(lut, i)[0], double(red * red), 1e-6) << i;
    EXPECT_NEAR(At(lut, i)[1], double(x), 1e-6) << i;
    EXPECT_NEAR(At(lut, i)[2], double(std::sqrt(x / 2 + 0.25L)), 1e-6) << i;
    EXPECT_EQ(At(lut, i)[3], 1.0f);
  }
}

TEST_F(ColorTransformationTest, AcceptedWrappings) {
  const std::string sop =
      "<SOPNode><Slope>1 1 1</Slope><Offset>0.1 0.1 0.1</Offset><Power>1 1 1</Power></SOPNode>";
  const std::string texts[] = {
      "<ColorCorrection>" + sop + "</ColorCorrection>",
      "<?xml version=\"1.0\"?>\n<ColorDecisionList xmlns=\"urn:ASC:CDL:v1.01\"><ColorDecision>"
      "<ColorCorrection id=\"a\">" +
          sop +
          "<SatNode><Saturation> 1.0 </Saturation></SatNode>"
          "</ColorCorrection></ColorDecision></ColorDecisionList>",
      "<ColorDecisionList><ColorCorrection>" + sop + "</ColorCorrection></ColorDecisionList>",
      "<ColorCorrectionCollection><Description>one shot</Description><ColorCorrection>" + sop +
          "</ColorCorrection></ColorCorrectionCollection>",
      "<cdl:ColorCorrection xmlns:cdl=\"urn:ASC:CDL:v1.01\"><cdl:SOPNode><cdl:Slope>1 1 "
      "1</cdl:Slope>"
      "<cdl:Offset>0.1 0.1 0.1</cdl:Offset><cdl:Power>1 1 1</cdl:Power></cdl:SOPNode>"
      "</cdl:ColorCorrection>",
      "<colorcorrection><sopnode><slope>1 1 1</slope><offset>0.1\t0.1\n0.1</offset>"
      "<power>1 1 "
      "1</power></sopnode><SATNode><Saturation>1</Saturation></SATNode></colorcorrection>",
  };
  for (const std::string& text : texts) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, text)) << text;
    EXPECT_NEAR(At(lut, 0)[1], 0.1, 1e-7) << text;
    EXPECT_NEAR(At(lut, 512)[1], 512.0 / 1023 + 0.1, 1e-6) << text;
    EXPECT_EQ(At(lut, 1000)[2], 1.0f) << text;
  }
}

TEST_F(ColorTransformationTest, RefusedCorrections) {
  const std::string sop =
      "<SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode>";
  const std::string cases[] = {
      "<ColorCorrection></ColorCorrection>",
      CDLText("1 1", "0 0 0", "1 1 1"),
      CDLText("1 1 1 1", "0 0 0", "1 1 1"),
      CDLText("1 1 1", "0 0 x", "1 1 1"),
      CDLText("1 1 1", "0 0 0", "1 0 1"),
      CDLText("1 1 1", "0 0 0", "1 -1 1"),
      CDLText("1 1 1", "0 0 0", "1 1 inf"),
      CDLText("1 1 nan", "0 0 0", "1 1 1"),
      CDLText("1 1 1", "0 0 0", "1 1 1", "<SatNode><Saturation>0.5</Saturation></SatNode>"),
      CDLText("1 1 1", "0 0 0", "1 1 1", "<SatNode><Saturation>1 1</Saturation></SatNode>"),
      CDLText("1 1 1", "0 0 0", "1 1 1", "<SatNode></SatNode>"),
      "<ColorCorrection><SOPNode><Slope>1 1 1</Slope><Offset>0 0 "
      "0</Offset></SOPNode></ColorCorrection>",
      "<ColorCorrectionCollection><ColorCorrection>" + sop + "</ColorCorrection><ColorCorrection>" +
          sop + "</ColorCorrection></ColorCorrectionCollection>",
      "<ColorCorrectionCollection></ColorCorrectionCollection>",
      "<ColorDecisionList><ColorDecision><ColorCorrectionRef "
      "ref=\"a\"/></ColorDecision></ColorDecisionList>",
      "<Grade>" + sop + "</Grade>",
      "<ColorCorrection>" + sop,
      "plain words, no XML at all",
  };
  for (const std::string& text : cases) {
    Tincta::COvColorTransformation transformation;
    EXPECT_FALSE(transformation.bParse(text.data(), text.size())) << text;
    COv3DLUT lut;
    EXPECT_FALSE(Parse(lut, text)) << text;
    ExpectCleared(lut);
  }
}

TEST_F(ColorTransformationTest, OnlyWhenAllowedAndNotOnly3D) {
  const std::string text = CDLText("1 1 1", "0 0 0", "1 1 1");
  struct SCase {
    SParseArgs args;
    bool loads;
  };
  for (const SCase& c : {SCase{{}, true}, SCase{{.kind = ELUTKindFilter::Only1D}, true},
                         SCase{{.kind = ELUTKindFilter::Only3D}, false},
                         SCase{{.allowTransformText = false}, false}}) {
    COv3DLUT lut;
    EXPECT_EQ(Parse(lut, text, c.args), c.loads);
    if (!c.loads) ExpectCleared(lut);
  }
}

}  // namespace
}  // namespace crandle_test
