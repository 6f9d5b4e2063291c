#include "look/look_grid.h"

#include <cstring>
#include <new>

namespace Tincta {
namespace {

uint32_t ReadU32BE(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

uint16_t ReadU16BE(const uint8_t* p) {
  return uint16_t(p[0] << 8 | p[1]);
}

float ReadF32BE(const uint8_t* p) {
  const uint32_t bits = ReadU32BE(p);
  float value;
  std::memcpy(&value, &bits, 4);
  return value;
}

void StoreU32LE(uint8_t* out, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out[i] = static_cast<uint8_t>(value >> (8 * i));
}

void StoreF32LE(uint8_t* out, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, 4);
  StoreU32LE(out, bits);
}

}  // namespace

bool ConvertLookGridToOTX3(const void* block, uint32_t length, std::unique_ptr<uint8_t[]>& image,
                           uint32_t& imageLength) {
  if (block == nullptr || length < kLookGridMinBytes) return false;
  const auto* grid = static_cast<const uint8_t*>(block);
  if (std::memcmp(grid + 4, "ALOK", 4) != 0) return false;
  const uint32_t dataOffset = ReadU32BE(grid);
  if (dataOffset < 29 || dataOffset >= length - 29) return false;
  const uint16_t n = ReadU16BE(grid + 24);
  if (uint16_t(n - 2) > 252) return false;
  const uint64_t triples = uint64_t(n) * n * n;
  if (length - dataOffset < 6 * triples) return false;

  imageLength = uint32_t(40 + 12 * triples);
  std::unique_ptr<uint8_t[]> out(new (std::nothrow) uint8_t[imageLength]);
  if (!out) return false;

  uint32_t divisor = ReadU32BE(grid + 12);
  if (divisor == 0) divisor = 1;
  const double scale = ReadF32BE(grid + 16);
  const double bias = ReadF32BE(grid + 20);

  std::memcpy(out.get(), "OTX3", 4);
  StoreU32LE(out.get() + 4, n);
  StoreU32LE(out.get() + 8, 3);
  StoreU32LE(out.get() + 12, 0);
  for (int c = 0; c < 3; ++c)
    StoreF32LE(out.get() + 16 + 4 * c, 0.0f);
  for (int c = 0; c < 3; ++c)
    StoreF32LE(out.get() + 28 + 4 * c, 1.0f);

  // The grid's fastest index k becomes the image's slowest, so the output is written in order.
  const uint8_t* samples = grid + dataOffset;
  uint8_t* cursor = out.get() + 40;
  for (uint32_t k = 0; k < n; ++k) {
    for (uint32_t j = 0; j < n; ++j) {
      for (uint32_t i = 0; i < n; ++i) {
        const uint8_t* triple = samples + 6 * ((uint64_t(i) * n + j) * n + k);
        for (int c = 0; c < 3; ++c, cursor += 4) {
          const double sample = ReadU16BE(triple + 2 * c);
          StoreF32LE(cursor, float(sample / divisor * scale + bias));
        }
      }
    }
  }
  image = std::move(out);
  return true;
}

}  // namespace Tincta
