// The CPU compositing engine: texture upload rules, operator names, script parameters, the
// rendering over frame buffers, and the read-out workers.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <bit>
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
#include "engine/cpu/cpu_texture.h"
#include "engine/cpu/operator_names.h"
#include "engine/cpu/readout_worker.h"
#include "engine/cpu/script_parser.h"
#include "engine/frame_buffer/complex_frame_buffer.h"
#include "foundation/heap_buffer.h"
#include "host/log.h"
#include "host/pixel_format.h"

namespace crandle_test {
namespace {

using namespace Tincta;

// ---------------------------------------------------------------------------------------------
// Texture units

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
      {"3-D of 2^24 texels in another shape", 3, 4096, 64, 64, kTexture3D, 4, true},
      {"3-D of 2^24 + 4096 texels", 3, 4096, 64, 65, kTexture3D, 4, false},
      {"1 channel", 2, 8, 8, 8, kTexture3D, 1, true},
      {"2 channels", 2, 8, 8, 8, kTexture3D, 2, false},
      {"3 channels", 2, 8, 8, 8, kTexture3D, 3, false},
      {"0 channels", 2, 8, 8, 8, kTexture3D, 0, false},
      {"unit 7", 7, 8, 1, 1, kTexture1D, 4, true},
      {"unit 8", 8, 8, 1, 1, kTexture1D, 4, false},
      {"unit 0, rectangle", 0, 2, 2, 1, kTextureRectangle, 4, true},
      {"unit 0, 1-D", 0, 8, 1, 1, kTexture1D, 4, false},
      {"unit 0, 2-D", 0, 1, 1, 1, kTexture2D, 4, false},
      {"unit 0, 3-D", 0, 2, 2, 2, kTexture3D, 4, false},
      {"unknown kind", 1, 8, 1, 1, 0x1234, 4, false},
      {"1-D of 65536 described with its size on every axis", 1, 65536, 65536, 65536, kTexture1D, 4,
       true},
      {"1-D of one texel", 1, 1, 1, 1, kTexture1D, 4, false},
      {"3-D with an axis of one point", 1, 2, 1, 2, kTexture3D, 4, false},
      {"zero width", 1, 0, 1, 1, kTexture1D, 4, false},
      {"2-D of zero height", 4, 4, 0, 1, kTexture2D, 4, false},
  };
  for (const SCase& c : cases) {
    COvCPUTextureUnits units;
    EXPECT_EQ(units.bUpload(c.unit, c.width, c.height, c.depth, c.target, c.channels, table, false),
              c.accepted)
        << c.what;
  }
  COvCPUTextureUnits units;
  EXPECT_FALSE(units.bUpload(1, 8, 1, 1, kTexture1D, 4, nullptr, false)) << "no table";
}

TEST(CPUTextureUnits, RefusedUploadLeavesTheUnitAsItWas) {
  std::vector<float> first(4 * 27, 0.5f), second(4 * 8, 0.25f);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(1, 3, 3, 3, kTexture3D, 4, first.data(), false));
  EXPECT_FALSE(units.bUpload(1, 256, 256, 257, kTexture3D, 4, second.data(), false));
  EXPECT_FALSE(units.bUpload(1, 2, 2, 2, kTexture3D, 2, second.data(), false));
  EXPECT_EQ(units.Unit(1).data, first.data());
  EXPECT_EQ(units.Unit(1).width, 3u);
  EXPECT_EQ(units.Unit(1).target.Value(), kTexture3D);
}

TEST(CPUTextureUnits, RecordOfA3DTexture) {
  std::vector<float> table(5 * 3 * 7);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(2, 5, 3, 7, kTexture3D, 1, table.data(), false));
  const SCPUTextureUnit& u = units.Unit(2);
  const float extents[3] = {5, 3, 7};
  for (int lane = 0; lane < 8; ++lane) {
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_EQ(u.size[axis].lane[lane], extents[axis]);
      EXPECT_EQ(u.linearClamp[axis].lane[lane], float(extents[axis] - 1.01));
      EXPECT_EQ(u.nearestClamp[axis].lane[lane], float(extents[axis] - 0.501));
    }
    EXPECT_EQ(u.planeArea.lane[lane], 15.0f);
    EXPECT_EQ(u.rowStride.lane[lane], 5 * 1 * 4);
    EXPECT_EQ(u.rowBytes.lane[lane], 5u * 4);
    EXPECT_EQ(u.sliceBytes.lane[lane], 5u * 4 * 3);
    EXPECT_EQ(u.texelRowBytes.lane[lane], 5u * 16);
    EXPECT_EQ(u.texelSliceBytes.lane[lane], 5u * 16 * 3);
    EXPECT_EQ(u.target.lane[lane], kTexture3D);
  }
  EXPECT_EQ(u.data, table.data());
  EXPECT_EQ(u.dataSecond, table.data());
}

