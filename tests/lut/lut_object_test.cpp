// COv3DLUT itself: table layout, domain mappings, the content digest, RGB widening, copies.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "foundation/hex_codec.h"
#include "foundation/md5.h"
#include "lut/lut3d.h"
#include "lut_test_helpers.h"
#include "support/temp_dir.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::Vec4;
using namespace crandle_test;

struct SLayoutCase {
  uint32_t size;
  bool is3D;
  size_t entries;
};

TEST(LUTObject, AllocateGivesAlignedTableWithEntriesAndStrides) {
  const SLayoutCase cases[] = {{1, false, 1},    {2, false, 2},     {65536, false, 65536},
                               {1, true, 1},     {2, true, 8},      {3, true, 27},
                               {17, true, 4913}, {65, true, 274625}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "size " << c.size << (c.is3D ? " 3-D" : " 1-D"));
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(c.size, c.is3D));
    EXPECT_EQ(lut.Size(), c.size);
    EXPECT_EQ(lut.Is3D(), c.is3D);
    EXPECT_EQ(lut.EntryCount(), c.entries);
    EXPECT_EQ(lut.TableBytes(), c.entries * 16);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(lut.Table()) % 16, 0u);
    EXPECT_EQ(lut.StrideGreen(), c.is3D ? c.size * 4 : 0u);
    EXPECT_EQ(lut.StrideBlue(), c.is3D ? c.size * c.size * 4 : 0u);
    // The whole table is writable (the address sanitizer watches the last float).
    lut.Table()[c.entries * 4 - 1] = 1.0f;
  }
}

TEST(LUTObject, CubeEntriesSitRedFastest) {
  // Data lines of a two-point cube, numbered in file order.
  const std::string text = CubeText("LUT_3D_SIZE 2\n", 8, [](uint32_t i) {
    return std::array<float, 3>{float(i), float(10 * i), float(100 * i)};
  });
  COv3DLUT lut;
  ASSERT_TRUE(lut.ParseLUTData(text.data(), uint32_t(text.size()), false,
                               Tincta::ELUTKindFilter::Any, false));
  ASSERT_EQ(lut.EntryCount(), 8u);
  struct {
    uint32_t r, g, b;
    size_t entry;
  } const grid[] = {{0, 0, 0, 0}, {1, 0, 0, 1}, {0, 1, 0, 2}, {1, 1, 0, 3},
                    {0, 0, 1, 4}, {1, 0, 1, 5}, {0, 1, 1, 6}, {1, 1, 1, 7}};
  for (const auto& node : grid) {
    SCOPED_TRACE(testing::Message() << "node " << node.r << node.g << node.b);
    const float* viaStrides =
        lut.Table() + 4 * node.r + node.g * lut.StrideGreen() + node.b * lut.StrideBlue();
    EXPECT_EQ(viaStrides[0], float(node.entry));
    EXPECT_EQ(viaStrides[3], 1.0f);
    EXPECT_EQ(EntryAt(lut, node.entry)[1], float(10 * node.entry));
  }
}

TEST(LUTObject, AllocateRefusesZeroAndResetsTheDomain) {
  COv3DLUT lut;
  EXPECT_FALSE(lut.Allocate(0, true));
  EXPECT_EQ(lut.Table(), nullptr);
  ASSERT_TRUE(lut.Allocate(4, false));
  lut.SetDomain({-1, -1, -1, 1}, {2, 2, 2, 1});
  EXPECT_FALSE(lut.Allocate(0, false));
  EXPECT_EQ(lut.Size(), 4u) << "a refused allocation leaves the table";
  ASSERT_TRUE(lut.Allocate(3, true));
  EXPECT_EQ(lut.DomainMin(), (Vec4{0, 0, 0, 0}));
  EXPECT_EQ(lut.DomainMax(), (Vec4{1, 1, 1, 1}));
}

struct SDomainCase {
  uint32_t size;
  Vec4 min, max;
};

