// Look document text: the exact bytes the writer produces (inline and with a payload), round trips
// that must give the same bytes, the reader's tolerance, and every structural failure, which must
// yield no document and leave a target untouched.
#include <gtest/gtest.h>

#include <cstring>

#include "look/look_document_reader.h"
#include "look/look_document_writer.h"
#include "look_test_support.h"

namespace crandle_test {
namespace {

using Tincta::COvEmbeddedLUTPayload;
using Tincta::COvGradingDocument;
using Tincta::COvGradingOperation;
using Tincta::ReadLookDocument;
using Tincta::WriteLookDocument;

std::unique_ptr<COvGradingDocument> Read(std::string_view text,
                                         Tincta::IOvEmbeddedLUTSource* payload = nullptr) {
  return ReadLookDocument(text.data(), text.size(), payload);
}

COvGradingOperation Operation(std::string name, std::string key, std::string value) {
  COvGradingOperation operation(std::move(name));
  operation.SetParameter(key, std::move(value));
  return operation;
}

// Name, GUID, version, two keyframes on one layer, a mask, a property and a 2-entry 1-D LUT.
std::unique_ptr<COvGradingDocument> SampleDocument() {
  auto document = std::make_unique<COvGradingDocument>();
  document->SetName("Grade \"A\" <1>");
  uint8_t guid[16];
  for (int i = 0; i < 16; ++i)
    guid[i] = uint8_t(i);
  document->SetGuid(host::Guid::GuidFromBytes(guid));
  document->SetVersion(7);
  document->InsertOperation(Operation("LUT", "LUT", "a.cube"));
  Tincta::COvGradingAnimation::SKeyframe later{24, {Operation("Gain", "value", "1.5")}};
  EXPECT_TRUE(document->MutableAnimation().AddKeyframe(0, 0, later));
  auto mask = std::make_shared<Tincta::COvShadingMask>();
  mask->SetName("Face");
  EXPECT_TRUE(mask->SetShape({{0.25f, 0.25f}, {0.75f, 0.25f}, {0.5f, 0.75f}}, 0.5f, true));
  EXPECT_TRUE(document->MutableAnimation().AttachMask(mask));
  document->MutableProperties()->Set("Camera", "A&B");
  auto lut = MakeLUT1D({{0, 0, 0}, {1, 1, 1}});
  lut->SetSourcePath("a.cube");
  document->AddLUT(std::move(lut), "00112233445566778899AABBCCDDEEFF");
  return document;
}

constexpr std::string_view kSampleHead = R"(<Tincta>
  <name>"Grade "A" &lt;1&gt;"</name>
  <guid>"000102030405060708090A0B0C0D0E0F"</guid>
  <version>"7"</version>
  <keyframe>
    <track>"0"</track>
    <layer>"0"</layer>
    <time>"0"</time>
    <operation>
      <name>"LUT"</name>
      <parameter>
        <name>"LUT"</name>
        <value>"a.cube"</value>
      </parameter>
    </operation>
  </keyframe>
  <keyframe>
    <track>"0"</track>
    <layer>"0"</layer>
    <time>"24"</time>
    <operation>
      <name>"Gain"</name>
      <parameter>
        <name>"value"</name>
        <value>"1.5"</value>
      </parameter>
    </operation>
  </keyframe>
  <mask>
    <name>"Face"</name>
    <data>
      <inverted>"1"</inverted>
      <feather>"0.5"</feather>
      <point>"0.25,0.25"</point>
      <point>"0.75,0.25"</point>
      <point>"0.5,0.75"</point>
    </data>
  </mask>
)";

constexpr std::string_view kSampleTail = R"(  <properties>
    <property>
      <key>"Camera"</key>
      <value>"A&amp;B"</value>
    </property>
  </properties>
</Tincta>
)";

TEST_F(LookTest, WritesTheInlineTextByteForByte) {
  auto document = SampleDocument();
  const std::string expected = std::string(kSampleHead) + R"(  <lut>
    <filename>"a.cube"</filename>
    <is3d>"0"</is3d>
    <size>"2"</size>
    <min>"0,0,0"</min>
    <max>"1,1,1"</max>
    <data>"0000000000000000000000000000803F0000803F0000803F0000803F0000803F"</data>
  </lut>
)" + std::string(kSampleTail);
  EXPECT_EQ(WriteLookDocument(*document, nullptr), expected);
}

