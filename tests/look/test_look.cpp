// Look references and camera look grids, look documents (exact bytes, round trips, what the reader
// refuses, payload records and the LUT cache) and gradings from LUT bytes or shipped LUTs.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "look/grading_from_lut.h"
#include "look/look_document_writer.h"
#include "look/look_grid.h"
#include "look/look_reference.h"
#include "support/look_samples.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

// The value the grid defines for channel c at (i, j, k), from the layout alone.
float Expected(const SGridLayout& layout, uint32_t i, uint32_t j, uint32_t k, int c) {
  const double divisor = layout.divisor == 0 ? 1.0 : layout.divisor;
  return float(layout.sample(i, j, k, c) / divisor * double(layout.scale) + double(layout.bias));
}

uint16_t Mixed(uint32_t i, uint32_t j, uint32_t k, int c) {
  return uint16_t((i * 40503u + j * 9973u + k * 131u + uint32_t(c) * 17u) * 2654435761u >> 13);
}

// A recognised record gives its fields; a path that fills its field without a NUL ends with it.
TEST(LookReference, RecognitionAtItsBoundariesAndItsFields) {
  // Magic, size (counted by its low 32 bits: 2^32 + 4122 is 4122), version, recognised.
  const std::tuple<const char*, uint64_t, uint32_t, bool> cases[] = {
      {"AELT", 4121, 2, false},       {"AELT", 4122, 2, true},  {"AELT", 4122, 1, false},
      {"AELT", 4122, 3, false},       {"aelt", 4122, 2, false}, {"AELT", 4294971418, 2, true},
      {"AELT", 4294971417, 2, false},
  };
  const std::string full(2049, 'a');
  for (const auto& [magic, size, version, recognised] : cases) {
    std::vector<uint8_t> record =
        MakeLookReference(std::u16string(2049, u'a'), 0, 0x0102030405060708ull, 7, version);
    std::memcpy(record.data(), magic, 4);
    std::string path = "untouched";
    EXPECT_EQ(Tincta::IsLookReference(record.data(), size), recognised) << size << version;
    EXPECT_EQ(Tincta::GetLookReferencePath(record.data(), size, path), recognised) << size;
    EXPECT_EQ(path, recognised ? full : "untouched");
    const Tincta::SLookReference fields = Tincta::ReadLookReference(record.data());
    EXPECT_TRUE(fields.path == full && fields.gridOffset == 0x0102030405060708ull &&
                fields.cacheKey == 7u);
  }
}

