// Arbitrary bytes as a document whose root element is read as an XML LUT element.
#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/log.h"
#include "lut/formats/xml_lut_element.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host::SetLogCallback(nullptr, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  pugi::xml_document document;
  if (!document.load_buffer(data, size)) return 0;
  const auto lut = Tincta::ReadXMLLUTElement(document.document_element());
  if (!lut) return 0;
  if (lut->Size() == 0 || !lut->Table()) std::abort();
  if (lut->Size() > (lut->Is3D() ? Tincta::kMax3DSize : Tincta::kMax1DEntries)) std::abort();
  // What is read must write back and read again to the same tables. (The domain is written with
  // six significant digits, so it may move.)
  std::string text = "<lut>\n";
  Tincta::WriteXMLLUTElement(*lut, 2, text);
  text += "</lut>\n";
  pugi::xml_document again;
  if (!again.load_string(text.c_str())) std::abort();
  const auto reread = Tincta::ReadXMLLUTElement(again.document_element());
  if (!reread || reread->Is3D() != lut->Is3D() || reread->Size() != lut->Size()) std::abort();
  if (std::memcmp(reread->Table(), lut->Table(), lut->TableBytes()) != 0) std::abort();
  const Tincta::COv3DLUT* shaper = lut->InputShaper();
  const Tincta::COv3DLUT* reshaper = reread->InputShaper();
  if (!shaper != !reshaper) std::abort();
  if (shaper && (shaper->Size() != reshaper->Size() ||
                 std::memcmp(shaper->Table(), reshaper->Table(), shaper->TableBytes()) != 0)) {
    std::abort();
  }
  return 0;
}
