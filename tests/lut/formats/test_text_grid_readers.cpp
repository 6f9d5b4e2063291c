// The two readers of text grids: Truelight cubes (the cube, the input shaper kept, dropped as the
// identity, or the table itself) and integer mesh text (headers and output scales, mesh order,
// shaper lines); limits and failures.
#include "lut/formats/mesh_reader.h"
#include "lut/formats/shaper_line.h"
#include "lut/formats/truelight_reader.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using Tincta::EShaperLineOutcome;

using TextGrids = LUTTest;

TEST_F(TextGrids, TruelightShapersWithinTheToleranceOfTheIdentityAreDropped) {
  // A kept one stores v as v (1 - 1/P) + 0.5/P (P: the power of two not below the width) and makes
  // the cube's domain its half-texel range.
  // {width, offset of one value of a 16-entry identity, texels (0: dropped)}
  const std::tuple<uint32_t, float, double> cases[] = {{3, 0, 0},          {3, 0.000008f, 0},
                                                       {3, -0.000008f, 0}, {2, 0.000013f, 2},
                                                       {3, -0.000013f, 4}, {5, 0.3f, 8}};
  for (const auto& [n, offset, texels] : cases) {
    SCOPED_TRACE(testing::Message() << n << " " << offset);
    std::vector<Rgb> ramp = IdentityRamp(16);
    ramp[7][1] += offset;
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, TruelightText(n, ramp, NodeColours(n))));
    ASSERT_EQ(lut.Size(), n);
    for (uint32_t i = 0; i < lut.EntryCount(); i += 7) {
      const Rgb node = NodeColour(i % n, i / n % n, i / n / n, n);
      ASSERT_EQ(At(lut, i), (Vec4{Printed(node[0]), Printed(node[1]), Printed(node[2]), 1})) << i;
    }
    const float low = texels > 0 ? 0.5f / float(n) : 0;
    EXPECT_EQ(lut.DomainMin(), (Vec4{low, low, low, texels > 0 ? low : 1}));
    EXPECT_EQ(lut.DomainMax()[3], 1 - low);
    ASSERT_EQ(lut.InputShaper() != nullptr, texels > 0);
    for (uint32_t i = 0; texels > 0 && i < 16; ++i) {
      const double v = Printed(ramp[i][1]);
      EXPECT_NEAR(At(*lut.InputShaper(), i)[1], v * (1 - 1 / texels) + 0.5 / texels, 1e-6);
    }
  }
  // The longest shaper, and an InputLUT without a width, which is the table; the end ends the text.
  std::vector<Rgb> longest = IdentityRamp(4096), curve = IdentityRamp(3);
  longest[100] = curve[1] = {0.5f, 0.1f, 0.7f};
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, TruelightText(2, longest, NodeColours(2))));
  EXPECT_EQ(lut.InputShaper()->Size(), 4096u);
  ASSERT_TRUE(Parse(lut, TruelightText(0, curve, NodeColours(2)) + "stray text\n0 0\n"));
  EXPECT_EQ(At(lut, 1), (Vec4{0.5f, 0.1f, 0.7f, 1}));
  EXPECT_FALSE(lut.Is3D());
}

TEST_F(TextGrids, EachMeshHeaderGivesItsGridScaleAndShaper) {
  // NodeCodesOf(n, levels) reaches levels - 1 exactly once, at the last node.
  const struct {
    std::string header;
    uint32_t size, levels;
    double denominator;
    bool shaper = false;
  } cases[] = {
      {"3DMESH\nMesh 4 12\n" + EvenShaperLine(17, 4095) + "\n", 17, 4096, 4095},
      {"3DMESHHW\nMesh 1 10\n", 3, 1024, 1023},
      {"# LUT_SIZE : 3 3 3\n", 3, 4096, 1023},
      {"# entries = 4\n", 5, 1024, 1023},
      {"#\n# made by hand\n# entries = 2\n# LUT_SIZE : 9 9 9\n", 3, 1024, 1023},
      // Without a header the largest value chooses the scale.
      {EvenShaperLine(5, 1023) + "\n", 5, 512, 1023},
      {"# 1st grade, 2 passes\n0 341 682 1023\n", 4, 1024, 1023},
      {"0 341 682 1023\n", 4, 1025, 2047},
      {"0 341 682 1023\n", 4, 4096, 4095},
      // Unevenly spaced positions make a shaper, whose output is a texel coordinate.
      {"0 100 700 1023\n", 4, 1024, 1023, true},
      {"# 0 100 700 1023\n# LUT_SIZE : 4 4 4\n", 4, 1024, 1023, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.header + std::to_string(c.levels));
    // Comments amid the data are skipped; lines past the grid are not read.
    std::string text = MeshText(c.header, c.size, NodeCodesOf(c.size, c.levels));
    text.insert(text.find('\n', c.header.size()) + 1, "# LUT_SIZE : 5 5 5\n#\n");
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, text + "7 7 7\n# LUT_SIZE : 3 3 3\ngarbage\n"));
    for (uint32_t i = 0; i < c.size * c.size * c.size; ++i) {
      const uint32_t r = i % c.size, g = i / c.size % c.size, b = i / c.size / c.size;
      const Codes codes = NodeCodesOf(c.size, c.levels)(r, g, b);
      for (int ch = 0; ch < 3; ++ch)
        ASSERT_EQ(At(lut, r, g, b)[ch], float(codes[ch] / c.denominator)) << i;
    }
    ASSERT_EQ(lut.InputShaper() != nullptr, c.shaper);
    const float low = c.shaper ? 0.5f / float(c.size) : 0;
    EXPECT_EQ(lut.DomainMin(), (Vec4{low, low, low, c.shaper ? low : 1}));
    EXPECT_EQ(lut.DomainMax(), (Vec4{1 - low, 1 - low, 1 - low, 1 - low}));
  }
}

