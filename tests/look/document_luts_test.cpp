// The LUTs of look documents: which embeddedlut elements count, how payload records are matched to
// them, where the walk of a payload stops, the LUT cache serving identifiers it holds, and gradings
// built from LUT bytes or looks, which name shipped LUTs.
#include <gtest/gtest.h>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "look/grading_from_lut.h"
#include "look/look_grid.h"
#include "look_test_support.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

// A 2-point cube whose every output is `value`.
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
  const std::string titled = ConstantCube(0.5, "Titled");
  const std::string same = ConstantCube(0.25);
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
  shipped.Write(".hidden.cube", titled);
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
    ASSERT_EQ(document->LUTs().size(), bytes == titled ? 1u : 0u) << expected;
    if (bytes == titled) {
      EXPECT_EQ(document->LUTs()[0].lut->SourcePath(), expected);
    }
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
  const auto fromGrid = Tincta::CreateGradingFromLookGrid(grid.data(), uint32_t(grid.size()));
  EXPECT_EQ(OnlyLUTOperation(fromGrid.get()), "camera-look.otx");
  EXPECT_EQ(Tincta::CreateGradingFromLookGrid(grid.data(), 29), nullptr);

  host::Settings::Instance().Remove(host::kSettingShippedLUTDirectory);
  const auto unshipped = Tincta::CreateGradingFromLUTData(same.data(), uint32_t(same.size()), "x");
  EXPECT_EQ(OnlyLUTOperation(unshipped.get()), "x");
}

}  // namespace
}  // namespace crandle_test
