// crandle apply under alpha, with look documents, and the requests it refuses rather than quietly
// doing something else: expectations computed by hand from the gamma and the alpha conventions.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::Quote;
using crandle_test::RunTool;
using crandle_test::TempDir;
namespace fs = std::filesystem;

constexpr double kGamma = 1 / 2.2;

void Gamma(double r, double g, double b, double out[3]) {
  out[0] = std::pow(r, kGamma);
  out[1] = std::pow(g, kGamma);
  out[2] = std::pow(b, kGamma);
}

void Half(double r, double g, double b, double out[3]) {
  out[0] = 0.5 * r;
  out[1] = 0.5 * g;
  out[2] = 0.5 * b;
}

// One RGBA pixel per entry: grey `colour` at `alpha`, as stored in the file.
struct SPixel {
  float colour;
  float alpha;
};

// Writes the pixels as a one-row RGBA image with the colour stored as given: unassociated when
// `unassociated` (the file is marked so), else associated.
void WritePixels(const std::string& path, OIIO::TypeDesc type, const std::vector<SPixel>& pixels,
                 bool unassociated) {
  OIIO::ImageSpec spec(int(pixels.size()), 1, 4, type);
  if (unassociated) spec.attribute("oiio:UnassociatedAlpha", 1);
  std::vector<float> samples;
  for (const SPixel& p : pixels)
    samples.insert(samples.end(), {p.colour, p.colour, p.colour, p.alpha});
  auto out = OIIO::ImageOutput::create(path);
  ASSERT_TRUE(out && out->open(path, spec) &&
              out->write_image(OIIO::TypeDesc::FLOAT, samples.data()) && out->close())
      << path;
}

struct SStored {
  bool unassociated = false;
  OIIO::TypeDesc format;
  std::vector<float> samples;
};

// The samples as the file stores them, with no conversion between alpha conventions.
SStored ReadStored(const std::string& path) {
  SStored stored;
  OIIO::ImageSpec hints;
  hints.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path, &hints);
  EXPECT_TRUE(in) << path;
  if (!in) return stored;
  const OIIO::ImageSpec& spec = in->spec();
  stored.unassociated = spec.get_int_attribute("oiio:UnassociatedAlpha", 0) != 0;
  stored.format = spec.format;
  stored.samples.resize(size_t(spec.width) * spec.height * spec.nchannels);
  EXPECT_TRUE(
      in->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, stored.samples.data()));
  return stored;
}

double Graded(double colour) {
  return std::pow(colour, kGamma);
}

class ToolColour : public testing::Test {
 protected:
  TempDir dir;
  std::string gamma = dir.Write("gamma.cube", crandle_test::CubeText1D(4096, Gamma));
  std::string half = dir.Write("half.cube", crandle_test::CubeText1D(256, Half));

  crandle_test::SToolRun Apply(const std::string& arguments) {
    return RunTool("apply " + arguments);
  }
};

