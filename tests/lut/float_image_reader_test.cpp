// Binary float LUT images ("OVTX", "OTX2", "OTX3"): detection, refusals, bounds, the round trip
// with the blob writer.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "lut/formats/float_image_reader.h"
#include "lut/lut3d.h"
#include "lut/otx3_writer.h"
#include "lut_test_helpers.h"

namespace {

using Tincta::COv3DLUT;
using Tincta::ELUTKindFilter;
using Tincta::Vec4;
using namespace crandle_test;

void PutU32(std::vector<uint8_t>& out, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out.push_back(uint8_t(value >> (8 * i)));
}

void PutF32(std::vector<uint8_t>& out, float value) {
  PutU32(out, std::bit_cast<uint32_t>(value));
}

struct SImage {
  std::string magic = "OTX2";
  uint32_t size = 2;
  uint32_t kind = 1;
  uint32_t enciphered = 0;
  float min[3] = {-0.25f, 0, 0.5f};
  float max[3] = {1.25f, 2, 0.75f};
  // Entries written; -1 writes all that size and kind call for.
  int64_t entries = -1;
  size_t extraBytes = 0;

  uint64_t Count() const { return kind == 3 ? uint64_t(size) * size * size : size; }

  // Entry i holds (i, i + 0.25, -i) so that any misplaced float shows.
  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> out(magic.begin(), magic.end());
    PutU32(out, size);
    PutU32(out, kind);
    PutU32(out, enciphered);
    if (magic != "OVTX") {
      for (float v : min)
        PutF32(out, v);
      for (float v : max)
        PutF32(out, v);
    }
    const uint64_t n = entries < 0 ? Count() : uint64_t(entries);
    for (uint64_t i = 0; i < n; ++i) {
      PutF32(out, float(i));
      PutF32(out, float(i) + 0.25f);
      PutF32(out, -float(i));
    }
    out.resize(out.size() + extraBytes, 0xEE);
    return out;
  }
};

bool Parse(COv3DLUT& lut, const std::vector<uint8_t>& bytes,
           ELUTKindFilter filter = ELUTKindFilter::Any) {
  // The vector's buffer is exactly as long as the image: any read beyond it is caught.
  return lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), false, filter, false);
}

TEST(FloatImage, DetectionNeedsTheMagicAndSeventeenBytes) {
  for (const char* magic : {"OVTX", "OTX2", "OTX3"}) {
    std::vector<uint8_t> bytes(17, 0);
    std::memcpy(bytes.data(), magic, 4);
    EXPECT_TRUE(Tincta::IsFloatImage(bytes.data(), 17)) << magic;
    EXPECT_FALSE(Tincta::IsFloatImage(bytes.data(), 16)) << magic;
  }
  for (const char* magic : {"OTX1", "otx2", "3LUT", "OVTx"}) {
    std::vector<uint8_t> bytes(64, 0);
    std::memcpy(bytes.data(), magic, 4);
    EXPECT_FALSE(Tincta::IsFloatImage(bytes.data(), 64)) << magic;
  }
}

TEST(FloatImage, ASixteenByteImageIsNotBinaryAndFailsAsText) {
  SImage image;
  image.magic = "OVTX";
  image.size = 1;
  const auto full = image.Bytes();  // 16 + 12 bytes
  const std::vector<uint8_t> header(full.begin(), full.begin() + 16);
  COv3DLUT lut;
  EXPECT_FALSE(Parse(lut, header));
  EXPECT_EQ(lut.Size(), 0u);
  EXPECT_TRUE(Parse(lut, full));
}

struct SRefusal {
  const char* name;
  SImage image;
  ELUTKindFilter filter = ELUTKindFilter::Any;
};

SImage With(const char* magic, uint32_t size, uint32_t kind, uint32_t enciphered = 0,
            int64_t entries = -1) {
  SImage image;
  image.magic = magic;
  image.size = size;
  image.kind = kind;
  image.enciphered = enciphered;
  image.entries = entries;
  return image;
}

