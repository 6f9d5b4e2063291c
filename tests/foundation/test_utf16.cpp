// UTF-16 and UTF-8 conversions, and file titles of UTF-8 paths.
#include <gtest/gtest.h>

#include <string>

#include "foundation/path_title.h"
#include "foundation/utf16.h"

namespace {

using Tincta::Utf16ToUtf8;
using Tincta::Utf8ToUtf16;

// An encoder written from the UTF-8 and UTF-16 definitions, for the exhaustive comparison.
void EncodeUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += char(cp);
  } else if (cp < 0x800) {
    out += char(0xC0 + cp / 64), out += char(0x80 + cp % 64);
  } else if (cp < 0x10000) {
    out += char(0xE0 + cp / 4096), out += char(0x80 + cp / 64 % 64), out += char(0x80 + cp % 64);
  } else {
    out += char(0xF0 + cp / 262144), out += char(0x80 + cp / 4096 % 64);
    out += char(0x80 + cp / 64 % 64), out += char(0x80 + cp % 64);
  }
}

void EncodeUtf16(std::u16string& out, char32_t cp) {
  if (cp < 0x10000) {
    out += char16_t(cp);
  } else {
    out += char16_t(0xD800 + (cp - 0x10000) / 1024);
    out += char16_t(0xDC00 + (cp - 0x10000) % 1024);
  }
}

TEST(Utf16ToUtf8, EveryScalarValue) {
  std::u16string utf16;
  std::string utf8;
  for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    EncodeUtf16(utf16, cp);
    EncodeUtf8(utf8, cp);
  }
  EXPECT_TRUE(Utf16ToUtf8(utf16) == utf8);
  EXPECT_TRUE(Utf8ToUtf16(utf8) == utf16);
}

TEST(Utf16ToUtf8, LengthBoundariesAndSurrogates) {
  struct Case {
    std::u16string in;
    std::string out;
  };
  const Case cases[] = {
      {u"", ""},
      {u"A", "A"},
      {std::u16string(1, u'\0'), std::string(1, '\0')},
      {u"\u007F", "\x7F"},
      {u"\u0080", "\xC2\x80"},
      {u"\u07FF", "\xDF\xBF"},
      {u"\u0800", "\xE0\xA0\x80"},
      {u"\uFFFF", "\xEF\xBF\xBF"},
      {{0xD800, 0xDC00}, "\xF0\x90\x80\x80"},
      {{0xD83D, 0xDE00}, "\xF0\x9F\x98\x80"},
      {{0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
      // Unpaired surrogates: each becomes U+FFFD, neighbours are kept.
      {{0xD83D}, "\xEF\xBF\xBD"},
      {{0xDE00}, "\xEF\xBF\xBD"},
      {{0xD83D, u'A'},
       "\xEF\xBF\xBD"
       "A"},
      {{0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {{0xD83D, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
      {{u'a', 0, u'b'}, std::string("a\0b", 3)},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Utf16ToUtf8(c.in), c.out) << c.out;
}

TEST(Utf8ToUtf16, MalformedSequencesBecomeOneReplacementEach) {
  const char16_t r = 0xFFFD;
  struct Case {
    const char* what;
    std::string in;
    std::u16string out;
  };
  const Case cases[] = {
      {"lone continuation", "\x80", {r}},
      {"two continuations", "\x80\xBF", {r}},
      {"truncated 2-byte at end", "\xC3", {r}},
      {"truncated 3-byte at end", "\xE2\x82", {r}},
      {"3-byte cut by ASCII",
       "\xE2\x82"
       "A",
       {r, u'A'}},
      {"2-byte lead then ASCII", "\xC3(", {r, u'('}},
      {"overlong NUL", "\xC0\x80", {r}},
      {"overlong 3-byte", "\xE0\x80\xAF", {r}},
      {"overlong 4-byte", "\xF0\x80\x80\x80", {r}},
      {"encoded surrogate", "\xED\xA0\x80", {r}},
      {"above U+10FFFF", "\xF4\x90\x80\x80", {r}},
      {"5-byte form", "\xF8\x88\x80\x80\x80", {r}},
      {"FF byte", "x\xFFy", {u'x', r, u'y'}},
      {"good after bad", "\xC3\xA9\xC3\xF0\x9F\x98\x80", {0xE9, r, 0xD83D, 0xDE00}},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Utf8ToUtf16(c.in), c.out) << c.what;
}

TEST(PathTitleUtf8, LastComponentWithoutExtension) {
  struct Case {
    const char* path;
    const char* title;
  };
  const Case cases[] = {
      {"/a/look.cube", "look"},
      {"C:\\LUTs\\Film Print.v2.3dl", "Film Print.v2"},
      {"/luts/caf\xC3\xA9.cube", "caf\xC3\xA9"},
      {"/luts/\xF0\x9F\x8E\xA8.cube", "\xF0\x9F\x8E\xA8"},  // needs a surrogate pair on the way
      {"", ""},
      {"/luts/", ""},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Tincta::PathTitleUtf8(c.path), c.title) << c.path;
}

}  // namespace
