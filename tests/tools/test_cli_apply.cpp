// crandle apply, eval and convert --size on real files: results against an independent
// computation, what is kept (alpha, metadata, depth), and failures that leave no output.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
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

// An affine look: trilinear and linear interpolation reproduce it exactly between grid points.
void Affine(double r, double g, double b, double out[3]) {
  out[0] = 0.5 * r + 0.25;
  out[1] = 0.8 * g;
  out[2] = 0.25 + 0.5 * b;
}

constexpr int kWidth = 7;
constexpr int kHeight = 5;

// Samples stay below 0.9, clear of the last cell where the samplers' clamp bends the result.
float SampleAt(int x, int y, int c) {
  return float(0.05 + 0.8 * ((x * 3 + y * 5 + c * 7) % 17) / 16.0);
}

std::string WriteImage(const TempDir& dir, const std::string& name, OIIO::TypeDesc type,
                       int channels, int width = kWidth, int height = kHeight) {
  const std::string path = (dir.Path() / name).string();
  OIIO::ImageSpec spec(width, height, channels, type);
  spec.attribute("ImageDescription", "made by the crandle tests");
  std::vector<float> pixels(size_t(width) * height * channels);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < channels; ++c)
        pixels[(size_t(y) * width + x) * channels + c] = SampleAt(x, y, c);
  auto out = OIIO::ImageOutput::create(path);
  EXPECT_TRUE(out && out->open(path, spec) &&
              out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && out->close())
      << path;
  return path;
}

struct SReadBack {
  OIIO::ImageSpec spec;
  std::vector<float> pixels;
};

SReadBack ReadBack(const std::string& path) {
  SReadBack image;
  auto in = OIIO::ImageInput::open(path);
  EXPECT_TRUE(in) << path;
  if (!in) return image;
  image.spec = in->spec();
  image.pixels.resize(size_t(image.spec.width) * image.spec.height * image.spec.nchannels);
  EXPECT_TRUE(
      in->read_image(0, 0, 0, image.spec.nchannels, OIIO::TypeDesc::FLOAT, image.pixels.data()));
  return image;
}

// Every line of `text` read as three numbers.
std::vector<std::array<double, 3>> Triples(const std::string& text) {
  std::vector<std::array<double, 3>> triples;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
    std::array<double, 3>& t = triples.emplace_back();
    EXPECT_EQ(std::sscanf(text.c_str() + at, "%lf %lf %lf", &t[0], &t[1], &t[2]), 3) << at;
  }
  return triples;
}

class ToolApply : public testing::Test {
 protected:
  TempDir dir;
  std::string lut = dir.Write("affine.cube", crandle_test::CubeText3D(9, Affine));
};

TEST_F(ToolApply, SixteenBitRGBAKeepsAlphaDepthAndMetadata) {
  const std::string input = WriteImage(dir, "in.tif", OIIO::TypeDesc::UINT16, 4);
  const std::string output = (dir.Path() / "out.tif").string();
  // The colour as stored (associated with alpha), so that the affine look is exact.
  const auto run =
      RunTool("apply --premultiplied " + Quote(lut) + " " + Quote(input) + " " + Quote(output));
  ASSERT_EQ(run.status, 0) << run.err;
  const SReadBack in = ReadBack(input);
  const SReadBack out = ReadBack(output);
  ASSERT_EQ(out.spec.width, kWidth);
  ASSERT_EQ(out.spec.nchannels, 4);
  EXPECT_EQ(out.spec.format, OIIO::TypeDesc::UINT16);
  EXPECT_EQ(out.spec.get_string_attribute("ImageDescription"), "made by the crandle tests");
  for (size_t p = 0; p < size_t(kWidth) * kHeight; ++p) {
    double expected[3];
    Affine(in.pixels[4 * p], in.pixels[4 * p + 1], in.pixels[4 * p + 2], expected);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(out.pixels[4 * p + c], expected[c], 1.5 / 65535) << p << " " << c;
    EXPECT_EQ(out.pixels[4 * p + 3], in.pixels[4 * p + 3]) << "alpha is carried through";
  }
}

