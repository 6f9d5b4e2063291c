// The keyframe curve and table resampling, against an independent Catmull-Rom evaluation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "lut/hermite_curve.h"
#include "lut/lut3d.h"
#include "lut_test_helpers.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::COvHermiteCurve;
using Tincta::Vec4;
using namespace crandle_test;

// Catmull-Rom through evenly spaced samples y[0..n-1] over [0, 1], written in index units with
// one-sided end tangents: the model the resampling must agree with.
double CatmullRom(const std::vector<double>& y, double x) {
  const size_t n = y.size();
  if (n == 1) return y[0];
  const double u = std::clamp(x, 0.0, 1.0) * double(n - 1);
  const size_t k = std::min(size_t(u), n - 2);
  const double t = u - double(k);
  const auto tangent = [&](size_t i) {
    if (i == 0) return y[1] - y[0];
    if (i == n - 1) return y[n - 1] - y[n - 2];
    return (y[i + 1] - y[i - 1]) / 2;
  };
  const double t2 = t * t, t3 = t2 * t;
  return (2 * t3 - 3 * t2 + 1) * y[k] + (t3 - 2 * t2 + t) * tangent(k) +
         (-2 * t3 + 3 * t2) * y[k + 1] + (t3 - t2) * tangent(k + 1);
}

TEST(HermiteCurve, LinearKeysGiveTheLineAndEndsHold) {
  COvHermiteCurve curve;
  EXPECT_EQ(curve.Evaluate(0.3), 0.0);
  // Unevenly spaced keys on y = 3x - 1, added out of order.
  for (double x : {0.5, 0.0, 0.1, 1.0, 0.35, 0.9})
    curve.AddKey(x, 3 * x - 1);
  ASSERT_EQ(curve.KeyCount(), 6u);
  for (double x = 0; x <= 1.0; x += 1.0 / 97)
    EXPECT_NEAR(curve.Evaluate(x), 3 * x - 1, 1e-12) << x;
  EXPECT_EQ(curve.Evaluate(-5), -1.0);
  EXPECT_EQ(curve.Evaluate(7), 2.0);
  EXPECT_EQ(curve.Evaluate(NAN), -1.0);

  COvHermiteCurve single;
  single.AddKey(0.4, 0.7);
  for (double x : {-1.0, 0.0, 0.4, 0.9})
    EXPECT_EQ(single.Evaluate(x), 0.7);
}

TEST(HermiteCurve, KeysWithinABillionthReplaceTheirNeighbour) {
  struct {
    double second;
    size_t keys;
    double valueAtHalf;
  } const cases[] = {
      {0.5 + 5e-10, 3, 9},  // replaces the key at 0.5
      {0.5 - 5e-10, 3, 9},
      {0.5 + 2e-9, 4, 4},  // a key of its own
      {0.5 - 2e-9, 4, 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.second);
    COvHermiteCurve curve;
    curve.AddKey(0.0, 0);
    curve.AddKey(0.5, 4);
    curve.AddKey(1.0, 0);
    curve.AddKey(c.second, 9);
    EXPECT_EQ(curve.KeyCount(), c.keys);
    EXPECT_EQ(curve.Evaluate(0.5), c.valueAtHalf);
  }
}

TEST(HermiteCurve, MatchesCatmullRomOnEvenKeys) {
  const std::vector<double> y{0.0, 0.8, 0.1, 0.5, 1.0, -0.3, 0.2};
  COvHermiteCurve curve;
  for (size_t i = 0; i < y.size(); ++i)
    curve.AddKey(double(i) / (y.size() - 1), y[i]);
  for (int j = 0; j <= 240; ++j) {
    const double x = j / 240.0;
    EXPECT_NEAR(curve.Evaluate(x), CatmullRom(y, x), 1e-12) << x;
  }
  // Keys are met exactly.
  for (size_t i = 0; i < y.size(); ++i) {
    EXPECT_NEAR(curve.Evaluate(double(i) / (y.size() - 1)), y[i], 1e-15);
  }
}

COv3DLUT Make1D(const std::vector<std::array<float, 3>>& values) {
  COv3DLUT lut;
  EXPECT_TRUE(lut.Allocate(uint32_t(values.size()), false));
  for (size_t i = 0; i < values.size(); ++i) {
    for (int c = 0; c < 3; ++c)
      lut.Table()[4 * i + c] = values[i][c];
    lut.Table()[4 * i + 3] = 1;
  }
  return lut;
}

