// A double-precision model of the GPU LUT kernels from their formulas: s = v x scale + offset,
// x = s x n - 0.5 snapped to the ends within n x 2^-21 and clamped to [0, n - 1] (NaN to 0);
// tetrahedral interpolation walks the cell along the axes in decreasing order of their fractions.
// Frames are blue first, tables red first. Also the LUTs, source pixels and check the tests share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lut/lut3d.h"

namespace crandle_test {

using Bgra = std::array<double, 4>;
using Rgb = std::array<double, 3>;

enum class EModelKind { k1D, k3D, k1D3D };

struct SModelAxis {
  size_t low, high;
  double fraction;
};

inline SModelAxis ModelAxisOf(double s, uint32_t n) {
  double x = s * n - 0.5;
  const double last = n - 1.0;
  const double snap = n * std::ldexp(1.0, -21);
  if (std::isnan(x) || x <= snap) x = 0;
  if (x >= last - snap) x = last;
  const auto low = static_cast<size_t>(std::floor(x));
  return {low, std::min<size_t>(low + 1, n - 1), x - double(low)};
}

inline double ModelCurve(const float* table, uint32_t n, double s, int c) {
  const SModelAxis a = ModelAxisOf(s, n);
  const double lo = table[4 * a.low + c], hi = table[4 * a.high + c];
  return lo * (1 - a.fraction) + hi * a.fraction;
}

inline Rgb ModelEntry(const float* table, uint32_t n, size_t r, size_t g, size_t b) {
  const float* e = table + 4 * (r + n * (g + size_t(n) * b));
  return {e[0], e[1], e[2]};
}

// The eight corners weighted by the products of their axis weights.
inline Rgb ModelTrilinear(const float* table, uint32_t n, const Rgb& s) {
  const SModelAxis a[3] = {ModelAxisOf(s[0], n), ModelAxisOf(s[1], n), ModelAxisOf(s[2], n)};
  Rgb out{0, 0, 0};
  for (int corner = 0; corner < 8; ++corner) {
    double w = 1;
    size_t index[3];
    for (int k = 0; k < 3; ++k) {
      w *= (corner >> k) & 1 ? a[k].fraction : 1 - a[k].fraction;
      index[k] = (corner >> k) & 1 ? a[k].high : a[k].low;
    }
    const Rgb e = ModelEntry(table, n, index[0], index[1], index[2]);
    for (int c = 0; c < 3; ++c)
      out[c] += w * e[c];
  }
  return out;
}

inline Rgb ModelTetrahedral(const float* table, uint32_t n, const Rgb& s) {
  const SModelAxis a[3] = {ModelAxisOf(s[0], n), ModelAxisOf(s[1], n), ModelAxisOf(s[2], n)};
  int order[3] = {0, 1, 2};
  std::stable_sort(order, order + 3, [&](int p, int q) { return a[p].fraction > a[q].fraction; });
  size_t index[3] = {a[0].low, a[1].low, a[2].low};
  double previous = 1;
  Rgb out{0, 0, 0};
  for (int step = 0; step <= 3; ++step) {
    const double next = step < 3 ? a[order[step]].fraction : 0;
    const Rgb e = ModelEntry(table, n, index[0], index[1], index[2]);
    for (int c = 0; c < 3; ++c)
      out[c] += (previous - next) * e[c];
    if (step < 3) index[order[step]] = a[order[step]].high;
    previous = next;
  }
  return out;
}

/// The kernel's output pixel for an input pixel (both blue first, in [0, 1] units), through the
/// domain mapping of the shaper when there is one, read from the LUT's red-first vectors.
inline Bgra ModelPixel(const Tincta::COv3DLUT& lut, bool tetrahedral, const Bgra& in) {
  const Tincta::COv3DLUT *shaper = lut.InputShaper(), &domain = shaper ? *shaper : lut;
  Rgb s, rgb;
  for (int c = 0; c < 3; ++c) {  // red is the frame's third channel
    s[c] = in[2 - c] * double(domain.TextureScale()[c]) + double(domain.TextureOffset()[c]);
    if (!lut.Is3D()) rgb[c] = ModelCurve(lut.Table(), lut.Size(), s[c], c);
    if (lut.Is3D() && shaper) s[c] = ModelCurve(shaper->Table(), shaper->Size(), s[c], c);
  }
  if (lut.Is3D())
    rgb = tetrahedral ? ModelTetrahedral(lut.Table(), lut.Size(), s)
                      : ModelTrilinear(lut.Table(), lut.Size(), s);
  return {rgb[2], rgb[1], rgb[0], in[3]};
}

/// An integer sample of full scale `top` as the host's conversion makes it: clamped, half up.
inline double ModelQuantize(double v, double top) {
  if (std::isnan(v)) return 0;
  return std::floor(std::clamp(v * top + 0.5, 0.0, top + 0.5 - 1e-9));
}

/// A LUT of `n` entries (1-D) or n^3 entries (3-D, red fastest) over [min, max]: each entry holds
/// f(r, g, b) as floats of the doubles, alpha 1, at its node in [0, 1] (r = g = b for 1-D).
template <class F>
std::shared_ptr<Tincta::COv3DLUT> TableLUT(uint32_t n, bool is3D, Tincta::Vec4 min,
                                           Tincta::Vec4 max, F f) {
  auto lut = std::make_shared<Tincta::COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, is3D));
  lut->SetDomain(min, max);
  for (size_t i = 0; i < lut->EntryCount(); ++i) {
    const double r = double(i % n) / (n - 1);
    const Rgb e =
        is3D ? f(r, double(i / n % n) / (n - 1), double(i / n / n) / (n - 1)) : f(r, r, r);
    for (int c = 0; c < 4; ++c)
      lut->Table()[4 * i + c] = c < 3 ? float(e[c]) : 1.0f;
  }
  return lut;
}