// Grey 0.5 at alpha 0.5 through the gamma is 0.5^(1/2.2) = 0.7297 in unassociated terms, so
// 0.3649 where the colour is stored associated; a pixel with no coverage keeps its stored colour.
TEST_F(ToolColour, GradesUnassociatedColourAndKeepsTheFilesConvention) {
  const double e8 = 1.0 / 255, e16 = 1.0 / 65535, eHalf = 1e-3;
  struct SCase {
    const char* name;
    const char* input;
    OIIO::TypeDesc type;
    bool unassociatedIn;
    const char* output;
    const char* flags;
    std::vector<SPixel> pixels;
    bool unassociatedOut;
    std::vector<double> expectedColour;  // per pixel, as the output stores it
    double tolerance;
    const char* warning = nullptr;
  } cases[] = {
      {"png_partial_zero_full",
       "in.png",
       OIIO::TypeDesc::UINT8,
       true,
       "out.png",
       "",
       {{128 / 255.f, 128 / 255.f}, {128 / 255.f, 0.f}, {128 / 255.f, 1.f}},
       true,
       {Graded(128 / 255.), Graded(128 / 255.), Graded(128 / 255.)},
       1.01 * e8},
      {"png_16_bit",
       "in.png",
       OIIO::TypeDesc::UINT16,
       true,
       "out.png",
       "",
       {{0.25f, 0.25f}},
       true,
       {Graded(0.25)},
       4 * e16},
      {"tiff_unassociated",
       "in.tif",
       OIIO::TypeDesc::UINT16,
       true,
       "out.tif",
       "",
       {{0.5f, 0.5f}, {0.3f, 0.f}, {0.5f, 1.f}},
       true,
       {Graded(0.5), Graded(0.3), Graded(0.5)},
       4 * e16},
      {"tiff_associated",
       "in.tif",
       OIIO::TypeDesc::UINT16,
       false,
       "out.tif",
       "",
       {{0.25f, 0.5f}, {0.3f, 0.f}, {0.5f, 1.f}},
       false,
       {0.5 * Graded(0.5), 0.3, Graded(0.5)},
       4 * e16},
      {"tiff_associated_8_bit",
       "in.tif",
       OIIO::TypeDesc::UINT8,
       false,
       "out.tif",
       "",
       {{64 / 255.f, 128 / 255.f}},
       false,
       {128 / 255. * Graded(64. / 128.)},
       1.01 * e8},
      {"exr_partial_zero_full",
       "in.exr",
       OIIO::TypeDesc::HALF,
       false,
       "out.exr",
       "",
       {{0.25f, 0.5f}, {0.3f, 0.f}, {0.5f, 1.f}},
       false,
       {0.5 * Graded(0.5), 0.3, Graded(0.5)},
       eHalf},
      {"exr_premultiplied_as_stored",
       "in.exr",
       OIIO::TypeDesc::HALF,
       false,
       "out.exr",
       "--premultiplied ",
       {{0.25f, 0.5f}, {0.3f, 0.f}},
       false,
       {Graded(0.25), Graded(0.3)},
       eHalf},
      {"png_premultiplied_is_as_stored",
       "in.png",
       OIIO::TypeDesc::UINT16,
       true,
       "out.png",
       "--premultiplied ",
       {{0.5f, 0.5f}},
       true,
       {Graded(0.5)},
       4 * e16,
       "--premultiplied changes nothing"},
      {"png_to_exr_is_associated",
       "in.png",
       OIIO::TypeDesc::UINT16,
       true,
       "out.exr",
       "",
       {{0.5f, 0.5f}, {0.5f, 0.f}},
       false,
       {0.5 * Graded(0.5), 0.0},
       eHalf},
      {"exr_to_png_is_unassociated",
       "in.exr",
       OIIO::TypeDesc::FLOAT,
       false,
       "out.png",
       "--depth 16 ",
       {{0.25f, 0.5f}, {0.5f, 1.f}},
       true,
       {Graded(0.5), Graded(0.5)},
       4 * e16},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string input = (dir.Path() / (std::string(c.name) + c.input)).string();
    const std::string output = (dir.Path() / (std::string(c.name) + c.output)).string();
    WritePixels(input, c.type, c.pixels, c.unassociatedIn);
    const auto run =
        Apply(std::string(c.flags) + Quote(gamma) + " " + Quote(input) + " " + Quote(output));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err.find("warning") != std::string::npos, c.warning != nullptr) << run.err;
    if (c.warning) {
      EXPECT_NE(run.err.find(c.warning), std::string::npos) << run.err;
    }
    const SStored in = ReadStored(input);
    const SStored out = ReadStored(output);
    EXPECT_EQ(out.unassociated, c.unassociatedOut);
    ASSERT_EQ(out.samples.size(), 4 * c.pixels.size());
    for (size_t p = 0; p < c.pixels.size(); ++p) {
      for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(out.samples[4 * p + channel], c.expectedColour[p], c.tolerance) << p;
      EXPECT_NEAR(out.samples[4 * p + 3], in.samples[4 * p + 3], c.tolerance)
          << "alpha, pixel " << p;
    }
  }
}

