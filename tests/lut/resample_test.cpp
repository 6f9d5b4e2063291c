// Table resampling, against an independent Catmull-Rom evaluation.
#include <cmath>
#include <cstdlib>
#include <functional>

#include "lut_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::Vec4;
using NodeValue = std::function<double(uint32_t r, uint32_t g, uint32_t b, int channel)>;

// Catmull-Rom through evenly spaced samples over [0, 1], in index units, with one-sided end
// tangents: the model that resampling must follow.
double CatmullRom(const std::vector<double>& y, double x) {
  const size_t n = y.size(), k = std::min(size_t(x * double(n - 1)), n - 2);
  const double t = x * double(n - 1) - double(k), t2 = t * t, t3 = t2 * t;
  const auto tangent = [&](size_t i) {
    return i == 0 ? y[1] - y[0] : i == n - 1 ? y[n - 1] - y[n - 2] : (y[i + 1] - y[i - 1]) / 2;
  };
  return (2 * t3 - 3 * t2 + 1) * y[k] + (t3 - 2 * t2 + t) * tangent(k) +
         (-2 * t3 + 3 * t2) * y[k + 1] + (t3 - t2) * tangent(k + 1);
}

COv3DLUT Make(uint32_t n, bool is3D, const NodeValue& value) {
  COv3DLUT lut;
  EXPECT_TRUE(lut.Allocate(n, is3D));
  for (size_t i = 0; i < lut.EntryCount() * 4; ++i) {
    const uint32_t entry = uint32_t(i / 4);
    lut.Table()[i] =
        i % 4 == 3 ? 1.0f : float(value(entry % n, entry / n % n, entry / n / n, int(i % 4)));
  }
  return lut;
}

double Identity(uint32_t n, uint32_t r, uint32_t g, uint32_t b, int c) {
  return double(c == 0 ? r : c == 1 ? g : b) / (n - 1);
}

TEST(Resample, IdentityStaysIdentity) {
  const struct {
    uint32_t from, to;
    bool is3D;
  } cases[] = {{17, 32, false}, {64, 17, false}, {2, 256, false}, {4096, 4099, false},
               {17, 32, true},  {33, 17, true},  {2, 33, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to << " " << c.is3D);
    const auto identity = [&c](uint32_t n) {
      return [&c, n](uint32_t r, uint32_t g, uint32_t b, int ch) {
        return c.is3D ? Identity(n, r, g, b, ch) : double(r) / (n - 1);
      };
    };
    COv3DLUT lut = Make(c.from, c.is3D, identity(c.from));
    ASSERT_TRUE(lut.Resample(c.to));
    ASSERT_EQ(lut.Size(), c.to);
    EXPECT_EQ(lut.StrideBlue(), c.is3D ? c.to * c.to * 4 : 0);
    const COv3DLUT expected = Make(c.to, c.is3D, identity(c.to));
    for (size_t i = 0; i < lut.EntryCount() * 4; ++i)
      ASSERT_NEAR(lut.Table()[i], expected.Table()[i], 1e-5) << i;
  }
}

// A cube that mixes the axes, so that each pass shows, from 5 to 9 points; a 1-D table is the
// red pass alone. Resampling is linear in the samples: the model weighs them by Catmull-Rom of
// unit samples.
TEST(Resample, CurvedTablesFollowCatmullRomAlongEachAxis) {
  const uint32_t n = 5, m = 9;
  const NodeValue node = [](uint32_t ri, uint32_t gi, uint32_t bi, int c) {
    const double r = ri / 4.0, g = gi / 4.0, b = bi / 4.0;
    return c == 0   ? std::pow(r, 2.2) * (1 + g) + b
           : c == 1 ? std::sin(5 * r) * std::cos(2 * b) + g * g * g
                    : r * g * b - std::sqrt(g) + 1 - std::sqrt(r);
  };
  double weight[m][n];
  for (uint32_t j = 0; j < m; ++j)
    for (uint32_t i = 0; i < n; ++i) {
      std::vector<double> unit(n, 0.0);
      unit[i] = 1;
      weight[j][i] = CatmullRom(unit, double(j) / (m - 1));
    }
  for (const bool is3D : {false, true}) {
    COv3DLUT lut = Make(n, is3D, node);
    ASSERT_TRUE(lut.Resample(m));
    const uint32_t along = is3D ? n : 1;
    for (uint32_t e = 0; e < lut.EntryCount(); ++e) {
      const uint32_t r = e % m, g = e / m % m, b = e / m / m;
      for (int c = 0; c < 3; ++c) {
        double expected = 0;
        for (uint32_t k = 0; k < along; ++k)
          for (uint32_t j = 0; j < along; ++j)
            for (uint32_t i = 0; i < n; ++i)
              expected +=
                  weight[r][i] * (is3D ? weight[g][j] * weight[b][k] : 1) * float(node(i, j, k, c));
        ASSERT_NEAR(At(lut, e)[c], expected, 1e-6) << is3D << " " << e << " " << c;
      }
    }
  }
}

TEST(Resample, SameSizeOrZeroChangesNothingAndTheDomainIsKept) {
  COv3DLUT lut = Make(
      3, true, [](uint32_t r, uint32_t g, uint32_t b, int c) { return Identity(3, r, g, b, c); });
  lut.SetDomain({-1, 0, 0, 1}, {1, 4, 2, 1});
  const float* table = lut.Table();
  EXPECT_TRUE(lut.Resample(3) && lut.Resample(0));
  EXPECT_EQ(lut.Table(), table);
  const auto digest = lut.ContentDigest();
  ASSERT_TRUE(lut.Resample(6));
  EXPECT_EQ(lut.DomainMin(), (Vec4{-1, 0, 0, 1}));
  EXPECT_FLOAT_EQ(lut.IndexScale()[1], 5.0f / 4);
  EXPECT_FLOAT_EQ(lut.TextureOffset()[0], float(0.5 / 6 + (1 - 1.0 / 6) / 2));
  EXPECT_NE(lut.ContentDigest(), digest) << "the kept digest belonged to the old table";
  EXPECT_FALSE(COv3DLUT().Resample(4));
  EXPECT_FALSE(lut.Resample(1u << 20)) << "byte counts that cannot exist are refused";
  EXPECT_EQ(lut.Size(), 6u);
}

}  // namespace
}  // namespace crandle_test