/// Smooth, mildly non-linear, with cross-talk: a colour transform such as a LUT holds.
inline std::shared_ptr<Tincta::COv3DLUT> SmoothCube(uint32_t n, Tincta::Vec4 min,
                                                    Tincta::Vec4 max) {
  return TableLUT(n, true, min, max, [](double r, double g, double b) {
    return Rgb{0.8 * std::pow(r, 0.9) + 0.1 * g + 0.05, 0.45 * g * g + 0.45 * g + 0.1 * b,
               0.7 * std::sin(1.2 * b) + 0.1 * r};
  });
}

/// A different curve per channel; `coordinates` keeps the outputs inside a cube's texture space
/// (a shaper), else they are values.
inline std::shared_ptr<Tincta::COv3DLUT> SmoothCurves(uint32_t n, Tincta::Vec4 min,
                                                      Tincta::Vec4 max, bool coordinates) {
  return TableLUT(n, false, min, max, [coordinates](double t, double, double) {
    const double a = coordinates ? 0.96 : 1.2, b = coordinates ? 0.02 : -0.1;
    return Rgb{a * std::pow(t, 0.45) + b, a * t * t + b, a * (0.5 * t + 0.5 * std::sqrt(t)) + b};
  });
}

struct SModelCase {
  const char* name;
  EModelKind kind;
  uint32_t size, shaperSize;
  Tincta::Vec4 min, max;
};

// Every LUT kind, the smallest tables, and domains other than [0, 1].
inline const SModelCase kModelCases[] = {
    {"1D_4096", EModelKind::k1D, 4096, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"1D_17_domain", EModelKind::k1D, 17, 0, {-0.25f, 0, 0.1f, 0}, {1.5f, 2, 0.9f, 1}},
    {"1D_2", EModelKind::k1D, 2, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"3D_2", EModelKind::k3D, 2, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"3D_17", EModelKind::k3D, 17, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"3D_33_domain", EModelKind::k3D, 33, 0, {-0.1f, 0.05f, 0, 0}, {1.2f, 0.95f, 4, 1}},
    {"1D3D_1024_17", EModelKind::k1D3D, 17, 1024, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"1D3D_domain", EModelKind::k1D3D, 9, 256, {-0.5f, 0, 0, 0}, {2, 1, 6, 1}},
};

/// The case's LUT; behind a shaper the cube's domain does not matter, the shaper's holds.
inline std::shared_ptr<Tincta::COv3DLUT> BuildModelCase(const SModelCase& c) {
  if (c.kind == EModelKind::k1D) return SmoothCurves(c.size, c.min, c.max, false);
  if (c.kind == EModelKind::k3D) return SmoothCube(c.size, c.min, c.max);
  auto cube = SmoothCube(c.size, {0, 0, 0, 0}, {1, 1, 1, 1});
  cube->SetInputShaper(SmoothCurves(c.shaperSize, c.min, c.max, true));
  return cube;
}

/// The spread of the colour outputs the LUT's own table can give.
inline double OutputRange(const Tincta::COv3DLUT& lut) {
  double low = lut.Table()[0], high = low;
  for (size_t i = 0; i < lut.EntryCount(); ++i)
    for (int c = 0; c < 3; ++c) {
      low = std::min<double>(low, lut.Table()[4 * i + c]);
      high = std::max<double>(high, lut.Table()[4 * i + c]);
    }
  return high - low;
}

/// Rows of blue-first pixels of 8-, 16- or 32-bit samples.
struct SPixelRows {
  uint8_t* base;
  size_t rowBytes;
  uint32_t bits, width, height;