TEST(LookGrid, ConversionAgainstADirectComputation) {
  struct SCase {
    const char* name;
    uint16_t n = 2;
    int patchAt = -1, patch = 0;  // when set, the byte at patchAt becomes patch
    uint32_t dataOffset = 32;
    int offsetFromEnd = 0;  // when set, the offset word becomes length - offsetFromEnd
    int length = 0;         // > 0: handed over as it is; <= 0: added to the block's size
    uint32_t divisor = 65535;
    float scale = 1.0f, bias = 0.0f;
    bool accepted = true;
  };
  const SCase cases[] = {
      {.name = "N = 1", .patchAt = 25, .patch = 1, .accepted = false},
      {.name = "N = 2 at data offset 29", .n = 2, .dataOffset = 29},
      {.name = "N = 254", .n = 254},
      {.name = "N = 255", .n = 255, .accepted = false},
      {.name = "data offset 28", .dataOffset = 28, .accepted = false},
      {.name = "data offset past the end", .offsetFromEnd = -1, .accepted = false},
      {.name = "one sample byte short", .length = -1, .accepted = false},
      {.name = "28 bytes", .length = 28, .accepted = false},
      {.name = "not ALOK", .patchAt = 7, .patch = 'C', .accepted = false},
      {.name = "axes, scale and bias", .n = 5, .divisor = 1000, .scale = 0.5f, .bias = -0.125f},
      {.name = "divisor 0 acts as 1", .n = 3, .divisor = 0, .scale = 0.001f, .bias = 0.25f},
      // Large enough for the converted-sample table (N = 254 walks a shorter last block of k).
      {.name = "mid-sized grid", .n = 45, .divisor = 4093, .scale = 1.7f, .bias = -0.3f},
  };
  for (const SCase& c : cases) {
    SGridLayout layout{c.n, c.dataOffset, c.divisor, c.scale, c.bias, Mixed};
    std::vector<uint8_t> grid = MakeLookGrid(layout);
    if (c.patchAt >= 0) grid[size_t(c.patchAt)] = uint8_t(c.patch);
    if (c.offsetFromEnd) PutWord(grid.data(), uint32_t(int(grid.size()) - c.offsetFromEnd), true);
    const auto length = uint32_t(c.length > 0 ? c.length : int64_t(grid.size()) + c.length);
    std::unique_ptr<uint8_t[]> image;
    uint32_t imageLength = 0;
    ASSERT_EQ(Tincta::ConvertLookGridToOTX3(grid.data(), length, image, imageLength), c.accepted)
        << c.name;
    if (!c.accepted) continue;
    const uint32_t n = c.n;
    ASSERT_EQ(imageLength, 40 + 12 * n * n * n) << c.name;
    uint8_t header[40] = {'O', 'T', 'X', '3', uint8_t(n), 0, 0, 0, 3};
    for (int axis = 0; axis < 3; ++axis)
      PutWord(header + 28 + 4 * axis, 0x3F800000, false);
    EXPECT_EQ(std::memcmp(image.get(), header, 40), 0) << c.name;
    // Red, the grid's slowest index, is the image's fastest. Large grids are probed every 23rd
    // point, which takes in both ends.
    const uint32_t step = n > 64 ? 23 : 1;
    for (uint32_t b = 0; b < n; b += step)
      for (uint32_t g = 0; g < n; g += step)
        for (uint32_t r = 0; r < n; r += step) {
          float rgb[3];
          std::memcpy(rgb, image.get() + 40 + 12 * (r + n * g + n * n * b), 12);
          for (int ch = 0; ch < 3; ++ch)
            ASSERT_EQ(rgb[ch], Expected(layout, r, g, b, ch)) << c.name << r << g << b;
        }
  }
  std::unique_ptr<uint8_t[]> image;
  uint32_t length = 0;
  EXPECT_FALSE(Tincta::ConvertLookGridToOTX3(nullptr, 100, image, length));
}

class LookReferenceFile : public LookTest {
 protected:
  // A file holding `before` bytes of something else, the grid and 7 more bytes; the record points
  // at the grid.
  std::vector<uint8_t> WriteGridFile(const SGridLayout& layout, uint32_t before,
                                     uint32_t cacheKey = 0) {
    grid_ = MakeLookGrid(layout);
    std::vector<uint8_t> file(before, 0x5A);
    file.insert(file.end(), grid_.begin(), grid_.end());
    file.resize(file.size() + 7, 0xA5);
    path_ = directory_.Write("camera.mxf", file.data(), file.size());
    return MakeLookReference(Tincta::Utf8ToUtf16(path_), uint32_t(grid_.size()), before, cacheKey);
  }
  static std::unique_ptr<Tincta::COvGradingDocument> Read(const std::vector<uint8_t>& record) {
    return Tincta::ReadLookDocument(record.data(), record.size(), nullptr);
  }

  TempDir directory_;
  std::string path_;
  std::vector<uint8_t> grid_;
};