TEST(CPUTextureUnits, FlippedRectangleStartsAtTheLastRow) {
  const uint32_t width = 3, height = 4;
  std::vector<float> pixels(4 * width * height);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(0, width, height, 1, kTextureRectangle, 4, pixels.data(), true));
  const SCPUTextureUnit& flipped = units.Unit(0);
  EXPECT_EQ(flipped.data, pixels.data() + 4 * width * (height - 1));
  EXPECT_EQ(flipped.dataSecond, flipped.data);
  EXPECT_EQ(flipped.rowStride.Value(), -int32_t(width * 16));
  ASSERT_TRUE(units.bUpload(0, width, height, 1, kTextureRectangle, 4, pixels.data(), false));
  EXPECT_EQ(units.Unit(0).data, pixels.data());
  EXPECT_EQ(units.Unit(0).rowStride.Value(), int32_t(width * 16));
  // Only rectangles are addressed bottom up.
  ASSERT_TRUE(units.bUpload(1, 5, 1, 1, kTexture1D, 4, pixels.data(), true));
  EXPECT_EQ(units.Unit(1).data, pixels.data());
}

TEST(CPUTextureUnits, TwoDimensionalRowsLieAtAPowerOfTwoPitch) {
  struct SCase {
    uint32_t width, channels, pitch, shift;
  };
  for (SCase c : {SCase{3, 4, 64, 6}, SCase{4, 4, 64, 6}, SCase{5, 1, 32, 5}, SCase{16, 1, 64, 6},
                  SCase{17, 4, 512, 9}}) {
    const uint32_t height = 3, rowFloats = c.width * c.channels;
    std::vector<float> pixels(rowFloats * height);
    for (size_t i = 0; i < pixels.size(); ++i)
      pixels[i] = float(i + 1);
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(5, c.width, height, 1, kTexture2D, c.channels, pixels.data(), false));
    const SCPUTextureUnit& u = units.Unit(5);
    EXPECT_EQ(u.rowStride.Value(), int32_t(c.pitch)) << c.width << " x " << c.channels;
    EXPECT_EQ(u.rowShift, c.shift);
    EXPECT_NE(u.data, pixels.data()) << "2-D rows are re-laid in a copy";
    for (uint32_t row = 0; row < height; ++row) {
      const float* copied = u.data + row * c.pitch / 4;
      for (uint32_t i = 0; i < c.pitch / 4; ++i) {
        EXPECT_EQ(copied[i], i < rowFloats ? pixels[row * rowFloats + i] : 0.0f)
            << "row " << row << " float " << i;
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Names and parameters

TEST(OperatorNames, AreRecognisedWithoutCase) {
  struct SCase {
    const char* name;
    EOvOperator op;
    bool keepsInput;
  };
  const SCase cases[] = {
      {"*noop", EOvOperator::Noop, false},
      {"*NOOP", EOvOperator::Noop, false},
      {"*Fade!", EOvOperator::Fade, true},
      {"*over", EOvOperator::Over, false},
      {"*overp", EOvOperator::OverPremultiplied, false},
      {"*OverP!", EOvOperator::OverPremultiplied, true},
      {"*lut", EOvOperator::Lut, false},
      {"*readout", EOvOperator::Readout, false},
      {"*mask", EOvOperator::Mask, false},
      {"*push", EOvOperator::Push, false},
      {"*pop", EOvOperator::Pop, false},
      {"*flip", EOvOperator::Flip, false},
      {"*opxform", EOvOperator::OpXform, false},
      {"*OPXFORM|matrix 1 0 0", EOvOperator::OpXform, false},
      {"*opxform|x!", EOvOperator::OpXform, true},
      {"*stretch", EOvOperator::Stretch, false},
      {"*rgb", EOvOperator::Rgb, false},
      {"*fwindow", EOvOperator::FWindow, false},
      {"__GroupBegin", EOvOperator::GroupBegin, false},
      {"__groupend", EOvOperator::GroupEnd, false},
      {"ORVANE.LUT.1D", EOvOperator::LUTProgram1D, false},
      {"orvane.lut.3d", EOvOperator::LUTProgram3D, false},
      {"ORVANE.LUT.1D3D!", EOvOperator::LUTProgram1D3D, true},
      {"*opxformx", EOvOperator::Unknown, false},
      {"noop", EOvOperator::Unknown, false},
      {"*noop!!", EOvOperator::Unknown, true},
      {"!", EOvOperator::Unknown, true},
      {"", EOvOperator::Unknown, false},
      {"ORVANE.LUT.2D", EOvOperator::Unknown, false},
  };
  for (const SCase& c : cases) {
    const SOvOperatorName parsed = ParseOperatorName(c.name);
    EXPECT_EQ(parsed.op, c.op) << '"' << c.name << '"';
    EXPECT_EQ(parsed.keepsInput, c.keepsInput) << '"' << c.name << '"';
  }
}

TEST(ScriptParameters, AreKeptByExactName) {
  COvScriptParser parameters;
  EXPECT_TRUE(parameters.bSetParameter("__scale1.x", 0.5));
  EXPECT_TRUE(parameters.bSetParameter("__scale1.x", 0.75));
  EXPECT_TRUE(parameters.bSetParameter("__SCALE1.x", 2.0));
  EXPECT_FALSE(parameters.bSetParameter("", 1.0));
  EXPECT_EQ(parameters.ParameterCount(), 2u);
  EXPECT_EQ(parameters.Parameter("__scale1.x"), 0.75);
  EXPECT_EQ(parameters.Parameter("__SCALE1.x"), 2.0);
  EXPECT_FALSE(parameters.Parameter("__scale1.y").has_value());
}

// ---------------------------------------------------------------------------------------------
// Rendering

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

struct SLUT3D {
  uint32_t size;
  std::vector<float> table;
  explicit SLUT3D(uint32_t n, std::mt19937& rng) : size(n), table(4 * n * n * n) {
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    for (float& v : table)
      v = value(rng);
  }
};

void SetUnitDomain(COvScriptParser& parameters, uint32_t size) {
  for (const char* axis : {"x", "y", "z"}) {
    parameters.bSetParameter(std::string("__scale1.") + axis, 1.0 - 1.0 / size);
    parameters.bSetParameter(std::string("__offset1.") + axis, 0.5 / size);
  }
  parameters.bSetParameter("__scale1.w", 1.0);
  parameters.bSetParameter("__offset1.w", 0.0);
}

bool Render(COvCPUCompositingEngine& engine, STestFrame& destination, STestFrame& source,
            std::vector<const char*> layers, const COvScriptParser* parameters,
            float opacity = 1.0f, uint32_t x = 0, uint32_t y = 0, uint32_t w = 0, uint32_t h = 0) {
  return engine.bRender(destination.frame.get(), source.frame.get(), layers.data(),
                        static_cast<uint32_t>(layers.size()), parameters, false, opacity, x, y, w,
                        h, nullptr);
}

// What the active LUT program gives for one row, computed on a packed copy of the row.
std::vector<float> ExpectedRow(const SCPUTextureUnit& cube, uint32_t size, const float* row,
                               uint32_t width) {
  SLUTDomainMapping mapping;
  for (int c = 0; c < 3; ++c) {
    mapping.scale[c] = float(1.0 - 1.0 / size);
    mapping.offset[c] = float(0.5 / size);
  }
  std::vector<float> in(row, row + 4 * width), out(4 * width);
  ActiveCPUKernels().applyLUT3D(cube, mapping, in.data(), out.data(), width);
  return out;
}

TEST(CPURendering, LUTProgramWritesEveryRowOfPaddedFrames) {
  std::mt19937 rng(21);
  SLUT3D lut(7, rng);
  COvCPUCompositingEngine engine;
  ASSERT_TRUE(engine.bUploadTexture(1, 7, 7, 7, kTexture3D, 4, lut.table.data(), false));
  COvScriptParser parameters;
  SetUnitDomain(parameters, 7);
  STestFrame source(13, 5, 3), destination(13, 5, 2, -9.0f);
  source.Randomise(rng);
  ASSERT_TRUE(Render(engine, destination, source, {"ORVANE.LUT.3D"}, &parameters))
      << engine.LastError();
  for (uint32_t y = 0; y < 5; ++y) {
    const std::vector<float> want =
        ExpectedRow(engine.TextureUnits().Unit(1), 7, source.Pixel(0, y), 13);
    EXPECT_EQ(std::memcmp(destination.Pixel(0, y), want.data(), want.size() * 4), 0) << "row " << y;
    for (uint32_t pad = 13; pad < 15; ++pad) {
      EXPECT_EQ(destination.Pixel(pad, y)[0], -9.0f) << "padding of row " << y << " was written";
    }
  }
}

TEST(CPURendering, RenderRectangleLimitsTheWrite) {
  std::mt19937 rng(22);
  SLUT3D lut(5, rng);
  COvCPUCompositingEngine engine;
  ASSERT_TRUE(engine.bUploadTexture(1, 5, 5, 5, kTexture3D, 4, lut.table.data(), false));
  COvScriptParser parameters;
  SetUnitDomain(parameters, 5);
  STestFrame source(10, 8), destination(10, 8, 0, -3.0f);
  source.Randomise(rng);
  // Reaches past the right and bottom edges: clipped to the frame.
  ASSERT_TRUE(Render(engine, destination, source, {"*lut"}, &parameters, 1.0f, 6, 5, 100, 100));
  for (uint32_t y = 0; y < 8; ++y) {
    const std::vector<float> want =
        ExpectedRow(engine.TextureUnits().Unit(1), 5, source.Pixel(0, y), 10);
    for (uint32_t x = 0; x < 10; ++x) {
      const bool inside = x >= 6 && y >= 5;
      for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(destination.Pixel(x, y)[c], inside ? want[4 * x + c] : -3.0f)
            << x << "," << y << " channel " << c;
      }
    }
  }
  EXPECT_FALSE(Render(engine, destination, source, {"*lut"}, &parameters, 1.0f, 10, 0, 1, 1));
}

TEST(CPURendering, FailuresNameTheirCauseAndLeaveTheDestination) {
  std::mt19937 rng(23);
  SLUT3D lut(3, rng);
  std::vector<float> curve(4 * 16, 0.5f);
  COvScriptParser parameters, partial;
  SetUnitDomain(parameters, 3);
  partial.bSetParameter("__scale1.x", 1.0);
  partial.bSetParameter("__offset1.x", 0.0);
  partial.bSetParameter("__scale1.y", 1.0);

  struct SCase {
    std::vector<const char*> layers;
    const COvScriptParser* parameters;
    bool uploadCube, uploadCurve;
    const char* mentions;
  };
  const SCase cases[] = {
      {{"*over"}, &parameters, true, false, "*over"},
      {{"*noop", "*STRETCH"}, &parameters, true, false, "*STRETCH"},
      {{"*opxform|m"}, &parameters, true, false, "*opxform|m"},
      {{"*blend"}, &parameters, true, false, "unknown operator \"*blend\""},
      {{"ORVANE.LUT.3D"},
       &parameters,
       false,
       false,
       "texture unit 1 of ORVANE.LUT.3D holds no table"},
      {{"ORVANE.LUT.3D"}, &parameters, false, true, "holds no 3-D table"},
      {{"ORVANE.LUT.1D3D"}, &parameters, false, true, "texture unit 2"},
      {{"ORVANE.LUT.1D"}, &partial, false, true, "__offset1.y"},
      {{"ORVANE.LUT.1D"}, nullptr, false, true, "__scale1.x"},
      {{"__GroupEnd"}, &parameters, true, false, "closes a group"},
      {{"__GroupBegin", "*noop"}, &parameters, true, false, "not closed"},
      {{"*noop", nullptr}, &parameters, true, false, "layer 1"},
  };
  for (const SCase& c : cases) {
    COvCPUCompositingEngine engine;
    if (c.uploadCube) engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, lut.table.data(), false);
    if (c.uploadCurve) engine.bUploadTexture(1, 16, 1, 1, kTexture1D, 4, curve.data(), false);
    STestFrame source(9, 2), destination(9, 2, 0, 7.0f);
    source.Randomise(rng);
    EXPECT_FALSE(Render(engine, destination, source, c.layers, c.parameters)) << c.mentions;
    EXPECT_NE(engine.LastError().find(c.mentions), std::string::npos)
        << "message: " << engine.LastError();
    for (float v : destination.pixels)
      ASSERT_EQ(v, 7.0f) << c.mentions;
  }

  // Frames the engine cannot render.
  COvCPUCompositingEngine engine;
  engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, lut.table.data(), false);
  STestFrame source(4, 4), smaller(4, 3, 0, 7.0f);
  EXPECT_FALSE(Render(engine, smaller, source, {"*lut"}, &parameters));
  EXPECT_NE(engine.LastError().find("differ in size"), std::string::npos);
  EXPECT_FALSE(engine.bRender(nullptr, source.frame.get(), nullptr, 0, &parameters, false, 1.0f, 0,
                              0, 0, 0, nullptr));
  COvComplexFrameBuffer empty;
  STestFrame destination(4, 4, 0, 7.0f);
  EXPECT_FALSE(engine.bRender(destination.frame.get(), &empty, nullptr, 0, &parameters, false, 1.0f,
                              0, 0, 0, 0, nullptr));
  // A conversion that the CPU path cannot do fails; without parameters it is only logged.
  const auto* someConversion = reinterpret_cast<const SColorConvertParameters*>(&parameters);
  const char* lutLayer = "*lut";
  EXPECT_FALSE(engine.bRender(destination.frame.get(), source.frame.get(), &lutLayer, 1,
                              &parameters, true, 1.0f, 0, 0, 0, 0, someConversion));
  for (float v : destination.pixels)
    ASSERT_EQ(v, 7.0f);
  EXPECT_TRUE(engine.bRender(destination.frame.get(), source.frame.get(), &lutLayer, 1, &parameters,
                             true, 1.0f, 0, 0, 0, 0, nullptr));
}

