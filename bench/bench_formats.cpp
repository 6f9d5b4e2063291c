// Reading each text and binary LUT format, and writing cube text, at a typical size (33 points).
//   ./build/release/bin/bench_formats
#include <benchmark/benchmark.h>

#include <string>

#include "lut/cube_writer.h"
#include "lut/lut3d.h"
#include "support/format_samples.h"

namespace {

using namespace crandle_test;

void ParseLoop(benchmark::State& state, const std::string& bytes) {
  for (auto _ : state) {
    Tincta::COv3DLUT lut;
    const bool loaded = lut.ParseLUTData(bytes.data(), uint32_t(bytes.size()), false,
                                         Tincta::ELUTKindFilter::Any, true);
    if (!loaded) state.SkipWithError("the sample did not load");
    benchmark::DoNotOptimize(lut.Table());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

void BM_ParseTruelight(benchmark::State& state) {
  const uint32_t size = uint32_t(state.range(0));
  ParseLoop(state, TruelightText(size, {}, NodeColours(size)));
}
BENCHMARK(BM_ParseTruelight)->Arg(33)->Unit(benchmark::kMillisecond);

void BM_ParseMesh(benchmark::State& state) {
  const uint32_t size = uint32_t(state.range(0));
  uint32_t bits = 0;
  while ((1u << bits) + 1 < size)
    ++bits;
  const std::string header =
      "3DMESH\nMesh " + std::to_string(bits) + " 12\n" + EvenShaperLine(size, 1023) + "\n";
  ParseLoop(state, MeshText(header, size, NodeCodesOf(size, 4096)));
}
BENCHMARK(BM_ParseMesh)->Arg(33)->Unit(benchmark::kMillisecond);

void BM_Parse3LUT(benchmark::State& state) {
  uint32_t exponent = 0;
  while ((1u << exponent) + 1 < uint32_t(state.range(0)))
    ++exponent;
  const auto bytes = Packed10Bytes(true, exponent, [](uint32_t r, uint32_t g, uint32_t b) {
    return PackWord(r * 31, g * 31, b * 31);
  });
  ParseLoop(state, std::string(bytes.begin(), bytes.end()));
}
BENCHMARK(BM_Parse3LUT)->Arg(33)->Unit(benchmark::kMillisecond);

void BM_ParseXMLLook(benchmark::State& state) {
  const uint32_t size = uint32_t(state.range(0));
  ParseLoop(state, XMLLookText(size, NodeColours(size), "0,0,0", "1,1,1"));
}
BENCHMARK(BM_ParseXMLLook)->Arg(33)->Unit(benchmark::kMillisecond);

void BM_WriteCube(benchmark::State& state) {
  const uint32_t size = uint32_t(state.range(0));
  const Tincta::CubePipeline pipeline = [](const float in[3], float out[3]) {
    out[0] = in[0] * in[0];
    out[1] = 0.5f * in[1] + 0.25f;
    out[2] = 1.0f - in[2];
    return true;
  };
  std::string text;
  for (auto _ : state) {
    Tincta::WriteCubeText(pipeline, text, size);
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_WriteCube)->Arg(33)->Unit(benchmark::kMillisecond);

}  // namespace