// The GPU path gets the same division and multiplication around its ApplyLUT.
TEST_F(ToolColour, AlphaOnTheOpenCLDevice) {
  const std::string input = (dir.Path() / "in.exr").string();
  const std::string output = (dir.Path() / "out.exr").string();
  WritePixels(input, OIIO::TypeDesc::FLOAT, {{0.25f, 0.5f}, {0.3f, 0.f}}, false);
  const auto run =
      Apply("--device opencl:0 " + Quote(gamma) + " " + Quote(input) + " " + Quote(output));
  if (run.err.find("no device opencl") != std::string::npos) GTEST_SKIP() << run.err;
  ASSERT_EQ(run.status, 0) << run.err;
  const SStored out = ReadStored(output);
  ASSERT_EQ(out.samples.size(), 8u);
  EXPECT_NEAR(out.samples[0], 0.5 * Graded(0.5), 1e-4);
  EXPECT_EQ(out.samples[4], 0.3f);
}

TEST_F(ToolColour, LookDocumentsApplyTheirLUTsInOrder) {
  const std::string input = (dir.Path() / "in.exr").string();
  WritePixels(input, OIIO::TypeDesc::FLOAT, {{0.5f, 1.f}, {0.8f, 1.f}}, false);
  const std::string inlineLook = (dir.Path() / "inline.look").string();
  const std::string payloadLook = (dir.Path() / "payload.look").string();
  const std::string payload = (dir.Path() / "payload.bin").string();
  ASSERT_EQ(
      RunTool("look pack " + Quote(half) + " " + Quote(gamma) + " -o " + Quote(inlineLook)).status,
      0);
  ASSERT_EQ(RunTool("look pack " + Quote(half) + " " + Quote(gamma) + " -o " + Quote(payloadLook) +
                    " --payload " + Quote(payload))
                .status,
            0);
  // Half first, then the gamma: (0.5 x)^(1/2.2); the other order would give 0.5 x^(1/2.2).
  struct SCase {
    std::string arguments;
  } cases[] = {{Quote(inlineLook)}, {"--payload " + Quote(payload) + " " + Quote(payloadLook)}};
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.arguments);
    const std::string output = (dir.Path() / "out.exr").string();
    const auto run = Apply(c.arguments + " " + Quote(input) + " " + Quote(output));
    ASSERT_EQ(run.status, 0) << run.err;
    const SStored out = ReadStored(output);
    ASSERT_EQ(out.samples.size(), 8u);
    EXPECT_NEAR(out.samples[0], Graded(0.25), 1e-4);
    EXPECT_NEAR(out.samples[4], Graded(0.4), 1e-4);
  }
  // Without its payload the document names LUTs it does not carry.
  const auto missing = Apply(Quote(payloadLook) + " " + Quote(input) + " " +
                             Quote((dir.Path() / "none.exr").string()));
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("--payload"), std::string::npos) << missing.err;
  EXPECT_FALSE(fs::exists(dir.Path() / "none.exr"));
}

