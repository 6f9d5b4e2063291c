// The CPU apply path end to end: results against tables whose interpolation is known exactly,
// the in-place exchange of red and blue, temporary frames only where a conversion needs them,
// result codes, and concurrent calls sharing one LUT.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

#include "api/apply_paths.h"
#include "crandle/crandle.h"
#include "host/binary_data.h"
#include "host/frame_interfaces.h"
#include "host/pixel_format.h"
#include "host/video_frame.h"
#include "lut/lut3d.h"

// Every allocation of the process passes here, so that a test can see whether a call allocated
// anything of the frame's size. Sanitizers bring allocators of their own, so there the count is
// not taken.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CRANDLE_COUNTS_ALLOCATIONS 0
#else
#define CRANDLE_COUNTS_ALLOCATIONS 1
#endif

namespace {
std::atomic<bool> gWatching{false};
std::atomic<size_t> gLargeThreshold{0};
std::atomic<int> gLargeAllocations{0};

void Note(size_t bytes) {
  if (gWatching.load(std::memory_order_relaxed) && bytes >= gLargeThreshold.load()) {
    gLargeAllocations.fetch_add(1);
  }
}

[[maybe_unused]] void* Allocate(size_t bytes, size_t alignment) {
  Note(bytes);
  if (bytes == 0) bytes = 1;
  void* block =
      alignment <= alignof(std::max_align_t)
          ? std::malloc(bytes)
          : std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
}  // namespace

#if CRANDLE_COUNTS_ALLOCATIONS
void* operator new(size_t bytes) {
  return Allocate(bytes, alignof(std::max_align_t));
}
void* operator new[](size_t bytes) {
  return Allocate(bytes, alignof(std::max_align_t));
}
void* operator new(size_t bytes, std::align_val_t a) {
  return Allocate(bytes, size_t(a));
}
void* operator new[](size_t bytes, std::align_val_t a) {
  return Allocate(bytes, size_t(a));
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete(void* p, size_t, std::align_val_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, size_t, std::align_val_t) noexcept {
  std::free(p);
}
#endif

namespace crandle_test {
namespace {

using host::ColorSpace;
using host::InterfaceRef;
using host::IVideoFrame;
using host::PixelFormat;
using Tincta::COv3DLUT;
using FrameRef = InterfaceRef<IVideoFrame>;

constexpr PixelFormat kFloat = host::kPixelFormat_BGRA_4444_32f;
constexpr PixelFormat kByte = host::kPixelFormat_BGRA_4444_8u;
constexpr PixelFormat kShort = host::kPixelFormat_BGRA_4444_16u;

// Counts the allocations of at least half a float frame made while it lives.
class CLargeAllocations {
 public:
  explicit CLargeAllocations(size_t frameBytes) {
    gLargeThreshold = frameBytes / 2;
    gLargeAllocations = 0;
    gWatching = true;
  }
  ~CLargeAllocations() { gWatching = false; }
  int Count() const { return gLargeAllocations.load(); }
};

// out = M x in + shift: an affine map, which trilinear and linear interpolation reproduce exactly
// wherever the 1.01 clamp does not hold the coordinate back.
struct SAffine {
  double m[3][3] = {{0.7, 0.2, -0.1}, {0.05, 0.8, 0.1}, {-0.15, 0.1, 0.9}};
  double shift[3] = {0.05, -0.02, 0.1};
  double operator()(const double v[3], int row) const {
    return m[row][0] * v[0] + m[row][1] * v[1] + m[row][2] * v[2] + shift[row];
  }
};

std::shared_ptr<COv3DLUT> AffineCube(uint32_t n, const SAffine& f) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, true));
  float* entry = lut->Table();
  for (uint32_t b = 0; b < n; ++b) {
    for (uint32_t g = 0; g < n; ++g) {
      for (uint32_t r = 0; r < n; ++r) {
        const double node[3] = {double(r) / (n - 1), double(g) / (n - 1), double(b) / (n - 1)};
        for (int c = 0; c < 3; ++c)
          *entry++ = float(f(node, c));
        *entry++ = 1.0f;
      }
    }
  }
  return lut;
}

FrameRef MakeFrame(PixelFormat format, uint32_t width, uint32_t height) {
  FrameRef frame;
  EXPECT_EQ(
      host::CreateVideoFrame(frame, format, width, height, 1.0f, ColorSpace::Rec709, false, false),
      0);
  return frame;
}

uint8_t* Base(const FrameRef& frame) {
  return static_cast<uint8_t*>(frame.Query<host::IVideoFrameMemoryAccess>()->GetBaseAddress());
}
size_t RowBytes(const FrameRef& frame) {
  return frame.Query<host::IVideoFrameMemoryAccess>()->GetRowBytes();
}

// Reads pixel (x, y) of a BGRA frame as blue, green, red, alpha in [0, 1].
std::array<double, 4> ReadBGRA(const FrameRef& frame, uint32_t x, uint32_t y) {
  const uint8_t* row = Base(frame) + y * RowBytes(frame);
  const PixelFormat format = frame->GetPixelFormat();
  std::array<double, 4> v{};
  for (int c = 0; c < 4; ++c) {
    if (format == kFloat) v[c] = reinterpret_cast<const float*>(row)[4 * x + c];
    if (format == kByte) v[c] = row[4 * x + c] / 255.0;
    if (format == kShort) v[c] = reinterpret_cast<const uint16_t*>(row)[4 * x + c] / 65535.0;
  }
  return v;
}

void WriteBGRA(const FrameRef& frame, uint32_t x, uint32_t y, const std::array<double, 4>& v) {
  uint8_t* row = Base(frame) + y * RowBytes(frame);
  const PixelFormat format = frame->GetPixelFormat();
  for (int c = 0; c < 4; ++c) {
    if (format == kFloat) reinterpret_cast<float*>(row)[4 * x + c] = float(v[c]);
    if (format == kByte) row[4 * x + c] = uint8_t(std::lround(v[c] * 255));
    if (format == kShort)
      reinterpret_cast<uint16_t*>(row)[4 * x + c] = uint16_t(std::lround(v[c] * 65535));
  }
}

// Fills a frame with colours inside the part of the domain where a cube of `n` points
// interpolates without the clamp, with room for an 8-bit rounding.
void FillInside(const FrameRef& frame, uint32_t n, std::mt19937& rng) {
  std::uniform_real_distribution<double> value(0.0, (n - 1.01) / (n - 1) - 1.0 / 255);
  const host::FrameBounds b = frame->GetBounds();
  for (uint32_t y = 0; y < b.height; ++y) {
    for (uint32_t x = 0; x < b.width; ++x) {
      WriteBGRA(frame, x, y, {value(rng), value(rng), value(rng), 0.25 + 0.5 * value(rng)});
    }
  }
}

// Result of one bit depth step: a float result stays as computed, an integer one is rounded
// after clamping.
double Quantum(PixelFormat format) {
  return format == kByte ? 1 / 255.0 : format == kShort ? 1 / 65535.0 : 0;
}

// Checks `destination` = f(source) pixel for pixel, in blue-green-red-alpha order.
void ExpectAffineResult(const FrameRef& destination,
                        const std::vector<std::array<double, 4>>& input, const SAffine& f,
                        double tolerance) {
  const host::FrameBounds b = destination->GetBounds();
  const double q = Quantum(destination->GetPixelFormat());
  for (uint32_t y = 0; y < b.height; ++y) {
    for (uint32_t x = 0; x < b.width; ++x) {
      const auto& in = input[y * b.width + x];
      const double rgb[3] = {in[2], in[1], in[0]};
      const auto out = ReadBGRA(destination, x, y);
      for (int c = 0; c < 3; ++c) {
        double want = f(rgb, c);
        if (q != 0) want = std::clamp(want, 0.0, 1.0);
        ASSERT_NEAR(out[2 - c], want, tolerance + q) << "pixel " << x << "," << y << " rgb " << c;
      }
      ASSERT_NEAR(out[3], in[3], 1e-7 + q) << "alpha of " << x << "," << y;
    }
  }
}

std::vector<std::array<double, 4>> Snapshot(const FrameRef& frame) {
  const host::FrameBounds b = frame->GetBounds();
  std::vector<std::array<double, 4>> pixels;
  for (uint32_t y = 0; y < b.height; ++y) {
    for (uint32_t x = 0; x < b.width; ++x)
      pixels.push_back(ReadBGRA(frame, x, y));
  }
  return pixels;
}

int Apply(const FrameRef& source, const std::shared_ptr<void>& lut, FrameRef& destination,
          host::LUTInterpolationMethod method = host::LUTInterpolationMethod(0)) {
  return CRANDLE::ApplyLUT(source, lut, method, destination);
}

TEST(ApplyOnCPU, EveryPairOfFormatsWithTemporariesOnlyWhereConverted) {
  struct SCase {
    PixelFormat source, destination;
    int temporaries;
    double tolerance;
  };
  const SCase cases[] = {
      {kFloat, kFloat, 0, 2e-6}, {kByte, kFloat, 1, 2e-6}, {kFloat, kByte, 1, 2e-6},
      {kByte, kByte, 2, 2e-6},   {kShort, kByte, 2, 2e-6}, {kFloat, kShort, 1, 2e-6},
  };
  const uint32_t width = 64, height = 32, n = 9;
  const SAffine f;
  const std::shared_ptr<void> lut = AffineCube(n, f);
  std::mt19937 rng(31);
  for (const SCase& c : cases) {
    FrameRef source = MakeFrame(c.source, width, height);
    FrameRef destination = MakeFrame(c.destination, width, height);
    FillInside(source, n, rng);
    const auto input = Snapshot(source);
    int status = 0, large = 0;
    host::RecycledMemory::Purge();  // so that a temporary frame shows as an allocation
    {
      CLargeAllocations watch(size_t(width) * height * 16);
      status = Apply(source, lut, destination);
      large = watch.Count();
    }
    ASSERT_EQ(status, 0);
    if (CRANDLE_COUNTS_ALLOCATIONS) {
      EXPECT_EQ(large, c.temporaries) << "frame-sized allocations";
    }
    ExpectAffineResult(destination, input, f, c.tolerance);
    // A source in the working layout keeps red and blue exchanged; any other is left alone.
    const auto after = Snapshot(source);
    for (size_t i = 0; i < input.size(); ++i) {
      const std::array<double, 4> expected =
          c.source == kFloat
              ? std::array<double, 4>{input[i][2], input[i][1], input[i][0], input[i][3]}
              : input[i];
      ASSERT_EQ(after[i], expected) << "source pixel " << i;
    }
  }
}

// A frame that views part of a wider picture has rows longer than its width: they are read
// and written where they lie, and the rest of each row is not touched.
TEST(ApplyOnCPU, FramesWithPaddedRows) {
  const uint32_t width = 21, height = 6, stride = 32, n = 5;
  const SAffine f;
  const std::shared_ptr<void> lut = AffineCube(n, f);
  std::mt19937 rng(32);
  auto sourceMemory = std::make_shared<std::vector<float>>(4 * stride * height, -5.0f);
  auto destinationMemory = std::make_shared<std::vector<float>>(4 * stride * height, -7.0f);
  FrameRef source, destination;
  ASSERT_EQ(host::CreateVideoFrameView(source, kFloat, width, height, sourceMemory->data(),
                                       stride * 16, sourceMemory),
            0);
  ASSERT_EQ(host::CreateVideoFrameView(destination, kFloat, width, height,
                                       destinationMemory->data(), stride * 16, destinationMemory),
            0);
  FillInside(source, n, rng);
  const auto input = Snapshot(source);
  ASSERT_EQ(Apply(source, lut, destination), 0);
  ExpectAffineResult(destination, input, f, 2e-6);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = width; x < stride; ++x) {
      for (int c = 0; c < 4; ++c) {
        ASSERT_EQ((*sourceMemory)[4 * (y * stride + x) + c], -5.0f);
        ASSERT_EQ((*destinationMemory)[4 * (y * stride + x) + c], -7.0f);
      }
    }
  }
}

