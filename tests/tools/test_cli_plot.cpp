// crandle plot: the picture's size, its curve pixels where the LUT's values put them, and its
// slices' colours.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

// The plot's documented geometry.
constexpr int kWidth = 576;
constexpr int kLeft = 48;
constexpr int kTop = 32;
constexpr int kBox = 512;

// For every column of the curve box, the rows lit in each channel must include the row that
// f(t, t, t) gives there, within one pixel.
void ExpectCurves(const SImageFile& picture, const RGBFunction& f, double low, double high) {
  if (picture.samples.empty()) return;  // Plot has said why
  for (int channel = 0; channel < 3; ++channel) {
    int misses = 0;
    for (int c = 0; c < kBox; ++c) {
      const double t = double(c) / (kBox - 1);
      double v[3];
      f(t, t, t, v);
      const int row = kTop + int(std::lround((1 - (v[channel] - low) / (high - low)) * (kBox - 1)));
      int nearest = 1 << 20;
      for (int y = kTop; y < kTop + kBox; ++y) {
        if (picture.At(kLeft + c, y, channel) > 0.9f)
          nearest = std::min(nearest, std::abs(y - row));
      }
      if (nearest > 1 && misses++ < 5) {
        ADD_FAILURE() << "channel " << channel << " column " << c << ": expected row " << row
                      << ", nearest lit pixel " << nearest << " rows away";
      }
    }
    EXPECT_EQ(misses, 0) << "channel " << channel;
  }
}

// The plot of `lut` (written as `name`), `height` pixels high.
SImageFile Plot(const TempDir& dir, const std::string& name, const std::string& lut, int height) {
  const std::string png = (dir.Path() / (name + ".png")).string();
  const auto run = RunTool("plot " + Quote(dir.Write(name + ".cube", lut)) + " -o " + Quote(png));
  EXPECT_EQ(run.status, 0) << run.err;
  SImageFile picture = ReadImageFile(png);
  EXPECT_EQ(picture.width, kWidth);
  EXPECT_EQ(picture.height, height);
  if (picture.width != kWidth || picture.height != height) picture.samples.clear();
  return picture;
}

void Within(double r, double g, double b, double out[3]) {
  out[0] = r * r, out[1] = g, out[2] = 0.25 + 0.5 * b;
}
void Beyond(double r, double g, double, double out[3]) {
  out[0] = 2 * r - 0.5, out[1] = 1.5 - g, out[2] = 0.5;
}
// Linear in each channel, so that trilinear sampling gives it exactly.
void Linear(double r, double g, double b, double out[3]) {
  out[0] = 0.5 * r + 0.25, out[1] = g, out[2] = 1 - b;
}

TEST(ToolPlot, CurvesOfA1DTableLieWhereItsValuesPutThem) {
  TempDir dir;
  ExpectCurves(Plot(dir, "within", CubeText1D(1024, Within), 676), Within, 0, 1);
  // Values beyond 0..1 widen the value axis to their own range.
  ExpectCurves(Plot(dir, "beyond", CubeText1D(1024, Beyond), 676), Beyond, -0.5, 1.5);
}

TEST(ToolPlot, A3DTableGivesItsNeutralAxisAndSlicesAtRisingBlue) {
  TempDir dir;
  const SImageFile picture = Plot(dir, "linear", CubeText3D(5, Linear), 954);
  ASSERT_FALSE(picture.samples.empty());
  ExpectCurves(picture, Linear, 0, 1);
  // Slice k at (48 + (k % 4) * 129, 684 + (k / 4) * 129), 125 pixels a side; its bottom left is
  // red 0, green 0 and its top right red 1, green 1, at blue k / 7. Colours within 8-bit steps,
  // and the CPU sampler's edge clamp at the far corner.
  const struct {
    int x, y;
    double rgb[3];
  } probes[] = {
      {48, 684 + 124, {0.25, 0.0, 1.0}},                  // slice 0, red 0 green 0 blue 0
      {48 + 124, 684, {0.75, 1.0, 1.0}},                  // slice 0, red 1 green 1 blue 0
      {48 + 3 * 129, 684 + 129 + 124, {0.25, 0.0, 0.0}},  // slice 7, red 0 green 0 blue 1
      {48 + 2 * 129 + 62, 684 + 129 + 62, {0.5, 0.5, 1.0 - 6.0 / 7.0}},  // slice 6, the middle
  };
  for (const auto& p : probes) {
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(picture.At(p.x, p.y, c), p.rgb[c], 0.01) << p.x << "," << p.y << " channel " << c;
  }
}

}  // namespace
}  // namespace crandle_test
