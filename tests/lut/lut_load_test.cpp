// LoadFromFile and LoadFromMemory: path resolution, title, the cache, the size limit, widening
// of short 1-D tables, and the setting read at every parse.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "foundation/file.h"
#include "foundation/hex_codec.h"
#include "lut/lut3d.h"
#include "lut_test_helpers.h"
#include "support/temp_dir.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using namespace crandle_test;
namespace fs = std::filesystem;

class LUTLoad : public LUTCoreTest {};

// A one-entry-per-line 1-D cube whose single value tells files apart.
std::string MarkedCube(float mark) {
  return CubeText("LUT_1D_SIZE 128\n", 128, [mark](uint32_t) {
    return std::array<float, 3>{mark, mark, mark};
  });
}

float MarkOf(const COv3DLUT& lut) {
  return lut.Size() ? lut.Table()[0] : -1.0f;
}

// Changes the working directory for one scope.
class CWorkingDirectory {
 public:
  explicit CWorkingDirectory(const fs::path& to) : previous_(fs::current_path()) {
    fs::current_path(to);
  }
  ~CWorkingDirectory() { fs::current_path(previous_); }

 private:
  fs::path previous_;
};

TEST_F(LUTLoad, RelativePathsTryTheLUTDirectoryFirstThenAsGiven) {
  TempDir dir;
  fs::create_directories(dir.Path() / "base" / "looks");
  fs::create_directories(dir.Path() / "work" / "looks");
  const std::string base = (dir.Path() / "base").string();
  dir.Write("base/looks/both.cube", MarkedCube(1));
  dir.Write("work/looks/both.cube", MarkedCube(2));
  dir.Write("work/looks/cwd-only.cube", MarkedCube(3));
  const std::string absolute = dir.Write("work/looks/absolute.cube", MarkedCube(4));
  // The same absolute path below the LUT directory: found only when the path counts as relative.
  const fs::path mirrored = dir.Path() / "base" / fs::path(absolute).relative_path();
  fs::create_directories(mirrored.parent_path());
  {
    std::ofstream out(mirrored, std::ios::binary);
    out << MarkedCube(5);
  }
  const std::string dotted =
      (dir.Path() / "work" / "looks" / ".." / "looks" / "absolute.cube").string();

  host::Settings::Instance().SetString(host::kSettingLUTBaseDirectory, base);
  const CWorkingDirectory cwd(dir.Path() / "work");

  struct {
    std::string path;
    float mark;
    std::string opened;
  } const cases[] = {
      {"looks/both.cube", 1, base + "/looks/both.cube"},
      {"looks/cwd-only.cube", 3, "looks/cwd-only.cube"},
      {absolute, 4, absolute},
      // ".." makes any path relative, absolute or not.
      {dotted, 5, base + "/" + dotted},
      {"looks/../looks/both.cube", 1, base + "/looks/../looks/both.cube"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    COv3DLUT lut;
    ASSERT_TRUE(lut.LoadFromFile(c.path, false, ELUTKindFilter::Any, true));
    EXPECT_EQ(MarkOf(lut), c.mark);
    EXPECT_EQ(lut.SourcePath(), c.opened);
  }
  COv3DLUT missing;
  EXPECT_FALSE(missing.LoadFromFile("looks/none.cube", false, ELUTKindFilter::Any, true));
  EXPECT_EQ(missing.Size(), 0u);
}

TEST_F(LUTLoad, TitleIsTheFileNameUnlessTheCubeHasOne) {
  TempDir dir;
  const std::string plain = dir.Write("Film Look.v2.cube", MarkedCube(1));
  const std::string titled = dir.Write("named.cube", "TITLE \"Print Emulation\"\n" + MarkedCube(2));
  COv3DLUT lut;
  ASSERT_TRUE(lut.LoadFromFile(plain, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(lut.Title(), "Film Look.v2");
  COv3DLUT named;
  ASSERT_TRUE(named.LoadFromFile(titled, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(named.Title(), "Print Emulation");
  EXPECT_GT(named.Timestamp(), 0);
}

TEST_F(LUTLoad, ASecondLoadReadsTheFileAgainAndAddsNoSecondEntry) {
  TempDir dir;
  const std::string path = dir.Write("again.cube", MarkedCube(0.5f));
  auto& cache = Tincta::COvLUTCache::Instance();
  const size_t entries = cache.EntryCount();

  COv3DLUT first;
  ASSERT_TRUE(first.LoadFromFile(path, false, ELUTKindFilter::Any, true));
  std::string digestKey;
  Tincta::AppendHex(digestKey, first.ContentDigest().data(), 16);
  EXPECT_EQ(first.CacheKey(), digestKey) << "entered under the digest, not the path";
  EXPECT_EQ(cache.EntryCount(), entries + 1);

  COv3DLUT second;
  ASSERT_TRUE(second.LoadFromFile(path, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(cache.EntryCount(), entries + 1);
  EXPECT_EQ(cache.UsersOf(digestKey), 1);
  EXPECT_TRUE(second.CacheKey().empty());
  EXPECT_NE(second.Table(), first.Table()) << "read again, not shared";

  // New content under the old modification time is still read: the path is never a key.
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  dir.Write("again.cube", MarkedCube(0.75f));
  const timespec times[2] = {info.st_atim, info.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  COv3DLUT third;
  ASSERT_TRUE(third.LoadFromFile(path, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(MarkOf(third), 0.75f);
  EXPECT_EQ(cache.EntryCount(), entries + 2);
}

TEST_F(LUTLoad, AnEntryUnderThePathWithTheFileTimeIsSharedWithoutReading) {
  TempDir dir;
  const std::string path = dir.Write("keyed.cube", MarkedCube(0.25f));
  int64_t modified = 0;
  ASSERT_TRUE(Tincta::FileModificationTime(path, modified));
  auto& cache = Tincta::COvLUTCache::Instance();
  COv3DLUT entry;
  ASSERT_TRUE(entry.Allocate(128, false));
  for (size_t i = 0; i < 128 * 4; ++i)
    entry.Table()[i] = 0.5f;  // not what the file holds
  ASSERT_TRUE(cache.Insert(entry, path, modified));

  COv3DLUT lut;
  ASSERT_TRUE(lut.LoadFromFile(path, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(lut.Table(), entry.Table());
  EXPECT_EQ(lut.CacheKey(), path);
  EXPECT_EQ(lut.Timestamp(), modified);
  EXPECT_EQ(cache.UsersOf(path), 2);

  // Once the file is newer than the entry it is read again.
  const timespec times[2] = {{0, UTIME_OMIT}, {modified / 1'000'000'000 + 10, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  COv3DLUT fresh;
  ASSERT_TRUE(fresh.LoadFromFile(path, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(MarkOf(fresh), 0.25f);
  EXPECT_EQ(cache.UsersOf(path), 2);
}

// A float image of a four-entry 1-D table followed by zeros up to `bytes` (a sparse file).
std::string WriteSparseImage(const TempDir& dir, const char* name, uint64_t bytes) {
  uint8_t header[16 + 48] = {'O', 'V', 'T', 'X', 4, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
  const float ramp[12] = {0, 0, 0, 0.25f, 0.25f, 0.25f, 0.5f, 0.5f, 0.5f, 1, 1, 1};
  std::memcpy(header + 16, ramp, sizeof ramp);
  const std::string path = dir.Write(name, header, sizeof header);
  fs::resize_file(path, bytes);
  return path;
}

TEST_F(LUTLoad, FilesUpTo200MiBAreReadAndLargerOnesRefused) {
  TempDir dir;
  const std::string atLimit = WriteSparseImage(dir, "at-limit.bin", Tincta::kMaxLUTFileBytes);
  const std::string beyond = WriteSparseImage(dir, "beyond.bin", Tincta::kMaxLUTFileBytes + 1);
  ASSERT_EQ(Tincta::kMaxLUTFileBytes, 209'715'200u);
  COv3DLUT lut;
  ASSERT_TRUE(lut.LoadFromFile(atLimit, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(lut.Size(), 128u) << "four entries widened";
  COv3DLUT refused;
  EXPECT_FALSE(refused.LoadFromFile(beyond, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(refused.Size(), 0u);
}

struct SWidenCase {
  uint32_t size;
  uint32_t widened;
};

TEST_F(LUTLoad, Short1DTablesAreWidenedFromFileAndFromMemory) {
  const SWidenCase cases[] = {{1, 128},   {2, 128},   {17, 136},   {100, 200},
                              {127, 254}, {128, 128}, {4096, 4096}};
  TempDir dir;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    const std::string text = CubeText(
        "DOMAIN_MIN -1 0 0\nDOMAIN_MAX 1 2 4\nLUT_1D_SIZE " + std::to_string(c.size) + "\n", c.size,
        Identity1D(c.size));
    const std::string path = dir.Write("widen" + std::to_string(c.size) + ".cube", text);
    COv3DLUT fromFile;
    ASSERT_TRUE(fromFile.LoadFromFile(path, false, ELUTKindFilter::Any, true));
    COv3DLUT fromMemory;
    ASSERT_TRUE(fromMemory.LoadFromMemory(text.data(), uint32_t(text.size()), false,
                                          ELUTKindFilter::Any, true));
    for (const COv3DLUT* lut : {&fromFile, &fromMemory}) {
      ASSERT_EQ(lut->Size(), c.widened);
      EXPECT_FALSE(lut->Is3D());
      EXPECT_EQ(lut->DomainMin(), (Tincta::Vec4{-1, 0, 0, 1}));
      EXPECT_EQ(lut->DomainMax(), (Tincta::Vec4{1, 2, 4, 1}));
      EXPECT_FLOAT_EQ(lut->IndexScale()[2], float((c.widened - 1) / 4.0));
      // A ramp stays a ramp (a single entry stays a constant).
      for (uint32_t j = 0; j < c.widened; ++j) {
        const double expected = c.size == 1 ? 0.0 : double(j) / (c.widened - 1);
        ASSERT_NEAR(EntryAt(*lut, j)[0], expected, 1e-6) << j;
        ASSERT_EQ(EntryAt(*lut, j)[3], 1.0f);
      }
    }
  }
}

TEST_F(LUTLoad, MemoryLoadsKeepTitleAndPathAndStayOutOfTheCache) {
  auto& cache = Tincta::COvLUTCache::Instance();
  const size_t entries = cache.EntryCount();
  const std::string text = MarkedCube(1);
  COv3DLUT lut;
  lut.SetTitle("kept");
  ASSERT_TRUE(
      lut.LoadFromMemory(text.data(), uint32_t(text.size()), false, ELUTKindFilter::Any, true));
  EXPECT_EQ(lut.Title(), "kept");
  EXPECT_TRUE(lut.SourcePath().empty());
  EXPECT_TRUE(lut.CacheKey().empty());
  EXPECT_EQ(cache.EntryCount(), entries);
  EXPECT_FALSE(lut.LoadFromMemory(text.data(), 0, false, ELUTKindFilter::Any, true));
  EXPECT_FALSE(lut.LoadFromMemory(nullptr, 10, false, ELUTKindFilter::Any, true));
  EXPECT_EQ(lut.Size(), 0u);
}

// A packed 10-bit cube ("TUL3", little-endian) of 5 points per axis: the one format here that
// the upsampling setting visibly changes.
std::vector<uint8_t> Packed10Cube5() {
  const uint32_t dataOffset = 1024;
  std::vector<uint8_t> bytes(dataOffset + 125 * 4, 0);
  std::memcpy(bytes.data(), "TUL3", 4);
  std::memcpy(bytes.data() + 4, &dataOffset, 4);
  std::memset(bytes.data() + 660, 0xFF, 4);
  bytes[768] = 2;  // 2^2 + 1 points
  return bytes;
}

TEST_F(LUTLoad, TheUpsamplingSettingIsReadAtEveryParse) {
  const auto bytes = Packed10Cube5();
  auto& settings = host::Settings::Instance();
  struct {
    const char* setting;  // null: absent
    bool argument;
    uint32_t size;
  } const steps[] = {
      {nullptr, false, 5}, {"true", false, 8}, {"false", false, 5}, {"yes", false, 8},
      {nullptr, false, 5}, {nullptr, true, 8}, {"off", true, 8},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.setting ? step.setting : "absent");
    if (step.setting) {
      settings.SetString(host::kSettingAlwaysUpsampleToPoT, step.setting);
    } else {
      settings.Remove(host::kSettingAlwaysUpsampleToPoT);
    }
    COv3DLUT lut;
    ASSERT_TRUE(lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), step.argument,
                                 ELUTKindFilter::Any, false));
    EXPECT_EQ(lut.Size(), step.size);
  }
}

}  // namespace
