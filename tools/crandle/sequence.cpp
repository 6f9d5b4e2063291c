#include "sequence.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace crandle_tool {
namespace {

// Finds the frame field: returns its start and length, or false when there is none or more
// than one, or a '%' that is not part of "%%" or a frame field.
bool FindField(const std::string& path, size_t& start, size_t& length) {
  int fields = 0;
  for (size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '%') continue;
    if (i + 1 < path.size() && path[i + 1] == '%') {
      ++i;
      continue;
    }
    size_t j = i + 1;
    if (j < path.size() && path[j] == '0') ++j;
    while (j < path.size() && std::isdigit(static_cast<unsigned char>(path[j])))
      ++j;
    if (j >= path.size() || path[j] != 'd') return false;
    start = i;
    length = j + 1 - i;
    ++fields;
    i = j;
  }
  return fields == 1;
}

}  // namespace

bool IsSequencePattern(const std::string& path) {
  size_t start = 0, length = 0;
  return FindField(path, start, length);
}

std::string FramePath(const std::string& pattern, long frame) {
  size_t start = 0, length = 0;
  if (!FindField(pattern, start, length)) return pattern;
  const std::string field = pattern.substr(start, length - 1) + "ld";
  char number[64];
  std::snprintf(number, sizeof(number), field.c_str(), frame);
  std::string path;
  // Literal "%%" outside the field becomes "%".
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (i == start) {
      path += number;
      i += length - 1;
    } else if (pattern[i] == '%' && i + 1 < pattern.size() && pattern[i + 1] == '%') {
      path += '%';
      ++i;
    } else {
      path += pattern[i];
    }
  }
  return path;
}

std::optional<SFrameRange> ParseFrameRange(const std::string& text) {
  const auto number = [](const std::string& part, long& value) {
    if (part.empty() || part.size() > 9) return false;
    for (char c : part)
      if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    value = std::strtol(part.c_str(), nullptr, 10);
    return true;
  };
  SFrameRange range;
  const size_t dash = text.find('-');
  if (dash == std::string::npos) {
    if (!number(text, range.first)) return std::nullopt;
    range.last = range.first;
    return range;
  }
  if (!number(text.substr(0, dash), range.first) || !number(text.substr(dash + 1), range.last) ||
      range.first > range.last) {
    return std::nullopt;
  }
  return range;
}

}  // namespace crandle_tool
