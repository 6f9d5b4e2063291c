// Which reader gets a buffer and which results are final, ASC CDL text baked into 1024 entries, the
// diagnostics record, which never changes a read, and the fuzz seeds (fuzz/corpus/), read on eight
// threads beside LUT cache look-ups.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <tuple>

#include "lut/formats/reader.h"
#include "lut/formats/xml_lut_element.h"
#include "support/lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

namespace fs = std::filesystem;

using Detection = LUTTest;

// The text readers' claims are decided where their lines decide them, not by the first line alone.
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
  const std::string transform = "colour transformation", none = "";
  // Tables of 1024 entries are corrections, the others cubes; 0: the read fails; -1: the claim
  // alone is checked. Each format's own reads are its reader's tests.
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
      {"DOMAIN_MID 1 1 1\n" + kCorners2, "cube", 0},  // broken before any size line: final
      {"LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE 0 1\n" + kCorners2, transform, -1},
      {"LUT_1D_SIZE 3\n1 1 1\nLUT_1D_SIZE 0\n1 1 1\n", transform, -1},
      {"LUT_1D_SIZE 2\n1 1 1\n2 2 2\nLUT_1D_SIZE 0\n", "cube", -1},  // read ends first
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
  // Only where text is allowed (3-D only is a row of the table above).
  EXPECT_FALSE(Parse(lut, CDLText("1 1 1", "0 0 0", "1 1 1"), {.allowTransformText = false}));
}

using Corpus = LUTTest;

std::unique_ptr<COv3DLUT> ReadElement(const std::string& bytes) {
  pugi::xml_document document;
  if (!document.load_buffer(bytes.data(), bytes.size())) return nullptr;
  return Tincta::ReadXMLLUTElement(document.document_element());
}

// The seeds read on eight threads give the serial tables, while the same threads find an element's
// hash in the LUT cache and share its table and shaper whatever the element's children say.
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
  std::transform(key.begin(), key.end(), key.begin(), [](char c) { return char(std::tolower(c)); });
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

using Tincta::SLUTReadDiagnostics;

// Eight plain lines after the size line: line n + 2 holds entry n.
const std::string kCube2 = "LUT_3D_SIZE 2\n" + kCorners2;

std::string FloatImage(const SFloatImage& image, uint64_t entries) {
  return AsText(FloatImageBytes(image, entries, [](uint64_t) { return Rgb{0.5f, 0.5f, 0.5f}; }));
}

const std::string kCollection =
    "<?xml version=\"1.0\"?>\n<ColorCorrectionCollection>\n"
    "<ColorCorrection id=\"warm\"><SOPNode><Slope>2 2 2</Slope><Offset>0 0 0</Offset>"
    "<Power>1 1 1</Power></SOPNode></ColorCorrection>\n"
    "<ColorCorrection id=\"cool\"><SOPNode><Slope>0.5 0.5 0.5</Slope><Offset>0 0 0</Offset>"
    "<Power>1 1 1</Power></SOPNode></ColorCorrection>\n</ColorCorrectionCollection>\n";

struct SDiagnosisCase {
  std::string bytes;
  std::string reader;   // "": no reader took the bytes
  std::string failure;  // "": the read succeeds
  std::string warning = "", correctionId = "";
};

