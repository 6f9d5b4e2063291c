// The CPU compositing engine: uploads, operator names, parameters, rendering, read-out workers.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include "engine/cpu/cpu_compositing_engine.h"
#include "engine/cpu/cpu_kernels.h"
#include "foundation/heap_buffer.h"
#include "host/log.h"
#include "support/frame_buffer_helpers.h"

namespace crandle_test {
namespace {

using namespace Tincta;

// A refused upload leaves the unit as it was. A flipped rectangle is addressed bottom up; a 2-D
// texture's rows are copied to a power-of-two pitch (zero beyond the row), found by a shift.
TEST(CPUTextureUnits, UploadRules) {
  std::vector<float> texels(65536 * 4);  // a first row of the widest four-channel case
  for (size_t i = 0; i < texels.size(); ++i)
    texels[i] = float(i + 1);
  // Unit, width, height, depth, kind, channels, flipped; of an accepted upload, the first texel
  // (-1: a 2-D texture has its own copy) and the row stride, else 0 and 0.
  const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, bool, int32_t,
                   int32_t>
      cases[] = {{1, 256, 256, 256, kTexture3D, 4, false, 0, 4096},
                 {1, 97, 257, 673, kTexture3D, 4, false, 0, 0},  // one texel more than 256^3
                 {7, 0x1000001, 1, 1, kTexture1D, 4, false, 0, 0},
                 {2, 8, 8, 8, kTexture3D, 1, false, 0, 32},
                 {2, 8, 8, 8, kTexture3D, 2, false, 0, 0},
                 {8, 8, 1, 1, kTexture1D, 4, false, 0, 0},
                 {0, 8, 1, 1, kTexture1D, 4, false, 0, 0},
                 {1, 8, 1, 1, 0x1234, 4, false, 0, 0},
                 {7, 65536, 65536, 65536, kTexture1D, 4, false, 0, 1 << 20},
                 {0, 3, 4, 1, kTextureRectangle, 1, false, 0, 12},
                 {0, 3, 4, 1, kTextureRectangle, 1, true, 9, -12},
                 {5, 17, 3, 1, kTexture2D, 1, true, -1, 128}};  // flip ignored
  for (const auto& [index, width, height, depth, target, channels, flip, firstTexel, rowStride] :
       cases) {
    SCOPED_TRACE(testing::Message() << "unit " << index << " width " << width << " " << channels);
    COvCPUTextureUnits units;
    const float held[4] = {};
    const SCPUTextureUnit& unit = units.Unit(index % 8);
    ASSERT_TRUE(units.bUpload(index % 8, 1, 1, 1, kTextureRectangle, 4, held, false));
    EXPECT_EQ(units.bUpload(index, width, height, depth, target, channels, texels.data(), flip),
              rowStride != 0);
    if (rowStride == 0) {
      EXPECT_TRUE(unit.data == held && unit.target.Value() == kTextureRectangle);
      continue;
    }
    EXPECT_EQ(unit.rowStride.Value(), rowStride);
    EXPECT_TRUE(firstTexel < 0 || unit.data == texels.data() + firstTexel);
    if (target != kTexture2D) continue;
    EXPECT_EQ(unit.rowShift, 7u);
    for (uint32_t i = 0; i < 3 * 32; ++i)
      ASSERT_EQ(unit.data[i], i % 32 < 17 ? texels[i / 32 * 17 + i % 32] : 0.0f) << i;
  }
}

// RGBA float pixels that the test owns, wrapped as a frame buffer with rows `rowFloats` apart.
struct STestFrame {
  uint32_t width, height;
  size_t rowFloats;
  std::vector<float> pixels;
  std::unique_ptr<COvSharedBuffer, CustomDeleter<COvSharedBuffer>> block{new COvSharedBuffer};
  std::unique_ptr<COvComplexFrameBuffer> frame;

