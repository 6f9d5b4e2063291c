#include "foundation/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace Tincta {

bool FileModificationTime(const std::string& path, int64_t& nanoseconds) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return false;
  nanoseconds = int64_t(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  return true;
}

EFileReadResult ReadWholeFile(const std::string& path, uint64_t sizeLimit,
                              SFileContents& contents) {
  COvFile file;
  if (!file.Open(path)) {
    struct stat info {};
    const bool exists = path.find('\0') == std::string::npos && ::stat(path.c_str(), &info) == 0;
    return exists && !S_ISREG(info.st_mode) ? EFileReadResult::NotRegular
                                            : EFileReadResult::NotFound;
  }
  return ReadWholeFile(file, sizeLimit, contents);
}

EFileReadResult ReadWholeFile(COvFile& file, uint64_t sizeLimit, SFileContents& contents) {
  struct stat info {};
  if (!file.Stat(info)) return EFileReadResult::ReadError;
  if (!S_ISREG(info.st_mode)) return EFileReadResult::NotRegular;
  const auto size = uint64_t(info.st_size);
  if (size > sizeLimit) return EFileReadResult::TooLarge;
  std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[size == 0 ? 1 : size]);
  if (!bytes) return EFileReadResult::OutOfMemory;
  if (file.Seek(0) != 0) return EFileReadResult::ReadError;
  if (file.Read(bytes.get(), size) != size) return EFileReadResult::ReadError;
  contents.bytes = std::move(bytes);
  contents.size = size;
  contents.modificationTime = int64_t(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  return EFileReadResult::Ok;
}

COvFile::~COvFile() {
  Close();
}

bool COvFile::Open(const std::string& path) {
  Close();
  // The system would open the file named by the part before an embedded NUL.
  if (path.find('\0') != std::string::npos) return false;
  // Opened without blocking and checked before use: opening a named pipe for reading would
  // otherwise wait for a writer forever, and a device or directory holds no LUT.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return false;
  struct stat info {};
  if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) {
    ::close(descriptor);
    return false;
  }
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags < 0 || ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != 0) {
    ::close(descriptor);
    return false;
  }
  descriptor_ = descriptor;
  return true;
}

void COvFile::Close() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

int64_t COvFile::Seek(uint64_t offset) {
  if (descriptor_ < 0 || offset > uint64_t(INT64_MAX)) return -1;
  const off_t position = ::lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET);
  return position < 0 ? -1 : int64_t(position);
}

size_t COvFile::Read(void* buffer, size_t count) {
  if (descriptor_ < 0) return 0;
  auto* cursor = static_cast<uint8_t*>(buffer);
  size_t total = 0;
  while (total < count) {
    const ssize_t got = ::read(descriptor_, cursor + total, count - total);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    total += size_t(got);
  }
  return total;
}

bool COvFile::Stat(struct stat& info) const {
  return descriptor_ >= 0 && ::fstat(descriptor_, &info) == 0;
}

bool COvFile::ModificationTime(int64_t& nanoseconds) const {
  struct stat info {};
  if (!Stat(info)) return false;
  nanoseconds = int64_t(info.st_mtim.tv_sec) * 1'000'000'000 + info.st_mtim.tv_nsec;
  return true;
}

int64_t COvFile::Size() const {
  struct stat info {};
  return Stat(info) ? int64_t(info.st_size) : -1;
}

}  // namespace Tincta
