// crandle plot: a LUT as a picture. Per-channel curves (of a 1-D table, or of a 3-D table along
// the neutral axis), hue and lightness ramps before and after, and for a 3-D table a grid of
// slices at rising blue. Colours are what the module applies (CPU path), evaluated in one frame.
//
// Geometry, fixed so that a plot can be read by a program as well as by eye:
//   width 576; curves in a 512 x 512 box at (48, 32): column c is the input at c / 511 of the
//   domain, row 32 + (1 - (v - low) / (high - low)) * 511 holds value v, where [low, high] is
//   [0, 1] widened to the curves' own range; each channel's curve lights only its own channel.
//   Ramps 512 x 20 at x 48 and y 568 (hue before), 592 (hue after), 616 (lightness before), 640
//   (lightness after). A 3-D table adds 8 slices of 125 x 125 from y 684, 4 to a row with gaps
//   of 4, slice k at blue k / 7, red rising to the right and green upwards.
//   Height 676 for a 1-D table, 954 for a 3-D one.
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "api/lut_handle.h"
#include "commands.h"
#include "crandle/crandle.h"
#include "lut_report.h"
#include "lut_source.h"
#include "picture.h"

namespace crandle_tool {
namespace {

constexpr int kWidth = 576;
constexpr int kLeft = 48;
constexpr int kTop = 32;
constexpr int kBox = 512;
constexpr int kRampHeight = 20;
constexpr int kRampTop[4] = {568, 592, 616, 640};
constexpr int kSlicesTop = 684;
constexpr int kSlice = 125;
constexpr int kSliceGap = 4;
constexpr int kSlices = 8;
constexpr int kSlicesPerRow = 4;
constexpr int kHeight1D = 676;
constexpr int kHeight3D = 954;
constexpr const char* kRampNames[4] = {"hue", "out", "grey", "out"};

struct SPlotOptions {
  std::string lutPath;
  std::string correctionId;
  std::string output;
};

using Colour = std::array<float, 3>;

// The colours to evaluate, laid out so that each part of the plot knows where its own are.
struct SSamples {
  std::vector<Colour> inputs;
  size_t curves = 0, hues = 0, greys = 0, slices = 0;
};

Colour Hue(double h) {
  const double r = std::clamp(std::fabs(h * 6 - 3) - 1, 0.0, 1.0);
  const double g = std::clamp(2 - std::fabs(h * 6 - 2), 0.0, 1.0);
  const double b = std::clamp(2 - std::fabs(h * 6 - 4), 0.0, 1.0);
  return {float(r), float(g), float(b)};
}

SSamples MakeSamples(const Tincta::COv3DLUT& lut) {
  SSamples samples;
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

void PutPixel(OIIO::ImageBuf& image, int x, int y, const Colour& colour) {
  image.setpixel(x, y, colour.data(), 3);
}

// Fonts are a nicety: where none is found the plot is drawn without its words.
void Label(OIIO::ImageBuf& image, int x, int y, const std::string& text, int size = 12) {
  const float grey[3] = {0.8f, 0.8f, 0.8f};
  // OpenImageIO's own default face is often not installed; a common free face is tried first.
  for (const char* face : {"DejaVuSans", ""}) {
    if (OIIO::ImageBufAlgo::render_text(image, x, y, text, size, face, grey)) break;
    image.geterror();
  }
  (void)OIIO::geterror();
}

void DrawCurves(OIIO::ImageBuf& image, const std::vector<Colour>& values) {
  float low = 0, high = 1;
  for (const Colour& value : values) {
    for (const float v : value) {
      if (std::isfinite(v)) {
        low = std::min(low, v);
        high = std::max(high, v);
      }
    }
  }
  const auto row = [&](float v) {
    const double clamped =
        std::clamp(double(std::isfinite(v) ? v : low), double(low), double(high));
    return kTop + int(std::lround((1.0 - (clamped - low) / (high - low)) * (kBox - 1)));
  };

  const float frame[3] = {0.35f, 0.35f, 0.35f};
  const float grid[3] = {0.15f, 0.15f, 0.15f};
  for (int q = 1; q < 4; ++q) {
    const int at = q * (kBox - 1) / 4;
    OIIO::ImageBufAlgo::render_line(image, kLeft + at, kTop, kLeft + at, kTop + kBox - 1, grid);
    OIIO::ImageBufAlgo::render_line(image, kLeft, kTop + at, kLeft + kBox - 1, kTop + at, grid);
  }
  // The identity, where the table would change nothing.
  if (low == 0 && high == 1) {
    OIIO::ImageBufAlgo::render_line(image, kLeft, kTop + kBox - 1, kLeft + kBox - 1, kTop, grid);
  }
  OIIO::ImageBufAlgo::render_box(image, kLeft - 1, kTop - 1, kLeft + kBox, kTop + kBox, frame);

  // Each curve on its own layer, lighting only its channel; the layers meet by maximum, so that
  // crossing curves keep each other's pixels.
  for (int channel = 0; channel < 3; ++channel) {
    OIIO::ImageBuf layer(image.spec());
    OIIO::ImageBufAlgo::zero(layer);
    float colour[3] = {0, 0, 0};
    colour[channel] = 1.0f;
    for (int x = 0; x + 1 < kBox; ++x) {
      OIIO::ImageBufAlgo::render_line(layer, kLeft + x, row(values[size_t(x)][channel]),
                                      kLeft + x + 1, row(values[size_t(x) + 1][channel]), colour,
                                      x > 0);
    }
    OIIO::ImageBufAlgo::max(image, image, layer);
  }
  char range[64];
  std::snprintf(range, sizeof(range), "%g", double(high));
  Label(image, 4, kTop + 10, range);
  std::snprintf(range, sizeof(range), "%g", double(low));
  Label(image, 4, kTop + kBox, range);
}

void DrawRamp(OIIO::ImageBuf& image, int top, const Colour* colours, const char* name) {
  for (int y = top; y < top + kRampHeight; ++y) {
    for (int x = 0; x < kBox; ++x)
      PutPixel(image, kLeft + x, y, colours[x]);
  }
  Label(image, 4, top + 14, name);
}

void DrawSlices(OIIO::ImageBuf& image, const Colour* colours) {
  for (int k = 0; k < kSlices; ++k) {
    const int left = kLeft + (k % kSlicesPerRow) * (kSlice + kSliceGap);
    const int top = kSlicesTop + (k / kSlicesPerRow) * (kSlice + kSliceGap);
    const Colour* slice = colours + size_t(k) * kSlice * kSlice;
    for (int y = 0; y < kSlice; ++y) {
      for (int x = 0; x < kSlice; ++x)
        PutPixel(image, left + x, top + y, slice[size_t(y) * kSlice + x]);
    }
  }
  Label(image, 4, kSlicesTop + 14, "blue");
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
  const SSamples samples = MakeSamples(lut);
  std::vector<Colour> outputs;
  std::string error;
  if (!Evaluate(handle, samples.inputs, outputs, error)) {
    std::fprintf(stderr, "crandle plot: %s\n", error.c_str());
    return 1;
  }

  OIIO::ImageBuf image(
      OIIO::ImageSpec(kWidth, lut.Is3D() ? kHeight3D : kHeight1D, 3, OIIO::TypeDesc::FLOAT));
  const float background[3] = {0.05f, 0.05f, 0.05f};
  OIIO::ImageBufAlgo::fill(image, background);
  DrawCurves(image, std::vector<Colour>(outputs.begin() + long(samples.curves),
                                        outputs.begin() + long(samples.curves) + kBox));
  const Colour* rampInputs[4] = {&samples.inputs[samples.hues], &outputs[samples.hues],
                                 &samples.inputs[samples.greys], &outputs[samples.greys]};
  for (int r = 0; r < 4; ++r)
    DrawRamp(image, kRampTop[r], rampInputs[r], kRampNames[r]);
  if (lut.Is3D()) DrawSlices(image, &outputs[samples.slices]);
  const SLUTReport report = DescribeLUT(handle);
  Label(image, kLeft, 20,
        report.displayName + "  " + report.kind + " " + std::to_string(report.size), 14);

  // Written beside the output and renamed over it: a failed write leaves no half picture.
  const std::filesystem::path target(options.output);
  const std::string partial = (target.parent_path() / ("." + target.stem().string() + ".partial" +
                                                       target.extension().string()))
                                  .string();
  if (!image.write(partial, OIIO::TypeDesc::UINT8)) {
    std::fprintf(stderr, "crandle plot: cannot write %s: %s\n", options.output.c_str(),
                 image.geterror().c_str());
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    return 1;
  }
  std::error_code renamed;
  std::filesystem::rename(partial, options.output, renamed);
  if (renamed) {
    std::fprintf(stderr, "crandle plot: cannot write %s: %s\n", options.output.c_str(),
                 renamed.message().c_str());
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    return 1;
  }
  return 0;
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
