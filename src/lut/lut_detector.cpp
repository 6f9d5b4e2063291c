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

using TextReader = EReadOutcome (*)(COv3DLUT&, const uint8_t*, uint32_t, const SParseOptions&);

EReadOutcome DetectAndRead(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                           const SParseOptions& options) {
  if (IsFloatImage(bytes, length)) return ReadFloatImage(lut, bytes, length, options);
  if (IsPacked10Cube(bytes, length)) return ReadPacked10Cube(lut, bytes, length, options);
  if (LooksLikeXMLLook(bytes, length)) return ReadXMLLook(lut, bytes, length, options);

  // The mesh reader hands over to the colour-transformation fallback where it finds nothing.
  static constexpr TextReader kTextReaders[] = {ReadCube, ReadTruelight, ReadMesh,
                                                ReadColorTransformation};
  const std::string title = lut.Title();
  for (TextReader reader : kTextReaders) {
    const EReadOutcome outcome = reader(lut, bytes, length, options);
    if (outcome != EReadOutcome::NotThisFormat) return outcome;
    // A reader that gave up leaves nothing behind for the next one.
    lut.Clear();
    lut.SetTitle(title);
  }
  return EReadOutcome::NotThisFormat;
}

}  // namespace

bool COv3DLUT::ParseLUTData(const void* bytes, uint32_t length, bool upsampleToPowerOfTwo,
                            ELUTKindFilter kindFilter, bool allowTransformText) {
  SParseOptions options;
  options.upsampleToPowerOfTwo =
      upsampleToPowerOfTwo ||
      host::Settings::Instance().GetBool(host::kSettingAlwaysUpsampleToPoT, false);
  options.kindFilter = kindFilter;
  options.allowTransformText = allowTransformText;

  Clear();
  EReadOutcome outcome = EReadOutcome::Failed;
  if (bytes) {
    try {
      outcome = DetectAndRead(*this, static_cast<const uint8_t*>(bytes), length, options);
    } catch (const std::exception&) {
      // Only memory exhaustion gets here; a read that runs out of memory fails like any other.
      outcome = EReadOutcome::Failed;
    }
  }
  if (outcome == EReadOutcome::Loaded) return true;
  Clear();
  return false;
}

}  // namespace Tincta
