// Frame-buffer converters: kernel arithmetic against a reference written here, both kernel
// tables against each other and against the general path, every fallback route, orientation,
// in-place conversion, the precision round trip and concurrent use.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "engine/convert/channel_converters.h"
#include "engine/convert/convert_kernels.h"
#include "engine/convert/converter_list.h"
#include "engine/convert/optimized_frame_buffer_converter.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/half_float.h"
#include "engine/frame_buffer/sample_codes.h"
#include "engine/frame_buffer/simple_frame_buffer.h"
#include "foundation/cpu_features.h"
#include "frame_buffer_helpers.h"

namespace {

using namespace Tincta;
using crandle_test::FloatLine;
using crandle_test::MakeFormat;
using crandle_test::NewBuffer;
using crandle_test::PictureBytes;

// ---- Reference arithmetic, written from the documented formulas ------------------------------

uint32_t Ref8(float x) {
  if (std::isnan(x)) return 255;  // min(NaN, 1) is 1
  const float product = std::min(x, 1.0f) * 255.0f;
  if (!(product > 0.0f)) return 0;
  return static_cast<uint32_t>(std::lrint(product));
}

uint32_t Ref10(float x) {
  if (std::isnan(x)) return 1023;
  const float clamped = std::clamp(x, 0.0f, 1.0f);
  return static_cast<uint32_t>(std::lrint(clamped * 1023.0f));
}

void PutWord(std::vector<uint8_t>& out, uint32_t word, bool bigEndian) {
  for (int i = 0; i < 4; ++i)
    out.push_back(uint8_t(word >> (bigEndian ? 24 - 8 * i : 8 * i)));
}

// Expected bytes of one target line, from one source line given as samples in memory order.
std::vector<uint8_t> ReferenceLine(const std::vector<float>& source, uint32_t width,
                                   const FrameBufferFormat& to, bool exchange) {
  auto sample = [&](uint32_t x, uint32_t c) {
    const uint32_t from = exchange && (c == 0 || c == 2) ? 2 - c : c;
    return source[x * 4 + from];
  };
  std::vector<uint8_t> out;
  const uint32_t channels = ChannelCount(to);
  if (to.precision == kPrecision8Bits) {
    for (uint32_t x = 0; x < width; ++x) {
      for (uint32_t c = 0; c < channels; ++c)
        out.push_back(uint8_t(Ref8(sample(x, c))));
    }
  } else if (channels == 3) {
    for (uint32_t x = 0; x < width; ++x) {
      PutWord(out, Ref10(sample(x, 0)) << 22 | Ref10(sample(x, 1)) << 12 | Ref10(sample(x, 2)) << 2,
              to.bigEndian);
    }
  } else {
    std::vector<uint32_t> all;
    for (uint32_t x = 0; x < width; ++x) {
      for (uint32_t c = 0; c < 4; ++c)
        all.push_back(Ref10(sample(x, c)));
    }
    while (all.size() % 3)
      all.push_back(0);
    for (size_t i = 0; i < all.size(); i += 3) {
      PutWord(out, all[i] << 22 | all[i + 1] << 12 | all[i + 2] << 2, to.bigEndian);
    }
  }
  return out;
}

// ---- Kernel tables -----------------------------------------------------------------------------

enum class ETier { kSse41, kAvx2 };

bool TierRunsHere(ETier tier) {
  const SProcessorFeatures hardware = DetectProcessorFeatures(nullptr);
  return tier == ETier::kSse41 ? hardware.sse41 : hardware.Use256BitKernels();
}

const SConvertKernels& TierKernels(ETier tier) {
  return tier == ETier::kSse41 ? ConvertKernelsSse41() : ConvertKernelsAvx2();
}

std::string TierName(const testing::TestParamInfo<ETier>& info) {
  return info.param == ETier::kSse41 ? "SSE41" : "AVX2";
}

class ConvertKernelTest : public testing::TestWithParam<ETier> {
 protected:
  void SetUp() override {
    if (!TierRunsHere(GetParam())) GTEST_SKIP() << "this processor cannot run the tier";
  }
  COvOptimizedFrameBufferConverter Optimized() const {
    return COvOptimizedFrameBufferConverter(&TierKernels(GetParam()));
  }
};

uint32_t RoundUp(uint32_t value, uint32_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

// Target line strides that satisfy the vector path: whole groups, multiples of 16.
uint32_t VectorStride(const FrameBufferFormat& to, uint32_t width) {
  if (to.precision == kPrecision8Bits && to.type == kFrameBufferTypeRGB) {
    return RoundUp(RoundUp(width, 4) / 4 * 12, 16);
  }
  if (to.precision == kPrecision10Bits && to.type == kFrameBufferTypeRGBA) {
    return RoundUp(width, 3) / 3 * 16;
  }
  return RoundUp(width, 4) * 4;
}

// Float RGBA lines padded to whole groups of 4 and of 3 pixels, as the vector path asks of its
// sources.
std::unique_ptr<COvComplexFrameBuffer> FloatPicture(uint32_t width, uint32_t height, int32_t order,
                                                    bool topToBottom,
                                                    const std::vector<std::vector<float>>& lines) {
  auto buffer = NewBuffer(MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat, order, false,
                                     topToBottom, RoundUp(width, 12) * 16),
                          width, height);
  for (uint32_t y = 0; y < height; ++y) {
    std::memcpy(buffer->Line(y), lines[y].data(), size_t{width} * 16);
  }
  return buffer;
}

// Floats that hit every interesting spot of the 8- and 10-bit arithmetic.
std::vector<float> InterestingFloats() {
  std::vector<float> values = {0.0f,
                               -0.0f,
                               1.0f,
                               1.5f,
                               -0.2f,
                               0.5f,
                               2e30f,
                               -2e30f,
                               std::numeric_limits<float>::infinity(),
                               -std::numeric_limits<float>::infinity(),
                               std::numeric_limits<float>::quiet_NaN(),
                               1e-30f};
  for (float scale : {255.0f, 1023.0f}) {
    for (int k = 0; k < 1023; ++k) {
      const float x = (k + 0.5f) / scale;
      if (x <= 1.0f && x * scale == k + 0.5f) values.push_back(x);  // an exact tie
      values.push_back(std::nextafter(x, 0.0f));
      values.push_back(std::nextafter(x, 1.0f));
    }
  }
  return values;
}

std::vector<std::vector<float>> RandomLines(uint32_t width, uint32_t height, uint32_t seed) {
  static const std::vector<float> interesting = InterestingFloats();
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform(-0.25f, 1.25f);
  std::vector<std::vector<float>> lines(height, std::vector<float>(size_t{width} * 4));
  for (auto& line : lines) {
    for (float& v : line) {
      v = random() % 3 == 0 ? interesting[random() % interesting.size()] : uniform(random);
    }
  }
  return lines;
}

TEST_P(ConvertKernelTest, ExactArithmeticOfTheFloatKernels) {
  // 1.5 saturates, -0.2 goes to 0, 127.5 rounds to the even 128, NaN counts as 1.
  const std::vector<std::vector<float>> pixels = {{1.5f, -0.2f, 0.5f, 1.0f, 0.0f, 1.0f, 2.0f, -1.0f,
                                                   std::nanf(""), 0.25f, 0.75f, 0.1f, 0.2f, 0.3f,
                                                   0.4f, 0.6f}};
  auto source = FloatPicture(4, 1, kChannelOrderRGB, true, pixels);
  const auto run = [&](const FrameBufferFormat& to) {
    auto target = NewBuffer(to, 4, 1, 0xEE);
    EXPECT_TRUE(Optimized().Convert(*source, *target));
    return PictureBytes(*target);
  };
  // 0.3f × 255 rounds to exactly 76.5 in single precision, a tie that goes to the even 76.
  ASSERT_EQ(0.3f * 255.0f, 76.5f);
  EXPECT_EQ(
      run(MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, kChannelOrderRGB, false, true, 16)),
      (std::vector<uint8_t>{255, 0, 128, 255, 0, 255, 255, 0, 255, 64, 191, 26, 51, 76, 102, 153}));
  EXPECT_EQ(
      run(MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits, kChannelOrderRGB, false, true, 16)),
      (std::vector<uint8_t>{255, 0, 128, 0, 255, 255, 255, 64, 191, 51, 76, 102}));
  // 1023 << 22 | 0 << 12 | 512 << 2 = 0xFFC00800 (511.5 rounds to the even 512).
  const auto rgb10 = run(MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits));
  EXPECT_EQ(std::vector<uint8_t>(rgb10.begin(), rgb10.begin() + 4),
            (std::vector<uint8_t>{0x00, 0x08, 0xC0, 0xFF}));
  const auto rgb10be =
      run(MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits, kChannelOrderRGB, true));
  EXPECT_EQ(std::vector<uint8_t>(rgb10be.begin(), rgb10be.begin() + 4),
            (std::vector<uint8_t>{0xFF, 0xC0, 0x08, 0x00}));

  // Three RGBA pixels, three samples to a word: 0xFFC00800, 0xFFD00BFC, 0x003FFFFC, 0x198CD4CC.
  const std::vector<std::vector<float>> three = {
      {1.0f, 0.0f, 0.5f, 1.0f, 0.25f, 0.75f, -1.0f, 2.0f, std::nanf(""), 0.1f, 0.2f, 0.3f}};
  auto threeSource = FloatPicture(3, 1, kChannelOrderRGB, true, three);
  for (bool bigEndian : {false, true}) {
    auto target = NewBuffer(
        MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits, kChannelOrderRGB, bigEndian), 3, 1);
    ASSERT_TRUE(Optimized().Convert(*threeSource, *target));
    std::vector<uint8_t> expected;
    for (uint32_t word : {0xFFC00800u, 0xFFD00BFCu, 0x003FFFFCu, 0x198CD4CCu}) {
      PutWord(expected, word, bigEndian);
    }
    EXPECT_EQ(PictureBytes(*target), expected) << (bigEndian ? "big" : "little") << " endian";
  }
}

