#include "support/format_samples.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lut/formats/xml_lut_element.h"
#include "lut/lut3d.h"

namespace crandle_test {
namespace {

// Appends each piece (GCC 12 warns falsely about "literal" + std::string at -O3).
template <typename... Pieces>
void Append(std::string& out, const Pieces&... pieces) {
  (out.append(std::string_view(pieces)), ...);
}

void PutLittle32(std::string& bytes, uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8)
    bytes.push_back(char(uint8_t(value >> shift)));
}

// Node i of an n-point grid in file order: red fastest, or blue fastest for mesh order.
Codes Node(uint32_t i, uint32_t n, bool blueFastest) {
  const Codes fastFirst{i % n, i / n % n, i / n / n};
  return blueFastest ? Codes{fastFirst[2], fastFirst[1], fastFirst[0]} : fastFirst;
}

// "%.6f %.6f %.6f" of a colour.
std::string RgbLine(const Rgb& rgb) {
  char text[128];
  std::snprintf(text, sizeof(text), "%.6f %.6f %.6f", double(rgb[0]), double(rgb[1]),
                double(rgb[2]));
  return text;
}

}  // namespace

Rgb NodeColour(uint32_t r, uint32_t g, uint32_t b, uint32_t size) {
  const float scale = size > 1 ? 1.0f / float(size - 1) : 0.0f;
  const float x = float(r) * scale, y = float(g) * scale, z = float(b) * scale;
  return {0.8f * x + 0.15f * y + 0.05f * z, 0.1f * x + 0.7f * y + 0.2f * z,
          0.3f * x * y + 0.6f * z + 0.05f};
}

NodeFunction NodeColours(uint32_t size) {
  return [size](uint32_t r, uint32_t g, uint32_t b) { return NodeColour(r, g, b, size); };
}

CodeFunction NodeCodesOf(uint32_t size, uint32_t levels) {
  return [size, levels](uint32_t r, uint32_t g, uint32_t b) {
    const Rgb c = NodeColour(r, g, b, size);
    const auto code = [levels](float v) { return uint32_t(std::lround(v * float(levels - 1))); };
    return Codes{code(c[0]), code(c[1]), code(c[2])};
  };
}

float Printed(float value) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.6f", double(value));
  return std::strtof(text, nullptr);
}

std::vector<Rgb> IdentityRamp(uint32_t n) {
  std::vector<Rgb> ramp(n);
  for (uint32_t i = 0; i < n; ++i)
    ramp[i].fill(float(double(i) / double(n - 1)));
  return ramp;
}

std::string TruelightText(uint32_t width, const std::vector<Rgb>& inputLUT,
                          const NodeFunction& colour) {
  std::string text = "# Truelight Cube v2.1\n";
  if (!inputLUT.empty()) Append(text, "# lutLength ", std::to_string(inputLUT.size()), "\n");
  text += "# iDims     3\n# oDims     3\n";
  const std::string w = std::to_string(width);
  if (width > 0) Append(text, "# width     ", w, " ", w, " ", w, "\n\n");
  if (!inputLUT.empty()) text += "# InputLUT\n";
  for (const Rgb& entry : inputLUT)
    Append(text, " ", RgbLine(entry), "\n");
  if (!inputLUT.empty()) text += "\n";
  if (width > 0) text += "# Cube\n";
  for (uint32_t i = 0; i < width * width * width; ++i) {
    const Codes node = Node(i, width, false);
    Append(text, " ", RgbLine(colour(node[0], node[1], node[2])), "\n");
  }
  return text + "# end\n";
}

std::string MeshText(std::string_view header, uint32_t size, const CodeFunction& codes) {
  std::string text(header);
  for (uint32_t i = 0; i < size * size * size; ++i) {
    const Codes node = Node(i, size, true), c = codes(node[0], node[1], node[2]);
    Append(text, std::to_string(c[0]), " ", std::to_string(c[1]), " ", std::to_string(c[2]), "\n");
  }
  return text;
}

std::string EvenShaperLine(uint32_t n, uint32_t last) {
  std::string text = "0";
  for (uint32_t i = 1; i < n; ++i)
    Append(text, " ", std::to_string(std::lround(double(i) * last / (n - 1))));
  return text;
}

uint32_t PackWord(uint32_t red, uint32_t green, uint32_t blue) {
  return red << 20 | (green & 1023u) << 10 | (blue & 1023u);
}

