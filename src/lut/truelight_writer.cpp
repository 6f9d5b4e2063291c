#include "lut/truelight_writer.h"

#include <algorithm>

#include "lut/writer_text.h"

namespace Tincta {
namespace {

// A reader stores each shaper value v as v (1 - 1/P) + 0.5/P, P the power of two not below the
// cube's size, capped at 128: the texture coordinate of a cube of P points.
constexpr uint32_t kShaperTexelCap = 128;

bool CheckInputLUT(const COv3DLUT& table, const char* what, std::string& why) {
  if (!HasUnitDomain(table)) {
    why = std::string("a Truelight InputLUT covers the input domain 0..1 only, and ") + what +
          " has another";
    return false;
  }
  if (table.Size() < 2 || table.Size() > kMaxTruelightInputLUT) {
    why = std::string("a Truelight InputLUT holds 2 to ") + std::to_string(kMaxTruelightInputLUT) +
          " entries, and " + what + " has " + std::to_string(table.Size());
    return false;
  }
  return true;
}

}  // namespace

bool bWriteTruelightText(const COv3DLUT& lut, std::string& out, std::string& why) {
  out.clear();
  why.clear();
  if (lut.Size() == 0 || !lut.Table()) {
    why = "the LUT is empty";
    return false;
  }
  const COv3DLUT* shaper = lut.InputShaper();
  if (!lut.Is3D()) {
    if (!CheckInputLUT(lut, "this 1-D table", why)) return false;
  } else if (lut.Size() > kMax3DSize) {
    why = "a Truelight cube holds at most " + std::to_string(kMax3DSize) + " points per axis";
    return false;
  } else if (shaper) {
    if (!CheckInputLUT(*shaper, "this LUT's input shaper", why)) return false;
  } else if (!HasUnitDomain(lut)) {
    why =
        "a Truelight cube without an InputLUT covers the input domain 0..1 only, and this LUT's "
        "domain differs";
    return false;
  }

  const size_t entries = lut.EntryCount();
  std::string text;
  text.reserve(256 + (entries + (shaper ? shaper->Size() : 0)) * 28);
  text += "# Truelight Cube v2.1\n# iDims 3\n# oDims 3\n";
  const std::string size = std::to_string(lut.Size());
  if (lut.Is3D()) text += "# width " + size + ' ' + size + ' ' + size + '\n';
  if (!lut.Is3D()) {
    text += "# lutLength " + size + "\n# InputLUT\n";
    for (size_t i = 0; i < entries; ++i)
      AppendExactEntry(text, lut.Table(), i);
  } else if (shaper) {
    const double texels = double(std::min(PowerOfTwoNotBelow(lut.Size()), kShaperTexelCap));
    text += "# lutLength " + std::to_string(shaper->Size()) + "\n# InputLUT\n";
    for (size_t i = 0; i < shaper->Size(); ++i) {
      // The shaper's outputs are the cube's texture coordinates; the reader rescales them.
      const float* entry = shaper->Table() + 4 * i;
      for (int c = 0; c < 3; ++c) {
        if (c) text += ' ';
        AppendExactFloat(text, float((double(entry[c]) - 0.5 / texels) / (1.0 - 1.0 / texels)));
      }
      text += '\n';
    }
  }
  if (lut.Is3D()) {
    text += "# Cube\n";
    for (size_t i = 0; i < entries; ++i)
      AppendExactEntry(text, lut.Table(), i);
  }
  text += "# end\n";
  out = std::move(text);
  return true;
}

}  // namespace Tincta
