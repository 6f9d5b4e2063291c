// Look references and camera look grids: recognition at its boundaries, the path field, every test
// of the grid conversion in its order, values and axis order against a direct computation, and
// every failure of reading the referenced file, which must leave no descriptor open.
#include <gtest/gtest.h>

#include <cstring>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "look/look_grid.h"
#include "look/look_reference.h"
#include "look_test_support.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using Tincta::ConvertLookGridToOTX3;

float FloatAt(const uint8_t* image, size_t index) {
  float value;
  std::memcpy(&value, image + 40 + 4 * index, 4);
  return value;
}

uint32_t U32At(const uint8_t* bytes, size_t offset) {
  uint32_t value;
  std::memcpy(&value, bytes + offset, 4);
  return value;
}

// The value the grid defines for channel c at grid indices (i, j, k), computed directly.
float Expected(const SGridLayout& layout, uint32_t i, uint32_t j, uint32_t k, int c) {
  const double divisor = layout.divisor == 0 ? 1.0 : layout.divisor;
  return float(layout.sample(i, j, k, c) / divisor * double(layout.scale) + double(layout.bias));
}

// Cheap, well mixed samples that differ per channel and position.
GridSample RandomSamples(uint32_t seed) {
  return [seed](uint32_t i, uint32_t j, uint32_t k, int c) {
    uint64_t x = (uint64_t(seed) << 40) ^ (uint64_t(i) << 24) ^ (uint64_t(j) << 12) ^ k ^
                 (uint64_t(c) << 60);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return uint16_t(x ^ (x >> 31));
  };
}

struct SConverted {
  bool ok = false;
  std::unique_ptr<uint8_t[]> image;
  uint32_t length = 0;
};

SConverted Convert(const std::vector<uint8_t>& grid, uint32_t length) {
  SConverted converted;
  converted.ok = ConvertLookGridToOTX3(grid.data(), length, converted.image, converted.length);
  return converted;
}

TEST(LookReference, RecognitionAtItsBoundaries) {
  struct SCase {
    const char* name;
    uint64_t size;
    const char* magic;
    uint32_t version;
    bool expected;
  };
  const SCase cases[] = {
      {"4121 bytes", 4121, "AELT", 2, false},
      {"4122 bytes", 4122, "AELT", 2, true},
      {"longer", 4122, "AELT", 2, true},
      {"version 1", 4122, "AELT", 1, false},
      {"version 3", 4122, "AELT", 3, false},
      {"magic in other case", 4122, "aelt", 2, false},
      {"size above 4 GiB counts by its low 32 bits", (uint64_t(1) << 32) + 4122, "AELT", 2, true},
      {"4 GiB plus 4121 is 4121", (uint64_t(1) << 32) + 4121, "AELT", 2, false},
      {"4 GiB is 0", uint64_t(1) << 32, "AELT", 2, false},
  };
  for (const SCase& c : cases) {
    std::vector<uint8_t> record = MakeLookReference(u"/x", 0, 0, 0, c.version);
    std::memcpy(record.data(), c.magic, 4);
    EXPECT_EQ(Tincta::IsLookReference(record.data(), c.size), c.expected) << c.name;
    std::string path = "untouched";
    EXPECT_EQ(Tincta::GetLookReferencePath(record.data(), c.size, path), c.expected) << c.name;
    EXPECT_EQ(path, c.expected ? "/x" : "untouched") << c.name;
  }
  EXPECT_FALSE(Tincta::IsLookReference(nullptr, 4122));
}

TEST(LookReference, PathFieldIsUtf16UpToItsNulOrItsEnd) {
  // U+1F3A8 as a surrogate pair; U+00E9 as one unit.
  const std::u16string path = u"/looks/caf\u00e9 \U0001F3A8.grid";
  std::string converted;
  ASSERT_TRUE(Tincta::GetLookReferencePath(MakeLookReference(path, 0, 0).data(), 4122, converted));
  EXPECT_EQ(converted, "/looks/caf\xC3\xA9 \xF0\x9F\x8E\xA8.grid");

  const std::u16string full(2049, u'a');
  ASSERT_TRUE(Tincta::GetLookReferencePath(MakeLookReference(full, 0, 0).data(), 4200, converted));
  EXPECT_EQ(converted, std::string(2049, 'a'));

  const auto record = MakeLookReference(u"/p", 77, 0x0102030405060708ull, 0xDEADBEEF);
  const Tincta::SLookReference fields = Tincta::ReadLookReference(record.data());
  EXPECT_EQ(fields.version, 2u);
  EXPECT_EQ(fields.gridLength, 77u);
  EXPECT_EQ(fields.cacheKey, 0xDEADBEEFu);
  EXPECT_EQ(fields.gridOffset, 0x0102030405060708ull);
  EXPECT_EQ(fields.path, "/p");
}

