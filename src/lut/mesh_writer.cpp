#include "lut/mesh_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "lut/formats/shaper_line.h"
#include "lut/writer_text.h"

namespace Tincta {
namespace {

constexpr uint32_t kMaxHeaderInputBits = 7;
// The shaper line's codes span 10-bit input, the form mesh files commonly carry.
constexpr double kShaperLineLastCode = 1023.0;
constexpr uint32_t kMaxHeaderlessPoints = kMaxShaperLinePoints;
// A shaper read back may differ from the one written by a float's rounding.
constexpr double kShaperTolerance = 1e-6;

// k when `size` is 2^k + 1 with k within the header's reach; -1 otherwise.
int HeaderInputBits(uint32_t size) {
  for (uint32_t k = 0; k <= kMaxHeaderInputBits; ++k) {
    if (size == (1u << k) + 1) return int(k);
  }
  return -1;
}

// The denominator a reader takes for a header-less mesh whose largest code is `largest`.
uint64_t InferredDenominator(uint64_t largest) {
  uint64_t levels = 1024;
  while (levels <= largest)
    levels <<= 1;
  return levels - 1;
}

std::vector<uint32_t> EvenPositions(uint32_t points) {
  if (points < 2) return {};
  std::vector<uint32_t> positions(points);
  for (uint32_t i = 0; i < points; ++i)
    positions[i] = uint32_t(std::lround(double(i) * kShaperLineLastCode / double(points - 1)));
  return positions;
}

std::string ShaperLine(const std::vector<uint32_t>& positions) {
  std::string line;
  for (const uint32_t position : positions) {
    if (!line.empty()) line += ' ';
    line += std::to_string(position);
  }
  return line + '\n';
}

// The texture coordinate a mesh reader gives `code` for a line of `positions`: the first texel
// centre up to the first position, rising by one texel between neighbouring positions.
double ShaperCoordinate(const std::vector<uint32_t>& positions, uint32_t code) {
  const size_t n = positions.size();
  if (code <= positions.front()) return 0.5 / double(n);
  if (code > positions.back()) return (double(n) - 0.5) / double(n);
  size_t i = 1;
  while (positions[i] < code)
    ++i;
  const double from = positions[i - 1], to = positions[i];
  return (double(i) - 0.5 + (double(code) - from) / (to - from)) / double(n);
}

// The shaper line from which a mesh reader builds `shaper` for a grid of `points`: position i is
// where the shaper reaches the centre of texel i. False when no line gives the shaper back (one
// curve for all channels, over 0..1, piecewise linear between whole codes).
bool PositionsOfShaper(const COv3DLUT& shaper, uint32_t points, std::vector<uint32_t>& positions) {
  if (shaper.Is3D() || !HasUnitDomain(shaper) || points < kMinShaperLinePoints) return false;
  const uint32_t codes = shaper.Size();
  const float* table = shaper.Table();
  auto at = [table](uint32_t code) { return double(table[4 * size_t(code)]); };
  for (uint32_t code = 0; code < codes; ++code) {
    if (table[4 * code] != table[4 * code + 1] || table[4 * code] != table[4 * code + 2]) {
      return false;
    }
  }
  positions.clear();
  // The first position is the last code still at the first texel centre; each later one the
  // first code that reaches its centre.
  uint32_t code = 0;
  while (code + 1 < codes && at(code + 1) <= 0.5 / points + kShaperTolerance)
    ++code;
  positions.push_back(code);
  for (uint32_t i = 1; i < points; ++i) {
    const double centre = (double(i) + 0.5) / points;
    while (code < codes && at(code) < centre - kShaperTolerance)
      ++code;
    if (code == codes) return false;
    positions.push_back(code);
  }
  const uint32_t last = positions.back();
  if ((last <= 1 ? 1 : PowerOfTwoNotBelow(last)) != codes) return false;
  for (uint32_t c = 0; c < codes; ++c) {
    if (!(std::fabs(ShaperCoordinate(positions, c) - at(c)) <= kShaperTolerance)) return false;
  }
  return true;
}

std::string Describe(float value) {
  std::string text;
  AppendExactFloat(text, value);
  return text;
}

}  // namespace

uint32_t DefaultMeshOutputBits(const COv3DLUT& lut) {
  return HeaderInputBits(lut.Size()) >= 0 ? 12 : 10;
}

bool bWriteMeshText(const COv3DLUT& lut, uint32_t outputBits, std::string& out, std::string& why) {
  out.clear();
  why.clear();
  if (lut.Size() == 0 || !lut.Table()) {
    why = "the LUT is empty";
    return false;
  }
  if (!lut.Is3D()) {
    why = "a mesh holds only 3-D tables, and this is a 1-D table";
    return false;
  }
  std::vector<uint32_t> positions = EvenPositions(lut.Size());
  if (lut.InputShaper() && !PositionsOfShaper(*lut.InputShaper(), lut.Size(), positions)) {
    why =
        "a mesh's shaper line holds one piecewise linear curve between whole input codes, and it "
        "has an input shaper that is not one";
    return false;
  }
  if (!lut.InputShaper() && !HasUnitDomain(lut)) {
    why = "a mesh covers the input domain 0..1 only, and this LUT's domain differs";
    return false;
  }
  const uint32_t size = lut.Size();
  const int inputBits = HeaderInputBits(size);
  if (inputBits < 0 && (size < kMinShaperLinePoints || size > kMaxHeaderlessPoints)) {
    why = "a mesh grid has 2^k + 1 points (k up to 7) or 4 to 256 points with a shaper line";
    return false;
  }
  if (outputBits == 0) outputBits = DefaultMeshOutputBits(lut);
  if (outputBits < kMinMeshOutputBits || outputBits > kMaxMeshOutputBits) {
    why = "a mesh's output depth is 1 to 32 bits";
    return false;
  }
  const uint64_t top = (uint64_t(1) << outputBits) - 1;
  const size_t entries = lut.EntryCount();
  std::vector<uint32_t> codes(entries * 3);
  uint64_t largest = 0;
  // File order: blue fastest, then green, then red.
  size_t i = 0;
  for (uint32_t r = 0; r < size; ++r) {
    for (uint32_t g = 0; g < size; ++g) {
      for (uint32_t b = 0; b < size; ++b, ++i) {
        const float* entry = lut.Table() + 4 * (r + size_t(size) * g + size_t(size) * size * b);
        for (int c = 0; c < 3; ++c) {
          const double code = std::round(double(entry[c]) * double(top));
          if (!(code >= 0.0 && code <= 4294967295.0)) {
            why = "a mesh holds codes from 0 up, and entry (" + std::to_string(r) + ", " +
                  std::to_string(g) + ", " + std::to_string(b) + ") holds " + Describe(entry[c]);
            return false;
          }
          codes[3 * i + c] = uint32_t(code);
          largest = std::max<uint64_t>(largest, uint64_t(code));
        }
      }
    }
  }
  if (inputBits < 0 && InferredDenominator(largest) != top) {
    why = "a " + std::to_string(size) +
          "-point mesh has no header to name its output depth, and with its largest code " +
          std::to_string(largest) + " it would be read back as " +
          std::to_string(InferredDenominator(largest) + 1) + " levels rather than " +
          std::to_string(top + 1) + " (use 10 bits, or a grid of 2^k + 1 points)";
    return false;
  }

  std::string text;
  text.reserve(64 + 16 * size + entries * 3 * 11);
  if (inputBits >= 0) {
    text += "3DMESH\nMesh " + std::to_string(inputBits) + ' ' + std::to_string(outputBits) + '\n';
  }
  // Three positions would read as an entry: smaller grids go without the line.
  if (size >= kMinShaperLinePoints) text += ShaperLine(positions);
  char line[40];
  for (size_t e = 0; e < entries; ++e) {
    const int n = std::snprintf(line, sizeof(line), "%u %u %u\n", codes[3 * e], codes[3 * e + 1],
                                codes[3 * e + 2]);
    text.append(line, size_t(n));
  }
  out = std::move(text);
  return true;
}

}  // namespace Tincta
