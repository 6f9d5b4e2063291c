// Three floats from one text line, read exactly as `sscanf(line, " %f %f %f ", ...)` reads them.
//
// Data lines make up nearly all of a cube or Truelight file, and sscanf costs far more than the
// conversion itself; lines of plain decimal numbers separated by white space take a fast path
// that yields the same count and bit-identical floats, and every other line goes to sscanf.
#pragma once

#include <string_view>

namespace Tincta {

/// What `sscanf(copy, " %f %f %f ", &rgb[0], &rgb[1], &rgb[2])` returns for a NUL-terminated copy
/// of `line` (EOF, 0, 1, 2 or 3), with `rgb` filled as far as sscanf fills it.
int ScanFloatTriple(std::string_view line, float rgb[3]);

/// The fast path alone: true, with all of `rgb` filled, when `line` is optional white space and
/// three plain decimal numbers ([+-] digits [. digits] [e [+-] digits]), each ended by white space
/// or the end of the line, whose values are finite and in range. False when it cannot be sure;
/// `rgb` may then be partly written.
bool ScanPlainFloatTriple(std::string_view line, float rgb[3]);

/// Switches the fast path off (every line through sscanf) or back on, for the whole process.
/// Meant for benchmarks that compare the two; the results are the same either way.
void SetFloatTripleFastPath(bool enabled);

}  // namespace Tincta
