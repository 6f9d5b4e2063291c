#include "look/look_xml_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "lut/formats/text_chars.h"
#include "lut/formats/text_fields.h"

namespace Tincta {

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
  const bool quoted = value.empty() || value.front() == '"' || IsWhiteSpace(value.front()) ||
                      IsWhiteSpace(value.back());
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
  return ParseTrimmedNumber(text, value);
}

bool ParseLookSigned(std::string_view text, int64_t& value) {
  return ParseTrimmedNumber(text, value);
}

bool ParseLookFloat(std::string_view text, float& value) {
  return ParseTrimmedNumber(text, value) && std::isfinite(value);
}

std::string ExactFloatText(float value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.9g", double(value));
  return text;
}

}  // namespace Tincta
