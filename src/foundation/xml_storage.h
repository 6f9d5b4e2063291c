// The library's XML storage conventions on top of pugixml: element names compare without regard
// to case, and element text that begins with a double quote is a quoted string whose quotes never
// reach the caller.
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>

namespace Tincta {

/// The message of the error raised when a quoted text has no closing quote.
inline constexpr const char* kXmlUnclosedQuoteMessage = "Unexpected end of file while looking for";

/// The most markup characters ('<') a document may hold before it is parsed. Each one can become a
/// node of some 64 bytes in the parsed tree, so that 200 MiB of "<a>" would take gigabytes; the
/// documents these formats hold (looks, corrections, a LUT as text) have a few thousand at most.
inline constexpr size_t kXmlMaxMarkup = size_t(1) << 21;

/// Whether the text holds at most `kXmlMaxMarkup` '<' characters: checked before parsing.
bool XMLMarkupWithinLimit(const void* text, size_t length);

/// True when the element's name equals `name`, ignoring case.
bool ElementNameIs(const pugi::xml_node& element, std::string_view name);

/// The first child element whose name equals `name` (ignoring case); empty when none.
pugi::xml_node ChildElement(const pugi::xml_node& element, std::string_view name);

/// The element's text (its first text or CDATA child). A text that begins with '"' is a quoted
/// string: the characters up to its last '"' come back without the quotes, and a text without a
/// closing quote is an error (false, `error` set to `kXmlUnclosedQuoteMessage` plus "\"").
/// A text without a leading quote comes back as it stands.
bool ReadElementText(const pugi::xml_node& element, std::string& text,
                     std::string* error = nullptr);

/// Appends one line: `indent` blanks, <name>, '"', value, '"', </name>, "\n".
void AppendQuotedElement(std::string& out, int indent, std::string_view name,
                         std::string_view value);

}  // namespace Tincta
