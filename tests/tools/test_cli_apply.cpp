// crandle apply on image files: results against the look's own formula, what is kept (alpha,
// metadata, depth), sequences and folders, and failures that write nothing and replace nothing.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

// An affine look: trilinear interpolation reproduces it exactly between grid points.
void Affine(double r, double g, double b, double out[3]) {
  out[0] = 0.5 * r + 0.25;
  out[1] = 0.8 * g;
  out[2] = 0.25 + 0.5 * b;
}

// Samples below 0.9, clear of the last cell where the sampler's clamp bends the result; `seed`
// tells frames apart.
std::vector<float> Samples(int width, int height, int channels, int seed) {
  std::vector<float> samples(size_t(width) * height * channels);
  for (size_t i = 0; i < samples.size(); ++i) {
    const size_t x = i / channels % width, y = i / channels / width, c = i % channels;
    samples[i] = float(0.05 + 0.8 * ((x * 3 + y * 5 + c * 7 + seed) % 17) / 16.0);
  }
  return samples;
}

class ToolApply : public testing::Test {
 protected:
  TempDir dir;
  std::string lut = Quote(dir.Write("affine.cube", CubeText3D(9, Affine))) + " ";

  fs::path Image(const std::string& name, TypeDesc type, int channels, int seed = 0, int width = 7,
                 int height = 5) {
    const fs::path path = dir.Path() / name;
    WriteImageFile(path, type, width, height, channels, Samples(width, height, channels, seed));
    return path;
  }
  // Every pixel of `output` is the look of `input`'s (a grey input's grey on every channel),
  // in colour, with the input's alpha.
  static void ExpectGraded(const fs::path& input, const fs::path& output, double tolerance) {
    const SImageFile in = ReadImageFile(input), out = ReadImageFile(output);
    ASSERT_EQ(out.width * out.height, in.width * in.height) << output;
    ASSERT_EQ(out.channels, std::max(in.channels, 3)) << output;
    for (int p = 0; p < in.width * in.height; ++p) {
      const float* was = &in.samples[size_t(p) * in.channels];
      const float* got = &out.samples[size_t(p) * out.channels];
      double expected[3];
      const bool grey = in.channels == 1;
      Affine(was[0], was[grey ? 0 : 1], was[grey ? 0 : 2], expected);
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(got[c], expected[c], tolerance) << output << " pixel " << p << " channel " << c;
      if (in.channels == 4) {
        EXPECT_EQ(got[3], was[3]) << output << " alpha of pixel " << p;
      }
    }
  }
};

// The look on every pixel, the depth kept or as --depth asks, the metadata kept, a grey input
// given colour, a preview beside, and the same samples on any number of strips.
TEST_F(ToolApply, ResultsDepthMetadataAndPreview) {
  const fs::path preview = dir.Path() / "preview.png";
  const struct {
    const char* input;
    TypeDesc type;
    int channels;
    std::string flags;
    const char* output;
    TypeDesc format;
    double tolerance;
  } cases[] = {
      // The colour as stored (associated with alpha), so that the affine look is exact.
      {"in.tif", TypeDesc::UINT16, 4, "--premultiplied", "out.tif", TypeDesc::UINT16, 1.5 / 65535},
      // The float output keeps the 8-bit input's value exactly, converted once into float.
      {"grey.png", TypeDesc::UINT8, 1, "--depth float --preview " + Quote(preview), "grey.exr",
       TypeDesc::FLOAT, 1e-5},
      // An existing file is never read as a frame-number pattern.
      {"take#2.exr", TypeDesc::HALF, 3, "", "graded#2.exr", TypeDesc::HALF, 1e-3},
      {"in.exr", TypeDesc::HALF, 3, "--threads 3", "three.exr", TypeDesc::HALF, 1e-3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.output);
    const fs::path input = Image(c.input, c.type, c.channels, 0, 64, 37);
    const fs::path output = dir.Path() / c.output;
    const auto run = RunTool("apply " + c.flags + " " + lut + Quote(input) + " " + Quote(output));
    ASSERT_EQ(run.status, 0) << run.err;
    ExpectGraded(input, output, c.tolerance);
    const SImageFile out = ReadImageFile(output);
    EXPECT_EQ(out.format, c.format);
    EXPECT_EQ(out.description, "made by the crandle tests");
  }
  EXPECT_EQ(ReadImageFile(dir.Path() / "graded#2.exr").samples,
            ReadImageFile(dir.Path() / "three.exr").samples);
  const SImageFile side = ReadImageFile(preview);
  EXPECT_EQ(side.width, 2 * 64);
  EXPECT_EQ(side.height, 37);
  EXPECT_EQ(side.format, TypeDesc::UINT8);
}

