#include "lut/formats/shaper_line.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "lut/formats/text_chars.h"

namespace Tincta {
namespace {

// Positions whose distance from the evenly spaced ones stays within this many codes describe
// the identity (files round 1023/16 * i to whole codes).
constexpr double kEvenSpacingTolerance = 1.0;

// Splits the line into unsigned integers. False when a token is anything else or the values
// decrease. Keeps at most `keep` values but checks every token.
bool ParsePositions(std::string_view line, size_t keep, std::vector<uint64_t>& positions,
                    uint64_t& count) {
  count = 0;
  uint64_t previous = 0;
  size_t cursor = 0;
  while (cursor < line.size()) {
    while (cursor < line.size() && IsBlank(line[cursor]))
      ++cursor;
    if (cursor == line.size()) break;
    uint64_t value = 0;
    const size_t start = cursor;
    while (cursor < line.size() && !IsBlank(line[cursor])) {
      const char c = line[cursor];
      if (!IsDigit(c)) return false;
      const uint64_t digit = uint64_t(c - '0');
      // Saturates: anything this large breaks the code range limit anyway.
      value = value > (std::numeric_limits<uint64_t>::max() - digit) / 10
                  ? std::numeric_limits<uint64_t>::max()
                  : value * 10 + digit;
      ++cursor;
    }
    if (cursor == start) return false;
    if (count > 0 && value < previous) return false;
    previous = value;
    if (positions.size() < keep) positions.push_back(value);
    ++count;
  }
  return true;
}

bool IsEvenlySpaced(const std::vector<uint64_t>& positions, uint32_t codes) {
  const size_t n = positions.size();
  for (size_t i = 0; i < n; ++i) {
    const double even = double(i) * double(codes - 1) / double(n - 1);
    if (std::fabs(double(positions[i]) - even) > kEvenSpacingTolerance) return false;
  }
  return true;
}

}  // namespace

EShaperLineOutcome ReadShaperLine(std::string_view line, bool upsampleToPowerOfTwo,
                                  SShaperLine& result, bool buildShaper, std::string* whyInvalid) {
  std::vector<uint64_t> positions;
  uint64_t count = 0;
  if (!ParsePositions(line, kMaxShaperLinePoints + 1, positions, count)) {
    return EShaperLineOutcome::NotAShaperLine;
  }
  if (count < kMinShaperLinePoints || count > kMaxShaperLinePoints) {
    if (whyInvalid) {
      *whyInvalid = (count > kMaxShaperLinePoints ? "more than " + std::to_string(count - 1)
                                                  : std::to_string(count)) +
                    " codes, where a shaper line holds " + std::to_string(kMinShaperLinePoints) +
                    " to " + std::to_string(kMaxShaperLinePoints);
    }
    return EShaperLineOutcome::Invalid;
  }

  const uint64_t last = positions.back();
  if (last > kMaxShaperLineCodes) {
    if (whyInvalid) {
      *whyInvalid = "the last code " + std::to_string(last) + " is above " +
                    std::to_string(kMaxShaperLineCodes);
    }
    return EShaperLineOutcome::Invalid;
  }
  const uint32_t codes = last <= 1 ? 1 : PowerOfTwoNotBelow(uint32_t(last));

  const uint32_t points = uint32_t(count);
  SShaperLine read;
  read.pointCount = points;
  read.uneven = !IsEvenlySpaced(positions, codes);
  if (!read.uneven || !buildShaper) {
    result = std::move(read);
    return EShaperLineOutcome::Read;
  }

  auto shaper = std::make_shared<COv3DLUT>();
  if (!shaper->Allocate(codes, false)) {
    if (whyInvalid) *whyInvalid = "not enough memory for the shaper";
    return EShaperLineOutcome::Invalid;
  }
  const double texels = upsampleToPowerOfTwo ? double(PowerOfTwoNotBelow(points)) : double(points);
  float* table = shaper->Table();
  size_t interval = 0;  // positions[interval] <= code once the code has passed the first position
  for (uint32_t code = 0; code < codes; ++code) {
    double coordinate;
    if (code <= positions.front()) {
      coordinate = 0.5 / texels;
    } else {
      while (interval + 1 < points && positions[interval + 1] < code)
        ++interval;
      if (interval + 1 == points) {
        coordinate = (0.5 + double(points - 1)) / texels;
      } else {
        // positions[interval] < code <= positions[interval + 1], so the interval is not empty.
        const double from = double(positions[interval]);
        const double to = double(positions[interval + 1]);
        coordinate = (0.5 + double(interval) + (double(code) - from) / (to - from)) / texels;
      }
    }
    float* entry = table + 4 * size_t(code);
    entry[0] = entry[1] = entry[2] = float(coordinate);
    entry[3] = 1.0f;
  }
  read.shaper = std::move(shaper);
  result = std::move(read);
  return EShaperLineOutcome::Read;
}

}  // namespace Tincta
