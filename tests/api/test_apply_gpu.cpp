// ApplyLUT on frames that live on a GPU device.
//
// With the recording test device: the constant block's bytes and the texture keys against
// golden values from tests/support/gpu_golden.py, the failure rows of the GPU path one by one,
// block sizes, uploads and kernel loads counted, threads at once. On OpenCL (PoCL everywhere)
// and CUDA (skipped without a device): every LUT kind, method and device pixel format against
// the double-precision model of the kernels, and the GPU path against the CPU path.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "api/apply_paths.h"
#include "crandle/crandle.h"
#include "engine/gpu/hw_texture.h"
#include "engine/gpu/lut_kernel_model.h"
#include "host/frame_interfaces.h"
#include "host/gpu.h"
#include "host/gpu_test_device.h"
#include "host/null_pointer.h"
#include "host/pixel_convert.h"
#include "host/video_frame.h"
#include "lut/lut3d.h"

namespace crandle_test {
namespace {

using host::GPUTestOperation;
using host::LUTInterpolationMethod;
using Tincta::COv3DLUT;
using Tincta::Vec4;
using FrameRef = host::InterfaceRef<host::IVideoFrame>;

constexpr int kLUTFailed = static_cast<int>(0xa00f0001u);
constexpr int kNoDeviceMemory = static_cast<int>(0xa00f0006u);
constexpr int kUnsupported = static_cast<int>(0xa00f000cu);
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
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, true));
  float* e = lut->Table();
  for (uint32_t i = 0; i < n * n * n; ++i) {
    const double r = double(i % n) / (n - 1), g = double(i / n % n) / (n - 1),
                 b = double(i / (n * n)) / (n - 1);
    *e++ = float(r);
    *e++ = float(g * g);
    *e++ = float(0.25 + 0.5 * b);
    *e++ = 1.0f;
  }
  return lut;
}

std::shared_ptr<COv3DLUT> GoldenCurves(uint32_t n, Vec4 min, Vec4 max) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, false));
  lut->SetDomain(min, max);
  for (uint32_t i = 0; i < n; ++i) {
    const double t = double(i) / (n - 1);
    float* e = lut->Table() + 4 * i;
    e[0] = float(t);
    e[1] = float(t * t);
    e[2] = float(1.0 - t);
    e[3] = 1.0f;
  }
  return lut;
}

std::shared_ptr<COv3DLUT> Shaped(std::shared_ptr<COv3DLUT> cube, std::shared_ptr<COv3DLUT> shaper) {
  cube->SetInputShaper(std::move(shaper));
  return cube;
}

std::shared_ptr<void> Handle(std::shared_ptr<COv3DLUT> lut) {
  return lut;
}

FrameRef GPUFrame(const std::shared_ptr<host::IGPUDevice>& device, host::PixelFormat format,
                  uint32_t width, uint32_t height) {
  FrameRef frame;
  EXPECT_EQ(host::CreateGPUVideoFrame(frame, device, format, width, height, true), 0);
  return frame;
}

FrameRef HostFrame(host::PixelFormat format, uint32_t width, uint32_t height) {
  FrameRef frame;
  EXPECT_EQ(host::CreateVideoFrame(frame, format, width, height, 1.0f, host::ColorSpace::Unknown,
                                   true, false),
            0);
  return frame;
}

std::vector<host::GPUTestCall> CallsNamed(const host::GPUTestDevice& device, const char* name) {
  std::vector<host::GPUTestCall> out;
  for (const auto& call : device.Calls())
    if (call.operation == name) out.push_back(call);
  return out;
}

// Applies on fresh frames; the device's record then holds the apply's calls alone.
int Apply(const std::shared_ptr<host::GPUTestDevice>& device, const std::shared_ptr<COv3DLUT>& lut,
          LUTInterpolationMethod method, uint32_t width = 8, uint32_t height = 4) {
  const FrameRef source = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, width, height);
  FrameRef destination = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, width, height);
  device->ClearCalls();
  return CRANDLE::ApplyLUT(source, Handle(lut), method, destination);
}

