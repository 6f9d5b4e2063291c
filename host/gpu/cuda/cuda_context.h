// A CUDA device's working state shared by its allocators, events and textures: the primary
// context, the stream and the generation they belong to.
#pragma once

#include <atomic>
#include <cstdint>
#include <shared_mutex>

#include "gpu/cuda/cuda_driver.h"
#include "host/gpu.h"

namespace host {

/// The device's context and stream, shared with the closures of its memory pools (which may
/// outlive the device object). Every operation holds `mutex` shared while it uses them; `Reset`
/// holds it exclusively while it replaces them, so no call runs on a context being torn down.
/// Work for an older `generation` finds its context gone and leaves the driver alone.
struct SCudaContext {
  explicit SCudaContext(const CudaDriver& driverIn, CUdevice deviceIn)
      : driver(driverIn), device(deviceIn) {}

  const CudaDriver& driver;
  const CUdevice device;
  CUcontext context = nullptr;  ///< the retained primary context
  CUstream stream = nullptr;    ///< non-blocking: never ordered behind another library's work
  std::atomic<uint64_t> generation{0};
  mutable std::shared_mutex mutex;
};

/// Makes a context current on this thread for the scope and restores the caller's afterwards,
/// so any thread may call any device and a host application's own current context survives.
class CCudaContextScope {
 public:
  CCudaContextScope(const CudaDriver& driver, CUcontext context) : driver_(driver) {
    pushed_ = context && driver.CtxPushCurrent(context) == CUDA_SUCCESS;
  }
  ~CCudaContextScope() {
    CUcontext popped = nullptr;
    if (pushed_) driver_.CtxPopCurrent(&popped);
  }
  CCudaContextScope(const CCudaContextScope&) = delete;
  CCudaContextScope& operator=(const CCudaContextScope&) = delete;

  bool bEntered() const { return pushed_; }

 private:
  const CudaDriver& driver_;
  bool pushed_ = false;
};

/// The GPU library's result for a driver failure: out of memory, or the driver's failure in
/// general. Logs the driver's error name with `what` for anything but success.
int CudaResult(const CudaDriver& driver, CUresult result, const char* what);

}  // namespace host
