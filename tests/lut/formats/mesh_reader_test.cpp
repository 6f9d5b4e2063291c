#include <algorithm>
#include <cstdio>
#include <string>

#include "format_test.h"
#include "lut/formats/mesh_reader.h"
#include "lut/formats/shaper_line.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using Tincta::EReadOutcome;
using Tincta::EShaperLineOutcome;

using MeshTest = FormatTest;

EReadOutcome ReadDirect(COv3DLUT& lut, std::string_view text, SParseArgs args = {}) {
  Tincta::SParseOptions options;
  options.upsampleToPowerOfTwo = args.upsample;
  options.kindFilter = args.kind;
  return Tincta::ReadMesh(lut, reinterpret_cast<const uint8_t*>(text.data()), uint32_t(text.size()),
                          options);
}

// Every entry is its node's codes over `denominator`, in cube order although the file is in
// mesh order.
void ExpectCodes(const COv3DLUT& lut, uint32_t size, const CodeFunction& codes,
                 double denominator) {
  ASSERT_TRUE(lut.Is3D());
  ASSERT_EQ(lut.Size(), size);
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r) {
        const Codes expected = codes(r, g, b);
        const auto entry = At(lut, r, g, b);
        for (int c = 0; c < 3; ++c)
          ASSERT_FLOAT_EQ(entry[c], float(expected[c] / denominator)) << r << g << b << c;
        ASSERT_EQ(entry[3], 1.0f);
      }
}

TEST_F(MeshTest, MeshHeaderGivesGridAndOutputDepth) {
  // "Mesh 4 12": 2^4 + 1 points, values over 2^12 - 1.
  const std::string text =
      MeshText("3DMESH\nMesh 4 12\n" + EvenShaperLine(17, 4095) + "\n", 17, NodeCodesOf(17, 4096));
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text));
  ExpectCodes(lut, 17, NodeCodesOf(17, 4096), 4095);
  EXPECT_EQ(lut.InputShaper(), nullptr);
  EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  EXPECT_EQ(lut.DomainMax(), (Tincta::Vec4{1, 1, 1, 1}));
}

TEST_F(MeshTest, HeadersAndTheirScales) {
  struct SCase {
    const char* what;
    std::string header;
    uint32_t size;
    uint32_t levels;  // codes in the file run below this
    double denominator;
  };
  const SCase cases[] = {
      {"3DMESHHW", "3DMESHHW\nMesh 1 10\n", 3, 1024, 1023},
      {"Mesh 0 16", "3DMESH\nMesh 0 16\n", 2, 65536, 65535},
      {"LUT_SIZE", "# LUT_SIZE : 3 3 3\n", 3, 4096, 1023},
      {"LUT_SIZE with blanks", "#   LUT_SIZE   :  4 4 4  \n", 4, 1024, 1023},
      {"entries", "# entries = 4\n", 5, 1024, 1023},
      {"comments around", "#\n# made by hand\n# entries = 2\n# LUT_SIZE : 9 9 9\n", 3, 1024, 1023},
  };
  for (const SCase& c : cases) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, MeshText(c.header, c.size, NodeCodesOf(c.size, c.levels)))) << c.what;
    ExpectCodes(lut, c.size, NodeCodesOf(c.size, c.levels), c.denominator);
  }
}

TEST_F(MeshTest, WithoutHeaderTheLargestValueChoosesTheScale) {
  struct SCase {
    uint32_t largest;
    double denominator;
  };
  for (const SCase& c : {SCase{0, 1023}, SCase{1, 1023}, SCase{1023, 1023}, SCase{1024, 2047},
                         SCase{2047, 2047}, SCase{2048, 4095}, SCase{4095, 4095}, SCase{4096, 8191},
                         SCase{65535, 65535}, SCase{65536, 131071}}) {
    // Every code is below the largest except one.
    const auto codes = [&](uint32_t r, uint32_t g, uint32_t b) {
      if (r == 1 && g == 0 && b == 1) return Codes{c.largest, 0, c.largest / 2};
      return Codes{(r + g + b) * c.largest / 9, g * c.largest / 4, b * c.largest / 5};
    };
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, MeshText("0 341 682 1023\n", 4, codes))) << c.largest;
    ExpectCodes(lut, 4, codes, c.denominator);
  }
}

