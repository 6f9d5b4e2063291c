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
    if (!ReadElementText(element, text)) return false;
    // An unreadable size stays out of range, so that data after it fails.
    if (!ParseTrimmedNumber(text, size_)) size_ = 0;
    return true;
  }
  if (ElementNameIs(element, "domainmin") || ElementNameIs(element, "domainmax")) {
    if (!ReadElementText(element, text)) return false;
    return ParseDomain(text, ElementNameIs(element, "domainmin") ? domainMin_ : domainMax_);
  }
  if (ElementNameIs(element, "data")) return ReadData(element.text().get());
  return true;
}

bool CXMLLookReader::ReadData(std::string_view text) {
  if (size_ < 1 || size_ > int64_t(kMax3DSize)) return false;
  if (options_.kindFilter == ELUTKindFilter::Only1D) return false;
  // Only upper-case digits count; lower-case ones are dropped with the blanks and quotes.
  std::string digits;
  digits.reserve(text.size());
  for (const char c : text) {
    if (IsUpperHexDigit(c)) digits.push_back(c);
  }
  const uint32_t size = uint32_t(size_);
  const size_t entries = size_t(size) * size * size;
  // Checked before allocating, so that a short text never costs a full table.
  if (digits.size() != entries * 24) return false;
  if (!lut_.Allocate(size, true)) return false;
  float* table = lut_.Table();
  if (!DecodeTextToBytes(digits, table, entries * 12)) return false;
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
  if (!XMLMarkupWithinLimit(bytes, length) || !document.load_buffer(bytes, length)) return false;

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
  if (!lutElement) return false;

  // Every element after the LUT tag, its own children first.
  CXMLLookReader reader(lut, options);
  for (pugi::xml_node node = NextInDocumentOrder(lutElement); node;
       node = NextInDocumentOrder(node)) {
    if (node.type() == pugi::node_element && !reader.ReadElement(node)) return false;
  }
  if (!reader.TableLoaded()) return false;
  lut.SetDomain(reader.DomainMin(), reader.DomainMax());
  return true;
}

}  // namespace Tincta
