#include "lut/lut_writers.h"

#include "lut/cube_writer.h"
#include "lut/formats/text_lines.h"
#include "lut/mesh_writer.h"
#include "lut/otx3_writer.h"
#include "lut/truelight_writer.h"

namespace Tincta {
namespace {

constexpr SLUTFileFormat kWritten[] = {
    {ELUTFileFormat::Cube, "cube", "cube text: 1-D or 3-D, with title and domain"},
    {ELUTFileFormat::Mesh, "3dl", "integer mesh text: 3-D over 0..1, with a shaper line"},
    {ELUTFileFormat::Truelight, "cub", "Truelight cube text: 1-D, or 3-D with an input LUT"},
    {ELUTFileFormat::Otx3, "otx3", "OTX3 float image: 1-D or 3-D, with domain"},
};

bool bWriteOtx3File(const COv3DLUT& lut, std::string& out, std::string& why) {
  if (lut.InputShaper()) {
    why = "an OTX3 image holds one table, and it has an input shaper in front of its cube";
    return false;
  }
  // What the float image reader accepts back.
  if ((lut.Is3D() && lut.Size() > kMax3DSize) || (!lut.Is3D() && lut.Size() > kMax1DEntries)) {
    why = "an OTX3 image holds at most 256 points per axis or 65536 entries";
    return false;
  }
  out.resize(Otx3ImageBytes(lut));
  WriteOtx3Image(lut, reinterpret_cast<uint8_t*>(out.data()));
  return true;
}

}  // namespace

std::span<const SLUTFileFormat> WrittenLUTFormats() {
  return kWritten;
}

std::optional<ELUTFileFormat> LUTFormatNamed(std::string_view name) {
  if (!name.empty() && name.front() == '.') name.remove_prefix(1);
  for (const SLUTFileFormat& written : kWritten) {
    if (EqualsIgnoringCase(name, written.name)) return written.format;
  }
  return std::nullopt;
}

bool bWriteLUTFile(const COv3DLUT& lut, ELUTFileFormat format, const SLUTWriteOptions& options,
                   std::string& out, std::string& why) {
  out.clear();
  why.clear();
  if (lut.Size() == 0 || !lut.Table()) {
    why = "the LUT is empty";
    return false;
  }
  bool written = false;
  switch (format) {
    case ELUTFileFormat::Cube:
      written = bWriteCubeTable(lut, options.title, out, why);
      break;
    case ELUTFileFormat::Mesh:
      written = bWriteMeshText(lut, options.meshOutputBits, out, why);
      break;
    case ELUTFileFormat::Truelight:
      written = bWriteTruelightText(lut, out, why);
      break;
    case ELUTFileFormat::Otx3:
      written = bWriteOtx3File(lut, out, why);
      break;
  }
  if (!written) out.clear();
  return written;
}

}  // namespace Tincta
