// The CPU compositing engine: texture upload rules, operator names, script parameters, the
// rendering over frame buffers, the red-blue exchange around it, and the read-out workers.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "engine/cpu/cpu_compositing_engine.h"
#include "engine/cpu/cpu_kernels.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "foundation/heap_buffer.h"
#include "host/log.h"

namespace crandle_test {
namespace {

using namespace Tincta;

TEST(CPUTextureUnits, UploadRules) {
  static const float table[4] = {0, 0, 0, 1};  // never read by an upload of these kinds
  struct SCase {
    const char* what;
    uint32_t unit, width, height, depth, target, channels;
    bool accepted;
  };
  const SCase cases[] = {
      {"3-D of 256^3 texels", 1, 256, 256, 256, kTexture3D, 4, true},
      {"3-D of one texel more than 256^3", 1, 256, 256, 257, kTexture3D, 4, false},
      {"1 channel", 2, 8, 8, 8, kTexture3D, 1, true},
      {"2 channels", 2, 8, 8, 8, kTexture3D, 2, false},
      {"unit 8", 8, 8, 1, 1, kTexture1D, 4, false},
      {"unit 0, rectangle", 0, 2, 2, 1, kTextureRectangle, 4, true},
      {"unit 0, 1-D", 0, 8, 1, 1, kTexture1D, 4, false},
      {"unknown kind", 1, 8, 1, 1, 0x1234, 4, false},
      {"1-D of 65536 with its size on every axis", 7, 65536, 65536, 65536, kTexture1D, 4, true},
      {"3-D with an axis of one point", 1, 2, 1, 2, kTexture3D, 4, false},
  };
  for (const SCase& c : cases) {
    COvCPUTextureUnits units;
    EXPECT_EQ(units.bUpload(c.unit, c.width, c.height, c.depth, c.target, c.channels, table, false),
              c.accepted)
        << c.what;
  }
  // A refused upload leaves the unit as it was.
  std::vector<float> first(4 * 27);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(1, 3, 3, 3, kTexture3D, 4, first.data(), false));
  EXPECT_FALSE(units.bUpload(1, 256, 256, 257, kTexture3D, 4, table, false));
  EXPECT_FALSE(units.bUpload(1, 8, 1, 1, kTexture1D, 4, nullptr, false));
  EXPECT_EQ(units.Unit(1).data, first.data());
  EXPECT_EQ(units.Unit(1).target.Value(), kTexture3D);
}

// A flipped rectangle is addressed bottom up; 2-D rows are copied to a power-of-two pitch, the
// rest of each row zero, so that a row is found by a shift.
TEST(CPUTextureUnits, RectanglesAndTwoDimensionalTextures) {
  std::vector<float> pixels(17 * 3);
  for (size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = float(i + 1);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(0, 3, 4, 1, kTextureRectangle, 1, pixels.data(), true));
  EXPECT_EQ(units.Unit(0).data, pixels.data() + 3 * 3);
  EXPECT_EQ(units.Unit(0).rowStride.Value(), -3 * 4);
  ASSERT_TRUE(units.bUpload(5, 17, 3, 1, kTexture2D, 1, pixels.data(), false));
  EXPECT_EQ(units.Unit(5).rowShift, 7u);
  for (uint32_t i = 0; i < 3 * 32; ++i)
    ASSERT_EQ(units.Unit(5).data[i], i % 32 < 17 ? pixels[i / 32 * 17 + i % 32] : 0.0f) << i;
}

// RGBA float pixels in memory that the test owns, wrapped as a frame buffer with rows
// `rowFloats` apart.
struct STestFrame {
  uint32_t width, height;
  size_t rowFloats;
  std::vector<float> pixels;
  std::unique_ptr<COvSharedBuffer, CustomDeleter<COvSharedBuffer>> block{new COvSharedBuffer};
  std::unique_ptr<COvComplexFrameBuffer> frame;

