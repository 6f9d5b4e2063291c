// Every writer against exact bytes for small tables, its refusals, and the round trip of each kind
// of table through each written format and back through the readers: the same table within the
// written format's precision, or a refusal with the reason.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lut/lut_writers.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using Tincta::ELUTFileFormat;

std::string Write(const COv3DLUT& lut, ELUTFileFormat format,
                  Tincta::SLUTWriteOptions options = {}) {
  std::string out, why;
  EXPECT_TRUE(Tincta::bWriteLUTFile(lut, format, options, out, why)) << why;
  return out;
}

std::string Refusal(const COv3DLUT& lut, ELUTFileFormat format,
                    Tincta::SLUTWriteOptions options = {}) {
  std::string out = "untouched", why;
  EXPECT_FALSE(Tincta::bWriteLUTFile(lut, format, options, out, why));
  EXPECT_TRUE(out.empty());
  return why;
}

// Small tables as exact bytes; mesh shaper lines from the grid or the shaper the table was given.
TEST(LUTWriters, SmallTablesComeOutAsExactBytes) {
  // Entry i holds (i/8, i/4 - 0.5, 1 - i/16): red fastest in cube and Truelight text.
  COv3DLUT cube, positive, curve, identity, shaped, six;
  Fill(cube, 2, true, [](size_t i) { return Vec4{i / 8.0f, i / 4.0f - 0.5f, 1 - i / 16.0f, 1}; });
  // The mesh holds no negatives: green as red.
  Fill(positive, 2, true, [](size_t i) { return Vec4{i / 8.0f, i / 8.0f, 1 - i / 16.0f, 1}; });
  // A 1-D table with a domain (the image's bytes are pinned by the blob test of the readers).
  Fill(curve, 2, false, [](size_t i) { return Vec4{float(i), 0.5f, 2.0f * float(i), 1}; });
  curve.SetDomain({-1, 0, 0, 0}, {1, 2, 0.5f, 1});
  Fill(identity, 5, true, [](size_t i) {
    return Vec4{i % 5 / 4.0f, i / 5 % 5 / 4.0f, i / 25 / 4.0f, 1};
  });
  ASSERT_TRUE(
      Parse(shaped, MeshText("3DMESH\nMesh 2 10\n0 100 300 600 1000\n", 5, NodeCodesOf(5, 1024))));
  // Six points: no header, 10-bit codes by default; 12 bits is allowed, its top code names it.
  // The shaper line holds 10-bit input codes whatever the output depth.
  Fill(six, 6, true, [](size_t i) { return Vec4{float(i % 6) / 5, 0, 0.5f, 1}; });
  const auto mesh = ELUTFileFormat::Mesh;
  const struct {
    const COv3DLUT& lut;
    ELUTFileFormat format;
    uint32_t meshBits;
    std::string text;
    bool whole = true;  // else the text's start
    const char* title = "";
  } cases[] = {
      {cube, ELUTFileFormat::Cube, 0,
       "TITLE \"Warm look\"\nLUT_3D_SIZE 2\n0 -0.5 1\n0.125 -0.25 0.9375\n0.25 0 0.875\n"
       "0.375 0.25 0.8125\n0.5 0.5 0.75\n0.625 0.75 0.6875\n0.75 1 0.625\n0.875 1.25 0.5625\n",
       true, "Warm look"},
      {cube, ELUTFileFormat::Truelight, 0,
       "# Truelight Cube v2.1\n# iDims 3\n# oDims 3\n# width 2 2 2\n# Cube\n0 -0.5 1\n"
       "0.125 -0.25 0.9375\n0.25 0 0.875\n0.375 0.25 0.8125\n0.5 0.5 0.75\n"
       "0.625 0.75 0.6875\n0.75 1 0.625\n0.875 1.25 0.5625\n# end\n"},
      // Codes round(v x 255), blue fastest: entries 0 4 2 6 1 5 3 7.
      {positive, mesh, 8,
       "3DMESH\nMesh 0 8\n0 0 255\n128 128 191\n64 64 223\n191 191 159\n32 32 239\n"
       "159 159 175\n96 96 207\n223 223 143\n"},
      {curve, ELUTFileFormat::Cube, 0,
       "DOMAIN_MIN -1 0 0\nDOMAIN_MAX 1 2 0.5\nLUT_1D_SIZE 2\n0 0.5 0\n1 0.5 2\n"},
      {identity, mesh, 0, "3DMESH\nMesh 2 12\n0 256 512 767 1023\n0 0 0\n0 0 1024\n", false},
      {shaped, mesh, 0, "3DMESH\nMesh 2 12\n0 100 300 600 1000\n", false},
      {six, mesh, 0, "0 205 409 614 818 1023\n0 0 512\n", false},
      {six, mesh, 12, "0 205 409 614 818 1023\n0 0 2048\n", false},
  };
  for (const auto& c : cases) {
    const std::string out =
        Write(c.lut, c.format, {.title = c.title, .meshOutputBits = c.meshBits});
    EXPECT_EQ(c.whole ? out : out.substr(0, c.text.size()), c.text);
  }
  // Formats by name or extension.
  const std::pair<const char*, std::optional<ELUTFileFormat>> names[] = {
      {".CUBE", ELUTFileFormat::Cube},
      {"3dl", mesh},
      {".cub", ELUTFileFormat::Truelight},
      {"otx3", ELUTFileFormat::Otx3},
      {".cubes", std::nullopt},
      {"", std::nullopt}};
  for (const auto& [name, format] : names)
    EXPECT_EQ(Tincta::LUTFormatNamed(name), format) << name;
}

