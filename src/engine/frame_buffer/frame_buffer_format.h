// The format record of a frame buffer and the layout rules derived from it: line stride, bytes
// per pixel, which formats share pixel memory, and the format's text for the pipeline path.
#pragma once

#include <cstdint>
#include <string>

namespace Tincta {

/// Channel count shifted left by 8.
inline constexpr uint32_t kFrameBufferTypeIntensity = 0x100;
inline constexpr uint32_t kFrameBufferTypeRGB = 0x300;
inline constexpr uint32_t kFrameBufferTypeRGBA = 0x400;

/// Precision indices. "10 bits" packs three 10-bit samples into each 32-bit word; "10+2 bits"
/// holds one pixel per 32-bit word (three 10-bit samples and a 2-bit alpha).
inline constexpr uint32_t kPrecision8Bits = 0;
inline constexpr uint32_t kPrecision10Bits = 1;
inline constexpr uint32_t kPrecision10Plus2Bits = 2;
inline constexpr uint32_t kPrecision16BitInt = 3;
inline constexpr uint32_t kPrecision16BitFloat = 4;
inline constexpr uint32_t kPrecision32BitInt = 5;
inline constexpr uint32_t kPrecision32BitFloat = 6;
inline constexpr uint32_t kPrecisionCount = 7;

/// Order of the colour samples in memory; alpha always comes last.
inline constexpr int32_t kChannelOrderBGR = 0;
inline constexpr int32_t kChannelOrderRGB = 1;
inline constexpr int32_t kChannelOrderNone = -1;

/// How a frame buffer's pixels are laid out. The default is RGB, "8 bits", BGR(A), little
/// endian, bottom to top, no stated buffer size and no requested line stride.
struct FrameBufferFormat {
  uint32_t type = kFrameBufferTypeRGB;
  uint32_t precision = kPrecision8Bits;
  int32_t channelOrder = kChannelOrderBGR;
  /// Multi-byte samples (and the 32-bit words of the 10-bit precisions) are big-endian.
  bool bigEndian = false;
  /// Line 0 is the top line in memory; otherwise lines are stored bottom to top.
  bool topToBottom = false;
  /// Size of the pixel block in bytes; 0 = not stated.
  uint64_t bufferSize = 0;
  /// Least line stride in bytes that the caller asks for; 0 = none.
  uint32_t lineStride = 0;

  friend bool operator==(const FrameBufferFormat&, const FrameBufferFormat&) = default;
};

/// Samples per pixel (type >> 8): 1, 3 or 4 for the valid types.
inline uint32_t ChannelCount(const FrameBufferFormat& format) {
  return format.type >> 8;
}

/// Bits per sample of a precision as used for strides (10 for both 10-bit precisions); 0 for
/// an unknown precision.
uint32_t BitsPerSample(uint32_t precision);

/// Type is Intensity, RGB or RGBA and the precision is one of the seven known ones.
bool IsValidLayout(const FrameBufferFormat& format);

/// Line stride in bytes for `width` pixels: the packed length of one line in whole 32-bit words
/// (three-channel "10 bits" counts as one word per pixel), but at least the format's requested
/// line stride. Computed in 64 bits so that a caller can refuse strides beyond 32 bits.
uint64_t ComputeLineStride(const FrameBufferFormat& format, uint32_t width);

/// Bytes per pixel: 4 for "10+2 bits", 0 for "10 bits" with 1 or 4 channels (pixels that do
/// not start on a byte), else the whole bytes that the pixel's samples take.
uint32_t BytesPerPixel(const FrameBufferFormat& format);

/// Whether the byte order of the format's samples can differ at all (every precision wider
/// than 8 bits).
bool ByteOrderMatters(uint32_t precision);

/// Whether a buffer of format `a` can be used as it is where format `b` is asked for: equal
/// type and precision, equal channel order unless Intensity, equal byte order where it matters,
/// equal orientation and equal requested line stride.
bool FormatsMatch(const FrameBufferFormat& a, const FrameBufferFormat& b);

/// Words for the format's fields as they appear in its description.
const char* FrameBufferTypeWord(uint32_t type);
const char* PrecisionWord(uint32_t precision);
const char* ChannelOrderWord(int32_t channelOrder);

/// "Format: Type = ..., Precision = ..." with channel order, byte order, orientation, buffer
/// size and line stride where they apply.
std::string DescribeFrameBufferFormat(const FrameBufferFormat& format);

}  // namespace Tincta
