// The diagnostics record: for a table of files with one broken thing each, which reader took
// them, the first failure with its line and the warnings; and that asking for diagnostics never
// changes what a read yields.
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/lut_test.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::SLUTReadDiagnostics;

// Eight plain lines after the size line: line n + 2 holds entry n.
const std::string kCube2 =
    "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";

std::string WithBreaks(std::string text, std::string_view lineBreak) {
  std::string out;
  for (const char c : text) {
    if (c == '\n') {
      out += lineBreak;
    } else {
      out += c;
    }
  }
  return out;
}

std::string Bytes(const std::vector<uint8_t>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

std::string FloatImage(const SFloatImage& image, uint64_t entries) {
  return Bytes(FloatImageBytes(image, entries, [](uint64_t) { return Rgb{0.5f, 0.5f, 0.5f}; }));
}

std::vector<Rgb> FallingShaper() {
  return {{0, 0, 0}, {0.6f, 0.3f, 0.3f}, {0.4f, 0.6f, 0.6f}, {1, 1, 1}};
}

std::string Collection() {
  return "<?xml version=\"1.0\"?>\n<ColorCorrectionCollection>\n"
         "<ColorCorrection id=\"warm\"><SOPNode><Slope>2 2 2</Slope><Offset>0 0 0</Offset>"
         "<Power>1 1 1</Power></SOPNode></ColorCorrection>\n"
         "<ColorCorrection id=\"cool\"><SOPNode><Slope>0.5 0.5 0.5</Slope><Offset>0 0 0</Offset>"
         "<Power>1 1 1</Power></SOPNode></ColorCorrection>\n"
         "</ColorCorrectionCollection>\n";
}

struct SDiagnosisCase {
  const char* name;
  std::string bytes;
  std::string correctionId;
  // The detector's name of the reader; empty when none took the bytes.
  std::string reader;
  // Empty when the read must succeed.
  std::string failure;
  std::vector<std::string> warnings;
};

void PrintTo(const SDiagnosisCase& c, std::ostream* os) {
  *os << c.name;
}

std::vector<SDiagnosisCase> Cases() {
  const NodeFunction colours = NodeColours(2);
  const CodeFunction codes = NodeCodesOf(3, 1024);
  std::string truncatedTruelight = TruelightText(2, {}, colours);
  // Lines 1-6 are the header, 7-14 the entries: keep four entries.
  size_t cut = 0;
  for (int line = 0; line < 10; ++line)
    cut = truncatedTruelight.find('\n', cut) + 1;
  truncatedTruelight.resize(cut);
  std::vector<uint8_t> packed =
      Packed10Bytes(false, 1, [](uint32_t, uint32_t, uint32_t) { return 0u; });
  packed[660] = 0;

  return {
      {"clean cube", kCube2, "", "cube", "", {}},
      {"cube line that is not three numbers",
       Replace(kCube2, "0 1 0", "1 x 1"),
       "",
       "cube",
       "line 4: '1 x 1' is not three numbers",
       {}},
      {"cube line counted across CRLF breaks",
       WithBreaks(Replace(kCube2, "0 1 0", "1 x 1"), "\r\n"),
       "",
       "cube",
       "line 4: '1 x 1' is not three numbers",
       {}},
      {"cube line counted across lone CR breaks",
       WithBreaks(Replace(kCube2, "0 1 0", "1 x 1"), "\r"),
       "",
       "cube",
       "line 4: '1 x 1' is not three numbers",
       {}},
      {"cube line counted across empty and blank lines",
       "\n  \n" + Replace(kCube2, "0 1 0", "1 x 1"),
       "",
       "cube",
       "line 6: '1 x 1' is not three numbers",
       {}},
      {"cube one entry short",
       Replace(kCube2, "1 1 1\n", ""),
       "",
       "cube",
       "found 7 entries, expected 8",
       {}},
      {"cube 3-D size above the limit",
       "LUT_3D_SIZE 300\n0 0 0\n",
       "",
       "cube",
       "line 1: LUT_3D_SIZE 300 is above 256",
       {}},
      {"cube 1-D size above the limit",
       "TITLE \"t\"\nLUT_1D_SIZE 70000\n0 0 0\n",
       "",
       "cube",
       "line 2: LUT_1D_SIZE 70000 is above 65536 (read as a 1-D size)",
       {}},
      {"cube unknown domain word",
       "DOMAIN_MID 0 0 0\n" + kCube2,
       "",
       "cube",
       "line 1: DOMAIN_MID is neither DOMAIN_MIN nor DOMAIN_MAX",
       {}},
      {"cube surplus lines",
       kCube2 + "0 0 0\n# comment\n1 1 1\n",
       "",
       "cube",
       "",
       {"line 10: 2 lines after the last of the 8 entries are not read"}},
      {"cube NaN entry",
       Replace(kCube2, "1 1 1", "nan 1 1"),
       "",
       "cube",
       "",
       {"1 table entry holds NaN or infinite values (the first is entry 7)"}},
      {"cube infinite entries",
       Replace(Replace(kCube2, "1 0 0", "inf 0 0"), "0 0 1", "0 -inf 1"),
       "",
       "cube",
       "",
       {"2 table entries hold NaN or infinite values (the first is entry 1)"}},
      {"cube inverted domain",
       "DOMAIN_MIN 0 2 0\nDOMAIN_MAX 1 1 1\n" + kCube2,
       "",
       "cube",
       "",
       {"the domain is inverted: green minimum 2 is above its maximum 1"}},
      {"cube empty domain",
       "DOMAIN_MIN 0 0 0.5\nDOMAIN_MAX 1 1 0.5\n" + kCube2,
       "",
       "cube",
       "",
       {"the domain is empty: blue minimum and maximum are both 0.5"}},
      {"Truelight iDims other than 3",
       Replace(TruelightText(2, {}, colours), "iDims     3", "iDims     2"),
       "",
       "Truelight",
       "line 2: iDims 2, expected 3",
       {}},
      {"Truelight cube cut short",
       truncatedTruelight,
       "",
       "Truelight",
       "found 4 entries, expected 8",
       {}},
      {"Truelight stray line after the cube",
       Replace(TruelightText(2, {}, colours), "# end", "stray\n# end"),
       "",
       "Truelight",
       "line 15: 'stray' is neither a comment nor in a block",
       {}},
      {"Truelight falling shaper",
       TruelightText(2, FallingShaper(), colours),
       "",
       "Truelight",
       "",
       {"the input shaper is not monotonic: red falls at entry 2"}},
      {"mesh input bits above 7",
       MeshText("3DMESH\nMesh 8 10\n", 3, codes),
       "",
       "mesh",
       "line 2: Mesh input bits 8 is above 7",
       {}},
      {"mesh data line that is not three codes",
       "3DMESH\nMesh 1 10\n0 0 0\n0 0 1023\n1 2\n" + std::string(200, ' '),
       "",
       "mesh",
       "line 5: '1 2' is not three codes",
       {}},
      {"mesh shaper line of three codes",
       MeshText("#0 512 1023\n3DMESH\nMesh 1 10\n", 3, codes),
       "",
       "mesh",
       "line 1: shaper line: 3 codes, where a shaper line holds 4 to 256",
       {}},
      {"mesh shaper line beyond 4096",
       MeshText("# 0 2000 4000 8000\n3DMESH\nMesh 1 10\n", 3, codes),
       "",
       "mesh",
       "line 1: shaper line: the last code 8000 is above 4096",
       {}},
      {"mesh surplus line",
       MeshText("3DMESH\nMesh 1 10\n", 3, codes) + "1 2 3\n",
       "",
       "mesh",
       "",
       {"line 30: 1 line after the last of the 27 entries is not read"}},
      {"float image of an unknown kind",
       FloatImage({.magic = "OVTX", .size = 2, .kind = 2}, 8),
       "",
       "float image",
       "kind 2 is neither 1 (1-D) nor 3 (3-D)",
       {}},
      {"float image payload cut short",
       FloatImage({.magic = "OVTX", .size = 2, .kind = 3}, 7),
       "",
       "float image",
       "the file holds 100 bytes, a table of 8 entries needs 112",
       {}},
      {"float image with an inverted domain",
       FloatImage({.magic = "OTX2", .size = 2, .kind = 1, .min = {0, 0, 1}, .max = {1, 1, 0}}, 2),
       "",
       "float image",
       "",
       {"the domain is inverted: blue minimum 1 is above its maximum 0"}},
      {"packed 10-bit cube without its marker",
       Bytes(packed),
       "",
       "packed 10-bit cube",
       "the word at byte 660 is not 0xFFFFFFFF",
       {}},
      {"XML look with lower-case digits",
       [&] {
         std::string look = XMLLookText(2, colours);
         const size_t data = look.find("<data>") + 6;
         return look.replace(data, look.find("</data>") - data, "00ff");
       }(),
       "",
       "XML look",
       "the data holds 2 upper-case hexadecimal digits, a cube of 2 needs 192",
       {}},
      {"CDL saturation other than 1",
       CDLText("1 1 1", "0 0 0", "1 1 1", "  <SatNode><Saturation>1.2</Saturation></SatNode>\n"),
       "",
       "colour transformation",
       "ASC CDL: saturation 1.2 cannot be held by a 1-D table",
       {}},
      {"CDL power of 0",
       CDLText("1 1 1", "0 0 0", "1 0 1"),
       "",
       "colour transformation",
       "ASC CDL: a Power is not above 0",
       {}},
      {"CDL slope of two numbers",
       CDLText("1 1", "0 0 0", "1 1 1"),
       "",
       "colour transformation",
       "ASC CDL: Slope is not three finite numbers",
       {}},
      {"CDL collection of two",
       Collection(),
       "",
       "colour transformation",
       "ASC CDL: 2 corrections (ids warm, cool) where a table holds one; name one by its id",
       {}},
      {"CDL collection, one picked by id", Collection(), "cool", "colour transformation", "", {}},
      {"CDL collection, an id it lacks",
       Collection(),
       "grey",
       "colour transformation",
       "ASC CDL: no correction has the id 'grey' (ids warm, cool)",
       {}},
      {"text of no format",
       "hello world\n",
       "",
       "",
       "no reader recognises the text (it is no cube, Truelight, mesh or ASC CDL text)",
       {}},
  };
}

class ReadDiagnostics : public LUTTest, public testing::WithParamInterface<SDiagnosisCase> {};

TEST_P(ReadDiagnostics, NameTheReaderTheFirstFailureAndTheWarnings) {
  const SDiagnosisCase& c = GetParam();
  COv3DLUT lut;
  SLUTReadDiagnostics diagnostics;
  const bool loaded =
      lut.ParseLUTData(c.bytes.data(), uint32_t(c.bytes.size()), false, Tincta::ELUTKindFilter::Any,
                       true, &diagnostics, c.correctionId);
  EXPECT_EQ(diagnostics.reader, c.reader);
  if (c.failure.empty()) {
    EXPECT_TRUE(loaded) << (diagnostics.failure ? diagnostics.failure->Text() : "");
    EXPECT_FALSE(diagnostics.failure.has_value());
  } else {
    EXPECT_FALSE(loaded);
    ExpectCleared(lut);
    ASSERT_TRUE(diagnostics.failure.has_value());
    EXPECT_EQ(diagnostics.failure->Text(), c.failure);
  }
  std::vector<std::string> warnings;
  for (const Tincta::SReadNote& note : diagnostics.warnings)
    warnings.push_back(note.Text());
  EXPECT_EQ(warnings, c.warnings);
}

INSTANTIATE_TEST_SUITE_P(BrokenFiles, ReadDiagnostics, testing::ValuesIn(Cases()),
                         [](const testing::TestParamInfo<SDiagnosisCase>& test) {
                           std::string name;
                           for (const char ch : std::string(test.param.name))
                             name += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                           return name;
                         });

struct SReadResult {
  bool loaded = false;
  bool is3D = false;
  uint32_t size = 0;
  std::vector<float> table;
  Tincta::Vec4 min{}, max{};
  uint32_t shaperSize = 0;
};

SReadResult Read(const std::string& bytes, bool upsample, SLUTReadDiagnostics* diagnostics) {
  COv3DLUT lut;
  SReadResult result;
  result.loaded = lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), upsample,
                                   Tincta::ELUTKindFilter::Any, true, diagnostics);
  result.is3D = lut.Is3D();
  result.size = lut.Size();
  if (lut.Table()) {
    const size_t entries =
        result.is3D ? size_t(result.size) * result.size * result.size : result.size;
    result.table.assign(lut.Table(), lut.Table() + 4 * entries);
  }
  result.min = lut.DomainMin();
  result.max = lut.DomainMax();
  result.shaperSize = lut.InputShaper() ? lut.InputShaper()->Size() : 0;
  return result;
}

