// The LUTs of a look document, in the order its operations apply them, as handles that
// CRANDLE::ApplyLUT takes one at a time.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace crandle_tool {

/// True when `path` holds look document text (root element "Tincta") or a look reference, rather
/// than a LUT file.
bool IsLookDocumentFile(const std::string& path);

/// Reads the look document at `path` (with its embedded-LUT payload when `payloadPath` is not
/// empty) and gives one handle per LUT operation, tracks, then layers, in order. A LUT named after
/// a shipped LUT file is read from the directory of "ColorTransforms.ShippedLUTDirectory". False
/// with `error` set when the document cannot be read, holds no LUT operation, holds an operation
/// that is not a LUT, animates or masks one, or names a LUT that cannot be found.
bool LoadLookDocumentLUTs(const std::string& path, const std::string& payloadPath,
                          std::vector<std::shared_ptr<void>>& luts, std::string& error);

}  // namespace crandle_tool