// ---- The recording test device over no back end. ----

TEST(ApplyGPUTestDevice, ConstantBlockBytesAndKernelFollowKindAndMethod) {
  struct SCase {
    const char* name;
    std::shared_ptr<COv3DLUT> lut;
    LUTInterpolationMethod method;
    const uint8_t* golden;
    size_t bytes;
    const char* module;
  } const cases[] = {
      {"cube tetrahedral", GoldenCube(33), kTetrahedral, kCube33Tetrahedral, 48,
       "COMPOP_LUT3D_TetrahedralInterpolation"},
      {"cube trilinear", GoldenCube(33), kTrilinear, kCube33Trilinear, 32, "COMPOP_LUT3D"},
      // A 1-D LUT ignores the method: its kernel and a block of two rows.
      {"curves tetrahedral", GoldenCurves(1024, kOddMin, kOddMax), kTetrahedral,
       kCurves1024OddDomain, 32, "COMPOP_LUT1D"},
      // Behind a shaper: the shaper's domain mapping, the cube's size.
      {"shaped tetrahedral", Shaped(GoldenCube(5), GoldenCurves(256, kOddMin, kOddMax)),
       kTetrahedral, kShaped5Tetrahedral, 48, "COMPOP_LUT1D3D_TetrahedralInterpolation"},
  };
  for (const SCase& c : cases) {
    const auto device = host::CreateGPUTestDevice(nullptr);
    ASSERT_EQ(Apply(device, c.lut, c.method), 0) << c.name;
    const auto copies = CallsNamed(*device, "CopyStagingToDevice");
    ASSERT_EQ(copies.size(), 1u) << c.name;
    EXPECT_EQ(copies[0].payload, std::vector<uint8_t>(c.golden, c.golden + c.bytes)) << c.name;
    ASSERT_EQ(CallsNamed(*device, "HostAllocator.Allocate").at(0).bytes, c.bytes) << c.name;
    ASSERT_EQ(CallsNamed(*device, "DeviceAllocator.Allocate").at(0).bytes, c.bytes) << c.name;
    const auto launches = CallsNamed(*device, "Launch");
    ASSERT_EQ(launches.size(), 1u) << c.name;
    EXPECT_EQ(launches[0].detail, std::string(c.module) + "/ShaderKernel_" + c.module) << c.name;
  }
}

TEST(ApplyGPUTestDevice, TextureKeysMatchTheGoldenHashes) {
  struct SCase {
    const char* name;
    std::shared_ptr<COv3DLUT> lut;
    std::vector<std::string> keys;
  } const cases[] = {
      {"cube", GoldenCube(3), {kCube3Key}},
      // The shaper first, then the cube.
      {"shaped cube",
       Shaped(GoldenCube(3), GoldenCurves(256, kUnitMin, kUnitMax)),
       {kShapedCube3ShaperKey, kShapedCube3Key}},
      {"curves", GoldenCurves(256, kOddMin, kOddMax), {kCurves256OddKey}},
  };
  for (const SCase& c : cases) {
    const auto device = host::CreateGPUTestDevice(nullptr);
    ASSERT_EQ(Apply(device, c.lut, kTrilinear), 0) << c.name;
    std::vector<std::string> found;
    for (const auto& call : CallsNamed(*device, "AssetCache.Find"))
      found.push_back(call.detail);
    EXPECT_EQ(found, c.keys) << c.name;
    for (const std::string& key : c.keys)
      EXPECT_NE(device->GetAssetCache().Find(*host::Guid::FromString(key)), nullptr) << c.name;
  }
  // A texture with a name is keyed by it (the file need not exist for the key).
  const Tincta::COvHwTexture named("luts/look.cube", Tincta::kHwTexture3D, nullptr);
  EXPECT_EQ(Tincta::HwTextureCacheKey(named, false, true).ToString(), kNamedKey);
}

