// The grading library's foundation: CRC-32C, processor features and SIMD tiers, file reads, heap
// buffers, streaming copies, UTF-16 and UTF-8, titles, the byte-to-text codec and XML storage.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <pugixml.hpp>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "foundation/cpu_features.h"
#include "foundation/crc32c.h"
#include "foundation/file.h"
#include "foundation/heap_buffer.h"
#include "foundation/hex_codec.h"
#include "foundation/path_title.h"
#include "foundation/simd_tier.h"
#include "foundation/streaming_store.h"
#include "foundation/utf16.h"
#include "foundation/xml_storage.h"
#include "support/temp_dir.h"

namespace {

using Tincta::EFileReadResult;
using Tincta::ETextCodecMode;
using Tincta::Utf16ToUtf8;
using Tincta::Utf8ToUtf16;

std::vector<uint8_t> RandomBytes(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (auto& b : bytes)
    b = uint8_t(random());
  return bytes;
}

TEST(CRC32C, CheckValueContinuationAndInstructionEqualsTable) {
  EXPECT_EQ(Tincta::Crc32c("123456789", 9), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32cTable("123456789", 9), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32c("56789", 5, Tincta::Crc32c("1234", 4)), 0xE3069283u);
  EXPECT_EQ(Tincta::Crc32c(nullptr, 0), 0u);
  // Every length through the 8-byte steps and their tails, at every alignment and start value.
  if (!Tincta::ProcessorFeatures().sse42) GTEST_SKIP() << "this processor has no SSE4.2";
  const auto buffer = RandomBytes(72, 3);
  for (size_t offset = 0; offset < 8; ++offset)
    for (size_t length = 0; length <= 64; ++length)
      for (uint32_t start : {0u, 0xFFFFFFFFu, 0x12345678u})
        ASSERT_EQ(Tincta::Crc32cSse42(&buffer[offset], length, start),
                  Tincta::Crc32cTable(&buffer[offset], length, start))
            << offset << " " << length << " " << start;
}

TEST(ProcessorFeatures, AgreeWithTheKernel) {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line) && line.rfind("flags", 0) != 0) {
  }
  std::istringstream words(line.substr(line.find(':') + 1));
  const std::set<std::string> flags{std::istream_iterator<std::string>(words), {}};
  if (flags.empty()) GTEST_SKIP() << "/proc/cpuinfo has no flags line";
  const auto features = Tincta::DetectProcessorFeatures(nullptr);
  for (const auto& [flag, name] : {std::pair{features.sse41, "sse4_1"},
                                   {features.sse42, "sse4_2"},
                                   {features.fma, "fma"},
                                   {features.f16c, "f16c"},
                                   {features.avx2, "avx2"}})
    EXPECT_EQ(flag, flags.count(name) == 1) << name;
  EXPECT_EQ(features.avx && features.osSavesYmm, flags.count("avx") == 1);  // the kernel's rule
  EXPECT_FALSE(features.wideVectorsSwitchedOff);  // the tier follows, as tested below
}

// Each requirement of a tier, taken away alone, drops the tier; without SSE4.1 no vector kernel.
TEST(SimdTier, FollowsTheRecord) {
  using Tincta::SProcessorFeatures;
  SProcessorFeatures full;
  full.sse41 = full.avx = full.avx2 = full.fma = full.osSavesYmm = true;
  const std::tuple<bool SProcessorFeatures::*, bool, const char*> cases[] = {
      {&SProcessorFeatures::sse42, true, "avx2"},  // everything
      {&SProcessorFeatures::avx, false, "sse"},
      {&SProcessorFeatures::avx2, false, "sse"},
      {&SProcessorFeatures::fma, false, "sse"},
      {&SProcessorFeatures::osSavesYmm, false, "sse"},
      {&SProcessorFeatures::wideVectorsSwitchedOff, true, "sse"},
      {&SProcessorFeatures::sse41, false, "scalar"},
  };
  for (const auto& [change, value, tier] : cases) {
    SProcessorFeatures features = full;
    features.*change = value;
    EXPECT_STREQ(Tincta::SimdTierName(Tincta::SimdTierOf(features)), tier) << tier << value;
  }
}

