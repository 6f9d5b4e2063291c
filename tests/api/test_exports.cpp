// The exported interface: result codes in their check order, names, identifiers and blobs, and
// all of them from eight threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "crandle/crandle.h"
#include "foundation/md5.h"
#include "foundation/utf16.h"
#include "host/frame_interfaces.h"
#include "host/initializer.h"
#include "support/gpu_frames.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::FrameRef;
using crandle_test::TempDir;

// A small float frame in host memory, or one that claims to live on a GPU.
FrameRef MakeFrame(uint32_t width, uint32_t height, bool onGPU = false) {
  const FrameRef frame = crandle_test::HostFrame(host::kPixelFormat_BGRA_4444_32f, width, height);
  return onGPU
             ? FrameRef::FromObject(host::CreateFrameWithInterfaces(frame, {.gpuVideoFrame = true}))
             : frame;
}

constexpr auto kTrilinear = host::LUTInterpolationMethod::Trilinear;

std::u16string U16(const std::string& utf8) {
  return Tincta::Utf8ToUtf16(utf8);
}

std::shared_ptr<void> ParseBytes(const std::string& bytes) {
  std::shared_ptr<void> lut;
  EXPECT_EQ(CRANDLE::ParseLUT(bytes.data(), bytes.size(), lut), CRANDLE::kResultOK);
  return lut;
}

std::shared_ptr<void> ParsePath(const std::string& path) {
  std::shared_ptr<void> lut;
  EXPECT_EQ(CRANDLE::ParseLUT(U16(path), lut), CRANDLE::kResultOK) << path;
  return lut;
}

// A failed parse leaves the handle alone, from a path or from bytes.
TEST(ParseLUT, ResultsFromPathsAndBytes) {
  TempDir dir;
  const std::string good = crandle_test::CubeText3D(2), junk = "not a LUT\n";
  const std::pair<std::string, int> paths[] = {
      {"", CRANDLE::kResultEmptyArgument},
      {(dir.Path() / "missing.cube").string(), CRANDLE::kResultLUTFailed},
      {dir.Write("empty.cube", ""), CRANDLE::kResultLUTFailed},
      {dir.Write("junk.cube", junk), CRANDLE::kResultLUTFailed},
      {dir.Write("good.cube", good), CRANDLE::kResultOK}};
  const std::tuple<const void*, size_t, int> bytes[] = {
      {nullptr, 5, CRANDLE::kResultEmptyArgument},
      {good.data(), 0, CRANDLE::kResultEmptyArgument},
      {junk.data(), junk.size(), CRANDLE::kResultLUTFailed},
      {good.data(), good.size(), CRANDLE::kResultOK},
      // Only the low 32 bits of the size count: this reads exactly good.size() bytes.
      {good.data(), (size_t(1) << 32) + good.size(), CRANDLE::kResultOK}};
  const auto check = [](const auto& parse, int expected, size_t what) {
    std::shared_ptr<void> lut = std::make_shared<int>(7);
    const void* before = lut.get();
    EXPECT_EQ(parse(lut), expected) << what;
    EXPECT_EQ(lut.get() == before, expected != CRANDLE::kResultOK) << what;
  };
  for (size_t i = 0; i < std::size(paths); ++i)
    check([&](auto& lut) { return CRANDLE::ParseLUT(U16(paths[i].first), lut); }, paths[i].second,
          i);
  for (const auto& [data, size, expected] : bytes)
    check([&](auto& lut) { return CRANDLE::ParseLUT(data, size, lut); }, expected, size);
}

