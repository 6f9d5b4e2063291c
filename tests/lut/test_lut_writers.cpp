// The exact evaluator against values worked out by hand, and every writer against exact bytes, its
// refusals, and the round trip of each kind of table through each written format and the readers.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "lut/lut_evaluate.h"
#include "lut/lut_writers.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using Tincta::Rgb64;

// A multilinear function of the unit cube's coordinates: what a 2-point cube holds at its corners
// is then reproduced everywhere inside.
Rgb64 Multilinear(const Rgb64& u) {
  const double r = u[0], g = u[1], b = u[2];
  return {0.1 + 0.5 * r + 0.2 * g * b, r * g * b - 0.25 * g, 1.0 - 0.3 * b + 0.4 * r * g};
}

void FillCube(COv3DLUT& lut, uint32_t n) {
  Fill(lut, n, true, [last = double(n - 1), n](size_t e) {
    const Rgb64 v = Multilinear({(e % n) / last, (e / n % n) / last, (e / n / n) / last});
    return Tincta::Vec4{float(v[0]), float(v[1]), float(v[2]), 1};
  });
}

void ExpectMultilinear(const COv3DLUT& lut, const Rgb64& in, const Rgb64& unit) {
  const Rgb64 expected = Multilinear(unit), got = Tincta::EvaluateLUT(lut, in);
  for (int c = 0; c < 3; ++c)
    EXPECT_NEAR(got[c], expected[c], 2e-7)
        << lut.Size() << ": " << in[0] << " " << in[1] << " " << in[2];
}

TEST(LUTEvaluate, CurvesInterpolateTheirEntriesAndHoldTheEndsOutsideTheDomain) {
  COv3DLUT lut;
  const Tincta::Vec4 entries[] = {{0, 1, 0.2f, 1}, {0.25f, 0.5f, 0.2f, 1}, {1, 0, 0.8f, 1}};
  Fill(lut, 3, false, [&entries](size_t i) { return entries[i]; });
  const std::pair<double, Rgb64> cases[] = {
      {0.0, {0, 1, 0.2f}},      {0.25, {0.125, 0.75, 0.2f}},
      {0.5, {0.25, 0.5, 0.2f}}, {0.75, {0.625, 0.25, 0.5}},
      {1.0, {1, 0, 0.8f}},      {-3.0, {0, 1, 0.2f}},
      {7.0, {1, 0, 0.8f}},      {0.999999, {1 - 0.75e-6 * 2, 1e-6, 0.8 - 0.6e-6 * 2}},
  };
  for (const auto& [in, out] : cases) {
    const Rgb64 got = Tincta::EvaluateLUT(lut, {in, in, in});
    for (int k = 0; k < 3; ++k)
      EXPECT_NEAR(got[k], out[k], 1e-7) << "input " << in << " channel " << k;
  }
  // NaN reaches only its own channel.
  const Rgb64 nan = Tincta::EvaluateLUT(lut, {NAN, 0.5, 0.5});
  EXPECT_TRUE(std::isnan(nan[0]));
  EXPECT_EQ(nan[1], 0.5);
}

TEST(LUTEvaluate, CubesOfEverySizeReproduceMultilinearFunctionsUpToTheLastEntry) {
  for (const uint32_t n : {2u, 3u, 5u, 17u, 32u, 33u, 65u}) {
    COv3DLUT lut;
    FillCube(lut, n);
    std::mt19937 random(n);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Rgb64> inputs = {{0, 0, 0}, {1, 1, 1}, {1, 0, 1}, {0.5, 0.25, 0.75}};
    for (int i = 0; i < 100; ++i)
      inputs.push_back({unit(random), unit(random), unit(random)});
    for (const Rgb64& in : inputs)
      ExpectMultilinear(lut, in, in);
    // NaN reaches every channel of a cube; white reads the last entry itself, not 1% of a cell
    // short of it.
    for (const double v : Tincta::EvaluateLUT(lut, {0.5, NAN, 0.5}))
      EXPECT_TRUE(std::isnan(v)) << n;
    const float* last = lut.Table() + 4 * (lut.EntryCount() - 1);
    EXPECT_EQ(Tincta::EvaluateLUT(lut, {1, 1, 1}), (Rgb64{last[0], last[1], last[2]})) << n;
  }
}

TEST(LUTEvaluate, DomainsAndShapersMapOntoTheEntriesAndClampOutside) {
  COv3DLUT lut;
  FillCube(lut, 2);
  const Rgb64 min{-0.5, 0, 1}, max{2, 4, 3};
  lut.SetDomain({-0.5f, 0, 1, 0}, {2, 4, 3, 1});
  for (const Rgb64& in : {Rgb64{-0.5, 0, 1}, {2, 4, 3}, {0, 1, 2}, {0.75, 3.5, 1.1}, {-9, 9, 0}}) {
    Rgb64 unit;
    for (int c = 0; c < 3; ++c)
      unit[c] = std::clamp((in[c] - min[c]) / (max[c] - min[c]), 0.0, 1.0);
    ExpectMultilinear(lut, in, unit);
  }
  Rgb64 domainMin, domainMax;
  Tincta::InputDomainOf(lut, domainMin, domainMax);
  EXPECT_TRUE(domainMin == min && domainMax == max);
  // Behind a 3-entry shaper whose middle entry sits a quarter of the way between the texel centres
  // 0.25 and 0.75: inputs up to 0.5 reach u = x / 2, the rest rise to 1.
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(3, false));
  for (int i = 0; i < 12; ++i)
    shaper->Table()[i] = i % 4 == 3 ? 1.0f : std::array{0.25f, 0.375f, 0.75f}[i / 4];
  shaper->SetDomain({0, 0, 0, 0}, {1, 1, 1, 1});
  lut.SetInputShaper(shaper);
  lut.SetDomain({0.25f, 0.25f, 0.25f, 0.25f}, {0.75f, 0.75f, 0.75f, 0.75f});
  auto u = [](double x) { return x <= 0.5 ? x / 2 : 0.25 + 1.5 * (x - 0.5); };
  for (const double x : {0.0, 0.2, 0.5, 0.6, 0.9, 1.0})
    ExpectMultilinear(lut, {x, 1 - x, x / 2}, {u(x), u(1 - x), u(x / 2)});
  Tincta::InputDomainOf(lut, domainMin, domainMax);
  EXPECT_EQ(domainMax, (Rgb64{1, 1, 1})) << "the shaper's domain is the one a colour meets";
}

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
  // Names and extensions that match are the tool's tests; a name that only begins alike is none.
  EXPECT_FALSE(Tincta::LUTFormatNamed(".cubes") || Tincta::LUTFormatNamed(""));
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
// line), with the written formats that refuse it and a piece of their reason.
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
