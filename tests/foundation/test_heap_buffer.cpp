// Heap buffers: owned and wrapped blocks, reserve and shift, and the shared form's count.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "foundation/heap_buffer.h"

namespace {

using Tincta::COvHeapBuffer;
using Tincta::COvSharedBuffer;

bool AlignedTo(const void* p, size_t alignment) {
  return reinterpret_cast<uintptr_t>(p) % alignment == 0;
}

TEST(COvHeapBuffer, AllocateChecksAlignmentAndKeepsTheOldBlockOnFailure) {
  COvHeapBuffer buffer;
  EXPECT_TRUE(buffer.Empty());
  ASSERT_TRUE(buffer.Allocate(100));
  uint8_t* const first = buffer.Data();
  EXPECT_TRUE(AlignedTo(first, 16));
  EXPECT_EQ(buffer.Size(), 100u);
  EXPECT_TRUE(buffer.OwnsMemory());
  std::memset(first, 1, 100);
  for (size_t alignment : {size_t(0), size_t(8), size_t(24), size_t(48), size_t(100)}) {
    EXPECT_FALSE(buffer.Allocate(10, alignment)) << alignment;
    EXPECT_EQ(buffer.Data(), first);
    EXPECT_EQ(buffer.Size(), 100u);
  }
  for (size_t alignment : {size_t(16), size_t(64), size_t(4096)}) {
    ASSERT_TRUE(buffer.Allocate(33, alignment));
    EXPECT_TRUE(AlignedTo(buffer.Data(), alignment)) << alignment;
    EXPECT_EQ(buffer.Size(), 33u);
  }
  ASSERT_TRUE(buffer.Allocate(0));
  EXPECT_FALSE(buffer.Empty()) << "a zero-byte allocation is still a block";
  EXPECT_EQ(buffer.Size(), 0u);
  buffer.Free();
  EXPECT_TRUE(buffer.Empty());
  EXPECT_EQ(buffer.Size(), 0u);
}

TEST(COvHeapBuffer, WrappedMemoryIsNeverFreed) {
  std::vector<uint8_t> memory(64);
  std::iota(memory.begin(), memory.end(), 0);
  {
    COvHeapBuffer buffer;
    buffer.Wrap(memory.data(), memory.size());
    EXPECT_EQ(buffer.Data(), memory.data());
    EXPECT_EQ(buffer.Size(), 64u);
    EXPECT_FALSE(buffer.OwnsMemory());
    buffer.Free();  // the sanitizer build would report freeing memory that is not the buffer's
    EXPECT_TRUE(buffer.Empty());
    buffer.Wrap(memory.data(), memory.size());
  }
  EXPECT_EQ(memory[63], 63);
}

TEST(COvHeapBuffer, ReserveCopiesFromTheShiftedStart) {
  std::vector<uint8_t> memory(32);
  std::iota(memory.begin(), memory.end(), 0);
  COvHeapBuffer buffer;
  buffer.Wrap(memory.data(), memory.size());
  EXPECT_TRUE(buffer.Reserve(32));
  EXPECT_EQ(buffer.Data(), memory.data()) << "large enough: nothing moves";
  buffer.ShiftData(8);
  EXPECT_EQ(buffer.Data(), memory.data() + 8);
  EXPECT_EQ(buffer.Size(), 24u);
  EXPECT_EQ(buffer.Start(), memory.data());
  ASSERT_TRUE(buffer.Reserve(100));
  EXPECT_TRUE(buffer.OwnsMemory());
  EXPECT_EQ(buffer.Data(), buffer.Start());
  EXPECT_TRUE(AlignedTo(buffer.Data(), 16));
  EXPECT_EQ(buffer.Size(), 100u);
  for (size_t i = 0; i < 24; ++i)
    ASSERT_EQ(buffer.Data()[i], i + 8) << i;
  std::memset(buffer.Data() + 24, 0, 76);  // the whole new size is usable

  // Shifting back and forth inside an owned block; Free releases the block, not Data().
  buffer.ShiftData(10);
  EXPECT_EQ(buffer.Size(), 90u);
  EXPECT_EQ(buffer.Data()[0], 18);
  buffer.ShiftData(-4);
  EXPECT_EQ(buffer.Size(), 94u);
  EXPECT_EQ(buffer.Data()[0], 14);
  buffer.Free();

  COvHeapBuffer fresh;
  ASSERT_TRUE(fresh.Reserve(5));
  EXPECT_EQ(fresh.Size(), 5u);
  EXPECT_TRUE(fresh.OwnsMemory());
}

TEST(COvHeapBuffer, ReserveKeepsTheAlignmentOfTheBlock) {
  COvHeapBuffer buffer;
  ASSERT_TRUE(buffer.Allocate(8, 256));
  ASSERT_TRUE(buffer.Reserve(1000));
  EXPECT_TRUE(AlignedTo(buffer.Data(), 256));
}

TEST(COvSharedBuffer, CountUnderConcurrentAddRefAndRelease) {
  auto* buffer = new COvSharedBuffer();
  ASSERT_TRUE(buffer->Allocate(64));
  EXPECT_EQ(buffer->ReferenceCount(), 1u);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([buffer] {
      for (int i = 0; i < 20000; ++i) {
        buffer->AddRef();
        buffer->AddRef();
        buffer->Release();
        buffer->Release();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(buffer->ReferenceCount(), 1u);

  // Owners through smart pointers each drop one reference; the last one destroys the buffer
  // (the sanitizer build reports a leak otherwise).
  buffer->AddRef();
  std::shared_ptr<COvSharedBuffer> shared(buffer, Tincta::CustomDeleter<COvSharedBuffer>());
  std::unique_ptr<COvSharedBuffer, Tincta::CustomDeleter<COvSharedBuffer>> unique(buffer);
  EXPECT_EQ(buffer->ReferenceCount(), 2u);
  shared.reset();
  EXPECT_EQ(unique->ReferenceCount(), 1u);
}

}  // namespace
