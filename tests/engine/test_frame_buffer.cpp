// The frame-buffer model: layout tables, format texts, history lines, line pointers, sharing,
// and the pixel operations at every precision.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/frame_buffer_format.h"
#include "engine/frame_buffer/sample_codes.h"
#include "engine/frame_buffer/simple_frame_buffer.h"
#include "foundation/heap_buffer.h"
#include "frame_buffer_helpers.h"

namespace {

using namespace Tincta;
using crandle_test::MakeFormat;
using crandle_test::NewBuffer;
using crandle_test::PictureBytes;

constexpr uint32_t kTypes[3] = {kFrameBufferTypeIntensity, kFrameBufferTypeRGB,
                                kFrameBufferTypeRGBA};

// Worked out by hand from the stride rules, precision by precision.
TEST(FrameBufferFormat, LineStrideForEveryTypeAndPrecision) {
  struct SRow {
    uint32_t width;
    uint32_t strides[3][kPrecisionCount];  // Intensity, RGB, RGBA × precision 0..6
  };
  const SRow rows[] = {
      {5, {{8, 8, 20, 12, 12, 20, 20}, {16, 20, 20, 32, 32, 60, 60}, {20, 28, 20, 40, 40, 80, 80}}},
      {7,
       {{8, 12, 28, 16, 16, 28, 28}, {24, 28, 28, 44, 44, 84, 84}, {28, 40, 28, 56, 56, 112, 112}}},
      {1, {{4, 4, 4, 4, 4, 4, 4}, {4, 4, 4, 8, 8, 12, 12}, {4, 8, 4, 8, 8, 16, 16}}},
  };
  for (const SRow& row : rows) {
    for (int t = 0; t < 3; ++t) {
      for (uint32_t p = 0; p < kPrecisionCount; ++p) {
        EXPECT_EQ(ComputeLineStride(MakeFormat(kTypes[t], p), row.width), row.strides[t][p])
            << "width " << row.width << " type " << t << " precision " << p;
      }
    }
  }
}

TEST(FrameBufferFormat, RequestedLineStrideIsAFloor) {
  EXPECT_EQ(ComputeLineStride(MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat,
                                         kChannelOrderRGB, false, true, 128),
                              5),
            128u);
  EXPECT_EQ(ComputeLineStride(MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat,
                                         kChannelOrderRGB, false, true, 8),
                              5),
            80u);
  // Beyond 32 bits the value is reported whole so that callers can refuse it.
  EXPECT_EQ(ComputeLineStride(MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat), 0x80000000u),
            uint64_t{0x800000000});
}

TEST(FrameBufferFormat, BytesPerPixelForEveryTypeAndPrecision) {
  const uint32_t expected[3][kPrecisionCount] = {
      {1, 0, 4, 2, 2, 4, 4}, {3, 4, 4, 6, 6, 12, 12}, {4, 0, 4, 8, 8, 16, 16}};
  for (int t = 0; t < 3; ++t) {
    for (uint32_t p = 0; p < kPrecisionCount; ++p) {
      EXPECT_EQ(BytesPerPixel(MakeFormat(kTypes[t], p)), expected[t][p]) << t << " " << p;
    }
  }
}

TEST(FrameBufferFormat, DescriptionTexts) {
  struct SCase {
    FrameBufferFormat format;
    const char* text;
  };
  FrameBufferFormat sized =
      MakeFormat(kFrameBufferTypeIntensity, kPrecision16BitInt, kChannelOrderBGR, true, false, 64);
  sized.bufferSize = 4096;
  const SCase cases[] = {
      {FrameBufferFormat{},
       "Format: Type = RGB, Precision = 8 bits, Channel order =  BGR(A), Bottom to top"},
      {MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat),
       "Format: Type = RGBA, Precision = 32 bit float, Channel order =  RGB(A), Little Endian, "
       "Top to bottom"},
      {sized,
       "Format: Type = Intensity, Precision = 16 bit int, Big Endian, Bottom to top, Buffer size "
       "= 4096, Line stride = 64"},
      {MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, kChannelOrderRGB, true),
       "Format: Type = RGBA, Precision = 8 bits, Channel order =  RGB(A), Top to bottom"},
      {MakeFormat(0x200, 9, 7),
       "Format: Type = Invalid, Precision = Invalid, Channel order =  Invalid, Little Endian, Top "
       "to bottom"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision10Plus2Bits, kChannelOrderNone),
       "Format: Type = RGB, Precision = 10+2 bits, Channel order =  None (error), Little Endian, "
       "Top to bottom"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits, kChannelOrderRGB, true, false),
       "Format: Type = RGB, Precision = 10 bits, Channel order =  RGB(A), Big Endian, Bottom to "
       "top"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision16BitFloat),
       "Format: Type = RGB, Precision = 16 bit float, Channel order =  RGB(A), Little Endian, Top "
       "to bottom"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision32BitInt),
       "Format: Type = RGB, Precision = 32 bit int, Channel order =  RGB(A), Little Endian, Top "
       "to bottom"},
  };
  for (const SCase& c : cases)
    EXPECT_EQ(DescribeFrameBufferFormat(c.format), c.text);
}

