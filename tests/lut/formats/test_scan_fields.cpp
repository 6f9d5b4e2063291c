// The integer field scanner of the text readers against the C library's sscanf: the same count
// and values wherever sscanf's result is defined, and a refusal where the number does not fit
// its field (where sscanf's behaviour is undefined and glibc wraps).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "lut/formats/text_lines.h"

namespace {

using Tincta::kScanOutOfRange;
using Tincta::ScanFields;

struct SCase {
  std::string line;
  int expected;  // what ScanFields returns; sscanf agrees wherever this is not kScanOutOfRange
};

TEST(ScanFields, UnsignedFieldsAsSscanfReadsThemAndNoWrapping) {
  const SCase cases[] = {
      {"LUT_3D_SIZE 17", 2},
      {"  LUT_1D_SIZE\t4096  trailing", 2},
      {"LUT_3D_SIZE +17", 2},
      {"LUT_3D_SIZE -0", 2},
      {"LUT_3D_SIZE 4294967295", 2},
      {"LUT_3D_SIZE 17abc", 2},
      {"LUT_3D_SIZE abc", 1},
      {"LUT_3D_SIZE", 1},
      {"LUT_", EOF},
      {"", EOF},
      {"LUX_3D_SIZE 17", 0},
      {std::string("LUT_3D_SIZE 1\0"
                   "7",
                   15),
       2},
      {"LUT_3D_SIZE 4294967296", kScanOutOfRange},
      {"LUT_3D_SIZE 4294967298", kScanOutOfRange},
      {"LUT_3D_SIZE -1", kScanOutOfRange},
      {"LUT_3D_SIZE -4294967294", kScanOutOfRange},
      {"LUT_3D_SIZE 99999999999999999999999999", kScanOutOfRange},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.line);
    char word[64] = {}, reference[64] = {};
    unsigned value = 7, referenceValue = 7;
    EXPECT_EQ(ScanFields(c.line, " LUT_%s %u ", word, &value), c.expected);
    if (c.expected == kScanOutOfRange) continue;
    EXPECT_EQ(std::sscanf(c.line.c_str(), " LUT_%s %u ", reference, &referenceValue), c.expected);
    EXPECT_STREQ(word, reference);
    EXPECT_EQ(value, referenceValue);
  }
}

TEST(ScanFields, SignedFieldsKeepToTheRangeOfInt) {
  const SCase cases[] = {
      {"width 17 17 17", 3},
      {"width -17 0 +5", 3},
      {"width 2147483647 -2147483648 1", 3},
      {"width 1 2", 2},
      {"width 1 x 2", 1},
      {"width 2147483648 1 1", kScanOutOfRange},
      {"width 1 -2147483649 1", kScanOutOfRange},
      {"width 4294967298 4294967298 4294967298", kScanOutOfRange},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.line);
    int v[3] = {9, 9, 9}, r[3] = {9, 9, 9};
    EXPECT_EQ(ScanFields(c.line, " width %d %d %d", &v[0], &v[1], &v[2]), c.expected);
    if (c.expected == kScanOutOfRange) continue;
    EXPECT_EQ(std::sscanf(c.line.c_str(), " width %d %d %d", &r[0], &r[1], &r[2]), c.expected);
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(v[i], r[i]) << i;
  }
}

}  // namespace