TEST(FloatImage, RefusalsLeaveAnEmptyObject) {
  const SRefusal cases[] = {
      {"enciphered short image", With("OVTX", 2, 1, 1)},
      {"enciphered OTX2", With("OTX2", 2, 1, 1)},
      {"enciphered OTX3 (no cipher here)", With("OTX3", 2, 1, 1)},
      {"1-D above 65536", With("OTX2", 65537, 1, 0, 4)},
      {"3-D above 256", With("OTX2", 257, 3, 0, 4)},
      {"kind 0", With("OTX2", 2, 0)},
      {"kind 2", With("OTX2", 2, 2)},
      {"kind 4", With("OVTX", 2, 4)},
      {"size 0", With("OTX3", 0, 1, 0, 2)},
      {"size 0, 3-D", With("OVTX", 0, 3, 0, 2)},
      {"1-D under the 3-D filter", With("OTX2", 2, 1), ELUTKindFilter::Only3D},
      {"3-D under the 1-D filter", With("OTX2", 2, 3), ELUTKindFilter::Only1D},
      {"one entry short", With("OTX2", 3, 1, 0, 2)},
      {"a cube one entry short", With("OVTX", 3, 3, 0, 26)},
      {"the whole cube missing", With("OTX3", 256, 3, 0, 0)},
      // 4 entries x 3 bytes fit the 40 + 36 bytes, 4 x 12 do not: only the loose test passes.
      {"past the loose length test", With("OTX2", 4, 1, 0, 3)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    COv3DLUT lut;
    lut.SetTitle("kept");
    EXPECT_FALSE(Parse(lut, c.image.Bytes(), c.filter));
    EXPECT_EQ(lut.Size(), 0u);
    EXPECT_EQ(lut.Table(), nullptr);
    EXPECT_EQ(lut.Title(), "kept");
  }
}

TEST(FloatImage, ReadsEntriesAndDomains) {
  struct {
    SImage image;
    ELUTKindFilter filter;
    Vec4 min, max;
  } const cases[] = {
      {With("OVTX", 5, 1), ELUTKindFilter::Only1D, {0, 0, 0, 0}, {1, 1, 1, 1}},
      {With("OVTX", 3, 3), ELUTKindFilter::Only3D, {0, 0, 0, 0}, {1, 1, 1, 1}},
      {With("OTX2", 4, 1), ELUTKindFilter::Any, {-0.25f, 0, 0.5f, 1}, {1.25f, 2, 0.75f, 1}},
      {With("OTX3", 2, 3), ELUTKindFilter::Any, {-0.25f, 0, 0.5f, 1}, {1.25f, 2, 0.75f, 1}},
      {With("OTX3", 1, 1), ELUTKindFilter::Any, {-0.25f, 0, 0.5f, 1}, {1.25f, 2, 0.75f, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.image.magic + " size " + std::to_string(c.image.size));
    for (size_t extra : {0u, 1u, 100u}) {
      SImage image = c.image;
      image.extraBytes = extra;
      COv3DLUT lut;
      ASSERT_TRUE(Parse(lut, image.Bytes(), c.filter));
      EXPECT_EQ(lut.Is3D(), image.kind == 3);
      ASSERT_EQ(lut.Size(), image.size) << "never resampled";
      ASSERT_EQ(lut.EntryCount(), image.Count());
      for (size_t i = 0; i < lut.EntryCount(); ++i) {
        ASSERT_EQ(EntryAt(lut, i), (Vec4{float(i), float(i) + 0.25f, -float(i), 1.0f})) << i;
      }
      EXPECT_EQ(lut.DomainMin(), c.min);
      EXPECT_EQ(lut.DomainMax(), c.max);
    }
  }
}

TEST(FloatImage, EveryTruncationFailsWithoutReadingPastTheEnd) {
  for (const SImage& image : {With("OVTX", 2, 3), With("OTX2", 3, 1), With("OTX3", 2, 3)}) {
    const auto full = image.Bytes();
    for (size_t length = 0; length < full.size(); ++length) {
      SCOPED_TRACE(image.magic + " cut to " + std::to_string(length));
      // A fresh buffer of exactly `length` bytes each time.
      const std::vector<uint8_t> cut(full.begin(), full.begin() + ptrdiff_t(length));
      COv3DLUT lut;
      EXPECT_FALSE(lut.ParseLUTData(length ? cut.data() : full.data(), uint32_t(length), false,
                                    ELUTKindFilter::Any, false));
    }
    COv3DLUT lut;
    EXPECT_TRUE(Parse(lut, full));
  }
}

TEST(FloatImage, BlobsReadBackByteForByte) {
  struct {
    uint32_t size;
    bool is3D;
    Vec4 min, max;
  } const cases[] = {
      {4, true, {-0.5f, 0, 0.125f, 1}, {1.5f, 1, 0.875f, 1}},
      {200, false, {0, 0, 0, 1}, {1, 1, 1, 1}},
      {1, true, {0, 0, 0, 0}, {1, 1, 1, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(c.size, c.is3D));
    for (size_t i = 0; i < lut.EntryCount(); ++i) {
      float* entry = lut.Table() + 4 * i;
      entry[0] = float(i) / 7;
      entry[1] = i % 5 == 0 ? std::nanf("") : -float(i) * 1e-30f;
      entry[2] = i % 3 == 0 ? INFINITY : 3e38f;
      entry[3] = 1;
    }
    lut.SetDomain(c.min, c.max);

    std::vector<uint8_t> blob(Tincta::Otx3ImageBytes(lut));
    ASSERT_EQ(blob.size(), 40 + 12 * lut.EntryCount());
    Tincta::WriteOtx3Image(lut, blob.data());
    // The header, spelled out.
    std::vector<uint8_t> header{'O', 'T', 'X', '3'};
    PutU32(header, c.size);
    PutU32(header, c.is3D ? 3 : 1);
    PutU32(header, 0);
    for (int ch = 0; ch < 3; ++ch)
      PutF32(header, c.min[ch]);
    for (int ch = 0; ch < 3; ++ch)
      PutF32(header, c.max[ch]);
    EXPECT_TRUE(std::equal(header.begin(), header.end(), blob.begin()));

    COv3DLUT read;
    ASSERT_TRUE(
        read.LoadFromMemory(blob.data(), uint32_t(blob.size()), false, ELUTKindFilter::Any, false));
    ASSERT_EQ(read.Size(), c.size);
    ASSERT_EQ(read.Is3D(), c.is3D);
    EXPECT_EQ(std::memcmp(read.Table(), lut.Table(), lut.TableBytes()), 0);
    std::vector<uint8_t> again(Tincta::Otx3ImageBytes(read));
    Tincta::WriteOtx3Image(read, again.data());
    EXPECT_EQ(again, blob);
  }
}

}  // namespace
