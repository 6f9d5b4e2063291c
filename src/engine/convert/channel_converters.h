// The general conversion path: every precision's samples to float RGBA and back, one line at a
// time, and the conversion of whole buffers through a float line.
#pragma once

#include <cstdint>

#include "engine/frame_buffer/complex_frame_buffer.h"
#include "engine/frame_buffer/frame_buffer_format.h"

namespace Tincta {

/// Float to the code of an integer precision: clamped to [0, 1] (NaN counts as 1), times full
/// scale, rounded to nearest with ties to even, in single precision up to 16 bits and in double
/// precision for "32 bit int". "8 bits" is computed as min(x, 1) × 255 first, exactly as the
/// vector kernels do.
uint32_t QuantizeTo8Bits(float value);
uint32_t QuantizeTo10Bits(float value);

/// Float to the code of a sample of `precision`; `twoBitAlpha` selects the 2-bit alpha of
/// "10+2 bits". Float precisions round to nearest even without clamping.
uint32_t QuantizeSample(float value, uint32_t precision, bool twoBitAlpha);

/// Type and precision are known and the channel order is BGR(A) or RGB(A) (any for Intensity).
bool IsConvertibleFormat(const FrameBufferFormat& format);

/// Reads `width` pixels of `line` as float R, G, B, A (four floats per pixel, in that order):
/// Intensity is copied to R, G and B, a missing alpha is 1. `table` comes from
/// `ConversionTable` for the pair (or null: values are then computed); `codes` holds
/// width × 4 entries of scratch.
void ReadLineAsRgba(const uint8_t* line, const FrameBufferFormat& format, uint32_t width,
                    uint32_t targetPrecision, const float* table, uint32_t* codes, float* rgba);

/// Writes `width` float RGBA pixels to `line` in `format`: RGB drops alpha; Intensity takes
/// the Rec. 709 luma 0.2126 R + 0.7152 G + 0.0722 B. `codes` holds width × 4 entries of scratch.
void WriteLineFromRgba(const float* rgba, const FrameBufferFormat& format, uint32_t width,
                       uint32_t* codes, uint8_t* line);

/// Converts `source` into `target` line by line through a float RGBA scratch line. Both need
/// pixels, equal sizes and convertible formats. False when that fails or scratch memory is
/// not there.
bool bConvertThroughFloat(const COvComplexFrameBuffer& source, COvComplexFrameBuffer& target);

}  // namespace Tincta