TEST(LookGrid, ConversionTestsInTheirOrder) {
  struct SCase {
    const char* name;
    uint16_t n;
    uint32_t dataOffset;  // counted back from the end of the block when `fromEnd`
    bool fromEnd;
    uint32_t trailing;  // bytes after the samples
    int lengthChange;   // added to the length handed over
    const char* magic;
    bool accepted;
  };
  const SCase cases[] = {
      {"N = 1", 1, 32, false, 0, 0, "ALOK", false},
      {"N = 2", 2, 32, false, 0, 0, "ALOK", true},
      {"N = 0 wraps below 2", 0, 32, false, 64, 0, "ALOK", false},
      {"N = 255", 255, 32, false, 0, 0, "ALOK", false},
      {"data offset 28", 2, 28, false, 0, 0, "ALOK", false},
      {"data offset 29", 2, 29, false, 0, 0, "ALOK", true},
      {"data offset length - 29", 2, 29, true, 100, 0, "ALOK", false},
      {"data offset length - 48, samples fit", 2, 48, true, 100, 0, "ALOK", true},
      {"one sample byte short", 2, 32, false, 0, -1, "ALOK", false},
      {"29 bytes", 2, 32, false, 0, -51, "ALOK", false},
      {"wrong magic", 2, 32, false, 0, 0, "ALOC", false},
  };
  for (const SCase& c : cases) {
    SGridLayout layout;
    layout.n = c.n;
    layout.dataOffset = c.fromEnd ? 40 : c.dataOffset;
    layout.trailingBytes = c.trailing;
    if (c.n < 100) layout.sample = RandomSamples(1);
    std::vector<uint8_t> grid = MakeLookGrid(layout);
    std::memcpy(grid.data() + 4, c.magic, 4);
    if (c.fromEnd) grid[3] = uint8_t(grid.size() - c.dataOffset);
    const auto length = uint32_t(int64_t(grid.size()) + c.lengthChange);
    const SConverted converted = Convert(grid, length);
    EXPECT_EQ(converted.ok, c.accepted) << c.name;
    if (c.accepted) {
      EXPECT_EQ(converted.length, 40u + 12u * c.n * c.n * c.n) << c.name;
    } else {
      EXPECT_EQ(converted.image, nullptr) << c.name;
    }
  }
  std::unique_ptr<uint8_t[]> image;
  uint32_t imageLength = 0;
  EXPECT_FALSE(ConvertLookGridToOTX3(nullptr, 100, image, imageLength));
}

TEST(LookGrid, ImageHeaderAndAxisExchangeAgainstDirectComputation) {
  SGridLayout layout;
  layout.n = 5;
  layout.dataOffset = 29;
  layout.divisor = 1000;
  layout.scale = 0.5f;
  layout.bias = -0.125f;
  layout.sample = RandomSamples(3);
  const std::vector<uint8_t> grid = MakeLookGrid(layout);
  const SConverted converted = Convert(grid, uint32_t(grid.size()));
  ASSERT_TRUE(converted.ok);
  const uint8_t* image = converted.image.get();
  EXPECT_EQ(std::memcmp(image, "OTX3", 4), 0);
  EXPECT_EQ(U32At(image, 4), 5u);
  EXPECT_EQ(U32At(image, 8), 3u);
  EXPECT_EQ(U32At(image, 12), 0u);
  const float domain[6] = {0, 0, 0, 1, 1, 1};
  EXPECT_EQ(std::memcmp(image + 16, domain, 24), 0);

  // The image keeps red fastest; the grid keeps its first index slowest, and that is red.
  const uint32_t n = layout.n;
  for (uint32_t b = 0; b < n; ++b) {
    for (uint32_t g = 0; g < n; ++g) {
      for (uint32_t r = 0; r < n; ++r) {
        for (int c = 0; c < 3; ++c) {
          const size_t index = 3 * (r + n * g + n * n * b) + c;
          ASSERT_EQ(FloatAt(image, index), Expected(layout, r, g, b, c))
              << "r " << r << " g " << g << " b " << b << " channel " << c;
        }
      }
    }
  }
}

