// Looks: converting camera look grids into LUT images, and writing and reading look documents
// with a 33-point LUT inline, through a payload, and served from the LUT cache.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "look/grading_from_lut.h"
#include "look/look_document_reader.h"
#include "look/look_document_writer.h"
#include "look/look_grid.h"
#include "lut/lut_cache.h"
#include "lut/otx3_writer.h"

namespace {

std::vector<uint8_t> Grid(uint16_t n) {
  const uint64_t triples = uint64_t(n) * n * n;
  std::vector<uint8_t> grid(32 + 6 * triples);
  const uint8_t header[] = {0,         0,    0,    32, 'A',
                            'L',       'O',  'K',  0,  0,
                            0,         0,    0,    0,  0xFF,
                            0xFF,      0x3F, 0x80, 0,  0,
                            0,         0,    0,    0,  uint8_t(n >> 8),
                            uint8_t(n)};
  std::memcpy(grid.data(), header, sizeof(header));
  for (uint64_t i = 32; i < grid.size(); ++i)
    grid[i] = uint8_t(i * 2654435761u >> 13);
  return grid;
}

void BM_ConvertLookGrid(benchmark::State& state) {
  const auto grid = Grid(uint16_t(state.range(0)));
  for (auto _ : state) {
    std::unique_ptr<uint8_t[]> image;
    uint32_t length = 0;
    benchmark::DoNotOptimize(
        Tincta::ConvertLookGridToOTX3(grid.data(), uint32_t(grid.size()), image, length));
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(grid.size()));
}
BENCHMARK(BM_ConvertLookGrid)->Arg(33)->Arg(65)->Arg(129)->Arg(254)->Unit(benchmark::kMillisecond);

// A document with one 33-point LUT operation.
std::unique_ptr<Tincta::COvGradingDocument> Document() {
  const auto grid = Grid(33);
  return Tincta::CreateGradingFromLookGrid(grid.data(), uint32_t(grid.size()));
}

void BM_WriteLookDocument(benchmark::State& state) {
  const bool embedded = state.range(0) != 0;
  auto document = Document();
  size_t bytes = 0;
  for (auto _ : state) {
    document->SetCachedText({});
    Tincta::COvEmbeddedLUTPayload payload;
    bytes = Tincta::WriteLookDocument(*document, embedded ? &payload : nullptr).size() +
            payload.Bytes().size();
  }
  state.SetBytesProcessed(int64_t(state.iterations() * bytes));
  state.SetLabel(embedded ? "payload" : "inline");
}
BENCHMARK(BM_WriteLookDocument)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// 0: inline; 1: through the payload (cache emptied each time); 2: served by the LUT cache.
void BM_ReadLookDocument(benchmark::State& state) {
  const int mode = int(state.range(0));
  auto document = Document();
  Tincta::COvEmbeddedLUTPayload payload;
  const std::string text(Tincta::WriteLookDocument(*document, mode == 0 ? nullptr : &payload));
  document.reset();
  Tincta::COvLUTCache::Instance().EvictUnused();
  for (auto _ : state) {
    if (mode == 1) {
      state.PauseTiming();
      Tincta::COvLUTCache::Instance().EvictUnused();
      state.ResumeTiming();
    }
    auto read = Tincta::ReadLookDocument(text.data(), text.size(), &payload);
    if (!read || read->LUTs().size() != 1) state.SkipWithError("the document did not read");
  }
  state.SetBytesProcessed(int64_t(state.iterations() * (text.size() + payload.Bytes().size())));
  state.SetLabel(mode == 0 ? "inline" : mode == 1 ? "payload" : "cache");
}
BENCHMARK(BM_ReadLookDocument)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

}  // namespace
