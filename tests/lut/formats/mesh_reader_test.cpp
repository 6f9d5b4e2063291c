// Integer mesh text: headers and output scales, mesh order, shaper lines, and the data lines read
// without sscanf against sscanf itself.
#include <cstdio>

#include "lut/formats/mesh_reader.h"
#include "lut/formats/shaper_line.h"
#include "lut_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::EReadOutcome;
using Tincta::EShaperLineOutcome;
using Tincta::Vec4;
constexpr auto kOnly1D = Tincta::ELUTKindFilter::Only1D;

using MeshReader = LUTTest;

EReadOutcome ReadDirect(COv3DLUT& lut, std::string_view text, SParseArgs args = {}) {
  return Tincta::ReadMesh(lut, reinterpret_cast<const uint8_t*>(text.data()), uint32_t(text.size()),
                          {.upsampleToPowerOfTwo = args.upsample, .kindFilter = args.kind});
}

TEST_F(MeshReader, EachHeaderGivesItsGridScaleAndShaper) {
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
      {"0 341 682 1023\n", 4, 4097, 8191},
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
        ASSERT_FLOAT_EQ(At(lut, r, g, b)[ch], float(codes[ch] / c.denominator)) << i;
    }
    ASSERT_EQ(lut.InputShaper() != nullptr, c.shaper);
    const float low = c.shaper ? 0.5f / float(c.size) : 0;
    EXPECT_EQ(lut.DomainMin(), (Vec4{low, low, low, c.shaper ? low : 1}));
    EXPECT_EQ(lut.DomainMax(), (Vec4{1 - low, 1 - low, 1 - low, 1 - low}));
  }
}

TEST_F(MeshReader, BrokenFilesFailAndLeaveNothing) {
  const std::string good = MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024));
  const std::string data = MeshText("", 2, NodeCodesOf(2, 1024));
  std::string foreignLine = good;
  foreignLine.insert(good.find('\n', good.find("Mesh")) + 20, "\n1 2\n");
  const struct {
    std::string text;
    SParseArgs args = {};
  } cases[] = {
      {good.substr(0, good.rfind('\n', good.size() - 2) + 1)},
      {foreignLine},
      {good, {.kind = kOnly1D}},
      {"3DMESH\nMesh 8 10\n" + data},
      {"3DMESH\nMesh 0 0\n" + data},
      {"# LUT_SIZE : 2 2 3\n" + data},
      {"# LUT_SIZE : 257 257 257\n" + data},
      {"# LUT_SIZE : 0 0 0\n" + data},
      {"# entries = 3\n" + data},
      {"# entries = 256\n" + data},
      {"# LUT_SIZE : 256 256 256\n" + data},
      {"# 0 10 20 4097\n3DMESH\nMesh 0 10\n" + data},
      {"# 0 10 20 1023\n3DMESH\nMesh 0 10\n" + data},  // a shaper for another grid
  };
  for (const auto& c : cases) {
    COv3DLUT lut, direct;
    EXPECT_FALSE(Parse(lut, c.text, c.args)) << c.text.substr(0, 40);
    ExpectCleared(lut);
    EXPECT_EQ(ReadDirect(direct, c.text, c.args), EReadOutcome::Failed) << c.text.substr(0, 40);
  }
  // Without a grid the text is someone else's: the colour-transformation fallback decides.
  for (const char* text : {"", "hello\n", "3DMEXX\nMesh 1 10\n", "3DMESHX\n", "1 2 3\n",
                           "0 10 5 1023\n", "# 0 10 20 1023\n"}) {
    COv3DLUT lut;
    EXPECT_EQ(ReadDirect(lut, text), EReadOutcome::NotThisFormat) << text;
  }
}

TEST_F(MeshReader, UpsamplingGoesToPowersOfTwoUpTo128) {
  const struct {
    std::string header;
    uint32_t before, after;  // after 0: read without upsampling only
  } cases[] = {{"3DMESH\nMesh 4 10\n", 17, 32},
               {"3DMESH\nMesh 5 10\n", 33, 64},
               {"3DMESH\nMesh 7 10\n", 129, 128},
               {"# entries = 128\n", 129, 0}};
  for (const auto& c : cases) {
    const uint32_t n = c.before;
    const std::string text = MeshText(c.header, n, [n](uint32_t r, uint32_t g, uint32_t b) {
      return Codes{r * 1023 / (n - 1), g * 1023 / (n - 1), b * 1023 / (n - 1)};  // the identity
    });
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, text, {.upsample = c.after > 0})) << c.header;
    ASSERT_EQ(lut.Size(), c.after ? c.after : c.before);
    for (uint32_t i = 0; i < c.after; ++i) {
      EXPECT_NEAR(At(lut, i, 0, 0)[0], double(i) / (c.after - 1), 2e-3) << i;
      EXPECT_NEAR(At(lut, 0, i, 0)[1], double(i) / (c.after - 1), 2e-3) << i;
    }
    ASSERT_TRUE(!c.after || Parse(lut, text));
    EXPECT_EQ(lut.Size(), c.before);
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

TEST(MeshDataLine, ReadsWhatSscanfReads) {
  using namespace std::string_literals;
  for (const std::string& line :
       {"1 2 3"s, "  1\t2   3  "s, "4294967295 0 1"s, "4294967296 0 1"s, "99999999999 1 1"s,
        "123456789012 1 1"s, "1 2"s, "1 2 3 4"s, "1,2,3"s, "-1 2 3"s, "+1 2 3"s, "1 2 3x"s,
        "1 2x 3"s, "01 002 0003"s, "1-2-3"s, "1 2 3\0 4"s, "1\0 2 3"s, ""s, "1\v2 3"s}) {
    unsigned expected[4] = {7, 7, 7, 7}, values[4] = {7, 7, 7, 7};
    const int count = std::sscanf(line.c_str(), " %u %u %u %u ", &expected[0], &expected[1],
                                  &expected[2], &expected[3]);
    ASSERT_EQ(Tincta::ScanMeshDataLine(line, values), count) << line;
    for (int i = 0; i < count; ++i)
      EXPECT_EQ(values[i], expected[i]) << line;
  }
}

}  // namespace
}  // namespace crandle_test
