// Host pixel formats and colour spaces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/export.h"

namespace host {

/// A host pixel format: two 32-bit words, compared word by word.
struct PixelFormat {
  uint32_t code = 0;     ///< the channel layout, four characters ("BGRA")
  uint32_t variant = 0;  ///< bits per channel
  friend bool operator==(const PixelFormat&, const PixelFormat&) = default;
};

/// Blue, green, red, alpha; 8-bit unsigned each (4 bytes a pixel).
inline constexpr PixelFormat kPixelFormat_BGRA_4444_8u{0x42475241u, 8};
/// Blue, green, red, alpha; 16-bit unsigned each, native byte order (8 bytes a pixel).
inline constexpr PixelFormat kPixelFormat_BGRA_4444_16u{0x42475241u, 16};
/// Blue, green, red, alpha; 32-bit float each (16 bytes a pixel). The module's working layout.
inline constexpr PixelFormat kPixelFormat_BGRA_4444_32f{0x42475241u, 32};
/// Red, green, blue packed in one big-endian 32-bit word per pixel, 10 bits each from the top
/// (red in bits 31..22), two low padding bits: the DPX "filled method A" layout.
inline constexpr PixelFormat kPixelFormat_RGB_101010_10u_BE{0x52474230u, 10};

/// Bytes per pixel of a known format, 0 for an unknown one.
HOST_API size_t BytesPerPixel(PixelFormat format);
/// A short readable name ("BGRA 8-bit", ...), or "unknown".
HOST_API std::string_view PixelFormatName(PixelFormat format);

/// Colour spaces a frame may declare.
enum class ColorSpace : uint32_t {
  Unknown = 0,
  Rec709 = 1,
  Rec2020 = 2,
  sRGB = 3,
  LinearRec709 = 4,
  ACEScg = 5,
};

/// The colour space's name ("Rec. 709", ...), or null for `Unknown` and values out of range.
HOST_API const char* ColorSpaceName(ColorSpace space);

}  // namespace host
