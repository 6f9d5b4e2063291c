#include "lut/formats/xml_lut_element.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <exception>
#include <string_view>

#include "foundation/hex_codec.h"
#include "foundation/xml_storage.h"
#include "lut/formats/text_fields.h"
#include "lut/formats/text_lines.h"
#include "lut/lut_cache.h"

namespace Tincta {
namespace {

// A shaper sits in front of a 3-D table and has none of its own.
constexpr int kMaxSubLUTDepth = 1;

// Keeps a file name from breaking the document; pugixml turns the entities back.
std::string EscapeXMLText(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string FormatTriple(const Vec4& value) {
  char text[96];
  std::snprintf(text, sizeof(text), "%g,%g,%g", double(value[0]), double(value[1]),
                double(value[2]));
  return text;
}

bool ParseBoolean(std::string_view text, bool& value) {
  text = TrimLine(text);
  if (text == "1" || EqualsIgnoringCase(text, "true")) {
    value = true;
    return true;
  }
  if (text == "0" || EqualsIgnoringCase(text, "false")) {
    value = false;
    return true;
  }
  return false;
}

// Digests are written upper-case but compared without regard to case.
std::string CacheKeyOfHash(std::string hash) {
  const bool isDigest = hash.size() == 32 && std::all_of(hash.begin(), hash.end(), [](char c) {
                          return std::isxdigit(static_cast<unsigned char>(c)) != 0;
                        });
  if (isDigest) {
    for (char& c : hash)
      c = char(std::toupper(static_cast<unsigned char>(c)));
  }
  return hash;
}

std::unique_ptr<COv3DLUT> ReadElement(const pugi::xml_node& element, int depth) {
  std::string filename, hash, data;
  bool hasHash = false, hasData = false, is3D = false;
  // A child that cannot be read spoils the element's own table, not a table found by its hash.
  bool malformed = false;
  uint64_t size = 0;
  float min[3] = {0, 0, 0}, max[3] = {1, 1, 1};
  std::unique_ptr<COv3DLUT> shaper;
  std::string text;
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (child.type() != pugi::node_element) continue;
    if (ElementNameIs(child, "sublut")) {
      // Not read below the allowed depth, which also bounds the recursion.
      shaper = depth < kMaxSubLUTDepth ? ReadElement(child, depth + 1) : nullptr;
      // A shaper that cannot be read would change the colours silently.
      if (!shaper || shaper->Is3D()) malformed = true;
      continue;
    }
    const bool known = ElementNameIs(child, "filename") || ElementNameIs(child, "hash") ||
                       ElementNameIs(child, "size") || ElementNameIs(child, "is3d") ||
                       ElementNameIs(child, "min") || ElementNameIs(child, "max") ||
                       ElementNameIs(child, "data");
    if (!known) continue;
    if (!ReadElementText(child, text)) {
      malformed = true;
    } else if (ElementNameIs(child, "filename")) {
      filename = text;
    } else if (ElementNameIs(child, "hash")) {
      hash = text;
      hasHash = true;
    } else if (ElementNameIs(child, "size")) {
      malformed |= !ParseTrimmedNumber(text, size);
    } else if (ElementNameIs(child, "is3d")) {
      malformed |= !ParseBoolean(text, is3D);
    } else if (ElementNameIs(child, "min")) {
      malformed |= !ParseCommaTriple(text, min);
    } else if (ElementNameIs(child, "max")) {
      malformed |= !ParseCommaTriple(text, max);
    } else {
      data = std::move(text);
      hasData = true;
    }
  }

  if (hasHash) {
    if (auto cached = COvLUTCache::Instance().CopyOf(CacheKeyOfHash(hash))) return cached;
  }

  const uint64_t limit = is3D ? kMax3DSize : kMax1DEntries;
  if (malformed || !hasData || size == 0 || size > limit) return nullptr;
  const uint64_t entries = is3D ? size * size * size : size;
  // Checked before allocating: the text must hold the whole table and nothing else.
  if (data.size() != entries * 32) return nullptr;
  auto lut = std::make_unique<COv3DLUT>();
  if (!lut->Allocate(uint32_t(size), is3D)) return nullptr;
  if (!DecodeTextToBytes(data, lut->Table(), size_t(entries) * 16)) return nullptr;
  lut->SetSourcePath(std::move(filename));
  if (shaper) lut->SetInputShaper(std::move(shaper));
  lut->SetDomain({min[0], min[1], min[2], 1.0f}, {max[0], max[1], max[2], 1.0f});
  return lut;
}

}  // namespace

void WriteXMLLUTElement(const COv3DLUT& lut, int indent, std::string& out) {
  indent = std::max(indent, 0);
  if (!lut.SourcePath().empty()) {
    AppendQuotedElement(out, indent, "filename", EscapeXMLText(lut.SourcePath()));
  }
  AppendQuotedElement(out, indent, "is3d", lut.Is3D() ? "1" : "0");
  AppendQuotedElement(out, indent, "size", std::to_string(lut.Size()));
  AppendQuotedElement(out, indent, "min", FormatTriple(lut.DomainMin()));
  AppendQuotedElement(out, indent, "max", FormatTriple(lut.DomainMax()));

  const std::string padding(size_t(indent), ' ');
  out += padding;
  out += "<data>\"";
  if (lut.Table()) AppendHex(out, lut.Table(), lut.TableBytes());
  out += "\"</data>\n";

  if (const COv3DLUT* shaper = lut.InputShaper()) {
    out += padding;
    out += "<sublut>\n";
    WriteXMLLUTElement(*shaper, indent + 2, out);
    out += padding;
    out += "</sublut>\n";
  }
}

std::unique_ptr<COv3DLUT> ReadXMLLUTElement(const pugi::xml_node& element) {
  try {
    return ReadElement(element, 0);
  } catch (const std::exception&) {
    // Only memory exhaustion gets here; the element then yields no LUT.
    return nullptr;
  }
}

}  // namespace Tincta
