// Camera look grids ("ALOK", big-endian) and their conversion into an "OTX3" LUT image.
//
//   0  data offset (u32, from the start of the block)   4  "ALOK"   12  divisor (u32, 0 as 1)
//   16 scale (f32)   20 bias (f32)   24 grid size N (u16, 2..254)
//   data offset: N^3 triples of u16, triple i*N*N + j*N + k for grid indices (i, j, k)
#pragma once

#include <cstdint>
#include <memory>

namespace Tincta {

/// Smallest grid block the conversion looks at.
inline constexpr uint32_t kLookGridMinBytes = 30;

/// Largest grid block a reference may name: the samples of the largest grid (254 points an axis)
/// behind a header of up to 1 MiB. A larger block holds nothing the conversion would read.
inline constexpr uint32_t kLookGridMaxBytes = 6u * 254 * 254 * 254 + (1u << 20);

/// Converts a grid block of `length` bytes into an "OTX3" image of a 3-D table (domain 0..1),
/// exchanging the outer axes so that the grid's slowest index becomes the image's fastest. Each
/// value is (sample / divisor) x scale + bias in double precision, rounded to single. On success
/// `image` holds the new image; `imageLength` (40 + 12 N^3) is set once the grid size is known,
/// even when the memory for the image is then not there.
bool ConvertLookGridToOTX3(const void* block, uint32_t length, std::unique_ptr<uint8_t[]>& image,
                           uint32_t& imageLength);

}  // namespace Tincta