TEST_P(ConvertKernelTest, SixteenBitsKeepTheHighByte) {
  const FrameBufferFormat from = MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt);
  auto source = NewBuffer(from, 16, 1);
  const uint16_t samples[8] = {0x80FF, 0xFFFF, 0x00FF, 0x0100, 0x7F80, 0x1234, 0xFF00, 0x0001};
  for (int i = 0; i < 64; ++i) {
    std::memcpy(source->Line(0) + 2 * i, &samples[i % 8], 2);
  }
  for (int32_t order : {kChannelOrderRGB, kChannelOrderBGR}) {
    auto target = NewBuffer(MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, order), 16, 1);
    ASSERT_TRUE(Optimized().Convert(*source, *target));
    const std::vector<uint8_t> plain = {0x80, 0xFF, 0x00, 0x01, 0x7F, 0x12, 0xFF, 0x00};
    const std::vector<uint8_t> swapped = {0x00, 0xFF, 0x80, 0x01, 0xFF, 0x12, 0x7F, 0x00};
    const auto& expected = order == kChannelOrderRGB ? plain : swapped;
    for (int i = 0; i < 64; ++i)
      ASSERT_EQ(target->Line(0)[i], expected[i % 8]) << i;
  }
}

struct SVectorCase {
  FrameBufferFormat to;
  const char* name;
};

