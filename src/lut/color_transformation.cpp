#include "lut/color_transformation.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/xml_storage.h"
#include "lut/formats/text_chars.h"

namespace Tincta {
namespace {

// Compares the name without its namespace prefix ("cdl:Slope" is "Slope"), ignoring case.
bool LocalNameIs(const pugi::xml_node& node, std::string_view name) {
  if (node.type() != pugi::node_element) return false;
  std::string_view local = node.name();
  if (const size_t colon = local.rfind(':'); colon != std::string_view::npos) {
    local.remove_prefix(colon + 1);
  }
  return local.size() == name.size() &&
         std::equal(local.begin(), local.end(), name.begin(), [](char a, char b) {
           return std::tolower(static_cast<unsigned char>(a)) ==
                  std::tolower(static_cast<unsigned char>(b));
         });
}

pugi::xml_node Child(const pugi::xml_node& node, std::string_view name) {
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    if (LocalNameIs(child, name)) return child;
  }
  return {};
}

// Exactly `count` finite numbers separated by white space.
bool ParseNumbers(std::string_view text, double* values, size_t count) {
  size_t found = 0;
  size_t cursor = 0;
  while (true) {
    while (cursor < text.size() && IsWhiteSpace(text[cursor]))
      ++cursor;
    if (cursor == text.size()) break;
    size_t end = cursor;
    while (end < text.size() && !IsWhiteSpace(text[end]))
      ++end;
    if (found == count) return false;
    double value = 0;
    const auto [stop, error] = std::from_chars(text.data() + cursor, text.data() + end, value);
    if (error != std::errc() || stop != text.data() + end || !std::isfinite(value)) return false;
    values[found++] = value;
    cursor = end;
  }
  return found == count;
}

// Walked with a list of its own rather than by recursion: the nesting depth is the input's to
// choose, and a deep enough document would otherwise exhaust the caller's stack.
void CollectCorrections(const pugi::xml_node& root, std::vector<pugi::xml_node>& corrections) {
  std::vector<pugi::xml_node> pending{root};
  while (!pending.empty()) {
    const pugi::xml_node node = pending.back();
    pending.pop_back();
    for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
      if (LocalNameIs(child, "ColorCorrection")) {
        corrections.push_back(child);
      } else if (LocalNameIs(child, "ColorDecision")) {
        pending.push_back(child);
      }
    }
  }
}

}  // namespace

bool COvColorTransformation::bParse(const void* text, size_t length, std::string_view correctionId,
                                    std::string* whyNot) {
  const auto refuse = [whyNot](std::string reason) {
    if (whyNot) *whyNot = std::move(reason);
    return false;
  };
  pugi::xml_document document;
  if (!XMLMarkupWithinLimit(text, length)) {
    return refuse("more than " + std::to_string(kXmlMaxMarkup) + " markup characters");
  }
  if (const pugi::xml_parse_result parsed = document.load_buffer(text, length); !parsed) {
    return refuse(std::string("not well-formed XML: ") + parsed.description() + " at byte " +
                  std::to_string(parsed.offset));
  }
  const pugi::xml_node root = document.document_element();

  std::vector<pugi::xml_node> corrections;
  if (LocalNameIs(root, "ColorCorrection")) {
    corrections.push_back(root);
  } else if (LocalNameIs(root, "ColorDecisionList") ||
             LocalNameIs(root, "ColorCorrectionCollection")) {
    CollectCorrections(root, corrections);
  }
  if (corrections.empty()) {
    return refuse(std::string("no ColorCorrection in the XML (its root is ") + root.name() + ")");
  }
  std::string ids;
  for (const pugi::xml_node& candidate : corrections) {
    ids += (ids.empty() ? "" : ", ") + std::string(candidate.attribute("id").as_string("(no id)"));
  }
  pugi::xml_node correction;
  if (correctionId.empty()) {
    // Several corrections are alternatives, not one transformation; picking one would be a guess.
    if (corrections.size() != 1) {
      return refuse(std::to_string(corrections.size()) + " corrections (ids " + ids +
                    ") where a table holds one; name one by its id");
    }
    correction = corrections.front();
  } else {
    for (const pugi::xml_node& candidate : corrections) {
      if (candidate.attribute("id").as_string() == correctionId) {
        correction = candidate;
        break;
      }
    }
    if (!correction) {
      return refuse("no correction has the id '" + std::string(correctionId) + "' (ids " + ids +
                    ")");
    }
  }

  const pugi::xml_node sop = Child(correction, "SOPNode");
  if (!sop) return refuse("the correction has no SOPNode");
  std::array<double, 3> slope{}, offset{}, power{};
  const std::pair<const char*, double*> parts[] = {
      {"Slope", slope.data()}, {"Offset", offset.data()}, {"Power", power.data()}};
  for (const auto& [name, values] : parts) {
    if (!ParseNumbers(Child(sop, name).text().get(), values, 3)) {
      return refuse(std::string(name) + " is not three finite numbers");
    }
  }
  if (std::any_of(power.begin(), power.end(), [](double p) { return !(p > 0); })) {
    return refuse("a Power is not above 0");
  }

  if (const pugi::xml_node sat = Child(correction, "SatNode")) {
    double saturation = 0;
    if (!ParseNumbers(Child(sat, "Saturation").text().get(), &saturation, 1)) {
      return refuse("Saturation is not one finite number");
    }
    if (saturation != 1.0) {
      char number[32];
      std::snprintf(number, sizeof(number), "%g", saturation);
      return refuse(std::string("saturation ") + number + " cannot be held by a 1-D table");
    }
  }

  slope_ = slope;
  offset_ = offset;
  power_ = power;
  return true;
}

void COvColorTransformation::Apply(const float in[3], float out[3]) const {
  for (int c = 0; c < 3; ++c) {
    const double graded = std::clamp(double(in[c]) * slope_[c] + offset_[c], 0.0, 1.0);
    out[c] = float(std::pow(graded, power_[c]));
  }
}

}  // namespace Tincta
