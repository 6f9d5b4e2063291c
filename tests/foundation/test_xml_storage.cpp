// The XML storage conventions: quoted element text and names that ignore case.
#include <gtest/gtest.h>

#include <pugixml.hpp>
#include <string>

#include "foundation/xml_storage.h"

namespace {

pugi::xml_document Parse(const std::string& text) {
  pugi::xml_document document;
  EXPECT_TRUE(document.load_string(text.c_str())) << text;
  return document;
}

TEST(XmlStorage, ElementText) {
  struct Case {
    const char* xml;
    bool ok;
    const char* text;
  };
  const Case cases[] = {
      {"<v>\"quoted text\"</v>", true, "quoted text"},
      {"<v>\"\"</v>", true, ""},
      {"<v>\"a\"b\"</v>", true, "a\"b"},  // up to the last quote: inner quotes survive
      {"<v>\"with &lt;escapes&gt;\"</v>", true, "with <escapes>"},
      {"<v>plain</v>", true, "plain"},
      {"<v> \"not quoted\"</v>", true, " \"not quoted\""},
      {"<v></v>", true, ""},
      {"<v><![CDATA[\"in cdata\"]]></v>", true, "in cdata"},
      {"<v>\"unclosed</v>", false, ""},
      {"<v>\"</v>", false, ""},
  };
  for (const Case& c : cases) {
    const auto document = Parse(c.xml);
    std::string text = "before";
    std::string error;
    EXPECT_EQ(Tincta::ReadElementText(document.first_child(), text, &error), c.ok) << c.xml;
    if (c.ok) {
      EXPECT_EQ(text, c.text) << c.xml;
      EXPECT_EQ(error, "");
    } else {
      EXPECT_EQ(error, "Unexpected end of file while looking for \"") << c.xml;
      EXPECT_EQ(text, "before") << "the text is not touched on failure";
    }
  }
  // The error text is optional.
  const auto document = Parse("<v>\"unclosed</v>");
  std::string text;
  EXPECT_FALSE(Tincta::ReadElementText(document.first_child(), text));
}

TEST(XmlStorage, NamesIgnoreCase) {
  const auto document = Parse("<Look><!-- lut --><Other/><lut id='1'/><LUT id='2'/></Look>");
  const pugi::xml_node look = document.first_child();
  EXPECT_TRUE(Tincta::ElementNameIs(look, "look"));
  EXPECT_TRUE(Tincta::ElementNameIs(look, "LOOK"));
  EXPECT_FALSE(Tincta::ElementNameIs(look, "Looks"));
  EXPECT_FALSE(Tincta::ElementNameIs(look.first_child(), "")) << "a comment is no element";
  const pugi::xml_node lut = Tincta::ChildElement(look, "Lut");
  ASSERT_TRUE(lut);
  EXPECT_STREQ(lut.attribute("id").value(), "1") << "the first match";
  EXPECT_FALSE(Tincta::ChildElement(look, "missing"));
  EXPECT_FALSE(Tincta::ChildElement(lut, "LUT")) << "children only";
}

TEST(XmlStorage, QuotedElementLineReadsBack) {
  std::string out = "<doc>\n";
  Tincta::AppendQuotedElement(out, 2, "size", "33");
  Tincta::AppendQuotedElement(out, 0, "title", "");
  out += "</doc>\n";
  EXPECT_EQ(out, "<doc>\n  <size>\"33\"</size>\n<title>\"\"</title>\n</doc>\n");
  const auto document = Parse(out);
  std::string text;
  ASSERT_TRUE(Tincta::ReadElementText(Tincta::ChildElement(document.first_child(), "SIZE"), text));
  EXPECT_EQ(text, "33");
}

}  // namespace
