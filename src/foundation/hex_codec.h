// The byte-to-text codec: plain hexadecimal, or a denser 64-character form marked by "X".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Tincta {

enum class ETextCodecMode {
  /// Two digits per byte, high digit first, "0"-"9" and upper-case "A"-"F".
  Hexadecimal,
  /// A leading "X", then four characters per three bytes from the alphabet
  /// "+-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", low bits first.
  /// A final group of one or two bytes takes two or three characters.
  Packed64,
};

/// The text form of `count` bytes.
std::string EncodeBytesAsText(const void* bytes, size_t count, ETextCodecMode mode);

/// Appends the upper-case hexadecimal form of `count` bytes to `out` (no allocation per byte).
void AppendHex(std::string& out, const void* bytes, size_t count);

/// Decodes `text` into exactly `count` bytes at `out`. A text beginning with "X" is read in the
/// packed mode, any other as hexadecimal. False, with `out` partly written, when the text holds a
/// character outside its mode's alphabet (lower-case hexadecimal digits included) or does not
/// encode exactly `count` bytes.
bool DecodeTextToBytes(std::string_view text, void* out, size_t count);

/// Sets `count` to the number of bytes `text` encodes; false when its length fits neither mode.
bool DecodedByteCount(std::string_view text, size_t& count);

}  // namespace Tincta
