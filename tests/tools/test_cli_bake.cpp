// crandle convert and eval --exact on files the tests make: bakes against values worked out from
// the LUTs' formulas, composition in order, the output format chosen by extension or --format,
// refusals with their reasons and exit codes, and the title kept.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "api/lut_handle.h"
#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "lut/lut3d.h"
#include "support/cli_runner.h"
#include "support/format_samples.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::RunTool;
using crandle_test::TempDir;
using Rgb = std::array<double, 3>;

std::string Quote(const std::string& path) {
  return "'" + path + "'";
}

// A multilinear function, which a cube of any size reproduces exactly under trilinear
// interpolation, and a 1-D curve that linear interpolation of 4096 entries follows within 4e-8.
void Multilinear(double r, double g, double b, double out[3]) {
  out[0] = 0.1 + 0.6 * r + 0.2 * g * b;
  out[1] = 0.9 * g - 0.3 * r * g + 0.1;
  out[2] = 0.5 * b + 0.25 * r + 0.2;
}
void Square(double r, double g, double b, double out[3]) {
  out[0] = r * r;
  out[1] = g * g;
  out[2] = b * b;
}

// The baked table as the library reads it back.
struct SBaked {
  std::shared_ptr<void> handle;
  const Tincta::COv3DLUT* lut = nullptr;
  Rgb At(uint32_t r, uint32_t g, uint32_t b) const {
    const uint32_t n = lut->Size();
    const float* e = lut->Table() + 4 * (r + size_t(n) * g + size_t(n) * n * b);
    return {e[0], e[1], e[2]};
  }
};
SBaked ReadBack(const std::string& path) {
  SBaked baked;
  EXPECT_EQ(CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(path), baked.handle), CRANDLE::kResultOK) << path;
  if (baked.handle) baked.lut = CRANDLE::detail::LUTOf(baked.handle);
  return baked;
}

class ToolBake : public testing::Test {
 protected:
  TempDir dir;
  std::string Out(const std::string& name) const { return (dir.Path() / name).string(); }
};

TEST_F(ToolBake, AnIdentityBakedToAnySizeIsTheIdentity) {
  const std::string identity = dir.Write("identity.cube", crandle_test::CubeText3D(17));
  for (const uint32_t size : {2u, 5u, 17u, 32u, 33u, 64u}) {
    const std::string out = Out("id" + std::to_string(size) + ".cube");
    const auto run = RunTool("convert --size " + std::to_string(size) + " " + Quote(identity) +
                             " " + Quote(out));
    ASSERT_EQ(run.status, 0) << run.err;
    const SBaked baked = ReadBack(out);
    ASSERT_TRUE(baked.lut && baked.lut->Is3D() && baked.lut->Size() == size) << size;
    double worst = 0;
    for (uint32_t b = 0; b < size; ++b)
      for (uint32_t g = 0; g < size; ++g)
        for (uint32_t r = 0; r < size; ++r) {
          const Rgb got = baked.At(r, g, b);
          const Rgb node{double(r) / (size - 1), double(g) / (size - 1), double(b) / (size - 1)};
          for (int c = 0; c < 3; ++c)
            worst = std::max(worst, std::fabs(got[c] - node[c]));
        }
    EXPECT_LE(worst, 1e-6) << size;
    EXPECT_EQ(baked.At(size - 1, size - 1, size - 1), (Rgb{1, 1, 1})) << size;
  }
}

TEST_F(ToolBake, SeveralLUTsAreComposedInTheOrderGiven) {
  const std::string curve = dir.Write("square.cube", crandle_test::CubeText1D(4096, Square));
  const std::string cube = dir.Write("grade.cube", crandle_test::CubeText3D(3, Multilinear));
  struct Case {
    std::vector<std::string> luts;
    std::function<Rgb(const Rgb&)> expected;
  } cases[] = {
      {{curve, cube},
       [](const Rgb& x) {
         double squared[3], out[3];
         Square(x[0], x[1], x[2], squared);
         Multilinear(squared[0], squared[1], squared[2], out);
         return Rgb{out[0], out[1], out[2]};
       }},
      {{cube, curve},
       [](const Rgb& x) {
         double graded[3], out[3];
         Multilinear(x[0], x[1], x[2], graded);
         Square(graded[0], graded[1], graded[2], out);
         return Rgb{out[0], out[1], out[2]};
       }},
      {{cube, curve, curve},
       [](const Rgb& x) {
         double graded[3];
         Multilinear(x[0], x[1], x[2], graded);
         return Rgb{std::pow(graded[0], 4), std::pow(graded[1], 4), std::pow(graded[2], 4)};
       }},
  };
  for (const Case& c : cases) {
    std::string arguments = "convert --size 9";
    for (const std::string& lut : c.luts) {
      arguments += ' ';
      arguments += Quote(lut);
    }
    const std::string out = Out("composed.otx3");
    const auto run = RunTool(arguments + " " + Quote(out));
    ASSERT_EQ(run.status, 0) << run.err;
    const SBaked baked = ReadBack(out);
    ASSERT_TRUE(baked.lut && baked.lut->Size() == 9);
    for (uint32_t i = 0; i < 729; i += 7) {
      const uint32_t r = i % 9, g = i / 9 % 9, b = i / 81;
      const Rgb expected = c.expected({r / 8.0, g / 8.0, b / 8.0});
      const Rgb got = baked.At(r, g, b);
      for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(got[k], expected[k], 1e-6) << arguments << " node " << i;
    }
  }
}

