// Integer mesh text (3DMESH/3DMESHHW, "LUT_SIZE :" or "entries =" headers, or a bare shaper line),
// blue fastest.
#pragma once

#include <cstdint>
#include <string_view>

#include "lut/formats/reader.h"

namespace Tincta {

/// What `sscanf(line, " %u %u %u %u ", ...)` returns for a NUL-terminated copy of the line, with
/// `values` filled as sscanf fills them; plain lines of three integers take a faster path. A
/// code beyond 32 bits or below 0 gives `kScanOutOfRange` instead of a wrapped value.
int ScanMeshDataLine(std::string_view line, unsigned (&values)[4]);

/// The detector's probe: a grid becomes known (from a header comment, a 3DMESH "Mesh" line or a
/// shaper line) and the first line after it is data or a shaper line; or the text breaks a rule
/// of the format before that.
bool IsMesh(const uint8_t* bytes, uint32_t length, const SParseOptions& options);

/// Reads mesh text that `IsMesh` claimed into `lut`.
bool ReadMesh(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options);

}  // namespace Tincta
