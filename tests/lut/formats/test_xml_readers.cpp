// The XML readers: looks (a "look" whose first child is a "LUT" with size, domain and hexadecimal
// data), and the LUT element of documents with its writer and its refusals.
#include <cstring>

#include "lut/formats/xml_lut_element.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using XMLReaders = LUTTest;

TEST_F(XMLReaders, LooksGiveTheFloatsBitForBitWithTheirDomainOrNothing) {
  const std::string good = XMLLookText(2, NodeColours(2));
  const size_t data = good.find("<data>\"") + 7, dataEnd = good.find("\"</data>");
  const Vec4 low{-0.5f, 0, 0.25f, 1}, high{1.5f, 2, 3, 1};
  const struct {
    std::string text;
    uint32_t size;
    Vec4 min = {0, 0, 0, 1}, max = {1, 1, 1, 1};
  } cases[] = {
      {good, 2},
      {XMLLookText(3, NodeColours(3), "-0.5,0,0.25", " 1.5 , 2,\t3 "), 3, low, high},
      {XMLLookText(1, NodeColours(1), "\"0,0,0\"", "\"2,2,2\""), 1, {0, 0, 0, 1}, {2, 2, 2, 1}},
      // Any character but "0"-"9" and "A"-"F" in the data is dropped; names ignore case; a look
      // without a LUT child is passed over.
      {"<?xml version=\"1.0\"?><grade><look><name>first</name></look><LOOK><lut><SIZE>2</SIZE>"
       "<data>\"xyz-!ace" +
           good.substr(data, dataEnd - data) + "\"</data></lut></LOOK></grade>",
       2},
  };
  for (const auto& c : cases) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, c.text)) << c.text.substr(0, 300);
    ASSERT_EQ(lut.Size(), c.size);
    EXPECT_TRUE(lut.Is3D());
    const uint32_t n = c.size;
    for (uint32_t i = 0; i < n * n * n; ++i) {
      const Rgb colour = NodeColour(i % n, i / n % n, i / n / n, n);
      ASSERT_EQ(At(lut, i), (Vec4{colour[0], colour[1], colour[2], 1})) << i;
    }
    EXPECT_EQ(lut.DomainMin(), c.min);
    EXPECT_EQ(lut.DomainMax(), c.max);
  }
}

void Ramp(COv3DLUT& lut, uint32_t size, bool is3D, float bias = 0) {
  Fill(lut, size, is3D, [bias](size_t i) {
    return Vec4{float(i) * 0.01f + bias, 1.0f - float(i) * 0.003f, float(i % 7) - 2.5f, 1};
  });
}

std::string Children(const COv3DLUT& lut, int indent = 2) {
  std::string text;
  Tincta::WriteXMLLUTElement(lut, indent, text);
  return text;
}

std::unique_ptr<COv3DLUT> Read(const std::string& children) {
  pugi::xml_document document;
  const std::string text = "<?xml version=\"1.0\"?>\n<lut>\n" + children + "</lut>\n";
  return document.load_string(text.c_str()) ? Tincta::ReadXMLLUTElement(document.document_element())
                                            : nullptr;
}

