// Hostile inputs through ParseLUT, one row per input (small ones kept in tests/data/hostile/, large
// ones made from a recipe), each read in a child process on a thread with a small stack, so that a
// crash, a stack overflow, a hang or a large allocation shows as that child's status, time or peak.
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

enum EEntry : unsigned { kBytes = 1, kPath = 2, kBoth = 3 };

struct SHostileRow {
  const char* name;  // a file in tests/data/hostile/ when there is no recipe
  // The bytes handed over, also written to a file for the path entry; for a row read only by
  // path, the path itself.
  std::function<std::string(const TempDir&)> recipe;
  unsigned entries = kBoth;
  int expected = CRANDLE::kResultLUTFailed;
  bool upsample = false;  // the setting that makes every reader resample to a power of two
  double seconds = 5.0;
  uint64_t peakMiB = 1024;
};

std::string Repeat(std::string_view piece, size_t times) {
  std::string out;
  for (size_t i = 0; i < times; ++i)
    out += piece;
  return out;
}

std::string NamedPipe(const TempDir& dir) {
  const fs::path pipe = dir.Path() / "pipe.cube";
  EXPECT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  return pipe.string();
}

// A look reference to a file that cannot hold a grid; the file itself is of the wrong kind.
std::string ReferenceTo(const std::string& target, uint32_t gridLength = 4096) {
  const std::vector<uint8_t> record = MakeLookReference(Tincta::Utf8ToUtf16(target), gridLength, 0);
  return std::string(record.begin(), record.end());
}

