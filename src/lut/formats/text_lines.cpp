#include "lut/formats/text_lines.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "lut/formats/text_chars.h"

namespace Tincta {
namespace {

bool IsBreak(char c) {
  return c == '\n' || c == '\r';
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
    if (LowerASCII(a[i]) != LowerASCII(b[i])) return false;
  return true;
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

bool MayMatchKeyword(std::string_view line, std::string_view keyword) {
  size_t start = 0;
  while (start < line.size() && IsScanfSpace(line[start]))
    ++start;
  return line.substr(start).starts_with(keyword);
}

bool CTextLines::Next(std::string_view& line) {
  while (cursor_ < end_) {
    for (; cursor_ < end_ && IsBreak(*cursor_); ++cursor_) {
      // "\r\n" is one break: its '\r' is not counted.
      if (*cursor_ == '\n' || cursor_ + 1 == end_ || cursor_[1] != '\n') ++breaks_;
    }
    const char* start = cursor_;
    while (cursor_ < end_ && !IsBreak(*cursor_))
      ++cursor_;
    const std::string_view trimmed = TrimLine(std::string_view(start, size_t(cursor_ - start)));
    if (!trimmed.empty()) {
      line = trimmed;
      lineNumber_ = breaks_ + 1;
      return true;
    }
  }
  return false;
}

void NoteSurplusLines(CTextLines& lines, uint64_t entries, SLUTReadDiagnostics& diagnostics) {
  uint32_t surplus = 0;
  uint32_t first = 0;
  std::string_view line;
  while (lines.Next(line)) {
    if (line.front() == '#') continue;
    if (surplus++ == 0) first = lines.LineNumber();
  }
  if (surplus == 0) return;
  diagnostics.Warn(first, std::to_string(surplus) + (surplus == 1 ? " line" : " lines") +
                              " after the last of the " + std::to_string(entries) + " entries " +
                              (surplus == 1 ? "is" : "are") + " not read");
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

namespace {

enum class ENumber { kRead, kNone, kOutOfRange };

// One decimal integer as %u and %d read it: an optional sign, then digits. The value is kept
// exact up to well beyond 32 bits; more digits than any field holds only mark it out of range.
ENumber ReadInteger(std::string_view line, size_t& cursor, bool& negative, uint64_t& magnitude) {
  negative = false;
  if (cursor < line.size() && (line[cursor] == '+' || line[cursor] == '-')) {
    negative = line[cursor] == '-';
    ++cursor;
  }
  const size_t start = cursor;
  magnitude = 0;
  bool huge = false;
  for (; cursor < line.size() && IsDigit(line[cursor]); ++cursor) {
    magnitude = magnitude * 10 + uint64_t(line[cursor] - '0');
    huge |= magnitude > (uint64_t(1) << 40);
  }
  if (cursor == start) return ENumber::kNone;
  return huge ? ENumber::kOutOfRange : ENumber::kRead;
}

}  // namespace

int ScanFields(std::string_view line, const char* format, ...) {
  // What sscanf sees of the line: a NUL inside it ends the string.
  line = line.substr(0, line.find('\0'));
  va_list arguments;
  va_start(arguments, format);
  size_t cursor = 0;
  int assigned = 0;
  int result = 0;
  bool done = false;
  // sscanf's EOF: the input ended before the first conversion.
  const auto inputEnded = [&] { return assigned == 0 ? EOF : assigned; };
  for (const char* f = format; *f != '\0' && !done; ++f) {
    if (IsScanfSpace(*f)) {
      while (cursor < line.size() && IsScanfSpace(line[cursor]))
        ++cursor;
      continue;
    }
    if (*f != '%') {
      if (cursor == line.size()) {
        result = inputEnded();
        done = true;
      } else if (line[cursor] != *f) {
        result = assigned;
        done = true;
      } else {
        ++cursor;
      }
      continue;
    }
    ++f;
    while (cursor < line.size() && IsScanfSpace(line[cursor]))
      ++cursor;
    if (cursor == line.size()) {
      result = inputEnded();
      done = true;
      continue;
    }
    if (*f == 's') {
      char* word = va_arg(arguments, char*);
      while (cursor < line.size() && !IsScanfSpace(line[cursor]))
        *word++ = line[cursor++];
      *word = '\0';
      ++assigned;
      continue;
    }
    bool negative = false;
    uint64_t magnitude = 0;
    const ENumber number = ReadInteger(line, cursor, negative, magnitude);
    if (number == ENumber::kNone) {
      result = assigned;
      done = true;
      continue;
    }
    if (*f == 'u') {
      if (number == ENumber::kOutOfRange || (negative && magnitude != 0) ||
          magnitude > std::numeric_limits<unsigned>::max()) {
        result = kScanOutOfRange;
        done = true;
        continue;
      }
      *va_arg(arguments, unsigned*) = unsigned(magnitude);
    } else {  // 'd'
      const uint64_t limit = uint64_t(std::numeric_limits<int>::max()) + (negative ? 1 : 0);
      if (number == ENumber::kOutOfRange || magnitude > limit) {
        result = kScanOutOfRange;
        done = true;
        continue;
      }
      *va_arg(arguments, int*) = negative ? int(-int64_t(magnitude)) : int(magnitude);
    }
    ++assigned;
  }
  if (!done) result = assigned;
  va_end(arguments);
  return result;
}

}  // namespace Tincta
