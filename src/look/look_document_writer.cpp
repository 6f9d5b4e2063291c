#include "look/look_document_writer.h"

#include <cctype>
#include <cstdint>
#include <new>

#include "look/look_xml_text.h"
#include "lut/formats/xml_lut_element.h"

namespace Tincta {
namespace {

constexpr std::string_view kRootOpening = "<Tincta>";

bool BeginsWithRoot(std::string_view text) {
  if (text.size() < kRootOpening.size()) return false;
  for (size_t i = 0; i < kRootOpening.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) !=
        std::tolower(static_cast<unsigned char>(kRootOpening[i]))) {
      return false;
    }
  }
  return true;
}

std::string BuildText(COvGradingDocument& document, IOvEmbeddedLUTSink* sink) {
  std::string text = "<Tincta>\n";
  if (!document.Name().empty()) AppendLookTextElement(text, 2, "name", document.Name());
  AppendLookTextElement(text, 2, "guid", document.Guid().ToString());
  AppendLookTextElement(text, 2, "version", std::to_string(document.Version()));
  document.Animation().Write(2, text);

  if (sink) {
    if (!document.PrepareEmbeddedLUTs(*sink)) return {};
    for (const std::string& entry : document.EmbeddedLUTs()) {
      const std::string_view view = entry;
      text += "  <embeddedlut>\n";
      AppendPlainTextElement(text, 4, "hash", view.substr(0, 32));
      AppendPlainTextElement(text, 4, "filename", view.size() > 32 ? view.substr(32) : "");
      text += "  </embeddedlut>\n";
    }
  } else {
    for (const SDocumentLUT& entry : document.LUTs()) {
      text += "  <lut>\n";
      WriteXMLLUTElement(*entry.lut, 4, text);
      text += "  </lut>\n";
    }
  }

  if (const COvPropertyList* properties = document.Properties()) {
    text += "  <properties>\n";
    properties->Write(4, text);
    text += "  </properties>\n";
  }
  text += "</Tincta>\n";
  return text;
}

}  // namespace

std::string_view WriteLookDocument(COvGradingDocument& document, IOvEmbeddedLUTSink* sink) {
  if (BeginsWithRoot(document.CachedText())) return document.CachedText();
  try {
    std::string text = BuildText(document, sink);
    if (text.empty() || text.size() > UINT32_MAX) return {};
    document.SetCachedText(std::move(text));
    return document.CachedText();
  } catch (const std::bad_alloc&) {
    return {};
  }
}

}  // namespace Tincta