TEST_F(ToolApply, StripsOnThreadsGiveTheSameBytes) {
  const std::string input = WriteImage(dir, "in.exr", OIIO::TypeDesc::HALF, 3, 64, 37);
  const std::string one = (dir.Path() / "one.exr").string();
  const std::string three = (dir.Path() / "three.exr").string();
  ASSERT_EQ(RunTool("apply " + Quote(lut) + " " + Quote(input) + " " + Quote(one)).status, 0);
  ASSERT_EQ(
      RunTool("apply --threads 3 " + Quote(lut) + " " + Quote(input) + " " + Quote(three)).status,
      0);
  const SReadBack a = ReadBack(one);
  const SReadBack b = ReadBack(three);
  EXPECT_EQ(a.spec.format, OIIO::TypeDesc::HALF);
  EXPECT_EQ(a.pixels, b.pixels);
}

TEST_F(ToolApply, DepthGreyInputsAndPreview) {
  const std::string grey = WriteImage(dir, "grey.png", OIIO::TypeDesc::UINT8, 1);
  const std::string output = (dir.Path() / "out.exr").string();
  const std::string preview = (dir.Path() / "preview.png").string();
  const auto run = RunTool("apply --depth float --preview " + Quote(preview) + " " + Quote(lut) +
                           " " + Quote(grey) + " " + Quote(output));
  ASSERT_EQ(run.status, 0) << run.err;
  const SReadBack in = ReadBack(grey);
  const SReadBack out = ReadBack(output);
  EXPECT_EQ(out.spec.format, OIIO::TypeDesc::FLOAT);
  ASSERT_EQ(out.spec.nchannels, 3) << "a grey picture comes out in colour";
  for (size_t p = 0; p < size_t(kWidth) * kHeight; ++p) {
    double expected[3];
    Affine(in.pixels[p], in.pixels[p], in.pixels[p], expected);
    // The float output keeps the 8-bit input's value exactly, converted once into float.
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(out.pixels[3 * p + c], expected[c], 1e-5) << p;
  }
  const SReadBack side = ReadBack(preview);
  EXPECT_EQ(side.spec.width, 2 * kWidth);
  EXPECT_EQ(side.spec.height, kHeight);
  EXPECT_EQ(side.spec.format, OIIO::TypeDesc::UINT8);
}

TEST_F(ToolApply, SequencesFrameByFrame) {
  for (int frame = 1; frame <= 3; ++frame)
    WriteImage(dir, "shot." + std::to_string(1000 + frame) + ".tif", OIIO::TypeDesc::UINT8, 3);
  const std::string in = (dir.Path() / "shot.%04d.tif").string();
  const std::string out = (dir.Path() / "graded.%04d.tif").string();
  const auto run =
      RunTool("apply --frames 1001-1003 " + Quote(lut) + " " + Quote(in) + " " + Quote(out));
  ASSERT_EQ(run.status, 0) << run.err;
  for (int frame = 1001; frame <= 1003; ++frame) {
    EXPECT_TRUE(fs::exists(dir.Path() / ("graded." + std::to_string(frame) + ".tif"))) << frame;
  }
  // A frame missing from the range stops the job with its name.
  const auto missing =
      RunTool("apply --frames 1003-1004 " + Quote(lut) + " " + Quote(in) + " " + Quote(out));
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("shot.1004.tif"), std::string::npos) << missing.err;
  EXPECT_FALSE(fs::exists(dir.Path() / "graded.1004.tif"));
}

