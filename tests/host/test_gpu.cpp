// The GPU library: enumeration, the asset cache, and every device (OpenCL on PoCL; CUDA may skip).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "host/frame_interfaces.h"
#include "support/gpu_frames.h"

namespace host {
namespace {

using namespace crandle_test;

constexpr std::string_view kTestModule = "CRANDLE_TEST_SAMPLE";
constexpr std::string_view kTestEntry = "ShaderKernel_CRANDLE_TEST_SAMPLE";
constexpr PixelFormat k32f = kPixelFormat_BGRA_4444_32f;

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

TEST(GPUDevices, EnumerationOrderCodesAndIndexLimit) {
  const std::vector<GPUBackendStatus> statuses = GetGPUBackendStatus();
  ASSERT_EQ(statuses.size(), 2u);
  EXPECT_EQ(std::pair(statuses[0].frameworkCode, statuses[1].frameworkCode),
            std::pair(kGPUFrameworkCUDA, kGPUFrameworkOpenCL));
  for (const GPUBackendStatus& status : statuses) {
    EXPECT_FALSE(status.message.empty()) << status.name;
    EXPECT_TRUE(status.compiledIn || !status.available) << status.name;
  }
  // CUDA first, then OpenCL, indices from 0; kinds: CUDA 3, OpenCL 1 (GPU) or 2 (CPU).
  std::map<uint32_t, uint32_t> next;
  uint32_t lastFramework = 0;
  for (const auto& device : EnumerateGPUDevices()) {
    const GPUDeviceInfo& info = device->GetInfo();
    EXPECT_GE(info.frameworkCode, lastFramework);
    lastFramework = info.frameworkCode;
    EXPECT_EQ(info.index, next[info.frameworkCode]++);
    EXPECT_EQ(GetGPUDevice(info.frameworkCode, info.index), device);
    EXPECT_TRUE(statuses[info.frameworkCode - 1].available);
    EXPECT_TRUE(info.frameworkCode == kGPUFrameworkCUDA ? info.kindCode == 3
                                                        : info.kindCode == 1 || info.kindCode == 2)
        << info.kindCode;
    EXPECT_TRUE(!info.name.empty() && !info.driverVersion.empty() && info.memoryBytes > 0);
  }
  for (const auto& [framework, index] : {std::pair{kGPUFrameworkCUDA, 4u},
                                         {kGPUFrameworkOpenCL, 4u},
                                         {kGPUFrameworkOpenCL, 0xFFFFFFFFu},
                                         {0u, 0u},
                                         {3u, 0u}})
    EXPECT_EQ(GetGPUDevice(framework, index), nullptr) << framework << "/" << index;
}

TEST(GPUAssetCache, LeastRecentlyUsedLeaveFirstWithinTheBudget) {
  const std::shared_ptr<GPUTestDevice> device = CreateGPUTestDevice(nullptr);
  IGPUDeviceAssetCache& cache = GetDeviceAssetCache(*device);
  EXPECT_EQ(cache.GetBudget(), uint64_t{512} << 20);  // the documented default
  cache.SetBudget(120);

  auto a = Fake(40, 1), b = Fake(40, 2), c = Fake(40, 3), d = Fake(40, 4);
  EXPECT_EQ(cache.Find(Key(1)), nullptr);
  for (const auto& texture : {a, b, c})
    EXPECT_EQ(cache.Insert(Key(static_cast<SFakeTexture&>(*texture).key), texture), texture);
  // A second insert under a key keeps the first texture and hands it back, and uses the key, as
  // a find does: of 1, 3, 2 (from the last used), key 3 leaves when key 4 needs room.
  EXPECT_EQ(cache.Insert(Key(1), Fake(40, 9)), a);
  EXPECT_EQ(cache.Find(Key(2)), b);
  EXPECT_EQ(cache.Insert(Key(4), d), d);
  EXPECT_EQ(cache.Find(Key(3)), nullptr);
  EXPECT_EQ(cache.Find(Key(1)), a);
  EXPECT_EQ(cache.Find(Key(2)), b);
  EXPECT_EQ(cache.GetBytesHeld(), 120u);

  // Larger than the whole budget: handed back, not kept, nothing evicted.
  auto huge = Fake(121, 5);
  EXPECT_EQ(cache.Insert(Key(5), huge), huge);
  EXPECT_EQ(cache.Find(Key(5)), nullptr);
  EXPECT_EQ(cache.GetBytesHeld(), 120u);
  // Exactly the budget fits, pushing out everything else.
  auto whole = Fake(120, 6);
  EXPECT_EQ(cache.Insert(Key(6), whole), whole);
  EXPECT_EQ(cache.GetBytesHeld(), 120u);
  for (uint8_t key : {1, 2, 4})
    EXPECT_EQ(cache.Find(Key(key)), nullptr) << int(key);

  // Lowering the budget evicts at once; a null texture is refused.
  cache.SetBudget(119);
  EXPECT_EQ(cache.GetBytesHeld(), 0u);
  EXPECT_EQ(cache.Find(Key(6)), nullptr);
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

// On the bare test device and every real one: lookups by name, refusals, and what a reset retires.
TEST(GPUDevices, BindsAndLaunchesRefuseWhatTheKernelCannotTakeAndResetsRetireHandles) {
  std::vector<std::shared_ptr<IGPUDevice>> devices = EnumerateGPUDevices();
  devices.insert(devices.begin(), CreateGPUTestDevice(nullptr));
  for (const auto& device : devices) {
    SCOPED_TRACE(device->GetInfo().name.empty() ? "test device" : device->GetInfo().name);
    const GPUKernel* kernel = LoadKernel(*device, kTestModule, kTestEntry);
    const GPUTexture* flat = LoadTexture(*device, kTestModule, "sample2D");
    const GPUTexture* cube = LoadTexture(*device, kTestModule, "sample3D");
    ASSERT_TRUE(kernel && flat && cube);
    EXPECT_EQ(LoadKernel(*device, kTestModule, kTestEntry), kernel);
    EXPECT_EQ(LoadKernel(*device, kTestModule, "ShaderKernel_Missing"), nullptr);
    EXPECT_EQ(LoadKernel(*device, "NO_SUCH_MODULE", kTestEntry), nullptr);
    EXPECT_EQ(LoadTexture(*device, kTestModule, "sample1D"), nullptr);
    EXPECT_EQ(LoadTexture(*device, "NO_SUCH_MODULE", "sample2D"), nullptr);

    GPUDeviceBlock* block = device->GetDeviceAllocator()->Allocate(4096, 0, 0);
    ASSERT_NE(block, nullptr);
    const DevicePointer at = block->pointer;
    const std::shared_ptr<GPUTestDevice> other = CreateGPUTestDevice(nullptr);
    // Depth 0: the 2-D slot, 8 rows; else the 3-D slot, 4 rows.
    const std::tuple<const char*, const GPUTexture*, DevicePointer, size_t, uint32_t, PixelFormat,
                     uint32_t, uint32_t>
        refusals[] = {{"null texture", nullptr, at, 128, 8, k32f, 0, 0},
                      {"null texels", flat, 0, 128, 8, k32f, 0, 0},
                      {"zero width", flat, at, 128, 0, k32f, 0, 0},
                      {"rows too short", flat, at, 127, 8, k32f, 0, 0},
                      {"flags", flat, at, 128, 8, k32f, 1, 0},
                      {"10-bit format", flat, at, 128, 8, kPixelFormat_RGB_101010_10u_BE, 0, 0},
                      {"another device's slot", other->LoadTexture(kTestModule, "sample2D"), at,
                       128, 8, k32f, 0, 0},
                      {"8-bit 3-D table", cube, at, 128, 8, kPixelFormat_BGRA_4444_8u, 0, 2},
                      {"3-D rows too short", cube, at, 63, 4, k32f, 0, 4}};
    GPUTextureBindings bindings;
    for (const auto& [what, texture, texels, rowBytes, width, format, flags, depth] : refusals)
      EXPECT_EQ(depth ? device->Bind3DTexture(bindings, texture, texels, rowBytes, width, 4, depth,
                                              format, flags)
                      : device->BindTexture(bindings, texture, texels, 0, rowBytes, width, 8,
                                            format, flags),
                kGPUErrorInvalidArgument)
          << what;
    EXPECT_EQ(bindings.count, 0u);

    // Width and height 0: no thread touches memory.
    const GPUKernelArgument arguments[] = {
        GPUKernelArgument::Pointer(at), GPUKernelArgument::Pointer(at),
        GPUKernelArgument::UInt32(0),   GPUKernelArgument::UInt32(0),
        GPUKernelArgument::Int32(0),    GPUKernelArgument::Float32(0)};
    const auto launch = [&](const GPUKernel* what, GPUDim3 grid, size_t count = 6) {
      return device->Launch(what, grid, {1, 1, 1}, bindings, std::span(arguments).first(count));
    };
    ASSERT_EQ(device->Bind3DTexture(bindings, cube, at, 64, 4, 4, 4, k32f, 0), 0);
    EXPECT_EQ(launch(kernel, {1, 1, 1}), kGPUErrorInvalidArgument) << "the 2-D slot is not bound";
    ASSERT_EQ(device->BindTexture(bindings, flat, at, 16, 128, 8, 8, k32f, 0), 0);
    EXPECT_EQ(bindings.entries[0].texels, at + 16);
    EXPECT_EQ(launch(kernel, {1, 0, 1}), kGPUErrorInvalidArgument);
    EXPECT_EQ(launch(nullptr, {1, 1, 1}), kGPUErrorInvalidArgument);
    // The bare test device only records arguments; a real kernel counts them.
    EXPECT_EQ(launch(kernel, {1, 1, 1}, 5),
              device->GetInfo().frameworkCode != 0 ? kGPUErrorInvalidArgument : 0);
    EXPECT_EQ(launch(kernel, {1, 1, 1}), 0);
    EXPECT_EQ(device->Synchronize(), 0);

    // A reset: a new stamp, an empty cache, old handles refused; older memory may still go back.
    device->GetAssetCache().Insert(Key(1), Fake(64));
    const uint64_t stamp = device->GetGenerationStamp();
    ASSERT_EQ(device->Reset(), 0);
    EXPECT_NE(device->GetGenerationStamp(), stamp);
    EXPECT_EQ(device->GetAssetCache().Find(Key(1)), nullptr);
    EXPECT_EQ(device->GetAssetCache().GetBytesHeld(), 0u);
    EXPECT_EQ(launch(kernel, {1, 1, 1}), kGPUErrorInvalidArgument);
    EXPECT_EQ(device->BindTexture(bindings, flat, at, 0, 128, 8, 8, k32f, 0),
              kGPUErrorInvalidArgument);
    EXPECT_NE(LoadKernel(*device, kTestModule, kTestEntry), kernel);
    device->GetDeviceAllocator()->Release(block);
  }
}

class GPUBackend : public GPUBackendTest {
 protected:
  // A device block that goes back to the allocator with the test.
  DevicePointer Allocate(size_t bytes) {
    GPUDeviceBlock* block = device_->GetDeviceAllocator()->Allocate(bytes, 0, 0);
    if (!block) return 0;
    blocks_.push_back(block);
    return block->pointer;
  }
  void TearDown() override {
    for (GPUDeviceBlock* block : blocks_)
      device_->GetDeviceAllocator()->Release(block);
  }
  std::vector<GPUDeviceBlock*> blocks_;
};

TEST_P(GPUBackend, CopiesRoundTripExactBytes) {
  // 1-D, through an offset inside the allocation.
  const std::vector<uint8_t> bytes = RandomBytes(100003, 1);
  const DevicePointer a = Allocate(bytes.size() + 77), b = Allocate(bytes.size() + 77);
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
  ASSERT_EQ(device_->CopyHostToDevice(rows, 0, background.data(), 0, background.size(), 1), 0);
  ASSERT_EQ(device_->CopyHostToDevice(rows, kDevicePitch, picture.data(), kHostPitch, kRow, kRows),
            0);
  std::vector<uint8_t> whole(background.size());
  ASSERT_EQ(device_->CopyDeviceToHost(whole.data(), 0, rows, 0, whole.size(), 1), 0);
  std::vector<uint8_t> out(kOutPitch * kRows, 0xEE), wantWhole = background, wantOut = out;
  ASSERT_EQ(device_->CopyDeviceToHost(out.data(), kOutPitch, rows, kDevicePitch, kRow, kRows), 0);
  for (size_t y = 0; y < kRows; ++y) {
    std::copy_n(&picture[y * kHostPitch], kRow, &wantWhole[y * kDevicePitch]);
    std::copy_n(&picture[y * kHostPitch], kRow, &wantOut[y * kOutPitch]);
  }
  EXPECT_TRUE(whole == wantWhole && out == wantOut);

  // Rows longer than a pitch are refused, as are null addresses.
  EXPECT_EQ(device_->CopyHostToDevice(rows, 40, picture.data(), kHostPitch, kRow, 2),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyDeviceToHost(out.data(), kOutPitch, rows, 44, kRow, 2),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyHostToDevice(0, 0, picture.data(), 0, 8, 1), kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyDeviceToHost(nullptr, 0, rows, 0, 8, 1), kGPUErrorInvalidArgument);
}

TEST_P(GPUBackend, StagingCopiesAndPooledBlocks) {
  IGPUHostAllocator& staging = *device_->GetHostAllocator();
  IGPUDeviceAllocator& memory = *device_->GetDeviceAllocator();
  for (const auto& [size, flags] : {std::pair{0, 0}, std::pair{32, 1}}) {
    EXPECT_EQ(staging.Allocate(size, flags, kGPUUsageConstants), nullptr);
    EXPECT_EQ(memory.Allocate(size, flags, kGPUUsageConstants), nullptr);
  }
  staging.Release(nullptr);
  memory.Release(nullptr);

  const std::vector<uint8_t> bytes = RandomBytes(96, 4);
  GPUHostBlock* block = staging.Allocate(48, 0, kGPUUsageConstants);
  GPUHostBlock* block2 = staging.Allocate(48, 0, kGPUUsageConstants);
  GPUDeviceBlock* target = memory.Allocate(96, 0, kGPUUsageConstants);
  ASSERT_TRUE(block && block2 && target && block->mappedView && block->size >= 48);
  // From the mapped view, then (after unmapping) from the block itself.
  std::memcpy(block->mappedView, bytes.data(), 48);
  ASSERT_EQ(device_->CopyStagingToDevice(target->pointer, *block, 48, true), 0);
  ASSERT_EQ(staging.Unmap(block), 0);
  EXPECT_EQ(block->mappedView, nullptr);
  std::memcpy(block2->data, bytes.data() + 48, 48);
  ASSERT_EQ(device_->CopyStagingToDevice(target->pointer + 48, *block2, 48, false), 0);
  EXPECT_EQ(device_->CopyStagingToDevice(target->pointer, *block2, 49, false),
            kGPUErrorInvalidArgument);
  EXPECT_EQ(device_->CopyStagingToDevice(target->pointer, *block, 48, true),
            kGPUErrorInvalidArgument);  // no view any more
  // Released right after queueing: the copies still see their bytes.
  staging.Release(block);
  staging.Release(block2);
  std::vector<uint8_t> back(96);
  ASSERT_EQ(device_->CopyDeviceToHost(back.data(), 0, target->pointer, 0, 96, 1), 0);
  EXPECT_EQ(back, bytes);

  // A released device block of the same size comes back without a trip to the driver.
  const DevicePointer address = target->pointer;
  memory.Release(target);
  GPUDeviceBlock* again = memory.Allocate(96, 0, kGPUUsageConstants);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->pointer, address);
  memory.Release(again);
  ASSERT_NE(device_->RecordEvent(), nullptr);
  EXPECT_EQ(device_->RecordEvent()->Wait(), 0);
}

// The test kernel's output for a coordinate (u, v, w): the 2-D texel at (u, v) as stored and the
// 3-D texel at (u + shift, v, w) plus bias, each coordinate floored and clamped to the edges.
TEST_P(GPUBackend, LaunchSamplesBoundTexturesAtTexelCentres) {
  const GPUKernel* kernel = LoadKernel(*device_, kTestModule, kTestEntry);
  const GPUTexture* flatSlot = LoadTexture(*device_, kTestModule, "sample2D");
  const GPUTexture* cubeSlot = LoadTexture(*device_, kTestModule, "sample3D");
  ASSERT_TRUE(kernel && flatSlot && cubeSlot);
  constexpr int kWidth2 = 5, kHeight2 = 3, kPitch2 = 256, kN[3] = {3, 4, 2};

  // The 3-D table goes up through UploadTexture from rows of kN[0] texels and 2 texels of padding;
  // the 2-D picture's floats are random too, and serve as its bytes in the integer formats.
  std::mt19937 random(7);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  constexpr int kRowFloats = kN[0] * 4 + 8;
  std::vector<float> cube(kRowFloats * kN[1] * kN[2]), picture(kPitch2 * kHeight2 / 4);
  for (auto* floats : {&cube, &picture})
    std::generate(floats->begin(), floats->end(), [&] { return value(random); });
  const auto table = device_->UploadTexture(cube.data(), kRowFloats * 4, kN[0], kN[1], kN[2]);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(std::pair(table->rowBytes, table->byteCount),
            std::pair(kN[0] * 16ul, kN[0] * kN[1] * kN[2] * 16ul));

  // Every texel centre of the 3-D table and a few beyond its edges.
  std::vector<float> coordinates;
  for (int z = 0; z < kN[2]; ++z)
    for (int y = 0; y <= kN[1]; ++y)
      for (int x = -1; x <= kWidth2; ++x)
        coordinates.insert(coordinates.end(), {x + 0.5f, y + 0.5f, z + 0.5f, 0.0f});
  const uint32_t count = uint32_t(coordinates.size() / 4), width = 8;
  const uint32_t height = (count + width - 1) / width;
  coordinates.resize(size_t(width) * height * 4, 0.5f);
  const DevicePointer in = Allocate(coordinates.size() * 4), out = Allocate(coordinates.size() * 8);
  const DevicePointer flat = Allocate(kPitch2 * (kHeight2 + 1));
  ASSERT_TRUE(in && out && flat);
  ASSERT_EQ(device_->CopyHostToDevice(in, 0, coordinates.data(), 0, coordinates.size() * 4, 1), 0);

  for (PixelFormat format :
       {kPixelFormat_BGRA_4444_8u, kPixelFormat_BGRA_4444_16u, kPixelFormat_BGRA_4444_32f}) {
    // The picture sits one row into its allocation, reached through the bind's offset.
    ASSERT_EQ(
        device_->CopyHostToDevice(flat + kPitch2, 0, picture.data(), 0, kPitch2 * kHeight2, 1), 0);
    const auto stored = [&](int u, int v, int c) -> float {
      uint32_t sample = 0;  // little-endian, as the device reads it
      std::memcpy(&sample,
                  reinterpret_cast<const uint8_t*>(picture.data()) + v * kPitch2 +
                      u * BytesPerPixel(format) + c * format.variant / 8,
                  format.variant / 8);
      return format.variant == 32 ? std::bit_cast<float>(sample) : float(sample);
    };
    for (const auto& [shift, bias, block] :
         {std::tuple{0, 0.0f, GPUDim3{1, 1, 1}}, std::tuple{-1, 0.25f, GPUDim3{4, 2, 1}}}) {
      GPUTextureBindings bindings;
      ASSERT_EQ(device_->BindTexture(bindings, flatSlot, flat, kPitch2, kPitch2, kWidth2, kHeight2,
                                     format, 0),
                0);
      ASSERT_EQ(device_->Bind3DTexture(bindings, cubeSlot, table->texels, table->rowBytes, kN[0],
                                       kN[1], kN[2], k32f, 0),
                0);
      const GPUKernelArgument arguments[] = {
          GPUKernelArgument::Pointer(in),   GPUKernelArgument::Pointer(out),
          GPUKernelArgument::UInt32(width), GPUKernelArgument::UInt32(height),
          GPUKernelArgument::Int32(shift),  GPUKernelArgument::Float32(bias)};
      // Rounded up: threads past the picture must leave the memory alone.
      const GPUDim3 grid{(width + block.x - 1) / block.x, (height + block.y - 1) / block.y, 1};
      ASSERT_EQ(device_->Launch(kernel, grid, block, bindings, arguments), 0);
      std::vector<float> samples(coordinates.size() * 2);
      ASSERT_EQ(device_->CopyDeviceToHost(samples.data(), 0, out, 0, samples.size() * 4, 1), 0);
      for (uint32_t i = 0; i < count; ++i) {
        const int u = int(std::floor(coordinates[4 * i])), v = int(coordinates[4 * i + 1]),
                  w = int(coordinates[4 * i + 2]);
        const int x = std::clamp(u + shift, 0, kN[0] - 1), y = std::min(v, kN[1] - 1);
        for (int c = 0; c < 4; ++c) {
          ASSERT_EQ(samples[8 * i + c],
                    stored(std::clamp(u, 0, kWidth2 - 1), std::min(v, kHeight2 - 1), c))
              << format.variant << "-bit 2-D sample " << i << " channel " << c;
          ASSERT_EQ(samples[8 * i + 4 + c], cube[(w * kN[1] + y) * kRowFloats + x * 4 + c] + bias)
              << format.variant << "-bit 3-D sample " << i << " channel " << c;
        }
      }
    }
  }
}

TEST_P(GPUBackend, FramesRoundTripAHostFrameByteForByte) {
  for (PixelFormat format :
       {kPixelFormat_BGRA_4444_8u, kPixelFormat_BGRA_4444_16u, kPixelFormat_BGRA_4444_32f}) {
    const std::string what(PixelFormatName(format));
    constexpr uint32_t kWidth = 37, kHeight = 11;
    FrameRef host = HostFrame(format, kWidth, kHeight), back = HostFrame(format, kWidth, kHeight),
             gpu = GPUFrame(device_, format, kWidth, kHeight);
    auto hostMemory = host.Query<IVideoFrameMemoryAccess>();
    auto backMemory = back.Query<IVideoFrameMemoryAccess>();
    const size_t bytes = hostMemory->GetRowBytes() * kHeight;
    const std::vector<uint8_t> pixels = RandomBytes(bytes, format.variant);
    std::memcpy(hostMemory->GetBaseAddress(), pixels.data(), bytes);

    // Device rows are 256-byte aligned; a device frame has no host memory to offer.
    EXPECT_TRUE(gpu.Query<IVideoFrameMemoryAccess>().IsEmpty());
    const size_t rowBytes = gpu.Query<IVideoFrame2DPixelMemoryAccess>()->GetRowBytes();
    EXPECT_TRUE(rowBytes % 256 == 0 && rowBytes >= kWidth * BytesPerPixel(format));
    auto completion = gpu.Query<ICompletionEventVideoFrame>();
    EXPECT_EQ(completion->GetDevice(), device_);
    EXPECT_EQ(completion->WaitForCompletion(), 0);  // nothing signalled yet

    // Cleared on creation.
    std::memset(backMemory->GetBaseAddress(), 0xFF, bytes);
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

TEST_P(GPUBackend, FrameRefusals) {
  FrameRef frame;
  EXPECT_EQ(CreateGPUVideoFrame(frame, device_, kPixelFormat_RGB_101010_10u_BE, 4, 4, false),
            kFrameErrorInvalidArgument);
  EXPECT_EQ(CreateGPUVideoFrame(frame, device_, kPixelFormat_BGRA_4444_8u, 0, 4, false),
            kFrameErrorInvalidArgument);
  EXPECT_EQ(CreateGPUVideoFrame(frame, nullptr, kPixelFormat_BGRA_4444_8u, 4, 4, false),
            kFrameErrorNoDevice);
  EXPECT_TRUE(frame.IsEmpty());

  FrameRef gpu = GPUFrame(device_, kPixelFormat_BGRA_4444_16u, 4, 4),
           host = HostFrame(kPixelFormat_BGRA_4444_16u, 4, 4),
           wide = HostFrame(kPixelFormat_BGRA_4444_16u, 5, 4),
           other = HostFrame(kPixelFormat_BGRA_4444_8u, 4, 4);
  EXPECT_EQ(UploadVideoFrame(wide, gpu), kFrameErrorInvalidArgument);
  EXPECT_EQ(UploadVideoFrame(other, gpu), kFrameErrorInvalidArgument);
  EXPECT_EQ(UploadVideoFrame(gpu, gpu), kFrameErrorInvalidArgument);  // two device frames
  EXPECT_EQ(UploadVideoFrame(host, host), kFrameErrorInvalidArgument);
  FrameRef empty;
  EXPECT_EQ(DownloadVideoFrame(empty, host), kFrameErrorInvalidArgument);
  // The host frame test double that only claims to be on a GPU is not a device frame.
  FrameRef claimed = FrameRef::FromObject(CreateFrameWithInterfaces(host, {.gpuVideoFrame = true}));
  EXPECT_EQ(UploadVideoFrame(host, claimed), kFrameErrorInvalidArgument);
  EXPECT_EQ(DownloadVideoFrame(gpu, claimed), kFrameErrorInvalidArgument);
}

CRANDLE_GPU_BACKEND_SUITE(GPUBackend);

TEST(GPUFrames, GpuResidentFramesGoToTheFirstDevice) {
  const std::vector<std::shared_ptr<IGPUDevice>> devices = EnumerateGPUDevices();
  FrameRef frame;
  ASSERT_EQ(CreateVideoFrame(frame, k32f, 8, 2, 1, {}, true, true),
            devices.empty() ? kFrameErrorNoDevice : 0);
  if (devices.empty()) return;
  EXPECT_EQ(frame.Query<ICompletionEventVideoFrame>()->GetDevice(), devices.front());
}

}  // namespace
}  // namespace host
