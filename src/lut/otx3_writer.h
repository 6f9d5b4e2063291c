// The "OTX3" image of a LUT: the portable binary form handed out as a LUT's blob.
//
//   0   "OTX3"          4   size (u32)         8   3 for 3-D, 1 for 1-D   12  0 (not enciphered)
//   16  domainMin RGB   28  domainMax RGB      40  entries as RGB float32 triples, table order
//
// All words little-endian. The alpha of each entry and any input shaper are not written.
#pragma once

#include <cstdint>

#include "lut/lut3d.h"

namespace Tincta {

inline constexpr uint32_t kOtx3HeaderBytes = 40;

/// 40 + 12 x entries.
uint64_t Otx3ImageBytes(const COv3DLUT& lut);

/// Writes the image of `lut` into `out`, which holds `Otx3ImageBytes(lut)` bytes.
void WriteOtx3Image(const COv3DLUT& lut, uint8_t* out);

}  // namespace Tincta
