#include "lut_bake.h"

#include "crandle/crandle.h"
#include "picture.h"
#include "strip_apply.h"

namespace crandle_tool {

int BakeLUT(const std::shared_ptr<void>& lut, uint32_t size, Tincta::COv3DLUT& baked) {
  // Node (r, g, b) sits at column r of row g + size * b: the table's own order, red fastest.
  CPicture grid;
  CPicture result;
  if (size < 2 || !grid.Allocate(size, size * size, host::kPixelFormat_BGRA_4444_32f) ||
      !result.Allocate(size, size * size, host::kPixelFormat_BGRA_4444_32f) ||
      !baked.Allocate(size, true)) {
    return CRANDLE::kResultLUTFailed;
  }
  const float step = 1.0f / float(size - 1);
  auto* node = reinterpret_cast<float*>(grid.Data());
  for (uint32_t b = 0; b < size; ++b)
    for (uint32_t g = 0; g < size; ++g)
      for (uint32_t r = 0; r < size; ++r, node += 4) {
        node[0] = float(b) * step;
        node[1] = float(g) * step;
        node[2] = float(r) * step;
        node[3] = 1.0f;
      }
  const int applied = ApplyInStrips(lut, host::LUTInterpolationMethod::Trilinear, grid, result, 1);
  if (applied != CRANDLE::kResultOK) return applied;
  const auto* bgra = reinterpret_cast<const float*>(result.Data());
  float* entry = baked.Table();
  for (size_t i = 0, n = baked.EntryCount(); i < n; ++i, bgra += 4, entry += 4) {
    entry[0] = bgra[2];
    entry[1] = bgra[1];
    entry[2] = bgra[0];
    entry[3] = 1.0f;
  }
  return CRANDLE::kResultOK;
}

}  // namespace crandle_tool
