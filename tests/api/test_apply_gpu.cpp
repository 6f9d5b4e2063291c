// ApplyLUT on frames on a GPU device: the recording test device against golden values, failure
// rows, launch shapes and upload counts; OpenCL and CUDA devices against the kernels' model.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "crandle/crandle.h"
#include "engine/gpu/hw_texture.h"
#include "host/gpu.h"
#include "host/gpu_test_device.h"
#include "host/video_frame.h"
#include "lut/lut3d.h"
#include "support/gpu_frames.h"
#include "support/lut_kernel_model.h"

namespace crandle_test {
namespace {

using host::GPUTestOperation;
using host::LUTInterpolationMethod;
using Tincta::COv3DLUT;
using Tincta::Vec4;

using CRANDLE::kResultLUTFailed, CRANDLE::kResultNoDeviceMemory;
constexpr LUTInterpolationMethod kTrilinear = LUTInterpolationMethod::Trilinear;
constexpr LUTInterpolationMethod kTetrahedral = LUTInterpolationMethod::Tetrahedral;

// ---- Golden values: output of `python3 tests/support/gpu_golden.py`, pasted once. ----
const uint8_t kCube33Tetrahedral[48] = {
    0x10, 0x3e, 0x78, 0x3f, 0x10, 0x3e, 0x78, 0x3f, 0x10, 0x3e, 0x78, 0x3f, 0x10, 0x3e, 0x78, 0x3f,
    0x10, 0x3e, 0x78, 0x3c, 0x10, 0x3e, 0x78, 0x3c, 0x10, 0x3e, 0x78, 0x3c, 0x10, 0x3e, 0x78, 0x3c,
    0x00, 0x00, 0x04, 0x42, 0x00, 0x00, 0x04, 0x42, 0x00, 0x00, 0x04, 0x42, 0x00, 0x00, 0x04, 0x42};
const uint8_t kCube33Trilinear[32] = {
    0x10, 0x3e, 0x78, 0x3f, 0x10, 0x3e, 0x78, 0x3f, 0x10, 0x3e, 0x78, 0x3f, 0x10, 0x3e, 0x78, 0x3f,
    0x10, 0x3e, 0x78, 0x3c, 0x10, 0x3e, 0x78, 0x3c, 0x10, 0x3e, 0x78, 0x3c, 0x10, 0x3e, 0x78, 0x3c};
const uint8_t kCurves1024OddDomain[32] = {
    0x00, 0xd8, 0x9f, 0x3f, 0x00, 0xc0, 0xff, 0x3e, 0x92, 0x24, 0x12, 0x3f, 0x00, 0xc0, 0x7f, 0x3f,
    0x01, 0xc0, 0xfe, 0xbd, 0x00, 0x00, 0x00, 0x3a, 0x92, 0xa4, 0x12, 0x3e, 0x00, 0x00, 0x00, 0x3a};
const uint8_t kShaped5Tetrahedral[48] = {
    0x00, 0x60, 0x9f, 0x3f, 0x00, 0x00, 0xff, 0x3e, 0xdb, 0xb6, 0x11, 0x3f, 0x00, 0x00, 0x7f, 0x3f,
    0x01, 0x00, 0xfb, 0xbd, 0x00, 0x00, 0x00, 0x3b, 0xdb, 0xb6, 0x13, 0x3e, 0x00, 0x00, 0x00, 0x3b,
    0x00, 0x00, 0xa0, 0x40, 0x00, 0x00, 0xa0, 0x40, 0x00, 0x00, 0xa0, 0x40, 0x00, 0x00, 0xa0, 0x40};
const char* const kCube3Key = "D210196FB96CFCBBB0DAAD79AAA358B6";
const char* const kShapedCube3Key = "CD9BC5CE4B44C53C0E7A6FFB8DDC4807";
const char* const kShapedCube3ShaperKey = "F4FBFA8DED8F622971AA376A8DFC8E7E";
const char* const kCurves256OddKey = "D0CC7848DAB7EBA02AE541CBADA2B81E";
const char* const kNamedKey = "510E2FDC9CEA967EC56AFF617AD93E87";  // name "luts/look.cube"
// ---- end of golden values ----

const Vec4 kUnitMin{0, 0, 0, 0}, kUnitMax{1, 1, 1, 1};
const Vec4 kOddMin{-0.25f, 0, 0.1f, 0}, kOddMax{1.5f, 2, 0.9f, 1};

// The golden script's tables, built the same way (float of a double).
std::shared_ptr<COv3DLUT> GoldenCube(uint32_t n) {
  return TableLUT(n, true, kUnitMin, kUnitMax, [](double r, double g, double b) {
    return Rgb{r, g * g, 0.25 + 0.5 * b};
  });
}

std::shared_ptr<COv3DLUT> GoldenCurves(uint32_t n, Vec4 min, Vec4 max) {
  return TableLUT(n, false, min, max, [](double t, double, double) {
    return Rgb{t, t * t, 1 - t};
  });
}

std::shared_ptr<COv3DLUT> Shaped(std::shared_ptr<COv3DLUT> cube, std::shared_ptr<COv3DLUT> shaper) {
  cube->SetInputShaper(std::move(shaper));
  return cube;
}

// Applies on fresh frames; the device's record then holds the apply's calls alone.
int Apply(const std::shared_ptr<host::GPUTestDevice>& device, const std::shared_ptr<COv3DLUT>& lut,
          LUTInterpolationMethod method, uint32_t width = 8, uint32_t height = 4,
          size_t* destinationRowBytes = nullptr) {
  const FrameRef source = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, width, height);
  FrameRef destination = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, width, height);
  if (destinationRowBytes)
    *destinationRowBytes = destination.Query<host::IVideoFrame2DPixelMemoryAccess>()->GetRowBytes();
  device->ClearCalls();
  return CRANDLE::ApplyLUT(source, lut, method, destination);
}

