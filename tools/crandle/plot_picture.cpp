// Drawing and writing the picture of `crandle plot`.
#include "plot_picture.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>

namespace crandle_tool {
namespace {

using namespace plot;

constexpr const char* kRampNames[4] = {"hue", "out", "grey", "out"};

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

}  // namespace

int WritePlot(const SPlotPicture& picture) {
  OIIO::ImageBuf image(
      OIIO::ImageSpec(kWidth, picture.is3D ? kHeight3D : kHeight1D, 3, OIIO::TypeDesc::FLOAT));
  const float background[3] = {0.05f, 0.05f, 0.05f};
  OIIO::ImageBufAlgo::fill(image, background);
  DrawCurves(image, std::vector<Colour>(picture.outputs.begin() + long(picture.curves),
                                        picture.outputs.begin() + long(picture.curves) + kBox));
  const Colour* rampInputs[4] = {&picture.inputs[picture.hues], &picture.outputs[picture.hues],
                                 &picture.inputs[picture.greys], &picture.outputs[picture.greys]};
  for (int r = 0; r < 4; ++r)
    DrawRamp(image, kRampTop[r], rampInputs[r], kRampNames[r]);
  if (picture.is3D) DrawSlices(image, &picture.outputs[picture.slices]);
  Label(image, kLeft, 20, picture.title, 14);

  // Written beside the output and renamed over it: a failed write leaves no half picture.
  const std::filesystem::path target(picture.output);
  // Appended piece by piece: the one-expression form trips a false -Wrestrict in GCC 12 here.
  std::string name = ".";
  name += target.stem().string();
  name += ".partial";
  name += target.extension().string();
  const std::string partial = (target.parent_path() / name).string();
  if (!image.write(partial, OIIO::TypeDesc::UINT8)) {
    std::fprintf(stderr, "crandle plot: cannot write %s: %s\n", picture.output.c_str(),
                 image.geterror().c_str());
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    return 1;
  }
  std::error_code renamed;
  std::filesystem::rename(partial, picture.output, renamed);
  if (renamed) {
    std::fprintf(stderr, "crandle plot: cannot write %s: %s\n", picture.output.c_str(),
                 renamed.message().c_str());
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    return 1;
  }
  return 0;
}

}  // namespace crandle_tool