std::vector<SVectorCase> FloatTargets() {
  return {{MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits), "RGBA8"},
          {MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits), "RGB8"},
          {MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits), "RGB10"},
          {MakeFormat(kFrameBufferTypeRGB, kPrecision10Bits, kChannelOrderRGB, true), "RGB10BE"},
          {MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits), "RGBA10"},
          {MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits, kChannelOrderRGB, true), "RGBA10BE"}};
}

// Every vector conversion on random pictures, in every order and orientation combination: the
// vector path, the general path and the reference agree to the byte, tails included.
TEST_P(ConvertKernelTest, VectorPathEqualsGeneralPathAndReference) {
  const uint32_t widths[] = {1, 2, 3, 4, 5, 7, 8, 11, 12, 16, 17, 23, 48, 64, 67};
  uint32_t seed = 1;
  for (const SVectorCase& c : FloatTargets()) {
    for (uint32_t width : widths) {
      for (int32_t sourceOrder : {kChannelOrderRGB, kChannelOrderBGR}) {
        for (int32_t targetOrder : {kChannelOrderRGB, kChannelOrderBGR}) {
          for (bool flip : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + " width " + std::to_string(width) + " orders " +
                         std::to_string(sourceOrder) + std::to_string(targetOrder) +
                         (flip ? " flipped" : ""));
            const uint32_t height = 3;
            const auto lines = RandomLines(width, height, seed++);
            auto source = FloatPicture(width, height, sourceOrder, true, lines);
            FrameBufferFormat to = c.to;
            to.channelOrder = targetOrder;
            to.topToBottom = !flip;
            to.lineStride = VectorStride(to, width);
            auto vector = NewBuffer(to, width, height, 0xEE);
            auto general = NewBuffer(to, width, height, 0xEE);
            ASSERT_TRUE(Optimized().Convert(*source, *vector));
            ASSERT_TRUE(bConvertThroughFloat(*source, *general));
            std::vector<uint8_t> expected;
            for (uint32_t y = 0; y < height; ++y) {
              const auto line = ReferenceLine(lines[y], width, to, sourceOrder != targetOrder);
              expected.insert(expected.end(), line.begin(), line.end());
            }
            EXPECT_EQ(PictureBytes(*vector), expected);
            EXPECT_EQ(PictureBytes(*general), expected);
            // Nothing past the pixels of a line.
            const size_t lineBytes = PackedLineBytes(to, width);
            for (uint32_t y = 0; y < height; ++y) {
              for (size_t k = lineBytes; k < vector->LineStride(); ++k) {
                ASSERT_EQ(vector->Line(y)[k], 0xEE) << "line " << y << " byte " << k;
              }
            }
          }
        }
      }
    }
  }
}

TEST(ConvertKernels, BothTablesGiveIdenticalBytes) {
  if (!TierRunsHere(ETier::kAvx2)) GTEST_SKIP() << "this processor has no AVX2";
  const COvOptimizedFrameBufferConverter sse(&ConvertKernelsSse41());
  const COvOptimizedFrameBufferConverter avx2(&ConvertKernelsAvx2());
  for (const SVectorCase& c : FloatTargets()) {
    const uint32_t width = 1000, height = 4;
    const auto lines = RandomLines(width, height, 99);
    auto source = FloatPicture(width, height, kChannelOrderBGR, false, lines);
    FrameBufferFormat to = c.to;
    to.lineStride = VectorStride(to, width);
    auto a = NewBuffer(to, width, height);
    auto b = NewBuffer(to, width, height);
    ASSERT_TRUE(sse.Convert(*source, *a)) << c.name;
    ASSERT_TRUE(avx2.Convert(*source, *b));
    EXPECT_EQ(PictureBytes(*a), PictureBytes(*b)) << c.name;
  }
  std::mt19937 random(5);
  // 63 groups of 16 pixels: the last one is cut short, the strides cover it whole.
  auto source = NewBuffer(
      MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt, kChannelOrderRGB, false, true, 8064),
      1000, 2);
  for (uint32_t y = 0; y < 2; ++y) {
    for (uint32_t i = 0; i < 8000; ++i)
      source->Line(y)[i] = uint8_t(random());
  }
  for (int32_t order : {kChannelOrderRGB, kChannelOrderBGR}) {
    const FrameBufferFormat to =
        MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, order, false, true, 4032);
    auto a = NewBuffer(to, 1000, 2);
    auto b = NewBuffer(to, 1000, 2);
    ASSERT_TRUE(sse.Convert(*source, *a)) << order;
    ASSERT_TRUE(avx2.Convert(*source, *b));
    EXPECT_EQ(PictureBytes(*a), PictureBytes(*b));
  }
}

