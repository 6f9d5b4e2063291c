// crandle look pack and show, run as a user would: packed LUTs come back with the kind, size and
// table content of the files they were made from.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "foundation/hex_codec.h"
#include "lut/lut3d.h"
#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

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
  const std::string cube = CubeText3D(5, [](double r, double g, double b, double out[3]) {
    out[0] = g, out[1] = b, out[2] = r * r;
  });
  const std::string curve = CubeText1D(256);
  const std::string document = Quote((directory.Path() / "look.xml").string());
  const std::string curvePath = Quote(directory.Write("curve.cube", curve));
  const std::string pack = "look pack " + Quote(directory.Write("grade.cube", cube)) + " ";
  ASSERT_EQ(RunTool(pack + curvePath + " -o " + document).status, 0);
  const std::tuple<const char*, const char*, int, std::string> expected[] = {
      {"grade", "3D", 5, DigestOf(cube)}, {"curve", "1D", 256, DigestOf(curve)}};
  const SToolRun show = RunTool("look show --json " + document);
  ASSERT_EQ(show.status, 0) << show.err;
  const auto shown = nlohmann::json::parse(show.out, nullptr, false);
  ASSERT_EQ(shown["luts"].size(), 2u) << show.out;
  for (size_t i = 0; i < 2; ++i) {
    const auto& [name, kind, size, digest] = expected[i];
    const auto& lut = shown["luts"][i];
    EXPECT_TRUE(lut["displayName"] == name && lut["kind"] == kind && lut["size"] == size) << lut;
    EXPECT_EQ(lut["contentDigest"], digest);
    EXPECT_EQ(shown["operations"][i]["parameters"]["LUT"], std::string(name) + ".cube");
  }
  EXPECT_NE(RunTool("look show " + curvePath).status, 0);
  EXPECT_NE(RunTool("look pack " + document + " -o " + document).status, 0);
}

}  // namespace
}  // namespace crandle_test
