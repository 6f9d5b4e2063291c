// The tool as a Unix command: exit statuses, usage errors, settings warnings, sequences and
// folders of images.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

#include "lut/formats/reader.h"
#include "lut/lut_writers.h"
#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::RunTool;
using crandle_test::TempDir;
namespace fs = std::filesystem;

std::string Quote(const fs::path& path) {
  return crandle_test::Quote(path.string());
}

// Halves every channel and adds a quarter: trilinear interpolation reproduces it exactly.
void Affine(double r, double g, double b, double out[3]) {
  out[0] = 0.5 * r + 0.25;
  out[1] = 0.5 * g + 0.25;
  out[2] = 0.5 * b + 0.25;
}

// A 4x2 RGB image whose samples are value + 0.1 * channel.
void WriteImage(const fs::path& path, float value) {
  OIIO::ImageSpec spec(4, 2, 3, OIIO::TypeDesc::FLOAT);
  std::vector<float> pixels(4 * 2 * 3);
  for (size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = value + 0.1f * float(i % 3);
  auto out = OIIO::ImageOutput::create(path.string());
  ASSERT_TRUE(out && out->open(path.string(), spec) &&
              out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && out->close())
      << path;
}

// The first pixel of an image, or nothing when it cannot be read.
std::vector<float> FirstPixel(const fs::path& path) {
  auto in = OIIO::ImageInput::open(path.string());
  if (!in) return {};
  std::vector<float> pixels(size_t(in->spec().width) * in->spec().height * 3);
  if (!in->read_image(0, 0, 0, 3, OIIO::TypeDesc::FLOAT, pixels.data())) return {};
  return {pixels[0], pixels[1], pixels[2]};
}

// The file names in a folder.
std::set<std::string> Names(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder))
    names.insert(entry.path().filename().string());
  return names;
}

class ToolUnix : public testing::Test {
 protected:
  TempDir dir;
  std::string lut = dir.Write("affine.cube", crandle_test::CubeText3D(5, Affine));
  fs::path image = dir.Path() / "in.exr";
  void SetUp() override { WriteImage(image, 0.2f); }
};

