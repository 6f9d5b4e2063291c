// Pixel conversion: every pair of formats against an independent model of the arithmetic, exact
// bytes of the packed 10-bit words, strides, failures that must not write, round trips.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "host/pixel_convert.h"
#include "host/pixel_format.h"

namespace {

using host::IR_Convert;

constexpr int k8 = host::kIRFormat_BGRA_8u;
constexpr int k16 = host::kIRFormat_BGRA_16u;
constexpr int kF = host::kIRFormat_BGRA_32f;
constexpr int k10 = host::kIRFormat_RGB_10u_BE;
constexpr int kAllCodes[] = {k8, k16, kF, k10};

// The model: each format's pixels as four channels in B, G, R, A order, with the integer value
// and its full scale (full scale 0 marks a float channel).
struct SChannel {
  double value = 0;
  uint32_t fullScale = 0;
};
using Pixel = std::array<SChannel, 4>;

size_t ModelBytesPerPixel(int code) {
  return code == k16 ? 8 : code == kF ? 16 : 4;
}
uint32_t ModelFullScale(int code) {
  return code == k8 ? 255 : code == k16 ? 65535 : code == k10 ? 1023 : 0;
}

Pixel ReadModel(int code, const uint8_t* p) {
  Pixel pixel;
  if (code == k8) {
    for (int k = 0; k < 4; ++k)
      pixel[k] = {double(p[k]), 255};
  } else if (code == k16) {
    for (int k = 0; k < 4; ++k) {
      uint16_t v;
      std::memcpy(&v, p + 2 * k, 2);
      pixel[k] = {double(v), 65535};
    }
  } else if (code == kF) {
    for (int k = 0; k < 4; ++k) {
      float v;
      std::memcpy(&v, p + 4 * k, 4);
      pixel[k] = {double(v), 0};
    }
  } else {
    // Big-endian word, bits from the most significant: 10 red, 10 green, 10 blue, 2 padding.
    uint64_t bits = 0;
    for (int b = 0; b < 4; ++b)
      bits = bits * 256 + p[b];
    pixel[2] = {double((bits / (1u << 22)) % 1024), 1023};
    pixel[1] = {double((bits / (1u << 12)) % 1024), 1023};
    pixel[0] = {double((bits / (1u << 2)) % 1024), 1023};
    pixel[3] = {1023, 1023};
  }
  return pixel;
}

// Integer to integer: value x to / from, rounded half up, in exact integer arithmetic.
uint32_t RescaleModel(uint32_t value, uint32_t from, uint32_t to) {
  const uint64_t product = uint64_t(value) * to;
  return uint32_t(product / from + (2 * (product % from) >= from ? 1 : 0));
}

// Float to integer: nearest integer to value x full scale, halves upwards, clamped; NaN is 0.
uint32_t QuantizeModel(double value, uint32_t fullScale) {
  if (std::isnan(value)) return 0;
  const double scaled = value * fullScale;  // exact: 24-bit by 16-bit significands
  if (scaled <= 0) return 0;
  if (scaled >= fullScale) return fullScale;
  const double whole = std::floor(scaled);
  return uint32_t(whole) + (scaled - whole >= 0.5 ? 1 : 0);
}

// What a destination pixel must hold, byte for byte.
std::vector<uint8_t> ExpectedBytes(int dstCode, const Pixel& source) {
  std::array<uint32_t, 4> integers{};
  std::array<float, 4> floats{};
  const uint32_t dstScale = ModelFullScale(dstCode);
  for (int k = 0; k < 4; ++k) {
    const SChannel c = source[k];
    if (dstCode == kF) {
      // IEEE division of two exact operands is correctly rounded: the independent reference.
      floats[k] = c.fullScale == 0 ? float(c.value) : float(c.value) / float(c.fullScale);
    } else if (c.fullScale == 0) {
      integers[k] = QuantizeModel(c.value, dstScale);
    } else {
      integers[k] = RescaleModel(uint32_t(c.value), c.fullScale, dstScale);
    }
  }
  std::vector<uint8_t> bytes(ModelBytesPerPixel(dstCode));
  if (dstCode == k8) {
    for (int k = 0; k < 4; ++k)
      bytes[k] = uint8_t(integers[k]);
  } else if (dstCode == k16) {
    for (int k = 0; k < 4; ++k) {
      const uint16_t v = uint16_t(integers[k]);
      std::memcpy(&bytes[2 * k], &v, 2);
    }
  } else if (dstCode == kF) {
    std::memcpy(bytes.data(), floats.data(), 16);
  } else {
    const uint64_t word =
        uint64_t(integers[2]) * (1u << 22) + integers[1] * (1u << 12) + integers[0] * 4;
    for (int b = 0; b < 4; ++b)
      bytes[b] = uint8_t(word >> (8 * (3 - b)));
  }
  return bytes;
}

// Fills `count` pixels of `code` with deterministic content that covers each format's range;
// float pixels include values outside [0, 1], halves, NaN and infinities.
std::vector<uint8_t> SourcePixels(int code, size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count * ModelBytesPerPixel(code));
  if (code == kF) {
    const float specials[] = {0.0f, 1.0f, 0.5f, -0.0f, -1.0f, 2.0f, std::nextafter(0.5f, 0.0f),
                              std::nextafter(0.5f, 1.0f), std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), 1e-30f,
                              // value x 255, x 65535, x 1023 lies just below a half, and the
                              // product rounded to float would land on it
                              0x1.020202p-1f, 0x1.0081p-8f, 0x1.405014p-9f};
    std::uniform_real_distribution<float> unit(-0.25f, 1.25f);
    for (size_t i = 0; i < count * 4; ++i) {
      const float v = i < std::size(specials) ? specials[i] : unit(random);
      std::memcpy(&bytes[4 * i], &v, 4);
    }
  } else {
    for (auto& b : bytes)
      b = uint8_t(random());
  }
  return bytes;
}