TEST(LUTWriters, TablesAFormatCannotHoldAreRefusedWithTheReason) {
  // Shapers, domains and 1-D tables are refused in the round trip below.
  COv3DLUT curve, cube, negative, dim, empty;
  Fill(curve, 5000, false, [](size_t i) { return Vec4{float(i) / 4999, 0, 0, 1}; });
  Fill(cube, 3, true, [](size_t) { return Vec4{0.5f, 0.5f, 0.5f, 1}; });
  Fill(negative, 3, true, [](size_t i) { return Vec4{i == 13 ? -0.01f : 0.5f, 0.5f, 0.5f, 1}; });
  // No header and values up to 0.4: the top 16-bit code, 26214, reads as 15 bits.
  Fill(dim, 6, true, [](size_t i) { return Vec4{float(i % 6) / 12.5f, 0, 0, 1}; });
  const struct {
    const COv3DLUT& lut;
    ELUTFileFormat format;
    uint32_t meshBits;
    const char* reason;
    const char* title = "";
  } cases[] = {
      {curve, ELUTFileFormat::Truelight, 0, "2 to 4096 entries, and this 1-D table has 5000"},
      {negative, ELUTFileFormat::Mesh, 0, "entry (1, 1, 1) holds -0.01"},
      {cube, ELUTFileFormat::Cube, 0, "a quote or a line break", "say \"hi\""},
      {cube, ELUTFileFormat::Mesh, 40, "1 to 32 bits"},
      {dim, ELUTFileFormat::Mesh, 16, "read back as 32768 levels rather than 65536"},
      {empty, ELUTFileFormat::Cube, 0, "the LUT is empty"},
  };
  for (const auto& c : cases) {
    const std::string why =
        Refusal(c.lut, c.format, {.title = c.title, .meshOutputBits = c.meshBits});
    EXPECT_NE(why.find(c.reason), std::string::npos) << c.reason << ": " << why;
  }
}

constexpr uint32_t kGrid = 5;         // 2^2 + 1: every 3-D format, the mesh with its header
constexpr uint32_t k1DEntries = 256;  // above the widening of short 1-D tables

