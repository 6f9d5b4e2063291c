#include "engine/convert/optimized_frame_buffer_converter.h"

#include <cstring>

#include "engine/convert/channel_converters.h"
#include "foundation/heap_buffer.h"

namespace Tincta {
namespace {

enum class ETarget { kRgba8, kRgb8, kRgb10, kRgba10, kRgba8From16 };

struct SPlan {
  ETarget target;
  uint32_t groupPixels;
  uint32_t sourceGroupBytes;
  uint32_t targetGroupBytes;
};

SPlan PlanFor(const FrameBufferFormat& source, const FrameBufferFormat& target) {
  if (source.precision == kPrecision16BitInt) return {ETarget::kRgba8From16, 16, 128, 64};
  if (target.precision == kPrecision8Bits) {
    if (target.type == kFrameBufferTypeRGBA) return {ETarget::kRgba8, 4, 64, 16};
    return {ETarget::kRgb8, 4, 64, 12};
  }
  if (target.type == kFrameBufferTypeRGB) return {ETarget::kRgb10, 4, 64, 16};
  return {ETarget::kRgba10, 3, 48, 16};
}

bool bCovers(uint32_t stride, uint64_t groups, uint32_t groupBytes) {
  return stride % 16 == 0 && uint64_t{stride} >= groups * groupBytes;
}

uint32_t ByteSwapIf(bool swap, uint32_t word) {
  return swap ? __builtin_bswap32(word) : word;
}

// Pixels after the last whole group, with the general path's arithmetic so that the vector
// and general paths agree to the byte.
void TailTo8Bits(const float* source, uint8_t* target, uint32_t pixels, uint32_t channels) {
  for (uint32_t x = 0; x < pixels; ++x) {
    for (uint32_t c = 0; c < channels; ++c)
      target[x * channels + c] = QuantizeTo8Bits(source[x * 4 + c]);
  }
}

void TailToRgb10(const float* source, uint8_t* target, uint32_t pixels, bool bigEndian) {
  for (uint32_t x = 0; x < pixels; ++x, source += 4) {
    const uint32_t word = QuantizeTo10Bits(source[0]) << 22 | QuantizeTo10Bits(source[1]) << 12 |
                          QuantizeTo10Bits(source[2]) << 2;
    const uint32_t stored = ByteSwapIf(bigEndian, word);
    std::memcpy(target + 4 * x, &stored, 4);
  }
}

void TailToRgba10(const float* source, uint8_t* target, uint32_t pixels, bool bigEndian) {
  static constexpr uint32_t kShift[3] = {22, 12, 2};
  const uint32_t samples = pixels * 4;
  for (uint32_t first = 0; first < samples; first += 3) {
    uint32_t word = 0;
    for (uint32_t slot = 0; slot < 3 && first + slot < samples; ++slot) {
      word |= QuantizeTo10Bits(source[first + slot]) << kShift[slot];
    }
    const uint32_t stored = ByteSwapIf(bigEndian, word);
    std::memcpy(target + (first / 3) * 4, &stored, 4);
  }
}

void TailFrom16(const uint8_t* source, uint8_t* target, uint32_t pixels, bool swap) {
  for (uint32_t x = 0; x < pixels; ++x) {
    for (uint32_t c = 0; c < 4; ++c) {
      const uint32_t from = swap && c != 1 && c != 3 ? 2 - c : c;
      target[x * 4 + c] = source[(x * 4 + from) * 2 + 1];  // high byte, little endian
    }
  }
}

void ExchangeFirstAndThird(const float* source, float* target, uint32_t pixels) {
  for (uint32_t x = 0; x < pixels; ++x, source += 4, target += 4) {
    target[0] = source[2];
    target[1] = source[1];
    target[2] = source[0];
    target[3] = source[3];
  }
}

}  // namespace

bool COvOptimizedFrameBufferConverter::CanConvert(const FrameBufferFormat& source,
                                                  const FrameBufferFormat& target) const {
  if (!IsConvertibleFormat(source) || !IsConvertibleFormat(target)) return false;
  if (source.type != kFrameBufferTypeRGBA || source.bigEndian) return false;
  const bool colour = target.type == kFrameBufferTypeRGBA || target.type == kFrameBufferTypeRGB;
  if (source.precision == kPrecision16BitInt) {
    return target.precision == kPrecision8Bits && target.type == kFrameBufferTypeRGBA;
  }
  if (source.precision != kPrecision32BitFloat || !colour) return false;
  return target.precision == kPrecision8Bits || target.precision == kPrecision10Bits;
}

bool COvOptimizedFrameBufferConverter::Convert(const COvComplexFrameBuffer& source,
                                               COvComplexFrameBuffer& target) const {
  if (!bReadyToConvert(source, target)) return false;
  if (!kernels_ && !bConvertKernelsAvailable()) return false;
  const SConvertKernels& kernels = kernels_ ? *kernels_ : DispatchedConvertKernels();
  const FrameBufferFormat& from = source.Format();
  const FrameBufferFormat& to = target.Format();
  if (reinterpret_cast<uintptr_t>(source.FirstLineInMemory()) % 16 != 0 ||
      reinterpret_cast<uintptr_t>(target.FirstLineInMemory()) % 16 != 0) {
    return false;
  }
  const uint32_t width = source.Width();
  const SPlan plan = PlanFor(from, to);
  const uint64_t groups = (uint64_t{width} + plan.groupPixels - 1) / plan.groupPixels;
  if (!bCovers(source.LineStride(), groups, plan.sourceGroupBytes) ||
      !bCovers(target.LineStride(), groups, plan.targetGroupBytes)) {
    return false;
  }
  const size_t wholeGroups = width / plan.groupPixels;
  const uint32_t tailStart = static_cast<uint32_t>(wholeGroups * plan.groupPixels);
  const uint32_t tailPixels = width - tailStart;
  const bool exchange = to.channelOrder != from.channelOrder;

  if (plan.target == ETarget::kRgba8From16) {
    const auto kernel = exchange ? kernels.rgba16ToRgba8Swapped : kernels.rgba16ToRgba8;
    for (uint32_t y = 0; y < source.Height(); ++y) {
      const uint8_t* line = source.Line(y);
      uint8_t* out = target.Line(y);
      kernel(reinterpret_cast<const uint16_t*>(line), out, wholeGroups);
      TailFrom16(line + size_t{tailStart} * 8, out + size_t{tailStart} * 4, tailPixels, exchange);
    }
    kernels.storeFence();
    return true;
  }

  // Lines whose channel order differs go through an aligned scratch line first.
  COvHeapBuffer scratch;
  if (exchange && !scratch.Allocate(((size_t{width} + 3) / 4) * 64)) return false;
  auto* swapped = reinterpret_cast<float*>(scratch.Data());
  for (uint32_t y = 0; y < source.Height(); ++y) {
    const float* line = reinterpret_cast<const float*>(source.Line(y));
    if (exchange) {
      ExchangeFirstAndThird(line, swapped, width);
      line = swapped;
    }
    uint8_t* out = target.Line(y);
    const float* tail = line + size_t{tailStart} * 4;
    switch (plan.target) {
      case ETarget::kRgba8:
        kernels.floatToRgba8(line, out, wholeGroups);
        TailTo8Bits(tail, out + size_t{tailStart} * 4, tailPixels, 4);
        break;
      case ETarget::kRgb8:
        kernels.floatToRgb8(line, out, wholeGroups);
        TailTo8Bits(tail, out + size_t{tailStart} * 3, tailPixels, 3);
        break;
      case ETarget::kRgb10:
        (to.bigEndian ? kernels.floatToRgb10BigEndian : kernels.floatToRgb10)(line, out,
                                                                              wholeGroups);
        TailToRgb10(tail, out + size_t{tailStart} * 4, tailPixels, to.bigEndian);
        break;
      default:
        (to.bigEndian ? kernels.floatToRgba10BigEndian : kernels.floatToRgba10)(line, out,
                                                                                wholeGroups);
        TailToRgba10(tail, out + wholeGroups * 16, tailPixels, to.bigEndian);
        break;
    }
  }
  kernels.storeFence();
  return true;
}

}  // namespace Tincta
