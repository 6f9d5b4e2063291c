#include "lut/formats/float_image_reader.h"

#include <bit>
#include <cstring>
#include <string>

namespace Tincta {
namespace {

constexpr uint32_t kShortHeaderBytes = 16;
constexpr uint32_t kDomainHeaderBytes = 40;
constexpr uint32_t kKind1D = 1;
constexpr uint32_t kKind3D = 3;

bool HasMagic(const uint8_t* bytes, const char (&magic)[5]) {
  return std::memcmp(bytes, magic, 4) == 0;
}

uint32_t LoadU32LE(const uint8_t* bytes) {
  return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
         uint32_t(bytes[3]) << 24;
}

float LoadF32LE(const uint8_t* bytes) {
  return std::bit_cast<float>(LoadU32LE(bytes));
}

Vec4 LoadDomainVector(const uint8_t* bytes) {
  return {LoadF32LE(bytes), LoadF32LE(bytes + 4), LoadF32LE(bytes + 8), 1.0f};
}

}  // namespace

bool IsFloatImage(const uint8_t* bytes, uint32_t length, const SParseOptions&) {
  return length >= 17 &&
         (HasMagic(bytes, "OVTX") || HasMagic(bytes, "OTX2") || HasMagic(bytes, "OTX3"));
}

bool ReadFloatImage(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                    const SParseOptions& options) {
  if (!IsFloatImage(bytes, length, options)) return false;
  const bool hasDomain = !HasMagic(bytes, "OVTX");
  const uint32_t size = LoadU32LE(bytes + 4);
  const uint32_t kind = LoadU32LE(bytes + 8);
  const uint32_t enciphered = LoadU32LE(bytes + 12);
  SLUTReadDiagnostics* const diagnostics = options.diagnostics;
  const auto fail = [diagnostics](std::string message) {
    NoteFailure(diagnostics, 0, std::move(message));
    return false;
  };

  if (enciphered != 0 && !HasMagic(bytes, "OTX3")) {
    return fail("the enciphered flag is set, which only OTX3 allows");
  }
  if (kind != kKind1D && kind != kKind3D) {
    return fail("kind " + std::to_string(kind) + " is neither 1 (1-D) nor 3 (3-D)");
  }
  if (size > kMax1DEntries || (size > kMax3DSize && kind == kKind3D)) {
    return fail("size " + std::to_string(size) + " is above " +
                std::to_string(kind == kKind3D ? kMax3DSize : kMax1DEntries));
  }
  const bool is3D = kind == kKind3D;
  if (options.kindFilter == ELUTKindFilter::Only3D && !is3D) {
    return fail("a 1-D table where only 3-D ones are taken");
  }
  if (options.kindFilter == ELUTKindFilter::Only1D && is3D) {
    return fail("a 3-D table where only 1-D ones are taken");
  }
  if (size == 0) return fail("size 0");

  const uint64_t count = is3D ? uint64_t(size) * size * size : uint64_t(size);
  // The format's own test counts three bytes an entry and no header, which lets a short payload
  // through; it stays as it is, and the payload is then checked to be all there before it is
  // read. Both come before the allocation, so a forged size cannot ask for memory.
  const uint32_t headerBytes = hasDomain ? kDomainHeaderBytes : kShortHeaderBytes;
  if (count * 3 > length || headerBytes + count * 12 > length) {
    return fail("the file holds " + std::to_string(length) + " bytes, a table of " +
                std::to_string(count) + " entries needs " +
                std::to_string(headerBytes + count * 12));
  }
  // Enciphered payloads cannot be read here: their cipher and key are not ours to rebuild.
  if (enciphered != 0) return fail("the table is enciphered, which this build cannot read");

  if (!lut.Allocate(size, is3D)) return fail("not enough memory for the table");
  float* table = lut.Table();
  const uint8_t* payload = bytes + headerBytes;
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(table, payload, count * 12);
    COv3DLUT::ExpandRGBToRGBA(table, table, count, 1.0f);
  } else {
    for (uint64_t i = 0; i < count; ++i) {
      for (int c = 0; c < 3; ++c)
        table[4 * i + c] = LoadF32LE(payload + 12 * i + 4 * c);
      table[4 * i + 3] = 1.0f;
    }
  }

  if (hasDomain) {
    lut.SetDomain(LoadDomainVector(bytes + 16), LoadDomainVector(bytes + 28));
  } else {
    lut.SetDomain({0, 0, 0, 0}, {1, 1, 1, 1});
  }
  return true;
}

}  // namespace Tincta