COv3DLUT Make3D(uint32_t n, const RGBFunction& rgb) {
  COv3DLUT lut;
  EXPECT_TRUE(lut.Allocate(n, true));
  for (uint32_t i = 0; i < n * n * n; ++i) {
    const auto v = rgb(i);
    float* entry = lut.Table() + 4 * i;
    entry[0] = v[0];
    entry[1] = v[1];
    entry[2] = v[2];
    entry[3] = 1;
  }
  return lut;
}

struct SSizes {
  uint32_t from, to;
};

TEST(Resample, IdentityStaysIdentity) {
  for (const SSizes s : {SSizes{17, 32}, SSizes{33, 64}, SSizes{65, 128}, SSizes{64, 17},
                         SSizes{2, 256}, SSizes{4096, 4099}}) {
    SCOPED_TRACE(testing::Message() << s.from << " -> " << s.to);
    std::vector<std::array<float, 3>> ramp(s.from);
    for (uint32_t i = 0; i < s.from; ++i)
      ramp[i] = Identity1D(s.from)(i);
    COv3DLUT lut = Make1D(ramp);
    ASSERT_TRUE(lut.Resample(s.to));
    ASSERT_EQ(lut.Size(), s.to);
    EXPECT_FALSE(lut.Is3D());
    EXPECT_EQ(lut.StrideGreen(), 0u);
    for (uint32_t j = 0; j < s.to; ++j) {
      for (int c = 0; c < 3; ++c)
        ASSERT_NEAR(EntryAt(lut, j)[c], double(j) / (s.to - 1), 1e-5);
      ASSERT_EQ(EntryAt(lut, j)[3], 1.0f);
    }
  }
  for (const SSizes s : {SSizes{17, 32}, SSizes{33, 17}, SSizes{2, 33}}) {
    SCOPED_TRACE(testing::Message() << s.from << "^3 -> " << s.to << "^3");
    COv3DLUT lut = Make3D(s.from, Identity3D(s.from));
    ASSERT_TRUE(lut.Resample(s.to));
    ASSERT_EQ(lut.Size(), s.to);
    EXPECT_EQ(lut.StrideGreen(), s.to * 4);
    EXPECT_EQ(lut.StrideBlue(), s.to * s.to * 4);
    const auto expected = Identity3D(s.to);
    for (uint32_t e = 0; e < s.to * s.to * s.to; ++e) {
      for (int c = 0; c < 3; ++c)
        ASSERT_NEAR(EntryAt(lut, e)[c], expected(e)[c], 1e-5) << e;
      ASSERT_EQ(EntryAt(lut, e)[3], 1.0f);
    }
  }
}

TEST(Resample, CurvedTablesFollowCatmullRom) {
  const uint32_t n = 11, m = 29;
  const auto f = [](int channel, double x) {
    return channel == 0 ? std::pow(x, 2.2) : channel == 1 ? std::sin(5 * x) : 1 - std::sqrt(x);
  };
  std::vector<std::array<float, 3>> values(n);
  std::vector<double> samples[3];
  for (uint32_t i = 0; i < n; ++i) {
    for (int c = 0; c < 3; ++c) {
      values[i][c] = float(f(c, double(i) / (n - 1)));
      samples[c].push_back(values[i][c]);
    }
  }
  COv3DLUT lut = Make1D(values);
  ASSERT_TRUE(lut.Resample(m));
  for (uint32_t j = 0; j < m; ++j) {
    for (int c = 0; c < 3; ++c) {
      ASSERT_NEAR(EntryAt(lut, j)[c], CatmullRom(samples[c], double(j) / (m - 1)), 2e-7) << j;
    }
  }
}