std::vector<SDiagnosisCase> Cases() {
  const NodeFunction colours = NodeColours(2);
  const CodeFunction codes = NodeCodesOf(3, 1024);
  const std::string badLine = Replace(kCube2, "0 1 0", "1 x 1"), not3 = "'1 x 1' is not three";
  std::string crlf, cr, cut = TruelightText(2, {}, colours);
  for (const char c : badLine)
    crlf += c == '\n' ? "\r\n" : std::string(1, c), cr += c == '\n' ? '\r' : c;
  cut.resize(cut.find("# Cube\n") + 7 + 4 * 28);  // four of the eight 28-byte entry lines
  std::vector<uint8_t> packed =
      Packed10Bytes(false, 1, [](uint32_t, uint32_t, uint32_t) { return 0u; });
  packed[660] = 0;
  std::string lowerCase = XMLLookText(2, colours);
  const size_t data = lowerCase.find("<data>") + 6;
  lowerCase.replace(data, lowerCase.find("</data>") - data, "00ff");
  const std::string transform = "colour transformation", cdl = "ASC CDL: ";
  const std::vector<Rgb> falling{{0, 0, 0}, {0.6f, 0.3f, 0.3f}, {0.4f, 0.6f, 0.6f}, {1, 1, 1}};
  return {
      {kCube2, "cube", ""},
      {badLine, "cube", "line 4: " + not3 + " numbers"},
      {crlf, "cube", "line 4: " + not3 + " numbers"},
      {cr, "cube", "line 4: " + not3 + " numbers"},
      {"\n  \n" + badLine, "cube", "line 6: " + not3 + " numbers"},
      {Replace(kCube2, "1 1 1\n", ""), "cube", "found 7 entries, expected 8"},
      {"LUT_3D_SIZE 300\n0 0 0\n", "cube", "line 1: LUT_3D_SIZE 300 is above 256"},
      {"TITLE \"t\"\nLUT_1D_SIZE 70000\n0 0 0\n", "cube",
       "line 2: LUT_1D_SIZE 70000 is above 65536 (read as a 1-D size)"},
      {"DOMAIN_MID 0 0 0\n" + kCube2, "cube",
       "line 1: DOMAIN_MID is neither DOMAIN_MIN nor DOMAIN_MAX"},
      {kCube2 + "0 0 0\n# comment\n1 1 1\n", "cube", "",
       "line 10: 2 lines after the last of the 8 entries are not read"},
      {Replace(kCube2, "1 1 1", "nan 1 1"), "cube", "",
       "1 table entry holds NaN or infinite values (the first is entry 7)"},
      {Replace(Replace(kCube2, "1 0 0", "inf 0 0"), "0 0 1", "0 -inf 1"), "cube", "",
       "2 table entries hold NaN or infinite values (the first is entry 1)"},
      {"DOMAIN_MIN 0 2 0\nDOMAIN_MAX 1 1 1\n" + kCube2, "cube", "",
       "the domain is inverted: green minimum 2 is above its maximum 1"},
      {"DOMAIN_MIN 0 0 0.5\nDOMAIN_MAX 1 1 0.5\n" + kCube2, "cube", "",
       "the domain is empty: blue minimum and maximum are both 0.5"},
      {Replace(TruelightText(2, {}, colours), "iDims     3", "iDims     2"), "Truelight",
       "line 2: iDims 2, expected 3"},
      {cut, "Truelight", "found 4 entries, expected 8"},
      {Replace(TruelightText(2, {}, colours), "# end", "stray\n# end"), "Truelight",
       "line 15: 'stray' is neither a comment nor in a block"},
      {TruelightText(2, falling, colours), "Truelight", "",
       "the input shaper is not monotonic: red falls at entry 2"},
      {MeshText("3DMESH\nMesh 8 10\n", 3, codes), "mesh", "line 2: Mesh input bits 8 is above 7"},
      {"3DMESH\nMesh 1 10\n0 0 0\n0 0 1023\n1 2\n" + std::string(200, ' '), "mesh",
       "line 5: '1 2' is not three codes"},
      {MeshText("#0 512 1023\n3DMESH\nMesh 1 10\n", 3, codes), "mesh",
       "line 1: shaper line: 3 codes, where a shaper line holds 4 to 256"},
      {MeshText("# 0 2000 4000 8000\n3DMESH\nMesh 1 10\n", 3, codes), "mesh",
       "line 1: shaper line: the last code 8000 is above 4096"},
      {MeshText("3DMESH\nMesh 1 10\n", 3, codes) + "1 2 3\n", "mesh", "",
       "line 30: 1 line after the last of the 27 entries is not read"},
      {FloatImage({.magic = "OVTX", .size = 2, .kind = 2}, 8), "float image",
       "kind 2 is neither 1 (1-D) nor 3 (3-D)"},
      {FloatImage({.magic = "OVTX", .size = 2, .kind = 3}, 7), "float image",
       "the file holds 100 bytes, a table of 8 entries needs 112"},
      {AsText(packed), "packed 10-bit cube", "the word at byte 660 is not 0xFFFFFFFF"},
      {lowerCase, "XML look",
       "the data holds 2 upper-case hexadecimal digits, a cube of 2 needs 192"},
      {CDLText("1 1 1", "0 0 0", "1 1 1", "<SatNode><Saturation>1.2</Saturation></SatNode>\n"),
       transform, cdl + "saturation 1.2 cannot be held by a 1-D table"},
      {CDLText("1 1 1", "0 0 0", "1 0 1"), transform, cdl + "a Power is not above 0"},
      {CDLText("1 1", "0 0 0", "1 1 1"), transform, cdl + "Slope is not three finite numbers"},
      {kCollection, transform,
       cdl + "2 corrections (ids warm, cool) where a table holds one; name one by its id"},
      {kCollection, transform, "", "", "cool"},
      {kCollection, transform, cdl + "no correction has the id 'grey' (ids warm, cool)", "",
       "grey"},
      {"hello world\n", "",
       "no reader recognises the text (it is no cube, Truelight, mesh or ASC CDL text)"},
  };
}

