#include "lut/formats/mesh_reader.h"

#include <algorithm>
#include <string>

#include "lut/formats/shaper_line.h"
#include "lut/formats/text_chars.h"
#include "lut/formats/text_grid.h"
#include "lut/formats/text_lines.h"

namespace Tincta {
namespace {

constexpr uint32_t kMaxMeshInputBits = 7;
constexpr uint32_t kMaxMeshOutputBits = 32;
constexpr uint32_t kMaxEntriesHeader = 128;

// Three plain unsigned integers separated by blanks, each fitting 32 bits: what sscanf would read,
// without its cost. False when the line is anything else.
bool ScanPlainCodeTriple(std::string_view line, unsigned (&values)[4]) {
  size_t cursor = 0;
  for (int i = 0; i < 3; ++i) {
    while (cursor < line.size() && IsBlank(line[cursor]))
      ++cursor;
    const size_t start = cursor;
    uint64_t value = 0;
    while (cursor < line.size() && IsDigit(line[cursor]) && cursor - start < 11) {
      value = value * 10 + uint64_t(line[cursor] - '0');
      ++cursor;
    }
    if (cursor == start || value > 0xFFFFFFFFu) return false;
    if (cursor < line.size() && !IsBlank(line[cursor])) return false;
    values[i] = unsigned(value);
  }
  while (cursor < line.size() && IsBlank(line[cursor]))
    ++cursor;
  return cursor == line.size();
}

// What a header line asks of the walk.
enum class EHeaderStep {
  kGoOn,
  // Reading ends here: no grid is known, so the text is someone else's.
  kEnd,
  kFail,
};

// One walk serves the probe (no object: the grid is checked but not allocated, and the walk stops
// at the first data line) and the read. The text is someone else's when no grid is known where
// the reading ends, or when the first line after the grid is neither data nor a shaper line.
class CMeshReader {
 public:
  CMeshReader(COv3DLUT* lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options)
      : lut_(lut), lines_(bytes, length), options_(options) {}

  ETextWalk Walk();

 private:
  // Each returns false when the read fails.
  bool ReadHeaderComment(std::string_view comment);
  bool AllocateGrid(uint32_t points);
  bool TakeShaper(std::string_view line, const SShaperLine& read);
  EHeaderStep ReadHeaderLine(std::string_view line);
  void StoreEntry(const unsigned (&values)[4]);
  ETextWalk Finish();
  // Notes why the read fails, at the line read last; the probe is given no record.
  bool Fail(std::string message) {
    NoteFailure(options_.diagnostics, lines_.LineNumber(), std::move(message));
    return false;
  }
  ETextWalk Failed(std::string message) {
    Fail(std::move(message));
    return ETextWalk::Failed;
  }

