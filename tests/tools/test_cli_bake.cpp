// crandle convert and eval --exact: bakes against the LUTs' formulas, composition in order, the
// output format chosen by extension or --format, and refusals that leave no file behind. The bytes
// of each written format are the writers' own tests.
#include <gtest/gtest.h>

#include <array>
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

namespace crandle_test {
namespace {

using Colour = std::array<double, 3>;

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

std::shared_ptr<void> Parsed(const std::string& path) {
  std::shared_ptr<void> handle;
  EXPECT_EQ(CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(path), handle), CRANDLE::kResultOK) << path;
  return handle;
}

// Every input the cases use: a 17-point identity, a curve of x^2, a 3-point grade, the grade over
// a wide domain, and the grade behind a Truelight shaper of x^2 (so that the LUT is f(x^2)).
class ToolBake : public testing::Test {
 protected:
  TempDir dir;
  std::string identity = dir.Write("identity.cube", CubeText3D(17));
  std::string curve = dir.Write("square.cube", CubeText1D(4096, Square));
  std::string grade = dir.Write("grade.cube", CubeText3D(3, Multilinear));
  std::string titled = dir.Write("titled.cube", CubeText3D(5, Multilinear, "Day for night"));
  std::string wide = dir.Write("wide.cube", CubeText3D(2, Multilinear, "", kMin, kMax));
  std::string shaped = dir.Write("shaped.cub", ShapedText());
  std::string Out(const std::string& name) const { return (dir.Path() / name).string(); }

  static constexpr double kMin[3] = {-1, 0, 0.5}, kMax[3] = {3, 2, 1};
  static std::string ShapedText() {
    std::vector<crandle_test::Rgb> shaper = IdentityRamp(1025);
    for (auto& rgb : shaper)
      for (float& v : rgb)
        v *= v;
    return TruelightText(2, shaper, [](uint32_t r, uint32_t g, uint32_t b) {
      double out[3];
      Multilinear(r, g, b, out);
      return crandle_test::Rgb{float(out[0]), float(out[1]), float(out[2])};
    });
  }
};

using Formula = void (*)(double, double, double, double[3]);

TEST_F(ToolBake, BakesComposeTheLUTsInOrderOverTheFirstOnesDomain) {
  // What each bake holds at a node: the formulas in order at the node's coordinate in the first
  // LUT's unit cube.
  const struct {
    std::vector<std::string> luts;
    uint32_t size;
    std::vector<Formula> formulas;
    double tolerance;
  } cases[] = {
      {{identity}, 2, {}, 1e-6},
      {{identity}, 33, {}, 1e-6},
      {{identity}, 64, {}, 1e-6},
      {{curve, grade}, 9, {Square, Multilinear}, 1e-6},
      {{grade, curve}, 9, {Multilinear, Square}, 1e-6},
      {{grade, curve, curve}, 9, {Multilinear, Square, Square}, 1e-6},
      {{wide}, 5, {Multilinear}, 1e-6},
      // Six printed decimals in the source file and the shaper's interpolation of x^2.
      {{shaped}, 9, {Square, Multilinear}, 3e-6},
  };
  for (const auto& c : cases) {
    std::string arguments = "convert --size " + std::to_string(c.size);
    for (const std::string& lut : c.luts)
      arguments += ' ' + Quote(lut);
    const std::string out = Out("baked.otx3");
    const auto run = RunTool(arguments + " " + Quote(out));
    ASSERT_EQ(run.status, 0) << arguments << ": " << run.err;
    const auto handle = Parsed(out);
    const Tincta::COv3DLUT* baked = handle ? CRANDLE::detail::LUTOf(handle) : nullptr;
    ASSERT_TRUE(baked && baked->Is3D() && !baked->InputShaper()) << arguments;
    ASSERT_EQ(baked->Size(), c.size) << arguments;
    const bool wide = c.luts.front() == this->wide;
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(baked->DomainMin()[k], float(wide ? kMin[k] : 0)) << arguments;
      EXPECT_EQ(baked->DomainMax()[k], float(wide ? kMax[k] : 1)) << arguments;
    }
    const double last = c.size - 1;
    for (uint32_t i = 0; i < c.size * c.size * c.size; ++i) {  // red fastest
      Colour expected = {i % c.size / last, i / c.size % c.size / last, i / c.size / c.size / last};
      for (const Formula f : c.formulas)
        f(expected[0], expected[1], expected[2], expected.data());
      const float* got = baked->Table() + 4 * size_t(i);
      for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(got[k], expected[k], c.tolerance) << arguments << " node " << i;
    }
  }
}

