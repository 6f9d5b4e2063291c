#include "lut/formats/truelight_reader.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "lut/formats/float_triple.h"
#include "lut/formats/text_grid.h"
#include "lut/formats/text_lines.h"

namespace Tincta {
namespace {

constexpr int kMaxInputLUTLength = 4096;
constexpr uint32_t kShaperUpsampleCap = 4096;
constexpr double kIdentityTolerance = 1e-5;

// One walk serves the probe and the read. Only the version line makes a text a Truelight file,
// and it may follow other header lines and even blocks: the probe walks to it exactly as the read
// does (blocks before it are read into a scratch object) and stops there.
class CTruelightReader {
 public:
  CTruelightReader(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                   const SParseOptions& options, bool probing)
      : lut_(lut), lines_(bytes, length), options_(options), probing_(probing) {}

  ETextWalk Walk();

 private:
  // Each returns false when the read fails.
  bool ReadHeader(std::string_view comment, bool& end);
  bool ReadInputLUT();
  bool ReadCube();
  ETextWalk Finish();
  // Notes why the read fails, at the line read last; returns false for the caller to return.
  bool FailAtEnd(std::string message) {
    NoteFailure(options_.diagnostics, 0, std::move(message));
    return false;
  }
  bool Fail(std::string message) {
    NoteFailure(options_.diagnostics, lines_.LineNumber(), std::move(message));
    return false;
  }