  STestFrame(uint32_t w, uint32_t h, uint32_t padPixels = 0, float fill = 0.0f)
      : width(w), height(h), rowFloats(4 * size_t(w + padPixels)), pixels(rowFloats * h, fill) {
    block->Wrap(pixels.data(), pixels.size() * 4);
    frame = std::make_unique<COvComplexFrameBuffer>(
        block.get(), width, height,
        MakeFormat(kFrameBufferTypeRGBA, kPrecision32BitFloat, 1, false, true,
                   uint32_t(rowFloats * 4)),
        0);
  }
  float* Pixel(uint32_t x, uint32_t y) { return &pixels[y * rowFloats + 4 * size_t(x)]; }
  void Randomise(std::mt19937& rng) {
    for (float& v : pixels)
      v = std::uniform_real_distribution<float>(-0.1f, 1.1f)(rng);
  }
};

bool RenderWith(COvCPUCompositingEngine& engine, STestFrame& destination, STestFrame& source,
                std::vector<const char*> layers, const COvScriptParser* parameters,
                bool aware = false, float opacity = 1.0f, uint32_t x = 0, uint32_t y = 0,
                uint32_t w = 0, uint32_t h = 0) {
  return engine.bRender(destination.frame.get(), source.frame.get(), layers.data(),
                        uint32_t(layers.size()), parameters, aware, opacity, x, y, w, h, nullptr);
}

// An engine with a random cube of `n` points in unit 1 and the parameters of its domain.
struct SLUTEngine {
  std::vector<float> table;
  COvCPUCompositingEngine engine;
  COvScriptParser parameters;
  SLUTDomainMapping mapping;
  SLUTEngine(uint32_t n, std::mt19937& rng) : table(4 * n * n * n) {
    for (float& v : table)
      v = std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
    EXPECT_TRUE(engine.bUploadTexture(1, n, n, n, kTexture3D, 4, table.data(), false));
    for (int c = 0; c < 3; ++c) {
      mapping.scale[c] = float(1.0 - 1.0 / n);
      mapping.offset[c] = float(0.5 / n);
      parameters.bSetParameter(std::string("__scale1.") + "xyz"[c], 1.0 - 1.0 / n);
      parameters.bSetParameter(std::string("__offset1.") + "xyz"[c], 0.5 / n);
    }
  }
  bool Render(STestFrame& destination, STestFrame& source, std::vector<const char*> layers,
              float opacity = 1.0f, uint32_t x = 0, uint32_t y = 0, uint32_t w = 0,
              uint32_t h = 0) {
    return RenderWith(engine, destination, source, layers, &parameters, false, opacity, x, y, w, h);
  }
  // What the 3-D program gives for `width` pixels from `row`, computed on a packed copy.
  std::vector<float> Expected(const float* row, uint32_t width) const {
    std::vector<float> in(row, row + 4 * width), out(4 * width);
    ActiveCPUKernels().applyLUT3D(engine.TextureUnits().Unit(1), mapping, in.data(), out.data(),
                                  width, EDestinationWrites::kCached);
    return out;
  }
};

TEST(CPURendering, FailuresNameTheirCauseAndTouchNothing) {
  std::mt19937 rng(23);
  std::vector<float> cube(4 * 27, 0.5f), curve(4 * 16, 0.5f);
  COvScriptParser parameters, partial;
  for (const char* name :
       {"__scale1.x", "__offset1.x", "__scale1.y", "__scale1.z", "__offset1.z", "__offset1.y"}) {
    if (parameters.ParameterCount() < 3) partial.bSetParameter(name, 0.5);
    parameters.bSetParameter(name, 0.5);
  }
  // Layers, parameters, the table in unit 1 (0 none, 1 cube, 2 curve), what the error mentions.
  const std::tuple<std::vector<const char*>, const COvScriptParser*, uint32_t, const char*>
      cases[] = {
          {{"*noop", "*STRETCH!"}, &parameters, 1, "\"*STRETCH!\" has no CPU program"},
          {{"ORVANE.LUT.3D"}, &parameters, 0, "texture unit 1 of ORVANE.LUT.3D holds no table"},
          {{"ORVANE.LUT.3D"}, &parameters, 2, "holds no 3-D table"},
          {{"ORVANE.LUT.1D3D"}, &parameters, 2, "texture unit 2"},
          {{"ORVANE.LUT.1D"}, &partial, 2, "__offset1.y"},
          {{"ORVANE.LUT.1D"}, nullptr, 2, "__scale1.x"},
          {{"__GroupEnd"}, &parameters, 1, "closes a group"},
          {{"__GroupBegin", "*noop"}, &parameters, 1, "not closed"},
          {{"*noop", nullptr}, &parameters, 1, "layer 1"},
      };
  for (bool exchange : {false, true}) {
    for (const auto& [layers, given, table, mentions] : cases) {
      COvCPUCompositingEngine engine;
      engine.SetRedBlueExchange(exchange);
      if (table == 1) engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, cube.data(), false);
      if (table == 2) engine.bUploadTexture(1, 16, 1, 1, kTexture1D, 4, curve.data(), false);
      STestFrame source(9, 2), destination(9, 2, 0, 7.0f);
      source.Randomise(rng);
      const std::vector<float> held = source.pixels;
      EXPECT_FALSE(RenderWith(engine, destination, source, layers, given));
      EXPECT_NE(engine.LastError().find(mentions), std::string::npos) << engine.LastError();
      EXPECT_EQ(destination.pixels, std::vector<float>(destination.pixels.size(), 7.0f));
      EXPECT_EQ(source.pixels, held) << mentions;
    }
  }
  // Near misses, then names the engine knows without a CPU program, in any case.
  COvCPUCompositingEngine engine;
  STestFrame source(4, 4), smaller(4, 3), destination(4, 4, 0, 7.0f);
  const char* names[] = {"*opxformx",  "noop",  "*noop!!",  "*Over",
                         "*OVERP!",    "*mask", "*Push",    "*pop",
                         "*flip",      "*rgb",  "*FWindow", "*OPXFORM|matrix 1 0 0",
                         "*opxform|x!"};
  for (size_t i = 0; i < std::size(names); ++i) {
    EXPECT_FALSE(RenderWith(engine, destination, source, {names[i]}, nullptr));
    EXPECT_NE(engine.LastError().find(i < 3 ? "unknown operator" : "has no CPU program"),
              std::string::npos)
        << names[i];
  }
  // Frames of different sizes, and a colour-space conversion that the engine cannot do.
  engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, cube.data(), false);
  EXPECT_FALSE(RenderWith(engine, smaller, source, {"*lut"}, &parameters));
  EXPECT_NE(engine.LastError().find("differ in size"), std::string::npos);
  const char* lutLayer = "*lut";
  EXPECT_FALSE(engine.bRender(destination.frame.get(), source.frame.get(), &lutLayer, 1,
                              &parameters, true, 1.0f, 0, 0, 0, 0,
                              reinterpret_cast<const SColorConvertParameters*>(&parameters)));
  EXPECT_EQ(destination.pixels, std::vector<float>(destination.pixels.size(), 7.0f));
}

