// The tool's GPU devices: choosing one from --device, and applying a LUT to pictures on it.
#pragma once

#include <memory>
#include <string>

#include "host/gpu.h"
#include "host/interpolation.h"
#include "picture.h"

namespace crandle_tool {

/// What --device chose: a GPU device, or none for the CPU path.
struct SDeviceChoice {
  std::shared_ptr<host::IGPUDevice> device;
  std::string label;  ///< "cpu", "opencl:0", "cuda:1"
};

/// Resolves "cpu", "opencl[:N]", "cuda[:N]" or "auto" (the first CUDA device when there is one,
/// else the CPU). False with a message naming the devices there are when the request is malformed
/// or names no device.
bool ChooseDevice(const std::string& request, SDeviceChoice& choice, std::string& error);

/// The GPU devices of this machine as "opencl:0 (name), cuda:0 (name)", or "none".
std::string GPUDeviceList();

/// "--interp tetrahedral runs on GPU devices only ..." for the CPU device, naming the devices.
std::string TetrahedralOnCPUMessage();

struct SDeviceTimings {
  double uploadMs = 0;
  double applyMs = 0;  ///< until the kernel has finished
  double downloadMs = 0;
};

/// Uploads `source` to `device`, applies `lut` through CRANDLE::ApplyLUT on the device frames
/// and downloads the result into `destination` (same size; each picture BGRA 8-bit, 16-bit or
/// float). Returns ApplyLUT's result, or a negative host result with `error` set when a frame
/// cannot be made or moved.
int ApplyOnGPU(const std::shared_ptr<host::IGPUDevice>& device, const std::shared_ptr<void>& lut,
               host::LUTInterpolationMethod method, const CPicture& source, CPicture& destination,
               SDeviceTimings& timings, std::string& error);

}  // namespace crandle_tool