TEST_F(ToolUnix, ExitStatusesAndWhatIsSaid) {
  const std::string pattern = Quote(dir.Path() / "shot.####.exr") + " ";
  const std::string out = Quote(dir.Path() / "out.exr");
  const std::string apply = "apply " + Quote(lut) + " ";
  const struct {
    std::string arguments;
    int status;
    std::string err;  // part of standard error ("" for none expected)
    std::string out;  // part of standard output
  } cases[] = {
      {"--version", 0, "", std::string("crandle ") + CRANDLE_VERSION + "\n"},
      {"", 2,
       "crandle: a command is needed: info, apply, eval, look, convert, check, plot, formats\n",
       ""},
      {"--set a=b frobnicate x", 2, "crandle: unknown command 'frobnicate'", ""},
      {"look frobnicate", 2, "crandle look: unknown command 'frobnicate'", ""},
      {"look", 2, "crandle look: a command is needed: show, pack\n", ""},
      {"apply", 2, "LUT is required", ""},
      {"apply --threads 0 a b c", 2, "--threads", ""},
      {"apply --depth 12 a b c", 2, "--depth", ""},
      {"--set nonsense info --system", 2, "expected KEY=VALUE", ""},
      // A command line that cannot mean anything is a usage error, found before any work.
      {"apply --frames 1005-1001 " + Quote(lut) + " " + pattern + Quote(dir.Path() / "g.####.exr"),
       2, "--frames 1005-1001: the range runs backwards", ""},
      {"apply --frames 1-2 " + Quote(lut) + " " + Quote(image) + " " + out, 2,
       "--frames needs an input with a frame-number field", ""},
      {apply + pattern + Quote(dir.Path() / "g.####.exr"), 2, "a sequence needs --frames", ""},
      {"apply --frames 1 " + Quote(lut) + " " + pattern + out, 2,
       "the output needs a frame-number field", ""},
      // Settings: a key nothing reads is kept, with a warning; a known key is taken quietly.
      {"--set Colour.Nothing=1 info --system", 0,
       "crandle: warning: --set Colour.Nothing: no part of crandle reads this key", ""},
      {"--set ColorTransforms.EnableFloatLUTs=false info " + Quote(lut), 0, "", ""},
  };
  for (const auto& c : cases) {
    const auto run = RunTool(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    EXPECT_TRUE(c.err.empty() ? run.err.empty() : run.err.find(c.err) != std::string::npos)
        << c.arguments << "\n"
        << run.err;
    EXPECT_NE(run.out.find(c.out), std::string::npos) << c.arguments << "\n" << run.out;
  }
  EXPECT_FALSE(fs::exists(dir.Path() / "out.exr"));
}

// Commands that touch no image never load the image library, so they start at once; the image
// commands module is opened by the first command that needs it, and a missing one is named.
TEST_F(ToolUnix, TheImageLibraryIsLoadedOnlyByCommandsThatTouchImages) {
  const std::string missing = (dir.Path() / "missing.so").string();
  const std::string apply =
      "apply " + Quote(lut) + " " + Quote(image) + " " + Quote(dir.Path() / "out.exr");
  const struct {
    std::string module;  // CRANDLE_IMAGE_MODULE; empty for the module's usual place
    std::string arguments;
    int status;
    bool imageLibraryLoaded;
    std::string err;  // part of standard error
  } cases[] = {
      {"", "--version", 0, false, ""},
      {"", "--help", 0, false, ""},
      {"", "info " + Quote(lut), 0, false, ""},
      {"", "eval " + Quote(lut), 0, false, ""},
      {"", apply, 0, true, ""},
      {missing, "info " + Quote(lut), 0, false, ""},
      {missing, apply, 1, false, "crandle apply: cannot load the image commands: " + missing},
      {"libm.so.6", "plot " + Quote(lut) + " -o " + Quote(dir.Path() / "plot.png"), 1, false,
       "crandle plot: libm.so.6 is not crandle's image commands module\n"},
  };
  // The loader's record of every library it loads, one file per process (the shell's too).
  const fs::path trace = dir.Path() / "loader";
  ::setenv("LD_DEBUG", "libs", 1);
  ::setenv("LD_DEBUG_OUTPUT", trace.c_str(), 1);
  for (const auto& c : cases) {
    ::setenv("CRANDLE_IMAGE_MODULE", c.module.c_str(), 1);
    const auto run = RunTool(c.arguments, "0.5 0.25 1\n");
    std::string loaded;
    for (const auto& entry : fs::directory_iterator(dir.Path())) {
      if (entry.path().stem() != trace.filename()) continue;
      loaded += crandle_test::ReadFileBytes(entry.path().string());
      fs::remove(entry.path());
    }
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    EXPECT_NE(loaded.find("calling init"), std::string::npos) << c.arguments;
    EXPECT_EQ(loaded.find("libOpenImageIO") != std::string::npos, c.imageLibraryLoaded)
        << c.arguments;
    EXPECT_NE(run.err.find(c.err), std::string::npos) << c.arguments << "\n" << run.err;
  }
  for (const char* name : {"LD_DEBUG", "LD_DEBUG_OUTPUT", "CRANDLE_IMAGE_MODULE"})
    ::unsetenv(name);
}

TEST_F(ToolUnix, SettingsFileFromTheEnvironmentWarnsWhenItCannotBeRead) {
  const std::string absent = (dir.Path() / "absent.settings").string();
  const std::string bad = dir.Write("bad.settings", "this line has no equals sign\n");
  const std::pair<std::string, std::string> cases[] = {
      {dir.Write("good.settings", "ColorTransforms.EnableFloatLUTs = true\n"), ""},
      {absent, "crandle: warning: CRANDLE_SETTINGS names " + absent + ", which does not exist"},
      {bad, "crandle: warning: CRANDLE_SETTINGS: " + bad + ": "},
  };
  for (const auto& [file, warning] : cases) {
    ::setenv("CRANDLE_SETTINGS", file.c_str(), 1);
    const auto run = RunTool("info " + Quote(lut));
    ::unsetenv("CRANDLE_SETTINGS");
    EXPECT_EQ(run.status, 0) << file << "\n" << run.err;
    EXPECT_TRUE(warning.empty() ? run.err.empty() : run.err.rfind(warning, 0) == 0) << run.err;
  }
}

TEST_F(ToolUnix, SequencesTakeTheirStepsAndStopBeforeWritingWhenAFrameIsMissing) {
  // Frames 7, 8, 9 and 11 exist, frame f holding 0.1 * (f - 6) in red.
  for (const long frame : {7, 8, 9, 11}) {
    char name[32];
    std::snprintf(name, sizeof(name), "s.%04ld.exr", frame);
    WriteImage(dir.Path() / name, 0.1f * float(frame - 6));
  }
  auto frames = [&](const std::string& range) {
    return RunTool("apply --frames " + range + " " + Quote(lut) + " " +
                   Quote(dir.Path() / "s.####.exr") + " " + Quote(dir.Path() / "g.%03d.exr"));
  };
  const auto stepped = frames("7-11x2");  // passes over the missing 10
  ASSERT_EQ(stepped.status, 0) << stepped.err;
  auto written = [&] {
    std::set<std::string> names;
    for (const auto& name : Names(dir.Path()))
      if (name[0] == 'g') names.insert(name);
    return names;
  };
  EXPECT_EQ(written(), (std::set<std::string>{"g.007.exr", "g.009.exr", "g.011.exr"}));
  // Each frame's own picture went to its own output.
  const std::vector<float> nine = FirstPixel(dir.Path() / "g.009.exr");
  ASSERT_EQ(nine.size(), 3u);
  EXPECT_NEAR(nine[0], 0.5 * 0.3 + 0.25, 1e-5);
  EXPECT_NEAR(nine[1], 0.5 * 0.4 + 0.25, 1e-5);
  // 10 and 12 are missing; 8 comes first but must not be written.
  const auto missing = frames("8-12");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.err.find("frame 10 is missing or cannot be read (" +
                             (dir.Path() / "s.0010.exr").string() +
                             "), and 1 more frame of 8-12; nothing was written"),
            std::string::npos)
      << missing.err;
  EXPECT_EQ(written().size(), 3u);
}