// Replaces the `nth` (from 0) occurrence of `from` in `text`.
std::string ReplaceNth(std::string text, const std::string& from, const std::string& to,
                       size_t nth) {
  size_t at = text.find(from);
  for (size_t i = 0; i < nth && at != std::string::npos; ++i)
    at = text.find(from, at + 1);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

TEST_F(ToolColour, LUTsOfOneNameFromTwoFoldersKeepTheirOrder) {
  fs::create_directories(dir.Path() / "a");
  fs::create_directories(dir.Path() / "b");
  fs::copy_file(half, dir.Path() / "a" / "look.cube");
  fs::copy_file(gamma, dir.Path() / "b" / "look.cube");
  const std::string look = (dir.Path() / "two.look").string();
  ASSERT_EQ(RunTool("look pack " + Quote((dir.Path() / "a" / "look.cube").string()) + " " +
                    Quote((dir.Path() / "b" / "look.cube").string()) + " -o " + Quote(look))
                .status,
            0);
  const std::string input = (dir.Path() / "in.exr").string();
  WritePixels(input, OIIO::TypeDesc::FLOAT, {{0.5f, 1.f}}, false);
  const std::string output = (dir.Path() / "out.exr").string();
  const auto run = Apply(Quote(look) + " " + Quote(input) + " " + Quote(output));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NEAR(ReadStored(output).samples[0], Graded(0.25), 1e-4);
}

// A document refers to a LUT that ships with the host by its file name and does not carry it.
TEST_F(ToolColour, ShippedLUTsAreReadFromTheirFolder) {
  const fs::path shipped = dir.Path() / "shipped";
  fs::create_directories(shipped);
  fs::copy_file(half, shipped / "half.cube");
  const std::string setting =
      "--set ColorTransforms.ShippedLUTDirectory=" + Quote(shipped.string());
  const std::string look = (dir.Path() / "shipped.look").string();
  ASSERT_EQ(
      RunTool(setting + " look pack " + Quote(half) + " " + Quote(gamma) + " -o " + Quote(look))
          .status,
      0);
  ASSERT_EQ(crandle_test::ReadFileBytes(look).find("<filename>\"half.cube\""), std::string::npos)
      << "the shipped LUT is named, not carried";
  const std::string input = (dir.Path() / "in.exr").string();
  WritePixels(input, OIIO::TypeDesc::FLOAT, {{0.5f, 1.f}}, false);
  const std::string output = (dir.Path() / "out.exr").string();
  const auto run =
      RunTool(setting + " apply " + Quote(look) + " " + Quote(input) + " " + Quote(output));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NEAR(ReadStored(output).samples[0], Graded(0.25), 1e-4);
  const auto without = Apply(Quote(look) + " " + Quote(input) + " " + Quote(output));
  EXPECT_EQ(without.status, 1);
  EXPECT_NE(without.err.find("set ColorTransforms.ShippedLUTDirectory"), std::string::npos)
      << without.err;
}

TEST_F(ToolColour, LookDocumentsThatCannotBeAppliedAreRefused) {
  const std::string packed = (dir.Path() / "packed.look").string();
  ASSERT_EQ(
      RunTool("look pack " + Quote(half) + " " + Quote(gamma) + " -o " + Quote(packed)).status, 0);
  const std::string text = crandle_test::ReadFileBytes(packed);
  const std::string input = (dir.Path() / "in.exr").string();
  WritePixels(input, OIIO::TypeDesc::FLOAT, {{0.5f, 1.f}}, false);
  struct SCase {
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
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string look = dir.Write(std::string(c.name) + ".look", c.text);
    const std::string output = (dir.Path() / (std::string(c.name) + ".exr")).string();
    const auto run = Apply(Quote(look) + " " + Quote(input) + " " + Quote(output));
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    EXPECT_FALSE(fs::exists(output));
  }
}

TEST_F(ToolColour, RequestsAFormatCannotHoldAreRefused) {
  const std::string rgba = (dir.Path() / "rgba.png").string();
  WritePixels(rgba, OIIO::TypeDesc::UINT8, {{0.5f, 0.5f}}, true);
  const std::string rgb = (dir.Path() / "rgb.exr").string();
  {
    OIIO::ImageSpec spec(2, 1, 3, OIIO::TypeDesc::HALF);
    const float samples[6] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f};
    auto out = OIIO::ImageOutput::create(rgb);
    ASSERT_TRUE(out && out->open(rgb, spec) && out->write_image(OIIO::TypeDesc::FLOAT, samples) &&
                out->close());
  }
  // Two pictures in one file: an animation, as a movie would be.
  const std::string animation = (dir.Path() / "two.gif").string();
  {
    const OIIO::ImageSpec spec(2, 1, 3, OIIO::TypeDesc::UINT8);
    const OIIO::ImageSpec specs[2] = {spec, spec};
    const unsigned char samples[6] = {10, 20, 30, 40, 50, 60};
    auto out = OIIO::ImageOutput::create(animation);
    ASSERT_TRUE(out && out->open(animation, 2, specs));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, samples));
    ASSERT_TRUE(out->open(animation, spec, OIIO::ImageOutput::AppendSubimage));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::UINT8, samples) && out->close());
  }
  const std::string readOnly = dir.Write("read-only.exr", "kept");
  ::chmod(readOnly.c_str(), 0444);
  const fs::path lockedFolder = dir.Path() / "locked";
  fs::create_directory(lockedFolder);
  const std::string out = (dir.Path() / "out").string();
  struct SCase {
    std::string arguments;
    std::string message;
    std::string mustNotExist;
  } cases[] = {
      {Quote(rgb) + " " + out + ".png --depth float",
       "PNG files cannot hold --depth float samples; they hold --depth 8 or 16", out + ".png"},
      {Quote(rgb) + " " + out + ".jpg --depth 16",
       "JPEG files cannot hold --depth 16 samples; they hold --depth 8", out + ".jpg"},
      {Quote(rgba) + " " + out + ".jpg", "JPEG files cannot hold the input's alpha channel",
       out + ".jpg"},
      {Quote(animation) + " " + out + ".png", "a movie", out + ".png"},
      {Quote(rgb) + " " + Quote(readOnly), "read-only; it is not replaced", ""},
      {Quote(rgb) + " " + out + ".exr --preview " +
           Quote((dir.Path() / "missing" / "p.png").string()),
       "does not exist", out + ".exr"},
      {Quote(rgb) + " " + out + ".exr --interp tetrahedral",
       "choose --device opencl[:N] or --device cuda[:N]", out + ".exr"},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.arguments);
    const auto run = Apply(Quote(gamma) + " " + c.arguments);
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    if (!c.mustNotExist.empty()) {
      EXPECT_FALSE(fs::exists(c.mustNotExist));
    }
  }
  EXPECT_EQ(crandle_test::ReadFileBytes(readOnly), "kept");
  // What the formats hold is done as asked.
  ASSERT_EQ(Apply(Quote(gamma) + " " + Quote(rgb) + " " + out + ".png --depth 16").status, 0);
  EXPECT_EQ(ReadStored(out + ".png").format, OIIO::TypeDesc::UINT16);
  ASSERT_EQ(Apply(Quote(gamma) + " " + Quote(rgb) + " " + out + ".tif --depth float").status, 0);
  EXPECT_EQ(ReadStored(out + ".tif").format, OIIO::TypeDesc::FLOAT);
}

TEST_F(ToolColour, ALUTNamedInBytesThatAreNotUtf8IsRead) {
  const std::string strange = (dir.Path() / "gamma-\xff\xfe.cube").string();
  fs::copy_file(gamma, strange);
  const std::string input = (dir.Path() / "in-\xff.exr").string();
  WritePixels(input, OIIO::TypeDesc::FLOAT, {{0.5f, 1.f}}, false);
  const std::string output = (dir.Path() / "out.exr").string();
  const auto run = Apply(Quote(strange) + " " + Quote(input) + " " + Quote(output));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NEAR(ReadStored(output).samples[0], Graded(0.5), 1e-4);
  const auto eval = RunTool("eval " + Quote(strange), "0.5 0.5 0.5\n");
  ASSERT_EQ(eval.status, 0) << eval.err;
  EXPECT_NEAR(std::stod(eval.out), Graded(0.5), 1e-4) << eval.out;
  const auto info = RunTool("info " + Quote(strange));
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_NE(info.out.find("1D"), std::string::npos) << info.out;
}

}  // namespace
