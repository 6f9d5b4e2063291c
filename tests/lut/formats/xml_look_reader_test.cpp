#include <cstring>
#include <string>

#include "format_test.h"
#include "lut/formats/xml_look_reader.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;

using XMLLookTest = FormatTest;

// The hex text is of the floats themselves, so the table must hold them bit for bit.
void ExpectColours(const COv3DLUT& lut, uint32_t size) {
  ASSERT_TRUE(lut.Is3D());
  ASSERT_EQ(lut.Size(), size);
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r) {
        const Rgb expected = NodeColour(r, g, b, size);
        const auto entry = At(lut, r, g, b);
        for (int c = 0; c < 3; ++c)
          ASSERT_EQ(entry[c], expected[c]) << r << g << b << c;
        ASSERT_EQ(entry[3], 1.0f);
      }
}

std::string Replace(std::string text, std::string_view from, std::string_view to) {
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

TEST_F(XMLLookTest, ReadsTableAndDomain) {
  struct SCase {
    uint32_t size;
    const char* min;
    const char* max;
    Tincta::Vec4 expectedMin, expectedMax;
  };
  const SCase cases[] = {
      {2, "", "", {0, 0, 0, 1}, {1, 1, 1, 1}},
      {3, "-0.5,0,0.25", " 1.5 , 2,\t3 ", {-0.5f, 0, 0.25f, 1}, {1.5f, 2, 3, 1}},
      {1, "\"0,0,0\"", "\"2,2,2\"", {0, 0, 0, 1}, {2, 2, 2, 1}},
  };
  for (const SCase& c : cases) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, XMLLookText(c.size, NodeColours(c.size), c.min, c.max))) << c.size;
    ExpectColours(lut, c.size);
    EXPECT_EQ(lut.DomainMin(), c.expectedMin);
    EXPECT_EQ(lut.DomainMax(), c.expectedMax);
  }
}

TEST_F(XMLLookTest, OnlyUpperCaseDigitsCount) {
  // Quotes, blanks and line breaks inside the data are dropped with every other character.
  std::string text = XMLLookText(2, NodeColours(2));
  const size_t data = text.find("<data>") + 6;
  text.insert(data, "xyz-!");
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text));
  ExpectColours(lut, 2);

  // Lower-case digits are dropped too, so the count comes out short.
  std::string lower = XMLLookText(2, NodeColours(2));
  const size_t digit = lower.find_first_of("ABCDEF", lower.find("<data>"));
  ASSERT_NE(digit, std::string::npos);
  lower[digit] = char(lower[digit] - 'A' + 'a');
  EXPECT_FALSE(Parse(lut, lower));
  ExpectCleared(lut);
}

TEST_F(XMLLookTest, BrokenLooksFailAndLeaveNothing) {
  const std::string good = XMLLookText(2, NodeColours(2));
  const size_t dataEnd = good.find("\"</data>");
  std::string extraDigit = good;
  extraDigit.insert(dataEnd, 1, '0');
  std::string missingDigit = good;
  missingDigit.erase(good.rfind('0', dataEnd), 1);
  struct SCase {
    const char* what;
    std::string text;
    SParseArgs args;
  };
  const SCase cases[] = {
      {"one digit short", missingDigit, {}},
      {"one digit too many", extraDigit, {}},
      {"size after data",
       Replace(Replace(good, "<size>\"2\"</size>", ""), "</LUT>", "<size>2</size></LUT>"),
       {}},
      {"no size", Replace(good, "<size>\"2\"</size>", ""), {}},
      {"size 0", Replace(good, "<size>\"2\"", "<size>\"0\""), {}},
      {"size 257", Replace(good, "<size>\"2\"", "<size>\"257\""), {}},
      {"size not a number", Replace(good, "<size>\"2\"", "<size>\"two\""), {}},
      {"size larger than the data", Replace(good, "<size>\"2\"", "<size>\"3\""), {}},
      {"no data", Replace(Replace(good, "<data>", "<dat>"), "</data>", "</dat>"), {}},
      {"malformed XML", Replace(good, "</LUT>", "</LUTS>"), {}},
      {"cut XML", good.substr(0, good.size() - 20), {}},
      {"first child not LUT", Replace(good, "<LUT>", "<note/><LUT>"), {}},
      {"domain of two numbers", Replace(good, "<size>", "<domainmin>0,0</domainmin><size>"), {}},
      {"domain not numbers", Replace(good, "<size>", "<domainmax>a,b,c</domainmax><size>"), {}},
      {"only 1-D", good, {.kind = ELUTKindFilter::Only1D}},
  };
  for (const SCase& c : cases) {
    COv3DLUT lut;
    EXPECT_FALSE(Parse(lut, c.text, c.args)) << c.what;
    ExpectCleared(lut);
  }
}

TEST_F(XMLLookTest, FirstLookWithALUTChildIsRead) {
  // Names compare without regard to case; a look without a LUT child is passed over.
  std::string text = XMLLookText(2, NodeColours(2));
  text = Replace(text, "</look>", "</LOOK></grade>");
  text = Replace(text, "<look>", "<grade><look><name>first</name></look><LOOK>");
  text = Replace(text, "<LUT>", "<lut>");
  text = Replace(text, "</LUT>", "</lut>");
  text = Replace(text, "<size>", "<SIZE>");
  text = Replace(text, "</size>", "</SIZE>");
  // The probe needs the lower-case tag within the first 1024 bytes.
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, text));
  ExpectColours(lut, 2);
}

TEST_F(XMLLookTest, ProbeLooksAtTheFirst1024BytesOnly) {
  const std::string look = XMLLookText(2, NodeColours(2));
  const auto probe = [](const std::string& text) {
    return Tincta::LooksLikeXMLLook(reinterpret_cast<const uint8_t*>(text.data()),
                                    uint32_t(text.size()));
  };
  EXPECT_TRUE(probe(look));
  EXPECT_TRUE(probe(" \r\n\t" + look));
  EXPECT_FALSE(probe("x" + look));
  EXPECT_FALSE(probe("<?xml version=\"1.0\"?><LOOK>"));
  // "<look>" must start within the first 1024 bytes.
  const std::string header = "<?xml version=\"1.0\"?>";
  const std::string padding(1024 - header.size() - 6, ' ');
  EXPECT_TRUE(probe(header + padding + "<look>"));
  EXPECT_FALSE(probe(header + padding + " <look>"));
  // Leading blanks are trimmed from the first 1024 bytes, not skipped before them.
  EXPECT_FALSE(probe(std::string(1000, ' ') + header + "<look>"));
}

}  // namespace
}  // namespace crandle_test
