// Look document text: the exact bytes the writer produces (inline and with a payload), the kept
// text, round trips that must give the same bytes, the reader's tolerance, and structural
// failures, which must yield no document and leave a target untouched.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "look/look_document_writer.h"
#include "look_test_support.h"

namespace crandle_test {
namespace {

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
  const std::string head = R"(<Tincta>
  <name>"Grade "A" &lt;1&gt;"</name>
  <guid>"000102030405060708090A0B0C0D0E0F"</guid>
  <version>"7"</version>
)";
  const std::string tail = "  <properties>\n  </properties>\n</Tincta>\n";
  const std::string inlineText = head + R"(  <lut>
    <filename>"a.cube"</filename>
    <is3d>"0"</is3d>
    <size>"2"</size>
    <min>"0,0,0"</min>
    <max>"1,1,1"</max>
    <data>"0000000000000000000000000000803F0000803F0000803F0000803F0000803F"</data>
  </lut>
)" + tail;
  const std::string embeddedText = head + R"(  <embeddedlut>
    <hash>00112233445566778899AABBCCDDEEFF</hash>
    <filename>a.cube</filename>
  </embeddedlut>
)" + tail;
  // Identifier, length 64, then the "OTX3" image of the two entries.
  const uint32_t words[] = {0x33221100, 0x77665544, 0xBBAA9988, 0xFFEEDDCC, 64, 0x3358544F,
                            2,          1,          0,          0,          0,  0,
                            0x3F800000, 0x3F800000, 0x3F800000, 0,          0,  0,
                            0x3F800000, 0x3F800000, 0x3F800000};
  std::vector<uint8_t> record(4 * std::size(words));
  for (size_t i = 0; i < std::size(words); ++i)
    PutWord(record.data() + 4 * i, words[i], false);

  auto document = SampleDocument();
  EXPECT_EQ(WriteLookDocument(*document, nullptr), inlineText);
  document->SetCachedText({});
  COvEmbeddedLUTPayload payload;
  EXPECT_EQ(WriteLookDocument(*document, &payload), embeddedText);
  EXPECT_EQ(payload.Bytes(), record);
  // The kept text comes back as it stands while it begins with the root in any case: no inline
  // LUT, nothing more in the sink.
  EXPECT_EQ(WriteLookDocument(*document, nullptr), embeddedText);
  EXPECT_EQ(WriteLookDocument(*document, &payload), embeddedText);
  EXPECT_EQ(payload.Bytes(), record);
  document->SetCachedText("<tInCtA> kept as it is");
  EXPECT_EQ(WriteLookDocument(*document, nullptr), "<tInCtA> kept as it is");
  document->SetCachedText(" <Tincta> not at the start");
  EXPECT_EQ(WriteLookDocument(*document, nullptr), inlineText);
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
  const auto read = ReadText(WriteLookDocument(*documents[1], nullptr));
  EXPECT_EQ(read->Name(), awkward);
  EXPECT_EQ(read->Animation().Mask()->Name(), awkward);
  const auto& layers = read->Animation().Tracks().at(0).layers;
  EXPECT_EQ(layers.at(0).keyframes.at(0).operations.at(0), Operation(awkward, awkward, awkward));
  EXPECT_EQ(*read->Properties()->Find(awkward), awkward);
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

TEST_F(LookTest, ReadsWhatItCanAndLeavesTheTargetAloneOnWhatIsMalformed) {
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
      {"not xml", "none"},
      {"<look><Tincta/></look>", "none"},
      {"<Tincta><name>\"unclosed</name></Tincta>", "none"},
      {"<Tincta><embeddedlut><hash>\"x</hash></embeddedlut></Tincta>", "none"},
      {"<Tincta>" + mask + mask + "</Tincta>", "none"},
      {"<Tincta><mask/><mask/></Tincta>", "none"},
      {"<Tincta><mask><data><point>0,0</point></data></mask></Tincta>", "none"},
      {"<Tincta><properties/><properties/></Tincta>", "none"},
      {"<Tincta><properties><property><value>v</value></property></properties></Tincta>", "none"},
      {"<Tincta>" + keyframe('1', '0') + "</Tincta>", "none"},
      {"<Tincta>" + keyframe('0', '0') + keyframe('0', '0') + "</Tincta>", "none"},
      {"<Tincta>" +
           keyframe('0', '0', "<operation><name>o</name>" + twice + twice + "</operation>") +
           "</Tincta>",
       "none"},
      {"<Tincta><lut><is3d>1</is3d><size>2</size></lut></Tincta>", "none"},
      {"<Tincta><guid>\"XYZ\"</guid></Tincta>", "none"},
  };
  WriteLookDocumentSeed("malformed_operation", cases[19].first);
  auto target = SampleDocument();
  const std::string before(WriteLookDocument(*target, nullptr));
  for (const auto& [text, expected] : cases) {
    std::string error;
    const auto document = Tincta::ReadLookDocument(text.data(), text.size(), nullptr, &error);
    EXPECT_EQ(Describe(document.get()), expected) << text;
    EXPECT_EQ(error.empty(), document != nullptr) << text;
    if (!document) {
      EXPECT_EQ(Tincta::ReadLookDocument(text.data(), text.size(), *target, nullptr), nullptr);
    }
  }
  target->SetCachedText({});
  EXPECT_EQ(WriteLookDocument(*target, nullptr), before);
  std::string error;
  const std::string_view unclosed = "<Tincta><version>\"3</version></Tincta>";
  EXPECT_EQ(Tincta::ReadLookDocument(unclosed.data(), unclosed.size(), nullptr, &error), nullptr);
  EXPECT_EQ(error.rfind("Unexpected end of file while looking for", 0), 0u) << error;

  // A text that reads replaces everything the target held but its import flag.
  target->SetImport(true);
  const std::string_view text = "<tincta><name>\"other\"</name></tincta>";
  ASSERT_EQ(Tincta::ReadLookDocument(text.data(), text.size(), *target, nullptr), target.get());
  EXPECT_EQ(
      WriteLookDocument(*target, nullptr),
      "<Tincta>\n  <name>\"other\"</name>\n  <guid>\"" + std::string(32, '0') +
          "\"</guid>\n  <version>\"1\"</version>\n  <properties>\n  </properties>\n</Tincta>\n");
  EXPECT_TRUE(target->IsImport());
}

}  // namespace
}  // namespace crandle_test
