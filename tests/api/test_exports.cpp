// The exported interface: result codes in their check order, names, identifiers and blobs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "crandle/crandle.h"
#include "foundation/md5.h"
#include "foundation/utf16.h"
#include "host/frame_interfaces.h"
#include "host/initializer.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace {

using crandle_test::TempDir;
using FrameRef = host::InterfaceRef<host::IVideoFrame>;

// A small float frame in host memory, or one that claims to live on a GPU.
FrameRef MakeFrame(uint32_t width, uint32_t height, bool onGPU = false) {
  FrameRef frame;
  EXPECT_EQ(host::CreateVideoFrame(frame, host::kPixelFormat_BGRA_4444_32f, width, height, 1.0f,
                                   host::ColorSpace::Unknown, true, false),
            0);
  if (!onGPU) return frame;
  host::FrameInterfaceChoice choice;
  choice.gpuVideoFrame = true;
  return FrameRef::FromObject(host::CreateFrameWithInterfaces(frame, choice));
}

constexpr auto kTrilinear = host::LUTInterpolationMethod::Trilinear;

std::u16string U16(const std::string& utf8) {
  return Tincta::Utf8ToUtf16(utf8);
}

std::shared_ptr<void> Sentinel() {
  return std::make_shared<int>(7);
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

std::string DisplayName(const std::shared_ptr<void>& lut) {
  std::string name = "untouched";
  EXPECT_EQ(CRANDLE::GetLUTDisplayName(lut, name), CRANDLE::kResultOK);
  return name;
}

void Warm(double r, double g, double b, double out[3]) {
  out[0] = r * 0.9 + 0.1;
  out[1] = g;
  out[2] = b * 0.8;
}

TEST(ParseLUT, PathResults) {
  TempDir dir;
  const std::string good = dir.Write("good.cube", crandle_test::CubeText3D(2));
  struct Case {
    std::string path;
    int expected;
  } cases[] = {
      {"", CRANDLE::kResultEmptyArgument},
      {(dir.Path() / "missing.cube").string(), CRANDLE::kResultLUTFailed},
      {dir.Path().string(), CRANDLE::kResultLUTFailed},
      {dir.Write("empty.cube", ""), CRANDLE::kResultLUTFailed},
      {dir.Write("junk.cube", "not a LUT\n"), CRANDLE::kResultLUTFailed},
      {good, CRANDLE::kResultOK},
  };
  for (const auto& c : cases) {
    std::shared_ptr<void> lut = Sentinel();
    const void* before = lut.get();
    EXPECT_EQ(CRANDLE::ParseLUT(U16(c.path), lut), c.expected) << c.path;
    if (c.expected == CRANDLE::kResultOK) {
      EXPECT_NE(lut.get(), before);
    } else {
      EXPECT_EQ(lut.get(), before) << "a failed parse must leave the handle alone: " << c.path;
    }
  }
}

TEST(ParseLUT, BytesResults) {
  const std::string good = crandle_test::CubeText3D(2);
  const std::string junk = "not a LUT\n";
  struct Case {
    const void* bytes;
    size_t size;
    int expected;
  } cases[] = {
      {nullptr, 5, CRANDLE::kResultEmptyArgument},
      {good.data(), 0, CRANDLE::kResultEmptyArgument},
      {junk.data(), junk.size(), CRANDLE::kResultLUTFailed},
      {good.data(), good.size() - 10, CRANDLE::kResultLUTFailed},
      {good.data(), good.size(), CRANDLE::kResultOK},
      // Only the low 32 bits of the size count: this reads exactly good.size() bytes.
      {good.data(), (size_t(1) << 32) + good.size(), CRANDLE::kResultOK},
  };
  for (const auto& c : cases) {
    std::shared_ptr<void> lut = Sentinel();
    const void* before = lut.get();
    EXPECT_EQ(CRANDLE::ParseLUT(c.bytes, c.size, lut), c.expected) << c.size;
    EXPECT_EQ(lut.get() == before, c.expected != CRANDLE::kResultOK) << c.size;
  }
}

TEST(ApplyLUT, VectorOverloadsAreAlwaysUnsupported) {
  FrameRef empty;
  FrameRef frame = MakeFrame(4, 4);
  const std::vector<std::u16string> paths{u"/no/such.cube"};
  const std::vector<std::shared_ptr<void>> handles{nullptr};
  EXPECT_EQ(CRANDLE::ApplyLUT(empty, std::vector<std::u16string>{}, kTrilinear, empty),
            CRANDLE::kResultUnsupported);
  EXPECT_EQ(CRANDLE::ApplyLUT(frame, paths, kTrilinear, frame), CRANDLE::kResultUnsupported);
  EXPECT_EQ(CRANDLE::ApplyLUT(empty, std::vector<std::shared_ptr<void>>{}, kTrilinear, empty),
            CRANDLE::kResultUnsupported);
  EXPECT_EQ(CRANDLE::ApplyLUT(frame, handles, kTrilinear, frame), CRANDLE::kResultUnsupported);
}

TEST(ApplyLUT, PathOverloadChecksInOrder) {
  TempDir dir;
  const std::string good = dir.Write("good.cube", crandle_test::CubeText3D(2));
  const std::string missing = (dir.Path() / "missing.cube").string();
  FrameRef empty;
  FrameRef small = MakeFrame(4, 4);
  FrameRef large = MakeFrame(8, 4);
  FrameRef gpu = MakeFrame(4, 4, true);
  struct Case {
    const char* what;
    FrameRef source;
    std::string path;
    FrameRef destination;
    int expected;
  } cases[] = {
      {"empty source wins over different bounds", empty, "", large, CRANDLE::kResultEmptyArgument},
      {"empty destination", small, good, empty, CRANDLE::kResultEmptyArgument},
      {"different bounds win over an empty path", small, "", large, CRANDLE::kResultUnsupported},
      {"empty path", small, "", small, CRANDLE::kResultEmptyArgument},
      {"unreadable LUT", small, missing, small, CRANDLE::kResultLUTFailed},
      {"GPU source, host destination", gpu, good, small, CRANDLE::kResultUnsupported},
      {"host source, GPU destination", small, good, gpu, CRANDLE::kResultUnsupported},
  };
  for (auto& c : cases) {
    EXPECT_EQ(CRANDLE::ApplyLUT(c.source, U16(c.path), kTrilinear, c.destination), c.expected)
        << c.what;
  }
}

TEST(ApplyLUT, HandleOverloadChecksInOrder) {
  const std::shared_ptr<void> lut = ParseBytes(crandle_test::CubeText3D(2));
  FrameRef empty;
  FrameRef small = MakeFrame(4, 4);
  FrameRef large = MakeFrame(4, 8);
  FrameRef gpu = MakeFrame(4, 4, true);
  struct Case {
    const char* what;
    FrameRef source;
    std::shared_ptr<void> lut;
    FrameRef destination;
    int expected;
  } cases[] = {
      {"empty source", empty, nullptr, large, CRANDLE::kResultEmptyArgument},
      {"different bounds win over a null handle", small, nullptr, large,
       CRANDLE::kResultUnsupported},
      {"null handle", small, nullptr, small, CRANDLE::kResultEmptyArgument},
      {"one frame on the GPU", small, lut, gpu, CRANDLE::kResultUnsupported},
  };
  for (auto& c : cases) {
    EXPECT_EQ(CRANDLE::ApplyLUT(c.source, c.lut, kTrilinear, c.destination), c.expected) << c.what;
  }
}

TEST(GetLUTDisplayName, FileTitleThenReaderTitleThenEmbedded) {
  TempDir dir;
  const std::string titled = crandle_test::CubeText3D(2, crandle_test::Identity, "Warm Look");
  EXPECT_EQ(DisplayName(ParsePath(dir.Write("look.cube", titled))), "look");
  EXPECT_EQ(DisplayName(ParsePath(dir.Write("two.dots.cube", titled))), "two.dots");
  EXPECT_EQ(DisplayName(ParseBytes(titled)), "Warm Look");
  EXPECT_EQ(DisplayName(ParseBytes(crandle_test::CubeText3D(2))), "Embedded LUT");

  std::string name = "untouched";
  EXPECT_EQ(CRANDLE::GetLUTDisplayName(nullptr, name), CRANDLE::kResultEmptyArgument);
  EXPECT_EQ(name, "untouched");
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

TEST(GetLUTIdentifier, SameInAnotherProcess) {
  TempDir dir;
  const std::string path = dir.Write("cross.cube", crandle_test::CubeText3D(5, Warm));
  const std::string expected = CRANDLE::GetLUTIdentifier(ParsePath(path)).ToString();
  const std::string command = std::string(CRANDLE_CLI_PATH) + " info --json '" + path + "'";
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char buffer[512];
  while (std::fgets(buffer, sizeof(buffer), pipe))
    output += buffer;
  ASSERT_EQ(::pclose(pipe), 0) << output;
  EXPECT_NE(output.find("\"identifier\":\"" + expected + "\""), std::string::npos) << output;
}

// The OTX3 image of a 2-point cube over a domain; its golden MD5 was computed apart from the
// library (scripts/golden_identifiers.py packs the header and floats with Python's struct).
TEST(GetLUTBlob, GoldenImage) {
  const auto lut = ParseBytes(
      "DOMAIN_MIN -0.25 0 0.125\nDOMAIN_MAX 1.5 1 2\nLUT_3D_SIZE 2\n0.1 0 0\n1 0 0\n0.1 1 0\n1 1 "
      "0\n"
      "0.1 0 0.8\n1 0 0.8\n0.1 1 0.8\n1 1 0.8\n");
  const host::BinaryData blob = CRANDLE::GetLUTBlob(lut);
  ASSERT_EQ(blob.Size(), 136u);
  EXPECT_EQ(host::Guid::GuidFromBytes(Tincta::Md5Of(blob.Data(), blob.Size()).data()).ToString(),
            "BE81600BDCC23BE70668759EF0143A96");
}

TEST(GetLUTBlob, SizesAndTheNullHandle) {
  EXPECT_EQ(CRANDLE::GetLUTBlob(ParseBytes(crandle_test::CubeText3D(33))).Size(), 431'284u);
  EXPECT_EQ(CRANDLE::GetLUTBlob(ParseBytes(crandle_test::CubeText1D(1024))).Size(), 12'328u);
  EXPECT_TRUE(CRANDLE::GetLUTBlob(nullptr).Empty());
}

TEST(ModuleStart, RegistersItsInitialiserAfterTheLUTCache) {
  const auto names = host::InitializerRegistrar::InitializedNames();
  const auto cache = std::find(names.begin(), names.end(), "vexalutcache");
  const auto module = std::find(names.begin(), names.end(), "vexacrandle");
  ASSERT_NE(cache, names.end());
  ASSERT_NE(module, names.end());
  EXPECT_LT(cache, module);
}

}  // namespace
