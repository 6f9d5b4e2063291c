#include "foundation/crc32c.h"

#include <array>

#include "foundation/cpu_features.h"

namespace Tincta {
namespace {

constexpr uint32_t kPolynomial = 0x82F63B78u;  // reflected Castagnoli polynomial

constexpr std::array<uint32_t, 256> MakeTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) ? kPolynomial : 0);
    table[i] = value;
  }
  return table;
}

constexpr auto kTable = MakeTable();

using Crc32cFunction = uint32_t (*)(const void*, size_t, uint32_t);

Crc32cFunction ChooseImplementation() {
  return ProcessorFeatures().sse42 ? Crc32cSse42 : Crc32cTable;
}

}  // namespace

uint32_t Crc32cTable(const void* bytes, size_t count, uint32_t crc) {
  const auto* p = static_cast<const uint8_t*>(bytes);
  crc = ~crc;
  for (size_t i = 0; i < count; ++i) crc = (crc >> 8) ^ kTable[(crc ^ p[i]) & 0xFF];
  return ~crc;
}

uint32_t Crc32c(const void* bytes, size_t count, uint32_t crc) {
  static const Crc32cFunction implementation = ChooseImplementation();
  return implementation(bytes, count, crc);
}

}  // namespace Tincta