// In place gives, bit for bit, what another buffer gets, and "!" operators read a copy; a fade
// mixes towards the source, padding is left alone; the exchange is the one made by hand.
TEST(CPURendering, LayersInPlaceExchangedAndPadded) {
  std::mt19937 rng(25);
  SLUTEngine lut(6, rng);
  // Layers, the input copies made apart and in place, and how far the result fades to the grade.
  const std::tuple<std::vector<const char*>, uint32_t, uint32_t, double> cases[] = {
      {{"ORVANE.LUT.3D"}, 0, 0, 1},
      {{"ORVANE.LUT.3D!"}, 0, 1, 1},
      {{"ORVANE.LUT.3D", "*NOOP!"}, 1, 1, 1},
      {{"*readout", "*lut"}, 0, 0, 1},
      {{"*lut!", "*fade!", "*readout"}, 1, 2, 0.25},
      {{"__GroupBegin", "*lut", "*Fade", "__GroupEnd"}, 0, 0, 0.25},
      {{"*fade"}, 0, 0, 0}};
  for (const auto& [layers, copiesApart, copiesInPlace, fade] : cases) {
    for (bool exchanging : {false, true}) {
      SCOPED_TRACE(testing::Message() << layers[0] << " exchanging " << exchanging);
      lut.engine.SetRedBlueExchange(exchanging);
      STestFrame source(13, 3, 3), apart(13, 3, 2, -9.0f);
      source.Randomise(rng);
      const std::vector<float> held = source.pixels;
      STestFrame inPlace(13, 3, 3);
      inPlace.pixels.assign(held.begin(), held.end());  // same size: the wrapped storage stays
      ASSERT_TRUE(lut.Render(apart, source, layers, 0.25f)) << lut.engine.LastError();
      EXPECT_EQ(lut.engine.LastInputCopies(), copiesApart);
      ASSERT_TRUE(lut.Render(inPlace, inPlace, layers, 0.25f));
      EXPECT_EQ(lut.engine.LastInputCopies(), copiesInPlace);
      for (uint32_t y = 0; y < 3; ++y) {
        std::vector<float> was(&held[y * source.rowFloats], &held[y * source.rowFloats + 52]);
        for (size_t i = 0; exchanging && i < was.size(); i += 4)
          std::swap(was[i], was[i + 2]);
        const std::vector<float> graded = lut.Expected(was.data(), 13);
        EXPECT_EQ(std::memcmp(source.Pixel(0, y), was.data(), 13 * 16), 0) << "source";
        EXPECT_EQ(std::memcmp(inPlace.Pixel(0, y), apart.Pixel(0, y), 13 * 16), 0) << y;
        EXPECT_EQ(apart.Pixel(13, y)[0], -9.0f) << "padding of row " << y << " was written";
        for (uint32_t i = 0; i < 4 * 13; ++i) {
          const uint32_t j = exchanging && i % 2 == 0 && i % 4 < 3 ? i - i % 4 + 2 - i % 4 : i;
          const double want = i % 4 == 3 ? was[j] : fade * graded[j] + (1 - fade) * was[j];
          ASSERT_NEAR(apart.Pixel(0, y)[i], want, fade == 0.25 ? 1e-6 : 0.0) << i;
        }
      }
    }
  }
  // A rectangle past the right and bottom edges is clipped; one starting outside is refused.
  lut.engine.SetRedBlueExchange(false);
  STestFrame source(12, 4), clipped(12, 4, 0, -3.0f);
  source.Randomise(rng);
  ASSERT_TRUE(lut.Render(clipped, source, {"*lut"}, 1.0f, 6, 3, 100, 100));
  EXPECT_FALSE(lut.Render(clipped, source, {"*lut"}, 1.0f, 12, 0, 1, 1));
  const std::vector<float> graded = lut.Expected(source.Pixel(0, 3), 12);
  for (uint32_t x = 0; x < 12; ++x)
    EXPECT_EQ(clipped.Pixel(x, 3)[1], x >= 6 ? graded[4 * x + 1] : -3.0f) << x;
}