// ---- The recording test device over no back end. ----

// The constant block's bytes, its allocations and the kernel by kind and method; the texture keys
// the asset cache is asked for, in order.
TEST(ApplyGPUTestDevice, ConstantBlocksKernelsAndTextureKeysMatchTheGoldenValues) {
  const struct {
    const char* name;
    std::shared_ptr<COv3DLUT> lut;
    LUTInterpolationMethod method;
    const char* module;
    std::span<const uint8_t> golden;
  } blocks[] = {{"cube tetrahedral", GoldenCube(33), kTetrahedral,
                 "COMPOP_LUT3D_TetrahedralInterpolation", kCube33Tetrahedral},
                {"cube trilinear", GoldenCube(33), kTrilinear, "COMPOP_LUT3D", kCube33Trilinear},
                // A 1-D LUT ignores the method: its kernel and a block of two rows.
                {"curves tetrahedral", GoldenCurves(1024, kOddMin, kOddMax), kTetrahedral,
                 "COMPOP_LUT1D", kCurves1024OddDomain},
                // Behind a shaper: the shaper's domain mapping, the cube's size.
                {"shaped tetrahedral", Shaped(GoldenCube(5), GoldenCurves(256, kOddMin, kOddMax)),
                 kTetrahedral, "COMPOP_LUT1D3D_TetrahedralInterpolation", kShaped5Tetrahedral}};
  for (const auto& c : blocks) {
    const auto device = host::CreateGPUTestDevice(nullptr);
    ASSERT_EQ(Apply(device, c.lut, c.method), 0) << c.name;
    const auto launches = CallsNamed(*device, "Launch");
    ASSERT_EQ(launches.size(), 1u) << c.name;
    EXPECT_EQ(CallsNamed(*device, "CopyStagingToDevice").at(0).payload,
              std::vector<uint8_t>(c.golden.begin(), c.golden.end()))
        << c.name;
    EXPECT_EQ(CallsNamed(*device, "HostAllocator.Allocate").at(0).bytes, c.golden.size());
    EXPECT_EQ(CallsNamed(*device, "DeviceAllocator.Allocate").at(0).bytes, c.golden.size());
    EXPECT_EQ(launches[0].detail, std::string(c.module) + "/ShaderKernel_" + c.module) << c.name;
  }
  // The shaper's key first, then the cube's.
  const std::pair<std::shared_ptr<COv3DLUT>, std::vector<std::string>> keyed[] = {
      {GoldenCube(3), {kCube3Key}},
      {Shaped(GoldenCube(3), GoldenCurves(256, kUnitMin, kUnitMax)),
       {kShapedCube3ShaperKey, kShapedCube3Key}},
      {GoldenCurves(256, kOddMin, kOddMax), {kCurves256OddKey}}};
  for (const auto& [lut, keys] : keyed) {
    const auto device = host::CreateGPUTestDevice(nullptr);
    ASSERT_EQ(Apply(device, lut, kTrilinear), 0);
    std::vector<std::string> found;
    for (const auto& call : CallsNamed(*device, "AssetCache.Find"))
      found.push_back(call.detail);
    EXPECT_EQ(found, keys);
    for (const std::string& key : keys)
      EXPECT_NE(device->GetAssetCache().Find(*host::Guid::FromString(key)), nullptr) << key;
  }
  // A texture with a name is keyed by it (the file need not exist for the key).
  const Tincta::COvHwTexture named("luts/look.cube", Tincta::kHwTexture3D, nullptr);
  EXPECT_EQ(Tincta::HwTextureCacheKey(named, false, true).ToString(), kNamedKey);
}

