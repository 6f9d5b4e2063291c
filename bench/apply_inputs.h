// The picture and the LUTs that the apply benchmarks and bench/peers.sh share, so that every
// program measured works on the same numbers.
//
// The picture is smooth like a photograph (gradients and slow waves with a little grain), so
// that neighbouring pixels land in neighbouring cells of a cube as they do in real footage; a
// picture of pure noise would measure cache misses instead.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "lut/lut3d.h"

namespace crandle_bench {

inline constexpr uint32_t kFrameWidth = 3840;
inline constexpr uint32_t kFrameHeight = 2160;

/// Red, green, blue of pixel (x, y), in [0, 1].
inline void PictureColour(uint32_t x, uint32_t y, float rgb[3]) {
  const double u = double(x) / (kFrameWidth - 1), v = double(y) / (kFrameHeight - 1);
  // A small integer hash as grain, the same on every run and machine.
  uint32_t h = x * 0x9E3779B1u ^ (y + 0x7F4A7C15u) * 0x85EBCA77u;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 12;
  const double grain = (double(h & 0xFFFF) / 65535.0 - 0.5) * 0.02;
  const double r = 0.05 + 0.9 * u * (0.7 + 0.3 * std::sin(6.0 * v)) + grain;
  const double g = 0.05 + 0.9 * v * (0.6 + 0.4 * std::cos(5.0 * u)) - grain;
  const double b = 0.5 + 0.45 * std::sin(3.0 * u + 4.0 * v) + 0.5 * grain;
  rgb[0] = float(std::fmin(std::fmax(r, 0.0), 1.0));
  rgb[1] = float(std::fmin(std::fmax(g, 0.0), 1.0));
  rgb[2] = float(std::fmin(std::fmax(b, 0.0), 1.0));
}

/// A look: a saturation matrix, then a contrast curve per channel. Maps [0, 1] into [0, 1].
inline void Look(const double in[3], double out[3]) {
  const double luma = 0.2126 * in[0] + 0.7152 * in[1] + 0.0722 * in[2];
  for (int c = 0; c < 3; ++c) {
    double v = luma + 1.25 * (in[c] - luma);
    v = std::fmin(std::fmax(v, 0.0), 1.0);
    out[c] = v * v * (3.0 - 2.0 * v) * 0.85 + v * 0.15;  // smoothstep blended with identity
  }
}

/// The per-channel curve of the 1-D LUT.
inline double Curve(double v, int channel) {
  return std::pow(v, 0.8 + 0.15 * channel);
}

/// The shaper curve of the 1-D + 3-D LUT (a log-like curve that spends more of the cube on the
/// shadows).
inline double ShaperCurve(double v) {
  return std::log2(1.0 + 15.0 * v) / 4.0;
}

inline std::shared_ptr<Tincta::COv3DLUT> MakeCube(uint32_t n, bool behindShaper = false) {
  auto lut = std::make_shared<Tincta::COv3DLUT>();
  if (!lut->Allocate(n, true)) return nullptr;
  float* entry = lut->Table();
  for (uint32_t b = 0; b < n; ++b) {
    for (uint32_t g = 0; g < n; ++g) {
      for (uint32_t r = 0; r < n; ++r) {
        double in[3] = {double(r) / (n - 1), double(g) / (n - 1), double(b) / (n - 1)};
        if (behindShaper) {
          // Grid nodes are in the shaper's output space; undo the shaper to find the colour.
          for (double& v : in)
            v = (std::exp2(4.0 * v) - 1.0) / 15.0;
        }
        double out[3];
        Look(in, out);
        for (double v : out)
          *entry++ = float(v);
        *entry++ = 1.0f;
      }
    }
  }
  return lut;
}

inline std::shared_ptr<Tincta::COv3DLUT> MakeCurve(uint32_t size) {
  auto lut = std::make_shared<Tincta::COv3DLUT>();
  if (!lut->Allocate(size, false)) return nullptr;
  for (uint32_t i = 0; i < size; ++i) {
    for (int c = 0; c < 3; ++c)
      lut->Table()[4 * i + c] = float(Curve(double(i) / (size - 1), c));
    lut->Table()[4 * i + 3] = 1.0f;
  }
  return lut;
}

/// A cube of `n` points behind a shaper of `shaperSize` entries whose values are the cube's
/// texel-centre coordinates of the shaper curve.
inline std::shared_ptr<Tincta::COv3DLUT> MakeShapedCube(uint32_t n, uint32_t shaperSize) {
  auto cube = MakeCube(n, true);
  auto shaper = std::make_shared<Tincta::COv3DLUT>();
  if (!cube || !shaper->Allocate(shaperSize, false)) return nullptr;
  for (uint32_t i = 0; i < shaperSize; ++i) {
    const double v = ShaperCurve(double(i) / (shaperSize - 1));
    for (int c = 0; c < 3; ++c)
      shaper->Table()[4 * i + c] = float(v * (1.0 - 1.0 / n) + 0.5 / n);
    shaper->Table()[4 * i + 3] = 1.0f;
  }
  cube->SetInputShaper(shaper);
  return cube;
}

}  // namespace crandle_bench
