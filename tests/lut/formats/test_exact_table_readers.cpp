// The readers of exact tables: float LUT images and the writer's blob, packed 10-bit cubes, XML
// looks, and the LUT element of documents with its writer and its refusals.
#include <bit>
#include <cmath>
#include <cstring>

#include "lut/formats/xml_lut_element.h"
#include "lut/otx3_writer.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using BinaryReaders = LUTTest;
using XMLReaders = LUTTest;

const Rgb kMin{-0.25f, 0, 0.5f}, kMax{1.25f, 2, 0.75f};

// Entry i holds (i, i + 0.25, -i), so that any misplaced float shows; -1 entries: all of them.
std::string Image(const char* magic, uint32_t size, uint32_t kind, int64_t entries = -1) {
  const uint64_t all = kind == 3 ? uint64_t(size) * size * size : size;
  return AsText(FloatImageBytes({magic, size, kind, 0, kMin, kMax},
                                entries < 0 ? all : uint64_t(entries), [](uint64_t i) {
                                  return Rgb{float(i), float(i) + 0.25f, -float(i)};
                                }));
}
Vec4 ImageEntry(uint32_t i, uint32_t) {
  return {float(i), float(i) + 0.25f, -float(i), 1};
}

// Distinct codes per node and channel, and bits 30 and 31 set on one node: they count as red.
uint32_t Word(uint32_t r, uint32_t g, uint32_t b) {
  return (r == 1 && g == 0 && b == 1 ? 0xC0000000u : 0u) |
         PackWord((r * 97 + g * 13 + b * 3) % 1024, (g * 101 + b * 7 + r) % 1024,
                  (b * 89 + r * 5) % 1024);
}
Vec4 PackedEntry(uint32_t i, uint32_t n) {
  const uint32_t w = Word(i % n, i / n % n, i / n / n);
  return {float((w >> 20) / 1023.0), float((w >> 10 & 1023) / 1023.0), float((w & 1023) / 1023.0),
          1};
}
Vec4 LookEntry(uint32_t i, uint32_t n) {
  const Rgb colour = NodeColour(i % n, i / n % n, i / n / n, n);
  return {colour[0], colour[1], colour[2], 1};
}

