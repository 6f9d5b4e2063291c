// Finding and opening the image commands module on first use.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "image_commands.h"

namespace crandle_tool {
namespace {

namespace fs = std::filesystem;

// Beside the executable in a build tree; CRANDLE_IMAGE_MODULE_DIR (relative to the executable's
// folder) in an install.
std::string ModulePath() {
  if (const char* named = std::getenv("CRANDLE_IMAGE_MODULE"); named && *named) return named;
  std::error_code error;
  const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
  const fs::path beside = folder / kImageCommandsFile;
  if (fs::exists(beside, error)) return beside.string();
  return (folder / CRANDLE_IMAGE_MODULE_DIR / kImageCommandsFile).lexically_normal().string();
}

const SImageCommands* Open(const char* command) {
  const std::string path = ModulePath();
  // Local: the module's symbols never stand in for the tool's.
  void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    std::fprintf(stderr, "crandle %s: cannot load the image commands: %s\n", command, ::dlerror());
    return nullptr;
  }
  using Entry = const SImageCommands* (*)();
  const auto entry = reinterpret_cast<Entry>(::dlsym(module, kImageCommandsEntry));
  const SImageCommands* table = entry ? entry() : nullptr;
  if (!table) {
    std::fprintf(stderr, "crandle %s: %s is not crandle's image commands module\n", command,
                 path.c_str());
    return nullptr;
  }
  if (table->abi != kImageCommandsAbi || std::strcmp(table->version, CRANDLE_VERSION) != 0) {
    std::fprintf(stderr,
                 "crandle %s: the image commands module %s is of another build (crandle %s, "
                 "interface %u); this is crandle %s, interface %u: install them together\n",
                 command, path.c_str(), table->version, unsigned(table->abi), CRANDLE_VERSION,
                 unsigned(kImageCommandsAbi));
    return nullptr;
  }
  return table;
}

}  // namespace

const SImageCommands* ImageCommands(const char* command) {
  // Opened once and never closed: its code runs until the tool exits.
  static const SImageCommands* const table = Open(command);
  return table;
}

}  // namespace crandle_tool
