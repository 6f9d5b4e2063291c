#include "look/look_document_reader.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <exception>
#include <string_view>

#include "foundation/xml_storage.h"
#include "look/grading_from_lut.h"
#include "look/look_grid.h"
#include "look/look_reference.h"
#include "look/look_xml_text.h"
#include "lut/formats/xml_lut_element.h"
#include "lut/lut_cache.h"
#include "lut/otx3_writer.h"

namespace Tincta {
namespace {

constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" ?>\n\n";
constexpr uint32_t kDefaultVersion = 1;
constexpr uint32_t kMissingLookVersion = 3;

// What one read builds; it reaches a document only when the whole text was read.
struct SReadDocument {
  uint32_t version = kDefaultVersion;
  host::Guid guid;
  COvGradingAnimation animation;
  std::unique_ptr<COvPropertyList> properties;
  std::shared_ptr<COvShadingMask> mask;
  std::vector<SDocumentLUT> luts;
  std::vector<std::string> pending;
};

bool IsHexDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

std::string UpperCase(std::string text) {
  for (char& c : text)
    c = char(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string_view TrimBlanks(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

bool ReadMask(const pugi::xml_node& element, SReadDocument& read, std::string& error) {
  std::shared_ptr<COvShadingMask> mask;
  std::string name;
  bool hasName = false;
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (ElementNameIs(child, "data")) {
      auto shape = std::make_shared<COvShadingMask>();
      if (!shape->ReadData(child, error)) return false;
      mask = std::move(shape);
    } else if (ElementNameIs(child, "name")) {
      if (!ReadElementText(child, name, &error)) return false;
      hasName = true;
    }
  }
  if (mask && hasName) mask->SetName(std::move(name));
  read.mask = std::move(mask);
  return true;
}

bool ReadEmbeddedLUT(const pugi::xml_node& element, SReadDocument& read, std::string& error) {
  std::string fileName, hash;
  for (pugi::xml_node child = element.first_child(); child; child = child.next_sibling()) {
    if (ElementNameIs(child, "filename")) {
      if (!ReadElementText(child, fileName, &error)) return false;
    } else if (ElementNameIs(child, "hash")) {
      if (!ReadElementText(child, hash, &error)) return false;
    }
  }
  // Anything else names no LUT that could be found; it is passed over.
  if (hash.size() != 32 || fileName.empty()) return true;
  // Identifier texts are kept upper-case; the hash may come in either case.
  const std::string key = IsHexDigits(hash) ? UpperCase(hash) : hash;
  if (auto cached = COvLUTCache::Instance().CopyOf(key)) {
    cached->SetSourcePath(std::move(fileName));
    read.luts.push_back({std::move(cached), IsHexDigits(hash) ? key : std::string()});
  } else {
    read.pending.push_back(hash + fileName);
  }
  return true;
}

bool ReadRootChild(const pugi::xml_node& child, SReadDocument& read, bool& maskSeen,
                   std::string& error) {
  std::string text;
  if (ElementNameIs(child, "name")) {
    if (!ReadElementText(child, text, &error)) return false;
    read.animation.SetName(std::move(text));
  } else if (ElementNameIs(child, "guid")) {
    if (!ReadElementText(child, text, &error)) return false;
    const auto guid = host::Guid::FromString(TrimBlanks(text));
    if (!guid) {
      error = "the guid is not 32 hexadecimal digits: \"" + text + "\"";
      return false;
    }
    read.guid = *guid;
  } else if (ElementNameIs(child, "version")) {
    if (!ReadElementText(child, text, &error)) return false;
    if (!ParseLookUnsigned(text, read.version)) {
      error = "the version is not an unsigned number: \"" + text + "\"";
      return false;
    }
  } else if (ElementNameIs(child, "keyframe")) {
    if (!read.animation.ReadKeyframe(child, error)) return false;
  } else if (ElementNameIs(child, "properties")) {
    if (read.properties) {
      error = "the document has a second property list";
      return false;
    }
    auto properties = std::make_unique<COvPropertyList>();
    if (!properties->Read(child, error)) return false;
    read.properties = std::move(properties);
  } else if (ElementNameIs(child, "mask")) {
    if (maskSeen) {
      error = "the document has a second mask";
      return false;
    }
    maskSeen = true;
    if (!ReadMask(child, read, error)) return false;
  } else if (ElementNameIs(child, "lut")) {
    auto lut = ReadXMLLUTElement(child);
    if (!lut) {
      error = "an inline LUT cannot be read";
      return false;
    }
    read.luts.push_back({std::move(lut), {}});
  } else if (ElementNameIs(child, "embeddedlut")) {
    if (!ReadEmbeddedLUT(child, read, error)) return false;
  }
  return true;
}

bool ReadText(const void* bytes, size_t size, IOvEmbeddedLUTSource* payload, SReadDocument& read,
              std::string& error) {
  if (bytes == nullptr && size != 0) {
    error = "no text";
    return false;
  }
  if (!XMLMarkupWithinLimit(bytes, size)) {
    error = "more than " + std::to_string(kXmlMaxMarkup) + " markup characters";
    return false;
  }
  std::string text;
  text.reserve(kDeclaration.size() + size);
  text.append(kDeclaration);
  if (size != 0) text.append(static_cast<const char*>(bytes), size);

  pugi::xml_document xml;
  const pugi::xml_parse_result parsed = xml.load_buffer_inplace(text.data(), text.size());
  if (!parsed) {
    error = std::string("not XML: ") + parsed.description();
    return false;
  }
  const pugi::xml_node root = xml.document_element();
  if (!root || !ElementNameIs(root, "Tincta")) {
    error = "the root element is not Tincta";
    return false;
  }

  bool maskSeen = false;
  for (pugi::xml_node child = root.first_child(); child; child = child.next_sibling()) {
    if (child.type() != pugi::node_element) continue;
    if (!ReadRootChild(child, read, maskSeen, error)) return false;
  }

  if (!read.pending.empty() && payload)
    ResolveEmbeddedLUTs(payload->Payload(), read.pending, read.luts);
  if (!read.properties) read.properties = std::make_unique<COvPropertyList>();
  if (read.mask && read.animation.Tracks().size() == 1) read.animation.AttachMask(read.mask);
  return true;
}

void MoveInto(SReadDocument& read, COvGradingDocument& document) {
  document.SetVersion(read.version);
  document.SetGuid(read.guid);
  document.SetAnimation(std::move(read.animation));
  document.SetProperties(std::move(read.properties));
  document.SetLUTs(std::move(read.luts));
  document.SetMissingEmbeddedLUTs(std::move(read.pending));
}

std::unique_ptr<COvGradingDocument> EmptyDocumentOfMissingLook() {
  auto document = std::make_unique<COvGradingDocument>();
  document->SetVersion(kMissingLookVersion);
  return document;
}

std::unique_ptr<COvGradingDocument> ReadLookReferenceDocument(const void* bytes,
                                                              std::string& error) {
  const SLookReference reference = ReadLookReference(bytes);
  const std::string cacheKey = reference.cacheKey != 0 ? std::to_string(reference.cacheKey) : "";
  if (!cacheKey.empty()) {
    if (const auto cached = COvLUTCache::Instance().CopyOf(cacheKey)) {
      std::vector<uint8_t> blob(Otx3ImageBytes(*cached));
      WriteOtx3Image(*cached, blob.data());
      auto document = CreateGradingFromLUTData(blob.data(), uint32_t(blob.size()), {});
      if (!document) error = "the cached look does not read as a LUT";
      return document;
    }
  }
  std::unique_ptr<uint8_t[]> block;
  // A look whose file has gone opens as an empty look, not as an error.
  if (!ReadLookGridBlock(reference, block)) return EmptyDocumentOfMissingLook();
  std::unique_ptr<uint8_t[]> image;
  uint32_t imageLength = 0;
  if (!ConvertLookGridToOTX3(block.get(), reference.gridLength, image, imageLength)) {
    error = "the look grid is damaged";
    return nullptr;
  }
  block.reset();
  auto document = CreateGradingFromLUTData(image.get(), imageLength, {});
  if (!document) {
    error = "the look grid does not read as a LUT";
    return nullptr;
  }
  // A look that matched a shipped LUT carries no LUT object, and nothing is kept.
  if (!cacheKey.empty() && !document->LUTs().empty()) {
    COvLUTCache::Instance().Insert(*document->MutableLUTs().front().lut, cacheKey, 0);
  }
  return document;
}

}  // namespace

std::unique_ptr<COvGradingDocument> ReadLookDocument(const void* bytes, size_t size,
                                                     IOvEmbeddedLUTSource* payload,
                                                     std::string* error) {
  std::string reason;
  try {
    if (IsLookReference(bytes, size)) {
      auto document = ReadLookReferenceDocument(bytes, reason);
      if (!document && error) *error = std::move(reason);
      return document;
    }
    SReadDocument read;
    if (ReadText(bytes, size, payload, read, reason)) {
      auto document = std::make_unique<COvGradingDocument>();
      MoveInto(read, *document);
      return document;
    }
  } catch (const std::exception&) {
    reason = "out of memory";
  }
  if (error) *error = std::move(reason);
  return nullptr;
}

COvGradingDocument* ReadLookDocument(const void* bytes, size_t size, COvGradingDocument& target,
                                     IOvEmbeddedLUTSource* payload, std::string* error) {
  std::string reason;
  try {
    SReadDocument read;
    if (ReadText(bytes, size, payload, read, reason)) {
      MoveInto(read, target);
      return &target;
    }
  } catch (const std::exception&) {
    reason = "out of memory";
  }
  if (error) *error = std::move(reason);
  return nullptr;
}

}  // namespace Tincta
