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
  const double limit = size - 1.01;
  if (x > limit) x = limit;
  const auto index = static_cast<size_t>(x);
  return {index, x - static_cast<double>(index)};
}

inline Rgba ModelTexel(const float* table, size_t index) {
  return {table[4 * index], table[4 * index + 1], table[4 * index + 2], table[4 * index + 3]};
}

inline Rgba ModelLerp(const Rgba& a, const Rgba& b, double f) {
  Rgba out;
  for (int c = 0; c < 4; ++c)
    out[c] = a[c] + (b[c] - a[c]) * f;
  return out;
}

inline Rgba ModelSample1D(const float* table, uint32_t width, double s) {
  const SAxisModel x = ModelAxis(s, width);
  return ModelLerp(ModelTexel(table, x.index), ModelTexel(table, x.index + 1), x.fraction);
}

inline Rgba ModelSample3D(const float* table, uint32_t width, uint32_t height, uint32_t depth,
                          double s, double t, double r) {
  const SAxisModel x = ModelAxis(s, width);
  const SAxisModel y = ModelAxis(t, height);
  const SAxisModel z = ModelAxis(r, depth);
  auto at = [&](size_t dx, size_t dy, size_t dz) {
    return ModelTexel(
        table, (x.index + dx) + (y.index + dy) * width + (z.index + dz) * size_t(width) * height);
  };
  const Rgba c00 = ModelLerp(at(0, 0, 0), at(1, 0, 0), x.fraction);
  const Rgba c10 = ModelLerp(at(0, 1, 0), at(1, 1, 0), x.fraction);
  const Rgba c01 = ModelLerp(at(0, 0, 1), at(1, 0, 1), x.fraction);
  const Rgba c11 = ModelLerp(at(0, 1, 1), at(1, 1, 1), x.fraction);
  return ModelLerp(ModelLerp(c00, c10, y.fraction), ModelLerp(c01, c11, y.fraction), z.fraction);
}

/// How far a float kernel may stray from the model: the coordinate x carries about `size` ulps
/// of s, which moves the result by up to the steepest step between neighbouring entries on each
/// axis; the interpolation itself adds a few roundings of the largest entry.
inline double ModelTolerance(const float* table, uint32_t width, uint32_t height, uint32_t depth) {
  const size_t entries = size_t(width) * height * depth;
  const size_t strides[3] = {1, width, size_t(width) * height};
  const uint32_t extents[3] = {width, height, depth};
  double largest = 0, steepest = 0, tolerance = 0;
  for (size_t i = 0; i < entries; ++i) {
    for (int c = 0; c < 4; ++c)
      largest = std::fmax(largest, std::fabs(table[4 * i + c]));
  }
  for (int axis = 0; axis < 3; ++axis) {
    if (extents[axis] < 2) continue;
    steepest = 0;
    for (size_t i = 0; i + strides[axis] < entries; ++i) {
      for (int c = 0; c < 4; ++c) {
        steepest = std::fmax(
            steepest, std::fabs(double(table[4 * (i + strides[axis]) + c]) - table[4 * i + c]));
      }
    }
    tolerance += 4.0 * steepest * (extents[axis] + 1);
  }
  return std::ldexp(16 * largest + tolerance, -24);
}

}  // namespace crandle_test
