// Cube text out of a colour pipeline: "LUT_3D_SIZE N" and N^3 lines of "%.6f %.6f %.6f", red
// fastest, every line ending in "\r\n". No title, domain or comment lines.
// Cube text out of a table as it stands (1-D or 3-D, title and domain kept), every number written
// so that it reads back as the same float.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "lut/lut3d.h"

namespace Tincta {

/// A colour pipeline: maps one RGB triple to another; false when it cannot.
using CubePipeline = std::function<bool(const float in[3], float out[3])>;

/// Least and most points per axis the writer bakes.
inline constexpr uint32_t kMinCubeWriterSize = 2;
inline constexpr uint32_t kMaxCubeWriterSize = kMax3DSize;

/// Bakes `pipeline` at size^3 evenly spaced grid nodes over [0, 1] and replaces `out` with the
/// cube text. `out` becomes empty when the pipeline fails at any node or `size` is outside
/// [kMinCubeWriterSize, kMaxCubeWriterSize].
void WriteCubeText(const CubePipeline& pipeline, std::string& out, uint32_t size);

/// Writes a 3-D table as it stands. `out` becomes empty unless the table is 3-D with at least
/// two points, has no input shaper and has the domain [0, 1] on red, green and blue.
void WriteCubeText(const COv3DLUT& lut, std::string& out);

/// Cube text that holds `lut` as it stands: a TITLE line when `title` is not empty, DOMAIN_MIN and
/// DOMAIN_MAX when the domain is not [0, 1], "LUT_1D_SIZE N" or "LUT_3D_SIZE N", then one line
/// "R G B" per entry in table order, lines ending in "\n". False, with `out` empty and `why` set,
/// when cube text cannot hold the table (an input shaper, a size the reader refuses, a title with
/// a quote or a line break).
bool bWriteCubeTable(const COv3DLUT& lut, const std::string& title, std::string& out,
                     std::string& why);

}  // namespace Tincta