// Row bytes come from the 2-D interface when the frame has it, else from the memory interface.
TEST(ApplyOnCPU, RowBytesPreferTheTwoDimensionalInterface) {
  const uint32_t width = 8, height = 4, n = 5;
  const SAffine f;
  const std::shared_ptr<void> lut = AffineCube(n, f);
  std::mt19937 rng(33);
  auto memory = std::make_shared<std::vector<float>>(4 * 2 * width * height, 0.0f);
  FrameRef padded;
  ASSERT_EQ(host::CreateVideoFrameView(padded, kFloat, width, height, memory->data(),
                                       2 * width * 16, memory),
            0);
  FillInside(padded, n, rng);
  FrameRef destination = MakeFrame(kFloat, width, height);
  // Claims packed rows through the 2-D interface while the memory interface tells the truth.
  host::FrameInterfaceChoice packed;
  packed.rowBytes2D = width * 16;
  const FrameRef misreported =
      FrameRef::FromObject(host::CreateFrameWithInterfaces(padded, packed));
  const std::vector<float> before = *memory;
  ASSERT_EQ(Apply(misreported, lut, destination), 0);
  // Row 1 of the result came from the second half of memory row 0.
  const float* out = reinterpret_cast<const float*>(Base(destination) + RowBytes(destination));
  const double rgb[3] = {before[4 * width + 2], before[4 * width + 1], before[4 * width]};
  EXPECT_NEAR(out[2], f(rgb, 0), 2e-6);

  // Without the 2-D interface the memory interface's row bytes are used.
  *memory = before;
  host::FrameInterfaceChoice no2D;
  no2D.pixelMemoryAccess2D = false;
  const FrameRef plain = FrameRef::FromObject(host::CreateFrameWithInterfaces(padded, no2D));
  const auto input = Snapshot(padded);
  ASSERT_EQ(Apply(plain, lut, destination), 0);
  ExpectAffineResult(destination, input, f, 2e-6);

  // Without the memory interface the call cannot read the pixels.
  host::FrameInterfaceChoice noMemory;
  noMemory.memoryAccess = false;
  const FrameRef blind = FrameRef::FromObject(host::CreateFrameWithInterfaces(padded, noMemory));
  EXPECT_EQ(Apply(blind, lut, destination), CRANDLE::kResultEmptyArgument);
}