TEST_F(LookTest, WritesTheEmbeddedTextAndPayloadByteForByte) {
  auto document = SampleDocument();
  COvEmbeddedLUTPayload payload;
  const std::string expected = std::string(kSampleHead) + R"(  <embeddedlut>
    <hash>00112233445566778899AABBCCDDEEFF</hash>
    <filename>a.cube</filename>
  </embeddedlut>
)" + std::string(kSampleTail);
  EXPECT_EQ(WriteLookDocument(*document, &payload), expected);

  // Identifier, length 64, then the "OTX3" image of the two entries.
  const uint32_t words[] = {0x3358544F, 2,          1, 0, 0, 0,          0,          0x3F800000,
                            0x3F800000, 0x3F800000, 0, 0, 0, 0x3F800000, 0x3F800000, 0x3F800000};
  std::vector<uint8_t> record = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99,
                                 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 64,   0,    0,    0};
  for (const uint32_t word : words) {
    for (int i = 0; i < 4; ++i)
      record.push_back(uint8_t(word >> (8 * i)));
  }
  EXPECT_EQ(payload.Bytes(), record);
}

TEST_F(LookTest, KeepsTheWrittenTextUntilTheDocumentChanges) {
  auto document = SampleDocument();
  COvEmbeddedLUTPayload payload;
  const std::string first(WriteLookDocument(*document, &payload));
  const size_t payloadBytes = payload.Bytes().size();
  // The kept text comes back as it stands: no inline LUT, nothing more in the sink.
  EXPECT_EQ(WriteLookDocument(*document, nullptr), first);
  EXPECT_EQ(WriteLookDocument(*document, &payload), first);
  EXPECT_EQ(payload.Bytes().size(), payloadBytes);
  document->SetCachedText("<tInCtA> kept as it is");
  EXPECT_EQ(WriteLookDocument(*document, nullptr), "<tInCtA> kept as it is");
  document->SetVersion(8);
  EXPECT_NE(WriteLookDocument(*document, nullptr).find("<version>\"8\"</version>"),
            std::string_view::npos);
}

TEST_F(LookTest, WriteReadWriteGivesTheSameBytes) {
  const std::string awkward = "  tab\there \"quoted\" <&> cr\r lf\n caf\xC3\xA9 \x01 ";
  std::vector<std::unique_ptr<COvGradingDocument>> documents;
  documents.push_back(SampleDocument());
  documents.push_back(std::make_unique<COvGradingDocument>());
  auto awkwardText = std::make_unique<COvGradingDocument>();
  awkwardText->SetName(awkward);
  awkwardText->InsertOperation(Operation(awkward, awkward, awkward));
  awkwardText->InsertOperation(Operation("\"", "k", ""));
  awkwardText->MutableProperties()->Set(awkward, awkward);
  documents.push_back(std::move(awkwardText));
  auto tracks = SampleDocument();  // a second track: the mask is not written
  EXPECT_TRUE(tracks->MutableAnimation().AddKeyframe(1, 0, {-5, {}}));
  tracks->AddLUT(MakeLUT3D(3, [](uint32_t r, uint32_t g, uint32_t b) {
    return std::array<float, 3>{r * 0.1f, g * -2.5f, b * 1e-7f};
  }));
  documents.push_back(std::move(tracks));

  for (size_t i = 0; i < documents.size(); ++i) {
    const std::string inlineText(WriteLookDocument(*documents[i], nullptr));
    const auto inlineRead = Read(inlineText);
    ASSERT_NE(inlineRead, nullptr) << i;
    EXPECT_EQ(WriteLookDocument(*inlineRead, nullptr), inlineText) << i;

    documents[i]->SetCachedText({});
    COvEmbeddedLUTPayload payload, again;
    const std::string embeddedText(WriteLookDocument(*documents[i], &payload));
    const auto embeddedRead = Read(embeddedText, &payload);
    ASSERT_NE(embeddedRead, nullptr) << i;
    EXPECT_EQ(embeddedRead->LUTs().size(), documents[i]->LUTs().size()) << i;
    EXPECT_EQ(WriteLookDocument(*embeddedRead, &again), embeddedText) << i;

    const std::string_view payloadBytes(reinterpret_cast<const char*>(payload.Bytes().data()),
                                        payload.Bytes().size());
    WriteFuzzSeedIfAsked("look_document", "inline_" + std::to_string(i), FuzzInput(inlineText, ""));
    WriteFuzzSeedIfAsked("look_document", "embedded_" + std::to_string(i),
                         FuzzInput(embeddedText, payloadBytes));
  }
  const auto awkwardRead = Read(WriteLookDocument(*documents[2], nullptr));
  EXPECT_EQ(awkwardRead->Name(), awkward);
  const auto& layers = awkwardRead->Animation().Tracks().at(0).layers;
  EXPECT_EQ(layers.at(0).keyframes.at(0).operations.at(0), Operation(awkward, awkward, awkward));
  EXPECT_EQ(*awkwardRead->Properties()->Find(awkward), awkward);
}

