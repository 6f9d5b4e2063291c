// The tool as a Unix command: exit statuses, usage errors, settings warnings, sequences and
// folders of images.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "lut/formats/reader.h"
#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::RunTool;
using crandle_test::TempDir;
namespace fs = std::filesystem;

std::string Quote(const fs::path& path) {
  return "'" + path.string() + "'";
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
  const std::string pattern = Quote(dir.Path() / "shot.####.exr");
  const std::string outPattern = Quote(dir.Path() / "out.####.exr");
  const std::string out = Quote(dir.Path() / "out.exr");
  struct Case {
    std::string arguments;
    int status;
    std::string err;  // part of standard error ("" for none expected)
    std::string out;  // part of standard output
  } cases[] = {
      {"--version", 0, "", std::string("crandle ") + CRANDLE_VERSION + "\n"},
      {"--help", 0, "", "Usage: crandle"},
      {"info --system", 0, "", std::string("version       crandle ") + CRANDLE_VERSION + "\n"},
      {"", 2, "crandle: a command is needed: info, apply, eval, look, convert, formats\n", ""},
      {"frobnicate", 2, "crandle: unknown command 'frobnicate'", ""},
      {"--set a=b frobnicate x", 2, "unknown command 'frobnicate'", ""},
      {"look frobnicate", 2, "crandle look: unknown command 'frobnicate'", ""},
      {"look", 2, "crandle look: a command is needed: show, pack\n", ""},
      {"info --bogus", 2, "--bogus", ""},
      {"apply", 2, "LUT is required", ""},
      {"apply --threads 0 a b c", 2, "--threads", ""},
      {"apply --depth 12 a b c", 2, "--depth", ""},
      {"--set nonsense info --system", 2, "expected KEY=VALUE", ""},
      {"info " + Quote(dir.Path() / "missing.cube"), 1, "missing.cube", ""},
      {"apply " + Quote(lut) + " " + Quote(dir.Path() / "none.exr") + " " + out, 1, "cannot read",
       ""},
      // A command line that cannot mean anything is a usage error, found before any work.
      {"apply --frames 1005-1001 " + Quote(lut) + " " + pattern + " " + outPattern, 2,
       "--frames 1005-1001: the range runs backwards; frames are applied from the first up, so "
       "write 1001-1005",
       ""},
      {"apply --frames 1001-1005x0 " + Quote(lut) + " " + pattern + " " + outPattern, 2,
       "the step after 'x' must be at least 1", ""},
      {"apply --frames 1-2 " + Quote(lut) + " " + Quote(image) + " " + out, 2,
       "--frames needs an input with a frame-number field", ""},
      {"apply " + Quote(lut) + " " + pattern + " " + outPattern, 2, "a sequence needs --frames",
       ""},
      {"apply --frames 1 " + Quote(lut) + " " + pattern + " " + out, 2,
       "the output needs a frame-number field", ""},
      // Settings: a key nothing reads is kept, with a warning; a known key is taken quietly.
      {"--set Colour.Nothing=1 info --system", 0,
       "crandle: warning: --set Colour.Nothing: no part of crandle reads this key", ""},
  };
  for (const auto& c : cases) {
    const auto run = RunTool(c.arguments);
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.err;
    if (c.err.empty()) {
      EXPECT_EQ(run.err, "") << c.arguments;
    } else {
      EXPECT_NE(run.err.find(c.err), std::string::npos) << c.arguments << "\n" << run.err;
    }
    EXPECT_NE(run.out.find(c.out), std::string::npos) << c.arguments << "\n" << run.out;
  }
  EXPECT_FALSE(fs::exists(dir.Path() / "out.exr"));
  const auto known = RunTool("--set ColorTransforms.EnableFloatLUTs=false info " + Quote(lut));
  EXPECT_EQ(known.status, 0);
  EXPECT_EQ(known.err, "");
}

TEST_F(ToolUnix, SettingsFileFromTheEnvironmentWarnsWhenItCannotBeRead) {
  const std::string good = dir.Write("good.settings", "ColorTransforms.EnableFloatLUTs = true\n");
  const std::string bad = dir.Write("bad.settings", "this line has no equals sign\n");
  struct Case {
    std::string file;
    std::string warning;
  } cases[] = {
      {good, ""},
      {(dir.Path() / "absent.settings").string(), "crandle: warning: CRANDLE_SETTINGS names " +
                                                      (dir.Path() / "absent.settings").string() +
                                                      ", which does not exist"},
      {bad, "crandle: warning: CRANDLE_SETTINGS: " + bad + ": "},
  };
  for (const auto& c : cases) {
    ::setenv("CRANDLE_SETTINGS", c.file.c_str(), 1);
    const auto run = RunTool("info " + Quote(lut));
    ::unsetenv("CRANDLE_SETTINGS");
    EXPECT_EQ(run.status, 0) << c.file << "\n" << run.err;
    if (c.warning.empty()) {
      EXPECT_EQ(run.err, "") << c.file;
    } else {
      EXPECT_EQ(run.err.rfind(c.warning, 0), 0u) << run.err;
    }
  }
}

