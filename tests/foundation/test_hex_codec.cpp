// The byte-to-text codec in both modes.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "foundation/hex_codec.h"

namespace {

using Tincta::ETextCodecMode;

constexpr char kAlphabet[] = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// The packed form computed bit by bit: all bits of the input, least significant first, cut into
// 6-bit digits (least significant first), the last digit padded with zeros.
std::string PackedByBits(const std::vector<uint8_t>& bytes) {
  std::vector<int> bits;
  for (uint8_t b : bytes)
    for (int i = 0; i < 8; ++i)
      bits.push_back((b >> i) & 1);
  std::string text = "X";
  for (size_t start = 0; start < bits.size(); start += 6) {
    int digit = 0;
    for (size_t i = 0; i < 6 && start + i < bits.size(); ++i)
      digit |= bits[start + i] << i;
    text += kAlphabet[digit];
  }
  return text;
}

std::vector<uint8_t> RandomBytes(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (auto& b : bytes)
    b = uint8_t(random());
  return bytes;
}

TEST(HexCodec, ExactTexts) {
  const uint8_t bytes[] = {0x00, 0x1F, 0xA0, 0xFF, 0x7E};
  EXPECT_EQ(Tincta::EncodeBytesAsText(bytes, 5, ETextCodecMode::Hexadecimal), "001FA0FF7E");
  EXPECT_EQ(Tincta::EncodeBytesAsText(bytes, 0, ETextCodecMode::Hexadecimal), "");
  std::string out = "key=";
  Tincta::AppendHex(out, bytes, 2);
  EXPECT_EQ(out, "key=001F");

  struct Case {
    std::vector<uint8_t> bytes;
    const char* text;
  };
  const Case packed[] = {
      {{}, "X"},
      {{0x00}, "X++"},
      {{0x01}, "X-+"},
      {{0xFF}, "Xz1"},  // low six bits 63 'z', then the top two bits 3 '1'
      {{0x00, 0x00, 0x00}, "X++++"},
      {{0xFF, 0xFF, 0xFF}, "Xzzzz"},
      {{0x3F, 0x00, 0x00, 0x01}, "Xz+++-+"},
  };
  for (const Case& c : packed)
    EXPECT_EQ(Tincta::EncodeBytesAsText(c.bytes.data(), c.bytes.size(), ETextCodecMode::Packed64),
              c.text);
}

TEST(HexCodec, PackedMatchesTheBitComputationAndRoundTrips) {
  for (size_t count = 0; count <= 50; ++count) {
    const auto bytes = RandomBytes(count, uint32_t(count));
    const std::string text =
        Tincta::EncodeBytesAsText(bytes.data(), count, ETextCodecMode::Packed64);
    EXPECT_EQ(text, PackedByBits(bytes)) << count;
    const std::string hex =
        Tincta::EncodeBytesAsText(bytes.data(), count, ETextCodecMode::Hexadecimal);
    for (const std::string& form : {text, hex}) {
      size_t decodedCount = 999;
      ASSERT_TRUE(Tincta::DecodedByteCount(form, decodedCount)) << form;
      EXPECT_EQ(decodedCount, count) << form;
      std::vector<uint8_t> back(count + 1, 0xEE);
      ASSERT_TRUE(Tincta::DecodeTextToBytes(form, back.data(), count)) << form;
      EXPECT_EQ(std::vector<uint8_t>(back.begin(), back.begin() + count), bytes) << form;
      EXPECT_EQ(back[count], 0xEE) << "nothing written past the count";
    }
  }
}

TEST(HexCodec, DecodeRefusesForeignTextAndWrongLengths) {
  struct Case {
    const char* text;
    size_t count;
  };
  const Case refused[] = {
      {"0a", 1},                                           // lower-case hexadecimal
      {"0G", 1},   {"0 ", 1},    {"-1", 1},  {"001F", 1},  // too long for the count
      {"00", 2},                                           // too short
      {"0", 1},                                            // odd length
      {"X++", 2},  {"X++", 0},   {"X+", 1},  {"X+/", 1},   // '/' is not in the alphabet
      {"X+=", 1},  {"X++ +", 3}, {"X+2", 1},  // a one-byte tail with bit 8 set ('2' is 4, the
                                              // second digit)
      {"X++E", 2},  // a two-byte tail with bit 16 set ('E' is 16, the third digit)
      {"x++", 1},   // only an upper-case X marks the packed mode
  };
  for (const Case& c : refused) {
    uint8_t out[4];
    EXPECT_FALSE(Tincta::DecodeTextToBytes(c.text, out, c.count)) << c.text;
  }
  uint8_t none;
  EXPECT_TRUE(Tincta::DecodeTextToBytes("", &none, 0));
  EXPECT_TRUE(Tincta::DecodeTextToBytes("X", &none, 0));
  // The highest bits that still belong to the tail bytes are accepted.
  uint8_t tail[2];
  ASSERT_TRUE(Tincta::DecodeTextToBytes("X+1", tail, 1));
  EXPECT_EQ(tail[0], 0xC0);
  ASSERT_TRUE(Tincta::DecodeTextToBytes("X++D", tail, 2));
  EXPECT_EQ(tail[1], 0xF0);
}

TEST(HexCodec, DecodedByteCounts) {
  struct Case {
    const char* text;
    bool ok;
    size_t count;
  };
  const Case cases[] = {
      {"", true, 0},        {"AB", true, 1},      {"ABC", false, 0}, {"X", true, 0},
      {"X+", false, 0},     {"X++", true, 1},     {"X+++", true, 2}, {"X++++", true, 3},
      {"X+++++", false, 0}, {"X++++++", true, 4},
  };
  for (const Case& c : cases) {
    size_t count = 12345;
    EXPECT_EQ(Tincta::DecodedByteCount(c.text, count), c.ok) << c.text;
    if (c.ok) {
      EXPECT_EQ(count, c.count) << c.text;
    }
  }
}

}  // namespace