// The shaper's domain drives the mapping whatever the LUT's kind; the 1-D + 3-D program reads
// the shaper 1-D and samples the cube at its output.
TEST(ApplyOnCPU, ShaperDomainAndShapedCubes) {
  std::mt19937 rng(34);
  // A 1-D table that is affine in its index, behind a shaper with another domain: applied as
  // 1-D, mapped by the shaper's scale and offset.
  const uint32_t size = 200;
  auto curve = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(curve->Allocate(size, false));
  for (uint32_t i = 0; i < size; ++i) {
    for (int c = 0; c < 3; ++c)
      curve->Table()[4 * i + c] = float(0.01 * i - 0.3 * c);
    curve->Table()[4 * i + 3] = 1.0f;
  }
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(16, false));
  shaper->SetDomain({-1, -1, -1, 0}, {3, 3, 3, 1});
  curve->SetInputShaper(shaper);

  const uint32_t width = 37, height = 3;
  FrameRef source = MakeFrame(kFloat, width, height),
           destination = MakeFrame(kFloat, width, height);
  std::uniform_real_distribution<double> value(-0.9, 2.9);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x)
      WriteBGRA(source, x, y, {value(rng), value(rng), value(rng), 1});
  }
  const auto input = Snapshot(source);
  ASSERT_EQ(Apply(source, std::shared_ptr<void>(curve), destination), 0);
  for (size_t i = 0; i < input.size(); ++i) {
    const auto out = ReadBGRA(destination, uint32_t(i % width), uint32_t(i / width));
    for (int c = 0; c < 3; ++c) {
      const double s =
          input[i][2 - c] * (1.0 - 1.0 / 16) / 4.0 + (0.5 / 16 + (1.0 - 1.0 / 16) / 4.0);
      const double x = std::clamp(s * size - 0.5, 0.0, size - 1.01);
      ASSERT_NEAR(out[2 - c], 0.01 * x - 0.3 * c, 2e-5) << "pixel " << i << " channel " << c;
    }
  }

  // A shaper whose entries are a curve in the cube's texel-centre coordinates, in front of an
  // affine cube: the result is the affine map of the curve's piecewise-linear interpolation.
  const uint32_t n = 9, shaperSize = 32;
  const SAffine f;
  auto cube = AffineCube(n, f);
  auto cubeShaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(cubeShaper->Allocate(shaperSize, false));
  auto g = [](double u) { return u * u; };
  for (uint32_t i = 0; i < shaperSize; ++i) {
    for (int c = 0; c < 3; ++c) {
      cubeShaper->Table()[4 * i + c] =
          float(g(double(i) / (shaperSize - 1)) * (1.0 - 1.0 / n) + 0.5 / n);
    }
    cubeShaper->Table()[4 * i + 3] = 1.0f;
  }
  cube->SetInputShaper(cubeShaper);
  auto knots = [&](double v) {
    const double t = v * (shaperSize - 1);
    const auto i = std::min<uint32_t>(uint32_t(t), shaperSize - 2);
    return g(double(i) / (shaperSize - 1)) +
           (g(double(i + 1) / (shaperSize - 1)) - g(double(i) / (shaperSize - 1))) * (t - i);
  };
  FillInside(source, shaperSize, rng);
  const auto shapedInput = Snapshot(source);
  ASSERT_EQ(Apply(source, std::shared_ptr<void>(cube), destination), 0);
  for (size_t i = 0; i < shapedInput.size(); ++i) {
    const double u[3] = {knots(shapedInput[i][2]), knots(shapedInput[i][1]),
                         knots(shapedInput[i][0])};
    if (std::max({u[0], u[1], u[2]}) > (n - 1.01) / (n - 1)) continue;  // the cube's clamp
    const auto out = ReadBGRA(destination, uint32_t(i % width), uint32_t(i / width));
    for (int c = 0; c < 3; ++c)
      ASSERT_NEAR(out[2 - c], f(u, c), 2e-5) << "pixel " << i;
  }
}

