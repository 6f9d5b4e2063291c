// The text readers (cube, Truelight, mesh) with their limits and failures, the cube writer's
// exact bytes, and the float and integer field scanners against sscanf, which glibc lets wrap.
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "lut/cube_writer.h"
#include "lut/formats/cube_reader.h"
#include "lut/formats/float_triple.h"
#include "lut/formats/mesh_reader.h"
#include "lut/formats/shaper_line.h"
#include "lut/formats/text_lines.h"
#include "lut/formats/truelight_reader.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using namespace std::string_literals;
using Tincta::EShaperLineOutcome;

std::string Lines(size_t count, const char* line = "0.5 0.25 0.125\n") {
  std::string text;
  while (count-- > 0)
    text += line;
  return text;
}

const std::string& k2 = kCorners2;

// Each reader alone; a failure in a reader's own text is final and leaves nothing.
TEST(TextReaders, Outcomes) {
  std::vector<Rgb> tooLong = IdentityRamp(4097), curve = IdentityRamp(3);
  tooLong[100] = curve[1] = {0.5f, 0.1f, 0.7f};
  const auto only1D = ELUTKindFilter::Only1D, only3D = ELUTKindFilter::Only3D;
  const struct {
    std::string text;
    EReadOutcome outcome;
    size_t entries = 0;
    ELUTKindFilter kind = ELUTKindFilter::Any;
    Reader reader = "cube";
  } cases[] = {
      {"LUT_FOO_SIZE 17\n" + Lines(17), kLoaded, 17},
      {"LUT_3d_Size 2\n" + k2, kLoaded, 8},
      {"LUT_3D_SIZE 2\n" + k2 + "9 9 9\nx\nDOMAIN_MID 1 1 1\nLUT_3D_SIZE 300\n", kLoaded, 8},
      {"0 0 0\nLUT_1D_SIZE 2\n1 1 1\n", kNot},
      {"# comment\nTITLE \"t\"\nDOMAIN_MIN 0 0 0\n", kNot},
      {"LUT_3D_INPUT_RANGE 0 1\n" + k2, kNot},  // a 1-D size of 0
      {"LUT_3D_INPUT_RANGE 0 1\nLUT_3D_SIZE 2\n" + k2, kLoaded, 8},
      {"LUT_3D_INPUT_RANGE 0 1\nLUT_3D_SIZE 2\n" + k2, kFailed, 0, ELUTKindFilter::Only3D},
      {"LUT_3D_SIZE 2\n" + k2, kFailed, 0, ELUTKindFilter::Only1D},
      {"LUT_3D_SIZE 256\nLUT_3D_SIZE 2\n" + k2, kLoaded, 8},
      {"LUT_1D_SIZE 65536\n" + Lines(65536), kLoaded, 65536},
      // Five characters a line and no final break: the least text that holds the data.
      {"LUT_3D_SIZE 2\n" + Lines(8, "1-2-3\n").substr(0, 47), kLoaded, 8},
      {"LUT_3D_SIZE" + std::string(5000, 'Q') + " 2\n" + k2, kLoaded, 2},  // a 1-D size
      {TruelightText(0, curve, NodeColours(2)), kFailed, 0, only3D, "Truelight"},
      {TruelightText(2, {}, NodeColours(2)), kFailed, 0, only1D, "Truelight"},
      {TruelightText(2, tooLong, NodeColours(2)), kFailed, 0, {}, "Truelight"},
      {MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024)), kFailed, 0, only1D, "mesh"},
      // Without a grid the text is someone else's, even with a shaper line.
      {"3DMESHX\n", kNot, 0, {}, "mesh"},
      {"# 0 10 20 1023\n", kNot, 0, {}, "mesh"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 60));
    COv3DLUT lut;
    ASSERT_EQ(int(ReadAlone(c.reader, lut, c.text, {.kindFilter = c.kind})), int(c.outcome));
    EXPECT_TRUE(c.outcome != kLoaded || lut.EntryCount() == c.entries) << lut.EntryCount();
    for (size_t i = 0; c.outcome == kLoaded && i < lut.EntryCount(); ++i)
      ASSERT_EQ(At(lut, i)[3], 1.0f);
    if (c.outcome != kFailed) continue;
    HoldShapedTable(lut);
    EXPECT_FALSE(Parse(lut, c.text, {.kindFilter = c.kind})) << "the failure is final";
    ExpectCleared(lut);
  }
}