INSTANTIATE_TEST_SUITE_P(Tiers, ConvertKernelTest, testing::Values(ETier::kSse41, ETier::kAvx2),
                         TierName);

TEST(ConvertKernels, ResolverPicksTheTierOfTheFeatureRecord) {
  if (!bConvertKernelsAvailable()) GTEST_SKIP() << "no SSE4.1";
  const char* expected = ProcessorFeatures().Use256BitKernels() ? "avx2" : "sse4.1";
  EXPECT_STREQ(SelectedConvertKernelsName(), expected);
  const char* isa = std::getenv("CRANDLE_CPU_ISA");
  if (isa && std::string(isa) == "sse") {
    EXPECT_STREQ(SelectedConvertKernelsName(), "sse4.1");
  }
  // Several threads through fresh slots: all end with the same bytes.
  const auto lines = RandomLines(64, 1, 3);
  auto source = FloatPicture(64, 1, kChannelOrderRGB, true, lines);
  std::vector<std::unique_ptr<COvComplexFrameBuffer>> targets;
  for (int i = 0; i < 4; ++i) {
    targets.push_back(NewBuffer(
        MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits, kChannelOrderRGB, false, true, 352), 64,
        1));
  }
  std::vector<std::thread> threads;
  const COvOptimizedFrameBufferConverter dispatched;
  for (auto& target : targets) {
    threads.emplace_back([&] { EXPECT_TRUE(dispatched.Convert(*source, *target)); });
  }
  for (auto& thread : threads)
    thread.join();
  for (auto& target : targets)
    EXPECT_EQ(PictureBytes(*target), PictureBytes(*targets[0]));
}

// ---- Preconditions and fallbacks ---------------------------------------------------------------

TEST(OptimizedConverter, RefusesMisalignedAndShortStridesAndTheGeneralPathAgrees) {
  const uint32_t width = 5, height = 2;
  const auto lines = RandomLines(width, height, 11);
  auto aligned = FloatPicture(width, height, kChannelOrderRGB, true, lines);
  const FrameBufferFormat rgba8 =
      MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, kChannelOrderRGB, false, true, 32);
  auto reference = NewBuffer(rgba8, width, height);
  const COvOptimizedFrameBufferConverter optimized;
  ASSERT_TRUE(optimized.Convert(*aligned, *reference));

  // The same picture 4 bytes into a block.
  COvSharedBuffer* block = new COvSharedBuffer;
  ASSERT_TRUE(block->Allocate(4 + aligned->LineStride() * height));
  COvComplexFrameBuffer misaligned(block, width, height, aligned->Format(), 4);
  block->Release();
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(misaligned.Line(y), lines[y].data(), width * 16);
  auto target = NewBuffer(rgba8, width, height);
  EXPECT_FALSE(optimized.Convert(misaligned, *target));
  auto viaList = CopyConvertFrameBuffer(misaligned, rgba8);
  ASSERT_NE(viaList, nullptr);
  EXPECT_EQ(PictureBytes(*viaList), PictureBytes(*reference));

  // A packed 20-byte target stride is not a multiple of 16.
  const FrameBufferFormat packed = MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits);
  auto shortStride = NewBuffer(packed, width, height);
  EXPECT_FALSE(optimized.Convert(*aligned, *shortStride));
  auto viaListPacked = CopyConvertFrameBuffer(*aligned, packed);
  ASSERT_NE(viaListPacked, nullptr);
  EXPECT_EQ(viaListPacked->LineStride(), 20u);
  EXPECT_EQ(PictureBytes(*viaListPacked), PictureBytes(*reference));

  // 16-bit source with a stride short of a whole 16-pixel group.
  auto sixteen =
      NewBuffer(MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt), width, height, 0x7F);
  auto eight = NewBuffer(
      MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits, kChannelOrderRGB, false, true, 64), width,
      height);
  EXPECT_FALSE(optimized.Convert(*sixteen, *eight));
}