TEST(ApplyOnCPU, InterpolationMethodMakesNoDifference) {
  std::mt19937 rng(35);
  const std::shared_ptr<void> lut = AffineCube(17, SAffine{});
  FrameRef source = MakeFrame(kByte, 40, 10);
  FillInside(source, 17, rng);
  FrameRef trilinear = MakeFrame(kFloat, 40, 10), tetrahedral = MakeFrame(kFloat, 40, 10);
  ASSERT_EQ(Apply(source, lut, trilinear, host::LUTInterpolationMethod(0)), 0);
  ASSERT_EQ(Apply(source, lut, tetrahedral, host::LUTInterpolationMethod(1)), 0);
  EXPECT_EQ(std::memcmp(Base(trilinear), Base(tetrahedral), 40 * 10 * 16), 0);
}

// A source and destination that are one frame: the result lands in it.
TEST(ApplyOnCPU, OneFrameAsSourceAndDestination) {
  std::mt19937 rng(36);
  const SAffine f;
  const std::shared_ptr<void> lut = AffineCube(5, f);
  for (PixelFormat format : {kFloat, kByte}) {
    FrameRef frame = MakeFrame(format, 19, 7);
    FillInside(frame, 5, rng);
    const auto input = Snapshot(frame);
    ASSERT_EQ(Apply(frame, lut, frame), 0);
    ExpectAffineResult(frame, input, f, 2e-6);
  }
}

