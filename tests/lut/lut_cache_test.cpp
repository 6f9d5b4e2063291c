// The LUT cache: byte totals, user counts, recency eviction under a budget, refusals, threads.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include "lut/lut3d.h"
#include "lut/lut_cache.h"
#include "lut_test_helpers.h"
#include "support/temp_dir.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::COvLUTCache;
using namespace crandle_test;

class LUTCache : public LUTCoreTest {
 protected:
  COvLUTCache& cache = COvLUTCache::Instance();

  // A 1-D table of `size` entries (16 bytes each) whose values tell tables apart.
  static std::unique_ptr<COv3DLUT> Table(uint32_t size, float mark) {
    auto lut = std::make_unique<COv3DLUT>();
    EXPECT_TRUE(lut->Allocate(size, false));
    for (size_t i = 0; i < size_t(size) * 4; ++i)
      lut->Table()[i] = mark;
    return lut;
  }
};

TEST_F(LUTCache, InsertCountsStoredAndInUseBytesAndTheFirstUser) {
  const uint64_t stored = cache.StoredBytes();
  const uint64_t inUse = cache.InUseBytes();
  auto lut = Table(64, 1);
  ASSERT_TRUE(cache.Insert(*lut, "test:a", 42));
  EXPECT_EQ(lut->CacheKey(), "test:a");
  EXPECT_EQ(cache.UsersOf("test:a"), 1);
  EXPECT_EQ(cache.StoredBytes(), stored + 1024);
  EXPECT_EQ(cache.InUseBytes(), inUse + 1024);

  auto copy = cache.CopyOf("test:a");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->Table(), lut->Table());
  EXPECT_EQ(cache.UsersOf("test:a"), 2);
  EXPECT_EQ(cache.InUseBytes(), inUse + 1024);

  lut.reset();
  copy.reset();
  EXPECT_EQ(cache.UsersOf("test:a"), 0);
  EXPECT_EQ(cache.InUseBytes(), inUse);
  EXPECT_EQ(cache.StoredBytes(), stored + 1024) << "an unused entry stays while it fits";
  EXPECT_EQ(cache.CopyOf("missing"), nullptr);
}

TEST_F(LUTCache, InsertIsRefusedForAnExistingKeyACachedObjectAndOverBudget) {
  cache.SetByteBudget(cache.InUseBytes() + 2048);
  auto first = Table(64, 1);
  ASSERT_TRUE(cache.Insert(*first, "test:key", 1));
  auto second = Table(64, 2);
  EXPECT_FALSE(cache.Insert(*second, "test:key", 1)) << "existing key";
  EXPECT_TRUE(second->CacheKey().empty());
  EXPECT_FALSE(cache.Insert(*first, "test:other", 1)) << "already a cache user";
  // In use plus the new table may reach the budget but not pass it.
  auto tooBig = Table(65, 3);
  EXPECT_FALSE(cache.Insert(*tooBig, "test:big", 1));
  EXPECT_EQ(cache.UsersOf("test:big"), -1);
  EXPECT_TRUE(cache.Insert(*second, "test:fits", 1));
  COv3DLUT empty;
  EXPECT_FALSE(cache.Insert(empty, "test:empty", 1));
}

TEST_F(LUTCache, UnusedEntriesAreEvictedLeastRecentlyUsedFirst) {
  cache.SetByteBudget(cache.StoredBytes() + 3 * 1024);
  for (const char* key : {"test:a", "test:b", "test:c"}) {
    auto lut = Table(64, 0);
    ASSERT_TRUE(cache.Insert(*lut, key, 0));
  }
  // All three unused now; using "a" again makes "b" the least recently used.
  EXPECT_NE(cache.CopyOf("test:a"), nullptr);
  auto held = cache.CopyOf("test:c");
  auto fourth = Table(64, 0);
  ASSERT_TRUE(cache.Insert(*fourth, "test:d", 0));
  EXPECT_EQ(cache.UsersOf("test:b"), -1);
  EXPECT_EQ(cache.UsersOf("test:a"), 0);
  EXPECT_EQ(cache.UsersOf("test:c"), 1);
  EXPECT_EQ(cache.UsersOf("test:d"), 1);

  // Entries in use survive any budget; unused ones go first, oldest first.
  cache.SetByteBudget(0);
  EXPECT_EQ(cache.UsersOf("test:a"), -1);
  EXPECT_EQ(cache.UsersOf("test:c"), 1);
  EXPECT_EQ(cache.UsersOf("test:d"), 1);
  EXPECT_EQ(held->Table()[0], 0.0f);
}

TEST_F(LUTCache, EvictUnusedKeepsEntriesInUseAndTheBudget) {
  const uint64_t budget = cache.ByteBudget();
  auto kept = Table(16, 5);
  ASSERT_TRUE(cache.Insert(*kept, "test:kept", 0));
  {
    auto dropped = Table(16, 6);
    ASSERT_TRUE(cache.Insert(*dropped, "test:dropped", 0));
  }
  const uint64_t stored = cache.StoredBytes();
  cache.EvictUnused();
  EXPECT_EQ(cache.UsersOf("test:dropped"), -1);
  EXPECT_EQ(cache.UsersOf("test:kept"), 1);
  EXPECT_EQ(cache.StoredBytes(), stored - 256);
  EXPECT_EQ(cache.ByteBudget(), budget);
}

TEST_F(LUTCache, EntryOfARemovedFileStaysUntilUnusedAndEvicted) {
  TempDir dir;
  const std::string path = dir.Write("gone.cube", CubeText("LUT_3D_SIZE 2\n", 8, Identity3D(2)));
  COv3DLUT lut;
  ASSERT_TRUE(lut.LoadFromFile(path, false, Tincta::ELUTKindFilter::Any, true));
  const std::string key = lut.CacheKey();
  std::filesystem::remove(path);

  COv3DLUT again;
  EXPECT_FALSE(again.LoadFromFile(path, false, Tincta::ELUTKindFilter::Any, true));
  EXPECT_EQ(cache.UsersOf(key), 1);
  EXPECT_EQ(EntryAt(lut, 7), (Tincta::Vec4{1, 1, 1, 1})) << "the user keeps its table";
  lut.Clear();
  EXPECT_EQ(cache.UsersOf(key), 0);
  cache.EvictUnused();
  EXPECT_EQ(cache.UsersOf(key), -1);
}

TEST_F(LUTCache, CopiesMadeAndDroppedOnManyThreadsKeepTheCountsRight) {
  auto lut = Table(256, 9);
  ASSERT_TRUE(cache.Insert(*lut, "test:threads", 0));
  const uint64_t inUse = cache.InUseBytes();
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this, &lut] {
      for (int i = 0; i < 2000; ++i) {
        const COv3DLUT copy(*lut);
        auto other = cache.CopyOf("test:threads");
        if (copy.Table() != lut->Table() || !other) ADD_FAILURE() << "copy lost the table";
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(cache.UsersOf("test:threads"), 1);
  EXPECT_EQ(cache.InUseBytes(), inUse);
  lut.reset();
  EXPECT_EQ(cache.InUseBytes(), inUse - 4096);
}

}  // namespace
