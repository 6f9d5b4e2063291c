// The frame-buffer model: layout tables, format texts, exact sample layouts, history lines, line
// pointers, sharing, and the pixel operations at every precision.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "engine/frame_buffer/simple_frame_buffer.h"
#include "frame_buffer_helpers.h"

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

TEST(FrameBufferFormat, DescriptionTexts) {
  FrameBufferFormat sized = MakeFormat(kI, kPrecision16BitInt, kChannelOrderBGR, true, false, 64);
  sized.bufferSize = 4096;
  const std::pair<FrameBufferFormat, const char*> cases[] = {
      {{}, "Format: Type = RGB, Precision = 8 bits, Channel order =  BGR(A), Bottom to top"},
      {MakeFormat(kRGBA, kPrecision32BitFloat),
       "Format: Type = RGBA, Precision = 32 bit float, Channel order =  RGB(A), Little Endian, Top "
       "to bottom"},
      {sized,
       "Format: Type = Intensity, Precision = 16 bit int, Big Endian, Bottom to top, Buffer size = "
       "4096, Line stride = 64"},
      {MakeFormat(kRGBA, kPrecision8Bits, 1, true),
       "Format: Type = RGBA, Precision = 8 bits, Channel order =  RGB(A), Top to bottom"},
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
}

// Channel order does not matter for Intensity, nor byte order for 8 bits; everything else does
// but the stated buffer size.
TEST(FrameBufferFormat, MatchingRule) {
  const FrameBufferFormat base = MakeFormat(kRGBA, kPrecision16BitInt);
  const auto with = [&](auto change) {
    FrameBufferFormat format = base;
    change(format);
    return format;
  };
  const std::tuple<FrameBufferFormat, FrameBufferFormat, bool> cases[] = {
      {base, with([](auto& f) { f.bufferSize = 99; }), true},
      {base, with([](auto& f) { f.channelOrder = kChannelOrderBGR; }), false},
      {base, with([](auto& f) { f.bigEndian = true; }), false},
      {base, with([](auto& f) { f.topToBottom = false; }), false},
      {base, with([](auto& f) { f.lineStride = 4096; }), false},
      {base, with([](auto& f) { f.precision = kPrecision16BitFloat; }), false},
      {base, with([](auto& f) { f.type = kRGB; }), false},
      {MakeFormat(kI, kPrecision8Bits), MakeFormat(kI, kPrecision8Bits, kChannelOrderBGR, true),
       true},
      {MakeFormat(kRGB, kPrecision8Bits), MakeFormat(kRGB, kPrecision8Bits, 1, true), true},
      {MakeFormat(kRGB, kPrecision10Plus2Bits), MakeFormat(kRGB, kPrecision10Plus2Bits, 1, true),
       false}};
  for (const auto& [a, b, match] : cases)
    EXPECT_EQ(FormatsMatch(a, b), match) << DescribeFrameBufferFormat(b);
}

// Bit layouts written out by hand; nothing is written past the pixels.
TEST(SampleCodes, ExactBytesOfEveryLayout) {
  const std::tuple<FrameBufferFormat, uint32_t, std::vector<uint32_t>, Bytes> cases[] = {
      // 1023 << 22 | 0 << 12 | 512 << 2 = 0xFFC00800, in either byte order.
      {MakeFormat(kRGB, kPrecision10Bits), 1, {1023, 0, 512}, {0x00, 0x08, 0xC0, 0xFF}},
      {MakeFormat(kRGB, kPrecision10Bits, 1, true), 1, {1023, 0, 512}, {0xFF, 0xC0, 0x08, 0x00}},
      // Three samples to a word: 1 << 22 | 3 << 12 | 0 << 2, then 1023 << 22 alone.
      {MakeFormat(kRGBA, kPrecision10Bits),
       1,
       {1, 3, 0, 1023},
       {0x00, 0x30, 0x40, 0x00, 0x00, 0x00, 0xC0, 0xFF}},
      {MakeFormat(kI, kPrecision10Bits),
       4,
       {1, 2, 3, 4},
       {0x0C, 0x20, 0x40, 0x00, 0x00, 0x00, 0x00, 0x01}},
      // 10+2: 1023 << 22 | 1 << 12 | 2 << 2 | alpha 3.
      {MakeFormat(kRGBA, kPrecision10Plus2Bits), 1, {1023, 1, 2, 3}, {0x0B, 0x10, 0xC0, 0xFF}},
      {MakeFormat(kRGBA, kPrecision10Plus2Bits, 1, true),
       1,
       {1023, 1, 2, 3},
       {0xFF, 0xC0, 0x10, 0x0B}},
      {MakeFormat(kI, kPrecision10Plus2Bits), 1, {0x155}, {0, 0, 0x40, 0x55}},
      {MakeFormat(kRGB, kPrecision16BitInt, 1, true),
       1,
       {0x1234, 0xABCD, 0x00FF},
       {0x12, 0x34, 0xAB, 0xCD, 0x00, 0xFF}},
      {MakeFormat(kI, kPrecision32BitInt, 1, true), 1, {0x01020304}, {1, 2, 3, 4}},
      {MakeFormat(kI, kPrecision32BitFloat), 1, {0x3F800000}, {0, 0, 0x80, 0x3F}}};
  for (const auto& [format, width, codes, bytes] : cases) {
    SCOPED_TRACE(DescribeFrameBufferFormat(format));
    Bytes line(bytes.size() + 8, 0xEE);
    WriteSampleCodes(codes.data(), format, width, line.data());
    EXPECT_EQ(Bytes(line.begin(), line.begin() + bytes.size()), bytes);
    EXPECT_EQ(Bytes(line.begin() + bytes.size(), line.end()), Bytes(8, 0xEE));
    std::vector<uint32_t> back(codes.size());
    ReadSampleCodes(bytes.data(), format, width, back.data());
    EXPECT_EQ(back, codes);
  }
}

// Each constructor's lines of history, the copies' sharing, and the growth of a block: only
// while one buffer alone holds it, taking that buffer's pixels and line pointers along.
TEST(ComplexFrameBuffer, ConstructorsHistorySharingAndGrowth) {
  COvComplexFrameBuffer empty;
  EXPECT_EQ(Path(empty), "Constructed empty\n");
  EXPECT_TRUE(empty.IsKindOf(COvFrameBuffer::kTypeId) &&
              empty.IsKindOf(COvComplexFrameBuffer::kTypeId));
  EXPECT_FALSE(empty.IsKindOf(COvSimpleFrameBuffer::kTypeId));
  const FrameBufferFormat rgba = MakeFormat(kRGBA, kPrecision8Bits);
  const std::string rgbaText =
      "Format: Type = RGBA, Precision = 8 bits, Channel order =  RGB(A), Top to bottom\n";
  COvSharedBuffer* shared = new COvSharedBuffer;
  ASSERT_TRUE(shared->Allocate(64));
  {
    const COvComplexFrameBuffer wrapped(shared, 4, 2, rgba, 16);
    const std::string wrappedText = "Constructed from a shared buffer\nSize: 4 x 2\n";
    EXPECT_EQ(Path(wrapped), wrappedText);
    COvComplexFrameBuffer copy(wrapped);
    EXPECT_EQ(Path(copy),
              wrappedText + "Constructed as a copy (see pipeline above)\nSize: 4 x 2\n" + rgbaText);
    const COvComplexFrameBuffer same(wrapped, rgba);
    EXPECT_EQ(
        Path(same),
        wrappedText +
            "Constructed as a copy (see pipeline above) with format conversion\nSize: 4 x 2\n" +
            rgbaText);
    EXPECT_EQ(same.Line(1), wrapped.Line(1));
    const COvComplexFrameBuffer inPlace(COvComplexFrameBuffer::kInPlace, copy, rgba);
    EXPECT_EQ(Path(inPlace),
              Path(copy) + "Constructed in-place (see pipeline above)\nSize: 4 x 2\n");
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
  EXPECT_EQ(grown.Line(0), block->Data() + 16);
  EXPECT_EQ(grown.Line(3)[15], 4) << "the source's pixels move with the block";
  EXPECT_EQ(resized.Line(3), block->Data() + 16 + 3 * 64);
  // With a third buffer on the block, the source first takes a copy of its own.
  const COvComplexFrameBuffer third(grown);
  const COvComplexFrameBuffer again(COvComplexFrameBuffer::kInPlace, grown,
                                    MakeFormat(kRGBA, kPrecision32BitFloat, 1, false, true, 512));
  EXPECT_TRUE(third.SharedBuffer() == block && grown.SharedBuffer() != block &&
              again.SharedBuffer() == grown.SharedBuffer());
  EXPECT_EQ(PictureBytes(third), PictureBytes(grown));
}

// Line 0 is the top line in either memory order; a requested stride larger than the computed
// one is kept; a stride beyond 32 bits or a picture beyond memory is refused without a trace.
TEST(ComplexFrameBuffer, LinePointersStridesAndRefusals) {
  for (bool topToBottom : {true, false}) {
    COvSharedBuffer* shared = new COvSharedBuffer;
    ASSERT_TRUE(shared->Allocate(1024));
    const COvComplexFrameBuffer buffer(
        shared, 5, 4, MakeFormat(kRGB, kPrecision8Bits, 0, false, topToBottom, 24), 8);
    shared->Release();
    EXPECT_EQ(buffer.LineStride(), 24u);
    for (uint32_t y = 0; y < 4; ++y)
      EXPECT_EQ(buffer.Line(y), buffer.SharedBuffer()->Data() + 8 + (topToBottom ? y : 3 - y) * 24);
  }
  COvComplexFrameBuffer buffer;
  EXPECT_FALSE(buffer.bAllocateNewBuffer(MakeFormat(kRGBA, kPrecision32BitFloat), 0x80000000u, 1));
  EXPECT_FALSE(
      buffer.bAllocateNewBuffer(MakeFormat(kRGBA, kPrecision8Bits), 0x3FFFFFFFu, 0xFFFFFFFFu));
  EXPECT_EQ(Path(buffer), "Constructed empty\n");
  ASSERT_TRUE(buffer.bAllocateNewBuffer(MakeFormat(kRGBA, kPrecision8Bits), 3, 2));
  EXPECT_EQ(Path(buffer), "Constructed empty\nAllocated new buffer\nSize: 3 x 2\n");
}

// Writing after make unique, mirroring or aligning leaves a buffer that shared the block as it
// was; a sole owner is aligned by moving its pixels within its own block.
TEST(ComplexFrameBuffer, MakeUniqueMirrorAndAlignment) {
  auto original = NewBuffer(MakeFormat(kRGB, kPrecision8Bits), 3, 2);
  for (uint32_t y = 0; y < 2; ++y)
    std::memcpy(original->Line(y), "\x01\x02\x03\x04\x05\x06\x07\x08\x09", 9);
  COvComplexFrameBuffer copy(*original, original->Format());
  ASSERT_TRUE(copy.SharedBuffer() == original->SharedBuffer() && copy.bMakeUnique());
  EXPECT_NE(copy.SharedBuffer(), original->SharedBuffer());
  EXPECT_EQ(PictureBytes(copy), PictureBytes(*original));
  EXPECT_EQ(Path(copy).substr(Path(copy).size() - 32), "Buffer was made unique (copied)\n");
  copy.Line(1)[0] = 0x99;
  EXPECT_EQ(original->Line(1)[0], 0x01);
  const std::string unique = Path(copy);
  ASSERT_TRUE(copy.bMakeUnique());
  EXPECT_EQ(Path(copy), unique) << "a sole owner has nothing to do";

  const COvComplexFrameBuffer sharer(*original);
  ASSERT_TRUE(original->bMirrorHorizontally());
  EXPECT_EQ(PictureBytes(*original), (Bytes{7, 8, 9, 4, 5, 6, 1, 2, 3, 7, 8, 9, 4, 5, 6, 1, 2, 3}));
  EXPECT_EQ(PictureBytes(sharer), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Path(*original).substr(Path(*original).size() - 22), "Mirrored horizontally\n");
  auto words = NewBuffer(MakeFormat(kRGB, kPrecision10Bits), 2, 1);  // one word a pixel
  std::memcpy(words->Line(0), "\x11\x22\x33\x44\x55\x66\x77\x88", 8);
  ASSERT_TRUE(words->bMirrorHorizontally());
  EXPECT_EQ(PictureBytes(*words), (Bytes{0x55, 0x66, 0x77, 0x88, 0x11, 0x22, 0x33, 0x44}));
  for (const auto& [format, width, result] :
       {std::tuple{MakeFormat(kRGB, kPrecision8Bits), 1u, true},
        {MakeFormat(kRGBA, kPrecision10Bits), 4u, false}}) {
    auto unchanged = NewBuffer(format, width, 2, 5);
    const std::string text = Path(*unchanged);
    EXPECT_EQ(unchanged->bMirrorHorizontally(), result);
    EXPECT_EQ(Path(*unchanged), text);
  }

  const auto patterned = [] {
    auto* block = new COvSharedBuffer;
    EXPECT_TRUE(block->Allocate(256));
    for (int i = 0; i < 256; ++i)
      block->Data()[i] = uint8_t(i);
    return block;
  };
  COvSharedBuffer* block = patterned();
  COvComplexFrameBuffer sole(block, 4, 3, MakeFormat(kRGBA, kPrecision8Bits, 1, false, false), 21);
  block->Release();
  const Bytes picture = PictureBytes(sole);
  ASSERT_TRUE(sole.bEnsureAlignment());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(sole.FirstLineInMemory()) % 16, 0u);
  EXPECT_TRUE(sole.SharedBuffer() == block && sole.FirstLineInMemory() >= block->Start());
  EXPECT_EQ(PictureBytes(sole), picture);
  EXPECT_NE(Path(sole).find("Data was shifted to ensure alignment\n"), std::string::npos);
  block = patterned();
  COvComplexFrameBuffer misaligned(block, 4, 3, MakeFormat(kRGBA, kPrecision8Bits), 3);
  const COvComplexFrameBuffer other(misaligned);
  block->Release();
  ASSERT_TRUE(misaligned.bEnsureAlignment());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(misaligned.FirstLineInMemory()) % 16, 0u);
  EXPECT_EQ(other.FirstLineInMemory(), block->Data() + 3);
  EXPECT_EQ(PictureBytes(misaligned), PictureBytes(other));
}