TEST_F(ToolApply, FailuresSayWhyAndWriteNothing) {
  const std::string good = WriteImage(dir, "good.png", OIIO::TypeDesc::UINT8, 3);
  const std::string junkImage = dir.Write("junk.png", "not an image at all");
  const std::string junkLUT = dir.Write("junk.cube", "LUT_3D_SIZE 2\n0 0 0\n");
  WriteImage(dir, "seq.1.png", OIIO::TypeDesc::UINT8, 3);
  WriteImage(dir, "seq.2.png", OIIO::TypeDesc::UINT8, 3, kWidth + 1, kHeight);
  const std::string output = (dir.Path() / "out.png").string();
  struct Case {
    std::string arguments;
    std::string message;
  } cases[] = {
      {Quote(lut) + " " + Quote((dir.Path() / "none.png").string()) + " " + Quote(output),
       "cannot read"},
      {Quote(lut) + " " + Quote(junkImage) + " " + Quote(output), "cannot read"},
      {Quote(junkLUT) + " " + Quote(good) + " " + Quote(output), "0xa00f0001"},
      {Quote(lut) + " " + Quote(good) + " " + Quote((dir.Path() / "out.nosuchformat").string()),
       "cannot write"},
      {"--frames 1-2 " + Quote(lut) + " " + Quote((dir.Path() / "seq.%d.png").string()) + " " +
           Quote((dir.Path() / "out.%d.png").string()),
       "the sequence began at 7x5"},
  };
  for (const auto& c : cases) {
    const auto run = RunTool("apply " + c.arguments);
    EXPECT_EQ(run.status, 1) << c.arguments;
    EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
    EXPECT_FALSE(fs::exists(output)) << c.arguments;
    EXPECT_FALSE(fs::exists(dir.Path() / "out.2.png")) << c.arguments;
  }
  // No partial file is left behind in the output's folder either.
  for (const auto& entry : fs::directory_iterator(dir.Path())) {
    EXPECT_EQ(entry.path().filename().string().find(".partial"), std::string::npos) << entry.path();
  }
}

TEST_F(ToolApply, EvalPrintsTheLUTsOutputPerLine) {
  const auto run =
      RunTool("eval " + Quote(lut), "0 0 0\n# a comment\n\n0.5, 0.25, 0.75\n0.1 0.2 0.3\n");
  ASSERT_EQ(run.status, 0) << run.err;
  const double inputs[3][3] = {{0, 0, 0}, {0.5, 0.25, 0.75}, {0.1, 0.2, 0.3}};
  const auto got = Triples(run.out);
  ASSERT_EQ(got.size(), 3u) << run.out;
  ASSERT_EQ(run.out.back(), '\n');
  for (int i = 0; i < 3; ++i) {
    double expected[3];
    Affine(inputs[i][0], inputs[i][1], inputs[i][2], expected);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[i][c], expected[c], 2e-6) << i;
  }
  const auto bad = RunTool("eval " + Quote(lut), "0 0 0\n1 2\n");
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.err.find("line 2"), std::string::npos) << bad.err;
}

TEST_F(ToolApply, ConvertBakesAOneDimensionalLUTIntoACube) {
  const std::string ramp = dir.Write("ramp.cube", crandle_test::CubeText1D(1024, Affine));
  const std::string baked = (dir.Path() / "baked.cube").string();
  const auto run = RunTool("convert --size 5 " + Quote(ramp) + " " + Quote(baked));
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string text = crandle_test::ReadFileBytes(baked);
  ASSERT_EQ(text.rfind("LUT_3D_SIZE 5\n", 0), 0u);
  const auto got = Triples(text.substr(text.find('\n') + 1));
  ASSERT_EQ(got.size(), 125u);
  ASSERT_EQ(text.back(), '\n');
  for (int i = 0; i < 125; ++i) {  // red fastest
    double expected[3];
    Affine(i % 5 / 4.0, i / 5 % 5 / 4.0, i / 25 / 4.0, expected);
    // The bake is exact: linear interpolation of an affine ramp is the ramp, up to 1.0.
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[i][c], expected[c], 1e-6) << i;
  }
}

}  // namespace

