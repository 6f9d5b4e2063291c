// crandle's commands that read LUTs and documents (info, check, eval, look, formats, plot), its
// exit statuses, usage errors, device choices and settings warnings.
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "lut/formats/reader.h"
#include "lut/lut_writers.h"
#include "support/cli_runner.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

const std::string kCube2 =
    "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
const std::string kBroken =  // kCube2 with its fourth line unreadable
    "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n1 x 1\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
const std::string kBrokenReason = "cube: line 4: '1 x 1' is not three numbers";

std::string Correction(const std::string& id, const std::string& slope) {
  return "<ColorCorrection id=\"" + id + "\"><SOPNode><Slope>" + slope + " " + slope + " " + slope +
         "</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode></ColorCorrection>\n";
}
const std::string kCollection = "<?xml version=\"1.0\"?>\n<ColorCorrectionCollection>\n" +
                                Correction("warm", "0.8") + Correction("cool", "0.5") +
                                "</ColorCorrectionCollection>\n";

std::string Identifier(const std::string& path) {
  std::shared_ptr<void> lut;
  EXPECT_EQ(CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(path), lut), CRANDLE::kResultOK) << path;
  return CRANDLE::GetLUTIdentifier(lut).ToString();
}

TEST(ToolInfo, JsonLinesCarryExactlyTheDocumentedKeys) {
  TempDir dir;
  const double min[3] = {-0.5, 0, 0}, max[3] = {1.5, 1, 2};
  const std::string cube = dir.Write("grade.cube", CubeText3D(5, Identity, "Graded", min, max));
  const std::string ramp = dir.Write("ramp.cube", CubeText1D(256));
  const auto run = RunTool("info --json " + Quote(cube) + " " + Quote(ramp));
  ASSERT_EQ(run.status, 0) << run.err;
  const auto record = [](const std::string& path, const std::string& fields, int blobBytes) {
    return R"({"path":")" + path + "\"," + fields + R"(,"identifier":")" + Identifier(path) +
           R"(","blobBytes":)" + std::to_string(blobBytes) + "}\n";
  };
  EXPECT_EQ(run.out,
            record(cube,
                   R"("kind":"3D","size":5,"shaperSize":0,"domainMin":[-0.5,0.0,0.0],)"
                   R"("domainMax":[1.5,1.0,2.0],"title":"Graded","displayName":"grade")",
                   1540) +
                record(ramp,
                       R"("kind":"1D","size":256,"shaperSize":0,"domainMin":[0.0,0.0,0.0],)"
                       R"("domainMax":[1.0,1.0,1.0],"title":"ramp","displayName":"ramp")",
                       3112));
  // Read from bytes, a LUT is named by its title or as embedded.
  const auto bytes = RunTool("info --json --from-bytes " + Quote(cube) + " " + Quote(ramp));
  EXPECT_NE(bytes.out.find(R"("displayName":"Graded")"), npos) << bytes.out;
  EXPECT_NE(bytes.out.find(R"("displayName":"Embedded LUT")"), npos) << bytes.out;
}

