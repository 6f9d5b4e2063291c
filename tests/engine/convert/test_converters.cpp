// Converters: vector tables against a reference and the general path; fallbacks, in place, threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "engine/convert/channel_converters.h"
#include "engine/convert/convert_kernels.h"
#include "engine/convert/converter_list.h"
#include "engine/convert/optimized_frame_buffer_converter.h"
#include "engine/cpu/cpu_kernels.h"
#include "foundation/cpu_features.h"
#include "support/frame_buffer_helpers.h"

namespace {

using namespace Tincta;
using crandle_test::MakeFormat;
using crandle_test::NewBuffer;
using crandle_test::PictureBytes;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::vector<float>>;
constexpr uint32_t kRGB = kFrameBufferTypeRGB, kRGBA = kFrameBufferTypeRGBA;

uint32_t Ref8(float x) {
  if (std::isnan(x)) return 255;  // min(NaN, 1) is 1
  const float product = std::min(x, 1.0f) * 255.0f;
  return product > 0.0f ? uint32_t(std::lrint(product)) : 0;
}

uint32_t Ref10(float x) {
  return std::isnan(x) ? 1023 : uint32_t(std::lrint(std::clamp(x, 0.0f, 1.0f) * 1023.0f));
}

// One target line from a float RGBA line; `exchange` swaps the first and third samples.
Bytes ReferenceLine(const std::vector<float>& line, const FrameBufferFormat& to, bool exchange) {
  std::vector<float> samples;
  for (size_t x = 0; x < line.size() / 4; ++x)
    for (uint32_t c = 0; c < ChannelCount(to); ++c)
      samples.push_back(line[x * 4 + (exchange && c % 2 == 0 && c < 3 ? 2 - c : c)]);
  Bytes bytes;
  if (to.precision == kPrecision8Bits) {
    for (float v : samples)
      bytes.push_back(uint8_t(Ref8(v)));
    return bytes;
  }
  samples.resize((samples.size() + 2) / 3 * 3, 0.0f);  // RGB: a word per pixel; RGBA: 3 samples
  for (size_t i = 0; i < samples.size(); i += 3) {
    const uint32_t word =
        Ref10(samples[i]) << 22 | Ref10(samples[i + 1]) << 12 | Ref10(samples[i + 2]) << 2;
    for (int k = 0; k < 4; ++k)
      bytes.push_back(uint8_t(word >> (to.bigEndian ? 24 - 8 * k : 8 * k)));
  }
  return bytes;
}

// The kernel tables this processor can run.
std::vector<const SConvertKernels*> Tables() {
  const SProcessorFeatures hardware = DetectProcessorFeatures(nullptr);
  std::vector<const SConvertKernels*> tables;
  if (hardware.sse41) tables.push_back(&ConvertKernelsSse41());
  if (SimdTierOf(hardware) == ESimdTier::kAVX2) tables.push_back(&ConvertKernelsAvx2());
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

// Random floats, a third of them where the 8- and 10-bit arithmetic turns (ties and neighbours) or
// the first eleven (NaN, infinities, signed zeros, far out of range), often enough for every lane.
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
    for (float& v : line) {
      const uint32_t pick = random() % 6;
      v = pick < 4 ? uniform(random)
                   : interesting[random() % (pick == 4 ? 11 : interesting.size())];
    }
  return lines;
}

// Each table and the general path give the reference bytes and write nothing past a line's pixels.
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
  const FrameBufferFormat rgba8 = MakeFormat(kRGBA, kPrecision8Bits, 1, false, true, 32);
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

// In place, rows shrink in their own block; a shared block or a change of orientation makes it a
// copy that leaves the other buffer alone. Failing forms leave everything as it was.
TEST(ConversionForms, CopyInPlaceAndFailures) {
  const Lines lines = RandomLines(9, 5, 41);
  const auto source = FloatPicture(lines);
  const std::string path = source->PipelinePath().Text();
  const Bytes bytes = PictureBytes(*source);
  const FrameBufferFormat rgba8 = MakeFormat(kRGBA, kPrecision8Bits), wrong = MakeFormat(kRGB, 9);
  const auto reference = CopyConvertFrameBuffer(*source, rgba8);
  EXPECT_EQ(reference->PipelinePath().Text(),
            path + "Copy conversion\n" + DescribeFrameBufferFormat(rgba8) + "\n");
  EXPECT_EQ(CopyConvertFrameBuffer(*source, source->Format())->SharedBuffer(),
            source->SharedBuffer());
  EXPECT_EQ(PictureBytes(COvComplexFrameBuffer(*source, rgba8)), PictureBytes(*reference));
  EXPECT_EQ(CopyConvertFrameBuffer(*source, wrong), nullptr);
  EXPECT_FALSE(source->bCopyConvert(wrong) || source->bConvertInPlace(wrong));
  EXPECT_TRUE(source->PipelinePath().Text() == path && PictureBytes(*source) == bytes);
  const std::string failed = "Copy conversion was invoked from in-place (in-place failed)";
  const std::string texts[] = {"In-place conversion", failed, failed, "Copy conversion"};
  for (int how : {0, 1, 2, 3}) {  // in place: alone, sharing its block, upside down; a copy
    auto picture = FloatPicture(lines);
    std::optional<COvComplexFrameBuffer> sharer;
    if (how == 1) sharer.emplace(*picture);
    COvSharedBuffer* const block = picture->SharedBuffer();
    const FrameBufferFormat to = MakeFormat(kRGBA, kPrecision8Bits, 1, false, how != 2);
    ASSERT_TRUE(how == 3 ? picture->bCopyConvert(to) : picture->bConvertInPlace(to));
    EXPECT_EQ(PictureBytes(*picture), PictureBytes(*reference)) << how;
    EXPECT_EQ(picture->SharedBuffer() == block, how == 0) << how;
    EXPECT_EQ(picture->PipelinePath().Text(),
              path + texts[how] + "\n" + DescribeFrameBufferFormat(to) + "\n");
    EXPECT_TRUE(!sharer || PictureBytes(*sharer) == bytes);
  }
}

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
      auto target = NewBuffer(MakeFormat(kRGBA, 0, order, false, true, 9 * 64), kWidth, kHeight);
      ASSERT_TRUE(COvOptimizedFrameBufferConverter(table).Convert(*source, *target));
      check(*target, table->name);
    }
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
  const COvChannelConverterList& list = COvChannelConverterList::Instance();  // in trial order
  ASSERT_EQ(list.Count(), 3u);
  EXPECT_EQ(std::string(list.At(0).Name()) + list.At(1).Name() + list.At(2).Name(),
            "defaultscalarfallback");
  EXPECT_STREQ(list.Find(rgb16.Format(), rgb8)->Name(), "scalar");
  check(*CopyConvertFrameBuffer(rgb16, rgb8), "scalar");
  ASSERT_TRUE(rgb16.bConvertInPlace(rgb8));
  check(rgb16, "in place");
  EXPECT_EQ(rgb16.PipelinePath().Text().find("Copy conversion"), std::string::npos);
}

