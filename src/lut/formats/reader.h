// The shape of every reader in this folder: a probe that tells the format detector whether the
// bytes are the reader's format, and a read into a `COv3DLUT`. The detector walks its table of
// readers in order and hands the bytes to the first whose probe claims them; that read's result
// is final.
#pragma once

#include <cstdint>
#include <span>

#include "lut/lut3d.h"

namespace Tincta {

/// Whether the bytes are this reader's format, given the caller's arguments. Reads nothing into
/// any object.
using LUTFormatProbe = bool (*)(const uint8_t* bytes, uint32_t length,
                                const SParseOptions& options);

/// Reads bytes that the reader's probe claimed into `lut`. False when they cannot be read; the
/// object is then left for the caller to clear.
using LUTFormatRead = bool (*)(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                               const SParseOptions& options);

struct SLUTFormatReader {
  const char* name;
  LUTFormatProbe probe;
  LUTFormatRead read;
};

/// The readers in the order the detector tries them.
std::span<const SLUTFormatReader> LUTFormatReaders();

/// How a text reader's walk over its lines ended. A text reader walks once to probe, stopping as
/// soon as the text is known to be its own, and once to read.
enum class ETextWalk {
  /// The text is someone else's: the detector goes on with the next reader.
  NotMine,
  /// Probing only: the text is the reader's; the read decides the rest.
  Mine,
  /// The text is the reader's and cannot be read.
  Failed,
  /// The object holds the table.
  Loaded,
};

}  // namespace Tincta
