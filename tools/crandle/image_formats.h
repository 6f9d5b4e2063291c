// The image formats of the OpenImageIO the tool runs with.
#pragma once

#include <string>
#include <vector>

namespace crandle_tool {

struct SImageFormat {
  std::string name;                     // "openexr", "tiff", ...
  std::vector<std::string> extensions;  // lower case, without the dot
};

/// Parses OpenImageIO's "extension_list" text ("tiff:tif,tiff;jpeg:jpg,jpe"), in its order.
std::vector<SImageFormat> ParseExtensionList(const std::string& text);

/// The formats and extensions of the OpenImageIO in use.
std::vector<SImageFormat> ImageFormats();

/// False for OpenImageIO's formats that hold no still picture: movies and its pseudo-formats.
bool IsStillImageFormat(const std::string& name);

/// Whether a file name's extension (any case) is one a still-image format of OpenImageIO claims.
bool IsImageFileName(const std::string& name);

}  // namespace crandle_tool