TEST_F(MeshTest, DataEndsAtGridSizeOrFirstForeignLine) {
  const std::string header = "# LUT_SIZE : 2 2 2\n";
  const std::string text = MeshText(header, 2, NodeCodesOf(2, 1024));
  COv3DLUT lut;
  // Surplus lines are not read, not even a second header.
  ASSERT_TRUE(Parse(lut, text + "7 7 7\n# LUT_SIZE : 3 3 3\ngarbage\n"));
  ExpectCodes(lut, 2, NodeCodesOf(2, 1024), 1023);
  // Comments between data lines are skipped once the grid is known.
  std::string commented = text;
  commented.insert(commented.find('\n', header.size()) + 1, "# LUT_SIZE : 3 3 3\n#\n");
  ASSERT_TRUE(Parse(lut, commented));
  ExpectCodes(lut, 2, NodeCodesOf(2, 1024), 1023);
}

TEST_F(MeshTest, BrokenFilesFailAndLeaveNothing) {
  const std::string good = MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024));
  const std::string data2 = MeshText("", 2, NodeCodesOf(2, 1024));
  std::string shortByOne = good;
  shortByOne.erase(shortByOne.rfind('\n', shortByOne.size() - 2) + 1);
  std::string foreignLine = good;
  foreignLine.insert(foreignLine.find("\n", foreignLine.find("Mesh")) + 20, "\n1 2\n");
  struct SCase {
    const char* what;
    std::string text;
    SParseArgs args;
  };
  const SCase cases[] = {
      {"one entry short", shortByOne, {}},
      {"data cut by a foreign line", foreignLine, {}},
      {"3DMESH with only 1-D", good, {.kind = ELUTKindFilter::Only1D}},
      {"Mesh input bits above 7", "3DMESH\nMesh 8 10\n" + data2, {}},
      {"Mesh output bits 0", "3DMESH\nMesh 0 0\n" + data2, {}},
      {"Mesh output bits above 32", "3DMESH\nMesh 0 33\n" + data2, {}},
      {"LUT_SIZE unequal", "# LUT_SIZE : 2 2 3\n" + data2, {}},
      {"LUT_SIZE above 256", "# LUT_SIZE : 257 257 257\n" + data2, {}},
      {"LUT_SIZE 0", "# LUT_SIZE : 0 0 0\n" + data2, {}},
      {"LUT_SIZE with only 1-D", "# LUT_SIZE : 2 2 2\n" + data2, {.kind = ELUTKindFilter::Only1D}},
      {"entries not a power of two", "# entries = 3\n" + data2, {}},
      {"entries above 128", "# entries = 256\n" + data2, {}},
      {"entries 0", "# entries = 0\n" + data2, {}},
      {"entries with only 1-D", "# entries = 1\n" + data2, {.kind = ELUTKindFilter::Only1D}},
      {"grid far larger than the text", "# LUT_SIZE : 256 256 256\n" + data2, {}},
      {"comment shaper line of 3 values", "# 0 500 1023\n3DMESH\nMesh 0 10\n" + data2, {}},
      {"comment shaper line beyond 4096", "# 0 10 20 4097\n3DMESH\nMesh 0 10\n" + data2, {}},
      {"shaper for another grid", "# 0 10 20 1023\n3DMESH\nMesh 0 10\n" + data2, {}},
  };
  for (const SCase& c : cases) {
    COv3DLUT lut;
    EXPECT_FALSE(Parse(lut, c.text, c.args)) << c.what;
    ExpectCleared(lut);
    COv3DLUT direct;
    EXPECT_EQ(ReadDirect(direct, c.text, c.args), EReadOutcome::Failed) << c.what;
  }
}

TEST_F(MeshTest, TextsWithoutGridGoOnToTheFallback) {
  for (const char* text : {"", "hello\n", "3DMEXX\nMesh 1 10\n", "3DMESHX\n", "1 2 3\n",
                           "0 10 5 1023\n", "# 0 10 20 1023\n"}) {
    COv3DLUT lut;
    EXPECT_EQ(ReadDirect(lut, text), EReadOutcome::NotThisFormat) << text;
  }
}

