// Whole-file reads with a size limit and the small read-only file; heap buffers, owned and
// wrapped, and the shared form's count.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

#include "foundation/file.h"
#include "foundation/heap_buffer.h"
#include "foundation/streaming_store.h"
#include "support/temp_dir.h"

namespace {

using Tincta::EFileReadResult;

// A file exactly at and one byte beyond the limit (the LUT loader's 200 MiB limit is tried on
// sparse files in tests/lut), then the failures, none of which touches the contents.
TEST(ReadWholeFile, SizeLimitsAndFailures) {
  crandle_test::TempDir dir;
  const std::string five = dir.Write("five.txt", "12345");
  const std::tuple<std::string, uint64_t, EFileReadResult, size_t> cases[] = {
      {five, 5, EFileReadResult::Ok, 5},
      {five, 4, EFileReadResult::TooLarge, 0},
      {dir.Write("empty.txt", ""), 0, EFileReadResult::Ok, 0},
      {(dir.Path() / "missing").string(), 100, EFileReadResult::NotFound, 0},
      {dir.Path().string(), 100, EFileReadResult::NotRegular, 0},
      {"/dev/null", 100, EFileReadResult::NotRegular, 0}};
  for (const auto& [path, limit, result, size] : cases) {
    Tincta::SFileContents contents;
    contents.modificationTime = -7;
    const bool ok = result == EFileReadResult::Ok;
    int64_t modified = -7;
    EXPECT_EQ(Tincta::FileModificationTime(path, modified), path.find("missing") == path.npos);
    EXPECT_EQ(Tincta::ReadWholeFile(path, limit, contents), result) << path;
    EXPECT_EQ(contents.size, size) << path;
    EXPECT_EQ(contents.bytes != nullptr, ok) << path;  // an empty file still gets a block
    EXPECT_EQ(contents.modificationTime, ok ? modified : -7) << path;
    EXPECT_TRUE(size != 5 ||
                (contents.bytes && std::memcmp(contents.bytes.get(), "12345", 5) == 0));
  }
}

TEST(COvFile, SeeksShortReadsAndWholeReadsFromTheStart) {
  crandle_test::TempDir dir;
  Tincta::COvFile file;
  char buffer[16] = {};
  EXPECT_EQ(file.Read(buffer, 4), 0u) << "a closed file reads nothing";
  EXPECT_EQ(file.Seek(0), -1);
  EXPECT_FALSE(file.Open((dir.Path() / "missing").string()));
  ASSERT_TRUE(file.Open(dir.Write("ten.bin", "0123456789")));
  EXPECT_EQ(file.Size(), 10);
  EXPECT_EQ(file.Seek(7), 7);
  EXPECT_EQ(file.Read(buffer, 16), 3u);
  EXPECT_EQ(std::string(buffer, 3), "789");
  EXPECT_EQ(file.Seek(1000), 1000) << "beyond the end is reported as such";
  EXPECT_EQ(file.Read(buffer, 16), 0u);
  EXPECT_EQ(file.Seek(uint64_t(INT64_MAX) + 1), -1);
  Tincta::SFileContents contents;
  ASSERT_EQ(Tincta::ReadWholeFile(file, 100, contents), EFileReadResult::Ok);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(contents.bytes.get()), contents.size),
            "0123456789");
  int64_t modified = 0;
  EXPECT_TRUE(file.ModificationTime(modified) && modified == contents.modificationTime);
  file.Close();
  EXPECT_FALSE(file.IsOpen() || file.ModificationTime(modified));
}

// Alignments that are no power of two from 16 up are refused and the old block kept; wrapped
// memory is never freed (the sanitizer build would report it); growing copies the bytes from the
// shifted data pointer into an owned block aligned like the old one.
TEST(COvHeapBuffer, AlignmentsWrapShiftAndReserve) {
  Tincta::COvHeapBuffer buffer;
  ASSERT_TRUE(buffer.Allocate(8, 256));
  uint8_t* const first = buffer.Data();
  for (size_t alignment : {0, 8, 24, 48})
    EXPECT_FALSE(buffer.Allocate(10, alignment)) << alignment;
  EXPECT_TRUE(buffer.Data() == first && buffer.Size() == 8 &&
              reinterpret_cast<uintptr_t>(first) % 256 == 0);
  ASSERT_TRUE(buffer.Reserve(1000));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer.Data()) % 256, 0u);
  std::vector<uint8_t> memory(32);
  std::iota(memory.begin(), memory.end(), 0);
  buffer.Wrap(memory.data(), memory.size());
  EXPECT_TRUE(buffer.Reserve(32) && buffer.Data() == memory.data()) << "large enough";
  buffer.ShiftData(8);
  EXPECT_TRUE(buffer.Data() == memory.data() + 8 && buffer.Size() == 24 &&
              buffer.Start() == memory.data());
  ASSERT_TRUE(buffer.Reserve(100));
  EXPECT_TRUE(buffer.OwnsMemory() && buffer.Data() == buffer.Start() && buffer.Size() == 100);
  for (size_t i = 0; i < 24; ++i)
    ASSERT_EQ(buffer.Data()[i], i + 8) << i;
  buffer.Wrap(memory.data(), 32);
  EXPECT_EQ(memory[31], 31);
}

// Smart-pointer owners drop one reference each; the last one destroys the buffer (the sanitizer
// build reports a leak otherwise).
TEST(COvSharedBuffer, CustomDeleterDropsOneReference) {
  auto* buffer = new Tincta::COvSharedBuffer();
  buffer->AddRef();
  std::shared_ptr<Tincta::COvSharedBuffer> shared(buffer,
                                                  Tincta::CustomDeleter<Tincta::COvSharedBuffer>());
  std::unique_ptr<Tincta::COvSharedBuffer, Tincta::CustomDeleter<Tincta::COvSharedBuffer>> unique(
      buffer);
  shared.reset();
  EXPECT_EQ(unique->ReferenceCount(), 1u);
}

}  // namespace

// Every start alignment against lengths around the streamed pieces' 16 and 64 bytes; the bytes
// just outside the destination must stay untouched.
TEST(StreamingCopy, EveryAlignmentAndLengthCopiesExactlyTheBytes) {
  std::vector<uint8_t> source(300);
  std::iota(source.begin(), source.end(), uint8_t(1));
  for (size_t offset = 0; offset < 16; ++offset) {
    for (size_t bytes : {0, 1, 15, 16, 17, 31, 47, 63, 64, 65, 80, 127, 128, 129, 200, 271}) {
      std::vector<uint8_t> destination(offset + bytes + 32, 0xEE);
      Tincta::StreamingCopy(destination.data() + offset, source.data() + 3, bytes);
      Tincta::FinishStreamingStores();
      std::vector<uint8_t> expected(offset + bytes + 32, 0xEE);
      std::memcpy(expected.data() + offset, source.data() + 3, bytes);
      ASSERT_EQ(destination, expected) << offset << " " << bytes;
    }
  }
}