TEST(LUTObject, SetDomainDerivesTextureAndIndexMappings) {
  const SDomainCase cases[] = {
      {33, {0, 0, 0, 1}, {1, 1, 1, 1}},
      {17, {-0.5f, 0.25f, 2, 0}, {1.5f, 0.75f, 10, 1}},
      {2, {0, 0, 0, 0}, {0.0002f, -1, 1, 1}},
      {4096, {0.1f, 0.1f, 0.1f, 0}, {0.1f, 0.10005f, 0.09995f, 1}},
      {65, {1, 0, 0, 0}, {0, 1, 1, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "size " << c.size);
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(c.size, false));
    lut.SetDomain(c.min, c.max);
    EXPECT_EQ(lut.DomainMin(), c.min);
    EXPECT_EQ(lut.DomainMax(), c.max);
    const double n = c.size;
    for (int ch = 0; ch < 4; ++ch) {
      const double range = double(c.max[ch]) - double(c.min[ch]);
      if (range == 0) continue;
      // The domain's ends land on the centres of the first and last texels.
      const double first = c.min[ch] * double(lut.TextureScale()[ch]) + lut.TextureOffset()[ch];
      const double last = c.max[ch] * double(lut.TextureScale()[ch]) + lut.TextureOffset()[ch];
      EXPECT_NEAR(first, 0.5 / n, 1e-5 * std::fabs(lut.TextureScale()[ch]) + 1e-6) << ch;
      EXPECT_NEAR(last, 1 - 0.5 / n, 1e-5 * std::fabs(lut.TextureScale()[ch]) + 1e-6) << ch;
    }
    for (int ch = 0; ch < 3; ++ch) {
      const double range = double(c.max[ch]) - double(c.min[ch]);
      const double expected = std::fabs(range) <= 0.0001 ? (n - 1) * 10000 : (n - 1) / range;
      EXPECT_FLOAT_EQ(lut.IndexScale()[ch], float(expected)) << ch;
    }
  }
}

TEST(LUTObject, NarrowDomainUsesTheTenThousandRule) {
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(17, true));
  lut.SetDomain({0.5f, 0.5f, 0.5f, 1}, {0.5f, 0.50009f, 0.5002f, 1});
  EXPECT_EQ(lut.IndexScale()[0], 160000.0f);
  EXPECT_EQ(lut.IndexScale()[1], 160000.0f);
  EXPECT_NEAR(lut.IndexScale()[2], 16 / 0.0002, 16 / 0.0002 * 1e-3);
  EXPECT_TRUE(std::isfinite(lut.IndexScale()[0]));
}

std::vector<uint8_t> DigestInput(const COv3DLUT& lut, const COv3DLUT* shaper) {
  std::vector<uint8_t> bytes(reinterpret_cast<const uint8_t*>(lut.Table()),
                             reinterpret_cast<const uint8_t*>(lut.Table()) + lut.TableBytes());
  for (const Vec4* v : {&lut.DomainMin(), &lut.DomainMax()}) {
    for (float f : *v) {
      uint8_t raw[4];
      std::memcpy(raw, &f, 4);
      bytes.insert(bytes.end(), raw, raw + 4);
    }
  }
  if (shaper) {
    const auto* s = reinterpret_cast<const uint8_t*>(shaper->Table());
    bytes.insert(bytes.end(), s, s + shaper->TableBytes());
  }
  return bytes;
}

TEST(LUTObject, ContentDigestCoversTableDomainAndShaperAndIsKept) {
  COv3DLUT empty;
  EXPECT_EQ(empty.ContentDigest(), Tincta::Md5Digest{});

  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(3, true));
  for (size_t i = 0; i < lut.EntryCount() * 4; ++i)
    lut.Table()[i] = float(i) * 0.25f;
  lut.SetDomain({-1, 0, 0, 1}, {1, 2, 3, 1});
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(5, false));
  for (size_t i = 0; i < 20; ++i)
    shaper->Table()[i] = float(i) / 19;
  lut.SetInputShaper(shaper);

  const auto input = DigestInput(lut, shaper.get());
  const Tincta::Md5Digest expected = Tincta::Md5Of(input.data(), input.size());
  EXPECT_EQ(lut.ContentDigest(), expected);
  std::string hex;
  Tincta::AppendHex(hex, expected.data(), expected.size());
  EXPECT_EQ(hex.size(), 32u);

  // Computed once: later changes of the table do not reach it.
  lut.Table()[0] = 99;
  EXPECT_EQ(lut.ContentDigest(), expected);
  // A copy carries the kept digest by value.
  const COv3DLUT copy(lut);
  EXPECT_EQ(copy.ContentDigest(), expected);

  // Without the shaper the digest is of table and domain alone.
  COv3DLUT plain;
  ASSERT_TRUE(plain.Allocate(3, true));
  std::memcpy(plain.Table(), lut.Table(), lut.TableBytes());
  plain.SetDomain(lut.DomainMin(), lut.DomainMax());
  const auto plainInput = DigestInput(plain, nullptr);
  EXPECT_EQ(plain.ContentDigest(), Tincta::Md5Of(plainInput.data(), plainInput.size()));
}

