// MD5 against the RFC 1321 test suite; CRC-32C against published check values, and its two
// implementations against each other.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "foundation/cpu_features.h"
#include "foundation/crc32c.h"
#include "foundation/hex_codec.h"
#include "foundation/md5.h"

namespace {

std::string Hex(const Tincta::Md5Digest& digest) {
  std::string text =
      Tincta::EncodeBytesAsText(digest.data(), digest.size(), Tincta::ETextCodecMode::Hexadecimal);
  for (char& c : text)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

TEST(MD5, RFC1321Suite) {
  struct Case {
    const char* message;
    const char* digest;
  };
  const Case cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Hex(Tincta::Md5Of(c.message, std::strlen(c.message))), c.digest) << c.message;
  }
}

TEST(MD5, PiecesEqualOneShot) {
  std::mt19937 random(3);
  std::vector<uint8_t> bytes(200);
  for (auto& b : bytes)
    b = uint8_t(random());
  const auto whole = Tincta::Md5Of(bytes.data(), bytes.size());
  for (size_t cut = 0; cut <= bytes.size(); cut += 7) {
    Tincta::COvMD5 md5;
    md5.Update(bytes.data(), cut);
    md5.Update(nullptr, 0);
    md5.Update(bytes.data() + cut, bytes.size() - cut);
    EXPECT_EQ(md5.Finish(), whole) << cut;
  }
  // Byte by byte across the 64-byte block boundaries.
  Tincta::COvMD5 md5;
  for (uint8_t b : bytes)
    md5.Update(&b, 1);
  EXPECT_EQ(md5.Finish(), whole);
}

TEST(CRC32C, PublishedCheckValues) {
  EXPECT_EQ(Tincta::Crc32c("123456789", 9), 0xE3069283u);
  std::vector<uint8_t> zeros(32, 0x00), ones(32, 0xFF), up(32), down(32);
  for (int i = 0; i < 32; ++i)
    up[i] = uint8_t(i), down[i] = uint8_t(31 - i);
  EXPECT_EQ(Tincta::Crc32c(zeros.data(), 32), 0x8A9136AAu);
  EXPECT_EQ(Tincta::Crc32c(ones.data(), 32), 0x62A8AB43u);
  EXPECT_EQ(Tincta::Crc32c(up.data(), 32), 0x46DD794Eu);
  EXPECT_EQ(Tincta::Crc32c(down.data(), 32), 0x113FDB5Cu);
  EXPECT_EQ(Tincta::Crc32cTable("123456789", 9), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32c(nullptr, 0), 0u);
  // Continuing from an earlier result equals one pass.
  EXPECT_EQ(Tincta::Crc32c("56789", 5, Tincta::Crc32c("1234", 4)), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32cTable("56789", 5, Tincta::Crc32cTable("1234", 4)), 0xE3069283u);
}

TEST(CRC32C, InstructionEqualsTableForEveryLengthAndAlignment) {
  if (!Tincta::ProcessorFeatures().sse42) GTEST_SKIP() << "this processor has no SSE4.2";
  std::mt19937 random(17);
  std::vector<uint8_t> buffer(64 + 8);
  for (auto& b : buffer)
    b = uint8_t(random());
  for (size_t offset = 0; offset < 8; ++offset) {
    for (size_t length = 0; length <= 64; ++length) {
      for (uint32_t start : {0u, 0xFFFFFFFFu, 0x12345678u}) {
        const uint8_t* p = buffer.data() + offset;
        ASSERT_EQ(Tincta::Crc32cSse42(p, length, start), Tincta::Crc32cTable(p, length, start))
            << "offset " << offset << " length " << length << " start " << start;
      }
    }
  }
}

}  // namespace