TEST(Resample, CurvedCubesFollowCatmullRomAlongEachAxis) {
  const uint32_t n = 5, m = 9;
  // A cube that mixes the axes, so that each pass shows.
  const auto node = [n](uint32_t i, int c) {
    const double r = double(i % n) / (n - 1), g = double(i / n % n) / (n - 1),
                 b = double(i / n / n) / (n - 1);
    return c == 0   ? r * r * g + b
           : c == 1 ? std::sin(3 * r) * std::cos(2 * b) + g * g * g
                    : r * g * b - std::sqrt(g);
  };
  COv3DLUT lut = Make3D(n, [&](uint32_t i) {
    return std::array<float, 3>{float(node(i, 0)), float(node(i, 1)), float(node(i, 2))};
  });
  ASSERT_TRUE(lut.Resample(m));
  ASSERT_EQ(lut.Size(), m);
  // The model: red, then green, then blue, each through CatmullRom, in double.
  std::vector<double> alongRed(size_t(m) * n * n), alongGreen(size_t(m) * m * n);
  std::vector<double> y(n);
  for (int c = 0; c < 3; ++c) {
    SCOPED_TRACE(c);
    for (uint32_t b = 0; b < n; ++b) {
      for (uint32_t g = 0; g < n; ++g) {
        for (uint32_t r = 0; r < n; ++r)
          y[r] = float(node(r + n * g + n * n * b, c));
        for (uint32_t r = 0; r < m; ++r) {
          alongRed[r + m * g + m * n * b] = CatmullRom(y, double(r) / (m - 1));
        }
      }
    }
    for (uint32_t b = 0; b < n; ++b) {
      for (uint32_t r = 0; r < m; ++r) {
        for (uint32_t g = 0; g < n; ++g)
          y[g] = alongRed[r + m * g + m * n * b];
        for (uint32_t g = 0; g < m; ++g) {
          alongGreen[r + m * g + m * m * b] = CatmullRom(y, double(g) / (m - 1));
        }
      }
    }
    for (uint32_t g = 0; g < m; ++g) {
      for (uint32_t r = 0; r < m; ++r) {
        for (uint32_t b = 0; b < n; ++b)
          y[b] = alongGreen[r + m * g + m * m * b];
        for (uint32_t b = 0; b < m; ++b) {
          const double expected = CatmullRom(y, double(b) / (m - 1));
          ASSERT_NEAR(EntryAt(lut, r + m * g + m * m * b)[c], expected, 1e-6) << r << g << b;
        }
      }
    }
  }
}

TEST(Resample, OneEntryBecomesAConstant) {
  COv3DLUT lut = Make1D({{0.25f, 0.5f, 0.75f}});
  ASSERT_TRUE(lut.Resample(128));
  for (uint32_t j = 0; j < 128; ++j)
    ASSERT_EQ(EntryAt(lut, j), (Vec4{0.25f, 0.5f, 0.75f, 1}));
  COv3DLUT cube = Make3D(1, [](uint32_t) { return std::array<float, 3>{1, 2, 3}; });
  ASSERT_TRUE(cube.Resample(4));
  for (uint32_t e = 0; e < 64; ++e)
    ASSERT_EQ(EntryAt(cube, e), (Vec4{1, 2, 3, 1}));
}

TEST(Resample, SameSizeOrZeroChangesNothingAndTheDomainIsKept) {
  COv3DLUT lut = Make3D(3, Identity3D(3));
  lut.SetDomain({-1, 0, 0, 1}, {1, 4, 2, 1});
  const float* table = lut.Table();
  EXPECT_TRUE(lut.Resample(3));
  EXPECT_TRUE(lut.Resample(0));
  EXPECT_EQ(lut.Table(), table);
  const auto digest = lut.ContentDigest();
  ASSERT_TRUE(lut.Resample(6));
  EXPECT_EQ(lut.DomainMin(), (Vec4{-1, 0, 0, 1}));
  EXPECT_EQ(lut.DomainMax(), (Vec4{1, 4, 2, 1}));
  EXPECT_FLOAT_EQ(lut.IndexScale()[1], 5.0f / 4);
  EXPECT_FLOAT_EQ(lut.TextureOffset()[0], float(0.5 / 6 + (1 - 1.0 / 6) / 2));
  EXPECT_NE(lut.ContentDigest(), digest) << "the kept digest belonged to the old table";

  COv3DLUT empty;
  EXPECT_FALSE(empty.Resample(4));
  EXPECT_EQ(empty.Size(), 0u);
}

TEST(ResampleDeathTest, WithoutMemoryTheTableIsLeftAsItWas) {
  if (kUnderSanitizer) GTEST_SKIP() << "an address-space cap breaks the sanitizers";
  EXPECT_EXIT(
      {
        COv3DLUT lut = Make3D(17, Identity3D(17));
        COv3DLUT ramp = Make1D({{0, 0, 0}, {1, 1, 1}});
        const float* table = lut.Table();
        if (!LimitAddressSpace(64u << 20)) std::_Exit(2);
        // 200^3 x 16 bytes = 128 MB, and 2^28 x 16 bytes = 4 GiB: neither fits.
        const bool failed = !lut.Resample(200) && !ramp.Resample(1u << 28);
        const bool unchanged = lut.Table() == table && lut.Size() == 17 &&
                               lut.StrideBlue() == 17 * 17 * 4 &&
                               EntryAt(lut, 4912) == (Vec4{1, 1, 1, 1}) && ramp.Size() == 2;
        std::_Exit(failed && unchanged ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  COv3DLUT huge = Make3D(2, Identity3D(2));
  EXPECT_FALSE(huge.Resample(1u << 20)) << "byte counts that cannot exist are refused";
  EXPECT_EQ(huge.Size(), 2u);
}

}  // namespace