void Square(double r, double g, double b, double out[3]) {
  out[0] = r * r;
  out[1] = 0.5 * g + 0.25;
  out[2] = 1 - b;
}
// One source per kind of table a writer meets (plain 3-D, a domain, 1-D, a shaper, a mesh's shaper
// line), with the written formats that refuse it and a piece of their reason. Which reader made
// the table does not matter to the writers.
std::string TruelightShaped() {
  std::vector<Rgb> shaper;
  for (int i = 0; i < 9; ++i) {
    const float x = float(i) / 8;
    shaper.push_back({x * x, std::sqrt(x), x});
  }
  return TruelightText(8, shaper, NodeColours(8));
}
using EF = ELUTFileFormat;
const double kMin[3] = {-0.25, 0, 0}, kMax[3] = {1.5, 1, 2};
const struct {
  const char* name;
  std::string text;
  std::map<ELUTFileFormat, std::string> refused;
} kSources[] = {
    {"cube 3-D", CubeText3D(kGrid, Square, "Look"), {}},
    {"cube 3-D with domain",
     CubeText3D(kGrid, Square, "", kMin, kMax),
     {{EF::Mesh, "domain 0..1 only"}, {EF::Truelight, "domain 0..1 only"}}},
    {"cube 1-D", CubeText1D(k1DEntries, Square), {{EF::Mesh, "only 3-D tables"}}},
    {"Truelight with shaper",
     TruelightShaped(),
     {{EF::Cube, "input shaper"}, {EF::Mesh, "input shaper"}, {EF::Otx3, "input shaper"}}},
    {"mesh with shaper line",
     MeshText("3DMESH\nMesh 2 10\n0 100 300 600 1000\n", kGrid, NodeCodesOf(kGrid, 1024)),
     {{EF::Cube, "input shaper"}, {EF::Otx3, "input shaper"}}},
};

// Same size, kind and domain, and entries within `tolerance`.
void ExpectSameTable(const COv3DLUT& back, const COv3DLUT& source, double tolerance,
                     const std::string& where) {
  ASSERT_EQ(back.Is3D(), source.Is3D()) << where;
  ASSERT_EQ(back.Size(), source.Size()) << where;
  for (int c = 0; c < 3; ++c)
    EXPECT_TRUE(back.DomainMin()[c] == source.DomainMin()[c] &&
                back.DomainMax()[c] == source.DomainMax()[c])
        << where;
  for (size_t e = 0; e < source.EntryCount(); ++e)
    for (int c = 0; c < 3; ++c)
      ASSERT_NEAR(back.Table()[4 * e + c], source.Table()[4 * e + c], tolerance) << where << e;
}

TEST(LUTWriters, EveryWrittenFormatReadsBackAsTheTableOfEverySource) {
  for (const auto& source : kSources) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, source.text)) << source.name;
    for (const Tincta::SLUTFileFormat& format : Tincta::WrittenLUTFormats()) {
      const std::string where = std::string(source.name) + " as " + std::string(format.name);
      std::string out, why;
      const bool ok = Tincta::bWriteLUTFile(lut, format.format, {}, out, why);
      if (const auto refusal = source.refused.find(format.format);
          refusal != source.refused.end()) {
        EXPECT_FALSE(ok) << where;
        EXPECT_NE(why.find(refusal->second), std::string::npos) << where << ": " << why;
        continue;
      }
      ASSERT_TRUE(ok) << where << ": " << why;
      COv3DLUT back;
      ASSERT_TRUE(Parse(back, out)) << where;
      // Half a code of the mesh's default 12 bits, plus float rounding; the text formats write
      // every float exactly and the image stores it.
      ExpectSameTable(back, lut, format.format == EF::Mesh ? 0.5 / 4095 + 1e-7 : 0.0, where);
      ASSERT_EQ(back.InputShaper() != nullptr, lut.InputShaper() != nullptr) << where;
      // The shaper goes through the Truelight reader's rescaling and back: a float's rounding.
      if (lut.InputShaper()) ExpectSameTable(*back.InputShaper(), *lut.InputShaper(), 2e-7, where);
    }
  }
}

}  // namespace
}  // namespace crandle_test
