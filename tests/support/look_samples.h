// What the look tests share: camera look grids and look references built byte by byte, fuzz
// seeds, and a fixture that leaves the LUT cache and the shipped LUT table as it found them.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "host/settings.h"
#include "look/look_document_reader.h"
#include "look/shipped_luts.h"
#include "lut/lut_cache.h"

namespace crandle_test {

struct SGridLayout {
  uint16_t n = 2;
  uint32_t dataOffset = 32, divisor = 65535;
  float scale = 1.0f, bias = 0.0f;
  /// Sample of channel c at grid indices (i, j, k), i slowest; all zero when empty.
  std::function<uint16_t(uint32_t i, uint32_t j, uint32_t k, int c)> sample;
};

inline void PutWord(uint8_t* out, uint32_t value, bool bigEndian) {
  for (int i = 0; i < 4; ++i)
    out[i] = uint8_t(value >> (bigEndian ? 24 - 8 * i : 8 * i));
}

/// A big-endian "ALOK" grid block: header, zero bytes up to the data offset, the N^3 triples.
inline std::vector<uint8_t> MakeLookGrid(const SGridLayout& layout) {
  const uint32_t n = layout.n;
  std::vector<uint8_t> grid(layout.dataOffset + 6 * uint64_t(n) * n * n, 0);
  PutWord(grid.data(), layout.dataOffset, true);
  std::memcpy(grid.data() + 4, "ALOK", 4);
  PutWord(grid.data() + 12, layout.divisor, true);
  PutWord(grid.data() + 16, std::bit_cast<uint32_t>(layout.scale), true);
  PutWord(grid.data() + 20, std::bit_cast<uint32_t>(layout.bias), true);
  grid[24] = uint8_t(n >> 8);
  grid[25] = uint8_t(n);
  for (size_t at = layout.dataOffset, t = 0; layout.sample && at < grid.size(); at += 2, ++t) {
    const uint16_t value = layout.sample(t / 3 / n / n, t / 3 / n % n, t / 3 % n, int(t % 3));
    grid[at] = uint8_t(value >> 8);
    grid[at + 1] = uint8_t(value);
  }
  return grid;
}

/// A 4122-byte look reference record; a path of 2049 units fills the field and leaves no NUL.
inline std::vector<uint8_t> MakeLookReference(std::u16string_view path, uint32_t gridLength,
                                              uint64_t gridOffset, uint32_t cacheKey = 0,
                                              uint32_t version = 2) {
  std::vector<uint8_t> record(4122, 0);
  std::memcpy(record.data(), "AELT", 4);
  const uint32_t words[] = {version, gridLength, cacheKey, uint32_t(gridOffset),
                            uint32_t(gridOffset >> 32)};
  for (int i = 0; i < 5; ++i)
    PutWord(record.data() + 4 + 4 * i, words[i], false);
  for (size_t unit = 0; unit < path.size() && unit < 2049; ++unit) {
    record[24 + 2 * unit] = uint8_t(path[unit]);
    record[25 + 2 * unit] = uint8_t(path[unit] >> 8);
  }
  return record;
}

inline std::unique_ptr<Tincta::COvGradingDocument> ReadText(
    std::string_view text, Tincta::IOvEmbeddedLUTSource* payload = nullptr) {
  return Tincta::ReadLookDocument(text.data(), text.size(), payload);
}

/// The LUT parameter of the document's only operation, which must be named "LUT".
inline std::string OnlyLUTOperation(const Tincta::COvGradingDocument* document) {
  if (!document) return "(no document)";
  const auto& layers = document->Animation().Tracks().at(0).layers;
  EXPECT_EQ(layers.size(), 1u);
  const auto& operation = layers.at(0).keyframes.at(0).operations.at(0);
  EXPECT_EQ(operation.Name(), "LUT");
  return operation.Parameter("LUT") ? *operation.Parameter("LUT") : "(none)";
}

/// With CRANDLE_WRITE_FUZZ_SEEDS set to a folder, writes <folder>/look_document/<name>, an input
/// of the look document fuzz target: a 32-bit little-endian text length, the text, the payload.
/// fuzz/corpus/ is made this way.
inline void WriteLookDocumentSeed(const std::string& name, std::string_view text,
                                  std::string_view payload = {}) {
  const char* folder = std::getenv("CRANDLE_WRITE_FUZZ_SEEDS");
  if (!folder || !*folder) return;
  std::filesystem::create_directories(std::filesystem::path(folder) / "look_document");
  char length[4];
  PutWord(reinterpret_cast<uint8_t*>(length), uint32_t(text.size()), false);
  std::ofstream out(std::filesystem::path(folder) / "look_document" / name, std::ios::binary);
  out << std::string_view(length, 4) << text << payload;
  EXPECT_TRUE(out.good()) << name;
}

class LookTest : public testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }
  static void Reset() {
    host::Settings::Instance().Remove(host::kSettingShippedLUTDirectory);
    Tincta::COvShippedLUTTable::Instance().Rebuild();
    Tincta::COvLUTCache::Instance().EvictUnused();
  }
};

}  // namespace crandle_test
