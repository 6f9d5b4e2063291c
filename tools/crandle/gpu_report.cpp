#include "gpu_report.h"

#include <cstdio>

#include "host/gpu.h"

namespace crandle_tool {

void PrintGPUSystem() {
  for (const host::GPUBackendStatus& status : host::GetGPUBackendStatus()) {
    const char* state = !status.compiledIn ? "not built in"
                        : status.available ? "available"
                                           : "unavailable";
    std::printf("gpu back end  %s (framework %u): %s%s%s\n", status.name.c_str(),
                status.frameworkCode, state, status.message.empty() ? "" : "; ",
                status.message.c_str());
  }
  const auto devices = host::EnumerateGPUDevices();
  if (devices.empty()) std::printf("gpu devices   none\n");
  for (const auto& device : devices) {
    const host::GPUDeviceInfo& info = device->GetInfo();
    std::printf("gpu device    framework %u, kind %u, index %u: %s, %.1f GiB, driver %s\n",
                info.frameworkCode, info.kindCode, info.index, info.name.c_str(),
                double(info.memoryBytes) / double(uint64_t{1} << 30), info.driverVersion.c_str());
  }
}

}  // namespace crandle_tool