// Largest cube that uploads, and a shaper that the renderer refuses: the render then fails and
// a destination in the working layout keeps what it held.
TEST(ApplyOnCPU, UploadLimitsThroughTheCall) {
  auto big = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(big->Allocate(256, true));
  float* entry = big->Table();
  for (uint32_t b = 0; b < 256; ++b) {
    for (uint32_t g = 0; g < 256; ++g) {
      for (uint32_t r = 0; r < 256; ++r) {
        *entry++ = r / 255.0f;
        *entry++ = g / 255.0f;
        *entry++ = b / 255.0f;
        *entry++ = 1.0f;
      }
    }
  }
  FrameRef source = MakeFrame(kFloat, 4, 1), destination = MakeFrame(kFloat, 4, 1);
  std::mt19937 rng(37);
  FillInside(source, 256, rng);
  const auto input = Snapshot(source);
  ASSERT_EQ(Apply(source, std::shared_ptr<void>(big), destination), 0);
  for (uint32_t x = 0; x < 4; ++x) {
    const auto out = ReadBGRA(destination, x, 0);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(out[c], input[x][c], 1e-5);
  }
  big.reset();

  for (uint32_t shaperSize : {257u, 1024u}) {
    auto cube = AffineCube(5, SAffine{});
    auto shaper = std::make_shared<COv3DLUT>();
    ASSERT_TRUE(shaper->Allocate(shaperSize, false));
    for (uint32_t i = 0; i < 4 * shaperSize; ++i)
      shaper->Table()[i] = 0.5f;
    cube->SetInputShaper(shaper);
    for (uint32_t x = 0; x < 4; ++x)
      WriteBGRA(destination, x, 0, {0.125, 0.25, 0.375, 0.5});
    EXPECT_EQ(Apply(source, std::shared_ptr<void>(cube), destination), CRANDLE::kResultLUTFailed);
    for (uint32_t x = 0; x < 4; ++x) {
      EXPECT_EQ(ReadBGRA(destination, x, 0), (std::array<double, 4>{0.125, 0.25, 0.375, 0.5}));
    }
  }
}

