#include "support/lut_samples.h"

#include <cstdio>

namespace crandle_test {
namespace {

void AppendTriple(std::string& text, const double v[3]) {
  char line[128];
  std::snprintf(line, sizeof(line), "%.9g %.9g %.9g\n", v[0], v[1], v[2]);
  text += line;
}

}  // namespace

void Identity(double r, double g, double b, double out[3]) {
  out[0] = r;
  out[1] = g;
  out[2] = b;
}

std::string CubeText3D(uint32_t size, const RGBFunction& f, const std::string& title,
                       const double domainMin[3], const double domainMax[3]) {
  std::string text = "# made by the crandle tests\n";
  if (!title.empty()) text += "TITLE \"" + title + "\"\n";
  char line[160];
  if (domainMin) {
    std::snprintf(line, sizeof(line), "DOMAIN_MIN %.9g %.9g %.9g\n", domainMin[0], domainMin[1], domainMin[2]);
    text += line;
  }
  if (domainMax) {
    std::snprintf(line, sizeof(line), "DOMAIN_MAX %.9g %.9g %.9g\n", domainMax[0], domainMax[1], domainMax[2]);
    text += line;
  }
  text += "LUT_3D_SIZE " + std::to_string(size) + "\n";
  const double step = size > 1 ? 1.0 / (size - 1) : 0.0;
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r) {
        double out[3];
        f(r * step, g * step, b * step, out);
        AppendTriple(text, out);
      }
  return text;
}

std::string CubeText1D(uint32_t size, const RGBFunction& f) {
  std::string text = "LUT_1D_SIZE " + std::to_string(size) + "\n";
  const double step = size > 1 ? 1.0 / (size - 1) : 0.0;
  for (uint32_t i = 0; i < size; ++i) {
    double out[3];
    f(i * step, i * step, i * step, out);
    AppendTriple(text, out);
  }
  return text;
}

}  // namespace crandle_test
