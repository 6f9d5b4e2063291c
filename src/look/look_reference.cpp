#include "look/look_reference.h"

#include <sys/stat.h>

#include <cstring>
#include <new>

#include "foundation/file.h"
#include "foundation/utf16.h"
#include "look/look_grid.h"

namespace Tincta {
namespace {

uint32_t ReadU32LE(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

uint64_t ReadU64LE(const uint8_t* p) {
  return uint64_t(ReadU32LE(p)) | uint64_t(ReadU32LE(p + 4)) << 32;
}

constexpr size_t kPathOffset = 24;

std::string PathOfRecord(const uint8_t* record) {
  std::u16string path;
  for (uint32_t unit = 0; unit < kLookReferencePathUnits; ++unit) {
    const uint8_t* p = record + kPathOffset + 2 * unit;
    const auto value = char16_t(p[0] | p[1] << 8);
    if (value == 0) break;
    path.push_back(value);
  }
  return Utf16ToUtf8(path);
}

}  // namespace

bool IsLookReference(const void* bytes, uint64_t size) {
  const auto count = static_cast<uint32_t>(size);
  if (bytes == nullptr || count < kLookReferenceBytes) return false;
  const auto* p = static_cast<const uint8_t*>(bytes);
  return std::memcmp(p, "AELT", 4) == 0 && ReadU32LE(p + 4) == 2;
}

bool GetLookReferencePath(const void* bytes, uint64_t size, std::string& path) {
  if (!IsLookReference(bytes, size)) return false;
  path = PathOfRecord(static_cast<const uint8_t*>(bytes));
  return true;
}

SLookReference ReadLookReference(const void* bytes) {
  // One copy of the record, so that nothing below reads the caller's bytes twice.
  uint8_t record[kLookReferenceBytes];
  std::memcpy(record, bytes, sizeof(record));
  SLookReference reference;
  reference.version = ReadU32LE(record + 4);
  reference.gridLength = ReadU32LE(record + 8);
  reference.cacheKey = ReadU32LE(record + 12);
  reference.gridOffset = ReadU64LE(record + 16);
  reference.path = PathOfRecord(record);
  return reference;
}

bool ReadLookGridBlock(const SLookReference& reference, std::unique_ptr<uint8_t[]>& block) {
  // Refused before the file is even opened: no grid needs more, and the length is the record's
  // word, not the file's.
  if (reference.gridLength > kLookGridMaxBytes) return false;
  COvFile file;
  if (!file.Open(reference.path)) return false;
  // The length is the record's word: the file must hold the block before memory is spent on it.
  struct stat info {};
  if (!file.Stat(info) || !S_ISREG(info.st_mode)) return false;
  const auto fileSize = uint64_t(info.st_size);
  if (reference.gridOffset > fileSize || fileSize - reference.gridOffset < reference.gridLength) {
    return false;
  }
  std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[reference.gridLength + size_t(1)]);
  if (!bytes) return false;
  const int64_t position = file.Seek(reference.gridOffset);
  if (position < 0 || uint64_t(position) != reference.gridOffset) return false;
  if (file.Read(bytes.get(), reference.gridLength) != reference.gridLength) return false;
  block = std::move(bytes);
  return true;
}

std::unique_ptr<COv3DLUT> LoadLookReference(const void* bytes, uint64_t) {
  try {
    const SLookReference reference = ReadLookReference(bytes);
    std::unique_ptr<uint8_t[]> block;
    if (!ReadLookGridBlock(reference, block)) return nullptr;
    std::unique_ptr<uint8_t[]> image;
    uint32_t imageLength = 0;
    if (!ConvertLookGridToOTX3(block.get(), reference.gridLength, image, imageLength)) {
      return nullptr;
    }
    auto lut = std::make_unique<COv3DLUT>();
    if (!lut->LoadFromMemory(image.get(), imageLength, false, ELUTKindFilter::Any, true)) {
      return nullptr;
    }
    if (lut->SourcePath().empty() && lut->Title().empty()) lut->SetTitle("AMIRA LUT");
    return lut;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace Tincta
