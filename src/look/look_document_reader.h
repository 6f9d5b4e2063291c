// Reads look document text (look_document_writer.h) into a grading document, with the LUTs it
// names inline, from the LUT cache or from an embedded-LUT payload. In place of a text it also
// takes a look reference, and builds a one-LUT document from the look it points at.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "look/embedded_lut_payload.h"
#include "look/grading_document.h"

namespace Tincta {

/// Reads `size` bytes of look document text, or a look reference, into a new document. `payload`
/// (may be null) is asked once for its bytes when embeddedlut elements name LUTs that the LUT
/// cache does not hold. Null when the text is not XML, its root is not "Tincta" (in any case), an
/// element cannot be read, a mask or property list comes twice, or the grid of a look reference
/// is damaged; nothing that was built survives a failure. A look reference whose file cannot be
/// read gives an empty document of version 3. `error`, when given, says why a read failed.
std::unique_ptr<COvGradingDocument> ReadLookDocument(const void* bytes, size_t size,
                                                     IOvEmbeddedLUTSource* payload,
                                                     std::string* error = nullptr);

/// The same for text only, read into an existing document: on success the target's name, GUID,
/// version, animation, property list, LUT objects and missing embedded LUTs are replaced (its
/// import flag stays) and the target is returned; on failure null, with the target unchanged.
COvGradingDocument* ReadLookDocument(const void* bytes, size_t size, COvGradingDocument& target,
                                     IOvEmbeddedLUTSource* payload, std::string* error = nullptr);

}  // namespace Tincta
