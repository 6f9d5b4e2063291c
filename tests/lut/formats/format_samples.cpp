#include "format_samples.h"

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

Codes NodeCodes(uint32_t r, uint32_t g, uint32_t b, uint32_t size, uint32_t levels) {
  const Rgb colour = NodeColour(r, g, b, size);
  Codes codes{};
  for (int c = 0; c < 3; ++c)
    codes[c] = uint32_t(std::lround(colour[c] * float(levels - 1)));
  return codes;
}

CodeFunction NodeCodesOf(uint32_t size, uint32_t levels) {
  return [size, levels](uint32_t r, uint32_t g, uint32_t b) {
    return NodeCodes(r, g, b, size, levels);
  };
}

float Printed(float value) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.6f", double(value));
  return std::strtof(text, nullptr);
}

std::string RgbLine(const Rgb& rgb) {
  char text[128];
  std::snprintf(text, sizeof(text), "%.6f %.6f %.6f", double(rgb[0]), double(rgb[1]),
                double(rgb[2]));
  return text;
}

std::vector<Rgb> IdentityRamp(uint32_t n) {
  std::vector<Rgb> ramp(n);
  for (uint32_t i = 0; i < n; ++i) {
    const float v = float(double(i) / double(n - 1));
    ramp[i] = {v, v, v};
  }
  return ramp;
}

std::string TruelightText(uint32_t width, const std::vector<Rgb>& inputLUT,
                          const NodeFunction& colour) {
  std::string text = "# Truelight Cube v2.1\n";
  if (!inputLUT.empty()) Append(text, "# lutLength ", std::to_string(inputLUT.size()), "\n");
  text += "# iDims     3\n# oDims     3\n";
  if (width > 0) {
    const std::string w = std::to_string(width);
    Append(text, "# width     ", w, " ", w, " ", w, "\n\n");
  }
  if (!inputLUT.empty()) {
    text += "# InputLUT\n";
    for (const Rgb& entry : inputLUT)
      Append(text, " ", RgbLine(entry), "\n");
    text += "\n";
  }
  if (width > 0) {
    text += "# Cube\n";
    for (uint32_t b = 0; b < width; ++b)
      for (uint32_t g = 0; g < width; ++g)
        for (uint32_t r = 0; r < width; ++r)
          Append(text, " ", RgbLine(colour(r, g, b)), "\n");
  }
  text += "# end\n";
  return text;
}

std::string MeshText(std::string_view header, uint32_t size, const CodeFunction& codes) {
  std::string text(header);
  for (uint32_t r = 0; r < size; ++r)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t b = 0; b < size; ++b) {
        const Codes c = codes(r, g, b);
        Append(text, std::to_string(c[0]), " ", std::to_string(c[1]), " ", std::to_string(c[2]),
               "\n");
      }
  return text;
}

std::string EvenShaperLine(uint32_t n, uint32_t last) {
  std::string text;
  for (uint32_t i = 0; i < n; ++i) {
    if (i > 0) text += ' ';
    text += std::to_string(std::lround(double(i) * last / (n - 1)));
  }
  return text;
}

namespace {

void PutWord(std::vector<uint8_t>& bytes, size_t at, uint32_t value, bool bigEndian) {
  for (int i = 0; i < 4; ++i) {
    const int shift = bigEndian ? 24 - 8 * i : 8 * i;
    bytes[at + i] = uint8_t(value >> shift);
  }
}

void PutLittle32(std::string& bytes, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    bytes.push_back(char(uint8_t(value >> (8 * i))));
}

void PutFloat(std::string& bytes, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, 4);
  PutLittle32(bytes, bits);
}

}  // namespace

uint32_t PackWord(uint32_t red, uint32_t green, uint32_t blue) {
  return red << 20 | (green & 1023u) << 10 | (blue & 1023u);
}

std::vector<uint8_t> Packed10Bytes(
    bool bigEndian, uint32_t exponent,
    const std::function<uint32_t(uint32_t, uint32_t, uint32_t)>& word, uint32_t dataOffset) {
  const uint32_t size = (1u << exponent) + 1;
  std::vector<uint8_t> bytes(std::max<size_t>(809, dataOffset + size_t(size) * size * size * 4), 0);
  std::memcpy(bytes.data(), bigEndian ? "3LUT" : "TUL3", 4);
  PutWord(bytes, 4, dataOffset, bigEndian);
  PutWord(bytes, 660, 0xFFFFFFFFu, bigEndian);
  bytes[bigEndian ? 768 : 769] = 0;
  bytes[bigEndian ? 769 : 768] = uint8_t(exponent);
  size_t at = dataOffset;
  for (uint32_t r = 0; r < size; ++r)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t b = 0; b < size; ++b, at += 4)
        PutWord(bytes, at, word(r, g, b), bigEndian);
  return bytes;
}

std::string HexOf(const void* bytes, size_t count) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  const auto* p = static_cast<const uint8_t*>(bytes);
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[p[i] >> 4];
    text += kDigits[p[i] & 15];
  }
  return text;
}

std::string XMLLookText(uint32_t size, const NodeFunction& colour, std::string_view domainMin,
                        std::string_view domainMax) {
  std::vector<float> rgb;
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r) {
        const Rgb c = colour(r, g, b);
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
  text += "\n    \"</data>\n  </LUT>\n</look>\n";
  return text;
}

std::string CDLText(std::string_view slope, std::string_view offset, std::string_view power,
                    std::string_view extra) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  text += "<ColorCorrection id=\"shot_010\" xmlns=\"urn:ASC:CDL:v1.01\">\n  <SOPNode>\n";
  Append(text, "    <Slope>", slope, "</Slope>\n");
  Append(text, "    <Offset>", offset, "</Offset>\n");
  Append(text, "    <Power>", power, "</Power>\n  </SOPNode>\n");
  text += std::string(extra);
  text += "</ColorCorrection>\n";
  return text;
}

