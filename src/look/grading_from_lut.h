// Gradings made of LUTs: a document whose operations each apply one LUT, named either after one of
// the LUT files that ship with the host (the document then refers to the file and does not carry
// the LUT) or after the LUT itself.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "look/grading_document.h"

namespace Tincta {

/// Reads a LUT from `size` bytes and inserts an operation "LUT" whose parameter "LUT" names it:
/// the file name of the first shipped LUT with the same identifier, else `name`, else "LUT: " and
/// the identifier's 32 hexadecimal digits. A LUT that is not a shipped one takes that name as its
/// source path and joins the document's LUT objects. False, document unchanged, when the bytes
/// are not a LUT.
bool bAppendLUTOperation(COvGradingDocument& document, const void* bytes, uint32_t size,
                         std::string_view name);

/// A new document (empty property list, import flag set) holding one LUT operation as above; null
/// when the bytes are not a LUT.
std::unique_ptr<COvGradingDocument> CreateGradingFromLUTData(const void* bytes, uint32_t size,
                                                             std::string_view name);

/// The same for a camera look grid, converted to an "OTX3" image first and left unnamed; null
/// when the grid or the LUT cannot be read.
std::unique_ptr<COvGradingDocument> CreateGradingFromLookGrid(const void* grid, uint32_t length);

}  // namespace Tincta
