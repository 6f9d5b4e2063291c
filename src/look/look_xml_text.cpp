#include "look/look_xml_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace Tincta {
namespace {

std::string_view TrimBlanks(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

template <class Number>
bool ParseDecimal(std::string_view text, Number& value) {
  text = TrimBlanks(text);
  if (!text.empty() && text.front() == '+') return false;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

void AppendEscapedText(std::string& out, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n') {
          // The parser would fold a carriage return into a line feed.
          out += "&#";
          out += std::to_string(int(c));
          out += ';';
        } else {
          out += c;
        }
    }
  }
}

void AppendLookTextElement(std::string& out, int indent, std::string_view name,
                           std::string_view value) {
  out.append(size_t(indent > 0 ? indent : 0), ' ');
  out.append("<").append(name).append(">\"");
  AppendEscapedText(out, value);
  out.append("\"</").append(name).append(">\n");
}

void AppendPlainTextElement(std::string& out, int indent, std::string_view name,
                            std::string_view value) {
  const bool quoted =
      value.empty() || value.front() == '"' || IsBlank(value.front()) || IsBlank(value.back());
  if (quoted) {
    AppendLookTextElement(out, indent, name, value);
    return;
  }
  out.append(size_t(indent > 0 ? indent : 0), ' ');
  out.append("<").append(name).append(">");
  AppendEscapedText(out, value);
  out.append("</").append(name).append(">\n");
}

bool ParseLookUnsigned(std::string_view text, uint32_t& value) {
  return ParseDecimal(text, value);
}

bool ParseLookSigned(std::string_view text, int64_t& value) {
  return ParseDecimal(text, value);
}

bool ParseLookFloat(std::string_view text, float& value) {
  text = TrimBlanks(text);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return !text.empty() && error == std::errc() && end == text.data() + text.size() &&
         std::isfinite(value);
}

std::string ExactFloatText(float value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.9g", double(value));
  return text;
}

}  // namespace Tincta
