// Text: UTF-16 and UTF-8, file titles of UTF-8 paths, the byte-to-text codec in both modes, and
// the XML storage conventions (quoted element text, names that ignore case).
#include <gtest/gtest.h>

#include <algorithm>
#include <pugixml.hpp>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "foundation/hex_codec.h"
#include "foundation/path_title.h"
#include "foundation/utf16.h"
#include "foundation/xml_storage.h"

namespace {

using Tincta::ETextCodecMode;
using Tincta::Utf16ToUtf8;
using Tincta::Utf8ToUtf16;

// Each length of encoding at its ends, surrogate pairs at theirs, and unpaired surrogates, which
// become U+FFFD one by one (those rows do not convert back).
TEST(Utf16ToUtf8, LengthBoundariesAndSurrogates) {
  const struct {
    std::u16string utf16;
    std::string utf8;
    bool roundTrip;
  } cases[] = {{u"", "", true},
               {{u'a', 0, u'\x7F'}, {'a', 0, '\x7F'}, true},
               {u"\u0080\u07FF", "\xC2\x80\xDF\xBF", true},
               {u"\u0800\uFFFF", "\xE0\xA0\x80\xEF\xBF\xBF", true},
               {{0xD800, 0xDC00, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF},
                "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF",
                true},
               {{0xD83D, u'Z', 0xDE00}, "\xEF\xBF\xBDZ\xEF\xBF\xBD", false},
               {{0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD", false},
               {{0xD83D, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(Utf16ToUtf8(c.utf16), c.utf8);
    EXPECT_TRUE(!c.roundTrip || Utf8ToUtf16(c.utf8) == c.utf16) << c.utf8;
  }
}

TEST(Utf8ToUtf16, MalformedSequencesBecomeOneReplacementEach) {
  const char16_t r = 0xFFFD;
  const std::pair<std::string, std::u16string> cases[] = {
      {"\x80\xBF", {r}},              // continuations without a lead
      {"\xE2\x82Z", {r, u'Z'}},       // cut short by ASCII
      {"\xC3", {r}},                  // cut short by the end
      {"\xC0\x80", {r}},              // overlong NUL
      {"\xF0\x80\x80\x80", {r}},      // overlong 4-byte form
      {"\xED\xA0\x80", {r}},          // an encoded surrogate
      {"\xF4\x90\x80\x80", {r}},      // above U+10FFFF
      {"\xF8\x88\x80\x80\x80", {r}},  // 5-byte form
      {"x\xFFy", {u'x', r, u'y'}},
      {"\xC3\xA9\xC3\xF0\x9F\x98\x80", {0xE9, r, 0xD83D, 0xDE00}}};
  for (const auto& [utf8, utf16] : cases)
    EXPECT_TRUE(Utf8ToUtf16(utf8) == utf16) << utf8;
}

// The title goes through UTF-16 and back, so a character beyond the BMP must survive the trip.
TEST(PathTitleUtf8, LastComponentWithoutExtension) {
  EXPECT_EQ(Tincta::PathTitleUtf8("C:\\LUTs\\Film Print.v2.3dl"), "Film Print.v2");
  EXPECT_EQ(Tincta::PathTitleUtf8("/luts/caf\xC3\xA9 \xF0\x9F\x8E\xA8.cube"),
            "caf\xC3\xA9 \xF0\x9F\x8E\xA8");
}

// The packed form computed bit by bit: every input bit, least significant first, cut into 6-bit
// digits (least significant first) of the alphabet, the last digit padded with zeros.
std::string PackedByBits(const std::vector<uint8_t>& bytes) {
  const char alphabet[] = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string text = "X";
  for (size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    int digit = 0;
    for (size_t i = 0; i < 6 && bit + i < bytes.size() * 8; ++i)
      digit |= ((bytes[(bit + i) / 8] >> ((bit + i) % 8)) & 1) << i;
    text += alphabet[digit];
  }
  return text;
}

TEST(HexCodec, EveryLengthMatchesTheBitsAndReadsBack) {
  std::mt19937 random(1);
  for (size_t count = 0; count <= 50; ++count) {
    std::vector<uint8_t> bytes(count);
    for (auto& b : bytes)
      b = uint8_t(random());
    const std::string packed =
        Tincta::EncodeBytesAsText(bytes.data(), count, ETextCodecMode::Packed64);
    EXPECT_EQ(packed, PackedByBits(bytes)) << count;
    std::string hex, appended = "key=";
    for (uint8_t b : bytes)
      hex += {"0123456789ABCDEF"[b >> 4], "0123456789ABCDEF"[b & 15]};
    EXPECT_EQ(Tincta::EncodeBytesAsText(bytes.data(), count, ETextCodecMode::Hexadecimal), hex);
    Tincta::AppendHex(appended, bytes.data(), count);
    EXPECT_EQ(appended, "key=" + hex);
    for (const std::string& text : {packed, hex}) {
      size_t decoded = 999;
      ASSERT_TRUE(Tincta::DecodedByteCount(text, decoded) && decoded == count) << text;
      std::vector<uint8_t> back(count + 1, 0xEE);
      ASSERT_TRUE(Tincta::DecodeTextToBytes(text, back.data(), count)) << text;
      EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), back.begin()) && back[count] == 0xEE)
          << text;  // nothing written past the count
    }
  }
}

TEST(HexCodec, RefusedTextsAndCounts) {
  const std::pair<const char*, size_t> refused[] = {
      {"0a", 1},  {"0G", 1},  {"001F", 1}, {"00", 2},  {"0", 1},
      {"X++", 2}, {"X+/", 1}, {"x++", 1},  {"X+2", 1},  // a one-byte tail with bit 8 set
      {"X++E", 2}};                                     // a two-byte tail with bit 16 set
  for (const auto& [text, count] : refused) {
    uint8_t out[4];
    EXPECT_FALSE(Tincta::DecodeTextToBytes(text, out, count)) << text;
  }
  uint8_t tail[2];  // the highest bits that still belong to the tail bytes
  ASSERT_TRUE(Tincta::DecodeTextToBytes("X++D", tail, 2));
  EXPECT_EQ(tail[1], 0xF0);
  for (const char* text : {"ABC", "X+", "X+++++"}) {
    size_t count = 0;
    EXPECT_FALSE(Tincta::DecodedByteCount(text, count)) << text;
  }
}

TEST(XmlStorage, QuotedElementText) {
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"<v>\"quoted text\"</v>", true, "quoted text"},
      {"<v>\"a\"b\"</v>", true, "a\"b"},  // up to the last quote: inner quotes survive
      {"<v>\"&lt;escaped&gt;\"</v>", true, "<escaped>"},
      {"<v> \"not quoted\"</v>", true, " \"not quoted\""},
      {"<v><![CDATA[\"in cdata\"]]></v>", true, "in cdata"},
      {"<v></v>", true, ""},
      {"<v>\"unclosed</v>", false, "before"},
      {"<v>\"</v>", false, "before"}};
  for (const auto& [xml, ok, expected] : cases) {
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(xml)) << xml;
    std::string text = "before", error;
    EXPECT_EQ(Tincta::ReadElementText(document.first_child(), text, &error), ok) << xml;
    EXPECT_EQ(text, expected) << xml;
    EXPECT_EQ(error, ok ? "" : "Unexpected end of file while looking for \"") << xml;
  }
}

TEST(XmlStorage, NamesIgnoreCaseAndQuotedLinesReadBack) {
  std::string out = "<Look><!-- lut --><Other/><lut id='1'/>";
  Tincta::AppendQuotedElement(out, 2, "size", "33");
  out += "</Look>";
  EXPECT_EQ(out.substr(39), "  <size>\"33\"</size>\n</Look>");
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(out.c_str()));
  const pugi::xml_node look = document.first_child();
  EXPECT_TRUE(Tincta::ElementNameIs(look, "LOOK") && !Tincta::ElementNameIs(look, "Looks"));
  EXPECT_FALSE(Tincta::ElementNameIs(look.first_child(), "")) << "a comment is no element";
  EXPECT_STREQ(Tincta::ChildElement(look, "LUT").attribute("id").value(), "1");
  EXPECT_FALSE(Tincta::ChildElement(look, "missing"));
  std::string text;
  ASSERT_TRUE(Tincta::ReadElementText(Tincta::ChildElement(look, "SIZE"), text));
  EXPECT_EQ(text, "33");
}

}  // namespace