// Each overload checks its arguments in a fixed order; the vector overloads support nothing.
TEST(ApplyLUT, OverloadsCheckInOrder) {
  using CRANDLE::kResultEmptyArgument, CRANDLE::kResultUnsupported, CRANDLE::kResultLUTFailed;
  TempDir dir;
  const std::string good = dir.Write("good.cube", crandle_test::CubeText3D(2));
  const std::string missing = (dir.Path() / "missing.cube").string();
  FrameRef none, small = MakeFrame(4, 4), wide = MakeFrame(8, 4), tall = MakeFrame(4, 8);
  FrameRef gpu = MakeFrame(4, 4, true);
  const auto path = [](const FrameRef& source, const std::string& lutPath, FrameRef destination) {
    return CRANDLE::ApplyLUT(source, U16(lutPath), kTrilinear, destination);
  };
  const auto handle = [](const FrameRef& source, const std::shared_ptr<void>& h, FrameRef to) {
    return CRANDLE::ApplyLUT(source, h, kTrilinear, to);
  };
  const std::pair<int, int> cases[] = {
      {path(none, "", wide), kResultEmptyArgument},  // an empty source wins over the bounds
      {path(small, good, none), kResultEmptyArgument},
      {path(small, "", wide), kResultUnsupported},  // different bounds win over an empty path
      {path(small, "", small), kResultEmptyArgument},
      {path(small, missing, small), kResultLUTFailed},
      {path(gpu, good, small), kResultUnsupported},
      {path(small, good, gpu), kResultUnsupported},
      // Frames on a GPU that cannot name their device.
      {handle(gpu, ParsePath(good), MakeFrame(4, 4, true)), kResultEmptyArgument},
      {handle(none, nullptr, tall), kResultEmptyArgument},
      {handle(small, nullptr, tall), kResultUnsupported},  // bounds win over a null handle
      {handle(small, nullptr, small), kResultEmptyArgument},
      {CRANDLE::ApplyLUT(none, std::vector<std::u16string>{}, kTrilinear, none),
       kResultUnsupported},
      {CRANDLE::ApplyLUT(small, std::vector<std::shared_ptr<void>>{nullptr}, kTrilinear, small),
       kResultUnsupported}};
  for (size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i;
}

// The file's title, else the reader's title, else "Embedded LUT"; a null handle leaves the name.
TEST(GetLUTDisplayName, FileTitleThenReaderTitleThenEmbedded) {
  TempDir dir;
  const std::string titled = crandle_test::CubeText3D(2, crandle_test::Identity, "Warm Look");
  const std::pair<std::shared_ptr<void>, std::string> cases[] = {
      {ParsePath(dir.Write("look.cube", titled)), "look"},
      {ParseBytes(titled), "Warm Look"},
      {ParseBytes(crandle_test::CubeText3D(2)), "Embedded LUT"},
      {nullptr, "untouched"}};
  for (const auto& [lut, expected] : cases) {
    std::string name = "untouched";
    EXPECT_EQ(CRANDLE::GetLUTDisplayName(lut, name),
              lut ? CRANDLE::kResultOK : CRANDLE::kResultEmptyArgument);
    EXPECT_EQ(name, expected);
  }
}

// Golden identifiers of a 2-point identity cube, computed apart from the library by
// scripts/golden_identifiers.py (MurmurHash3 and MD5 from their published definitions).
TEST(GetLUTIdentifier, GoldenValues) {
  TempDir dir;
  const std::string cube =
      "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
  const std::pair<std::shared_ptr<void>, std::string> cases[] = {
      {ParseBytes("TITLE \"Neutral\"\n" + cube), "A1350CAE824255FB6BBEA576980E2E8B"},
      // Read from a file, the title is the file's title and the file title is hashed as well.
      {ParsePath(dir.Write("grade.cube", cube)), "34771E58AEB8E770113B3B07965CEA44"},
      {ParseBytes("DOMAIN_MIN -0.5 0 0\nDOMAIN_MAX 1.5 1 1\n" + cube),
       "15A9D5A9252DE81E2AD4148A3FB76041"},
  };
  for (const auto& [lut, expected] : cases)
    EXPECT_EQ(CRANDLE::GetLUTIdentifier(lut).ToString(), expected);
  EXPECT_TRUE(CRANDLE::GetLUTIdentifier(nullptr).IsZero());
}

// The OTX3 image of a 2-point cube over a domain; its golden MD5 was computed apart from the
// library (scripts/golden_identifiers.py packs the header and floats with Python's struct).
TEST(GetLUTBlob, GoldenImageAndTheNullHandle) {
  const auto lut = ParseBytes(
      "DOMAIN_MIN -0.25 0 0.125\nDOMAIN_MAX 1.5 1 2\nLUT_3D_SIZE 2\n0.1 0 0\n1 0 0\n0.1 1 0\n"
      "1 1 0\n0.1 0 0.8\n1 0 0.8\n0.1 1 0.8\n1 1 0.8\n");
  const host::BinaryData blob = CRANDLE::GetLUTBlob(lut);
  ASSERT_EQ(blob.Size(), 136u);
  EXPECT_EQ(host::Guid::GuidFromBytes(Tincta::Md5Of(blob.Data(), blob.Size()).data()).ToString(),
            "BE81600BDCC23BE70668759EF0143A96");
  EXPECT_TRUE(CRANDLE::GetLUTBlob(nullptr).Empty());
}

TEST(ModuleStart, RegistersItsInitialiserAfterTheLUTCache) {
  const auto names = host::InitializerRegistrar::InitializedNames();
  const auto cache = std::find(names.begin(), names.end(), "vexalutcache");
  const auto module = std::find(names.begin(), names.end(), "vexacrandle");
  EXPECT_TRUE(cache < module && module != names.end());
}

// Eight threads parse, copy and drop handles to the same files while asking for identifiers,
// names and blobs: the LUT cache, the handle counts and the lazy digest must hold up (run it
// under the tsan preset).
TEST(Concurrency, ParsingCopyingAndQueryingFromEightThreads) {
  TempDir dir;
  const auto cool = [](double r, double g, double b, double out[3]) {
    out[0] = r * 0.8, out[1] = g, out[2] = b * 0.7 + 0.3;
  };
  const std::u16string paths[2] = {U16(dir.Write("one.cube", crandle_test::CubeText3D(9))),
                                   U16(dir.Write("two.cube", crandle_test::CubeText3D(9, cool)))};
  host::Guid expected[2];
  std::shared_ptr<void> shared[2];  // never hashed before the threads: the lazy digest is raced
  for (int i = 0; i < 2; ++i) {
    std::shared_ptr<void> lut;
    ASSERT_EQ(CRANDLE::ParseLUT(paths[i], lut), CRANDLE::kResultOK);
    ASSERT_EQ(CRANDLE::ParseLUT(paths[i], shared[i]), CRANDLE::kResultOK);
    expected[i] = CRANDLE::GetLUTIdentifier(lut);
  }
  ASSERT_NE(expected[0], expected[1]);
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 40; ++round) {
        const size_t which = size_t(t + round) % 2;
        std::shared_ptr<void> lut;
        mismatches += CRANDLE::ParseLUT(paths[which], lut) != CRANDLE::kResultOK;
        std::shared_ptr<void> copy = lut;  // copies and drops on several threads at once
        mismatches += CRANDLE::GetLUTIdentifier(copy) != expected[which];
        mismatches += CRANDLE::GetLUTIdentifier(shared[which]) != expected[which];
        std::string name;
        CRANDLE::GetLUTDisplayName(copy, name);
        mismatches += name != (which == 0 ? "one" : "two");
        mismatches += CRANDLE::GetLUTBlob(copy).Size() != 40u + 12u * 729u;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