TEST(CubeReader, EntriesDomainsAndTitlesAsWritten) {
  COv3DLUT lut;
  const std::string text =
      "\r\n\tDOMAIN_min -1 -2 -3\r\rDOMAIN_Max 4 5 6\nLUT_3D_SIZE 9\nLUT_1D_SIZE\t2 \r\n"
      "# x\n#0 0 0\n  -0.5\t2 1e3\t\r\n\n\n1 inf -inf";
  ASSERT_EQ(ReadAlone("cube", lut, text), kLoaded);
  EXPECT_EQ(At(lut, 0), (Vec4{-0.5f, 2, 1000, 1}));
  EXPECT_EQ(At(lut, 1), (Vec4{1, INFINITY, -INFINITY, 1}));
  EXPECT_EQ(lut.DomainMin(), (Vec4{-1, -2, -3, 1}));
  EXPECT_EQ(lut.DomainMax(), (Vec4{4, 5, 6, 1}));
  EXPECT_FLOAT_EQ(lut.IndexScale()[0], 1.0f / 5);
  // The last quoted title counts, up to 1023 characters; a failed read keeps the title it found.
  const std::string longTitle(2000, 'x');
  ASSERT_EQ(
      ReadAlone("cube", lut, "TITLE \"a\"\nTITLE \"" + longTitle + "\"\nLUT_1D_SIZE 1\n0 0 0\n"),
      kLoaded);
  EXPECT_EQ(lut.Title(), longTitle.substr(0, 1023));
  lut.SetTitle("kept");
  EXPECT_EQ(ReadAlone("cube", lut, "TITLE \"failed\"\nDOMAIN_MID 1 1 1\nLUT_1D_SIZE 1\n0 0 0\n"),
            kFailed);
  EXPECT_EQ(lut.Title(), "kept");
}

// ScanFloatTriple, and the fast path alone where it claims a line, must give what sscanf gives:
// the same count and the same bits.
int SameAsSscanf(const std::string& line) {
  float expected[3] = {}, scanned[3] = {}, fast[3];
  const int n = std::sscanf(line.c_str(), " %f %f %f ", &expected[0], &expected[1], &expected[2]);
  const auto bits = [](const float* v) {
    return std::array{std::bit_cast<uint32_t>(v[0]), std::bit_cast<uint32_t>(v[1]),
                      std::bit_cast<uint32_t>(v[2])};
  };
  EXPECT_EQ(Tincta::ScanFloatTriple(line, scanned), n) << '"' << line << '"';
  for (int i = std::max(n, 0); i < 3; ++i)
    scanned[i] = expected[i] = 0;
  EXPECT_EQ(bits(scanned), bits(expected)) << '"' << line << '"';
  if (!Tincta::ScanPlainFloatTriple(line, fast)) return 0;
  EXPECT_EQ(n, 3) << '"' << line << '"';
  EXPECT_EQ(bits(fast), bits(expected)) << '"' << line << '"';
  return 1;
}

TEST(CubeDataLine, LinesReadLikeSscanf) {
  std::string edge;
  for (const char c :
       "1 2|1 2 x|1e 2 3|1 2 3e|1 2 3e+|--1 2 3|+-1 2 3|1 2 3x|1-2-3|1+2+3|.5 5. .5|. 1 2|e5 1 2|"
       "0x 1 2|0x1p3 1 2|inf 1 2|1 nan 2|nan(12) 1 2|1.2.3 4 5|1e400 2 3|1 -1e400 3|1e-400 2 3|"
       "1 1e-45 7e-46|3.4028236e38 1 2|3.4028235e38 1 2|1.17549435e-38 1 2|-0 -0.0 +0|"
       "00001 0002.5000 03e+00|1e+0000000000000000000007 1 1|1e-99999999999999999999 1 2||"
       "\v\f|1,2,3|1\xA0"
       "2 3|1 2 \x80|1 2\0 3|1\0 2 3|1 2 3\0 4|"s) {
    if (c != '|') edge += c;
    if (c == '|') SameAsSscanf(std::exchange(edge, {}));
  }
  std::mt19937_64 rng(20261121);
  const auto pick = [&rng](const auto& list) { return list[rng() % std::size(list)]; };
  static const char* const kFormats[] = {"%g", "%.9g", "%.6f", "%e", "%.3E", "%+g", "%.17g", "%a"};
  static const char* const kBlanks[] = {" ", "\t", "  ", " \t ", "\v", "\f ", "   \t\t"};
  int fastLines = 0;
  for (int i = 0; i < 200000; ++i) {
    std::string line = rng() % 3 ? "" : pick(kBlanks);
    for (int n = 0; n < 3; ++n) {
      char text[160];
      const uint64_t kind = rng() % 5;
      const float low = std::ldexp(float(rng() % 0x1000000), int(rng() % 120) - 100);
      // Any bits (NaN, infinity and subnormals included), exactly halfway between two neighbouring
      // floats, or plain values; else many digits, a point anywhere, any exponent or none.
      const double value = kind == 0   ? double(std::bit_cast<float>(uint32_t(rng())))
                           : kind == 1 ? (double(low) + std::nextafter(low, INFINITY)) / 2
                                       : std::uniform_real_distribution(-0.1, 1.2)(rng);
      std::snprintf(text, sizeof text, kind == 1 ? "%.60g" : pick(kFormats), value);
      if (kind == 2) {
        std::string digits;
        for (size_t d = 1 + rng() % 40; d > 0; --d)
          digits += char('0' + rng() % 10);
        if (rng() % 2) digits.insert(rng() % digits.size(), 1, '.');
        std::snprintf(text, sizeof text, "%se%d", digits.c_str(), int(rng() % 100) - 60);
        if (rng() % 2) *std::strchr(text, 'e') = '\0';
      }
      line += text;
      line += n < 2 || rng() % 2 ? pick(kBlanks) : "";
    }
    fastLines += SameAsSscanf(line);
  }
  EXPECT_GT(fastLines, 20000) << "plain lines take the fast path";
}