TEST_F(ToolBake, ABakeCoversTheFirstLUTsDomainAndKeepsIt) {
  const double min[3] = {-1, 0, 0.5}, max[3] = {3, 2, 1};
  const std::string wide =
      dir.Write("wide.cube", crandle_test::CubeText3D(2, Multilinear, "", min, max));
  const std::string out = Out("wide5.cube");
  const auto run = RunTool("convert --size 5 " + Quote(wide) + " " + Quote(out));
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string text = crandle_test::ReadFileBytes(out);
  EXPECT_EQ(text.rfind("DOMAIN_MIN -1 0 0.5\nDOMAIN_MAX 3 2 1\nLUT_3D_SIZE 5\n", 0), 0u)
      << text.substr(0, 80);
  // Node i of 5 sits a quarter of the way further through the domain: the cube's unit coordinate.
  const SBaked baked = ReadBack(out);
  ASSERT_TRUE(baked.lut);
  for (uint32_t i = 0; i < 125; ++i) {
    double expected[3];
    Multilinear((i % 5) / 4.0, (i / 5 % 5) / 4.0, (i / 25) / 4.0, expected);
    const Rgb got = baked.At(i % 5, i / 5 % 5, i / 25);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[c], expected[c], 1e-6) << i;
  }
  // A mesh covers 0..1 only: refused, and no bake can change that.
  const auto mesh = RunTool("convert --size 5 " + Quote(wide) + " " + Quote(Out("wide.3dl")));
  EXPECT_EQ(mesh.status, 1);
  EXPECT_NE(mesh.err.find("domain 0..1 only"), std::string::npos) << mesh.err;
  EXPECT_EQ(mesh.err.find("--size"), std::string::npos) << mesh.err;
}

TEST_F(ToolBake, AShaperAndItsCubeBakeIntoOnePlainCube) {
  // A 2-point Truelight cube behind an InputLUT of x^2 (1025 entries): the reader turns the
  // shaper's outputs into the cube's texture coordinates, so the LUT is f(x^2) per axis.
  std::vector<crandle_test::Rgb> shaper;
  for (int i = 0; i < 1025; ++i) {
    const float x = float(i) / 1024;
    shaper.push_back({x * x, x * x, x * x});
  }
  const std::string shaped = dir.Write(
      "shaped.cub", crandle_test::TruelightText(2, shaper, [](uint32_t r, uint32_t g, uint32_t b) {
        double out[3];
        Multilinear(r, g, b, out);
        return crandle_test::Rgb{float(out[0]), float(out[1]), float(out[2])};
      }));
  const auto plain = RunTool("convert " + Quote(shaped) + " " + Quote(Out("shaped.3dl")));
  EXPECT_EQ(plain.status, 1);
  EXPECT_NE(plain.err.find("give --size N to bake it"), std::string::npos) << plain.err;

  const std::string out = Out("shaped9.cube");
  const auto run = RunTool("convert --size 9 " + Quote(shaped) + " " + Quote(out));
  ASSERT_EQ(run.status, 0) << run.err;
  const SBaked baked = ReadBack(out);
  ASSERT_TRUE(baked.lut && !baked.lut->InputShaper() && baked.lut->Size() == 9);
  for (uint32_t i = 0; i < 729; i += 5) {
    const uint32_t r = i % 9, g = i / 9 % 9, b = i / 81;
    double expected[3];
    Multilinear(std::pow(r / 8.0, 2), std::pow(g / 8.0, 2), std::pow(b / 8.0, 2), expected);
    const Rgb got = baked.At(r, g, b);
    // Six printed decimals in the source file and the shaper's interpolation of x^2.
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[c], expected[c], 3e-6) << i;
  }
}