// Only the exact word "sse" switches the wide kernels off, and detection stays as it is.
TEST(ProcessorFeatures, OverrideSwitchesOnlyTheWideKernelsOff) {
  const auto detected = Tincta::DetectProcessorFeatures(nullptr);
  for (const char* value : {"sse", "avx2", "", "sse4", "SSE"}) {
    const auto features = Tincta::DetectProcessorFeatures(value);
    const bool off = std::string(value) == "sse";
    EXPECT_EQ(features.wideVectorsSwitchedOff, off) << value;
    EXPECT_EQ(features.avx2, detected.avx2) << value;  // the tier follows, as tested above
  }
}

// CRANDLE_CPU_ISA is read once, at first use: checked in a fresh process.
TEST(ProcessorFeatures, EnvironmentOverrideAtFirstUse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("CRANDLE_CPU_ISA", "sse", 1);
        const auto& features = Tincta::ProcessorFeatures();
        ::setenv("CRANDLE_CPU_ISA", "avx2", 1);
        std::exit(features.wideVectorsSwitchedOff &&
                          Tincta::ProcessorFeatures().wideVectorsSwitchedOff &&
                          Tincta::ActiveSimdTier() != Tincta::ESimdTier::kAVX2
                      ? 0
                      : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// A file exactly at and one byte beyond the limit, then failures, which leave the contents alone.
TEST(ReadWholeFile, SizeLimitsAndFailures) {
  crandle_test::TempDir dir;
  const std::string five = dir.Write("five.txt", "12345");
  const std::tuple<std::string, uint64_t, EFileReadResult, size_t> cases[] = {
      {five, 5, EFileReadResult::Ok, 5},
      {five, 4, EFileReadResult::TooLarge, 0},
      {dir.Write("empty.txt", ""), 0, EFileReadResult::Ok, 0},
      {(dir.Path() / "missing").string(), 100, EFileReadResult::NotFound, 0},
      {dir.Path().string(), 100, EFileReadResult::NotRegular, 0},
      {"/dev/null", 100, EFileReadResult::NotRegular, 0}};
  for (const auto& [path, limit, result, size] : cases) {
    Tincta::SFileContents contents;
    contents.modificationTime = -7;
    const bool ok = result == EFileReadResult::Ok;
    int64_t modified = -7;
    EXPECT_EQ(Tincta::FileModificationTime(path, modified), path.find("missing") == path.npos);
    EXPECT_EQ(Tincta::ReadWholeFile(path, limit, contents), result) << path;
    EXPECT_EQ(contents.size, size) << path;
    EXPECT_EQ(contents.bytes != nullptr, ok) << path;  // an empty file still gets a block
    EXPECT_EQ(contents.modificationTime, ok ? modified : -7) << path;
    EXPECT_TRUE(size != 5 ||
                (contents.bytes && std::memcmp(contents.bytes.get(), "12345", 5) == 0));
  }
}

TEST(COvFile, SeeksShortReadsAndWholeReadsFromTheStart) {
  crandle_test::TempDir dir;
  Tincta::COvFile file;
  char buffer[16] = {};
  EXPECT_EQ(file.Read(buffer, 4), 0u) << "a closed file reads nothing";
  EXPECT_EQ(file.Seek(0), -1);
  EXPECT_FALSE(file.Open((dir.Path() / "missing").string()));
  ASSERT_TRUE(file.Open(dir.Write("ten.bin", "0123456789")));
  EXPECT_EQ(file.Size(), 10);
  EXPECT_EQ(file.Seek(7), 7);
  EXPECT_EQ(file.Read(buffer, 16), 3u);
  EXPECT_EQ(std::string(buffer, 3), "789");
  EXPECT_EQ(file.Seek(1000), 1000) << "beyond the end is reported as such";
  EXPECT_EQ(file.Read(buffer, 16), 0u);
  EXPECT_EQ(file.Seek(uint64_t(INT64_MAX) + 1), -1);
  Tincta::SFileContents contents;
  ASSERT_EQ(Tincta::ReadWholeFile(file, 100, contents), EFileReadResult::Ok);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(contents.bytes.get()), contents.size),
            "0123456789");
  int64_t modified = 0;
  EXPECT_TRUE(file.ModificationTime(modified) && modified == contents.modificationTime);
  file.Close();
  EXPECT_FALSE(file.IsOpen() || file.ModificationTime(modified));
}