// Each failure row on a fresh device: the result, whether a launch happened, and every staging
// and device block given back.
TEST(ApplyGPUTestDevice, FailureRowsGiveTheirResultsAndReleaseEverything) {
  struct SCase {
    GPUTestOperation failing;
    int result;
    bool launched;
  } const cases[] = {
      {GPUTestOperation::HostAllocate, kNoDeviceMemory, false},
      {GPUTestOperation::MapView, kNoDeviceMemory, false},
      {GPUTestOperation::DeviceAllocate, kNoDeviceMemory, false},
      // The constants never reach the device: nothing is applied, and success is reported.
      {GPUTestOperation::ConstantCopy, 0, false},
      // A failed unmap keeps the view, and the copy reads it.
      {GPUTestOperation::Unmap, 0, true},
      {GPUTestOperation::UploadTexture, kLUTFailed, false},
      {GPUTestOperation::LoadKernel, kLUTFailed, false},
      {GPUTestOperation::LoadTexture, host::kGPUErrorNotFound, false},
      {GPUTestOperation::BindTexture, host::kGPUErrorInjected, false},
      {GPUTestOperation::Bind3DTexture, kLUTFailed, false},
      {GPUTestOperation::Launch, host::kGPUErrorInjected, true},
  };
  for (const SCase& c : cases) {
    const auto device = host::CreateGPUTestDevice(nullptr);
    const FrameRef source = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, 8, 4);
    FrameRef destination = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, 8, 4);
    device->ClearCalls();
    device->SetFailure(c.failing, true);
    const int result = CRANDLE::ApplyLUT(source, Handle(GoldenCube(33)), kTrilinear, destination);
    EXPECT_EQ(result, c.result) << "failing operation " << int(c.failing);
    EXPECT_EQ(CallsNamed(*device, "Launch").size(), c.launched ? 1u : 0u) << int(c.failing);
    if (c.failing == GPUTestOperation::Unmap) {
      const auto copies = CallsNamed(*device, "CopyStagingToDevice");
      ASSERT_EQ(copies.size(), 1u);
      EXPECT_EQ(copies[0].payload, std::vector<uint8_t>(kCube33Trilinear, kCube33Trilinear + 32));
    }
    size_t hostBlocks = 0, deviceBlocks = 0;
    for (const auto& call : device->Calls()) {
      if (call.operation == "HostAllocator.Allocate" && call.result == 0) ++hostBlocks;
      if (call.operation == "HostAllocator.Release" && call.bytes != 0) --hostBlocks;
      if (call.operation == "DeviceAllocator.Allocate" && call.result == 0) ++deviceBlocks;
      if (call.operation == "DeviceAllocator.Release" && call.bytes != 0) --deviceBlocks;
    }
    EXPECT_EQ(hostBlocks, 0u) << int(c.failing);
    EXPECT_EQ(deviceBlocks, 0u) << int(c.failing);
  }
}