TEST(LookGrid, DivisorZeroActsAsOne) {
  SGridLayout layout;
  layout.n = 3;
  layout.scale = 0.001f;
  layout.bias = 0.25f;
  layout.sample = RandomSamples(4);
  layout.divisor = 0;
  const auto zero = MakeLookGrid(layout);
  layout.divisor = 1;
  const auto one = MakeLookGrid(layout);
  const SConverted a = Convert(zero, uint32_t(zero.size()));
  const SConverted b = Convert(one, uint32_t(one.size()));
  ASSERT_TRUE(a.ok && b.ok);
  ASSERT_EQ(a.length, b.length);
  EXPECT_EQ(std::memcmp(a.image.get(), b.image.get(), a.length), 0);
  EXPECT_EQ(FloatAt(a.image.get(), 5), Expected(layout, 1, 0, 0, 2));
}

TEST(LookGrid, FullScaleSamplesGiveExactlyOne) {
  SGridLayout layout;
  layout.n = 17;
  layout.divisor = 65535;
  layout.sample = [](uint32_t, uint32_t, uint32_t, int) { return uint16_t(65535); };
  const auto grid = MakeLookGrid(layout);
  const SConverted converted = Convert(grid, uint32_t(grid.size()));
  ASSERT_TRUE(converted.ok);
  for (size_t index = 0; index < 3u * 17 * 17 * 17; ++index) {
    ASSERT_EQ(FloatAt(converted.image.get(), index), 1.0f) << index;
  }
}

TEST(LookGrid, LargestGridIsAccepted) {
  SGridLayout layout;
  layout.n = 254;
  layout.dataOffset = 29;
  // Only a few samples are set; the rest stay zero.
  std::vector<uint8_t> grid = MakeLookGrid(layout);
  const auto setSample = [&](uint32_t i, uint32_t j, uint32_t k, int c, uint16_t value) {
    uint8_t* at = grid.data() + 29 + 6 * ((uint64_t(i) * 254 + j) * 254 + k) + 2 * c;
    at[0] = uint8_t(value >> 8);
    at[1] = uint8_t(value);
  };
  setSample(253, 0, 0, 0, 65535);
  setSample(0, 253, 1, 1, 32768);
  const SConverted converted = Convert(grid, uint32_t(grid.size()));
  ASSERT_TRUE(converted.ok);
  EXPECT_EQ(converted.length, 40u + 12u * 254u * 254u * 254u);
  const uint32_t n = 254;
  EXPECT_EQ(FloatAt(converted.image.get(), 3 * (253 + 0 * n + 0 * n * n) + 0), 1.0f);
  EXPECT_EQ(FloatAt(converted.image.get(), 3 * (0 + 253 * n + 1 * n * n) + 1),
            float(32768.0 / 65535.0));
  EXPECT_EQ(FloatAt(converted.image.get(), 3 * (0 + 0 * n + 253 * n * n) + 0), 0.0f);
}

class LookReferenceFile : public LookTest {
 protected:
  // A file holding `before` bytes of something else, then the grid, then `after` bytes.
  std::vector<uint8_t> WriteGridFile(const SGridLayout& layout, size_t before, size_t after) {
    grid_ = MakeLookGrid(layout);
    std::vector<uint8_t> file(before, 0x5A);
    file.insert(file.end(), grid_.begin(), grid_.end());
    file.insert(file.end(), after, 0xA5);
    path_ = directory_.Write("camera.mxf", file.data(), file.size());
    return MakeLookReference(Tincta::Utf8ToUtf16(path_), uint32_t(grid_.size()), before);
  }

  TempDir directory_;
  std::string path_;
  std::vector<uint8_t> grid_;
};