  STestFrame(uint32_t w, uint32_t h, uint32_t padPixels = 0, float fill = 0.0f)
      : width(w), height(h), rowFloats(4 * size_t(w + padPixels)), pixels(rowFloats * h, fill) {
    Wrap(pixels.data());
  }
  // Another frame over a copy of the pixels.
  STestFrame(const STestFrame& other)
      : width(other.width), height(other.height), rowFloats(other.rowFloats), pixels(other.pixels) {
    Wrap(pixels.data());
  }
  void Wrap(float* memory) {
    block->Wrap(memory, rowFloats * height * 4);
    FrameBufferFormat format;
    format.type = kFrameBufferTypeRGBA;
    format.precision = kPrecision32BitFloat;
    format.channelOrder = kChannelOrderRGB;
    format.topToBottom = true;
    format.lineStride = static_cast<uint32_t>(rowFloats * 4);
    frame = std::make_unique<COvComplexFrameBuffer>(block.get(), width, height, format, 0);
  }
  float* Pixel(uint32_t x, uint32_t y) { return &pixels[y * rowFloats + 4 * size_t(x)]; }
  void Randomise(std::mt19937& rng) {
    std::uniform_real_distribution<float> value(-0.1f, 1.1f);
    for (float& v : pixels)
      v = value(rng);
  }
};

// An engine with a random cube of `n` points in unit 1 and the parameters of its domain.
struct SLUTEngine {
  std::vector<float> table;
  COvCPUCompositingEngine engine;
  COvScriptParser parameters;
  SLUTDomainMapping mapping;
  SLUTEngine(uint32_t n, std::mt19937& rng) : table(4 * n * n * n) {
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    for (float& v : table)
      v = value(rng);
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
    return engine.bRender(destination.frame.get(), source.frame.get(), layers.data(),
                          uint32_t(layers.size()), &parameters, false, opacity, x, y, w, h,
                          nullptr);
  }
  // What the 3-D program gives for `width` pixels from `row`, computed on a packed copy.
  std::vector<float> Expected(const float* row, uint32_t width) const {
    std::vector<float> in(row, row + 4 * width), out(4 * width);
    ActiveCPUKernels().applyLUT3D(engine.TextureUnits().Unit(1), mapping, in.data(), out.data(),
                                  width);
    return out;
  }
};

TEST(CPURendering, LUTProgramOverPaddedFramesAndRectangles) {
  std::mt19937 rng(21);
  SLUTEngine lut(7, rng);
  STestFrame source(13, 5, 3), destination(13, 5, 2, -9.0f), clipped(13, 5, 0, -3.0f);
  source.Randomise(rng);
  ASSERT_TRUE(lut.Render(destination, source, {"ORVANE.LUT.3D"})) << lut.engine.LastError();
  // A rectangle reaching past the right and bottom edges is clipped to the frame.
  ASSERT_TRUE(lut.Render(clipped, source, {"*lut"}, 1.0f, 6, 3, 100, 100));
  EXPECT_FALSE(lut.Render(clipped, source, {"*lut"}, 1.0f, 13, 0, 1, 1));
  for (uint32_t y = 0; y < 5; ++y) {
    const std::vector<float> want = lut.Expected(source.Pixel(0, y), 13);
    EXPECT_EQ(std::memcmp(destination.Pixel(0, y), want.data(), want.size() * 4), 0) << y;
    EXPECT_EQ(destination.Pixel(13, y)[0], -9.0f) << "padding of row " << y << " was written";
    for (uint32_t x = 0; x < 13; ++x) {
      const bool inside = x >= 6 && y >= 3;
      EXPECT_EQ(clipped.Pixel(x, y)[1], inside ? want[4 * x + 1] : -3.0f) << x << "," << y;
    }
  }
}

// With the exchange the frames come out as exchanging the source, drawing and exchanging the
// destination by hand would leave them, bit for bit, whether the LUT program runs fused or apart,
// in place or not, and whatever the tail of the rows.
TEST(CPURendering, RedBlueExchangeAroundTheOperators) {
  std::mt19937 rng(22);
  SLUTEngine lut(6, rng);
  auto exchange = [](STestFrame& frame) {
    for (uint32_t y = 0; y < frame.height; ++y)
      ActiveCPUKernels().swapRedBlue(reinterpret_cast<float*>(frame.frame->Line(y)), frame.width);
  };
  for (uint32_t width : {1u, 8u, 13u}) {
    for (std::vector<const char*> layers : {std::vector<const char*>{"ORVANE.LUT.3D"},
                                            {"__GroupBegin", "*lut", "__GroupEnd"},
                                            {"*lut!"},
                                            {"*lut", "*fade"},
                                            {"*readout", "*lut"}}) {
      STestFrame source(width, 3, 1), byHand(width, 3, 1), to(width, 3, 1);
      source.Randomise(rng);
      STestFrame red = source, same = source;
      exchange(red);
      lut.engine.SetRedBlueExchange(false);
      ASSERT_TRUE(lut.Render(byHand, red, layers, 0.5f)) << lut.engine.LastError();
      exchange(byHand);
      lut.engine.SetRedBlueExchange(true);
      ASSERT_TRUE(lut.Render(to, source, layers, 0.5f));
      ASSERT_TRUE(lut.Render(same, same, layers, 0.5f));
      for (uint32_t y = 0; y < 3; ++y) {
        EXPECT_EQ(std::memcmp(to.Pixel(0, y), byHand.Pixel(0, y), 16 * width), 0) << layers[0];
        EXPECT_EQ(std::memcmp(same.Pixel(0, y), byHand.Pixel(0, y), 16 * width), 0) << layers[0];
        EXPECT_EQ(std::memcmp(source.Pixel(0, y), red.Pixel(0, y), 16 * width), 0) << layers[0];
      }
    }
  }
  // A destination one pixel on in the source's memory: the source is exchanged where it lies,
  // read through a copy, drawn, and the destination exchanged.
  std::vector<float> memory(4 * 12 * 4 + 4), byHandMemory;
  std::uniform_real_distribution<float> value(0.0f, 1.0f);
  for (float& v : memory)
    v = value(rng);
  byHandMemory = memory;
  for (bool exchanging : {false, true}) {
    std::vector<float>& shared = exchanging ? memory : byHandMemory;
    STestFrame from(12, 4), to(12, 4);
    from.Wrap(shared.data());
    to.Wrap(shared.data() + 4);
    if (!exchanging) exchange(from);
    lut.engine.SetRedBlueExchange(exchanging);
    ASSERT_TRUE(lut.Render(to, from, {"*lut"}));
    if (!exchanging) exchange(to);
  }
  EXPECT_EQ(memory, byHandMemory);
}

TEST(CPURendering, FailuresNameTheirCauseAndTouchNothing) {
  std::mt19937 rng(23);
  std::vector<float> cube(4 * 27, 0.5f), curve(4 * 16, 0.5f);
  COvScriptParser parameters, partial;
  for (const char* name :
       {"__scale1.x", "__offset1.x", "__scale1.y", "__scale1.z", "__offset1.z", "__offset1.y"}) {
    if (parameters.ParameterCount() < 3) partial.bSetParameter(name, 0.5);
    parameters.bSetParameter(name, 0.5);
  }
  struct SCase {
    std::vector<const char*> layers;
    const COvScriptParser* parameters;
    uint32_t table;  // 0 none, 1 cube, 2 curve
    const char* mentions;
  };
  const SCase cases[] = {
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
    for (const SCase& c : cases) {
      COvCPUCompositingEngine engine;
      engine.SetRedBlueExchange(exchange);
      if (c.table == 1) engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, cube.data(), false);
      if (c.table == 2) engine.bUploadTexture(1, 16, 1, 1, kTexture1D, 4, curve.data(), false);
      STestFrame source(9, 2), destination(9, 2, 0, 7.0f);
      source.Randomise(rng);
      const std::vector<float> held = source.pixels;
      EXPECT_FALSE(engine.bRender(destination.frame.get(), source.frame.get(), c.layers.data(),
                                  uint32_t(c.layers.size()), c.parameters, false, 1.0f, 0, 0, 0, 0,
                                  nullptr));
      EXPECT_NE(engine.LastError().find(c.mentions), std::string::npos) << engine.LastError();
      EXPECT_EQ(destination.pixels, std::vector<float>(destination.pixels.size(), 7.0f));
      EXPECT_EQ(source.pixels, held) << c.mentions;
    }
  }
  // Names the engine knows without a CPU program, in any case, and near misses.
  COvCPUCompositingEngine engine;
  STestFrame source(4, 4), smaller(4, 3), destination(4, 4, 0, 7.0f);
  const std::vector<const char*> names[2] = {
      {"*opxformx", "noop", "*noop!!"},
      {"*Over", "*OVERP!", "*mask", "*Push", "*pop", "*flip", "*rgb", "*FWindow",
       "*OPXFORM|matrix 1 0 0", "*opxform|x!"}};
  for (int known = 0; known < 2; ++known) {
    for (const char* name : names[known]) {
      EXPECT_FALSE(engine.bRender(destination.frame.get(), source.frame.get(), &name, 1, nullptr,
                                  false, 1.0f, 0, 0, 0, 0, nullptr));
      EXPECT_NE(engine.LastError().find(known ? "has no CPU program" : "unknown operator"),
                std::string::npos)
          << name;
    }
  }
  // Frames the engine cannot render, and a colour-space conversion it cannot do (without
  // conversion parameters that is only logged).
  engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, cube.data(), false);
  const char* lutLayer = "*lut";
  auto render = [&](STestFrame& to, COvComplexFrameBuffer* from, bool aware, const void* convert) {
    return engine.bRender(to.frame.get(), from, &lutLayer, 1, &parameters, aware, 1.0f, 0, 0, 0, 0,
                          static_cast<const SColorConvertParameters*>(convert));
  };
  EXPECT_FALSE(render(smaller, source.frame.get(), false, nullptr));
  EXPECT_NE(engine.LastError().find("differ in size"), std::string::npos);
  COvComplexFrameBuffer empty;
  EXPECT_FALSE(render(destination, &empty, false, nullptr));
  EXPECT_FALSE(render(destination, source.frame.get(), true, &parameters));
  EXPECT_EQ(destination.pixels, std::vector<float>(destination.pixels.size(), 7.0f));
  EXPECT_TRUE(render(destination, source.frame.get(), true, nullptr));
}