TEST_F(ToolUnix, SequencePatternsWithSteps) {
  // Frames 7..11 exist; each pattern form names them its own way.
  struct Case {
    const char* input;   // pattern and the files it names
    const char* output;  // pattern
    const char* frames;
    std::set<std::string> written;
  } cases[] = {
      {"a.####.exr", "ga.####.exr", "7-11x2", {"ga.0007.exr", "ga.0009.exr", "ga.0011.exr"}},
      {"b.@@@.exr", "gb.%03d.exr", "7-10x3", {"gb.007.exr", "gb.010.exr"}},
      {"c.%02d.exr", "gc.@.exr", "9-11", {"gc.9.exr", "gc.10.exr", "gc.11.exr"}},
  };
  for (const auto& c : cases) {
    TempDir frames;
    for (long frame = 7; frame <= 11; ++frame) {
      char name[64];
      const std::string input = c.input;
      const std::string format = input.find('#') != std::string::npos   ? "a.%04ld.exr"
                                 : input.find('@') != std::string::npos ? "b.%03ld.exr"
                                                                        : "c.%02ld.exr";
      std::snprintf(name, sizeof(name), format.c_str(), frame);
      WriteImage(frames.Path() / name, 0.1f * float(frame - 6));
    }
    fs::create_directory(frames.Path() / "out");
    const auto run =
        RunTool("apply --frames " + std::string(c.frames) + " " + Quote(lut) + " " +
                Quote(frames.Path() / c.input) + " " + Quote(frames.Path() / "out" / c.output));
    ASSERT_EQ(run.status, 0) << c.input << "\n" << run.err;
    EXPECT_EQ(Names(frames.Path() / "out"), c.written) << c.input;
  }
  // The frame's own picture went to its own output: frame 9 holds 0.3 in red.
  TempDir check;
  WriteImage(check.Path() / "s.0009.exr", 0.3f);
  ASSERT_EQ(RunTool("apply --frames 9 " + Quote(lut) + " " + Quote(check.Path() / "s.####.exr") +
                    " " + Quote(check.Path() / "g.####.exr"))
                .status,
            0);
  const std::vector<float> red = FirstPixel(check.Path() / "g.0009.exr");
  ASSERT_EQ(red.size(), 3u);
  EXPECT_NEAR(red[0], 0.5 * 0.3 + 0.25, 1e-5);
  EXPECT_NEAR(red[1], 0.5 * 0.4 + 0.25, 1e-5);
}

TEST_F(ToolUnix, AMissingFrameStopsTheRunBeforeAnythingIsWritten) {
  for (long frame : {1001, 1002, 1004})
    WriteImage(dir.Path() / ("s." + std::to_string(frame) + ".exr"), 0.5f);
  // 1003 and 1005 are missing; frames 1001 and 1002 come first but must not be written.
  const auto run =
      RunTool("apply --frames 1001-1005 " + Quote(lut) + " " + Quote(dir.Path() / "s.####.exr") +
              " " + Quote(dir.Path() / "g.####.exr"));
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("frame 1003 is missing or cannot be read (" +
                         (dir.Path() / "s.1003.exr").string() +
                         "), and 1 more frame of 1001-1005; nothing was written"),
            std::string::npos)
      << run.err;
  for (const auto& name : Names(dir.Path()))
    EXPECT_NE(name.rfind("g.", 0), 0u) << name;
  // A stepped range that passes over the gap runs.
  const auto stepped =
      RunTool("apply --frames 1001-1004x3 " + Quote(lut) + " " + Quote(dir.Path() / "s.####.exr") +
              " " + Quote(dir.Path() / "g.####.exr"));
  EXPECT_EQ(stepped.status, 0) << stepped.err;
  EXPECT_TRUE(fs::exists(dir.Path() / "g.1004.exr"));
  EXPECT_FALSE(fs::exists(dir.Path() / "g.1002.exr"));
}

