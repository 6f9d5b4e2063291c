// Which reader gets a buffer: the detector's order, which results are final, and ASC CDL text baked
// into 1024 entries. Also the fuzz seeds, written to CRANDLE_WRITE_FUZZ_SEEDS when it names a
// folder (fuzz/corpus/ is made this way) and read on eight threads beside LUT cache look-ups.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "lut/formats/reader.h"
#include "lut/formats/xml_lut_element.h"
#include "support/lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

namespace fs = std::filesystem;

using Detection = LUTTest;

// The first reader whose probe claims a buffer takes it, in the detector's order, and its result
// is final. The text readers' claims are decided where their lines decide them, not by the first
// line alone.
TEST_F(Detection, EachBufferGoesToTheFirstReaderThatClaimsIt) {
  const std::string mesh = MeshText("3DMESH\nMesh 1 10\n", 3, NodeCodesOf(3, 1024));
  const std::string sop =
      "<SOPNode><Slope>1 1 1</Slope><Offset>0 0 0</Offset><Power>2 2 2</Power></SOPNode>";
  const std::string correction = "<?xml version=\"1.0\"?>\n<ColorCorrection>" + sop;
  const std::string cdl = CDLText("1 1 1", "0 0 0", "1 1 1");
  std::string lookAndCorrection = XMLLookText(2, NodeColours(2));
  lookAndCorrection.insert(lookAndCorrection.find("</look>"),
                           "<ColorCorrection>" + sop + "</ColorCorrection>");
  // 808 bytes behind "3LUT" are text; from 809 on the packed reader takes them and refuses them
  // (no 0xFFFFFFFF marker) with nothing else tried.
  std::string packedText = "3LUT\n" + cdl;
  packedText.resize(808, ' ');
  const auto packed = Packed10Bytes(true, 1, [](uint32_t, uint32_t, uint32_t) { return 0u; });
  const std::string image = AsText(FloatImageBytes({"OVTX", 2, 3}, 8, [](uint64_t) {
    return Rgb{0, 0, 0};
  }));
  const std::string transform = "colour transformation", none = "";
  // Tables of 1024 entries are corrections, the others cubes; 0: the read fails; -1: the claim
  // alone is checked.
  const struct {
    std::string text, reader;
    int size;
    ELUTKindFilter kind = ELUTKindFilter::Any;
  } cases[] = {
      {"# Truelight Cube v2.0\n# width 3 3 3\n" + CubeText3D(2), "cube", 2},  // size line wins
      {"# exported by hand\n# iDims 3\n" + mesh, "mesh", 3},
      {"# Truelight Cube v2.0\n" + mesh, "Truelight", 0},
      {correction + "<note>look</note></ColorCorrection>", transform, 1024},
      {correction + "<look><LUT/></look></ColorCorrection>", "XML look", 0},
      {lookAndCorrection, "XML look", 2},
      {packedText, transform, 1024},
      {packedText + " ", "packed 10-bit cube", 0},
      {"OVTX" + std::string(12, '\x01'), transform, 0},  // 16 bytes: text
      {"", transform, 0},
      {image, "float image", 2},
      {AsText(packed), "packed 10-bit cube", 3},
      {"LUT_3D_SIZE 2\n" + kCorners2, "cube", 2},
      {"DOMAIN_MID 1 1 1\n" + kCorners2, "cube", 0},  // broken before any size line: final
      {"LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE 0 1\n" + kCorners2, transform, -1},
      {"LUT_1D_SIZE 3\n1 1 1\nLUT_1D_SIZE 0\n1 1 1\n", transform, -1},
      {"LUT_1D_SIZE 2\n1 1 1\n2 2 2\nLUT_1D_SIZE 0\n", "cube", -1},  // read ends first
      {TruelightText(2, {}, NodeColours(2)), "Truelight", 2},
      {"# iDims 7\n# Truelight Cube v2.0\n", transform, -1},
      {"# iDims 3\n# Truelight Cube v2.0\n", "Truelight", 0},
      {"3DMESH\nMesh 0 10\n" + cdl, transform, -1},
      {"3DMESH\nMesh 0 10\n" + cdl, none, 0, ELUTKindFilter::Only3D},
      {"# entries = 3\n" + cdl, "mesh", 0},  // broken header: final
  };
  const auto claimant = [](const std::string& text, ELUTKindFilter kind) -> std::string {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    for (const Tincta::SLUTFormatReader& reader : Tincta::LUTFormatReaders())
      if (reader.probe(bytes, uint32_t(text.size()), {.kindFilter = kind})) return reader.name;
    return "";
  };
  // Each read, failed or not, first drops the table and shaper that the object held.
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 80));
    COv3DLUT lut;
    HoldShapedTable(lut);
    const std::weak_ptr<const COv3DLUT> held = lut.SharedInputShaper();
    EXPECT_EQ(claimant(c.text, c.kind), c.reader);
    const bool loaded = Parse(lut, c.text, {.kindFilter = c.kind});
    EXPECT_TRUE(held.expired() && !lut.InputShaper());
    if (c.size < 0) continue;
    EXPECT_EQ(loaded, c.size > 0);
    EXPECT_EQ(lut.Size(), uint32_t(c.size));
    EXPECT_EQ(lut.Is3D(), c.size > 0 && c.size != 1024);
    if (c.size == 0) ExpectCleared(lut);
  }
  COv3DLUT lut;
  EXPECT_FALSE(lut.ParseLUTData(nullptr, 10, false, ELUTKindFilter::Any, true));
}