std::string CodeName(int code) {
  return code == k8 ? "8u" : code == k16 ? "16u" : code == kF ? "32f" : "10u";
}

TEST(IRConvert, EveryPairMatchesTheModel) {
  constexpr uint32_t kWidth = 37;  // odd: vector loops and their tails
  constexpr uint32_t kHeight = 3;
  for (int from : kAllCodes) {
    for (int to : kAllCodes) {
      SCOPED_TRACE(CodeName(from) + " -> " + CodeName(to));
      const auto src = SourcePixels(from, kWidth * kHeight, 7u + from + to);
      std::vector<uint8_t> dst(kWidth * kHeight * ModelBytesPerPixel(to), 0xEE);
      ASSERT_EQ(IR_Convert(src.data(), kWidth * ModelBytesPerPixel(from), from, dst.data(),
                           kWidth * ModelBytesPerPixel(to), to, kWidth, kHeight, 4),
                0);
      for (size_t i = 0; i < kWidth * kHeight; ++i) {
        const uint8_t* in = &src[i * ModelBytesPerPixel(from)];
        std::vector<uint8_t> expected;
        if (from == to) {
          expected.assign(in, in + ModelBytesPerPixel(from));  // same format: bytes as they are
        } else {
          expected = ExpectedBytes(to, ReadModel(from, in));
        }
        const std::vector<uint8_t> got(dst.begin() + i * expected.size(),
                                       dst.begin() + (i + 1) * expected.size());
        ASSERT_EQ(got, expected) << "pixel " << i;
      }
    }
  }
}

// Every integer sample value of each format, in every channel, against the model.
TEST(IRConvert, EveryIntegerValueToEveryFormat) {
  for (int from : {k8, k16, k10}) {
    const uint32_t full = ModelFullScale(from);
    const uint32_t count = full + 1;
    std::vector<uint8_t> src(count * ModelBytesPerPixel(from));
    for (uint32_t v = 0; v < count; ++v) {
      // Each channel holds a different value so that swapped channels show.
      const uint32_t b = v, g = (v + 1) % count, r = full - v, a = (v * 7) % count;
      uint8_t* p = &src[v * ModelBytesPerPixel(from)];
      if (from == k8) {
        p[0] = uint8_t(b), p[1] = uint8_t(g), p[2] = uint8_t(r), p[3] = uint8_t(a);
      } else if (from == k16) {
        const uint16_t s[4] = {uint16_t(b), uint16_t(g), uint16_t(r), uint16_t(a)};
        std::memcpy(p, s, 8);
      } else {
        const uint32_t word = r << 22 | g << 12 | b << 2;
        for (int i = 0; i < 4; ++i)
          p[i] = uint8_t(word >> (24 - 8 * i));
      }
    }
    for (int to : kAllCodes) {
      if (to == from) continue;
      SCOPED_TRACE(CodeName(from) + " -> " + CodeName(to));
      std::vector<uint8_t> dst(count * ModelBytesPerPixel(to));
      ASSERT_EQ(IR_Convert(src.data(), src.size(), from, dst.data(), dst.size(), to, count, 1, 4),
                0);
      for (uint32_t v = 0; v < count; ++v) {
        const auto expected =
            ExpectedBytes(to, ReadModel(from, &src[v * ModelBytesPerPixel(from)]));
        ASSERT_EQ(0, std::memcmp(expected.data(), &dst[v * expected.size()], expected.size()))
            << "value " << v;
      }
    }
  }
}

