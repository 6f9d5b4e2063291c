// Raw sample codes of a frame buffer line: every precision's bit layout and byte order in one
// place, so that repacking and conversion never touch bytes themselves.
#pragma once

#include <cstdint>

#include "engine/frame_buffer/frame_buffer_format.h"

namespace Tincta {

// Codes are the stored integers: 0..255 ("8 bits"), 0..1023 (the 10-bit precisions; the alpha
// of "10+2 bits" RGBA is 0..3), 0..65535 ("16 bit int"), IEEE half bits ("16 bit float"),
// 0..2^32-1 ("32 bit int") and IEEE single bits ("32 bit float").
//
// "10 bits" is a stream of samples in memory order, three to a 32-bit word at bits 31-22, 21-12
// and 11-2 (bits 1-0 and unused slots of a line's last word are 0); with three channels each
// word is exactly one pixel. "10+2 bits" is one word per pixel: the colour samples at bits
// 31-22, 21-12 and 11-2, a 2-bit alpha in bits 1-0 (0 without alpha). Words, like every
// multi-byte sample, are stored little-endian unless the format says big-endian.

/// Reads the codes of the first `width` pixels of `line` into `codes` (width × channels
/// entries in memory order). The format's layout must be valid (`IsValidLayout`).
void ReadSampleCodes(const uint8_t* line, const FrameBufferFormat& format, uint32_t width,
                     uint32_t* codes);

/// Writes `width` pixels of codes (width × channels entries in memory order) to `line`: the
/// pixels' bytes and, for "10 bits", the rest of the line's last word. Codes wider than their
/// field are cut to it.
void WriteSampleCodes(const uint32_t* codes, const FrameBufferFormat& format, uint32_t width,
                      uint8_t* line);

/// Bytes of a line that hold its pixels: the line stride without padding.
uint64_t PackedLineBytes(const FrameBufferFormat& format, uint32_t width);

/// Bytes that the pixels of a line occupy: whole pixels, or whole words for packed "10 bits"
/// with 1 or 4 channels. Never more than the line stride, even of a wrapped buffer whose
/// stride is not rounded to words.
uint64_t PixelLineBytes(const FrameBufferFormat& format, uint32_t width);

/// The code of 1.0 for the sample `channel` of a pixel of `format`.
uint32_t FullScaleCode(const FrameBufferFormat& format, uint32_t channel);

}  // namespace Tincta