TEST_F(ToolUnix, AnExistingFileIsNeverReadAsAPattern) {
  WriteImage(dir.Path() / "take#2.exr", 0.2f);
  const auto run = RunTool("apply " + Quote(lut) + " " + Quote(dir.Path() / "take#2.exr") + " " +
                           Quote(dir.Path() / "graded#2.exr"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(fs::exists(dir.Path() / "graded#2.exr"));
}

TEST_F(ToolUnix, FolderInFolderOut) {
  const fs::path in = dir.Path() / "plates", out = dir.Path() / "graded" / "deeper";
  fs::create_directories(in / "sub.exr");
  WriteImage(in / "b.exr", 0.6f);
  WriteImage(in / "a.tif", 0.2f);
  WriteImage(in / ".hidden.exr", 0.2f);
  dir.Write("plates/notes.txt", "not an image");
  dir.Write("plates/clip.mov", "a movie is not taken from a folder");
  const auto run = RunTool("apply --verbose " + Quote(lut) + " " + Quote(in) + " " + Quote(out));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Names(out), (std::set<std::string>{"a.tif", "b.exr"}));
  const std::vector<float> b = FirstPixel(out / "b.exr");
  ASSERT_EQ(b.size(), 3u);
  EXPECT_NEAR(b[0], 0.5 * 0.6 + 0.25, 1e-5);
  // In name order, each on as many strips as there are cores.
  const size_t first = run.err.find((in / "a.tif").string());
  EXPECT_LT(first, run.err.find((in / "b.exr").string())) << run.err;
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  EXPECT_NE(run.err.find("(" + std::to_string(cores) + " strips)"), std::string::npos) << run.err;

  fs::create_directory(dir.Path() / "empty");
  dir.Write("empty/readme.txt", "x");
  const std::string never = " " + Quote(dir.Path() / "never");
  const struct {
    std::string arguments;
    int status;
    std::string err;
  } cases[] = {
      {Quote(in) + " " + Quote(in), 2, "the output folder is the input folder"},
      {Quote(in) + " " + Quote(image), 2, "the output must be a folder too"},
      {Quote(dir.Path() / "empty") + never, 1, "no image files in the folder"},
      {"--frames 1-2 " + Quote(in) + never, 2, "--frames needs"},
  };
  for (const auto& c : cases) {
    const auto failed = RunTool("apply " + Quote(lut) + " " + c.arguments);
    EXPECT_EQ(failed.status, c.status) << c.arguments;
    EXPECT_NE(failed.err.find(c.err), std::string::npos) << failed.err;
  }
  EXPECT_FALSE(fs::exists(dir.Path() / "never"));
  EXPECT_EQ(Names(in), (std::set<std::string>{".hidden.exr", "a.tif", "b.exr", "clip.mov",
                                              "notes.txt", "sub.exr"}));
}

TEST_F(ToolUnix, LookPackTakesAGuidInEitherFormAndRefusesAnythingElse) {
  const fs::path look = dir.Path() / "grade.look";
  auto pack = [&](const std::string& guid) {
    fs::remove(look);
    return RunTool("look pack " + Quote(lut) + " -o " + Quote(look) + " --guid '" + guid + "'");
  };
  const std::pair<std::string, std::string> written[] = {
      {"0f8fad5bd9cb469fa16570867728950e", "0F8FAD5BD9CB469FA16570867728950E"},
      {"0F8FAD5B-D9CB-469F-A165-70867728950E", "0F8FAD5BD9CB469FA16570867728950E"},
      {"{00112233-4455-6677-8899-aabbccddeeff}", "00112233445566778899AABBCCDDEEFF"},
  };
  for (const auto& [guid, hex] : written) {
    ASSERT_EQ(pack(guid).status, 0) << guid;
    EXPECT_NE(RunTool("look show " + Quote(look)).out.find("guid          " + hex + "\n"),
              std::string::npos)
        << guid;
  }
  // The digits themselves are the GUID type's own tests; here the dashes and braces around them.
  for (const char* guid :
       {"0f8fad5bd-9cb-469f-a165-70867728950e", "{0f8fad5b-d9cb-469f-a165-70867728950e",
        "0f8fad5b-d9cb-469f-a165-70867728950e}"}) {
    const auto refused = pack(guid);
    EXPECT_EQ(refused.status, 2) << guid;
    EXPECT_NE(refused.err.find("--guid"), std::string::npos) << refused.err;
    EXPECT_FALSE(fs::exists(look)) << guid;
  }
}

TEST_F(ToolUnix, LookShowRefusesAFileThatIsNotAPayload) {
  const fs::path look = dir.Path() / "grade.look", payload = dir.Path() / "grade.payload";
  ASSERT_EQ(
      RunTool("look pack " + Quote(lut) + " -o " + Quote(look) + " --payload " + Quote(payload))
          .status,
      0);
  const std::string bytes = crandle_test::ReadFileBytes(payload.string());
  const std::string cutShort =
      "its records do not fill the file: a record is cut short or runs past the end";
  // One record: 16 identifier bytes, a 4-byte length, the LUT's bytes.
  const std::pair<std::string, std::string> cases[] = {
      {bytes + bytes, ""},  // reason, or "" for a payload read
      {"", "the file is empty"}, {bytes.substr(0, bytes.size() - 1), cutShort},
      {bytes + "x", cutShort},   {bytes.substr(0, 19), cutShort},
  };
  for (const auto& [content, reason] : cases) {
    const std::string path = dir.Write("case.bin", content);
    const auto run = RunTool("look show --json " + Quote(look) + " --payload " + Quote(path));
    EXPECT_EQ(run.status, reason.empty() ? 0 : 1) << content.size() << "\n" << run.err;
    if (reason.empty()) {
      EXPECT_NE(run.out.find("\"luts\":[{"), std::string::npos) << run.out;
    } else {
      EXPECT_EQ(run.err,
                "crandle look show: " + path + ": not an embedded-LUT payload (" + reason + ")\n");
      EXPECT_EQ(run.out, "") << content.size();
    }
  }
}

// The lines of `text` after the line beginning with `from` that begin with two spaces.
std::vector<std::string> Section(const std::string& text, const std::string& from) {
  std::vector<std::string> lines;
  if (text.find(from) == std::string::npos) return lines;
  std::istringstream stream(text.substr(text.find(from)));
  std::string line;
  std::getline(stream, line);
  while (std::getline(stream, line) && line.rfind("  ", 0) == 0)
    lines.push_back(line);
  return lines;
}

std::vector<std::string> Words(const std::string& line) {
  std::istringstream words(line);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

TEST_F(ToolUnix, FormatsListsWhatIsReadAndWrittenTruthfully) {
  const auto run = RunTool("formats");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  // Every reader of the detector, in its order, with the extensions its files carry.
  const auto read = Section(run.out, "LUT formats read");
  const auto readers = Tincta::LUTFormatReaders();
  ASSERT_EQ(read.size(), readers.size()) << run.out;
  for (size_t i = 0; i < readers.size(); ++i) {
    EXPECT_EQ(read[i].rfind(std::string("  ") + readers[i].name + " ", 0), 0u) << read[i];
    EXPECT_NE(read[i].find(" ."), std::string::npos) << read[i];
  }
  for (const char* line : {"  cube                   .cube ", "  Truelight              .cub ",
                           "  mesh                   .3dl "})
    EXPECT_NE(run.out.find(line), std::string::npos) << line;

  // Every extension listed as written names a format convert writes.
  const auto written = Section(run.out, "LUT formats written");
  ASSERT_EQ(written.size(), Tincta::WrittenLUTFormats().size()) << run.out;
  for (const std::string& line : written) {
    const auto words = Words(line);
    ASSERT_GE(words.size(), 2u) << line;
    EXPECT_EQ(Tincta::LUTFormatNamed(words[0]), Tincta::LUTFormatNamed(words[1])) << line;
    EXPECT_TRUE(words[1][0] == '.' && Tincta::LUTFormatNamed(words[1])) << line;
  }

  // The image formats are those of the OpenImageIO in use, each line read/write flags first.
  std::set<std::string> names, expected;
  for (const std::string& line : Section(run.out, "Image formats of OpenImageIO")) {
    const auto words = Words(line);
    ASSERT_GE(words.size(), 3u) << line;
    names.insert(words[0]);
    EXPECT_TRUE(words[1] == "rw" || words[1] == "r-" || words[1] == "-w") << words[0];
  }
  std::istringstream list(OIIO::get_string_attribute("format_list"));
  for (std::string name; std::getline(list, name, ',');)
    expected.insert(name);
  EXPECT_EQ(names, expected);
  EXPECT_NE(run.out.find("\n  openexr      rw  .exr "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\n  png          rw  .png\n"), std::string::npos) << run.out;
}

}  // namespace
