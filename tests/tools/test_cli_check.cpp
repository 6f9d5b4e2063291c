// crandle check, and the reasons info, eval and apply give for a LUT they cannot read; --cc-id.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/cli_runner.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::RunTool;
using crandle_test::TempDir;

const std::string kCube2 =
    "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

std::string Correction(const std::string& id, const std::string& slope,
                       const std::string& extra = "") {
  return "<ColorCorrection id=\"" + id + "\"><SOPNode><Slope>" + slope + " " + slope + " " + slope +
         "</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode>" + extra +
         "</ColorCorrection>\n";
}

std::string Collection() {
  return "<?xml version=\"1.0\"?>\n<ColorCorrectionCollection>\n" + Correction("warm", "0.8") +
         Correction("cool", "0.5") + "</ColorCorrectionCollection>\n";
}

struct SCheckCase {
  const char* file;
  std::string bytes;
  std::string arguments;
  int status;
  // What check prints for the file, after "PATH: ", line by line.
  std::vector<std::string> lines;
};

TEST(ToolCheck, SaysWhyEachBrokenFileFailsWithItsExitCode) {
  const std::vector<SCheckCase> cases = {
      {"clean.cube", kCube2, "", 0, {"cube (3-D, 2 points per axis)"}},
      {"letters.cube",
       Replaced(kCube2, "0 1 0", "1 x 1"),
       "",
       1,
       {"failed: cube: line 4: '1 x 1' is not three numbers"}},
      {"short.cube",
       Replaced(kCube2, "1 1 1\n", ""),
       "",
       1,
       {"failed: cube: found 7 entries, expected 8"}},
      {"huge.cube",
       "LUT_3D_SIZE 300\n0 0 0\n",
       "",
       1,
       {"failed: cube: line 1: LUT_3D_SIZE 300 is above 256"}},
      {"nan.cube",
       Replaced(kCube2, "1 1 1", "nan 1 1"),
       "",
       3,
       {"warning: 1 table entry holds NaN or infinite values (the first is entry 7)",
        "cube (3-D, 2 points per axis) with warnings"}},
      {"inverted.cube",
       "DOMAIN_MIN 1 0 0\nDOMAIN_MAX 0 1 1\n" + kCube2,
       "",
       3,
       {"warning: the domain is inverted: red minimum 1 is above its maximum 0",
        "cube (3-D, 2 points per axis) with warnings"}},
      {"surplus.cube",
       kCube2 + "0.5 0.5 0.5\n",
       "",
       3,
       {"warning: line 10: 1 line after the last of the 8 entries is not read",
        "cube (3-D, 2 points per axis) with warnings"}},
      {"notes.txt",
       "shopping list\n",
       "",
       1,
       {"failed: no reader recognises the text (it is no cube, Truelight, mesh or ASC CDL text)"}},
      {"saturated.cc",
       "<?xml version=\"1.0\"?>\n" +
           Correction("a", "1", "<SatNode><Saturation>1.2</Saturation></SatNode>"),
       "",
       1,
       {"failed: colour transformation: ASC CDL: saturation 1.2 cannot be held by a 1-D table"}},
      {"two.ccc",
       Collection(),
       "",
       1,
       {"failed: colour transformation: ASC CDL: 2 corrections (ids warm, cool) where a table "
        "holds one; name one by its id with --cc-id"}},
      {"picked.ccc",
       Collection(),
       "--cc-id cool",
       0,
       {"colour transformation (1-D, 1024 entries)"}},
      {"missing-id.ccc",
       Collection(),
       "--cc-id grey",
       1,
       {"failed: colour transformation: ASC CDL: no correction has the id 'grey' (ids warm, "
        "cool)"}},
      {"id-for-a-cube.cube",
       kCube2,
       "--cc-id cool",
       1,
       {"failed: cube: --cc-id picks a correction of an ASC CDL file, and this is read as cube"}},
  };
  TempDir dir;
  for (const SCheckCase& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = dir.Write(c.file, c.bytes);
    const auto run = RunTool("check " + c.arguments + " '" + path + "'");
    EXPECT_EQ(run.status, c.status) << run.out << run.err;
    std::string expected;
    for (const std::string& line : c.lines)
      expected += path + ": " + line + "\n";
    EXPECT_EQ(run.out, expected);
  }
  const auto missing = RunTool("check '" + (dir.Path() / "absent.cube").string() + "'");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.out.find("failed: no such file"), std::string::npos) << missing.out;
}

