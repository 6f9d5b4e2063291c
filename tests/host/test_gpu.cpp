// The host GPU library: the registry, the asset cache and the recording test device without a
// back end, then every back end through one parameterized suite (OpenCL runs on PoCL wherever
// there is no GPU; CUDA skips without an NVIDIA device).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "host/frame_interfaces.h"
#include "host/gpu.h"
#include "host/gpu_test_device.h"
#include "host/pixel_convert.h"
#include "host/video_frame.h"

namespace host {
namespace {

using FrameRef = InterfaceRef<IVideoFrame>;

constexpr std::string_view kTestModule = "CRANDLE_TEST_SAMPLE";
constexpr std::string_view kTestEntry = "ShaderKernel_CRANDLE_TEST_SAMPLE";

std::vector<uint8_t> RandomBytes(size_t count, uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes)
    byte = uint8_t(random());
  return bytes;
}

Guid Key(uint8_t n) {
  Guid key;
  key.bytes[0] = n;
  key.bytes[15] = 0xA5;
  return key;
}

// A texture that only counts bytes, remembering the key it was made for.
struct SFakeTexture : GPUDeviceTexture {
  SFakeTexture(uint64_t bytes, uint8_t key) : key(key) { byteCount = bytes; }
  uint8_t key;
};

std::shared_ptr<GPUDeviceTexture> Fake(uint64_t bytes, uint8_t key = 0) {
  return std::make_shared<SFakeTexture>(bytes, key);
}

// ---- Registry and enumeration ----------------------------------------------------------------

TEST(GPUKernelRegistry, LutModulesNameTheirTextureSlotsInArgumentOrder) {
  const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(nullptr);
  const struct {
    const char* module;
    std::vector<const char*> textures;
  } rows[] = {
      {"COMPOP_LUT1D", {"texture0_RECT", "texture1_2D"}},
      {"COMPOP_LUT3D", {"texture0_RECT", "texture1_3D"}},
      {"COMPOP_LUT3D_TetrahedralInterpolation", {"texture0_RECT", "texture1_3D"}},
      {"COMPOP_LUT1D3D", {"texture0_RECT", "texture1_2D", "texture2_3D"}},
      {"COMPOP_LUT1D3D_TetrahedralInterpolation", {"texture0_RECT", "texture1_2D", "texture2_3D"}},
  };
  for (const auto& row : rows) {
    const std::string entry = std::string("ShaderKernel_") + row.module;
    EXPECT_NE(device->LoadKernel(row.module, entry), nullptr) << row.module;
    EXPECT_EQ(device->LoadKernel(row.module, "ShaderKernel_Other"), nullptr) << row.module;
    // Bound in registry order, each texture fills its own slot: binding them all and nothing
    // else is what a launch accepts.
    const GPUKernel* kernel = device->LoadKernel(row.module, entry);
    GPUTextureBindings bindings;
    std::vector<float> texels(4 * 8, 0.0f);
    const DevicePointer address = reinterpret_cast<uintptr_t>(texels.data());
    for (size_t slot = 0; slot < row.textures.size(); ++slot) {
      const GPUTexture* texture = device->LoadTexture(row.module, row.textures[slot]);
      ASSERT_NE(texture, nullptr) << row.module << " " << row.textures[slot];
      EXPECT_EQ(device->LoadTexture(row.module, row.textures[slot]), texture);
      EXPECT_EQ(device->BindTexture(bindings, texture, address, 0, 64, 2, 2,
                                    kPixelFormat_BGRA_4444_32f, 0),
                0);
      EXPECT_EQ(bindings.entries[slot].texture, texture);
    }
    EXPECT_EQ(bindings.count, row.textures.size());
    EXPECT_EQ(device->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, {}), 0) << row.module;
    EXPECT_EQ(device->LoadTexture(row.module, "texture3_3D"), nullptr);
  }
  EXPECT_EQ(device->LoadKernel("COMPOP_LUT2D", "ShaderKernel_COMPOP_LUT2D"), nullptr);
  EXPECT_EQ(device->LoadTexture("COMPOP_LUT2D", "texture0_RECT"), nullptr);
}

TEST(GPUDevices, EnumerationOrderAndIndexLimit) {
  const std::vector<GPUBackendStatus> statuses = GetGPUBackendStatus();
  ASSERT_EQ(statuses.size(), 2u);
  EXPECT_EQ(statuses[0].frameworkCode, kGPUFrameworkCUDA);
  EXPECT_EQ(statuses[1].frameworkCode, kGPUFrameworkOpenCL);
  for (const GPUBackendStatus& status : statuses) {
    EXPECT_FALSE(status.message.empty()) << status.name;
    if (status.available) {
      EXPECT_TRUE(status.compiledIn) << status.name;
    }
  }

  const std::vector<std::shared_ptr<IGPUDevice>> devices = EnumerateGPUDevices();
  // CUDA devices first, then OpenCL, each framework's indices counting from 0.
  std::map<uint32_t, uint32_t> next;
  uint32_t lastFramework = 0;
  for (const auto& device : devices) {
    const GPUDeviceInfo& info = device->GetInfo();
    EXPECT_GE(info.frameworkCode, lastFramework);
    lastFramework = info.frameworkCode;
    EXPECT_EQ(info.index, next[info.frameworkCode]++);
    EXPECT_LT(info.index, kMaxGPUDevicesPerFramework);
    EXPECT_EQ(GetGPUDevice(info.frameworkCode, info.index), device);
    const bool available = statuses[info.frameworkCode - 1].available;
    EXPECT_TRUE(available);
  }
  for (uint32_t framework : {kGPUFrameworkCUDA, kGPUFrameworkOpenCL}) {
    EXPECT_EQ(GetGPUDevice(framework, 4), nullptr);
    EXPECT_EQ(GetGPUDevice(framework, 0xFFFFFFFFu), nullptr);
  }
  EXPECT_EQ(GetGPUDevice(0, 0), nullptr);
  EXPECT_EQ(GetGPUDevice(3, 0), nullptr);
}

// ---- Asset cache -----------------------------------------------------------------------------