// Kind filters and limits that need generated text fail in their own reader and leave nothing;
// text without the reader's marks is someone else's.
TEST_F(TextGrids, BrokenFilesFailAndLeaveNothing) {
  std::vector<Rgb> tooLong = IdentityRamp(4097), curve = IdentityRamp(3);
  tooLong[100] = curve[1] = {0.5f, 0.1f, 0.7f};
  const Reader truelight = "Truelight", meshReader = "mesh";
  const struct {
    Reader reader;
    std::string text;
    ELUTKindFilter kind = ELUTKindFilter::Any;
    EReadOutcome outcome = kFailed;
  } cases[] = {
      {truelight, TruelightText(0, curve, NodeColours(2)), ELUTKindFilter::Only3D},
      {truelight, TruelightText(2, {}, NodeColours(2)), ELUTKindFilter::Only1D},
      {truelight, TruelightText(2, tooLong, NodeColours(2))},
      {meshReader, MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024)),
       ELUTKindFilter::Only1D},
      // Without a grid the text is someone else's, even with a shaper line.
      {meshReader, "3DMESHX\n", ELUTKindFilter::Any, kNot},
      {meshReader, "# 0 10 20 1023\n", ELUTKindFilter::Any, kNot},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 80));
    COv3DLUT lut, direct;
    EXPECT_EQ(ReadAlone(c.reader, direct, c.text, {.kindFilter = c.kind}), c.outcome);
    if (c.outcome == kNot) continue;
    HoldShapedTable(lut);
    EXPECT_FALSE(Parse(lut, c.text, {.kindFilter = c.kind}));
    ExpectCleared(lut);
  }
}

TEST(ShaperLine, RulesOfTheLine) {
  const std::string points256 = EvenShaperLine(256, 4095), points257 = EvenShaperLine(257, 4095);
  const auto kNo = EShaperLineOutcome::NotAShaperLine, kInvalid = EShaperLineOutcome::Invalid;
  const auto kRead = EShaperLineOutcome::Read;
  const std::tuple<std::string, EShaperLineOutcome, uint32_t, uint32_t> cases[] = {
      {"0 100 50 1023", kNo, 0, 0},        {"0 100 1x 1023", kNo, 0, 0},
      {"0,100,200,1023", kNo, 0, 0},       {"0 500 1023", kInvalid, 0, 0},
      {"0 100 200 4097", kInvalid, 0, 0},  {points257, kInvalid, 0, 0},
      {points256, kRead, 256, 0},          {"0 100 200 4096", kRead, 4, 4096},
      {"0\t341 \t682  1023", kRead, 4, 0}, {"0 0 5 5", kRead, 4, 8},
      {"0 342 683 1023", kRead, 4, 0},     {"0 343 682 1023", kRead, 4, 1024},  // 1, 2 codes off
  };
  for (const auto& [line, outcome, points, codes] : cases) {  // codes 0: no shaper
    Tincta::SShaperLine read;
    ASSERT_EQ(Tincta::ReadShaperLine(line, false, read), outcome) << line;
    EXPECT_EQ(read.pointCount, points) << line;
    EXPECT_EQ(read.shaper ? read.shaper->Size() : 0u, codes) << line;
  }
  // Positions 10, 100, 700, 1023 of a 4-point grid: the first texel centre up to the first
  // position, then 1/4 more per interval, linear inside each.
  const uint32_t codes[] = {0, 10, 55, 100, 400, 700, 861, 1023};
  const double coordinates[] = {0.125, 0.125, 0.25, 0.375, 0.5, 0.625, 0.625 + 0.25 * 161 / 323,
                                0.875};
  Tincta::SShaperLine read;
  ASSERT_EQ(Tincta::ReadShaperLine("10 100 700 1023", false, read), kRead);
  for (int i = 0; i < 8; ++i)
    for (int ch = 0; ch < 4; ++ch)
      EXPECT_NEAR(At(*read.shaper, codes[i])[ch], ch == 3 ? 1 : coordinates[i], 1e-6) << codes[i];
  // With upsampling the texels are those of the power of two above the point count, 5 -> 8;
  // codes past the last position keep the last coordinate.
  ASSERT_EQ(Tincta::ReadShaperLine("0 100 200 700 1000", true, read), EShaperLineOutcome::Read);
  EXPECT_NEAR(At(*read.shaper, 0)[0], 0.5 / 8, 1e-6);
  EXPECT_NEAR(At(*read.shaper, 150)[0], 2.0 / 8, 1e-6);
  EXPECT_NEAR(At(*read.shaper, 1023)[0], 4.5 / 8, 1e-6);
}

}  // namespace
}  // namespace crandle_test