TEST(FrameBufferFormat, MatchingRule) {
  const FrameBufferFormat base = MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt);
  auto with = [&](auto change) {
    FrameBufferFormat f = base;
    change(f);
    return f;
  };
  struct SCase {
    FrameBufferFormat a, b;
    bool match;
  };
  FrameBufferFormat grey8 = MakeFormat(kFrameBufferTypeIntensity, kPrecision8Bits);
  FrameBufferFormat grey8Other = grey8;
  grey8Other.channelOrder = kChannelOrderBGR;
  grey8Other.bigEndian = true;
  FrameBufferFormat rgb8 = MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits);
  const SCase cases[] = {
      {base, base, true},
      {base, with([](auto& f) { f.bufferSize = 99; }), true},
      {base, with([](auto& f) { f.channelOrder = kChannelOrderBGR; }), false},
      {base, with([](auto& f) { f.bigEndian = true; }), false},
      {base, with([](auto& f) { f.topToBottom = false; }), false},
      {base, with([](auto& f) { f.lineStride = 4096; }), false},
      {base, with([](auto& f) { f.precision = kPrecision16BitFloat; }), false},
      {base, with([](auto& f) { f.type = kFrameBufferTypeRGB; }), false},
      {grey8, grey8Other, true},  // order ignored for Intensity, byte order for 8 bits
      {rgb8, with([&](auto& f) { f = rgb8, f.bigEndian = true; }), true},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision10Plus2Bits),
       MakeFormat(kFrameBufferTypeRGB, kPrecision10Plus2Bits, kChannelOrderRGB, true), false},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(FormatsMatch(cases[i].a, cases[i].b), cases[i].match) << "case " << i;
  }
}

