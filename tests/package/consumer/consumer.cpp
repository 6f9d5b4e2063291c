// A host program built only against the installed package: reads a LUT from bytes and from a
// file, applies it to float and 8-bit frames, and checks every pixel against the LUT's own
// formula.
//
//   consumer WORK_DIR SAMPLE_LUT
//
// The LUT is a 2-point cube of an affine map, which trilinear interpolation reproduces exactly,
// so the expected colours come from the formula and not from the module.
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

struct SRGB {
  double r, g, b;
};

SRGB Affine(double r, double g, double b) {
  return {1.0 - r, 0.5 * g + 0.25 * b, 0.2 + 0.6 * r};
}

std::string AffineCube() {
  std::ostringstream text;
  text << "LUT_3D_SIZE 2\n";
  for (int b = 0; b < 2; ++b)
    for (int g = 0; g < 2; ++g)
      for (int r = 0; r < 2; ++r) {
        const SRGB out = Affine(r, g, b);
        text << out.r << ' ' << out.g << ' ' << out.b << '\n';
      }
  return text.str();
}

int failures = 0;

void Check(bool condition, const std::string& what) {
  if (!condition) {
    std::fprintf(stderr, "FAILED: %s\n", what.c_str());
    ++failures;
  }
}

std::u16string Wide(const std::string& path) {
  return std::u16string(path.begin(), path.end());
}

// Input values stay below 0.99: the CPU sampler clamps the last cell a little short of its end.
double InputValue(int x, int y, int channel) {
  return 0.03 * x + 0.1 * y + 0.3 * channel;
}

constexpr int kWidth = 7;
constexpr int kHeight = 3;

// Applies `lut` to a BGRA float frame and returns the largest error against the formula.
double ApplyFloat(const std::shared_ptr<void>& lut) {
  std::vector<float> source(kWidth * kHeight * 4), destination(source.size(), -1.0f);
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      float* pixel = &source[(y * kWidth + x) * 4];
      pixel[2] = float(InputValue(x, y, 0));
      pixel[1] = float(InputValue(x, y, 1));
      pixel[0] = float(InputValue(x, y, 2));
      pixel[3] = 0.5f;
    }
  const std::vector<float> original = source;
  host::InterfaceRef<host::IVideoFrame> in, out;
  const size_t rowBytes = kWidth * 4 * sizeof(float);
  Check(host::CreateVideoFrameView(in, host::kPixelFormat_BGRA_4444_32f, kWidth, kHeight,
                                   source.data(), rowBytes, nullptr) == 0,
        "float source frame");
  Check(host::CreateVideoFrameView(out, host::kPixelFormat_BGRA_4444_32f, kWidth, kHeight,
                                   destination.data(), rowBytes, nullptr) == 0,
        "float destination frame");
  const int result = CRANDLE::ApplyLUT(in, lut, host::LUTInterpolationMethod::Trilinear, out);
  Check(result == CRANDLE::kResultOK, "ApplyLUT on float frames: " + std::to_string(result));
  double worst = 0.0;
  for (int i = 0; i < kWidth * kHeight; ++i) {
    const float* was = &original[i * 4];
    const SRGB want = Affine(was[2], was[1], was[0]);
    const float* got = &destination[i * 4];
    worst = std::fmax(worst, std::fabs(got[2] - want.r));
    worst = std::fmax(worst, std::fabs(got[1] - want.g));
    worst = std::fmax(worst, std::fabs(got[0] - want.b));
    Check(got[3] == 0.5f, "alpha kept");
  }
  return worst;
}

