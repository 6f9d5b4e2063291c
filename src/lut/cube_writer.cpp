#include "lut/cube_writer.h"

#include <charconv>
#include <vector>

namespace Tincta {
namespace {

// The longest "%.6f" of a float: sign, 39 integer digits, point, 6 decimals.
constexpr size_t kMaxNumberChars = 48;

// Formats like "%.6f" (std::to_chars with a precision rounds exactly as printf does) without the
// locale and the per-call parsing of the format.
void AppendFixed6(std::string& out, float value) {
  char text[kMaxNumberChars];
  const auto [end, error] =
      std::to_chars(text, text + sizeof(text), double(value), std::chars_format::fixed, 6);
  if (error == std::errc()) out.append(text, end);
}

// `rgb` holds size^3 triples in table order.
std::string FormatCube(const float* rgb, uint32_t size) {
  const size_t entries = size_t(size) * size * size;
  std::string text;
  text.reserve(32 + entries * 30);
  text += "LUT_3D_SIZE ";
  text += std::to_string(size);
  text += "\r\n";
  for (size_t i = 0; i < entries; ++i) {
    const float* entry = rgb + 3 * i;
    AppendFixed6(text, entry[0]);
    text += ' ';
    AppendFixed6(text, entry[1]);
    text += ' ';
    AppendFixed6(text, entry[2]);
    text += "\r\n";
  }
  return text;
}

}  // namespace

void WriteCubeText(const CubePipeline& pipeline, std::string& out, uint32_t size) {
  out.clear();
  if (!pipeline || size < kMinCubeWriterSize || size > kMaxCubeWriterSize) return;
  const size_t entries = size_t(size) * size * size;
  std::vector<float> baked(entries * 3);
  const double step = 1.0 / double(size - 1);
  size_t i = 0;
  for (uint32_t blue = 0; blue < size; ++blue) {
    for (uint32_t green = 0; green < size; ++green) {
      for (uint32_t red = 0; red < size; ++red, ++i) {
        const float in[3] = {float(red * step), float(green * step), float(blue * step)};
        if (!pipeline(in, &baked[3 * i])) return;
      }
    }
  }
  out = FormatCube(baked.data(), size);
}

void WriteCubeText(const COv3DLUT& lut, std::string& out) {
  out.clear();
  if (!lut.Is3D() || lut.Size() < kMinCubeWriterSize || lut.InputShaper() || !lut.Table()) return;
  for (int c = 0; c < 3; ++c) {
    if (lut.DomainMin()[c] != 0.0f || lut.DomainMax()[c] != 1.0f) return;
  }
  const size_t entries = lut.EntryCount();
  std::vector<float> rgb(entries * 3);
  const float* table = lut.Table();
  for (size_t i = 0; i < entries; ++i) {
    for (int c = 0; c < 3; ++c)
      rgb[3 * i + c] = table[4 * i + c];
  }
  out = FormatCube(rgb.data(), lut.Size());
}

}  // namespace Tincta
