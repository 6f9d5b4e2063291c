// The host's log sink.
#pragma once

#include <string_view>

#include "host/export.h"

namespace host {

/// How serious a message is, least first.
enum class LogLevel { Trace, Info, Warning, Error };

/// Receives each message; must be thread-safe.
using LogCallback = void (*)(LogLevel level, std::string_view message, void* context);

/// Routes messages to `callback` (null silences logging). The default writes warnings and errors
/// to stderr, and trace or information lines too when the environment variable CRANDLE_LOG is
/// "trace" or "info" ("error" keeps only errors).
HOST_API void SetLogCallback(LogCallback callback, void* context);
/// Restores the default sink (stderr).
HOST_API void ResetLogCallback();
/// Hands one message to the current sink.
HOST_API void WriteLog(LogLevel level, std::string_view message);

}  // namespace host
