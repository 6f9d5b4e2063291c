// Frame-number patterns of image sequences.
#include <gtest/gtest.h>

#include "sequence.h"

namespace {

using crandle_tool::FramePath;
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
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsSequencePattern(c.pattern), c.isPattern) << c.pattern;
    EXPECT_EQ(FramePath(c.pattern, c.frame), c.path) << c.pattern;
  }
}

TEST(Sequence, FrameRanges) {
  struct Case {
    const char* text;
    bool valid;
    long first;
    long last;
  } cases[] = {
      {"1001-1048", true, 1001, 1048},
      {"7", true, 7, 7},
      {"3-3", true, 3, 3},
      {"5-4", false, 0, 0},
      {"-4", false, 0, 0},
      {"1-", false, 0, 0},
      {"a-b", false, 0, 0},
      {"1 - 2", false, 0, 0},
      {"", false, 0, 0},
      {"1234567890-1234567891", false, 0, 0},
  };
  for (const auto& c : cases) {
    const auto range = ParseFrameRange(c.text);
    ASSERT_EQ(range.has_value(), c.valid) << c.text;
    if (range) {
      EXPECT_EQ(range->first, c.first) << c.text;
      EXPECT_EQ(range->last, c.last) << c.text;
    }
  }
}

}  // namespace
