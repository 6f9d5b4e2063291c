#include "image_formats.h"

#include <cctype>
#include <filesystem>

#include <OpenImageIO/imageio.h>

namespace crandle_tool {

std::vector<SImageFormat> ParseExtensionList(const std::string& text) {
  std::vector<SImageFormat> formats;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find(';', at);
    if (end == std::string::npos) end = text.size();
    const std::string entry = text.substr(at, end - at);
    at = end + 1;
    const size_t colon = entry.find(':');
    if (colon == std::string::npos || colon == 0) continue;
    SImageFormat& format = formats.emplace_back();
    format.name = entry.substr(0, colon);
    for (size_t from = colon + 1; from <= entry.size();) {
      size_t comma = entry.find(',', from);
      if (comma == std::string::npos) comma = entry.size();
      std::string extension = entry.substr(from, comma - from);
      for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
      if (!extension.empty()) format.extensions.push_back(extension);
      from = comma + 1;
    }
  }
  return formats;
}

std::vector<SImageFormat> ImageFormats() {
  return ParseExtensionList(OIIO::get_string_attribute("extension_list"));
}

bool IsStillImageFormat(const std::string& name) {
  return name != "ffmpeg" && name != "null" && name != "term" && name != "openvdb";
}

bool IsImageFileName(const std::string& name) {
  std::string extension = std::filesystem::path(name).extension().string();
  if (extension.size() < 2) return false;
  extension.erase(0, 1);
  for (char& c : extension)
    c = char(std::tolower(static_cast<unsigned char>(c)));
  static const std::vector<SImageFormat> formats = ImageFormats();
  for (const SImageFormat& format : formats) {
    if (!IsStillImageFormat(format.name)) continue;
    for (const std::string& known : format.extensions)
      if (known == extension) return true;
  }
  return false;
}

}  // namespace crandle_tool
