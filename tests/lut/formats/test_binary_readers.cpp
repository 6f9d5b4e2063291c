// The binary readers: float LUT images ("OVTX", "OTX2", "OTX3") with the blob image that the
// writer makes, and packed 10-bit cubes ("3LUT" big-endian, "TUL3" little-endian, blue fastest).
#include <bit>
#include <cmath>
#include <cstring>

#include "lut/otx3_writer.h"
#include "support/lut_test.h"

namespace crandle_test {
namespace {

using BinaryReaders = LUTTest;

const Rgb kMin{-0.25f, 0, 0.5f}, kMax{1.25f, 2, 0.75f};

// Entry i holds (i, i + 0.25, -i), so that any misplaced float shows; -1 entries: all of them.
std::vector<uint8_t> Image(const char* magic, uint32_t size, uint32_t kind, int64_t entries = -1,
                           uint32_t enciphered = 0) {
  const uint64_t all = kind == 3 ? uint64_t(size) * size * size : size;
  return FloatImageBytes({magic, size, kind, enciphered, kMin, kMax},
                         entries < 0 ? all : uint64_t(entries), [](uint64_t i) {
                           return Rgb{float(i), float(i) + 0.25f, -float(i)};
                         });
}

TEST_F(BinaryReaders, FloatImagesAreReadOrRefused) {
  const auto only1D = ELUTKindFilter::Only1D, only3D = ELUTKindFilter::Only3D;
  const struct {
    std::vector<uint8_t> bytes;
    uint32_t size;  // 0: refused
    ELUTKindFilter kind = ELUTKindFilter::Any;
  } cases[] = {
      {Image("OVTX", 5, 1), 5, only1D},
      {Image("OVTX", 3, 3), 3, only3D},
      {Image("OTX2", 65536, 1), 65536},
      {Image("OTX3", 1, 1, 9), 1},  // bytes past the table are ignored
      {Image("OTX2", 65537, 1), 0},
      {Image("OTX2", 2, 1), 0, only3D},
      {Image("OTX2", 2, 3), 0, only1D},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bytes[3] << " " << c.bytes.size() << " bytes");
    COv3DLUT lut;
    ASSERT_TRUE(Parse(lut, Image("OTX2", 2, 1)));
    lut.SetTitle("kept");
    ASSERT_EQ(Parse(lut, c.bytes, {.kindFilter = c.kind}), c.size > 0);
    EXPECT_EQ(lut.Title(), "kept");
    if (c.size == 0) {
      ExpectCleared(lut);
      continue;
    }
    ASSERT_EQ(lut.Size(), c.size);
    for (size_t i = 0; i < lut.EntryCount(); ++i)
      ASSERT_EQ(At(lut, i), (Vec4{float(i), float(i) + 0.25f, -float(i), 1})) << i;
    const bool domain = c.bytes[1] == 'T';
    EXPECT_EQ(lut.DomainMin(), (domain ? Vec4{kMin[0], kMin[1], kMin[2], 1} : Vec4{0, 0, 0, 0}));
    EXPECT_EQ(lut.DomainMax(), (domain ? Vec4{kMax[0], kMax[1], kMax[2], 1} : Vec4{1, 1, 1, 1}));
  }
  // Every cut of a good image fails, and none is read past its end.
  for (const auto& full : {Image("OVTX", 2, 3), Image("OTX2", 3, 1), Image("OTX3", 2, 3)}) {
    for (auto end = full.begin(); end != full.end(); ++end) {
      COv3DLUT lut;
      EXPECT_FALSE(Parse(lut, std::vector<uint8_t>(full.begin(), end))) << end - full.begin();
    }
  }
}

TEST_F(BinaryReaders, BlobsAreExactAndReadBackByteForByte) {
  for (const bool is3D : {true, false}) {
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(is3D ? 4 : 200, is3D));
    std::vector<uint8_t> expected;
    const auto put = [&expected](uint32_t word) {
      for (int i = 0; i < 32; i += 8)
        expected.push_back(uint8_t(word >> i));
    };
    for (const uint32_t word : {0x3358544Fu, lut.Size(), is3D ? 3u : 1u, 0u})
      put(word);  // "OTX3"
    for (const Rgb& v : {kMin, kMax})
      for (const float f : v)
        put(std::bit_cast<uint32_t>(f));
    for (size_t i = 0; i < lut.EntryCount(); ++i) {
      const float entry[4] = {float(i) / 7, i % 5 ? -float(i) * 1e-40f : std::nanf(""),
                              i % 3 ? 3e38f : INFINITY, 1};
      std::memcpy(lut.Table() + 4 * i, entry, 16);
      for (int ch = 0; ch < 3; ++ch)
        put(std::bit_cast<uint32_t>(entry[ch]));
    }
    lut.SetDomain({kMin[0], kMin[1], kMin[2], 0}, {kMax[0], kMax[1], kMax[2], 1});
    std::vector<uint8_t> blob(Tincta::Otx3ImageBytes(lut));
    Tincta::WriteOtx3Image(lut, blob.data());
    EXPECT_EQ(blob, expected);
    COv3DLUT read;
    ASSERT_TRUE(read.LoadFromMemory(blob.data(), uint32_t(blob.size()), false, {}, false));
    ASSERT_EQ(read.Size(), lut.Size());
    EXPECT_EQ(std::memcmp(read.Table(), lut.Table(), lut.TableBytes()), 0);
  }
}

