#include "lut/formats/cube_reader.h"

#include <optional>
#include <string>
#include <string_view>

#include "lut/formats/float_triple.h"
#include "lut/formats/text_lines.h"

namespace Tincta {
namespace {

// No line with fewer than five characters yields three numbers ("0 0 0", "1-2-3"), and each
// data line is preceded by at least one line break.
constexpr uint64_t kLeastBytesPerEntry = 6;

bool IsScanfSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Whether `line` begins, after white space, with `keyword`. A line that does not cannot match a
// scanf format that starts with " keyword", so the data lines need not pay for two sscanf calls.
bool MayMatchKeyword(std::string_view line, std::string_view keyword) {
  size_t start = 0;
  while (start < line.size() && IsScanfSpace(line[start]))
    ++start;
  return line.substr(start).starts_with(keyword);
}

}  // namespace

EReadOutcome ReadCube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                      const SParseOptions& options) {
  CTextLines lines(bytes, length);
  Vec4 domainMin{0, 0, 0, 1};
  Vec4 domainMax{1, 1, 1, 1};
  std::optional<std::string> title;
  // `%s` has no width in these formats: the word buffer is as long as the line.
  std::string word;
  // Entries declared by the last size line; 0 before any, and after a declaration of 0 entries.
  size_t expected = 0;
  size_t stored = 0;
  bool allocated = false;

  std::string_view line;
  while (lines.Next(line)) {
    if (line.front() == '#') continue;
    if (line.starts_with("TITLE")) {
      char text[1024];
      if (ScanLine(line, " TITLE \"%1023[^\"] ", text) == 1) title = text;
      continue;
    }

    const bool mayBeDomain = MayMatchKeyword(line, "DOMAIN_");
    const bool mayBeSize = !mayBeDomain && MayMatchKeyword(line, "LUT_");
    if (mayBeDomain || mayBeSize) word.resize(line.size() + 1);
    float r = 0, g = 0, b = 0;
    if (mayBeDomain && ScanLine(line, " DOMAIN_%s %f %f %f", word.data(), &r, &g, &b) == 4) {
      const std::string_view name(word.c_str());
      if (EqualsIgnoringCase(name, "MIN")) {
        domainMin = {r, g, b, 1.0f};
      } else if (EqualsIgnoringCase(name, "MAX")) {
        domainMax = {r, g, b, 1.0f};
      } else {
        return EReadOutcome::Failed;
      }
      continue;
    }

    unsigned declared = 0;
    if (mayBeSize && ScanLine(line, " LUT_%s %u ", word.data(), &declared) == 2) {
      const bool is3D = EqualsIgnoringCase(word.c_str(), "3D_SIZE");
      if (is3D ? options.kindFilter == ELUTKindFilter::Only1D || declared > kMax3DSize
               : options.kindFilter == ELUTKindFilter::Only3D || declared > kMax1DEntries) {
        return EReadOutcome::Failed;
      }
      expected = is3D ? size_t(declared) * declared * declared : size_t(declared);
      stored = 0;
      // A table that the rest of the text is too short to fill cannot be completed whatever
      // follows, unless a later size line replaces it; it is counted but never allocated, so a
      // few bytes cannot ask for hundreds of megabytes.
      allocated = expected != 0 && expected * kLeastBytesPerEntry <= lines.RemainingBytes();
      if (allocated) {
        if (!lut.Allocate(declared, is3D)) return EReadOutcome::Failed;
      } else {
        lut.Clear();
      }
      continue;
    }

    if (expected == 0) return EReadOutcome::NotThisFormat;
    float rgb[3];
    if (ScanFloatTriple(line, rgb) != 3) break;
    if (allocated) {
      float* entry = lut.Table() + 4 * stored;
      entry[0] = rgb[0];
      entry[1] = rgb[1];
      entry[2] = rgb[2];
      entry[3] = 1.0f;
    }
    if (++stored == expected) break;
  }

  if (expected == 0) return EReadOutcome::NotThisFormat;
  // An unallocated table never fills (see above); the test keeps that promise explicit.
  if (stored < expected || !allocated) return EReadOutcome::Failed;
  if (title) lut.SetTitle(std::move(*title));
  lut.SetDomain(domainMin, domainMax);
  return EReadOutcome::Loaded;
}

}  // namespace Tincta