// info, eval, apply and plot say the module's code and the reason; info goes on to the other
// files. A path that names no regular file, or one too large, is refused at once, not read.
TEST(ToolInfo, FailuresNameTheFileTheCodeAndTheReason) {
  TempDir dir;
  const std::string good = dir.Write("good.cube", kCube2), broken = dir.Write("bad.cube", kBroken);
  const std::string missing = (dir.Path() / "missing.cube").string();
  const std::string pipe = (dir.Path() / "pipe.cube").string(), big = dir.Write("big.cube", "");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  fs::resize_file(big, (uint64_t(1) << 32) + 16);
  const std::string failed = broken +
                             ": 0xa00f0001: not a LUT in a format this tool reads, or a damaged "
                             "one: " +
                             kBrokenReason + "\n";
  const auto start = std::chrono::steady_clock::now();
  const auto info = RunTool("info " + Quote(missing) + " " + Quote(pipe) + " " + Quote(big) + " " +
                            Quote(good) + " " + Quote(broken));
  EXPECT_EQ(info.status, 1);
  EXPECT_EQ(info.out.rfind(good + "\n  kind          3D\n", 0), 0u) << info.out;
  EXPECT_EQ(info.err, missing + ": 0xa00f0001: no such file\n" + pipe +
                          ": 0xa00f0001: not a regular file (a pipe or a device)\n" + big +
                          ": 0xa00f0001: the file is larger than 200 MiB\n" + failed);
  const auto bytes = RunTool("info --from-bytes " + Quote(dir.Path()) + " " + Quote(big));
  EXPECT_EQ(bytes.status, 1);
  EXPECT_EQ(bytes.err, dir.Path().string() + ": not a regular file\n" + big +
                           ": the file is larger than 4 GiB\n");
  // Not a speed check: refusing a large file must not mean reading it first.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  const auto eval = RunTool("eval " + Quote(broken), "0.5 0.5 0.5\n");
  EXPECT_EQ(eval.status, 1);
  EXPECT_EQ(eval.err, "crandle eval: " + failed);
  const std::string images = Quote(dir.Path() / "in.png") + " " + Quote(dir.Path() / "out.png");
  EXPECT_TRUE(Ended(RunTool("apply " + Quote(broken) + " " + images), 1, failed));
  EXPECT_TRUE(Ended(RunTool("plot " + Quote(broken) + " -o " + Quote(dir.Path() / "plot.png")), 1,
                    kBrokenReason));
  EXPECT_FALSE(fs::exists(dir.Path() / "plot.png"));
}

// A failure outweighs a warning, a warning a clean file, whatever their order.
TEST(ToolCheck, SaysWhyEachFileFailsOrWarnsExitsWithTheWorstAndTakesCorrectionIds) {
  const struct {
    const char* file;
    std::optional<std::string> bytes;  // none: the file is not there
    std::string arguments;
    int status;
    std::string lines;  // what check prints, each line after "PATH: "
  } cases[] = {
      {"clean.cube", kCube2, "", 0, "cube (3-D, 2 points per axis)"},
      {"broken.cube", kBroken, "", 1, "failed: " + kBrokenReason},
      {"nan.cube", kCube2.substr(0, kCube2.size() - 6) + "nan 1 1\n", "", 3,
       "warning: 1 table entry holds NaN or infinite values (the first is entry 7)\n"
       "cube (3-D, 2 points per axis) with warnings"},
      {"two.ccc", kCollection, "", 1,
       "failed: colour transformation: ASC CDL: 2 corrections (ids warm, cool) where a table "
       "holds one; name one by its id with --cc-id"},
      {"picked.ccc", kCollection, "--cc-id cool", 0, "colour transformation (1-D, 1024 entries)"},
      {"id-for-a-cube.cube", kCube2, "--cc-id cool", 1,
       "failed: cube: --cc-id picks a correction of an ASC CDL file, and this is read as cube"},
      {"absent.cube", std::nullopt, "", 1, "failed: no such file"},
  };
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = c.bytes ? dir.Write(c.file, *c.bytes) : (dir.Path() / c.file).string();
    const auto run = RunTool("check " + c.arguments + " " + Quote(path));
    EXPECT_EQ(run.status, c.status) << run.err;
    std::string expected, line;
    for (std::istringstream lines(c.lines); std::getline(lines, line);)
      expected += path + ": " + line + "\n";
    EXPECT_EQ(run.out, expected);
  }
  const std::string clean = Quote(dir.Path() / "clean.cube") + " ",
                    warned = Quote(dir.Path() / "nan.cube") + " ",
                    failed = Quote(dir.Path() / "broken.cube") + " ";
  EXPECT_EQ(RunTool("check " + warned + clean).status, 3);
  EXPECT_EQ(RunTool("check " + failed + warned + clean).status, 1);
  EXPECT_EQ(RunTool("check " + warned + failed).status, 1);
  // eval and info take --cc-id too: slope 0.5 at 0.5 is 0.25, where the other (0.8) gives 0.4.
  const std::string collection = Quote(dir.Path() / "two.ccc");
  const auto eval = RunTool("eval --cc-id cool " + collection, "0.5 0.5 0.5\n");
  EXPECT_EQ(eval.status, 0) << eval.err;
  EXPECT_EQ(eval.out, "0.250000 0.250000 0.250000\n");
  const auto info = RunTool("info --cc-id cool " + collection);
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_NE(info.out.find("size          1024\n"), npos) << info.out;
}

