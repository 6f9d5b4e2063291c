// Pixel conversion of every pair of formats against a model written here; failures write nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include "host/pixel_convert.h"
#include "host/pixel_format.h"

namespace {

using host::IR_Convert;
constexpr int k8 = host::kIRFormat_BGRA_8u, k16 = host::kIRFormat_BGRA_16u;
constexpr int kF = host::kIRFormat_BGRA_32f, k10 = host::kIRFormat_RGB_10u_BE;
constexpr int kCodes[] = {k8, k16, kF, k10};

size_t Bytes(int code) {
  return code == k16 ? 8 : code == kF ? 16 : 4;
}
uint32_t Scale(int code) {
  return code == k8 ? 255 : code == k16 ? 65535 : code == k10 ? 1023 : 0;
}

template <class T>
T Load(const uint8_t* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

// The bytes that `to` must hold for the source pixel at `p`. Integers rescale rounding half up,
// floats quantise rounding half up after clamping (NaN is 0), integers become the correctly
// rounded quotient. The packed word is big-endian: red, green, blue from the top, 2 spare bits.
std::vector<uint8_t> Expected(int from, int to, const uint8_t* p) {
  if (from == to) return {p, p + Bytes(from)};  // every bit kept, NaN payloads included
  const uint64_t word = ((uint64_t(p[0]) * 256 + p[1]) * 256 + p[2]) * 256 + p[3];
  uint32_t ints[4];
  float floats[4];
  for (int k = 0; k < 4; ++k) {  // B, G, R, A
    const double v = from == k8    ? p[k]
                     : from == k16 ? Load<uint16_t>(p + 2 * k)
                     : from == kF  ? Load<float>(p + 4 * k)
                     : k == 3      ? 1023
                                   : double(word / (uint64_t(4) << 10 * k) % 1024);
    const uint32_t scale = Scale(from), top = Scale(to);
    floats[k] = scale ? float(v) / float(scale) : float(v);
    if (scale) {
      const uint64_t product = uint64_t(v) * top;
      ints[k] = uint32_t(product / scale + (2 * (product % scale) >= scale));
    } else {
      const double scaled = std::isnan(v) ? 0 : std::clamp(v * top, 0.0, double(top));
      ints[k] = uint32_t(std::floor(scaled)) + (scaled - std::floor(scaled) >= 0.5);
    }
  }
  std::vector<uint8_t> out(Bytes(to));
  for (int k = 0; k < 4; ++k) {
    const uint16_t v16 = uint16_t(ints[k]);
    if (to == k8) out[k] = uint8_t(ints[k]);
    if (to == k16) std::memcpy(&out[2 * k], &v16, 2);
  }
  if (to == kF) std::memcpy(out.data(), floats, 16);
  const uint64_t packed = ints[2] * (uint64_t(1) << 22) + ints[1] * (1u << 12) + ints[0] * 4;
  for (int b = 0; to == k10 && b < 4; ++b)
    out[b] = uint8_t(packed >> (24 - 8 * b));
  return out;
}

// Random integers (10-bit padding bits included); floats mix edge values (a NaN with a payload,
// near-ties of each scale) with random ones.
std::vector<uint8_t> Source(int code, uint32_t pixels) {
  const float nan = std::bit_cast<float>(0x7FC12345u);
  const float specials[] = {
      0x1p-1f,    0x1.fffffep-2f, 0x1.000002p-1f, -0.0f,        -1.0f,          2.0f, HUGE_VALF,
      -HUGE_VALF, 1e-30f,         0x1.020202p-1f, 0x1.0081p-8f, 0x1.405014p-9f, nan};
  std::mt19937 random(code);
  std::uniform_real_distribution<float> unit(-0.25f, 1.25f);
  std::vector<uint8_t> bytes(pixels * Bytes(code));
  std::generate(bytes.begin(), bytes.end(), [&] { return uint8_t(random()); });
  for (uint32_t i = 0; code == kF && i < pixels * 4; ++i) {
    const float v = i < std::size(specials) ? specials[i] : unit(random);
    std::memcpy(&bytes[4 * i], &v, 4);
  }
  return bytes;
}

TEST(IRConvert, EveryPairMatchesTheModel) {
  for (int from : kCodes) {
    const uint32_t height = 3, width = 5461;  // 16383 pixels: nearly every 16-bit value
    const size_t srcRow = width * Bytes(from) + 12;
    const auto pixels = Source(from, width * height);
    std::vector<uint8_t> src(1 + srcRow * height);  // rows start at odd addresses
    for (uint32_t y = 0; y < height; ++y)
      std::memcpy(&src[1 + y * srcRow], &pixels[y * width * Bytes(from)], width * Bytes(from));
    for (int to : kCodes) {
      SCOPED_TRACE(testing::Message() << from << " -> " << to);
      const size_t dstRow = width * Bytes(to) + 20;
      std::vector<uint8_t> dst(3 + dstRow * height + 8, 0x5A);
      ASSERT_EQ(IR_Convert(&src[1], srcRow, from, &dst[3], dstRow, to, width, height, 4), 0);
      for (uint32_t i = 0; i < width * height; ++i) {
        const uint8_t* in = &pixels[i * Bytes(from)];
        const auto expected = Expected(from, to, in);
        const uint8_t* out = &dst[3 + i / width * dstRow + i % width * Bytes(to)];
        ASSERT_EQ(std::vector<uint8_t>(out, out + Bytes(to)), expected) << "pixel " << i;
      }
      for (size_t b = 0; b < dst.size(); ++b) {
        const bool outside =
            b < 3 || b >= 3 + dstRow * height || (b - 3) % dstRow >= width * Bytes(to);
        ASSERT_TRUE(!outside || dst[b] == 0x5A) << "byte " << b << " lies outside the pixels";
      }
    }
  }
}

TEST(IRConvert, FailuresWriteNothing) {
  std::vector<uint8_t> dst(4096, 0xC3);
  const std::vector<uint8_t> untouched = dst;
  const std::vector<uint8_t> src(4096, 0x11);
  const uint8_t* s = src.data();
  uint8_t* d = dst.data();
  const auto check = [&](const char* what, int failing, const void* from, size_t fromRow,
                         int fromCode, void* to, size_t toRow, int toCode, uint32_t width = 4,
                         uint32_t height = 4, int components = 4) {
    const int result =
        IR_Convert(from, fromRow, fromCode, to, toRow, toCode, width, height, components);
    EXPECT_EQ(result != 0, failing == 1) << what;
    EXPECT_EQ(dst, untouched) << what;
  };
  check("unknown source code", 1, s, 64, 0, d, 64, k8);
  check("unknown target code", 1, s, 64, k8, d, 64, 261);
  check("three components", 1, s, 64, k8, d, 64, kF, 4, 4, 3);
  check("null source", 1, nullptr, 64, k8, d, 64, kF);
  check("source rows one byte short", 1, s, 15, k8, d, 64, kF);
  check("target rows one byte short", 1, s, 32, k16, d, 63, kF);
  check("source span beyond memory", 1, s, SIZE_MAX / 2, k8, d, 64, k8);
  check("target span beyond memory", 1, s, 64, k8, d, SIZE_MAX / 3, k8);
  check("same buffer", 1, d, 64, k8, d, 64, k8);
  check("target inside the source", 1, d, 64, k8, d + 100, 64, kF);
  check("one shared byte", 1, d, 64, k8, d + 64 * 3 + 15, 16, k8);
  check("zero width", 0, s, 16, k8, d, 64, kF, 0, 4);
  check("zero height", 0, s, 16, k8, d, 64, kF, 4, 0);
  // Rows that end exactly where the target begins do not overlap it.
  EXPECT_EQ(IR_Convert(d, 16, k8, d + 16 * 4, 16, k8, 4, 4, 4), 0);
}

TEST(PixelFormats, CodesAndSizes) {
  const std::tuple<host::PixelFormat, int, size_t> cases[] = {
      {host::kPixelFormat_BGRA_4444_8u, k8, 4},
      {host::kPixelFormat_BGRA_4444_16u, k16, 8},
      {host::kPixelFormat_BGRA_4444_32f, 260, 16},
      {host::kPixelFormat_RGB_101010_10u_BE, k10, 4},
      {{host::kPixelFormat_BGRA_4444_8u.code, 12}, host::kIRFormat_Unknown, 0}};
  for (const auto& [format, code, bytes] : cases) {
    EXPECT_EQ(host::IR_FormatCodeFromPixelFormat(format), code);
    EXPECT_EQ(host::BytesPerPixel(format), bytes);
  }
}

}  // namespace
