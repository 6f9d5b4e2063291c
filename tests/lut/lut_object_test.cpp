// COv3DLUT: table layout, domain mappings, the content digest, the LUT cache, and loading from
// files and memory.
#include <fcntl.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <tuple>

#include "foundation/file.h"
#include "foundation/hex_codec.h"
#include "foundation/md5.h"
#include "lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::Vec4;
namespace fs = std::filesystem;

TEST(LUTObject, AllocateLaysOutAlignedEntriesAndResetsTheDomain) {
  const std::tuple<uint32_t, bool, size_t> cases[] = {
      {65536, false, 65536}, {1, true, 1}, {17, true, 4913}};
  for (const auto& [size, is3D, entries] : cases) {
    COv3DLUT lut;
    lut.SetDomain({-1, -1, -1, 1}, {2, 2, 2, 1});
    ASSERT_TRUE(lut.Allocate(size, is3D));
    EXPECT_EQ(lut.EntryCount(), entries);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(lut.Table()) % 16, 0u);
    EXPECT_EQ(lut.StrideGreen() + lut.StrideBlue(), is3D ? 4 * size * (size + 1) : 0);
    EXPECT_EQ(lut.DomainMin(), (Vec4{0, 0, 0, 0}));
    lut.Table()[entries * 4 - 1] = 1.0f;  // the address sanitizer watches the end
  }
}

TEST(LUTObject, SetDomainMapsTheDomainOntoTexelCentresAndIndices) {
  const std::tuple<uint32_t, Vec4, Vec4> cases[] = {
      {33, {0, 0, 0, 1}, {1, 1, 1, 1}},
      {17, {-0.5f, 0.25f, 2, 0}, {1.5f, 0.75f, 10, 1}},
      {2, {0, 0, 0, 0}, {0.0002f, -1, 1, 1}},
      {4096, {0.1f, 0.1f, 0.1f, 0}, {0.1f, 0.10005f, 0.09995f, 1}},  // the 1e-4 rule
  };
  for (const auto& [size, min, max] : cases) {
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(size, false));
    lut.SetDomain(min, max);
    const double n = size;
    for (int c = 0; c < 4; ++c) {
      const double range = double(max[c]) - double(min[c]), scale = lut.TextureScale()[c];
      if (c < 3) {
        const double index = std::fabs(range) <= 0.0001 ? (n - 1) * 10000 : (n - 1) / range;
        EXPECT_FLOAT_EQ(lut.IndexScale()[c], float(index)) << size << " " << c;
      }
      if (range == 0) continue;
      const double tolerance = 1e-5 * std::fabs(scale) + 1e-6;
      EXPECT_NEAR(min[c] * scale + lut.TextureOffset()[c], 0.5 / n, tolerance) << size << c;
      EXPECT_NEAR(max[c] * scale + lut.TextureOffset()[c], 1 - 0.5 / n, tolerance) << size << c;
    }
  }
}

TEST(LUTObject, ContentDigestCoversTableDomainAndShaperOnce) {
  EXPECT_EQ(COv3DLUT().ContentDigest(), Tincta::Md5Digest{});
  COv3DLUT lut;
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(lut.Allocate(3, true) && shaper->Allocate(5, false));
  for (size_t i = 0; i < lut.EntryCount() * 4; ++i)
    lut.Table()[i] = float(i) * 0.25f;
  for (size_t i = 0; i < 20; ++i)
    shaper->Table()[i] = float(i) / 19;
  lut.SetDomain({-1, 0, 0, 1}, {1, 2, 3, 1});
  std::string input(reinterpret_cast<const char*>(lut.Table()), lut.TableBytes());
  input.append(reinterpret_cast<const char*>(lut.DomainMin().data()), 16);
  input.append(reinterpret_cast<const char*>(lut.DomainMax().data()), 16);
  const auto plain = Tincta::Md5Of(input.data(), input.size());
  input.append(reinterpret_cast<const char*>(shaper->Table()), shaper->TableBytes());
  const auto shaped = Tincta::Md5Of(input.data(), input.size());
  EXPECT_EQ(COv3DLUT(lut).ContentDigest(), plain);
  lut.SetInputShaper(shaper);
  EXPECT_EQ(lut.ContentDigest(), shaped);
  lut.Table()[0] = 99;  // kept: later changes do not reach it
  EXPECT_EQ(lut.ContentDigest(), shaped);
  EXPECT_EQ(COv3DLUT(lut).ContentDigest(), shaped) << "a copy carries the kept digest";
}

using LUTCache = LUTTest;

// A 1-D table of `size` entries (16 bytes each), every float `mark`.
std::unique_ptr<COv3DLUT> Table(uint32_t size, float mark = 0) {
  auto lut = std::make_unique<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(size, false));
  std::fill(lut->Table(), lut->Table() + 4 * size, mark);
  return lut;
}

