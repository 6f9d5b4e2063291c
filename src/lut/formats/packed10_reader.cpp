#include "lut/formats/packed10_reader.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace Tincta {
namespace {

constexpr uint32_t kLeastPacked10Bytes = 809;
constexpr size_t kDataOffsetAt = 4;
constexpr size_t kMarkerAt = 660;
constexpr uint32_t kMarker = 0xFFFFFFFFu;
constexpr size_t kGridExponentAt = 768;
// 2^8 + 1 = 257 points is the largest grid that reaches the table limit after resampling.
constexpr uint32_t kMaxGridExponent = 8;
constexpr uint32_t kPacked10UpsampleCap = 256;

bool IsBigEndian(const uint8_t* bytes) {
  return std::memcmp(bytes, "3LUT", 4) == 0;
}

uint32_t ReadWord(const uint8_t* at, bool bigEndian) {
  if (bigEndian)
    return uint32_t(at[0]) << 24 | uint32_t(at[1]) << 16 | uint32_t(at[2]) << 8 | at[3];
  return uint32_t(at[3]) << 24 | uint32_t(at[2]) << 16 | uint32_t(at[1]) << 8 | at[0];
}

uint16_t ReadHalfWord(const uint8_t* at, bool bigEndian) {
  return bigEndian ? uint16_t(at[0] << 8 | at[1]) : uint16_t(at[1] << 8 | at[0]);
}

}  // namespace

bool IsPacked10Cube(const uint8_t* bytes, uint32_t length, const SParseOptions&) {
  return length >= kLeastPacked10Bytes &&
         (std::memcmp(bytes, "3LUT", 4) == 0 || std::memcmp(bytes, "TUL3", 4) == 0);
}

bool ReadPacked10Cube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                      const SParseOptions& options) {
  SLUTReadDiagnostics* const diagnostics = options.diagnostics;
  const auto fail = [diagnostics](std::string message) {
    NoteFailure(diagnostics, 0, std::move(message));
    return false;
  };
  if (options.kindFilter == ELUTKindFilter::Only1D) {
    return fail("a 3-D table where only 1-D ones are taken");
  }
  const bool bigEndian = IsBigEndian(bytes);
  if (ReadWord(bytes + kMarkerAt, bigEndian) != kMarker) {
    return fail("the word at byte " + std::to_string(kMarkerAt) + " is not 0xFFFFFFFF");
  }

  const uint32_t exponent = ReadHalfWord(bytes + kGridExponentAt, bigEndian) & 31u;
  if (exponent > kMaxGridExponent) {
    return fail("a grid of 2^" + std::to_string(exponent) + " + 1 points is above 2^" +
                std::to_string(kMaxGridExponent) + " + 1");
  }
  const uint32_t size = (1u << exponent) + 1;
  const uint64_t entries = uint64_t(size) * size * size;
  const uint64_t dataOffset = ReadWord(bytes + kDataOffsetAt, bigEndian);
  if (dataOffset + entries * 4 > length) {
    return fail("the file holds " + std::to_string(length) + " bytes, a table of " +
                std::to_string(entries) + " entries at byte " + std::to_string(dataOffset) +
                " needs " + std::to_string(dataOffset + entries * 4));
  }
  if (!lut.Allocate(size, true)) return fail("not enough memory for the table");

  // The caller's buffer is const: big-endian words are swapped as they are read rather than in
  // place, which gives the same values.
  const uint8_t* word = bytes + dataOffset;
  float* table = lut.Table();
  for (uint32_t red = 0; red < size; ++red) {
    for (uint32_t green = 0; green < size; ++green) {
      for (uint32_t blue = 0; blue < size; ++blue, word += 4) {
        const uint32_t packed = ReadWord(word, bigEndian);
        float* entry = table + 4 * (red + size_t(size) * green + size_t(size) * size * blue);
        // Red is not masked: bits 30 and 31 count as red too.
        entry[0] = float(double(packed >> 20) / 1023.0);
        entry[1] = float(double((packed >> 10) & 1023u) / 1023.0);
        entry[2] = float(double(packed & 1023u) / 1023.0);
        entry[3] = 1.0f;
      }
    }
  }

  // Tables never leave a reader with more than 256 points, so 257 comes down even unasked.
  const bool oversized = size > kMax3DSize;
  if ((options.upsampleToPowerOfTwo && !IsPowerOfTwo(size)) || oversized) {
    if (!lut.Resample(std::min(PowerOfTwoNotBelow(size), kPacked10UpsampleCap))) {
      return fail("resampling the cube failed");
    }
  }
  lut.SetDomain({0, 0, 0, 0}, {1, 1, 1, 1});
  return true;
}

}  // namespace Tincta
