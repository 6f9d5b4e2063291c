// A host program built only against the installed package: `consumer WORK_DIR SAMPLE_LUT` reads a
// LUT from bytes and from a file and applies it to float and 8-bit frames. The LUT is a 2-point
// cube of an affine map, which trilinear interpolation reproduces exactly, so every pixel is
// checked against the formula and not against the module.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "crandle/crandle.h"
#include "host/initializer.h"

namespace {

void Affine(const double rgb[3], double out[3]) {
  out[0] = 1.0 - rgb[0], out[1] = 0.5 * rgb[1] + 0.25 * rgb[2], out[2] = 0.2 + 0.6 * rgb[0];
}

int failures = 0;

void Check(bool condition, const std::string& what) {
  if (!condition) ++failures, std::fprintf(stderr, "FAILED: %s\n", what.c_str());
}

std::u16string Wide(const std::string& path) {
  return std::u16string(path.begin(), path.end());
}

// Applies the LUT (a handle, or a path) to a 7 x 3 BGRA frame of `T` and returns the largest
// error against the formula, in steps of `top`. Inputs stay below 0.99: the CPU sampler clamps
// the last cell a little short of its end.
template <class T, class LUT>
double ApplyAndMeasure(const LUT& lut, host::PixelFormat format, double top) {
  std::vector<T> source(7 * 3 * 4), destination(source.size(), T(0));
  for (size_t i = 0; i < source.size(); ++i)  // red, green, blue in channels 2, 1, 0
    source[i] =
        T((i % 4 == 3 ? 0.5 : 0.03 * (i / 4 % 7) + 0.1 * (i / 28) + 0.3 * (2 - i % 4)) * top);
  const std::vector<T> original = source;  // a float source may come back with red and blue swapped
  host::InterfaceRef<host::IVideoFrame> in, out;
  const size_t stride = 7 * 4 * sizeof(T);
  Check(host::CreateVideoFrameView(in, format, 7, 3, source.data(), stride, nullptr) == 0, "in");
  Check(host::CreateVideoFrameView(out, format, 7, 3, destination.data(), stride, nullptr) == 0,
        "out");
  const int result = CRANDLE::ApplyLUT(in, lut, host::LUTInterpolationMethod::Trilinear, out);
  Check(result == CRANDLE::kResultOK, "ApplyLUT: " + std::to_string(result));
  double worst = 0.0;
  for (size_t i = 0; i < source.size(); i += 4) {
    const double rgb[3] = {original[i + 2] / top, original[i + 1] / top, original[i] / top};
    double want[3];
    Affine(rgb, want);
    for (int c = 0; c < 3; ++c)
      worst = std::fmax(worst, std::fabs(destination[i + 2 - c] - want[c] * top));
    Check(destination[i + 3] == original[i + 3], "alpha kept");
  }
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: consumer WORK_DIR SAMPLE_LUT\n"), 2;
  host::InitializerRegistrar::RunInitializers();
  std::ostringstream text;
  text << "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) {
    const double node[3] = {double(i & 1), double(i >> 1 & 1), double(i >> 2)};
    double out[3];
    Affine(node, out);
    text << out[0] << ' ' << out[1] << ' ' << out[2] << '\n';
  }
  const std::string cube = text.str(), path = std::string(argv[1]) + "/affine.cube";
  std::ofstream(path, std::ios::binary) << cube;
  std::shared_ptr<void> fromBytes, fromFile, sample;
  Check(CRANDLE::ParseLUT(cube.data(), cube.size(), fromBytes) == CRANDLE::kResultOK, "bytes");
  Check(CRANDLE::ParseLUT(Wide(path), fromFile) == CRANDLE::kResultOK, "file");
  Check(CRANDLE::ParseLUT(Wide(argv[2]), sample) == CRANDLE::kResultOK, "the installed sample");
  if (failures) return 1;
  std::string name;
  CRANDLE::GetLUTDisplayName(fromFile, name);
  Check(name == "affine", "name from the file: " + name);
  Check(!CRANDLE::GetLUTIdentifier(fromFile).IsZero(), "identifier");
  Check(CRANDLE::GetLUTBlob(fromBytes).Size() == 40 + 12 * 8, "blob of a 2-point cube");
  const double floatError = ApplyAndMeasure<float>(fromBytes, host::kPixelFormat_BGRA_4444_32f, 1);
  Check(floatError < 1e-5, "float result off by " + std::to_string(floatError));
  const double byteError =
      ApplyAndMeasure<uint8_t>(Wide(path), host::kPixelFormat_BGRA_4444_8u, 255);
  Check(byteError <= 1.5, "8-bit result off by " + std::to_string(byteError) + " steps");
  std::printf("float error %.2g, 8-bit error %.2g step(s): %s\n", floatError, byteError,
              failures ? "FAILED" : "ok");
  return failures ? 1 : 0;
}
