#include "lut/formats/xml_look_reader.h"

#include <pugixml.hpp>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "foundation/hex_codec.h"
#include "foundation/xml_storage.h"
#include "lut/formats/text_fields.h"
#include "lut/formats/text_lines.h"

namespace Tincta {
namespace {

constexpr uint32_t kLookProbeBytes = 1024;

bool IsUpperHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

// "r, g, b" with blanks around each number; alpha 1.
bool ParseDomain(std::string_view text, Vec4& domain) {
  float rgb[3];
  if (!ParseCommaTriple(text, rgb)) return false;
  domain = {rgb[0], rgb[1], rgb[2], 1.0f};
  return true;
}

class CXMLLookReader {
 public:
  CXMLLookReader(COv3DLUT& lut, const SParseOptions& options) : lut_(lut), options_(options) {}

  // False when the read fails.
  bool ReadElement(const pugi::xml_node& element);
  bool TableLoaded() const { return tableLoaded_; }
  const Vec4& DomainMin() const { return domainMin_; }
  const Vec4& DomainMax() const { return domainMax_; }

 private:
  bool ReadData(std::string_view text);
  bool Fail(std::string message) {
    NoteFailure(options_.diagnostics, 0, std::move(message));
    return false;
  }

  COv3DLUT& lut_;
  const SParseOptions& options_;
  int64_t size_ = 0;
  bool tableLoaded_ = false;
  Vec4 domainMin_{0, 0, 0, 1};
  Vec4 domainMax_{1, 1, 1, 1};
};

bool CXMLLookReader::ReadElement(const pugi::xml_node& element) {
  std::string text;
  if (ElementNameIs(element, "size")) {
    if (!ReadElementText(element, text)) return Fail("the size element cannot be read");
    // An unreadable size stays out of range, so that data after it fails.
    if (!ParseTrimmedNumber(text, size_)) size_ = 0;
    return true;
  }
  if (ElementNameIs(element, "domainmin") || ElementNameIs(element, "domainmax")) {
    if (!ReadElementText(element, text) ||
        !ParseDomain(text, ElementNameIs(element, "domainmin") ? domainMin_ : domainMax_)) {
      return Fail(std::string(element.name()) + " is not three numbers separated by commas");
    }
    return true;
  }
  if (ElementNameIs(element, "data")) return ReadData(element.text().get());
  return true;
}

bool CXMLLookReader::ReadData(std::string_view text) {
  if (size_ < 1 || size_ > int64_t(kMax3DSize)) {
    return Fail("the size before the data is missing or outside 1.." + std::to_string(kMax3DSize));
  }
  if (options_.kindFilter == ELUTKindFilter::Only1D) {
    return Fail("a 3-D table where only 1-D ones are taken");
  }
  // Only upper-case digits count; lower-case ones are dropped with the blanks and quotes.
  std::string digits;
  digits.reserve(text.size());
  for (const char c : text) {
    if (IsUpperHexDigit(c)) digits.push_back(c);
  }
  const uint32_t size = uint32_t(size_);
  const size_t entries = size_t(size) * size * size;
  // Checked before allocating, so that a short text never costs a full table.
  if (digits.size() != entries * 24) {
    return Fail("the data holds " + std::to_string(digits.size()) +
                " upper-case hexadecimal digits, a cube of " + std::to_string(size) + " needs " +
                std::to_string(entries * 24));
  }
  if (!lut_.Allocate(size, true)) return Fail("not enough memory for the table");
  float* table = lut_.Table();
  if (!DecodeTextToBytes(digits, table, entries * 12)) return Fail("the data cannot be decoded");
  COv3DLUT::ExpandRGBToRGBA(table, table, entries, 1.0f);
  tableLoaded_ = true;
  return true;
}

// The node after `node` in document order (children before siblings).
pugi::xml_node NextInDocumentOrder(pugi::xml_node node) {
  if (node.first_child()) return node.first_child();
  while (node) {
    if (node.next_sibling()) return node.next_sibling();
    node = node.parent();
  }
  return {};
}

pugi::xml_node FirstChildElement(const pugi::xml_node& node) {
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    if (child.type() == pugi::node_element) return child;
  }
  return {};
}

}  // namespace

bool IsXMLLook(const uint8_t* bytes, uint32_t length, const SParseOptions&) {
  const std::string_view head = TrimLine(
      std::string_view(reinterpret_cast<const char*>(bytes), std::min(length, kLookProbeBytes)));
  return head.starts_with("<?xml") && head.find("<look>", 1) != std::string_view::npos;
}

bool ReadXMLLook(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                 const SParseOptions& options) {
  pugi::xml_document document;
  if (!XMLMarkupWithinLimit(bytes, length)) {
    NoteFailure(options.diagnostics, 0,
                "more than " + std::to_string(kXmlMaxMarkup) + " markup characters");
    return false;
  }
  if (const pugi::xml_parse_result parsed = document.load_buffer(bytes, length); !parsed) {
    NoteFailure(options.diagnostics, 0,
                std::string("not well-formed XML: ") + parsed.description() + " at byte " +
                    std::to_string(parsed.offset));
    return false;
  }

  pugi::xml_node lutElement;
  for (pugi::xml_node node = document.first_child(); node; node = NextInDocumentOrder(node)) {
    if (ElementNameIs(node, "look")) {
      const pugi::xml_node first = FirstChildElement(node);
      if (ElementNameIs(first, "LUT")) {
        lutElement = first;
        break;
      }
    }
  }
  if (!lutElement) {
    NoteFailure(options.diagnostics, 0, "no look element begins with a LUT element");
    return false;
  }

  // Every element after the LUT tag, its own children first.
  CXMLLookReader reader(lut, options);
  for (pugi::xml_node node = NextInDocumentOrder(lutElement); node;
       node = NextInDocumentOrder(node)) {
    if (node.type() == pugi::node_element && !reader.ReadElement(node)) return false;
  }
  if (!reader.TableLoaded()) {
    NoteFailure(options.diagnostics, 0, "the look holds no size and data");
    return false;
  }
  lut.SetDomain(reader.DomainMin(), reader.DomainMax());
  return true;
}

}  // namespace Tincta