std::vector<uint8_t> Packed10Bytes(
    bool bigEndian, uint32_t exponent,
    const std::function<uint32_t(uint32_t, uint32_t, uint32_t)>& word, uint32_t dataOffset) {
  const uint32_t size = (1u << exponent) + 1;
  std::vector<uint8_t> bytes(std::max<size_t>(809, dataOffset + size_t(size) * size * size * 4), 0);
  const auto put = [&bytes, bigEndian](size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i)
      bytes[at + size_t(i)] = uint8_t(value >> (bigEndian ? 24 - 8 * i : 8 * i));
  };
  std::memcpy(bytes.data(), bigEndian ? "3LUT" : "TUL3", 4);
  put(4, dataOffset);
  put(660, 0xFFFFFFFFu);
  bytes[bigEndian ? 769 : 768] = uint8_t(exponent);
  for (uint32_t i = 0; i < size * size * size; ++i) {
    const Codes node = Node(i, size, true);
    put(dataOffset + 4 * size_t(i), word(node[0], node[1], node[2]));
  }
  return bytes;
}

std::vector<uint8_t> FloatImageBytes(const SFloatImage& image, uint64_t entries,
                                     const std::function<Rgb(uint64_t)>& rgb) {
  std::string bytes(image.magic);
  for (const uint32_t word : {image.size, image.kind, image.enciphered})
    PutLittle32(bytes, word);
  for (const Rgb* v : {&image.min, &image.max})
    for (const float f : *v)
      if (image.magic != "OVTX") PutLittle32(bytes, std::bit_cast<uint32_t>(f));
  for (uint64_t i = 0; i < entries; ++i)
    for (const float f : rgb(i))
      PutLittle32(bytes, std::bit_cast<uint32_t>(f));
  return {bytes.begin(), bytes.end()};
}

std::string HexOf(const void* bytes, size_t count) {
  std::string text;
  for (size_t i = 0; i < 2 * count; ++i)
    text += "0123456789ABCDEF"[static_cast<const uint8_t*>(bytes)[i / 2] >> (i % 2 ? 0 : 4) & 15];
  return text;
}

std::string XMLLookText(uint32_t size, const NodeFunction& colour, std::string_view domainMin,
                        std::string_view domainMax) {
  std::vector<float> rgb;
  for (uint32_t i = 0; i < size * size * size; ++i) {
    const Codes node = Node(i, size, false);
    const Rgb c = colour(node[0], node[1], node[2]);
    rgb.insert(rgb.end(), c.begin(), c.end());
  }
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<look>\n  <LUT>\n";
  Append(text, "    <size>\"", std::to_string(size), "\"</size>\n");
  if (!domainMin.empty()) Append(text, "    <domainmin>", domainMin, "</domainmin>\n");
  if (!domainMax.empty()) Append(text, "    <domainmax>", domainMax, "</domainmax>\n");
  text += "    <data>\"";
  // Line breaks inside the data, as editors wrap long text.
  const std::string hex = HexOf(rgb.data(), rgb.size() * 4);
  for (size_t i = 0; i < hex.size(); i += 96)
    Append(text, "\n      ", hex.substr(i, 96));
  return text + "\n    \"</data>\n  </LUT>\n</look>\n";
}

std::string CDLText(std::string_view slope, std::string_view offset, std::string_view power,
                    std::string_view extra) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  text += "<ColorCorrection id=\"shot_010\" xmlns=\"urn:ASC:CDL:v1.01\">\n  <SOPNode>\n";
  Append(text, "    <Slope>", slope, "</Slope>\n    <Offset>", offset, "</Offset>\n");
  Append(text, "    <Power>", power, "</Power>\n  </SOPNode>\n", extra, "</ColorCorrection>\n");
  return text;
}

