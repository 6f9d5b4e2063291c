// Gradings built from LUT bytes: operation and LUT naming, the shipped LUT table read from its
// directory, and look references read as documents (a missing file, the LUT cache standing in for
// a removed file, a damaged grid, a look that is a shipped LUT).
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "host/settings.h"
#include "look/grading_from_lut.h"
#include "look/look_document_reader.h"
#include "look/look_grid.h"
#include "look/shipped_luts.h"
#include "look_test_support.h"
#include "lut/lut_cache.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::CreateGradingFromLUTData;

std::string ConstantCube(double value, const std::string& title = "") {
  return CubeText3D(
      2, [value](double, double, double, double out[3]) { out[0] = out[1] = out[2] = value; },
      title);
}

const std::string* OnlyOperationLUT(const Tincta::COvGradingDocument& document) {
  const auto& tracks = document.Animation().Tracks();
  if (tracks.size() != 1 || tracks[0].layers.size() != 1) return nullptr;
  const auto& keyframes = tracks[0].layers[0].keyframes;
  if (keyframes.size() != 1 || keyframes[0].time != 0 || keyframes[0].operations.size() != 1) {
    return nullptr;
  }
  const auto& operation = keyframes[0].operations[0];
  return operation.Name() == "LUT" ? operation.Parameter("LUT") : nullptr;
}

std::string IdentifierOfBytes(const std::string& bytes) {
  std::shared_ptr<void> lut;
  EXPECT_EQ(CRANDLE::ParseLUT(bytes.data(), bytes.size(), lut), CRANDLE::kResultOK);
  return CRANDLE::GetLUTIdentifier(lut).ToString();
}

TEST_F(LookTest, GradingFromLUTDataNamesItsOperationAndLUT) {
  const std::string cube = ConstantCube(0.5, "Titled");
  struct SCase {
    const char* name;
    std::string expected;
  };
  const SCase cases[] = {{"warm.cube", "warm.cube"}, {"", "LUT: " + IdentifierOfBytes(cube)}};
  for (const SCase& c : cases) {
    const auto document = CreateGradingFromLUTData(cube.data(), uint32_t(cube.size()), c.name);
    ASSERT_NE(document, nullptr) << c.name;
    ASSERT_NE(OnlyOperationLUT(*document), nullptr) << c.name;
    EXPECT_EQ(*OnlyOperationLUT(*document), c.expected);
    ASSERT_EQ(document->LUTs().size(), 1u);
    EXPECT_EQ(document->LUTs()[0].lut->SourcePath(), c.expected);
    EXPECT_EQ(document->LUTs()[0].lut->Table()[0], 0.5f);
    EXPECT_TRUE(document->IsImport());
    EXPECT_EQ(document->Version(), 1u);
    ASSERT_NE(document->Properties(), nullptr);
    EXPECT_TRUE(document->Properties()->Empty());
  }
  EXPECT_EQ(CreateGradingFromLUTData("junk", 4, "x"), nullptr);
}

TEST_F(LookTest, ShippedLUTsAreNamedByTheirFirstFileInNameOrder) {
  TempDir shipped;
  const std::string same = ConstantCube(0.25), other = ConstantCube(0.75);
  shipped.Write("b-same.cube", same);
  shipped.Write("a-same.cube", same);
  shipped.Write("c-other.cube", other);
  shipped.Write("notes.txt", "not a LUT");
  shipped.Write(".hidden.cube", ConstantCube(0.125));
  host::Settings::Instance().SetString(host::kSettingShippedLUTDirectory, shipped.Path().string());

  const auto rows = Tincta::COvShippedLUTTable::Instance().Rows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].fileName, "a-same.cube");
  EXPECT_EQ(rows[1].fileName, "b-same.cube");
  EXPECT_EQ(rows[2].fileName, "c-other.cube");
  EXPECT_EQ(rows[2].identifier.ToString(), IdentifierOfBytes(other));

  struct SCase {
    std::string bytes;
    std::string expected;
    size_t luts;
  };
  const SCase cases[] = {
      {same, "a-same.cube", 0}, {other, "c-other.cube", 0}, {ConstantCube(0.125), "mine.cube", 1}};
  for (const SCase& c : cases) {
    const auto document =
        CreateGradingFromLUTData(c.bytes.data(), uint32_t(c.bytes.size()), "mine.cube");
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(*OnlyOperationLUT(*document), c.expected);
    EXPECT_EQ(document->LUTs().size(), c.luts);
  }

  // Another directory, or none, gives another table.
  host::Settings::Instance().Remove(host::kSettingShippedLUTDirectory);
  EXPECT_TRUE(Tincta::COvShippedLUTTable::Instance().Rows().empty());
  const auto unshipped = CreateGradingFromLUTData(same.data(), uint32_t(same.size()), "mine.cube");
  EXPECT_EQ(*OnlyOperationLUT(*unshipped), "mine.cube");
}

