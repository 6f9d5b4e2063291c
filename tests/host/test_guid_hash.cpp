// Guids and path titles (the hash states are pinned by the golden values of tests/api).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "host/guid.h"
#include "host/strings.h"

namespace {

using host::Guid;

TEST(Guid, BytesTextAndOrder) {
  const uint8_t bytes[16] = {0x00, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD,
                             0xEF, 0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x10};
  const Guid guid = Guid::GuidFromBytes(bytes);
  uint8_t back[16] = {};
  guid.GuidToBytes(back);
  EXPECT_EQ(0, std::memcmp(back, bytes, 16));
  EXPECT_EQ(guid.ToString(), "000123456789ABCDEFFEDCBA98765410");
  EXPECT_TRUE(Guid().IsZero() && !guid.IsZero());
  EXPECT_EQ(Guid::FromString("000123456789AbCdEfFeDcBa98765410"), guid);
  for (const char* text : {"000123456789ABCDEFFEDCBA9876541", "000123456789ABCDEFFEDCBA9876541G"})
    EXPECT_FALSE(Guid::FromString(text).has_value()) << text;
  Guid low, high;
  low.bytes[15] = 0xFF;
  high.bytes[0] = 0x01;
  EXPECT_LT(low, high);
}

TEST(PathTitle, LastComponentWithoutExtension) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {u"/luts/look.cube", u"look"},
      {u"look", u"look"},
      {u".cube", u""},
      {u"", u""},
      {u"/luts/", u""},
      {u"/luts/look.", u"look"},
      {u"C:\\luts\\film.print.3dl", u"film.print"},
      {u"a\\b/c\\d.e", u"d"},
      {u"/dir.with.dots/name", u"name"},
      {u"/luts/\U0001F3A8.cube", u"\U0001F3A8"}};
  for (const auto& [path, title] : cases)
    EXPECT_EQ(host::PathTitle(path), title);
}

}  // namespace
