// Cube text out of a colour pipeline: "LUT_3D_SIZE N" and N^3 lines of "%.6f %.6f %.6f", red
// fastest, every line ending in "\r\n". No title, domain or comment lines.
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

}  // namespace Tincta
