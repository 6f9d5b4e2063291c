#include "look_test_support.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/settings.h"
#include "look/shipped_luts.h"
#include "lut/lut_cache.h"

namespace crandle_test {
namespace {

void PutU32BE(std::vector<uint8_t>& out, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out[at + i] = uint8_t(value >> (24 - 8 * i));
}

void PutU32LE(uint8_t* out, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out[i] = uint8_t(value >> (8 * i));
}

void ResetLookState() {
  host::Settings::Instance().Remove(host::kSettingShippedLUTDirectory);
  host::Settings::Instance().Remove(host::kSettingAlwaysUpsampleToPoT);
  Tincta::COvShippedLUTTable::Instance().Rebuild();
  Tincta::COvLUTCache::Instance().EvictUnused();
}

}  // namespace

std::vector<uint8_t> MakeLookGrid(const SGridLayout& layout) {
  const uint64_t n = layout.n;
  std::vector<uint8_t> grid(layout.dataOffset + 6 * n * n * n + layout.trailingBytes, 0);
  PutU32BE(grid, 0, layout.dataOffset);
  std::memcpy(grid.data() + 4, "ALOK", 4);
  PutU32BE(grid, 12, layout.divisor);
  uint32_t bits;
  std::memcpy(&bits, &layout.scale, 4);
  PutU32BE(grid, 16, bits);
  std::memcpy(&bits, &layout.bias, 4);
  PutU32BE(grid, 20, bits);
  grid[24] = uint8_t(layout.n >> 8);
  grid[25] = uint8_t(layout.n);
  if (!layout.sample) return grid;
  uint8_t* cursor = grid.data() + layout.dataOffset;
  for (uint32_t i = 0; i < n; ++i) {
    for (uint32_t j = 0; j < n; ++j) {
      for (uint32_t k = 0; k < n; ++k) {
        for (int c = 0; c < 3; ++c) {
          const uint16_t value = layout.sample(i, j, k, c);
          *cursor++ = uint8_t(value >> 8);
          *cursor++ = uint8_t(value);
        }
      }
    }
  }
  return grid;
}

std::vector<uint8_t> MakeLookReference(std::u16string_view path, uint32_t gridLength,
                                       uint64_t gridOffset, uint32_t cacheKey, uint32_t version) {
  std::vector<uint8_t> record(4122, 0);
  std::memcpy(record.data(), "AELT", 4);
  PutU32LE(record.data() + 4, version);
  PutU32LE(record.data() + 8, gridLength);
  PutU32LE(record.data() + 12, cacheKey);
  PutU32LE(record.data() + 16, uint32_t(gridOffset));
  PutU32LE(record.data() + 20, uint32_t(gridOffset >> 32));
  for (size_t unit = 0; unit < path.size() && unit < 2049; ++unit) {
    record[24 + 2 * unit] = uint8_t(path[unit]);
    record[25 + 2 * unit] = uint8_t(path[unit] >> 8);
  }
  return record;
}

std::unique_ptr<Tincta::COv3DLUT> MakeLUT1D(const std::vector<std::array<float, 3>>& entries) {
  auto lut = std::make_unique<Tincta::COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(uint32_t(entries.size()), false));
  for (size_t i = 0; i < entries.size(); ++i) {
    float* entry = lut->Table() + 4 * i;
    entry[0] = entries[i][0];
    entry[1] = entries[i][1];
    entry[2] = entries[i][2];
    entry[3] = 1.0f;
  }
  lut->SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});
  return lut;
}

std::unique_ptr<Tincta::COv3DLUT> MakeLUT3D(
    uint32_t n, const std::function<std::array<float, 3>(uint32_t, uint32_t, uint32_t)>& f) {
  auto lut = std::make_unique<Tincta::COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, true));
  for (uint32_t b = 0; b < n; ++b) {
    for (uint32_t g = 0; g < n; ++g) {
      for (uint32_t r = 0; r < n; ++r) {
        const auto value = f(r, g, b);
        float* entry = lut->Table() + 4 * (r + n * g + n * n * b);
        entry[0] = value[0];
        entry[1] = value[1];
        entry[2] = value[2];
        entry[3] = 1.0f;
      }
    }
  }
  lut->SetDomain({0, 0, 0, 1}, {1, 1, 1, 1});
  return lut;
}

std::array<float, 4> EntryOf(const Tincta::COv3DLUT& lut, uint32_t r, uint32_t g, uint32_t b) {
  const size_t n = lut.Size();
  const float* entry = lut.Table() + 4 * (r + n * g + n * n * b);
  return {entry[0], entry[1], entry[2], entry[3]};
}

size_t OpenDescriptorCount() {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++count;
  }
  return count;
}

void WriteFuzzSeedIfAsked(std::string_view target, std::string_view name, std::string_view bytes) {
  const char* folder = std::getenv("CRANDLE_WRITE_FUZZ_SEEDS");
  if (!folder || !*folder) return;
  const auto directory = std::filesystem::path(folder) / std::string(target);
  std::filesystem::create_directories(directory);
  std::ofstream out(directory / std::string(name), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), std::streamsize(bytes.size()));
  EXPECT_TRUE(out.good()) << name;
}

std::string FuzzInput(std::string_view text, std::string_view payload) {
  std::string input(4, '\0');
  PutU32LE(reinterpret_cast<uint8_t*>(input.data()), uint32_t(text.size()));
  input.append(text);
  input.append(payload);
  return input;
}

void LookTest::SetUp() {
  ResetLookState();
}
void LookTest::TearDown() {
  ResetLookState();
}

}  // namespace crandle_test