TEST(CPURendering, FadeMixesTowardsTheSourceAndNoopPassesOn) {
  std::mt19937 rng(24);
  SLUT3D lut(4, rng);
  COvCPUCompositingEngine engine;
  ASSERT_TRUE(engine.bUploadTexture(1, 4, 4, 4, kTexture3D, 4, lut.table.data(), false));
  COvScriptParser parameters;
  SetUnitDomain(parameters, 4);
  STestFrame source(11, 3), graded(11, 3), faded(11, 3), copied(11, 3, 1);
  source.Randomise(rng);
  ASSERT_TRUE(Render(engine, graded, source, {"ORVANE.LUT.3D"}, &parameters));
  ASSERT_TRUE(Render(engine, faded, source,
                     {"__GroupBegin", "ORVANE.LUT.3D", "*fade", "__GroupEnd"}, &parameters, 0.25f));
  ASSERT_TRUE(Render(engine, copied, source, {"*NOOP"}, &parameters));
  for (uint32_t y = 0; y < 3; ++y) {
    for (uint32_t x = 0; x < 11; ++x) {
      const float* s = source.Pixel(x, y);
      const float* g = graded.Pixel(x, y);
      const float* f = faded.Pixel(x, y);
      for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(f[c], 0.25 * g[c] + 0.75 * s[c], 1e-6) << x << "," << y;
      }
      EXPECT_EQ(f[3], s[3]) << "alpha";
      EXPECT_EQ(std::memcmp(copied.Pixel(x, y), s, 16), 0);
    }
  }
  // A fade alone leaves the source as it is.
  STestFrame alone(11, 3);
  ASSERT_TRUE(Render(engine, alone, source, {"*fade"}, &parameters, 0.6f));
  EXPECT_EQ(alone.pixels, source.pixels);
}

