// Integer mesh text (3DMESH/3DMESHHW, "LUT_SIZE :" or "entries =" headers, or a bare shaper line),
// blue fastest.
#pragma once

#include <cstdint>
#include <string_view>

#include "lut/formats/reader.h"
#include "lut/lut3d.h"

namespace Tincta {

/// What `sscanf(line, " %u %u %u %u ", ...)` returns for a NUL-terminated copy of the line, with
/// `values` filled as sscanf fills them; plain lines of three integers take a faster path.
int ScanMeshDataLine(std::string_view line, unsigned (&values)[4]);

/// Reads the text into `lut`, or reports that it is not this format.
EReadOutcome ReadMesh(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                      const SParseOptions& options);

}  // namespace Tincta