TEST_F(LUTCache, UsersShareOneTableCountedOnceAndInsertsStayWithinTheBudget) {
  auto& cache = Tincta::COvLUTCache::Instance();
  const uint64_t stored = cache.StoredBytes(), inUse = cache.InUseBytes();
  cache.SetByteBudget(inUse + 2048);
  auto lut = Table(64), other = Table(64), tooBig = Table(65);
  ASSERT_TRUE(cache.Insert(*lut, "test:a", 42));
  EXPECT_FALSE(cache.Insert(*other, "test:a", 1)) << "an existing key";
  EXPECT_FALSE(cache.Insert(*lut, "test:b", 1)) << "already a cache user";
  EXPECT_FALSE(cache.Insert(*tooBig, "test:big", 1)) << "in use + 1040 passes the budget";
  auto copy = cache.CopyOf("test:a");
  auto second = std::make_unique<COv3DLUT>(*copy);
  EXPECT_EQ(second->Table(), lut->Table());
  EXPECT_EQ(second->CacheKey(), "test:a");
  EXPECT_EQ(cache.UsersOf("test:a"), 3);
  EXPECT_EQ(cache.InUseBytes(), inUse + 1024);
  EXPECT_TRUE(cache.Insert(*other, "test:b", 1)) << "in use + 1024 reaches the budget";
  cache.SetByteBudget(0);
  EXPECT_EQ(cache.UsersOf("test:a") + cache.UsersOf("test:b"), 4) << "entries in use stay";
  cache.SetByteBudget(inUse + 2048);
  other.reset();
  second.reset();
  copy.reset();
  EXPECT_EQ(cache.UsersOf("test:a"), 1);
  lut->Clear();
  EXPECT_TRUE(lut->CacheKey().empty());
  EXPECT_EQ(cache.UsersOf("test:a"), 0);
  EXPECT_EQ(cache.InUseBytes(), inUse);
  EXPECT_EQ(cache.StoredBytes(), stored + 2048) << "unused entries stay while they fit";
  // A copy of an object outside the cache shares the table and stays outside.
  auto own = Table(8, 31);
  const COv3DLUT ownCopy(*own);
  own.reset();
  EXPECT_EQ(ownCopy.Table()[31], 31.0f) << "the table outlives the object it came from";
  EXPECT_EQ(cache.InUseBytes(), inUse);
}

using LUTLoad = LUTTest;

// A 1-D cube of 128 entries, every value `mark`, so that files can be told apart.
std::string MarkedCube(double mark) {
  return CubeText1D(
      128, [mark](double, double, double, double out[3]) { out[0] = out[1] = out[2] = mark; });
}

bool Load(COv3DLUT& lut, const std::string& path) {
  return lut.LoadFromFile(path, false, Tincta::ELUTKindFilter::Any, true);
}

bool LoadFromMemory(COv3DLUT& lut, std::string_view text) {
  return lut.LoadFromMemory(text.data(), uint32_t(text.size()), false, {}, true);
}

TEST_F(LUTLoad, RelativePathsTryTheLUTDirectoryFirstThenAsGiven) {
  TempDir dir;
  const std::string base = (dir.Path() / "base").string();
  const std::string absolute = (dir.Path() / "work/looks/absolute.cube").string();
  fs::create_directories(dir.Path() / "work/looks");
  fs::create_directories(base + "/looks");
  fs::create_directories(base + fs::path(absolute).parent_path().string());
  dir.Write("base/looks/both.cube", MarkedCube(1));
  dir.Write("work/looks/both.cube", MarkedCube(2));
  dir.Write("work/looks/cwd-only.cube", MarkedCube(3));
  dir.Write("work/looks/absolute.cube", MarkedCube(4));
  dir.Write("base" + absolute, MarkedCube(5));  // found only when the path counts as relative
  const std::string dotted = (dir.Path() / "work/looks/../looks/absolute.cube").string();
  host::Settings::Instance().SetString(host::kSettingLUTBaseDirectory, base);
  const fs::path previous = fs::current_path();
  fs::current_path(dir.Path() / "work");
  const struct {
    std::string path;
    float mark;
    std::string opened;
  } cases[] = {
      {"looks/both.cube", 1, base + "/looks/both.cube"},
      {"looks/cwd-only.cube", 3, "looks/cwd-only.cube"},
      {absolute, 4, absolute},
      {dotted, 5, base + "/" + dotted},  // ".." makes any path relative
      {"looks/../looks/both.cube", 1, base + "/looks/../looks/both.cube"},
      {"looks/none.cube", -1, ""},
  };
  for (const auto& c : cases) {
    COv3DLUT lut;
    EXPECT_EQ(Load(lut, c.path), c.mark > 0) << c.path;
    EXPECT_EQ(lut.Size() ? lut.Table()[0] : -1.0f, c.mark) << c.path;
    EXPECT_EQ(lut.SourcePath(), c.opened) << c.path;
  }
  fs::current_path(previous);
}

