// The exported queries on a 33-point cube: identifier (digest included) and blob.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>

#include "crandle/crandle.h"
#include "host/initializer.h"

namespace {

std::string CubeText(int size) {
  std::string text = "LUT_3D_SIZE " + std::to_string(size) + "\n";
  char line[96];
  for (int b = 0; b < size; ++b)
    for (int g = 0; g < size; ++g)
      for (int r = 0; r < size; ++r) {
        std::snprintf(line, sizeof(line), "%.6f %.6f %.6f\n", r / (size - 1.0), g / (size - 1.0) * 0.9,
                      b / (size - 1.0) * 0.8);
        text += line;
      }
  return text;
}

std::shared_ptr<void> Parse(const std::string& bytes) {
  std::shared_ptr<void> lut;
  CRANDLE::ParseLUT(bytes.data(), bytes.size(), lut);
  return lut;
}

// Each iteration asks a LUT that has never been hashed, so the content digest is part of the cost.
void BM_Identifier(benchmark::State& state) {
  host::InitializerRegistrar::RunInitializers();
  const std::string text = CubeText(int(state.range(0)));
  const std::shared_ptr<void> source = Parse(text);
  if (!source) {
    state.SkipWithError("the cube did not parse");
    return;
  }
  const host::BinaryData blob = CRANDLE::GetLUTBlob(source);
  for (auto _ : state) {
    state.PauseTiming();
    std::shared_ptr<void> lut;
    CRANDLE::ParseLUT(blob.Data(), blob.Size(), lut);
    state.ResumeTiming();
    benchmark::DoNotOptimize(CRANDLE::GetLUTIdentifier(lut));
  }
}
BENCHMARK(BM_Identifier)->Arg(33)->Unit(benchmark::kMicrosecond);

void BM_Blob(benchmark::State& state) {
  const std::shared_ptr<void> lut = Parse(CubeText(int(state.range(0))));
  if (!lut) {
    state.SkipWithError("the cube did not parse");
    return;
  }
  for (auto _ : state) {
    host::BinaryData blob = CRANDLE::GetLUTBlob(lut);
    benchmark::DoNotOptimize(blob.Data());
  }
}
BENCHMARK(BM_Blob)->Arg(33)->Unit(benchmark::kMicrosecond);

}  // namespace
