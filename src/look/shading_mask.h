// A shading mask: the region of the picture that a grading's layers act on, as a closed polygon
// in picture coordinates (0..1 across and down) with a soft edge.
//
// XML, at the level of the keyframe elements:
//   <mask>
//     <name>"Face"</name>               only when the mask has a name
//     <data>
//       <inverted>"0"</inverted>
//       <feather>"0.02"</feather>      width of the soft edge, in picture widths
//       <point>"0.25,0.25"</point>     three or more, in drawing order
//     </data>
//   </mask>
#pragma once

#include <pugixml.hpp>

#include <array>
#include <string>
#include <vector>

namespace Tincta {

class COvShadingMask {
 public:
  using Point = std::array<float, 2>;

  const std::string& Name() const { return name_; }
  void SetName(std::string name) { name_ = std::move(name); }

  bool Inverted() const { return inverted_; }
  float Feather() const { return feather_; }
  const std::vector<Point>& Points() const { return points_; }

  /// Replaces the shape. False, with the mask unchanged, for fewer than three points, a
  /// coordinate that is not finite, or a feather that is negative or not finite.
  bool SetShape(std::vector<Point> points, float feather, bool inverted);

  /// Reads the shape from a "data" element; unknown children are skipped. False, with `error`
  /// set and the mask unchanged, when a value cannot be read or the shape is refused.
  bool ReadData(const pugi::xml_node& data, std::string& error);

  /// Appends the whole mask element, indented by `indent` blanks. Coordinates are written with
  /// nine significant digits, so they read back exactly.
  void WriteElement(int indent, std::string& out) const;

  friend bool operator==(const COvShadingMask&, const COvShadingMask&) = default;

 private:
  std::string name_;
  bool inverted_ = false;
  float feather_ = 0.0f;
  std::vector<Point> points_;
};

}  // namespace Tincta
