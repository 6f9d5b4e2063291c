// crandle apply under alpha and with look documents: expectations worked out by hand from the
// gamma and the alpha conventions.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

constexpr TypeDesc kU8 = TypeDesc::UINT8, kU16 = TypeDesc::UINT16, kHalf = TypeDesc::HALF;

double Graded(double colour) {
  return std::pow(colour, 1 / 2.2);
}

void ExpectNear(const std::vector<double>& got, const std::vector<double>& expected) {
  ASSERT_EQ(got.size(), expected.size());
  for (size_t i = 0; i < got.size(); ++i)
    EXPECT_NEAR(got[i], expected[i], 1e-4) << i;
}

class ToolColour : public testing::Test {
 protected:
  TempDir dir;
  std::string gammaFile =
      dir.Write("gamma.cube", CubeText1D(4096, [](double r, double g, double b, double out[3]) {
                  out[0] = Graded(r), out[1] = Graded(g), out[2] = Graded(b);
                }));
  std::string halfFile =
      dir.Write("half.cube", CubeText1D(256, [](double r, double g, double b, double out[3]) {
                  out[0] = 0.5 * r, out[1] = 0.5 * g, out[2] = 0.5 * b;
                }));
  std::string gamma = Quote(gammaFile) + " ", half = Quote(halfFile) + " ";

  // A float EXR of grey pixels at full coverage, as an argument.
  std::string Input(const std::vector<float>& greys) {
    std::vector<float> samples;
    for (float grey : greys)
      samples.insert(samples.end(), {grey, grey, grey, 1});
    WriteImageFile(dir.Path() / "in.exr", TypeDesc::FLOAT, int(greys.size()), 1, 4, samples);
    return Quote(dir.Path() / "in.exr") + " ";
  }
  // The red of each pixel that `[options] apply ARGUMENTS OUTPUT` writes.
  std::vector<double> Applied(const std::string& arguments, const std::string& options = "") {
    const fs::path output = dir.Path() / "out.exr";
    fs::remove(output);
    const auto run = RunTool(options + "apply " + arguments + Quote(output));
    EXPECT_EQ(run.status, 0) << run.err;
    const SImageFile image = ReadImageFile(output);
    std::vector<double> reds;
    for (size_t i = 0; i < image.samples.size(); i += 4)
      reds.push_back(image.samples[i]);
    return reds;
  }
};

// One grey pixel at some alpha, stored as the input's format keeps colour: the colour the output
// stores. Grey 0.25 at alpha 0.5 stored associated is 0.5 unassociated, so 0.5 * Graded(0.5)
// once graded and associated again; a pixel with no coverage keeps its stored colour.
TEST_F(ToolColour, GradesUnassociatedColourAndKeepsTheFilesConvention) {
  const double e8 = 1.01 / 255, e16 = 4.0 / 65535, eHalf = 1e-3;
  const struct {
    const char* input;  // the input's extension
    TypeDesc type;
    bool unassociatedIn;
    float colour, alpha;
    const char* flags;
    const char* output;  // the output's extension
    bool unassociatedOut;
    double expected, tolerance;
    const char* warning;
  } cases[] = {
      // PNG and a TIFF marked so keep colour unassociated: graded as stored, at any alpha.
      {"png", kU8, true, 128 / 255.f, 128 / 255.f, "", "png", true, Graded(128 / 255.), e8, ""},
      {"png", kU8, true, 128 / 255.f, 0, "", "png", true, Graded(128 / 255.), e8, ""},
      {"tif", kU16, true, 0.5f, 0.5f, "", "tif", true, Graded(0.5), e16, ""},
      // Associated colour is divided by alpha, graded and multiplied back.
      {"exr", kHalf, false, 0.25f, 0.5f, "", "exr", false, 0.5 * Graded(0.5), eHalf, ""},
      {"exr", kHalf, false, 0.3f, 0, "", "exr", false, 0.3, eHalf, ""},
      {"tif", kU8, false, 64 / 255.f, 128 / 255.f, "", "tif", false,
       128 / 255. * Graded(64. / 128.), e8, ""},
      // --premultiplied grades associated colour as stored, and cannot change unassociated colour.
      {"exr", kHalf, false, 0.25f, 0.5f, "--premultiplied", "exr", false, Graded(0.25), eHalf, ""},
      {"png", kU16, true, 0.5f, 0.5f, "--premultiplied", "png", true, Graded(0.5), e16,
       "--premultiplied changes nothing"},
      // Across formats the output stores colour as its own format keeps it.
      {"png", kU16, true, 0.5f, 0.5f, "", "exr", false, 0.5 * Graded(0.5), eHalf, ""},
      {"exr", TypeDesc::FLOAT, false, 0.25f, 0.5f, "--depth 16", "png", true, Graded(0.5), e16, ""},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    const fs::path input = dir.Path() / ("in" + std::to_string(i) + "." + c.input);
    const fs::path output = dir.Path() / ("out" + std::to_string(i) + "." + c.output);
    SCOPED_TRACE(input.filename().string() + " " + c.flags + " to " + c.output);
    WriteImageFile(input, c.type, 1, 1, 4, {c.colour, c.colour, c.colour, c.alpha},
                   c.unassociatedIn);
    const auto run =
        RunTool(std::string("apply ") + c.flags + " " + gamma + Quote(input) + " " + Quote(output));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err.find("warning") != npos, *c.warning != 0) << run.err;
    EXPECT_NE(run.err.find(c.warning), npos) << run.err;
    const SImageFile out = ReadImageFile(output);
    EXPECT_EQ(out.unassociated, c.unassociatedOut);
    ASSERT_EQ(out.samples.size(), 4u);
    for (int channel = 0; channel < 3; ++channel)
      EXPECT_NEAR(out.samples[channel], c.expected, c.tolerance) << channel;
    EXPECT_NEAR(out.samples[3], ReadImageFile(input).samples[3], c.tolerance) << "alpha";
  }
}

