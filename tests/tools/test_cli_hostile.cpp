// The tool on hostile inputs, one row per input: each ends with status 1 and a message that says
// why, within seconds, and leaves what was there before as it was. Small inputs are kept in
// tests/data/hostile/; the rest are made here.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include "support/cli_runner.h"
#include "support/format_samples.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::Quote;
using crandle_test::RunTool;
using crandle_test::TempDir;
namespace fs = std::filesystem;

std::string Hostile(const std::string& name) {
  return Quote((fs::path(CRANDLE_TEST_DATA_DIR) / "hostile" / name).string());
}

struct SToolRow {
  const char* name;
  // The arguments, given the scratch directory, a cube LUT in it and the output path.
  std::function<std::string(const TempDir&, const std::string& lut, const std::string& output)>
      arguments;
  const char* message;
};

// A Truelight cube with an input shaper that is not the identity.
std::string ShapedTruelight(const TempDir& dir) {
  std::vector<crandle_test::Rgb> shaper = crandle_test::IdentityRamp(16);
  for (auto& rgb : shaper)
    for (float& v : rgb)
      v = v * v;
  return dir.Write("shaped.cub",
                   crandle_test::TruelightText(2, shaper, [](uint32_t r, uint32_t g, uint32_t b) {
                     return crandle_test::Rgb{float(r), float(g), float(b)};
                   }));
}

const SToolRow kRows[] = {
    {"png_declaring_100000_by_100000_pixels",
     [](const TempDir&, const std::string& lut, const std::string& output) {
       return "apply " + Quote(lut) + " " + Hostile("png_declaring_100000_by_100000_pixels.png") +
              " " + Quote(output);
     },
     "more than this machine's memory"},
    {"tiff_strip_20_of_48_bytes",
     [](const TempDir&, const std::string& lut, const std::string& output) {
       return "apply " + Quote(lut) + " " + Hostile("tiff_strip_20_of_48_bytes.tif") + " " +
              Quote(output);
     },
     "cannot read"},
    {"preview_into_a_missing_folder",
     [](const TempDir& dir, const std::string& lut, const std::string& output) {
       const std::string image = dir.Write("in.ppm", "P6\n2 1\n255\n\x10\x20\x30\x40\x50\x60");
       return "apply --preview " + Quote((dir.Path() / "missing" / "p.png").string()) + " " +
              Quote(lut) + " " + Quote(image) + " " + Quote(output);
     },
     "cannot write the preview"},
    {"truelight_with_input_shaper_to_otx3",
     [](const TempDir& dir, const std::string&, const std::string& output) {
       return "convert " + Quote(ShapedTruelight(dir)) + " " + Quote(output + ".otx3");
     },
     "it has an input shaper"},
    {"from_bytes_of_a_directory",
     [](const TempDir& dir, const std::string&, const std::string&) {
       return "info --from-bytes " + Quote(dir.Path().string());
     },
     "not a regular file"},
    {"named_pipe_by_path",
     [](const TempDir& dir, const std::string&, const std::string&) {
       const std::string pipe = (dir.Path() / "pipe.cube").string();
       EXPECT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
       return "info " + Quote(pipe);
     },
     "not a regular file"},
    {"from_bytes_of_a_sparse_file_over_4_GiB",
     [](const TempDir& dir, const std::string&, const std::string&) {
       const std::string big = dir.Write("big.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
       fs::resize_file(big, (uint64_t(1) << 32) + 16);
       return "info --from-bytes " + Quote(big);
     },
     "larger than 4 GiB"},
};

void PrintTo(const SToolRow& row, std::ostream* out) {
  *out << row.name;
}

class ToolHostileInput : public testing::TestWithParam<SToolRow> {};

TEST_P(ToolHostileInput, FailsWithAReasonQuicklyAndLeavesTheOutput) {
  const SToolRow& row = GetParam();
  TempDir dir;
  const std::string lut = dir.Write("id.cube", crandle_test::CubeText3D(2));
  const std::string output = dir.Write("out.png", "what was there before");
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunTool(row.arguments(dir, lut, output));
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_NE(run.err.find(row.message), std::string::npos) << run.err;
  EXPECT_LT(seconds, 10.0);
  EXPECT_EQ(crandle_test::ReadFileBytes(output), "what was there before");
  for (const auto& entry : fs::directory_iterator(dir.Path()))
    EXPECT_EQ(entry.path().filename().string().find(".partial"), std::string::npos) << entry.path();
}

INSTANTIATE_TEST_SUITE_P(Rows, ToolHostileInput, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<SToolRow>& row) {
                           return std::string(row.param.name);
                         });

// Memory that runs out inside a command ends it with a message and status 1, not an abort: an
// image small enough for the machine is refused by an address-space limit set for the run.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(ToolOutOfMemory, EndsTheCommandWithAMessage) {
  TempDir dir;
  const std::string lut = dir.Write("id.cube", crandle_test::CubeText3D(2));
  const std::string err = (dir.Path() / "err").string();
  const std::string command = "ulimit -v 1000000; '" + std::string(CRANDLE_CLI_PATH) + "' apply " +
                              Quote(lut) + " " +
                              Hostile("png_declaring_20000_by_20000_pixels.png") + " " +
                              Quote((dir.Path() / "out.png").string()) + " 2>" + Quote(err);
  const int status = std::system(("/bin/sh -c " + Quote(command)).c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_NE(crandle_test::ReadFileBytes(err).find("not enough memory"), std::string::npos);
}
#endif

}  // namespace
