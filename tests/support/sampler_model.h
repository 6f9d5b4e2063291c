// A double-precision model of the CPU samplers, written from the formulas: x = s x size - 0.5,
// clamped to [0, size - 1.01] (NaN to 0), truncated, then a + (b - a) x f in the order x, y, z.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace crandle_test {

using Rgba = std::array<double, 4>;

struct SAxisModel {
  size_t index;
  double fraction;
};

inline SAxisModel ModelAxis(double s, uint32_t size) {
  double x = s * size - 0.5;
  if (!(x > 0)) x = 0;  // negatives, -inf and NaN
  x = std::fmin(x, size - 1.01);
  const auto index = static_cast<size_t>(x);
  return {index, x - static_cast<double>(index)};
}

inline Rgba ModelLerp(const Rgba& a, const Rgba& b, double f) {
  Rgba out;
  for (int c = 0; c < 4; ++c)
    out[c] = a[c] + (b[c] - a[c]) * f;
  return out;
}

/// Trilinear sampling of a width x height x depth table; a 1-D table has height = depth = 1 and
/// is sampled at s alone.
inline Rgba ModelSample(const float* table, uint32_t width, uint32_t height, uint32_t depth,
                        double s, double t, double r) {
  const SAxisModel x = ModelAxis(s, width);
  const bool cube = height > 1 || depth > 1;
  const SAxisModel y = cube ? ModelAxis(t, height) : SAxisModel{0, 0};
  const SAxisModel z = cube ? ModelAxis(r, depth) : SAxisModel{0, 0};
  auto at = [&](size_t dx, size_t dy, size_t dz) {
    const size_t i = (x.index + dx) + (y.index + dy) * width + (z.index + dz) * width * height;
    return Rgba{table[4 * i], table[4 * i + 1], table[4 * i + 2], table[4 * i + 3]};
  };
  const Rgba c00 = ModelLerp(at(0, 0, 0), at(1, 0, 0), x.fraction);
  if (!cube) return c00;
  const Rgba c10 = ModelLerp(at(0, 1, 0), at(1, 1, 0), x.fraction);
  const Rgba c01 = ModelLerp(at(0, 0, 1), at(1, 0, 1), x.fraction);
  const Rgba c11 = ModelLerp(at(0, 1, 1), at(1, 1, 1), x.fraction);
  return ModelLerp(ModelLerp(c00, c10, y.fraction), ModelLerp(c01, c11, y.fraction), z.fraction);
}

/// How far a float kernel may stray from the model for entries within `largest` of zero and
/// `steepest` of their neighbours: x carries about `size` ulps of s, the lerps a few roundings.
inline double ModelTolerance(double largest, double steepest, uint32_t width, uint32_t height,
                             uint32_t depth) {
  return std::ldexp(16 * largest + 4 * steepest * (width + height + depth + 3), -24);
}

}  // namespace crandle_test
