// The XML readers: looks (a "look" whose first child is a "LUT" with size, domain and hexadecimal
// data), and the LUT element of documents with its writer, its refusals and "hash" look-ups.
#include <atomic>
#include <cctype>
#include <cstring>
#include <thread>

#include "lut/formats/xml_lut_element.h"
#include "lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::Vec4;

using XMLReaders = LUTTest;

TEST_F(XMLReaders, LooksGiveTheFloatsBitForBitWithTheirDomain) {
  const auto expect = [](const std::string& text, uint32_t n, Vec4 min, Vec4 max) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, text)) << text;
    ASSERT_TRUE(lut.Is3D() && lut.Size() == n);
    for (uint32_t i = 0; i < n * n * n; ++i) {
      const Rgb c = NodeColour(i % n, i / n % n, i / n / n, n);
      ASSERT_EQ(At(lut, i), (Vec4{c[0], c[1], c[2], 1})) << i;
    }
    EXPECT_EQ(lut.DomainMin(), min);
    EXPECT_EQ(lut.DomainMax(), max);
  };
  const Vec4 zero{0, 0, 0, 1}, one{1, 1, 1, 1};
  const std::string look = XMLLookText(2, NodeColours(2));
  expect(look, 2, zero, one);
  expect(XMLLookText(3, NodeColours(3), "-0.5,0,0.25", " 1.5 , 2,\t3 "), 3, {-0.5f, 0, 0.25f, 1},
         {1.5f, 2, 3, 1});
  expect(XMLLookText(1, NodeColours(1), "\"0,0,0\"", "\"2,2,2\""), 1, zero, {2, 2, 2, 1});
  // Any character but "0"-"9" and "A"-"F" in the data is dropped, lower-case digits too; names
  // ignore case; a look without a LUT child is passed over.
  const size_t data = look.find("<data>\"") + 7;
  expect(
      "<?xml version=\"1.0\"?><grade><look><name>first</name></look><LOOK><lut><SIZE>2</SIZE>"
      "<data>\"xyz-!ace" +
          look.substr(data, look.find("</data>") - data) + "</data></lut></LOOK></grade>",
      2, zero, one);
}

TEST_F(XMLReaders, BrokenLooksFailAndLeaveNothing) {
  const std::string good = XMLLookText(2, NodeColours(2));
  const size_t dataEnd = good.find("\"</data>");
  std::string lowerCase = good;
  const size_t digit = good.find_first_of("ABCDEF", good.find("<data>"));
  lowerCase[digit] = char(good[digit] - 'A' + 'a');  // dropped: the count comes out short
  const std::string cases[] = {
      lowerCase,
      std::string(good).erase(good.rfind('0', dataEnd), 1),
      std::string(good).insert(dataEnd, 1, '0'),
      Replace(Replace(good, "<size>\"2\"</size>", ""), "</LUT>", "<size>2</size></LUT>"),
      Replace(good, "<size>\"2\"</size>", ""),
      Replace(good, "<size>\"2\"", "<size>\"257\""),
      Replace(good, "<size>\"2\"", "<size>\"3\""),
      Replace(good, "</LUT>", "</LUTS>"),
      Replace(good, "<LUT>", "<note/><LUT>"),
      Replace(good, "<size>", "<domainmin>0,0</domainmin><size>"),
  };
  for (const std::string& text : cases) {
    COv3DLUT lut;
    EXPECT_FALSE(Parse(lut, text)) << text.substr(0, 300);
    ExpectCleared(lut);
  }
  COv3DLUT lut;
  EXPECT_FALSE(Parse(lut, good, {.kind = Tincta::ELUTKindFilter::Only1D}));
}

void Fill(COv3DLUT& lut, uint32_t size, bool is3D, float bias = 0) {
  ASSERT_TRUE(lut.Allocate(size, is3D));
  for (size_t i = 0; i < lut.EntryCount(); ++i) {
    const float entry[4] = {float(i) * 0.01f + bias, 1.0f - float(i) * 0.003f, float(i % 7) - 2.5f,
                            1};
    std::memcpy(lut.Table() + 4 * i, entry, 16);
  }
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

TEST_F(XMLReaders, TheElementWriterBytesAreExact) {
  COv3DLUT lut;
  ASSERT_TRUE(lut.Allocate(2, true));
  std::fill(lut.Table(), lut.Table() + 32, 0.0f);
  lut.Table()[0] = 0.25f;  // little-endian: 00 00 80 3E
  lut.SetDomain({-0.5f, 0, 0.125f, 1}, {1.5f, 2, 1e-5f, 1});
  lut.SetSourcePath("/luts/a & b <1>.cube");
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(1, false));
  std::fill(shaper->Table(), shaper->Table() + 4, 0.5f);
  lut.SetInputShaper(shaper);
  std::string out = "keep\n";
  Tincta::WriteXMLLUTElement(lut, 1, out);
  EXPECT_EQ(out,
            "keep\n"
            " <filename>\"/luts/a &amp; b &lt;1&gt;.cube\"</filename>\n"
            " <is3d>\"1\"</is3d>\n <size>\"2\"</size>\n"
            " <min>\"-0.5,0,0.125\"</min>\n <max>\"1.5,2,1e-05\"</max>\n"
            " <data>\"0000803E" +
                std::string(31 * 8, '0') +
                "\"</data>\n"
                " <sublut>\n"
                "   <is3d>\"0\"</is3d>\n   <size>\"1\"</size>\n   <min>\"0,0,0\"</min>\n   "
                "<max>\"1,1,1\"</max>\n"
                "   <data>\"0000003F0000003F0000003F0000003F\"</data>\n"
                " </sublut>\n");
}

