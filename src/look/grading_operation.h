// An operation of a grading: a named step (for example "LUT") with named string parameters.
//
// XML, inside a keyframe element:
//   <operation>
//     <name>"LUT"</name>
//     <parameter>
//       <name>"LUT"</name>
//       <value>"look.cube"</value>
//     </parameter>
//   </operation>
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tincta {

class COvGradingOperation {
 public:
  COvGradingOperation() = default;
  explicit COvGradingOperation(std::string name) : name_(std::move(name)) {}

  const std::string& Name() const { return name_; }

  /// Parameters in the order they were set; names are unique within an operation.
  const std::vector<std::pair<std::string, std::string>>& Parameters() const { return parameters_; }
  /// The value of the parameter `name`, or null.
  const std::string* Parameter(std::string_view name) const;
  /// Sets the parameter `name`, replacing its value when it exists.
  void SetParameter(std::string_view name, std::string value);

  /// Appends the operation element, indented by `indent` blanks.
  void Write(int indent, std::string& out) const;
  /// Reads an operation element. False, with `error` set, when it has no name, a parameter has
  /// no name or two parameters share one; unknown children are skipped.
  bool Read(const pugi::xml_node& element, std::string& error);

  friend bool operator==(const COvGradingOperation&, const COvGradingOperation&) = default;

 private:
  std::string name_;
  std::vector<std::pair<std::string, std::string>> parameters_;
};

}  // namespace Tincta
