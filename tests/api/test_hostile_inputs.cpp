// Hostile inputs through the exported entry points, one row per input: small ones are kept in
// tests/data/hostile/ as they are, large ones are made here from a recipe. Each reading runs in a
// child process on a thread with a small stack, so that a crash, a stack overflow, a hang or a
// large allocation shows as that child's exit status, its time or its peak resident size
// instead of taking the test binary down.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "host/settings.h"
#include "support/format_samples.h"
#include "support/look_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kSlowdown = 5.0;
#else
constexpr double kSlowdown = 1.0;
#endif

// Where an input is handed to the module.
enum EEntry : unsigned { kBytes = 1, kPath = 2, kBoth = 3 };

struct SMadeInput {
  std::string bytes;  // handed over as bytes, and written to a file for the path entry
  std::string path;   // when set, the path entry reads this instead of a file of `bytes`
};

using Recipe = std::function<SMadeInput(const TempDir&)>;

struct SHostileRow {
  const char* name;  // a file in tests/data/hostile/ when there is no recipe
  Recipe recipe;
  unsigned entries = kBoth;
  int expected = CRANDLE::kResultLUTFailed;
  bool upsample = false;  // the setting that makes every reader resample to a power of two
  double seconds = 5.0;
  uint64_t peakMiB = 1024;
};

std::string Repeat(std::string_view piece, size_t times) {
  std::string out;
  out.reserve(piece.size() * times);
  for (size_t i = 0; i < times; ++i)
    out += piece;
  return out;
}

const std::string kCorrection =
    "<ColorCorrection><SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power>"
    "</SOPNode></ColorCorrection>";

// A valid correction at the bottom of `depth` nested decisions: one correction, so it is read.
SMadeInput DeepDecisionList(const TempDir&) {
  return {"<ColorDecisionList>" + Repeat("<ColorDecision>", 85000) + kCorrection +
              Repeat("</ColorDecision>", 85000) + "</ColorDecisionList>",
          {}};
}

SMadeInput DeepXMLLook(const TempDir&) {
  return {"<?xml version=\"1.0\"?><look><LUT/>" + Repeat("<a>", 100000) + Repeat("</a>", 100000) +
              "</look>",
          {}};
}

SMadeInput NamedPipe(const TempDir& dir) {
  const fs::path pipe = dir.Path() / "pipe.cube";
  EXPECT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  return {{}, pipe.string()};
}

// A look reference to a file that cannot hold a grid; the file itself is of the wrong kind.
SMadeInput ReferenceTo(const std::string& target) {
  const std::vector<uint8_t> record = MakeLookReference(Tincta::Utf8ToUtf16(target), 4096, 0);
  return {std::string(record.begin(), record.end()), {}};
}

SMadeInput ReferenceToPipe(const TempDir& dir) {
  return ReferenceTo(NamedPipe(dir).path);
}

SMadeInput Directory(const TempDir& dir) {
  return {{}, dir.Path().string()};
}

