// LUT files made by the tests: small cube texts and float images with known content.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace crandle_test {

using RGBFunction = std::function<void(double r, double g, double b, double out[3])>;

/// The identity mapping.
void Identity(double r, double g, double b, double out[3]);

/// A 3-D cube text of `size` points per axis holding `f` at the grid points, red fastest, with
/// an optional TITLE line and DOMAIN lines (written only when they differ from 0..1).
std::string CubeText3D(uint32_t size, const RGBFunction& f = Identity,
                       const std::string& title = "", const double domainMin[3] = nullptr,
                       const double domainMax[3] = nullptr);

/// A 1-D cube text of `size` entries holding `f` at i / (size - 1) on each channel.
std::string CubeText1D(uint32_t size, const RGBFunction& f = Identity);

}  // namespace crandle_test
