// The CPU apply path end to end against tables whose interpolation is known exactly: the exchange
// of red and blue, temporary frames, result codes, upload limits and concurrent calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "crandle/crandle.h"
#include "host/frame_interfaces.h"
#include "host/pixel_format.h"
#include "host/video_frame.h"
#include "lut/lut3d.h"
#include "support/gpu_frames.h"
#include "support/lut_kernel_model.h"

// Frame memory is allocated aligned, through here, so that a test can count the allocations of a
// frame's size, or refuse them as a host out of memory would. Sanitizers bring allocators of their
// own; there neither is done.
std::atomic<size_t> gLargeThreshold{0};
std::atomic<int> gLargeAllocations{0};
std::atomic<size_t> gRefuseFrom{0};
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CRANDLE_COUNTS_ALLOCATIONS 0
#else
#define CRANDLE_COUNTS_ALLOCATIONS 1
void* operator new(size_t bytes, std::align_val_t alignment) {
  if (gLargeThreshold.load() != 0 && bytes >= gLargeThreshold.load())
    gLargeAllocations.fetch_add(1);
  if (gRefuseFrom.load() != 0 && bytes >= gRefuseFrom.load()) throw std::bad_alloc();
  const size_t a = std::max(size_t(alignment), alignof(std::max_align_t));
  if (void* block = std::aligned_alloc(a, (std::max<size_t>(bytes, 1) + a - 1) / a * a))
    return block;
  throw std::bad_alloc();
}
void operator delete(void* p, std::align_val_t) noexcept {
  std::free(p);
}
#endif

