#include "lut/lut_evaluate.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tincta {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Where an entry coordinate t in [0, n - 1] falls: the lower entry and the weight of the next.
struct SAxis {
  uint32_t low = 0;
  uint32_t high = 0;
  double fraction = 0;
};

SAxis AxisAt(double t, uint32_t n) {
  const double last = double(n - 1);
  t = std::clamp(t, 0.0, last);
  SAxis axis;
  axis.low = uint32_t(t);
  if (axis.low >= n - 1) {
    // The last entry itself, so that domainMax reads it exactly.
    axis.low = axis.high = n - 1;
    return axis;
  }
  axis.high = axis.low + 1;
  axis.fraction = t - double(axis.low);
  return axis;
}

// The entry coordinate of x on one channel of a table of n entries over [min, max].
double DomainCoordinate(double x, float min, float max, uint32_t n) {
  const double span = double(max) - double(min);
  const double scale = span == 0.0 ? double(n - 1) * 10000.0 : double(n - 1) / span;
  return (x - double(min)) * scale;
}

double Lerp(double a, double b, double f) {
  return a + (b - a) * f;
}

// Channel c of a 1-D table at entry coordinate t.
double Curve(const COv3DLUT& lut, int c, double t) {
  if (std::isnan(t)) return kNaN;
  const SAxis axis = AxisAt(t, lut.Size());
  const float* table = lut.Table();
  return Lerp(table[4 * size_t(axis.low) + c], table[4 * size_t(axis.high) + c], axis.fraction);
}

Rgb64 Curves(const COv3DLUT& lut, const Rgb64& rgb) {
  Rgb64 out;
  for (int c = 0; c < 3; ++c) {
    out[c] =
        Curve(lut, c, DomainCoordinate(rgb[c], lut.DomainMin()[c], lut.DomainMax()[c], lut.Size()));
  }
  return out;
}

Rgb64 Trilinear(const COv3DLUT& lut, const Rgb64& t) {
  if (std::isnan(t[0]) || std::isnan(t[1]) || std::isnan(t[2])) return {kNaN, kNaN, kNaN};
  const uint32_t n = lut.Size();
  const SAxis r = AxisAt(t[0], n), g = AxisAt(t[1], n), b = AxisAt(t[2], n);
  const float* table = lut.Table();
  auto entry = [&](uint32_t ri, uint32_t gi, uint32_t bi, int c) {
    return double(table[4 * (size_t(ri) + size_t(n) * gi + size_t(n) * n * bi) + c]);
  };
  Rgb64 out;
  for (int c = 0; c < 3; ++c) {
    const double c00 =
        Lerp(entry(r.low, g.low, b.low, c), entry(r.high, g.low, b.low, c), r.fraction);
    const double c10 =
        Lerp(entry(r.low, g.high, b.low, c), entry(r.high, g.high, b.low, c), r.fraction);
    const double c01 =
        Lerp(entry(r.low, g.low, b.high, c), entry(r.high, g.low, b.high, c), r.fraction);
    const double c11 =
        Lerp(entry(r.low, g.high, b.high, c), entry(r.high, g.high, b.high, c), r.fraction);
    out[c] = Lerp(Lerp(c00, c10, g.fraction), Lerp(c01, c11, g.fraction), b.fraction);
  }
  return out;
}

}  // namespace

Rgb64 EvaluateLUT(const COv3DLUT& lut, const Rgb64& rgb) {
  if (lut.Size() == 0 || !lut.Table()) return rgb;
  if (!lut.Is3D()) return Curves(lut, rgb);
  const COv3DLUT* shaper = lut.InputShaper();
  Rgb64 t;
  if (shaper && shaper->Size() > 0 && shaper->Table()) {
    const Rgb64 s = Curves(*shaper, rgb);
    for (int c = 0; c < 3; ++c)
      t[c] = s[c] * double(lut.Size()) - 0.5;
  } else {
    for (int c = 0; c < 3; ++c)
      t[c] = DomainCoordinate(rgb[c], lut.DomainMin()[c], lut.DomainMax()[c], lut.Size());
  }
  return Trilinear(lut, t);
}

void InputDomainOf(const COv3DLUT& lut, Rgb64& min, Rgb64& max) {
  const COv3DLUT& first = lut.InputShaper() ? *lut.InputShaper() : lut;
  for (int c = 0; c < 3; ++c) {
    min[c] = first.DomainMin()[c];
    max[c] = first.DomainMax()[c];
  }
}

}  // namespace Tincta
