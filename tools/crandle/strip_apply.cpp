#include "strip_apply.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace crandle_tool {

int ApplyInStrips(const std::shared_ptr<void>& lut, host::LUTInterpolationMethod method,
                  const CPicture& source, const CPicture& destination, unsigned threads) {
  const uint32_t height = source.Height();
  const uint32_t strips = std::clamp<uint32_t>(threads, 1, height);
  std::vector<int> results(strips, CRANDLE::kResultOK);
  const auto applyStrip = [&](uint32_t strip) {
    const uint32_t first = uint32_t(uint64_t(height) * strip / strips);
    const uint32_t last = uint32_t(uint64_t(height) * (strip + 1) / strips);
    auto sourceView = source.View(first, last - first);
    auto destinationView = destination.View(first, last - first);
    results[strip] = sourceView.IsEmpty() || destinationView.IsEmpty()
                         ? CRANDLE::kResultEmptyArgument
                         : CRANDLE::ApplyLUT(sourceView, lut, method, destinationView);
  };
  if (strips == 1) {
    applyStrip(0);
  } else {
    std::vector<std::thread> workers;
    workers.reserve(strips);
    for (uint32_t strip = 0; strip < strips; ++strip)
      workers.emplace_back(applyStrip, strip);
    for (auto& worker : workers)
      worker.join();
  }
  for (int result : results)
    if (result != CRANDLE::kResultOK) return result;
  return CRANDLE::kResultOK;
}

}  // namespace crandle_tool
