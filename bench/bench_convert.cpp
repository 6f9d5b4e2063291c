// Frame-buffer conversions of one 3840 × 2160 frame through the registered converters, next to
// a memcpy of the float RGBA source frame as the yardstick. Single-threaded.
//   ./bench_convert                      (kernels of this processor)
//   CRANDLE_CPU_ISA=sse ./bench_convert  (128-bit kernels only)
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

#include "engine/convert/convert_kernels.h"
#include "engine/convert/converter_list.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "foundation/heap_buffer.h"

namespace {

using namespace Tincta;

constexpr uint32_t kWidth = 3840;
constexpr uint32_t kHeight = 2160;

FrameBufferFormat Format(uint32_t type, uint32_t precision) {
  FrameBufferFormat format;
  format.type = type;
  format.precision = precision;
  format.channelOrder = kChannelOrderRGB;
  format.topToBottom = true;
  return format;
}

// A frame with random content and every page touched, so the first iteration is not a page
// fault benchmark.
std::unique_ptr<COvComplexFrameBuffer> Frame(const FrameBufferFormat& format, bool floats) {
  auto frame = std::make_unique<COvComplexFrameBuffer>();
  if (!frame->bAllocateNewBuffer(format, kWidth, kHeight)) return nullptr;
  std::mt19937 random(1);
  std::uniform_real_distribution<float> unit(-0.1f, 1.1f);
  uint8_t* bytes = frame->SharedBuffer()->Data();
  const size_t size = frame->SharedBuffer()->Size();
  if (floats) {
    auto* values = reinterpret_cast<float*>(bytes);
    for (size_t i = 0; i < size / 4; ++i)
      values[i] = unit(random);
  } else {
    for (size_t i = 0; i < size; ++i)
      bytes[i] = static_cast<uint8_t>(random());
  }
  return frame;
}

void Convert(benchmark::State& state, FrameBufferFormat from, FrameBufferFormat to,
             bool floatSource) {
  auto source = Frame(from, floatSource);
  auto target = Frame(to, false);
  const COvFrameBufferConverter* converter =
      source && target ? COvChannelConverterList::Instance().Find(from, to) : nullptr;
  if (!converter) {
    state.SkipWithError("no frame or no converter");
    return;
  }
  for (auto _ : state) {
    if (!converter->Convert(*source, *target)) {
      state.SkipWithError("conversion failed");
      return;
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(source->SharedBuffer()->Size()));
  state.SetLabel(SelectedConvertKernelsName());
}

void BM_Memcpy(benchmark::State& state) {
  const size_t bytes = size_t{kWidth} * kHeight * 16;
  COvHeapBuffer from, to;
  if (!from.Allocate(bytes) || !to.Allocate(bytes)) {
    state.SkipWithError("out of memory");
    return;
  }
  std::memset(from.Data(), 1, bytes);
  std::memset(to.Data(), 2, bytes);
  for (auto _ : state) {
    std::memcpy(to.Data(), from.Data(), bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
}

const FrameBufferFormat kFloatRgba = Format(kFrameBufferTypeRGBA, kPrecision32BitFloat);

const bool kRegistered = [] {
  benchmark::RegisterBenchmark("BM_Memcpy/3840x2160", BM_Memcpy)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_ConvertFloatToRGBA8/3840x2160", Convert, kFloatRgba,
                               Format(kFrameBufferTypeRGBA, kPrecision8Bits), true)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_ConvertFloatToRGB10/3840x2160", Convert, kFloatRgba,
                               Format(kFrameBufferTypeRGB, kPrecision10Bits), true)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_Convert16ToRGBA8/3840x2160", Convert,
                               Format(kFrameBufferTypeRGBA, kPrecision16BitInt),
                               Format(kFrameBufferTypeRGBA, kPrecision8Bits), false)
      ->Unit(benchmark::kMillisecond);
  // Float to half has no vector path: the general route through a float line.
  benchmark::RegisterBenchmark("BM_ConvertGeneral/3840x2160", Convert, kFloatRgba,
                               Format(kFrameBufferTypeRGBA, kPrecision16BitFloat), true)
      ->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
