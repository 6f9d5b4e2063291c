// Whole-file reads with a size limit, and the small read-only file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "foundation/file.h"
#include "support/temp_dir.h"

namespace {

using Tincta::EFileReadResult;
using Tincta::SFileContents;

// The largest LUT file read by path.
constexpr uint64_t kLimit = 209'715'200;

std::string SparseFile(const crandle_test::TempDir& dir, const char* name, uint64_t size) {
  const std::string path = dir.Write(name, "");
  EXPECT_EQ(::truncate(path.c_str(), static_cast<off_t>(size)), 0);
  return path;
}

TEST(ReadWholeFile, LimitAtAndBeyondTheBoundary) {
  crandle_test::TempDir dir;
  const std::string atLimit = SparseFile(dir, "at-limit.bin", kLimit);
  const std::string beyond = SparseFile(dir, "beyond.bin", kLimit + 1);

  SFileContents contents;
  ASSERT_EQ(Tincta::ReadWholeFile(atLimit, kLimit, contents), EFileReadResult::Ok);
  EXPECT_EQ(contents.size, kLimit);
  EXPECT_EQ(contents.bytes[0], 0);
  EXPECT_EQ(contents.bytes[kLimit - 1], 0);
  int64_t modified = 0;
  ASSERT_TRUE(Tincta::FileModificationTime(atLimit, modified));
  EXPECT_EQ(contents.modificationTime, modified);

  SFileContents untouched;
  EXPECT_EQ(Tincta::ReadWholeFile(beyond, kLimit, untouched), EFileReadResult::TooLarge);
  EXPECT_EQ(untouched.bytes, nullptr);
  EXPECT_EQ(untouched.size, 0u);
}

TEST(ReadWholeFile, SmallFilesAndFailures) {
  crandle_test::TempDir dir;
  const std::string five = dir.Write("five.txt", "12345");
  const std::string empty = dir.Write("empty.txt", "");
  struct Case {
    const char* what;
    std::string path;
    uint64_t limit;
    EFileReadResult result;
    size_t size;
  };
  const Case cases[] = {
      {"exactly the limit", five, 5, EFileReadResult::Ok, 5},
      {"one byte over", five, 4, EFileReadResult::TooLarge, 0},
      {"empty file", empty, 0, EFileReadResult::Ok, 0},
      {"missing file", (dir.Path() / "missing").string(), 100, EFileReadResult::NotFound, 0},
      {"directory", dir.Path().string(), 100, EFileReadResult::NotRegular, 0},
      {"character device", "/dev/null", 100, EFileReadResult::NotRegular, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    SFileContents contents;
    contents.modificationTime = -7;
    EXPECT_EQ(Tincta::ReadWholeFile(c.path, c.limit, contents), c.result);
    EXPECT_EQ(contents.size, c.size);
    if (c.result == EFileReadResult::Ok) {
      ASSERT_NE(contents.bytes, nullptr) << "an empty file still gives a block";
      EXPECT_EQ(std::string(reinterpret_cast<const char*>(contents.bytes.get()), c.size),
                std::string("12345").substr(0, c.size));
    } else {
      EXPECT_EQ(contents.bytes, nullptr);
      EXPECT_EQ(contents.modificationTime, -7);
    }
  }
  int64_t modified = 0;
  EXPECT_FALSE(Tincta::FileModificationTime((dir.Path() / "missing").string(), modified));
}

TEST(ReadWholeFile, OpenFileIsReadFromItsStart) {
  crandle_test::TempDir dir;
  Tincta::COvFile file;
  ASSERT_TRUE(file.Open(dir.Write("text.txt", "abcdef")));
  char skipped[3];
  ASSERT_EQ(file.Read(skipped, 3), 3u);
  SFileContents contents;
  ASSERT_EQ(Tincta::ReadWholeFile(file, 100, contents), EFileReadResult::Ok);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(contents.bytes.get()), contents.size),
            "abcdef");
}

TEST(COvFile, SeeksAndShortReads) {
  crandle_test::TempDir dir;
  const std::string path = dir.Write("ten.bin", "0123456789");
  Tincta::COvFile file;
  EXPECT_FALSE(file.IsOpen());
  char buffer[16] = {};
  EXPECT_EQ(file.Read(buffer, 4), 0u) << "a closed file reads nothing";
  EXPECT_EQ(file.Seek(0), -1);
  EXPECT_EQ(file.Size(), -1);
  EXPECT_FALSE(file.Open((dir.Path() / "missing").string()));
  EXPECT_FALSE(file.IsOpen());

  ASSERT_TRUE(file.Open(path));
  EXPECT_EQ(file.Size(), 10);
  EXPECT_EQ(file.Seek(7), 7);
  EXPECT_EQ(file.Read(buffer, 16), 3u);  // short read at the end
  EXPECT_EQ(std::string(buffer, 3), "789");
  EXPECT_EQ(file.Read(buffer, 16), 0u);
  EXPECT_EQ(file.Seek(1000), 1000) << "beyond the end is reported as such";
  EXPECT_EQ(file.Read(buffer, 16), 0u);
  EXPECT_EQ(file.Seek(uint64_t(INT64_MAX) + 1), -1);
  EXPECT_EQ(file.Seek(2), 2);
  EXPECT_EQ(file.Read(buffer, 2), 2u);
  EXPECT_EQ(std::string(buffer, 2), "23");
  int64_t modified = 0;
  EXPECT_TRUE(file.ModificationTime(modified));
  EXPECT_GT(modified, 0);
  file.Close();
  EXPECT_FALSE(file.IsOpen());
  EXPECT_FALSE(file.ModificationTime(modified));
}

}  // namespace