TEST(ConverterList, OrderAndChoice) {
  const COvChannelConverterList& list = COvChannelConverterList::Instance();
  ASSERT_EQ(list.Count(), 3u);
  EXPECT_STREQ(list.At(0).Name(), "default");
  EXPECT_STREQ(list.At(1).Name(), "scalar");
  EXPECT_STREQ(list.At(2).Name(), "fallback");
  struct SCase {
    FrameBufferFormat from, to;
    const char* chosen;
  };
  const FrameBufferFormat floatRgba = MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat);
  const SCase cases[] = {
      {floatRgba, MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits), "fallback"},
      {floatRgba,
       MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat, kChannelOrderRGB, false, false),
       "default"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt),
       MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits), "scalar"},
      {MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt),
       MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits), "fallback"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt, kChannelOrderRGB, true),
       MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits), "fallback"},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt),
       MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt, kChannelOrderRGB, true), "default"},
      {floatRgba, MakeFormat(0x200, kPrecision8Bits), nullptr},
      {floatRgba, MakeFormat(kFrameBufferTypeRGB, 7), nullptr},
      {MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits, kChannelOrderNone), floatRgba, nullptr},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const COvFrameBufferConverter* chosen = list.Find(cases[i].from, cases[i].to);
    if (cases[i].chosen == nullptr) {
      EXPECT_EQ(chosen, nullptr) << "case " << i;
    } else {
      ASSERT_NE(chosen, nullptr) << "case " << i;
      EXPECT_STREQ(chosen->Name(), cases[i].chosen) << "case " << i;
    }
  }
}

TEST(CopyConversion, HistoryAndFailureLeaveTheBufferAlone) {
  const auto lines = RandomLines(4, 2, 21);
  auto source = FloatPicture(4, 2, kChannelOrderRGB, true, lines);
  const FrameBufferFormat rgb8 = MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits);
  auto converted = CopyConvertFrameBuffer(*source, rgb8);
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(converted->PipelinePath().Text(),
            source->PipelinePath().Text() +
                "Copy conversion\nFormat: Type = RGB, Precision = 8 bits, Channel order =  RGB(A), "
                "Top to bottom\n");

  // Matching formats share the pixels.
  auto same = CopyConvertFrameBuffer(*source, source->Format());
  ASSERT_NE(same, nullptr);
  EXPECT_EQ(same->SharedBuffer(), source->SharedBuffer());

  // An unknown type: no result, and the member form leaves everything as it was.
  EXPECT_EQ(CopyConvertFrameBuffer(*source, MakeFormat(0x200, kPrecision8Bits)), nullptr);
  COvSharedBuffer* block = source->SharedBuffer();
  const std::string path = source->PipelinePath().Text();
  const auto bytes = PictureBytes(*source);
  EXPECT_FALSE(source->bCopyConvert(MakeFormat(0x200, kPrecision8Bits)));
  EXPECT_FALSE(source->bConvertInPlace(MakeFormat(kFrameBufferTypeRGB, 9)));
  EXPECT_EQ(source->SharedBuffer(), block);
  EXPECT_EQ(source->PipelinePath().Text(), path);
  EXPECT_EQ(PictureBytes(*source), bytes);

  ASSERT_TRUE(source->bCopyConvert(rgb8));
  EXPECT_EQ(PictureBytes(*source), PictureBytes(*converted));
  EXPECT_EQ(source->PipelinePath().Text(), converted->PipelinePath().Text());

  // The converting copy constructor takes the converted pixels and history.
  auto again = FloatPicture(4, 2, kChannelOrderRGB, true, lines);
  COvComplexFrameBuffer copy(*again, rgb8);
  EXPECT_EQ(PictureBytes(copy), PictureBytes(*converted));
  EXPECT_EQ(copy.PipelinePath().Text(),
            converted->PipelinePath().Text() +
                "Constructed as a copy (see pipeline above) with format conversion\nSize: 4 x 2\n"
                "Format: Type = RGB, Precision = 8 bits, Channel order =  RGB(A), Top to bottom\n");
}

TEST(DefaultConverter, OrientationAndByteOrder) {
  const auto lines = RandomLines(3, 4, 31);
  auto source = FloatPicture(3, 4, kChannelOrderRGB, true, lines);
  FrameBufferFormat flipped = source->Format();
  flipped.topToBottom = false;
  auto upside = CopyConvertFrameBuffer(*source, flipped);
  ASSERT_NE(upside, nullptr);
  for (uint32_t y = 0; y < 4; ++y) {
    EXPECT_EQ(std::memcmp(upside->Line(y), lines[y].data(), 48), 0) << y;
  }
  // In memory the bottom picture line comes first.
  EXPECT_EQ(std::memcmp(upside->FirstLineInMemory(), lines[3].data(), 48), 0);

  auto little = NewBuffer(MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt), 1, 1);
  const uint8_t samples[6] = {0x34, 0x12, 0x78, 0x56, 0xBC, 0x9A};
  std::memcpy(little->Line(0), samples, 6);
  auto big = CopyConvertFrameBuffer(
      *little, MakeFormat(kFrameBufferTypeRGB, kPrecision16BitInt, kChannelOrderRGB, true));
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(PictureBytes(*big), (std::vector<uint8_t>{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}));
  EXPECT_STREQ(COvChannelConverterList::Instance().Find(little->Format(), big->Format())->Name(),
               "default");

  // A wrapped buffer whose 15-byte stride is not rounded to words: exactly its pixels are read.
  std::vector<uint8_t> memory(15 * 4);
  for (size_t i = 0; i < memory.size(); ++i)
    memory[i] = uint8_t(i);
  COvSimpleFrameBuffer simple(memory.data(), memory.size(), 5, 4, 3, 15, 0, kChannelOrderRGB, true);
  COvComplexFrameBuffer wrapped(simple);
  FrameBufferFormat turned = wrapped.Format();
  turned.topToBottom = false;
  turned.lineStride = 0;
  auto unwrapped = CopyConvertFrameBuffer(wrapped, turned);
  ASSERT_NE(unwrapped, nullptr);
  EXPECT_EQ(unwrapped->LineStride(), 16u);
  for (uint32_t y = 0; y < 4; ++y) {
    EXPECT_EQ(std::memcmp(unwrapped->Line(y), memory.data() + 15 * y, 15), 0) << y;
  }
}