const std::vector<SHostileRow> kRows = {
    // A valid correction at the bottom of 85000 nested decisions: one correction, so it is read.
    {"cdl_correction_under_85000_nested_decisions",
     [](const TempDir&) {
       return "<ColorDecisionList>" + Repeat("<ColorDecision>", 85000) +
              "<ColorCorrection><SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>1 1 "
              "1</Power></SOPNode></ColorCorrection>" +
              Repeat("</ColorDecision>", 85000) + "</ColorDecisionList>";
     },
     kBoth, CRANDLE::kResultOK},
    {"xml_look_100000_nested_elements",
     [](const TempDir&) {
       return "<?xml version=\"1.0\"?><look><LUT/>" + Repeat("<a>", 100000) +
              Repeat("</a>", 100000) + "</look>";
     }},
    {"named_pipe", NamedPipe, kPath},
    {"directory", [](const TempDir& dir) { return dir.Path().string(); }, kPath},
    {"character_device", [](const TempDir&) { return std::string("/dev/zero"); }, kPath},
    {"look_reference_to_named_pipe", [](const TempDir& dir) { return ReferenceTo(NamedPipe(dir)); },
     kBytes},
    {"look_reference_to_directory",
     [](const TempDir& dir) { return ReferenceTo(dir.Path().string()); }, kBytes},
    {"look_reference_to_dev_zero.aelt", nullptr, kBytes},
    // A grid length the format cannot need, in a sparse file long enough to hold it.
    {"look_reference_grid_length_1600000000",
     [](const TempDir& dir) {
       const std::string grid = dir.Write("huge.alok", "");
       fs::resize_file(grid, 1'700'000'000);
       return ReferenceTo(grid, 1'600'000'000);
     },
     kBytes},
    // 257 points an axis, which resampling to a power of two shrinks to 256.
    {"packed_257_points_resampled_to_256",
     [](const TempDir&) {
       const auto bytes = Packed10Bytes(false, 8, PackWord);
       return std::string(bytes.begin(), bytes.end());
     },
     kBoth, CRANDLE::kResultOK, true, 15.0},
    // The part before the NUL names a readable cube; the whole path names nothing.
    {"utf16_path_with_embedded_nul",
     [](const TempDir& dir) {
       return dir.Write("valid.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n") + '\0' + "junk";
     },
     kPath},
    // About 10 MB each: at the 200 MiB limit, the cost per byte must stay within seconds. The
    // first is comment lines that each look like an uneven shaper line over 4096 codes; the
    // second, size lines that each replace the last with a table the rest of the text could hold.
    {"mesh_of_130000_shaper_comment_lines",
     [](const TempDir&) {
       return Repeat(
           "# 0 303 546 819 1092 1365 1638 1911 2184 2457 2730 3003 3276 3549 3822 4095\n", 130000);
     },
     kBoth, CRANDLE::kResultLUTFailed, false, 1.5},
    {"cube_of_480000_size_lines",
     [](const TempDir&) { return Repeat("LUT_3D_SIZE 64\nLUT_3D_SIZE 63\n", 240000); }, kBoth,
     CRANDLE::kResultLUTFailed, false, 1.5},
    // 12 MB of markup that parsed would be a tree of some 200 MB (gigabytes at the limit); the
    // bound leaves room for the sanitizer's own memory.
    {"xml_of_3000000_empty_elements",
     [](const TempDir&) { return "<ColorDecisionList>" + Repeat("<a/>", 3'000'000); }, kBoth,
     CRANDLE::kResultLUTFailed, false, 1.5, 160},
};

struct SOutcome {
  int status = 0;  // exit status 0: the expected result; 1: another; a signal: a crash or a hang
  double seconds = 0;
  uint64_t peakMiB = 0;
};

// The cost is the child's processor time, which a loaded machine does not inflate; the generous
// wall-clock alarm only catches a reading that waits forever.
SOutcome ReadInChild(const SHostileRow& row, unsigned entry, const std::string& input) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(unsigned(4 * row.seconds * kSlowdown) + 1);
    if (row.upsample) host::Settings::Instance().SetBool(host::kSettingAlwaysUpsampleToPoT, true);
    struct SCall {
      const std::string& input;
      unsigned entry;
      int result;
    } call{input, entry, 0};
    const auto read = [](void* argument) -> void* {
      auto& c = *static_cast<SCall*>(argument);
      std::shared_ptr<void> lut;
      c.result = c.entry == kBytes ? CRANDLE::ParseLUT(c.input.data(), c.input.size(), lut)
                                   : CRANDLE::ParseLUT(Tincta::Utf8ToUtf16(c.input), lut);
      return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    // Small enough that a recursion over the input's nesting overflows it.
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    pthread_t thread;
    if (pthread_create(&thread, &attributes, read, &call) != 0) ::_exit(3);
    pthread_join(thread, nullptr);
    ::_exit(call.result == row.expected ? 0 : 1);
  }
  SOutcome outcome;
  rusage usage{};
  ::wait4(child, &outcome.status, 0, &usage);
  outcome.seconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                    double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  outcome.peakMiB = uint64_t(usage.ru_maxrss) / 1024;
  return outcome;
}

void PrintTo(const SHostileRow& row, std::ostream* out) {  // the row's name, not its bytes
  *out << row.name;
}

class HostileInput : public ::testing::TestWithParam<SHostileRow> {};

TEST_P(HostileInput, EndsCleanlyQuicklyAndWithinMemory) {
  const SHostileRow& row = GetParam();
  TempDir dir;
  const std::string made =
      row.recipe ? row.recipe(dir)
                 : ReadFileBytes((fs::path(CRANDLE_TEST_DATA_DIR) / "hostile" / row.name).string());
  ASSERT_FALSE(made.empty()) << "the regression file went missing";
  const std::string path = row.entries == kPath ? made : dir.Write("input", made);
  for (const unsigned entry : {kBytes, kPath}) {
    if (!(row.entries & entry)) continue;
    SCOPED_TRACE(entry == kBytes ? "ParseLUT(bytes)" : "ParseLUT(path)");
    const SOutcome outcome = ReadInChild(row, entry, entry == kBytes ? made : path);
    ASSERT_TRUE(WIFEXITED(outcome.status))
        << "ended by signal " << (WIFSIGNALED(outcome.status) ? WTERMSIG(outcome.status) : 0);
    EXPECT_EQ(WEXITSTATUS(outcome.status), 0) << "another result than expected";
    EXPECT_LT(outcome.seconds, row.seconds * kSlowdown) << "processor seconds";
    EXPECT_LT(outcome.peakMiB, row.peakMiB) << "peak resident MiB";
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileInput, ::testing::ValuesIn(kRows), [](const auto& row) {
  std::string name = row.param.name;
  std::replace(name.begin(), name.end(), '.', '_');
  return name;
});

}  // namespace
}  // namespace crandle_test
