// Files: whole-file reads with a size limit, modification times, and a small RAII file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct stat;

namespace Tincta {

/// Modification time of the file at `path` (UTF-8) in nanoseconds since the epoch; false when
/// the file cannot be examined.
bool FileModificationTime(const std::string& path, int64_t& nanoseconds);

/// The whole content of a file.
struct SFileContents {
  std::unique_ptr<uint8_t[]> bytes;
  size_t size = 0;
  int64_t modificationTime = 0;
};

enum class EFileReadResult { Ok, NotFound, NotRegular, TooLarge, ReadError, OutOfMemory };

/// Reads the regular file at `path` whole when it holds at most `sizeLimit` bytes. `contents`
/// is filled only on `Ok`.
EFileReadResult ReadWholeFile(const std::string& path, uint64_t sizeLimit, SFileContents& contents);

class COvFile;
/// The same for a file already open, read from its start.
EFileReadResult ReadWholeFile(COvFile& file, uint64_t sizeLimit, SFileContents& contents);

/// A file opened for reading; closed when destroyed.
class COvFile {
 public:
  COvFile() = default;
  ~COvFile();
  COvFile(const COvFile&) = delete;
  COvFile& operator=(const COvFile&) = delete;

  /// Opens `path` (UTF-8) for reading; false when it cannot be opened or is not a regular file
  /// (a pipe, a device or a directory is refused without waiting on it).
  bool Open(const std::string& path);
  void Close();
  bool IsOpen() const { return descriptor_ >= 0; }

  /// Moves to `offset` from the start and returns the position the system reports (an offset
  /// beyond the end is reported as such); -1 on failure.
  int64_t Seek(uint64_t offset);
  /// Reads up to `count` bytes; returns how many arrived (fewer at the end of the file).
  size_t Read(void* buffer, size_t count);
  /// The file's size in bytes, -1 on failure.
  int64_t Size() const;
  /// The open file's modification time in nanoseconds since the epoch; false on failure.
  bool ModificationTime(int64_t& nanoseconds) const;
  /// The system's record of the open file; false when it cannot be had.
  bool Stat(struct stat& info) const;

 private:
  int descriptor_ = -1;
};

}  // namespace Tincta