// An engine binds its layers once for a run of renderings (strips of one frame) and must see
// every change in between: a parameter's value, another parser, a table of another shape.
TEST(CPURendering, LaterRenderingsSeeChangedParametersAndTables) {
  std::mt19937 rng(41);
  SLUTEngine lut(5, rng);
  STestFrame source(13, 3), destination(13, 3);
  source.Randomise(rng);
  const auto expectProgram = [&](const char* after) {
    for (uint32_t y = 0; y < 3; ++y) {
      EXPECT_EQ(std::vector<float>(destination.Pixel(0, y), destination.Pixel(0, y) + 4 * 13),
                lut.Expected(source.Pixel(0, y), 13))
          << after << ", row " << y;
    }
  };
  ASSERT_TRUE(lut.Render(destination, source, {"ORVANE.LUT.3D"}));
  expectProgram("the first rendering");
  lut.mapping.scale[1] = 0.5f;
  lut.parameters.bSetParameter("__scale1.y", 0.5);
  ASSERT_TRUE(lut.Render(destination, source, {"ORVANE.LUT.3D"}));
  expectProgram("a changed parameter");
  COvScriptParser copy = lut.parameters;
  lut.mapping.offset[2] = 0.25f;
  copy.bSetParameter("__offset1.z", 0.25);
  ASSERT_TRUE(RenderWith(lut.engine, destination, source, {"ORVANE.LUT.3D"}, &copy));
  expectProgram("another parser");
  const std::vector<float> curve(4 * 16, 0.5f);
  ASSERT_TRUE(lut.engine.bUploadTexture(1, 16, 1, 1, kTexture1D, 4, curve.data(), false));
  EXPECT_FALSE(RenderWith(lut.engine, destination, source, {"ORVANE.LUT.3D"}, &copy));
  EXPECT_NE(lut.engine.LastError().find("holds no 3-D table"), std::string::npos);
}

