#include "look/grading_operation.h"

#include <unordered_set>

#include "foundation/xml_storage.h"
#include "look/look_xml_text.h"

namespace Tincta {

const std::string* COvGradingOperation::Parameter(std::string_view name) const {
  for (const auto& [key, value] : parameters_) {
    if (key == name) return &value;
  }
  return nullptr;
}

void COvGradingOperation::SetParameter(std::string_view name, std::string value) {
  for (auto& [key, current] : parameters_) {
    if (key == name) {
      current = std::move(value);
      return;
    }
  }
  parameters_.emplace_back(std::string(name), std::move(value));
}

void COvGradingOperation::Write(int indent, std::string& out) const {
  const std::string padding(size_t(indent), ' ');
  out += padding + "<operation>\n";
  AppendLookTextElement(out, indent + 2, "name", name_);
  for (const auto& [key, value] : parameters_) {
    out += padding + "  <parameter>\n";
    AppendLookTextElement(out, indent + 4, "name", key);
    AppendLookTextElement(out, indent + 4, "value", value);
    out += padding + "  </parameter>\n";
  }
  out += padding + "</operation>\n";
}

bool COvGradingOperation::Read(const pugi::xml_node& element, std::string& error) {
  COvGradingOperation read;
  bool hasName = false;
  std::unordered_set<std::string> seen;
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (ElementNameIs(child, "name")) {
      if (!ReadElementText(child, read.name_, &error)) return false;
      hasName = true;
    } else if (ElementNameIs(child, "parameter")) {
      std::string key, value;
      bool hasKey = false;
      for (pugi::xml_node part = child.first_child(); part; part = part.next_sibling()) {
        if (ElementNameIs(part, "name")) {
          if (!ReadElementText(part, key, &error)) return false;
          hasKey = true;
        } else if (ElementNameIs(part, "value")) {
          if (!ReadElementText(part, value, &error)) return false;
        }
      }
      if (!hasKey || key.empty()) {
        error = "an operation parameter has no name";
        return false;
      }
      if (!seen.insert(key).second) {
        error = "the operation parameter \"" + key + "\" is given twice";
        return false;
      }
      read.parameters_.emplace_back(std::move(key), std::move(value));
    }
  }
  if (!hasName || read.name_.empty()) {
    error = "an operation has no name";
    return false;
  }
  *this = std::move(read);
  return true;
}

}  // namespace Tincta
