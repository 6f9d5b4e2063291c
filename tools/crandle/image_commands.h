// The commands that read or write images live in a module of their own, opened on first use, so
// that a command touching no image never loads the image library and its dependencies. The tool
// keeps every command line (help needs no module) and calls the module through this table.
//
// The module resolves the tool's own helpers and the crandle interface from the executable that
// opens it, so both share one LUT cache and one set of host settings.
#pragma once

#include <cstdint>

#include "apply_options.h"
#include "plot_picture.h"

namespace crandle_tool {

/// Raised whenever the table or a structure it passes changes, so that a module of another build
/// is refused instead of called wrongly.
inline constexpr uint32_t kImageCommandsAbi = 1;

struct SImageCommands {
  // These two stay first in every revision: they are read before anything else is trusted.
  uint32_t abi;
  const char* version;  // CRANDLE_VERSION of the module
  int (*apply)(const SApplyOptions& options);
  int (*writePlot)(const SPlotPicture& picture);
  // Prints the image half of `crandle formats`.
  int (*listImageFormats)();
};

/// The module's one exported function, looked up by this name.
inline constexpr const char* kImageCommandsEntry = "crandle_image_commands";
inline constexpr const char* kImageCommandsFile = "libcrandle_image_commands.so";

/// The module's table, opened on the first call. Null, after saying why on stderr as
/// "crandle COMMAND: ...", when the module is missing, cannot be loaded or is of another build.
/// CRANDLE_IMAGE_MODULE names the module's file in place of the usual places: beside the
/// executable (a build tree), then the install's lib/crandle folder.
const SImageCommands* ImageCommands(const char* command);

}  // namespace crandle_tool
