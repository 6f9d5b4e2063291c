// The image commands module's entry: the table the tool calls, and the image half of
// `crandle formats`.
#include "image_commands.h"

#include <OpenImageIO/imageio.h>

#include <cstdio>
#include <string>

#include "image_formats.h"

namespace crandle_tool {
namespace {

bool Listed(const std::string& list, const std::string& name) {
  return ("," + list + ",").find("," + name + ",") != std::string::npos;
}

int ListImageFormats() {
  const std::string readable = OIIO::get_string_attribute("input_format_list");
  const std::string writable = OIIO::get_string_attribute("output_format_list");
  const int version = OIIO::openimageio_version();
  std::printf("Image formats of OpenImageIO %d.%d.%d (r: read, w: written):\n", version / 10000,
              version / 100 % 100, version % 100);
  for (const SImageFormat& format : ImageFormats()) {
    std::string extensions;
    for (const std::string& extension : format.extensions)
      extensions += (extensions.empty() ? "." : " .") + extension;
    std::printf(
        "  %-12s %c%c  %s%s\n", format.name.c_str(), Listed(readable, format.name) ? 'r' : '-',
        Listed(writable, format.name) ? 'w' : '-', extensions.c_str(),
        IsStillImageFormat(format.name) ? "" : "  (not a still image; not taken from folders)");
  }
  return 0;
}

constexpr SImageCommands kCommands = {kImageCommandsAbi, CRANDLE_VERSION, RunApply, WritePlot,
                                      ListImageFormats};

}  // namespace
}  // namespace crandle_tool

extern "C" __attribute__((visibility("default"))) const crandle_tool::SImageCommands*
crandle_image_commands() {
  return &crandle_tool::kCommands;
}