TEST_F(LUTTest, DiagnosticsNameTheReaderTheFirstFailureAndTheWarnings) {
  for (const SDiagnosisCase& c : Cases()) {
    SCOPED_TRACE(c.failure + c.warning);
    COv3DLUT lut;
    SLUTReadDiagnostics diagnostics;
    EXPECT_EQ(Parse(lut, c.bytes, {.diagnostics = &diagnostics, .correctionId = c.correctionId}),
              c.failure.empty());
    EXPECT_EQ(diagnostics.reader, c.reader);
    EXPECT_EQ(diagnostics.failure ? diagnostics.failure->Text() : "", c.failure);
    std::vector<std::string> warnings;
    for (const Tincta::SReadNote& note : diagnostics.warnings)
      warnings.push_back(note.Text());
    EXPECT_EQ(warnings, c.warning.empty() ? std::vector<std::string>{} : std::vector{c.warning});
  }
}

// The module never asks for diagnostics, so reads must not depend on them: the broken files above,
// the seeds, the fuzz corpus and tests/data/lut/, whose malformed files the reader of their format
// claims and refuses (so that no later reader tries them).
TEST_F(LUTTest, DiagnosticsNeverChangeWhatAReadYields) {
  const std::map<std::string, std::string> readers = {
      {".cube", "cube"},       {".cub", "Truelight"},           {".3dl", "mesh"},
      {".otx", "float image"}, {".3lut", "packed 10-bit cube"}, {".xml", "XML look"}};
  std::vector<std::pair<std::string, std::string>> inputs;  // the bytes, the reader refusing them
  for (const SDiagnosisCase& c : Cases())
    inputs.emplace_back(c.bytes, "");
  for (const SSeed& seed : ParseLUTDataSeeds())
    inputs.emplace_back(seed.bytes, "");
  for (const auto& entry :
       std::filesystem::directory_iterator(CRANDLE_SOURCE_DIR "/fuzz/corpus/parse_lut_data"))
    inputs.emplace_back(ReadFileBytes(entry.path().string()), "");
  const size_t before = inputs.size();
  for (const auto& entry : std::filesystem::directory_iterator(CRANDLE_TEST_DATA_DIR "/lut"))
    inputs.emplace_back(ReadFileBytes(entry.path()), readers.at(entry.path().extension()));
  EXPECT_GE(inputs.size() - before, 48u) << "a regression input went missing";
  const auto read = [](const std::string& bytes, bool upsample, SLUTReadDiagnostics* diagnostics) {
    COv3DLUT lut;
    HoldShapedTable(lut);
    const bool loaded =
        Parse(lut, bytes, {.upsampleToPowerOfTwo = upsample, .diagnostics = diagnostics});
    // The digest covers the table, the domain and the shaper's table, bit for bit.
    return std::tuple{loaded, lut.Is3D(), lut.Size(), lut.ContentDigest(), !!lut.InputShaper()};
  };
  for (const bool upsample : {false, true}) {
    for (size_t i = 0; i < inputs.size(); ++i) {
      SCOPED_TRACE("input " + std::to_string(i) + (upsample ? " upsampled" : ""));
      const auto& [bytes, refusedBy] = inputs[i];
      SLUTReadDiagnostics diagnostics;
      const auto diagnosed = read(bytes, upsample, &diagnostics);
      const auto [loaded, is3D, size, digest, hasShaper] = diagnosed;
      EXPECT_EQ(read(bytes, upsample, nullptr), diagnosed);
      EXPECT_EQ(loaded, !diagnostics.failure.has_value());
      EXPECT_TRUE(loaded || (size == 0 && !hasShaper));
      if (refusedBy.empty()) continue;
      EXPECT_FALSE(loaded);
      EXPECT_EQ(diagnostics.reader, refusedBy);
    }
  }
}

}  // namespace
}  // namespace crandle_test
