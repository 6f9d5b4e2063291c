// What the look tests share: camera look grids and look references built byte by byte, LUT objects
// with chosen entries, a count of open file descriptors, and a fixture that leaves the LUT cache
// and the shipped LUT table as it found them.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lut/lut3d.h"

namespace crandle_test {

/// Sample of channel c at grid indices (i, j, k), i slowest.
using GridSample = std::function<uint16_t(uint32_t i, uint32_t j, uint32_t k, int c)>;

struct SGridLayout {
  uint16_t n = 2;
  uint32_t dataOffset = 32;
  uint32_t divisor = 65535;
  float scale = 1.0f;
  float bias = 0.0f;
  GridSample sample;
  /// Bytes after the samples.
  uint32_t trailingBytes = 0;
};

/// A big-endian "ALOK" grid block: header, zero bytes up to the data offset, the N^3 triples.
std::vector<uint8_t> MakeLookGrid(const SGridLayout& layout);

/// A 4122-byte look reference record, the path in UTF-16LE (a path of 2049 units fills the field
/// and leaves no NUL).
std::vector<uint8_t> MakeLookReference(std::u16string_view path, uint32_t gridLength,
                                       uint64_t gridOffset, uint32_t cacheKey = 0,
                                       uint32_t version = 2);

/// A 1-D table with the given RGB entries (alpha 1), domain 0..1, no path, no title.
std::unique_ptr<Tincta::COv3DLUT> MakeLUT1D(const std::vector<std::array<float, 3>>& entries);
/// A 3-D table of `n` points holding f(r, g, b) at each grid point.
std::unique_ptr<Tincta::COv3DLUT> MakeLUT3D(
    uint32_t n, const std::function<std::array<float, 3>(uint32_t, uint32_t, uint32_t)>& f);

/// Entry (r, g, b) of a 3-D table as RGBA.
std::array<float, 4> EntryOf(const Tincta::COv3DLUT& lut, uint32_t r, uint32_t g, uint32_t b);

/// File descriptors this process holds open.
size_t OpenDescriptorCount();

/// With CRANDLE_WRITE_FUZZ_SEEDS set to a folder, writes `bytes` to <folder>/<target>/<name>.
void WriteFuzzSeedIfAsked(std::string_view target, std::string_view name, std::string_view bytes);

/// The fuzz target's input: a 32-bit little-endian text length, the text, the payload.
std::string FuzzInput(std::string_view text, std::string_view payload);

class LookTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace crandle_test
