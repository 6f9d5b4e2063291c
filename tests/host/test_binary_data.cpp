// The recycled-memory allocator and the buffers that own its blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

#include "host/binary_data.h"

namespace {

using host::BinaryData;
using host::RecycledMemory;

bool Aligned64(const void* p) {
  return reinterpret_cast<uintptr_t>(p) % 64 == 0;
}

TEST(RecycledMemory, BlocksAreAlignedAndAsLargeAsAsked) {
  for (size_t bytes :
       {size_t(0), size_t(1), size_t(63), size_t(64), size_t(65), size_t(4097), size_t(1) << 20}) {
    void* block = RecycledMemory::Allocate(bytes);
    ASSERT_NE(block, nullptr) << bytes;
    EXPECT_TRUE(Aligned64(block)) << bytes;
    std::memset(block, 0xA5, bytes);  // the sanitizer build checks the extent
    RecycledMemory::Release(block, bytes);
  }
  RecycledMemory::Release(nullptr, 16);  // ignored
}

TEST(RecycledMemory, ImpossibleSizesGiveNull) {
  EXPECT_EQ(RecycledMemory::Allocate(SIZE_MAX), nullptr);
  EXPECT_EQ(RecycledMemory::Allocate((size_t(1) << 47) + 1), nullptr);
}

// A released block serves a later request of the same size class, never a larger one.
TEST(RecycledMemory, ReuseWithinASizeClassOnly) {
  struct Case {
    size_t released, requested;
    bool reused;
  };
  const Case cases[] = {
      {64, 64, true},     {64, 33, true},      {64, 65, false},
      {33, 64, true},     {1000, 1024, true},  {1024, 1025, false},
      {4096, 2049, true}, {4096, 2048, false}, {1, 0, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.released) + " then " + std::to_string(c.requested));
    RecycledMemory::Purge();
    void* first = RecycledMemory::Allocate(c.released);
    ASSERT_NE(first, nullptr);
    RecycledMemory::Release(first, c.released);
    // Had the block gone back to the system, the system would give it to this decoy.
    void* decoy =
        ::operator new[](std::bit_ceil(std::max<size_t>(c.released, 1)), std::align_val_t(64));
    void* second = RecycledMemory::Allocate(c.requested);
    ::operator delete[](decoy, std::align_val_t(64));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second == first, c.reused);
    std::memset(second, 0, c.requested);
    RecycledMemory::Release(second, c.requested);
  }
  RecycledMemory::Purge();
}

TEST(BinaryData, OwnsAndMovesItsBlock) {
  RecycledMemory::Purge();
  BinaryData empty;
  EXPECT_TRUE(empty.Empty());
  EXPECT_EQ(empty.Size(), 0u);
  EXPECT_EQ(empty.Data(), nullptr);
  EXPECT_EQ(BinaryData(nullptr, 100).Size(), 0u) << "no block, no size";

  void* block = RecycledMemory::Allocate(100);
  BinaryData first(block, 100);
  EXPECT_EQ(first.Data(), block);
  EXPECT_EQ(first.Size(), 100u);

  BinaryData second(std::move(first));
  EXPECT_TRUE(first.Empty());
  EXPECT_EQ(first.Size(), 0u);
  EXPECT_EQ(second.Data(), block);

  BinaryData third;
  third = std::move(second);
  EXPECT_TRUE(second.Empty());
  EXPECT_EQ(third.Data(), block);
  EXPECT_EQ(third.Size(), 100u);

  BinaryData& alias = third;
  third = std::move(alias);
  EXPECT_EQ(third.Data(), block) << "self-assignment keeps the block";

  // Assigning over a buffer gives its old block back to the allocator for reuse.
  third = BinaryData(RecycledMemory::Allocate(5000), 5000);
  void* again = RecycledMemory::Allocate(100);
  EXPECT_EQ(again, block);
  RecycledMemory::Release(again, 100);
}

TEST(BinaryData, DestructionReturnsTheBlock) {
  RecycledMemory::Purge();
  void* block = RecycledMemory::Allocate(3000);
  { BinaryData data(block, 3000); }
  void* again = RecycledMemory::Allocate(3000);
  EXPECT_EQ(again, block);
  RecycledMemory::Release(again, 3000);
}

// Threads allocate from shared size classes, fill their blocks with their own mark and check it
// before giving the block back: a block handed to two owners at once shows as a foreign mark.
TEST(RecycledMemory, ConcurrentOwnersNeverShareABlock) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 3000;
  std::atomic<int> clashes{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &clashes] {
      const size_t sizes[] = {24, 64, 100, 128, 4000};
      std::vector<BinaryData> held;
      for (int round = 0; round < kRounds; ++round) {
        const size_t bytes = sizes[(round + t) % 5];
        auto* block = static_cast<uint8_t*>(RecycledMemory::Allocate(bytes));
        if (!block) {
          clashes.fetch_add(1);
          continue;
        }
        std::memset(block, t + 1, bytes);
        held.emplace_back(block, bytes);
        if (held.size() > 3) {
          for (const BinaryData& data : held)
            for (size_t i = 0; i < data.Size(); ++i)
              if (data.Data()[i] != t + 1) {
                clashes.fetch_add(1);
                break;
              }
          held.clear();
        }
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(clashes.load(), 0);
  RecycledMemory::Purge();
}

}  // namespace