TEST(GPUAssetCache, LeastRecentlyUsedLeaveFirstWithinTheBudget) {
  const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(nullptr);
  IGPUDeviceAssetCache& cache = GetDeviceAssetCache(*device);
  EXPECT_EQ(cache.GetBudget(), uint64_t{512} << 20);  // the documented default
  cache.SetBudget(100);

  auto a = Fake(40, 1), b = Fake(40, 2), c = Fake(40, 3);
  EXPECT_EQ(cache.Find(Key(1)), nullptr);
  EXPECT_EQ(cache.Insert(Key(1), a), a);
  EXPECT_EQ(cache.Insert(Key(2), b), b);
  EXPECT_EQ(cache.GetBytesHeld(), 80u);
  // A second insert under a key keeps the first texture and hands it back.
  EXPECT_EQ(cache.Insert(Key(1), Fake(40, 9)), a);
  EXPECT_EQ(cache.GetBytesHeld(), 80u);
  // Key 1 was used last, so key 2 leaves when key 3 needs room.
  EXPECT_EQ(cache.Find(Key(1)), a);
  EXPECT_EQ(cache.Insert(Key(3), c), c);
  EXPECT_EQ(cache.Find(Key(2)), nullptr);
  EXPECT_EQ(cache.Find(Key(1)), a);
  EXPECT_EQ(cache.Find(Key(3)), c);
  EXPECT_EQ(cache.GetBytesHeld(), 80u);
  // An evicted texture stays valid for its holder.
  EXPECT_EQ(b->byteCount, 40u);

  // Larger than the whole budget: handed back, not kept, nothing evicted.
  auto huge = Fake(101, 4);
  EXPECT_EQ(cache.Insert(Key(4), huge), huge);
  EXPECT_EQ(cache.Find(Key(4)), nullptr);
  EXPECT_EQ(cache.GetBytesHeld(), 80u);
  // Exactly the budget fits, pushing out everything else.
  auto whole = Fake(100, 5);
  EXPECT_EQ(cache.Insert(Key(5), whole), whole);
  EXPECT_EQ(cache.GetBytesHeld(), 100u);
  EXPECT_EQ(cache.Find(Key(1)), nullptr);
  EXPECT_EQ(cache.Find(Key(3)), nullptr);

  // Lowering the budget evicts at once; a null texture is refused.
  cache.SetBudget(99);
  EXPECT_EQ(cache.GetBytesHeld(), 0u);
  EXPECT_EQ(cache.Find(Key(5)), nullptr);
  EXPECT_EQ(cache.Insert(Key(6), nullptr), nullptr);
  EXPECT_EQ(cache.Insert(Key(7), Fake(0, 7))->byteCount, 0u);
  cache.Clear();
  EXPECT_EQ(cache.Find(Key(7)), nullptr);
}

