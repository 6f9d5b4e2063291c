// The reference host's per-frame work on a 4K frame: pixel conversion into and out of the
// working layout, against a plain copy of the same bytes, and working-frame creation.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/binary_data.h"
#include "host/pixel_convert.h"
#include "host/video_frame.h"

namespace {

constexpr uint32_t kWidth = 3840;
constexpr uint32_t kHeight = 2160;

size_t BytesPerPixelOf(int code) {
  return code == host::kIRFormat_BGRA_16u ? 8 : code == host::kIRFormat_BGRA_32f ? 16 : 4;
}

void Convert(benchmark::State& state, int from, int to) {
  std::vector<uint8_t> src(size_t(kWidth) * kHeight * BytesPerPixelOf(from));
  std::vector<uint8_t> dst(size_t(kWidth) * kHeight * BytesPerPixelOf(to));
  if (from == host::kIRFormat_BGRA_32f) {
    auto* samples = reinterpret_cast<float*>(src.data());
    for (size_t i = 0; i < src.size() / 4; ++i)
      samples[i] = float(i % 1000) / 999.0f;
  } else {
    for (size_t i = 0; i < src.size(); ++i)
      src[i] = uint8_t(i * 31);
  }
  for (auto _ : state) {
    const int result =
        host::IR_Convert(src.data(), kWidth * BytesPerPixelOf(from), from, dst.data(),
                         kWidth * BytesPerPixelOf(to), to, kWidth, kHeight, 4);
    if (result != 0) state.SkipWithError("conversion failed");
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kWidth * kHeight);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(src.size() + dst.size()));
}

// The floor: moving the same number of bytes without converting them.
void CopySameBytes(benchmark::State& state, int from, int to) {
  std::vector<uint8_t> src(size_t(kWidth) * kHeight * BytesPerPixelOf(from), 1);
  std::vector<uint8_t> dst(size_t(kWidth) * kHeight * BytesPerPixelOf(to));
  const size_t n = std::min(src.size(), dst.size());
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), n);
    if (src.size() > n) benchmark::DoNotOptimize(src[src.size() - 1]);
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kWidth * kHeight);
}

BENCHMARK_CAPTURE(Convert, bgra8_to_float, host::kIRFormat_BGRA_8u, host::kIRFormat_BGRA_32f)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Convert, float_to_bgra8, host::kIRFormat_BGRA_32f, host::kIRFormat_BGRA_8u)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Convert, bgra16_to_float, host::kIRFormat_BGRA_16u, host::kIRFormat_BGRA_32f)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Convert, float_to_bgra16, host::kIRFormat_BGRA_32f, host::kIRFormat_BGRA_16u)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Convert, rgb10_to_float, host::kIRFormat_RGB_10u_BE, host::kIRFormat_BGRA_32f)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Convert, float_to_rgb10, host::kIRFormat_BGRA_32f, host::kIRFormat_RGB_10u_BE)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(CopySameBytes, bgra8_float_bytes, host::kIRFormat_BGRA_8u,
                  host::kIRFormat_BGRA_32f)
    ->Unit(benchmark::kMillisecond);

// A working frame for each video frame: recycled blocks against fresh ones from the system.
void CreateWorkingFrame(benchmark::State& state) {
  const bool recycled = state.range(0) != 0;
  for (auto _ : state) {
    if (!recycled) host::RecycledMemory::Purge();
    host::InterfaceRef<host::IVideoFrame> frame;
    if (host::CreateVideoFrame(frame, host::kPixelFormat_BGRA_4444_32f, kWidth, kHeight, 1.0f,
                               host::ColorSpace::Unknown, false, false) != 0)
      state.SkipWithError("no frame");
    // Touch every page, as a conversion into the frame would.
    auto* pixels =
        static_cast<uint8_t*>(frame.Query<host::IVideoFrameMemoryAccess>()->GetBaseAddress());
    for (size_t i = 0; i < size_t(kWidth) * kHeight * 16; i += 4096)
      pixels[i] = 1;
    benchmark::DoNotOptimize(pixels);
  }
}
BENCHMARK(CreateWorkingFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
