// Look references: fixed-size "AELT" records that name a file and the place inside it where a
// camera look lies as a big-endian "ALOK" grid.
//
//   0  "AELT"   4  version (2)   8  grid length (u32)   12  cache key (u32, 0: none)
//   16 grid offset in the file (u64)   24  path, UTF-16LE, 2049 units, ended by a NUL unit
//
// All words little-endian. Bytes after the record are ignored.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// Bytes a look reference record occupies.
inline constexpr uint32_t kLookReferenceBytes = 4122;
/// UTF-16 units of the path field (2048 of text and the NUL).
inline constexpr uint32_t kLookReferencePathUnits = 2049;

/// The fields of a record.
struct SLookReference {
  uint32_t version = 0;
  uint32_t gridLength = 0;
  /// Where the look's LUT is kept in the LUT cache by look documents; 0 when it is not.
  uint32_t cacheKey = 0;
  uint64_t gridOffset = 0;
  /// The referenced file, UTF-8 (the field up to its first NUL, or the whole field).
  std::string path;
};

/// True exactly when `size` (its low 32 bits) is at least 4122, the bytes begin with "AELT" and
/// the version word is 2.
bool IsLookReference(const void* bytes, uint64_t size);

/// When the bytes are a look reference, sets `path` to the referenced file (UTF-8, surrogate
/// pairs joined) and returns true; otherwise returns false and leaves `path` untouched.
bool GetLookReferencePath(const void* bytes, uint64_t size, std::string& path);

/// The fields of the first 4122 bytes at `bytes`, which the caller has tested with
/// `IsLookReference`.
SLookReference ReadLookReference(const void* bytes);

/// Reads the `gridLength` bytes of the grid block the record points at into a new buffer. False,
/// with `block` untouched, when the file cannot be opened, is not a regular file or does not hold
/// the whole block, or the memory is not there; the file is closed on every path.
bool ReadLookGridBlock(const SLookReference& reference, std::unique_ptr<uint8_t[]>& block);

/// Reads the grid that the record points at and returns it as a LUT object (titled "AMIRA LUT"),
/// or null when the file, the grid or the conversion fails. The caller has tested the record
/// with `IsLookReference`; `size` is not used.
std::unique_ptr<COv3DLUT> LoadLookReference(const void* bytes, uint64_t size);

}  // namespace Tincta