TEST(GPUAssetCache, EightThreadsFindAndInsertConsistently) {
  const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(nullptr);
  IGPUDeviceAssetCache& cache = device->GetAssetCache();
  constexpr uint64_t kBudget = 10 * 64;
  cache.SetBudget(kBudget);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (uint32_t t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(t);
      for (int i = 0; i < 3000; ++i) {
        const uint8_t key = uint8_t(random() % 24);
        std::shared_ptr<GPUDeviceTexture> found = cache.Find(Key(key));
        if (!found) found = cache.Insert(Key(key), Fake(64, key));
        if (!found || static_cast<SFakeTexture&>(*found).key != key) ++wrong;
        if (cache.GetBytesHeld() > kBudget) ++wrong;
        if (i % 500 == 0 && t == 0) cache.SetBudget(kBudget);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_LE(cache.GetBytesHeld(), kBudget);
  EXPECT_EQ(cache.GetBytesHeld() % 64, 0u);
}

// ---- The recording test device ---------------------------------------------------------------

// Runs the steps an apply makes, the way it makes them, and reports the first failure.
struct SApplyRun {
  int result = 0;
  const char* failedAt = nullptr;
};

SApplyRun RunApplySteps(IGPUDevice& device) {
  auto fail = [](const char* step, int result) { return SApplyRun{result, step}; };
  IGPUHostAllocator* staging = device.GetHostAllocator();
  IGPUDeviceAllocator* memory = device.GetDeviceAllocator();
  GPUHostBlock* constants = staging->Allocate(32, 0, kGPUUsageConstants);
  if (!constants) return fail("HostAllocate", -1);
  GPUDeviceBlock* block = memory->Allocate(32, 0, kGPUUsageConstants);
  SApplyRun run;
  const float rows[8] = {1, 2, 3, 4, 0.5f, 0.25f, 0, -1};
  if (!block) {
    run = fail("DeviceAllocate", -1);
  } else if (!constants->mappedView) {
    run = fail("MapView", -1);
  } else {
    std::memcpy(constants->mappedView, rows, sizeof rows);
    int r = staging->Unmap(constants);
    if (r != 0) run = fail("Unmap", r);
    if (!run.failedAt && (r = device.CopyStagingToDevice(block->pointer, *constants, 32, false)))
      run = fail("ConstantCopy", r);
    std::vector<float> table(4 * 4 * 4 * 4, 0.5f);
    std::shared_ptr<GPUDeviceTexture> texture;
    if (!run.failedAt && !(texture = device.UploadTexture(table.data(), 64, 4, 4, 4)))
      run = fail("UploadTexture", -1);
    const GPUKernel* kernel = nullptr;
    if (!run.failedAt && !(kernel = device.LoadKernel(kTestModule, kTestEntry)))
      run = fail("LoadKernel", -1);
    const GPUTexture* flat = nullptr;
    const GPUTexture* cube = nullptr;
    if (!run.failedAt && (!(flat = device.LoadTexture(kTestModule, "sample2D")) ||
                          !(cube = device.LoadTexture(kTestModule, "sample3D"))))
      run = fail("LoadTexture", -1);
    GPUTextureBindings bindings;
    if (!run.failedAt && (r = device.BindTexture(bindings, flat, texture->texels, 0, 64, 4, 4,
                                                 kPixelFormat_BGRA_4444_32f, 0)))
      run = fail("BindTexture", r);
    if (!run.failedAt && (r = device.Bind3DTexture(bindings, cube, texture->texels, 64, 4, 4, 4,
                                                   kPixelFormat_BGRA_4444_32f, 0)))
      run = fail("Bind3DTexture", r);
    const GPUKernelArgument arguments[] = {
        GPUKernelArgument::Pointer(block->pointer),
        GPUKernelArgument::Pointer(texture ? texture->texels : 0),
        GPUKernelArgument::UInt32(1),
        GPUKernelArgument::UInt32(1),
        GPUKernelArgument::Int32(-2),
        GPUKernelArgument::Float32(0.5f)};
    if (!run.failedAt && (r = device.Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, arguments)))
      run = fail("Launch", r);
    if (!run.failedAt) run.result = device.Synchronize();
  }
  memory->Release(block);
  staging->Release(constants);
  return run;
}

// Each fault, over no back end and over each real device, stops the steps where it should with
// a negative result or a null handle.
TEST(GPUTestDevice, EachFaultFailsItsOperation) {
  std::vector<std::shared_ptr<IGPUDevice>> inners{nullptr};
  for (const auto& device : EnumerateGPUDevices())
    inners.push_back(device);
  const struct {
    GPUTestOperation operation;
    const char* failedAt;
    int result;
  } cases[] = {
      {GPUTestOperation::HostAllocate, "HostAllocate", -1},
      {GPUTestOperation::MapView, "MapView", -1},
      {GPUTestOperation::Unmap, "Unmap", kGPUErrorInjected},
      {GPUTestOperation::DeviceAllocate, "DeviceAllocate", -1},
      {GPUTestOperation::ConstantCopy, "ConstantCopy", kGPUErrorInjected},
      {GPUTestOperation::UploadTexture, "UploadTexture", -1},
      {GPUTestOperation::LoadKernel, "LoadKernel", -1},
      {GPUTestOperation::LoadTexture, "LoadTexture", -1},
      {GPUTestOperation::BindTexture, "BindTexture", kGPUErrorInjected},
      {GPUTestOperation::Bind3DTexture, "Bind3DTexture", kGPUErrorInjected},
      {GPUTestOperation::Launch, "Launch", kGPUErrorInjected},
  };
  for (const auto& inner : inners) {
    const std::string over = inner ? inner->GetInfo().name : "no back end";
    const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(inner, 2);
    EXPECT_EQ(device->GetInfo().index, 2u);
    const SApplyRun clean = RunApplySteps(*device);
    EXPECT_EQ(clean.failedAt, nullptr) << over << ": " << clean.failedAt;
    EXPECT_EQ(clean.result, 0) << over;
    for (const auto& c : cases) {
      device->SetFailure(c.operation, true);
      const SApplyRun run = RunApplySteps(*device);
      device->SetFailure(c.operation, false);
      ASSERT_NE(run.failedAt, nullptr) << over << ": " << c.failedAt;
      EXPECT_STREQ(run.failedAt, c.failedAt) << over;
      EXPECT_EQ(run.result, c.result) << over << ": " << c.failedAt;
    }
    EXPECT_EQ(RunApplySteps(*device).failedAt, nullptr) << over << ": faults cleared";
  }
}

TEST(GPUTestDevice, RecordsNamesSizesConstantsAndArguments) {
  const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(nullptr);
  EXPECT_EQ(device->GetInfo().frameworkCode, 0u);
  device->SetCodes(kGPUFrameworkCUDA, 3);
  EXPECT_EQ(device->GetInfo().frameworkCode, kGPUFrameworkCUDA);
  EXPECT_EQ(device->GetInfo().kindCode, 3u);
  ASSERT_EQ(RunApplySteps(*device).failedAt, nullptr);

  std::map<std::string, std::vector<GPUTestCall>> byName;
  for (const GPUTestCall& call : device->Calls())
    byName[call.operation].push_back(call);
  ASSERT_EQ(byName["HostAllocator.Allocate"].size(), 1u);
  EXPECT_EQ(byName["HostAllocator.Allocate"][0].bytes, 32u);
  EXPECT_EQ(byName["DeviceAllocator.Allocate"][0].bytes, 32u);
  ASSERT_EQ(byName["CopyStagingToDevice"].size(), 1u);
  const float rows[8] = {1, 2, 3, 4, 0.5f, 0.25f, 0, -1};
  std::vector<uint8_t> expected(sizeof rows);
  std::memcpy(expected.data(), rows, sizeof rows);
  EXPECT_EQ(byName["CopyStagingToDevice"][0].payload, expected);
  EXPECT_EQ(byName["UploadTexture"][0].bytes, 4u * 4 * 4 * 16);
  EXPECT_EQ(byName["UploadTexture"][0].depth, 4u);
  EXPECT_EQ(byName["LoadKernel"][0].detail, "CRANDLE_TEST_SAMPLE/ShaderKernel_CRANDLE_TEST_SAMPLE");
  EXPECT_EQ(byName["LoadTexture"][1].detail, "CRANDLE_TEST_SAMPLE/sample3D");
  EXPECT_EQ(byName["BindTexture"][0].bytes, 64u);
  EXPECT_EQ(byName["Bind3DTexture"][0].depth, 4u);
  ASSERT_EQ(byName["Launch"].size(), 1u);
  const GPUTestCall& launch = byName["Launch"][0];
  EXPECT_EQ(launch.grid.x, 1u);
  EXPECT_EQ(launch.block.y, 1u);
  ASSERT_EQ(launch.payload.size(), 6u * 8);
  // Int32 -2 and Float32 0.5 travel as their 32-bit patterns in the low bytes.
  const uint8_t minusTwo[8] = {0xFE, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
  const uint8_t half[8] = {0x00, 0x00, 0x00, 0x3F, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(&launch.payload[32], minusTwo, 8), 0);
  EXPECT_EQ(std::memcmp(&launch.payload[40], half, 8), 0);
  EXPECT_EQ(byName["HostAllocator.Release"].size(), 1u);
  device->ClearCalls();
  EXPECT_TRUE(device->Calls().empty());
}

TEST(GPUTestDevice, BareDeviceChecksBindsAndLaunches) {
  const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(nullptr);
  const GPUKernel* kernel = device->LoadKernel(kTestModule, kTestEntry);
  const GPUTexture* flat = device->LoadTexture(kTestModule, "sample2D");
  const GPUTexture* cube = device->LoadTexture(kTestModule, "sample3D");
  ASSERT_TRUE(kernel && flat && cube);
  std::vector<float> texels(4 * 8 * 8 * 8);
  const DevicePointer at = reinterpret_cast<uintptr_t>(texels.data());
  const PixelFormat k32 = kPixelFormat_BGRA_4444_32f;
  GPUTextureBindings bindings;
  const struct {
    const char* what;
    const GPUTexture* texture;
    DevicePointer texels;
    size_t rowBytes;
    uint32_t width, height;
    PixelFormat format;
    uint32_t flags;
  } refusals[] = {
      {"null texture", nullptr, at, 128, 8, 8, k32, 0},
      {"null texels", flat, 0, 128, 8, 8, k32, 0},
      {"zero width", flat, at, 128, 0, 8, k32, 0},
      {"rows too short", flat, at, 127, 8, 8, k32, 0},
      {"flags", flat, at, 128, 8, 8, k32, 1},
      {"10-bit format", flat, at, 128, 8, 8, kPixelFormat_RGB_101010_10u_BE, 0},
  };
  for (const auto& r : refusals)
    EXPECT_EQ(device->BindTexture(bindings, r.texture, r.texels, 0, r.rowBytes, r.width, r.height,
                                  r.format, r.flags),
              kGPUErrorInvalidArgument)
        << r.what;
  EXPECT_EQ(device->Bind3DTexture(bindings, cube, at, 128, 8, 8, 8, kPixelFormat_BGRA_4444_8u, 0),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(bindings.count, 0u);
  // Only the 3-D slot bound: the launch is refused until the 2-D slot is too.
  ASSERT_EQ(device->Bind3DTexture(bindings, cube, at, 128, 8, 8, 8, k32, 0), 0);
  EXPECT_EQ(device->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, {}), kGPUErrorInvalidArgument);
  ASSERT_EQ(device->BindTexture(bindings, flat, at, 16, 128, 8, 8, k32, 0), 0);
  EXPECT_EQ(bindings.entries[0].texels, at + 16);
  EXPECT_EQ(device->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, {}), 0);
  EXPECT_EQ(device->Launch(kernel, {0, 1, 1}, {1, 1, 1}, bindings, {}), kGPUErrorInvalidArgument);
  EXPECT_EQ(device->Launch(nullptr, {1, 1, 1}, {1, 1, 1}, bindings, {}), kGPUErrorInvalidArgument);
  // After a reset, the old handles are refused and new ones work.
  const uint64_t stamp = device->GetGenerationStamp();
  ASSERT_EQ(device->Reset(), 0);
  EXPECT_NE(device->GetGenerationStamp(), stamp);
  EXPECT_EQ(device->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, {}), kGPUErrorInvalidArgument);
  EXPECT_EQ(device->BindTexture(bindings, flat, at, 0, 128, 8, 8, k32, 0),
            kGPUErrorInvalidArgument);
  EXPECT_NE(device->LoadKernel(kTestModule, kTestEntry), kernel);
}