// The GPU path gets the same division and multiplication around its ApplyLUT.
TEST_F(ToolColour, AlphaOnTheOpenCLDevice) {
  const fs::path input = dir.Path() / "in.exr", output = dir.Path() / "out.exr";
  WriteImageFile(input, TypeDesc::FLOAT, 2, 1, 4, {0.25f, 0.25f, 0.25f, 0.5f, 0.3f, 0.3f, 0.3f, 0});
  const auto run = RunTool("apply --device opencl:0 " + gamma + Quote(input) + " " + Quote(output));
  if (run.err.find("no device opencl") != npos) GTEST_SKIP() << run.err;
  ASSERT_EQ(run.status, 0) << run.err;
  const SImageFile out = ReadImageFile(output);
  ASSERT_EQ(out.samples.size(), 8u);
  EXPECT_NEAR(out.samples[0], 0.5 * Graded(0.5), 1e-4);
  EXPECT_EQ(out.samples[4], 0.3f);
}

// Half first, then the gamma: (0.5 x)^(1/2.2); the other order would give 0.5 x^(1/2.2). The
// order holds for a document with its LUTs inline, with a payload, and with two LUTs of one name.
TEST_F(ToolColour, LookDocumentsApplyTheirLUTsInOrder) {
  const fs::path a = dir.Path() / "a" / "look.cube", b = dir.Path() / "b" / "look.cube";
  for (const auto& [from, to] : {std::pair{halfFile, a}, {gammaFile, b}})
    fs::create_directories(to.parent_path()), fs::copy_file(from, to);
  const fs::path inlineLook = dir.Path() / "inline.look", payloadLook = dir.Path() / "p.look";
  const std::string payload = Quote(dir.Path() / "payload.bin"), two = Quote(dir.Path() / "2.look");
  ASSERT_EQ(RunTool("look pack " + half + gamma + "-o " + Quote(inlineLook)).status, 0);
  const auto packed =
      RunTool("look pack " + half + gamma + "-o " + Quote(payloadLook) + " --payload " + payload);
  ASSERT_EQ(packed.status, 0) << packed.err;
  ASSERT_EQ(RunTool("look pack " + Quote(a) + " " + Quote(b) + " -o " + two).status, 0);
  const std::string input = Input({0.5f, 0.8f});
  for (const std::string& look :
       {Quote(inlineLook), "--payload " + payload + " " + Quote(payloadLook), two}) {
    SCOPED_TRACE(look);
    ExpectNear(Applied(look + " " + input), {Graded(0.25), Graded(0.4)});
  }
  // Without its payload the document names LUTs it does not carry.
  const fs::path none = dir.Path() / "none.exr";
  EXPECT_TRUE(
      Ended(RunTool("apply " + Quote(payloadLook) + " " + input + Quote(none)), 1, "--payload"));
  EXPECT_FALSE(fs::exists(none));
}