// The module reads a relative path from the LUT directory first; check and info read that file.
TEST(ToolCheck, RelativePathsResolveAgainstTheLUTDirectoryAsTheModuleDoes) {
  TempDir dir;
  dir.Write("graded.cube", kBroken);
  const std::string base = "--set ColorTransforms.LUTBaseDirectory=" + Quote(dir.Path()) + " ";
  const auto check = RunTool(base + "check graded.cube");
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "graded.cube: failed: " + kBrokenReason + "\n");
  EXPECT_TRUE(Ended(RunTool(base + "info graded.cube"), 1, kBrokenReason));
}

TEST(ToolEval, PrintsTheLUTsOutputPerLineAndNamesABadLine) {
  TempDir dir;
  const std::string lut =
      Quote(dir.Write("half.cube", CubeText3D(3, [](double r, double g, double b, double out[3]) {
                        out[0] = 0.5 * r, out[1] = 0.5 * g + 0.25, out[2] = b;
                      })));
  const auto run = RunTool("eval " + lut, "0 0 0\n# a comment\n\n0.5, 0.25, 0.75\n0.1 0.2 0.3\n");
  ASSERT_EQ(run.status, 0) << run.err;
  const std::vector<double> expected = {0, 0.25, 0, 0.25, 0.375, 0.75, 0.05, 0.35, 0.3};
  const auto got = Numbers(run.out);
  ASSERT_EQ(got.size(), expected.size()) << run.out;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 3) << run.out;
  for (size_t i = 0; i < got.size(); ++i)
    EXPECT_NEAR(got[i], expected[i], 2e-6) << i;
  EXPECT_TRUE(Ended(RunTool("eval " + lut, "0 0 0\n1 2\n"), 1, "line 2"));
}

TEST(ToolEval, OnOpenCLReachesTheLastEntryWhereTheCPUStopsShortOfIt) {
  const std::string lut = Quote(std::string(CRANDLE_SOURCE_DIR) + "/samples/teal-orange.cube");
  const std::string probes = "0.5 0.5 0.5\n1 1 1\n";
  const SToolRun cpu = RunTool("eval " + lut + " --device cpu", probes);
  const SToolRun gpu = RunTool("eval " + lut + " --device opencl:0", probes);
  if (gpu.err.find("no device opencl") != npos) GTEST_SKIP() << gpu.err;
  ASSERT_EQ(cpu.status, 0) << cpu.err;
  ASSERT_EQ(gpu.status, 0) << gpu.err;
  const auto c = Numbers(cpu.out), g = Numbers(gpu.out);
  ASSERT_EQ(c.size(), 6u);
  ASSERT_EQ(g.size(), 6u);
  // Inside the cube both engines agree to the printed digits.
  for (int i = 0; i < 3; ++i)
    EXPECT_NEAR(g[i], c[i], 2e-6);
  // At white the GPU reads the cube's last entry; the CPU clamps 1 % of a cell below it.
  EXPECT_GT(g[3], c[3]);
  EXPECT_NEAR(g[3], c[3], 0.01);
}

