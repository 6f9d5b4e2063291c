// crandle plot: the picture's size, its curve pixels where the LUT's values put them, its slices'
// colours, and a failure that leaves no picture.
#include <gtest/gtest.h>

#include <OpenImageIO/imagebuf.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/cli_runner.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::RunTool;
using crandle_test::TempDir;

using Curve = std::function<double(double)>;

// The plot's documented geometry.
constexpr int kWidth = 576;
constexpr int kLeft = 48;
constexpr int kTop = 32;
constexpr int kBox = 512;

std::string Cube1D(int size, const Curve curves[3]) {
  std::string text = "LUT_1D_SIZE " + std::to_string(size) + "\n";
  for (int i = 0; i < size; ++i) {
    const double t = double(i) / (size - 1);
    char line[96];
    std::snprintf(line, sizeof(line), "%.7f %.7f %.7f\n", curves[0](t), curves[1](t), curves[2](t));
    text += line;
  }
  return text;
}

// A 3-D table linear in each channel, so that trilinear sampling gives it exactly.
std::string LinearCube(int size) {
  std::string text = "LUT_3D_SIZE " + std::to_string(size) + "\n";
  for (int b = 0; b < size; ++b) {
    for (int g = 0; g < size; ++g) {
      for (int r = 0; r < size; ++r) {
        const double n = size - 1;
        char line[96];
        std::snprintf(line, sizeof(line), "%.7f %.7f %.7f\n", 0.5 * r / n + 0.25, g / n,
                      1.0 - b / n);
        text += line;
      }
    }
  }
  return text;
}

struct SPicture {
  int width = 0, height = 0;
  std::vector<float> pixels;  // RGB
  float At(int x, int y, int c) const { return pixels[(size_t(y) * width + x) * 3 + c]; }
};

SPicture ReadPicture(const std::string& path) {
  OIIO::ImageBuf image(path);
  SPicture picture;
  if (!image.read(0, 0, true, OIIO::TypeDesc::FLOAT)) {
    ADD_FAILURE() << "cannot read " << path << ": " << image.geterror();
    return picture;
  }
  picture.width = image.spec().width;
  picture.height = image.spec().height;
  picture.pixels.resize(size_t(picture.width) * picture.height * 3);
  image.get_pixels(OIIO::ROI(0, picture.width, 0, picture.height, 0, 1, 0, 3),
                   OIIO::TypeDesc::FLOAT, picture.pixels.data());
  return picture;
}

// For every column of the curve box, the rows lit in `channel` must include the row that the
// expected value gives, within one pixel.
void ExpectCurve(const SPicture& picture, int channel, const Curve& expected, double low,
                 double high) {
  int misses = 0;
  for (int c = 0; c < kBox; ++c) {
    const double v = expected(double(c) / (kBox - 1));
    const int row = kTop + int(std::lround((1.0 - (v - low) / (high - low)) * (kBox - 1)));
    int nearest = 1 << 20;
    for (int y = kTop; y < kTop + kBox; ++y) {
      if (picture.At(kLeft + c, y, channel) > 0.9f) nearest = std::min(nearest, std::abs(y - row));
    }
    if (nearest > 1 && misses++ < 5) {
      ADD_FAILURE() << "channel " << channel << " column " << c << ": expected row " << row
                    << ", nearest lit pixel " << nearest << " rows away";
    }
  }
  EXPECT_EQ(misses, 0) << "channel " << channel;
}

TEST(ToolPlot, CurvesOfA1DTableLieWhereItsValuesPutThem) {
  const struct {
    const char* name;
    Curve curves[3];
    double low, high;
  } cases[] = {
      {"within 0..1",
       {[](double t) { return t * t; }, [](double t) { return t; },
        [](double t) { return 0.25 + 0.5 * t; }},
       0.0,
       1.0},
      // Values beyond 0..1 widen the value axis to their own range.
      {"beyond 0..1",
       {[](double t) { return 2 * t - 0.5; }, [](double t) { return 1.5 - t; },
        [](double) { return 0.5; }},
       -0.5,
       1.5},
  };
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string lut = dir.Write("curves.cube", Cube1D(1024, c.curves));
    const std::string png = (dir.Path() / "curves.png").string();
    const auto run = RunTool("plot '" + lut + "' -o '" + png + "'");
    ASSERT_EQ(run.status, 0) << run.err;
    const SPicture picture = ReadPicture(png);
    EXPECT_EQ(picture.width, kWidth);
    EXPECT_EQ(picture.height, 676);
    if (picture.width != kWidth || picture.height != 676) continue;
    for (int channel = 0; channel < 3; ++channel)
      ExpectCurve(picture, channel, c.curves[channel], c.low, c.high);
  }
}

TEST(ToolPlot, A3DTableGivesItsNeutralAxisAndSlicesAtRisingBlue) {
  TempDir dir;
  const std::string lut = dir.Write("linear.cube", LinearCube(5));
  const std::string png = (dir.Path() / "linear.png").string();
  const auto run = RunTool("plot '" + lut + "' -o '" + png + "'");
  ASSERT_EQ(run.status, 0) << run.err;
  const SPicture picture = ReadPicture(png);
  ASSERT_EQ(picture.width, kWidth);
  ASSERT_EQ(picture.height, 954);
  ExpectCurve(
      picture, 0, [](double t) { return 0.5 * t + 0.25; }, 0, 1);
  ExpectCurve(
      picture, 1, [](double t) { return t; }, 0, 1);
  ExpectCurve(
      picture, 2, [](double t) { return 1 - t; }, 0, 1);

  // Slice k at (48 + (k % 4) * 129, 684 + (k / 4) * 129), 125 pixels a side; its bottom left is
  // red 0, green 0 and its top right red 1, green 1, at blue k / 7. Colours within 8-bit steps,
  // and the CPU sampler's edge clamp at the far corner.
  const struct {
    int x, y;
    double r, g, b;
  } probes[] = {
      {48, 684 + 124, 0.25, 0.0, 1.0},                  // slice 0, red 0 green 0 blue 0
      {48 + 124, 684, 0.75, 1.0, 1.0},                  // slice 0, red 1 green 1 blue 0
      {48 + 3 * 129, 684 + 129 + 124, 0.25, 0.0, 0.0},  // slice 7, red 0 green 0 blue 1
      {48 + 2 * 129 + 62, 684 + 129 + 62, 0.5, 0.5, 1.0 - 6.0 / 7.0},  // slice 6, the middle
  };
  for (const auto& p : probes) {
    EXPECT_NEAR(picture.At(p.x, p.y, 0), p.r, 0.01) << p.x << "," << p.y;
    EXPECT_NEAR(picture.At(p.x, p.y, 1), p.g, 0.01) << p.x << "," << p.y;
    EXPECT_NEAR(picture.At(p.x, p.y, 2), p.b, 0.01) << p.x << "," << p.y;
  }
}

TEST(ToolPlot, ABrokenLUTFailsWithItsReasonAndWritesNothing) {
  TempDir dir;
  const std::string lut = dir.Write("broken.cube", "LUT_3D_SIZE 2\n0 0 0\n1 x 1\n");
  const std::string png = (dir.Path() / "broken.png").string();
  const auto run = RunTool("plot '" + lut + "' -o '" + png + "'");
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("line 3: '1 x 1' is not three numbers"), std::string::npos) << run.err;
  EXPECT_FALSE(std::filesystem::exists(png));
}

}  // namespace