// Bit layouts written out by hand.
TEST(SampleCodes, ExactBytesOfEveryLayout) {
  struct SCase {
    FrameBufferFormat format;
    uint32_t width;
    std::vector<uint32_t> codes;
    std::vector<uint8_t> bytes;
  };
  const SCase cases[] = {
      // 10-bit RGB: 1023 << 22 | 0 << 12 | 512 << 2 = 0xFFC00800.
      {MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits),
       1,
       {1023, 0, 512},
       {0x00, 0x08, 0xC0, 0xFF}},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits, kChannelOrderRGB, true),
       1,
       {1023, 0, 512},
       {0xFF, 0xC0, 0x08, 0x00}},
      // 10-bit RGBA, one pixel: 0x00400C00 (1, 3, 0 → 1 << 22 | 3 << 12) then 0xFFC00000 (1023).
      {MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits),
       1,
       {1, 3, 0, 1023},
       {0x00, 0x30, 0x40, 0x00, 0x00, 0x00, 0xC0, 0xFF}},
      // 10-bit Intensity, four pixels: (1, 2, 3) = 0x00402008 | 4 << 2... and a word with 4 alone.
      {MakeFormat(kFrameBufferTypeIntensity, kPrecision10Bits),
       4,
       {1, 2, 3, 4},
       {0x0C, 0x20, 0x40, 0x00, 0x00, 0x00, 0x00, 0x01}},
      // 10+2 RGBA: 1023 << 22 | 1 << 12 | 2 << 2 | 3 = 0xFFC0100B.
      {MakeFormat(kFrameBufferTypeRGBA, kPrecision10Plus2Bits),
       1,
       {1023, 1, 2, 3},
       {0x0B, 0x10, 0xC0, 0xFF}},
      {MakeFormat(kFrameBufferTypeRGBA, kPrecision10Plus2Bits, kChannelOrderRGB, true),
       1,
       {1023, 1, 2, 3},
       {0xFF, 0xC0, 0x10, 0x0B}},
      {MakeFormat(kFrameBufferTypeIntensity, kPrecision10Plus2Bits),
       1,
       {0x155},
       {0, 0, 0x40, 0x55}},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt),
       1,
       {0x1234, 0xABCD, 0x00FF},
       {0x34, 0x12, 0xCD, 0xAB, 0xFF, 0x00}},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt, kChannelOrderRGB, true),
       1,
       {0x1234, 0xABCD, 0x00FF},
       {0x12, 0x34, 0xAB, 0xCD, 0x00, 0xFF}},
      {MakeFormat(kFrameBufferTypeIntensity, kPrecision32BitInt, kChannelOrderRGB, true),
       1,
       {0x01020304},
       {1, 2, 3, 4}},
      {MakeFormat(kFrameBufferTypeIntensity, kPrecision32BitFloat),
       1,
       {0x3F800000},
       {0, 0, 0x80, 0x3F}},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits, kChannelOrderRGB, true),
       2,
       {1, 2, 3, 4, 5, 6},
       {1, 2, 3, 4, 5, 6}},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const SCase& c = cases[i];
    std::vector<uint8_t> line(c.bytes.size() + 8, 0xEE);
    WriteSampleCodes(c.codes.data(), c.format, c.width, line.data());
    EXPECT_EQ(std::vector<uint8_t>(line.begin(), line.begin() + c.bytes.size()), c.bytes)
        << "case " << i;
    for (size_t k = c.bytes.size(); k < line.size(); ++k) {
      ASSERT_EQ(line[k], 0xEE) << "case " << i << " wrote past its pixels";
    }
    std::vector<uint32_t> back(c.codes.size());
    ReadSampleCodes(c.bytes.data(), c.format, c.width, back.data());
    EXPECT_EQ(back, c.codes) << "case " << i;
  }
}

std::string PathText(const COvComplexFrameBuffer& buffer) {
  return buffer.PipelinePath().Text();
}

