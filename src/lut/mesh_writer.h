// Integer mesh text (.3dl) out of a 3-D table over [0, 1]. A grid of 2^k + 1 points (k up to 7)
// is written with its header, "3DMESH" and "Mesh k BITS", which names the output depth; any other
// grid of 4 to 256 points is written without one, and a reader then infers the depth from the
// largest code. Both forms carry a shaper line when the grid has 4 points or more: evenly spaced
// 10-bit input codes (0 ... 1023), or the positions of the table's input shaper where it is one
// that a shaper line describes (as a mesh reader builds it). Entries run blue fastest, red
// slowest, as codes round(value x (2^BITS - 1)).
#pragma once

#include <cstdint>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// Output depths a mesh may name.
inline constexpr uint32_t kMinMeshOutputBits = 1;
inline constexpr uint32_t kMaxMeshOutputBits = 32;
/// The depth chosen when none is asked for: 12 bits with a header, 10 without (the depth a reader
/// infers for codes below 1024).
uint32_t DefaultMeshOutputBits(const COv3DLUT& lut);

/// Writes `lut` as mesh text with codes of `outputBits` (0: the default). False, with `out` empty
/// and `why` set, when the mesh cannot hold the table: a 1-D table, an input shaper that no shaper
/// line describes, a domain
/// other than [0, 1], a grid the format has no form for, a value below 0 or beyond the largest
/// code, NaN, or a depth that a header-less grid would not be read back at.
bool bWriteMeshText(const COv3DLUT& lut, uint32_t outputBits, std::string& out, std::string& why);

}  // namespace Tincta
