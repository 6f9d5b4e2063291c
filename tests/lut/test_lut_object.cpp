// COv3DLUT: table layout, domain mappings, the content digest, the LUT cache, loading, and
// resampling against an independent Catmull-Rom evaluation, alone and in the readers that upsample.
#include <fcntl.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <tuple>

#include "foundation/file.h"
#include "foundation/hex_codec.h"
#include "support/lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

namespace fs = std::filesystem;

TEST(LUTObject, AllocateAndSetDomainMapTheDomainOntoTexelCentresAndIndices) {
  const std::tuple<uint32_t, bool, Vec4, Vec4> cases[] = {
      {33, true, {0, 0, 0, 1}, {1, 1, 1, 1}},
      {17, true, {-0.5f, 0.25f, 2, 0}, {1.5f, 0.75f, 10, 1}},
      {2, false, {0, 0, 0, 0}, {0.0002f, -1, 1, 1}},
      {65536, false, {0.1f, 0.1f, 0.1f, 0}, {0.1f, 0.10005f, 0.09995f, 1}},  // the 1e-4 rule
  };
  for (const auto& [size, is3D, min, max] : cases) {
    COv3DLUT lut;
    lut.SetDomain({-1, -1, -1, 1}, {2, 2, 2, 1});
    ASSERT_TRUE(lut.Allocate(size, is3D));
    EXPECT_EQ(lut.DomainMin(), (Vec4{0, 0, 0, 0}));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(lut.Table()) % 16, 0u);
    EXPECT_EQ(lut.StrideGreen() + lut.StrideBlue(), is3D ? 4 * size * (size + 1) : 0);
    lut.Table()[lut.EntryCount() * 4 - 1] = 1.0f;  // the address sanitizer watches the end
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

// What the digest covers is pinned by the golden texture keys and identifiers of tests/api.
TEST(LUTObject, ContentDigestIsKeptOnceComputedAndTravelsWithCopies) {
  EXPECT_EQ(COv3DLUT().ContentDigest(), Tincta::Md5Digest{});
  COv3DLUT lut, fresh;
  for (COv3DLUT* table : {&lut, &fresh}) {
    ASSERT_TRUE(table->Allocate(3, true));
    std::fill_n(table->Table(), table->EntryCount() * 4, 0.25f);
  }
  const Tincta::Md5Digest digest = lut.ContentDigest();
  EXPECT_NE(digest, Tincta::Md5Digest{});
  lut.Table()[0] = fresh.Table()[0] = 99;  // later changes do not reach it
  EXPECT_EQ(lut.ContentDigest(), digest);
  EXPECT_EQ(COv3DLUT(lut).ContentDigest(), digest) << "a copy carries the kept digest";
  EXPECT_NE(fresh.ContentDigest(), digest);
}

using LUTCache = LUTTest;

// A 1-D table of `size` entries (16 bytes each), every float `mark`.
std::unique_ptr<COv3DLUT> Table(uint32_t size, float mark = 0) {
  auto lut = std::make_unique<COv3DLUT>();
  Fill(*lut, size, false, [mark](size_t) { return Vec4{mark, mark, mark, mark}; });
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
  return lut.LoadFromFile(path, false, ELUTKindFilter::Any, true);
}

TEST_F(LUTLoad, RelativePathsTryTheLUTDirectoryFirstThenAsGiven) {
  TempDir dir;
  const std::string base = (dir.Path() / "base").string();
  const std::string absolute = (dir.Path() / "work/looks/absolute.cube").string();
  for (const std::string& folder : {(dir.Path() / "work/looks").string(), base + "/looks",
                                    base + fs::path(absolute).parent_path().string()})
    fs::create_directories(folder);
  dir.Write("base/looks/both.cube", MarkedCube(1));
  dir.Write("work/looks/both.cube", MarkedCube(2));
  dir.Write("work/looks/cwd-only.cube", MarkedCube(3));
  dir.Write("work/looks/absolute.cube", MarkedCube(4));
  dir.Write("base" + absolute, MarkedCube(5));  // found only when the path counts as relative
  const std::string dotted = (dir.Path() / "work/looks/../looks/absolute.cube").string();
  host::Settings::Instance().SetString(host::kSettingLUTBaseDirectory, base);
  const fs::path previous = fs::current_path();
  fs::current_path(dir.Path() / "work");
  const std::tuple<std::string, float, std::string> cases[] = {
      {"looks/both.cube", 1, base + "/looks/both.cube"},
      {"looks/cwd-only.cube", 3, "looks/cwd-only.cube"},
      {absolute, 4, absolute},
      {dotted, 5, base + "/" + dotted},  // ".." makes any path relative
      {"looks/none.cube", -1, ""},
  };
  for (const auto& [path, mark, opened] : cases) {
    COv3DLUT lut;
    EXPECT_EQ(Load(lut, path), mark > 0) << path;
    EXPECT_EQ(lut.Size() ? lut.Table()[0] : -1.0f, mark) << path;
    EXPECT_EQ(lut.SourcePath(), opened) << path;
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
    fromMemory.SetTitle("kept");
    ASSERT_TRUE(Load(fromFile, dir.Write(std::to_string(size), text)));
    const size_t entries = Tincta::COvLUTCache::Instance().EntryCount();
    ASSERT_TRUE(fromMemory.LoadFromMemory(text.data(), uint32_t(text.size()), false, {}, true));
    // From memory the title stays, and neither a path nor a cache entry comes with the table.
    EXPECT_TRUE(fromMemory.Title() == "kept" && fromMemory.SourcePath().empty() &&
                fromMemory.CacheKey().empty());
    EXPECT_EQ(Tincta::COvLUTCache::Instance().EntryCount(), entries);
    for (const COv3DLUT* lut : {&fromFile, &fromMemory}) {
      ASSERT_EQ(lut->Size(), widened) << size;
      EXPECT_EQ(lut->DomainMax(), (Vec4{1, 2, 4, 1}));
      EXPECT_FLOAT_EQ(lut->IndexScale()[2], float((widened - 1) / 4.0));
      for (uint32_t j = 0; j < widened; ++j)  // a ramp stays a ramp, one entry a constant
        ASSERT_NEAR(At(*lut, j)[0], size == 1 ? 0.0 : double(j) / (widened - 1), 1e-6) << j;
    }
  }
  COv3DLUT lut;  // no bytes leave no table
  ASSERT_TRUE(Parse(lut, CubeText1D(2)));
  EXPECT_FALSE(lut.LoadFromMemory("", 0, false, {}, true));
  ExpectCleared(lut);
}

// Catmull-Rom through evenly spaced samples over [0, 1], in index units, with one-sided end
// tangents: the model that resampling must follow.
double CatmullRom(const std::vector<double>& y, double x) {
  const size_t n = y.size(), k = std::min(size_t(x * double(n - 1)), n - 2);
  const double t = x * double(n - 1) - double(k), t2 = t * t, t3 = t2 * t;
  const auto tangent = [&](size_t i) {
    return i == 0 ? y[1] - y[0] : i == n - 1 ? y[n - 1] - y[n - 2] : (y[i + 1] - y[i - 1]) / 2;
  };
  return (2 * t3 - 3 * t2 + 1) * y[k] + (t3 - 2 * t2 + t) * tangent(k) +
         (-2 * t3 + 3 * t2) * y[k + 1] + (t3 - t2) * tangent(k + 1);
}

// A cube that mixes the axes, from 5 to 9 points and back (in the table's own memory), and a 1-D
// table. Resampling is linear in the samples: the model weighs them by Catmull-Rom of unit samples.
TEST(Resample, CurvedTablesFollowCatmullRomAlongEachAxis) {
  for (const auto& [n, m] : {std::pair<uint32_t, uint32_t>{5, 9}, {9, 5}}) {
    const auto node = [n = n](uint32_t ri, uint32_t gi, uint32_t bi, int c) {
      const double r = ri / double(n - 1), g = gi / double(n - 1), b = bi / double(n - 1);
      return c == 0   ? std::pow(r, 2.2) * (1 + g) + b
             : c == 1 ? std::sin(5 * r) * std::cos(2 * b) + g * g * g
                      : r * g * b - std::sqrt(g) + 1 - std::sqrt(r);
    };
    std::vector<std::vector<double>> weight(m, std::vector<double>(n));
    for (uint32_t j = 0; j < m; ++j)
      for (uint32_t i = 0; i < n; ++i) {
        std::vector<double> unit(n, 0.0);
        unit[i] = 1;
        weight[j][i] = CatmullRom(unit, double(j) / (m - 1));
      }
    for (const bool is3D : {false, true}) {
      COv3DLUT lut;
      ASSERT_TRUE(lut.Allocate(n, is3D));
      for (uint32_t i = 0; i < lut.EntryCount() * 4; ++i) {
        const uint32_t e = i / 4;
        lut.Table()[i] = i % 4 == 3 ? 1.0f : float(node(e % n, e / n % n, e / n / n, int(i % 4)));
      }
      ASSERT_TRUE(lut.Resample(m));
      const uint32_t along = is3D ? n : 1;
      for (uint32_t e = 0; e < lut.EntryCount(); ++e) {
        const uint32_t r = e % m, g = e / m % m, b = e / m / m;
        for (int c = 0; c < 3; ++c) {
          double expected = 0;
          for (uint32_t k = 0; k < along; ++k)
            for (uint32_t j = 0; j < along; ++j)
              for (uint32_t i = 0; i < n; ++i)
                expected += weight[r][i] * (is3D ? weight[g][j] * weight[b][k] : 1) *
                            float(node(i, j, k, c));
          ASSERT_NEAR(At(lut, e)[c], expected, 1e-6) << n << " " << is3D << " " << e << " " << c;
        }
      }
    }
  }
}

using Upsampling = LUTTest;

// Keeping the identity; a kept Truelight shaper goes to the power of two above its length, and the
// setting acts as the argument.
TEST_F(Upsampling, ReadersGoToThePowerOfTwoAboveUpToTheirCaps) {
  const auto code = [](uint32_t n, uint32_t i) { return i * 1023 / (n - 1); };
  const auto truelight = [](uint32_t n, uint32_t shaperLength) {
    std::vector<Rgb> shaper = IdentityRamp(shaperLength);
    shaper[0].fill(0.1f);  // not the identity: kept
    return TruelightText(n, shaper, [w = float(n - 1)](uint32_t r, uint32_t g, uint32_t b) {
      return Rgb{float(r) / w, float(g) / w, float(b) / w};
    });
  };
  const auto mesh = [&code](uint32_t exponent, uint32_t n) {
    return MeshText("3DMESH\nMesh " + std::to_string(exponent) + " 10\n", n,
                    [&](uint32_t r, uint32_t g, uint32_t b) {
                      return Codes{code(n, r), code(n, g), code(n, b)};
                    });
  };
  const auto packed = [&code](uint32_t exponent, uint32_t n) {
    return AsText(
        Packed10Bytes(exponent % 2 == 0, exponent, [&](uint32_t r, uint32_t g, uint32_t b) {
          return PackWord(code(n, r), code(n, g), code(n, b));
        }));
  };
  const struct {
    std::string bytes;
    uint32_t before, after, shaper = 0;  // shaper: its length when upsampled
    bool bySetting = false;
  } cases[] = {
      {truelight(17, 5), 17, 32, 8}, {truelight(129, 4), 129, 128, 4}, {mesh(4, 17), 17, 32},
      {mesh(7, 129), 129, 128},      {packed(4, 17), 17, 32},          {packed(6, 65), 65, 128},
      {packed(1, 3), 3, 4, 0, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bytes.substr(0, 4) << " " << c.before);
    if (c.bySetting) host::Settings::Instance().SetBool(host::kSettingAlwaysUpsampleToPoT, true);
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, c.bytes, {.upsampleToPowerOfTwo = !c.bySetting}));
    const uint32_t n = c.after;
    ASSERT_EQ(lut.Size(), n);
    double worst = 0;
    for (uint32_t i = 0; i < lut.EntryCount(); ++i) {
      const uint32_t node[3] = {i % n, i / n % n, i / n / n};
      for (int ch = 0; ch < 3; ++ch)
        worst = std::max(worst, std::fabs(lut.Table()[4 * i + ch] - double(node[ch]) / (n - 1)));
    }
    EXPECT_LT(worst, 2e-3);
    EXPECT_EQ(lut.InputShaper() ? lut.InputShaper()->Size() : 0u, c.shaper);
    EXPECT_FLOAT_EQ(lut.DomainMin()[0], c.shaper ? 0.5f / float(n) : 0.0f);
    host::Settings::Instance().Remove(host::kSettingAlwaysUpsampleToPoT);
    ASSERT_TRUE(Parse(lut, c.bytes));
    EXPECT_EQ(lut.Size(), c.before);
  }
}

}  // namespace
}  // namespace crandle_test