// A frame that says it is on a GPU but cannot name its device: the host's null-pointer exception,
// which the exported boundary turns into an empty-argument result.
TEST(ApplyGPUTestDevice, ASourceWithoutCompletionTrackingRaisesTheHostsException) {
  const FrameRef memory = HostFrame(host::kPixelFormat_BGRA_4444_32f, 8, 4);
  host::FrameInterfaceChoice choice;
  choice.gpuVideoFrame = true;
  const auto source = FrameRef::FromObject(host::CreateFrameWithInterfaces(memory, choice));
  auto destination = FrameRef::FromObject(host::CreateFrameWithInterfaces(memory, choice));
  EXPECT_THROW(
      CRANDLE::detail::ApplyLUTOnGPU(source, Handle(GoldenCube(3)), kTrilinear, destination),
      host::NullPointerException);
  EXPECT_EQ(CRANDLE::ApplyLUT(source, Handle(GoldenCube(3)), kTrilinear, destination),
            static_cast<int>(0xa00f000eu));
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
    ASSERT_EQ(Apply(device, GoldenCube(3), kTrilinear, 1000, 37), 0);
    const auto launch = CallsNamed(*device, "Launch").at(0);
    EXPECT_EQ(std::vector<uint32_t>({launch.block.x, launch.block.y, launch.grid.x, launch.grid.y}),
              std::vector<uint32_t>({c.block.x, c.block.y, c.grid.x, c.grid.y}))
        << "framework " << c.framework << " kind " << c.kind;
    // Launch arguments: constants, destination, pitch in pixels, format bits, width, height.
    ASSERT_EQ(launch.payload.size(), 6u * 8);
    uint32_t words[6];
    for (int i = 0; i < 6; ++i)
      std::memcpy(&words[i], &launch.payload[8 * i], 4);
    EXPECT_EQ(words[3], 32u);
    EXPECT_EQ(words[4], 1000u);
    EXPECT_EQ(words[5], 37u);
    EXPECT_GE(words[2], 1000u);
  }
}

TEST(ApplyGPUTestDevice, ALUTUsedOnAHundredFramesIsUploadedOnce) {
  const auto device = host::CreateGPUTestDevice(nullptr);
  const auto cube = GoldenCube(17);
  const auto shaped = Shaped(GoldenCube(9), GoldenCurves(512, kUnitMin, kUnitMax));
  const FrameRef source = GPUFrame(device, host::kPixelFormat_BGRA_4444_16u, 16, 16);
  FrameRef destination = GPUFrame(device, host::kPixelFormat_BGRA_4444_16u, 16, 16);
  device->ClearCalls();
  for (int frame = 0; frame < 100; ++frame) {
    ASSERT_EQ(CRANDLE::ApplyLUT(source, Handle(cube), kTrilinear, destination), 0);
    ASSERT_EQ(CRANDLE::ApplyLUT(source, Handle(shaped), kTetrahedral, destination), 0);
  }
  const auto uploads = CallsNamed(*device, "UploadTexture");
  ASSERT_EQ(uploads.size(), 3u);  // the cube, the shaper, the shaped cube
  EXPECT_EQ(CallsNamed(*device, "Launch").size(), 200u);
  // The shaper's upload reads its own 512 texels, not the cube's byte count.
  EXPECT_EQ(std::vector<uint32_t>({uploads[1].width, uploads[1].height, uploads[1].depth}),
            std::vector<uint32_t>({512, 1, 1}));
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 2u);
}

TEST(ApplyGPUTestDevice, KernelsAreLoadedAgainAfterAReset) {
  const auto device = host::CreateGPUTestDevice(nullptr);
  ASSERT_EQ(Apply(device, GoldenCube(3), kTrilinear), 0);
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 1u);
  ASSERT_EQ(Apply(device, GoldenCube(3), kTrilinear), 0);
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 0u);
  EXPECT_EQ(CallsNamed(*device, "UploadTexture").size(), 0u);
  ASSERT_EQ(device->Reset(), 0);
  ASSERT_EQ(Apply(device, GoldenCube(3), kTrilinear), 0);
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 1u);
  // The reset dropped the asset cache too: the table is uploaded again.
  EXPECT_EQ(CallsNamed(*device, "UploadTexture").size(), 1u);
}

TEST(ApplyGPUTestDevice, AFrameInHostMemoryWithAFrameOnTheDeviceIsRefused) {
  const auto device = host::CreateGPUTestDevice(nullptr);
  FrameRef onDevice = GPUFrame(device, host::kPixelFormat_BGRA_4444_32f, 8, 4);
  FrameRef inMemory = HostFrame(host::kPixelFormat_BGRA_4444_32f, 8, 4);
  EXPECT_EQ(CRANDLE::ApplyLUT(onDevice, Handle(GoldenCube(3)), kTrilinear, inMemory), kUnsupported);
  EXPECT_EQ(CRANDLE::ApplyLUT(inMemory, Handle(GoldenCube(3)), kTrilinear, onDevice), kUnsupported);
  EXPECT_TRUE(CallsNamed(*device, "Launch").empty());
}

