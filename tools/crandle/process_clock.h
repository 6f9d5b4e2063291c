// How long this process has been running, counted from its start rather than from main, so that
// loading the program and its libraries is part of the account.
#pragma once

#include <chrono>

namespace crandle_tool {

/// Milliseconds from `start` to now on the steady clock, as the tool's timings count them.
inline double MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

/// Milliseconds since the process started, from the system's record of its start (to the
/// system's clock tick, 10 ms on most systems); negative when that record cannot be read.
double MillisecondsSinceProcessStart();

}  // namespace crandle_tool
