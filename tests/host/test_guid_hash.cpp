// Guids and the hash states behind identifiers, checked against a MurmurHash3 x64-128 written
// here from the published algorithm.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "host/guid.h"
#include "host/hash.h"

namespace {

// ---- MurmurHash3 x64-128, from the algorithm's description -------------------------------

uint64_t RotateLeft(uint64_t x, int r) {
  return (x << r) | (x >> (64 - r));
}

uint64_t FinalMix(uint64_t k) {
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdULL;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ULL;
  k ^= k >> 33;
  return k;
}

uint64_t LittleEndian64(const uint8_t* p, size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count; ++i)
    value |= uint64_t(p[i]) << (8 * i);
  return value;
}

std::array<uint8_t, 16> ReferenceMurmur3(const void* data, size_t length, uint32_t seed) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  const uint64_t c1 = 0x87c37b91114253d5ULL;
  const uint64_t c2 = 0x4cf5ad432745937fULL;
  uint64_t h1 = seed;
  uint64_t h2 = seed;
  const size_t blocks = length / 16;
  for (size_t i = 0; i < blocks; ++i) {
    uint64_t k1 = LittleEndian64(bytes + 16 * i, 8);
    uint64_t k2 = LittleEndian64(bytes + 16 * i + 8, 8);
    k1 *= c1, k1 = RotateLeft(k1, 31), k1 *= c2, h1 ^= k1;
    h1 = RotateLeft(h1, 27), h1 += h2, h1 = h1 * 5 + 0x52dce729;
    k2 *= c2, k2 = RotateLeft(k2, 33), k2 *= c1, h2 ^= k2;
    h2 = RotateLeft(h2, 31), h2 += h1, h2 = h2 * 5 + 0x38495ab5;
  }
  const uint8_t* tail = bytes + 16 * blocks;
  const size_t rest = length % 16;
  if (rest > 8) {
    uint64_t k2 = LittleEndian64(tail + 8, rest - 8);
    k2 *= c2, k2 = RotateLeft(k2, 33), k2 *= c1, h2 ^= k2;
  }
  if (rest > 0) {
    uint64_t k1 = LittleEndian64(tail, rest < 8 ? rest : 8);
    k1 *= c1, k1 = RotateLeft(k1, 31), k1 *= c2, h1 ^= k1;
  }
  h1 ^= length, h2 ^= length;
  h1 += h2, h2 += h1;
  h1 = FinalMix(h1), h2 = FinalMix(h2);
  h1 += h2, h2 += h1;
  std::array<uint8_t, 16> out{};
  for (int b = 0; b < 8; ++b) {
    out[b] = uint8_t(h1 >> (8 * b));
    out[8 + b] = uint8_t(h2 >> (8 * b));
  }
  return out;
}

// The reference itself against the algorithm's published self-check: keys 0, 01, 012, ... hashed
// with seeds 256 - length, the results hashed with seed 0, first four bytes 0x6384BA69.
TEST(ReferenceMurmur3, PublishedSelfCheck) {
  uint8_t key[256];
  std::vector<uint8_t> hashes(16 * 256);
  for (int i = 0; i < 256; ++i) {
    key[i] = uint8_t(i);
    const auto h = ReferenceMurmur3(key, i, 256 - i);
    std::memcpy(&hashes[16 * i], h.data(), 16);
  }
  const auto final = ReferenceMurmur3(hashes.data(), hashes.size(), 0);
  EXPECT_EQ(LittleEndian64(final.data(), 4), 0x6384BA69u);
}

std::vector<uint8_t> RandomBytes(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (auto& b : bytes)
    b = uint8_t(random());
  return bytes;
}

TEST(Murmur3MixerState, MatchesTheReferenceForEveryTailLength) {
  for (size_t length : {0, 1, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 1000, 4099}) {
    const auto bytes = RandomBytes(length, uint32_t(length));
    host::Murmur3MixerState state;
    state.Mix(bytes.data(), bytes.size());
    EXPECT_EQ(state.GetHashResult().bytes, ReferenceMurmur3(bytes.data(), length, 0)) << length;
  }
  // Nothing fed: seed 0 mixes to zero in both halves.
  EXPECT_TRUE(host::Murmur3MixerState().GetHashResult().IsZero());
}