TEST_F(LookReferenceFile, ParseLUTReadsTheGridAtItsOffsetAndFailsCleanly) {
  std::vector<uint8_t> record = WriteGridFile({4, 32, 4096, 2.0f, -0.5f, Mixed}, 1000);
  record.resize(5000, 0xEE);  // bytes after the record are ignored
  std::shared_ptr<void> lut;
  ASSERT_EQ(CRANDLE::ParseLUT(record.data(), record.size(), lut), CRANDLE::kResultOK);
  std::string name;
  ASSERT_EQ(CRANDLE::GetLUTDisplayName(lut, name), CRANDLE::kResultOK);
  EXPECT_EQ(name, "AMIRA LUT");

  // One byte short, the record is ordinary LUT data, which no reader takes; every failure to read
  // the grid leaves no handle and no descriptor open.
  const std::u16string path = Tincta::Utf8ToUtf16(path_);
  const auto size = uint32_t(grid_.size());
  const std::pair<std::vector<uint8_t>, uint64_t> cases[] = {
      {record, 4121},
      {MakeLookReference(path + u".gone", size, 1000), 4122},
      {MakeLookReference(path, size, 1 << 20), 4122},   // offset past the end
      {MakeLookReference(path, size + 8, 1000), 4122},  // a file too short for the block
      {MakeLookReference(path, size - 1, 1000), 4122},  // a block short of its samples
  };
  const auto descriptors = [] {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(entries), end(entries));
  };
  const auto before = descriptors();
  for (size_t i = 0; i < std::size(cases); ++i) {
    std::shared_ptr<void> untouched;
    EXPECT_EQ(CRANDLE::ParseLUT(cases[i].first.data(), cases[i].second, untouched),
              CRANDLE::kResultLUTFailed)
        << i;
    EXPECT_EQ(untouched, nullptr) << i;
  }
  EXPECT_EQ(descriptors(), before);
}

TEST_F(LookReferenceFile, AsADocumentAKeyedLookOutlivesItsFileInTheCache) {
  const SGridLayout layout{.n = 3, .sample = Mixed};
  const auto unkeyed = WriteGridFile(layout, 0);
  const auto keyed = WriteGridFile(layout, 0, 4000000001u);
  const auto first = Read(unkeyed);
  ASSERT_EQ(first->LUTs().size(), 1u);
  EXPECT_EQ(first->LUTs()[0].lut->Table()[4 * (2 + 3 * 1)], Expected(layout, 2, 1, 0, 0));
  EXPECT_NE(Read(keyed), nullptr);

  std::filesystem::remove(path_);
  const auto second = Read(keyed);
  ASSERT_EQ(second->LUTs().size(), 1u);
  EXPECT_EQ(OnlyLUTOperation(second.get()), OnlyLUTOperation(first.get()));
  EXPECT_EQ(second->LUTs()[0].lut->ContentDigest(), first->LUTs()[0].lut->ContentDigest());
  // Key 0 is never kept, and another key finds nothing kept: both open as an empty look.
  for (const auto& record : {unkeyed, MakeLookReference(Tincta::Utf8ToUtf16(path_), 10, 0, 7)}) {
    const auto empty = Read(record);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->Version(), 3u);
    EXPECT_TRUE(empty->Animation().Empty() && empty->LUTs().empty());
  }
  EXPECT_EQ(Read(WriteGridFile({.n = 1}, 0)), nullptr) << "a damaged grid";
}

using Tincta::COvEmbeddedLUTPayload;
using Tincta::COvGradingDocument;
using Tincta::WriteLookDocument;

Tincta::COvGradingOperation Operation(std::string name, std::string key, std::string value) {
  Tincta::COvGradingOperation operation(std::move(name));
  operation.SetParameter(key, std::move(value));
  return operation;
}

// Name, GUID, version and a 1-D LUT of the entries 0 and 1 that came with an identifier.
std::unique_ptr<COvGradingDocument> SampleDocument() {
  auto document = std::make_unique<COvGradingDocument>();
  document->SetName("Grade \"A\" <1>");
  const uint8_t guid[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  document->SetGuid(host::Guid::GuidFromBytes(guid));
  document->SetVersion(7);
  auto lut = std::make_unique<Tincta::COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(2, false));
  std::fill_n(lut->Table(), 8, 1.0f);
  std::fill_n(lut->Table(), 3, 0.0f);
  lut->SetSourcePath("a.cube");
  document->AddLUT(std::move(lut), "00112233445566778899AABBCCDDEEFF");
  return document;
}

