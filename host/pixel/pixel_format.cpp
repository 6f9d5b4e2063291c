#include "host/pixel_format.h"
#include "host/pixel_convert.h"

namespace host {

size_t BytesPerPixel(PixelFormat format) {
  if (format == kPixelFormat_BGRA_4444_8u) return 4;
  if (format == kPixelFormat_BGRA_4444_16u) return 8;
  if (format == kPixelFormat_BGRA_4444_32f) return 16;
  if (format == kPixelFormat_RGB_101010_10u_BE) return 4;
  return 0;
}

std::string_view PixelFormatName(PixelFormat format) {
  if (format == kPixelFormat_BGRA_4444_8u) return "BGRA 8-bit";
  if (format == kPixelFormat_BGRA_4444_16u) return "BGRA 16-bit";
  if (format == kPixelFormat_BGRA_4444_32f) return "BGRA float";
  if (format == kPixelFormat_RGB_101010_10u_BE) return "RGB 10-bit packed big-endian";
  return "unknown";
}

const char* ColorSpaceName(ColorSpace space) {
  switch (space) {
    case ColorSpace::Rec709:
      return "Rec. 709";
    case ColorSpace::Rec2020:
      return "Rec. 2020";
    case ColorSpace::sRGB:
      return "sRGB";
    case ColorSpace::LinearRec709:
      return "Linear Rec. 709";
    case ColorSpace::ACEScg:
      return "ACEScg";
    case ColorSpace::Unknown:
      break;
  }
  return nullptr;
}

int IR_FormatCodeFromPixelFormat(PixelFormat format) {
  if (format == kPixelFormat_BGRA_4444_8u) return kIRFormat_BGRA_8u;
  if (format == kPixelFormat_BGRA_4444_16u) return kIRFormat_BGRA_16u;
  if (format == kPixelFormat_BGRA_4444_32f) return kIRFormat_BGRA_32f;
  if (format == kPixelFormat_RGB_101010_10u_BE) return kIRFormat_RGB_10u_BE;
  return kIRFormat_Unknown;
}

}  // namespace host