// ---- Every back end --------------------------------------------------------------------------

const char* FrameworkName(uint32_t framework) {
  return framework == kGPUFrameworkCUDA ? "CUDA" : "OpenCL";
}

class GPUBackendTest : public testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override {
    device_ = GetGPUDevice(GetParam(), 0);
    if (!device_) {
      std::string why;
      for (const GPUBackendStatus& status : GetGPUBackendStatus())
        if (status.frameworkCode == GetParam()) why = status.message;
      GTEST_SKIP() << "no " << FrameworkName(GetParam()) << " device: " << why;
    }
  }

  // A device block that goes back to the allocator with the test.
  DevicePointer Allocate(size_t bytes) {
    GPUDeviceBlock* block = device_->GetDeviceAllocator()->Allocate(bytes, 0, 0);
    if (!block) return 0;
    blocks_.push_back(block);
    return block->pointer;
  }
  void TearDown() override {
    if (!device_) return;
    for (GPUDeviceBlock* block : blocks_)
      device_->GetDeviceAllocator()->Release(block);
  }

  std::shared_ptr<IGPUDevice> device_;
  std::vector<GPUDeviceBlock*> blocks_;
};

TEST_P(GPUBackendTest, DescribesItself) {
  const GPUDeviceInfo& info = device_->GetInfo();
  EXPECT_EQ(info.frameworkCode, GetParam());
  EXPECT_EQ(info.index, 0u);
  const std::vector<uint32_t> kinds =
      GetParam() == kGPUFrameworkCUDA ? std::vector<uint32_t>{3} : std::vector<uint32_t>{1, 2};
  EXPECT_NE(std::find(kinds.begin(), kinds.end(), info.kindCode), kinds.end()) << info.kindCode;
  EXPECT_FALSE(info.name.empty());
  EXPECT_FALSE(info.driverVersion.empty());
  EXPECT_GT(info.memoryBytes, 0u);
  EXPECT_NE(device_->GetHostAllocator(), nullptr);
  EXPECT_NE(device_->GetDeviceAllocator(), nullptr);
}

TEST_P(GPUBackendTest, CopiesRoundTripExactBytes) {
  // 1-D, through an offset inside the allocation.
  const std::vector<uint8_t> bytes = RandomBytes(100003, 1);
  const DevicePointer a = Allocate(bytes.size() + 77);
  const DevicePointer b = Allocate(bytes.size() + 77);
  ASSERT_TRUE(a && b);
  ASSERT_EQ(device_->CopyHostToDevice(a + 77, 0, bytes.data(), 0, bytes.size(), 1), 0);
  std::vector<uint8_t> back(bytes.size());
  ASSERT_EQ(device_->CopyDeviceToHost(back.data(), 0, a + 77, 0, bytes.size(), 1), 0);
  EXPECT_EQ(back, bytes);

  // Device to device, between offsets.
  ASSERT_EQ(device_->CopyDeviceToDevice(b + 13, a + 77, 5000), 0);
  std::vector<uint8_t> part(5000);
  ASSERT_EQ(device_->CopyDeviceToHost(part.data(), 0, b + 13, 0, part.size(), 1), 0);
  EXPECT_TRUE(std::equal(part.begin(), part.end(), bytes.begin()));

  // 2-D with three different pitches: the bytes between rows keep what they held.
  constexpr size_t kRow = 45, kRows = 31, kHostPitch = 53, kDevicePitch = 256, kOutPitch = 64;
  const std::vector<uint8_t> picture = RandomBytes(kHostPitch * kRows, 2);
  const std::vector<uint8_t> background = RandomBytes(kDevicePitch * kRows, 3);
  const DevicePointer rows = Allocate(background.size());
  ASSERT_TRUE(rows);
  ASSERT_EQ(device_->CopyHostToDevice(rows, 0, background.data(), 0, background.size(), 1), 0);
  ASSERT_EQ(device_->CopyHostToDevice(rows, kDevicePitch, picture.data(), kHostPitch, kRow, kRows),
            0);
  std::vector<uint8_t> whole(background.size());
  ASSERT_EQ(device_->CopyDeviceToHost(whole.data(), 0, rows, 0, whole.size(), 1), 0);
  std::vector<uint8_t> out(kOutPitch * kRows, 0xEE);
  ASSERT_EQ(device_->CopyDeviceToHost(out.data(), kOutPitch, rows, kDevicePitch, kRow, kRows), 0);
  for (size_t y = 0; y < kRows; ++y) {
    for (size_t x = 0; x < kDevicePitch; ++x) {
      const uint8_t expected =
          x < kRow ? picture[y * kHostPitch + x] : background[y * kDevicePitch + x];
      ASSERT_EQ(whole[y * kDevicePitch + x], expected) << x << "," << y;
    }
    for (size_t x = 0; x < kOutPitch; ++x)
      ASSERT_EQ(out[y * kOutPitch + x], x < kRow ? picture[y * kHostPitch + x] : 0xEE)
          << x << "," << y;
  }

  // Rows longer than a pitch are refused, as are null addresses.
  EXPECT_EQ(device_->CopyHostToDevice(rows, 40, picture.data(), kHostPitch, kRow, 2),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyDeviceToHost(out.data(), kOutPitch, rows, 44, kRow, 2),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyHostToDevice(0, 0, picture.data(), 0, 8, 1), kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyDeviceToHost(nullptr, 0, rows, 0, 8, 1), kGPUErrorInvalidArgument);
}