// Applies the LUT file at `path` to a BGRA 8-bit frame; returns the largest error in steps.
int ApplyEightBit(const std::string& path) {
  std::vector<uint8_t> source(kWidth * kHeight * 4), destination(source.size(), 0);
  for (int i = 0; i < kWidth * kHeight; ++i) {
    source[i * 4 + 2] = uint8_t(i * 11);
    source[i * 4 + 1] = uint8_t(240 - i * 7);
    source[i * 4 + 0] = uint8_t(i * 5 + 3);
    source[i * 4 + 3] = 255;
  }
  host::InterfaceRef<host::IVideoFrame> in, out;
  Check(host::CreateVideoFrameView(in, host::kPixelFormat_BGRA_4444_8u, kWidth, kHeight,
                                   source.data(), kWidth * 4, nullptr) == 0,
        "8-bit source frame");
  Check(host::CreateVideoFrameView(out, host::kPixelFormat_BGRA_4444_8u, kWidth, kHeight,
                                   destination.data(), kWidth * 4, nullptr) == 0,
        "8-bit destination frame");
  const int result =
      CRANDLE::ApplyLUT(in, Wide(path), host::LUTInterpolationMethod::Trilinear, out);
  Check(result == CRANDLE::kResultOK,
        "ApplyLUT by path on 8-bit frames: " + std::to_string(result));
  int worst = 0;
  for (int i = 0; i < kWidth * kHeight; ++i) {
    const SRGB want =
        Affine(source[i * 4 + 2] / 255.0, source[i * 4 + 1] / 255.0, source[i * 4 + 0] / 255.0);
    const int steps[3] = {int(std::lround(want.b * 255)), int(std::lround(want.g * 255)),
                          int(std::lround(want.r * 255))};
    for (int c = 0; c < 3; ++c)
      worst = std::max(worst, std::abs(destination[i * 4 + c] - steps[c]));
  }
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: consumer WORK_DIR SAMPLE_LUT\n");
    return 2;
  }
  host::InitializerRegistrar::RunInitializers();

  const std::string cube = AffineCube();
  std::shared_ptr<void> fromBytes;
  Check(CRANDLE::ParseLUT(cube.data(), cube.size(), fromBytes) == CRANDLE::kResultOK,
        "ParseLUT from bytes");
  const std::string path = std::string(argv[1]) + "/affine.cube";
  std::ofstream(path, std::ios::binary) << cube;
  std::shared_ptr<void> fromFile;
  Check(CRANDLE::ParseLUT(Wide(path), fromFile) == CRANDLE::kResultOK, "ParseLUT from a file");
  if (failures) return 1;

  std::string bytesName, fileName;
  CRANDLE::GetLUTDisplayName(fromBytes, bytesName);
  CRANDLE::GetLUTDisplayName(fromFile, fileName);
  Check(bytesName == "Embedded LUT", "name from bytes: " + bytesName);
  Check(fileName == "affine", "name from the file: " + fileName);
  const std::string identifier = CRANDLE::GetLUTIdentifier(fromFile).ToString();
  Check(identifier.size() == 32 && !CRANDLE::GetLUTIdentifier(fromFile).IsZero(), "identifier");
  // The file title is part of the identifier.
  Check(CRANDLE::GetLUTIdentifier(fromBytes) != CRANDLE::GetLUTIdentifier(fromFile),
        "identifiers of the same table with and without a file name differ");
  Check(CRANDLE::GetLUTBlob(fromBytes).Size() == 40 + 12 * 8, "blob of a 2-point cube");

  const double floatError = ApplyFloat(fromBytes);
  Check(floatError < 1e-5, "float result off by " + std::to_string(floatError));
  const int eightBitError = ApplyEightBit(path);
  Check(eightBitError <= 1, "8-bit result off by " + std::to_string(eightBitError) + " steps");

  std::shared_ptr<void> sample;
  Check(CRANDLE::ParseLUT(Wide(argv[2]), sample) == CRANDLE::kResultOK, "the installed sample");
  std::string sampleName;
  CRANDLE::GetLUTDisplayName(sample, sampleName);

  std::printf(
      "identifier %s, float error %.2g, 8-bit error %d step(s), sample \"%s\" (%zu-byte blob): "
      "%s\n",
      identifier.c_str(), floatError, eightBitError, sampleName.c_str(),
      CRANDLE::GetLUTBlob(sample).Size(), failures ? "FAILED" : "ok");
  return failures ? 1 : 0;
}
