// The XML LUT element: a COv3DLUT written as child elements of an element that a document owns
// (filename, is3d, size, min, max, hexadecimal data, and a nested sublut for the input shaper).
#pragma once

#include <pugixml.hpp>

#include <memory>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// Appends the LUT's child elements, one per line, each indented by `indent` blanks.
void WriteXMLLUTElement(const COv3DLUT& lut, int indent, std::string& out);

/// Reads a LUT from the children of `element`. A "hash" child is looked up in the LUT cache
/// first; otherwise the size, kind and exactly sized hexadecimal data make a new table. Null when
/// the element yields no LUT.
std::unique_ptr<COv3DLUT> ReadXMLLUTElement(const pugi::xml_node& element);

}  // namespace Tincta