TEST(CPURendering, LogsTheColourSpaceOnceAndAMissingConversion) {
  std::vector<std::string> messages;
  host::SetLogCallback(
      [](host::LogLevel, std::string_view message, void* to) {
        static_cast<std::vector<std::string>*>(to)->emplace_back(message);
      },
      &messages);
  COvCPUCompositingEngine engine;
  STestFrame source(3, 2), destination(3, 2);
  for (bool aware : {false, false, true}) {
    if (aware) engine.SetFrameBufferColorSpace(host::ColorSpace::Rec709);
    EXPECT_TRUE(RenderWith(engine, destination, source, {"*noop"}, nullptr, aware));
  }
  host::SetLogCallback(nullptr, nullptr);
  const std::string space = "Color space of frame buffer for CPU rendering is ";
  EXPECT_EQ(messages, (std::vector<std::string>{
                          space + "Invalid", space + host::ColorSpaceName(host::ColorSpace::Rec709),
                          "Color convert parameters for CPU rendering path are NULL for color "
                          "space aware path"}));
}

// Each worker gets its own copy of each finished picture, on its processor when it has one
// (processor p runs on (p - 1) modulo 64). The next picture waits for the run before it; a run
// that hands a picture to its own worker starts nothing.
TEST(ReadoutWorkers, CopiesInTurnOnTheirProcessors) {
  std::mt19937 rng(26);
  SLUTEngine lut(3, rng);
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
  const uint32_t processors[5] = {1, 0, 66, 0, 0};
  std::vector<float> seen[5];
  cpu_set_t ranOn[5];
  std::atomic<bool> busy[5] = {};
  std::atomic<int> overlapping{0}, startedFromItself{0};
  COvReadoutWorker* workers[5] = {};
  for (int slot : {0, 2, 4}) {
    auto worker = std::make_unique<COvReadoutWorker>(
        [&, slot](const COvComplexFrameBuffer& picture) {
          overlapping += busy[slot].exchange(true);
          startedFromItself += workers[slot]->bHandOver(picture);
          pthread_getaffinity_np(pthread_self(), sizeof(cpu_set_t), &ranOn[slot]);
          for (uint32_t y = 0; y < picture.Height(); ++y) {
            const auto* row = reinterpret_cast<const float*>(picture.Line(y));
            seen[slot].insert(seen[slot].end(), row, row + 4 * picture.Width());
          }
          std::this_thread::sleep_for(std::chrono::milliseconds(20));  // still running for the next
          busy[slot] = false;
        },
        processors[slot]);
    workers[slot] = worker.get();
    ASSERT_TRUE(lut.engine.bSetReadoutWorker(slot, std::move(worker)));
  }
  EXPECT_FALSE(lut.engine.bSetReadoutWorker(5, nullptr));
  std::vector<float> finished;
  for (int picture = 0; picture < 2; ++picture) {
    STestFrame source(5, 2), destination(5, 2);
    source.Randomise(rng);
    ASSERT_TRUE(lut.Render(destination, source, {"*readout", "ORVANE.LUT.3D"}));
    finished.insert(finished.end(), destination.pixels.begin(), destination.pixels.end());
    std::fill(destination.pixels.begin(), destination.pixels.end(), -1.0f);  // reused at once
  }
  for (int slot : {0, 2, 4}) {
    workers[slot]->Wait();
    EXPECT_EQ(seen[slot], finished) << "worker " << slot;
    EXPECT_EQ(workers[slot]->RunCount(), 2u);
    const int processor = int((processors[slot] - 1) % 64);
    const bool bound = processors[slot] != 0 && CPU_ISSET(processor, &allowed);
    EXPECT_TRUE(!bound || (CPU_COUNT(&ranOn[slot]) == 1 && CPU_ISSET(processor, &ranOn[slot])))
        << "worker " << slot;
  }
  EXPECT_EQ(std::pair(overlapping.load(), startedFromItself.load()), std::pair(0, 0));
  EXPECT_FALSE(workers[0]->bHandOver(COvComplexFrameBuffer()));
}

}  // namespace
}  // namespace crandle_test
