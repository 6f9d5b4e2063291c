#include "lut/formats/text_lines.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "lut/formats/text_chars.h"

namespace Tincta {
namespace {

bool IsBreak(char c) {
  return c == '\n' || c == '\r';
}
char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

}  // namespace

std::string_view TrimLine(std::string_view text) {
  while (!text.empty() && IsWhiteSpace(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && IsWhiteSpace(text.back()))
    text.remove_suffix(1);
  return text;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Lower(a[i]) != Lower(b[i])) return false;
  return true;
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

bool CTextLines::Next(std::string_view& line) {
  while (cursor_ < end_) {
    while (cursor_ < end_ && IsBreak(*cursor_))
      ++cursor_;
    const char* start = cursor_;
    while (cursor_ < end_ && !IsBreak(*cursor_))
      ++cursor_;
    const std::string_view trimmed = TrimLine(std::string_view(start, size_t(cursor_ - start)));
    if (!trimmed.empty()) {
      line = trimmed;
      return true;
    }
  }
  return false;
}

int ScanLine(std::string_view line, const char* format, ...) {
  thread_local std::string copy;
  copy.assign(line.data(), line.size());
  va_list arguments;
  va_start(arguments, format);
  const int result = std::vsscanf(copy.c_str(), format, arguments);
  va_end(arguments);
  return result;
}

}  // namespace Tincta