// The module never asks for diagnostics; what a read yields must not depend on them, bit for bit,
// with and without upsampling, for the broken files above, a valid file of every format, the
// regression files and the fuzz corpus.
TEST_F(LUTTest, DiagnosticsNeverChangeWhatAReadYields) {
  std::vector<std::string> inputs;
  for (const SDiagnosisCase& c : Cases())
    inputs.push_back(c.bytes);
  for (const SSeed& seed : ParseLUTDataSeeds())
    inputs.push_back(seed.bytes);
  // The regression files of broken LUTs and the fuzz corpus too.
  for (const std::string& folder :
       {std::string(CRANDLE_TEST_DATA_DIR) + "/lut",
        std::string(CRANDLE_SOURCE_DIR) + "/fuzz/corpus/parse_lut_data"}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder))
      inputs.push_back(ReadFileBytes(entry.path().string()));
  }
  EXPECT_GT(inputs.size(), Cases().size() + 30);
  for (const bool upsample : {false, true}) {
    for (size_t i = 0; i < inputs.size(); ++i) {
      SLUTReadDiagnostics diagnostics;
      const SReadResult plain = Read(inputs[i], upsample, nullptr);
      const SReadResult diagnosed = Read(inputs[i], upsample, &diagnostics);
      SCOPED_TRACE("input " + std::to_string(i) + (upsample ? " upsampled" : ""));
      EXPECT_EQ(plain.loaded, diagnosed.loaded);
      EXPECT_EQ(plain.is3D, diagnosed.is3D);
      EXPECT_EQ(plain.size, diagnosed.size);
      EXPECT_EQ(plain.shaperSize, diagnosed.shaperSize);
      ASSERT_EQ(plain.table.size(), diagnosed.table.size());
      // Bit for bit (NaN entries included); an empty table has no data to compare.
      EXPECT_TRUE(plain.table.empty() || std::memcmp(plain.table.data(), diagnosed.table.data(),
                                                     plain.table.size() * sizeof(float)) == 0);
      EXPECT_EQ(std::memcmp(&plain.min, &diagnosed.min, sizeof(plain.min)), 0);
      EXPECT_EQ(std::memcmp(&plain.max, &diagnosed.max, sizeof(plain.max)), 0);
      // A failed read always says why.
      EXPECT_EQ(diagnosed.loaded, !diagnostics.failure.has_value());
    }
  }
}

}  // namespace
}  // namespace crandle_test
