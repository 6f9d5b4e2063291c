#include "lut/color_transformation.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <string_view>
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

bool COvColorTransformation::bParse(const void* text, size_t length) {
  pugi::xml_document document;
  if (!XMLMarkupWithinLimit(text, length) || !document.load_buffer(text, length)) return false;
  const pugi::xml_node root = document.document_element();

  std::vector<pugi::xml_node> corrections;
  if (LocalNameIs(root, "ColorCorrection")) {
    corrections.push_back(root);
  } else if (LocalNameIs(root, "ColorDecisionList") ||
             LocalNameIs(root, "ColorCorrectionCollection")) {
    CollectCorrections(root, corrections);
  }
  // Several corrections are alternatives, not one transformation; picking one would be a guess.
  if (corrections.size() != 1) return false;
  const pugi::xml_node correction = corrections.front();

  const pugi::xml_node sop = Child(correction, "SOPNode");
  if (!sop) return false;
  std::array<double, 3> slope{}, offset{}, power{};
  if (!ParseNumbers(Child(sop, "Slope").text().get(), slope.data(), 3) ||
      !ParseNumbers(Child(sop, "Offset").text().get(), offset.data(), 3) ||
      !ParseNumbers(Child(sop, "Power").text().get(), power.data(), 3)) {
    return false;
  }
  if (std::any_of(power.begin(), power.end(), [](double p) { return !(p > 0); })) return false;

  if (const pugi::xml_node sat = Child(correction, "SatNode")) {
    double saturation = 0;
    if (!ParseNumbers(Child(sat, "Saturation").text().get(), &saturation, 1) || saturation != 1.0) {
      return false;
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