// A grid length the format cannot need, in a sparse file long enough to hold it.
SMadeInput ReferenceWithHugeGridLength(const TempDir& dir) {
  const std::string grid = dir.Write("huge.alok", "");
  fs::resize_file(grid, 1'700'000'000);
  const std::vector<uint8_t> record =
      MakeLookReference(Tincta::Utf8ToUtf16(grid), 1'600'000'000, 0);
  return {std::string(record.begin(), record.end()), {}};
}

// 257 points an axis, which resampling to a power of two shrinks to 256.
SMadeInput Packed257(const TempDir&) {
  const std::vector<uint8_t> bytes =
      Packed10Bytes(false, 8, [](uint32_t r, uint32_t g, uint32_t b) { return PackWord(r, g, b); });
  return {std::string(bytes.begin(), bytes.end()), {}};
}

// The part before the NUL names a readable cube; the whole path names nothing.
SMadeInput PathWithNul(const TempDir& dir) {
  const std::string cube = dir.Write("valid.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
  return {{}, cube + std::string(1, '\0') + "junk"};
}

// Comment lines that each look like an uneven shaper line over 4096 codes, and nothing else.
SMadeInput MeshOfShaperComments(const TempDir&) {
  return {Repeat("# 0 303 546 819 1092 1365 1638 1911 2184 2457 2730 3003 3276 3549 3822 4095\n",
                 130000),
          {}};
}

// Size lines only, each replacing the last with a table the rest of the text could hold.
SMadeInput CubeOfSizeLines(const TempDir&) {
  return {Repeat("LUT_3D_SIZE 64\nLUT_3D_SIZE 63\n", 240000), {}};
}

const std::vector<SHostileRow>& Rows() {
  static const std::vector<SHostileRow> rows = {
      {"cdl_correction_under_85000_nested_decisions", DeepDecisionList, kBoth, CRANDLE::kResultOK},
      {"xml_look_100000_nested_elements", DeepXMLLook},
      {"named_pipe", NamedPipe, kPath},
      {"directory", Directory, kPath},
      {"character_device",
       [](const TempDir&) {
         return SMadeInput{{}, "/dev/zero"};
       },
       kPath},
      {"look_reference_to_named_pipe", ReferenceToPipe, kBytes},
      {"look_reference_to_directory",
       [](const TempDir& dir) { return ReferenceTo(dir.Path().string()); }, kBytes},
      {"look_reference_to_dev_zero.aelt", nullptr, kBytes},
      {"look_reference_grid_length_1600000000", ReferenceWithHugeGridLength, kBytes},
      {"packed_257_points_resampled_to_256", Packed257, kBoth, CRANDLE::kResultOK, true, 15.0},
      {"utf16_path_with_embedded_nul", PathWithNul, kPath},
      // About 10 MB each: at the 200 MiB limit, the cost per byte must stay within seconds.
      {"mesh_of_130000_shaper_comment_lines", MeshOfShaperComments, kBoth,
       CRANDLE::kResultLUTFailed, false, 1.5},
      {"cube_of_480000_size_lines", CubeOfSizeLines, kBoth, CRANDLE::kResultLUTFailed, false, 1.5},
      // 12 MB of markup that parsed would be a tree of some 200 MB (gigabytes at the limit); the
      // bound leaves room for the sanitizer's own memory.
      {"xml_of_3000000_empty_elements",
       [](const TempDir&) {
         return SMadeInput{"<ColorDecisionList>" + Repeat("<a/>", 3'000'000), {}};
       },
       kBoth, CRANDLE::kResultLUTFailed, false, 1.5, 160},
  };
  return rows;
}

struct SReading {
  const SHostileRow* row;
  std::string bytes;
  std::string path;
  unsigned entry;
  int result = 0;
};

void* ReadOnSmallStack(void* argument) {
  auto& reading = *static_cast<SReading*>(argument);
  std::shared_ptr<void> lut;
  reading.result = reading.entry == kBytes
                       ? CRANDLE::ParseLUT(reading.bytes.data(), reading.bytes.size(), lut)
                       : CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(reading.path), lut);
  return nullptr;
}

struct SOutcome {
  int status = 0;
  double seconds = 0;
  uint64_t peakMiB = 0;
};

// Exit status 0: the expected result; 1: another result; a signal: a crash or the time limit.
SOutcome RunInChild(SReading& reading, double seconds) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(unsigned(seconds) + 1);
    if (reading.row->upsample)
      host::Settings::Instance().SetBool(host::kSettingAlwaysUpsampleToPoT, true);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    // Small enough that a recursion over the input's nesting overflows it.
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    pthread_t thread;
    if (pthread_create(&thread, &attributes, ReadOnSmallStack, &reading) != 0) ::_exit(3);
    pthread_join(thread, nullptr);
    ::_exit(reading.result == reading.row->expected ? 0 : 1);
  }
  SOutcome outcome;
  rusage usage{};
  ::wait4(child, &outcome.status, 0, &usage);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  outcome.peakMiB = uint64_t(usage.ru_maxrss) / 1024;
  return outcome;
}

void PrintTo(const SHostileRow& row, std::ostream* out) {
  *out << row.name;
}

class HostileInput : public ::testing::TestWithParam<SHostileRow> {};

TEST_P(HostileInput, EndsCleanlyQuicklyAndWithinMemory) {
  const SHostileRow& row = GetParam();
  TempDir dir;
  SMadeInput input;
  if (row.recipe) {
    input = row.recipe(dir);
  } else {
    input.bytes = ReadFileBytes((fs::path(CRANDLE_TEST_DATA_DIR) / "hostile" / row.name).string());
    ASSERT_FALSE(input.bytes.empty()) << "the regression file went missing";
  }
  for (const unsigned entry : {kBytes, kPath}) {
    if (!(row.entries & entry)) continue;
    SCOPED_TRACE(entry == kBytes ? "ParseLUT(bytes)" : "ParseLUT(path)");
    SReading reading{&row, input.bytes, input.path, entry};
    if (entry == kPath && reading.path.empty()) reading.path = dir.Write("input", input.bytes);
    const SOutcome outcome = RunInChild(reading, row.seconds * kSlowdown);
    ASSERT_TRUE(WIFEXITED(outcome.status))
        << "ended by signal " << (WIFSIGNALED(outcome.status) ? WTERMSIG(outcome.status) : 0);
    EXPECT_EQ(WEXITSTATUS(outcome.status), 0) << "another result than expected";
    EXPECT_LT(outcome.seconds, row.seconds * kSlowdown);
    EXPECT_LT(outcome.peakMiB, row.peakMiB) << "peak resident MiB";
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileInput, ::testing::ValuesIn(Rows()),
                         [](const ::testing::TestParamInfo<SHostileRow>& row) {
                           std::string name = row.param.name;
                           for (char& c : name)
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

}  // namespace
}  // namespace crandle_test