TEST(FallbackConverter, ChannelExchangeIsExactAtEveryPrecision) {
  for (uint32_t precision = 0; precision < kPrecisionCount; ++precision) {
    for (uint32_t type : {kFrameBufferTypeRGB, kFrameBufferTypeRGBA}) {
      SCOPED_TRACE("precision " + std::to_string(precision) + " type " + std::to_string(type));
      const FrameBufferFormat from = MakeFormat(type, precision, kChannelOrderBGR);
      const FrameBufferFormat to = MakeFormat(type, precision, kChannelOrderRGB, true);
      const uint32_t width = 7;
      const uint32_t channels = ChannelCount(from);
      auto source = NewBuffer(from, width, 1);
      std::vector<uint32_t> codes(width * channels);
      for (uint32_t i = 0; i < codes.size(); ++i) {
        const uint32_t full = FullScaleCode(from, i % channels);
        codes[i] = full == 0x3F800000 ? 0x3F000000 + i : (full - i % (full / 2 + 1));
      }
      WriteSampleCodes(codes.data(), from, width, source->Line(0));
      auto target = CopyConvertFrameBuffer(*source, to);
      ASSERT_NE(target, nullptr);
      std::vector<uint32_t> back(codes.size());
      ReadSampleCodes(target->Line(0), to, width, back.data());
      for (uint32_t x = 0; x < width; ++x) {
        for (uint32_t c = 0; c < channels; ++c) {
          const uint32_t from_c = c == 0 ? 2 : c == 2 ? 0 : c;
          ASSERT_EQ(back[x * channels + c], codes[x * channels + from_c]) << x << " " << c;
        }
      }
    }
  }
}

TEST(GeneralPath, TypesAndLuma) {
  // Pure primaries to Intensity take the Rec. 709 weights: 54.2, 182.4, 18.4, 255.
  const std::vector<std::vector<float>> primaries = {
      {1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 1, 1, 1, 1, 0}};
  auto source = FloatPicture(4, 1, kChannelOrderRGB, true, primaries);
  auto grey =
      CopyConvertFrameBuffer(*source, MakeFormat(kFrameBufferTypeIntensity, kPrecision8Bits));
  ASSERT_NE(grey, nullptr);
  EXPECT_EQ(PictureBytes(*grey), (std::vector<uint8_t>{54, 182, 18, 255}));

  // Intensity to RGBA copies the sample and adds a full alpha; 8 bits widen by 257.
  auto widened = CopyConvertFrameBuffer(
      *grey, MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt, kChannelOrderBGR));
  ASSERT_NE(widened, nullptr);
  std::vector<uint32_t> codes(16);
  ReadSampleCodes(widened->Line(0), widened->Format(), 4, codes.data());
  EXPECT_EQ(codes, (std::vector<uint32_t>{54 * 257, 54 * 257, 54 * 257, 65535, 182 * 257, 182 * 257,
                                          182 * 257, 65535, 18 * 257, 18 * 257, 18 * 257, 65535,
                                          65535, 65535, 65535, 65535}));
}

// ---- 16 bits to 8 bits on every route ----------------------------------------------------------

TEST(SixteenToEight, EveryRouteTruncatesEveryCode) {
  const uint32_t width = 128, height = 128;  // 65536 samples in RGBA
  const FrameBufferFormat from = MakeFormat(kFrameBufferTypeRGBA, kPrecision16BitInt);
  auto source = NewBuffer(from, width, height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t i = 0; i < width * 4; ++i) {
      const uint16_t code = static_cast<uint16_t>(y * width * 4 + i);
      std::memcpy(source->Line(y) + 2 * i, &code, 2);
    }
  }
  auto expectHighBytes = [&](const COvComplexFrameBuffer& target, uint32_t channels) {
    for (uint32_t y = 0; y < height; ++y) {
      for (uint32_t i = 0; i < width * channels; ++i) {
        const uint32_t sourceIndex = channels == 4 ? i : (i / 3) * 4 + i % 3;
        ASSERT_EQ(target.Line(y)[i], ((y * width * 4 + sourceIndex) >> 8) & 0xFF) << y << " " << i;
      }
    }
  };
  const FrameBufferFormat rgba8 = MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits);
  auto vector = CopyConvertFrameBuffer(*source, rgba8);  // aligned, 512-byte lines
  ASSERT_NE(vector, nullptr);
  expectHighBytes(*vector, 4);

  COvSharedBuffer* block = new COvSharedBuffer;
  ASSERT_TRUE(block->Allocate(8 + size_t{width} * 8 * height));
  COvComplexFrameBuffer misaligned(block, width, height, from, 8 + 2);
  block->Release();
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(misaligned.Line(y), source->Line(y), width * 8);
  auto general = CopyConvertFrameBuffer(misaligned, rgba8);
  ASSERT_NE(general, nullptr);
  expectHighBytes(*general, 4);

  COvComplexFrameBuffer rgb16(*source);
  rgb16.StripAlpha();  // made unique, then repacked
  auto scalar = CopyConvertFrameBuffer(rgb16, MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits));
  ASSERT_NE(scalar, nullptr);
  expectHighBytes(*scalar, 3);

  ASSERT_TRUE(rgb16.bConvertInPlace(MakeFormat(kFrameBufferTypeRGB, kPrecision8Bits)));
  expectHighBytes(rgb16, 3);
  EXPECT_EQ(rgb16.PipelinePath().Text().find("Copy conversion"), std::string::npos);
}