// Each table bit for bit with its domain, or nothing; the object's title stays either way.
TEST_F(BinaryReaders, TablesAreReadExactlyWithTheirDomainsOrNotAtAll) {
  const auto only1D = ELUTKindFilter::Only1D, only3D = ELUTKindFilter::Only3D;
  const std::string packed = AsText(Packed10Bytes(true, 1, Word, 800));  // 800 + 27 x 4 bytes
  std::string lowBits = AsText(Packed10Bytes(false, 1, Word));
  lowBits[768] = 0x21;  // only the low five bits of the grid exponent count
  lowBits[769] = char(0xFF);
  const std::string look = XMLLookText(2, NodeColours(2));
  const size_t data = look.find("<data>\"") + 7, dataEnd = look.find("\"</data>");
  const Vec4 zero{0, 0, 0, 0}, one{1, 1, 1, 1}, unitMin{0, 0, 0, 1};
  const Vec4 low{kMin[0], kMin[1], kMin[2], 1}, high{kMax[0], kMax[1], kMax[2], 1};
  const Vec4 lookMin{-0.5f, 0, 0.25f, 1}, lookMax{1.5f, 2, 3, 1}, two{2, 2, 2, 1};
  const struct {
    std::string bytes;
    uint32_t size;  // 0: refused
    bool is3D;
    Vec4 (*entry)(uint32_t i, uint32_t n);
    Vec4 min, max;
    ELUTKindFilter kind = ELUTKindFilter::Any;
  } cases[] = {
      {Image("OVTX", 5, 1), 5, false, ImageEntry, zero, one, only1D},
      {Image("OVTX", 3, 3), 3, true, ImageEntry, zero, one, only3D},
      {Image("OTX2", 65536, 1), 65536, false, ImageEntry, low, high},
      {Image("OTX3", 1, 1, 9), 1, false, ImageEntry, low, high},  // bytes past the table ignored
      {Image("OTX2", 65537, 1), 0, false, ImageEntry, low, high},
      {Image("OTX2", 2, 1), 0, false, ImageEntry, low, high, only3D},
      {Image("OTX2", 2, 3), 0, false, ImageEntry, low, high, only1D},
      {AsText(Packed10Bytes(true, 0, Word)), 2, true, PackedEntry, zero, one},
      {AsText(Packed10Bytes(false, 4, Word)), 17, true, PackedEntry, zero, one},
      {lowBits, 3, true, PackedEntry, zero, one},
      {packed, 3, true, PackedEntry, zero, one, only3D},
      {packed, 0, true, PackedEntry, zero, one, only1D},
      {look, 2, true, LookEntry, unitMin, one},
      {XMLLookText(3, NodeColours(3), "-0.5,0,0.25", " 1.5 , 2,\t3 "), 3, true, LookEntry, lookMin,
       lookMax},
      {XMLLookText(1, NodeColours(1), "\"0,0,0\"", "\"2,2,2\""), 1, true, LookEntry, unitMin, two},
      // Any character but "0"-"9" and "A"-"F" in the data is dropped; names ignore case; a look
      // without a LUT child is passed over.
      {"<?xml version=\"1.0\"?><grade><look><name>first</name></look><LOOK><lut><SIZE>2</SIZE>"
       "<Data>\"xyz-!ace" +
           look.substr(data, dataEnd - data) + "\"</Data></lut></LOOK></grade>",
       2, true, LookEntry, unitMin, one},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bytes.substr(0, 4) << " " << c.bytes.size() << " bytes");
    COv3DLUT lut;
    HoldShapedTable(lut);
    lut.SetTitle("kept");
    ASSERT_EQ(Parse(lut, c.bytes, {.kindFilter = c.kind}), c.size > 0);
    EXPECT_EQ(lut.Title(), "kept");
    ASSERT_EQ(lut.Size(), c.size);
    if (c.size == 0) {
      ExpectCleared(lut);
      continue;
    }
    ASSERT_EQ(lut.Is3D(), c.is3D);
    for (uint32_t i = 0; i < lut.EntryCount(); ++i)
      ASSERT_EQ(At(lut, i), c.entry(i, c.size)) << i;
    EXPECT_EQ(lut.DomainMin(), c.min);
    EXPECT_EQ(lut.DomainMax(), c.max);
  }
  // Every cut of a good image fails, and none is read past its end.
  for (const std::string& full : {Image("OVTX", 2, 3), Image("OTX2", 3, 1), Image("OTX3", 2, 3)}) {
    for (size_t end = 0; end < full.size(); ++end) {
      COv3DLUT lut;
      EXPECT_FALSE(Parse(lut, full.substr(0, end))) << end;
    }
  }
}

TEST_F(BinaryReaders, BlobsAreExactAndReadBackByteForByte) {
  for (const bool is3D : {true, false}) {
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(is3D ? 4 : 200, is3D));
    std::vector<uint8_t> expected;
    const auto put = [&expected](uint32_t word) {
      for (int i = 0; i < 32; i += 8)
        expected.push_back(uint8_t(word >> i));
    };
    for (const uint32_t word : {0x3358544Fu, lut.Size(), is3D ? 3u : 1u, 0u})
      put(word);  // "OTX3"
    for (const Rgb& v : {kMin, kMax})
      for (const float f : v)
        put(std::bit_cast<uint32_t>(f));
    for (size_t i = 0; i < lut.EntryCount(); ++i) {
      const float entry[4] = {float(i) / 7, i % 5 ? -float(i) * 1e-40f : std::nanf(""),
                              i % 3 ? 3e38f : INFINITY, 1};
      std::memcpy(lut.Table() + 4 * i, entry, 16);
      for (int ch = 0; ch < 3; ++ch)
        put(std::bit_cast<uint32_t>(entry[ch]));
    }
    lut.SetDomain({kMin[0], kMin[1], kMin[2], 0}, {kMax[0], kMax[1], kMax[2], 1});
    std::vector<uint8_t> blob(Tincta::Otx3ImageBytes(lut));
    Tincta::WriteOtx3Image(lut, blob.data());
    EXPECT_EQ(blob, expected);
    COv3DLUT read;
    ASSERT_TRUE(read.LoadFromMemory(blob.data(), uint32_t(blob.size()), false, {}, false));
    ASSERT_EQ(read.Size(), lut.Size());
    EXPECT_EQ(std::memcmp(read.Table(), lut.Table(), lut.TableBytes()), 0);
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

// One exact case with a sublut; written elements read back with the same digest; children in any
// order and case, unknown ones skipped, are read, and each broken element yields nothing.
TEST_F(XMLReaders, ElementsAreWrittenExactlyAndReadBackOrYieldNoLUT) {
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
  COv3DLUT oneD, threeD;
  Ramp(oneD, 2, false);
  Ramp(threeD, 2, true);
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
