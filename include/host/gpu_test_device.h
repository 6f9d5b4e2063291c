// A GPU device for tests: records every call it receives and fails the operations it is told to.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/export.h"
#include "host/gpu.h"

namespace host {

/// The operations a test device can be told to fail.
enum class GPUTestOperation : uint32_t {
  HostAllocate,    ///< the staging allocator returns null
  MapView,         ///< staging blocks come without a mapped view
  Unmap,           ///< unmapping reports failure
  DeviceAllocate,  ///< the device allocator returns null
  ConstantCopy,    ///< `CopyStagingToDevice` reports failure
  UploadTexture,   ///< `UploadTexture` returns null (the device is out of memory)
  LoadKernel,      ///< `LoadKernel` returns null
  LoadTexture,     ///< `LoadTexture` returns null
  BindTexture,     ///< `BindTexture` reports failure
  Bind3DTexture,   ///< `Bind3DTexture` reports failure
  Launch,          ///< `Launch` reports failure
};

/// One call as the test device saw it.
struct GPUTestCall {
  std::string operation;  ///< the operation's name in `IGPUDevice` ("Launch", "LoadKernel", ...)
  std::string detail;     ///< names it was given ("module/kernel", "module/texture")
  uint64_t bytes = 0;     ///< sizes allocated or copied; row bytes of a binding
  uint32_t width = 0;     ///< extents of a binding or upload
  uint32_t height = 0;
  uint32_t depth = 0;
  GPUDim3 grid{};  ///< of a launch
  GPUDim3 block{};
  /// The bytes a constant copy carried; a launch's arguments after the textures, 8 bytes each.
  std::vector<uint8_t> payload;
  int result = 0;  ///< what the call returned (0 or negative; 0 for a non-null handle)
};

/// A device that forwards to `inner` (or, without one, keeps "device" memory in host memory and
/// runs no kernels: launches are recorded and succeed) and records each call.
class HOST_API GPUTestDevice : public IGPUDevice {
 public:
  ~GPUTestDevice() override;
  /// Makes `operation` fail from now on (`fail` true) or work again.
  virtual void SetFailure(GPUTestOperation operation, bool fail) = 0;
  /// Reports these codes instead of the inner device's (to drive block-size choices).
  virtual void SetCodes(uint32_t frameworkCode, uint32_t kindCode) = 0;
  /// The calls so far, oldest first.
  virtual std::vector<GPUTestCall> Calls() const = 0;
  virtual void ClearCalls() = 0;
};

/// A test device over `inner` (null: over no back end), reporting device index `index`.
HOST_API std::shared_ptr<GPUTestDevice> CreateGPUTestDevice(std::shared_ptr<IGPUDevice> inner,
                                                            uint32_t index = 0);

}  // namespace host