// Alignments that are no power of two from 16 up are refused; wrapped memory is never freed (the
// sanitizer build would report it); growing copies from the shifted data pointer, aligned alike.
TEST(COvHeapBuffer, AlignmentsWrapShiftAndReserve) {
  Tincta::COvHeapBuffer buffer;
  ASSERT_TRUE(buffer.Allocate(8, 256));
  uint8_t* const first = buffer.Data();
  for (size_t alignment : {0, 8, 24, 48})
    EXPECT_FALSE(buffer.Allocate(10, alignment)) << alignment;
  EXPECT_TRUE(buffer.Data() == first && buffer.Size() == 8 &&
              reinterpret_cast<uintptr_t>(first) % 256 == 0);
  ASSERT_TRUE(buffer.Reserve(1000));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer.Data()) % 256, 0u);
  std::vector<uint8_t> memory(32);
  std::iota(memory.begin(), memory.end(), 0);
  buffer.Wrap(memory.data(), memory.size());
  EXPECT_TRUE(buffer.Reserve(32) && buffer.Data() == memory.data()) << "large enough";
  buffer.ShiftData(8);
  EXPECT_TRUE(buffer.Data() == memory.data() + 8 && buffer.Size() == 24 &&
              buffer.Start() == memory.data());
  ASSERT_TRUE(buffer.Reserve(100));
  EXPECT_TRUE(buffer.OwnsMemory() && buffer.Data() == buffer.Start() && buffer.Size() == 100);
  for (size_t i = 0; i < 24; ++i)
    ASSERT_EQ(buffer.Data()[i], i + 8) << i;
  buffer.Wrap(memory.data(), 32);
  EXPECT_EQ(memory[31], 31);
}

// Smart-pointer owners drop one reference each (the sanitizer build reports a leak otherwise).
TEST(COvSharedBuffer, CustomDeleterDropsOneReference) {
  auto* buffer = new Tincta::COvSharedBuffer();
  buffer->AddRef();
  std::shared_ptr<Tincta::COvSharedBuffer> shared(buffer,
                                                  Tincta::CustomDeleter<Tincta::COvSharedBuffer>());
  std::unique_ptr<Tincta::COvSharedBuffer, Tincta::CustomDeleter<Tincta::COvSharedBuffer>> unique(
      buffer);
  shared.reset();
  EXPECT_EQ(unique->ReferenceCount(), 1u);
}

// Every start alignment against lengths around the streamed pieces' 16 and 64 bytes.
TEST(StreamingCopy, EveryAlignmentAndLengthCopiesExactlyTheBytes) {
  std::vector<uint8_t> source(300);
  std::iota(source.begin(), source.end(), uint8_t(1));
  for (size_t offset = 0; offset < 16; ++offset) {
    for (size_t bytes : {0, 1, 15, 16, 17, 31, 47, 63, 64, 65, 80, 127, 128, 129, 200, 271}) {
      std::vector<uint8_t> destination(offset + bytes + 32, 0xEE);
      Tincta::StreamingCopy(destination.data() + offset, source.data() + 3, bytes);
      Tincta::FinishStreamingStores();
      std::vector<uint8_t> expected(offset + bytes + 32, 0xEE);
      std::memcpy(expected.data() + offset, source.data() + 3, bytes);
      ASSERT_EQ(destination, expected) << offset << " " << bytes;
    }
  }
}