TEST(ComplexFrameBuffer, ConstructorHistoryTexts) {
  COvComplexFrameBuffer empty;
  EXPECT_EQ(PathText(empty), "Constructed empty\n");
  EXPECT_FALSE(empty.HasPixels());
  EXPECT_TRUE(empty.IsKindOf(COvFrameBuffer::kTypeId));
  EXPECT_TRUE(empty.IsKindOf(COvComplexFrameBuffer::kTypeId));
  EXPECT_FALSE(empty.IsKindOf(COvSimpleFrameBuffer::kTypeId));
  EXPECT_EQ(empty.TypeId(), COvComplexFrameBuffer::kTypeId);

  const FrameBufferFormat rgba = MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits);
  const std::string rgbaText =
      "Format: Type = RGBA, Precision = 8 bits, Channel order =  RGB(A), Top to bottom";
  COvSharedBuffer* shared = new COvSharedBuffer;
  ASSERT_TRUE(shared->Allocate(64));
  {
    COvComplexFrameBuffer wrapped(shared, 4, 2, rgba, 16);
    EXPECT_EQ(PathText(wrapped), "Constructed from a shared buffer\nSize: 4 x 2\n");
    COvComplexFrameBuffer copy(wrapped);
    EXPECT_EQ(PathText(copy),
              "Constructed from a shared buffer\nSize: 4 x 2\n"
              "Constructed as a copy (see pipeline above)\nSize: 4 x 2\n" +
                  rgbaText + "\n");
    COvComplexFrameBuffer same(wrapped, rgba);
    EXPECT_EQ(PathText(same),
              "Constructed from a shared buffer\nSize: 4 x 2\n"
              "Constructed as a copy (see pipeline above) with format conversion\n"
              "Size: 4 x 2\n" +
                  rgbaText + "\n");
    EXPECT_EQ(shared->ReferenceCount(), 4u);
    COvComplexFrameBuffer inPlace(COvComplexFrameBuffer::kInPlace, copy, rgba);
    EXPECT_EQ(PathText(inPlace), PathText(copy) +
                                     "Constructed in-place (see pipeline above)\n"
                                     "Size: 4 x 2\n");
  }
  EXPECT_EQ(shared->ReferenceCount(), 1u);
  {
    // 4 × 16 + 16 bytes do not fit in 64: the block grows while only its creator holds it.
    COvComplexFrameBuffer grown(shared, 4, 4, rgba, 16);
    shared->Release();
    ASSERT_TRUE(grown.HasPixels());
    EXPECT_EQ(PathText(grown), "Constructed from a shared buffer with resizing\nSize: 4 x 4\n");
    EXPECT_GE(grown.SharedBuffer()->Size(), 80u);
    for (uint32_t y = 0; y < 4; ++y)
      std::memset(grown.Line(y), int(y + 1), 16);

    // In place to float needs 16 + 4 × 64 bytes: the sole owner's block grows under it.
    const FrameBufferFormat wide = MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat);
    COvComplexFrameBuffer resized(COvComplexFrameBuffer::kInPlace, grown, wide);
    EXPECT_EQ(PathText(resized), PathText(grown) +
                                     "Constructed in-place with resizing (see pipeline above)\n"
                                     "Size: 4 x 4\n");
    COvSharedBuffer* block = grown.SharedBuffer();
    EXPECT_EQ(resized.SharedBuffer(), block);
    EXPECT_GE(block->Size(), 16u + 4 * 64);
    EXPECT_EQ(grown.Line(0), block->Data() + 16);
    EXPECT_EQ(grown.Line(3)[15], 4) << "the source's pixels move with the block";
    EXPECT_EQ(resized.Line(3), block->Data() + 16 + 3 * 64);

    // With a third buffer on the block, the source first takes a copy of its own.
    COvComplexFrameBuffer third(grown);
    const FrameBufferFormat wider =
        MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat, kChannelOrderRGB, false, true, 512);
    COvComplexFrameBuffer again(COvComplexFrameBuffer::kInPlace, grown, wider);
    ASSERT_TRUE(again.HasPixels());
    EXPECT_EQ(third.SharedBuffer(), block);
    EXPECT_NE(grown.SharedBuffer(), block);
    EXPECT_EQ(again.SharedBuffer(), grown.SharedBuffer());
    EXPECT_EQ(PictureBytes(third), PictureBytes(grown));
    EXPECT_NE(PathText(grown).find("Buffer was made unique (copied)"), std::string::npos);
  }
}

TEST(ComplexFrameBuffer, SharedBlockInUseIsNotGrown) {
  COvSharedBuffer* shared = new COvSharedBuffer;
  ASSERT_TRUE(shared->Allocate(32));
  const FrameBufferFormat rgba = MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits);
  {
    COvComplexFrameBuffer holder(shared, 2, 2, rgba, 0);
    uint8_t* const data = shared->Data();
    COvComplexFrameBuffer tooBig(shared, 8, 8, rgba, 0);
    EXPECT_FALSE(tooBig.HasPixels());
    EXPECT_EQ(PathText(tooBig), "");
    EXPECT_EQ(shared->Data(), data);
    EXPECT_EQ(holder.Line(0), data);
    EXPECT_EQ(shared->ReferenceCount(), 2u);
  }
  EXPECT_EQ(shared->ReferenceCount(), 1u);
  shared->Release();
}

TEST(ComplexFrameBuffer, LinePointersForBothOrientations) {
  for (bool topToBottom : {true, false}) {
    COvSharedBuffer* shared = new COvSharedBuffer;
    ASSERT_TRUE(shared->Allocate(1024));
    const FrameBufferFormat format =
        MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits, kChannelOrderBGR, false, topToBottom);
    COvComplexFrameBuffer buffer(shared, 5, 4, format, 8);  // stride round4(15) = 16
    ASSERT_TRUE(buffer.HasPixels());
    EXPECT_EQ(buffer.LineStride(), 16u);
    EXPECT_EQ(buffer.FirstLineInMemory(), shared->Data() + 8);
    for (uint32_t y = 0; y < 4; ++y) {
      const uint32_t row = topToBottom ? y : 3 - y;
      EXPECT_EQ(buffer.Line(y), shared->Data() + 8 + row * 16) << topToBottom << " " << y;
    }
    shared->Release();
  }
}

