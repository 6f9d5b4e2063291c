// Parsing a LUT file named on the command line.
#pragma once

#include <memory>
#include <string>

namespace crandle_tool {

/// CRANDLE::ParseLUT for a path as the command line gives it: bytes that the file system takes
/// as they are. A name that is not UTF-8, which the module's UTF-16 paths cannot carry, is read
/// here and parsed from its bytes (up to the module's limit for LUT files).
int ParseLUTFile(const std::string& path, std::shared_ptr<void>& lut);

/// "--interp tetrahedral runs on GPU devices only ..." for the CPU device, naming the devices.
std::string TetrahedralOnCPUMessage();

}  // namespace crandle_tool