TEST_F(ToolUnix, AnExistingFileIsNeverReadAsAPattern) {
  WriteImage(dir.Path() / "take#2.exr", 0.2f);
  const auto run = RunTool("apply " + Quote(lut) + " " + Quote(dir.Path() / "take#2.exr") + " " +
                           Quote(dir.Path() / "graded#2.exr"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(fs::exists(dir.Path() / "graded#2.exr"));
}

TEST_F(ToolUnix, FolderInFolderOut) {
  const fs::path in = dir.Path() / "plates";
  fs::create_directory(in);
  WriteImage(in / "b.exr", 0.6f);
  WriteImage(in / "a.tif", 0.2f);
  WriteImage(in / ".hidden.exr", 0.2f);
  dir.Write("plates/notes.txt", "not an image");
  dir.Write("plates/clip.mov", "a movie is not taken from a folder");
  fs::create_directory(in / "sub.exr");
  const fs::path out = dir.Path() / "graded" / "deeper";
  const auto run = RunTool("apply --verbose " + Quote(lut) + " " + Quote(in) + " " + Quote(out));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(Names(out), (std::set<std::string>{"a.tif", "b.exr"}));
  const std::vector<float> b = FirstPixel(out / "b.exr");
  ASSERT_EQ(b.size(), 3u);
  EXPECT_NEAR(b[0], 0.5 * 0.6 + 0.25, 1e-5);
  // In name order, each on as many strips as there are cores.
  const size_t first = run.err.find((in / "a.tif").string());
  const size_t second = run.err.find((in / "b.exr").string());
  ASSERT_NE(first, std::string::npos) << run.err;
  ASSERT_NE(second, std::string::npos) << run.err;
  EXPECT_LT(first, second);
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  EXPECT_NE(run.err.find("(" + std::to_string(cores) + " strips)"), std::string::npos) << run.err;

  const fs::path empty = dir.Path() / "empty";
  fs::create_directory(empty);
  dir.Write("empty/readme.txt", "x");
  struct Case {
    std::string arguments;
    int status;
    std::string err;
  } cases[] = {
      {Quote(in) + " " + Quote(in), 2, "the output folder is the input folder"},
      {Quote(in) + " " + Quote(image), 2, "the output must be a folder too"},
      {Quote(empty) + " " + Quote(dir.Path() / "never"), 1, "no image files in the folder"},
      {"--frames 1-2 " + Quote(in) + " " + Quote(dir.Path() / "never"), 2, "--frames needs"},
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

TEST_F(ToolUnix, LookPackTakesAGuidInEitherForm) {
  const fs::path look = dir.Path() / "grade.look";
  struct Case {
    std::string guid;
    std::string written;  // empty: refused as a usage error
  } cases[] = {
      {"0f8fad5bd9cb469fa16570867728950e", "0F8FAD5BD9CB469FA16570867728950E"},
      {"0F8FAD5B-D9CB-469F-A165-70867728950E", "0F8FAD5BD9CB469FA16570867728950E"},
      {"{00112233-4455-6677-8899-aabbccddeeff}", "00112233445566778899AABBCCDDEEFF"},
      {"0f8fad5bd9cb469fa16570867728950", ""},
      {"0f8fad5bd9cb469fa16570867728950e0", ""},
      {"0f8fad5g-d9cb-469f-a165-70867728950e", ""},
      {"0f8fad5bd-9cb-469f-a165-70867728950e", ""},
      {"{0f8fad5b-d9cb-469f-a165-70867728950e", ""},
      {"0f8fad5b-d9cb-469f-a165-70867728950e}", ""},
      {"", ""},
  };
  for (const auto& c : cases) {
    fs::remove(look);
    const auto pack =
        RunTool("look pack " + Quote(lut) + " -o " + Quote(look) + " --guid '" + c.guid + "'");
    if (c.written.empty()) {
      EXPECT_EQ(pack.status, 2) << c.guid;
      EXPECT_NE(pack.err.find("--guid"), std::string::npos) << pack.err;
      EXPECT_FALSE(fs::exists(look)) << c.guid;
      continue;
    }
    ASSERT_EQ(pack.status, 0) << c.guid << "\n" << pack.err;
    EXPECT_NE(crandle_test::ReadFileBytes(look.string()).find("<guid>\"" + c.written + "\"</guid>"),
              std::string::npos)
        << c.guid;
    const auto show = RunTool("look show " + Quote(look));
    EXPECT_NE(show.out.find("guid          " + c.written + "\n"), std::string::npos) << show.out;
  }
}

TEST_F(ToolUnix, LookShowRefusesAFileThatIsNotAPayload) {
  const fs::path look = dir.Path() / "grade.look";
  const fs::path payload = dir.Path() / "grade.payload";
  ASSERT_EQ(
      RunTool("look pack " + Quote(lut) + " -o " + Quote(look) + " --payload " + Quote(payload))
          .status,
      0);
  const std::string bytes = crandle_test::ReadFileBytes(payload.string());
  // One record: 16 identifier bytes, a 4-byte length, the LUT's bytes.
  ASSERT_GT(bytes.size(), 20u);
  const uint32_t length = uint8_t(bytes[16]) | uint8_t(bytes[17]) << 8 | uint8_t(bytes[18]) << 16 |
                          uint32_t(uint8_t(bytes[19])) << 24;
  ASSERT_EQ(bytes.size(), 20u + length);
  struct Case {
    std::string name;
    std::string bytes;
    std::string reason;  // empty: read as a payload
  } cases[] = {
      {"whole.bin", bytes, ""},
      {"twice.bin", bytes + bytes, ""},
      {"empty.bin", "", "the file is empty"},
      {"short.bin", bytes.substr(0, bytes.size() - 1), "a record is cut short"},
      {"long.bin", bytes + "x", "a record is cut short"},
      {"header.bin", bytes.substr(0, 19), "a record is cut short"},
      {"text.bin", crandle_test::ReadFileBytes(look.string()), "a record is cut short"},
  };
  for (const auto& c : cases) {
    const std::string path = dir.Write(c.name, c.bytes);
    const auto run = RunTool("look show --json " + Quote(look) + " --payload " + Quote(path));
    if (c.reason.empty()) {
      EXPECT_EQ(run.status, 0) << c.name << "\n" << run.err;
      EXPECT_NE(run.out.find("\"luts\":[{"), std::string::npos) << run.out;
    } else {
      EXPECT_EQ(run.status, 1) << c.name;
      EXPECT_EQ(run.err, "crandle look show: " + path + ": not an embedded-LUT payload (" +
                             (c.reason == "the file is empty"
                                  ? c.reason
                                  : "its records do not fill the file: a record is cut short or "
                                    "runs past the end") +
                             ")\n");
      EXPECT_EQ(run.out, "") << c.name;
    }
  }
}

// The lines of `text` from the one after the line beginning with `from` up to the next line
// that does not begin with two spaces.
std::vector<std::string> Section(const std::string& text, const std::string& from) {
  std::vector<std::string> lines;
  size_t at = text.find("\n" + from);
  if (text.rfind(from, 0) == 0) at = 0;
  if (at == std::string::npos) return lines;
  at = text.find('\n', at + 1) + 1;
  for (size_t end; at < text.size() && text.compare(at, 2, "  ") == 0; at = end + 1) {
    end = text.find('\n', at);
    lines.push_back(text.substr(at, end - at));
  }
  return lines;
}

// The words of a line.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
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
    const size_t dot = read[i].find(" .");
    EXPECT_NE(dot, std::string::npos) << read[i];
  }
  EXPECT_NE(run.out.find("  cube                   .cube "), std::string::npos);
  EXPECT_NE(run.out.find("  Truelight              .cub "), std::string::npos);
  EXPECT_NE(run.out.find("  mesh                   .3dl "), std::string::npos);

  // Every extension listed as written is one convert writes and info reads back.
  const auto written = Section(run.out, "LUT formats written");
  ASSERT_GE(written.size(), 2u) << run.out;
  for (const std::string& line : written) {
    for (const std::string& word : Words(line)) {
      if (word[0] != '.') continue;
      const fs::path out = dir.Path() / ("converted" + word);
      const auto convert = RunTool("convert " + Quote(lut) + " " + Quote(out));
      EXPECT_EQ(convert.status, 0) << word << "\n" << convert.err;
      const auto info = RunTool("info --json " + Quote(out));
      EXPECT_EQ(info.status, 0) << word << "\n" << info.err;
      EXPECT_NE(info.out.find("\"kind\":\"3D\",\"size\":5"), std::string::npos) << info.out;
    }
  }

  // The image formats are those of the OpenImageIO in use, each line read/write flags first.
  const auto images = Section(run.out, "Image formats of OpenImageIO");
  std::set<std::string> names;
  for (const std::string& line : images) {
    const auto words = Words(line);
    ASSERT_GE(words.size(), 3u) << line;
    names.insert(words[0]);
    EXPECT_TRUE(words[1] == "rw" || words[1] == "r-" || words[1] == "-w") << line;
  }
  std::set<std::string> expected;
  std::istringstream list(OIIO::get_string_attribute("format_list"));
  for (std::string name; std::getline(list, name, ',');)
    expected.insert(name);
  EXPECT_EQ(names, expected);
  EXPECT_NE(run.out.find("\n  openexr      rw  .exr "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\n  png          rw  .png\n"), std::string::npos) << run.out;
}

}  // namespace
