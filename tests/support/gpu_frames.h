// Devices and frames for the GPU tests: a suite parameterised over back ends that skips with the
// back end's own reason where it has no device, frames on a device and in memory, and the calls
// the recording test device saw.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "host/gpu.h"
#include "host/gpu_test_device.h"
#include "host/video_frame.h"

namespace crandle_test {

using FrameRef = host::InterfaceRef<host::IVideoFrame>;

/// The framework's first device in `device_`; the test is skipped, saying why, without one.
class GPUBackendTest : public testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override {
    device_ = host::GetGPUDevice(GetParam(), 0);
    if (device_) return;
    std::string why;
    for (const host::GPUBackendStatus& status : host::GetGPUBackendStatus())
      if (status.frameworkCode == GetParam()) why = status.message;
    GTEST_SKIP() << "no " << BackendName(GetParam()) << " device: " << why;
  }

 public:
  static std::string BackendName(uint32_t framework) {
    return framework == host::kGPUFrameworkCUDA ? "CUDA" : "OpenCL";
  }

 protected:
  std::shared_ptr<host::IGPUDevice> device_;
};

/// Instantiates `suite` once for OpenCL (PoCL everywhere) and once for CUDA; ctest labels the
/// CUDA instances, named "CUDA/...", gpu.
#define CRANDLE_GPU_BACKEND_SUITE(suite)                                                     \
  INSTANTIATE_TEST_SUITE_P(OpenCL, suite, testing::Values(host::kGPUFrameworkOpenCL),        \
                           [](const auto& test) { return suite::BackendName(test.param); }); \
  INSTANTIATE_TEST_SUITE_P(CUDA, suite, testing::Values(host::kGPUFrameworkCUDA),            \
                           [](const auto& test) { return suite::BackendName(test.param); })

/// A cleared frame on `device`.
inline FrameRef GPUFrame(const std::shared_ptr<host::IGPUDevice>& device, host::PixelFormat format,
                         uint32_t width, uint32_t height) {
  FrameRef frame;
  EXPECT_EQ(host::CreateGPUVideoFrame(frame, device, format, width, height, true), 0);
  return frame;
}

inline FrameRef HostFrame(host::PixelFormat format, uint32_t width, uint32_t height) {
  FrameRef frame;
  EXPECT_EQ(host::CreateVideoFrame(frame, format, width, height, 1.0f, host::ColorSpace::Unknown,
                                   true, false),
            0);
  return frame;
}

inline std::vector<host::GPUTestCall> CallsNamed(const host::GPUTestDevice& device,
                                                 std::string_view name) {
  std::vector<host::GPUTestCall> out;
  for (const auto& call : device.Calls())
    if (call.operation == name) out.push_back(call);
  return out;
}

inline std::vector<uint8_t> RandomBytes(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes)
    byte = uint8_t(random());
  return bytes;
}

}  // namespace crandle_test