// ---- In place ----------------------------------------------------------------------------------

TEST(InPlaceConversion, ShrinkingGrowingAndRefusing) {
  const uint32_t width = 9, height = 5;
  const auto lines = RandomLines(width, height, 41);
  const FrameBufferFormat rgba8 = MakeFormat(kFrameBufferTypeRGBA, kPrecision8Bits);
  auto reference =
      CopyConvertFrameBuffer(*FloatPicture(width, height, kChannelOrderRGB, true, lines), rgba8);
  ASSERT_NE(reference, nullptr);

  auto shrinking = FloatPicture(width, height, kChannelOrderRGB, true, lines);
  COvSharedBuffer* block = shrinking->SharedBuffer();
  const std::string before = shrinking->PipelinePath().Text();
  ASSERT_TRUE(shrinking->bConvertInPlace(rgba8));
  EXPECT_EQ(shrinking->SharedBuffer(), block);
  EXPECT_EQ(PictureBytes(*shrinking), PictureBytes(*reference));
  EXPECT_EQ(shrinking->PipelinePath().Text(),
            before +
                "In-place conversion\nFormat: Type = RGBA, Precision = 8 bits, "
                "Channel order =  RGB(A), Top to bottom\n");

  // Back to float: rows grow, the block with them, bottom rows first.
  const FrameBufferFormat floatRgba = MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat);
  auto grownReference = CopyConvertFrameBuffer(*reference, floatRgba);
  ASSERT_TRUE(shrinking->bConvertInPlace(floatRgba));
  EXPECT_EQ(PictureBytes(*shrinking), PictureBytes(*grownReference));

  // Shared with another buffer: a copy conversion instead, the other buffer untouched.
  auto shared = FloatPicture(width, height, kChannelOrderRGB, true, lines);
  const std::string sharedBefore = shared->PipelinePath().Text();
  COvComplexFrameBuffer other(*shared);
  const auto otherBytes = PictureBytes(other);
  ASSERT_TRUE(shared->bConvertInPlace(rgba8));
  EXPECT_EQ(PictureBytes(*shared), PictureBytes(*reference));
  EXPECT_EQ(PictureBytes(other), otherBytes);
  EXPECT_EQ(shared->PipelinePath().Text(),
            sharedBefore +
                "Copy conversion was invoked from in-place (in-place failed)\nFormat: Type = RGBA, "
                "Precision = 8 bits, Channel order =  RGB(A), Top to bottom\n");

  // A change of orientation is not done in place either.
  auto turned = FloatPicture(width, height, kChannelOrderRGB, true, lines);
  FrameBufferFormat upsideDown = rgba8;
  upsideDown.topToBottom = false;
  ASSERT_TRUE(turned->bConvertInPlace(upsideDown));
  for (uint32_t y = 0; y < height; ++y) {
    EXPECT_EQ(std::memcmp(turned->Line(y), reference->Line(y), width * 4), 0);
  }
  EXPECT_NE(turned->PipelinePath().Text().find("(in-place failed)"), std::string::npos);
}

// ---- Precision round trip ----------------------------------------------------------------------