TEST_F(ToolApply, SequencesTakeTheirStepsAndStopBeforeWritingWhenAFrameIsMissing) {
  for (const std::string frame : {"0007", "0008", "0009", "0011"})
    Image("s." + frame + ".exr", TypeDesc::FLOAT, 3, std::stoi(frame));
  auto frames = [&](const std::string& range) {
    return RunTool("apply --frames " + range + " " + lut + Quote(dir.Path() / "s.####.exr") + " " +
                   Quote(dir.Path() / "g.%03d.exr"));
  };
  auto written = [&] {
    std::set<std::string> names;
    for (const auto& name : FileNames(dir.Path()))
      if (name[0] == 'g') names.insert(name);
    return names;
  };
  const auto stepped = frames("7-11x2");  // passes over the missing 10
  ASSERT_EQ(stepped.status, 0) << stepped.err;
  EXPECT_EQ(written(), (std::set<std::string>{"g.007.exr", "g.009.exr", "g.011.exr"}));
  ExpectGraded(dir.Path() / "s.0009.exr", dir.Path() / "g.009.exr", 1e-5);
  // 10 and 12 are missing; 8 comes first but must not be written.
  EXPECT_TRUE(Ended(frames("8-12"), 1,
                    "frame 10 is missing or cannot be read (" +
                        (dir.Path() / "s.0010.exr").string() +
                        "), and 1 more frame of 8-12; nothing was written"));
  EXPECT_EQ(written().size(), 3u);
}

TEST_F(ToolApply, FolderInFolderOut) {
  const fs::path in = dir.Path() / "plates", out = dir.Path() / "graded" / "deeper";
  fs::create_directories(in / "sub.exr");
  Image("plates/b.exr", TypeDesc::FLOAT, 3, 1);
  Image("plates/a.tif", TypeDesc::FLOAT, 3, 2);
  Image("plates/.hidden.exr", TypeDesc::FLOAT, 3);
  dir.Write("plates/notes.txt", "not an image");
  dir.Write("plates/clip.mov", "a movie is not taken from a folder");
  const auto run = RunTool("apply --verbose " + lut + Quote(in) + " " + Quote(out));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(FileNames(out), (std::set<std::string>{"a.tif", "b.exr"}));
  ExpectGraded(in / "b.exr", out / "b.exr", 1e-5);
  // In name order, each on as many strips as there are cores.
  EXPECT_LT(run.err.find((in / "a.tif").string()), run.err.find((in / "b.exr").string()))
      << run.err;
  std::string strips = "(";
  strips += std::to_string(std::max(1u, std::thread::hardware_concurrency())) + " strips)";
  EXPECT_NE(run.err.find(strips), npos) << run.err;
  EXPECT_EQ(FileNames(in), (std::set<std::string>{".hidden.exr", "a.tif", "b.exr", "clip.mov",
                                                  "notes.txt", "sub.exr"}));
}

std::string Hostile(const std::string& name) {
  return Quote(fs::path(CRANDLE_TEST_DATA_DIR) / "hostile" / name);
}

// Each failure ends with status 1 and its reason within seconds, leaves no file behind (not even
// a partial one) and replaces nothing.
TEST_F(ToolApply, FailuresSayWhyAndWriteNothing) {
  const std::string rgb = Quote(Image("rgb.exr", TypeDesc::HALF, 3)) + " ";
  const std::string rgba = Quote(Image("rgba.png", TypeDesc::UINT8, 4)) + " ";
  const std::string junk = Quote(dir.Write("junk.png", "not an image at all")) + " ";
  const std::string animation = (dir.Path() / "two.gif").string();  // as a movie would be
  {
    const OIIO::ImageSpec spec(2, 1, 3, TypeDesc::UINT8), specs[2] = {spec, spec};
    const unsigned char samples[6] = {10, 20, 30, 40, 50, 60};
    auto out = OIIO::ImageOutput::create(animation);
    ASSERT_TRUE(out && out->open(animation, 2, specs) &&
                out->write_image(TypeDesc::UINT8, samples));
    ASSERT_TRUE(out->open(animation, spec, OIIO::ImageOutput::AppendSubimage) &&
                out->write_image(TypeDesc::UINT8, samples) && out->close());
  }
  const std::string readOnly = dir.Write("read-only.exr", "kept");
  ::chmod(readOnly.c_str(), 0444);
  const std::string out = Quote(dir.Write("out.png", "what was there before"));
  const std::string path = (dir.Path() / "out").string();
  const struct {
    std::string arguments;
    std::string message;
  } cases[] = {
      {junk + out, "cannot read"},
      {Hostile("tiff_strip_20_of_48_bytes.tif") + " " + out, "cannot read"},
      {Hostile("png_declaring_100000_by_100000_pixels.png") + " " + out,
       "more than this machine's memory"},
      {rgb + path + ".nosuchformat", "cannot write"},
      {rgb + out + " --depth float",
       "PNG files cannot hold --depth float samples; they hold --depth 8 or 16"},
      {rgb + path + ".jpg --depth 16",
       "JPEG files cannot hold --depth 16 samples; they hold --depth 8"},
      {rgba + path + ".jpg", "JPEG files cannot hold the input's alpha channel"},
      {Quote(animation) + " " + out, "a movie"},
      {rgb + Quote(readOnly), "read-only; it is not replaced"},
      // The output is written before the preview fails, and is dropped.
      {rgb + path + ".exr --preview " + path + ".nosuchformat", "cannot write the preview"},
      {rgb + path + ".exr --preview " + Quote(dir.Path() / "missing" / "p.png"),
       "cannot write the preview " + (dir.Path() / "missing" / "p.png").string() + ": the folder " +
           (dir.Path() / "missing").string() + " does not exist"},
  };
  const auto before = FileNames(dir.Path());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Ended(RunTool("apply " + lut + c.arguments), 1, c.message));
    // Not a speed check: refusing must not mean decoding first (one declares 10^10 pixels).
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    EXPECT_EQ(FileNames(dir.Path()), before);
  }
  EXPECT_EQ(ReadFileBytes(readOnly), "kept");
  EXPECT_EQ(ReadFileBytes((dir.Path() / "out.png").string()), "what was there before");
}

