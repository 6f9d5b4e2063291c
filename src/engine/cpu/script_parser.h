// Script parameters: named numbers that a rendering's scripts read ("__scale1.x", ...).
#pragma once

#include <cstdint>
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
  /// Changes with every parameter set, and no two parsers alive share one: a parser with the
  /// revision it had before holds the values it held before (a copy takes its original's).
  uint64_t Revision() const { return revision_; }

 private:
  std::vector<std::pair<std::string, double>> parameters_;
  uint64_t revision_ = NextRevision();

  static uint64_t NextRevision();
};

}  // namespace Tincta
