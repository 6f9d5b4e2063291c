// Resampling a table to another size through the keyframe curve, one axis at a time.
#include <array>
#include <cstring>
#include <memory>
#include <new>

#include "lut/hermite_curve.h"
#include "lut/lut3d.h"
#include "lut/lut_cache.h"

namespace Tincta {
namespace {

using Extents = std::array<uint32_t, 3>;

// Sample i of n sits at i / (n − 1); a single sample at 0.
double SamplePosition(uint32_t index, uint32_t count) {
  return count > 1 ? double(index) / double(count - 1) : 0.0;
}

// One run of `from` RGBA entries, `sourceStep` floats apart, becomes `to` entries `targetStep`
// floats apart.
void ResampleRun(const float* source, size_t sourceStep, uint32_t from, float* target,
                 size_t targetStep, uint32_t to, std::array<COvHermiteCurve, 3>& curves) {
  for (int c = 0; c < 3; ++c) {
    curves[c].Clear();
    for (uint32_t i = 0; i < from; ++i) {
      curves[c].AddKey(SamplePosition(i, from), source[i * sourceStep + size_t(c)]);
    }
  }
  std::array<COvHermiteCurve::SAscendingCursor, 3> cursors{};
  for (uint32_t j = 0; j < to; ++j) {
    const double position = SamplePosition(j, to);
    float* entry = target + j * targetStep;
    for (size_t c = 0; c < 3; ++c)
      entry[c] = float(curves[c].EvaluateAscending(position, cursors[c]));
    entry[3] = 1.0f;
  }
}

// Resamples a grid of RGBA entries (red fastest) along `axis` (0 red, 1 green, 2 blue) to `to`
// points; the target grid has the same extents except along that axis.
void ResampleAxis(const float* source, const Extents& extents, int axis, uint32_t to, float* target,
                  std::array<COvHermiteCurve, 3>& curves) {
  Extents targetExtents = extents;
  targetExtents[size_t(axis)] = to;
  const std::array<size_t, 3> sourceStride{4, 4 * size_t(extents[0]),
                                           4 * size_t(extents[0]) * extents[1]};
  const std::array<size_t, 3> targetStride{4, 4 * size_t(targetExtents[0]),
                                           4 * size_t(targetExtents[0]) * targetExtents[1]};
  const size_t outer = size_t(axis + 2) % 3;
  const size_t inner = size_t(axis + 1) % 3;
  for (uint32_t o = 0; o < extents[outer]; ++o) {
    for (uint32_t i = 0; i < extents[inner]; ++i) {
      ResampleRun(source + o * sourceStride[outer] + i * sourceStride[inner],
                  sourceStride[size_t(axis)], extents[size_t(axis)],
                  target + o * targetStride[outer] + i * targetStride[inner],
                  targetStride[size_t(axis)], to, curves);
    }
  }
}

std::unique_ptr<float[]> AllocateEntries(uint64_t entries) {
  return std::unique_ptr<float[]>(new (std::nothrow) float[entries * 4]);
}

}  // namespace

bool COv3DLUT::Resample(uint32_t newSize) {
  if (newSize == 0 || newSize == size_) return true;
  // An empty table has nothing to resample; a cache entry's size is part of the cache's books.
  if (!table_ || isCacheEntry_) return false;
  // Keeps every byte count below 2^64 (a 65536-point cube is 2^52 bytes: no memory holds it).
  constexpr uint32_t kLargest3DSize = 1u << 16;
  if (is3D_ && newSize > kLargest3DSize) return false;

  const uint32_t oldSize = size_;
  COv3DLUT resampled;
  if (!resampled.Allocate(newSize, is3D_)) return false;
  std::array<COvHermiteCurve, 3> curves;
  if (!is3D_) {
    ResampleRun(table_, 4, oldSize, resampled.table_, 4, newSize, curves);
  } else {
    // Red, then green, then blue: (N, N, N) -> (M, N, N) -> (M, M, N) -> (M, M, M). The first two
    // axes are done one blue slice at a time through two slice-sized buffers, so that only the
    // (M, M, N) grid is held whole; when the table is this object's own and does not grow, that
    // grid overwrites it in place (slice b lands at or before where slice b was read from).
    const bool inPlace = cacheKey_.empty() && newSize <= oldSize;
    const auto alongRed = AllocateEntries(uint64_t(newSize) * oldSize);
    const auto alongGreen = AllocateEntries(uint64_t(newSize) * newSize);
    const auto separate =
        inPlace ? nullptr : AllocateEntries(uint64_t(newSize) * newSize * oldSize);
    if (!alongRed || !alongGreen || (!inPlace && !separate)) return false;
    float* const crossSlices = inPlace ? table_ : separate.get();
    const size_t oldSlice = 4 * size_t(oldSize) * oldSize;
    const size_t newSlice = 4 * size_t(newSize) * newSize;
    for (uint32_t blue = 0; blue < oldSize; ++blue) {
      ResampleAxis(table_ + blue * oldSlice, {oldSize, oldSize, 1}, 0, newSize, alongRed.get(),
                   curves);
      ResampleAxis(alongRed.get(), {newSize, oldSize, 1}, 1, newSize, alongGreen.get(), curves);
      std::memcpy(crossSlices + blue * newSlice, alongGreen.get(), newSlice * sizeof(float));
    }
    ResampleAxis(crossSlices, {newSize, newSize, oldSize}, 2, newSize, resampled.table_, curves);
  }

  // The new table is this object's own: a cache user leaves its entry, keeping its shaper.
  if (!cacheKey_.empty()) {
    const std::string key = std::move(cacheKey_);
    cacheKey_.clear();
    COvLUTCache::Instance().ReleaseUser(key);
  }
  storage_ = std::move(resampled.storage_);
  table_ = resampled.table_;
  resampled.table_ = nullptr;
  resampled.size_ = 0;
  size_ = newSize;
  strideGreen_ = is3D_ ? newSize * 4 : 0;
  strideBlue_ = is3D_ ? newSize * newSize * 4 : 0;
  {
    std::lock_guard lock(digestMutex_);
    contentDigest_.reset();
  }
  SetDomain(domainMin_, domainMax_);
  return true;
}

}  // namespace Tincta