class LookReferenceDocument : public LookTest {
 protected:
  std::vector<uint8_t> Reference(uint32_t cacheKey, uint16_t n = 3) {
    SGridLayout layout;
    layout.n = n;
    layout.sample = [](uint32_t i, uint32_t j, uint32_t k, int c) {
      return uint16_t(1000 * i + 100 * j + 10 * k + c);
    };
    grid_ = MakeLookGrid(layout);
    path_ = directory_.Write("look.grid", grid_.data(), grid_.size());
    return MakeLookReference(Tincta::Utf8ToUtf16(path_), uint32_t(grid_.size()), 0, cacheKey);
  }

  static std::unique_ptr<Tincta::COvGradingDocument> Read(const std::vector<uint8_t>& bytes) {
    return Tincta::ReadLookDocument(bytes.data(), bytes.size(), nullptr);
  }

  static void ExpectEmptyVersion3(const Tincta::COvGradingDocument* document) {
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(document->Version(), 3u);
    EXPECT_TRUE(document->Animation().Empty());
    EXPECT_TRUE(document->LUTs().empty());
    ASSERT_NE(document->Properties(), nullptr);
    EXPECT_TRUE(document->Properties()->Empty());
  }

  // Entry (r, g, b) = grid triple (i, j, k) = (r, g, b), channel 0.
  static float Red(const Tincta::COvGradingDocument& document, uint32_t r, uint32_t g, uint32_t b) {
    return EntryOf(*document.LUTs().at(0).lut, r, g, b)[0];
  }

  TempDir directory_;
  std::string path_;
  std::vector<uint8_t> grid_;
};

TEST_F(LookReferenceDocument, KeyZeroAlwaysReadsTheFile) {
  const auto record = Reference(0);
  const auto document = Read(record);
  ASSERT_NE(document, nullptr);
  ASSERT_EQ(document->LUTs().size(), 1u);
  EXPECT_EQ(Red(*document, 2, 1, 0), float(2100.0 / 65535.0));
  EXPECT_EQ(OnlyOperationLUT(*document)->rfind("LUT: ", 0), 0u);
  EXPECT_TRUE(document->IsImport());
  std::filesystem::remove(path_);
  ExpectEmptyVersion3(Read(record).get());
}

TEST_F(LookReferenceDocument, AKeyedLookOutlivesItsFileInTheCache) {
  const auto record = Reference(4000000001u);
  const auto first = Read(record);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf("4000000001"), 1);
  std::filesystem::remove(path_);
  const auto second = Read(record);
  ASSERT_NE(second, nullptr);
  ASSERT_EQ(second->LUTs().size(), 1u);
  EXPECT_EQ(*OnlyOperationLUT(*second), *OnlyOperationLUT(*first));
  const auto& a = *first->LUTs()[0].lut;
  const auto& b = *second->LUTs()[0].lut;
  ASSERT_EQ(a.TableBytes(), b.TableBytes());
  EXPECT_EQ(std::memcmp(a.Table(), b.Table(), a.TableBytes()), 0);

  // Another key finds nothing cached and no file.
  ExpectEmptyVersion3(Read(MakeLookReference(Tincta::Utf8ToUtf16(path_), 10, 0, 7)).get());
}

TEST_F(LookReferenceDocument, DamagedGridsAndShippedLooks) {
  auto damaged = Reference(0);
  grid_[25] = 1;  // N = 1
  directory_.Write("look.grid", grid_.data(), grid_.size());
  EXPECT_EQ(Read(damaged), nullptr);

  // A look that is one of the shipped LUTs is named after it and kept nowhere.
  const auto record = Reference(77);
  std::unique_ptr<uint8_t[]> image;
  uint32_t imageLength = 0;
  ASSERT_TRUE(
      Tincta::ConvertLookGridToOTX3(grid_.data(), uint32_t(grid_.size()), image, imageLength));
  TempDir shipped;
  shipped.Write("camera-look.otx", image.get(), imageLength);
  host::Settings::Instance().SetString(host::kSettingShippedLUTDirectory, shipped.Path().string());
  const auto document = Read(record);
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(*OnlyOperationLUT(*document), "camera-look.otx");
  EXPECT_TRUE(document->LUTs().empty());
  EXPECT_EQ(Tincta::COvLUTCache::Instance().UsersOf("77"), -1);

  const auto fromGrid = Tincta::CreateGradingFromLookGrid(grid_.data(), uint32_t(grid_.size()));
  ASSERT_NE(fromGrid, nullptr);
  EXPECT_EQ(*OnlyOperationLUT(*fromGrid), "camera-look.otx");
  EXPECT_EQ(Tincta::CreateGradingFromLookGrid(grid_.data(), 29), nullptr);
  WriteFuzzSeedIfAsked("look_document", "look_reference",
                       FuzzInput(std::string(record.begin(), record.end()), ""));
}

}  // namespace
}  // namespace crandle_test
