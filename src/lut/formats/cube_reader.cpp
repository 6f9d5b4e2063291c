#include "lut/formats/cube_reader.h"

#include <optional>
#include <string>
#include <string_view>

#include "lut/formats/float_triple.h"
#include "lut/formats/text_chars.h"
#include "lut/formats/text_lines.h"

namespace Tincta {
namespace {

// One walk over the lines serves the probe (no object: nothing is allocated or stored) and the
// read. The text is someone else's when a data line meets no declared entries, which happens
// before any size line and after a size line of 0 entries ("LUT_3D_INPUT_RANGE 0 1").
class CCubeWalk {
 public:
  CCubeWalk(COv3DLUT* lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options)
      : lut_(lut),
        bytes_(reinterpret_cast<const char*>(bytes), length),
        lines_(bytes, length),
        options_(options) {}

  ETextWalk Walk();

 private:
  // Only the read notes anything; the probe is given no record.
  ETextWalk Fail(std::string message) {
    NoteFailure(options_.diagnostics, lines_.LineNumber(), std::move(message));
    return ETextWalk::Failed;
  }

  // Probing: whether a size line may still follow; without one, the walk can only end as a cube.
  bool SizeLineMayFollow();

  COv3DLUT* lut_;
  std::string_view bytes_;
  CTextLines lines_;
  const SParseOptions& options_;
  // Where the next "LUT_" lies in the text, for the probe; npos when none is left.
  size_t nextKeyword_ = 0;
};

bool CCubeWalk::SizeLineMayFollow() {
  const size_t cursor = bytes_.size() - size_t(lines_.RemainingBytes());
  if (nextKeyword_ != std::string_view::npos && nextKeyword_ < cursor) {
    nextKeyword_ = bytes_.find("LUT_", cursor);
  }
  return nextKeyword_ != std::string_view::npos;
}

ETextWalk CCubeWalk::Walk() {
  Vec4 domainMin{0, 0, 0, 1};
  Vec4 domainMax{1, 1, 1, 1};
  std::optional<std::string> title;
  // `%s` has no width in these formats: the word buffer is as long as the line.
  std::string word;
  // Entries declared by the last size line; 0 before any, and after a declaration of 0 entries.
  size_t expected = 0;
  size_t stored = 0;
  bool allocated = false;
  uint32_t declaredSize = 0;
  bool declared3D = false;

  std::string_view line;
  while (lines_.Next(line)) {
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
        return Fail("DOMAIN_" + std::string(name) + " is neither DOMAIN_MIN nor DOMAIN_MAX");
      }
      continue;
    }

    unsigned declared = 0;
    const int sizeFields = mayBeSize ? ScanFields(line, " LUT_%s %u ", word.data(), &declared) : 0;
    // A size that wraps at 32 bits would declare some other table.
    if (sizeFields == kScanOutOfRange)
      return Fail(QuoteLine(line) + " declares a size beyond 32 bits");
    if (sizeFields == 2) {
      const bool is3D = EqualsIgnoringCase(word.c_str(), "3D_SIZE");
      if (is3D ? options_.kindFilter == ELUTKindFilter::Only1D || declared > kMax3DSize
               : options_.kindFilter == ELUTKindFilter::Only3D || declared > kMax1DEntries) {
        if (!options_.diagnostics) return ETextWalk::Failed;
        const std::string keyword = "LUT_" + std::string(word.c_str());
        if (is3D && declared > kMax3DSize)
          return Fail(keyword + " " + std::to_string(declared) + " is above " +
                      std::to_string(kMax3DSize));
        if (!is3D && declared > kMax1DEntries)
          return Fail(keyword + " " + std::to_string(declared) + " is above " +
                      std::to_string(kMax1DEntries) + " (read as a 1-D size)");
        return Fail(keyword +
                    std::string(is3D ? " declares a 3-D table where only 1-D ones are taken"
                                     : " declares a 1-D table where only 3-D ones are taken"));
      }
      expected = is3D ? size_t(declared) * declared * declared : size_t(declared);
      stored = 0;
      // The table is allocated at the first data line, not here: a run of size lines, each
      // replacing the last, then costs no memory at all.
      allocated = false;
      declaredSize = declared;
      declared3D = is3D;
      if (lut_) lut_->Clear();
      continue;
    }

    if (expected == 0) return ETextWalk::NotMine;
    if (!lut_ && !SizeLineMayFollow()) return ETextWalk::Mine;
    float rgb[3];
    if (ScanFloatTriple(line, rgb) != 3) {
      if (options_.diagnostics) Fail(QuoteLine(line) + " is not three numbers");
      break;
    }
    // A table that the rest of the text is too short to fill cannot be completed whatever
    // follows, unless a later size line replaces it; it is counted but never allocated.
    if (stored == 0 && lut_ && lines_.HasRoomForLines(expected - 1)) {
      if (!lut_->Allocate(declaredSize, declared3D)) return Fail("not enough memory for the table");
      allocated = true;
    }
    if (allocated && lut_) {
      float* entry = lut_->Table() + 4 * stored;
      entry[0] = rgb[0];
      entry[1] = rgb[1];
      entry[2] = rgb[2];
      entry[3] = 1.0f;
    }
    if (++stored == expected) {
      if (options_.diagnostics && lut_) NoteSurplusLines(lines_, expected, *options_.diagnostics);
      break;
    }
  }

  if (expected == 0) return ETextWalk::NotMine;
  if (!lut_) return ETextWalk::Mine;
  // An unallocated table never fills (see above); the test keeps that promise explicit.
  if (stored < expected || !allocated) {
    if (options_.diagnostics) {
      options_.diagnostics->Fail(
          0, "found " + std::to_string(stored) + " entries, expected " + std::to_string(expected));
    }
    return ETextWalk::Failed;
  }
  if (title) lut_->SetTitle(std::move(*title));
  lut_->SetDomain(domainMin, domainMax);
  return ETextWalk::Loaded;
}

}  // namespace

bool IsCube(const uint8_t* bytes, uint32_t length, const SParseOptions& options) {
  return CCubeWalk(nullptr, bytes, length, options).Walk() != ETextWalk::NotMine;
}

bool ReadCube(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options) {
  return CCubeWalk(&lut, bytes, length, options).Walk() == ETextWalk::Loaded;
}

}  // namespace Tincta
