// Number fields of XML text (look elements, LUT elements, look documents): the whole trimmed
// text must be one number, or three separated by commas.
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

#include "lut/formats/text_lines.h"

namespace Tincta {

/// Parses `text`, trimmed of white space, as one number of `Number`'s type with no sign '+'.
/// False, `value` unspecified, when anything else is left or the number is out of range.
template <class Number>
bool ParseTrimmedNumber(std::string_view text, Number& value) {
  text = TrimLine(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

/// Parses "r, g, b": three floats separated by commas, white space around each allowed.
inline bool ParseCommaTriple(std::string_view text, float (&value)[3]) {
  for (int c = 0; c < 3; ++c) {
    const size_t comma = text.find(',');
    if ((c < 2) != (comma != std::string_view::npos)) return false;
    if (!ParseTrimmedNumber(text.substr(0, comma), value[c])) return false;
    text = c < 2 ? text.substr(comma + 1) : std::string_view();
  }
  return true;
}

}  // namespace Tincta