// ---- Real devices: OpenCL on PoCL, CUDA where a device is lent. ----

std::shared_ptr<host::IGPUDevice> DeviceOf(uint32_t framework) {
  return host::GetGPUDevice(framework, 0);
}

class ApplyGPUDevice : public testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override {
    device_ = DeviceOf(GetParam());
    if (!device_) {
      GTEST_SKIP() << (GetParam() == host::kGPUFrameworkCUDA ? "no CUDA device or driver here"
                                                             : "no OpenCL device here");
    }
  }
  std::shared_ptr<host::IGPUDevice> device_;
};

std::string FrameworkName(const testing::TestParamInfo<uint32_t>& info) {
  return info.param == host::kGPUFrameworkCUDA ? "Cuda" : "OpenCL";
}

// Smooth, mildly non-linear tables as colour transforms hold.
std::shared_ptr<COv3DLUT> SmoothCube(uint32_t n, Vec4 min, Vec4 max) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, true));
  lut->SetDomain(min, max);
  float* e = lut->Table();
  for (uint32_t i = 0; i < n * n * n; ++i) {
    const double r = double(i % n) / (n - 1), g = double(i / n % n) / (n - 1),
                 b = double(i / (n * n)) / (n - 1);
    *e++ = float(0.8 * std::pow(r, 0.9) + 0.1 * g + 0.05);
    *e++ = float(0.45 * g * g + 0.45 * g + 0.1 * b);
    *e++ = float(0.7 * std::sin(1.2 * b) + 0.1 * r);
    *e++ = 1.0f;
  }
  return lut;
}

std::shared_ptr<COv3DLUT> SmoothCurves(uint32_t n, Vec4 min, Vec4 max, bool coordinates) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, false));
  lut->SetDomain(min, max);
  for (uint32_t i = 0; i < n; ++i) {
    const double t = double(i) / (n - 1);
    const double curve[3] = {std::pow(t, 0.45), t * t, 0.5 * t + 0.5 * std::sqrt(t)};
    for (int c = 0; c < 3; ++c)
      lut->Table()[4 * i + c] = float(coordinates ? 0.02 + 0.96 * curve[c] : 1.2 * curve[c] - 0.1);
    lut->Table()[4 * i + 3] = 1.0f;
  }
  return lut;
}

struct SKindCase {
  const char* name;
  std::shared_ptr<COv3DLUT> (*make)();
};

const SKindCase kKinds[] = {
    {"1D_4096", [] { return SmoothCurves(4096, kUnitMin, kUnitMax, false); }},
    {"1D_odd_domain", [] { return SmoothCurves(37, kOddMin, kOddMax, false); }},
    {"3D_33", [] { return SmoothCube(33, kUnitMin, kUnitMax); }},
    {"3D_odd_domain", [] { return SmoothCube(17, kOddMin, kOddMax); }},
    {"1D3D",
     [] {
       return Shaped(SmoothCube(17, kUnitMin, kUnitMax),
                     SmoothCurves(1024, kUnitMin, kUnitMax, true));
     }},
    {"1D3D_odd_domain",
     [] {
       return Shaped(SmoothCube(9, kUnitMin, kUnitMax), SmoothCurves(256, kOddMin, kOddMax, true));
     }},
};

SModelLUT ModelOf(const COv3DLUT& lut, bool tetrahedral) {
  SModelLUT m;
  m.kind = !lut.Is3D() ? EModelKind::k1D : lut.InputShaper() ? EModelKind::k1D3D : EModelKind::k3D;
  m.tetrahedral = tetrahedral;
  m.table = lut.Table();
  m.size = lut.Size();
  if (const COv3DLUT* shaper = lut.InputShaper()) {
    m.shaper = shaper->Table();
    m.shaperSize = shaper->Size();
  }
  const COv3DLUT& domain = lut.InputShaper() ? *lut.InputShaper() : lut;
  for (int lane = 0; lane < 4; ++lane) {
    const int rgba = lane < 3 ? 2 - lane : 3;
    m.scale[lane] = domain.TextureScale()[rgba];
    m.offset[lane] = domain.TextureOffset()[rgba];
  }
  return m;
}

