#include <pugixml.hpp>

#include <cctype>
#include <cstring>
#include <string>

#include "format_test.h"
#include "lut/formats/xml_lut_element.h"
#include "lut/lut_cache.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;

using XMLLUTElementTest = FormatTest;

void Fill(COv3DLUT& lut, uint32_t size, bool is3D, float bias = 0) {
  ASSERT_TRUE(lut.Allocate(size, is3D));
  for (size_t i = 0; i < lut.EntryCount(); ++i) {
    float* entry = lut.Table() + 4 * i;
    entry[0] = float(i) * 0.01f + bias;
    entry[1] = 1.0f - float(i) * 0.003f;
    entry[2] = float(i % 7) - 2.5f;
    entry[3] = 1.0f;
  }
}

// The child lines of a LUT element.
std::string Children(const COv3DLUT& lut) {
  std::string text;
  Tincta::WriteXMLLUTElement(lut, 2, text);
  return text;
}

std::string Document(const COv3DLUT& lut) {
  return "<?xml version=\"1.0\"?>\n<lut>\n" + Children(lut) + "</lut>\n";
}

std::unique_ptr<COv3DLUT> ReadDocument(const std::string& text) {
  pugi::xml_document document;
  if (!document.load_string(text.c_str())) return nullptr;
  return Tincta::ReadXMLLUTElement(document.document_element());
}

TEST_F(XMLLUTElementTest, WriterBytesAreExact) {
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(2, false));
  const float entries[8] = {0.25f, 0.5f, 0.75f, 1.0f, 1.0f, 0.0f, -2.0f, 1.0f};
  std::memcpy(lut.Table(), entries, sizeof(entries));
  lut.SetDomain({-0.5f, 0, 0.125f, 1}, {1.5f, 2, 1e-5f, 1});
  lut.SetSourcePath("/luts/a & b <1>.cube");
  std::string out = "keep\n";
  Tincta::WriteXMLLUTElement(lut, 2, out);
  const std::string expected =
      "keep\n"
      "  <filename>\"/luts/a &amp; b &lt;1&gt;.cube\"</filename>\n"
      "  <is3d>\"0\"</is3d>\n"
      "  <size>\"2\"</size>\n"
      "  <min>\"-0.5,0,0.125\"</min>\n"
      "  <max>\"1.5,2,1e-05\"</max>\n"
      "  <data>\"" +
      HexOf(entries, sizeof(entries)) + "\"</data>\n";
  EXPECT_EQ(out, expected);
  // Little-endian floats: 0.25f is 00 00 80 3E.
  EXPECT_EQ(expected.substr(expected.find("<data>\"") + 7, 8), "0000803E");
}

TEST_F(XMLLUTElementTest, ShaperIsNestedTwoBlanksDeeper) {
  COv3DLUT lut;
  Fill(lut, 2, true);
  auto shaper = std::make_shared<COv3DLUT>();
  Fill(*shaper, 3, false, 0.5f);
  lut.SetInputShaper(shaper);
  std::string out;
  Tincta::WriteXMLLUTElement(lut, 0, out);
  const std::string expected =
      "<is3d>\"1\"</is3d>\n<size>\"2\"</size>\n<min>\"0,0,0\"</min>\n<max>\"1,1,1\"</max>\n"
      "<data>\"" +
      HexOf(lut.Table(), 8 * 16) +
      "\"</data>\n"
      "<sublut>\n"
      "  <is3d>\"0\"</is3d>\n  <size>\"3\"</size>\n  <min>\"0,0,0\"</min>\n  <max>\"1,1,1\"</max>\n"
      "  <data>\"" +
      HexOf(shaper->Table(), 3 * 16) +
      "\"</data>\n"
      "</sublut>\n";
  EXPECT_EQ(out, expected);
}

TEST_F(XMLLUTElementTest, RoundTripKeepsTheDigest) {
  struct SCase {
    uint32_t size;
    bool is3D;
    bool shaper;
    const char* path;
  };
  for (const SCase& c : {SCase{5, false, false, ""}, SCase{3, true, false, "/luts/x.cube"},
                         SCase{4, true, true, "rel/y & z.cube"}, SCase{65536, false, false, ""}}) {
    COv3DLUT lut;
    Fill(lut, c.size, c.is3D);
    lut.SetDomain({-0.25f, 0.1f, 0, 1}, {1.25f, 0.9f, 3, 1});
    lut.SetSourcePath(c.path);
    if (c.shaper) {
      auto shaper = std::make_shared<COv3DLUT>();
      Fill(*shaper, 6, false, 0.125f);
      lut.SetInputShaper(shaper);
    }
    const auto read = ReadDocument(Document(lut));
    ASSERT_NE(read, nullptr) << c.size;
    EXPECT_EQ(read->ContentDigest(), lut.ContentDigest()) << c.size;
    EXPECT_EQ(read->Is3D(), c.is3D);
    EXPECT_EQ(read->Size(), c.size);
    EXPECT_EQ(read->SourcePath(), c.path);
    EXPECT_EQ(read->DomainMin(), lut.DomainMin());
    EXPECT_EQ(read->DomainMax(), lut.DomainMax());
    EXPECT_EQ(read->TextureScale(), lut.TextureScale());
    ASSERT_EQ(read->InputShaper() != nullptr, c.shaper);
    if (c.shaper) {
      EXPECT_EQ(std::memcmp(read->InputShaper()->Table(), lut.InputShaper()->Table(), 6 * 16), 0);
    }
  }
}

