// Frames whose pixels live in a GPU device's memory.
#include <algorithm>
#include <cmath>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

#include "host/gpu.h"
#include "host/video_frame.h"

namespace host {
namespace {

// Rows start on this boundary, which every back end's devices read in whole transactions.
constexpr size_t kDeviceRowAlignment = 256;

bool IsDeviceFrameFormat(PixelFormat format) {
  return format == kPixelFormat_BGRA_4444_8u || format == kPixelFormat_BGRA_4444_16u ||
         format == kPixelFormat_BGRA_4444_32f;
}

class CGPUVideoFrame final : public IObject,
                             public IVideoFrame,
                             public IGPUVideoFrame,
                             public IGPUVideoFrameMemoryAccess,
                             public IVideoFrame2DPixelMemoryAccess,
                             public ICompletionEventVideoFrame {
 public:
  CGPUVideoFrame(std::shared_ptr<IGPUDevice> device, GPUDeviceBlock* block, PixelFormat format,
                 uint32_t width, uint32_t height, size_t rowBytes, float pixelAspectRatio,
                 ColorSpace colorSpace)
      : device_(std::move(device)),
        block_(block),
        format_(format),
        bounds_{0, 0, width, height},
        rowBytes_(rowBytes),
        pixelAspectRatio_(pixelAspectRatio),
        colorSpace_(colorSpace) {}
  ~CGPUVideoFrame() override { device_->GetDeviceAllocator()->Release(block_); }

  void* QueryInterface(std::string_view name) noexcept override {
    if (name == IVideoFrame::kInterfaceName) return static_cast<IVideoFrame*>(this);
    if (name == IGPUVideoFrame::kInterfaceName) return static_cast<IGPUVideoFrame*>(this);
    if (name == IGPUVideoFrameMemoryAccess::kInterfaceName)
      return static_cast<IGPUVideoFrameMemoryAccess*>(this);
    if (name == IVideoFrame2DPixelMemoryAccess::kInterfaceName)
      return static_cast<IVideoFrame2DPixelMemoryAccess*>(this);
    if (name == ICompletionEventVideoFrame::kInterfaceName)
      return static_cast<ICompletionEventVideoFrame*>(this);
    return nullptr;
  }

  FrameBounds GetBounds() const override { return bounds_; }
  float GetPixelAspectRatio() const override { return pixelAspectRatio_; }
  PixelFormat GetPixelFormat() const override { return format_; }
  ColorSpace GetColorSpace() const override { return colorSpace_; }
  uint32_t GetDeviceIndex() const override { return device_->GetInfo().index; }
  uint64_t GetDevicePointer() const override { return block_->pointer; }
  uint32_t GetPlaneCount() const override { return 1; }
  size_t GetRowBytes() const override { return rowBytes_; }

  std::shared_ptr<IGPUDevice> GetDevice() const override { return device_; }
  int SignalCompletion() override {
    std::shared_ptr<IGPUEvent> event = device_->RecordEvent();
    if (!event) return kGPUErrorBackend;
    std::lock_guard lock(mutex_);
    completion_ = std::move(event);
    return 0;
  }
  int WaitForCompletion() override {
    std::shared_ptr<IGPUEvent> event;
    {
      std::lock_guard lock(mutex_);
      event = completion_;
    }
    return event ? event->Wait() : 0;
  }

 private:
  std::shared_ptr<IGPUDevice> device_;
  GPUDeviceBlock* block_;
  PixelFormat format_;
  FrameBounds bounds_;
  size_t rowBytes_;
  float pixelAspectRatio_;
  ColorSpace colorSpace_;
  std::mutex mutex_;
  std::shared_ptr<IGPUEvent> completion_;
};

// Zeroes a new frame's rows through the device's own copy, a band of rows at a time.
int ClearDeviceRows(IGPUDevice& device, DevicePointer pixels, size_t rowBytes, uint32_t height) {
  constexpr size_t kBandBytes = size_t{4} << 20;
  const size_t bandRows = std::max<size_t>(1, std::min<size_t>(height, kBandBytes / rowBytes));
  std::vector<uint8_t> zeros;
  try {
    zeros.assign(bandRows * rowBytes, 0);
  } catch (const std::bad_alloc&) {
    return kFrameErrorOutOfMemory;
  }
  for (size_t row = 0; row < height; row += bandRows) {
    const size_t rows = std::min<size_t>(bandRows, height - row);
    if (device.CopyHostToDevice(pixels + row * rowBytes, rowBytes, zeros.data(), rowBytes, rowBytes,
                                rows) != 0)
      return kFrameErrorOutOfMemory;
  }
  return 0;
}

// The pieces of a GPU frame made here; false for anything else (host frames, test doubles).
struct SDeviceSide {
  std::shared_ptr<IGPUDevice> device;
  DevicePointer pixels = 0;
  size_t rowBytes = 0;
  ICompletionEventVideoFrame* completion = nullptr;
};

bool DeviceSide(const InterfaceRef<IVideoFrame>& frame, SDeviceSide& side) {
  if (frame.IsEmpty()) return false;
  auto memory = frame.Query<IGPUVideoFrameMemoryAccess>();
  auto layout = frame.Query<IVideoFrame2DPixelMemoryAccess>();
  auto completion = frame.Query<ICompletionEventVideoFrame>();
  if (memory.IsEmpty() || layout.IsEmpty() || completion.IsEmpty()) return false;
  side.device = completion->GetDevice();
  side.pixels = memory->GetDevicePointer();
  side.rowBytes = layout->GetRowBytes();
  side.completion = completion.Get();
  return side.device && side.pixels != 0;
}

bool HostSide(const InterfaceRef<IVideoFrame>& frame, void*& base, size_t& rowBytes) {
  if (frame.IsEmpty() || !frame.Query<IGPUVideoFrame>().IsEmpty()) return false;
  auto memory = frame.Query<IVideoFrameMemoryAccess>();
  if (memory.IsEmpty() || !memory->GetBaseAddress()) return false;
  base = memory->GetBaseAddress();
  rowBytes = memory->GetRowBytes();
  return true;
}

bool SameShape(const InterfaceRef<IVideoFrame>& a, const InterfaceRef<IVideoFrame>& b) {
  const FrameBounds boundsA = a->GetBounds(), boundsB = b->GetBounds();
  return boundsA.width == boundsB.width && boundsA.height == boundsB.height &&
         a->GetPixelFormat() == b->GetPixelFormat() && IsDeviceFrameFormat(a->GetPixelFormat());
}

}  // namespace

int CreateGPUVideoFrame(InterfaceRef<IVideoFrame>& frame, const std::shared_ptr<IGPUDevice>& device,
                        PixelFormat format, uint32_t width, uint32_t height, bool clearPixels,
                        float pixelAspectRatio, ColorSpace colorSpace) {
  if (!IsDeviceFrameFormat(format) || width == 0 || height == 0 ||
      !std::isfinite(pixelAspectRatio) || pixelAspectRatio <= 0.0f)
    return kFrameErrorInvalidArgument;
  if (!device) return kFrameErrorNoDevice;
  IGPUDeviceAllocator* allocator = device->GetDeviceAllocator();
  if (!allocator) return kFrameErrorNoDevice;
  const size_t packed = size_t(width) * BytesPerPixel(format);
  const size_t rowBytes =
      (packed + kDeviceRowAlignment - 1) / kDeviceRowAlignment * kDeviceRowAlignment;
  size_t bytes = 0;
  if (__builtin_mul_overflow(rowBytes, size_t(height), &bytes)) return kFrameErrorOutOfMemory;
  GPUDeviceBlock* block = allocator->Allocate(bytes, 0, 0);
  if (!block) return kFrameErrorOutOfMemory;
  if (clearPixels) {
    if (const int cleared = ClearDeviceRows(*device, block->pointer, rowBytes, height)) {
      allocator->Release(block);
      return cleared;
    }
  }
  try {
    auto object = std::make_shared<CGPUVideoFrame>(device, block, format, width, height, rowBytes,
                                                   pixelAspectRatio, colorSpace);
    IVideoFrame* videoFrame = object.get();
    frame = InterfaceRef<IVideoFrame>(std::move(object), videoFrame);
    return 0;
  } catch (const std::bad_alloc&) {
    allocator->Release(block);
    return kFrameErrorOutOfMemory;
  }
}

namespace {

// The two sides of a transfer between frames of one size and format, with the bytes of a row.
struct STransfer {
  void* hostBase = nullptr;
  size_t hostRowBytes = 0;
  SDeviceSide device;
  size_t rowWidthBytes = 0;
  uint32_t rows = 0;
};

bool TransferSides(const InterfaceRef<IVideoFrame>& hostFrame,
                   const InterfaceRef<IVideoFrame>& gpuFrame, STransfer& transfer) {
  if (!HostSide(hostFrame, transfer.hostBase, transfer.hostRowBytes) ||
      !DeviceSide(gpuFrame, transfer.device) || !SameShape(hostFrame, gpuFrame))
    return false;
  const FrameBounds bounds = gpuFrame->GetBounds();
  transfer.rowWidthBytes = size_t(bounds.width) * BytesPerPixel(gpuFrame->GetPixelFormat());
  transfer.rows = bounds.height;
  return true;
}

}  // namespace

int UploadVideoFrame(const InterfaceRef<IVideoFrame>& hostFrame,
                     InterfaceRef<IVideoFrame>& gpuFrame) {
  STransfer t;
  if (!TransferSides(hostFrame, gpuFrame, t)) return kFrameErrorInvalidArgument;
  return t.device.device->CopyHostToDevice(t.device.pixels, t.device.rowBytes, t.hostBase,
                                           t.hostRowBytes, t.rowWidthBytes, t.rows);
}

int DownloadVideoFrame(const InterfaceRef<IVideoFrame>& gpuFrame,
                       InterfaceRef<IVideoFrame>& hostFrame) {
  STransfer t;
  if (!TransferSides(hostFrame, gpuFrame, t)) return kFrameErrorInvalidArgument;
  if (const int waited = t.device.completion->WaitForCompletion()) return waited;
  return t.device.device->CopyDeviceToHost(t.hostBase, t.hostRowBytes, t.device.pixels,
                                           t.device.rowBytes, t.rowWidthBytes, t.rows);
}

}  // namespace host