// Distinct codes per node and channel, and bits 30 and 31 set on one node: they count as red.
uint32_t Word(uint32_t r, uint32_t g, uint32_t b) {
  return (r == 1 && g == 0 && b == 1 ? 0xC0000000u : 0u) |
         PackWord((r * 97 + g * 13 + b * 3) % 1024, (g * 101 + b * 7 + r) % 1024,
                  (b * 89 + r * 5) % 1024);
}

TEST_F(BinaryReaders, PackedCubesOfBothByteOrdersGiveTheSameTableOrNothing) {
  const auto good = Packed10Bytes(true, 1, Word, 800);  // 800 + 27 x 4 = 908 bytes
  auto lowBits = Packed10Bytes(false, 1, Word);
  lowBits[768] = 0x21;  // only the low five bits of the grid exponent count
  lowBits[769] = 0xFF;
  const struct {
    std::vector<uint8_t> bytes;
    uint32_t n;  // 0: refused
    ELUTKindFilter kind = ELUTKindFilter::Any;
  } cases[] = {
      {Packed10Bytes(true, 0, Word), 2},
      {Packed10Bytes(false, 0, Word), 2},
      {Packed10Bytes(true, 2, Word), 5},
      {Packed10Bytes(false, 4, Word), 17},
      {lowBits, 3},
      {good, 3, ELUTKindFilter::Only3D},
      {good, 0, ELUTKindFilter::Only1D},
  };
  for (const auto& [bytes, n, kind] : cases) {
    SCOPED_TRACE(testing::Message() << bytes.size() << " bytes, " << n);
    COv3DLUT lut;
    ASSERT_EQ(Parse(lut, bytes, {.kindFilter = kind}), n > 0);
    ASSERT_EQ(lut.Size(), n);
    if (n == 0) ExpectCleared(lut);
    for (uint32_t i = 0; i < n * n * n; ++i) {
      const uint32_t w = Word(i % n, i / n % n, i / n / n);
      const Vec4 expected{float((w >> 20) / 1023.0), float((w >> 10 & 1023) / 1023.0),
                          float((w & 1023) / 1023.0), 1};
      ASSERT_EQ(At(lut, i), expected) << i;
    }
    EXPECT_TRUE(n == 0 || lut.DomainMin() == (Vec4{0, 0, 0, 0}));
  }
}

}  // namespace
}  // namespace crandle_test
