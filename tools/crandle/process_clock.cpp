#include "process_clock.h"

#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace crandle_tool {

double MillisecondsSinceProcessStart() {
  std::ifstream file("/proc/self/stat");
  std::string stat;
  if (!std::getline(file, stat)) return -1;
  // The command name, in parentheses, may hold spaces; the fields are counted after it. The start
  // time is field 22, the 20th after the name.
  const size_t nameEnd = stat.rfind(')');
  if (nameEnd == std::string::npos) return -1;
  std::istringstream fields(stat.substr(nameEnd + 1));
  std::string field;
  for (int i = 0; i < 20 && fields >> field; ++i) {
  }
  if (!fields) return -1;
  const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);
  timespec now{};
  if (ticksPerSecond <= 0 || ::clock_gettime(CLOCK_BOOTTIME, &now) != 0) return -1;
  const double startMs = std::strtod(field.c_str(), nullptr) * 1000.0 / double(ticksPerSecond);
  const double nowMs = double(now.tv_sec) * 1000.0 + double(now.tv_nsec) / 1e6;
  return nowMs - startMs;
}

}  // namespace crandle_tool