// A document refers to a LUT that ships with the host by its file name and does not carry it.
TEST_F(ToolColour, ShippedLUTsAreReadFromTheirFolder) {
  const fs::path shipped = dir.Path() / "shipped";
  fs::create_directories(shipped);
  fs::copy_file(halfFile, shipped / "half.cube");
  const std::string setting = "--set ColorTransforms.ShippedLUTDirectory=" + Quote(shipped) + " ";
  const fs::path look = dir.Path() / "shipped.look";
  ASSERT_EQ(RunTool(setting + "look pack " + half + gamma + "-o " + Quote(look)).status, 0);
  ASSERT_EQ(ReadFileBytes(look.string()).find("<filename>\"half.cube\""), npos)
      << "the shipped LUT is named, not carried";
  const std::string arguments = Quote(look) + " " + Input({0.5f});
  ExpectNear(Applied(arguments, setting), {Graded(0.25)});
  EXPECT_TRUE(Ended(RunTool("apply " + arguments + Quote(dir.Path() / "none.exr")), 1,
                    "set ColorTransforms.ShippedLUTDirectory"));
}

// Replaces the `nth` (from 0) occurrence of `from` in `text`.
std::string ReplaceNth(std::string text, const std::string& from, const std::string& to,
                       size_t nth) {
  size_t at = text.find(from);
  for (size_t i = 0; i < nth && at != npos; ++i)
    at = text.find(from, at + 1);
  EXPECT_NE(at, npos) << from;
  if (at != npos) text.replace(at, from.size(), to);
  return text;
}

TEST_F(ToolColour, LookDocumentsThatCannotBeAppliedAreRefused) {
  const fs::path packed = dir.Path() / "packed.look";
  ASSERT_EQ(RunTool("look pack " + half + gamma + "-o " + Quote(packed)).status, 0);
  const std::string text = ReadFileBytes(packed.string());
  const std::string input = Input({0.5f});
  const struct {
    const char* name;
    std::string text;
    const char* message;
  } cases[] = {
      {"other_operation",
       ReplaceNth(text, "<operation>\n      <name>\"LUT\"</name>",
                  "<operation>\n      <name>\"Lift\"</name>", 1),
       "holds the operation \"Lift\"; only LUT operations can be applied"},
      {"unknown_lut",
       ReplaceNth(text, "<value>\"half.cube\"</value>", "<value>\"x.cube\"</value>", 0),
       "the LUT \"x.cube\" is neither in the document nor a shipped LUT"},
      {"animated",
       ReplaceNth(ReplaceNth(text, "<layer>\"1\"</layer>", "<layer>\"0\"</layer>", 0),
                  "<time>\"0\"</time>", "<time>\"24\"</time>", 1),
       "track 0, layer 0 is animated over 2 keyframes"},
      {"no_operation", "<Tincta>\n</Tincta>\n", "holds no LUT operation"},
      {"not_xml", "<Tincta>\n  <keyframe>\n", "not a look document that can be read"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string look = dir.Write(std::string(c.name) + ".look", c.text);
    const fs::path output = dir.Path() / (std::string(c.name) + ".exr");
    EXPECT_TRUE(Ended(RunTool("apply " + Quote(look) + " " + input + Quote(output)), 1, c.message));
    EXPECT_FALSE(fs::exists(output));
  }
}

TEST_F(ToolColour, FilesNamedInBytesThatAreNotUtf8AreRead) {
  const fs::path lut = dir.Path() / "gamma-\xff\xfe.cube", input = dir.Path() / "in-\xff.exr";
  fs::copy_file(gammaFile, lut);
  Input({0.5f});
  fs::copy_file(dir.Path() / "in.exr", input);
  ExpectNear(Applied(Quote(lut) + " " + Quote(input) + " "), {Graded(0.5)});
}

}  // namespace
}  // namespace crandle_test