// A host frame of random pixels over a little more than the domain (within [0, 1] for integer
// formats), with the domain's ends and NaN among them for float frames.
FrameRef RandomSource(const COv3DLUT& lut, host::PixelFormat format, uint32_t width,
                      uint32_t height, uint32_t seed) {
  FrameRef frame = HostFrame(format, width, height);
  const auto memory = frame.Query<host::IVideoFrameMemoryAccess>();
  auto* base = static_cast<uint8_t*>(memory->GetBaseAddress());
  const COv3DLUT& domain = lut.InputShaper() ? *lut.InputShaper() : lut;
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(-0.1, 1.1);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      for (int channel = 0; channel < 4; ++channel) {
        const int rgb = channel < 3 ? 2 - channel : 3;
        const double lo = domain.DomainMin()[rgb], hi = domain.DomainMax()[rgb];
        double v = unit(rng);
        const uint32_t i = y * width + x;
        if (i % 7 == 0) v = 0;
        if (i % 11 == 0) v = 1;
        if (format.variant == 32) {
          float f = float(channel == 3 ? v : lo + (hi - lo) * v);
          if (i == 5 && channel == 1) f = std::numeric_limits<float>::quiet_NaN();
          std::memcpy(base + y * memory->GetRowBytes() + 16 * x + 4 * channel, &f, 4);
        } else {
          const double top = format.variant == 8 ? 255 : 65535;
          const auto q = uint32_t(ModelQuantize(v, top));
          uint8_t* p = base + y * memory->GetRowBytes() + (format.variant / 2) * x +
                       (format.variant / 8) * channel;
          if (format.variant == 8)
            *p = uint8_t(q);
          else {
            const uint16_t s = uint16_t(q);
            std::memcpy(p, &s, 2);
          }
        }
      }
  return frame;
}

double Sample(const FrameRef& frame, uint32_t x, uint32_t y, int channel) {
  const auto memory = frame.Query<host::IVideoFrameMemoryAccess>();
  const auto* row =
      static_cast<const uint8_t*>(memory->GetBaseAddress()) + y * memory->GetRowBytes();
  const uint32_t bits = frame->GetPixelFormat().variant;
  const uint8_t* p = row + (bits / 2) * x + (bits / 8) * channel;
  if (bits == 8) return *p;
  if (bits == 16) {
    uint16_t s;
    std::memcpy(&s, p, 2);
    return s;
  }
  float f;
  std::memcpy(&f, p, 4);
  return f;
}

// Uploads `source`, applies through ApplyLUT on the device, and downloads the result.
FrameRef ApplyOnDevice(const std::shared_ptr<host::IGPUDevice>& device, const FrameRef& source,
                       const std::shared_ptr<COv3DLUT>& lut, LUTInterpolationMethod method) {
  const host::FrameBounds bounds = source->GetBounds();
  const host::PixelFormat format = source->GetPixelFormat();
  FrameRef deviceSource = GPUFrame(device, format, bounds.width, bounds.height);
  FrameRef deviceDestination = GPUFrame(device, format, bounds.width, bounds.height);
  EXPECT_EQ(host::UploadVideoFrame(source, deviceSource), 0);
  EXPECT_EQ(CRANDLE::ApplyLUT(deviceSource, Handle(lut), method, deviceDestination), 0);
  FrameRef result = HostFrame(format, bounds.width, bounds.height);
  EXPECT_EQ(host::DownloadVideoFrame(deviceDestination, result), 0);
  return result;
}