  COv3DLUT& lut_;
  CTextLines lines_;
  const SParseOptions& options_;
  const bool probing_;
  bool versionSeen_ = false;
  int lutLength_ = 0;
  int width_ = -1;  // -1: no width line yet
  bool tableRead_ = false;
  bool inputLUTRead_ = false;
  std::shared_ptr<COv3DLUT> shaper_;
};

ETextWalk CTruelightReader::Walk() {
  std::string_view line;
  bool failed = false;
  bool end = false;
  while (!failed && !end && !(probing_ && versionSeen_) && lines_.Next(line)) {
    if (line == "#") continue;
    if (line.front() != '#') {
      // Stray text outside the blocks: a broken Truelight file, or not one at all.
      if (options_.diagnostics) Fail(QuoteLine(line) + " is neither a comment nor in a block");
      failed = true;
      break;
    }
    failed = !ReadHeader(TrimLine(line.substr(1)), end);
  }
  // Only the version line makes a text a Truelight file; until then it is someone else's.
  if (!versionSeen_) return ETextWalk::NotMine;
  if (probing_) return ETextWalk::Mine;
  if (failed) return ETextWalk::Failed;
  return Finish();
}

bool CTruelightReader::ReadHeader(std::string_view comment, bool& end) {
  float version = 0;
  int value = 0;
  if (MayMatchKeyword(comment, "Truelight") &&
      ScanLine(comment, " Truelight Cube v%f ", &version) == 1) {
    versionSeen_ = true;
    return true;
  }
  // A number beyond an int fails the read rather than wrapping into some other value.
  const int dims =
      MayMatchKeyword(comment, "iDims") ? ScanFields(comment, " iDims %d ", &value) : 0;
  const auto outOfRange = [&] {
    return Fail(QuoteLine(comment) + " holds a number beyond 32 bits");
  };
  if (dims == kScanOutOfRange) return outOfRange();
  if (dims == 1) return value == 3 || Fail("iDims " + std::to_string(value) + ", expected 3");
  const int length =
      MayMatchKeyword(comment, "lutLength") ? ScanFields(comment, " lutLength %d ", &value) : 0;
  if (length == kScanOutOfRange) return outOfRange();
  if (length == 1) {
    if (value < 0 || value > kMaxInputLUTLength) {
      return Fail("lutLength " + std::to_string(value) + " is outside 0.." +
                  std::to_string(kMaxInputLUTLength));
    }
    lutLength_ = value;
    return true;
  }
  const int outDims =
      MayMatchKeyword(comment, "oDims") ? ScanFields(comment, " oDims %d ", &value) : 0;
  if (outDims == kScanOutOfRange) return outOfRange();
  if (outDims == 1) {
    if (value != 3) return Fail("oDims " + std::to_string(value) + ", expected 3");
    return options_.kindFilter != ELUTKindFilter::Only1D ||
           Fail("a 3-D table where only 1-D ones are taken");
  }
  int red = 0, green = 0, blue = 0;
  const int widths = MayMatchKeyword(comment, "width")
                         ? ScanFields(comment, " width %d %d %d", &red, &green, &blue)
                         : 0;
  if (widths == kScanOutOfRange) return outOfRange();
  if (widths == 3) {
    if (red != green || green != blue) return Fail("the width differs between axes");
    if (red < 0 || red > int(kMax3DSize)) {
      return Fail("width " + std::to_string(red) + " is outside 0.." + std::to_string(kMax3DSize));
    }
    width_ = red;
    return true;
  }
  if (EqualsIgnoringCase(comment, "InputLUT")) return ReadInputLUT();
  if (EqualsIgnoringCase(comment, "Cube")) return ReadCube();
  if (EqualsIgnoringCase(comment, "End")) end = true;
  return true;
}

bool CTruelightReader::ReadInputLUT() {
  // One table and one shaper a file: a second would silently replace the first.
  if (inputLUTRead_ || tableRead_) return Fail("a second table");
  inputLUTRead_ = true;
  // The identity test and the resampling need a first and a last entry.
  if (lutLength_ < 2) return Fail("lutLength " + std::to_string(lutLength_) + " is below 2");
  if (!lines_.HasRoomForLines(uint64_t(lutLength_))) {
    return Fail("the text is too short for " + std::to_string(lutLength_) + " InputLUT lines");
  }
  const uint32_t length = uint32_t(lutLength_);
  const bool asShaper = width_ >= 0;
  if (!asShaper && options_.kindFilter == ELUTKindFilter::Only3D) {
    return Fail("a 1-D table where only 3-D ones are taken");
  }

  auto shaper = std::make_shared<COv3DLUT>();
  COv3DLUT& target = asShaper ? *shaper : lut_;
  if (!target.Allocate(length, false)) return Fail("not enough memory for the table");

  // The shaper's output addresses texel centres of the cube as it will be uploaded.
  const double texels =
      double(std::min(PowerOfTwoNotBelow(uint32_t(width_ > 0 ? width_ : 1)), kTextGridUpsampleCap));
  bool identity = true;
  float* table = target.Table();
  std::string_view line;
  for (uint32_t i = 0; i < length; ++i) {
    float rgb[3] = {};
    if (!lines_.Next(line)) {
      return FailAtEnd("the text ends after " + std::to_string(i) + " of " +
                       std::to_string(length) + " InputLUT lines");
    }
    if (ScanFloatTriple(line, rgb) != 3) return Fail(QuoteLine(line) + " is not three numbers");
    const double expected = double(i) / double(length - 1);
    float* entry = table + 4 * size_t(i);
    for (int c = 0; c < 3; ++c) {
      if (!(std::fabs(double(rgb[c]) - expected) <= kIdentityTolerance)) identity = false;
      entry[c] = asShaper ? float(double(rgb[c]) * (1.0 - 1.0 / texels) + 0.5 / texels) : rgb[c];
    }
    entry[3] = 1.0f;
  }

  if (!asShaper) {
    tableRead_ = true;
    return true;
  }
  if (identity) return true;
  if (options_.upsampleToPowerOfTwo && !IsPowerOfTwo(length)) {
    if (!shaper->Resample(std::min(PowerOfTwoNotBelow(length), kShaperUpsampleCap))) {
      return Fail("resampling the shaper failed");
    }
  }
  shaper->SetDomain({0, 0, 0, 0}, {1, 1, 1, 1});
  shaper_ = std::move(shaper);
  return true;
}

bool CTruelightReader::ReadCube() {
  if (width_ <= 0) return true;  // no cube to read
  if (tableRead_) return Fail("a second table");
  if (options_.kindFilter == ELUTKindFilter::Only1D) {
    return Fail("a 3-D table where only 1-D ones are taken");
  }
  const uint32_t size = uint32_t(width_);
  const uint64_t entries = uint64_t(size) * size * size;
  if (!lines_.HasRoomForLines(entries)) {
    return Fail("the text is too short for " + std::to_string(entries) + " Cube lines");
  }
  if (!lut_.Allocate(size, true)) return Fail("not enough memory for the table");
  float* table = lut_.Table();
  std::string_view line;
  for (uint64_t i = 0; i < entries; ++i) {
    float* entry = table + 4 * i;
    if (!lines_.Next(line)) {
      return FailAtEnd("found " + std::to_string(i) + " entries, expected " +
                       std::to_string(entries));
    }
    if (ScanFloatTriple(line, entry) != 3) return Fail(QuoteLine(line) + " is not three numbers");
    entry[3] = 1.0f;
  }
  tableRead_ = true;
  return true;
}

ETextWalk CTruelightReader::Finish() {
  if (!tableRead_) {
    NoteFailure(options_.diagnostics, 0, "no InputLUT or Cube block holds a table");
    return ETextWalk::Failed;
  }
  if (!lut_.Is3D()) {
    lut_.SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});
    return ETextWalk::Loaded;
  }
  if (FinishTextGrid(lut_, std::move(shaper_), options_.upsampleToPowerOfTwo)) {
    return ETextWalk::Loaded;
  }
  NoteFailure(options_.diagnostics, 0, "resampling the cube failed");
  return ETextWalk::Failed;
}

}  // namespace

bool IsTruelight(const uint8_t* bytes, uint32_t length, const SParseOptions& options) {
  COv3DLUT scratch;
  return CTruelightReader(scratch, bytes, length, options, true).Walk() != ETextWalk::NotMine;
}

bool ReadTruelight(COv3DLUT& lut, const uint8_t* bytes, uint32_t length,
                   const SParseOptions& options) {
  return CTruelightReader(lut, bytes, length, options, false).Walk() == ETextWalk::Loaded;
}

}  // namespace Tincta