// Memory that runs out inside a command ends it with a message and status 1, not an abort: an
// image small enough for the machine, read whole (a change of depth goes through whole pictures),
// is refused by an address-space limit set for the run.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(ToolApply, MemoryThatRunsOutEndsTheCommandWithAMessage) {
  const std::string err = (dir.Path() / "err").string();
  const std::string command = "ulimit -v 1000000; " + Quote(CRANDLE_CLI_PATH) +
                              " apply --depth 16 " + lut +
                              Hostile("png_declaring_20000_by_20000_pixels.png") + " " +
                              Quote(dir.Path() / "out.png") + " 2>" + Quote(err);
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_NE(ReadFileBytes(err).find("not enough memory"), npos) << ReadFileBytes(err);
}
#endif

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
                out->write_image(TypeDesc::FLOAT, pixels.data()) && out->close());
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
      {"exr", "exr", TypeDesc::HALF, 3, 0, false},
      {"exr", "exr", TypeDesc::FLOAT, 4, 0, false},  // divided by alpha and back
      {"tif", "exr", TypeDesc::FLOAT, 4, 0, true},   // multiplied for the writer
      {"tif", "tif", TypeDesc::UINT16, 3, 0, false},
      {"tif", "tif", TypeDesc::UINT16, 4, 0, false},  // integers divided by alpha
      {"tif", "tif", TypeDesc::UINT8, 4, 0, false},
      {"dpx", "dpx", TypeDesc::UINT16, 3, 10, false},
      {"png", "png", TypeDesc::UINT8, 4, 0, true},
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
      WriteFrame("in", "exr", TypeDesc::HALF, 3, n, n == 2 ? c.secondHeight : 1100);
    const fs::path second = Frame("in", "exr", 2);
    if (c.cutShort) fs::resize_file(second, fs::file_size(second) / 2);
    fs::remove_all(dir.Path() / "out");
    fs::create_directories(dir.Path() / "out");
    const auto run = RunTool("apply --frames 1-3 " + Quote(bent) + " " + Pattern("in", "exr") +
                             " " + Pattern("out", "exr"));
    EXPECT_TRUE(Ended(run, 1, c.said));
    EXPECT_TRUE(Ended(run, 1, second.string()));
    EXPECT_EQ(FileNames(dir.Path() / "out"), std::set<std::string>{"f.1.exr"}) << c.said;
  }
}

TEST_F(ToolApplySequence, VerboseAccountsForTheWholeRunInPartsThatAddUp) {
  for (int n = 1; n <= 3; ++n)
    WriteFrame("in", "exr", TypeDesc::HALF, 3, n, 300);
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunTool("apply --verbose --frames 1-3 " + Quote(bent) + " " +
                           Pattern("in", "exr") + " " + Pattern("in", "out.exr"));
  const double outsideMs =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  ASSERT_EQ(run.status, 0) << run.err;
  const size_t last = run.err.rfind('\n', run.err.size() - 2);
  ASSERT_NE(last, npos) << run.err;
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

// Frames graded as they are read hold a few bands, not frames: two 67 MB frames take hardly more
// memory than one tiny frame. (A sanitizer keeps freed memory aside, so the figures mean nothing
// there.)
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(ToolApplySequence, MemoryStaysWithinAFewBandsWhateverTheFramesAndTheirCount) {
  const auto peak = [&](int frames, int height) {
    for (int n = 1; n <= frames; ++n)
      WriteFrame("in", "exr", TypeDesc::FLOAT, 4, n, height);
    const auto run =
        RunTool("apply --verbose --frames 1-" + std::to_string(frames) + " " + Quote(bent) + " " +
                Pattern("in", "exr") + " " + Pattern("in", "out.exr"));
    EXPECT_EQ(run.status, 0) << run.err;
    const size_t at = run.err.rfind("peak memory ");
    return at == npos ? 1e9 : std::atof(run.err.c_str() + at + 12);
  };
  const double tiny = peak(1, 8);
  const double frameMB = 257.0 * 16384 * 16 / (1 << 20);
  EXPECT_LT(peak(2, 16384) - tiny, frameMB / 2) << "one frame is " << frameMB << " MB";
}
#endif

}  // namespace crandle_test
