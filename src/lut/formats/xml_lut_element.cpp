#include "lut/formats/xml_lut_element.h"

namespace Tincta {

// PLACEHOLDER: the XML LUT element is not written yet.
void WriteXMLLUTElement(const COv3DLUT&, int, std::string&) {}

std::unique_ptr<COv3DLUT> ReadXMLLUTElement(const pugi::xml_node&) { return nullptr; }

}  // namespace Tincta