// Each failure row on a fresh device, over no back end and over each real device: the result,
// whether a launch happened, and every staging and device block given back.
TEST(ApplyGPUTestDevice, FailureRowsGiveTheirResultsAndReleaseEverything) {
  struct SCase {
    GPUTestOperation failing;
    int result;
    bool launched;
  } const cases[] = {
      {GPUTestOperation::HostAllocate, kResultNoDeviceMemory, false},
      {GPUTestOperation::MapView, kResultNoDeviceMemory, false},
      {GPUTestOperation::DeviceAllocate, kResultNoDeviceMemory, false},
      // The constants never reach the device: nothing is applied, and success is reported.
      {GPUTestOperation::ConstantCopy, 0, false},
      // A failed unmap keeps the view, and the copy reads it.
      {GPUTestOperation::Unmap, 0, true},
      {GPUTestOperation::UploadTexture, kResultLUTFailed, false},
      {GPUTestOperation::LoadKernel, kResultLUTFailed, false},
      {GPUTestOperation::LoadTexture, host::kGPUErrorNotFound, false},
      {GPUTestOperation::BindTexture, host::kGPUErrorInjected, false},
      {GPUTestOperation::Bind3DTexture, kResultLUTFailed, false},
      {GPUTestOperation::Launch, host::kGPUErrorInjected, true},
  };
  std::vector<std::shared_ptr<host::IGPUDevice>> inners{nullptr};
  for (const auto& device : host::EnumerateGPUDevices())
    inners.push_back(device);
  for (const auto& inner : inners)
    for (const SCase& c : cases) {
      SCOPED_TRACE(inner ? inner->GetInfo().name : "no back end");
      const auto device = host::CreateGPUTestDevice(inner, 2);
      ASSERT_EQ(device->GetInfo().index, 2u);
      device->GetAssetCache().Clear();  // a real device keeps its uploads between rows
      // The frames outlive the record, so that only the apply's blocks are counted.
      const FrameRef source = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, 8, 4);
      FrameRef destination = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, 8, 4);
      device->ClearCalls();
      device->SetFailure(c.failing, true);
      EXPECT_EQ(CRANDLE::ApplyLUT(source, GoldenCube(33), kTrilinear, destination), c.result)
          << int(c.failing);
      EXPECT_EQ(CallsNamed(*device, "Launch").size(), c.launched ? 1u : 0u) << int(c.failing);
      if (c.failing == GPUTestOperation::Unmap) {
        const auto copies = CallsNamed(*device, "CopyStagingToDevice");
        ASSERT_EQ(copies.size(), 1u);
        EXPECT_EQ(copies[0].payload, std::vector<uint8_t>(kCube33Trilinear, kCube33Trilinear + 32));
      }
      // Blocks held, by allocator: what it gave minus what came back.
      std::map<std::string, int> held;
      for (const auto& call : device->Calls()) {
        const std::string allocator = call.operation.substr(0, call.operation.find('.'));
        if (call.operation.ends_with(".Allocate")) held[allocator] += call.result == 0;
        if (call.operation.ends_with(".Release")) held[allocator] -= call.bytes != 0;
      }
      EXPECT_EQ(held["HostAllocator"], 0) << int(c.failing);
      EXPECT_EQ(held["DeviceAllocator"], 0) << int(c.failing);
    }
}