TEST_F(ToolBake, EvalExactShowsWhatTheLUTHoldsRatherThanWhatTheModuleApplies) {
  const std::string probes = "1 1 1\n0.3 0.6 0.9\n";
  const auto applied = RunTool("eval " + Quote(identity), probes);
  const auto exact = RunTool("eval --exact " + Quote(identity), probes);
  ASSERT_EQ(applied.status, 0) << applied.err;
  ASSERT_EQ(exact.status, 0) << exact.err;
  // The CPU sampler stops 1% of a cell (1/1600) short of white; the tables themselves reach it.
  EXPECT_EQ(applied.out.rfind("0.999375 0.999375 0.999375\n", 0), 0u) << applied.out;
  EXPECT_EQ(exact.out, "1.000000 1.000000 1.000000\n0.300000 0.600000 0.900000\n");
  EXPECT_NE(RunTool("eval --exact --device cpu " + Quote(identity), probes).status, 0);
}

TEST_F(ToolBake, TheExtensionOrFormatChoosesAndTheTitleIsKept) {
  const struct {
    std::string arguments;
    std::string output;
    std::string starts;
  } cases[] = {
      {Quote(titled), "t.cube", "TITLE \"Day for night\"\nLUT_3D_SIZE 5\n"},
      {Quote(grade), "grade.cube", "LUT_3D_SIZE 3\n"},  // a title that is the name is no title
      {Quote(titled), "t.3dl", "3DMESH\nMesh 2 12\n"},
      {"--bits 16 " + Quote(titled), "t16.3dl", "3DMESH\nMesh 2 16\n"},
      {Quote(titled), "t.cub", "# Truelight Cube v2.1\n"},
      {Quote(titled), "T.OTX3", "OTX3"},
      {"--format cub " + Quote(titled), "t.txt", "# Truelight Cube v2.1\n"},
      {"--format 3dl " + Quote(titled), "t2.cube", "3DMESH\n"},
  };
  for (const auto& c : cases) {
    const auto run = RunTool("convert " + c.arguments + " " + Quote(Out(c.output)));
    ASSERT_EQ(run.status, 0) << c.arguments << ": " << run.err;
    const std::string text = ReadFileBytes(Out(c.output));
    EXPECT_EQ(text.rfind(c.starts, 0), 0u) << c.output << ": " << text.substr(0, 60);
  }
}

TEST_F(ToolBake, RefusalsSayWhyAndLeaveNoFileBehind) {
  const std::string negative =
      dir.Write("neg.cube", CubeText3D(3, [](double r, double g, double b, double out[3]) {
                  out[0] = r - 0.5, out[1] = g, out[2] = b;
                }));
  const std::string wideCurve = dir.Write(
      "wide1d.cube", "DOMAIN_MIN -1 -1 -1\nDOMAIN_MAX 1 1 1\nLUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
  const auto before = FileNames(dir.Path());
  const struct {
    std::string arguments;
    std::string output;
    int status;
    std::string message;
    bool hint;  // whether a bake is suggested
  } cases[] = {
      {Quote(grade) + " " + Quote(grade), "two.cube", 2, "needs --size N", false},
      {Quote(grade), "x.lut", 2, "unknown output type '.lut'", false},
      {"--format png " + Quote(grade), "x.cube", 2, "unknown format 'png'", false},
      {"--bits 10 " + Quote(grade), "x.cube", 2, "--bits applies to .3dl meshes only", false},
      {Quote(curve), "r.3dl", 1, "only 3-D tables", true},
      {Quote(shaped), "s.3dl", 1, "input shaper", true},
      {Quote(Out("none.cube")), "n.cube", 1, "none.cube: 0xa00f0001: no such file", false},
      {Quote(wideCurve), "wc.3dl", 1, "only 3-D tables", false},  // no bake gives a mesh -1..1
      {Quote(negative), "n.3dl", 1, "entry (0, 0, 0) holds -0.5", false},
      {Quote(grade), "missing/x.cube", 1, "cannot write", false},
      {"--size 300 " + Quote(grade), "big.cube", 2, "--size", false},
  };
  for (const auto& c : cases) {
    const auto run = RunTool("convert " + c.arguments + " " + Quote(Out(c.output)));
    EXPECT_TRUE(Ended(run, c.status, c.message)) << c.arguments;
    EXPECT_EQ(run.err.find("give --size N to bake it") != npos, c.hint) << run.err;
  }
  EXPECT_EQ(FileNames(dir.Path()), before);
}

}  // namespace
}  // namespace crandle_test