// Rendering in place (source and destination over the same memory) gives what rendering into
// another buffer gives; "!" operators read a copy; a destination that overlaps the source
// without being it is read through a copy as well.
TEST(CPURendering, InPlaceAndInputCopies) {
  std::mt19937 rng(25);
  SLUT3D lut(6, rng);
  COvScriptParser parameters;
  SetUnitDomain(parameters, 6);
  STestFrame source(12, 4);
  source.Randomise(rng);

  struct SCase {
    std::vector<const char*> layers;
    uint32_t copiesApart, copiesInPlace;
  };
  const SCase cases[] = {
      {{"ORVANE.LUT.3D"}, 0, 0},
      {{"ORVANE.LUT.3D!"}, 0, 1},
      {{"ORVANE.LUT.3D", "*noop"}, 0, 0},
      {{"ORVANE.LUT.3D", "*noop!"}, 1, 1},
      {{"*lut!", "*fade!", "*readout"}, 1, 2},
  };
  for (const SCase& c : cases) {
    COvCPUCompositingEngine engine;
    ASSERT_TRUE(engine.bUploadTexture(1, 6, 6, 6, kTexture3D, 4, lut.table.data(), false));
    STestFrame apart(12, 4);
    ASSERT_TRUE(Render(engine, apart, source, c.layers, &parameters, 0.5f)) << engine.LastError();
    EXPECT_EQ(engine.LastInputCopies(), c.copiesApart) << c.layers[0];

    STestFrame inPlace(12, 4);
    std::copy(source.pixels.begin(), source.pixels.end(), inPlace.pixels.begin());
    STestFrame sameMemory(12, 4);
    sameMemory.Wrap(inPlace.pixels.data());
    ASSERT_TRUE(Render(engine, inPlace, sameMemory, c.layers, &parameters, 0.5f));
    EXPECT_EQ(engine.LastInputCopies(), c.copiesInPlace) << c.layers[0];
    EXPECT_EQ(inPlace.pixels, apart.pixels) << c.layers[0];
  }

  // Destination one pixel further on in the same memory: every row overlaps the source's.
  COvCPUCompositingEngine engine;
  ASSERT_TRUE(engine.bUploadTexture(1, 6, 6, 6, kTexture3D, 4, lut.table.data(), false));
  STestFrame apart(12, 4);
  ASSERT_TRUE(Render(engine, apart, source, {"*lut"}, &parameters));
  std::vector<float> shared(source.pixels.size() + 4);
  std::copy(source.pixels.begin(), source.pixels.end(), shared.begin());
  STestFrame from(12, 4), to(12, 4);
  from.Wrap(shared.data());
  to.Wrap(shared.data() + 4);
  ASSERT_TRUE(Render(engine, to, from, {"*lut"}, &parameters));
  EXPECT_EQ(engine.LastInputCopies(), 1u);
  EXPECT_EQ(std::vector<float>(shared.begin() + 4, shared.end()), apart.pixels);
}

