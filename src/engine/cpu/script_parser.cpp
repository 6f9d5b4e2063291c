#include "engine/cpu/script_parser.h"

#include <atomic>

namespace Tincta {

uint64_t COvScriptParser::NextRevision() {
  static std::atomic<uint64_t> next{1};
  return next.fetch_add(1, std::memory_order_relaxed);
}

bool COvScriptParser::bSetParameter(std::string_view name, double value) {
  if (name.empty()) return false;
  revision_ = NextRevision();
  for (auto& [existing, stored] : parameters_) {
    if (existing == name) {
      stored = value;
      return true;
    }
  }
  parameters_.emplace_back(std::string(name), value);
  return true;
}

std::optional<double> COvScriptParser::Parameter(std::string_view name) const {
  for (const auto& [existing, stored] : parameters_) {
    if (existing == name) return stored;
  }
  return std::nullopt;
}

}  // namespace Tincta
