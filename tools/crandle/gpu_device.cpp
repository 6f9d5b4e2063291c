#include "gpu_device.h"

#include <chrono>
#include <cstdlib>

#include "crandle/crandle.h"
#include "host/video_frame.h"
#include "process_clock.h"

namespace crandle_tool {
namespace {

using Clock = std::chrono::steady_clock;

std::string LabelOf(uint32_t framework, uint32_t index) {
  return std::string(framework == host::kGPUFrameworkCUDA ? "cuda:" : "opencl:") +
         std::to_string(index);
}

}  // namespace

std::string GPUDeviceList() {
  std::string list;
  for (const auto& device : host::EnumerateGPUDevices()) {
    const host::GPUDeviceInfo& info = device->GetInfo();
    if (!list.empty()) list += ", ";
    list += LabelOf(info.frameworkCode, info.index) + " (" + info.name + ")";
  }
  return list.empty() ? "none" : list;
}

std::string TetrahedralOnCPUMessage() {
  return "--interp tetrahedral runs on GPU devices only (the CPU path is trilinear); choose "
         "--device opencl[:N] or --device cuda[:N] (GPU devices here: " +
         GPUDeviceList() + ")";
}

bool ChooseDevice(const std::string& request, SDeviceChoice& choice, std::string& error) {
  choice = {};
  if (request == "cpu") {
    choice.label = "cpu";
    return true;
  }
  if (request == "auto") {
    choice.device = host::GetGPUDevice(host::kGPUFrameworkCUDA, 0);
    choice.label = choice.device ? "cuda:0" : "cpu";
    return true;
  }
  const size_t colon = request.find(':');
  const std::string name = request.substr(0, colon);
  uint32_t framework = 0;
  if (name == "opencl") framework = host::kGPUFrameworkOpenCL;
  if (name == "cuda") framework = host::kGPUFrameworkCUDA;
  unsigned long index = 0;
  bool indexOK = true;
  if (colon != std::string::npos) {
    const std::string digits = request.substr(colon + 1);
    char* end = nullptr;
    index = std::strtoul(digits.c_str(), &end, 10);
    indexOK = !digits.empty() && *end == '\0' && digits.size() <= 2;
  }
  if (framework == 0 || !indexOK) {
    error = "unknown device '" + request + "': use cpu, opencl[:N], cuda[:N] or auto";
    return false;
  }
  if (index < host::kMaxGPUDevicesPerFramework) {
    choice.device = host::GetGPUDevice(framework, uint32_t(index));
  }
  if (!choice.device) {
    error = "no device " + request + " here; GPU devices: " + GPUDeviceList();
    return false;
  }
  choice.label = LabelOf(framework, uint32_t(index));
  return true;
}

int ApplyOnGPU(const std::shared_ptr<host::IGPUDevice>& device, const std::shared_ptr<void>& lut,
               host::LUTInterpolationMethod method, const CPicture& source, CPicture& destination,
               SDeviceTimings& timings, std::string& error) {
  using FrameRef = host::InterfaceRef<host::IVideoFrame>;
  const uint32_t width = source.Width(), height = source.Height();
  FrameRef deviceSource, deviceDestination;
  int result =
      host::CreateGPUVideoFrame(deviceSource, device, source.Format(), width, height, false);
  if (result == 0) {
    result = host::CreateGPUVideoFrame(deviceDestination, device, destination.Format(), width,
                                       height, false);
  }
  if (result != 0) {
    error = "cannot make frames of this format on the device";
    return result;
  }
  Clock::time_point start = Clock::now();
  result = host::UploadVideoFrame(source.View(0, height), deviceSource);
  timings.uploadMs = MillisecondsSince(start);
  if (result != 0) {
    error = "cannot upload the picture to the device";
    return result;
  }
  start = Clock::now();
  result = CRANDLE::ApplyLUT(deviceSource, lut, method, deviceDestination);
  if (result == CRANDLE::kResultOK) {
    deviceDestination.Query<host::ICompletionEventVideoFrame>()->WaitForCompletion();
  }
  timings.applyMs = MillisecondsSince(start);
  if (result != CRANDLE::kResultOK) return result;
  start = Clock::now();
  FrameRef hostDestination = destination.View(0, height);
  result = host::DownloadVideoFrame(deviceDestination, hostDestination);
  timings.downloadMs = MillisecondsSince(start);
  if (result != 0) error = "cannot download the result from the device";
  return result;
}

}  // namespace crandle_tool
