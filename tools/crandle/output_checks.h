// Checks made before any work, so that what the user asked for is either done or refused with a
// reason: an output that can be written where it is named, a format that holds the samples and
// channels asked for.
#pragma once

#include <OpenImageIO/imageio.h>

#include <string>

namespace crandle_tool {

/// False, with the reason in `error`, when a file cannot be written at `path`: its folder is
/// missing or cannot be written into, or a file there is read-only (which an atomic replace would
/// otherwise replace) or is not a regular file.
bool CheckWritable(const std::string& path, std::string& error);

/// False, with what the format holds in `error`, when the writer for `path` cannot store samples
/// of `fileType` (checked only when `depthAsked`) or an alpha channel (when `hasAlpha`).
bool CheckFormatHolds(const std::string& path, OIIO::TypeDesc fileType, bool depthAsked,
                      bool hasAlpha, std::string& error);

}  // namespace crandle_tool
