// The XML look form: the first "look" element whose first child element is "LUT", with "size",
// "domainmin", "domainmax" and hexadecimal "data" elements.
#pragma once

#include <cstdint>

#include "lut/formats/reader.h"

namespace Tincta {

/// The detector's probe: the first 1024 bytes, trimmed, begin with "<?xml" and hold "<look>".
bool IsXMLLook(const uint8_t* bytes, uint32_t length, const SParseOptions& options);

/// Reads the XML look into `lut`.
bool ReadXMLLook(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                 const SParseOptions& options);

}  // namespace Tincta