TEST_F(ToolBake, EvalShowsWhatTheModuleAppliesAndExactlyWhatTheLUTHolds) {
  const std::string identity = dir.Write("identity.cube", crandle_test::CubeText3D(17));
  const std::string probes = "1 1 1\n0.3 0.6 0.9\n";
  const auto applied = RunTool("eval " + Quote(identity), probes);
  const auto exact = RunTool("eval --exact " + Quote(identity), probes);
  ASSERT_EQ(applied.status, 0) << applied.err;
  ASSERT_EQ(exact.status, 0) << exact.err;
  // The CPU sampler stops 1% of a cell (1/1600) short of white; the tables themselves reach it.
  EXPECT_EQ(applied.out.rfind("0.999375 0.999375 0.999375\n", 0), 0u) << applied.out;
  EXPECT_EQ(exact.out, "1.000000 1.000000 1.000000\n0.300000 0.600000 0.900000\n");
  const auto help = RunTool("eval --help");
  EXPECT_NE(help.out.find("what the module's apply makes"), std::string::npos) << help.out;
  EXPECT_NE(RunTool("eval --exact --device cpu " + Quote(identity), probes).status, 0);
}

TEST_F(ToolBake, TheExtensionOrFormatChoosesAndTheTitleIsKept) {
  const std::string titled =
      dir.Write("titled.cube", crandle_test::CubeText3D(5, Multilinear, "Day for night"));
  const std::string plain = dir.Write("plain.cube", crandle_test::CubeText3D(5, Multilinear));
  struct Case {
    std::string arguments;
    std::string output;
    std::string starts;
  } cases[] = {
      {Quote(titled), "t.cube", "TITLE \"Day for night\"\nLUT_3D_SIZE 5\n"},
      {Quote(plain), "p.cube", "LUT_3D_SIZE 5\n"},
      {Quote(plain), "p.3dl", "3DMESH\nMesh 2 12\n0 256 512 767 1023\n"},
      {"--bits 16 " + Quote(plain), "p16.3dl", "3DMESH\nMesh 2 16\n"},
      {"--size 6 " + Quote(plain), "p6.3dl", "0 205 409 614 818 1023\n"},
      {Quote(plain), "p.cub", "# Truelight Cube v2.1\n# iDims 3\n# oDims 3\n# width 5 5 5\n"},
      {Quote(plain), "P.OTX3", "OTX3"},
      {"--format cub " + Quote(plain), "p.txt", "# Truelight Cube v2.1\n"},
      {"--format 3dl " + Quote(plain), "p.cube", "3DMESH\n"},
  };
  for (const Case& c : cases) {
    const auto run = RunTool("convert " + c.arguments + " " + Quote(Out(c.output)));
    ASSERT_EQ(run.status, 0) << c.arguments << ": " << run.err;
    const std::string text = crandle_test::ReadFileBytes(Out(c.output));
    EXPECT_EQ(text.rfind(c.starts, 0), 0u)
        << c.arguments << " " << c.output << ": " << text.substr(0, 60);
    EXPECT_TRUE(ReadBack(Out(c.output)).lut) << c.output;
  }
}

TEST_F(ToolBake, RefusalsSayWhyAndWriteNothing) {
  // Option checks are the command-line parser's, whose exit codes are not this command's.
  constexpr int kAnyFailure = -1;
  const std::string cube = dir.Write("c.cube", crandle_test::CubeText3D(3));
  const std::string ramp = dir.Write("ramp.cube", crandle_test::CubeText1D(256, Square));
  const std::string negative = dir.Write(
      "neg.cube", crandle_test::CubeText3D(3, [](double r, double g, double b, double out[3]) {
        out[0] = r - 0.5;
        out[1] = g;
        out[2] = b;
      }));
  struct Case {
    std::string arguments;
    std::string output;
    int status;
    std::string message;
  } cases[] = {
      {Quote(cube) + " " + Quote(cube), "two.cube", 2, "needs --size N"},
      {Quote(cube), "x.lut", 2, "unknown output type '.lut'"},
      {"--format png " + Quote(cube), "x.cube", 2, "unknown format 'png'"},
      {"--bits 10 " + Quote(cube), "x.cube", 2, "--bits applies to .3dl meshes only"},
      {Quote(ramp), "r.3dl", 1, "give --size N to bake it"},
      {Quote(negative), "n.3dl", 1, "entry (0, 0, 0) holds -0.5"},
      {"--size 300 " + Quote(cube), "big.cube", kAnyFailure, "--size"},
  };
  for (const Case& c : cases) {
    const auto run = RunTool("convert " + c.arguments + " " + Quote(Out(c.output)));
    if (c.status != kAnyFailure) {
      EXPECT_EQ(run.status, c.status) << c.arguments << ": " << run.err;
    }
    EXPECT_NE(run.status, 0) << c.arguments;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << c.arguments << ": " << run.err;
    EXPECT_FALSE(std::filesystem::exists(Out(c.output))) << c.output;
  }
}

}  // namespace
