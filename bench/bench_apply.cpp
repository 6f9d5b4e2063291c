// The CPU apply path on a 3840 x 2160 frame, single-threaded: the whole exported ApplyLUT call
// per LUT kind, the same with 8-bit frames (conversions included), one in-place pass over the
// frame as the memory yardstick, the 3-D and 1-D LUT programs of both tables side by side, and
// the frame in strips on one and two threads.
//
// ApplyLUT uses the kernel table of the process; run the program twice to measure both:
//   ./build/release/bin/bench_apply
//   CRANDLE_CPU_ISA=sse ./build/release/bin/bench_apply
// The table in use is printed as "kernel_tier" in the context.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "apply_inputs.h"
#include "crandle/crandle.h"
#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/cpu_texture.h"
#include "foundation/simd_tier.h"
#include "host/pixel_format.h"
#include "host/video_frame.h"

namespace {

using crandle_bench::kFrameHeight;
using crandle_bench::kFrameWidth;
using FrameRef = host::InterfaceRef<host::IVideoFrame>;

constexpr size_t kPixels = size_t(kFrameWidth) * kFrameHeight;

void* BaseOf(const FrameRef& frame) {
  return frame.Query<host::IVideoFrameMemoryAccess>()->GetBaseAddress();
}

// The benchmark picture in blue-green-red-alpha order, in `format`.
FrameRef MakePicture(host::PixelFormat format) {
  FrameRef frame;
  if (host::CreateVideoFrame(frame, format, kFrameWidth, kFrameHeight, 1.0f,
                             host::ColorSpace::Rec709, false, false) != 0) {
    return {};
  }
  auto* bytes = static_cast<uint8_t*>(BaseOf(frame));
  auto* floats = static_cast<float*>(BaseOf(frame));
  for (uint32_t y = 0; y < kFrameHeight; ++y) {
    for (uint32_t x = 0; x < kFrameWidth; ++x) {
      float rgb[3];
      crandle_bench::PictureColour(x, y, rgb);
      const size_t at = 4 * (size_t(y) * kFrameWidth + x);
      const float bgra[4] = {rgb[2], rgb[1], rgb[0], 1.0f};
      for (int c = 0; c < 4; ++c) {
        if (format == host::kPixelFormat_BGRA_4444_32f) floats[at + c] = bgra[c];
        if (format == host::kPixelFormat_BGRA_4444_8u)
          bytes[at + c] = uint8_t(bgra[c] * 255 + 0.5f);
      }
    }
  }
  return frame;
}

std::shared_ptr<void> MakeLUT(const std::string& kind) {
  if (kind == "3D33") return crandle_bench::MakeCube(33);
  if (kind == "3D65") return crandle_bench::MakeCube(65);
  if (kind == "1D4096") return crandle_bench::MakeCurve(4096);
  if (kind == "1D3D33") return crandle_bench::MakeShapedCube(33, 256);
  return nullptr;
}

void AddContext() {
  static const bool once = [] {
    benchmark::AddCustomContext("kernel_tier", Tincta::ActiveCPUKernels().name);
    return true;
  }();
  (void)once;
}

void ApplyCPU(benchmark::State& state, const std::string& kind, host::PixelFormat format) {
  AddContext();
  const std::shared_ptr<void> lut = MakeLUT(kind);
  FrameRef source = MakePicture(format);
  FrameRef destination = MakePicture(format);
  if (!lut || source.IsEmpty() || destination.IsEmpty()) {
    state.SkipWithError("no memory for the frames or the LUT");
    return;
  }
  for (auto _ : state) {
    // A source in the working layout comes back with red and blue exchanged; every other call
    // therefore sees the picture's channels swapped, which costs the same.
    const int result = CRANDLE::ApplyLUT(source, lut, host::LUTInterpolationMethod(0), destination);
    if (result != 0) {
      state.SkipWithError("ApplyLUT failed");
      return;
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPixels));
}

// The frame split into horizontal strips applied concurrently, one ApplyLUT call per strip on
// frames that view it (what `crandle apply --threads N` does): the scaling over cores.
void ApplyCPUStrips(benchmark::State& state) {
  AddContext();
  const auto strips = static_cast<uint32_t>(state.range(0));
  const std::shared_ptr<void> lut = MakeLUT("3D33");
  FrameRef source = MakePicture(host::kPixelFormat_BGRA_4444_32f);
  FrameRef destination = MakePicture(host::kPixelFormat_BGRA_4444_32f);
  if (!lut || source.IsEmpty() || destination.IsEmpty()) {
    state.SkipWithError("no memory for the frames or the LUT");
    return;
  }
  const size_t rowBytes = size_t(kFrameWidth) * 16;
  std::vector<FrameRef> sources(strips), destinations(strips);
  for (uint32_t i = 0; i < strips; ++i) {
    const uint32_t first = kFrameHeight * i / strips, end = kFrameHeight * (i + 1) / strips;
    host::CreateVideoFrameView(
        sources[i], host::kPixelFormat_BGRA_4444_32f, kFrameWidth, end - first,
        static_cast<uint8_t*>(BaseOf(source)) + first * rowBytes, rowBytes, nullptr);
    host::CreateVideoFrameView(
        destinations[i], host::kPixelFormat_BGRA_4444_32f, kFrameWidth, end - first,
        static_cast<uint8_t*>(BaseOf(destination)) + first * rowBytes, rowBytes, nullptr);
  }
  std::atomic<int> failures{0};
  for (auto _ : state) {
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < strips; ++i) {
      threads.emplace_back([&, i] {
        if (CRANDLE::ApplyLUT(sources[i], lut, host::LUTInterpolationMethod(0), destinations[i]) !=
            0) {
          failures.fetch_add(1);
        }
      });
    }
    for (std::thread& thread : threads)
      thread.join();
  }
  if (failures.load() != 0) state.SkipWithError("ApplyLUT failed");
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPixels));
}