TEST_F(LookTest, ReaderTolerance) {
  struct SCase {
    const char* name;
    std::string_view text;
    uint32_t version;
    std::string_view guid;
    std::string_view documentName;
  };
  const SCase cases[] = {
      {"root in lower case, no version, no guid", "<tincta></tincta>", 1,
       "00000000000000000000000000000000", ""},
      {"root in upper case", "<TINCTA><version>\"3\"</version></TINCTA>", 3,
       "00000000000000000000000000000000", ""},
      {"lower-case guid, unquoted texts",
       "<Tincta><guid>00112233445566778899aabbccddeeff</guid><version>12</version>"
       "<NAME>plain</NAME></Tincta>",
       12, "00112233445566778899AABBCCDDEEFF", "plain"},
      {"unknown elements skipped with their content",
       "<Tincta><extra><keyframe>broken</keyframe><mask/></extra><name>\"n\"</name></Tincta>", 1,
       "00000000000000000000000000000000", "n"},
      {"later texts win", "<Tincta><version>2</version><version>5</version></Tincta>", 5,
       "00000000000000000000000000000000", ""},
      {"a declaration of its own", "<?xml version=\"1.0\"?><Tincta/>", 1,
       "00000000000000000000000000000000", ""},
  };
  for (const SCase& c : cases) {
    const auto document = Read(c.text);
    ASSERT_NE(document, nullptr) << c.name;
    EXPECT_EQ(document->Version(), c.version) << c.name;
    EXPECT_EQ(document->Guid().ToString(), c.guid) << c.name;
    EXPECT_EQ(document->Name(), c.documentName) << c.name;
    EXPECT_TRUE(document->Animation().Empty()) << c.name;
    ASSERT_NE(document->Properties(), nullptr) << c.name;
  }
}

TEST_F(LookTest, MalformedDocumentsYieldNothingAndLeaveTheTargetAlone) {
  const std::string_view keyframe = "<keyframe><track>0</track><layer>0</layer><time>0</time>";
  const std::string mask =
      "<mask><data><point>0,0</point><point>1,0</point><point>0,1</point>"
      "</data></mask>";
  const std::string cases[] = {
      "",
      "not xml",
      "<Tincta>",
      "<Tinct/>",
      "<look><Tincta/></look>",
      "<Tincta><name>\"unclosed</name></Tincta>",
      "<Tincta><embeddedlut><hash>\"x</hash></embeddedlut></Tincta>",
      "<Tincta>" + mask + mask + "</Tincta>",
      "<Tincta><mask/><mask/></Tincta>",
      "<Tincta><mask><data><point>0,0</point></data></mask></Tincta>",
      "<Tincta><mask><data><point>0;0</point></data></mask></Tincta>",
      "<Tincta><properties/><properties/></Tincta>",
      "<Tincta><properties><property><value>v</value></property></properties></Tincta>",
      "<Tincta><properties><property><key>k</key></property><property><key>k</key></property>"
      "</properties></Tincta>",
      "<Tincta><keyframe><track>0</track><layer>0</layer></keyframe></Tincta>",
      "<Tincta><keyframe><track>0</track><layer>1</layer><time>0</time></keyframe></Tincta>",
      "<Tincta><keyframe><track>1</track><layer>0</layer><time>0</time></keyframe></Tincta>",
      "<Tincta><keyframe><track>x</track><layer>0</layer><time>0</time></keyframe></Tincta>",
      "<Tincta>" + std::string(keyframe) + "</keyframe>" + std::string(keyframe) +
          "</keyframe></Tincta>",
      "<Tincta>" + std::string(keyframe) + "<operation/></keyframe></Tincta>",
      "<Tincta>" + std::string(keyframe) +
          "<operation><name>o</name><parameter><name>p</name></parameter><parameter><name>p"
          "</name></parameter></operation></keyframe></Tincta>",
      "<Tincta><lut><is3d>1</is3d><size>2</size></lut></Tincta>",
      "<Tincta><guid>\"XYZ\"</guid></Tincta>",
      "<Tincta><version>\"-1\"</version></Tincta>",
      "<Tincta><version>4294967296</version></Tincta>",
  };
  WriteFuzzSeedIfAsked("look_document", "malformed_operation", FuzzInput(cases[20], ""));
  auto target = SampleDocument();
  const std::string before(WriteLookDocument(*target, nullptr));
  for (const std::string& text : cases) {
    std::string error;
    EXPECT_EQ(ReadLookDocument(text.data(), text.size(), nullptr, &error), nullptr) << text;
    EXPECT_FALSE(error.empty()) << text;
    EXPECT_EQ(ReadLookDocument(text.data(), text.size(), *target, nullptr), nullptr) << text;
  }
  EXPECT_EQ(target->CachedText(), before);
  target->SetCachedText({});
  EXPECT_EQ(WriteLookDocument(*target, nullptr), before);

  std::string unclosedError;
  const std::string unclosed = "<Tincta><version>\"3</version></Tincta>";
  EXPECT_EQ(ReadLookDocument(unclosed.data(), unclosed.size(), nullptr, &unclosedError), nullptr);
  EXPECT_EQ(unclosedError.rfind("Unexpected end of file while looking for", 0), 0u);
}

