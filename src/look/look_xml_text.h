// Text values of look documents: each value is element text, written between double quotes and
// with the characters that XML would change escaped, so that every string reads back as written
// through the library's quoted-text reader (foundation/xml_storage.h), which ends a quoted text at
// its last quote.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Tincta {

/// Appends `text` with '&', '<', '>' and the control characters other than tab and line feed
/// written as character references.
void AppendEscapedText(std::string& out, std::string_view text);

/// Appends one line: `indent` blanks, <name>, '"', the escaped value, '"', </name>, "\n".
void AppendLookTextElement(std::string& out, int indent, std::string_view name,
                           std::string_view value);

/// Appends one line with the value escaped but unquoted, quoting it only where the plain form
/// would not read back (an empty value, a leading quote, blanks at either end).
void AppendPlainTextElement(std::string& out, int indent, std::string_view name,
                            std::string_view value);

/// Decimal text of an unsigned 32-bit or signed 64-bit number, nothing else (blanks around it
/// allowed).
bool ParseLookUnsigned(std::string_view text, uint32_t& value);
bool ParseLookSigned(std::string_view text, int64_t& value);
/// A finite float and nothing else (blanks around it allowed).
bool ParseLookFloat(std::string_view text, float& value);

/// Nine significant digits: the text reads back to exactly `value`.
std::string ExactFloatText(float value);

}  // namespace Tincta
