// The GPU apply path on a 4K float frame that stays on the device: the frame is uploaded once and
// each iteration is one ApplyLUT call, waited for until the kernel has finished. BM_DeviceCopy,
// a device-to-device copy of the same frame, is the memory yardstick beside it. "process_cpu_ms"
// is the CPU time of the whole process per apply (a CPU device's worker threads included).
//   ./build/release/bin/bench_gpu --benchmark_filter=opencl
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <memory>
#include <string>

#include "apply_inputs.h"
#include "crandle/crandle.h"
#include "host/gpu.h"
#include "host/video_frame.h"

namespace {

using crandle_bench::kFrameHeight;
using crandle_bench::kFrameWidth;
using FrameRef = host::InterfaceRef<host::IVideoFrame>;

std::shared_ptr<void> MakeLUT(const std::string& kind) {
  if (kind == "3D33") return crandle_bench::MakeCube(33);
  if (kind == "3D65") return crandle_bench::MakeCube(65);
  if (kind == "1D4096") return crandle_bench::MakeCurve(4096);
  if (kind == "1D3D33") return crandle_bench::MakeShapedCube(33, 256);
  return nullptr;
}

// The benchmark picture, uploaded to `device` as a float frame.
FrameRef PictureOn(const std::shared_ptr<host::IGPUDevice>& device) {
  FrameRef picture;
  FrameRef onDevice;
  if (host::CreateVideoFrame(picture, host::kPixelFormat_BGRA_4444_32f, kFrameWidth, kFrameHeight,
                             1.0f, host::ColorSpace::Unknown, false, false) != 0 ||
      host::CreateGPUVideoFrame(onDevice, device, host::kPixelFormat_BGRA_4444_32f, kFrameWidth,
                                kFrameHeight, false) != 0) {
    return {};
  }
  const auto memory = picture.Query<host::IVideoFrameMemoryAccess>();
  for (uint32_t y = 0; y < kFrameHeight; ++y) {
    auto* row = reinterpret_cast<float*>(static_cast<uint8_t*>(memory->GetBaseAddress()) +
                                         y * memory->GetRowBytes());
    for (uint32_t x = 0; x < kFrameWidth; ++x) {
      float rgb[3];
      crandle_bench::PictureColour(x, y, rgb);
      row[4 * x] = rgb[2];
      row[4 * x + 1] = rgb[1];
      row[4 * x + 2] = rgb[0];
      row[4 * x + 3] = 1.0f;
    }
  }
  if (host::UploadVideoFrame(picture, onDevice) != 0) return {};
  return onDevice;
}

// CPU time of every thread of the process: on a machine shared with other work it tells a CPU
// device's cost where the wall-clock time tells mostly the load.
double ProcessCPUSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) { return double(t.tv_sec) + 1e-6 * double(t.tv_usec); };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int WaitFor(const FrameRef& frame) {
  return frame.Query<host::ICompletionEventVideoFrame>()->WaitForCompletion();
}

void ApplyGPU(benchmark::State& state, uint32_t framework, const std::string& kind,
              host::LUTInterpolationMethod method) {
  const auto device = host::GetGPUDevice(framework, 0);
  if (!device) {
    state.SkipWithError("no such device here");
    return;
  }
  const FrameRef source = PictureOn(device);
  FrameRef destination;
  if (!source || host::CreateGPUVideoFrame(destination, device, host::kPixelFormat_BGRA_4444_32f,
                                           kFrameWidth, kFrameHeight, false) != 0) {
    state.SkipWithError("no frames on the device");
    return;
  }
  const std::shared_ptr<void> lut = MakeLUT(kind);
  // The first call loads the kernel and uploads the tables.
  if (CRANDLE::ApplyLUT(source, lut, method, destination) != CRANDLE::kResultOK) {
    state.SkipWithError("ApplyLUT failed");
    return;
  }
  WaitFor(destination);
  const double cpuBefore = ProcessCPUSeconds();
  for (auto _ : state) {
    CRANDLE::ApplyLUT(source, lut, method, destination);
    WaitFor(destination);
  }
  // A CPU device's work runs on its own threads, which the CPU column does not see.
  state.counters["process_cpu_ms"] =
      1e3 * (ProcessCPUSeconds() - cpuBefore) / double(state.iterations());
  state.SetBytesProcessed(int64_t(state.iterations()) * kFrameWidth * kFrameHeight * 16 * 2);
}

void DeviceCopy(benchmark::State& state, uint32_t framework) {
  const auto device = host::GetGPUDevice(framework, 0);
  if (!device) {
    state.SkipWithError("no such device here");
    return;
  }
  const size_t bytes = size_t(kFrameWidth) * kFrameHeight * 16;
  auto* allocator = device->GetDeviceAllocator();
  host::GPUDeviceBlock* from = allocator ? allocator->Allocate(bytes, 0, 0) : nullptr;
  host::GPUDeviceBlock* to = allocator ? allocator->Allocate(bytes, 0, 0) : nullptr;
  if (!from || !to) {
    state.SkipWithError("no device memory");
  } else {
    for (auto _ : state) {
      device->CopyDeviceToDevice(to->pointer, from->pointer, bytes);
      device->Synchronize();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes * 2);
  }
  if (allocator) {
    allocator->Release(from);
    allocator->Release(to);
  }
}

const bool kRegistered = [] {
  for (uint32_t framework : {host::kGPUFrameworkOpenCL, host::kGPUFrameworkCUDA}) {
    const std::string backend = framework == host::kGPUFrameworkCUDA ? "cuda" : "opencl";
    const auto device = host::GetGPUDevice(framework, 0);
    if (!device) continue;
    benchmark::AddCustomContext(backend + " device", device->GetInfo().name);
    benchmark::RegisterBenchmark(("BM_DeviceCopy/" + backend).c_str(), DeviceCopy, framework)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    for (const char* kind : {"3D33", "3D65", "1D4096", "1D3D33"}) {
      for (auto method :
           {host::LUTInterpolationMethod::Trilinear, host::LUTInterpolationMethod::Tetrahedral}) {
        const std::string name =
            "BM_ApplyGPU/" + backend + "/" + kind + "/" +
            (method == host::LUTInterpolationMethod::Tetrahedral ? "tetrahedral" : "trilinear");
        benchmark::RegisterBenchmark(name.c_str(), ApplyGPU, framework, std::string(kind), method)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      }
    }
  }
  return true;
}();

}  // namespace
