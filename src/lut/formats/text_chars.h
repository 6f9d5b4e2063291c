// Character classes of the text formats, the same whatever the process's locale. The readers,
// the colour-transformation text and the look documents all take them from here.
#pragma once

namespace Tincta {

/// What separates the numbers of a mesh data or shaper line: space or tab.
constexpr bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

/// White space of text lines and XML: blanks, line feed and carriage return. Lines are trimmed of
/// exactly these.
constexpr bool IsWhiteSpace(char c) {
  return IsBlank(c) || c == '\n' || c == '\r';
}

/// White space as a blank in a scanf format skips it in the C locale: also vertical tab and form
/// feed.
constexpr bool IsScanfSpace(char c) {
  return IsWhiteSpace(c) || c == '\v' || c == '\f';
}

constexpr bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Keywords compare without case in ASCII only: std::tolower follows the locale and costs a call
/// per character, which shows on files of millions of keyword lines.
constexpr char LowerASCII(char c) {
  return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

}  // namespace Tincta