void BM_InplaceSwap(benchmark::State& state) {
  AddContext();
  FrameRef frame = MakePicture(host::kPixelFormat_BGRA_4444_32f);
  if (frame.IsEmpty()) {
    state.SkipWithError("no memory for the frame");
    return;
  }
  auto* pixels = static_cast<float*>(BaseOf(frame));
  const Tincta::SCPUKernelTable& kernels = Tincta::ActiveCPUKernels();
  for (auto _ : state) {
    kernels.swapRedBlue(pixels, kPixels);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPixels));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kPixels) * 32);
}

// A LUT program alone over the frame (already red first), per table, in one process: the 3-D
// program on a cube of `n` points, or the 1-D program on a curve of `n` entries.
void LUTKernel(benchmark::State& state, const Tincta::SCPUKernelTable& kernels, bool cube,
               uint32_t n) {
  const bool avx2 = std::strcmp(kernels.name, "avx2") == 0;
  const Tincta::ESimdTier hardware = Tincta::SimdTierOf(Tincta::DetectProcessorFeatures(nullptr));
  if (avx2 && hardware != Tincta::ESimdTier::kAVX2) {
    state.SkipWithError("this processor has no AVX2 + FMA");
    return;
  }
  const auto lut = cube ? crandle_bench::MakeCube(n) : crandle_bench::MakeCurve(n);
  Tincta::COvCPUTextureUnits units;
  units.bUpload(1, n, n, n, cube ? Tincta::kTexture3D : Tincta::kTexture1D, 4, lut->Table(), false);
  Tincta::SLUTDomainMapping mapping;
  for (int c = 0; c < 3; ++c) {
    mapping.scale[c] = lut->TextureScale()[c];
    mapping.offset[c] = lut->TextureOffset()[c];
  }
  FrameRef source = MakePicture(host::kPixelFormat_BGRA_4444_32f);
  FrameRef destination = MakePicture(host::kPixelFormat_BGRA_4444_32f);
  const auto* in = static_cast<const float*>(BaseOf(source));
  auto* out = static_cast<float*>(BaseOf(destination));
  const auto program = cube ? kernels.applyLUT3D : kernels.applyLUT1D;
  for (auto _ : state) {
    for (uint32_t y = 0; y < kFrameHeight; ++y) {
      const size_t row = size_t(y) * kFrameWidth * 4;
      program(units.Unit(1), mapping, in + row, out + row, kFrameWidth,
              Tincta::EDestinationWrites::kCached);
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPixels));
}

const bool kRegistered = [] {
  for (const char* kind : {"3D33", "3D65", "1D4096", "1D3D33"}) {
    benchmark::RegisterBenchmark((std::string("BM_ApplyCPU/") + kind).c_str(), ApplyCPU, kind,
                                 host::kPixelFormat_BGRA_4444_32f)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
  }
  benchmark::RegisterBenchmark("BM_ApplyCPU8bit/3D33", ApplyCPU, std::string("3D33"),
                               host::kPixelFormat_BGRA_4444_8u)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("BM_ApplyCPUStrips/3D33", ApplyCPUStrips)
      ->Arg(1)
      ->Arg(2)
      ->ArgName("threads")
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("BM_InplaceSwap/3840x2160", BM_InplaceSwap)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  for (uint32_t n : {33u, 65u, 4096u}) {
    for (const Tincta::SCPUKernelTable* kernels :
         {&Tincta::CPUKernelsSSE(), &Tincta::CPUKernelsAVX2()}) {
      const bool cube = n != 4096;
      benchmark::RegisterBenchmark((std::string(cube ? "BM_LUTKernel3D/" : "BM_LUTKernel1D/") +
                                    std::to_string(n) + "/" + kernels->name)
                                       .c_str(),
                                   LUTKernel, *kernels, cube, n)
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime();
    }
  }
  return true;
}();

}  // namespace