TEST_P(GPUBackendTest, StagingCopiesAndPooledBlocks) {
  IGPUHostAllocator& staging = *device_->GetHostAllocator();
  IGPUDeviceAllocator& memory = *device_->GetDeviceAllocator();
  EXPECT_EQ(staging.Allocate(0, 0, kGPUUsageConstants), nullptr);
  EXPECT_EQ(staging.Allocate(32, 1, kGPUUsageConstants), nullptr);
  EXPECT_EQ(memory.Allocate(0, 0, kGPUUsageConstants), nullptr);
  EXPECT_EQ(memory.Allocate(32, 1, kGPUUsageConstants), nullptr);
  staging.Release(nullptr);
  memory.Release(nullptr);

  const std::vector<uint8_t> first = RandomBytes(48, 4), second = RandomBytes(48, 5);
  GPUHostBlock* block = staging.Allocate(48, 0, kGPUUsageConstants);
  GPUDeviceBlock* target = memory.Allocate(96, 0, kGPUUsageConstants);
  ASSERT_TRUE(block && target && block->mappedView && block->size >= 48);
  // From the mapped view, then (after unmapping) from the block itself.
  std::memcpy(block->mappedView, first.data(), 48);
  ASSERT_EQ(device_->CopyStagingToDevice(target->pointer, *block, 48, true), 0);
  ASSERT_EQ(staging.Unmap(block), 0);
  EXPECT_EQ(block->mappedView, nullptr);
  GPUHostBlock* block2 = staging.Allocate(48, 0, kGPUUsageConstants);
  ASSERT_TRUE(block2);
  std::memcpy(block2->data, second.data(), 48);
  ASSERT_EQ(device_->CopyStagingToDevice(target->pointer + 48, *block2, 48, false), 0);
  EXPECT_EQ(device_->CopyStagingToDevice(target->pointer, *block2, 49, false),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyStagingToDevice(target->pointer, *block, 48, true),
            kGPUErrorInvalidArgument);  // no view any more
  // Releasing right after queueing: the copies still see their bytes.
  staging.Release(block);
  staging.Release(block2);
  std::vector<uint8_t> back(96);
  ASSERT_EQ(device_->CopyDeviceToHost(back.data(), 0, target->pointer, 0, 96, 1), 0);
  EXPECT_TRUE(std::equal(first.begin(), first.end(), back.begin()));
  EXPECT_TRUE(std::equal(second.begin(), second.end(), back.begin() + 48));

  // A released device block of the same size comes back without a trip to the driver.
  const DevicePointer address = target->pointer;
  memory.Release(target);
  GPUDeviceBlock* again = memory.Allocate(96, 0, kGPUUsageConstants);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->pointer, address);
  memory.Release(again);
  ASSERT_NE(device_->RecordEvent(), nullptr);
  EXPECT_EQ(device_->RecordEvent()->Wait(), 0);
  EXPECT_EQ(device_->Synchronize(), 0);
}

TEST_P(GPUBackendTest, KernelsAndSlotsByName) {
  const GPUKernel* kernel = LoadKernel(*device_, kTestModule, kTestEntry);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(LoadKernel(*device_, kTestModule, kTestEntry), kernel);
  EXPECT_EQ(LoadKernel(*device_, kTestModule, "ShaderKernel_Missing"), nullptr);
  EXPECT_EQ(LoadKernel(*device_, "NO_SUCH_MODULE", kTestEntry), nullptr);
  EXPECT_EQ(LoadKernel(*device_, "", ""), nullptr);
  EXPECT_NE(LoadTexture(*device_, kTestModule, "sample2D"), nullptr);
  EXPECT_EQ(LoadTexture(*device_, kTestModule, "sample1D"), nullptr);
  EXPECT_EQ(LoadTexture(*device_, "NO_SUCH_MODULE", "sample2D"), nullptr);
}

// The test kernel's output for one coordinate: the 2-D texel at (u, v) as stored and the 3-D
// texel at (u + shift, v, w) plus bias, coordinates clamped to the edges.
struct STextures {
  uint32_t width2 = 5, height2 = 3;
  uint32_t n3x = 3, n3y = 4, n3z = 2;
  std::vector<uint8_t> flat;  // rows of `pitch2` bytes
  size_t pitch2 = 0;
  std::vector<float> cube;  // packed
};

int Floor(float f) {
  return int(std::floor(f));
}

void ExpectSamples(const std::vector<float>& out, const std::vector<float>& coordinates,
                   size_t count, const STextures& t, PixelFormat format, int shift, float bias,
                   const std::string& what) {
  for (size_t i = 0; i < count; ++i) {
    const int u = std::clamp(Floor(coordinates[4 * i]), 0, int(t.width2) - 1);
    const int v = std::clamp(Floor(coordinates[4 * i + 1]), 0, int(t.height2) - 1);
    for (int c = 0; c < 4; ++c) {
      const uint8_t* pixel = t.flat.data() + v * t.pitch2 + u * BytesPerPixel(format);
      float expected = 0;
      if (format.variant == 8) {
        expected = pixel[c];
      } else if (format.variant == 16) {
        uint16_t value;
        std::memcpy(&value, pixel + 2 * c, 2);
        expected = value;
      } else {
        std::memcpy(&expected, pixel + 4 * c, 4);
      }
      ASSERT_EQ(out[8 * i + c], expected) << what << " 2-D sample " << i << " channel " << c;
    }
    const int x = std::clamp(Floor(coordinates[4 * i]) + shift, 0, int(t.n3x) - 1);
    const int y = std::clamp(Floor(coordinates[4 * i + 1]), 0, int(t.n3y) - 1);
    const int z = std::clamp(Floor(coordinates[4 * i + 2]), 0, int(t.n3z) - 1);
    for (int c = 0; c < 4; ++c)
      ASSERT_EQ(out[8 * i + 4 + c], t.cube[((z * t.n3y + y) * t.n3x + x) * 4 + c] + bias)
          << what << " 3-D sample " << i << " channel " << c;
  }
}

