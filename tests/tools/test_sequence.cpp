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
    bool isPattern;
    long frame;
    const char* path;
  } cases[] = {
      {"shot.%04d.exr", true, 7, "shot.0007.exr"},
      {"shot.%04d.exr", true, 12345, "shot.12345.exr"},
      {"shot.%d.exr", true, 42, "shot.42.exr"},
      {"shot.%4d.exr", true, 42, "shot.  42.exr"},
      {"100%%/shot.%03d.dpx", true, 5, "100%/shot.005.dpx"},
      {"shot.exr", false, 1, "shot.exr"},
      {"shot.%04d.%04d.exr", false, 1, "shot.%04d.%04d.exr"},
      {"shot.%s.exr", false, 1, "shot.%s.exr"},
      {"shot.%04x.exr", false, 1, "shot.%04x.exr"},
      {"shot.%", false, 1, "shot.%"},
      {"100%%.exr", false, 1, "100%%.exr"},
      // One digit per '#' or '@', zero-padded; a wider number is written whole.
      {"shot.####.exr", true, 7, "shot.0007.exr"},
      {"shot.####.exr", true, 12345, "shot.12345.exr"},
      {"shot.@.exr", true, 42, "shot.42.exr"},
      // '%' means nothing beside a # or @ field.
      {"100%/shot.####.exr", true, 5, "100%/shot.0005.exr"},
      {"100%%/shot.@@.exr", true, 5, "100%%/shot.05.exr"},
      // Two fields, of any kinds, are not a pattern.
      {"take#2.####.exr", false, 1, "take#2.####.exr"},
      {"shot.##@@.exr", false, 1, "shot.##@@.exr"},
      {"shot.%04d.####.exr", false, 1, "shot.%04d.####.exr"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsSequencePattern(c.pattern), c.isPattern) << c.pattern;
    EXPECT_EQ(FramePath(c.pattern, c.frame), c.path) << c.pattern;
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
      {"1-2x9", {1}, ""},
      {"999999998-999999999x999999999", {999999998}, ""},  // stepping past the end stays in range
      {"1005-1001", {}, "backwards; frames are applied from the first up, so write 1001-1005"},
      {"1001-1005x0", {}, "the step after 'x' must be at least 1"},
      {"1001x2", {}, "a step needs a range"},
      {"1-5x", {}, "A-BxN"},
      {"1-5x2x3", {}, "A-BxN"},
      {"1-5x-2", {}, "A-BxN"},
      {"-4", {}, "A-BxN"},
      {"a-b", {}, "A-BxN"},
      {"1 - 2", {}, "A-BxN"},
      {"", {}, "A-BxN"},
      {"1234567890-1234567891", {}, "A-BxN"},
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