// Each length of encoding at its ends, surrogate pairs at theirs; unpaired surrogates and malformed
// UTF-8 become one U+FFFD each (those rows convert one way only).
TEST(Utf16AndUtf8, LengthBoundariesSurrogatesAndMalformedSequences) {
  const char16_t r = 0xFFFD;
  enum { kBoth, kToUtf8, kToUtf16 };
  const std::tuple<std::u16string, std::string, int> cases[] = {
      {u"", "", kBoth},
      {{u'a', 0, u'\x7F'}, {'a', 0, '\x7F'}, kBoth},
      {u"\u0080\u07FF", "\xC2\x80\xDF\xBF", kBoth},
      {u"\u0800\uFFFF", "\xE0\xA0\x80\xEF\xBF\xBF", kBoth},
      {{0xD800, 0xDC00, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF},
       "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF",
       kBoth},
      {{0xD83D, u'Z', 0xDE00}, "\xEF\xBF\xBDZ\xEF\xBF\xBD", kToUtf8},
      {{0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD", kToUtf8},
      {{0xD83D, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80", kToUtf8},
      {{r}, "\x80\xBF", kToUtf16},              // continuations without a lead
      {{r, u'Z'}, "\xE2\x82Z", kToUtf16},       // cut short by ASCII
      {{r}, "\xC3", kToUtf16},                  // cut short by the end
      {{r}, "\xC0\x80", kToUtf16},              // overlong NUL
      {{r}, "\xF0\x80\x80\x80", kToUtf16},      // overlong 4-byte form
      {{r}, "\xED\xA0\x80", kToUtf16},          // an encoded surrogate
      {{r}, "\xF4\x90\x80\x80", kToUtf16},      // above U+10FFFF
      {{r}, "\xF8\x88\x80\x80\x80", kToUtf16},  // 5-byte form
      {{u'x', r, u'y'}, "x\xFFy", kToUtf16},
      {{0xE9, r, 0xD83D, 0xDE00}, "\xC3\xA9\xC3\xF0\x9F\x98\x80", kToUtf16}};
  for (const auto& [utf16, utf8, direction] : cases) {
    EXPECT_TRUE(direction == kToUtf16 || Utf16ToUtf8(utf16) == utf8) << utf8;
    EXPECT_TRUE(direction == kToUtf8 || Utf8ToUtf16(utf8) == utf16) << utf8;
  }
}

// The title goes through UTF-16 and back, so a character beyond the BMP must survive the trip.
TEST(PathTitleUtf8, LastComponentWithoutExtension) {
  EXPECT_EQ(Tincta::PathTitleUtf8("C:\\LUTs\\Film Print.v2.3dl"), "Film Print.v2");
  EXPECT_EQ(Tincta::PathTitleUtf8("/luts/caf\xC3\xA9 \xF0\x9F\x8E\xA8.cube"),
            "caf\xC3\xA9 \xF0\x9F\x8E\xA8");
}

// The packed form computed bit by bit: every input bit, least significant first, cut into 6-bit
// digits (least significant first) of the alphabet, the last digit padded with zeros.
std::string PackedByBits(const std::vector<uint8_t>& bytes) {
  const char alphabet[] = "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string text = "X";
  for (size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    int digit = 0;
    for (size_t i = 0; i < 6 && bit + i < bytes.size() * 8; ++i)
      digit |= ((bytes[(bit + i) / 8] >> ((bit + i) % 8)) & 1) << i;
    text += alphabet[digit];
  }
  return text;
}

TEST(HexCodec, EveryLengthMatchesTheBitsAndReadsBack) {
  for (size_t count = 0; count <= 50; ++count) {
    const std::vector<uint8_t> bytes = RandomBytes(count, unsigned(count));
    const std::string packed =
        Tincta::EncodeBytesAsText(bytes.data(), count, ETextCodecMode::Packed64);
    EXPECT_EQ(packed, PackedByBits(bytes)) << count;
    std::string hex, appended = "key=";
    for (uint8_t b : bytes)
      hex += {"0123456789ABCDEF"[b >> 4], "0123456789ABCDEF"[b & 15]};
    EXPECT_EQ(Tincta::EncodeBytesAsText(bytes.data(), count, ETextCodecMode::Hexadecimal), hex);
    Tincta::AppendHex(appended, bytes.data(), count);
    EXPECT_EQ(appended, "key=" + hex);
    for (const std::string& text : {packed, hex}) {
      size_t decoded = 999;
      ASSERT_TRUE(Tincta::DecodedByteCount(text, decoded) && decoded == count) << text;
      std::vector<uint8_t> back(count + 1, 0xEE);
      ASSERT_TRUE(Tincta::DecodeTextToBytes(text, back.data(), count)) << text;
      EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), back.begin()) && back[count] == 0xEE)
          << text;  // nothing written past the count
    }
  }
}

TEST(HexCodec, RefusedTextsAndCounts) {
  const std::pair<const char*, size_t> refused[] = {
      {"0a", 1},  {"0G", 1},  {"001F", 1}, {"00", 2},  {"0", 1},
      {"X++", 2}, {"X+/", 1}, {"x++", 1},  {"X+2", 1},  // a one-byte tail with bit 8 set
      {"X++E", 2}};                                     // a two-byte tail with bit 16 set
  for (const auto& [text, count] : refused) {
    uint8_t out[4];
    EXPECT_FALSE(Tincta::DecodeTextToBytes(text, out, count)) << text;
  }
  uint8_t tail[2];  // the highest bits that still belong to the tail bytes
  ASSERT_TRUE(Tincta::DecodeTextToBytes("X++D", tail, 2));
  EXPECT_EQ(tail[1], 0xF0);
  for (const char* text : {"ABC", "X+", "X+++++"}) {
    size_t count = 0;
    EXPECT_FALSE(Tincta::DecodedByteCount(text, count)) << text;
  }
}

TEST(XmlStorage, QuotedElementText) {
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"<v>\"quoted text\"</v>", true, "quoted text"},
      {"<v>\"a\"b\"</v>", true, "a\"b"},  // up to the last quote: inner quotes survive
      {"<v>\"&lt;escaped&gt;\"</v>", true, "<escaped>"},
      {"<v> \"not quoted\"</v>", true, " \"not quoted\""},
      {"<v><![CDATA[\"in cdata\"]]></v>", true, "in cdata"},
      {"<v></v>", true, ""},
      {"<v>\"unclosed</v>", false, "before"},
      {"<v>\"</v>", false, "before"}};
  for (const auto& [xml, ok, expected] : cases) {
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(xml)) << xml;
    std::string text = "before", error;
    EXPECT_EQ(Tincta::ReadElementText(document.first_child(), text, &error), ok) << xml;
    EXPECT_EQ(text, expected) << xml;
    EXPECT_EQ(error, ok ? "" : "Unexpected end of file while looking for \"") << xml;
  }
}

TEST(XmlStorage, NamesIgnoreCaseAndQuotedLinesAreExact) {
  std::string out = "<Look><!-- lut --><Other/><lut id='1'/>";
  Tincta::AppendQuotedElement(out, 2, "size", "33");
  out += "</Look>";
  EXPECT_EQ(out.substr(39), "  <size>\"33\"</size>\n</Look>");
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(out.c_str()));
  const pugi::xml_node look = document.first_child();
  EXPECT_TRUE(Tincta::ElementNameIs(look, "LOOK") && !Tincta::ElementNameIs(look, "Looks"));
  EXPECT_FALSE(Tincta::ElementNameIs(look.first_child(), "")) << "a comment is no element";
  EXPECT_STREQ(Tincta::ChildElement(look, "LUT").attribute("id").value(), "1");
  EXPECT_FALSE(Tincta::ChildElement(look, "missing"));
}

}  // namespace