// Dropping alpha keeps the colour codes at every precision and byte order; adding it back puts
// the truncated value at the precision's scale; a buffer that shared the block is not changed.
TEST(ComplexFrameBuffer, StripAndAddAlphaAtEveryPrecision) {
  const uint32_t halfAlpha[kPrecisionCount] = {127, 511, 1, 32767, 0x3800, 2147483647, 0x3F000000};
  std::mt19937 random(7);
  for (uint32_t precision = 0; precision < kPrecisionCount; ++precision)
    for (bool big : {false, true}) {
      SCOPED_TRACE(testing::Message() << precision << " " << big);
      const FrameBufferFormat rgba = MakeFormat(kRGBA, precision, kChannelOrderBGR, big, false);
      auto buffer = NewBuffer(rgba, 5, 3);
      std::vector<std::vector<uint32_t>> codes(3, std::vector<uint32_t>(20));
      for (uint32_t y = 0; y < 3; ++y) {
        for (uint32_t i = 0; i < 20; ++i)
          codes[y][i] = uint32_t(random() % (uint64_t{FullScaleCode(rgba, i % 4)} + 1));
        WriteSampleCodes(codes[y].data(), rgba, 5, buffer->Line(y));
      }
      const COvComplexFrameBuffer sharer(*buffer);
      const Bytes sharerBytes = PictureBytes(sharer);
      buffer->StripAlpha();
      EXPECT_EQ(buffer->Format().type, kRGB);
      EXPECT_EQ(buffer->LineStride(), ComputeLineStride(buffer->Format(), 5));
      ASSERT_TRUE(buffer->bAddAlpha(0.5f));
      EXPECT_EQ(PictureBytes(sharer), sharerBytes);
      std::vector<uint32_t> back(20);
      for (uint32_t y = 0; y < 3; ++y) {
        ReadSampleCodes(buffer->Line(y), buffer->Format(), 5, back.data());
        for (uint32_t i = 0; i < 20; ++i)
          ASSERT_EQ(back[i], i % 4 == 3 ? halfAlpha[precision] : codes[y][i]) << y << " " << i;
      }
      EXPECT_NE(Path(*buffer).find("Alpha channel stripped\nAlpha channel added, value: 0.5\n"),
                std::string::npos);
    }
  // Clamped; already RGBA succeeds untouched; Intensity neither takes nor drops alpha.
  auto rgb = NewBuffer(MakeFormat(kRGB, kPrecision8Bits), 2, 1, 9);
  ASSERT_TRUE(rgb->bAddAlpha(1.7f));
  EXPECT_EQ(PictureBytes(*rgb), (Bytes{9, 9, 9, 255, 9, 9, 9, 255}));
  const std::string text = Path(*rgb);
  EXPECT_EQ(text.substr(text.size() - 30), "Alpha channel added, value: 1\n");
  EXPECT_TRUE(rgb->bAddAlpha(0.0f) && Path(*rgb) == text);
  auto sixteen = NewBuffer(MakeFormat(kRGB, kPrecision16BitInt), 1, 1, 0xFF);
  ASSERT_TRUE(sixteen->bAddAlpha(-3.0f));
  EXPECT_EQ(PictureBytes(*sixteen), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0}));
  auto grey = NewBuffer(MakeFormat(kI, kPrecision8Bits), 2, 1);
  const std::string greyText = Path(*grey);
  EXPECT_FALSE(grey->bAddAlpha(0.5f));
  grey->StripAlpha();
  EXPECT_TRUE(Path(*grey) == greyText && grey->Format().type == kI);
}

