#include "look/property_list.h"

#include <unordered_set>

#include "foundation/xml_storage.h"
#include "look/look_xml_text.h"

namespace Tincta {

const std::string* COvPropertyList::Find(std::string_view key) const {
  for (const auto& [name, value] : entries_) {
    if (name == key) return &value;
  }
  return nullptr;
}

bool COvPropertyList::Set(std::string_view key, std::string value) {
  if (key.empty()) return false;
  for (auto& [name, current] : entries_) {
    if (name == key) {
      current = std::move(value);
      return true;
    }
  }
  entries_.emplace_back(std::string(key), std::move(value));
  return true;
}

bool COvPropertyList::Read(const pugi::xml_node& element, std::string& error) {
  std::vector<std::pair<std::string, std::string>> entries;
  std::unordered_set<std::string> seen;
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (!ElementNameIs(child, "property")) continue;
    std::string key, value;
    for (pugi::xml_node part = child.first_child(); part; part = part.next_sibling()) {
      if (ElementNameIs(part, "key")) {
        if (!ReadElementText(part, key, &error)) return false;
      } else if (ElementNameIs(part, "value")) {
        if (!ReadElementText(part, value, &error)) return false;
      }
    }
    if (key.empty()) {
      error = "a property has no key";
      return false;
    }
    if (!seen.insert(key).second) {
      error = "the property \"" + key + "\" is given twice";
      return false;
    }
    entries.emplace_back(std::move(key), std::move(value));
  }
  entries_ = std::move(entries);
  return true;
}

void COvPropertyList::Write(int indent, std::string& out) const {
  const std::string padding(size_t(indent), ' ');
  for (const auto& [key, value] : entries_) {
    out += padding + "<property>\n";
    AppendLookTextElement(out, indent + 2, "key", key);
    AppendLookTextElement(out, indent + 2, "value", value);
    out += padding + "</property>\n";
  }
}

}  // namespace Tincta
