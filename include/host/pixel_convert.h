// The host image renderer's pixel conversion.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/export.h"
#include "host/pixel_format.h"

namespace host {

/// Image-renderer format codes. 260 is the module's working layout (BGRA float).
inline constexpr int kIRFormat_Unknown = 0;
inline constexpr int kIRFormat_BGRA_8u = 256;
inline constexpr int kIRFormat_BGRA_16u = 258;
inline constexpr int kIRFormat_BGRA_32f = 260;
inline constexpr int kIRFormat_RGB_10u_BE = 262;

/// The image-renderer code of a host pixel format, `kIRFormat_Unknown` when it has none.
HOST_API int IR_FormatCodeFromPixelFormat(PixelFormat format);

/// Converts `width` x `height` pixels between two formats, rows `srcRowBytes` and `dstRowBytes`
/// apart. Integer samples map full scale to 1.0; float to integer rounds to nearest and clamps.
/// `components` is the number of components converted per pixel and must be 4 (alpha is set to
/// full scale when the target has alpha and the source has none). Returns 0 on success and a
/// non-zero value for an unknown code, a bad component count, null memory or rows shorter than
/// the width needs. Source and destination must not overlap.
HOST_API int IR_Convert(const void* src, size_t srcRowBytes, int srcFormatCode, void* dst,
                        size_t dstRowBytes, int dstFormatCode, uint32_t width, uint32_t height,
                        int components);

/// The instruction set of the vector forms that `IR_Convert` uses between integer BGRA and float,
/// chosen once per process: "avx2" where the processor and the operating system run it (unless
/// the environment variable CRANDLE_CPU_ISA is "sse"), else "sse2". Results are the same on all.
HOST_API const char* IR_ConvertInstructionSet();

/// Transposes a `width` x `height` matrix of `elementSize`-byte elements (rows `srcRowBytes`
/// apart) into a `height` x `width` one (rows `dstRowBytes` apart): element (x, y) of the source
/// becomes element (y, x) of the destination. Returns 0, or a non-zero value for null memory, a
/// zero element size or rows shorter than the extents need. The two must not overlap.
HOST_API int IR_Transpose(const void* src, size_t srcRowBytes, void* dst, size_t dstRowBytes,
                          uint32_t width, uint32_t height, size_t elementSize);

}  // namespace host