TEST_P(GPUBackendTest, LaunchSamplesBoundTexturesAtTexelCentres) {
  const GPUKernel* kernel = LoadKernel(*device_, kTestModule, kTestEntry);
  const GPUTexture* flatSlot = LoadTexture(*device_, kTestModule, "sample2D");
  const GPUTexture* cubeSlot = LoadTexture(*device_, kTestModule, "sample3D");
  ASSERT_TRUE(kernel && flatSlot && cubeSlot);

  STextures t;
  // The 3-D table goes up through UploadTexture from rows with padding.
  std::mt19937 random(7);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  t.cube.resize(size_t(t.n3x) * t.n3y * t.n3z * 4);
  for (float& f : t.cube)
    f = value(random);
  const size_t paddedRow = t.n3x * 16 + 32;
  std::vector<uint8_t> padded(paddedRow * t.n3y * t.n3z, 0xCD);
  for (size_t row = 0; row < size_t(t.n3y) * t.n3z; ++row)
    std::memcpy(&padded[row * paddedRow], &t.cube[row * t.n3x * 4], t.n3x * 16);
  const std::shared_ptr<GPUDeviceTexture> cube =
      device_->UploadTexture(padded.data(), paddedRow, t.n3x, t.n3y, t.n3z);
  ASSERT_NE(cube, nullptr);
  EXPECT_EQ(cube->rowBytes, t.n3x * 16u);
  EXPECT_EQ(cube->byteCount, size_t(t.n3x) * t.n3y * t.n3z * 16);

  // Every texel centre of the 3-D table and a few beyond its edges.
  std::vector<float> coordinates;
  for (uint32_t z = 0; z < t.n3z; ++z)
    for (uint32_t y = 0; y < t.n3y + 1; ++y)
      for (int x = -1; x < int(t.width2) + 1; ++x)
        coordinates.insert(coordinates.end(), {x + 0.5f, y + 0.5f, z + 0.5f, 0.0f});
  const uint32_t count = uint32_t(coordinates.size() / 4);
  const uint32_t width = 8, height = (count + width - 1) / width;
  coordinates.resize(size_t(width) * height * 4, 0.5f);
  const DevicePointer coordinateMemory = Allocate(coordinates.size() * 4);
  const DevicePointer outMemory = Allocate(coordinates.size() * 8);
  ASSERT_TRUE(coordinateMemory && outMemory);
  ASSERT_EQ(device_->CopyHostToDevice(coordinateMemory, 0, coordinates.data(), 0,
                                      coordinates.size() * 4, 1),
            0);

  for (PixelFormat format :
       {kPixelFormat_BGRA_4444_8u, kPixelFormat_BGRA_4444_16u, kPixelFormat_BGRA_4444_32f}) {
    // The 2-D picture sits one row into its allocation, reached through the bind's offset.
    t.pitch2 = 256;
    t.flat = RandomBytes(t.pitch2 * t.height2, format.variant);
    if (format.variant == 32)
      for (size_t i = 0; i < t.flat.size() / 4; ++i) {
        const float f = value(random);
        std::memcpy(&t.flat[4 * i], &f, 4);
      }
    const DevicePointer flat = Allocate(t.pitch2 * (t.height2 + 1));
    ASSERT_TRUE(flat);
    ASSERT_EQ(device_->CopyHostToDevice(flat + t.pitch2, 0, t.flat.data(), 0, t.flat.size(), 1), 0);

    for (const auto& [shift, bias, block] :
         {std::tuple{0, 0.0f, GPUDim3{1, 1, 1}}, std::tuple{-1, 0.25f, GPUDim3{4, 2, 1}}}) {
      GPUTextureBindings bindings;
      ASSERT_EQ(device_->BindTexture(bindings, flatSlot, flat, t.pitch2, t.pitch2, t.width2,
                                     t.height2, format, 0),
                0);
      ASSERT_EQ(device_->Bind3DTexture(bindings, cubeSlot, cube->texels, cube->rowBytes, t.n3x,
                                       t.n3y, t.n3z, kPixelFormat_BGRA_4444_32f, 0),
                0);
      const GPUKernelArgument arguments[] = {GPUKernelArgument::Pointer(coordinateMemory),
                                             GPUKernelArgument::Pointer(outMemory),
                                             GPUKernelArgument::UInt32(width),
                                             GPUKernelArgument::UInt32(height),
                                             GPUKernelArgument::Int32(shift),
                                             GPUKernelArgument::Float32(bias)};
      // Rounded up: threads past the picture must leave the memory alone.
      const GPUDim3 grid{(width + block.x - 1) / block.x, (height + block.y - 1) / block.y, 1};
      ASSERT_EQ(device_->Launch(kernel, grid, block, bindings, arguments), 0);
      std::vector<float> out(coordinates.size() * 2);
      ASSERT_EQ(device_->CopyDeviceToHost(out.data(), 0, outMemory, 0, out.size() * 4, 1), 0);
      ExpectSamples(out, coordinates, count, t, format, shift, bias,
                    std::string(PixelFormatName(format)) + " block " + std::to_string(block.x) +
                        "x" + std::to_string(block.y));
    }
  }
}