TEST(ApplyGPUTestDevice, BlockSizesFollowFrameworkAndKindCodes) {
  struct SCase {
    uint32_t framework, kind;
    host::GPUDim3 block, grid;
  } const cases[] = {
      {2, 1, {1, 1, 1}, {1000, 37, 1}}, {2, 3, {1, 1, 1}, {1000, 37, 1}},
      {3, 0, {16, 16, 1}, {63, 3, 1}},  {1, 3, {16, 16, 1}, {63, 3, 1}},
      {0, 5, {16, 16, 1}, {63, 3, 1}},  {1, 6, {16, 16, 1}, {63, 3, 1}},
      {1, 1, {64, 1, 1}, {16, 37, 1}},  {1, 2, {1, 1, 1}, {1000, 37, 1}},
      {0, 0, {1, 1, 1}, {1000, 37, 1}},
  };
  for (const SCase& c : cases) {
    const auto device = host::CreateGPUTestDevice(nullptr);
    device->SetCodes(c.framework, c.kind);
    size_t rowBytes = 0;
    ASSERT_EQ(Apply(device, GoldenCube(3), kTrilinear, 1000, 37, &rowBytes), 0);
    const auto launch = CallsNamed(*device, "Launch").at(0);
    EXPECT_EQ(std::vector<uint32_t>({launch.block.x, launch.block.y, launch.grid.x, launch.grid.y}),
              std::vector<uint32_t>({c.block.x, c.block.y, c.grid.x, c.grid.y}))
        << "framework " << c.framework << " kind " << c.kind;
    // Launch arguments: constants, destination, pitch in pixels, format bits, width, height.
    ASSERT_EQ(launch.payload.size(), 6u * 8);
    uint32_t words[6];
    for (int i = 0; i < 6; ++i)
      std::memcpy(&words[i], &launch.payload[8 * i], 4);
    EXPECT_EQ(std::vector<uint32_t>(words + 2, words + 6),
              std::vector<uint32_t>({uint32_t(rowBytes / 16), 32, 1000, 37}));
  }
}

TEST(ApplyGPUTestDevice, ALUTUsedOnAHundredFramesIsUploadedOnceAndAgainAfterAReset) {
  const auto device = host::CreateGPUTestDevice(nullptr);
  const auto cube = GoldenCube(17);
  const auto shaped = Shaped(GoldenCube(9), GoldenCurves(512, kUnitMin, kUnitMax));
  const FrameRef source = GPUFrame(device, host::kPixelFormat_BGRA_4444_16u, 16, 16);
  FrameRef destination = GPUFrame(device, host::kPixelFormat_BGRA_4444_16u, 16, 16);
  device->ClearCalls();
  for (int frame = 0; frame < 100; ++frame) {
    ASSERT_EQ(CRANDLE::ApplyLUT(source, cube, kTrilinear, destination), 0);
    ASSERT_EQ(CRANDLE::ApplyLUT(source, shaped, kTetrahedral, destination), 0);
  }
  const auto uploads = CallsNamed(*device, "UploadTexture");
  ASSERT_EQ(uploads.size(), 3u);  // the cube, the shaper, the shaped cube
  EXPECT_EQ(CallsNamed(*device, "Launch").size(), 200u);
  // The shaper's upload reads its own 512 texels, not the cube's byte count.
  EXPECT_EQ(std::vector<uint32_t>({uploads[1].width, uploads[1].height, uploads[1].depth}),
            std::vector<uint32_t>({512, 1, 1}));
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 2u);

  ASSERT_EQ(device->Reset(), 0);
  device->ClearCalls();
  ASSERT_EQ(CRANDLE::ApplyLUT(source, cube, kTrilinear, destination), 0);
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 1u);
  EXPECT_EQ(CallsNamed(*device, "UploadTexture").size(), 1u);  // the asset cache went too
}

