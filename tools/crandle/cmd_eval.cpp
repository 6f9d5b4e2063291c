// crandle eval: what does a LUT do to a colour? Lines of "R G B" in, the LUT's output out:
// what the module applies, computed through the exported interface on a one-row float frame in
// host memory or on a GPU device, or with --exact the LUT's own content (lut/lut_evaluate.h).
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "api/lut_handle.h"
#include "commands.h"
#include "crandle/crandle.h"
#include "gpu_device.h"
#include "lut/lut_evaluate.h"
#include "lut_report.h"
#include "lut_source.h"
#include "picture.h"

namespace crandle_tool {
namespace {

struct SEvalOptions {
  std::string lutPath;
  std::string correctionId;
  std::string device = "cpu";
  std::string interpolation = "trilinear";
  bool exact = false;
};

// Three numbers separated by blanks, tabs or commas, nothing else; blank lines and '#' comments
// are skipped (false with `skip` set).
bool ParseColour(const std::string& line, float rgb[3], bool& skip) {
  size_t start = line.find_first_not_of(" \t\r");
  skip = start == std::string::npos || line[start] == '#';
  if (skip) return false;
  std::string text = line;
  for (char& c : text)
    if (c == ',') c = ' ';
  char rest[2];
  return std::sscanf(text.c_str(), "%f %f %f %1s", &rgb[0], &rgb[1], &rgb[2], rest) == 3;
}

int RunEval(const SEvalOptions& options) {
  SDeviceChoice device;
  std::string error;
  if (!ChooseDevice(options.device, device, error)) {
    std::fprintf(stderr, "crandle eval: %s\n", error.c_str());
    return 1;
  }
  const auto method = options.interpolation == "tetrahedral"
                          ? host::LUTInterpolationMethod::Tetrahedral
                          : host::LUTInterpolationMethod::Trilinear;
  if (!device.device && method == host::LUTInterpolationMethod::Tetrahedral) {
    std::fprintf(stderr, "crandle eval: %s\n", TetrahedralOnCPUMessage().c_str());
    return 1;
  }
  std::shared_ptr<void> lut;
  const int parsed = ParseLUTFile(options.lutPath, options.correctionId, lut);
  if (parsed != CRANDLE::kResultOK) {
    std::fprintf(stderr, "crandle eval: %s: %s: %s\n", options.lutPath.c_str(),
                 ResultCodeText(parsed).c_str(),
                 ParseFailureReason(options.lutPath, parsed, options.correctionId).c_str());
    return 1;
  }
  std::vector<float> colours;
  std::string line;
  for (long number = 1; std::getline(std::cin, line); ++number) {
    float rgb[3];
    bool skip = false;
    if (ParseColour(line, rgb, skip)) {
      colours.insert(colours.end(), rgb, rgb + 3);
    } else if (!skip) {
      std::fprintf(stderr, "crandle eval: line %ld: expected three numbers (R G B), got '%s'\n",
                   number, line.c_str());
      return 1;
    }
  }
  const auto count = uint32_t(colours.size() / 3);
  if (count == 0) return 0;
  if (options.exact) {
    const Tincta::COv3DLUT& table = *CRANDLE::detail::LUTOf(lut);
    for (uint32_t i = 0; i < count; ++i) {
      const Tincta::Rgb64 out =
          Tincta::EvaluateLUT(table, {colours[3 * i], colours[3 * i + 1], colours[3 * i + 2]});
      std::printf("%.6f %.6f %.6f\n", out[0], out[1], out[2]);
    }
    return 0;
  }

  CPicture source;
  CPicture destination;
  if (!source.Allocate(count, 1, host::kPixelFormat_BGRA_4444_32f) ||
      !destination.Allocate(count, 1, host::kPixelFormat_BGRA_4444_32f)) {
    std::fprintf(stderr, "crandle eval: not enough memory for %u colours\n", count);
    return 1;
  }
  auto* pixels = reinterpret_cast<float*>(source.Data());
  for (uint32_t i = 0; i < count; ++i) {
    pixels[4 * i + 0] = colours[3 * i + 2];
    pixels[4 * i + 1] = colours[3 * i + 1];
    pixels[4 * i + 2] = colours[3 * i + 0];
    pixels[4 * i + 3] = 1.0f;
  }
  int result;
  if (device.device) {
    SDeviceTimings timings;
    result = ApplyOnGPU(device.device, lut, method, source, destination, timings, error);
    if (!error.empty()) {
      std::fprintf(stderr, "crandle eval: on %s: %s (%d)\n", device.label.c_str(), error.c_str(),
                   result);
      return 1;
    }
  } else {
    auto sourceFrame = source.View(0, 1);
    auto destinationFrame = destination.View(0, 1);
    result = CRANDLE::ApplyLUT(sourceFrame, lut, method, destinationFrame);
  }
  if (result != CRANDLE::kResultOK) {
    std::fprintf(stderr, "crandle eval: applying the LUT failed: %s\n",
                 ResultCodeText(result).c_str());
    return 1;
  }
  const auto* out = reinterpret_cast<const float*>(destination.Data());
  for (uint32_t i = 0; i < count; ++i)
    std::printf("%.6f %.6f %.6f\n", out[4 * i + 2], out[4 * i + 1], out[4 * i]);
  return 0;
}

}  // namespace

void AddEvalCommand(CLI::App& app) {
  auto options = std::make_shared<SEvalOptions>();
  CLI::App* command = app.add_subcommand(
      "eval",
      "Read lines of 'R G B' from standard input and print what the module's apply makes of each "
      "(its edge behaviour included: the CPU sampler stops 1% of a cell short of the last entry); "
      "--exact prints the LUT's own content instead");
  command->add_option("LUT", options->lutPath, "LUT file of any supported format")->required();
  CLI::Option* exact = command->add_flag(
      "--exact", options->exact,
      "Evaluate the LUT's tables exactly (linear, trilinear at texel centres, the last entry "
      "reached at the domain's end, shaper then cube) instead of applying it");
  AddCorrectionIdOption(command, options->correctionId);
  command
      ->add_option("--device", options->device,
                   "Where to apply: cpu, opencl[:N], cuda[:N], or auto (the first CUDA device "
                   "when there is one, else the CPU)")
      ->capture_default_str()
      ->excludes(exact);
  command
      ->add_option("--interp", options->interpolation,
                   "trilinear or tetrahedral; tetrahedral needs a GPU device")
      ->check(CLI::IsMember({"trilinear", "tetrahedral"}))
      ->capture_default_str()
      ->excludes(exact);
  command->callback([options] {
    if (const int status = RunEval(*options); status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
