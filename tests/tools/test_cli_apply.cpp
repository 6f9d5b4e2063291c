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

  // Frame `frame` of a kind: values from below 0 to above 1, and pixels with no coverage.
  void WriteFrame(const fs::path& path, OIIO::TypeDesc type, int channels, int frame,
                  int height = 1100, const char* bits = nullptr, bool unassociated = false) {
    const int width = 257;  // a float strip is 510 rows: two whole strips and a short one
    OIIO::ImageSpec spec(width, height, channels, type);
    if (bits) spec.attribute("oiio:BitsPerSample", std::atoi(bits));
    if (unassociated) spec.attribute("oiio:UnassociatedAlpha", 1);
    std::vector<float> pixels(size_t(width) * height * channels);
    for (size_t i = 0; i < pixels.size(); ++i) {
      const size_t pixel = i / channels;
      const float value = float((i * 7919 + size_t(frame) * 104729) % 1000) / 800.0f - 0.1f;
      pixels[i] = i % channels != 3 ? value : pixel % 5 == 0 ? 0.0f : std::clamp(value, 0.f, 1.f);
    }
    auto out = OIIO::ImageOutput::create(path.string());
    ASSERT_TRUE(out && out->open(path.string(), spec) &&
                out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && out->close());
  }
};

// The pixels as stored, byte for byte (a DPX header also carries the name it was written under).
std::vector<uint8_t> StoredPixels(const fs::path& path) {
  auto in = OIIO::ImageInput::open(path.string());
  if (!in) return {};
  std::vector<uint8_t> bytes(in->spec().image_bytes(true));
  EXPECT_TRUE(in->read_image(0, 0, 0, in->spec().nchannels, in->spec().format, bytes.data()));
  return bytes;
}

TEST_F(ToolApplySequence, AheadAndInPlaceGiveTheBytesOfEachFrameOnItsOwn) {
  struct Kind {
    const char* in;
    const char* out;
    OIIO::TypeDesc type;
    int channels;
    const char* bits;
    bool unassociated;
  } kinds[] = {
      {"exr", "exr", OIIO::TypeDesc::HALF, 3, nullptr, false},
      {"exr", "exr", OIIO::TypeDesc::FLOAT, 4, nullptr, false},  // divided by alpha and back
      {"tif", "exr", OIIO::TypeDesc::FLOAT, 4, nullptr, true},   // multiplied for the writer
      {"tif", "tif", OIIO::TypeDesc::UINT16, 3, nullptr, false},
      {"dpx", "dpx", OIIO::TypeDesc::UINT16, 3, "10", false},
      {"png", "png", OIIO::TypeDesc::UINT8, 4, nullptr, true},
  };
  for (const Kind& kind : kinds) {
    const std::string name = std::string(kind.type.c_str()) + "." + kind.in + "->" + kind.out;
    const fs::path in = dir.Path() / "in", out = dir.Path() / "out", alone = dir.Path() / "alone";
    for (const fs::path& folder : {in, out, alone}) {
      fs::remove_all(folder);
      fs::create_directories(folder);
    }
    const auto frame = [](const fs::path& folder, const char* extension, int n) {
      return folder / ("f." + std::to_string(n) + "." + extension);
    };
    for (int n = 1; n <= 3; ++n)
      WriteFrame(frame(in, kind.in, n), kind.type, kind.channels, n, 1100, kind.bits,
                 kind.unassociated);
    const auto run = RunTool("apply --threads 2 --frames 1-3 " + Quote(bent) + " " +
                             Quote((in / "f.#.").string() + kind.in) + " " +
                             Quote((out / "f.#.").string() + kind.out));
    ASSERT_EQ(run.status, 0) << name << run.err;
    for (int n = 1; n <= 3; ++n) {
      const auto whole =
          RunTool("apply --threads 1 --preview " + Quote(alone / "p.png") + " " + Quote(bent) +
                  " " + Quote(frame(in, kind.in, n)) + " " + Quote(frame(alone, kind.out, n)));
      ASSERT_EQ(whole.status, 0) << name << whole.err;
      const std::vector<uint8_t> pixels = StoredPixels(frame(out, kind.out, n));
      EXPECT_FALSE(pixels.empty()) << name;
      EXPECT_TRUE(pixels == StoredPixels(frame(alone, kind.out, n))) << name << " frame " << n;
      if (std::string(kind.out) != "dpx") {
        EXPECT_TRUE(crandle_test::ReadFileBytes(frame(out, kind.out, n)) ==
                    crandle_test::ReadFileBytes(frame(alone, kind.out, n)))
            << name << " frame " << n;
      }
    }
  }
}

TEST_F(ToolApplySequence, AFailureOnTheSecondFrameKeepsTheFirstAndLeavesNothingPartial) {
  struct Case {
    const char* what;
    const char* said;
  } cases[] = {
      {"cut short", "cannot read "},
      {"smaller", " but the sequence began at 257x1100"},
  };
  for (const Case& c : cases) {
    const fs::path in = dir.Path() / "in", out = dir.Path() / "out";
    fs::remove_all(in);
    fs::remove_all(out);
    fs::create_directories(in);
    fs::create_directories(out);
    for (int n = 1; n <= 3; ++n)
      WriteFrame(in / ("f." + std::to_string(n) + ".exr"), OIIO::TypeDesc::HALF, 3, n,
                 n == 2 && std::string(c.what) == "smaller" ? 1000 : 1100);
    if (std::string(c.what) == "cut short")
      fs::resize_file(in / "f.2.exr", fs::file_size(in / "f.2.exr") / 2);
    const auto run =
        RunTool("apply --frames 1-3 " + Quote(bent) + " " + Quote((in / "f.#.exr").string()) + " " +
                Quote((out / "f.#.exr").string()));
    EXPECT_EQ(run.status, 1) << c.what;
    EXPECT_NE(run.err.find(c.said), std::string::npos) << c.what << ": " << run.err;
    EXPECT_NE(run.err.find((in / "f.2.exr").string()), std::string::npos) << run.err;
    std::vector<std::string> written;
    for (const auto& entry : fs::directory_iterator(out))
      written.push_back(entry.path().filename().string());
    EXPECT_EQ(written, std::vector<std::string>{"f.1.exr"}) << c.what;
  }
}

TEST_F(ToolApplySequence, VerboseAccountsForTheWholeRunInPartsThatAddUp) {
  for (int n = 1; n <= 3; ++n)
    WriteFrame(dir.Path() / ("f." + std::to_string(n) + ".exr"), OIIO::TypeDesc::HALF, 3, n, 300);
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunTool("apply --verbose --frames 1-3 " + Quote(bent) + " " +
                           Quote((dir.Path() / "f.#.exr").string()) + " " +
                           Quote((dir.Path() / "g.#.exr").string()));
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
  // Each figure is rounded to 0.1 ms; the start is known to the system's 10 ms clock tick.
  EXPECT_NEAR(part[0] + part[1] + part[2] + part[3] + part[4] + part[5], total, 0.35);
  EXPECT_LE(total, outsideMs + 10.0);
  for (double p : part)
    EXPECT_GE(p, 0.0) << run.err;
  EXPECT_GT(part[0], 0.0) << "start-up counts from the process's start";
  EXPECT_LE(beside, reading);
  EXPECT_LE(reading - beside, part[2] + 0.1) << "what was not beside the rest was waited for";
}