std::string CubeText(uint32_t size, const NodeFunction& colour) {
  std::string text;
  Append(text, "TITLE \"seed\"\nLUT_3D_SIZE ", std::to_string(size), "\n");
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r)
        text += RgbLine(colour(r, g, b)) + "\n";
  return text;
}

std::vector<uint8_t> FloatImageBytes(std::string_view magic, uint32_t size, bool is3D) {
  std::string bytes(magic);
  PutLittle32(bytes, size);
  PutLittle32(bytes, is3D ? 3 : 1);
  PutLittle32(bytes, 0);
  if (magic != "OVTX") {
    for (float v : {0.0f, 0.0f, 0.0f, 1.0f, 1.0f, 1.0f})
      PutFloat(bytes, v);
  }
  const uint32_t entries = is3D ? size * size * size : size;
  for (uint32_t i = 0; i < entries; ++i) {
    const Rgb c = is3D ? NodeColour(i % size, i / size % size, i / size / size, size)
                       : Rgb{float(i) / float(size - 1), float(i) / float(size - 1), 0.5f};
    for (float v : c)
      PutFloat(bytes, v);
  }
  return {bytes.begin(), bytes.end()};
}

std::vector<SSeed> ParseLUTDataSeeds() {
  const auto text = [](std::vector<uint8_t> bytes) {
    return std::string(bytes.begin(), bytes.end());
  };
  std::vector<SSeed> seeds;
  seeds.push_back({"cube_3d_2.cube", CubeText(2, NodeColours(2))});
  seeds.push_back({"cube_1d_4.cube",
                   "LUT_1D_SIZE 4\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n0 0 0\n0.3 0.3 0.3\n"
                   "0.6 0.6 0.6\n1 1 1\n"});
  seeds.push_back({"truelight_3.cub", TruelightText(3, {}, NodeColours(3))});
  std::vector<Rgb> shaper = IdentityRamp(5);
  shaper[2] = {0.3f, 0.3f, 0.3f};
  seeds.push_back({"truelight_shaper.cub", TruelightText(2, shaper, NodeColours(2))});
  seeds.push_back({"truelight_1d.cub", TruelightText(0, IdentityRamp(4), NodeColours(2))});
  seeds.push_back({"mesh_3dmesh.3dl",
                   MeshText(std::string("3DMESH\nMesh 1 12\n") + EvenShaperLine(3, 4095) + "\n", 3,
                            NodeCodesOf(3, 4096))});
  seeds.push_back({"mesh_lut_size.3dl", MeshText("# LUT_SIZE : 2 2 2\n", 2, NodeCodesOf(2, 1024))});
  seeds.push_back({"mesh_entries.3dl", MeshText("# entries = 2\n", 3, NodeCodesOf(3, 1024))});
  seeds.push_back({"mesh_shaper_line.3dl", MeshText("0 100 700 1023\n", 4, NodeCodesOf(4, 4096))});
  seeds.push_back({"mesh_comment_shaper.3dl",
                   MeshText("# 0 10 20 500 1023\n3DMESHHW\nMesh 2 10\n", 5, NodeCodesOf(5, 1024))});
  seeds.push_back(
      {"packed_big.3lut", text(Packed10Bytes(true, 1, [](uint32_t r, uint32_t g, uint32_t b) {
         return PackWord(r * 511, g * 511, b * 511);
       }))});
  seeds.push_back(
      {"packed_little.3lut", text(Packed10Bytes(false, 0, [](uint32_t r, uint32_t g, uint32_t b) {
         return PackWord(r * 1023, g * 1023, b * 1023);
       }))});
  seeds.push_back({"look.xml", XMLLookText(2, NodeColours(2), "0, 0, 0", "1, 1, 1")});
  seeds.push_back({"cdl.cc", CDLText("1.1 1.0 0.9", "0.01 0 -0.01", "1.0 1.2 0.8")});
  seeds.push_back({"float_ovtx.bin", text(FloatImageBytes("OVTX", 2, true))});
  seeds.push_back({"float_otx2.bin", text(FloatImageBytes("OTX2", 4, false))});
  seeds.push_back({"float_otx3.bin", text(FloatImageBytes("OTX3", 2, true))});
  return seeds;
}

std::vector<SSeed> XMLLUTElementSeeds() {
  const auto document = [](const Tincta::COv3DLUT& lut) {
    std::string text = "<?xml version=\"1.0\"?>\n<lut>\n";
    Tincta::WriteXMLLUTElement(lut, 2, text);
    return text + "</lut>\n";
  };
  const auto fill = [](Tincta::COv3DLUT& lut, uint32_t size, bool is3D) {
    lut.Allocate(size, is3D);
    for (size_t i = 0; i < lut.EntryCount(); ++i) {
      const Rgb c = NodeColour(uint32_t(i % size), uint32_t(i / size % size),
                               uint32_t(i / size / size), size);
      float* entry = lut.Table() + 4 * i;
      entry[0] = c[0], entry[1] = c[1], entry[2] = c[2], entry[3] = 1.0f;
    }
  };
  std::vector<SSeed> seeds;
  Tincta::COv3DLUT oneD;
  fill(oneD, 4, false);
  oneD.SetSourcePath("/luts/curve & tone.cube");
  seeds.push_back({"element_1d.xml", document(oneD)});
  Tincta::COv3DLUT threeD;
  fill(threeD, 2, true);
  threeD.SetDomain({-0.5f, 0, 0, 1}, {1.5f, 1, 1, 1});
  seeds.push_back({"element_3d.xml", document(threeD)});
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
