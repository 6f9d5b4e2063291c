// crandle look pack and show, and crandle info on a look reference, run as a user would: packed
// LUTs come back with the kind, size and table content of the files they were made from.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "foundation/hex_codec.h"
#include "foundation/utf16.h"
#include "look_test_support.h"
#include "lut/lut3d.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

struct SRun {
  int status = -1;
  std::string output;
};

SRun RunTool(const std::string& arguments) {
  SRun run;
  const std::string command = std::string(CRANDLE_CLI_PATH) + " " + arguments + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  while (std::fgets(buffer, sizeof(buffer), pipe))
    run.output += buffer;
  run.status = ::pclose(pipe);
  return run;
}

// What a LUT file reads to when its bytes are read directly.
std::string DigestOf(const std::string& bytes) {
  Tincta::COv3DLUT lut;
  EXPECT_TRUE(lut.LoadFromMemory(bytes.data(), uint32_t(bytes.size()), false,
                                 Tincta::ELUTKindFilter::Any, true));
  const auto& digest = lut.ContentDigest();
  return Tincta::EncodeBytesAsText(digest.data(), digest.size(),
                                   Tincta::ETextCodecMode::Hexadecimal);
}

TEST(LookTool, PackedLUTsShowTheSameTables) {
  TempDir directory;
  const std::string cube = CubeText3D(5, [](double r, double g, double b, double out[3]) {
    out[0] = r * r;
    out[1] = 0.5 * g + 0.1;
    out[2] = 1.0 - b;
  });
  const std::string curve = CubeText1D(
      256, [](double r, double, double, double out[3]) { out[0] = out[1] = out[2] = r * 0.9; });
  const std::string cubePath = directory.Write("grade.cube", cube);
  const std::string curvePath = directory.Write("curve.cube", curve);
  const std::string document = (directory.Path() / "look.xml").string();
  const std::string payload = (directory.Path() / "look.bin").string();

  for (const bool embedded : {false, true}) {
    const std::string extra = embedded ? " --payload '" + payload + "'" : "";
    const SRun pack =
        RunTool("look pack '" + cubePath + "' '" + curvePath + "' -o '" + document + "'" + extra);
    ASSERT_EQ(pack.status, 0) << pack.output;
    const SRun show = RunTool("look show --json '" + document + "'" + extra);
    ASSERT_EQ(show.status, 0) << show.output;
    const auto json = nlohmann::json::parse(show.output);
    ASSERT_EQ(json["luts"].size(), 2u) << show.output;
    const std::tuple<const char*, const char*, int, std::string> expected[] = {
        {"grade", "3D", 5, DigestOf(cube)}, {"curve", "1D", 256, DigestOf(curve)}};
    for (size_t i = 0; i < 2; ++i) {
      const auto& lut = json["luts"][i];
      EXPECT_EQ(lut["displayName"], std::get<0>(expected[i])) << embedded;
      EXPECT_EQ(lut["kind"], std::get<1>(expected[i])) << embedded;
      EXPECT_EQ(lut["size"], std::get<2>(expected[i])) << embedded;
      EXPECT_EQ(lut["contentDigest"], std::get<3>(expected[i])) << embedded;
      EXPECT_EQ(lut["identifier"].get<std::string>().size(), 32u);
      EXPECT_EQ(json["operations"][i]["parameters"]["LUT"],
                std::string(std::get<0>(expected[i])) + ".cube");
    }
  }
  // Without its payload the document still names both LUTs.
  const SRun bare = RunTool("look show --json '" + document + "'");
  ASSERT_EQ(bare.status, 0) << bare.output;
  EXPECT_EQ(nlohmann::json::parse(bare.output)["missingEmbeddedLUTs"].size(), 2u);

  EXPECT_NE(RunTool("look show '" + cubePath + "'").status, 0);
  EXPECT_NE(RunTool("look pack '" + document + ".none' -o '" + document + "'").status, 0);
}

TEST(LookTool, InfoFromBytesFollowsALookReference) {
  TempDir directory;
  SGridLayout layout;
  layout.n = 3;
  layout.sample = [](uint32_t i, uint32_t, uint32_t, int) { return uint16_t(i * 30000); };
  const auto grid = MakeLookGrid(layout);
  const std::string gridPath = directory.Write("clip.mxf", grid.data(), grid.size());
  const auto record = MakeLookReference(Tincta::Utf8ToUtf16(gridPath), uint32_t(grid.size()), 0);
  const std::string recordPath = directory.Write("clip.look", record.data(), record.size());
  const SRun info = RunTool("info --json --from-bytes '" + recordPath + "'");
  ASSERT_EQ(info.status, 0) << info.output;
  const auto json = nlohmann::json::parse(info.output);
  EXPECT_EQ(json["displayName"], "AMIRA LUT");
  EXPECT_EQ(json["kind"], "3D");
  EXPECT_EQ(json["size"], 3);
  const SRun show = RunTool("look show --json '" + recordPath + "'");
  ASSERT_EQ(show.status, 0) << show.output;
  EXPECT_EQ(nlohmann::json::parse(show.output)["luts"].size(), 1u);
}

}  // namespace
}  // namespace crandle_test