std::vector<std::string>* gMessages = nullptr;
void CaptureLog(host::LogLevel, std::string_view message, void*) {
  if (gMessages) gMessages->emplace_back(message);
}

TEST(CPURendering, LogsTheColourSpaceAndAMissingConversion) {
  std::vector<std::string> messages;
  gMessages = &messages;
  host::SetLogCallback(CaptureLog, nullptr);
  COvCPUCompositingEngine engine;
  COvScriptParser parameters;
  STestFrame source(3, 2), destination(3, 2);
  const char* noop = "*noop";
  auto render = [&](bool aware) {
    return engine.bRender(destination.frame.get(), source.frame.get(), &noop, 1, &parameters, aware,
                          1.0f, 0, 0, 0, 0, nullptr);
  };
  EXPECT_TRUE(render(false));
  EXPECT_TRUE(render(false));  // the same colour space again: not repeated
  engine.SetFrameBufferColorSpace(host::ColorSpace::Rec709);
  EXPECT_TRUE(render(true));
  host::SetLogCallback(nullptr, nullptr);
  gMessages = nullptr;
  const std::vector<std::string> expected = {
      "Color space of frame buffer for CPU rendering is Invalid",
      std::string("Color space of frame buffer for CPU rendering is ") +
          host::ColorSpaceName(host::ColorSpace::Rec709),
      "Color convert parameters for CPU rendering path are NULL for color space aware path",
  };
  EXPECT_EQ(messages, expected);
}