TEST_F(LookReferenceFile, LoadsTheGridAtItsOffset) {
  SGridLayout layout;
  layout.n = 4;
  layout.divisor = 4096;
  layout.scale = 2.0f;
  layout.bias = -0.5f;
  layout.sample = RandomSamples(5);
  const auto record = WriteGridFile(layout, 1000, 7);
  const auto lut = Tincta::LoadLookReference(record.data(), record.size());
  ASSERT_NE(lut, nullptr);
  EXPECT_TRUE(lut->Is3D());
  EXPECT_EQ(lut->Size(), 4u);
  EXPECT_EQ(lut->Title(), "AMIRA LUT");
  EXPECT_EQ(lut->SourcePath(), "");
  EXPECT_EQ(lut->DomainMin(), (Tincta::Vec4{0, 0, 0, 1}));
  EXPECT_EQ(lut->DomainMax(), (Tincta::Vec4{1, 1, 1, 1}));
  const auto entry = EntryOf(*lut, 3, 1, 2);
  for (int c = 0; c < 3; ++c)
    EXPECT_EQ(entry[c], Expected(layout, 3, 1, 2, c));
  EXPECT_EQ(entry[3], 1.0f);
}

TEST_F(LookReferenceFile, ParseLUTTakesTheLookReferenceBranch) {
  SGridLayout layout;
  layout.n = 3;
  layout.sample = RandomSamples(6);
  std::vector<uint8_t> record = WriteGridFile(layout, 16, 0);
  record.resize(5000, 0xEE);  // bytes after the record are ignored

  std::shared_ptr<void> lut;
  ASSERT_EQ(CRANDLE::ParseLUT(record.data(), record.size(), lut), CRANDLE::kResultOK);
  std::string name;
  ASSERT_EQ(CRANDLE::GetLUTDisplayName(lut, name), CRANDLE::kResultOK);
  EXPECT_EQ(name, "AMIRA LUT");
  // The handle's blob is the converted image itself.
  const SConverted converted = Convert(grid_, uint32_t(grid_.size()));
  ASSERT_TRUE(converted.ok);
  const host::BinaryData blob = CRANDLE::GetLUTBlob(lut);
  ASSERT_EQ(blob.Size(), converted.length);
  EXPECT_EQ(std::memcmp(blob.Data(), converted.image.get(), converted.length), 0);

  // One byte short, the same record is ordinary LUT data, which no reader takes.
  std::shared_ptr<void> untouched;
  EXPECT_EQ(CRANDLE::ParseLUT(record.data(), 4121, untouched), CRANDLE::kResultLUTFailed);
  EXPECT_EQ(untouched, nullptr);
}

TEST_F(LookReferenceFile, EveryFailureYieldsNothingAndClosesTheFile) {
  SGridLayout layout;
  layout.n = 2;
  layout.sample = RandomSamples(7);
  const auto good = WriteGridFile(layout, 64, 0);
  const uint32_t length = uint32_t(grid_.size());
  SGridLayout damaged;
  damaged.n = 255;
  const auto damagedGrid = MakeLookGrid(damaged);
  const std::string damagedPath =
      directory_.Write("damaged.mxf", damagedGrid.data(), damagedGrid.size());

  struct SCase {
    const char* name;
    std::vector<uint8_t> record;
  };
  const std::u16string path = Tincta::Utf8ToUtf16(path_);
  const SCase cases[] = {
      {"missing file", MakeLookReference(path + u".gone", length, 64)},
      {"offset past the end", MakeLookReference(path, length, 1 << 20)},
      {"offset at the end", MakeLookReference(path, length, 64 + length)},
      {"block runs past the end", MakeLookReference(path, length + 1, 64)},
      {"offset beyond any file", MakeLookReference(path, length, ~uint64_t(0))},
      {"empty block", MakeLookReference(path, 0, 64)},
      {"block shorter than its samples", MakeLookReference(path, length - 1, 64)},
      {"damaged grid",
       MakeLookReference(Tincta::Utf8ToUtf16(damagedPath), uint32_t(damagedGrid.size()), 0)},
      {"a directory",
       MakeLookReference(Tincta::Utf8ToUtf16(directory_.Path().string()), length, 0)},
      {"empty path", MakeLookReference(u"", length, 0)},
  };
  const size_t descriptors = OpenDescriptorCount();
  for (const SCase& c : cases) {
    EXPECT_EQ(Tincta::LoadLookReference(c.record.data(), c.record.size()), nullptr) << c.name;
    std::shared_ptr<void> lut;
    EXPECT_EQ(CRANDLE::ParseLUT(c.record.data(), c.record.size(), lut), CRANDLE::kResultLUTFailed)
        << c.name;
    EXPECT_EQ(lut, nullptr) << c.name;
  }
  ASSERT_NE(Tincta::LoadLookReference(good.data(), good.size()), nullptr);
  EXPECT_EQ(OpenDescriptorCount(), descriptors);
}

}  // namespace
}  // namespace crandle_test
