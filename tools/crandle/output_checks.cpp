#include "output_checks.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

namespace crandle_tool {
namespace {

namespace fs = std::filesystem;

struct SDepth {
  OIIO::TypeDesc type;
  const char* name;  // as --depth spells it
};

const std::array<SDepth, 4> kDepths = {{{OIIO::TypeDesc::UINT8, "8"},
                                        {OIIO::TypeDesc::UINT16, "16"},
                                        {OIIO::TypeDesc::HALF, "half"},
                                        {OIIO::TypeDesc::FLOAT, "float"}}};

std::string DepthName(OIIO::TypeDesc type) {
  for (const SDepth& depth : kDepths)
    if (depth.type == type) return depth.name;
  return type.c_str();
}

std::string FormatName(const OIIO::ImageOutput& output) {
  const std::string name = output.format_name();
  if (name == "openexr") return "EXR";
  if (name == "targa") return "Targa";
  std::string upper;
  for (char c : name)
    upper += char(std::toupper(static_cast<unsigned char>(c)));
  return upper;
}

// The sample type the writer for files like `path` stores when asked for `type`: writers change
// the requested sample format on open to the nearest they hold. Asked of a one-pixel file in the
// temporary folder, which is removed again. Remembered per extension and type, since a sequence
// asks again for every frame.
OIIO::TypeDesc StoredType(const std::string& extension, OIIO::TypeDesc type) {
  static std::map<std::pair<std::string, std::string>, OIIO::TypeDesc> known;
  const auto key = std::make_pair(extension, std::string(type.c_str()));
  if (const auto found = known.find(key); found != known.end()) return found->second;
  static int probes = 0;
  std::error_code ignored;
  const fs::path probe =
      fs::temp_directory_path(ignored) /
      (".crandle-probe-" + std::to_string(::getpid()) + "-" + std::to_string(probes++) + extension);
  OIIO::TypeDesc stored = OIIO::TypeDesc::UNKNOWN;
  if (auto output = OIIO::ImageOutput::create(probe.string())) {
    const OIIO::ImageSpec spec(1, 1, 3, type);
    if (output->open(probe.string(), spec)) {
      stored = output->spec().format;
      const std::array<float, 3> pixel{};
      output->write_image(OIIO::TypeDesc::FLOAT, pixel.data());
      output->close();
    }
  }
  fs::remove(probe, ignored);
  known.emplace(key, stored);
  return stored;
}

}  // namespace

bool CheckWritable(const std::string& path, std::string& error) {
  const fs::path target(path);
  const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    error = "the folder " + folder.string() + " does not exist";
    return false;
  }
  // The file is written beside its target and renamed over it, so the folder must take new files.
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    error = "the folder " + folder.string() + " cannot be written into: " + std::strerror(errno);
    return false;
  }
  if (::lstat(target.c_str(), &info) == 0) {
    if (!S_ISREG(info.st_mode)) {
      error = path + " is there and is not a regular file; it is not replaced";
      return false;
    }
    // Mode bits as well as access(): a read-only file says so even to a user whom access() lets
    // write anything.
    if ((info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 ||
        ::access(target.c_str(), W_OK) != 0) {
      error = path + " is read-only; it is not replaced";
      return false;
    }
  }
  return true;
}

bool CheckFormatHolds(const std::string& path, OIIO::TypeDesc fileType, bool depthAsked,
                      bool hasAlpha, std::string& error) {
  const auto output = OIIO::ImageOutput::create(path);
  if (!output) {
    error = path + ": no image writer for this file name";
    return false;
  }
  const std::string format = FormatName(*output);
  if (hasAlpha && !output->supports("alpha")) {
    error = path + ": " + format +
            " files cannot hold the input's alpha channel; write a format that can (EXR, TIFF, "
            "PNG)";
    return false;
  }
  if (!depthAsked) return true;
  const std::string extension = fs::path(path).extension().string();
  if (StoredType(extension, fileType) == fileType) return true;
  std::vector<std::string> held;
  for (const SDepth& depth : kDepths) {
    if (StoredType(extension, depth.type) == depth.type) held.emplace_back(depth.name);
  }
  std::string list;
  for (size_t i = 0; i < held.size(); ++i) {
    list += (i == 0 ? "" : i + 1 == held.size() ? " or " : ", ") + held[i];
  }
  error = path + ": " + format + " files cannot hold --depth " + DepthName(fileType) + " samples" +
          (held.empty() ? std::string() : "; they hold --depth " + list);
  return false;
}

}  // namespace crandle_tool
