// The frame-buffer model: layouts, format texts, sample bytes, history, sharing, pixel operations.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "support/frame_buffer_helpers.h"

namespace {

using namespace Tincta;
using crandle_test::MakeFormat;
using crandle_test::NewBuffer;
using crandle_test::PictureBytes;
using Bytes = std::vector<uint8_t>;
constexpr uint32_t kI = kFrameBufferTypeIntensity, kRGB = kFrameBufferTypeRGB,
                   kRGBA = kFrameBufferTypeRGBA;
constexpr uint32_t kTypes[3] = {kI, kRGB, kRGBA};

std::string Path(const COvComplexFrameBuffer& buffer) {
  return buffer.PipelinePath().Text();
}

Bytes Hex(const std::string& digits) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(uint8_t(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

// Worked out by hand from the stride rules; note three-channel "10 bits" at one word a pixel.
TEST(FrameBufferFormat, StridesAndBytesPerPixelForEveryTypeAndPrecision) {
  const struct {
    uint32_t width, strides[3][kPrecisionCount];
  } strides[] = {
      {5, {{8, 8, 20, 12, 12, 20, 20}, {16, 20, 20, 32, 32, 60, 60}, {20, 28, 20, 40, 40, 80, 80}}},
      {7,
       {{8, 12, 28, 16, 16, 28, 28}, {24, 28, 28, 44, 44, 84, 84}, {28, 40, 28, 56, 56, 112, 112}}},
      {1, {{4, 4, 4, 4, 4, 4, 4}, {4, 4, 4, 8, 8, 12, 12}, {4, 8, 4, 8, 8, 16, 16}}}};
  const uint32_t bytesPerPixel[3][kPrecisionCount] = {
      {1, 0, 4, 2, 2, 4, 4}, {3, 4, 4, 6, 6, 12, 12}, {4, 0, 4, 8, 8, 16, 16}};
  for (int t = 0; t < 3; ++t)
    for (uint32_t p = 0; p < kPrecisionCount; ++p) {
      for (const auto& row : strides)
        EXPECT_EQ(ComputeLineStride(MakeFormat(kTypes[t], p), row.width), row.strides[t][p])
            << row.width << " " << t << " " << p;
      EXPECT_EQ(BytesPerPixel(MakeFormat(kTypes[t], p)), bytesPerPixel[t][p]) << t << " " << p;
    }
  // A requested stride is a floor; one beyond 32 bits is reported whole for callers to refuse.
  EXPECT_EQ(ComputeLineStride(MakeFormat(kRGBA, kPrecision32BitFloat, 1, false, true, 128), 5),
            128u);
  EXPECT_EQ(ComputeLineStride(MakeFormat(kRGBA, kPrecision32BitFloat, 1, false, true, 8), 5), 80u);
  EXPECT_EQ(ComputeLineStride(MakeFormat(kRGBA, kPrecision32BitFloat), 0x80000000u), 0x800000000u);
}

TEST(FrameBufferFormat, DescriptionTextsAndMatchingRule) {
  const std::pair<FrameBufferFormat, const char*> cases[] = {
      {{}, "Format: Type = RGB, Precision = 8 bits, Channel order =  BGR(A), Bottom to top"},
      {MakeFormat(kRGBA, kPrecision32BitFloat),
       "Format: Type = RGBA, Precision = 32 bit float, Channel order =  RGB(A), Little Endian, Top "
       "to bottom"},
      {{kI, kPrecision16BitInt, kChannelOrderBGR, true, false, 4096, 64},
       "Format: Type = Intensity, Precision = 16 bit int, Big Endian, Bottom to top, Buffer size = "
       "4096, Line stride = 64"},
      {MakeFormat(0x200, 9, 7),
       "Format: Type = Invalid, Precision = Invalid, Channel order =  Invalid, Little Endian, Top "
       "to bottom"},
      {MakeFormat(kRGB, kPrecision10Plus2Bits, kChannelOrderNone),
       "Format: Type = RGB, Precision = 10+2 bits, Channel order =  None (error), Little Endian, "
       "Top to bottom"}};
  for (const auto& [format, text] : cases)
    EXPECT_EQ(DescribeFrameBufferFormat(format), text);
  const char* words[] = {"8 bits",       "10 bits",    "10+2 bits",   "16 bit int",
                         "16 bit float", "32 bit int", "32 bit float"};
  for (uint32_t p = 0; p < kPrecisionCount; ++p)
    EXPECT_STREQ(PrecisionWord(p), words[p]);
  // Matching: all fields but buffer size; channel order not for Intensity, byte order not 8 bits.
  const FrameBufferFormat base = MakeFormat(kRGBA, kPrecision16BitInt);
  FrameBufferFormat changed[7] = {base, base, base, base, base, base, base};
  changed[0].bufferSize = 99;
  changed[1].channelOrder = kChannelOrderBGR;
  changed[2].bigEndian = true;
  changed[3].topToBottom = false;
  changed[4].lineStride = 4096;
  changed[5].precision = kPrecision16BitFloat;
  changed[6].type = kRGB;
  for (int i = 0; i < 7; ++i)
    EXPECT_EQ(FormatsMatch(base, changed[i]), i == 0) << i;
  EXPECT_TRUE(FormatsMatch(MakeFormat(kI, 0), MakeFormat(kI, 0, kChannelOrderBGR, true)));
  EXPECT_TRUE(FormatsMatch(MakeFormat(kRGB, 0), MakeFormat(kRGB, 0, 1, true)));
  EXPECT_FALSE(FormatsMatch(MakeFormat(kRGB, kPrecision10Plus2Bits),
                            MakeFormat(kRGB, kPrecision10Plus2Bits, 1, true)));
}

// Bit layouts written out by hand; nothing is written past the pixels.
TEST(SampleCodes, ExactBytesOfEveryLayout) {
  const std::tuple<FrameBufferFormat, uint32_t, std::vector<uint32_t>, const char*> cases[] = {
      // 1023 << 22 | 0 << 12 | 512 << 2 = 0xFFC00800, in either byte order.
      {MakeFormat(kRGB, kPrecision10Bits), 1, {1023, 0, 512}, "0008C0FF"},
      {MakeFormat(kRGB, kPrecision10Bits, 1, true), 1, {1023, 0, 512}, "FFC00800"},
      // Three samples to a word: 1 << 22 | 3 << 12 | 0 << 2, then 1023 << 22 alone.
      {MakeFormat(kRGBA, kPrecision10Bits), 1, {1, 3, 0, 1023}, "003040000000C0FF"},
      {MakeFormat(kI, kPrecision10Bits), 4, {1, 2, 3, 4}, "0C20400000000001"},
      // 10+2: 1023 << 22 | 1 << 12 | 2 << 2 | alpha 3.
      {MakeFormat(kRGBA, kPrecision10Plus2Bits), 1, {1023, 1, 2, 3}, "0B10C0FF"},
      {MakeFormat(kRGBA, kPrecision10Plus2Bits, 1, true), 1, {1023, 1, 2, 3}, "FFC0100B"},
      {MakeFormat(kI, kPrecision10Plus2Bits), 1, {0x155}, "00004055"},
      {MakeFormat(kRGB, kPrecision16BitInt, 1, true), 1, {0x1234, 0xABCD, 0xFF}, "1234ABCD00FF"},
      {MakeFormat(kI, kPrecision32BitInt, 1, true), 1, {0x01020304}, "01020304"}};
  for (const auto& [format, width, codes, hex] : cases) {
    SCOPED_TRACE(DescribeFrameBufferFormat(format));
    const Bytes bytes = Hex(hex);
    Bytes line(bytes.size() + 8, 0xEE);
    WriteSampleCodes(codes.data(), format, width, line.data());
    EXPECT_EQ(line, Hex(hex + std::string(16, 'E')));
    std::vector<uint32_t> back(codes.size());
    ReadSampleCodes(bytes.data(), format, width, back.data());
    EXPECT_EQ(back, codes);
  }
}

// Each constructor's lines of history, the copies' sharing, and the growth of a block: only
// while one buffer alone holds it, taking that buffer's pixels and line pointers along.
TEST(ComplexFrameBuffer, ConstructorsHistorySharingAndGrowth) {
  const COvComplexFrameBuffer empty;
  EXPECT_EQ(Path(empty), "Constructed empty\n");
  const FrameBufferFormat rgba = MakeFormat(kRGBA, kPrecision8Bits);
  const std::string size = "Size: 4 x 2\n", copied = "Constructed as a copy (see pipeline above)",
                    rgbaText = DescribeFrameBufferFormat(rgba) + "\n";
  COvSharedBuffer* shared = new COvSharedBuffer;
  ASSERT_TRUE(shared->Allocate(64));
  {
    const COvComplexFrameBuffer wrapped(shared, 4, 2, rgba, 16);
    const std::string wrappedText = "Constructed from a shared buffer\n" + size;
    EXPECT_EQ(Path(wrapped), wrappedText);
    COvComplexFrameBuffer copy(wrapped);
    EXPECT_EQ(Path(copy), wrappedText + copied + "\n" + size + rgbaText);
    const COvComplexFrameBuffer same(wrapped, rgba);
    EXPECT_EQ(Path(same), wrappedText + copied + " with format conversion\n" + size + rgbaText);
    EXPECT_EQ(same.Line(1), wrapped.Line(1));
    const COvComplexFrameBuffer inPlace(COvComplexFrameBuffer::kInPlace, copy, rgba);
    EXPECT_EQ(Path(inPlace), Path(copy) + "Constructed in-place (see pipeline above)\n" + size);
    EXPECT_EQ(shared->ReferenceCount(), 5u);
    const COvComplexFrameBuffer tooBig(shared, 8, 8, rgba, 0);  // shared: not grown
    EXPECT_TRUE(!tooBig.HasPixels() && Path(tooBig).empty() &&
                wrapped.Line(0) == shared->Data() + 16);
  }
  EXPECT_EQ(shared->ReferenceCount(), 1u);
  COvComplexFrameBuffer grown(shared, 4, 4, rgba, 16);  // 80 bytes do not fit in 64
  shared->Release();
  EXPECT_EQ(Path(grown), "Constructed from a shared buffer with resizing\nSize: 4 x 4\n");
  for (uint32_t y = 0; y < 4; ++y)
    std::memset(grown.Line(y), int(y + 1), 16);
  // In place to float needs 16 + 4 × 64 bytes: the block grows under its sole owner.
  const COvComplexFrameBuffer resized(COvComplexFrameBuffer::kInPlace, grown,
                                      MakeFormat(kRGBA, kPrecision32BitFloat));
  EXPECT_EQ(Path(resized),
            Path(grown) + "Constructed in-place with resizing (see pipeline above)\nSize: 4 x 4\n");
  COvSharedBuffer* block = grown.SharedBuffer();
  EXPECT_TRUE(resized.SharedBuffer() == block && block->Size() >= 16 + 4 * 64);
  EXPECT_TRUE(grown.Line(0) == block->Data() + 16 && resized.Line(3) == block->Data() + 16 + 192);
  EXPECT_EQ(grown.Line(3)[15], 4) << "the source's pixels move with the block";
  // With a third buffer on the block, the source first takes a copy of its own.
  const COvComplexFrameBuffer third(grown);
  const COvComplexFrameBuffer again(COvComplexFrameBuffer::kInPlace, grown,
                                    MakeFormat(kRGBA, kPrecision32BitFloat, 1, false, true, 512));
  EXPECT_TRUE(third.SharedBuffer() == block && grown.SharedBuffer() != block &&
              again.SharedBuffer() == grown.SharedBuffer());
  EXPECT_EQ(PictureBytes(third), PictureBytes(grown));
}

// Line 0 is the top line in either order; a stride beyond 32 bits or memory is refused untraced.
TEST(ComplexFrameBuffer, LinePointersStridesAndRefusals) {
  for (bool topToBottom : {true, false}) {
    auto buffer = NewBuffer(MakeFormat(kRGB, kPrecision8Bits, 0, false, topToBottom, 24), 5, 4);
    EXPECT_EQ(buffer->LineStride(), 24u);
    for (uint32_t y = 0; y < 4; ++y)
      EXPECT_EQ(buffer->Line(y), buffer->FirstLineInMemory() + (topToBottom ? y : 3 - y) * 24);
  }
  COvComplexFrameBuffer buffer;
  EXPECT_FALSE(buffer.bAllocateNewBuffer(MakeFormat(kRGBA, kPrecision32BitFloat), 0x80000000u, 1));
  EXPECT_FALSE(
      buffer.bAllocateNewBuffer(MakeFormat(kRGBA, kPrecision8Bits), 0x3FFFFFFFu, 0xFFFFFFFFu));
  EXPECT_EQ(Path(buffer), "Constructed empty\n");
  ASSERT_TRUE(buffer.bAllocateNewBuffer(MakeFormat(kRGBA, kPrecision8Bits), 3, 2));
  EXPECT_EQ(Path(buffer), "Constructed empty\nAllocated new buffer\nSize: 3 x 2\n");
}

// Writing after make unique or mirroring leaves a buffer that shared the block as it was.
TEST(ComplexFrameBuffer, MakeUniqueMirrorAndAlignment) {
  auto original = NewBuffer(MakeFormat(kRGB, kPrecision8Bits), 3, 2);
  for (uint32_t y = 0; y < 2; ++y)
    std::memcpy(original->Line(y), "\x01\x02\x03\x04\x05\x06\x07\x08\x09", 9);
  COvComplexFrameBuffer copy(*original, original->Format());
  ASSERT_TRUE(copy.SharedBuffer() == original->SharedBuffer() && copy.bMakeUnique());
  EXPECT_NE(copy.SharedBuffer(), original->SharedBuffer());
  EXPECT_EQ(PictureBytes(copy), PictureBytes(*original));
  EXPECT_TRUE(Path(copy).ends_with("Buffer was made unique (copied)\n"));
  copy.Line(1)[0] = 0x99;
  EXPECT_EQ(original->Line(1)[0], 0x01);
  const std::string unique = Path(copy);
  ASSERT_TRUE(copy.bMakeUnique());
  EXPECT_EQ(Path(copy), unique) << "a sole owner has nothing to do";

  const COvComplexFrameBuffer sharer(*original);
  ASSERT_TRUE(original->bMirrorHorizontally());
  EXPECT_EQ(PictureBytes(*original), Hex("070809040506010203070809040506010203"));
  EXPECT_EQ(PictureBytes(sharer), Hex("010203040506070809010203040506070809"));
  EXPECT_TRUE(Path(*original).ends_with("Mirrored horizontally\n"));
  // A single column needs nothing; packed 10-bit RGBA has no pixel to move.
  auto single = NewBuffer(MakeFormat(kRGB, kPrecision8Bits), 1, 2, 5),
       packed = NewBuffer(MakeFormat(kRGBA, kPrecision10Bits), 4, 2, 5);
  const std::string singleText = Path(*single), packedText = Path(*packed);
  EXPECT_TRUE(single->bMirrorHorizontally() && Path(*single) == singleText);
  EXPECT_TRUE(!packed->bMirrorHorizontally() && Path(*packed) == packedText);

  // A sole owner is aligned by moving its pixels within its own block.
  auto* block = new COvSharedBuffer;
  ASSERT_TRUE(block->Allocate(256));
  COvComplexFrameBuffer sole(block, 4, 3, MakeFormat(kRGBA, kPrecision8Bits, 1, false, false), 21);
  block->Release();
  for (uint32_t y = 0; y < 3; ++y)
    std::memset(sole.Line(y), int(y + 1), 16);
  const Bytes picture = PictureBytes(sole);
  ASSERT_TRUE(sole.bEnsureAlignment());
  EXPECT_TRUE(reinterpret_cast<uintptr_t>(sole.FirstLineInMemory()) % 16 == 0 &&
              sole.SharedBuffer() == block);
  EXPECT_EQ(PictureBytes(sole), picture);
  EXPECT_TRUE(Path(sole).ends_with("Data was shifted to ensure alignment\n"));
}

// Alpha is dropped, then added back as trunc(value × 255), clamped, and once more changes nothing;
// a buffer that shared the block is not changed; Intensity neither takes nor drops alpha.
TEST(ComplexFrameBuffer, StripAndAddAlpha) {
  auto buffer = NewBuffer(MakeFormat(kRGBA, kPrecision8Bits, kChannelOrderBGR, false, false), 2, 2);
  for (uint32_t y = 0; y < 2; ++y)
    std::memcpy(buffer->Line(y), "\x01\x02\x03\x04\x05\x06\x07\x08", 8);
  const COvComplexFrameBuffer sharer(*buffer);
  buffer->StripAlpha();
  EXPECT_TRUE(buffer->Format().type == kRGB && buffer->LineStride() == 8);
  EXPECT_EQ(PictureBytes(*buffer), Hex("010203050607010203050607"));
  ASSERT_TRUE(buffer->bAddAlpha(0.5f) && buffer->bAddAlpha(0.0f));
  EXPECT_EQ(PictureBytes(*buffer), Hex("0102037F0506077F0102037F0506077F"));
  EXPECT_EQ(PictureBytes(sharer), Hex("01020304050607080102030405060708"));
  EXPECT_TRUE(Path(*buffer).ends_with("Alpha channel stripped\nAlpha channel added, value: 0.5\n"));
  buffer->StripAlpha();
  ASSERT_TRUE(buffer->bAddAlpha(1.7f));
  EXPECT_EQ(PictureBytes(*buffer), Hex("010203FF050607FF010203FF050607FF"));
  EXPECT_TRUE(Path(*buffer).ends_with("Alpha channel added, value: 1\n"));
  auto grey = NewBuffer(MakeFormat(kI, kPrecision8Bits), 2, 1);
  const std::string greyText = Path(*grey);
  EXPECT_FALSE(grey->bAddAlpha(0.5f));
  grey->StripAlpha();
  EXPECT_TRUE(Path(*grey) == greyText && grey->Format().type == kI);
}

}  // namespace