std::vector<SSeed> ParseLUTDataSeeds() {
  const auto cubeNode = [](uint64_t i) {
    return NodeColour(uint32_t(i % 2), uint32_t(i / 2 % 2), uint32_t(i / 4), 2);
  };
  const auto curveNode = [](uint64_t i) { return Rgb{float(i) / 3.0f, float(i) / 3.0f, 0.5f}; };
  const auto ramp = [](uint32_t step) {
    return [step](uint32_t r, uint32_t g, uint32_t b) {
      return PackWord(r * step, g * step, b * step);
    };
  };
  std::string cube = "TITLE \"seed\"\nLUT_3D_SIZE 2\n";
  for (uint64_t i = 0; i < 8; ++i)
    Append(cube, RgbLine(cubeNode(i)), "\n");
  std::vector<Rgb> shaper = IdentityRamp(5);
  shaper[2] = {0.3f, 0.3f, 0.3f};
  return {
      {"cube_3d_2.cube", cube},
      {"cube_1d_4.cube",
       "LUT_1D_SIZE 4\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n0 0 0\n0.3 0.3 0.3\n0.6 0.6 0.6\n1 1 "
       "1\n"},
      {"truelight_3.cub", TruelightText(3, {}, NodeColours(3))},
      {"truelight_shaper.cub", TruelightText(2, shaper, NodeColours(2))},
      {"truelight_1d.cub", TruelightText(0, IdentityRamp(4), NodeColours(2))},
      {"mesh_3dmesh.3dl",
       MeshText("3DMESH\nMesh 1 12\n" + EvenShaperLine(3, 4095) + "\n", 3, NodeCodesOf(3, 4096))},
      {"mesh_lut_size.3dl", MeshText("# LUT_SIZE : 2 2 2\n", 2, NodeCodesOf(2, 1024))},
      {"mesh_entries.3dl", MeshText("# entries = 2\n", 3, NodeCodesOf(3, 1024))},
      {"mesh_shaper_line.3dl", MeshText("0 100 700 1023\n", 4, NodeCodesOf(4, 4096))},
      {"mesh_comment_shaper.3dl",
       MeshText("# 0 10 20 500 1023\n3DMESHHW\nMesh 2 10\n", 5, NodeCodesOf(5, 1024))},
      {"packed_big.3lut", AsText(Packed10Bytes(true, 1, ramp(511)))},
      {"packed_little.3lut", AsText(Packed10Bytes(false, 0, ramp(1023)))},
      {"look.xml", XMLLookText(2, NodeColours(2), "0, 0, 0", "1, 1, 1")},
      {"cdl.cc", CDLText("1.1 1.0 0.9", "0.01 0 -0.01", "1.0 1.2 0.8")},
      {"float_ovtx.bin", AsText(FloatImageBytes({"OVTX", 2, 3}, 8, cubeNode))},
      {"float_otx2.bin", AsText(FloatImageBytes({"OTX2", 4, 1}, 4, curveNode))},
      {"float_otx3.bin", AsText(FloatImageBytes({"OTX3", 2, 3}, 8, cubeNode))},
  };
}

std::vector<SSeed> XMLLUTElementSeeds() {
  const auto document = [](const Tincta::COv3DLUT& lut) {
    std::string text = "<?xml version=\"1.0\"?>\n<lut>\n";
    Tincta::WriteXMLLUTElement(lut, 2, text);
    return text + "</lut>\n";
  };
  const auto fill = [](Tincta::COv3DLUT& lut, uint32_t size, bool is3D) {
    lut.Allocate(size, is3D);
    for (uint32_t i = 0; i < lut.EntryCount(); ++i) {
      const Rgb c = NodeColour(i % size, i / size % size, i / size / size, size);
      std::copy(c.begin(), c.end(), lut.Table() + 4 * i);
      lut.Table()[4 * i + 3] = 1.0f;
    }
  };
  Tincta::COv3DLUT oneD, threeD;
  fill(oneD, 4, false);
  oneD.SetSourcePath("/luts/curve & tone.cube");
  fill(threeD, 2, true);
  threeD.SetDomain({-0.5f, 0, 0, 1}, {1.5f, 1, 1, 1});
  std::vector<SSeed> seeds{{"element_1d.xml", document(oneD)},
                           {"element_3d.xml", document(threeD)}};
  auto shaper = std::make_shared<Tincta::COv3DLUT>();
  fill(*shaper, 4, false);
  threeD.SetInputShaper(shaper);
  seeds.push_back({"element_shaper.xml", document(threeD)});
  seeds.push_back({"element_hash.xml",
                   "<lut><hash>\"00112233445566778899AABBCCDDEEFF\"</hash><is3d>\"0\"</is3d>"
                   "<size>\"2\"</size><data>\"" +
                       std::string(64, '0') + "\"</data></lut>"});
  return seeds;
}

}  // namespace crandle_test
