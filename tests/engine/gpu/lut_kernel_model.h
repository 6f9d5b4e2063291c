// A double-precision model of the GPU LUT kernels, written from their formulas rather than from
// their code: s = v x scale + offset, x = s x n - 0.5 snapped to the ends within n x 2^-21 and
// clamped to [0, n - 1] (NaN to 0), lerps along red, green, blue; tetrahedral interpolation as a
// walk from the cell's first corner to its last along the axes in decreasing order of their
// fractions. Frames are blue first, tables red first.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace crandle_test {

using Bgra = std::array<double, 4>;
using Rgb = std::array<double, 3>;

enum class EModelKind { k1D, k3D, k1D3D };

struct SModelLUT {
  EModelKind kind = EModelKind::k3D;
  bool tetrahedral = false;
  const float* table = nullptr;  ///< the LUT's own table, RGBA entries
  uint32_t size = 0;
  const float* shaper = nullptr;  ///< 1D3D only
  uint32_t shaperSize = 0;
  std::array<float, 4> scale{};  ///< blue, green, red, alpha
  std::array<float, 4> offset{};
};

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

inline Rgb ModelTrilinear(const float* table, uint32_t n, const Rgb& s) {
  const SModelAxis a[3] = {ModelAxisOf(s[0], n), ModelAxisOf(s[1], n), ModelAxisOf(s[2], n)};
  Rgb out{0, 0, 0};
  // The eight corners weighted by the products of their axis weights.
  for (int corner = 0; corner < 8; ++corner) {
    double w = 1;
    size_t index[3];
    for (int k = 0; k < 3; ++k) {
      const bool high = (corner >> k) & 1;
      w *= high ? a[k].fraction : 1 - a[k].fraction;
      index[k] = high ? a[k].high : a[k].low;
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

/// The kernel's output pixel for an input pixel (both blue first, in [0, 1] units).
inline Bgra ModelPixel(const SModelLUT& lut, const Bgra& in) {
  Rgb s;
  for (int c = 0; c < 3; ++c) {
    const int lane = 2 - c;  // red is the frame's third channel
    s[c] = in[lane] * double(lut.scale[lane]) + double(lut.offset[lane]);
  }
  Rgb rgb;
  if (lut.kind == EModelKind::k1D) {
    for (int c = 0; c < 3; ++c)
      rgb[c] = ModelCurve(lut.table, lut.size, s[c], c);
  } else {
    if (lut.kind == EModelKind::k1D3D) {
      for (int c = 0; c < 3; ++c)
        s[c] = ModelCurve(lut.shaper, lut.shaperSize, s[c], c);
    }
    rgb = lut.tetrahedral ? ModelTetrahedral(lut.table, lut.size, s)
                          : ModelTrilinear(lut.table, lut.size, s);
  }
  return {rgb[2], rgb[1], rgb[0], in[3]};
}

/// An integer sample of full scale `top` as the host's conversion makes it: clamped, half up.
inline double ModelQuantize(double v, double top) {
  if (std::isnan(v)) return 0;
  return std::floor(std::clamp(v * top + 0.5, 0.0, top + 0.5 - 1e-9));
}

}  // namespace crandle_test
