// The library's log: one line per message, handed to the host's sink.
#pragma once

#include <string_view>

#include "host/log.h"

namespace Tincta {

inline void OvLog(host::LogLevel level, std::string_view message) { host::WriteLog(level, message); }

}  // namespace Tincta
