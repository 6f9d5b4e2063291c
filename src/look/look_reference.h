// Look references: fixed-size "AELT" records that name a file and the place inside it where a
// camera look lies as a big-endian "ALOK" grid.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// Bytes a look reference record occupies.
inline constexpr uint32_t kLookReferenceBytes = 4122;

/// True exactly when `size` (its low 32 bits) is at least 4122, the bytes begin with "AELT" and
/// the version word is 2.
bool IsLookReference(const void* bytes, uint64_t size);

/// Reads the grid that the record points at and returns it as a LUT object, or null when the file,
/// the grid or the conversion fails. The caller has tested the record with `IsLookReference`.
std::unique_ptr<COv3DLUT> LoadLookReference(const void* bytes, uint64_t size);

}  // namespace Tincta
