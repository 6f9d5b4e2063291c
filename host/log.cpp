#include "host/log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace host {
namespace {

// Trace and information lines are for developers: shown only when CRANDLE_LOG asks for them.
LogLevel ThresholdFromEnvironment() {
  const char* wanted = std::getenv("CRANDLE_LOG");
  if (!wanted) return LogLevel::Warning;
  if (std::strcmp(wanted, "trace") == 0) return LogLevel::Trace;
  if (std::strcmp(wanted, "info") == 0) return LogLevel::Info;
  if (std::strcmp(wanted, "error") == 0) return LogLevel::Error;
  return LogLevel::Warning;
}

void WriteToStderr(LogLevel level, std::string_view message, void*) {
  static const LogLevel threshold = ThresholdFromEnvironment();
  if (level < threshold) return;
  static std::mutex mutex;
  std::lock_guard lock(mutex);
  std::fprintf(stderr, "crandle: %.*s\n", static_cast<int>(message.size()), message.data());
}

struct SSink {
  LogCallback callback = WriteToStderr;
  void* context = nullptr;
};

std::mutex& SinkMutex() {
  static std::mutex mutex;
  return mutex;
}

SSink& Sink() {
  static SSink sink;
  return sink;
}

}  // namespace

void SetLogCallback(LogCallback callback, void* context) {
  std::lock_guard lock(SinkMutex());
  Sink() = SSink{callback, context};
}

void ResetLogCallback() { SetLogCallback(WriteToStderr, nullptr); }

void WriteLog(LogLevel level, std::string_view message) {
  SSink sink;
  {
    std::lock_guard lock(SinkMutex());
    sink = Sink();
  }
  if (sink.callback) sink.callback(level, message, sink.context);
}

}  // namespace host