TEST_F(LookTest, ReadingIntoATargetReplacesWhatTheTextHolds) {
  auto target = SampleDocument();
  target->SetImport(true);
  const std::string_view text = "<tincta><name>\"other\"</name></tincta>";
  ASSERT_EQ(ReadLookDocument(text.data(), text.size(), *target, nullptr), target.get());
  EXPECT_EQ(target->Name(), "other");
  EXPECT_EQ(target->Version(), 1u);
  EXPECT_TRUE(target->Guid().IsZero());
  EXPECT_TRUE(target->LUTs().empty());
  EXPECT_TRUE(target->Animation().Empty());
  EXPECT_TRUE(target->Properties()->Empty());
  EXPECT_TRUE(target->IsImport());
}

TEST_F(LookTest, AMaskJoinsEveryLayerOfASingleTrack) {
  const std::string mask =
      "<mask><name>\"m\"</name><data><point>0,0</point><point>1,0</point>"
      "<point>0,1</point></data></mask>";
  const auto layerKeyframe = [](int track, int layer) {
    return "<keyframe><track>" + std::to_string(track) + "</track><layer>" + std::to_string(layer) +
           "</layer><time>0</time></keyframe>";
  };
  const auto oneTrack = Read("<Tincta>" + mask + layerKeyframe(0, 0) + layerKeyframe(0, 1) +
                             layerKeyframe(0, 2) + "</Tincta>");
  ASSERT_NE(oneTrack, nullptr);
  const auto& layers = oneTrack->Animation().Tracks().at(0).layers;
  ASSERT_EQ(layers.size(), 3u);
  for (size_t i = 0; i < layers.size(); ++i) {
    ASSERT_NE(layers[i].mask, nullptr) << i;
    EXPECT_EQ(layers[i].mask->Name(), "m");
    EXPECT_EQ(layers[i].mask, layers[0].mask);
    EXPECT_EQ(layers[i].reusesMask, i > 0) << i;
  }
  const auto twoTracks =
      Read("<Tincta>" + layerKeyframe(0, 0) + layerKeyframe(1, 0) + mask + "</Tincta>");
  ASSERT_NE(twoTracks, nullptr);
  EXPECT_EQ(twoTracks->Animation().Mask(), nullptr);
  const auto nameOnly =
      Read("<Tincta><mask><name>n</name></mask>" + layerKeyframe(0, 0) + "</Tincta>");
  ASSERT_NE(nameOnly, nullptr);
  EXPECT_EQ(nameOnly->Animation().Mask(), nullptr);
}

}  // namespace
}  // namespace crandle_test
