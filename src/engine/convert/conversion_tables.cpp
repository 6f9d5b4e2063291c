#include "engine/convert/conversion_tables.h"

#include <bit>
#include <memory>
#include <mutex>
#include <new>

#include "engine/frame_buffer/frame_buffer_format.h"
#include "engine/frame_buffer/half_float.h"

namespace Tincta {
namespace {

struct STableCache {
  std::mutex mutex;
  std::unique_ptr<float[]> tables[kPrecisionCount][kPrecisionCount];
};

STableCache& Cache() {
  static STableCache cache;
  return cache;
}

}  // namespace

float CodeValue(uint32_t code, uint32_t sourcePrecision, uint32_t targetPrecision) {
  switch (sourcePrecision) {
    case kPrecision8Bits:
      return static_cast<float>(code / 255.0);
    case kPrecision10Bits:
    case kPrecision10Plus2Bits:
      return static_cast<float>(code / 1023.0);
    case kPrecision16BitInt:
      if (targetPrecision == kPrecision8Bits) return static_cast<float>((code >> 8) / 255.0);
      return static_cast<float>(code / 65535.0);
    case kPrecision16BitFloat:
      return HalfToFloat(static_cast<uint16_t>(code));
    case kPrecision32BitInt:
      return static_cast<float>(code / 4294967295.0);
    default:
      return std::bit_cast<float>(code);
  }
}

size_t ConversionTableSize(uint32_t sourcePrecision) {
  switch (sourcePrecision) {
    case kPrecision8Bits:
      return 256;
    case kPrecision10Bits:
    case kPrecision10Plus2Bits:
      return 1024;
    case kPrecision16BitInt:
    case kPrecision16BitFloat:
      return 65536;
    default:
      return 0;
  }
}

const float* ConversionTable(uint32_t sourcePrecision, uint32_t targetPrecision) {
  const size_t size = ConversionTableSize(sourcePrecision);
  if (size == 0 || targetPrecision >= kPrecisionCount) return nullptr;
  STableCache& cache = Cache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  auto& table = cache.tables[sourcePrecision][targetPrecision];
  if (!table) {
    std::unique_ptr<float[]> built(new (std::nothrow) float[size]);
    if (!built) return nullptr;
    for (uint32_t code = 0; code < size; ++code) {
      built[code] = CodeValue(code, sourcePrecision, targetPrecision);
    }
    table = std::move(built);
  }
  return table.get();
}

}  // namespace Tincta
