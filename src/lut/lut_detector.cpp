// The format detector: fixed tests in a fixed order, the first match wins.
#include <exception>

#include "host/settings.h"
#include "lut/formats/color_transformation_reader.h"
#include "lut/formats/cube_reader.h"
#include "lut/formats/float_image_reader.h"
#include "lut/formats/mesh_reader.h"
#include "lut/formats/packed10_reader.h"
#include "lut/formats/truelight_reader.h"
#include "lut/formats/xml_look_reader.h"
#include "lut/lut3d.h"

namespace Tincta {
namespace {

// Binary formats first (their magic is certain), then the XML look, then the text formats from the
// most to the least particular; the colour-transformation fallback takes what the mesh reader does
// not recognise.
constexpr SLUTFormatReader kReaders[] = {
    {"float image", IsFloatImage, ReadFloatImage},
    {"packed 10-bit cube", IsPacked10Cube, ReadPacked10Cube},
    {"XML look", IsXMLLook, ReadXMLLook},
    {"cube", IsCube, ReadCube},
    {"Truelight", IsTruelight, ReadTruelight},
    {"mesh", IsMesh, ReadMesh},
    {"colour transformation", IsColorTransformationAllowed, ReadColorTransformation},
};

bool DetectAndRead(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                   const SParseOptions& options) {
  for (const SLUTFormatReader& reader : kReaders) {
    if (reader.probe(bytes, length, options)) return reader.read(lut, bytes, length, options);
  }
  return false;
}

}  // namespace

std::span<const SLUTFormatReader> LUTFormatReaders() {
  return kReaders;
}

bool COv3DLUT::ParseLUTData(const void* bytes, uint32_t length, bool upsampleToPowerOfTwo,
                            ELUTKindFilter kindFilter, bool allowTransformText) {
  SParseOptions options;
  options.upsampleToPowerOfTwo =
      upsampleToPowerOfTwo ||
      host::Settings::Instance().GetBool(host::kSettingAlwaysUpsampleToPoT, false);
  options.kindFilter = kindFilter;
  options.allowTransformText = allowTransformText;

  Clear();
  bool loaded = false;
  if (bytes) {
    try {
      loaded = DetectAndRead(*this, static_cast<const uint8_t*>(bytes), length, options);
    } catch (const std::exception&) {
      // Only memory exhaustion gets here; a read that runs out of memory fails like any other.
      loaded = false;
    }
  }
  if (loaded) return true;
  Clear();
  return false;
}

}  // namespace Tincta