TEST_F(LookTest, WritesTheTextAndPayloadByteForByteAndKeepsTheText) {
  const std::string text = R"(<Tincta>
  <name>"Grade "A" &lt;1&gt;"</name>
  <guid>"000102030405060708090A0B0C0D0E0F"</guid>
  <version>"7"</version>
  <embeddedlut>
    <hash>00112233445566778899AABBCCDDEEFF</hash>
    <filename>a.cube</filename>
  </embeddedlut>
  <properties>
  </properties>
</Tincta>
)";
  // Identifier, length 64, then the "OTX3" image of the two entries.
  const uint32_t words[] = {0x33221100, 0x77665544, 0xBBAA9988, 0xFFEEDDCC, 64, 0x3358544F,
                            2,          1,          0,          0,          0,  0,
                            0x3F800000, 0x3F800000, 0x3F800000, 0,          0,  0,
                            0x3F800000, 0x3F800000, 0x3F800000};
  std::vector<uint8_t> record(4 * std::size(words));
  for (size_t i = 0; i < std::size(words); ++i)
    PutWord(record.data() + 4 * i, words[i], false);
  auto document = SampleDocument();
  COvEmbeddedLUTPayload payload;
  EXPECT_EQ(WriteLookDocument(*document, &payload), text);
  EXPECT_EQ(payload.Bytes(), record);
  // The kept text comes back as it stands while it begins with the root in any case: no inline
  // LUT, nothing more in the sink.
  EXPECT_EQ(WriteLookDocument(*document, nullptr), text);
  EXPECT_EQ(WriteLookDocument(*document, &payload), text);
  EXPECT_EQ(payload.Bytes(), record);
  document->SetCachedText("<tInCtA> kept as it is");
  EXPECT_EQ(WriteLookDocument(*document, nullptr), "<tInCtA> kept as it is");
  document->SetVersion(8);
  EXPECT_NE(WriteLookDocument(*document, nullptr).find("<version>\"8\"</version>"),
            std::string_view::npos);
}

