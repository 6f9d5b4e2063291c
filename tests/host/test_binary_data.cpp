// The recycled-memory allocator and the buffers that own its blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <thread>
#include <tuple>
#include <vector>

#include "host/binary_data.h"

namespace {

using host::BinaryData;
using host::RecycledMemory;

// A released block serves a later request of its size class, never a larger one.
TEST(RecycledMemory, ReuseWithinASizeClassOnly) {
  const std::tuple<size_t, size_t, bool> cases[] = {
      {64, 64, true},      {64, 33, true},     {64, 65, false},     {1000, 1024, true},
      {1024, 1025, false}, {4096, 2049, true}, {4096, 2048, false}, {1, 0, true}};
  for (const auto& [released, requested, reused] : cases) {
    RecycledMemory::Purge();
    void* first = RecycledMemory::Allocate(released);
    { BinaryData owner(first, released); }
    // Had the block gone back to the system, the system would give it to this decoy.
    void* decoy = ::operator new[](std::max<size_t>(released, 1), std::align_val_t(64));
    void* second = RecycledMemory::Allocate(requested);
    ::operator delete[](decoy, std::align_val_t(64));
    EXPECT_EQ(second == first, reused) << released << " then " << requested;
    std::memset(second, 0xA5, requested);  // the sanitizer build checks the extent
    RecycledMemory::Release(second, requested);
  }
  EXPECT_EQ(RecycledMemory::Allocate(SIZE_MAX), nullptr);
  EXPECT_EQ(RecycledMemory::Allocate((size_t(1) << 47) + 1), nullptr);
  RecycledMemory::Purge();
}

TEST(BinaryData, MovesAndGivesBackItsBlock) {
  RecycledMemory::Purge();
  EXPECT_EQ(BinaryData(nullptr, 100).Size(), 0u) << "no block, no size";
  void* block = RecycledMemory::Allocate(100);
  BinaryData first(block, 100);
  BinaryData second(std::move(first));
  BinaryData& alias = second;
  second = std::move(alias);
  EXPECT_TRUE(first.Empty() && first.Size() == 0 && second.Data() == block && second.Size() == 100);
  second = BinaryData(RecycledMemory::Allocate(5000), 5000);  // gives the first block back
  EXPECT_EQ(RecycledMemory::Allocate(100), block);
  RecycledMemory::Release(block, 100);
}

// Each thread marks its blocks: a block handed to two owners at once shows a foreign mark.
TEST(RecycledMemory, ConcurrentOwnersNeverShareABlock) {
  std::atomic<int> clashes{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &clashes] {
      const size_t sizes[] = {24, 64, 100, 128, 4000};
      std::vector<BinaryData> held;
      for (int round = 0; round < 3000; ++round) {
        const size_t bytes = sizes[(round + t) % 5];
        auto* block = static_cast<uint8_t*>(RecycledMemory::Allocate(bytes));
        std::memset(block, t + 1, bytes);
        held.emplace_back(block, bytes);
        for (size_t i = 0; held.size() > 3 && i < held.size(); ++i)
          for (size_t k = 0; k < held[i].Size(); ++k)
            clashes += held[i].Data()[k] != t + 1;
        if (held.size() > 3) held.clear();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(clashes.load(), 0);
  RecycledMemory::Purge();
}

}  // namespace