// A simple buffer's memory is wrapped, not copied, with its layout; views that do not fit are
// empty, and so are their wrappers.
TEST(SimpleFrameBuffer, WrappedWithoutCopy) {
  std::vector<uint8_t> memory(4 + 3 * 12, 0);
  const COvSimpleFrameBuffer simple(memory.data(), memory.size(), 3, 3, 4, 12, 4, kChannelOrderRGB,
                                    false);
  ASSERT_TRUE(simple.IsValid() && simple.IsKindOf(COvSimpleFrameBuffer::kTypeId));
  EXPECT_EQ(simple.Line(0), memory.data() + 4 + 24);
  COvComplexFrameBuffer wrapper(simple);
  EXPECT_EQ(Path(wrapper), "Constructed as a SimpleFB wrapper\nSize: 3 x 3\n");
  EXPECT_EQ(wrapper.Format(),
            MakeFormat(kRGBA, kPrecision8Bits, kChannelOrderRGB, false, false, 12));
  EXPECT_TRUE(wrapper.LineStride() == 12 && wrapper.Offset() == 4 &&
              wrapper.SharedBuffer()->ReferenceCount() == 1);
  for (uint32_t y = 0; y < 3; ++y)
    EXPECT_EQ(wrapper.Line(y), simple.Line(y));
  wrapper.Line(2)[0] = 42;
  EXPECT_EQ(memory[4], 42);
  const COvSimpleFrameBuffer rgb(memory.data(), memory.size(), 4, 3, 3, 12, 0, kChannelOrderBGR,
                                 true);
  EXPECT_EQ(COvComplexFrameBuffer(rgb).Format().type, kRGB);
  const COvSimpleFrameBuffer invalid[] = {{memory.data(), memory.size(), 3, 4, 4, 12, 4, 1, true},
                                          {memory.data(), memory.size(), 4, 3, 4, 12, 0, 1, true},
                                          {memory.data(), memory.size(), 3, 3, 2, 12, 0, 1, true},
                                          {nullptr, 0, 1, 1, 3, 3, 0, 1, true}};
  for (const auto& view : invalid)
    EXPECT_FALSE(view.IsValid() || COvComplexFrameBuffer(view).HasPixels());
}

}  // namespace
