#include "foundation/xml_storage.h"

#include <cctype>
#include <cstring>

namespace Tincta {
namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

}  // namespace

bool XMLMarkupWithinLimit(const void* text, size_t length) {
  const char* cursor = static_cast<const char*>(text);
  const char* const end = cursor + length;
  size_t count = 0;
  while (cursor < end) {
    const void* found = std::memchr(cursor, '<', size_t(end - cursor));
    if (found == nullptr) break;
    if (++count > kXmlMaxMarkup) return false;
    cursor = static_cast<const char*>(found) + 1;
  }
  return true;
}

bool ElementNameIs(const pugi::xml_node& element, std::string_view name) {
  return element.type() == pugi::node_element && EqualsIgnoringCase(element.name(), name);
}

pugi::xml_node ChildElement(const pugi::xml_node& element, std::string_view name) {
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (ElementNameIs(child, name)) return child;
  }
  return {};
}

bool ReadElementText(const pugi::xml_node& element, std::string& text, std::string* error) {
  const std::string_view raw = element.text().get();
  if (raw.empty() || raw.front() != '"') {
    text.assign(raw);
    return true;
  }
  // The last quote closes the string, so quotes inside a value (a file name, say) survive.
  const size_t closing = raw.rfind('"');
  if (closing == 0) {
    if (error) *error = std::string(kXmlUnclosedQuoteMessage) + " \"";
    return false;
  }
  text.assign(raw.substr(1, closing - 1));
  return true;
}

void AppendQuotedElement(std::string& out, int indent, std::string_view name,
                         std::string_view value) {
  out.append(static_cast<size_t>(indent), ' ');
  out.append("<").append(name).append(">\"").append(value).append("\"</").append(name).append(
      ">\n");
}

}  // namespace Tincta
