#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "format_test.h"
#include "lut/cube_writer.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::CubePipeline;

const CubePipeline kIdentity = [](const float in[3], float out[3]) {
  out[0] = in[0], out[1] = in[1], out[2] = in[2];
  return true;
};

TEST(CubeWriterTest, TwoPointIdentityIsExact) {
  std::string out = "old text";
  Tincta::WriteCubeText(kIdentity, out, 2);
  EXPECT_EQ(out,
            "LUT_3D_SIZE 2\r\n"
            "0.000000 0.000000 0.000000\r\n"
            "1.000000 0.000000 0.000000\r\n"
            "0.000000 1.000000 0.000000\r\n"
            "1.000000 1.000000 0.000000\r\n"
            "0.000000 0.000000 1.000000\r\n"
            "1.000000 0.000000 1.000000\r\n"
            "0.000000 1.000000 1.000000\r\n"
            "1.000000 1.000000 1.000000\r\n");
}

TEST(CubeWriterTest, NumbersAreFormattedLikePrintf) {
  // Rounding ties, negative zero, values printf rounds to "-0.000000", large and non-finite ones.
  const float values[] = {0.0f,
                          -0.0f,
                          -1e-7f,
                          1e-7f,
                          0.0000005f,
                          0.0000015f,
                          0.1234565f,
                          2.5e-6f,
                          -0.9999996f,
                          1.0f / 3.0f,
                          123456.79f,
                          3.0e38f,
                          -3.4028235e38f,
                          std::numeric_limits<float>::infinity(),
                          -std::numeric_limits<float>::infinity(),
                          std::numeric_limits<float>::quiet_NaN(),
                          std::numeric_limits<float>::denorm_min()};
  for (const float value : values) {
    const CubePipeline constant = [value](const float*, float out[3]) {
      out[0] = value, out[1] = -value, out[2] = value * 0.5f;
      return true;
    };
    std::string out;
    Tincta::WriteCubeText(constant, out, 2);
    char line[512];
    std::snprintf(line, sizeof(line), "%.6f %.6f %.6f\r\n", double(value), double(-value),
                  double(value * 0.5f));
    std::string expected = "LUT_3D_SIZE 2\r\n";
    for (int i = 0; i < 8; ++i)
      expected += line;
    EXPECT_EQ(out, expected) << value;
  }
}

TEST(CubeWriterTest, PipelineSeesGridNodesRedFastest) {
  std::vector<Rgb> seen;
  const CubePipeline record = [&](const float in[3], float out[3]) {
    seen.push_back({in[0], in[1], in[2]});
    out[0] = in[0], out[1] = in[1], out[2] = in[2];
    return true;
  };
  std::string out;
  Tincta::WriteCubeText(record, out, 5);
  ASSERT_EQ(seen.size(), 125u);
  for (uint32_t b = 0; b < 5; ++b)
    for (uint32_t g = 0; g < 5; ++g)
      for (uint32_t r = 0; r < 5; ++r) {
        const Rgb& in = seen[r + 5 * g + 25 * b];
        EXPECT_EQ(in, (Rgb{r / 4.0f, g / 4.0f, b / 4.0f})) << r << g << b;
      }
  // 1 header line and 125 data lines, each ending in "\r\n", nothing else.
  size_t lines = 0;
  for (size_t at = 0; (at = out.find("\r\n", at)) != std::string::npos; at += 2)
    ++lines;
  EXPECT_EQ(lines, 126u);
  EXPECT_EQ(out.find('\n'), out.find("\r\n") + 1);
  EXPECT_EQ(out.substr(out.size() - 2), "\r\n");
}

TEST(CubeWriterTest, FailureGivesEmptyText) {
  int calls = 0;
  const CubePipeline failsLate = [&](const float in[3], float out[3]) {
    out[0] = in[0], out[1] = in[1], out[2] = in[2];
    return ++calls < 20;
  };
  struct SCase {
    const char* what;
    CubePipeline pipeline;
    uint32_t size;
  };
  const SCase cases[] = {{"pipeline fails", failsLate, 3},
                         {"no pipeline", CubePipeline(), 3},
                         {"size 0", kIdentity, 0},
                         {"size 1", kIdentity, 1},
                         {"size 257", kIdentity, 257}};
  for (const SCase& c : cases) {
    std::string out = "previous";
    Tincta::WriteCubeText(c.pipeline, out, c.size);
    EXPECT_EQ(out, "") << c.what;
  }
}

TEST(CubeWriterTest, TableIsWrittenAsItStandsAndReadsBack) {
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(3, true));
  for (uint32_t b = 0; b < 3; ++b)
    for (uint32_t g = 0; g < 3; ++g)
      for (uint32_t r = 0; r < 3; ++r) {
        const Rgb c = NodeColour(r, g, b, 3);
        float* entry = lut.Table() + 4 * (r + 3 * g + 9 * b);
        entry[0] = c[0], entry[1] = c[1], entry[2] = c[2], entry[3] = 1;
      }
  std::string out;
  Tincta::WriteCubeText(lut, out);
  std::string expected = "LUT_3D_SIZE 3\r\n";
  for (uint32_t b = 0; b < 3; ++b)
    for (uint32_t g = 0; g < 3; ++g)
      for (uint32_t r = 0; r < 3; ++r)
        expected += RgbLine(NodeColour(r, g, b, 3)) + "\r\n";
  EXPECT_EQ(out, expected);

  COv3DLUT read;
  ASSERT_TRUE(Parse(read, out));
  ASSERT_EQ(read.Size(), 3u);
  for (uint32_t i = 0; i < 27; ++i)
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(read.Table()[4 * i + c], lut.Table()[4 * i + c], 5e-7);
}

TEST(CubeWriterTest, TablesCubeTextCannotHoldAreRefused) {
  COv3DLUT plain;
  ASSERT_TRUE(plain.Allocate(4, true));
  std::fill(plain.Table(), plain.Table() + 4 * plain.EntryCount(), 0.5f);
  COv3DLUT shaped;
  ASSERT_TRUE(shaped.Allocate(2, true));
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(4, false));
  shaped.SetInputShaper(shaper);
  COv3DLUT domain;
  ASSERT_TRUE(domain.Allocate(2, true));
  domain.SetDomain({0, 0, -0.1f, 0}, {1, 1, 1, 1});
  COv3DLUT flat;
  ASSERT_TRUE(flat.Allocate(8, false));
  COv3DLUT empty;
  for (const COv3DLUT* lut : {&flat, &shaped, &domain, &empty}) {
    std::string out = "previous";
    Tincta::WriteCubeText(*lut, out);
    EXPECT_EQ(out, "");
  }
  std::string out;
  Tincta::WriteCubeText(plain, out);
  EXPECT_EQ(out.substr(0, 43), "LUT_3D_SIZE 4\r\n0.500000 0.500000 0.500000\r\n");
}

}  // namespace
}  // namespace crandle_test