// Hand-worked values: the ends of the range, the one exact tie (0.5), its neighbours, clamping.
TEST(IRConvert, FloatToIntegerRoundingAndClamping) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  struct Case {
    float value;
    uint32_t as8, as16, as10;
  };
  const Case cases[] = {
      {0.0f, 0, 0, 0},
      {1.0f, 255, 65535, 1023},
      {0.5f, 128, 32768, 512},  // 127.5, 32767.5, 511.5 round up
      {std::nextafter(0.5f, 0.0f), 127, 32767, 511},
      {-0.0f, 0, 0, 0},
      {-0.5f, 0, 0, 0},
      {1.5f, 255, 65535, 1023},
      {inf, 255, 65535, 1023},
      {-inf, 0, 0, 0},
      {nan, 0, 0, 0},
      {-nan, 0, 0, 0},
      {1.0f / 255.0f, 1, 257, 4},  // 4.0118 for 10-bit
      {0.001f, 0, 66, 1},          // 0.255, 65.535, 1.023
      {std::numeric_limits<float>::denorm_min(), 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    const float src[4] = {c.value, c.value, c.value, c.value};
    uint8_t d8[4];
    uint16_t d16[4];
    uint8_t d10[4];
    ASSERT_EQ(IR_Convert(src, 16, kF, d8, 4, k8, 1, 1, 4), 0);
    ASSERT_EQ(IR_Convert(src, 16, kF, d16, 8, k16, 1, 1, 4), 0);
    ASSERT_EQ(IR_Convert(src, 16, kF, d10, 4, k10, 1, 1, 4), 0);
    for (int k = 0; k < 4; ++k) {
      EXPECT_EQ(d8[k], c.as8);
      EXPECT_EQ(d16[k], c.as16);
    }
    const uint32_t word = uint32_t(d10[0]) << 24 | d10[1] << 16 | d10[2] << 8 | d10[3];
    EXPECT_EQ(word, c.as10 << 22 | c.as10 << 12 | c.as10 << 2);
  }
}

// The packed word, byte for byte: red at the top, padding bits zero, alpha dropped.
TEST(IRConvert, Packed10BitBytes) {
  struct Case {
    uint8_t bgra[4];
    uint8_t word[4];
  };
  const Case cases[] = {
      {{0, 0, 255, 0}, {0xFF, 0xC0, 0x00, 0x00}}, {{0, 255, 0, 255}, {0x00, 0x3F, 0xF0, 0x00}},
      {{255, 0, 0, 0}, {0x00, 0x00, 0x0F, 0xFC}}, {{255, 255, 255, 255}, {0xFF, 0xFF, 0xFF, 0xFC}},
      {{1, 2, 3, 9}, {0x03, 0x00, 0x80, 0x10}},  // r 12, g 8, b 4 (x 1023/255 rounded)
  };
  for (const Case& c : cases) {
    uint8_t word[4] = {0xAA, 0xAA, 0xAA, 0xAA};
    ASSERT_EQ(IR_Convert(c.bgra, 4, k8, word, 4, k10, 1, 1, 4), 0);
    EXPECT_EQ(0, std::memcmp(word, c.word, 4))
        << int(word[0]) << " " << int(word[1]) << " " << int(word[2]) << " " << int(word[3]);
    // Back to 8-bit: the same colour, opaque.
    uint8_t back[4];
    ASSERT_EQ(IR_Convert(c.word, 4, k10, back, 4, k8, 1, 1, 4), 0);
    EXPECT_EQ(back[0], c.bgra[0]);
    EXPECT_EQ(back[1], c.bgra[1]);
    EXPECT_EQ(back[2], c.bgra[2]);
    EXPECT_EQ(back[3], 255);
  }
  // Padding bits of a source word are ignored.
  const uint8_t padded[4] = {0x00, 0x00, 0x00, 0x03};
  float out[4];
  ASSERT_EQ(IR_Convert(padded, 4, k10, out, 16, kF, 1, 1, 4), 0);
  EXPECT_EQ(out[0], 0.0f);
  EXPECT_EQ(out[1], 0.0f);
  EXPECT_EQ(out[2], 0.0f);
  EXPECT_EQ(out[3], 1.0f);
}