TEST_P(GPUBackendTest, LaunchRefusesWhatTheKernelCannotTake) {
  const GPUKernel* kernel = LoadKernel(*device_, kTestModule, kTestEntry);
  const GPUTexture* flatSlot = LoadTexture(*device_, kTestModule, "sample2D");
  const GPUTexture* cubeSlot = LoadTexture(*device_, kTestModule, "sample3D");
  ASSERT_TRUE(kernel && flatSlot && cubeSlot);
  const DevicePointer memory = Allocate(4096);
  ASSERT_TRUE(memory);
  GPUTextureBindings bindings;
  ASSERT_EQ(
      device_->BindTexture(bindings, flatSlot, memory, 0, 256, 4, 4, kPixelFormat_BGRA_4444_8u, 0),
      0);
  const GPUKernelArgument arguments[] = {
      GPUKernelArgument::Pointer(memory), GPUKernelArgument::Pointer(memory),
      GPUKernelArgument::UInt32(0),       GPUKernelArgument::UInt32(0),
      GPUKernelArgument::Int32(0),        GPUKernelArgument::Float32(0)};
  EXPECT_EQ(device_->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, arguments),
            kGPUErrorInvalidArgument);  // the 3-D slot is not bound
  ASSERT_EQ(device_->Bind3DTexture(bindings, cubeSlot, memory, 64, 4, 4, 4,
                                   kPixelFormat_BGRA_4444_32f, 0),
            0);
  EXPECT_EQ(device_->Bind3DTexture(bindings, cubeSlot, memory, 63, 4, 4, 4,
                                   kPixelFormat_BGRA_4444_32f, 0),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, std::span(arguments).first(5)),
            kGPUErrorInvalidArgument);  // one argument short
  EXPECT_EQ(device_->Launch(kernel, {1, 0, 1}, {1, 1, 1}, bindings, arguments),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->Launch(kernel, {1, 1, 1}, {1, 1, 1}, bindings, arguments), 0);
  // A slot of another device is refused.
  const std::shared_ptr<GPUTestDevice> other = CreateGPUTestDevice(nullptr);
  EXPECT_EQ(device_->BindTexture(bindings, other->LoadTexture(kTestModule, "sample2D"), memory, 0,
                                 256, 4, 4, kPixelFormat_BGRA_4444_8u, 0),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->Synchronize(), 0);
}

TEST_P(GPUBackendTest, ResetChangesTheStampAndKernelsLoadAgain) {
  const GPUKernel* before = LoadKernel(*device_, kTestModule, kTestEntry);
  ASSERT_NE(before, nullptr);
  const GPUTexture* slotBefore = LoadTexture(*device_, kTestModule, "sample2D");
  std::vector<float> table(4 * 2, 1.0f);
  device_->GetAssetCache().Insert(Key(1), device_->UploadTexture(table.data(), 32, 2, 1, 1));
  ASSERT_NE(device_->GetAssetCache().Find(Key(1)), nullptr);
  // Memory allocated before the reset may be given back after it.
  GPUDeviceBlock* old = device_->GetDeviceAllocator()->Allocate(64, 0, 0);
  ASSERT_NE(old, nullptr);

  const uint64_t stamp = device_->GetGenerationStamp();
  ASSERT_EQ(device_->Reset(), 0);
  EXPECT_NE(device_->GetGenerationStamp(), stamp);
  EXPECT_EQ(device_->GetAssetCache().Find(Key(1)), nullptr);
  EXPECT_EQ(device_->GetAssetCache().GetBytesHeld(), 0u);
  device_->GetDeviceAllocator()->Release(old);

  GPUTextureBindings bindings;
  EXPECT_EQ(
      device_->BindTexture(bindings, slotBefore, 256, 0, 256, 4, 4, kPixelFormat_BGRA_4444_8u, 0),
      kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->Launch(before, {1, 1, 1}, {1, 1, 1}, bindings, {}), kGPUErrorInvalidArgument);
  const GPUKernel* after = LoadKernel(*device_, kTestModule, kTestEntry);
  ASSERT_NE(after, nullptr);
  EXPECT_NE(after, before);

  // The reloaded kernel runs: one sample of each texture.
  const float cube[4] = {1.5f, -2.0f, 3.25f, 1.0f};
  const uint8_t pixel[4] = {9, 8, 7, 6};
  const float coordinate[4] = {0.5f, 0.5f, 0.5f, 0};
  const DevicePointer memory = Allocate(256);
  ASSERT_TRUE(memory);
  ASSERT_EQ(device_->CopyHostToDevice(memory, 0, cube, 0, 16, 1), 0);
  ASSERT_EQ(device_->CopyHostToDevice(memory + 16, 0, pixel, 0, 4, 1), 0);
  ASSERT_EQ(device_->CopyHostToDevice(memory + 32, 0, coordinate, 0, 16, 1), 0);
  ASSERT_EQ(device_->BindTexture(bindings, LoadTexture(*device_, kTestModule, "sample2D"), memory,
                                 16, 4, 1, 1, kPixelFormat_BGRA_4444_8u, 0),
            0);
  ASSERT_EQ(device_->Bind3DTexture(bindings, LoadTexture(*device_, kTestModule, "sample3D"), memory,
                                   16, 1, 1, 1, kPixelFormat_BGRA_4444_32f, 0),
            0);
  const GPUKernelArgument arguments[] = {GPUKernelArgument::Pointer(memory + 32),
                                         GPUKernelArgument::Pointer(memory + 64),
                                         GPUKernelArgument::UInt32(1),
                                         GPUKernelArgument::UInt32(1),
                                         GPUKernelArgument::Int32(0),
                                         GPUKernelArgument::Float32(0)};
  ASSERT_EQ(device_->Launch(after, {1, 1, 1}, {1, 1, 1}, bindings, arguments), 0);
  float out[8];
  ASSERT_EQ(device_->CopyDeviceToHost(out, 0, memory + 64, 0, sizeof out, 1), 0);
  const float expected[8] = {9, 8, 7, 6, 1.5f, -2.0f, 3.25f, 1.0f};
  for (int i = 0; i < 8; ++i)
    EXPECT_EQ(out[i], expected[i]) << i;
}