const Tincta::CubePipeline kIdentity = [](const float in[3], float out[3]) {
  std::copy(in, in + 3, out);
  return true;
};

TEST(CubeWriter, TextIsExact) {
  std::string out = "old text";
  Tincta::WriteCubeText(kIdentity, out, 2);
  EXPECT_EQ(
      out,
      "LUT_3D_SIZE 2\r\n0.000000 0.000000 0.000000\r\n1.000000 0.000000 0.000000\r\n"
      "0.000000 1.000000 0.000000\r\n1.000000 1.000000 0.000000\r\n0.000000 0.000000 1.000000\r\n"
      "1.000000 0.000000 1.000000\r\n0.000000 1.000000 1.000000\r\n1.000000 1.000000 1.000000\r\n");
  // A table is written as it stands: the same text.
  const std::string text = out;
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text));
  Tincta::WriteCubeText(lut, out);
  EXPECT_EQ(out, text);
  // Rounding ties, negative zero and what rounds to it, large and non-finite values.
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (const float value : {-0.0f, -1e-7f, 0.0000005f, 0.0000015f, 0.1234565f, 2.5e-6f, -0.9999996f,
                            1.0f / 3, 123456.79f, 3.0e38f, -3.4028235e38f, kInfinity, -kInfinity,
                            std::numeric_limits<float>::quiet_NaN(), 1e-45f}) {
    const auto constant = [value](const float*, float rgb[3]) {
      rgb[0] = value, rgb[1] = -value, rgb[2] = value * 0.5f;
      return true;
    };
    Tincta::WriteCubeText(constant, out, 2);
    char line[512];
    std::snprintf(line, sizeof line, "%.6f %.6f %.6f\r\n", double(value), double(-value),
                  double(value * 0.5f));
    std::string expected = "LUT_3D_SIZE 2\r\n";
    for (int i = 0; i < 8; ++i)
      expected += line;
    EXPECT_EQ(out, expected) << value;
  }
  // A pipeline that fails part way gives no text at all.
  int calls = 0;
  Tincta::WriteCubeText(
      [&calls](const float in[3], float rgb[3]) { return kIdentity(in, rgb) && ++calls < 20; }, out,
      3);
  EXPECT_EQ(out, "");
}

// Unsigned fields, then signed ones kept to the range of int; sscanf agrees unless out of range.
TEST(ScanFields, FieldsAsSscanfReadsThemAndNoWrapping) {
  constexpr int kOut = Tincta::kScanOutOfRange;
  const std::vector<std::tuple<bool, int, std::vector<std::string>>> cases = {
      {false,
       2,
       {"LUT_3D_SIZE 17", "  LUT_1D_SIZE\t4096  trailing", "LUT_3D_SIZE +17", "LUT_3D_SIZE -0",
        "LUT_3D_SIZE 4294967295", "LUT_3D_SIZE 17abc", std::string("LUT_3D_SIZE 1\0007", 15)}},
      {false, 1, {"LUT_3D_SIZE abc", "LUT_3D_SIZE"}},
      {false, EOF, {"LUT_", ""}},
      {false, 0, {"LUX_3D_SIZE 17"}},
      {false,
       kOut,
       {"LUT_3D_SIZE 4294967296", "LUT_3D_SIZE 4294967298", "LUT_3D_SIZE -1",
        "LUT_3D_SIZE -4294967294", "LUT_3D_SIZE 99999999999999999999999999"}},
      {true, 3, {"width 17 17 17", "width -17 0 +5", "width 2147483647 -2147483648 1"}},
      {true, 2, {"width 1 2"}},
      {true, 1, {"width 1 x 2"}},
      {true,
       kOut,
       {"width 2147483648 1 1", "width 1 -2147483649 1",
        "width 4294967298 4294967298 4294967298"}}};
  for (const auto& [isSigned, expected, lines] : cases) {
    for (const std::string& line : lines) {
      SCOPED_TRACE(line);
      char word[64] = {}, reference[64] = {};
      unsigned value = 7, referenceValue = 7;
      int v[3] = {9, 9, 9}, r[3] = {9, 9, 9};
      const char* format = isSigned ? " width %d %d %d" : " LUT_%s %u ";
      EXPECT_EQ(isSigned ? Tincta::ScanFields(line, format, &v[0], &v[1], &v[2])
                         : Tincta::ScanFields(line, format, word, &value),
                expected);
      if (expected == kOut) continue;
      EXPECT_EQ(isSigned ? std::sscanf(line.c_str(), format, &r[0], &r[1], &r[2])
                         : std::sscanf(line.c_str(), format, reference, &referenceValue),
                expected);
      EXPECT_STREQ(word, reference);
      EXPECT_TRUE(value == referenceValue && v[0] == r[0] && v[1] == r[1] && v[2] == r[2]);
    }
  }
}

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