// Within half a step (a relative 2^-11 for half floats, nothing for float); 0 and 1 exactly.
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

// Threads that share one block and build a conversion table at once get a serial run's bytes.
TEST(Concurrency, ResolverSharedBlocksAndTablesFromManyThreads) {
  if (!bConvertKernelsAvailable()) GTEST_SKIP() << "no SSE4.1";
  EXPECT_STREQ(SelectedConvertKernelsName(), ActiveCPUKernels().name);
  const auto source = FloatPicture(RandomLines(64, 4, 3));
  const auto run = [&] {
    const COvComplexFrameBuffer share(*source);
    auto packed = NewBuffer(MakeFormat(kRGBA, kPrecision10Bits, 1, false, true, 352), 64, 4);
    EXPECT_TRUE(COvOptimizedFrameBufferConverter().Convert(share, *packed));
    Bytes bytes = PictureBytes(*packed),
          half = PictureBytes(*CopyConvertFrameBuffer(
              *packed, MakeFormat(kRGB, kPrecision16BitFloat, 0, true, false)));
    bytes.insert(bytes.end(), half.begin(), half.end());
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
  for (const Bytes& result : results)
    EXPECT_EQ(result, run());
  EXPECT_EQ(source->SharedBuffer()->ReferenceCount(), 1u);
}

}  // namespace
