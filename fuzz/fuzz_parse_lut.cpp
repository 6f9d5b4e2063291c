// The exported ParseLUT(bytes) on arbitrary input, including look references that reach the file
// system. The first byte chooses the road:
//   even: the rest as it stands (LUT bytes, or a look reference naming any path at all);
//   odd:  a look reference made here, whose grid block comes from the input. The rest is a 32-bit
//         little-endian grid length, a 64-bit offset, then the bytes of a grid file written into
//         a scratch directory. Bits 1-2 of the first byte name what the reference points at: that
//         file, the scratch directory, a named pipe in it, or a file that does not exist.
// Whatever the road, the call returns a result code, and a handle only with success.
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "crandle/crandle.h"
#include "host/log.h"
#include "host/settings.h"

namespace {

constexpr size_t kRecordBytes = 4122;
std::filesystem::path gScratch;

void PutLE(uint8_t* out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i)
    out[i] = uint8_t(value >> (8 * i));
}

uint64_t GetLE(const uint8_t* in, int bytes) {
  uint64_t value = 0;
  for (int i = bytes - 1; i >= 0; --i)
    value = value << 8 | in[i];
  return value;
}

std::vector<uint8_t> Reference(const std::string& path, uint32_t gridLength, uint64_t offset) {
  std::vector<uint8_t> record(kRecordBytes, 0);
  std::memcpy(record.data(), "AELT", 4);
  PutLE(record.data() + 4, 2, 4);
  PutLE(record.data() + 8, gridLength, 4);
  PutLE(record.data() + 16, offset, 8);
  for (size_t i = 0; i < path.size() && i < 2048; ++i)
    record[24 + 2 * i] = uint8_t(path[i]);  // the scratch path is ASCII
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  host::SetLogCallback(nullptr, nullptr);
  host::Settings::Instance().Remove(host::kSettingAlwaysUpsampleToPoT);
  char pattern[] = "/tmp/crandle-fuzz-XXXXXX";
  if (!::mkdtemp(pattern)) std::abort();
  gScratch = pattern;
  if (::mkfifo((gScratch / "pipe").c_str(), 0600) != 0) std::abort();
  std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(gScratch, ignored);
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::shared_ptr<void> lut;
  int result;
  if ((data[0] & 1) == 0) {
    result = CRANDLE::ParseLUT(data + 1, size - 1, lut);
  } else {
    if (size < 13) return 0;
    const auto gridLength = uint32_t(GetLE(data + 1, 4));
    const uint64_t offset = GetLE(data + 5, 8);
    const std::filesystem::path grid = gScratch / "grid.alok";
    {
      std::ofstream out(grid, std::ios::binary | std::ios::trunc);
      out.write(reinterpret_cast<const char*>(data + 13), std::streamsize(size - 13));
    }
    static const char* const kTargets[] = {"grid.alok", "", "pipe", "missing"};
    const std::string path = (gScratch / kTargets[(data[0] >> 1) & 3]).string();
    const std::vector<uint8_t> record = Reference(path, gridLength, offset);
    result = CRANDLE::ParseLUT(record.data(), record.size(), lut);
  }
  if ((result == CRANDLE::kResultOK) != (lut != nullptr)) std::abort();
  // Success, a read that failed, or, for no bytes at all, an empty argument.
  const int refusal =
      (data[0] & 1) == 0 && size == 1 ? CRANDLE::kResultEmptyArgument : CRANDLE::kResultLUTFailed;
  if (result != CRANDLE::kResultOK && result != refusal) std::abort();
  if (lut) {
    // The handle answers every query.
    if (CRANDLE::GetLUTBlob(lut).Empty()) std::abort();
    std::string name;
    if (CRANDLE::GetLUTDisplayName(lut, name) != CRANDLE::kResultOK) std::abort();
  }
  return 0;
}