TEST_F(LUTLoad, LoadsGoThroughTheCacheUnderTheDigestAndShareEntriesUnderThePath) {
  TempDir dir;
  auto& cache = Tincta::COvLUTCache::Instance();
  const std::string path = dir.Write("Film Look.v2.cube", MarkedCube(0.5));
  const size_t entries = cache.EntryCount();
  COv3DLUT first, second, shared, fresh;
  ASSERT_TRUE(Load(first, path));
  EXPECT_EQ(first.Title(), "Film Look.v2");
  std::string key;
  Tincta::AppendHex(key, first.ContentDigest().data(), 16);
  EXPECT_EQ(first.CacheKey(), key);
  // A second load finds no entry under the path: it reads again and adds no entry.
  ASSERT_TRUE(Load(second, path));
  EXPECT_NE(second.Table(), first.Table());
  EXPECT_EQ(cache.UsersOf(key), 1);
  EXPECT_EQ(cache.EntryCount(), entries + 1);
  // An entry under the path with the file's time is shared without reading the file, until the
  // file is newer.
  int64_t modified = 0;
  ASSERT_TRUE(Tincta::FileModificationTime(path, modified));
  COv3DLUT entry;
  ASSERT_TRUE(entry.Allocate(1, false));
  ASSERT_TRUE(cache.Insert(entry, path, modified));
  ASSERT_TRUE(Load(shared, path));
  EXPECT_EQ(shared.Table(), entry.Table());
  EXPECT_EQ(shared.CacheKey(), path);
  EXPECT_EQ(shared.Timestamp(), modified);
  EXPECT_EQ(cache.UsersOf(path), 2);
  const timespec newer[2] = {{0, UTIME_OMIT}, {modified / 1'000'000'000 + 10, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), newer, 0), 0);
  ASSERT_TRUE(Load(fresh, path));
  EXPECT_EQ(fresh.Size(), 128u);
}

TEST_F(LUTLoad, FilesUpTo200MiBAreReadAndLargerOnesRefused) {
  ASSERT_EQ(Tincta::kMaxLUTFileBytes, 209'715'200u);
  TempDir dir;
  // A four-entry float image padded with zeros (a sparse file).
  const auto image = FloatImageBytes({"OVTX", 4, 1}, 4, [](uint64_t i) { return Rgb{float(i)}; });
  for (const uint64_t bytes : {Tincta::kMaxLUTFileBytes, Tincta::kMaxLUTFileBytes + 1}) {
    const std::string path = dir.Write(std::to_string(bytes), image.data(), image.size());
    fs::resize_file(path, bytes);
    COv3DLUT lut;
    EXPECT_EQ(Load(lut, path), bytes == Tincta::kMaxLUTFileBytes) << bytes;
  }
}

TEST_F(LUTLoad, Short1DTablesAreWidenedFromFileAndFromMemory) {
  const std::pair<uint32_t, uint32_t> cases[] = {{1, 128},   {2, 128},   {17, 136},   {100, 200},
                                                 {127, 254}, {128, 128}, {4096, 4096}};
  TempDir dir;
  for (const auto& [size, widened] : cases) {
    const std::string text = "DOMAIN_MIN -1 0 0\nDOMAIN_MAX 1 2 4\n" + CubeText1D(size);
    COv3DLUT fromFile, fromMemory;
    ASSERT_TRUE(Load(fromFile, dir.Write(std::to_string(size), text)));
    ASSERT_TRUE(LoadFromMemory(fromMemory, text));
    for (const COv3DLUT* lut : {&fromFile, &fromMemory}) {
      ASSERT_EQ(lut->Size(), widened) << size;
      EXPECT_EQ(lut->DomainMax(), (Tincta::Vec4{1, 2, 4, 1}));
      EXPECT_FLOAT_EQ(lut->IndexScale()[2], float((widened - 1) / 4.0));
      for (uint32_t j = 0; j < widened; ++j)  // a ramp stays a ramp, one entry a constant
        ASSERT_NEAR(At(*lut, j)[0], size == 1 ? 0.0 : double(j) / (widened - 1), 1e-6) << j;
    }
  }
  // From memory the title and path stay and nothing enters the cache.
  const size_t entries = Tincta::COvLUTCache::Instance().EntryCount();
  COv3DLUT lut;
  lut.SetTitle("kept");
  ASSERT_TRUE(LoadFromMemory(lut, MarkedCube(1)));
  EXPECT_EQ(lut.Title(), "kept");
  EXPECT_TRUE(lut.SourcePath().empty() && lut.CacheKey().empty());
  EXPECT_EQ(Tincta::COvLUTCache::Instance().EntryCount(), entries);
  EXPECT_FALSE(LoadFromMemory(lut, ""));
  ExpectCleared(lut);
}

}  // namespace
}  // namespace crandle_test