TEST_F(LookTest, WriteReadWriteGivesTheSameBytes) {
  const std::string awkward = "  tab\there \"quoted\" <&> cr\r lf\n caf\xC3\xA9 \x01 ";
  auto mask = std::make_shared<Tincta::COvShadingMask>();
  mask->SetName(awkward);
  EXPECT_TRUE(mask->SetShape({{0.1f, 1e-8f}, {0.75f, -3.0f}, {1.0f / 3, 0.5f}}, 0.02f, true));
  std::unique_ptr<COvGradingDocument> documents[] = {
      SampleDocument(), std::make_unique<COvGradingDocument>(), SampleDocument(),
      std::make_unique<COvGradingDocument>()};
  // Awkward texts everywhere, and a mask over two layers.
  documents[1]->SetName(awkward);
  documents[1]->InsertOperation(Operation(awkward, awkward, awkward));
  documents[1]->InsertOperation(Operation("\"", "k", ""));
  documents[1]->MutableProperties()->Set(awkward, awkward);
  EXPECT_TRUE(documents[1]->MutableAnimation().AttachMask(mask));
  // Keyframes after and before frame 0, and a second track, which leaves the mask unwritten.
  documents[2]->InsertOperation(Operation("LUT", "LUT", "a.cube"));
  EXPECT_TRUE(documents[2]->MutableAnimation().AttachMask(mask));
  EXPECT_TRUE(documents[2]->MutableAnimation().AddKeyframe(0, 0, {24, {Operation("G", "v", "")}}));
  EXPECT_TRUE(documents[2]->MutableAnimation().AddKeyframe(1, 0, {-5, {}}));

  for (size_t i = 0; i < std::size(documents); ++i) {
    const std::string inlineText(WriteLookDocument(*documents[i], nullptr));
    const auto inlineRead = ReadText(inlineText);
    ASSERT_NE(inlineRead, nullptr) << i;
    EXPECT_EQ(WriteLookDocument(*inlineRead, nullptr), inlineText) << i;

    documents[i]->SetCachedText({});
    COvEmbeddedLUTPayload payload, again;
    const std::string embeddedText(WriteLookDocument(*documents[i], &payload));
    const auto embeddedRead = ReadText(embeddedText, &payload);
    ASSERT_NE(embeddedRead, nullptr) << i;
    EXPECT_EQ(embeddedRead->LUTs().size(), documents[i]->LUTs().size()) << i;
    EXPECT_EQ(WriteLookDocument(*embeddedRead, &again), embeddedText) << i;
    const auto& bytes = payload.Bytes();
    WriteLookDocumentSeed("inline_" + std::to_string(i), inlineText);
    WriteLookDocumentSeed("embedded_" + std::to_string(i), embeddedText,
                          {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  EXPECT_EQ(ReadText(WriteLookDocument(*documents[1], nullptr))->Name(), awkward);
}

// A read document in brief: version, the GUID's last four digits, name, and per track its layers'
// masks (M where it is evaluated, m where it is reused, - none); "none" when nothing was read.
std::string Describe(const COvGradingDocument* document) {
  if (!document) return "none";
  std::ostringstream text;
  text << 'v' << document->Version() << ' ' << document->Guid().ToString().substr(28) << " '"
       << document->Name() << '\'';
  for (const auto& track : document->Animation().Tracks()) {
    text << ' ';
    for (const auto& layer : track.layers)
      text << (!layer.mask ? '-' : layer.reusesMask ? 'm' : 'M');
  }
  return text.str();
}

TEST_F(LookTest, ReadsWhatItCanAndNothingOfWhatIsMalformed) {
  const auto keyframe = [](char track, char layer, const std::string& inside = {}) {
    return std::string("<keyframe><track>") + track + "</track><layer>" + layer +
           "</layer><time>0</time>" + inside + "</keyframe>";
  };
  const std::string points = "<data><point>0,0</point><point>1,0</point><point>0,1</point></data>";
  const std::string mask = "<mask><name>m</name>" + points + "</mask>";
  const std::string twice = "<parameter><name>p</name></parameter>";
  const std::pair<std::string, std::string> cases[] = {
      {"<tincta></tincta>", "v1 0000 ''"},
      {"<TINCTA><version>\"3\"</version></TINCTA>", "v3 0000 ''"},
      {"<Tincta><guid>00112233445566778899aabbccddeeff</guid><NAME>plain</NAME></Tincta>",
       "v1 EEFF 'plain'"},
      {"<?xml version=\"1.0\"?><Tincta><x><mask/></x><version>2</version><version>5</version>"
       "</Tincta>",
       "v5 0000 ''"},
      {"<Tincta>" + mask + keyframe('0', '0') + keyframe('0', '1') + "</Tincta>", "v1 0000 '' Mm"},
      {"<Tincta>" + keyframe('0', '0') + keyframe('1', '0') + mask + "</Tincta>", "v1 0000 '' - -"},
      {"<Tincta><mask><name>n</name></mask>" + keyframe('0', '0') + "</Tincta>", "v1 0000 '' -"},
      {"", "none"},
      {"<look><Tincta/></look>", "none"},
      {"<Tincta><name>\"unclosed</name></Tincta>", "none"},
      {"<Tincta>" + mask + mask + "</Tincta>", "none"},
      {"<Tincta><mask><data><point>0,0</point></data></mask></Tincta>", "none"},
      {"<Tincta><properties/><properties/></Tincta>", "none"},
      {"<Tincta>" + keyframe('1', '0') + "</Tincta>", "none"},
      {"<Tincta>" +
           keyframe('0', '0', "<operation><name>o</name>" + twice + twice + "</operation>") +
           "</Tincta>",
       "none"},
      {"<Tincta><lut><is3d>1</is3d><size>2</size></lut></Tincta>", "none"},
      {"<Tincta><guid>\"XYZ\"</guid></Tincta>", "none"},
  };
  WriteLookDocumentSeed("malformed_operation", cases[14].first);
  for (const auto& [text, expected] : cases) {
    std::string error;
    const auto document = Tincta::ReadLookDocument(text.data(), text.size(), nullptr, &error);
    EXPECT_EQ(Describe(document.get()), expected) << text;
    EXPECT_EQ(error.empty(), document != nullptr) << text;
    EXPECT_TRUE(text.find("unclosed") == text.npos ||
                error.rfind("Unexpected end of file while looking for", 0) == 0)
        << error;
  }
}

std::string ConstantCube(double value, const std::string& title = "") {
  return CubeText3D(
      2, [value](double, double, double, double out[3]) { out[0] = out[1] = out[2] = value; },
      title);
}

std::string Record(std::string_view identifierHex, std::string_view bytes) {
  std::string record(20, '\0');
  for (size_t i = 0; i < 16; ++i)
    record[i] = char(std::stoi(std::string(identifierHex.substr(2 * i, 2)), nullptr, 16));
  PutWord(reinterpret_cast<uint8_t*>(record.data() + 16), uint32_t(bytes.size()), false);
  return record + std::string(bytes);
}

std::string Text(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string text = "<Tincta>\n";
  for (const auto& [hash, fileName] : entries)
    text += "<embeddedlut><hash>" + hash + "</hash><filename>" + fileName +
            "</filename></embeddedlut>\n";
  return text + "</Tincta>\n";
}

std::unique_ptr<Tincta::COvGradingDocument> Read(const std::string& text,
                                                 const std::string& payload) {
  Tincta::COvEmbeddedLUTPayload source(std::vector<uint8_t>(payload.begin(), payload.end()));
  return ReadText(text, &source);
}

constexpr const char* kA = "A1000000000000000000000000000001";
constexpr const char* kB = "B2000000000000000000000000000002";
constexpr const char* kE = "E5000000000000000000000000000005";

TEST_F(LookTest, PayloadRecordsServeTheFirstPendingMatchAndThenTheCache) {
  const std::string text = Text({
      {"a1000000000000000000000000000001", "a.cube"},  // lower case still matches
      {kB, "b1.cube"},
      {kB, "b2.cube"},
      {std::string(kA).substr(0, 31), "short.cube"},
      {std::string(kA) + "0", "long.cube"},
      {"D4000000000000000000000000000004", ""},
      {kE, "e.cube"},
  });
  const std::string payload = Record("FF000000000000000000000000000000", ConstantCube(0.9)) +
                              Record(kA, ConstantCube(0.1)) + Record(kB, "not a LUT") +
                              Record(kB, ConstantCube(0.2)) + Record(kB, ConstantCube(0.3)) +
                              Record(kE, ConstantCube(0.5)).substr(0, 30);
  WriteLookDocumentSeed("embedded_rules", text, payload);
  // From the payload, then from the cache that the first read filled, where the second B record
  // had found its identifier taken.
  for (const float b2 : {0.3f, 0.2f}) {
    const auto document = Read(text, payload);
    const std::tuple<const char*, float, const char*> expected[] = {
        {"a.cube", 0.1f, kA}, {"b1.cube", 0.2f, kB}, {"b2.cube", b2, kB}};
    ASSERT_EQ(document->LUTs().size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
      const auto& [path, value, identifier] = expected[i];
      EXPECT_EQ(document->LUTs()[i].lut->SourcePath(), path) << i;
      EXPECT_EQ(document->LUTs()[i].lut->Table()[0], value) << i;
      EXPECT_EQ(document->LUTs()[i].embeddedIdentifier, identifier) << i;
    }
    EXPECT_EQ(document->MissingEmbeddedLUTs(),
              std::vector<std::string>{kE + std::string("e.cube")});
  }
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf(kA), 0);
}

TEST_F(LookTest, APayloadEndingInsideARecordKeepsTheRecordsBeforeIt) {
  const std::string text = Text({{kA, "a.cube"}, {kB, "b.cube"}});
  const std::string first = Record(kA, ConstantCube(0.1)), second = Record(kB, ConstantCube(0.2));
  // Nothing, one byte short of the identifier, no length, one byte short of it, no data, one data
  // byte short, the whole record.
  for (const size_t cut : {size_t(0), size_t(15), size_t(16), size_t(19), size_t(20),
                           second.size() - 1, second.size()}) {
    Tincta::COvLUTCache::Instance().EvictUnused();
    const auto document = Read(text, first + second.substr(0, cut));
    const size_t found = cut == second.size() ? 2 : 1;
    ASSERT_EQ(document->LUTs().size(), found) << cut;
    EXPECT_EQ(document->LUTs()[0].lut->Table()[0], 0.1f) << cut;
    EXPECT_EQ(document->MissingEmbeddedLUTs().size(), 2 - found) << cut;
  }
}

TEST_F(LookTest, GradingsFromLUTBytesAndLooksNameShippedLUTsByTheirFirstFile) {
  const std::string titled = ConstantCube(0.5, "Titled"), same = ConstantCube(0.25);
  std::shared_ptr<void> handle;
  ASSERT_EQ(CRANDLE::ParseLUT(titled.data(), titled.size(), handle), CRANDLE::kResultOK);
  TempDir shipped, files;
  const auto grid = MakeLookGrid(
      {.n = 3, .sample = [](uint32_t i, uint32_t, uint32_t, int) { return uint16_t(i * 30000); }});
  std::unique_ptr<uint8_t[]> image;
  uint32_t length = 0;
  ASSERT_TRUE(Tincta::ConvertLookGridToOTX3(grid.data(), uint32_t(grid.size()), image, length));
  shipped.Write("camera-look.otx", image.get(), length);
  shipped.Write("b-same.cube", same);
  shipped.Write("a-same.cube", same);
  shipped.Write("notes.txt", "not a LUT");
  host::Settings::Instance().SetString(host::kSettingShippedLUTDirectory, shipped.Path().string());
  EXPECT_EQ(Tincta::COvShippedLUTTable::Instance().Rows().size(), 3u);
  // Bytes, name given, the operation's LUT; the document carries only LUTs that do not ship.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {titled, "warm.cube", "warm.cube"},
      {titled, "", "LUT: " + CRANDLE::GetLUTIdentifier(handle).ToString()},
      {same, "", "a-same.cube"}};
  for (const auto& [bytes, name, expected] : cases) {
    const auto document =
        Tincta::CreateGradingFromLUTData(bytes.data(), uint32_t(bytes.size()), name);
    ASSERT_NE(document, nullptr) << expected;
    EXPECT_EQ(OnlyLUTOperation(document.get()), expected);
    EXPECT_TRUE(document->IsImport());
    EXPECT_EQ(document->LUTs().size(), bytes == titled ? 1u : 0u) << expected;
  }
  EXPECT_EQ(Tincta::CreateGradingFromLUTData("junk", 4, "x"), nullptr);

  // A look that ships is named after its file and, though keyed, kept nowhere.
  const auto path = Tincta::Utf8ToUtf16(files.Write("clip.mxf", grid.data(), grid.size()));
  const auto record = MakeLookReference(path, uint32_t(grid.size()), 0, 77);
  WriteLookDocumentSeed("look_reference", {reinterpret_cast<const char*>(record.data()), 4122});
  const auto look = Tincta::ReadLookDocument(record.data(), record.size(), nullptr);
  EXPECT_EQ(OnlyLUTOperation(look.get()), "camera-look.otx");
  EXPECT_TRUE(look->LUTs().empty());
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf("77"), -1);
}

}  // namespace
}  // namespace crandle_test
