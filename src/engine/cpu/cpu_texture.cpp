#include "engine/cpu/cpu_texture.h"

#include <bit>
#include <cstring>
#include <limits>

#include "engine/cpu/cpu_kernels.h"

namespace Tincta {
namespace {

constexpr size_t kCopyAlignment = 32;

// The linear samplers read texel i + 1 beside texel i, so each sampled axis needs two texels.
constexpr uint32_t kMinLinearExtent = 2;

bool IsKnownTarget(uint32_t target) {
  return target == kTexture1D || target == kTexture2D || target == kTexture3D ||
         target == kTextureRectangle;
}

void SetAxis(SCPUTextureUnit& unit, int axis, uint32_t extent) {
  const double size = extent;
  unit.size[axis].Broadcast(static_cast<float>(size));
  unit.nearestClamp[axis].Broadcast(static_cast<float>(size - 0.501));
  unit.linearClamp[axis].Broadcast(static_cast<float>(size - 1.01));
}

}  // namespace

bool COvCPUTexture::bCopyRows(const void* source, size_t rowBytes, uint32_t height, size_t pitch) {
  if (pitch < rowBytes || pitch % 4 != 0) return false;
  if (height != 0 && pitch > std::numeric_limits<size_t>::max() / height) return false;
  if (!rows_.Allocate(pitch * height, kCopyAlignment)) return false;
  const SCPUKernelTable& kernels = ActiveCPUKernels();
  const auto* from = static_cast<const char*>(source);
  auto* to = reinterpret_cast<char*>(rows_.Data());
  for (uint32_t row = 0; row < height; ++row) {
    kernels.copyBlock(to + row * pitch, from + row * rowBytes, rowBytes);
    kernels.fill32(to + row * pitch + rowBytes, 0, (pitch - rowBytes) / 4);
  }
  return true;
}

bool COvCPUTexture::bBuildCurvePairs(const float* texels, uint32_t width) {
  if (width == 0 || !pairs_.Allocate(size_t{width} * 3 * 2 * sizeof(float), kCopyAlignment))
    return false;
  auto* pairs = reinterpret_cast<float*>(pairs_.Data());
  for (uint32_t c = 0; c < 3; ++c) {
    float* plane = pairs + size_t{c} * width * 2;
    for (uint32_t i = 0; i < width; ++i) {
      plane[2 * i] = texels[4 * size_t{i} + c];
      plane[2 * i + 1] = texels[4 * size_t{i + 1 < width ? i + 1 : i} + c];
    }
  }
  return true;
}

bool COvCPUTextureUnits::bUpload(uint32_t unit, uint32_t width, uint32_t height, uint32_t depth,
                                 uint32_t target, uint32_t channels, const void* data, bool flip) {
  ++revision_;
  if (unit >= kCPUTextureUnitCount || !IsKnownTarget(target)) return false;
  if (unit == 0 && target != kTextureRectangle) return false;
  if (channels != 1 && channels != 4) return false;
  if (data == nullptr || width == 0) return false;

  // Extents that the kind does not have are taken as 1.
  if (target == kTexture1D) height = depth = 1;
  if (target == kTexture2D || target == kTextureRectangle) depth = 1;
  if (height == 0 || depth == 0) return false;
  if (target == kTexture1D && (width < kMinLinearExtent || width > kMaxCPU3DTexels)) return false;
  if (target == kTexture3D) {
    if (width < kMinLinearExtent || height < kMinLinearExtent || depth < kMinLinearExtent) {
      return false;
    }
    if (uint64_t(width) * height * depth > kMaxCPU3DTexels) return false;
  }
  const uint64_t rowBytes = uint64_t(width) * channels * 4;
  if (rowBytes > uint64_t(std::numeric_limits<int32_t>::max())) return false;

  SCPUTextureUnit record;
  record.width = width;
  record.height = height;
  record.depth = depth;
  record.channels = channels;
  record.target.Broadcast(target);
  SetAxis(record, 0, width);
  SetAxis(record, 1, height);
  SetAxis(record, 2, depth);
  int32_t stride = static_cast<int32_t>(rowBytes);
  const auto* first = static_cast<const float*>(data);

  std::unique_ptr<COvCPUTexture> copy;
  if (target == kTexture2D) {
    const uint64_t pitch = std::bit_ceil(rowBytes);
    if (pitch > uint64_t(std::numeric_limits<int32_t>::max())) return false;
    copy = std::make_unique<COvCPUTexture>();
    if (!copy->bCopyRows(data, rowBytes, height, pitch)) return false;
    first = copy->Data();
    stride = static_cast<int32_t>(pitch);
    record.rowShift = static_cast<uint32_t>(std::countr_zero(pitch));
  } else if (target == kTextureRectangle && flip) {
    first = reinterpret_cast<const float*>(reinterpret_cast<const char*>(data) +
                                           ptrdiff_t(height - 1) * stride);
    stride = -stride;
    record.flipped = true;
  } else if (target == kTexture3D) {
    record.planeArea.Broadcast(static_cast<float>(uint64_t(width) * height));
    record.rowBytes.Broadcast(static_cast<uint32_t>(rowBytes));
    record.sliceBytes.Broadcast(static_cast<uint32_t>(rowBytes * height));
    record.texelRowBytes.Broadcast(width * 16);
    record.texelSliceBytes.Broadcast(width * 16 * height);
  }
  record.rowStride.Broadcast(stride);
  record.data = first;
  record.dataSecond = first;
  if (channels == 4 && width <= kMaxCurvePairWidth) {
    if (!copy) copy = std::make_unique<COvCPUTexture>();
    if (!copy->bBuildCurvePairs(first, width)) return false;
    record.curvePairs = copy->CurvePairs();
  }

  units_[unit] = record;
  copies_[unit] = std::move(copy);
  return true;
}

void COvCPUTextureUnits::Reset() {
  ++revision_;
  for (uint32_t unit = 0; unit < kCPUTextureUnitCount; ++unit) {
    units_[unit] = SCPUTextureUnit{};
    copies_[unit].reset();
  }
}

}  // namespace Tincta