// ---------------------------------------------------------------------------------------------
// Read-out workers

TEST(ReadoutWorkers, EachGetsItsOwnCopyOfTheFinishedPicture) {
  std::mt19937 rng(26);
  SLUT3D lut(3, rng);
  COvScriptParser parameters;
  SetUnitDomain(parameters, 3);
  std::mutex mutex;
  std::vector<std::pair<int, std::vector<float>>> seen;
  COvCPUCompositingEngine engine;
  ASSERT_TRUE(engine.bUploadTexture(1, 3, 3, 3, kTexture3D, 4, lut.table.data(), false));
  for (int slot : {0, 2, 4}) {
    ASSERT_TRUE(engine.bSetReadoutWorker(
        slot, std::make_unique<COvReadoutWorker>([&, slot](const COvComplexFrameBuffer& picture) {
          std::vector<float> copy;
          for (uint32_t y = 0; y < picture.Height(); ++y) {
            const auto* row = reinterpret_cast<const float*>(picture.Line(y));
            copy.insert(copy.end(), row, row + 4 * picture.Width());
          }
          std::lock_guard lock(mutex);
          seen.emplace_back(slot, std::move(copy));
        })));
  }
  EXPECT_FALSE(engine.bSetReadoutWorker(5, nullptr));
  STestFrame source(5, 2), destination(5, 2);
  source.Randomise(rng);
  ASSERT_TRUE(Render(engine, destination, source, {"*readout", "ORVANE.LUT.3D"}, &parameters));
  const std::vector<float> finished = destination.pixels;
  std::fill(destination.pixels.begin(), destination.pixels.end(), -1.0f);  // renderer reuses it
  for (int slot : {0, 2, 4})
    engine.ReadoutWorker(slot)->Wait();
  ASSERT_EQ(seen.size(), 3u);
  for (const auto& [slot, pixels] : seen)
    EXPECT_EQ(pixels, finished) << "worker " << slot;
}

