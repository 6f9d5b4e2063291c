// crandle plot: a LUT as a picture. Per-channel curves (of a 1-D table, or of a 3-D table along
// the neutral axis), hue and lightness ramps before and after, and for a 3-D table a grid of
// slices at rising blue. Colours are what the module applies (CPU path), evaluated in one frame
// here; the picture is drawn and written by the image commands module.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "api/lut_handle.h"
#include "commands.h"
#include "crandle/crandle.h"
#include "image_commands.h"
#include "lut_report.h"
#include "lut_source.h"
#include "picture.h"

namespace crandle_tool {
namespace {

using namespace plot;

struct SPlotOptions {
  std::string lutPath;
  std::string correctionId;
  std::string output;
};

Colour Hue(double h) {
  const double r = std::clamp(std::fabs(h * 6 - 3) - 1, 0.0, 1.0);
  const double g = std::clamp(2 - std::fabs(h * 6 - 2), 0.0, 1.0);
  const double b = std::clamp(2 - std::fabs(h * 6 - 4), 0.0, 1.0);
  return {float(r), float(g), float(b)};
}

// The colours to evaluate, laid out so that each part of the plot knows where its own are.
SPlotPicture Sample(const Tincta::COv3DLUT& lut) {
  SPlotPicture samples;
  samples.is3D = lut.Is3D();
  const auto inDomain = [&](double t) {
    Colour c;
    for (int i = 0; i < 3; ++i) {
      c[i] = float(lut.DomainMin()[i] + t * (lut.DomainMax()[i] - lut.DomainMin()[i]));
    }
    return c;
  };
  samples.curves = samples.inputs.size();
  for (int x = 0; x < kBox; ++x)
    samples.inputs.push_back(inDomain(double(x) / (kBox - 1)));
  samples.hues = samples.inputs.size();
  for (int x = 0; x < kBox; ++x) {
    const Colour hue = Hue(double(x) / kBox);
    Colour c;
    for (int i = 0; i < 3; ++i)
      c[i] = inDomain(hue[i])[i];
    samples.inputs.push_back(c);
  }
  samples.greys = samples.inputs.size();
  for (int x = 0; x < kBox; ++x)
    samples.inputs.push_back(inDomain(double(x) / (kBox - 1)));
  samples.slices = samples.inputs.size();
  if (lut.Is3D()) {
    for (int k = 0; k < kSlices; ++k) {
      for (int y = 0; y < kSlice; ++y) {
        for (int x = 0; x < kSlice; ++x) {
          const Colour r = inDomain(double(x) / (kSlice - 1));
          const Colour g = inDomain(1.0 - double(y) / (kSlice - 1));
          const Colour b = inDomain(double(k) / (kSlices - 1));
          samples.inputs.push_back({r[0], g[1], b[2]});
        }
      }
    }
  }
  return samples;
}

// All samples through the module's CPU path in one frame, a row of kBox pixels per row.
bool Evaluate(const std::shared_ptr<void>& lut, const std::vector<Colour>& inputs,
              std::vector<Colour>& outputs, std::string& error) {
  const auto rows = uint32_t((inputs.size() + kBox - 1) / kBox);
  CPicture source, destination;
  if (!source.Allocate(kBox, rows, host::kPixelFormat_BGRA_4444_32f) ||
      !destination.Allocate(kBox, rows, host::kPixelFormat_BGRA_4444_32f)) {
    error = "not enough memory";
    return false;
  }
  for (size_t i = 0; i < inputs.size(); ++i) {
    float* pixel = reinterpret_cast<float*>(source.Row(uint32_t(i / kBox))) + 4 * (i % kBox);
    pixel[0] = inputs[i][2];
    pixel[1] = inputs[i][1];
    pixel[2] = inputs[i][0];
    pixel[3] = 1.0f;
  }
  auto sourceFrame = source.View(0, rows);
  auto destinationFrame = destination.View(0, rows);
  const int result = CRANDLE::ApplyLUT(sourceFrame, lut, host::LUTInterpolationMethod::Trilinear,
                                       destinationFrame);
  if (result != CRANDLE::kResultOK) {
    error = "applying the LUT failed: " + ResultCodeText(result);
    return false;
  }
  outputs.resize(inputs.size());
  for (size_t i = 0; i < inputs.size(); ++i) {
    const float* pixel =
        reinterpret_cast<const float*>(destination.Row(uint32_t(i / kBox))) + 4 * (i % kBox);
    outputs[i] = {pixel[2], pixel[1], pixel[0]};
  }
  return true;
}

int RunPlot(const SPlotOptions& options) {
  std::shared_ptr<void> handle;
  const int parsed = ParseLUTFile(options.lutPath, options.correctionId, handle);
  if (parsed != CRANDLE::kResultOK) {
    std::fprintf(stderr, "crandle plot: %s: %s: %s\n", options.lutPath.c_str(),
                 ResultCodeText(parsed).c_str(),
                 ParseFailureReason(options.lutPath, parsed, options.correctionId).c_str());
    return 1;
  }
  const Tincta::COv3DLUT& lut = *CRANDLE::detail::LUTOf(handle);
  SPlotPicture picture = Sample(lut);
  std::string error;
  if (!Evaluate(handle, picture.inputs, picture.outputs, error)) {
    std::fprintf(stderr, "crandle plot: %s\n", error.c_str());
    return 1;
  }
  const SLUTReport report = DescribeLUT(handle);
  picture.title = report.displayName + "  " + report.kind + " " + std::to_string(report.size);
  picture.output = options.output;
  const SImageCommands* image = ImageCommands("plot");
  return image ? image->writePlot(picture) : 1;
}

}  // namespace

void AddPlotCommand(CLI::App& app) {
  auto options = std::make_shared<SPlotOptions>();
  CLI::App* command = app.add_subcommand(
      "plot",
      "Draw a LUT: per-channel curves, hue and grey ramps before and after, and slices of "
      "a 3-D cube");
  command->add_option("LUT", options->lutPath, "LUT file of any supported format")->required();
  command->add_option("-o,--output", options->output, "The picture to write (PNG, TIFF, ...)")
      ->required();
  AddCorrectionIdOption(command, options->correctionId);
  command->footer(
      "Curves: red, green and blue over the LUT's domain (a 3-D table along its neutral axis), "
      "with the identity as a grey diagonal. Ramps: hue and grey, each before and after. A 3-D "
      "table adds 8 slices at rising blue (red to the right, green upwards). Colours are what the "
      "module applies on the CPU.");
  command->callback([options] {
    const int status = RunPlot(*options);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace crandle_tool
