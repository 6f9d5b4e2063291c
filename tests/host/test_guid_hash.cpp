// Guids, the hash states behind identifiers, and path titles.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "host/guid.h"
#include "host/hash.h"
#include "host/strings.h"

namespace {

using host::Guid;

// The published MurmurHash3 x64-128 digest of this sentence (seed 0), fed in pieces: two whole
// blocks and a tail that reaches into the second half, so block order, tails and result bytes
// all count. The value hash, seeded apart, gives another result from the same pieces.
TEST(HashStates, KnownDigestFedInPieces) {
  const std::string fox = "The quick brown fox jumps over the lazy dog";
  host::Murmur3MixerState murmur;
  host::HashValueMixerState value, valueWhole;
  for (const auto& [offset, count] : {std::pair<size_t, size_t>{0, 17}, {17, 0}, {17, 26}}) {
    murmur.Mix(fox.data() + offset, count);
    value.Mix(fox.data() + offset, count);
  }
  valueWhole.Mix(fox.data(), fox.size());
  EXPECT_EQ(murmur.GetHashResult().ToString(), "6C1B07BC7BBC4BE347939AC4A93C437A");
  EXPECT_EQ(murmur.GetHashResult(), murmur.GetHashResult())
      << "reading the result consumes nothing";
  EXPECT_EQ(value.GetHashResult(), valueWhole.GetHashResult());
  EXPECT_NE(value.GetHashResult(), murmur.GetHashResult());
  EXPECT_TRUE(host::Murmur3MixerState().GetHashResult().IsZero()) << "seed 0 mixes nothing to 0";
}

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
