// Which reader gets a buffer: the fixed order of the detector and which results are final.
#include <cstring>
#include <string>

#include "format_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;

using DetectionTest = FormatTest;

TEST_F(DetectionTest, CubeSizeLineBeforeDataWinsOverTruelight) {
  std::string text = "# Truelight Cube v2.0\n# width 3 3 3\nLUT_3D_SIZE 2\n";
  for (uint32_t b = 0; b < 2; ++b)
    for (uint32_t g = 0; g < 2; ++g)
      for (uint32_t r = 0; r < 2; ++r)
        text += RgbLine(NodeColour(r, g, b, 2)) + "\n";
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text));
  ASSERT_EQ(lut.Size(), 2u);
  EXPECT_EQ(At(lut, 1, 1, 0)[1], Printed(NodeColour(1, 1, 0, 2)[1]));
}

TEST_F(DetectionTest, TruelightFailureIsFinal) {
  // The same mesh reads as a mesh after plain comments, but not after a Truelight version line.
  const std::string mesh = MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024));
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, "# exported by hand\n# iDims 3\n" + mesh));
  EXPECT_EQ(lut.Size(), 3u);
  EXPECT_FALSE(Parse(lut, "# Truelight Cube v2.0\n" + mesh));
  ExpectCleared(lut);
}

TEST_F(DetectionTest, XMLLookResultIsFinal) {
  const std::string sop =
      "<SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>2 2 2</Power></SOPNode>";
  const std::string correction = "<?xml version=\"1.0\"?>\n<ColorCorrection>" + sop;
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, correction + "<note>look</note></ColorCorrection>"));
  EXPECT_EQ(lut.Size(), 1024u);
  // A "<look>" tag in the first 1024 bytes hands the text to the look reader alone.
  EXPECT_FALSE(Parse(lut, correction + "<look><LUT/></look></ColorCorrection>"));
  ExpectCleared(lut);
  // And a good look is read as a look whatever else the document holds.
  std::string look = XMLLookText(2, NodeColours(2));
  look.insert(look.find("</look>"), "<ColorCorrection>" + sop + "</ColorCorrection>");
  ASSERT_TRUE(Parse(lut, look));
  EXPECT_TRUE(lut.Is3D());
  EXPECT_EQ(lut.Size(), 2u);
}

TEST_F(DetectionTest, ShortBinaryMagicsAreTriedAsText) {
  // A correction padded to 808 bytes behind "3LUT" is text; at 809 bytes the packed reader
  // refuses it (no 0xFFFFFFFF marker) and nothing else is tried.
  std::string text = "3LUT\n" + CDLText("1 1 1", "0 0 0", "1 1 1");
  ASSERT_LT(text.size(), 808u);
  text.resize(808, ' ');
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text));
  EXPECT_EQ(lut.Size(), 1024u);
  text.push_back(' ');
  EXPECT_FALSE(Parse(lut, text));
  ExpectCleared(lut);

  // "OVTX" with 16 bytes or fewer: text, which no reader takes.
  for (size_t length : {4u, 15u, 16u}) {
    std::string bytes = "OVTX";
    bytes.resize(length, '\x01');
    EXPECT_FALSE(Parse(lut, bytes)) << length;
    ExpectCleared(lut);
  }
}

TEST_F(DetectionTest, FallbackOnlyForTextNoReaderTakes) {
  COv3DLUT lut;
  EXPECT_FALSE(Parse(lut, "just some words\n"));
  EXPECT_FALSE(Parse(lut, std::string_view()));
  EXPECT_FALSE(lut.ParseLUTData(nullptr, 10, false, ELUTKindFilter::Any, true));
  ExpectCleared(lut);
  // A mesh that the fallback would also not take keeps its own failure.
  EXPECT_FALSE(Parse(lut, "# LUT_SIZE : 2 2 2\n1 2 3\n", {.allowTransformText = true}));
}

TEST_F(DetectionTest, AFailedReadDropsTheTableItHeldBefore) {
  COv3DLUT lut;
  std::vector<Rgb> shaper = IdentityRamp(4);
  shaper[1] = {0.5f, 0.5f, 0.5f};
  ASSERT_TRUE(Parse(lut, TruelightText(2, shaper, NodeColours(2))));
  ASSERT_NE(lut.InputShaper(), nullptr);
  std::weak_ptr<const COv3DLUT> kept = lut.SharedInputShaper();
  EXPECT_FALSE(Parse(lut, "# Truelight Cube v2.0\n# iDims 2\n"));
  ExpectCleared(lut);
  EXPECT_TRUE(kept.expired());
}

}  // namespace
}  // namespace crandle_test
