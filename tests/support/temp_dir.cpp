#include "support/temp_dir.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace crandle_test {

// mkdtemp, not a name from the process id: ids come round again within one test run, and a
// folder a crashed or exited test left behind would then be handed over with its files in it.
TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "crandle-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::Write(std::string_view name, std::string_view bytes) const {
  return Write(name, bytes.data(), bytes.size());
}

std::string TempDir::Write(std::string_view name, const void* bytes, size_t count) const {
  const auto file = path_ / std::string(name);
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  if (!out) throw std::runtime_error("cannot write " + file.string());
  return file.string();
}

std::string ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

}  // namespace crandle_test