// One exact case with a sublut; written elements read back with the same digest.
TEST_F(XMLReaders, ElementsAreWrittenExactlyAndReadBackWithTheDigest) {
  COv3DLUT small, longest;
  ASSERT_TRUE(small.Allocate(2, true));
  std::fill(small.Table(), small.Table() + 32, 0.0f);
  small.Table()[0] = 0.25f;  // little-endian: 00 00 80 3E
  small.SetDomain({-0.5f, 0, 0.125f, 1}, {1.5f, 2, 1e-5f, 1});
  small.SetSourcePath("rel/a & b <1>.cube");
  auto shaper = std::make_shared<COv3DLUT>();
  Ramp(*shaper, 6, false, 0.125f);
  small.SetInputShaper(shaper);
  const std::string shaperData = HexOf(shaper->Table(), shaper->TableBytes());
  std::string out = "keep\n";
  Tincta::WriteXMLLUTElement(small, 1, out);
  EXPECT_EQ(out,
            "keep\n <filename>\"rel/a &amp; b &lt;1&gt;.cube\"</filename>\n"
            " <is3d>\"1\"</is3d>\n <size>\"2\"</size>\n"
            " <min>\"-0.5,0,0.125\"</min>\n <max>\"1.5,2,1e-05\"</max>\n"
            " <data>\"0000803E" +
                std::string(31 * 8, '0') +
                "\"</data>\n <sublut>\n   <is3d>\"0\"</is3d>\n   <size>\"6\"</size>\n"
                "   <min>\"0,0,0\"</min>\n   <max>\"1,1,1\"</max>\n   <data>\"" +
                shaperData + "\"</data>\n </sublut>\n");
  Ramp(longest, 65536, false);
  longest.SetDomain({-0.25f, 0.1f, 0, 1}, {1.25f, 0.9f, 3, 1});
  for (const COv3DLUT* lut : {&small, &longest}) {
    const auto read = Read(Children(*lut));
    ASSERT_NE(read, nullptr) << lut->Size();
    EXPECT_EQ(read->ContentDigest(), lut->ContentDigest()) << lut->Size();
    EXPECT_EQ(read->Is3D(), lut->Is3D());
    EXPECT_EQ(read->SourcePath(), lut->SourcePath());
  }
}

TEST_F(XMLReaders, ElementsReadInAnyOrderOrYieldNoLUT) {
  COv3DLUT oneD, threeD, longest;
  Ramp(oneD, 2, false);
  Ramp(threeD, 2, true);
  Ramp(longest, 65536, false);
  auto withShaper = std::make_shared<COv3DLUT>(), inner = std::make_shared<COv3DLUT>();
  Ramp(*withShaper, 3, false);
  Ramp(*inner, 4, false);
  withShaper->SetInputShaper(inner);
  const std::string good = Children(oneD), data = HexOf(oneD.Table(), 32);
  const auto replace = [&good](std::string_view from, std::string_view to) {
    return Replace(good, from, to);
  };
  std::string tooLong = Children(longest);
  tooLong.replace(tooLong.find("65536"), 5, "65537").insert(tooLong.find("\"</data>"), 32, '0');
  // Children in any order and any case, unknown ones skipped, read; each other case yields nothing.
  const std::string anyOrder = "<DATA>\"" + data +
                               "\"</DATA><note>\"x\"</note><Max>2, 2 ,2</Max>"
                               "<Size> 2 </Size><Is3D>\"false\"</Is3D><FileName>\"f\"</FileName>";
  ASSERT_NE(Read(anyOrder), nullptr);
  EXPECT_EQ(Read(anyOrder)->DomainMax(), (Vec4{2, 2, 2, 1}));
  const std::string cases[] = {
      replace(data, data.substr(1)),
      replace(data, data + "0"),
      replace(data, std::string(data.size(), 'a')),     // lower-case digits
      replace(data, data.substr(1).insert(0, 1, 'X')),  // the packed text mode
      replace("<size>\"2\"", "<size>\"0\""),
      replace("<size>\"2\"", "<size>\"2x\""),
      tooLong,
      replace("<is3d>\"0\"</is3d>\n  <size>\"2\"", "<is3d>\"1\"</is3d><size>\"257\""),
      replace("<is3d>\"0\"", "<is3d>\"1\""),  // 1-D data
      replace("<is3d>\"0\"", "<is3d>\"maybe\""),
      replace("<min>\"0,0,0\"", "<min>\"0,0\""),
      good + "<sublut><size>\"3\"</size></sublut>",
      good + "<sublut>" + Children(threeD) + "</sublut>",
      Children(threeD) + "<sublut>\n" + Children(*withShaper) + "</sublut>\n",  // nested
  };
  for (const std::string& text : cases)
    EXPECT_EQ(Read(text), nullptr) << text.substr(0, 300);
}

}  // namespace
}  // namespace crandle_test
