// Frame-buffer converters: the kernels' arithmetic against a reference written here, every vector
// conversion on every instruction-set table against that reference and the general path, the
// fallbacks, the list, conversion in place, the precision round trip and concurrent use.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "engine/convert/channel_converters.h"
#include "engine/convert/convert_kernels.h"
#include "engine/convert/converter_list.h"
#include "engine/convert/optimized_frame_buffer_converter.h"
#include "engine/frame_buffer/half_float.h"
#include "engine/frame_buffer/simple_frame_buffer.h"
#include "foundation/cpu_features.h"
#include "frame_buffer_helpers.h"

namespace {

using namespace Tincta;
using crandle_test::MakeFormat;
using crandle_test::NewBuffer;
using crandle_test::PictureBytes;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::vector<float>>;
constexpr uint32_t kRGB = kFrameBufferTypeRGB, kRGBA = kFrameBufferTypeRGBA;

// ---- The documented arithmetic, written out ---------------------------------------------------

uint32_t Ref8(float x) {
  if (std::isnan(x)) return 255;  // min(NaN, 1) is 1
  const float product = std::min(x, 1.0f) * 255.0f;
  return product > 0.0f ? uint32_t(std::lrint(product)) : 0;
}

uint32_t Ref10(float x) {
  return std::isnan(x) ? 1023 : uint32_t(std::lrint(std::clamp(x, 0.0f, 1.0f) * 1023.0f));
}

Bytes Words(const std::vector<uint32_t>& words, bool bigEndian) {
  Bytes bytes;
  for (uint32_t word : words)
    for (int i = 0; i < 4; ++i)
      bytes.push_back(uint8_t(word >> (bigEndian ? 24 - 8 * i : 8 * i)));
  return bytes;
}

// One target line from a float RGBA line; `exchange` swaps the first and third samples.
Bytes ReferenceLine(const std::vector<float>& line, const FrameBufferFormat& to, bool exchange) {
  std::vector<float> samples;
  for (size_t x = 0; x < line.size() / 4; ++x)
    for (uint32_t c = 0; c < ChannelCount(to); ++c)
      samples.push_back(line[x * 4 + (exchange && c % 2 == 0 && c < 3 ? 2 - c : c)]);
  Bytes bytes;
  for (float v : samples)
    bytes.push_back(uint8_t(Ref8(v)));
  if (to.precision == kPrecision8Bits) return bytes;
  samples.resize((samples.size() + 2) / 3 * 3, 0.0f);  // RGB: a word per pixel; RGBA: 3 samples
  std::vector<uint32_t> words;
  for (size_t i = 0; i < samples.size(); i += 3)
    words.push_back(Ref10(samples[i]) << 22 | Ref10(samples[i + 1]) << 12 |
                    Ref10(samples[i + 2]) << 2);
  return Words(words, to.bigEndian);
}

// The kernel tables this processor can run.
std::vector<const SConvertKernels*> Tables() {
  const SProcessorFeatures hardware = DetectProcessorFeatures(nullptr);
  std::vector<const SConvertKernels*> tables;
  if (hardware.sse41) tables.push_back(&ConvertKernelsSse41());
  if (hardware.Use256BitKernels()) tables.push_back(&ConvertKernelsAvx2());
  return tables;
}

uint32_t RoundUp(uint32_t value, uint32_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

// Float RGBA lines padded to whole groups of 4 and of 3 pixels, as the vector path asks.
std::unique_ptr<COvComplexFrameBuffer> FloatPicture(const Lines& lines,
                                                    int32_t order = kChannelOrderRGB) {
  const auto width = uint32_t(lines[0].size() / 4), height = uint32_t(lines.size());
  auto buffer = NewBuffer(
      MakeFormat(kRGBA, kPrecision32BitFloat, order, false, true, RoundUp(width, 12) * 16), width,
      height);
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(buffer->Line(y), lines[y].data(), width * 16);
  return buffer;
}

// Random floats, a third of them where the 8- and 10-bit arithmetic turns: ties and their
// neighbours, NaN, infinities, signed zeros, values far out of range.
Lines RandomLines(uint32_t width, uint32_t height, uint32_t seed) {
  static const std::vector<float> interesting = [] {
    std::vector<float> values = {0.0f,      -0.0f,      1.0f,  1.5f,   -0.2f, NAN,
                                 HUGE_VALF, -HUGE_VALF, 2e30f, -2e30f, 1e-30f};
    for (float scale : {255.0f, 1023.0f})
      for (int k = 0; k < 1023; ++k)
        for (float to : {0.0f, (k + 0.5f) / scale, 1.0f})
          values.push_back(std::nextafter((k + 0.5f) / scale, to));
    return values;
  }();
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform(-0.25f, 1.25f);
  Lines lines(height, std::vector<float>(size_t{width} * 4));
  for (auto& line : lines)
    for (float& v : line)
      v = random() % 3 ? uniform(random) : interesting[random() % interesting.size()];
  return lines;
}

// ---- The vector kernels -------------------------------------------------------------------------

// 1.5 saturates, -0.2 goes to 0, 0.5 × 255 = 127.5 and 0.3f × 255 = 76.5 (exactly, in single
// precision) go to the even 128 and 76, NaN counts as 1, 511.5 goes to the even 512; 16-bit
// samples keep their high byte without rounding.
TEST(ConvertKernels, ExactArithmeticOnEveryTable) {
  ASSERT_EQ(0.3f * 255.0f, 76.5f);
  const auto four = FloatPicture({{1.5f, -0.2f, 0.5f, 1.0f, 0.0f, 1.0f, 2.0f, -1.0f, NAN, 0.25f,
                                   0.75f, 0.1f, 0.2f, 0.3f, 0.4f, 0.6f}});
  const auto three =
      FloatPicture({{1.0f, 0.0f, 0.5f, 1.0f, 0.25f, 0.75f, -1.0f, 2.0f, NAN, 0.1f, 0.2f, 0.3f}});
  auto sixteen = NewBuffer(MakeFormat(kRGBA, kPrecision16BitInt), 16, 1);
  const uint16_t samples[4] = {0x80FF, 0xFFFF, 0x00FF, 0x0100};
  for (int i = 0; i < 64; ++i)
    std::memcpy(sixteen->Line(0) + 2 * i, &samples[i % 4], 2);
  for (const SConvertKernels* table : Tables()) {
    SCOPED_TRACE(table->name);
    const auto run = [&](const COvComplexFrameBuffer& source, const FrameBufferFormat& to) {
      auto target = NewBuffer(to, source.Width(), 1);
      EXPECT_TRUE(COvOptimizedFrameBufferConverter(table).Convert(source, *target));
      return PictureBytes(*target);
    };
    EXPECT_EQ(run(*four, MakeFormat(kRGBA, kPrecision8Bits, kChannelOrderRGB, false, true, 16)),
              (Bytes{255, 0, 128, 255, 0, 255, 255, 0, 255, 64, 191, 26, 51, 76, 102, 153}));
    EXPECT_EQ(run(*four, MakeFormat(kRGB, kPrecision8Bits, kChannelOrderRGB, false, true, 16)),
              (Bytes{255, 0, 128, 0, 255, 255, 255, 64, 191, 51, 76, 102}));
    for (bool big : {false, true}) {
      // 1023 << 22 | 0 << 12 | 512 << 2; three RGBA pixels make four words of three samples.
      const Bytes rgb = run(*four, MakeFormat(kRGB, kPrecision10Bits, kChannelOrderRGB, big));
      EXPECT_EQ(Bytes(rgb.begin(), rgb.begin() + 4), Words({0xFFC00800u}, big));
      EXPECT_EQ(run(*three, MakeFormat(kRGBA, kPrecision10Bits, kChannelOrderRGB, big)),
                Words({0xFFC00800u, 0xFFD00BFCu, 0x003FFFFCu, 0x198CD4CCu}, big));
    }
    const Bytes plain = run(*sixteen, MakeFormat(kRGBA, kPrecision8Bits));
    const Bytes swapped = run(*sixteen, MakeFormat(kRGBA, kPrecision8Bits, kChannelOrderBGR));
    EXPECT_EQ(Bytes(plain.begin(), plain.begin() + 4), (Bytes{0x80, 0xFF, 0x00, 0x01}));
    EXPECT_EQ(Bytes(swapped.begin(), swapped.begin() + 4), (Bytes{0x00, 0xFF, 0x80, 0x01}));
  }
}

// Every vector conversion, every width up to several groups with every tail, both channel
// orders on each side, both orientations: each table and the general path give the reference
// bytes (so the tables agree with each other) and write nothing past a line's pixels.
TEST(ConvertKernels, VectorPathEqualsGeneralPathAndReference) {
  const FrameBufferFormat targets[] = {
      MakeFormat(kRGBA, kPrecision8Bits),  MakeFormat(kRGB, kPrecision8Bits),
      MakeFormat(kRGB, kPrecision10Bits),  MakeFormat(kRGB, kPrecision10Bits, 1, true),
      MakeFormat(kRGBA, kPrecision10Bits), MakeFormat(kRGBA, kPrecision10Bits, 1, true)};
  uint32_t seed = 0;
  for (FrameBufferFormat to : targets)
    for (uint32_t width : {1, 2, 3, 4, 5, 7, 8, 11, 12, 17, 23, 48, 67})
      for (int32_t from : {kChannelOrderRGB, kChannelOrderBGR})
        for (int32_t order : {kChannelOrderRGB, kChannelOrderBGR})
          for (bool upright : {true, false}) {
            SCOPED_TRACE(testing::Message()
                         << DescribeFrameBufferFormat(to) << " width " << width << " orders "
                         << from << order << " upright " << upright);
            const Lines lines = RandomLines(width, 3, ++seed);
            const auto source = FloatPicture(lines, from);
            to.channelOrder = order;
            to.topToBottom = upright;
            to.lineStride = RoundUp(width, 12) * 16 / 3;  // whole groups of 3 and of 4 pixels
            Bytes expected;
            for (const auto& line : lines) {
              const Bytes bytes = ReferenceLine(line, to, from != order);
              expected.insert(expected.end(), bytes.begin(), bytes.end());
            }
            auto general = NewBuffer(to, width, 3, 0xEE);
            ASSERT_TRUE(bConvertThroughFloat(*source, *general));
            EXPECT_EQ(PictureBytes(*general), expected);
            for (const SConvertKernels* table : Tables()) {
              auto vector = NewBuffer(to, width, 3, 0xEE);
              ASSERT_TRUE(COvOptimizedFrameBufferConverter(table).Convert(*source, *vector));
              EXPECT_EQ(PictureBytes(*vector), expected) << table->name;
              for (uint32_t y = 0; y < 3; ++y)
                for (size_t k = PackedLineBytes(to, width); k < to.lineStride; ++k)
                  ASSERT_EQ(vector->Line(y)[k], 0xEE)
                      << table->name << " line " << y << " byte " << k;
            }
          }
}

// A misaligned source, a target stride that is no multiple of 16 and a 16-bit source short of a
// whole group are refused by the vector path; the list's general path gives the same bytes.
TEST(OptimizedConverter, RefusalsFallBackToTheSameBytes) {
  const Lines lines = RandomLines(5, 2, 11);
  const auto aligned = FloatPicture(lines);
  const FrameBufferFormat rgba8 =
      MakeFormat(kRGBA, kPrecision8Bits, kChannelOrderRGB, false, true, 32);
  const FrameBufferFormat packed = MakeFormat(kRGBA, kPrecision8Bits);  // 20-byte lines
  auto reference = NewBuffer(rgba8, 5, 2);
  const COvOptimizedFrameBufferConverter optimized;
  ASSERT_TRUE(optimized.Convert(*aligned, *reference));
  COvSharedBuffer* block = new COvSharedBuffer;
  ASSERT_TRUE(block->Allocate(4 + aligned->LineStride() * 2));
  COvComplexFrameBuffer misaligned(block, 5, 2, aligned->Format(), 4);
  block->Release();
  for (uint32_t y = 0; y < 2; ++y)
    std::memcpy(misaligned.Line(y), lines[y].data(), 80);
  EXPECT_FALSE(optimized.Convert(misaligned, *NewBuffer(rgba8, 5, 2)));
  EXPECT_FALSE(optimized.Convert(*aligned, *NewBuffer(packed, 5, 2)));
  EXPECT_FALSE(
      optimized.Convert(*NewBuffer(MakeFormat(kRGBA, kPrecision16BitInt), 5, 2),
                        *NewBuffer(MakeFormat(kRGBA, kPrecision8Bits, 1, false, true, 64), 5, 2)));
  for (const auto& [source, format] : {std::pair{&misaligned, rgba8}, {aligned.get(), packed}}) {
    auto converted = CopyConvertFrameBuffer(*source, format);
    ASSERT_NE(converted, nullptr);
    EXPECT_EQ(PictureBytes(*converted), PictureBytes(*reference));
  }
}

// ---- The list and the general path --------------------------------------------------------------

TEST(ConverterList, OrderChoiceAndCopyConversion) {
  const COvChannelConverterList& list = COvChannelConverterList::Instance();
  ASSERT_EQ(list.Count(), 3u);
  EXPECT_EQ(std::string(list.At(0).Name()) + list.At(1).Name() + list.At(2).Name(),
            "defaultscalarfallback");
  const FrameBufferFormat f32 = MakeFormat(kRGBA, kPrecision32BitFloat);
  const std::tuple<FrameBufferFormat, FrameBufferFormat, const char*> cases[] = {
      {f32, MakeFormat(kRGBA, kPrecision8Bits), "fallback"},
      {f32, MakeFormat(kRGBA, kPrecision32BitFloat, 1, false, false), "default"},
      {MakeFormat(kRGB, kPrecision16BitInt), MakeFormat(kRGB, kPrecision8Bits), "scalar"},
      {MakeFormat(kRGBA, kPrecision16BitInt), MakeFormat(kRGBA, kPrecision8Bits), "fallback"},
      {MakeFormat(kRGB, kPrecision16BitInt, 1, true), MakeFormat(kRGB, kPrecision8Bits),
       "fallback"},
      {MakeFormat(kRGB, kPrecision16BitInt), MakeFormat(kRGB, kPrecision16BitInt, 1, true),
       "default"},
      {f32, MakeFormat(0x200, kPrecision8Bits), nullptr},
      {f32, MakeFormat(kRGB, 7), nullptr},
      {MakeFormat(kRGB, kPrecision8Bits, kChannelOrderNone), f32, nullptr}};
  for (const auto& [from, to, name] : cases) {
    const COvFrameBufferConverter* chosen = list.Find(from, to);
    EXPECT_STREQ(chosen ? chosen->Name() : nullptr, name) << DescribeFrameBufferFormat(to);
  }

  const auto source = FloatPicture(RandomLines(4, 2, 21));
  const FrameBufferFormat rgb8 = MakeFormat(kRGB, kPrecision8Bits);
  const std::string rgb8Text =
      "Format: Type = RGB, Precision = 8 bits, Channel order =  RGB(A), Top to bottom\n";
  auto converted = CopyConvertFrameBuffer(*source, rgb8);
  EXPECT_EQ(converted->PipelinePath().Text(),
            source->PipelinePath().Text() + "Copy conversion\n" + rgb8Text);
  EXPECT_EQ(CopyConvertFrameBuffer(*source, source->Format())->SharedBuffer(),
            source->SharedBuffer());
  EXPECT_EQ(CopyConvertFrameBuffer(*source, MakeFormat(0x200, kPrecision8Bits)), nullptr);
  // Failing member forms leave everything as it was; succeeding ones take the converted pixels
  // and history, as does the converting copy.
  const std::string path = source->PipelinePath().Text();
  const Bytes bytes = PictureBytes(*source);
  COvSharedBuffer* const block = source->SharedBuffer();
  EXPECT_FALSE(source->bCopyConvert(MakeFormat(0x200, kPrecision8Bits)));
  EXPECT_FALSE(source->bConvertInPlace(MakeFormat(kRGB, 9)));
  EXPECT_TRUE(source->SharedBuffer() == block && source->PipelinePath().Text() == path &&
              PictureBytes(*source) == bytes);
  const COvComplexFrameBuffer copy(*source, rgb8);
  EXPECT_EQ(PictureBytes(copy), PictureBytes(*converted));
  EXPECT_EQ(copy.PipelinePath().Text(),
            converted->PipelinePath().Text() +
                "Constructed as a copy (see pipeline above) with format conversion\nSize: 4 x 2\n" +
                rgb8Text);
  ASSERT_TRUE(source->bCopyConvert(rgb8));
  EXPECT_EQ(PictureBytes(*source), PictureBytes(*converted));
  EXPECT_EQ(source->PipelinePath().Text(), converted->PipelinePath().Text());
}

// A change of orientation keeps the picture upright; a change of byte order swaps the bytes; a
// change of channel order exchanges exactly the first and third code at every precision;
// Intensity takes the Rec. 709 luma (54.2, 182.4, 18.4) and widens back by 257 with full alpha.
TEST(GeneralPath, OrientationByteOrderChannelsAndLuma) {
  const Lines lines = RandomLines(3, 4, 31);
  FrameBufferFormat flipped = FloatPicture(lines)->Format();
  flipped.topToBottom = false;
  auto upside = CopyConvertFrameBuffer(*FloatPicture(lines), flipped);
  for (uint32_t y = 0; y < 4; ++y)
    EXPECT_EQ(std::memcmp(upside->Line(y), lines[y].data(), 48), 0) << y;
  EXPECT_EQ(std::memcmp(upside->FirstLineInMemory(), lines[3].data(), 48), 0);

  auto little = NewBuffer(MakeFormat(kRGB, kPrecision16BitInt), 1, 1);
  std::memcpy(little->Line(0), "\x34\x12\x78\x56\xBC\x9A", 6);
  auto big = CopyConvertFrameBuffer(*little, MakeFormat(kRGB, kPrecision16BitInt, 1, true));
  EXPECT_EQ(PictureBytes(*big), (Bytes{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}));

  for (uint32_t precision = 0; precision < kPrecisionCount; ++precision)
    for (uint32_t type : {kRGB, kRGBA}) {
      const FrameBufferFormat from = MakeFormat(type, precision, kChannelOrderBGR);
      const FrameBufferFormat to = MakeFormat(type, precision, kChannelOrderRGB, true);
      const uint32_t channels = ChannelCount(from);
      std::vector<uint32_t> codes(7 * channels), back(7 * channels);
      for (uint32_t i = 0; i < codes.size(); ++i)
        codes[i] = FullScaleCode(from, i % channels) - i % 3;
      auto source = NewBuffer(from, 7, 1);
      WriteSampleCodes(codes.data(), from, 7, source->Line(0));
      ReadSampleCodes(CopyConvertFrameBuffer(*source, to)->Line(0), to, 7, back.data());
      for (uint32_t i = 0; i < codes.size(); ++i)
        ASSERT_EQ(back[i], codes[i % channels < 3 ? i - i % channels + 2 - i % channels : i])
            << precision << " " << type << " " << i;
    }

  auto grey =
      CopyConvertFrameBuffer(*FloatPicture({{1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 1, 1, 1, 1, 0}}),
                             MakeFormat(kFrameBufferTypeIntensity, kPrecision8Bits));
  EXPECT_EQ(PictureBytes(*grey), (Bytes{54, 182, 18, 255}));
  auto widened =
      CopyConvertFrameBuffer(*grey, MakeFormat(kRGBA, kPrecision16BitInt, kChannelOrderBGR));
  std::vector<uint32_t> codes(16);
  ReadSampleCodes(widened->Line(0), widened->Format(), 4, codes.data());
  EXPECT_EQ(codes, (std::vector<uint32_t>{13878, 13878, 13878, 65535, 46774, 46774, 46774, 65535,
                                          4626, 4626, 4626, 65535, 65535, 65535, 65535, 65535}));
}

// Every 16-bit code becomes its high byte (0x80FF → 0x80) on every route: each kernel table in
// both channel orders, with 8 pixels a line after the last whole group; the list with an aligned
// and a misaligned source; the scalar converter for RGB; and that conversion in place.
TEST(GeneralPath, SixteenToEightTruncatesOnEveryRoute) {
  constexpr uint32_t kWidth = 136, kHeight = 121;  // 16456 pixels: every code at least once
  const FrameBufferFormat from = MakeFormat(kRGBA, kPrecision16BitInt, 1, false, true, 9 * 128);
  const FrameBufferFormat rgba8 = MakeFormat(kRGBA, kPrecision8Bits, 1, false, true, 9 * 64);
  auto source = NewBuffer(from, kWidth, kHeight);
  for (uint32_t i = 0; i < kWidth * kHeight * 4; ++i)
    reinterpret_cast<uint16_t*>(source->Line(i / (kWidth * 4)))[i % (kWidth * 4)] = uint16_t(i);
  const auto check = [](const COvComplexFrameBuffer& target, const char* route) {
    const uint32_t channels = ChannelCount(target.Format());
    const bool exchange = target.Format().channelOrder == kChannelOrderBGR;
    for (uint32_t y = 0; y < kHeight; ++y)
      for (uint32_t i = 0; i < kWidth * channels; ++i) {
        const uint32_t c = i % channels, sample = exchange && c % 2 == 0 && c < 3 ? 2 - c : c;
        ASSERT_EQ(target.Line(y)[i], uint16_t(y * kWidth * 4 + i / channels * 4 + sample) >> 8)
            << route << " " << y << " " << i;
      }
  };
  for (const SConvertKernels* table : Tables())
    for (int32_t order : {kChannelOrderRGB, kChannelOrderBGR}) {
      FrameBufferFormat to = rgba8;
      to.channelOrder = order;
      auto target = NewBuffer(to, kWidth, kHeight);
      ASSERT_TRUE(COvOptimizedFrameBufferConverter(table).Convert(*source, *target));
      check(*target, table->name);
    }
  check(*CopyConvertFrameBuffer(*source, rgba8), "list");
  COvSharedBuffer* block = new COvSharedBuffer;
  ASSERT_TRUE(block->Allocate(2 + 9 * 128 * kHeight));
  COvComplexFrameBuffer misaligned(block, kWidth, kHeight, from, 2);
  block->Release();
  for (uint32_t y = 0; y < kHeight; ++y)
    std::memcpy(misaligned.Line(y), source->Line(y), kWidth * 8);
  check(*CopyConvertFrameBuffer(misaligned, rgba8), "misaligned");
  COvComplexFrameBuffer rgb16(*source);
  rgb16.StripAlpha();
  const FrameBufferFormat rgb8 = MakeFormat(kRGB, kPrecision8Bits);
  EXPECT_STREQ(COvChannelConverterList::Instance().Find(rgb16.Format(), rgb8)->Name(), "scalar");
  check(*CopyConvertFrameBuffer(rgb16, rgb8), "scalar");
  ASSERT_TRUE(rgb16.bConvertInPlace(rgb8));
  check(rgb16, "in place");
  EXPECT_EQ(rgb16.PipelinePath().Text().find("Copy conversion"), std::string::npos);
}

// ---- In place, round trips, half floats, threads --------------------------------------------

// Rows shrink (float to 8 bits) in their own block and grow back; a shared block or a change
// of orientation turns it into a copy conversion that leaves the other buffer alone.
TEST(InPlaceConversion, ShrinkingGrowingAndRefusing) {
  const Lines lines = RandomLines(9, 5, 41);
  const FrameBufferFormat rgba8 = MakeFormat(kRGBA, kPrecision8Bits),
                          f32 = MakeFormat(kRGBA, kPrecision32BitFloat);
  const std::string rgba8Text =
      "Format: Type = RGBA, Precision = 8 bits, Channel order =  RGB(A), Top to bottom\n";
  const auto reference = CopyConvertFrameBuffer(*FloatPicture(lines), rgba8);
  auto picture = FloatPicture(lines);
  COvSharedBuffer* const block = picture->SharedBuffer();
  const std::string before = picture->PipelinePath().Text();
  ASSERT_TRUE(picture->bConvertInPlace(rgba8));
  EXPECT_EQ(picture->SharedBuffer(), block);
  EXPECT_EQ(PictureBytes(*picture), PictureBytes(*reference));
  EXPECT_EQ(picture->PipelinePath().Text(), before + "In-place conversion\n" + rgba8Text);
  ASSERT_TRUE(picture->bConvertInPlace(f32));
  EXPECT_EQ(PictureBytes(*picture), PictureBytes(*CopyConvertFrameBuffer(*reference, f32)));

  auto shared = FloatPicture(lines);
  const COvComplexFrameBuffer sharer(*shared);
  const Bytes sharerBytes = PictureBytes(sharer);
  ASSERT_TRUE(shared->bConvertInPlace(rgba8));
  EXPECT_EQ(PictureBytes(*shared), PictureBytes(*reference));
  EXPECT_EQ(PictureBytes(sharer), sharerBytes);
  EXPECT_NE(shared->PipelinePath().Text().find(
                "Copy conversion was invoked from in-place (in-place failed)\n" + rgba8Text),
            std::string::npos);
  auto turned = FloatPicture(lines);
  FrameBufferFormat upsideDown = rgba8;
  upsideDown.topToBottom = false;
  ASSERT_TRUE(turned->bConvertInPlace(upsideDown));
  EXPECT_EQ(PictureBytes(*turned), PictureBytes(*reference));
  EXPECT_NE(turned->PipelinePath().Text().find("(in-place failed)"), std::string::npos);
}

// Through every precision and byte order and back: within half a step (a relative 2^-11 for
// half floats, nothing for float), 0 and full scale exactly.
TEST(RoundTrip, EveryPrecisionWithinItsQuantisation) {
  std::mt19937 random(17);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  Lines lines(2, std::vector<float>(37 * 4));
  for (auto& line : lines)
    std::generate(line.begin(), line.end(), [&] { return unit(random); });
  lines[0][0] = 0.0f;
  lines[0][1] = 1.0f;
  const double steps[kPrecisionCount] = {255, 1023, 1023, 65535, 0, 4294967295.0, 0};
  for (uint32_t precision = 0; precision < kPrecisionCount; ++precision)
    for (bool big : {false, true}) {
      const auto source = FloatPicture(lines);
      const auto stored = CopyConvertFrameBuffer(
          *source, MakeFormat(kRGBA, precision, kChannelOrderBGR, big, false));
      const auto back = CopyConvertFrameBuffer(*stored, source->Format());
      for (uint32_t i = 0; i < 2 * 37 * 4; ++i) {
        const double original = lines[i / 148][i % 148];
        const double result = reinterpret_cast<const float*>(back->Line(i / 148))[i % 148];
        const double bound =
            precision == kPrecision16BitFloat            ? std::max(original * 0x1p-11, 0x1p-25)
            : precision == kPrecision32BitFloat || i < 2 ? 0.0
            : precision == kPrecision10Plus2Bits && i % 4 == 3 ? 0.5 / 3 + 1e-7
                                                               : 0.5 / steps[precision] + 6e-8;
        ASSERT_LE(std::abs(result - original), bound)
            << "precision " << precision << " big " << big << " sample " << i;
      }
    }
}

// Every half against the compiler's own half type, and random floats rounded to half.
TEST(HalfFloat, AgreesWithTheCompilersHalfType) {
  for (uint32_t code = 0; code < 65536; ++code) {
    const float expected = float(std::bit_cast<_Float16>(uint16_t(code))),
                actual = HalfToFloat(uint16_t(code));
    ASSERT_TRUE(std::bit_cast<uint32_t>(actual) == std::bit_cast<uint32_t>(expected) ||
                (std::isnan(actual) && std::isnan(expected)))
        << code;
  }
  // Overflow, ties to even among normal and subnormal halves, the smallest halves.
  const float edges[] = {65519.99f,  65520.0f, 0x1.002p0f, 0x1.006p0f, 0x1p-25f,
                         0x1.8p-24f, 0x1p-24f, 0x1p-14f,   -0.0f,      HUGE_VALF};
  std::mt19937 random(23);
  for (int i = 0; i < 200000; ++i) {
    const float value =
        i < int(std::size(edges)) ? edges[i] : std::bit_cast<float>(uint32_t(random()));
    const uint16_t half = FloatToHalf(value);
    ASSERT_TRUE(std::isnan(value) ? (half & 0x7C00) == 0x7C00 && (half & 0x3FF) != 0
                                  : half == std::bit_cast<uint16_t>(_Float16(value)))
        << value;
  }
}

// The resolver picks the record's tier (the sse-only run of this suite sees "sse4.1"). Threads
// that resolve the slots at once, share one block and build a conversion table together all
// get the bytes of a serial run, and leave the block's count as they found it.
TEST(Concurrency, ResolverSharedBlocksAndTablesFromManyThreads) {
  if (!bConvertKernelsAvailable()) GTEST_SKIP() << "no SSE4.1";
  const char* isa = std::getenv("CRANDLE_CPU_ISA");
  const bool wide = ProcessorFeatures().Use256BitKernels() && !(isa && std::string(isa) == "sse");
  EXPECT_STREQ(SelectedConvertKernelsName(), wide ? "avx2" : "sse4.1");
  const auto source = FloatPicture(RandomLines(64, 4, 3));
  const FrameBufferFormat tenBit = MakeFormat(kRGBA, kPrecision10Bits, 1, false, true, 352);
  const FrameBufferFormat half =
      MakeFormat(kRGB, kPrecision16BitFloat, kChannelOrderBGR, true, false);
  const auto run = [&] {
    const COvComplexFrameBuffer share(*source);
    auto packed = NewBuffer(tenBit, 64, 4);
    EXPECT_TRUE(COvOptimizedFrameBufferConverter().Convert(share, *packed));
    Bytes bytes = PictureBytes(*packed),
          converted = PictureBytes(*CopyConvertFrameBuffer(*packed, half));
    bytes.insert(bytes.end(), converted.begin(), converted.end());
    return bytes;
  };
  std::vector<Bytes> results(8);
  std::vector<std::thread> threads;
  for (Bytes& result : results)
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round)
        result = run();
    });
  for (auto& thread : threads)
    thread.join();
  const Bytes serial = run();
  for (const Bytes& result : results)
    EXPECT_EQ(result, serial);
  EXPECT_EQ(source->SharedBuffer()->ReferenceCount(), 1u);
}

}  // namespace