TEST(IRConvert, IntegerRoundTripsThroughFloatAreExact) {
  for (int code : {k8, k16, k10}) {
    SCOPED_TRACE(CodeName(code));
    const uint32_t pixels = 4096;
    const auto src = SourcePixels(code, pixels, 99);
    std::vector<float> middle(pixels * 4);
    std::vector<uint8_t> back(src.size());
    ASSERT_EQ(
        IR_Convert(src.data(), src.size(), code, middle.data(), pixels * 16, kF, pixels, 1, 4), 0);
    ASSERT_EQ(
        IR_Convert(middle.data(), pixels * 16, kF, back.data(), back.size(), code, pixels, 1, 4),
        0);
    if (code == k10) {
      // The two padding bits come back as zero.
      for (size_t i = 0; i < pixels; ++i)
        EXPECT_EQ(back[4 * i + 3], src[4 * i + 3] & 0xFC);
      for (size_t i = 0; i < pixels; ++i)
        back[4 * i + 3] = src[4 * i + 3];
    }
    EXPECT_EQ(back, src);
  }
}

TEST(IRConvert, FloatIdentityKeepsEveryBit) {
  const uint32_t bits[4] = {0x7FC12345u, 0xFF800000u, 0x80000000u, 0x3F800001u};
  uint32_t out[4] = {};
  ASSERT_EQ(IR_Convert(bits, 16, kF, out, 16, kF, 1, 1, 4), 0);
  EXPECT_EQ(0, std::memcmp(bits, out, 16));
}

// Rows apart by more than their length: padding on both sides is neither read nor written.
TEST(IRConvert, RowStridesWithPadding) {
  constexpr uint32_t kWidth = 5, kHeight = 4;
  for (int from : kAllCodes) {
    for (int to : kAllCodes) {
      SCOPED_TRACE(CodeName(from) + " -> " + CodeName(to));
      const size_t srcRow = kWidth * ModelBytesPerPixel(from) + 12;
      const size_t dstRow = kWidth * ModelBytesPerPixel(to) + 20;
      auto src = SourcePixels(from, (srcRow / ModelBytesPerPixel(from) + 1) * kHeight, 3);
      src.resize(srcRow * kHeight);
      std::vector<uint8_t> dst(dstRow * kHeight, 0x5A);
      ASSERT_EQ(IR_Convert(src.data(), srcRow, from, dst.data(), dstRow, to, kWidth, kHeight, 4),
                0);
      for (uint32_t y = 0; y < kHeight; ++y) {
        for (uint32_t x = 0; x < kWidth; ++x) {
          const uint8_t* in = &src[y * srcRow + x * ModelBytesPerPixel(from)];
          const auto expected = from == to ? std::vector<uint8_t>(in, in + ModelBytesPerPixel(from))
                                           : ExpectedBytes(to, ReadModel(from, in));
          ASSERT_EQ(0, std::memcmp(expected.data(), &dst[y * dstRow + x * expected.size()],
                                   expected.size()))
              << x << "," << y;
        }
        for (size_t b = kWidth * ModelBytesPerPixel(to); b < dstRow; ++b)
          ASSERT_EQ(dst[y * dstRow + b], 0x5A) << "padding of row " << y;
      }
    }
  }
}

// A source row of width x 4 bytes may start at any byte address.
TEST(IRConvert, UnalignedRows) {
  std::vector<uint8_t> src(1 + 3 * 16), dst(3 + 3 * 8);
  const float values[12] = {0, 0.25f, 0.5f, 1, 1, 0.75f, 0.125f, 0, 0.1f, 0.2f, 0.3f, 0.4f};
  std::memcpy(&src[1], values, sizeof values);
  ASSERT_EQ(IR_Convert(&src[1], 48, kF, &dst[3], 24, k16, 3, 1, 4), 0);
  for (int i = 0; i < 12; ++i) {
    uint16_t v;
    std::memcpy(&v, &dst[3 + 2 * i], 2);
    EXPECT_EQ(v, QuantizeModel(values[i], 65535)) << i;
  }
}

