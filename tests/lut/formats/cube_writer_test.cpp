// Cube text out of a pipeline or a table: exact bytes, numbers as printf writes them, refusals.
#include <cstdio>
#include <limits>

#include "lut/cube_writer.h"
#include "lut_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::CubePipeline;

const CubePipeline kIdentity = [](const float in[3], float out[3]) {
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
}

TEST(CubeWriter, WhatCubeTextCannotHoldGivesEmptyText) {
  int calls = 0;
  const CubePipeline failsLate = [&calls](const float in[3], float out[3]) {
    return kIdentity(in, out) && ++calls < 20;
  };
  const std::pair<CubePipeline, uint32_t> pipelines[] = {
      {failsLate, 3}, {CubePipeline(), 3}, {kIdentity, 1}, {kIdentity, 257}};
  COv3DLUT flat, shaped, domain, empty;
  ASSERT_TRUE(flat.Allocate(8, false) && shaped.Allocate(2, true) && domain.Allocate(2, true));
  shaped.SetInputShaper(std::make_shared<COv3DLUT>(flat));
  domain.SetDomain({0, 0, -0.1f, 0}, {1, 1, 1, 1});
  for (const auto& [pipeline, size] : pipelines) {
    std::string out = "previous";
    Tincta::WriteCubeText(pipeline, out, size);
    EXPECT_EQ(out, "") << size;
  }
  for (const COv3DLUT* lut : {&flat, &shaped, &domain, &empty}) {
    std::string out = "previous";
    Tincta::WriteCubeText(*lut, out);
    EXPECT_EQ(out, "");
  }
}

}  // namespace
}  // namespace crandle_test