namespace crandle_test {
namespace {

using host::PixelFormat;
using Tincta::COv3DLUT;
using Pixels = std::vector<std::array<double, 4>>;  // blue, green, red, alpha per pixel

constexpr PixelFormat kFloat = host::kPixelFormat_BGRA_4444_32f;
constexpr PixelFormat kByte = host::kPixelFormat_BGRA_4444_8u;
constexpr PixelFormat kShort = host::kPixelFormat_BGRA_4444_16u;

// out = M x in + shift: an affine map, which linear interpolation reproduces exactly wherever the
// 1.01 clamp does not hold the coordinate back.
double Affine(const double rgb[3], int row) {
  static const double m[3][4] = {
      {0.7, 0.2, -0.1, 0.05}, {0.05, 0.8, 0.1, -0.02}, {-0.15, 0.1, 0.9, 0.1}};
  return m[row][0] * rgb[0] + m[row][1] * rgb[1] + m[row][2] * rgb[2] + m[row][3];
}

std::shared_ptr<COv3DLUT> AffineCube(uint32_t n) {
  return TableLUT(n, true, {0, 0, 0, 0}, {1, 1, 1, 1}, [](double r, double g, double b) {
    const double rgb[3] = {r, g, b};
    return Rgb{Affine(rgb, 0), Affine(rgb, 1), Affine(rgb, 2)};
  });
}

// A 1-D LUT of `size` entries whose channel c of entry i is f(i, c).
std::shared_ptr<COv3DLUT> Curve(uint32_t size, const std::function<double(double, int)>& f) {
  return TableLUT(size, false, {0, 0, 0, 0}, {1, 1, 1, 1}, [&](double u, double, double) {
    const double i = std::round(u * (size - 1));
    return Rgb{f(i, 0), f(i, 1), f(i, 2)};
  });
}

SPixelRows Rows(const FrameRef& frame) {
  const auto memory = frame.Query<host::IVideoFrameMemoryAccess>();
  return {static_cast<uint8_t*>(memory->GetBaseAddress()), memory->GetRowBytes(),
          frame->GetPixelFormat().variant, frame->GetBounds().width, frame->GetBounds().height};
}

// What a BGRA frame holds, each channel in [0, 1] for the integer formats.
Pixels Snapshot(const FrameRef& frame) {
  const SPixelRows rows = Rows(frame);
  Pixels pixels(size_t(rows.width) * rows.height);
  for (size_t i = 0; i < 4 * pixels.size(); ++i)
    pixels[i / 4][i % 4] =
        rows.Unit(uint32_t(i / 4 % rows.width), uint32_t(i / 4 / rows.width), int(i % 4));
  return pixels;
}

// Writes colours from [low, high] and alphas from [0.25, 0.75]; returns what the frame holds.
Pixels Fill(const FrameRef& frame, double low, double high, std::mt19937& rng) {
  std::uniform_real_distribution<double> value(low, high), alpha(0.25, 0.75);
  const SPixelRows rows = Rows(frame);
  for (size_t i = 0; i < 4 * size_t(rows.width) * rows.height; ++i)
    rows.Put(uint32_t(i / 4 % rows.width), uint32_t(i / 4 / rows.width), int(i % 4),
             i % 4 == 3 ? alpha(rng) : value(rng));
  return Snapshot(frame);
}

// Colours where a cube of `n` points interpolates without the clamp, with room for an 8-bit
// rounding.
Pixels FillInside(const FrameRef& frame, uint32_t n, std::mt19937& rng) {
  return Fill(frame, 0.0, (n - 1.01) / (n - 1) - 1.0 / 255, rng);
}

Pixels Exchanged(Pixels pixels) {
  for (auto& p : pixels)
    std::swap(p[0], p[2]);
  return pixels;
}

// `destination` holds the affine map of `input` (clamped and rounded in integer formats).
void ExpectAffineResult(const FrameRef& destination, const Pixels& input) {
  const PixelFormat format = destination->GetPixelFormat();
  const double q = format == kByte ? 1 / 255.0 : format == kShort ? 1 / 65535.0 : 0;
  const Pixels out = Snapshot(destination);
  for (size_t i = 0; i < input.size(); ++i) {
    const double rgb[3] = {input[i][2], input[i][1], input[i][0]};
    for (int c = 0; c < 3; ++c) {
      const double want = q != 0 ? std::clamp(Affine(rgb, c), 0.0, 1.0) : Affine(rgb, c);
      ASSERT_NEAR(out[i][2 - c], want, 2e-6 + q) << "pixel " << i << " channel " << c;
    }
    ASSERT_NEAR(out[i][3], input[i][3], 1e-7 + q) << "alpha of pixel " << i;
  }
}

int Apply(const FrameRef& source, const std::shared_ptr<void>& lut, FrameRef& destination,
          int method = 0) {
  return CRANDLE::ApplyLUT(source, lut, host::LUTInterpolationMethod(method), destination);
}

// Temporary frames only for a frame that needs converting; a source in the working layout keeps
// red and blue exchanged, any other is left alone; the interpolation method makes no difference.
TEST(ApplyOnCPU, EveryPairOfFormats) {
  const uint32_t width = 64, height = 32;
  const std::shared_ptr<void> lut = AffineCube(9);
  std::mt19937 rng(31);
  const std::tuple<PixelFormat, PixelFormat, int> cases[] = {
      {kFloat, kFloat, 0}, {kByte, kFloat, 1}, {kFloat, kByte, 1},
      {kByte, kByte, 2},   {kShort, kByte, 2}, {kFloat, kShort, 1}};
  for (const auto& [from, to, temporaries] : cases) {
    FrameRef source = HostFrame(from, width, height), destination = HostFrame(to, width, height);
    const Pixels input = FillInside(source, 9, rng);
    host::RecycledMemory::Purge();  // so that a temporary frame shows as an allocation
    gLargeAllocations = 0;
    gLargeThreshold = size_t(width) * height * 8;
    const int status = Apply(source, lut, destination);
    gLargeThreshold = 0;
    ASSERT_EQ(status, 0);
    EXPECT_TRUE(!CRANDLE_COUNTS_ALLOCATIONS || gLargeAllocations == temporaries)
        << gLargeAllocations << " frame-sized allocations";
    ExpectAffineResult(destination, input);
    EXPECT_EQ(Snapshot(source), from == kFloat ? Exchanged(input) : input);
    if (from != kFloat) {
      const Pixels first = Snapshot(destination);
      ASSERT_EQ(Apply(source, lut, destination, 1), 0);
      EXPECT_EQ(Snapshot(destination), first) << "tetrahedral asked for";
    }
  }
  // One frame as source and destination: the result lands in it.
  for (PixelFormat format : {kFloat, kByte}) {
    FrameRef frame = HostFrame(format, 19, 7);
    const Pixels input = FillInside(frame, 9, rng);
    ASSERT_EQ(Apply(frame, lut, frame), 0);
    ExpectAffineResult(frame, input);
  }
}

// Rows longer than the width are read and written where they lie, the rest untouched; row bytes
// come from the 2-D interface when the frame has it, else from the memory interface. A 2-D
// interface that claims packed rows is believed, so that row 1 is read from the padding of row 0.
TEST(ApplyOnCPU, PaddedRowsAndRowBytes) {
  const uint32_t width = 21, height = 6, stride = 32;
  const std::shared_ptr<void> lut = AffineCube(5);
  std::mt19937 rng(32);
  std::vector<float> memory[2] = {std::vector<float>(4 * stride * height, -5.0f),
                                  std::vector<float>(4 * stride * height, -7.0f)};
  FrameRef frames[2];
  for (int i = 0; i < 2; ++i)
    ASSERT_EQ(host::CreateVideoFrameView(frames[i], kFloat, width, height, memory[i].data(),
                                         stride * 16, nullptr),
              0);
  const auto with = [&](const host::FrameInterfaceChoice& choice) {
    return FrameRef::FromObject(host::CreateFrameWithInterfaces(frames[0], choice));
  };
  for (const FrameRef& source : {frames[0], with({.pixelMemoryAccess2D = false})}) {
    const Pixels input = FillInside(frames[0], 5, rng);
    ASSERT_EQ(Apply(source, lut, frames[1]), 0);
    ExpectAffineResult(frames[1], input);
    for (size_t i = 0; i < memory[0].size(); ++i)
      ASSERT_TRUE(i % (4 * stride) < 4 * width || (memory[0][i] == -5 && memory[1][i] == -7)) << i;
  }
  std::uniform_real_distribution<float> inside(0.0f, 0.7f);
  for (float& v : memory[0])
    v = inside(rng);
  const double rgb[3] = {memory[0][4 * width + 2], memory[0][4 * width + 1], memory[0][4 * width]};
  ASSERT_EQ(Apply(with({.rowBytes2D = width * 16}), lut, frames[1]), 0);
  EXPECT_NEAR(memory[1][4 * stride + 2], Affine(rgb, 0), 2e-6);
  EXPECT_EQ(Apply(with({.memoryAccess = false}), lut, frames[1]), CRANDLE::kResultEmptyArgument);
}

// The 1-D + 3-D program reads the shaper 1-D and samples the cube at its output.
TEST(ApplyOnCPU, ShapedCubes) {
  std::mt19937 rng(34);
  const uint32_t width = 37, height = 3;
  FrameRef source = HostFrame(kFloat, width, height),
           destination = HostFrame(kFloat, width, height);
  // A shaper whose entries are u^2 in the cube's texel-centre coordinates, in front of an affine
  // cube: the result is the affine map of the curve's piecewise-linear interpolation.
  const uint32_t n = 9, shaperSize = 32;
  auto cube = AffineCube(n);
  cube->SetInputShaper(Curve(shaperSize, [&](double i, int) {
    const double u = double(i) / (shaperSize - 1);
    return u * u * (1.0 - 1.0 / n) + 0.5 / n;
  }));
  auto knots = [&](double v) {
    const double t = v * (shaperSize - 1), i = std::min(std::floor(t), shaperSize - 2.0);
    const double a = i / (shaperSize - 1), b = (i + 1) / (shaperSize - 1);
    return a * a + (b * b - a * a) * (t - i);
  };
  const Pixels input = FillInside(source, shaperSize, rng);
  ASSERT_EQ(Apply(source, std::shared_ptr<void>(cube), destination), 0);
  const Pixels out = Snapshot(destination);
  for (size_t i = 0; i < input.size(); ++i) {
    const double u[3] = {knots(input[i][2]), knots(input[i][1]), knots(input[i][0])};
    if (std::max({u[0], u[1], u[2]}) > (n - 1.01) / (n - 1)) continue;  // the cube's clamp
    for (int c = 0; c < 3; ++c)
      ASSERT_NEAR(out[i][2 - c], Affine(u, c), 2e-5) << "pixel " << i;
  }
}

// Failures on a frame of several strips: the source is exchanged in full whatever fails, and a
// destination in the working layout keeps what it held when the rendering fails. A shaper goes up
// as a cube of its size, so one of more than 256 entries is refused and the rendering fails.
TEST(ApplyOnCPU, ResultCodesUploadLimitsAndFailuresInStrips) {
  const uint32_t width = 4096, height = 19;  // several strips and a short last one
  std::mt19937 rng(37);
  const std::shared_ptr<void> lut = AffineCube(9);
  FrameRef source = HostFrame(kFloat, width, height),
           destination = HostFrame(kFloat, width, height);
  FrameRef unconvertible = FrameRef::FromObject(  // rows the host's conversion refuses
      host::CreateFrameWithInterfaces(HostFrame(kByte, width, height), {.rowBytes2D = 4}));
  const Pixels held = FillInside(destination, 9, rng);
  EXPECT_EQ(Apply(unconvertible, lut, destination), CRANDLE::kResultConversionFailed);
  EXPECT_EQ(Snapshot(destination), held);

  Pixels input = FillInside(source, 9, rng);
  EXPECT_EQ(Apply(source, lut, unconvertible), CRANDLE::kResultConversionFailed);
  EXPECT_EQ(Snapshot(source), Exchanged(input)) << "a failed conversion out";
  for (uint32_t shaperSize : {257u, 1024u}) {
    auto cube = AffineCube(5);
    cube->SetInputShaper(Curve(shaperSize, [](double, int) { return 0.0; }));
    input = Snapshot(source);
    EXPECT_EQ(Apply(source, std::shared_ptr<void>(cube), destination), CRANDLE::kResultLUTFailed);
    EXPECT_EQ(Snapshot(destination), held);
    EXPECT_EQ(Snapshot(source), Exchanged(input)) << "a failed rendering, shaper " << shaperSize;
  }
  FrameRef small = HostFrame(kFloat, 4, 1), smallOut = HostFrame(kFloat, 4, 1);
  input = FillInside(small, 256, rng);
  ASSERT_EQ(Apply(small, std::shared_ptr<void>(AffineCube(256)), smallOut), 0);  // the largest
  ExpectAffineResult(smallOut, input);
}

// A working frame the host cannot allocate ends the call with the host's own result, before any
// pixel of either frame is touched (the views below lie over a few bytes).
TEST(ApplyOnCPU, AWorkingFrameTheHostCannotAllocateReturnsTheHostsResult) {
  if (!CRANDLE_COUNTS_ALLOCATIONS) GTEST_SKIP() << "the sanitizer's allocator refuses nothing";
  // The working frame holds one strip, so the host is made to refuse anything of a row's size.
  const uint32_t width = 1u << 20, height = 1u << 15;
  const std::shared_ptr<void> lut = AffineCube(5);
  std::vector<float> memory(64, 0.25f);
  gRefuseFrom = size_t(width) * 16;
  for (const bool sourceInWorkingLayout : {false, true}) {
    SCOPED_TRACE(sourceInWorkingLayout ? "destination converted" : "source converted");
    FrameRef frames[2];
    for (int i = 0; i < 2; ++i) {
      const bool working = (i == 0) == sourceInWorkingLayout;
      const PixelFormat format = working ? kFloat : kByte;
      ASSERT_EQ(host::CreateVideoFrameView(frames[i], format, width, height, memory.data(),
                                           size_t(width) * (working ? 16 : 4), nullptr),
                0);
    }
    EXPECT_EQ(Apply(frames[0], lut, frames[1]), host::kFrameErrorOutOfMemory);
  }
  gRefuseFrom = 0;
  EXPECT_TRUE(std::all_of(memory.begin(), memory.end(), [](float v) { return v == 0.25f; }));
}

// Several threads apply one LUT handle to frames of their own at once, on every strip of a wide
// frame, into the working layout and into 16 bits.
TEST(ApplyOnCPU, ConcurrentCallsShareOneHandle) {
  const uint32_t width = 2000, height = 24;
  const std::shared_ptr<void> lut = AffineCube(17);
  std::mt19937 rng(38);
  FrameRef original = HostFrame(kFloat, width, height);
  const Pixels input = FillInside(original, 17, rng);
  const std::vector<uint8_t> bytes(Rows(original).base, Rows(original).base + width * height * 16);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      FrameRef source = HostFrame(kFloat, width, height);
      FrameRef destination = HostFrame(t % 2 ? kFloat : kShort, width, height);
      for (int round = 0; round < 4; ++round) {
        std::memcpy(Rows(source).base, bytes.data(), bytes.size());
        failures += Apply(source, lut, destination) != 0;
        ExpectAffineResult(destination, input);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace crandle_test
