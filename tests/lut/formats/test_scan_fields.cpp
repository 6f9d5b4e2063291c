// The integer field scanner of the text readers against sscanf: the same count and values wherever
// sscanf's result is defined, and a refusal where the number does not fit its field (where sscanf's
// behaviour is undefined and glibc wraps).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "lut/formats/text_lines.h"

namespace {

using Tincta::ScanFields;
constexpr int kOut = Tincta::kScanOutOfRange;
// What ScanFields returns, and the lines that give it; sscanf agrees wherever it is not kOut.
using Cases = std::vector<std::pair<int, std::vector<std::string>>>;

TEST(ScanFields, UnsignedFieldsAsSscanfReadsThemAndNoWrapping) {
  const Cases cases = {
      {2,
       {"LUT_3D_SIZE 17", "  LUT_1D_SIZE\t4096  trailing", "LUT_3D_SIZE +17", "LUT_3D_SIZE -0",
        "LUT_3D_SIZE 4294967295", "LUT_3D_SIZE 17abc", std::string("LUT_3D_SIZE 1\0007", 15)}},
      {1, {"LUT_3D_SIZE abc", "LUT_3D_SIZE"}},
      {EOF, {"LUT_", ""}},
      {0, {"LUX_3D_SIZE 17"}},
      {kOut,
       {"LUT_3D_SIZE 4294967296", "LUT_3D_SIZE 4294967298", "LUT_3D_SIZE -1",
        "LUT_3D_SIZE -4294967294", "LUT_3D_SIZE 99999999999999999999999999"}}};
  for (const auto& [expected, lines] : cases) {
    for (const std::string& line : lines) {
      SCOPED_TRACE(line);
      char word[64] = {}, reference[64] = {};
      unsigned value = 7, referenceValue = 7;
      EXPECT_EQ(ScanFields(line, " LUT_%s %u ", word, &value), expected);
      if (expected == kOut) continue;
      EXPECT_EQ(std::sscanf(line.c_str(), " LUT_%s %u ", reference, &referenceValue), expected);
      EXPECT_STREQ(word, reference);
      EXPECT_EQ(value, referenceValue);
    }
  }
}

TEST(ScanFields, SignedFieldsKeepToTheRangeOfInt) {
  const Cases cases = {{3, {"width 17 17 17", "width -17 0 +5", "width 2147483647 -2147483648 1"}},
                       {2, {"width 1 2"}},
                       {1, {"width 1 x 2"}},
                       {kOut,
                        {"width 2147483648 1 1", "width 1 -2147483649 1",
                         "width 4294967298 4294967298 4294967298"}}};
  for (const auto& [expected, lines] : cases) {
    for (const std::string& line : lines) {
      SCOPED_TRACE(line);
      int v[3] = {9, 9, 9}, r[3] = {9, 9, 9};
      EXPECT_EQ(ScanFields(line, " width %d %d %d", &v[0], &v[1], &v[2]), expected);
      if (expected == kOut) continue;
      EXPECT_EQ(std::sscanf(line.c_str(), " width %d %d %d", &r[0], &r[1], &r[2]), expected);
      EXPECT_TRUE(v[0] == r[0] && v[1] == r[1] && v[2] == r[2]) << v[0] << v[1] << v[2];
    }
  }
}

}  // namespace