TEST_F(XMLReaders, ElementsRoundTripWithTheDigest) {
  const struct {
    uint32_t size;
    bool is3D, shaper;
    const char* path;
  } cases[] = {{3, true, true, "rel/y & z.cube"}, {65536, false, false, ""}};
  for (const auto& c : cases) {
    COv3DLUT lut;
    Fill(lut, c.size, c.is3D);
    lut.SetDomain({-0.25f, 0.1f, 0, 1}, {1.25f, 0.9f, 3, 1});
    lut.SetSourcePath(c.path);
    if (c.shaper) {
      auto shaper = std::make_shared<COv3DLUT>();
      Fill(*shaper, 6, false, 0.125f);
      lut.SetInputShaper(shaper);
    }
    const auto read = Read(Children(lut));
    ASSERT_NE(read, nullptr) << c.size;
    EXPECT_EQ(read->ContentDigest(), lut.ContentDigest()) << c.size;
    EXPECT_EQ(read->Is3D(), c.is3D);
    EXPECT_EQ(read->SourcePath(), c.path);
    EXPECT_EQ(read->TextureScale(), lut.TextureScale());
    EXPECT_EQ(read->InputShaper() != nullptr, c.shaper);
  }
  // Children in any order and any case; unknown ones skipped; min defaults to 0.
  COv3DLUT lut;
  Fill(lut, 2, false);
  const auto read = Read("<DATA>\"" + HexOf(lut.Table(), 32) +
                         "\"</DATA><note>\"x\"</note><Max>2, 2 ,2</Max>"
                         "<Size> 2 </Size><Is3D>\"false\"</Is3D><FileName>\"f.cube\"</FileName>");
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->SourcePath(), "f.cube");
  EXPECT_EQ(read->DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  EXPECT_EQ(read->DomainMax(), (Tincta::Vec4{2, 2, 2, 1}));
  EXPECT_EQ(std::memcmp(read->Table(), lut.Table(), 32), 0);
}

TEST_F(XMLReaders, ElementsThatYieldNoLUT) {
  COv3DLUT oneD, threeD, longest;
  Fill(oneD, 2, false);
  Fill(threeD, 2, true);
  Fill(longest, 65536, false);
  auto withShaper = std::make_shared<COv3DLUT>(), inner = std::make_shared<COv3DLUT>();
  Fill(*withShaper, 3, false);
  Fill(*inner, 4, false);
  withShaper->SetInputShaper(inner);
  const std::string good = Children(oneD), data = HexOf(oneD.Table(), 32);
  const auto replace = [&good](std::string_view from, std::string_view to) {
    return std::string(good).replace(good.find(from), from.size(), to);
  };
  std::string tooLong = Children(longest);
  tooLong.replace(tooLong.find("65536"), 5, "65537").insert(tooLong.find("\"</data>"), 32, '0');
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

// Found, the cached table and shaper are shared whatever the element's own children say, also
// when eight threads look it up and copy it at once; the user counts end as they began.
TEST_F(XMLReaders, AnElementHashIsLookedUpInTheLUTCache) {
  TempDir dir;
  std::vector<Rgb> shaper = IdentityRamp(8);
  shaper[3] = {0.2f, 0.2f, 0.2f};
  COv3DLUT loaded, other;
  ASSERT_TRUE(loaded.LoadFromFile(dir.Write("hashed.cub", TruelightText(3, shaper, NodeColours(3))),
                                  false, Tincta::ELUTKindFilter::Any, true));
  std::string key = loaded.CacheKey();  // the content digest, compared without regard to case
  auto& cache = Tincta::COvLUTCache::Instance();
  const int64_t users = cache.UsersOf(key);
  const uint64_t inUse = cache.InUseBytes();
  Fill(other, 2, false);
  other.SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});  // the element's domain has no alpha; it reads as 1
  for (char& c : key)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(
      ("<lut><hash>\"" + key + "\"</hash><size>\"bad\"</size>" + Children(other) + "</lut>")
          .c_str()));
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) {
        const auto found = Tincta::ReadXMLLUTElement(document.document_element());
        const COv3DLUT copy(loaded);
        wrong += !found || found->Table() != loaded.Table() ||
                 found->InputShaper() != loaded.InputShaper() ||
                 found->CacheKey() != loaded.CacheKey() || copy.Table() != loaded.Table() ||
                 cache.UsersOf(loaded.CacheKey()) <= users;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(cache.UsersOf(loaded.CacheKey()), users);
  EXPECT_EQ(cache.InUseBytes(), inUse);
  const auto missing = Read("<hash>\"00000000000000000000000000000000\"</hash>" + Children(other));
  ASSERT_NE(missing, nullptr);
  EXPECT_TRUE(missing->CacheKey().empty());
  EXPECT_EQ(missing->ContentDigest(), other.ContentDigest());
}

}  // namespace
}  // namespace crandle_test