TEST(ToolUnix, ExitStatusesAndWhatIsSaid) {
  TempDir dir;
  const std::string lut = Quote(dir.Write("id.cube", kCube2)) + " ";
  const std::string pattern = Quote(dir.Path() / "shot.####.exr") + " ";
  const std::string out = Quote(dir.Path() / "out.exr");
  const std::string folder = Quote(dir.Path()) + " ", never = Quote(dir.Path() / "never");
  const struct {
    std::string arguments;
    int status;
    std::string err;  // part of standard error ("" for none expected)
  } cases[] = {
      {"--version", 0, ""},
      {"", 2,
       "crandle: a command is needed: info, apply, eval, look, convert, check, plot, formats\n"},
      {"--set a=b frobnicate x", 2, "crandle: unknown command 'frobnicate'"},
      {"look frobnicate", 2, "crandle look: unknown command 'frobnicate'"},
      {"look", 2, "crandle look: a command is needed: show, pack\n"},
      {"apply", 2, "LUT is required"},
      {"apply --threads 0 a b c", 2, "--threads"},
      {"apply --depth 12 a b c", 2, "--depth"},
      {"--set nonsense info --system", 2, "expected KEY=VALUE"},
      // A command line that cannot mean anything is a usage error, found before any work.
      {"apply --frames 1005-1001 " + lut + pattern + Quote(dir.Path() / "g.####.exr"), 2,
       "--frames 1005-1001: the range runs backwards"},
      {"apply --frames 1-2 " + lut + Quote(dir.Path() / "in.exr") + " " + out, 2,
       "--frames needs an input with a frame-number field"},
      {"apply " + lut + pattern + Quote(dir.Path() / "g.####.exr"), 2, "a sequence needs --frames"},
      {"apply --frames 1 " + lut + pattern + out, 2, "the output needs a frame-number field"},
      {"apply " + lut + folder + folder, 2, "the output folder is the input folder"},
      {"apply " + lut + folder + lut, 2, "the output must be a folder too"},
      {"apply " + lut + folder + never, 1, "no image files in the folder"},
      {"apply --frames 1-2 " + lut + folder + never, 2, "--frames needs"},
      // Devices: tetrahedral interpolation runs on GPU devices only.
      {"eval " + lut + "--interp tetrahedral", 1, "runs on GPU devices only"},
      {"eval " + lut + "--device cuda:7", 1, "no device cuda:7 here; GPU devices:"},
      {"eval " + lut + "--device metal", 1, "unknown device 'metal'"},
      {"eval " + lut + "--device opencl:", 1, "unknown device 'opencl:'"},
      {"apply " + lut + "in.png out.png --interp tetrahedral --device cpu", 1,
       "choose --device opencl[:N] or --device cuda[:N]"},
      // Settings: a key nothing reads is kept, with a warning; a known key is taken quietly.
      {"--set Colour.Nothing=1 info --system", 0,
       "crandle: warning: --set Colour.Nothing: no part of crandle reads this key"},
      {"--set ColorTransforms.EnableFloatLUTs=false info " + lut, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    const auto run = RunTool(c.arguments);
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_TRUE(c.err.empty() ? run.err.empty() : run.err.find(c.err) != npos) << run.err;
  }
  EXPECT_EQ(RunTool("--version").out, std::string("crandle ") + CRANDLE_VERSION + "\n");
  EXPECT_EQ(FileNames(dir.Path()), std::set<std::string>{"id.cube"});
}

// Commands that touch no image never load the image library, so they start at once; the image
// commands module is opened by the first command that needs it, and a missing one is named.
TEST(ToolUnix, TheImageLibraryIsLoadedOnlyByCommandsThatTouchImages) {
  TempDir dir;
  const std::string lut = Quote(dir.Write("id.cube", kCube2));
  const fs::path image = dir.Path() / "in.png";
  WriteImageFile(image, TypeDesc::UINT8, 2, 1, 3, {0, 0.5f, 1, 1, 0.5f, 0});
  const std::string missing = (dir.Path() / "missing.so").string();
  const std::string apply = "apply " + lut + " " + Quote(image) + " " + Quote(dir.Path() / "o.png");
  const struct {
    std::string module;  // CRANDLE_IMAGE_MODULE; empty for the module's usual place
    std::string arguments;
    int status;
    bool imageLibraryLoaded;
    std::string err;  // part of standard error
  } cases[] = {
      {"", "--version", 0, false, ""},
      {"", "--help", 0, false, ""},
      {"", "info " + lut, 0, false, ""},
      {"", "eval " + lut, 0, false, ""},
      {"", apply, 0, true, ""},
      {missing, "info " + lut, 0, false, ""},
      {missing, apply, 1, false, "crandle apply: cannot load the image commands: " + missing},
      {"libm.so.6", "plot " + lut + " -o " + Quote(dir.Path() / "plot.png"), 1, false,
       "crandle plot: libm.so.6 is not crandle's image commands module\n"},
  };
  // The loader's record of every library it loads, one file per process (the shell's too).
  const fs::path trace = dir.Path() / "loader";
  ::setenv("LD_DEBUG", "libs", 1);
  ::setenv("LD_DEBUG_OUTPUT", trace.c_str(), 1);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.arguments);
    ::setenv("CRANDLE_IMAGE_MODULE", c.module.c_str(), 1);
    const auto run = RunTool(c.arguments, "0.5 0.25 1\n");
    std::string loaded;
    for (const auto& entry : fs::directory_iterator(dir.Path())) {
      if (entry.path().stem() != trace.filename()) continue;
      loaded += ReadFileBytes(entry.path().string());
      fs::remove(entry.path());
    }
    EXPECT_EQ(run.status, c.status) << run.err;
    EXPECT_NE(loaded.find("calling init"), npos);
    EXPECT_EQ(loaded.find("libOpenImageIO") != npos, c.imageLibraryLoaded);
    EXPECT_NE(run.err.find(c.err), npos) << run.err;
  }
  for (const char* name : {"LD_DEBUG", "LD_DEBUG_OUTPUT", "CRANDLE_IMAGE_MODULE"})
    ::unsetenv(name);
}

