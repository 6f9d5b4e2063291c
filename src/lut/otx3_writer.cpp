#include "lut/otx3_writer.h"

#include <cstring>

namespace Tincta {
namespace {

void StoreU32LE(uint8_t* out, uint32_t value) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

void StoreF32LE(uint8_t* out, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, 4);
  StoreU32LE(out, bits);
}

}  // namespace

uint64_t Otx3ImageBytes(const COv3DLUT& lut) { return kOtx3HeaderBytes + 12 * uint64_t(lut.EntryCount()); }

void WriteOtx3Image(const COv3DLUT& lut, uint8_t* out) {
  std::memcpy(out, "OTX3", 4);
  StoreU32LE(out + 4, lut.Size());
  StoreU32LE(out + 8, lut.Is3D() ? 3 : 1);
  StoreU32LE(out + 12, 0);
  for (int c = 0; c < 3; ++c) StoreF32LE(out + 16 + 4 * c, lut.DomainMin()[c]);
  for (int c = 0; c < 3; ++c) StoreF32LE(out + 28 + 4 * c, lut.DomainMax()[c]);
  const float* entry = lut.Table();
  uint8_t* cursor = out + kOtx3HeaderBytes;
  for (size_t i = 0, n = lut.EntryCount(); i < n; ++i, entry += 4, cursor += 12) {
    StoreF32LE(cursor, entry[0]);
    StoreF32LE(cursor + 4, entry[1]);
    StoreF32LE(cursor + 8, entry[2]);
  }
}

}  // namespace Tincta