TEST_P(GPUBackendTest, FramesRoundTripAHostFrameByteForByte) {
  for (PixelFormat format :
       {kPixelFormat_BGRA_4444_8u, kPixelFormat_BGRA_4444_16u, kPixelFormat_BGRA_4444_32f}) {
    const std::string what(PixelFormatName(format));
    constexpr uint32_t kWidth = 37, kHeight = 11;
    FrameRef host, back, gpu;
    ASSERT_EQ(CreateVideoFrame(host, format, kWidth, kHeight, 1, {}, false, false), 0);
    ASSERT_EQ(CreateVideoFrame(back, format, kWidth, kHeight, 1, {}, false, false), 0);
    ASSERT_EQ(
        CreateGPUVideoFrame(gpu, device_, format, kWidth, kHeight, true, 2.0f, ColorSpace::Rec709),
        0);
    auto hostMemory = host.Query<IVideoFrameMemoryAccess>();
    auto backMemory = back.Query<IVideoFrameMemoryAccess>();
    const size_t bytes = hostMemory->GetRowBytes() * kHeight;
    const std::vector<uint8_t> pixels = RandomBytes(bytes, format.variant);
    std::memcpy(hostMemory->GetBaseAddress(), pixels.data(), bytes);

    EXPECT_EQ(gpu->GetBounds(), (FrameBounds{0, 0, kWidth, kHeight}));
    EXPECT_EQ(gpu->GetPixelFormat(), format);
    EXPECT_EQ(gpu->GetPixelAspectRatio(), 2.0f);
    EXPECT_EQ(gpu.Query<IGPUVideoFrame>()->GetDeviceIndex(), device_->GetInfo().index);
    EXPECT_TRUE(gpu.Query<IVideoFrameMemoryAccess>().IsEmpty());
    const size_t rowBytes = gpu.Query<IVideoFrame2DPixelMemoryAccess>()->GetRowBytes();
    EXPECT_EQ(rowBytes % 256, 0u);
    EXPECT_GE(rowBytes, kWidth * BytesPerPixel(format));
    EXPECT_NE(gpu.Query<IGPUVideoFrameMemoryAccess>()->GetDevicePointer(), 0u);
    auto completion = gpu.Query<ICompletionEventVideoFrame>();
    EXPECT_EQ(completion->GetDevice(), device_);
    EXPECT_EQ(completion->WaitForCompletion(), 0);  // nothing signalled yet

    // Cleared on creation.
    ASSERT_EQ(DownloadVideoFrame(gpu, back), 0) << what;
    const auto* first = static_cast<const uint8_t*>(backMemory->GetBaseAddress());
    EXPECT_TRUE(std::all_of(first, first + bytes, [](uint8_t b) { return b == 0; })) << what;

    ASSERT_EQ(UploadVideoFrame(host, gpu), 0) << what;
    EXPECT_EQ(completion->SignalCompletion(), 0);
    EXPECT_EQ(completion->WaitForCompletion(), 0);
    ASSERT_EQ(DownloadVideoFrame(gpu, back), 0) << what;
    EXPECT_EQ(std::memcmp(backMemory->GetBaseAddress(), pixels.data(), bytes), 0) << what;
  }
}

TEST_P(GPUBackendTest, FrameRefusals) {
  FrameRef frame;
  EXPECT_EQ(CreateGPUVideoFrame(frame, device_, kPixelFormat_RGB_101010_10u_BE, 4, 4, false),
            kFrameErrorInvalidArgument);
  EXPECT_EQ(CreateGPUVideoFrame(frame, device_, kPixelFormat_BGRA_4444_8u, 0, 4, false),
            kFrameErrorInvalidArgument);
  EXPECT_EQ(CreateGPUVideoFrame(frame, nullptr, kPixelFormat_BGRA_4444_8u, 4, 4, false),
            kFrameErrorNoDevice);
  EXPECT_TRUE(frame.IsEmpty());

  FrameRef gpu, host, wide, other;
  ASSERT_EQ(CreateGPUVideoFrame(gpu, device_, kPixelFormat_BGRA_4444_16u, 4, 4, false), 0);
  ASSERT_EQ(CreateVideoFrame(host, kPixelFormat_BGRA_4444_16u, 4, 4, 1, {}, true, false), 0);
  ASSERT_EQ(CreateVideoFrame(wide, kPixelFormat_BGRA_4444_16u, 5, 4, 1, {}, true, false), 0);
  ASSERT_EQ(CreateVideoFrame(other, kPixelFormat_BGRA_4444_8u, 4, 4, 1, {}, true, false), 0);
  EXPECT_EQ(UploadVideoFrame(wide, gpu), kFrameErrorInvalidArgument);
  EXPECT_EQ(UploadVideoFrame(other, gpu), kFrameErrorInvalidArgument);
  EXPECT_EQ(DownloadVideoFrame(gpu, wide), kFrameErrorInvalidArgument);
  EXPECT_EQ(UploadVideoFrame(gpu, gpu), kFrameErrorInvalidArgument);  // two device frames
  EXPECT_EQ(UploadVideoFrame(host, host), kFrameErrorInvalidArgument);
  FrameRef empty;
  EXPECT_EQ(DownloadVideoFrame(empty, host), kFrameErrorInvalidArgument);
  // The host frame test double that only claims to be on a GPU is not a device frame.
  FrameInterfaceChoice choice;
  choice.gpuVideoFrame = true;
  FrameRef claimed = FrameRef::FromObject(CreateFrameWithInterfaces(host, choice));
  EXPECT_EQ(UploadVideoFrame(host, claimed), kFrameErrorInvalidArgument);
  EXPECT_EQ(DownloadVideoFrame(gpu, claimed), kFrameErrorInvalidArgument);
}

INSTANTIATE_TEST_SUITE_P(OpenCL, GPUBackendTest, testing::Values(kGPUFrameworkOpenCL),
                         [](const auto&) { return std::string("OpenCL"); });
INSTANTIATE_TEST_SUITE_P(CUDA, GPUBackendTest, testing::Values(kGPUFrameworkCUDA),
                         [](const auto&) { return std::string("CUDA"); });

TEST(GPUFrames, GpuResidentFramesGoToTheFirstDevice) {
  const std::vector<std::shared_ptr<IGPUDevice>> devices = EnumerateGPUDevices();
  FrameRef frame;
  const int result = CreateVideoFrame(frame, kPixelFormat_BGRA_4444_32f, 8, 2, 1, {}, true, true);
  if (devices.empty()) {
    EXPECT_EQ(result, kFrameErrorNoDevice);
    return;
  }
  ASSERT_EQ(result, 0);
  EXPECT_EQ(frame.Query<ICompletionEventVideoFrame>()->GetDevice(), devices.front());
  EXPECT_TRUE(frame.Query<IVideoFrameMemoryAccess>().IsEmpty());
}

// The transposed table copy: element (x, y) of a 3 x 2 matrix of 16-byte texels lands at (y, x).
TEST(GPUTableCopy, TransposeMovesSixteenByteTexels) {
  float source[2][3][4];
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < 4; ++c)
        source[y][x][c] = float(100 * y + 10 * x + c);
  float destination[3][2][4] = {};
  ASSERT_EQ(IR_Transpose(source, sizeof source[0], destination, sizeof destination[0], 3, 2, 16),
            0);
  const float expected[3][2][4] = {{{0, 1, 2, 3}, {100, 101, 102, 103}},
                                   {{10, 11, 12, 13}, {110, 111, 112, 113}},
                                   {{20, 21, 22, 23}, {120, 121, 122, 123}}};
  EXPECT_EQ(std::memcmp(destination, expected, sizeof expected), 0);
  EXPECT_NE(IR_Transpose(source, 47, destination, 32, 3, 2, 16), 0);  // source rows too short
  EXPECT_NE(IR_Transpose(nullptr, 48, destination, 32, 3, 2, 16), 0);
}

}  // namespace
}  // namespace host
