// Look references and camera look grids: recognition at its boundaries, the grid conversion against
// a direct computation, reading the referenced file (every failure yields nothing and leaves no
// descriptor open), and look references read as documents.
#include <gtest/gtest.h>

#include "crandle/crandle.h"
#include "foundation/utf16.h"
#include "look/look_grid.h"
#include "look/look_reference.h"
#include "support/look_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

// The value the grid defines for channel c at (i, j, k), from the layout alone.
float Expected(const SGridLayout& layout, uint32_t i, uint32_t j, uint32_t k, int c) {
  const double divisor = layout.divisor == 0 ? 1.0 : layout.divisor;
  return float(layout.sample(i, j, k, c) / divisor * double(layout.scale) + double(layout.bias));
}

// Well mixed samples that differ per channel and position.
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
    bool fullScale = false, accepted = true;  // fullScale: every sample 65535
  };
  const SCase cases[] = {
      {.name = "N = 1", .patchAt = 25, .patch = 1, .accepted = false},
      {.name = "N = 2 at data offset 29", .n = 2, .dataOffset = 29},
      {.name = "N = 254", .n = 254},
      {.name = "N = 255", .n = 255, .accepted = false},
      {.name = "data offset 28", .dataOffset = 28, .accepted = false},
      {.name = "data offset length - 29", .offsetFromEnd = 29, .accepted = false},
      {.name = "data offset past the end", .offsetFromEnd = -1, .accepted = false},
      {.name = "one sample byte short", .length = -1, .accepted = false},
      {.name = "28 bytes", .length = 28, .accepted = false},
      {.name = "not ALOK", .patchAt = 7, .patch = 'C', .accepted = false},
      {.name = "axes, scale and bias", .n = 5, .divisor = 1000, .scale = 0.5f, .bias = -0.125f},
      {.name = "divisor 0 acts as 1", .n = 3, .divisor = 0, .scale = 0.001f, .bias = 0.25f},
      {.name = "full scale is exactly 1", .n = 17, .fullScale = true},
      // Large enough for the converted-sample table, with a last block of k shorter than the rest.
      {.name = "mid-sized grid", .n = 45, .divisor = 4093, .scale = 1.7f, .bias = -0.3f},
      {.name = "mid-sized grid, divisor 0", .n = 33, .divisor = 0, .scale = 3e-5f},
  };
  for (const SCase& c : cases) {
    SGridLayout layout{c.n, c.dataOffset, c.divisor, c.scale, c.bias, Mixed};
    if (c.fullScale) layout.sample = [](uint32_t, uint32_t, uint32_t, int) { return 65535; };
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
    EXPECT_TRUE(!c.fullScale || Expected(layout, n - 1, n - 1, n - 1, 2) == 1.0f);  // top corner
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

}  // namespace
}  // namespace crandle_test
