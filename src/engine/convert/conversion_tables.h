// The process-wide cache of sample tables of the general conversion path.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Tincta {

/// The float value of every code of `sourcePrecision` as the general path hands it to a target
/// of `targetPrecision`, built on first use under the cache's mutex and kept until the process
/// ends. Entries: 256 ("8 bits"), 1024 (the 10-bit precisions; colour samples only), 65536
/// (the 16-bit precisions). Null for the 32-bit precisions (computed directly), unknown
/// precisions and when the memory is not there.
///
/// The values are the code's share of full scale, with one exception: "16 bit int" read for an
/// "8 bits" target keeps only the high byte, (code >> 8) / 255, so that every route from 16 to
/// 8 bits truncates as the dedicated converters do.
const float* ConversionTable(uint32_t sourcePrecision, uint32_t targetPrecision);

/// The value of one code as above, for every precision (the 32-bit ones included). The alpha
/// of "10+2 bits" is not a 10-bit code: it is code / 3, outside these tables.
float CodeValue(uint32_t code, uint32_t sourcePrecision, uint32_t targetPrecision);

/// Number of entries in the table of `sourcePrecision` (0 where there is none).
size_t ConversionTableSize(uint32_t sourcePrecision);

}  // namespace Tincta