// A frame double whose pixel format the host's conversion does not know.
class CUnknownFormatFrame final : public host::IObject,
                                  public host::IVideoFrame,
                                  public host::IVideoFrameMemoryAccess {
 public:
  CUnknownFormatFrame(uint32_t width, uint32_t height)
      : width_(width), height_(height), pixels_(width * height * 4) {}
  void* QueryInterface(std::string_view name) noexcept override {
    if (name == host::IVideoFrame::kInterfaceName) return static_cast<host::IVideoFrame*>(this);
    if (name == host::IVideoFrameMemoryAccess::kInterfaceName) {
      return static_cast<host::IVideoFrameMemoryAccess*>(this);
    }
    return nullptr;
  }
  host::FrameBounds GetBounds() const override { return {0, 0, width_, height_}; }
  float GetPixelAspectRatio() const override { return 1.0f; }
  PixelFormat GetPixelFormat() const override { return {0x58595A57u, 4}; }
  ColorSpace GetColorSpace() const override { return ColorSpace::Unknown; }
  void* GetBaseAddress() const override { return const_cast<uint32_t*>(pixels_.data()); }
  size_t GetRowBytes() const override { return width_ * 4; }

 private:
  uint32_t width_, height_;
  std::vector<uint32_t> pixels_;
};

TEST(ApplyOnCPU, ResultCodes) {
  const std::shared_ptr<void> lut = AffineCube(3, SAffine{});
  FrameRef source = MakeFrame(kFloat, 6, 2), destination = MakeFrame(kFloat, 6, 2);
  for (uint32_t x = 0; x < 6; ++x)
    WriteBGRA(destination, x, 1, {0.5, 0.5, 0.5, 0.5});
  const auto untouched = Snapshot(destination);

  EXPECT_EQ(CRANDLE::detail::ApplyLUTOnCPU(source, nullptr, destination),
            CRANDLE::kResultEmptyArgument);
  const FrameRef unknown = FrameRef::FromObject(std::make_shared<CUnknownFormatFrame>(6, 2));
  EXPECT_EQ(Apply(unknown, lut, destination), CRANDLE::kResultConversionFailed);
  EXPECT_EQ(Snapshot(destination), untouched);
  FrameRef unknownDestination = FrameRef::FromObject(std::make_shared<CUnknownFormatFrame>(6, 2));
  EXPECT_EQ(Apply(source, lut, unknownDestination), CRANDLE::kResultConversionFailed);
}

