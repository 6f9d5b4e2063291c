// Frame-number patterns of image sequences, frame ranges and folder listings.
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "sequence.h"
#include "support/temp_dir.h"

namespace {

using crandle_tool::FilesInFolder;
using crandle_tool::FramePath;
using crandle_tool::FramesOf;
using crandle_tool::IsSequencePattern;
using crandle_tool::ParseFrameRange;

TEST(Sequence, PatternsAndTheirFrames) {
  struct Case {
    const char* pattern;
    long frame;
    const char* path;
  } cases[] = {
      {"shot.%04d.exr", 7, "shot.0007.exr"},
      {"shot.%04d.exr", 12345, "shot.12345.exr"},
      {"shot.%d.exr", 42, "shot.42.exr"},
      {"shot.%4d.exr", 42, "shot.  42.exr"},
      {"100%%/shot.%03d.dpx", 5, "100%/shot.005.dpx"},
      // One digit per '#' or '@', zero-padded; a wider number is written whole.
      {"shot.####.exr", 7, "shot.0007.exr"},
      {"shot.####.exr", 12345, "shot.12345.exr"},
      // '%' means nothing beside a # or @ field.
      {"100%/shot.####.exr", 5, "100%/shot.0005.exr"},
      {"100%%/shot.@@.exr", 5, "100%%/shot.05.exr"},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(IsSequencePattern(c.pattern)) << c.pattern;
    EXPECT_EQ(FramePath(c.pattern, c.frame), c.path) << c.pattern;
  }
  // No field, a field of another kind, or two fields: not a pattern, and the name as it is.
  for (const char* name :
       {"shot.exr", "shot.%04d.%04d.exr", "shot.%s.exr", "shot.%04x.exr", "shot.%", "100%%.exr",
        "take#2.####.exr", "shot.##@@.exr", "shot.%04d.####.exr"}) {
    EXPECT_FALSE(IsSequencePattern(name)) << name;
    EXPECT_EQ(FramePath(name, 1), name);
  }
}

TEST(Sequence, FrameRangesAndWhatIsWrongWithThem) {
  struct Case {
    const char* text;
    std::vector<long> frames;  // empty: refused
    const char* why;           // part of the reason when refused
  } cases[] = {
      {"1001-1005", {1001, 1002, 1003, 1004, 1005}, ""},
      {"7", {7}, ""},
      {"3-3", {3}, ""},
      {"1001-1005x2", {1001, 1003, 1005}, ""},
      {"1001-1006x2", {1001, 1003, 1005}, ""},
      {"999999998-999999999x999999999", {999999998}, ""},  // stepping past the end stays in range
      {"1005-1001", {}, "backwards; frames are applied from the first up, so write 1001-1005"},
      {"1001-1005x0", {}, "the step after 'x' must be at least 1"},
      {"1001x2", {}, "a step needs a range"},
  };
  for (const auto& c : cases) {
    std::string why;
    const auto range = ParseFrameRange(c.text, &why);
    ASSERT_EQ(range.has_value(), !c.frames.empty()) << c.text << ": " << why;
    if (range) {
      EXPECT_EQ(FramesOf(*range), c.frames) << c.text;
      EXPECT_TRUE(why.empty()) << c.text;
    } else {
      EXPECT_EQ(why.rfind(std::string("--frames ") + c.text + ": ", 0), 0u) << why;
      EXPECT_NE(why.find(c.why), std::string::npos) << c.text << ": " << why;
    }
  }
  for (const char* text :
       {"1-5x", "1-5x2x3", "1-5x-2", "-4", "a-b", "1 - 2", "", "1234567890-1234567891"}) {
    std::string why;
    EXPECT_FALSE(ParseFrameRange(text, &why).has_value()) << text;
    EXPECT_EQ(why.rfind(std::string("--frames ") + text + ": ", 0), 0u) << why;
    EXPECT_NE(why.find("A-BxN"), std::string::npos) << text << ": " << why;
  }
}

TEST(Sequence, FolderListingIsSortedPlainVisibleFiles) {
  crandle_test::TempDir dir;
  for (const char* name : {"b.png", "B.exr", "a.10.exr", "a.9.exr", ".hidden.exr", "notes.txt"})
    dir.Write(name, "x");
  std::filesystem::create_directory(dir.Path() / "sub.exr");
  const std::vector<std::string> expected = {"B.exr", "a.10.exr", "a.9.exr", "b.png", "notes.txt"};
  EXPECT_EQ(FilesInFolder(dir.Path().string()), expected);
  EXPECT_TRUE(FilesInFolder((dir.Path() / "missing").string()).empty());
}

}  // namespace
