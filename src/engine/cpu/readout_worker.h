// Read-out workers: threads that receive a copy of each finished picture of the "*readout"
// operator, one picture at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "engine/frame_buffer/complex_frame_buffer.h"

namespace Tincta {

/// One read-out worker. Each hand-over waits for the worker's previous run to end, copies the
/// picture into the worker's own frame buffer and runs the callback on a new thread, so the
/// renderer may reuse its picture at once.
class COvReadoutWorker {
 public:
  /// Receives the worker's copy of the picture on the worker's thread.
  using Callback = std::function<void(const COvComplexFrameBuffer& picture)>;

  /// `processor` (from 1) binds every run to processor (processor - 1) modulo 64; 0 leaves the
  /// thread where the system puts it. A processor that the process may not use is ignored.
  explicit COvReadoutWorker(Callback callback, uint32_t processor = 0);
  /// Waits for the last run.
  ~COvReadoutWorker();
  COvReadoutWorker(const COvReadoutWorker&) = delete;
  COvReadoutWorker& operator=(const COvReadoutWorker&) = delete;

  /// Hands `picture` over (see the class comment). Called from the worker's own callback it
  /// starts nothing, since the worker is still running. False when nothing was started: the
  /// worker is running, the picture has no pixels, or the copy cannot be allocated.
  bool bHandOver(const COvComplexFrameBuffer& picture);

  /// Waits until the current run, if any, has ended (not from the worker's own thread).
  void Wait();

  /// Runs started so far.
  uint64_t RunCount() const { return runs_.load(std::memory_order_acquire); }

 private:
  void Run();

  Callback callback_;
  uint32_t processor_;
  std::thread thread_;
  std::atomic<bool> running_{false};
  std::atomic<uint64_t> runs_{0};
  std::unique_ptr<COvComplexFrameBuffer> picture_;
};

}  // namespace Tincta
