// A scratch directory for one test, removed with everything in it when the test ends.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace crandle_test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  /// Writes `bytes` to a file named `name` inside the directory and returns its full path.
  std::string Write(std::string_view name, std::string_view bytes) const;
  std::string Write(std::string_view name, const void* bytes, size_t count) const;

 private:
  std::filesystem::path path_;
};

/// The whole content of a file (empty when it cannot be read).
std::string ReadFileBytes(const std::string& path);

}  // namespace crandle_test
