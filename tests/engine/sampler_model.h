// A plain double-precision model of the CPU samplers, written from the formulas rather than from
// the kernels: x = s x size - 0.5, clamped to [0, size - 1.01] (NaN to 0), truncated, then
// a + (b - a) x f, trilinear in the order x, y, z. Tables are RGBA float entries.
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

/// The same formulas in float, operation for operation as the kernels round them: a + (b - a) x f
/// rounded three times, or once when `fused`. A kernel must give these bits exactly.
inline std::array<float, 4> ExactSample(const float* table, uint32_t width, uint32_t height,
                                        uint32_t depth, float s, float t, float r, bool fused) {
  const bool cube = height > 1 || depth > 1;
  auto axis = [](float v, uint32_t size, int32_t& index) {
    float x = v * float(size) - 0.5f;
    x = x > 0.0f ? x : 0.0f;  // NaN to 0
    x = x < float(size - 1.01) ? x : float(size - 1.01);
    index = int32_t(x);
    return x - float(index);
  };
  int32_t i, j = 0, k = 0;
  const float fx = axis(s, width, i), fy = cube ? axis(t, height, j) : 0.0f;
  const float fz = cube ? axis(r, depth, k) : 0.0f;
  const int32_t base = i + int32_t(float(j) * float(width) + float(k) * float(width * height));
  auto lerp = [fused](float a, float b, float f) {
    return fused ? std::fma(b - a, f, a) : a + (b - a) * f;
  };
  std::array<float, 4> out;
  for (int c = 0; c < 4; ++c) {
    auto at = [&](int32_t dx, int32_t dy, int32_t dz) {
      return table[4 * (base + dx + dy * int32_t(width) + dz * int32_t(width * height)) + c];
    };
    const float c00 = lerp(at(0, 0, 0), at(1, 0, 0), fx);
    if (!cube) {
      out[c] = c00;
      continue;
    }
    const float c10 = lerp(at(0, 1, 0), at(1, 1, 0), fx), c01 = lerp(at(0, 0, 1), at(1, 0, 1), fx);
    const float c11 = lerp(at(0, 1, 1), at(1, 1, 1), fx);
    out[c] = lerp(lerp(c00, c10, fy), lerp(c01, c11, fy), fz);
  }
  return out;
}

/// How far a float kernel may stray from the model for a table whose entries lie within
/// `largest` of zero and `steepest` of their neighbours: the coordinate x carries about `size`
/// ulps of s, which moves the result by up to a step on each axis; the interpolation itself adds
/// a few roundings of the largest entry.
inline double ModelTolerance(double largest, double steepest, uint32_t width, uint32_t height,
                             uint32_t depth) {
  return std::ldexp(16 * largest + 4 * steepest * (width + height + depth + 3), -24);
}

}  // namespace crandle_test