  double Top() const { return bits == 8 ? 255 : 65535; }
  uint8_t* At(uint32_t x, uint32_t y, int c) const {
    return base + y * rowBytes + x * (bits / 2) + c * (bits / 8);
  }
  /// The sample as stored (integers in their own units).
  double Get(uint32_t x, uint32_t y, int c) const {
    uint16_t s = 0;
    float f = 0;
    std::memcpy(bits == 16 ? static_cast<void*>(&s) : &f, At(x, y, c), bits == 8 ? 0 : bits / 8);
    return bits == 8 ? *At(x, y, c) : bits == 16 ? s : f;
  }
  /// The sample in [0, 1] units for integer formats, as the kernels read it.
  double Unit(uint32_t x, uint32_t y, int c) const {
    return bits == 32 ? Get(x, y, c) : Get(x, y, c) / Top();
  }
  void Put(uint32_t x, uint32_t y, int c, double v) const {
    const float f = float(v);
    const auto s = uint16_t(ModelQuantize(v, Top()));
    if (bits == 8) *At(x, y, c) = uint8_t(s);
    if (bits != 8)
      std::memcpy(At(x, y, c), bits == 16 ? static_cast<const void*>(&s) : &f, bits / 8);
  }
};

/// Source pixels for a case: per channel the domain's ends, beyond both, NaN, a rounding inside the
/// ends, the nodes next to them, the middle, then random values; the first ten pixels on all
/// channels at once, later shifted per channel. Integer frames get domain-relative inputs.
inline void FillModelSource(const SModelCase& c, const SPixelRows& rows, uint32_t seed) {
  std::mt19937 rng(seed);
  const uint32_t count = rows.width * rows.height;
  std::vector<double> in[3];
  for (int channel = 0; channel < 3; ++channel) {
    const int rgb = 2 - channel;
    const double lo = c.min[rgb], hi = c.max[rgb], span = hi - lo;
    const uint32_t n = c.kind == EModelKind::k1D3D ? c.shaperSize : c.size;
    const double rounding = span * std::ldexp(1.0, -22), node = span / (n - 1);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    in[channel] = {
        lo,        hi,        lo - span,      hi + span, nan, lo + rounding, hi - rounding,
        lo + node, hi - node, lo + span * 0.5};
    std::uniform_real_distribution<double> value(lo - 0.1 * span, hi + 0.1 * span);
    while (in[channel].size() < count)
      in[channel].push_back(value(rng));
  }
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t x = i % rows.width, y = i / rows.width;
    for (int channel = 0; channel < 3; ++channel) {
      const size_t at = i < 10 ? i : (i + 5 * channel) % in[channel].size();
      double v = in[channel][at];
      if (rows.bits != 32) {
        const int rgb = 2 - channel;
        v = (v - c.min[rgb]) / (c.max[rgb] - c.min[rgb]);
        if (std::isnan(v)) v = 0.5;
      }
      rows.Put(x, y, channel, v);
    }
    rows.Put(x, y, 3, 0.25 + 0.5 * (i % 3));
  }
}

/// Checks `out` against the model of `in` within `tolerance` (integers may round either way only
/// near a rounding boundary); alpha exactly, and the first seven float pixels of FillModelSource
/// (at the ends, beyond, NaN) read the end entries exactly, as texel-centre addressing does.
inline void ExpectFollowsModel(const Tincta::COv3DLUT& lut, bool tetrahedral, double tolerance,
                               const SPixelRows& in, const SPixelRows& out,
                               const std::string& what) {
  int failures = 0;
  for (uint32_t i = 0; i < in.width * in.height && failures < 5; ++i) {
    const uint32_t x = i % in.width, y = i / in.width;
    const Bgra want = ModelPixel(
        lut, tetrahedral, {in.Unit(x, y, 0), in.Unit(x, y, 1), in.Unit(x, y, 2), in.Unit(x, y, 3)});
    const bool atEnds = in.bits == 32 && !(lut.Is3D() && lut.InputShaper()) && i < 7;
    for (int c = 0; c < 4; ++c) {
      const double allowed = c == 3 || atEnds ? 0.0 : tolerance;
      const double got = out.Get(x, y, c);
      const bool ok = out.bits == 32 ? std::fabs(got - want[c]) <= allowed
                                     : got >= ModelQuantize(want[c] - allowed, out.Top()) &&
                                           got <= ModelQuantize(want[c] + allowed, out.Top());
      if (!ok && ++failures <= 5)
        ADD_FAILURE() << what << " at (" << x << ", " << y << ") channel " << c << ": " << got
                      << " for " << (out.bits == 32 ? want[c] : want[c] * out.Top());
    }
  }
}

}  // namespace crandle_test