TEST(CPURendering, FadeMixesTowardsTheSourceAndNoopPassesOn) {
  std::mt19937 rng(24);
  SLUTEngine lut(4, rng);
  STestFrame source(11, 3), faded(11, 3), copied(11, 3, 1), alone(11, 3);
  source.Randomise(rng);
  ASSERT_TRUE(
      lut.Render(faded, source, {"__GroupBegin", "ORVANE.LUT.3D", "*fade", "__GroupEnd"}, 0.25f));
  ASSERT_TRUE(lut.Render(copied, source, {"*NOOP"}));
  ASSERT_TRUE(lut.Render(alone, source, {"*fade"}, 0.6f));
  EXPECT_EQ(alone.pixels, source.pixels) << "a fade alone leaves the source as it is";
  for (uint32_t y = 0; y < 3; ++y) {
    const std::vector<float> graded = lut.Expected(source.Pixel(0, y), 11);
    for (uint32_t x = 0; x < 11; ++x) {
      const float* s = source.Pixel(x, y);
      for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(faded.Pixel(x, y)[c], 0.25 * graded[4 * x + c] + 0.75 * s[c], 1e-6);
      EXPECT_EQ(faded.Pixel(x, y)[3], s[3]) << "alpha";
      EXPECT_EQ(std::memcmp(copied.Pixel(x, y), s, 16), 0);
    }
  }
}