TEST(IRConvert, BadArgumentsFailWithoutWriting) {
  std::vector<uint8_t> buffer(4096, 0x11);
  std::vector<uint8_t> dst(4096, 0xC3);
  const std::vector<uint8_t> untouched = dst;
  uint8_t* const s = buffer.data();
  uint8_t* const d = dst.data();
  struct Case {
    const char* what;
    const void* src;
    size_t srcRowBytes;
    int srcCode;
    void* dst;
    size_t dstRowBytes;
    int dstCode;
    uint32_t width, height;
    int components;
  };
  const Case cases[] = {
      {"unknown source code", s, 64, 0, d, 64, k8, 4, 4, 4},
      {"unknown destination code", s, 64, k8, d, 64, 261, 4, 4, 4},
      {"negative code", s, 64, -260, d, 64, k8, 4, 4, 4},
      {"three components", s, 64, k8, d, 64, kF, 4, 4, 3},
      {"no components", s, 64, k8, d, 64, kF, 4, 4, 0},
      {"five components", s, 64, k8, d, 64, kF, 4, 4, 5},
      {"null source", nullptr, 64, k8, d, 64, kF, 4, 4, 4},
      {"null destination", s, 64, k8, nullptr, 64, kF, 4, 4, 4},
      {"source rows too short", s, 15, k8, d, 64, kF, 4, 4, 4},
      {"destination rows too short", s, 16, k8, d, 63, kF, 4, 4, 4},
      {"16-bit rows too short", s, 31, k16, d, 64, k8, 4, 4, 4},
      {"source span beyond the address space", s, SIZE_MAX / 2, k8, d, 64, k8, 4, 4, 4},
      {"destination span beyond the address space", s, 64, k8, d, SIZE_MAX / 3, k8, 4, 4, 4},
      {"same buffer", d, 64, k8, d, 64, k8, 4, 4, 4},
      {"destination starts inside the source", d, 64, k8, d + 100, 64, kF, 4, 4, 4},
      {"source starts inside the destination", d + 200, 16, k8, d, 64, kF, 4, 4, 4},
      {"last source byte is the first destination byte", d, 64, k8, d + 64 * 3 + 15, 16, k8, 4, 4,
       4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_NE(IR_Convert(c.src, c.srcRowBytes, c.srcCode, c.dst, c.dstRowBytes, c.dstCode, c.width,
                         c.height, c.components),
              0);
    EXPECT_EQ(dst, untouched);
  }
  // Adjacent but not overlapping is fine: rows end exactly where the destination begins.
  EXPECT_EQ(IR_Convert(d, 16, k8, d + 16 * 4, 16, k8, 4, 4, 4), 0);
}

TEST(IRConvert, EmptyImagesWriteNothing) {
  std::vector<uint8_t> dst(64, 0x77);
  const uint8_t src[64] = {};
  EXPECT_EQ(IR_Convert(src, 16, k8, dst.data(), 64, kF, 0, 4, 4), 0);
  EXPECT_EQ(IR_Convert(src, 16, k8, dst.data(), 64, kF, 4, 0, 4), 0);
  EXPECT_EQ(dst, std::vector<uint8_t>(64, 0x77));
}

TEST(PixelFormats, CodesSizesAndNames) {
  struct Case {
    host::PixelFormat format;
    int code;
    size_t bytes;
  };
  const Case cases[] = {
      {host::kPixelFormat_BGRA_4444_8u, k8, 4},
      {host::kPixelFormat_BGRA_4444_16u, k16, 8},
      {host::kPixelFormat_BGRA_4444_32f, kF, 16},
      {host::kPixelFormat_RGB_101010_10u_BE, k10, 4},
      {{host::kPixelFormat_BGRA_4444_8u.code, 12}, host::kIRFormat_Unknown, 0},
      {{0, 32}, host::kIRFormat_Unknown, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(host::IR_FormatCodeFromPixelFormat(c.format), c.code);
    EXPECT_EQ(host::BytesPerPixel(c.format), c.bytes);
    EXPECT_EQ(host::PixelFormatName(c.format) == "unknown", c.bytes == 0);
  }
  EXPECT_EQ(kF, 260);  // the module's working layout is known by this number
  EXPECT_EQ(host::ColorSpaceName(host::ColorSpace::Unknown), nullptr);
  EXPECT_EQ(host::ColorSpaceName(static_cast<host::ColorSpace>(6)), nullptr);
  EXPECT_STREQ(host::ColorSpaceName(host::ColorSpace::Rec709), "Rec. 709");
}

}  // namespace
