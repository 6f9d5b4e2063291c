#include "look/shading_mask.h"

#include <cmath>
#include <string_view>

#include "foundation/xml_storage.h"
#include "look/look_xml_text.h"

namespace Tincta {
namespace {

bool ParsePoint(std::string_view text, COvShadingMask::Point& point) {
  const size_t comma = text.find(',');
  if (comma == std::string_view::npos) return false;
  return ParseLookFloat(text.substr(0, comma), point[0]) &&
         ParseLookFloat(text.substr(comma + 1), point[1]);
}

}  // namespace

bool COvShadingMask::SetShape(std::vector<Point> points, float feather, bool inverted) {
  if (points.size() < 3 || !std::isfinite(feather) || feather < 0.0f) return false;
  for (const Point& point : points) {
    if (!std::isfinite(point[0]) || !std::isfinite(point[1])) return false;
  }
  points_ = std::move(points);
  feather_ = feather;
  inverted_ = inverted;
  return true;
}

bool COvShadingMask::ReadData(const pugi::xml_node& data, std::string& error) {
  std::vector<Point> points;
  float feather = 0.0f;
  bool inverted = false;
  std::string text;
  for (pugi::xml_node child = data.first_child(); child; child = child.next_sibling()) {
    const bool isPoint = ElementNameIs(child, "point");
    const bool isFeather = ElementNameIs(child, "feather");
    const bool isInverted = ElementNameIs(child, "inverted");
    if (!isPoint && !isFeather && !isInverted) continue;
    if (!ReadElementText(child, text, &error)) return false;
    if (isPoint) {
      Point point{};
      if (!ParsePoint(text, point)) {
        error = "a mask point is not two numbers: \"" + text + "\"";
        return false;
      }
      points.push_back(point);
    } else if (isFeather) {
      if (!ParseLookFloat(text, feather) || feather < 0.0f) {
        error = "the mask feather is not a number of at least 0: \"" + text + "\"";
        return false;
      }
    } else if (text == "0" || text == "1") {
      inverted = text == "1";
    } else {
      error = "the mask's inverted flag is neither 0 nor 1: \"" + text + "\"";
      return false;
    }
  }
  if (!SetShape(std::move(points), feather, inverted)) {
    error = "a mask needs at least three points";
    return false;
  }
  return true;
}

void COvShadingMask::WriteElement(int indent, std::string& out) const {
  const std::string padding(size_t(indent), ' ');
  out += padding + "<mask>\n";
  if (!name_.empty()) AppendLookTextElement(out, indent + 2, "name", name_);
  out += padding + "  <data>\n";
  AppendLookTextElement(out, indent + 4, "inverted", inverted_ ? "1" : "0");
  AppendLookTextElement(out, indent + 4, "feather", ExactFloatText(feather_));
  for (const Point& point : points_) {
    AppendLookTextElement(out, indent + 4, "point",
                          ExactFloatText(point[0]) + "," + ExactFloatText(point[1]));
  }
  out += padding + "  </data>\n";
  out += padding + "</mask>\n";
}

}  // namespace Tincta