TEST_P(ApplyGPUDevice, EveryKindMethodAndFormatFollowsTheModel) {
  for (const SKindCase& kind : kKinds) {
    const auto lut = kind.make();
    double low = lut->Table()[0], high = low;
    for (size_t i = 0; i < lut->EntryCount(); ++i)
      for (int c = 0; c < 3; ++c) {
        low = std::min<double>(low, lut->Table()[4 * i + c]);
        high = std::max<double>(high, lut->Table()[4 * i + c]);
      }
    const double tolerance = 2e-6 * (high - low);
    for (bool tetrahedral : {false, true})
      for (host::PixelFormat format :
           {host::kPixelFormat_BGRA_4444_8u, host::kPixelFormat_BGRA_4444_16u,
            host::kPixelFormat_BGRA_4444_32f}) {
        const uint32_t width = 97, height = 23;
        const FrameRef source = RandomSource(*lut, format, width, height, 3 + format.variant);
        const FrameRef result =
            ApplyOnDevice(device_, source, lut, tetrahedral ? kTetrahedral : kTrilinear);
        const SModelLUT model = ModelOf(*lut, tetrahedral);
        const double top = format.variant == 8 ? 255 : 65535;
        size_t failures = 0;
        for (uint32_t y = 0; y < height && failures < 5; ++y)
          for (uint32_t x = 0; x < width && failures < 5; ++x) {
            Bgra in;
            for (int c = 0; c < 4; ++c)
              in[c] =
                  format.variant == 32 ? Sample(source, x, y, c) : Sample(source, x, y, c) / top;
            const Bgra want = ModelPixel(model, in);
            for (int c = 0; c < 4; ++c) {
              const double got = Sample(result, x, y, c);
              const bool ok = format.variant == 32
                                  ? std::fabs(got - want[c]) <= (c == 3 ? 0.0 : tolerance)
                                  : got >= ModelQuantize(want[c] - tolerance, top) &&
                                        got <= ModelQuantize(want[c] + tolerance, top);
              if (!ok && ++failures <= 5) {
                ADD_FAILURE() << kind.name << (tetrahedral ? " tetrahedral " : " trilinear ")
                              << format.variant << "-bit at (" << x << ", " << y << ") channel "
                              << c << ": " << got << " for " << want[c];
              }
            }
          }
      }
  }
}

// Where a channel's coordinate lies in the last texel interval of its table, and the largest
// step between neighbouring entries there.
struct SEdge {
  bool inLastInterval = false;
  double step = 0;
};

SEdge LastIntervalOf(const COv3DLUT& lut, const Bgra& in) {
  SEdge edge;
  const COv3DLUT& domain = lut.InputShaper() ? *lut.InputShaper() : lut;
  for (int c = 0; c < 3; ++c) {
    const int lane = 2 - c;
    const double s = in[lane] * domain.TextureScale()[c] + domain.TextureOffset()[c];
    if (s * domain.Size() - 0.5 > domain.Size() - 2.0) edge.inLastInterval = true;
  }
  // The largest step anywhere bounds the one at hand.
  const size_t n = lut.Size();
  for (size_t i = 0; i + 1 < lut.EntryCount(); ++i)
    for (int c = 0; c < 3; ++c)
      for (size_t stride : {size_t(1), n, n * n})
        if (i + stride < lut.EntryCount() && (lut.Is3D() || stride == 1))
          edge.step = std::max<double>(
              edge.step, std::fabs(lut.Table()[4 * (i + stride) + c] - lut.Table()[4 * i + c]));
  return edge;
}