TEST(RoundTrip, EveryPrecisionLosesNoMoreThanItsQuantisation) {
  const uint32_t width = 37, height = 2;
  std::mt19937 random(17);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  std::vector<std::vector<float>> lines(height, std::vector<float>(width * 4));
  for (auto& line : lines) {
    for (float& v : line)
      v = unit(random);
    line[0] = 0.0f;
    line[1] = 1.0f;
  }
  const double fullScale[kPrecisionCount] = {255, 1023, 1023, 65535, 0, 4294967295.0, 0};
  for (uint32_t precision = 0; precision < kPrecisionCount; ++precision) {
    for (bool bigEndian : {false, true}) {
      SCOPED_TRACE("precision " + std::to_string(precision) + (bigEndian ? " BE" : " LE"));
      auto source = FloatPicture(width, height, kChannelOrderRGB, true, lines);
      auto stored = CopyConvertFrameBuffer(
          *source, MakeFormat(kFrameBufferTypeRGBA, precision, kChannelOrderBGR, bigEndian, false));
      ASSERT_NE(stored, nullptr);
      auto back = CopyConvertFrameBuffer(*stored, source->Format());
      ASSERT_NE(back, nullptr);
      for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t i = 0; i < width * 4; ++i) {
          const double original = lines[y][i];
          const double result = FloatLine(*back, y)[i];
          double bound;
          if (precision == kPrecision16BitFloat) {
            bound = std::max(std::abs(original) * std::ldexp(1.0, -11), std::ldexp(1.0, -25));
          } else if (precision == kPrecision32BitFloat) {
            bound = 0.0;
          } else if (precision == kPrecision10Plus2Bits && i % 4 == 3) {
            bound = 0.5 / 3 + 1e-7;
          } else {
            // Half a step, plus the single-precision rounding of the decoded value.
            bound = 0.5 / fullScale[precision] + 6e-8;
          }
          ASSERT_LE(std::abs(result - original), bound) << "line " << y << " sample " << i;
        }
        // Full scale reads back as exactly 1.0.
        ASSERT_EQ(FloatLine(*back, y)[1], 1.0f);
        ASSERT_EQ(FloatLine(*back, y)[0], 0.0f);
      }
    }
  }
}

TEST(HalfFloat, AgreesWithTheCompilersHalfType) {
  for (uint32_t code = 0; code < 65536; ++code) {
    const float expected = static_cast<float>(std::bit_cast<_Float16>(static_cast<uint16_t>(code)));
    const float actual = HalfToFloat(static_cast<uint16_t>(code));
    if (std::isnan(expected)) {
      ASSERT_TRUE(std::isnan(actual)) << code;
    } else {
      ASSERT_EQ(std::bit_cast<uint32_t>(actual), std::bit_cast<uint32_t>(expected)) << code;
    }
  }
  std::mt19937 random(23);
  std::vector<float> values = {0.0f,
                               -0.0f,
                               65504.0f,
                               65519.99f,
                               65520.0f,
                               1e10f,
                               -1e10f,
                               std::ldexp(1.0f, -24),
                               std::ldexp(1.0f, -25),
                               std::ldexp(1.5f, -25),
                               std::ldexp(1.0f, -14),
                               std::numeric_limits<float>::infinity()};
  for (int i = 0; i < 200000; ++i) {
    values.push_back(std::bit_cast<float>(static_cast<uint32_t>(random())));
  }
  for (float value : values) {
    if (std::isnan(value)) {
      EXPECT_EQ(FloatToHalf(value) & 0x7C00, 0x7C00);
      EXPECT_NE(FloatToHalf(value) & 0x03FF, 0);
      continue;
    }
    const uint16_t expected = std::bit_cast<uint16_t>(static_cast<_Float16>(value));
    ASSERT_EQ(FloatToHalf(value), expected) << value;
  }
}

// ---- Concurrency -------------------------------------------------------------------------------

TEST(Concurrency, TablesSharedBlocksAndConversionsFromManyThreads) {
  const uint32_t width = 33, height = 4;
  const FrameBufferFormat from = MakeFormat(kFrameBufferTypeRGBA, kPrecision10Bits);
  auto source = NewBuffer(from, width, height);
  std::mt19937 random(51);
  std::vector<uint32_t> codes(width * 4);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t& code : codes)
      code = random() % 1024;
    WriteSampleCodes(codes.data(), from, width, source->Line(y));
  }
  const FrameBufferFormat to =
      MakeFormat(kFrameBufferTypeRGB, kPrecision16BitFloat, kChannelOrderBGR, true, false);
  constexpr int kThreads = 8;
  std::vector<std::vector<uint8_t>> results(kThreads);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < kThreads) {
      }
      for (int round = 0; round < 20; ++round) {
        COvComplexFrameBuffer share(*source);  // reference counts move on every thread
        auto converted = CopyConvertFrameBuffer(share, to);
        ASSERT_NE(converted, nullptr);
        if (round == 0) results[t] = PictureBytes(*converted);
        EXPECT_EQ(PictureBytes(*converted), results[t]);
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(source->SharedBuffer()->ReferenceCount(), 1u);
  for (int t = 1; t < kThreads; ++t)
    EXPECT_EQ(results[t], results[0]);

  // The values themselves: 10-bit codes over 1023, as halves, lines upside down.
  for (uint32_t y = 0; y < height; ++y) {
    ReadSampleCodes(source->Line(y), from, width, codes.data());
    const size_t lineBytes = width * 6;
    const uint8_t* line = results[0].data() + y * lineBytes;
    for (uint32_t x = 0; x < width; ++x) {
      for (uint32_t c = 0; c < 3; ++c) {
        const uint16_t half = uint16_t(line[x * 6 + c * 2] << 8 | line[x * 6 + c * 2 + 1]);
        const float expected = static_cast<float>(codes[x * 4 + 2 - c] / 1023.0);
        ASSERT_EQ(half, std::bit_cast<uint16_t>(static_cast<_Float16>(expected))) << x << c;
      }
    }
  }
}

}  // namespace
