// crandle look pack and show, run as a user would: packed LUTs come back with the kind, size and
// table content of the files they were made from.
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "foundation/hex_codec.h"
#include "lut/lut3d.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

// The tool's exit status and what it printed.
std::pair<int, std::string> RunTool(const std::string& arguments) {
  FILE* pipe = ::popen((std::string(CRANDLE_CLI_PATH) + " " + arguments + " 2>&1").c_str(), "r");
  std::string output;
  char buffer[4096];
  while (pipe && std::fgets(buffer, sizeof(buffer), pipe))
    output += buffer;
  return {pipe ? ::pclose(pipe) : -1, output};
}

nlohmann::json RunForJson(const std::string& arguments) {
  const auto [status, output] = RunTool(arguments);
  EXPECT_EQ(status, 0) << arguments << "\n" << output;
  return nlohmann::json::parse(output, nullptr, false);
}

// The content digest of LUT bytes read directly.
std::string DigestOf(const std::string& bytes) {
  Tincta::COv3DLUT lut;
  EXPECT_TRUE(lut.LoadFromMemory(bytes.data(), uint32_t(bytes.size()), false,
                                 Tincta::ELUTKindFilter::Any, true));
  return Tincta::EncodeBytesAsText(lut.ContentDigest().data(), 16,
                                   Tincta::ETextCodecMode::Hexadecimal);
}

TEST(LookTool, PackedLUTsShowTheSameTables) {
  TempDir directory;
  const auto quoted = [](const std::string& path) { return "'" + path + "'"; };
  const std::string cube = CubeText3D(5, [](double r, double g, double b, double out[3]) {
    out[0] = g, out[1] = b, out[2] = r * r;
  });
  const std::string curve = CubeText1D(256);
  const std::string grade = quoted(directory.Write("grade.cube", cube));
  const std::string pack =
      "look pack " + grade + " " + quoted(directory.Write("curve.cube", curve)) + " -o ";
  const std::string document = quoted((directory.Path() / "look.xml").string());
  const std::string payload = " --payload " + quoted((directory.Path() / "look.bin").string());
  const std::tuple<const char*, const char*, int, std::string> expected[] = {
      {"grade", "3D", 5, DigestOf(cube)}, {"curve", "1D", 256, DigestOf(curve)}};
  for (const std::string& extra : {std::string(), payload}) {
    ASSERT_EQ(RunTool(pack + document + extra).first, 0) << extra;
    const auto shown = RunForJson("look show --json " + document + extra);
    ASSERT_EQ(shown["luts"].size(), 2u) << shown;
    for (size_t i = 0; i < 2; ++i) {
      const auto& [name, kind, size, digest] = expected[i];
      const auto& lut = shown["luts"][i];
      EXPECT_TRUE(lut["displayName"] == name && lut["kind"] == kind && lut["size"] == size) << lut;
      EXPECT_EQ(lut["contentDigest"], digest) << extra;
      EXPECT_EQ(shown["operations"][i]["parameters"]["LUT"], std::string(name) + ".cube");
    }
  }
  EXPECT_NE(RunTool("look show " + grade).first, 0);
  EXPECT_NE(RunTool("look pack " + document + " -o " + document).first, 0);
}

}  // namespace
}  // namespace crandle_test
