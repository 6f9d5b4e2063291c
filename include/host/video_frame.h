// Host video frames and their companion interfaces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "host/export.h"
#include "host/interface_ref.h"
#include "host/pixel_format.h"

namespace host {

class IGPUDevice;

/// Frame bounds: four unsigned 32-bit words; the third and fourth are width and height.
struct FrameBounds {
  uint32_t left = 0;
  uint32_t top = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  friend bool operator==(const FrameBounds&, const FrameBounds&) = default;
};

/// A video frame. Operations keep the order of the host's interface: bounds first, pixel
/// aspect ratio, pixel format, colour space.
class IVideoFrame {
 public:
  static constexpr const char* kInterfaceName = "IVideoFrame";
  /// The frame's position and size in pixels.
  virtual FrameBounds GetBounds() const = 0;
  /// Width of a pixel over its height (1 for square pixels).
  virtual float GetPixelAspectRatio() const = 0;
  /// The layout of the pixels in memory.
  virtual PixelFormat GetPixelFormat() const = 0;
  /// The colour space the frame declares; `Unknown` when it declares none.
  virtual ColorSpace GetColorSpace() const = 0;

 protected:
  ~IVideoFrame() = default;
};

/// Pixel memory of a frame that lives in host memory.
class IVideoFrameMemoryAccess {
 public:
  static constexpr const char* kInterfaceName = "IVideoFrameMemoryAccess";
  /// Address of the top row's first pixel.
  virtual void* GetBaseAddress() const = 0;
  /// Bytes from one row to the next.
  virtual size_t GetRowBytes() const = 0;

 protected:
  ~IVideoFrameMemoryAccess() = default;
};

/// The 2-D layout of a frame's pixels; the preferred source of row bytes.
class IVideoFrame2DPixelMemoryAccess {
 public:
  static constexpr const char* kInterfaceName = "IVideoFrame2DPixelMemoryAccess";
  /// Number of planes (1 for every format of this host).
  virtual uint32_t GetPlaneCount() const = 0;
  /// Bytes from one row to the next.
  virtual size_t GetRowBytes() const = 0;

 protected:
  ~IVideoFrame2DPixelMemoryAccess() = default;
};

/// Marks a frame whose pixels live in GPU memory. Frames in host memory do not have it.
class IGPUVideoFrame {
 public:
  static constexpr const char* kInterfaceName = "IGPUVideoFrame";
  /// The index of the device that holds the pixels.
  virtual uint32_t GetDeviceIndex() const = 0;

 protected:
  ~IGPUVideoFrame() = default;
};

/// Device memory of a GPU frame.
class IGPUVideoFrameMemoryAccess {
 public:
  static constexpr const char* kInterfaceName = "IGPUVideoFrameMemoryAccess";
  /// Device address of the top row's first pixel.
  virtual uint64_t GetDevicePointer() const = 0;

 protected:
  ~IGPUVideoFrameMemoryAccess() = default;
};

/// Completion tracking of a GPU frame; its first operation yields the frame's device.
class ICompletionEventVideoFrame {
 public:
  static constexpr const char* kInterfaceName = "ICompletionEventVideoFrame";
  /// The device that holds the frame, shared; null when it has gone.
  virtual std::shared_ptr<IGPUDevice> GetDevice() const = 0;
  /// Marks the frame complete once the work queued on its device so far is done (whoever wrote
  /// the frame calls it after queueing that work). 0, or a negative result of the device.
  virtual int SignalCompletion() = 0;
  /// Blocks until the last signalled completion (at once when none was signalled): 0, or a
  /// negative result of the device.
  virtual int WaitForCompletion() = 0;

 protected:
  ~ICompletionEventVideoFrame() = default;
};

/// Creates a frame in host memory with packed rows (row bytes = width x bytes per pixel) on a
/// 64-byte aligned block. `clearPixels` zero-fills the pixels. `gpuResident` asks for a frame in
/// the memory of the first GPU device (`EnumerateGPUDevices`), as `CreateGPUVideoFrame` makes it.
/// Returns 0 and fills `frame` on success; a negative result (`frame` untouched) for an unknown
/// format, a zero size, a GPU request without a device, or missing memory.
HOST_API int CreateVideoFrame(InterfaceRef<IVideoFrame>& frame, PixelFormat format, uint32_t width,
                              uint32_t height, float pixelAspectRatio, ColorSpace colorSpace,
                              bool clearPixels, bool gpuResident);

/// Creates a frame in the memory of `device`, answering `IVideoFrame`, `IGPUVideoFrame`,
/// `IGPUVideoFrameMemoryAccess`, `IVideoFrame2DPixelMemoryAccess` (rows aligned as the device
/// prefers) and `ICompletionEventVideoFrame`. BGRA 8-bit, 16-bit and 32-bit float only. Same
/// results as `CreateVideoFrame` (`kFrameErrorNoDevice` for a null device).
HOST_API int CreateGPUVideoFrame(InterfaceRef<IVideoFrame>& frame,
                                 const std::shared_ptr<IGPUDevice>& device, PixelFormat format,
                                 uint32_t width, uint32_t height, bool clearPixels,
                                 float pixelAspectRatio = 1.0f,
                                 ColorSpace colorSpace = ColorSpace::Unknown);

/// Copies the pixels of a frame in host memory into a GPU frame of the same size and format, and
/// returns when done. 0; `kFrameErrorInvalidArgument` for frames of different sizes or formats
/// or a wrong kind of frame on either side; the device's negative result.
HOST_API int UploadVideoFrame(const InterfaceRef<IVideoFrame>& hostFrame,
                              InterfaceRef<IVideoFrame>& gpuFrame);
/// Waits for the GPU frame's completion, then copies its pixels into a frame in host memory of
/// the same size and format. Results as `UploadVideoFrame`.
HOST_API int DownloadVideoFrame(const InterfaceRef<IVideoFrame>& gpuFrame,
                                InterfaceRef<IVideoFrame>& hostFrame);

/// Creates a frame that views memory the caller owns (rows `rowBytes` apart from `base`).
/// `keepAlive` is held as long as the frame lives. Same results as `CreateVideoFrame`.
HOST_API int CreateVideoFrameView(InterfaceRef<IVideoFrame>& frame, PixelFormat format,
                                  uint32_t width, uint32_t height, void* base, size_t rowBytes,
                                  std::shared_ptr<void> keepAlive, float pixelAspectRatio = 1.0f,
                                  ColorSpace colorSpace = ColorSpace::Unknown);

/// Result codes of frame creation.
inline constexpr int kFrameErrorInvalidArgument = -1;  ///< unknown format, zero size, null memory
inline constexpr int kFrameErrorOutOfMemory = -2;      ///< no memory for the pixel block
inline constexpr int kFrameErrorNoDevice = -3;         ///< device memory asked of this host

}  // namespace host
