// What the text writers share: numbers that read back as the very float written, and the checks
// every table writer makes first.
#pragma once

#include <charconv>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// Appends `value` with the fewest digits that read back as the same float, so that a table
/// written as text loses nothing.
inline void AppendExactFloat(std::string& out, float value) {
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof(text), value);
  if (error == std::errc()) out.append(text, end);
}

/// Appends "R G B\n" of entry `index` of a table.
inline void AppendExactEntry(std::string& out, const float* table, size_t index) {
  const float* entry = table + 4 * index;
  AppendExactFloat(out, entry[0]);
  out += ' ';
  AppendExactFloat(out, entry[1]);
  out += ' ';
  AppendExactFloat(out, entry[2]);
  out += '\n';
}

/// Whether red, green and blue of the domain are exactly [0, 1].
inline bool HasUnitDomain(const COv3DLUT& lut) {
  for (int c = 0; c < 3; ++c) {
    if (lut.DomainMin()[c] != 0.0f || lut.DomainMax()[c] != 1.0f) return false;
  }
  return true;
}

}  // namespace Tincta
