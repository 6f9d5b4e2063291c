#include "look/look_grid.h"

#include <bit>
#include <cstring>
#include <new>

#include "foundation/heap_buffer.h"
#include "foundation/streaming_store.h"

namespace Tincta {
namespace {

uint32_t ReadU32BE(const uint8_t* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

uint16_t ReadU16BE(const uint8_t* p) {
  return uint16_t(p[0] << 8 | p[1]);
}

float ReadF32BE(const uint8_t* p) {
  const uint32_t bits = ReadU32BE(p);
  float value;
  std::memcpy(&value, &bits, 4);
  return value;
}

void StoreU32LE(uint8_t* out, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out[i] = static_cast<uint8_t>(value >> (8 * i));
}

void StoreF32LE(uint8_t* out, float value) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(out, &value, 4);
  } else {
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    StoreU32LE(out, bits);
  }
}

float ConvertSample(uint16_t sample, uint32_t divisor, double scale, double bias) {
  return float(double(sample) / divisor * scale + bias);
}

constexpr uint32_t kSampleValues = 65536;
// Grid points along k per pass of the walk. Each step of i starts a fresh run of the grid in
// another page, so longer runs (6 x 128 bytes, twelve cache lines) pay for that miss better; the
// converted rows (12 N bytes each) still mostly stay in the second-level cache. Measured on a
// 254-point grid: 16 and 32 clearly slower, 64 and 96 close, 128 best.
constexpr uint32_t kBlock = 128;
// How many steps of i ahead the grid is fetched: consecutive steps are 6 N^2 bytes apart, a
// stride that the processor does not foresee by itself.
constexpr uint32_t kFetchAhead = 4;
// Images larger than this are written around the caches (see ExchangeOuterAxesStreamed); smaller
// ones are written in place, faster while they fit.
constexpr size_t kStreamedImageBytes = size_t(16) << 20;

// Asks for the run of `points` triples that step i + kFetchAhead reads after `triple`.
void FetchAhead(const uint8_t* triple, uint32_t n, uint32_t i, uint32_t points) {
  if (i + kFetchAhead >= n) return;
  const uint8_t* ahead = triple + size_t(6) * kFetchAhead * n * n;
  for (uint32_t line = 0; line < 6 * points + 63; line += 64)
    __builtin_prefetch(ahead + line);
}

// Writes triple (i, j, k) of the grid to output point (k, j, i), output in the order k, j, i
// fastest. An image that fits the caches is written in place: a block of k is read together
// (contiguous in the grid) and written to its rows of the output, which are filled in order.
template <class Convert>
void ExchangeOuterAxesInCache(const uint8_t* samples, uint32_t n, uint8_t* values,
                              const Convert& convert) {
  const size_t outputRow = size_t(12) * n;  // one (k, j) row of i
  for (uint32_t k0 = 0; k0 < n; k0 += kBlock) {
    const uint32_t k1 = k0 + kBlock < n ? k0 + kBlock : n;
    for (uint32_t j = 0; j < n; ++j) {
      for (uint32_t i = 0; i < n; ++i) {
        const uint8_t* triple = samples + 6 * ((uint64_t(i) * n + j) * n + k0);
        FetchAhead(triple, n, i, k1 - k0);
        uint8_t* value = values + (uint64_t(k0) * n + j) * outputRow + 12 * size_t(i);
        for (uint32_t k = k0; k < k1; ++k, triple += 6, value += size_t(n) * outputRow) {
          for (int c = 0; c < 3; ++c)
            StoreF32LE(value + 4 * c, convert(ReadU16BE(triple + 2 * c)));
        }
      }
    }
  }
}

// The same for an image far larger than the caches. For one j and a block of k, the grid holds a
// run of k for each i (contiguous) and the output a row of i for each k: the block is converted
// into rows held aside, which are then copied out whole. Reading whole runs and writing whole rows
// is what keeps the walk near the speed of memory; crossing the image point by point costs a cache
// miss for nearly every value.
template <class Convert>
bool ExchangeOuterAxesStreamed(const uint8_t* samples, uint32_t n, uint8_t* values,
                               const Convert& convert) {
  const size_t outputRow = size_t(12) * n;  // one (k, j) row of i
  const size_t outputPlane = outputRow * n;
  std::unique_ptr<uint8_t[]> rows(new (std::nothrow) uint8_t[kBlock * outputRow]);
  if (!rows) return false;
  for (uint32_t j = 0; j < n; ++j) {
    for (uint32_t k0 = 0; k0 < n; k0 += kBlock) {
      const uint32_t k1 = k0 + kBlock < n ? k0 + kBlock : n;
      for (uint32_t i = 0; i < n; ++i) {
        const uint8_t* triple = samples + 6 * ((uint64_t(i) * n + j) * n + k0);
        FetchAhead(triple, n, i, k1 - k0);
        uint8_t* value = rows.get() + 12 * size_t(i);
        for (uint32_t k = k0; k < k1; ++k, triple += 6, value += outputRow) {
          for (int c = 0; c < 3; ++c)
            StoreF32LE(value + 4 * c, convert(ReadU16BE(triple + 2 * c)));
        }
      }
      uint8_t* row = values + k0 * outputPlane + j * outputRow;
      for (uint32_t k = k0; k < k1; ++k, row += outputPlane) {
        const uint8_t* held = rows.get() + (k - k0) * outputRow;
        StreamingCopy(row, held, outputRow);
      }
    }
  }
  FinishStreamingStores();
  return true;
}

template <class Convert>
bool ExchangeOuterAxes(const uint8_t* samples, uint32_t n, uint8_t* values, bool stream,
                       const Convert& convert) {
  if (stream) return ExchangeOuterAxesStreamed(samples, n, values, convert);
  ExchangeOuterAxesInCache(samples, n, values, convert);
  return true;
}

}  // namespace

