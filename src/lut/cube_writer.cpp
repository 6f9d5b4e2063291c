#include "lut/cube_writer.h"

#include <charconv>
#include <vector>

#include "lut/writer_text.h"

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

namespace Tincta {
namespace {

// What the cube reader keeps of a TITLE line: the text between the quotes, at most 1023 chars.
constexpr size_t kMaxCubeTitle = 1023;

void AppendDomainLine(std::string& out, const char* word, const Vec4& domain) {
  out += word;
  for (int c = 0; c < 3; ++c) {
    out += ' ';
    AppendExactFloat(out, domain[c]);
  }
  out += '\n';
}

}  // namespace

bool bWriteCubeTable(const COv3DLUT& lut, const std::string& title, std::string& out,
                     std::string& why) {
  out.clear();
  why.clear();
  if (lut.Size() == 0 || !lut.Table()) {
    why = "the LUT is empty";
    return false;
  }
  if (lut.InputShaper()) {
    why = "cube text holds one table, and it has an input shaper in front of its cube";
    return false;
  }
  if (lut.Is3D() && lut.Size() > kMax3DSize) {
    why = "cube text holds at most " + std::to_string(kMax3DSize) + " points per axis";
    return false;
  }
  if (!lut.Is3D() && lut.Size() > kMax1DEntries) {
    why = "a 1-D cube text holds at most " + std::to_string(kMax1DEntries) + " entries";
    return false;
  }
  if (title.find_first_of("\"\r\n") != std::string::npos) {
    why = "the title holds a quote or a line break, which a TITLE line cannot";
    return false;
  }
  if (title.size() > kMaxCubeTitle) {
    why = "the title is longer than the " + std::to_string(kMaxCubeTitle) +
          " characters a TITLE line keeps";
    return false;
  }
  const size_t entries = lut.EntryCount();
  std::string text;
  text.reserve(128 + title.size() + entries * 28);
  if (!title.empty()) text += "TITLE \"" + title + "\"\n";
  if (!HasUnitDomain(lut)) {
    AppendDomainLine(text, "DOMAIN_MIN", lut.DomainMin());
    AppendDomainLine(text, "DOMAIN_MAX", lut.DomainMax());
  }
  text += lut.Is3D() ? "LUT_3D_SIZE " : "LUT_1D_SIZE ";
  text += std::to_string(lut.Size());
  text += '\n';
  for (size_t i = 0; i < entries; ++i)
    AppendExactEntry(text, lut.Table(), i);
  out = std::move(text);
  return true;
}

}  // namespace Tincta