TEST_F(XMLLUTElementTest, ChildrenInAnyOrderAnyCaseUnknownOnesSkipped) {
  COv3DLUT lut;
  Fill(lut, 2, false);
  const std::string text = "<lut><DATA>\"" + HexOf(lut.Table(), 32) +
                           "\"</DATA><note>\"x\"</note><Max>2, 2 ,2</Max><Size> 2 </Size>"
                           "<Is3D>\"false\"</Is3D><FileName>\"f.cube\"</FileName></lut>";
  const auto read = ReadDocument(text);
  ASSERT_NE(read, nullptr);
  EXPECT_FALSE(read->Is3D());
  EXPECT_EQ(read->SourcePath(), "f.cube");
  EXPECT_EQ(read->DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  EXPECT_EQ(read->DomainMax(), (Tincta::Vec4{2, 2, 2, 1}));
  EXPECT_EQ(std::memcmp(read->Table(), lut.Table(), 32), 0);
}

TEST_F(XMLLUTElementTest, ElementsThatYieldNoLUT) {
  COv3DLUT oneD;
  Fill(oneD, 2, false);
  COv3DLUT threeD;
  Fill(threeD, 2, true);
  auto withShaper = std::make_shared<COv3DLUT>();
  Fill(*withShaper, 3, false);
  auto inner = std::make_shared<COv3DLUT>();
  Fill(*inner, 4, false);
  withShaper->SetInputShaper(inner);
  const std::string good = Document(oneD);
  const std::string data = HexOf(oneD.Table(), 32);
  const auto replace = [&](std::string_view from, std::string_view to) {
    std::string text = good;
    text.replace(text.find(from), from.size(), to);
    return text;
  };
  // A shaper inside a shaper.
  std::string nested = Document(threeD);
  nested.insert(nested.find("</lut>"), "<sublut>\n" + Children(*withShaper) + "</sublut>\n");
  const struct {
    const char* what;
    std::string text;
  } cases[] = {
      {"data one digit short", replace(data, data.substr(1))},
      {"data one digit long", replace(data, data + "0")},
      {"lower-case digits", replace(data, std::string(data.size(), 'a'))},
      {"packed text mode", replace(data, std::string("X") + data.substr(1))},
      {"no data", replace("<data>\"" + data + "\"</data>", "")},
      {"size 0", replace("<size>\"2\"", "<size>\"0\"")},
      {"size not a number", replace("<size>\"2\"", "<size>\"2x\"")},
      {"size negative", replace("<size>\"2\"", "<size>\"-2\"")},
      {"1-D size above 65536", replace("<size>\"2\"", "<size>\"65537\"")},
      {"3-D size above 256",
       replace("<is3d>\"0\"</is3d>\n  <size>\"2\"", "<is3d>\"1\"</is3d><size>\"257\"")},
      {"3-D with 1-D data", replace("<is3d>\"0\"", "<is3d>\"1\"")},
      {"is3d not a boolean", replace("<is3d>\"0\"", "<is3d>\"maybe\"")},
      {"min of two numbers", replace("<min>\"0,0,0\"", "<min>\"0,0\"")},
      {"max not numbers", replace("<max>\"1,1,1\"", "<max>\"a,b,c\"")},
      {"unclosed quote", replace("<size>\"2\"", "<size>\"2")},
      {"unreadable sublut", replace("</lut>", "<sublut><size>\"3\"</size></sublut></lut>")},
      {"3-D sublut", replace("</lut>", "<sublut>" + Children(threeD) + "</sublut></lut>")},
      {"sublut inside a sublut", nested},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ReadDocument(c.text), nullptr) << c.what << "\n" << c.text;
}

TEST_F(XMLLUTElementTest, HashIsLookedUpInTheLUTCache) {
  // A file read by path enters the cache under its content digest.
  TempDir dir;
  std::vector<Rgb> shaper = IdentityRamp(8);
  shaper[3] = {0.2f, 0.2f, 0.2f};
  const std::string path = dir.Write("hashed.cub", TruelightText(2, shaper, NodeColours(2)));
  COv3DLUT loaded;
  ASSERT_TRUE(loaded.LoadFromFile(path, false, Tincta::ELUTKindFilter::Any, true));
  const std::string key = loaded.CacheKey();
  ASSERT_EQ(key.size(), 32u);
  auto& cache = Tincta::COvLUTCache::Instance();
  const int64_t usersBefore = cache.UsersOf(key);

  std::string lowerKey = key;
  for (char& c : lowerKey)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  COv3DLUT other;
  Fill(other, 2, false);
  // The element's domain carries no alpha; it reads back as 1.
  other.SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});
  // Found: the cached table is shared, whatever the element's own children say.
  for (const std::string& hash : {key, lowerKey}) {
    const std::string text =
        "<lut><hash>\"" + hash + "\"</hash><size>\"bad\"</size>" + Children(other) + "</lut>";
    auto read = ReadDocument(text);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->CacheKey(), key);
    EXPECT_EQ(read->Table(), loaded.Table());
    EXPECT_NE(read->InputShaper(), nullptr);
    EXPECT_EQ(read->ContentDigest(), loaded.ContentDigest());
    EXPECT_EQ(cache.UsersOf(key), usersBefore + 1);
    read.reset();
    EXPECT_EQ(cache.UsersOf(key), usersBefore);
  }
  // Not found: the element's own table.
  const std::string missing =
      "<lut><hash>\"00000000000000000000000000000000\"</hash>" + Children(other) + "</lut>";
  const auto read = ReadDocument(missing);
  ASSERT_NE(read, nullptr);
  EXPECT_TRUE(read->CacheKey().empty());
  EXPECT_EQ(read->ContentDigest(), other.ContentDigest());
}

}  // namespace
}  // namespace crandle_test
