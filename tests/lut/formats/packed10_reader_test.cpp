#include <cstring>

#include "format_test.h"

namespace crandle_test {
namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;

using Packed10Test = FormatTest;

uint32_t NodeWord(uint32_t r, uint32_t g, uint32_t b) {
  // Distinct 10-bit codes per node and channel.
  return PackWord((r * 97 + g * 13 + b * 3) % 1024, (g * 101 + b * 7 + r) % 1024,
                  (b * 89 + r * 5 + g * 11) % 1024);
}

void ExpectWords(const COv3DLUT& lut, uint32_t size,
                 const std::function<uint32_t(uint32_t, uint32_t, uint32_t)>& word) {
  ASSERT_TRUE(lut.Is3D());
  ASSERT_EQ(lut.Size(), size);
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r) {
        const uint32_t w = word(r, g, b);
        const auto entry = At(lut, r, g, b);
        ASSERT_FLOAT_EQ(entry[0], float((w >> 20) / 1023.0)) << r << g << b;
        ASSERT_FLOAT_EQ(entry[1], float(((w >> 10) & 1023) / 1023.0)) << r << g << b;
        ASSERT_FLOAT_EQ(entry[2], float((w & 1023) / 1023.0)) << r << g << b;
        ASSERT_EQ(entry[3], 1.0f);
      }
}

TEST_F(Packed10Test, BothByteOrdersGiveTheSameTable) {
  for (const bool bigEndian : {true, false}) {
    for (const uint32_t exponent : {0u, 1u, 2u, 4u}) {
      const auto bytes = Packed10Bytes(bigEndian, exponent, NodeWord);
      COv3DLUT lut;
      ASSERT_TRUE(Parse(lut, bytes)) << bigEndian << exponent;
      ExpectWords(lut, (1u << exponent) + 1, NodeWord);
      EXPECT_EQ(lut.DomainMin(), (Tincta::Vec4{0, 0, 0, 0}));
      EXPECT_EQ(lut.DomainMax(), (Tincta::Vec4{1, 1, 1, 1}));
    }
  }
}

TEST_F(Packed10Test, RedIsNotMasked) {
  // Bits 30 and 31 belong to red: 0xC0000000 adds 3072 to its code.
  const auto word = [](uint32_t r, uint32_t g, uint32_t b) {
    return (r == 1 && g == 0 && b == 1 ? 0xC0000000u : 0u) | PackWord(5 + r, 6 + g, 7 + b);
  };
  for (const bool bigEndian : {true, false}) {
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, Packed10Bytes(bigEndian, 0, word)));
    EXPECT_FLOAT_EQ(At(lut, 1, 0, 1)[0], float(3078 / 1023.0));
    EXPECT_FLOAT_EQ(At(lut, 1, 0, 1)[2], float(8 / 1023.0));
    ExpectWords(lut, 2, word);
  }
}

TEST_F(Packed10Test, TheCallersBufferIsNotTouched) {
  const auto bytes = Packed10Bytes(true, 2, NodeWord);
  const auto copy = bytes;
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, bytes));
  EXPECT_EQ(bytes, copy);
}

TEST_F(Packed10Test, GridExponentUsesItsLowFiveBits) {
  auto bytes = Packed10Bytes(false, 1, NodeWord);
  bytes[768] = 0x21;  // 33: low five bits 1
  bytes[769] = 0xFF;
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, bytes));
  ExpectWords(lut, 3, NodeWord);
}

TEST_F(Packed10Test, BrokenFilesFailAndLeaveNothing) {
  const auto good = Packed10Bytes(true, 1, NodeWord, 800);  // 800 + 27 * 4 = 908 bytes
  struct SCase {
    const char* what;
    std::vector<uint8_t> bytes;
    SParseArgs args;
  };
  auto noMarker = good;
  noMarker[663] = 0xFE;
  auto dataPastEnd = good;
  dataPastEnd[7] = 33;  // data offset 801: one byte past the end
  auto hugeOffset = good;
  hugeOffset[4] = 0xFF;
  auto hugeGrid = good;
  hugeGrid[769] = 9;  // 513 points per axis
  auto cut = good;
  cut.pop_back();
  const SCase cases[] = {
      {"marker not 0xFFFFFFFF", noMarker, {}},
      {"data one byte past the end", dataPastEnd, {}},
      {"data offset beyond the file", hugeOffset, {}},
      {"grid above 257 points", hugeGrid, {}},
      {"last word cut short", cut, {}},
      {"only 1-D", good, {.kind = ELUTKindFilter::Only1D}},
  };
  for (const SCase& c : cases) {
    COv3DLUT lut;
    EXPECT_FALSE(Parse(lut, c.bytes, c.args)) << c.what;
    ExpectCleared(lut);
  }
  COv3DLUT lut;
  EXPECT_TRUE(Parse(lut, good, {.kind = ELUTKindFilter::Only3D}));
}

TEST_F(Packed10Test, FewerThan809BytesAreText) {
  // A 2-point cube fits in 808 bytes (data at 776), but below 809 bytes the magic means nothing.
  auto bytes = Packed10Bytes(false, 0, NodeWord, 776);
  bytes.resize(808);
  COv3DLUT lut;
  EXPECT_FALSE(Parse(lut, bytes));
  bytes.push_back(0);
  ASSERT_TRUE(Parse(lut, bytes));
  ExpectWords(lut, 2, NodeWord);
}

TEST_F(Packed10Test, UpsamplingGoesToThePowerOfTwoAbove) {
  struct SCase {
    uint32_t exponent, size;
  };
  for (const SCase& c :
       {SCase{0, 2}, SCase{1, 4}, SCase{2, 8}, SCase{4, 32}, SCase{5, 64}, SCase{6, 128}}) {
    const uint32_t n = (1u << c.exponent) + 1;
    const auto identity = [n](uint32_t r, uint32_t g, uint32_t b) {
      return PackWord(r * 1023 / (n - 1), g * 1023 / (n - 1), b * 1023 / (n - 1));
    };
    COv3DLUT lut;
    ASSERT_TRUE(
        Parse(lut, Packed10Bytes(c.exponent % 2 == 0, c.exponent, identity), {.upsample = true}));
    ASSERT_EQ(lut.Size(), c.size) << n;
    for (uint32_t i = 0; i < c.size; ++i)
      EXPECT_NEAR(At(lut, 0, 0, i)[2], double(i) / (c.size - 1), 2e-3) << n << " " << i;
  }
}

TEST_F(Packed10Test, TheSettingForcesUpsampling) {
  host::Settings::Instance().SetBool(host::kSettingAlwaysUpsampleToPoT, true);
  COv3DLUT lut;
  ASSERT_TRUE(Parse(lut, Packed10Bytes(true, 4, NodeWord)));
  EXPECT_EQ(lut.Size(), 32u);
}

}  // namespace
}  // namespace crandle_test