// ---- Real devices: OpenCL on PoCL, CUDA where a device is lent. ----

using ApplyGPUDevice = GPUBackendTest;

SPixelRows RowsOf(const FrameRef& frame) {
  const auto memory = frame.Query<host::IVideoFrameMemoryAccess>();
  const host::FrameBounds bounds = frame->GetBounds();
  return {static_cast<uint8_t*>(memory->GetBaseAddress()), memory->GetRowBytes(),
          frame->GetPixelFormat().variant, bounds.width, bounds.height};
}

FrameRef ModelSource(const SModelCase& c, host::PixelFormat format, uint32_t width,
                     uint32_t height) {
  FrameRef frame = HostFrame(format, width, height);
  FillModelSource(c, RowsOf(frame), 3 + format.variant);
  return frame;
}

// Uploads `source`, applies through ApplyLUT on the device, and downloads the result.
FrameRef ApplyOnDevice(const std::shared_ptr<host::IGPUDevice>& device, const FrameRef& source,
                       const std::shared_ptr<COv3DLUT>& lut, LUTInterpolationMethod method) {
  const host::FrameBounds bounds = source->GetBounds();
  const host::PixelFormat format = source->GetPixelFormat();
  FrameRef deviceSource = GPUFrame(device, format, bounds.width, bounds.height);
  FrameRef deviceDestination = GPUFrame(device, format, bounds.width, bounds.height);
  EXPECT_EQ(host::UploadVideoFrame(source, deviceSource), 0);
  EXPECT_EQ(CRANDLE::ApplyLUT(deviceSource, lut, method, deviceDestination), 0);
  FrameRef result = HostFrame(format, bounds.width, bounds.height);
  EXPECT_EQ(host::DownloadVideoFrame(deviceDestination, result), 0);
  return result;
}

TEST_P(ApplyGPUDevice, EveryKindMethodAndFormatFollowsTheModel) {
  for (const SModelCase& c : kModelCases) {
    const auto lut = BuildModelCase(c);
    for (bool tetrahedral : {false, true})
      for (host::PixelFormat format :
           {host::kPixelFormat_BGRA_4444_8u, host::kPixelFormat_BGRA_4444_16u,
            host::kPixelFormat_BGRA_4444_32f}) {
        const FrameRef source = ModelSource(c, format, 97, 23);
        const FrameRef result =
            ApplyOnDevice(device_, source, lut, tetrahedral ? kTetrahedral : kTrilinear);
        ExpectFollowsModel(*lut, tetrahedral, 2e-6 * OutputRange(*lut), RowsOf(source),
                           RowsOf(result),
                           std::string(c.name) + (tetrahedral ? " tetrahedral " : " trilinear ") +
                               std::to_string(format.variant) + "-bit");
      }
  }
}

// Half the threads go through a test device over the real one, whose kernel slots are its own.
TEST_P(ApplyGPUDevice, EightThreadsApplyOnOneDeviceAtOnce) {
  const SModelCase& c = kModelCases[4];  // 3D_17
  const auto cube = BuildModelCase(c);
  const FrameRef source = ModelSource(c, host::kPixelFormat_BGRA_4444_32f, 64, 16);
  const FrameRef reference = ApplyOnDevice(device_, source, cube, kTetrahedral);
  const auto same = [&](const FrameRef& result) {
    const SPixelRows a = RowsOf(result), b = RowsOf(reference);
    for (uint32_t y = 0; y < a.height; ++y)
      if (std::memcmp(a.At(0, y, 0), b.At(0, y, 0), a.width * 16) != 0) return false;
    return true;
  };
  const auto wrapped = host::CreateGPUTestDevice(device_, 0);
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      const auto device = t % 2 ? std::shared_ptr<host::IGPUDevice>(wrapped) : device_;
      for (int frame = 0; frame < 10; ++frame) {
        const FrameRef result = ApplyOnDevice(device, source, cube, kTetrahedral);
        if (!same(result)) ++bad;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(bad.load(), 0);
}

CRANDLE_GPU_BACKEND_SUITE(ApplyGPUDevice);

}  // namespace
}  // namespace crandle_test