TEST(ReadoutWorkers, WaitForThePreviousRunAndNeverStartTwice) {
  std::mutex mutex;
  std::condition_variable changed;
  bool release = false;
  std::atomic<int> active{0}, overlapping{0};
  COvReadoutWorker* self = nullptr;
  std::atomic<bool> selfStarted{true};
  COvReadoutWorker worker([&](const COvComplexFrameBuffer& picture) {
    if (active.fetch_add(1) != 0) overlapping.fetch_add(1);
    selfStarted = self->bHandOver(picture);  // from its own run: still running, nothing starts
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
  // Blocks until the first run has ended, then starts the second.
  ASSERT_TRUE(worker.bHandOver(*picture.frame));
  worker.Wait();
  releaser.join();
  EXPECT_EQ(worker.RunCount(), 2u);
  EXPECT_EQ(overlapping.load(), 0);
  EXPECT_FALSE(selfStarted.load());

  COvComplexFrameBuffer noPixels;
  EXPECT_FALSE(worker.bHandOver(noPixels));
}

TEST(ReadoutWorkers, RunOnTheirProcessor) {
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
  STestFrame picture(2, 2);
  for (uint32_t processor : {1u, 2u, 65u, 66u}) {
    const int expected = int((processor - 1) % 64);
    if (expected >= processors || !CPU_ISSET(expected, &allowed)) continue;
    cpu_set_t seen;
    CPU_ZERO(&seen);
    COvReadoutWorker worker(
        [&](const COvComplexFrameBuffer&) {
          pthread_getaffinity_np(pthread_self(), sizeof(seen), &seen);
        },
        processor);
    ASSERT_TRUE(worker.bHandOver(*picture.frame));
    worker.Wait();
    EXPECT_EQ(CPU_COUNT(&seen), 1) << "processor " << processor;
    EXPECT_TRUE(CPU_ISSET(expected, &seen)) << "processor " << processor;
  }
}

}  // namespace
}  // namespace crandle_test