// Rendering in place gives what rendering into another buffer gives; "!" operators read a copy,
// and so does a destination that overlaps the source without being it.
TEST(CPURendering, InPlaceAndInputCopies) {
  std::mt19937 rng(25);
  SLUTEngine lut(6, rng);
  STestFrame source(12, 4);
  source.Randomise(rng);
  struct SCase {
    std::vector<const char*> layers;
    uint32_t copiesApart, copiesInPlace;
  };
  for (const SCase& c :
       {SCase{{"ORVANE.LUT.3D"}, 0, 0}, SCase{{"ORVANE.LUT.3D!"}, 0, 1},
        SCase{{"ORVANE.LUT.3D", "*noop!"}, 1, 1}, SCase{{"*lut!", "*fade!", "*readout"}, 1, 2}}) {
    STestFrame apart(12, 4), inPlace = source;
    ASSERT_TRUE(lut.Render(apart, source, c.layers, 0.5f)) << lut.engine.LastError();
    EXPECT_EQ(lut.engine.LastInputCopies(), c.copiesApart) << c.layers[0];
    ASSERT_TRUE(lut.Render(inPlace, inPlace, c.layers, 0.5f));
    EXPECT_EQ(lut.engine.LastInputCopies(), c.copiesInPlace) << c.layers[0];
    EXPECT_EQ(inPlace.pixels, apart.pixels) << c.layers[0];
  }
  // The destination one pixel further on in the same memory: every row overlaps the source's.
  std::vector<float> shared(source.pixels.size() + 4);
  std::copy(source.pixels.begin(), source.pixels.end(), shared.begin());
  STestFrame from(12, 4), to(12, 4), apart(12, 4);
  from.Wrap(shared.data());
  to.Wrap(shared.data() + 4);
  ASSERT_TRUE(lut.Render(apart, source, {"*lut"}));
  ASSERT_TRUE(lut.Render(to, from, {"*lut"}));
  EXPECT_EQ(lut.engine.LastInputCopies(), 1u);
  EXPECT_EQ(std::vector<float>(shared.begin() + 4, shared.end()), apart.pixels);
}

std::vector<std::string>* gMessages = nullptr;