TEST(HashStates, PiecesEqualTheWhole) {
  const auto bytes = RandomBytes(301, 5);
  for (size_t cut1 : {0, 1, 16, 150}) {
    for (size_t cut2 : {cut1, cut1 + 3, size_t(300)}) {
      host::Murmur3MixerState pieces, whole;
      host::HashValueMixerState valuePieces, valueWhole;
      pieces.Mix(bytes.data(), cut1);
      pieces.Mix(bytes.data() + cut1, cut2 - cut1);
      pieces.Mix(nullptr, 0);
      pieces.Mix(bytes.data() + cut2, bytes.size() - cut2);
      whole.Mix(bytes.data(), bytes.size());
      valuePieces.Mix(bytes.data(), cut2);
      valuePieces.Mix(bytes.data() + cut2, bytes.size() - cut2);
      valueWhole.Mix(bytes.data(), bytes.size());
      EXPECT_EQ(pieces.GetHashResult(), whole.GetHashResult()) << cut1 << " " << cut2;
      EXPECT_EQ(valuePieces.GetHashResult(), valueWhole.GetHashResult()) << cut1 << " " << cut2;
    }
  }
}

TEST(HashValueMixerState, DiffersFromMurmur3AndIsStable) {
  for (size_t length : {0, 1, 16, 100}) {
    const auto bytes = RandomBytes(length, 11);
    host::Murmur3MixerState murmur;
    host::HashValueMixerState value, again;
    murmur.Mix(bytes.data(), length);
    value.Mix(bytes.data(), length);
    again.Mix(bytes.data(), length);
    EXPECT_NE(value.GetHashResult(), murmur.GetHashResult()) << length;
    EXPECT_EQ(value.GetHashResult(), again.GetHashResult()) << length;
    EXPECT_EQ(value.GetHashResult(), value.GetHashResult())
        << "reading the result consumes nothing";
  }
}

// ---- Guid ------------------------------------------------------------------------------------

TEST(Guid, BytesRoundTripInMemoryOrder) {
  uint8_t bytes[16];
  for (int i = 0; i < 16; ++i)
    bytes[i] = uint8_t(0xF0 - 7 * i);
  const host::Guid guid = host::Guid::GuidFromBytes(bytes);
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(guid.bytes[i], bytes[i]);
  uint8_t back[16] = {};
  guid.GuidToBytes(back);
  EXPECT_EQ(0, std::memcmp(back, bytes, 16));
  EXPECT_TRUE(host::Guid().IsZero());
  EXPECT_FALSE(guid.IsZero());
}

TEST(Guid, TextIsUpperCaseHighNibbleFirst) {
  const uint8_t bytes[16] = {0x00, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD,
                             0xEF, 0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x10};
  const host::Guid guid = host::Guid::GuidFromBytes(bytes);
  EXPECT_EQ(guid.ToString(), "000123456789ABCDEFFEDCBA98765410");
  EXPECT_EQ(host::Guid().ToString(), std::string(32, '0'));
  for (const char* text : {"000123456789ABCDEFFEDCBA98765410", "000123456789abcdeffedcba98765410",
                           "000123456789AbCdEfFeDcBa98765410"}) {
    const auto parsed = host::Guid::FromString(text);
    ASSERT_TRUE(parsed.has_value()) << text;
    EXPECT_EQ(*parsed, guid) << text;
  }
}

TEST(Guid, FromStringRefusesAnythingElse) {
  const char* texts[] = {
      "",
      "000123456789ABCDEFFEDCBA9876541",    // 31 digits
      "000123456789ABCDEFFEDCBA987654100",  // 33 digits
      "000123456789ABCDEFFEDCBA9876541G",
      "00012345-6789-ABCD-EFFE-DCBA98765410",
      "0x0123456789ABCDEFFEDCBA98765410",
      " 00123456789ABCDEFFEDCBA98765410",
      "000123456789ABCDEFFEDCBA9876541\n",
  };
  for (const char* text : texts)
    EXPECT_FALSE(host::Guid::FromString(text).has_value()) << text;
  EXPECT_FALSE(
      host::Guid::FromString(std::string_view("0001234567\0"
                                              "9ABCDEFFEDCBA98765410",
                                              32)));
}

TEST(Guid, OrdersByBytes) {
  host::Guid low, high;
  low.bytes[15] = 0xFF;
  high.bytes[0] = 0x01;
  EXPECT_LT(low, high);
  EXPECT_NE(low, high);
}

}  // namespace