TEST(ComplexFrameBuffer, StrideBeyond32BitsIsRefused) {
  COvComplexFrameBuffer buffer;
  const FrameBufferFormat rgba = MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat);
  EXPECT_FALSE(buffer.bAllocateNewBuffer(rgba, 0x80000000u, 1));
  // The stride fits, the picture does not fit in memory.
  EXPECT_FALSE(buffer.bAllocateNewBuffer(MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits),
                                         0x3FFFFFFFu, 0xFFFFFFFFu));
  EXPECT_FALSE(buffer.HasPixels());
  EXPECT_EQ(PathText(buffer), "Constructed empty\n");
  ASSERT_TRUE(buffer.bAllocateNewBuffer(rgba, 3, 2));
  EXPECT_EQ(PathText(buffer), "Constructed empty\nAllocated new buffer\nSize: 3 x 2\n");
}

TEST(ComplexFrameBuffer, SharingAndMakeUnique) {
  const FrameBufferFormat rgba = MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits);
  auto original = NewBuffer(rgba, 3, 2, 0x11);
  COvComplexFrameBuffer copy(*original, rgba);
  ASSERT_TRUE(copy.HasPixels());
  EXPECT_EQ(copy.SharedBuffer(), original->SharedBuffer());
  EXPECT_EQ(copy.Line(1), original->Line(1));
  EXPECT_EQ(original->SharedBuffer()->ReferenceCount(), 2u);

  const std::string before = PathText(copy);
  ASSERT_TRUE(copy.bMakeUnique());
  EXPECT_NE(copy.SharedBuffer(), original->SharedBuffer());
  EXPECT_EQ(PictureBytes(copy), PictureBytes(*original));
  EXPECT_EQ(PathText(copy), before + "Buffer was made unique (copied)\n");
  copy.Line(1)[0] = 0x99;
  EXPECT_EQ(original->Line(1)[0], 0x11);
  EXPECT_EQ(original->SharedBuffer()->ReferenceCount(), 1u);

  // A sole owner has nothing to do.
  const std::string unique = PathText(copy);
  ASSERT_TRUE(copy.bMakeUnique());
  EXPECT_EQ(PathText(copy), unique);
}

TEST(ComplexFrameBuffer, EnsureAlignmentMovesPixelsOfASoleOwner) {
  COvSharedBuffer* shared = new COvSharedBuffer;
  ASSERT_TRUE(shared->Allocate(256));
  for (int i = 0; i < 256; ++i)
    shared->Data()[i] = static_cast<uint8_t>(i);
  const FrameBufferFormat rgba =
      MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, kChannelOrderRGB, false, false);
  COvComplexFrameBuffer buffer(shared, 4, 3, rgba, 21);
  shared->Release();
  const std::vector<uint8_t> picture = PictureBytes(buffer);
  ASSERT_TRUE(buffer.bEnsureAlignment());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer.FirstLineInMemory()) % 16, 0u);
  EXPECT_EQ(buffer.FirstLineInMemory(), buffer.SharedBuffer()->Start() + 16);
  EXPECT_EQ(PictureBytes(buffer), picture);
  EXPECT_NE(PathText(buffer).find("Data was shifted to ensure alignment\n"), std::string::npos);

  // Shared: a private aligned copy instead of moving what the other buffer sees.
  COvComplexFrameBuffer other(buffer);
  COvSharedBuffer* block = new COvSharedBuffer;
  ASSERT_TRUE(block->Allocate(256));
  std::memset(block->Data(), 7, 256);
  COvComplexFrameBuffer misaligned(block, 4, 3, rgba, 3);
  COvComplexFrameBuffer sharer(misaligned);
  block->Release();
  ASSERT_TRUE(misaligned.bEnsureAlignment());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(misaligned.FirstLineInMemory()) % 16, 0u);
  EXPECT_EQ(sharer.FirstLineInMemory(), sharer.SharedBuffer()->Data() + 3);
  EXPECT_EQ(PictureBytes(misaligned), PictureBytes(sharer));
}

