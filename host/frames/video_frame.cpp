#include "host/video_frame.h"

#include <cmath>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "host/binary_data.h"
#include "host/gpu.h"

namespace host {
namespace {

// A frame in host memory. `memory_` owns the pixels of a created frame, or holds the caller's
// keep-alive object for a view.
class CHostVideoFrame final : public IObject,
                              public IVideoFrame,
                              public IVideoFrameMemoryAccess,
                              public IVideoFrame2DPixelMemoryAccess {
 public:
  CHostVideoFrame(PixelFormat format, uint32_t width, uint32_t height, void* base, size_t rowBytes,
                  std::shared_ptr<void> memory, float pixelAspectRatio, ColorSpace colorSpace)
      : format_(format),
        bounds_{0, 0, width, height},
        base_(base),
        rowBytes_(rowBytes),
        memory_(std::move(memory)),
        pixelAspectRatio_(pixelAspectRatio),
        colorSpace_(colorSpace) {}

  void* QueryInterface(std::string_view name) noexcept override {
    if (name == IVideoFrame::kInterfaceName) return static_cast<IVideoFrame*>(this);
    if (name == IVideoFrameMemoryAccess::kInterfaceName)
      return static_cast<IVideoFrameMemoryAccess*>(this);
    if (name == IVideoFrame2DPixelMemoryAccess::kInterfaceName)
      return static_cast<IVideoFrame2DPixelMemoryAccess*>(this);
    return nullptr;
  }

  FrameBounds GetBounds() const override { return bounds_; }
  float GetPixelAspectRatio() const override { return pixelAspectRatio_; }
  PixelFormat GetPixelFormat() const override { return format_; }
  ColorSpace GetColorSpace() const override { return colorSpace_; }
  void* GetBaseAddress() const override { return base_; }
  // Both row-bytes operations answer alike: one plane, one stride.
  size_t GetRowBytes() const override { return rowBytes_; }
  uint32_t GetPlaneCount() const override { return 1; }

 private:
  PixelFormat format_;
  FrameBounds bounds_;
  void* base_;
  size_t rowBytes_;
  std::shared_ptr<void> memory_;
  float pixelAspectRatio_;
  ColorSpace colorSpace_;
};

bool IsUsableAspectRatio(float ratio) {
  return std::isfinite(ratio) && ratio > 0.0f;
}

int MakeFrame(InterfaceRef<IVideoFrame>& frame, PixelFormat format, uint32_t width, uint32_t height,
              void* base, size_t rowBytes, std::shared_ptr<void> memory, float pixelAspectRatio,
              ColorSpace colorSpace) noexcept {
  try {
    auto object = std::make_shared<CHostVideoFrame>(
        format, width, height, base, rowBytes, std::move(memory), pixelAspectRatio, colorSpace);
    IVideoFrame* videoFrame = object.get();
    frame = InterfaceRef<IVideoFrame>(std::move(object), videoFrame);
    return 0;
  } catch (const std::bad_alloc&) {
    return kFrameErrorOutOfMemory;
  }
}

}  // namespace

int CreateVideoFrame(InterfaceRef<IVideoFrame>& frame, PixelFormat format, uint32_t width,
                     uint32_t height, float pixelAspectRatio, ColorSpace colorSpace,
                     bool clearPixels, bool gpuResident) {
  const size_t bytesPerPixel = BytesPerPixel(format);
  if (bytesPerPixel == 0 || width == 0 || height == 0 || !IsUsableAspectRatio(pixelAspectRatio))
    return kFrameErrorInvalidArgument;
  if (gpuResident) {
    // Device frames hold BGRA only; that refusal does not depend on a device being there.
    if (format.code != kPixelFormat_BGRA_4444_8u.code) return kFrameErrorInvalidArgument;
    const std::vector<std::shared_ptr<IGPUDevice>> devices = EnumerateGPUDevices();
    if (devices.empty()) return kFrameErrorNoDevice;
    return CreateGPUVideoFrame(frame, devices.front(), format, width, height, clearPixels,
                               pixelAspectRatio, colorSpace);
  }

  const size_t rowBytes = size_t(width) * bytesPerPixel;  // cannot overflow: width < 2^32
  size_t bytes = 0;
  if (__builtin_mul_overflow(rowBytes, size_t(height), &bytes)) return kFrameErrorOutOfMemory;
  // Recycled: the CPU apply path makes a working frame of the same size for every video frame.
  void* block = RecycledMemory::Allocate(bytes);
  if (!block) return kFrameErrorOutOfMemory;
  std::shared_ptr<void> memory;
  try {
    memory.reset(block, [bytes](void* p) { RecycledMemory::Release(p, bytes); });
  } catch (const std::bad_alloc&) {
    return kFrameErrorOutOfMemory;  // reset() has already handed the block to the deleter
  }
  if (clearPixels) std::memset(block, 0, bytes);
  return MakeFrame(frame, format, width, height, block, rowBytes, std::move(memory),
                   pixelAspectRatio, colorSpace);
}

int CreateVideoFrameView(InterfaceRef<IVideoFrame>& frame, PixelFormat format, uint32_t width,
                         uint32_t height, void* base, size_t rowBytes,
                         std::shared_ptr<void> keepAlive, float pixelAspectRatio,
                         ColorSpace colorSpace) {
  const size_t bytesPerPixel = BytesPerPixel(format);
  if (bytesPerPixel == 0 || width == 0 || height == 0 || !base ||
      rowBytes < size_t(width) * bytesPerPixel || !IsUsableAspectRatio(pixelAspectRatio))
    return kFrameErrorInvalidArgument;
  return MakeFrame(frame, format, width, height, base, rowBytes, std::move(keepAlive),
                   pixelAspectRatio, colorSpace);
}

}  // namespace host