  COv3DLUT* lut_;
  CTextLines lines_;
  const SParseOptions& options_;
  bool gridKnown_ = false;
  uint32_t size_ = 0;
  size_t expected_ = 0;
  size_t stored_ = 0;
  // File order runs blue fastest, then green, then red.
  uint32_t red_ = 0, green_ = 0, blue_ = 0;
  // 2^O - 1 of a header; 0 while no header gave one.
  double outputDenominator_ = 0;
  uint64_t largestValue_ = 0;
  // The kept shaper line; its table is built only when the read succeeds, since a text may hold
  // any number of shaper lines (in comments) that replace one another.
  std::string_view shaperLine_;
  bool hasShaper_ = false;
  uint32_t shaperPoints_ = 0;
};

bool CMeshReader::AllocateGrid(uint32_t points) {
  if (options_.kindFilter == ELUTKindFilter::Only1D) {
    return Fail("a 3-D table where only 1-D ones are taken");
  }
  if (points == 0 || points > kMax3DSize) {
    return Fail("a grid of " + std::to_string(points) + " points is outside 1.." +
                std::to_string(kMax3DSize));
  }
  // A shaper made for another grid would send every input to the wrong texel.
  if (hasShaper_ && shaperPoints_ != points) {
    return Fail("the shaper line has " + std::to_string(shaperPoints_) + " points, the grid " +
                std::to_string(points));
  }
  const uint64_t entries = uint64_t(points) * points * points;
  // Too few bytes left for the data lines: fail before allocating for them.
  if (!lines_.HasRoomForLines(entries)) {
    return Fail("the text is too short for " + std::to_string(entries) + " entries");
  }
  if (lut_ && !lut_->Allocate(points, true)) return Fail("not enough memory for the table");
  gridKnown_ = true;
  size_ = points;
  expected_ = size_t(entries);
  return true;
}

bool CMeshReader::TakeShaper(std::string_view line, const SShaperLine& read) {
  if (read.uneven && gridKnown_ && read.pointCount != size_) {
    return Fail("the shaper line has " + std::to_string(read.pointCount) + " points, the grid " +
                std::to_string(size_));
  }
  hasShaper_ = read.uneven;
  shaperLine_ = line;
  shaperPoints_ = read.pointCount;
  return true;
}

bool CMeshReader::ReadHeaderComment(std::string_view comment) {
  // A number that wraps at 32 bits would declare some other grid: the read fails.
  unsigned red = 0, green = 0, blue = 0;
  const int sizes = ScanFields(comment, " LUT_SIZE : %u %u %u ", &red, &green, &blue);
  const auto outOfRange = [&] {
    return Fail(QuoteLine(comment) + " holds a number beyond 32 bits");
  };
  if (sizes == kScanOutOfRange) return outOfRange();
  if (sizes == 3) {
    if (red != green || green != blue) return Fail("LUT_SIZE differs between axes");
    outputDenominator_ = 1023;
    return AllocateGrid(red);
  }
  unsigned entries = 0;
  const int entryFields = ScanFields(comment, " entries = %u ", &entries);
  if (entryFields == kScanOutOfRange) return outOfRange();
  if (entryFields == 1) {
    if (options_.kindFilter == ELUTKindFilter::Only1D) {
      return Fail("a 3-D table where only 1-D ones are taken");
    }
    if (!IsPowerOfTwo(entries) || entries > kMaxEntriesHeader) {
      return Fail("entries = " + std::to_string(entries) + " is no power of two up to " +
                  std::to_string(kMaxEntriesHeader));
    }
    outputDenominator_ = 1023;
    return AllocateGrid(entries + 1);
  }
  comment = TrimLine(comment);
  if (comment.empty() || !IsDigit(comment.front())) return true;
  SShaperLine read;
  std::string whyInvalid;
  switch (ReadShaperLine(comment, options_.upsampleToPowerOfTwo, read, false,
                         options_.diagnostics ? &whyInvalid : nullptr)) {
    case EShaperLineOutcome::NotAShaperLine:
      return true;  // a comment that merely starts with a number
    case EShaperLineOutcome::Invalid:
      return Fail("shaper line: " + whyInvalid);
    case EShaperLineOutcome::Read:
      break;
  }
  return TakeShaper(comment, read);
}

EHeaderStep CMeshReader::ReadHeaderLine(std::string_view line) {
  std::string word(line.size() + 1, '\0');
  if (ScanLine(line, " 3DME%s ", word.data()) == 1) {
    word.resize(word.find('\0'));
    if (word != "SH" && word != "SHHW") return EHeaderStep::kEnd;
    if (options_.kindFilter == ELUTKindFilter::Only1D) {
      Fail("a 3-D table where only 1-D ones are taken");
      return EHeaderStep::kFail;
    }
    return EHeaderStep::kGoOn;
  }
  unsigned inputBits = 0, outputBits = 0;
  const int bits = ScanFields(line, " Mesh %u %u", &inputBits, &outputBits);
  if (bits == kScanOutOfRange) {
    Fail(QuoteLine(line) + " holds a number beyond 32 bits");
    return EHeaderStep::kFail;
  }
  if (bits == 2) {
    if (inputBits > kMaxMeshInputBits) {
      Fail("Mesh input bits " + std::to_string(inputBits) + " is above " +
           std::to_string(kMaxMeshInputBits));
      return EHeaderStep::kFail;
    }
    if (outputBits == 0 || outputBits > kMaxMeshOutputBits) {
      Fail("Mesh output bits " + std::to_string(outputBits) + " is outside 1.." +
           std::to_string(kMaxMeshOutputBits));
      return EHeaderStep::kFail;
    }
    outputDenominator_ = double((uint64_t(1) << outputBits) - 1);
    return AllocateGrid((1u << inputBits) + 1) ? EHeaderStep::kGoOn : EHeaderStep::kFail;
  }
  SShaperLine read;
  if (ReadShaperLine(line, options_.upsampleToPowerOfTwo, read, false) !=
      EShaperLineOutcome::Read) {
    return EHeaderStep::kEnd;  // not a mesh after all
  }
  hasShaper_ = false;  // this line's shaper replaces one from a comment
  if (!TakeShaper(line, read) || !AllocateGrid(read.pointCount)) return EHeaderStep::kFail;
  return EHeaderStep::kGoOn;
}

void CMeshReader::StoreEntry(const unsigned (&values)[4]) {
  float* entry =
      lut_->Table() + 4 * (size_t(red_) + size_t(size_) * green_ + size_t(size_) * size_ * blue_);
  for (int c = 0; c < 3; ++c) {
    largestValue_ = std::max<uint64_t>(largestValue_, values[c]);
    entry[c] =
        outputDenominator_ > 0 ? float(double(values[c]) / outputDenominator_) : float(values[c]);
  }
  entry[3] = 1.0f;
  ++stored_;
  if (++blue_ == size_) {
    blue_ = 0;
    if (++green_ == size_) {
      green_ = 0;
      ++red_;
    }
  }
}

ETextWalk CMeshReader::Walk() {
  std::string_view line;
  while (stored_ < expected_ || !gridKnown_) {
    if (!lines_.Next(line)) break;
    if (line == "#") continue;
    if (line.front() == '#') {
      if (gridKnown_) continue;
      if (!ReadHeaderComment(line.substr(1))) return ETextWalk::Failed;
      continue;
    }
    if (!gridKnown_) {
      const EHeaderStep step = ReadHeaderLine(line);
      if (step == EHeaderStep::kFail) return ETextWalk::Failed;
      if (step == EHeaderStep::kEnd) break;
      continue;
    }
    unsigned values[4] = {};
    const int fields = ScanMeshDataLine(line, values);
    // A code that wraps at 32 bits would store some other value.
    if (fields == kScanOutOfRange) return Failed(QuoteLine(line) + " holds a code beyond 32 bits");
    if (fields == 3) {
      // Once an entry is stored, nothing can hand the text on.
      if (!lut_) return ETextWalk::Mine;
      StoreEntry(values);
      continue;
    }
    if (stored_ > 0 || hasShaper_) {
      if (options_.diagnostics) Fail(QuoteLine(line) + " is not three codes");
      break;
    }
    // The shaper line of a file whose header came first.
    SShaperLine read;
    if (ReadShaperLine(line, options_.upsampleToPowerOfTwo, read, false) !=
        EShaperLineOutcome::Read) {
      return ETextWalk::NotMine;
    }
    if (!TakeShaper(line, read)) return ETextWalk::Failed;
  }
  if (options_.diagnostics && lut_ && gridKnown_ && stored_ == expected_)
    NoteSurplusLines(lines_, expected_, *options_.diagnostics);
  return Finish();
}

ETextWalk CMeshReader::Finish() {
  if (!gridKnown_) return ETextWalk::NotMine;
  if (!lut_) return ETextWalk::Mine;
  if (stored_ < expected_) {
    return Failed("found " + std::to_string(stored_) + " entries, expected " +
                  std::to_string(expected_));
  }

  if (outputDenominator_ == 0) {
    // No header named the output depth: take the least one that holds the largest value.
    uint64_t levels = 1024;
    if (largestValue_ >= 1024) {
      while (levels <= largestValue_)
        levels <<= 1;
    }
    const double denominator = double(levels - 1);
    float* table = lut_->Table();
    for (size_t i = 0; i < expected_; ++i) {
      for (int c = 0; c < 3; ++c)
        table[4 * i + c] = float(double(table[4 * i + c]) / denominator);
    }
  }

  SShaperLine built;
  if (hasShaper_ && (ReadShaperLine(shaperLine_, options_.upsampleToPowerOfTwo, built) !=
                         EShaperLineOutcome::Read ||
                     !built.shaper)) {
    NoteFailure(options_.diagnostics, 0, "building the shaper failed");
    return ETextWalk::Failed;
  }
  if (FinishTextGrid(*lut_, std::move(built.shaper), options_.upsampleToPowerOfTwo)) {
    return ETextWalk::Loaded;
  }
  NoteFailure(options_.diagnostics, 0, "resampling the cube failed");
  return ETextWalk::Failed;
}

}  // namespace

int ScanMeshDataLine(std::string_view line, unsigned (&values)[4]) {
  if (ScanPlainCodeTriple(line, values)) return 3;
  return ScanFields(line, " %u %u %u %u ", &values[0], &values[1], &values[2], &values[3]);
}

bool IsMesh(const uint8_t* bytes, uint32_t length, const SParseOptions& options) {
  return CMeshReader(nullptr, bytes, length, options).Walk() != ETextWalk::NotMine;
}

bool ReadMesh(COv3DLUT& lut, const uint8_t* bytes, uint32_t length, const SParseOptions& options) {
  return CMeshReader(&lut, bytes, length, options).Walk() == ETextWalk::Loaded;
}

}  // namespace Tincta