// Frames of a sequence, read one ahead of the grade and graded where they were read, against
// each frame on its own through the whole-picture path (a preview sends a frame that way).
class ToolApplySequence : public ToolApply {
 protected:
  // Asymmetric in red and blue, so that an exchange left undone shows.
  std::string bent = dir.Write(
      "bent.cube", crandle_test::CubeText3D(17, [](double r, double g, double b, double* o) {
        o[0] = 0.9 * r * r + 0.05 * g;
        o[1] = 0.7 * g + 0.2 * b;
        o[2] = 0.8 * std::sqrt(std::max(b, 0.0)) + 0.1 * r;
      }));

  // Frame n in `folder` (emptied first for frame 1): values from below 0 to above 1, and alpha 0
  // on every fifth pixel. 257 wide, a float strip is 510 rows: two whole strips and a short one.
  fs::path WriteFrame(const char* folder, const char* extension, OIIO::TypeDesc type, int channels,
                      int n, int height = 1100, int bits = 0, bool unassociated = false) {
    if (n == 1) {
      fs::remove_all(dir.Path() / folder);
      fs::create_directories(dir.Path() / folder);
    }
    OIIO::ImageSpec spec(257, height, channels, type);
    if (bits) spec.attribute("oiio:BitsPerSample", bits);
    if (unassociated) spec.attribute("oiio:UnassociatedAlpha", 1);
    std::vector<float> pixels(spec.image_pixels() * channels);
    for (size_t i = 0; i < pixels.size(); ++i) {
      const float value = float((i * 7919 + size_t(n) * 104729) % 1000) / 800.0f - 0.1f;
      pixels[i] = i % channels != 3         ? value
                  : (i / channels) % 5 == 0 ? 0.0f
                                            : std::clamp(value, 0.0f, 1.0f);
    }
    const fs::path path = Frame(folder, extension, n);
    auto out = OIIO::ImageOutput::create(path.string());
    EXPECT_TRUE(out && out->open(path.string(), spec) &&
                out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && out->close());
    return path;
  }
  fs::path Frame(const char* folder, const char* extension, int n) const {
    return dir.Path() / folder / ("f." + std::to_string(n) + "." + extension);
  }
  std::string Pattern(const char* folder, const char* extension) const {
    return Quote((dir.Path() / folder / "f.#.").string() + extension);
  }
};

// The pixels as stored, byte for byte (a DPX header also carries the name it was written under).
std::vector<uint8_t> StoredPixels(const fs::path& path) {
  auto in = OIIO::ImageInput::open(path.string());
  std::vector<uint8_t> bytes(in ? in->spec().image_bytes(true) : 0);
  EXPECT_TRUE(in && in->read_image(0, 0, 0, in->spec().nchannels, in->spec().format, bytes.data()));
  return bytes;
}

TEST_F(ToolApplySequence, AheadAndInPlaceGiveTheBytesOfEachFrameOnItsOwn) {
  struct Kind {
    const char *in, *out;
    OIIO::TypeDesc type;
    int channels, bits;
    bool unassociated;
  } kinds[] = {
      {"exr", "exr", OIIO::TypeDesc::HALF, 3, 0, false},
      {"exr", "exr", OIIO::TypeDesc::FLOAT, 4, 0, false},  // divided by alpha and back
      {"tif", "exr", OIIO::TypeDesc::FLOAT, 4, 0, true},   // multiplied for the writer
      {"tif", "tif", OIIO::TypeDesc::UINT16, 3, 0, false},
      {"dpx", "dpx", OIIO::TypeDesc::UINT16, 3, 10, false},
      {"png", "png", OIIO::TypeDesc::UINT8, 4, 0, true},
  };
  for (const Kind& k : kinds) {
    const std::string name = std::string(k.type.c_str()) + "." + k.in + "->" + k.out + " frame ";
    for (int n = 1; n <= 3; ++n)
      WriteFrame("in", k.in, k.type, k.channels, n, 1100, k.bits, k.unassociated);
    fs::remove_all(dir.Path() / "out");
    fs::create_directories(dir.Path() / "out");
    const auto run = RunTool("apply --threads 2 --frames 1-3 " + Quote(bent) + " " +
                             Pattern("in", k.in) + " " + Pattern("out", k.out));
    ASSERT_EQ(run.status, 0) << name << run.err;
    for (int n = 1; n <= 3; ++n) {
      const fs::path alone = dir.Path() / ("alone." + std::string(k.out));
      ASSERT_EQ(RunTool("apply --threads 1 --preview " + Quote(dir.Path() / "p.png") + " " +
                        Quote(bent) + " " + Quote(Frame("in", k.in, n)) + " " + Quote(alone))
                    .status,
                0);
      const std::vector<uint8_t> pixels = StoredPixels(Frame("out", k.out, n));
      EXPECT_TRUE(!pixels.empty() && pixels == StoredPixels(alone)) << name << n;
      EXPECT_TRUE(std::string(k.out) == "dpx" ||
                  crandle_test::ReadFileBytes(Frame("out", k.out, n).string()) ==
                      crandle_test::ReadFileBytes(alone.string()))
          << name << n;
    }
  }
}

