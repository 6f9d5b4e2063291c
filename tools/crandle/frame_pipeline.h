// Items one step apart (the frames of a sequence, the bands of a frame): item N+1 is loaded on
// its own thread while item N is processed, so that loading overlaps the rest; never more than two
// items are held.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <optional>

#include "process_clock.h"

namespace crandle_tool {

/// Where the time of a pipelined run went, in milliseconds.
struct SPipelineTimes {
  double loadMs = 0;     ///< spent loading, on the loading thread
  double waitedMs = 0;   ///< the processing side waited for a load (load time not overlapped)
  double processMs = 0;  ///< spent processing
};

/// Calls `load(i)` and then `process(i, frame)` for i = 0 .. count-1, in order, with load(i + 1)
/// running on another thread during process(i). An exception from either ends the run at that
/// frame and is thrown here once the load in flight has finished; frames after it are neither
/// processed nor (beyond the one in flight) loaded.
template <class Frame>
void RunPipelined(size_t count, const std::function<Frame(size_t)>& load,
                  const std::function<void(size_t, Frame&)>& process, SPipelineTimes& times) {
  using Clock = std::chrono::steady_clock;
  struct STimed {
    Frame frame;
    double ms;
  };
  const auto timedLoad = [&load](size_t index) {
    const Clock::time_point start = Clock::now();
    Frame frame = load(index);
    return STimed{std::move(frame), MillisecondsSince(start)};
  };
  std::future<STimed> next;
  if (count > 0) next = std::async(std::launch::async, timedLoad, size_t(0));
  for (size_t i = 0; i < count; ++i) {
    const Clock::time_point waitStart = Clock::now();
    std::optional<STimed> current;
    try {
      current.emplace(next.get());
    } catch (...) {
      times.waitedMs += MillisecondsSince(waitStart);
      throw;
    }
    times.waitedMs += MillisecondsSince(waitStart);
    times.loadMs += current->ms;
    if (i + 1 < count) next = std::async(std::launch::async, timedLoad, i + 1);
    const Clock::time_point processStart = Clock::now();
    try {
      process(i, current->frame);
    } catch (...) {
      times.processMs += MillisecondsSince(processStart);
      // The frame still loading is dropped; its future waits for it on the way out.
      throw;
    }
    times.processMs += MillisecondsSince(processStart);
  }
}

}  // namespace crandle_tool