TEST(ComplexFrameBuffer, MirrorHorizontally) {
  const FrameBufferFormat rgb = MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits);
  auto buffer = NewBuffer(rgb, 3, 2);
  const uint8_t line0[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  std::memcpy(buffer->Line(0), line0, 9);
  std::memcpy(buffer->Line(1), line0, 9);
  COvComplexFrameBuffer sharer(*buffer);
  ASSERT_TRUE(buffer->bMirrorHorizontally());
  const uint8_t mirrored[9] = {7, 8, 9, 4, 5, 6, 1, 2, 3};
  EXPECT_EQ(std::memcmp(buffer->Line(0), mirrored, 9), 0);
  EXPECT_EQ(std::memcmp(buffer->Line(1), mirrored, 9), 0);
  EXPECT_EQ(std::memcmp(sharer.Line(0), line0, 9), 0) << "a sharing buffer must not change";
  const std::string text = PathText(*buffer);
  EXPECT_EQ(text.substr(text.size() - 22), "Mirrored horizontally\n");

  // Three-channel "10 bits" is one word per pixel.
  auto words = NewBuffer(MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits), 2, 1);
  const uint32_t pair[2] = {0x11223344, 0x55667788};
  std::memcpy(words->Line(0), pair, 8);
  ASSERT_TRUE(words->bMirrorHorizontally());
  const uint32_t swapped[2] = {0x55667788, 0x11223344};
  EXPECT_EQ(std::memcmp(words->Line(0), swapped, 8), 0);

  auto single = NewBuffer(rgb, 1, 2, 5);
  const std::string singleText = PathText(*single);
  EXPECT_TRUE(single->bMirrorHorizontally());
  EXPECT_EQ(PathText(*single), singleText);

  auto packed = NewBuffer(MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits), 4, 1);
  const std::string packedText = PathText(*packed);
  EXPECT_FALSE(packed->bMirrorHorizontally());
  EXPECT_EQ(PathText(*packed), packedText);
}

// Random codes at every precision: dropping alpha keeps the colour codes, adding it back puts
// the truncated value at the precision's scale.
TEST(ComplexFrameBuffer, StripAndAddAlphaAtEveryPrecision) {
  const uint32_t halfAlpha[kPrecisionCount] = {127, 511, 1, 32767, 0x3800, 2147483647, 0x3F000000};
  std::mt19937 random(7);
  for (uint32_t precision = 0; precision < kPrecisionCount; ++precision) {
    for (bool bigEndian : {false, true}) {
      SCOPED_TRACE("precision " + std::to_string(precision) + (bigEndian ? " BE" : " LE"));
      const uint32_t width = 5, height = 3;
      FrameBufferFormat rgba =
          MakeFormat(kFrameBufferTypeRGBA, precision, kChannelOrderBGR, bigEndian, false);
      auto buffer = NewBuffer(rgba, width, height);
      std::vector<std::vector<uint32_t>> codes(height, std::vector<uint32_t>(width * 4));
      for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t i = 0; i < width * 4; ++i) {
          const uint32_t full = FullScaleCode(rgba, i % 4);
          codes[y][i] = full == 0x3F800000 || full == 0x3C00 ? (random() & 0x3FFF)
                                                             : random() % (uint64_t{full} + 1);
        }
        WriteSampleCodes(codes[y].data(), rgba, width, buffer->Line(y));
      }
      COvComplexFrameBuffer sharer(*buffer);
      const std::vector<uint8_t> sharerBytes = PictureBytes(sharer);

      buffer->StripAlpha();
      EXPECT_EQ(buffer->Format().type, kFrameBufferTypeRGB);
      EXPECT_EQ(buffer->LineStride(), ComputeLineStride(buffer->Format(), width));
      EXPECT_EQ(PictureBytes(sharer), sharerBytes);
      std::vector<uint32_t> rgb(width * 3);
      for (uint32_t y = 0; y < height; ++y) {
        ReadSampleCodes(buffer->Line(y), buffer->Format(), width, rgb.data());
        for (uint32_t x = 0; x < width; ++x) {
          for (uint32_t c = 0; c < 3; ++c)
            ASSERT_EQ(rgb[x * 3 + c], codes[y][x * 4 + c]);
        }
      }

      ASSERT_TRUE(buffer->bAddAlpha(0.5f));
      EXPECT_EQ(buffer->Format().type, kFrameBufferTypeRGBA);
      std::vector<uint32_t> back(width * 4);
      for (uint32_t y = 0; y < height; ++y) {
        ReadSampleCodes(buffer->Line(y), buffer->Format(), width, back.data());
        for (uint32_t x = 0; x < width; ++x) {
          for (uint32_t c = 0; c < 3; ++c)
            ASSERT_EQ(back[x * 4 + c], codes[y][x * 4 + c]);
          ASSERT_EQ(back[x * 4 + 3], halfAlpha[precision]);
        }
      }
      const std::string text = PathText(*buffer);
      EXPECT_NE(text.find("Alpha channel stripped\nAlpha channel added, value: 0.5\n"),
                std::string::npos);
    }
  }
}

