#include "foundation/hex_codec.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace Tincta {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr char kPackedAlphabet[] =
    "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr uint8_t kInvalid = 0xFF;

constexpr std::array<uint8_t, 256> MakeReverse(const char* alphabet, size_t size) {
  std::array<uint8_t, 256> table{};
  for (auto& entry : table) entry = kInvalid;
  for (size_t i = 0; i < size; ++i) table[static_cast<uint8_t>(alphabet[i])] = uint8_t(i);
  return table;
}

constexpr auto kHexValue = MakeReverse(kHexDigits, 16);
constexpr auto kPackedValue = MakeReverse(kPackedAlphabet, 64);

bool DecodeHex(std::string_view text, uint8_t* out, size_t count) {
  if (text.size() != count * 2) return false;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t high = kHexValue[static_cast<uint8_t>(text[2 * i])];
    const uint8_t low = kHexValue[static_cast<uint8_t>(text[2 * i + 1])];
    if ((high | low) == kInvalid || high > 15 || low > 15) return false;
    out[i] = uint8_t(high << 4 | low);
  }
  return true;
}

size_t PackedLength(size_t count) {
  const size_t tail = count % 3;
  return count / 3 * 4 + (tail == 0 ? 0 : tail + 1);
}

bool DecodePacked(std::string_view digits, uint8_t* out, size_t count) {
  if (digits.size() != PackedLength(count)) return false;
  size_t written = 0;
  for (size_t i = 0; i < digits.size(); i += 4) {
    const size_t groupChars = std::min<size_t>(4, digits.size() - i);
    uint32_t value = 0;
    for (size_t k = 0; k < groupChars; ++k) {
      const uint8_t digit = kPackedValue[static_cast<uint8_t>(digits[i + k])];
      if (digit == kInvalid) return false;
      value |= uint32_t(digit) << (6 * k);
    }
    const size_t groupBytes = groupChars - 1;
    for (size_t k = 0; k < groupBytes; ++k) out[written++] = uint8_t(value >> (8 * k));
    // Bits beyond the last byte must be zero, or two texts would decode to the same bytes.
    if (groupBytes < 3 && (value >> (8 * groupBytes)) != 0) return false;
  }
  return written == count;
}

}  // namespace

void AppendHex(std::string& out, const void* bytes, size_t count) {
  const size_t start = out.size();
  out.resize(start + count * 2);
  char* dst = out.data() + start;
  const auto* src = static_cast<const uint8_t*>(bytes);
  for (size_t i = 0; i < count; ++i) {
    dst[2 * i] = kHexDigits[src[i] >> 4];
    dst[2 * i + 1] = kHexDigits[src[i] & 15];
  }
}

std::string EncodeBytesAsText(const void* bytes, size_t count, ETextCodecMode mode) {
  std::string out;
  if (mode == ETextCodecMode::Hexadecimal) {
    AppendHex(out, bytes, count);
    return out;
  }
  const auto* src = static_cast<const uint8_t*>(bytes);
  out.reserve(1 + PackedLength(count));
  out.push_back('X');
  for (size_t i = 0; i < count; i += 3) {
    const size_t groupBytes = std::min<size_t>(3, count - i);
    uint32_t value = 0;
    for (size_t k = 0; k < groupBytes; ++k) value |= uint32_t(src[i + k]) << (8 * k);
    for (size_t k = 0; k < groupBytes + 1; ++k) out.push_back(kPackedAlphabet[(value >> (6 * k)) & 63]);
  }
  return out;
}

bool DecodeTextToBytes(std::string_view text, void* out, size_t count) {
  auto* dst = static_cast<uint8_t*>(out);
  if (!text.empty() && text.front() == 'X') return DecodePacked(text.substr(1), dst, count);
  return DecodeHex(text, dst, count);
}

bool DecodedByteCount(std::string_view text, size_t& count) {
  if (!text.empty() && text.front() == 'X') {
    const size_t chars = text.size() - 1;
    if (chars % 4 == 1) return false;
    count = chars / 4 * 3 + (chars % 4 == 0 ? 0 : chars % 4 - 1);
    return true;
  }
  if (text.size() % 2 != 0) return false;
  count = text.size() / 2;
  return true;
}

}  // namespace Tincta