TEST(ToolUnix, SettingsFileFromTheEnvironmentWarnsWhenItCannotBeRead) {
  TempDir dir;
  const std::string lut = Quote(dir.Write("id.cube", kCube2));
  const std::string absent = (dir.Path() / "absent.settings").string();
  const std::string bad = dir.Write("bad.settings", "this line has no equals sign\n");
  const std::pair<std::string, std::string> cases[] = {
      {dir.Write("good.settings", "ColorTransforms.EnableFloatLUTs = true\n"), ""},
      {absent, "crandle: warning: CRANDLE_SETTINGS names " + absent + ", which does not exist"},
      {bad, "crandle: warning: CRANDLE_SETTINGS: " + bad + ": "},
  };
  for (const auto& [file, warning] : cases) {
    ::setenv("CRANDLE_SETTINGS", file.c_str(), 1);
    const auto run = RunTool("info " + lut);
    ::unsetenv("CRANDLE_SETTINGS");
    EXPECT_EQ(run.status, 0) << file << "\n" << run.err;
    EXPECT_TRUE(warning.empty() ? run.err.empty() : run.err.rfind(warning, 0) == 0) << run.err;
  }
}

TEST(ToolLook, PackTakesAGuidInEitherFormAndRefusesAnythingElse) {
  TempDir dir;
  const std::string lut = Quote(dir.Write("id.cube", kCube2));
  const fs::path look = dir.Path() / "grade.look";
  auto pack = [&](const std::string& guid) {
    fs::remove(look);
    return RunTool("look pack " + lut + " -o " + Quote(look) + " --guid '" + guid + "'");
  };
  const std::pair<std::string, std::string> written[] = {
      {"0f8fad5bd9cb469fa16570867728950e", "0F8FAD5BD9CB469FA16570867728950E"},
      {"{00112233-4455-6677-8899-aabbccddeeff}", "00112233445566778899AABBCCDDEEFF"},
  };
  for (const auto& [guid, hex] : written) {
    ASSERT_EQ(pack(guid).status, 0) << guid;
    EXPECT_NE(RunTool("look show " + Quote(look)).out.find("guid          " + hex + "\n"), npos)
        << guid;
  }
  // The digits themselves are the GUID type's own tests; here the dashes and braces around them.
  for (const char* guid :
       {"0f8fad5bd-9cb-469f-a165-70867728950e", "{0f8fad5b-d9cb-469f-a165-70867728950e",
        "0f8fad5b-d9cb-469f-a165-70867728950e}"}) {
    EXPECT_TRUE(Ended(pack(guid), 2, "--guid")) << guid;
    EXPECT_FALSE(fs::exists(look)) << guid;
  }
}