TEST_F(Detection, TextNoReaderTakesIsBakedAsACorrectionOrRefused) {
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, CDLText("2 1 0.5", "-0.5 0 0.25", "2 1 0.5"),
                    {.kindFilter = ELUTKindFilter::Only1D}));
  ASSERT_EQ(lut.Size(), 1024u);
  EXPECT_EQ(lut.DomainMin(), (Vec4{0, 0, 0, 1}));
  for (uint32_t i = 0; i < 1024; ++i) {
    const long double x = (long double)i / 1023, red = std::clamp(2 * x - 0.5L, 0.0L, 1.0L);
    ASSERT_NEAR(At(lut, i)[0], double(red * red), 1e-6) << i;
    ASSERT_NEAR(At(lut, i)[1], double(x), 1e-6) << i;
    ASSERT_NEAR(At(lut, i)[2], double(std::sqrt(x / 2 + 0.25L)), 1e-6) << i;
  }
  // Inside a decision list, with a saturation of 1 (refusals are in the diagnostics table).
  ASSERT_TRUE(
      Parse(lut,
            "<ColorDecisionList><ColorDecision><ColorCorrection><SOPNode><Slope>1 1 1</Slope>"
            "<Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode><SatNode><Saturation> 1.0 "
            "</Saturation></SatNode></ColorCorrection></ColorDecision></ColorDecisionList>"));
  EXPECT_EQ(lut.Size(), 1024u);
  // Only where text is allowed and a 1-D table may come out.
  EXPECT_FALSE(
      Parse(lut, CDLText("1 1 1", "0 0 0", "1 1 1"), {.kindFilter = ELUTKindFilter::Only3D}));
  EXPECT_FALSE(Parse(lut, CDLText("1 1 1", "0 0 0", "1 1 1"), {.allowTransformText = false}));
}

using Corpus = LUTTest;

std::unique_ptr<COv3DLUT> ReadElement(const std::string& bytes) {
  pugi::xml_document document;
  if (!document.load_buffer(bytes.data(), bytes.size())) return nullptr;
  return Tincta::ReadXMLLUTElement(document.document_element());
}

// Every seed loads, and is written when asked; the seeds read on eight threads at once give the
// serial tables, while the same threads look an element's hash up in the LUT cache: found, the
// cached table and shaper are shared whatever the element's own children say. The user counts end
// as they began.
TEST_F(Corpus, SeedsLoadAndReadAlikeOnEightThreadsBesideCacheLookUps) {
  TempDir dir;
  COv3DLUT loaded;  // a Truelight cube with a shaper, in the cache under its content digest
  ASSERT_TRUE(loaded.LoadFromFile(dir.Write("hashed.cub", ParseLUTDataSeeds()[3].bytes), false,
                                  ELUTKindFilter::Any, true));
  ASSERT_NE(loaded.InputShaper(), nullptr);
  auto& cache = Tincta::COvLUTCache::Instance();
  const int64_t users = cache.UsersOf(loaded.CacheKey());
  const uint64_t inUse = cache.InUseBytes();
  std::string key = loaded.CacheKey();  // the content digest, compared without regard to case
  for (char& c : key)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  const std::string element = "<lut><hash>\"" + key + "\"</hash><size>\"bad\"</size></lut>";
  const char* folder = std::getenv("CRANDLE_WRITE_FUZZ_SEEDS");
  const auto seeds = ParseLUTDataSeeds();
  std::vector<Tincta::Md5Digest> serial;
  for (const auto& [target, list] :
       {std::pair{"parse_lut_data", seeds}, std::pair{"xml_lut_element", XMLLUTElementSeeds()}}) {
    for (const SSeed& seed : list) {
      COv3DLUT lut;
      const bool lutData = std::string_view(target) == "parse_lut_data";
      ASSERT_TRUE(lutData ? Parse(lut, seed.bytes, {.upsampleToPowerOfTwo = true})
                          : !!ReadElement(seed.bytes))
          << seed.name;
      if (lutData) serial.push_back(lut.ContentDigest());
      if (!folder || !*folder) continue;
      fs::create_directories(fs::path(folder) / target);
      std::ofstream(fs::path(folder) / target / seed.name, std::ios::binary) << seed.bytes;
    }
  }
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (size_t i = 0; i < 20 * seeds.size(); ++i) {
        const size_t which = (i + t) % seeds.size();  // threads start apart
        COv3DLUT lut;
        const auto found = ReadElement(element);
        const COv3DLUT copy(loaded);
        wrong += !Parse(lut, seeds[which].bytes, {.upsampleToPowerOfTwo = true}) ||
                 lut.ContentDigest() != serial[which] || !found ||
                 found->Table() != loaded.Table() || found->InputShaper() != loaded.InputShaper() ||
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
}

}  // namespace
}  // namespace crandle_test
