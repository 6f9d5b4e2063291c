// The format detector: fixed tests in a fixed order, the first match wins.
#include <cmath>
#include <exception>
#include <string>

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

// The probes never see the diagnostics record: only the read that counts may fill it.
bool DetectAndRead(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                   const SParseOptions& options) {
  SParseOptions probeOptions = options;
  probeOptions.diagnostics = nullptr;
  for (const SLUTFormatReader& reader : kReaders) {
    if (reader.probe(bytes, length, probeOptions)) {
      if (options.diagnostics) options.diagnostics->reader = reader.name;
      return reader.read(lut, bytes, length, options);
    }
  }
  NoteFailure(options.diagnostics, 0,
              options.allowTransformText ? "no reader recognises the bytes"
                                         : "no reader recognises the bytes (text corrections "
                                           "are not allowed here)");
  return false;
}

const char* const kChannelNames[3] = {"red", "green", "blue"};

// Entries that no renderer can give a sensible colour for; counted over every channel.
void NoteNonFiniteEntries(const COv3DLUT& table, const char* what,
                          SLUTReadDiagnostics& diagnostics) {
  const uint64_t entries =
      table.Is3D() ? uint64_t(table.Size()) * table.Size() * table.Size() : uint64_t(table.Size());
  const float* data = table.Table();
  uint64_t count = 0;
  uint64_t first = 0;
  for (uint64_t i = 0; i < entries; ++i) {
    const float* entry = data + 4 * i;
    if (std::isfinite(entry[0]) && std::isfinite(entry[1]) && std::isfinite(entry[2])) continue;
    if (count++ == 0) first = i;
  }
  if (count == 0) return;
  diagnostics.Warn(
      0, std::to_string(count) + " " + what + (count == 1 ? " entry holds" : " entries hold") +
             " NaN or infinite values (the first is entry " + std::to_string(first) + ")");
}

void NoteDamage(const COv3DLUT& lut, SLUTReadDiagnostics& diagnostics) {
  if (lut.Table()) NoteNonFiniteEntries(lut, "table", diagnostics);
  const COv3DLUT* shaper = lut.InputShaper();
  if (shaper && shaper->Table()) {
    NoteNonFiniteEntries(*shaper, "shaper", diagnostics);
    // A shaper maps input to table coordinates; where it falls, two inputs share one colour.
    const float* data = shaper->Table();
    for (int c = 0; c < 3; ++c) {
      for (uint32_t i = 1; i < shaper->Size(); ++i) {
        if (data[4 * size_t(i) + c] < data[4 * size_t(i - 1) + c]) {
          diagnostics.Warn(0, std::string("the input shaper is not monotonic: ") +
                                  kChannelNames[c] + " falls at entry " + std::to_string(i));
          break;
        }
      }
    }
  }
  for (int c = 0; c < 3; ++c) {
    const float min = lut.DomainMin()[c];
    const float max = lut.DomainMax()[c];
    if (min > max) {
      diagnostics.Warn(0, std::string("the domain is inverted: ") + kChannelNames[c] + " minimum " +
                              FormatNumber(min) + " is above its maximum " + FormatNumber(max));
    } else if (min == max) {
      diagnostics.Warn(0, std::string("the domain is empty: ") + kChannelNames[c] +
                              " minimum and maximum are both " + FormatNumber(min));
    }
  }
}

}  // namespace

std::span<const SLUTFormatReader> LUTFormatReaders() {
  return kReaders;
}

bool COv3DLUT::ParseLUTData(const void* bytes, uint32_t length, bool upsampleToPowerOfTwo,
                            ELUTKindFilter kindFilter, bool allowTransformText,
                            SLUTReadDiagnostics* diagnostics, std::string_view correctionId) {
  SParseOptions options;
  options.upsampleToPowerOfTwo =
      upsampleToPowerOfTwo ||
      host::Settings::Instance().GetBool(host::kSettingAlwaysUpsampleToPoT, false);
  options.kindFilter = kindFilter;
  options.allowTransformText = allowTransformText;
  options.diagnostics = diagnostics;
  options.correctionId = correctionId;

  Clear();
  bool loaded = false;
  if (bytes) {
    try {
      loaded = DetectAndRead(*this, static_cast<const uint8_t*>(bytes), length, options);
    } catch (const std::exception&) {
      // Only memory exhaustion gets here; a read that runs out of memory fails like any other.
      NoteFailure(diagnostics, 0, "not enough memory for the table");
      loaded = false;
    }
  } else {
    NoteFailure(diagnostics, 0, "no bytes");
  }
  if (loaded) {
    if (diagnostics) NoteDamage(*this, *diagnostics);
    return true;
  }
  // A reader that failed without saying why still fails with a reason.
  NoteFailure(diagnostics, 0, "the bytes cannot be read as this format");
  Clear();
  return false;
}

}  // namespace Tincta