// A failure outweighs a warning, a warning a clean file, whatever their order.
TEST(ToolCheck, ExitCodeIsTheWorstOfAllFiles) {
  TempDir dir;
  const std::string clean = dir.Write("clean.cube", kCube2);
  const std::string warned = dir.Write("warned.cube", kCube2 + "0 0 0\n");
  const std::string failed = dir.Write("failed.cube", "LUT_3D_SIZE 2\n0 0 0\n");
  const struct {
    std::vector<std::string> files;
    int status;
  } cases[] = {
      {{clean, clean}, 0},          {{clean, warned}, 3},  {{warned, clean}, 3},
      {{failed, warned, clean}, 1}, {{warned, failed}, 1}, {{clean, failed, clean}, 1},
  };
  for (const auto& c : cases) {
    std::string arguments = "check";
    for (const std::string& file : c.files)
      arguments += " '" + file + "'";
    EXPECT_EQ(RunTool(arguments).status, c.status) << arguments;
  }
  const auto help = RunTool("check --help");
  EXPECT_NE(help.out.find("3 every file reads, some with warnings"), std::string::npos) << help.out;
}

TEST(ToolCheck, InfoEvalAndApplyKeepTheirLineAndAddTheReason) {
  TempDir dir;
  const std::string broken = dir.Write("broken.cube", Replaced(kCube2, "0 1 0", "1 x 1"));
  const std::string expected = broken +
                               ": 0xa00f0001: not a LUT in a format this tool reads, or a damaged "
                               "one: cube: line 4: '1 x 1' is not three numbers\n";
  const auto info = RunTool("info '" + broken + "'");
  EXPECT_EQ(info.status, 1);
  EXPECT_EQ(info.err, expected);
  const auto eval = RunTool("eval '" + broken + "'", "0.5 0.5 0.5\n");
  EXPECT_EQ(eval.status, 1);
  EXPECT_EQ(eval.err, "crandle eval: " + expected);
  const auto apply = RunTool("apply '" + broken + "' '" + (dir.Path() / "in.png").string() + "' '" +
                             (dir.Path() / "out.png").string() + "'");
  EXPECT_NE(apply.status, 0);
  EXPECT_NE(apply.err.find(expected), std::string::npos) << apply.err;
}

// The module reads a relative path from the LUT directory first; check reads the same file.
TEST(ToolCheck, RelativePathsResolveAgainstTheLUTDirectoryAsTheModuleDoes) {
  TempDir dir;
  dir.Write("graded.cube", Replaced(kCube2, "0 1 0", "1 x 1"));
  const std::string base = "--set ColorTransforms.LUTBaseDirectory='" + dir.Path().string() + "' ";
  const auto check = RunTool(base + "check graded.cube");
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "graded.cube: failed: cube: line 4: '1 x 1' is not three numbers\n");
  const auto info = RunTool(base + "info graded.cube");
  EXPECT_EQ(info.status, 1);
  EXPECT_NE(info.err.find("line 4: '1 x 1' is not three numbers"), std::string::npos) << info.err;
}

// slope 0.8 and 0.5 at input 0.5: 0.4 and 0.25 (a 1-D table of 1024 entries holds both
// within its linear interpolation, far below the tolerance).
TEST(ToolCheck, CorrectionIdPicksOneCorrectionForEvalAndInfo) {
  TempDir dir;
  const std::string collection = dir.Write("grades.ccc", Collection());
  const struct {
    const char* id;
    double expected;
  } cases[] = {{"warm", 0.4}, {"cool", 0.25}};
  for (const auto& c : cases) {
    const auto run =
        RunTool("eval --cc-id " + std::string(c.id) + " '" + collection + "'", "0.5 0.5 0.5\n");
    ASSERT_EQ(run.status, 0) << run.err;
    double r = 0, g = 0, b = 0;
    ASSERT_EQ(std::sscanf(run.out.c_str(), "%lf %lf %lf", &r, &g, &b), 3) << run.out;
    EXPECT_NEAR(r, c.expected, 1e-3);
    EXPECT_NEAR(b, c.expected, 1e-3);
  }
  const auto info = RunTool("info --cc-id cool '" + collection + "'");
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_NE(info.out.find("1024"), std::string::npos) << info.out;
  const auto refused = RunTool("info '" + collection + "'");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("2 corrections (ids warm, cool)"), std::string::npos) << refused.err;
}

}  // namespace
