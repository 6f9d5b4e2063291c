#include "lut_bake.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

#include "lut/lut_evaluate.h"

namespace crandle_tool {

bool BakeLUTs(std::span<const Tincta::COv3DLUT* const> luts, uint32_t size,
              Tincta::COv3DLUT& baked) {
  if (luts.empty() || size < 2 || size > Tincta::kMax3DSize || !baked.Allocate(size, true)) {
    return false;
  }
  Tincta::Rgb64 min, max;
  Tincta::InputDomainOf(*luts.front(), min, max);
  // A node's position from its index, so that the last node is the domain's end exactly.
  auto position = [&](int c, uint32_t i) {
    return i + 1 == size ? max[c] : min[c] + (max[c] - min[c]) * double(i) / double(size - 1);
  };
  float* table = baked.Table();
  auto bakeSlices = [&](uint32_t firstBlue, uint32_t endBlue) {
    for (uint32_t b = firstBlue; b < endBlue; ++b) {
      for (uint32_t g = 0; g < size; ++g) {
        float* entry = table + 4 * (size_t(size) * size * b + size_t(size) * g);
        for (uint32_t r = 0; r < size; ++r, entry += 4) {
          Tincta::Rgb64 rgb{position(0, r), position(1, g), position(2, b)};
          for (const Tincta::COv3DLUT* lut : luts)
            rgb = Tincta::EvaluateLUT(*lut, rgb);
          entry[0] = float(rgb[0]);
          entry[1] = float(rgb[1]);
          entry[2] = float(rgb[2]);
          entry[3] = 1.0f;
        }
      }
    }
  };
  // Blue slices are independent: spread them over the cores.
  const uint32_t workers = std::clamp(std::thread::hardware_concurrency(), 1u, size);
  std::vector<std::thread> threads;
  const uint32_t per = (size + workers - 1) / workers;
  for (uint32_t first = per; first < size; first += per) {
    const uint32_t end = std::min(size, first + per);
    try {
      threads.emplace_back(bakeSlices, first, end);
    } catch (const std::system_error&) {
      bakeSlices(first, end);  // no thread to be had: this one does the work
    }
  }
  bakeSlices(0, std::min(size, per));
  for (std::thread& thread : threads)
    thread.join();
  baked.SetDomain({float(min[0]), float(min[1]), float(min[2]), 0.0f},
                  {float(max[0]), float(max[1]), float(max[2]), 1.0f});
  return true;
}

}  // namespace crandle_tool
