// Cube text: the reader, its data lines read without sscanf against sscanf itself, and the writer's
// exact bytes. Also the integer field scanner of the text readers against sscanf: the same count
// and values wherever sscanf's result is defined, and a refusal where the number does not fit its
// field (where sscanf's behaviour is undefined and glibc wraps).
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
#include "lut/formats/text_lines.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using namespace std::string_literals;

EReadOutcome Read(COv3DLUT& lut, std::string_view text, ELUTKindFilter kind = {}) {
  return ReadAlone("cube", lut, text, {.kindFilter = kind});
}

std::string Lines(size_t count, const char* line = "0.5 0.25 0.125\n") {
  std::string text;
  while (count-- > 0)
    text += line;
  return text;
}

const std::string& k2 = kCorners2;

TEST(CubeReader, Outcomes) {
  const struct {
    std::string text;
    EReadOutcome outcome;
    size_t entries = 0;
    ELUTKindFilter kind = ELUTKindFilter::Any;
  } cases[] = {
      {"LUT_3D_SIZE 2\n" + k2, kLoaded, 8},
      {"LUT_1D_SIZE 4096\n" + Lines(4096), kLoaded, 4096},
      {"LUT_FOO_SIZE 17\n" + Lines(17), kLoaded, 17},
      {"LUT_3d_Size 2\n" + k2, kLoaded, 8},
      {"LUT_3D_SIZE 2\n" + k2 + "9 9 9\nx\nDOMAIN_MID 1 1 1\nLUT_3D_SIZE 300\n", kLoaded, 8},
      {"0 0 0\nLUT_1D_SIZE 2\n1 1 1\n", kNot},
      {"# comment\nTITLE \"t\"\nDOMAIN_MIN 0 0 0\n", kNot},
      {"LUT_3D_INPUT_RANGE 0 1\n" + k2, kNot},  // a 1-D size of 0
      {"LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE 0.0 1.0\n" + k2, kNot},
      {"LUT_3D_INPUT_RANGE 0 1\nLUT_3D_SIZE 2\n" + k2, kLoaded, 8},
      {"LUT_3D_INPUT_RANGE 0 1\nLUT_3D_SIZE 2\n" + k2, kFailed, 0, ELUTKindFilter::Only3D},
      {"LUT_3D_SIZE 2\n" + k2, kFailed, 0, ELUTKindFilter::Only1D},
      {"LUT_3D_SIZE 256\nLUT_3D_SIZE 2\n" + k2, kLoaded, 8},
      {"LUT_1D_SIZE 65536\n" + Lines(65536), kLoaded, 65536},
      // Five characters a line and no final break: the least text that holds the data.
      {"LUT_3D_SIZE 2\n" + Lines(8, "1-2-3\n").substr(0, 47), kLoaded, 8},
      {"LUT_3D_SIZE" + std::string(5000, 'Q') + " 2\n" + k2, kLoaded, 2},  // a 1-D size
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 60));
    COv3DLUT lut;
    ASSERT_EQ(int(Read(lut, c.text, c.kind)), int(c.outcome));
    EXPECT_TRUE(c.outcome != kLoaded || lut.EntryCount() == c.entries) << lut.EntryCount();
    for (size_t i = 0; c.outcome == kLoaded && i < lut.EntryCount(); ++i)
      ASSERT_EQ(At(lut, i)[3], 1.0f);
    if (c.outcome != kFailed) continue;
    ASSERT_TRUE(Parse(lut, "LUT_3D_SIZE 2\n" + k2));
    EXPECT_FALSE(Parse(lut, c.text, {.kindFilter = c.kind})) << "the failure is final";
    ExpectCleared(lut);
  }
}

TEST(CubeReader, EntriesDomainsAndTitlesAsWritten) {
  COv3DLUT lut;
  const std::string text =
      "\r\n\tDOMAIN_min -1 -2 -3\r\rDOMAIN_Max 4 5 6\nLUT_3D_SIZE 9\nLUT_1D_SIZE\t2 \r\n"
      "# x\n#0 0 0\n  -0.5\t2 1e3\t\r\n\n\n1 inf -inf";
  ASSERT_EQ(Read(lut, text), kLoaded);
  EXPECT_EQ(At(lut, 0), (Vec4{-0.5f, 2, 1000, 1}));
  EXPECT_EQ(At(lut, 1), (Vec4{1, INFINITY, -INFINITY, 1}));
  EXPECT_EQ(lut.DomainMin(), (Vec4{-1, -2, -3, 1}));
  EXPECT_EQ(lut.DomainMax(), (Vec4{4, 5, 6, 1}));
  EXPECT_FLOAT_EQ(lut.IndexScale()[0], 1.0f / 5);
  // The last quoted title counts, up to 1023 characters; a failed read keeps the title it found.
  const std::string longTitle(2000, 'x');
  ASSERT_EQ(Read(lut, "TITLE \"a\"\nTITLE \"" + longTitle + "\"\nLUT_1D_SIZE 1\n0 0 0\n"), kLoaded);
  EXPECT_EQ(lut.Title(), longTitle.substr(0, 1023));
  lut.SetTitle("kept");
  EXPECT_EQ(Read(lut, "TITLE \"failed\"\nDOMAIN_MID 1 1 1\nLUT_1D_SIZE 1\n0 0 0\n"), kFailed);
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

// Malformed and edge lines, then generated ones.
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

// What ScanFields returns for the lines, unsigned fields first, then signed ones kept to the range
// of int, with no wrapping; sscanf agrees wherever the result is not kScanOutOfRange.
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

}  // namespace
}  // namespace crandle_test
