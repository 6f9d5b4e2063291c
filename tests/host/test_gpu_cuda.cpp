// What only the CUDA back end has: its driver loader's messages and the fatbins built in.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "gpu/cuda/cuda_kernel_images.h"
#include "host/gpu.h"

namespace {

using testing::HasSubstr;

// Run once per stand-in driver (CMakeLists.txt) with the message parts it must give, '|' apart, in
// CRANDLE_EXPECT_CUDA_MESSAGE; without it, the machine's own driver decides.
TEST(CudaDriverLoader, SaysWhyTheDriverIsUnusable) {
  const auto statuses = host::GetGPUBackendStatus();
  const host::GPUBackendStatus& status = statuses.at(0);  // CUDA first
  EXPECT_EQ(status.name, "CUDA driver");
  EXPECT_TRUE(status.compiledIn);

  std::vector<std::string> expected;
  if (const char* parts = std::getenv("CRANDLE_EXPECT_CUDA_MESSAGE")) {
    std::stringstream text(parts);
    for (std::string part; std::getline(text, part, '|');)
      expected.push_back(part);
  } else if (void* driver = dlopen("libcuda.so.1", RTLD_NOW | RTLD_LOCAL)) {
    dlclose(driver);
    GTEST_SKIP() << "this machine has a CUDA driver: " << status.message;
  } else {
    EXPECT_EQ(status.message, "libcuda.so.1 not found");
  }
  for (const std::string& part : expected)
    EXPECT_THAT(status.message, HasSubstr(part));

  EXPECT_FALSE(status.available);
  EXPECT_EQ(host::GetGPUDevice(host::kGPUFrameworkCUDA, 0), nullptr);
  for (const auto& device : host::EnumerateGPUDevices())
    EXPECT_NE(device->GetInfo().frameworkCode, host::kGPUFrameworkCUDA);
}

// The embedded image must be the fatbin nvcc wrote, byte for byte (the embedding script turns
// it into text and back), aligned for the driver to read its headers in place.
TEST(CudaKernelImages, HoldTheFatbinsNvccBuilt) {
  const auto images = host::CudaKernelImages();
  ASSERT_FALSE(images.empty());
  EXPECT_TRUE(std::is_sorted(images.begin(), images.end(),
                             [](const auto& a, const auto& b) { return a.module < b.module; }));
  ASSERT_NE(host::FindCudaKernelImage("CRANDLE_TEST_SAMPLE"), nullptr);
  EXPECT_EQ(host::FindCudaKernelImage("NO_SUCH_MODULE"), nullptr);

  for (const host::CudaKernelImage& image : images) {
    SCOPED_TRACE(std::string(image.module));
    std::ifstream file(
        std::string(CRANDLE_CUDA_FATBIN_DIR) + "/" + std::string(image.module) + ".fatbin",
        std::ios::binary);
    ASSERT_TRUE(file);
    const std::vector<unsigned char> written((std::istreambuf_iterator<char>(file)),
                                             std::istreambuf_iterator<char>());
    ASSERT_EQ(image.fatbin.size(), written.size());
    EXPECT_TRUE(std::equal(written.begin(), written.end(), image.fatbin.begin()));
    // A fatbin opens with the magic 0xBA55ED50, stored little-endian.
    const unsigned char magic[] = {0x50, 0xed, 0x55, 0xba};
    EXPECT_TRUE(std::equal(std::begin(magic), std::end(magic), image.fatbin.begin()));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(image.fatbin.data()) % 64, 0u);
  }
}

}  // namespace