TEST_P(ApplyGPUDevice, GPUPathAgreesWithTheCPUPath) {
  for (const SKindCase& kind : kKinds) {
    if (std::string(kind.name).find("1D3D") != std::string::npos) continue;  // shaper: own edges
    const auto lut = kind.make();
    const uint32_t width = 211, height = 17;
    const FrameRef source = RandomSource(*lut, host::kPixelFormat_BGRA_4444_32f, width, height, 99);
    const FrameRef gpu = ApplyOnDevice(device_, source, lut, kTrilinear);
    // The CPU path may exchange red and blue of a float source in place: keep the inputs.
    std::vector<Bgra> inputs(size_t(width) * height);
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x)
        for (int c = 0; c < 4; ++c)
          inputs[y * width + x][c] = Sample(source, x, y, c);
    FrameRef cpu = HostFrame(host::kPixelFormat_BGRA_4444_32f, width, height);
    ASSERT_EQ(CRANDLE::ApplyLUT(source, Handle(lut), kTrilinear, cpu), 0);
    size_t failures = 0, inside = 0;
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x) {
        const Bgra& in = inputs[y * width + x];
        bool nan = false;
        for (int c = 0; c < 4; ++c)
          nan = nan || std::isnan(in[c]);
        if (nan) continue;  // NaN handling is each engine's own
        const SEdge edge = LastIntervalOf(*lut, in);
        inside += edge.inLastInterval;
        const double allowed = edge.inLastInterval ? 0.01 * edge.step + 1e-5 : 1e-5;
        for (int c = 0; c < 3; ++c) {
          const double d = std::fabs(Sample(gpu, x, y, c) - Sample(cpu, x, y, c));
          if (d > allowed && ++failures <= 5) {
            ADD_FAILURE() << kind.name << " at (" << x << ", " << y << ") channel " << c << ": GPU "
                          << Sample(gpu, x, y, c) << " CPU " << Sample(cpu, x, y, c);
          }
        }
      }
    EXPECT_GT(inside, 0u) << kind.name << ": no pixel reached the last interval";
  }
}

TEST_P(ApplyGPUDevice, EightThreadsApplyOnOneDeviceAtOnce) {
  const auto cube = SmoothCube(17, kUnitMin, kUnitMax);
  const FrameRef source = RandomSource(*cube, host::kPixelFormat_BGRA_4444_32f, 64, 16, 5);
  const FrameRef reference = ApplyOnDevice(device_, source, cube, kTetrahedral);
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      // Half the threads use a test device over the real one: its kernel slots are its own.
      const auto device =
          t % 2 ? std::shared_ptr<host::IGPUDevice>(host::CreateGPUTestDevice(device_, 0))
                : device_;
      for (int frame = 0; frame < 10; ++frame) {
        const FrameRef result = ApplyOnDevice(device, source, cube, kTetrahedral);
        for (uint32_t y = 0; y < 16; ++y)
          for (uint32_t x = 0; x < 64; ++x)
            for (int c = 0; c < 4; ++c) {
              const double a = Sample(result, x, y, c), b = Sample(reference, x, y, c);
              if (!(a == b || (std::isnan(a) && std::isnan(b)))) bad.fetch_add(1);
            }
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(bad.load(), 0);
}

TEST_P(ApplyGPUDevice, KernelsAreLoadedAgainAfterTheDeviceIsReset) {
  const auto device = host::CreateGPUTestDevice(device_, 0);
  const auto cube = SmoothCube(5, kUnitMin, kUnitMax);
  const FrameRef source = RandomSource(*cube, host::kPixelFormat_BGRA_4444_32f, 8, 8, 1);
  const FrameRef before = ApplyOnDevice(device, source, cube, kTrilinear);
  ASSERT_EQ(device->Reset(), 0);
  const FrameRef after = ApplyOnDevice(device, source, cube, kTrilinear);
  EXPECT_EQ(CallsNamed(*device, "LoadKernel").size(), 2u);
  for (uint32_t x = 0; x < 8; ++x)
    EXPECT_EQ(Sample(before, x, 3, 2), Sample(after, x, 3, 2));
}

INSTANTIATE_TEST_SUITE_P(Backends, ApplyGPUDevice,
                         testing::Values(host::kGPUFrameworkOpenCL, host::kGPUFrameworkCUDA),
                         FrameworkName);

}  // namespace
}  // namespace crandle_test