bool ConvertLookGridToOTX3(const void* block, uint32_t length, std::unique_ptr<uint8_t[]>& image,
                           uint32_t& imageLength) {
  if (block == nullptr || length < kLookGridMinBytes) return false;
  const auto* grid = static_cast<const uint8_t*>(block);
  if (std::memcmp(grid + 4, "ALOK", 4) != 0) return false;
  const uint32_t dataOffset = ReadU32BE(grid);
  if (dataOffset < 29 || dataOffset >= length - 29) return false;
  const uint16_t n = ReadU16BE(grid + 24);
  if (uint16_t(n - 2) > 252) return false;
  const uint64_t triples = uint64_t(n) * n * n;
  if (length - dataOffset < 6 * triples) return false;

  imageLength = uint32_t(40 + 12 * triples);
  std::unique_ptr<uint8_t[]> out(new (std::nothrow) uint8_t[imageLength]);
  if (!out) return false;
  HintLargePages(out.get(), imageLength);

  uint32_t divisor = ReadU32BE(grid + 12);
  if (divisor == 0) divisor = 1;
  const double scale = ReadF32BE(grid + 16);
  const double bias = ReadF32BE(grid + 20);

  std::memcpy(out.get(), "OTX3", 4);
  StoreU32LE(out.get() + 4, n);
  StoreU32LE(out.get() + 8, 3);
  StoreU32LE(out.get() + 12, 0);
  for (int c = 0; c < 3; ++c)
    StoreF32LE(out.get() + 16 + 4 * c, 0.0f);
  for (int c = 0; c < 3; ++c)
    StoreF32LE(out.get() + 28 + 4 * c, 1.0f);

  // A sample has 65536 possible values: a large grid converts each of them once into a table and
  // looks the samples up (the same formula either way; without memory for the table, directly).
  const uint8_t* samples = grid + dataOffset;
  uint8_t* values = out.get() + 40;
  const bool stream = imageLength > kStreamedImageBytes;
  std::unique_ptr<float[]> table;
  if (3 * triples > kSampleValues) table.reset(new (std::nothrow) float[kSampleValues]);
  bool converted;
  if (table) {
    for (uint32_t sample = 0; sample < kSampleValues; ++sample)
      table[sample] = ConvertSample(uint16_t(sample), divisor, scale, bias);
    converted = ExchangeOuterAxes(samples, n, values, stream,
                                  [&](uint16_t sample) { return table[sample]; });
  } else {
    converted = ExchangeOuterAxes(samples, n, values, stream, [&](uint16_t sample) {
      return ConvertSample(sample, divisor, scale, bias);
    });
  }
  if (!converted) return false;
  image = std::move(out);
  return true;
}

}  // namespace Tincta