TEST(ToolLook, ShowRefusesAFileThatIsNotAPayload) {
  TempDir dir;
  const fs::path look = dir.Path() / "grade.look", payload = dir.Path() / "grade.payload";
  const auto packed = RunTool("look pack " + Quote(dir.Write("id.cube", kCube2)) + " -o " +
                              Quote(look) + " --payload " + Quote(payload));
  ASSERT_EQ(packed.status, 0) << packed.err;
  const std::string bytes = ReadFileBytes(payload.string());
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
      EXPECT_NE(run.out.find("\"luts\":[{"), npos) << run.out;
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
  std::istringstream stream(text.substr(std::min(text.find(from), text.size())));
  std::string line;
  std::getline(stream, line);
  while (std::getline(stream, line) && line.rfind("  ", 0) == 0)
    lines.push_back(line);
  return lines;
}

TEST(ToolFormats, ListsWhatIsReadAndWrittenTruthfully) {
  const auto run = RunTool("formats");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  // Every reader of the detector, in its order, with the extensions its files carry.
  const auto read = Section(run.out, "LUT formats read");
  const auto readers = Tincta::LUTFormatReaders();
  ASSERT_EQ(read.size(), readers.size()) << run.out;
  for (size_t i = 0; i < readers.size(); ++i)
    EXPECT_EQ(read[i].find(std::string("  ") + readers[i].name + " "), 0u) << read[i];
  for (const char* line : {"  cube                   .cube ", "  Truelight              .cub ",
                           "  mesh                   .3dl "})
    EXPECT_NE(run.out.find(line), npos) << line;
  // Every extension listed as written names a format convert writes.
  const auto written = Section(run.out, "LUT formats written");
  ASSERT_EQ(written.size(), Tincta::WrittenLUTFormats().size()) << run.out;
  for (const std::string& line : written) {
    std::string name, extension;
    std::istringstream(line) >> name >> extension;
    EXPECT_TRUE(extension.rfind('.', 0) == 0 && Tincta::LUTFormatNamed(extension)) << line;
    EXPECT_EQ(Tincta::LUTFormatNamed(name), Tincta::LUTFormatNamed(extension)) << line;
  }
  // The image formats are those of the OpenImageIO in use, each line read/write flags first.
  std::set<std::string> names, expected;
  for (const std::string& line : Section(run.out, "Image formats of OpenImageIO")) {
    std::string name, flags, extension;
    std::istringstream(line) >> name >> flags >> extension;
    names.insert(name);
    EXPECT_TRUE((flags == "rw" || flags == "r-" || flags == "-w") && extension[0] == '.') << line;
  }
  std::istringstream list(OIIO::get_string_attribute("format_list"));
  for (std::string name; std::getline(list, name, ',');)
    expected.insert(name);
  EXPECT_EQ(names, expected);
  EXPECT_NE(run.out.find("\n  openexr      rw  .exr "), npos) << run.out;
  EXPECT_NE(run.out.find("\n  png          rw  .png\n"), npos) << run.out;
}

// The plot's documented geometry.
constexpr int kWidth = 576;
constexpr int kLeft = 48;
constexpr int kTop = 32;
constexpr int kBox = 512;

