#include "host/guid.h"

#include <cstring>

namespace host {
namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

Guid Guid::GuidFromBytes(const void* sixteenBytes) {
  Guid guid;
  std::memcpy(guid.bytes.data(), sixteenBytes, 16);
  return guid;
}

void Guid::GuidToBytes(void* sixteenBytes) const { std::memcpy(sixteenBytes, bytes.data(), 16); }

std::string Guid::ToString() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text(32, '0');
  for (size_t i = 0; i < 16; ++i) {
    text[2 * i] = kDigits[bytes[i] >> 4];
    text[2 * i + 1] = kDigits[bytes[i] & 15];
  }
  return text;
}

std::optional<Guid> Guid::FromString(std::string_view text) {
  if (text.size() != 32) return std::nullopt;
  Guid guid;
  for (size_t i = 0; i < 16; ++i) {
    const int high = HexValue(text[2 * i]);
    const int low = HexValue(text[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    guid.bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return guid;
}

bool Guid::IsZero() const {
  for (uint8_t b : bytes)
    if (b != 0) return false;
  return true;
}

}  // namespace host
