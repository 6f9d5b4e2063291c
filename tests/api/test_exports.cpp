// The exported interface: result codes in their check order, names, identifiers and blobs.
#include <gtest/gtest.h>
#include <murmurhash.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "crandle/crandle.h"
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

// The identifier recomputed from its definition with libcrypto's MD5 and libmurmurhash directly.
std::string ExpectedIdentifier(const std::vector<float>& rgbaTable, const float domainMin[4],
                               const float domainMax[4], const std::string& title,
                               const std::string& fileTitle) {
  unsigned char digest[16];
  unsigned int length = 0;
  EVP_MD_CTX* md5 = EVP_MD_CTX_new();
  EVP_DigestInit_ex(md5, EVP_md5(), nullptr);
  EVP_DigestUpdate(md5, rgbaTable.data(), rgbaTable.size() * sizeof(float));
  EVP_DigestUpdate(md5, domainMin, 16);
  EVP_DigestUpdate(md5, domainMax, 16);
  EVP_DigestFinal_ex(md5, digest, &length);
  EVP_MD_CTX_free(md5);

  std::string fed = "VEXACrandle";
  fed.append(reinterpret_cast<const char*>(digest), 16);
  fed += title;
  fed += fileTitle;
  for (const float* v : {domainMax, domainMin})
    fed.append(reinterpret_cast<const char*>(v), 12);
  uint64_t halves[2];
  lmmh_x64_128(fed.data(), static_cast<unsigned>(fed.size()), 0, halves);
  char text[33];
  for (int i = 0; i < 16; ++i)
    std::snprintf(text + 2 * i, 3, "%02X", unsigned(halves[i / 8] >> (8 * (i % 8)) & 0xFF));
  return text;
}

std::vector<float> IdentityTable2() {
  std::vector<float> table;
  for (int b = 0; b < 2; ++b)
    for (int g = 0; g < 2; ++g)
      for (int r = 0; r < 2; ++r)
        table.insert(table.end(), {float(r), float(g), float(b), 1.0f});
  return table;
}

TEST(GetLUTIdentifier, MatchesItsDefinition) {
  TempDir dir;
  const float min[4] = {0, 0, 0, 1};
  const float max[4] = {1, 1, 1, 1};
  const std::string text = crandle_test::CubeText3D(2, crandle_test::Identity, "Neutral");
  EXPECT_EQ(CRANDLE::GetLUTIdentifier(ParseBytes(text)).ToString(),
            ExpectedIdentifier(IdentityTable2(), min, max, "Neutral", ""));
  // Read from a file, the title is the file's title and the file title is hashed as well.
  EXPECT_EQ(
      CRANDLE::GetLUTIdentifier(ParsePath(dir.Write("grade.cube", crandle_test::CubeText3D(2))))
          .ToString(),
      ExpectedIdentifier(IdentityTable2(), min, max, "grade", "grade"));
  EXPECT_TRUE(CRANDLE::GetLUTIdentifier(nullptr).IsZero());
}

TEST(GetLUTIdentifier, StableWhereItShouldAndSensitiveElsewhere) {
  TempDir dir;
  std::filesystem::create_directories(dir.Path() / "elsewhere");
  const std::string base = crandle_test::CubeText3D(3);
  const double lowDomain[3] = {-0.5, 0, 0};
  const auto id = [](const std::shared_ptr<void>& lut) { return CRANDLE::GetLUTIdentifier(lut); };

  const host::Guid reference = id(ParseBytes(base));
  EXPECT_EQ(id(ParseBytes(base)), reference) << "same bytes, same identifier";
  const auto lut = ParseBytes(base);
  EXPECT_EQ(id(lut), id(lut)) << "asked twice";

  EXPECT_NE(id(ParseBytes(crandle_test::CubeText3D(3, Warm))), reference)
      << "a changed table value";
  EXPECT_NE(id(ParseBytes(crandle_test::CubeText3D(3, crandle_test::Identity, "T"))), reference)
      << "a title";
  EXPECT_NE(id(ParseBytes(crandle_test::CubeText3D(3, crandle_test::Identity, "", lowDomain))),
            reference)
      << "a domain";

  const host::Guid fromFile = id(ParsePath(dir.Write("a.cube", base)));
  EXPECT_EQ(id(ParsePath(dir.Write("elsewhere/a.cube", base))), fromFile)
      << "moved to another directory";
  EXPECT_NE(id(ParsePath(dir.Write("b.cube", base))), fromFile) << "another file name";
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

uint32_t U32At(const host::BinaryData& blob, size_t offset) {
  uint32_t value;
  std::memcpy(&value, blob.Data() + offset, 4);
  return value;
}

float F32At(const host::BinaryData& blob, size_t offset) {
  float value;
  std::memcpy(&value, blob.Data() + offset, 4);
  return value;
}

TEST(GetLUTBlob, WritesTheFloatImageByteForByte) {
  const double min[3] = {-0.25, 0, 0.125};
  const double max[3] = {1.5, 1, 2};
  const auto lut = ParseBytes(crandle_test::CubeText3D(2, Warm, "", min, max));
  const host::BinaryData blob = CRANDLE::GetLUTBlob(lut);
  ASSERT_EQ(blob.Size(), 40u + 12u * 8u);
  EXPECT_EQ(std::memcmp(blob.Data(), "OTX3", 4), 0);
  EXPECT_EQ(U32At(blob, 4), 2u);
  EXPECT_EQ(U32At(blob, 8), 3u);
  EXPECT_EQ(U32At(blob, 12), 0u);
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(F32At(blob, 16 + 4 * c), float(min[c]));
    EXPECT_EQ(F32At(blob, 28 + 4 * c), float(max[c]));
  }
  size_t offset = 40;
  for (int b = 0; b < 2; ++b)
    for (int g = 0; g < 2; ++g)
      for (int r = 0; r < 2; ++r, offset += 12) {
        double expected[3];
        Warm(r, g, b, expected);
        for (int c = 0; c < 3; ++c)
          EXPECT_EQ(F32At(blob, offset + 4 * c), float(expected[c])) << offset;
      }
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
