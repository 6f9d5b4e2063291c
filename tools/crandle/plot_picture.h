// The picture `crandle plot` draws, evaluated by the tool and drawn by the image commands module.
//
// Geometry, fixed so that a plot can be read by a program as well as by eye:
//   width 576; curves in a 512 x 512 box at (48, 32): column c is the input at c / 511 of the
//   domain, row 32 + (1 - (v - low) / (high - low)) * 511 holds value v, where [low, high] is
//   [0, 1] widened to the curves' own range; each channel's curve lights only its own channel.
//   Ramps 512 x 20 at x 48 and y 568 (hue before), 592 (hue after), 616 (lightness before), 640
//   (lightness after). A 3-D table adds 8 slices of 125 x 125 from y 684, 4 to a row with gaps
//   of 4, slice k at blue k / 7, red rising to the right and green upwards.
//   Height 676 for a 1-D table, 954 for a 3-D one.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace crandle_tool::plot {

inline constexpr int kWidth = 576;
inline constexpr int kLeft = 48;
inline constexpr int kTop = 32;
inline constexpr int kBox = 512;
inline constexpr int kRampHeight = 20;
inline constexpr int kRampTop[4] = {568, 592, 616, 640};
inline constexpr int kSlicesTop = 684;
inline constexpr int kSlice = 125;
inline constexpr int kSliceGap = 4;
inline constexpr int kSlices = 8;
inline constexpr int kSlicesPerRow = 4;
inline constexpr int kHeight1D = 676;
inline constexpr int kHeight3D = 954;

}  // namespace crandle_tool::plot

namespace crandle_tool {

using Colour = std::array<float, 3>;

struct SPlotPicture {
  bool is3D = false;
  // The colours evaluated and what the LUT made of them; each part of the plot starts at its own
  // offset: kBox curve samples, kBox hues, kBox greys, then kSlices slices of kSlice x kSlice.
  std::vector<Colour> inputs;
  std::vector<Colour> outputs;
  size_t curves = 0, hues = 0, greys = 0, slices = 0;
  std::string title;
  std::string output;  // the file to write
};

/// Draws `picture` and writes it whole or not at all; says why on stderr when it cannot.
/// Returns the exit status.
int WritePlot(const SPlotPicture& picture);

}  // namespace crandle_tool