TEST_F(MeshTest, ShaperLineOnItsOwnSetsUpTheGrid) {
  // Evenly spaced positions need no shaper; the line only gives the grid size.
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, MeshText(EvenShaperLine(5, 1023) + "\n", 5, NodeCodesOf(5, 1024))));
  ExpectCodes(lut, 5, NodeCodesOf(5, 1024), 1023);
  EXPECT_EQ(lut.InputShaper(), nullptr);
  // A comment line that only starts with a number is no shaper line and is ignored.
  ASSERT_TRUE(Parse(
      lut, "# 1st grade, 2 passes\n" + MeshText("0 341 682 1023\n", 4, NodeCodesOf(4, 1024))));
  EXPECT_EQ(lut.Size(), 4u);
}

TEST_F(MeshTest, UnevenShaperLineBecomesInputShaperWithHalfTexelDomain) {
  for (const bool inComment : {false, true}) {
    const std::string header =
        inComment ? "# 0 100 700 1023\n# LUT_SIZE : 4 4 4\n" : "0 100 700 1023\n";
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, MeshText(header, 4, NodeCodesOf(4, 1024)))) << inComment;
    ExpectCodes(lut, 4, NodeCodesOf(4, 1024), 1023);
    const COv3DLUT* shaper = lut.InputShaper();
    ASSERT_NE(shaper, nullptr);
    EXPECT_EQ(shaper->Size(), 1024u);
    EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{0.125f, 0.125f, 0.125f, 0.125f}));
    EXPECT_EQ(lut.DomainMax(), (Tincta::Vec4{0.875f, 0.875f, 0.875f, 0.875f}));
  }
}

TEST_F(MeshTest, UpsamplingToPowersOfTwoStopsAt128) {
  struct SCase {
    uint32_t inputBits, before, after;
  };
  for (const SCase& c : {SCase{4, 17, 32}, SCase{5, 33, 64}, SCase{7, 129, 128}}) {
    std::string text = "3DMESH\nMesh " + std::to_string(c.inputBits) + " 10\n";
    const uint32_t n = c.before;
    // The identity, which resampling keeps.
    text = MeshText(text, n, [n](uint32_t r, uint32_t g, uint32_t b) {
      return Codes{r * 1023 / (n - 1), g * 1023 / (n - 1), b * 1023 / (n - 1)};
    });
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, text, {.upsample = true})) << c.before;
    ASSERT_EQ(lut.Size(), c.after);
    for (uint32_t i = 0; i < c.after; ++i) {
      EXPECT_NEAR(At(lut, i, 0, 0)[0], double(i) / (c.after - 1), 2e-3) << i;
      EXPECT_NEAR(At(lut, 0, i, 0)[1], double(i) / (c.after - 1), 2e-3) << i;
    }
    ASSERT_TRUE(Parse(lut, text));
    EXPECT_EQ(lut.Size(), c.before);
  }
}

// Shaper lines on their own: the six rules.
TEST(ShaperLineTest, RulesOfTheLine) {
  struct SCase {
    const char* line;
    EShaperLineOutcome outcome;
    uint32_t points = 0;
    bool shaper = false;
    uint32_t codes = 0;
  };
  const std::string points256 = EvenShaperLine(256, 4095);
  const std::string points257 = EvenShaperLine(257, 4095);
  const SCase cases[] = {
      {"0 100 50 1023", EShaperLineOutcome::NotAShaperLine},
      {"0 100 1x 1023", EShaperLineOutcome::NotAShaperLine},
      {"0 100 -1 1023", EShaperLineOutcome::NotAShaperLine},
      {"0,100,200,1023", EShaperLineOutcome::NotAShaperLine},
      {"0 100 200.5 1023", EShaperLineOutcome::NotAShaperLine},
      {"0 500 1023", EShaperLineOutcome::Invalid},
      {"0 100 200 4097", EShaperLineOutcome::Invalid},
      {"0 100 200 99999999999999999999999", EShaperLineOutcome::Invalid},
      {points257.c_str(), EShaperLineOutcome::Invalid},
      {points256.c_str(), EShaperLineOutcome::Read, 256, false, 0},
      {"0 100 200 4096", EShaperLineOutcome::Read, 4, true, 4096},
      {"0\t341 \t682  1023", EShaperLineOutcome::Read, 4, false, 0},
      {"0 0 0 1", EShaperLineOutcome::Read, 4, false, 0},
      {"0 0 5 5", EShaperLineOutcome::Read, 4, true, 8},
      {"0 342 683 1023", EShaperLineOutcome::Read, 4, false, 0},    // within 1 code
      {"0 343 682 1023", EShaperLineOutcome::Read, 4, true, 1024},  // 2 codes off
      {"10 20 30 40 50 60 70 80 90 1000", EShaperLineOutcome::Read, 10, true, 1024},
  };
  for (const SCase& c : cases) {
    Tincta::SShaperLine read;
    ASSERT_EQ(Tincta::ReadShaperLine(c.line, false, read), c.outcome) << c.line;
    if (c.outcome != EShaperLineOutcome::Read) continue;
    EXPECT_EQ(read.pointCount, c.points) << c.line;
    ASSERT_EQ(read.shaper != nullptr, c.shaper) << c.line;
    if (c.shaper) {
      EXPECT_EQ(read.shaper->Size(), c.codes) << c.line;
    }
  }
}