TEST(LUTObject, ExpandRGBToRGBAInPlaceAndApart) {
  for (size_t count : {0u, 1u, 2u, 7u}) {
    SCOPED_TRACE(count);
    std::vector<float> packed(count * 3);
    for (size_t i = 0; i < packed.size(); ++i)
      packed[i] = float(i) + 0.5f;
    std::vector<float> inPlace(count * 4 + 1, -7.0f);
    std::copy(packed.begin(), packed.end(), inPlace.begin());
    std::vector<float> apart(count * 4 + 1, -7.0f);
    COv3DLUT::ExpandRGBToRGBA(inPlace.data(), inPlace.data(), count, 1.0f);
    COv3DLUT::ExpandRGBToRGBA(apart.data(), packed.data(), count, 0.25f);
    for (size_t i = 0; i < count; ++i) {
      for (size_t c = 0; c < 3; ++c) {
        EXPECT_EQ(inPlace[4 * i + c], packed[3 * i + c]);
        EXPECT_EQ(apart[4 * i + c], packed[3 * i + c]);
      }
      EXPECT_EQ(inPlace[4 * i + 3], 1.0f);
      EXPECT_EQ(apart[4 * i + 3], 0.25f);
    }
    EXPECT_EQ(inPlace.back(), -7.0f) << "nothing written past the last entry";
    EXPECT_EQ(apart.back(), -7.0f);
  }
}

class LUTObjectCopies : public LUTCoreTest {};

TEST_F(LUTObjectCopies, CopiesOfACacheUserShareTheTableAndCountAsUsers) {
  TempDir dir;
  const std::string path =
      dir.Write("shared.cube", CubeText("TITLE \"Shared\"\nLUT_3D_SIZE 3\n", 27, Identity3D(3)));
  auto& cache = Tincta::COvLUTCache::Instance();
  const size_t entriesBefore = cache.EntryCount();
  const uint64_t inUseBefore = cache.InUseBytes();

  COv3DLUT lut;
  ASSERT_TRUE(lut.LoadFromFile(path, false, Tincta::ELUTKindFilter::Any, true));
  const std::string key = lut.CacheKey();
  ASSERT_EQ(key.size(), 32u);
  EXPECT_EQ(cache.EntryCount(), entriesBefore + 1);
  EXPECT_EQ(cache.UsersOf(key), 1);
  EXPECT_EQ(cache.InUseBytes(), inUseBefore + 27 * 16);
  {
    const COv3DLUT first(lut);
    EXPECT_EQ(first.Table(), lut.Table());
    EXPECT_EQ(first.CacheKey(), key);
    EXPECT_EQ(first.SourcePath(), path);
    EXPECT_EQ(first.DomainMax(), lut.DomainMax());
    EXPECT_EQ(first.IndexScale(), lut.IndexScale());
    EXPECT_TRUE(first.Title().empty()) << "the title is not copied";
    EXPECT_EQ(first.Timestamp(), 0);
    EXPECT_EQ(cache.UsersOf(key), 2);
    {
      const COv3DLUT second(first);
      EXPECT_EQ(second.Table(), lut.Table());
      EXPECT_EQ(cache.UsersOf(key), 3);
      // Users share one table: the bytes in use are counted once.
      EXPECT_EQ(cache.InUseBytes(), inUseBefore + 27 * 16);
    }
    EXPECT_EQ(cache.UsersOf(key), 2);
  }
  EXPECT_EQ(cache.UsersOf(key), 1);
  lut.Clear();
  EXPECT_EQ(cache.UsersOf(key), 0);
  EXPECT_EQ(cache.InUseBytes(), inUseBefore);
  EXPECT_TRUE(lut.CacheKey().empty());
  EXPECT_EQ(lut.Table(), nullptr);
}

TEST_F(LUTObjectCopies, CopyOfAnUncachedObjectSharesTheTableWithoutTheCache) {
  auto& cache = Tincta::COvLUTCache::Instance();
  const uint64_t inUse = cache.InUseBytes();
  auto lut = std::make_unique<COv3DLUT>();
  ASSERT_TRUE(lut->Allocate(8, false));
  for (int i = 0; i < 32; ++i)
    lut->Table()[i] = float(i);
  const COv3DLUT copy(*lut);
  EXPECT_EQ(copy.Table(), lut->Table());
  EXPECT_TRUE(copy.CacheKey().empty());
  EXPECT_EQ(cache.InUseBytes(), inUse);
  lut.reset();
  // The table outlives the object it was copied from.
  EXPECT_EQ(copy.Table()[31], 31.0f);
}

}  // namespace