// A wide frame goes through the steps a few rows at a time; every row must come out as if each
// step had run over the whole frame, on success and on failure.
TEST(ApplyOnCPU, WideFramesInStrips) {
  const uint32_t width = 4096, height = 19, n = 9;  // several strips and a short last one
  const SAffine f;
  const std::shared_ptr<void> lut = AffineCube(n, f);
  std::mt19937 rng(39);
  for (PixelFormat destinationFormat : {kFloat, kByte}) {
    FrameRef source = MakeFrame(kFloat, width, height);
    FrameRef destination = MakeFrame(destinationFormat, width, height);
    FillInside(source, n, rng);
    const auto input = Snapshot(source);
    ASSERT_EQ(Apply(source, lut, destination), 0);
    ExpectAffineResult(destination, input, f, 2e-6);
    const auto after = Snapshot(source);
    for (size_t i = 0; i < input.size(); ++i) {
      ASSERT_EQ(after[i],
                (std::array<double, 4>{input[i][2], input[i][1], input[i][0], input[i][3]}))
          << "source pixel " << i;
    }
  }

  // A renderer failure: the whole source exchanged, the destination untouched.
  auto cube = AffineCube(5, f);
  auto shaper = std::make_shared<COv3DLUT>();
  ASSERT_TRUE(shaper->Allocate(300, false));
  cube->SetInputShaper(shaper);
  FrameRef source = MakeFrame(kFloat, width, height);
  FrameRef destination = MakeFrame(kFloat, width, height);
  FillInside(source, n, rng);
  FillInside(destination, n, rng);
  const auto input = Snapshot(source);
  const auto held = Snapshot(destination);
  EXPECT_EQ(Apply(source, std::shared_ptr<void>(cube), destination), CRANDLE::kResultLUTFailed);
  EXPECT_EQ(Snapshot(destination), held);
  auto after = Snapshot(source);
  for (size_t i = 0; i < input.size(); ++i) {
    ASSERT_EQ(after[i], (std::array<double, 4>{input[i][2], input[i][1], input[i][0], input[i][3]}))
        << "source pixel " << i;
  }

  // A failed conversion out: the source has been exchanged in full all the same.
  FrameRef unknown = FrameRef::FromObject(std::make_shared<CUnknownFormatFrame>(width, height));
  const auto before = Snapshot(source);
  EXPECT_EQ(Apply(source, lut, unknown), CRANDLE::kResultConversionFailed);
  after = Snapshot(source);
  for (size_t i = 0; i < before.size(); ++i) {
    ASSERT_EQ(after[i],
              (std::array<double, 4>{before[i][2], before[i][1], before[i][0], before[i][3]}))
        << "source pixel " << i;
  }
}

// Several threads apply one LUT handle to frames of their own at once; each result must be what
// a lone call gives.
TEST(ApplyOnCPU, ConcurrentCallsShareOneHandle) {
  const uint32_t width = 96, height = 24, n = 17;
  const std::shared_ptr<void> lut = AffineCube(n, SAffine{});
  std::mt19937 rng(38);
  FrameRef original = MakeFrame(kFloat, width, height);
  FillInside(original, n, rng);
  const std::vector<uint8_t> input(Base(original), Base(original) + width * height * 16);
  FrameRef reference = MakeFrame(kFloat, width, height);
  {
    FrameRef source = MakeFrame(kFloat, width, height);
    std::memcpy(Base(source), input.data(), input.size());
    ASSERT_EQ(Apply(source, lut, reference), 0);
  }
  const std::vector<uint8_t> expected(Base(reference), Base(reference) + input.size());
  FrameRef reference16 = MakeFrame(kShort, width, height);
  {
    FrameRef source = MakeFrame(kFloat, width, height);
    std::memcpy(Base(source), input.data(), input.size());
    ASSERT_EQ(Apply(source, lut, reference16), 0);
  }
  const std::vector<uint8_t> expected16(Base(reference16), Base(reference16) + input.size() / 2);

  std::atomic<int> mismatches{0}, failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      const bool wide = t % 2 == 0;
      FrameRef source = MakeFrame(kFloat, width, height);
      FrameRef destination = MakeFrame(wide ? kFloat : kShort, width, height);
      const std::vector<uint8_t>& want = wide ? expected : expected16;
      for (int round = 0; round < 6; ++round) {
        std::memcpy(Base(source), input.data(), input.size());
        if (Apply(source, lut, destination) != 0) failures.fetch_add(1);
        if (std::memcmp(Base(destination), want.data(), want.size()) != 0) mismatches.fetch_add(1);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
}  // namespace crandle_test