TEST(ComplexFrameBuffer, AlphaEdgeCases) {
  auto rgb = NewBuffer(MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits), 2, 1, 9);
  ASSERT_TRUE(rgb->bAddAlpha(1.7f));
  EXPECT_EQ(rgb->Line(0)[3], 255);
  EXPECT_EQ(rgb->Line(0)[0], 9);
  const std::string text = PathText(*rgb);
  EXPECT_EQ(text.substr(text.size() - 30), "Alpha channel added, value: 1\n");
  // Already RGBA: nothing to do.
  EXPECT_TRUE(rgb->bAddAlpha(0.0f));
  EXPECT_EQ(PathText(*rgb), text);

  auto grey = NewBuffer(MakeFormat(kFrameBufferTypeIntensity, kPrecision8Bits), 2, 1);
  const std::string greyText = PathText(*grey);
  EXPECT_FALSE(grey->bAddAlpha(0.5f));
  grey->StripAlpha();
  EXPECT_EQ(PathText(*grey), greyText);
  EXPECT_EQ(grey->Format().type, kFrameBufferTypeIntensity);

  auto negative = NewBuffer(MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt), 1, 1);
  ASSERT_TRUE(negative->bAddAlpha(-3.0f));
  uint16_t alpha = 0xFFFF;
  std::memcpy(&alpha, negative->Line(0) + 6, 2);
  EXPECT_EQ(alpha, 0);
}

TEST(SimpleFrameBuffer, WrappedWithoutCopy) {
  std::vector<uint8_t> memory(4 + 3 * 12, 0);
  COvSimpleFrameBuffer simple(memory.data(), memory.size(), 3, 3, 4, 12, 4, kChannelOrderRGB,
                              false);
  ASSERT_TRUE(simple.IsValid());
  EXPECT_EQ(simple.Line(0), memory.data() + 4 + 24);
  EXPECT_TRUE(simple.IsKindOf(COvSimpleFrameBuffer::kTypeId));

  COvComplexFrameBuffer wrapper(simple);
  ASSERT_TRUE(wrapper.HasPixels());
  EXPECT_EQ(PathText(wrapper), "Constructed as a SimpleFB wrapper\nSize: 3 x 3\n");
  EXPECT_EQ(wrapper.Format().type, kFrameBufferTypeRGBA);
  EXPECT_EQ(wrapper.Format().precision, kPrecision8Bits);
  EXPECT_EQ(wrapper.Format().channelOrder, kChannelOrderRGB);
  EXPECT_FALSE(wrapper.Format().topToBottom);
  EXPECT_EQ(wrapper.LineStride(), 12u);
  EXPECT_EQ(wrapper.Offset(), 4u);
  EXPECT_EQ(wrapper.SharedBuffer()->ReferenceCount(), 1u);
  for (uint32_t y = 0; y < 3; ++y)
    EXPECT_EQ(wrapper.Line(y), simple.Line(y));
  wrapper.Line(2)[0] = 42;
  EXPECT_EQ(memory[4], 42);

  COvSimpleFrameBuffer rgb(memory.data(), memory.size(), 4, 3, 3, 12, 0, kChannelOrderBGR, true);
  EXPECT_EQ(COvComplexFrameBuffer(rgb).Format().type, kFrameBufferTypeRGB);

  // Lines that do not fit, strides shorter than a line, odd channel counts.
  const COvSimpleFrameBuffer invalid[] = {
      {memory.data(), memory.size(), 3, 4, 4, 12, 4, kChannelOrderRGB, true},
      {memory.data(), memory.size(), 4, 3, 4, 12, 0, kChannelOrderRGB, true},
      {memory.data(), memory.size(), 3, 3, 2, 12, 0, kChannelOrderRGB, true},
      {nullptr, 0, 1, 1, 3, 3, 0, kChannelOrderRGB, true},
  };
  for (const auto& view : invalid) {
    EXPECT_FALSE(view.IsValid());
    EXPECT_FALSE(COvComplexFrameBuffer(view).HasPixels());
  }
}

}  // namespace
