#include "lut/formats/color_transformation_reader.h"

#include <string>

#include "lut/color_transformation.h"

namespace Tincta {
namespace {

constexpr uint32_t kBakedEntries = 1024;

}  // namespace

bool IsColorTransformationAllowed(const uint8_t*, uint32_t, const SParseOptions& options) {
  return options.allowTransformText && options.kindFilter != ELUTKindFilter::Only3D;
}

bool ReadColorTransformation(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                             const SParseOptions& options) {
  if (!IsColorTransformationAllowed(bytes, length, options)) return false;
  COvColorTransformation transformation;
  std::string whyNot;
  if (!transformation.bParse(bytes, length, options.correctionId,
                             options.diagnostics ? &whyNot : nullptr)) {
    if (SLUTReadDiagnostics* diagnostics = options.diagnostics) {
      // This reader is the last resort for any text: text that is not even XML is no one's.
      if (whyNot.starts_with("not well-formed XML")) {
        diagnostics->reader.clear();
        diagnostics->Fail(0,
                          "no reader recognises the text (it is no cube, Truelight, mesh or "
                          "ASC CDL text)");
      } else {
        diagnostics->Fail(0, "ASC CDL: " + whyNot);
      }
    }
    return false;
  }
  if (!lut.Allocate(kBakedEntries, false)) {
    NoteFailure(options.diagnostics, 0, "not enough memory for the table");
    return false;
  }
  float* table = lut.Table();
  for (uint32_t i = 0; i < kBakedEntries; ++i) {
    const float value = float(double(i) / double(kBakedEntries - 1));
    const float in[3] = {value, value, value};
    float* entry = table + 4 * size_t(i);
    transformation.Apply(in, entry);
    entry[3] = 1.0f;
  }
  lut.SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});
  return true;
}

}  // namespace Tincta
