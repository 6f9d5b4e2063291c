// What the tool reports about the host's GPU back ends and devices.
#pragma once

namespace crandle_tool {

/// Prints each GPU back end (built in, available, its message) and each device (framework, kind
/// code, index, name, memory, driver), or that there are none.
void PrintGPUSystem();

}  // namespace crandle_tool
