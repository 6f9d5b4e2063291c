#include "lut/read_diagnostics.h"

#include <cstdio>

namespace Tincta {

std::string SReadNote::Text() const {
  if (line == 0) return message;
  return "line " + std::to_string(line) + ": " + message;
}

std::string FormatNumber(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%g", value);
  return text;
}

std::string QuoteLine(std::string_view line) {
  constexpr size_t kShown = 60;
  std::string quoted = "'";
  for (size_t i = 0; i < line.size() && i < kShown; ++i) {
    const unsigned char c = static_cast<unsigned char>(line[i]);
    quoted += (c >= 0x20 && c < 0x7f) ? char(c) : '?';
  }
  if (line.size() > kShown) quoted += "...";
  quoted += "'";
  return quoted;
}

}  // namespace Tincta
