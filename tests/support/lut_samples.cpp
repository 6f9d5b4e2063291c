#include "support/lut_samples.h"

#include <cstdio>

namespace crandle_test {
namespace {

std::string Line(const char* keyword, const double v[3]) {
  char line[160];
  std::snprintf(line, sizeof(line), "%s%.9g %.9g %.9g\n", keyword, v[0], v[1], v[2]);
  return line;
}

// `f` at i / (size - 1) for i from 0 to size - 1 on each axis that `is3D` allows, red fastest.
std::string Entries(uint32_t size, bool is3D, const RGBFunction& f) {
  const double step = size > 1 ? 1.0 / (size - 1) : 0.0;
  std::string text;
  for (uint32_t i = 0; i < (is3D ? size * size * size : size); ++i) {
    const uint32_t r = i % size, g = is3D ? i / size % size : r, b = is3D ? i / size / size : r;
    double out[3];
    f(r * step, g * step, b * step, out);
    text += Line("", out);
  }
  return text;
}

}  // namespace

void Identity(double r, double g, double b, double out[3]) {
  out[0] = r, out[1] = g, out[2] = b;
}

std::string CubeText3D(uint32_t size, const RGBFunction& f, const std::string& title,
                       const double domainMin[3], const double domainMax[3]) {
  std::string text = "# made by the crandle tests\n";
  if (!title.empty()) text += "TITLE \"" + title + "\"\n";
  if (domainMin) text += Line("DOMAIN_MIN ", domainMin);
  if (domainMax) text += Line("DOMAIN_MAX ", domainMax);
  return text + "LUT_3D_SIZE " + std::to_string(size) + "\n" + Entries(size, true, f);
}

std::string CubeText1D(uint32_t size, const RGBFunction& f) {
  return "LUT_1D_SIZE " + std::to_string(size) + "\n" + Entries(size, false, f);
}

}  // namespace crandle_test
