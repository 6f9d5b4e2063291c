#include "host/log.h"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace host {
namespace {

void WriteToStderr(LogLevel, std::string_view message, void*) {
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
