// Script parameters: named numbers that a rendering's scripts read ("__scale1.x", ...).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tincta {

/// The named parameters of a rendering. Names are compared exactly (case matters), as a script
/// would; a name set twice keeps its last value.
class COvScriptParser {
 public:
  /// Sets `name` to `value`. False, nothing set, for an empty name.
  bool bSetParameter(std::string_view name, double value);
  /// The value of `name`, or nothing when it was never set.
  std::optional<double> Parameter(std::string_view name) const;
  size_t ParameterCount() const { return parameters_.size(); }

 private:
  std::vector<std::pair<std::string, double>> parameters_;
};

}  // namespace Tincta
