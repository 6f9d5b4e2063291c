// Every LUT file format the library writes, by name and file extension, behind one call. Each
// writer holds a table as it stands, or refuses it with the reason; a written file reads back
// through the library's readers to the same table within the format's precision.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lut/lut3d.h"

namespace Tincta {

enum class ELUTFileFormat {
  Cube,       // cube text, 1-D or 3-D, with TITLE and DOMAIN lines
  Mesh,       // integer mesh text (.3dl) with a shaper line
  Truelight,  // Truelight cube text (.cub)
  Otx3,       // "OTX3" float image, the LUT blob's form
};

struct SLUTFileFormat {
  ELUTFileFormat format;
  /// The name `--format` takes, which is also the file extension without its dot.
  std::string_view name;
  std::string_view description;
};

/// The formats written, in the order a listing shows them.
std::span<const SLUTFileFormat> WrittenLUTFormats();

/// The format of a name or an extension (with or without the dot), ignoring case.
std::optional<ELUTFileFormat> LUTFormatNamed(std::string_view name);

struct SLUTWriteOptions {
  /// Cube text only: the TITLE line, left out when empty.
  std::string title;
  /// Mesh only: the output depth in bits; 0 takes the writer's default.
  uint32_t meshOutputBits = 0;
};

/// Writes `lut` in `format` into `out` (text or binary bytes). False, with `out` empty and `why`
/// saying what the format cannot hold, when the format cannot hold the table as it stands.
bool bWriteLUTFile(const COv3DLUT& lut, ELUTFileFormat format, const SLUTWriteOptions& options,
                   std::string& out, std::string& why);

}  // namespace Tincta