TEST_F(ToolApplySequence, AFailureOnTheSecondFrameKeepsTheFirstAndLeavesNothingPartial) {
  struct Case {
    int secondHeight;  // 1100 is the first frame's
    bool cutShort;
    const char* said;
  } cases[] = {{1100, true, "cannot read "}, {1000, false, " but the sequence began at 257x1100"}};
  for (const Case& c : cases) {
    for (int n = 1; n <= 3; ++n)
      WriteFrame("in", "exr", OIIO::TypeDesc::HALF, 3, n, n == 2 ? c.secondHeight : 1100);
    const fs::path second = Frame("in", "exr", 2);
    if (c.cutShort) fs::resize_file(second, fs::file_size(second) / 2);
    fs::remove_all(dir.Path() / "out");
    fs::create_directories(dir.Path() / "out");
    const auto run = RunTool("apply --frames 1-3 " + Quote(bent) + " " + Pattern("in", "exr") +
                             " " + Pattern("out", "exr"));
    EXPECT_EQ(run.status, 1) << c.said;
    EXPECT_NE(run.err.find(c.said), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(second.string()), std::string::npos) << run.err;
    std::vector<std::string> written;
    for (const auto& entry : fs::directory_iterator(dir.Path() / "out"))
      written.push_back(entry.path().filename().string());
    EXPECT_EQ(written, std::vector<std::string>{"f.1.exr"}) << c.said;
  }
}

TEST_F(ToolApplySequence, VerboseAccountsForTheWholeRunInPartsThatAddUp) {
  for (int n = 1; n <= 3; ++n)
    WriteFrame("in", "exr", OIIO::TypeDesc::HALF, 3, n, 300);
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunTool("apply --verbose --frames 1-3 " + Quote(bent) + " " +
                           Pattern("in", "exr") + " " + Pattern("in", "out.exr"));
  const double outsideMs =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  ASSERT_EQ(run.status, 0) << run.err;
  const size_t last = run.err.rfind('\n', run.err.size() - 2);
  ASSERT_NE(last, std::string::npos) << run.err;
  double total, part[6], reading, beside;
  ASSERT_EQ(std::sscanf(run.err.c_str() + last + 1,
                        "3 images in %lf ms = start-up %lf + LUT parse %lf + read %lf + apply %lf "
                        "+ write %lf + other %lf ms; reading took %lf ms, %lf ms of it beside",
                        &total, &part[0], &part[1], &part[2], &part[3], &part[4], &part[5],
                        &reading, &beside),
            9)
      << run.err;
  // Each figure is rounded to 0.1 ms (up to 0.05 off); the start is known to the system's 10 ms
  // clock tick.
  EXPECT_NEAR(part[0] + part[1] + part[2] + part[3] + part[4] + part[5], total, 0.36);
  EXPECT_LE(total, outsideMs + 10.1);
  for (double p : part)
    EXPECT_GE(p, 0.0) << run.err;
  EXPECT_GT(part[0], 0.0) << "start-up counts from the process's start";
  EXPECT_LE(beside, reading);
  EXPECT_LE(reading - beside, part[2] + 0.16) << "what was not beside the rest was waited for";
}
