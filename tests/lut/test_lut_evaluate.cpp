// The exact evaluator against values worked out by hand: curves with known entries, cubes of
// several sizes holding multilinear functions (which trilinear interpolation reproduces exactly,
// so the expectation is the function itself), domains other than [0, 1], a shaper, and NaN.
#include <cmath>
#include <memory>
#include <random>

#include "lut/lut_evaluate.h"
#include "support/lut_test.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::Rgb64;

// A multilinear function of the unit cube's coordinates: what a 2-point cube holds at its corners
// is then reproduced everywhere inside.
Rgb64 Multilinear(const Rgb64& u) {
  const double r = u[0], g = u[1], b = u[2];
  return {0.1 + 0.5 * r + 0.2 * g * b, r * g * b - 0.25 * g, 1.0 - 0.3 * b + 0.4 * r * g};
}

// A cube of n points per axis holding Multilinear at its nodes.
void FillCube(COv3DLUT& lut, uint32_t n) {
  crandle_test::Fill(lut, n, true, [last = double(n - 1), n](size_t e) {
    const Rgb64 v = Multilinear({(e % n) / last, (e / n % n) / last, (e / n / n) / last});
    return Tincta::Vec4{float(v[0]), float(v[1]), float(v[2]), 1};
  });
}

TEST(LUTEvaluate, CurvesInterpolateTheirEntriesAndHoldTheEndsOutsideTheDomain) {
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(3, false));
  const float entries[3][4] = {{0, 1, 0.2f, 1}, {0.25f, 0.5f, 0.2f, 1}, {1, 0, 0.8f, 1}};
  std::copy(&entries[0][0], &entries[0][0] + 12, lut.Table());
  const std::pair<double, Rgb64> cases[] = {
      {0.0, {0, 1, 0.2f}},      {0.25, {0.125, 0.75, 0.2f}},
      {0.5, {0.25, 0.5, 0.2f}}, {0.75, {0.625, 0.25, 0.5}},
      {1.0, {1, 0, 0.8f}},      {-3.0, {0, 1, 0.2f}},
      {7.0, {1, 0, 0.8f}},      {0.999999, {1 - 0.75e-6 * 2, 1e-6, 0.8 - 0.6e-6 * 2}},
  };
  for (const auto& [in, out] : cases) {
    const Rgb64 got = Tincta::EvaluateLUT(lut, {in, in, in});
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(got[k], out[k], 1e-7) << "input " << in << " channel " << k;
  }
  // NaN reaches only its own channel.
  const Rgb64 nan = Tincta::EvaluateLUT(lut, {NAN, 0.5, 0.5});
  EXPECT_TRUE(std::isnan(nan[0]));
  EXPECT_EQ(nan[1], 0.5);
}

TEST(LUTEvaluate, CubesOfEverySizeReproduceMultilinearFunctionsUpToTheLastEntry) {
  for (const uint32_t n : {2u, 3u, 5u, 17u, 32u, 33u, 65u}) {
    COv3DLUT lut;
    FillCube(lut, n);
    std::mt19937 random(n);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Rgb64> inputs = {{0, 0, 0}, {1, 1, 1}, {1, 0, 1}, {0.5, 0.25, 0.75}};
    for (int i = 0; i < 100; ++i)
      inputs.push_back({unit(random), unit(random), unit(random)});
    for (const Rgb64& in : inputs) {
      const Rgb64 expected = Multilinear(in), got = Tincta::EvaluateLUT(lut, in);
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(got[c], expected[c], 2e-7) << "size " << n;  // the entries are floats
    }
    // NaN reaches every channel of a cube; white reads the last entry itself, not 1% of a cell
    // short of it.
    for (const double v : Tincta::EvaluateLUT(lut, {0.5, NAN, 0.5}))
      EXPECT_TRUE(std::isnan(v)) << n;
    const float* last = lut.Table() + 4 * (lut.EntryCount() - 1);
    EXPECT_EQ(Tincta::EvaluateLUT(lut, {1, 1, 1}), (Rgb64{last[0], last[1], last[2]})) << n;
  }
}

TEST(LUTEvaluate, DomainsMapOntoTheEntriesPerChannelAndClampOutside) {
  COv3DLUT lut;
  FillCube(lut, 2);
  const Rgb64 min{-0.5, 0, 1}, max{2, 4, 3};
  lut.SetDomain({-0.5f, 0, 1, 0}, {2, 4, 3, 1});
  auto unitOf = [&](const Rgb64& x) {
    Rgb64 u;
    for (int c = 0; c < 3; ++c)
      u[c] = std::clamp((x[c] - min[c]) / (max[c] - min[c]), 0.0, 1.0);
    return u;
  };
  const Rgb64 inputs[] = {{-0.5, 0, 1}, {2, 4, 3}, {0, 1, 2}, {0.75, 3.5, 1.1}, {-9, 9, 0}};
  for (const Rgb64& in : inputs) {
    const Rgb64 expected = Multilinear(unitOf(in)), got = Tincta::EvaluateLUT(lut, in);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[c], expected[c], 2e-7) << in[0] << " " << in[1] << " " << in[2];
  }
  Rgb64 domainMin, domainMax;
  Tincta::InputDomainOf(lut, domainMin, domainMax);
  EXPECT_EQ(domainMin, min);
  EXPECT_EQ(domainMax, max);
}

TEST(LUTEvaluate, AShaperGivesTheCubesTextureCoordinates) {
  // A 2-point cube behind a 3-entry shaper whose middle entry sits a quarter of the way between
  // the texel centres 0.25 and 0.75: inputs up to 0.5 reach u = x / 2, the rest rise to 1.
  COv3DLUT lut;
  FillCube(lut, 2);
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(3, false));
  for (int i = 0; i < 12; ++i)
    shaper->Table()[i] = i % 4 == 3 ? 1.0f : std::array{0.25f, 0.375f, 0.75f}[i / 4];
  shaper->SetDomain({0, 0, 0, 0}, {1, 1, 1, 1});
  lut.SetInputShaper(shaper);
  lut.SetDomain({0.25f, 0.25f, 0.25f, 0.25f}, {0.75f, 0.75f, 0.75f, 0.75f});
  auto u = [](double x) { return x <= 0.5 ? x / 2 : 0.25 + 1.5 * (x - 0.5); };
  for (const double x : {0.0, 0.2, 0.5, 0.6, 0.9, 1.0}) {
    const Rgb64 expected = Multilinear({u(x), u(1 - x), u(x / 2)});
    const Rgb64 got = Tincta::EvaluateLUT(lut, {x, 1 - x, x / 2});
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[c], expected[c], 2e-7) << x;
  }
  Rgb64 min, max;
  Tincta::InputDomainOf(lut, min, max);
  EXPECT_EQ(max, (Rgb64{1, 1, 1})) << "the shaper's domain is the one a colour meets";
}

}  // namespace
