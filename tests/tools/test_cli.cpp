// The crandle tool end to end: what it prints, what it writes, and how it fails.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>
#include <memory>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::Quote;
using crandle_test::RunTool;
using crandle_test::TempDir;

void Square(double r, double g, double b, double out[3]) {
  out[0] = r * r;
  out[1] = g * g;
  out[2] = b * b;
}

TEST(ToolInfo, JsonLinesCarryExactlyTheDocumentedKeys) {
  TempDir dir;
  const double min[3] = {-0.5, 0, 0};
  const double max[3] = {1.5, 1, 2};
  const std::string cube =
      dir.Write("grade.cube", crandle_test::CubeText3D(5, Square, "Graded", min, max));
  const std::string ramp = dir.Write("ramp.cube", crandle_test::CubeText1D(256));
  const auto run = RunTool("info --json " + Quote(cube) + " " + Quote(ramp));
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<nlohmann::json> lines;
  size_t start = 0;
  for (size_t end; (end = run.out.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(nlohmann::json::parse(run.out.substr(start, end - start)));
  }
  ASSERT_EQ(lines.size(), 2u) << run.out;
  const std::vector<std::string> keys = {"path",       "kind",      "size",  "shaperSize",
                                         "domainMin",  "domainMax", "title", "displayName",
                                         "identifier", "blobBytes"};
  for (const auto& line : lines) {
    ASSERT_EQ(line.size(), keys.size()) << line.dump();
    for (const auto& key : keys)
      EXPECT_TRUE(line.contains(key)) << key;
  }
  EXPECT_EQ(lines[0]["path"], cube);
  EXPECT_EQ(lines[0]["kind"], "3D");
  EXPECT_EQ(lines[0]["size"], 5);
  EXPECT_EQ(lines[0]["shaperSize"], 0);
  EXPECT_EQ(lines[0]["domainMin"], (std::vector<double>{-0.5, 0, 0}));
  EXPECT_EQ(lines[0]["domainMax"], (std::vector<double>{1.5, 1, 2}));
  EXPECT_EQ(lines[0]["title"], "Graded");
  EXPECT_EQ(lines[0]["displayName"], "grade");
  EXPECT_EQ(lines[0]["blobBytes"], 40 + 12 * 125);
  EXPECT_EQ(lines[1]["kind"], "1D");
  EXPECT_EQ(lines[1]["size"], 256);
  EXPECT_EQ(lines[1]["blobBytes"], 40 + 12 * 256);

  std::shared_ptr<void> lut;
  ASSERT_EQ(CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(cube), lut), CRANDLE::kResultOK);
  EXPECT_EQ(lines[0]["identifier"], CRANDLE::GetLUTIdentifier(lut).ToString());
}

TEST(ToolInfo, FromBytesNamesByTitleOrAsEmbedded) {
  TempDir dir;
  const std::string titled =
      dir.Write("a.cube", crandle_test::CubeText3D(2, crandle_test::Identity, "Day"));
  const std::string plain = dir.Write("b.cube", crandle_test::CubeText3D(2));
  const auto run = RunTool("info --json --from-bytes " + Quote(titled) + " " + Quote(plain));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("\"displayName\":\"Day\""), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"displayName\":\"Embedded LUT\""), std::string::npos) << run.out;
}

TEST(ToolInfo, FailuresNameTheFileTheCodeAndTheReason) {
  TempDir dir;
  const std::string good = dir.Write("good.cube", crandle_test::CubeText3D(2));
  const std::string junk = dir.Write("junk.cube", "hello\n");
  const std::string missing = (dir.Path() / "missing.cube").string();
  const auto run = RunTool("info " + Quote(missing) + " " + Quote(good) + " " + Quote(junk));
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find(good), std::string::npos) << "good files are still described";
  EXPECT_NE(run.err.find(missing + ": 0xa00f0001: no such file"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(junk + ": 0xa00f0001: not a LUT"), std::string::npos) << run.err;
}

TEST(ToolConvert, WritesTheBlobAndCubeTextOrRefusesClearly) {
  TempDir dir;
  const std::string cube = dir.Write("in.cube", crandle_test::CubeText3D(3, Square));
  const std::string ramp = dir.Write("ramp.cube", crandle_test::CubeText1D(200, Square));
  const std::string blobPath = (dir.Path() / "out.otx3").string();
  ASSERT_EQ(RunTool("convert " + Quote(cube) + " " + Quote(blobPath)).status, 0);

  std::shared_ptr<void> lut;
  ASSERT_EQ(CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(cube), lut), CRANDLE::kResultOK);
  const host::BinaryData blob = CRANDLE::GetLUTBlob(lut);
  const std::string written = crandle_test::ReadFileBytes(blobPath);
  ASSERT_EQ(written.size(), blob.Size());
  EXPECT_EQ(std::memcmp(written.data(), blob.Data(), blob.Size()), 0);

  // Back to cube text: every float written so that it reads back as itself.
  const std::string cubePath = (dir.Path() / "again.cube").string();
  ASSERT_EQ(RunTool("convert " + Quote(blobPath) + " " + Quote(cubePath)).status, 0);
  const std::string text = crandle_test::ReadFileBytes(cubePath);
  EXPECT_EQ(text.rfind("LUT_3D_SIZE 3\n0 0 0\n0.25 0 0\n1 0 0\n0 0.25 0\n", 0), 0u)
      << text.substr(0, 80);

  struct Refusal {
    std::string arguments;
    int status;
    std::string message;
    std::string output;
  } refusals[] = {
      {"convert " + Quote(ramp) + " " + Quote((dir.Path() / "r.3dl").string()), 1,
       "only 3-D tables", (dir.Path() / "r.3dl").string()},
      {"convert " + Quote(cube) + " " + Quote((dir.Path() / "x.txt").string()), 2,
       "unknown output type", (dir.Path() / "x.txt").string()},
      {"convert " + Quote((dir.Path() / "none.cube").string()) + " " +
           Quote((dir.Path() / "n.cube").string()),
       1, "no such file", (dir.Path() / "n.cube").string()},
  };
  for (const auto& refusal : refusals) {
    const auto run = RunTool(refusal.arguments);
    EXPECT_EQ(run.status, refusal.status) << refusal.arguments;
    EXPECT_NE(run.err.find(refusal.message), std::string::npos) << run.err;
    EXPECT_FALSE(std::filesystem::exists(refusal.output)) << refusal.output;
  }
}

}  // namespace