TEST(CPURendering, LogsTheColourSpaceOnceAndAMissingConversion) {
  std::vector<std::string> messages;
  gMessages = &messages;
  host::SetLogCallback(
      [](host::LogLevel, std::string_view message, void*) { gMessages->emplace_back(message); },
      nullptr);
  COvCPUCompositingEngine engine;
  STestFrame source(3, 2), destination(3, 2);
  const char* noop = "*noop";
  for (bool aware : {false, false, true}) {
    if (aware) engine.SetFrameBufferColorSpace(host::ColorSpace::Rec709);
    EXPECT_TRUE(engine.bRender(destination.frame.get(), source.frame.get(), &noop, 1, nullptr,
                               aware, 1.0f, 0, 0, 0, 0, nullptr));
  }
  host::SetLogCallback(nullptr, nullptr);
  const std::string space = "Color space of frame buffer for CPU rendering is ";
  EXPECT_EQ(messages, (std::vector<std::string>{
                          space + "Invalid", space + host::ColorSpaceName(host::ColorSpace::Rec709),
                          "Color convert parameters for CPU rendering path are NULL for color "
                          "space aware path"}));
}

// Each worker gets its own copy of the finished picture, on its processor when it has one
// (processor p runs on (p - 1) modulo 64).
TEST(ReadoutWorkers, EachGetsItsOwnCopyOnItsProcessor) {
  std::mt19937 rng(26);
  SLUTEngine lut(3, rng);
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
  std::mutex mutex;
  std::vector<float> seen[5];
  cpu_set_t ranOn[5];
  const uint32_t processors[5] = {1, 0, 66, 0, 0};
  for (int slot : {0, 2, 4}) {
    ASSERT_TRUE(lut.engine.bSetReadoutWorker(
        slot, std::make_unique<COvReadoutWorker>(
                  [&, slot](const COvComplexFrameBuffer& picture) {
                    std::lock_guard lock(mutex);
                    pthread_getaffinity_np(pthread_self(), sizeof(cpu_set_t), &ranOn[slot]);
                    for (uint32_t y = 0; y < picture.Height(); ++y) {
                      const auto* row = reinterpret_cast<const float*>(picture.Line(y));
                      seen[slot].insert(seen[slot].end(), row, row + 4 * picture.Width());
                    }
                  },
                  processors[slot])));
  }
  EXPECT_FALSE(lut.engine.bSetReadoutWorker(5, nullptr));
  STestFrame source(5, 2), destination(5, 2);
  source.Randomise(rng);
  ASSERT_TRUE(lut.Render(destination, source, {"*readout", "ORVANE.LUT.3D"}));
  const std::vector<float> finished = destination.pixels;
  std::fill(destination.pixels.begin(), destination.pixels.end(), -1.0f);  // renderer reuses it
  for (int slot : {0, 2, 4}) {
    lut.engine.ReadoutWorker(slot)->Wait();
    EXPECT_EQ(seen[slot], finished) << "worker " << slot;
    const int processor = int((processors[slot] - 1) % 64);
    if (processors[slot] == 0 || processor >= sysconf(_SC_NPROCESSORS_ONLN) ||
        !CPU_ISSET(processor, &allowed)) {
      continue;
    }
    EXPECT_EQ(CPU_COUNT(&ranOn[slot]), 1) << "worker " << slot;
    EXPECT_TRUE(CPU_ISSET(processor, &ranOn[slot])) << "worker " << slot;
  }
}

TEST(ReadoutWorkers, WaitForThePreviousRunAndNeverStartTwice) {
  std::mutex mutex;
  std::condition_variable changed;
  bool release = false;
  std::atomic<int> active{0}, overlapping{0};
  std::atomic<bool> startedFromItself{false};
  COvReadoutWorker* self = nullptr;
  COvReadoutWorker worker([&](const COvComplexFrameBuffer& picture) {
    if (active.fetch_add(1) != 0) overlapping.fetch_add(1);
    startedFromItself = startedFromItself || self->bHandOver(picture);
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(5), [&] { return release; });
    active.fetch_sub(1);
  });
  self = &worker;
  STestFrame picture(3, 3, 0, 0.5f);
  ASSERT_TRUE(worker.bHandOver(*picture.frame));
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::lock_guard lock(mutex);
    release = true;
    changed.notify_all();
  });
  ASSERT_TRUE(worker.bHandOver(*picture.frame));  // blocks until the first run has ended
  worker.Wait();
  releaser.join();
  EXPECT_EQ(worker.RunCount(), 2u);
  EXPECT_EQ(overlapping.load(), 0);
  EXPECT_FALSE(startedFromItself.load());
  COvComplexFrameBuffer noPixels;
  EXPECT_FALSE(worker.bHandOver(noPixels));
}

}  // namespace
}  // namespace crandle_test