TEST(ShaperLineTest, CodesMapToTexelCoordinatesOfTheGrid) {
  // Positions 10, 100, 700, 1023 of a 4-point grid: before the first position the first texel
  // centre, then 1/4 more per interval, linear inside each.
  struct SCase {
    uint32_t code;
    double coordinate;
  };
  const SCase cases[] = {{0, 0.125},
                         {10, 0.125},
                         {55, 0.25},
                         {100, 0.375},
                         {400, 0.5},
                         {700, 0.625},
                         {861, 0.625 + 0.25 * 161.0 / 323.0},
                         {1023, 0.875}};
  Tincta::SShaperLine read;
  ASSERT_EQ(Tincta::ReadShaperLine("10 100 700 1023", false, read), EShaperLineOutcome::Read);
  ASSERT_NE(read.shaper, nullptr);
  for (const SCase& c : cases) {
    for (int ch = 0; ch < 3; ++ch)
      EXPECT_NEAR(At(*read.shaper, c.code)[ch], c.coordinate, 1e-6) << c.code;
    EXPECT_EQ(At(*read.shaper, c.code)[3], 1.0f);
  }
  // With upsampling the texels are those of the power of two above the point count: 5 -> 8.
  ASSERT_EQ(Tincta::ReadShaperLine("0 100 200 700 1000", true, read), EShaperLineOutcome::Read);
  EXPECT_NEAR(At(*read.shaper, 0)[0], 0.5 / 8, 1e-6);
  EXPECT_NEAR(At(*read.shaper, 150)[0], 2.0 / 8, 1e-6);
  // Codes past the last position keep the last coordinate.
  EXPECT_NEAR(At(*read.shaper, 1023)[0], 4.5 / 8, 1e-6);
}

}  // namespace
}  // namespace crandle_test

namespace crandle_test {
namespace {

TEST(MeshDataLineTest, ReadsWhatSscanfReads) {
  using namespace std::string_literals;
  const std::string lines[] = {
      "1 2 3",
      "  1\t2   3  ",
      "0 0 0",
      "4294967295 0 1",
      "4294967296 0 1",
      "99999999999 1 1",
      "123456789012 1 1",
      "1 2",
      "1 2 3 4",
      "1,2,3",
      "-1 2 3",
      "+1 2 3",
      "1 2 3x",
      "1 2x 3",
      "01 002 0003",
      "1-2-3",
      "1 2 3\0 4"s,
      "1\0 2 3"s,
      "",
      " ",
      "1\v2 3",
      "1 2 3\f",
  };
  for (const std::string& line : lines) {
    unsigned expected[4] = {7, 7, 7, 7};
    const std::string copy = line;  // sscanf sees the text up to the first NUL
    const int expectedCount = std::sscanf(copy.c_str(), " %u %u %u %u ", &expected[0], &expected[1],
                                          &expected[2], &expected[3]);
    unsigned values[4] = {7, 7, 7, 7};
    ASSERT_EQ(Tincta::ScanMeshDataLine(line, values), expectedCount) << line;
    for (int i = 0; i < std::max(expectedCount, 0); ++i)
      EXPECT_EQ(values[i], expected[i]) << line;
  }
}

}  // namespace
}  // namespace crandle_test
