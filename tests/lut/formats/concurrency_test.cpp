// Readers on several threads at once: each object is filled by one thread, and the only shared
// state, the LUT cache behind "hash" look-ups, keeps its user counts.
#include <pugixml.hpp>

#include <atomic>
#include <thread>
#include <vector>

#include "format_test.h"
#include "lut/formats/xml_lut_element.h"
#include "lut/lut_cache.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;

constexpr int kThreads = 8;

using ConcurrencyTest = FormatTest;

TEST_F(ConcurrencyTest, ParallelReadsGiveTheSerialTables) {
  const auto seeds = ParseLUTDataSeeds();
  std::vector<Tincta::Md5Digest> serial;
  for (const SSeed& seed : seeds) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, seed.bytes, {.upsample = true})) << seed.name;
    serial.push_back(lut.ContentDigest());
  }
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 10; ++round) {
        for (size_t i = 0; i < seeds.size(); ++i) {
          const size_t which = (i + size_t(t)) % seeds.size();  // threads start apart
          COv3DLUT lut;
          if (!Parse(lut, seeds[which].bytes, {.upsample = true}) ||
              lut.ContentDigest() != serial[which]) {
            ++mismatches;
          }
        }
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

TEST_F(ConcurrencyTest, ParallelHashLookupsLeaveTheUserCountAsFound) {
  TempDir dir;
  std::vector<Rgb> shaper = IdentityRamp(8);
  shaper[5] = {0.9f, 0.9f, 0.9f};
  const std::string path = dir.Write("shared.cub", TruelightText(3, shaper, NodeColours(3)));
  COv3DLUT loaded;
  ASSERT_TRUE(loaded.LoadFromFile(path, false, Tincta::ELUTKindFilter::Any, true));
  const std::string key = loaded.CacheKey();
  auto& cache = Tincta::COvLUTCache::Instance();
  const int64_t usersBefore = cache.UsersOf(key);
  ASSERT_GE(usersBefore, 1);

  const std::string text = "<lut><hash>\"" + key + "\"</hash></lut>";
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      pugi::xml_document document;
      if (!document.load_string(text.c_str())) {
        ++wrong;
        return;
      }
      for (int i = 0; i < 200; ++i) {
        const auto copy = Tincta::ReadXMLLUTElement(document.document_element());
        if (!copy || copy->Table() != loaded.Table() || cache.UsersOf(key) <= usersBefore) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(cache.UsersOf(key), usersBefore);
}

}  // namespace
}  // namespace crandle_test