// For every column of the curve box, the rows lit in each channel must include the row that
// f(t, t, t) gives there, within one pixel.
void ExpectCurves(const SImageFile& picture, const RGBFunction& f, double low, double high) {
  if (picture.samples.empty()) return;  // Plot has said why
  for (int channel = 0; channel < 3; ++channel) {
    int misses = 0;
    for (int c = 0; c < kBox; ++c) {
      const double t = double(c) / (kBox - 1);
      double v[3];
      f(t, t, t, v);
      const int row = kTop + int(std::lround((1 - (v[channel] - low) / (high - low)) * (kBox - 1)));
      int nearest = 1 << 20;
      for (int y = kTop; y < kTop + kBox; ++y) {
        if (picture.At(kLeft + c, y, channel) > 0.9f)
          nearest = std::min(nearest, std::abs(y - row));
      }
      if (nearest > 1 && misses++ < 5) {
        ADD_FAILURE() << "channel " << channel << " column " << c << ": expected row " << row
                      << ", nearest lit pixel " << nearest << " rows away";
      }
    }
    EXPECT_EQ(misses, 0) << "channel " << channel;
  }
}

// The plot of `lut` (written as `name`), `height` pixels high.
SImageFile Plot(const TempDir& dir, const std::string& name, const std::string& lut, int height) {
  const std::string png = (dir.Path() / (name + ".png")).string();
  const auto run = RunTool("plot " + Quote(dir.Write(name + ".cube", lut)) + " -o " + Quote(png));
  EXPECT_EQ(run.status, 0) << run.err;
  SImageFile picture = ReadImageFile(png);
  EXPECT_EQ(picture.width, kWidth);
  EXPECT_EQ(picture.height, height);
  if (picture.width != kWidth || picture.height != height) picture.samples.clear();
  return picture;
}

void Within(double r, double g, double b, double out[3]) {
  out[0] = r * r, out[1] = g, out[2] = 0.25 + 0.5 * b;
}
void Beyond(double r, double g, double, double out[3]) {
  out[0] = 2 * r - 0.5, out[1] = 1.5 - g, out[2] = 0.5;
}
// Linear in each channel, so that trilinear sampling gives it exactly.
void Linear(double r, double g, double b, double out[3]) {
  out[0] = 0.5 * r + 0.25, out[1] = g, out[2] = 1 - b;
}

TEST(ToolPlot, CurvesOfA1DTableLieWhereItsValuesPutThem) {
  TempDir dir;
  ExpectCurves(Plot(dir, "within", CubeText1D(1024, Within), 676), Within, 0, 1);
  // Values beyond 0..1 widen the value axis to their own range.
  ExpectCurves(Plot(dir, "beyond", CubeText1D(1024, Beyond), 676), Beyond, -0.5, 1.5);
}

TEST(ToolPlot, A3DTableGivesItsNeutralAxisAndSlicesAtRisingBlue) {
  TempDir dir;
  const SImageFile picture = Plot(dir, "linear", CubeText3D(5, Linear), 954);
  ASSERT_FALSE(picture.samples.empty());
  ExpectCurves(picture, Linear, 0, 1);
  // Slice k at (48 + (k % 4) * 129, 684 + (k / 4) * 129), 125 pixels a side; its bottom left is
  // red 0, green 0 and its top right red 1, green 1, at blue k / 7. Colours within 8-bit steps,
  // and the CPU sampler's edge clamp at the far corner.
  const struct {
    int x, y;
    double rgb[3];
  } probes[] = {
      {48, 684 + 124, {0.25, 0.0, 1.0}},                  // slice 0, red 0 green 0 blue 0
      {48 + 124, 684, {0.75, 1.0, 1.0}},                  // slice 0, red 1 green 1 blue 0
      {48 + 3 * 129, 684 + 129 + 124, {0.25, 0.0, 0.0}},  // slice 7, red 0 green 0 blue 1
      {48 + 2 * 129 + 62, 684 + 129 + 62, {0.5, 0.5, 1.0 - 6.0 / 7.0}},  // slice 6, the middle
  };
  for (const auto& p : probes) {
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(picture.At(p.x, p.y, c), p.rgb[c], 0.01) << p.x << "," << p.y << " channel " << c;
  }
}

}  // namespace
}  // namespace crandle_test
