// Parsing cube text from memory, with the data-line fast path and, for comparison, without it.
//   ./bench_lut --benchmark_filter=ParseCube
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "lut/formats/float_triple.h"
#include "lut/lut3d.h"

namespace {

// A cube as colour tools write it: six decimals, a smooth but not separable grade.
std::string Cube3DText(uint32_t n) {
  std::string text = "TITLE \"bench\"\nLUT_3D_SIZE " + std::to_string(n) + "\n";
  char line[96];
  const double scale = 1.0 / (n - 1);
  for (uint32_t b = 0; b < n; ++b) {
    for (uint32_t g = 0; g < n; ++g) {
      for (uint32_t r = 0; r < n; ++r) {
        const double x = r * scale, y = g * scale, z = b * scale;
        std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", std::pow(x, 0.9) * (0.9 + 0.1 * z),
                      0.5 * y + 0.5 * std::sin(1.5 * y) * (1 - 0.2 * x), z * z * 0.7 + 0.3 * y);
        text += line;
      }
    }
  }
  return text;
}

std::string Cube1DText(uint32_t n) {
  std::string text = "LUT_1D_SIZE " + std::to_string(n) + "\n";
  char line[96];
  for (uint32_t i = 0; i < n; ++i) {
    const double x = double(i) / (n - 1);
    std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", std::pow(x, 1 / 2.2), std::pow(x, 0.5),
                  x * x);
    text += line;
  }
  return text;
}

void Parse(benchmark::State& state, const std::string& text, bool fastPath) {
  Tincta::SetFloatTripleFastPath(fastPath);
  for (auto _ : state) {
    Tincta::COv3DLUT lut;
    const bool loaded = lut.LoadFromMemory(text.data(), uint32_t(text.size()), false,
                                           Tincta::ELUTKindFilter::Any, false);
    if (!loaded) state.SkipWithError("the cube did not load");
    benchmark::DoNotOptimize(lut.Table());
  }
  Tincta::SetFloatTripleFastPath(true);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}

void BM_ParseCube3D(benchmark::State& state) {
  Parse(state, Cube3DText(uint32_t(state.range(0))), true);
}
void BM_ParseCube3D_Sscanf(benchmark::State& state) {
  Parse(state, Cube3DText(uint32_t(state.range(0))), false);
}
void BM_ParseCube1D(benchmark::State& state) {
  Parse(state, Cube1DText(uint32_t(state.range(0))), true);
}
void BM_ParseCube1D_Sscanf(benchmark::State& state) {
  Parse(state, Cube1DText(uint32_t(state.range(0))), false);
}

BENCHMARK(BM_ParseCube3D)->Arg(33)->Arg(65)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseCube3D_Sscanf)->Arg(33)->Arg(65)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseCube1D)->Arg(4096)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ParseCube1D_Sscanf)->Arg(4096)->Unit(benchmark::kMicrosecond);

}  // namespace
