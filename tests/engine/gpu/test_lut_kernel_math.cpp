// The LUT kernels' formulas (lut_kernel_math.h, compiled here as host C++) against the
// double-precision model, on every LUT kind, both cube methods and every frame format; the
// constant block and the kernel parameters of the GPU operators against values worked out by
// hand; the transposed table copy.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/gpu/hw_compositing_engine.h"
#include "engine/gpu/hw_texture.h"
#include "engine/gpu/lut_kernel_model.h"
#include "host/log.h"
#include "lut/lut3d.h"
#include "lut_kernel_math.h"

namespace crandle_test {
namespace {

using host::LUTInterpolationMethod;
using Tincta::COv3DLUT;
using Tincta::Vec4;

// Smooth, mildly non-linear, with cross-talk: a colour transform such as a LUT holds.
void Transform(const double* in, double* out) {
  out[0] = 0.8 * std::pow(std::fabs(in[0]), 0.9) + 0.1 * in[1] + 0.05;
  out[1] = 0.9 * in[1] * in[1] * 0.5 + 0.45 * in[1] + 0.1 * in[2];
  out[2] = 0.7 * std::sin(1.2 * in[2]) + 0.1 * in[0];
}

std::shared_ptr<COv3DLUT> MakeCube(uint32_t n, Vec4 min, Vec4 max) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, true));
  lut->SetDomain(min, max);
  float* e = lut->Table();
  for (uint32_t i = 0; i < n * n * n; ++i) {
    const double node[3] = {double(i % n) / (n - 1), double(i / n % n) / (n - 1),
                            double(i / (n * n)) / (n - 1)};
    double out[3];
    Transform(node, out);
    for (int c = 0; c < 3; ++c)
      *e++ = float(out[c]);
    *e++ = 1.0f;
  }
  return lut;
}

// Per channel a different curve; `texture` makes the outputs texture coordinates of a cube (a
// shaper), else values.
std::shared_ptr<COv3DLUT> MakeCurves(uint32_t n, Vec4 min, Vec4 max, bool texture) {
  auto lut = std::make_shared<COv3DLUT>();
  EXPECT_TRUE(lut->Allocate(n, false));
  lut->SetDomain(min, max);
  for (uint32_t i = 0; i < n; ++i) {
    const double t = double(i) / (n - 1);
    const double curve[3] = {std::pow(t, 0.45), t * t, 0.5 * t + 0.5 * std::sqrt(t)};
    for (int c = 0; c < 3; ++c)
      lut->Table()[4 * i + c] = float(texture ? 0.02 + 0.96 * curve[c] : 1.2 * curve[c] - 0.1);
    lut->Table()[4 * i + 3] = 1.0f;
  }
  return lut;
}

struct SLUTCase {
  const char* name;
  EModelKind kind;
  uint32_t size;
  uint32_t shaperSize;
  Vec4 min, max;
};

const SLUTCase kLUTCases[] = {
    {"1D_4096", EModelKind::k1D, 4096, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"1D_17_domain", EModelKind::k1D, 17, 0, {-0.25f, 0, 0.1f, 0}, {1.5f, 2, 0.9f, 1}},
    {"1D_2", EModelKind::k1D, 2, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"3D_2", EModelKind::k3D, 2, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"3D_17", EModelKind::k3D, 17, 0, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"3D_33_domain", EModelKind::k3D, 33, 0, {-0.1f, 0.05f, 0, 0}, {1.2f, 0.95f, 4, 1}},
    {"1D3D_1024_17", EModelKind::k1D3D, 17, 1024, {0, 0, 0, 0}, {1, 1, 1, 1}},
    {"1D3D_domain", EModelKind::k1D3D, 9, 256, {-0.5f, 0, 0, 0}, {2, 1, 6, 1}},
};

struct SBuilt {
  std::shared_ptr<COv3DLUT> lut;
  SModelLUT model;
  double low = 0, high = 0;  // range of the outputs the tables can give
};

SBuilt Build(const SLUTCase& lutCase, bool tetrahedral) {
  const SLUTCase& c = lutCase;
  SBuilt built;
  if (c.kind == EModelKind::k1D) {
    built.lut = MakeCurves(c.size, c.min, c.max, false);
  } else {
    // Behind a shaper the cube's domain does not matter: the shaper's holds.
    built.lut = MakeCube(c.size, c.kind == EModelKind::k3D ? c.min : Vec4{0, 0, 0, 0},
                         c.kind == EModelKind::k3D ? c.max : Vec4{1, 1, 1, 1});
    if (c.kind == EModelKind::k1D3D) {
      built.lut->SetInputShaper(MakeCurves(c.shaperSize, c.min, c.max, true));
    }
  }
  const COv3DLUT& domain = built.lut->InputShaper() ? *built.lut->InputShaper() : *built.lut;
  SModelLUT& m = built.model;
  m.kind = c.kind;
  m.tetrahedral = tetrahedral;
  m.table = built.lut->Table();
  m.size = built.lut->Size();
  if (const COv3DLUT* shaper = built.lut->InputShaper()) {
    m.shaper = shaper->Table();
    m.shaperSize = shaper->Size();
  }
  // The model reads the LUT's red-first vectors and turns them blue first itself.
  for (int lane = 0; lane < 4; ++lane) {
    const int rgba = lane < 3 ? 2 - lane : 3;
    m.scale[lane] = domain.TextureScale()[rgba];
    m.offset[lane] = domain.TextureOffset()[rgba];
  }
  built.low = built.high = built.lut->Table()[0];
  for (size_t i = 0; i < built.lut->EntryCount(); ++i)
    for (int channel = 0; channel < 3; ++channel) {
      built.low = std::min<double>(built.low, built.lut->Table()[4 * i + channel]);
      built.high = std::max<double>(built.high, built.lut->Table()[4 * i + channel]);
    }
  return built;
}

// Input values in domain units for channel c: the domain's ends, the grid nodes near them,
// beyond them, NaN, then random values over a little more than the domain.
std::vector<double> Inputs(const SLUTCase& c, int channel, size_t count, std::mt19937& rng) {
  const double lo = c.min[channel], hi = c.max[channel], span = hi - lo;
  const uint32_t n = c.kind == EModelKind::k1D3D ? c.shaperSize : c.size;
  std::vector<double> v = {lo,
                           hi,
                           lo + span / (n - 1),
                           hi - span / (n - 1),
                           lo + span * 0.5,
                           lo - span,
                           hi + span,
                           std::numeric_limits<double>::quiet_NaN()};
  std::uniform_real_distribution<double> value(lo - 0.1 * span, hi + 0.1 * span);
  while (v.size() < count)
    v.push_back(value(rng));
  return v;
}

struct SFrame {
  uint32_t bits;
  uint32_t width, height;
  size_t rowBytes;
  std::vector<uint8_t> bytes;
  SFrame(uint32_t b, uint32_t w, uint32_t h)
      : bits(b), width(w), height(h), rowBytes(size_t(w + 3) * b / 2), bytes(rowBytes * h, 0) {}
  double Top() const { return bits == 8 ? 255 : 65535; }
  // Stores `v` (in [0, 1] units for integer formats) and returns what the frame now holds.
  double Put(uint32_t x, uint32_t y, int c, double v) {
    uint8_t* p = bytes.data() + y * rowBytes + x * (bits / 2) + c * (bits / 8);
    if (bits == 32) {
      const float f = float(v);
      std::memcpy(p, &f, 4);
      return f;
    }
    const double q = ModelQuantize(v, Top());
    if (bits == 8)
      *p = uint8_t(q);
    else {
      const uint16_t s = uint16_t(q);
      std::memcpy(p, &s, 2);
    }
    return q / Top();
  }
  double Get(uint32_t x, uint32_t y, int c) const {
    const uint8_t* p = bytes.data() + y * rowBytes + x * (bits / 2) + c * (bits / 8);
    if (bits == 32) {
      float f;
      std::memcpy(&f, p, 4);
      return f;
    }
    if (bits == 8) return *p;
    uint16_t s;
    std::memcpy(&s, p, 2);
    return s;
  }
};

class LUTKernelMathTest : public testing::TestWithParam<std::tuple<SLUTCase, bool, uint32_t>> {};

TEST_P(LUTKernelMathTest, PixelsFollowTheModel) {
  const auto& [c, tetrahedral, bits] = GetParam();
  const SBuilt built = Build(c, tetrahedral);
  const auto method =
      tetrahedral ? LUTInterpolationMethod::Tetrahedral : LUTInterpolationMethod::Trilinear;
  const Tincta::SHwLUTConstants constants =
      Tincta::COvHwCompositingEngine::LUTConstants(*built.lut, method);

  std::mt19937 rng(7 + bits);
  const uint32_t width = 64, height = 8;
  SFrame source(bits, width, height), destination(bits, width, height);
  std::vector<double> in[3];
  for (int channel = 0; channel < 3; ++channel)
    in[channel] = Inputs(c, 2 - channel, size_t(width) * height, rng);
  // Channels are shifted against each other so that each one's edges meet the others' randoms.
  for (uint32_t i = 0; i < width * height; ++i) {
    const uint32_t x = i % width, y = i / width;
    for (int channel = 0; channel < 3; ++channel) {
      double v = in[channel][(i + 5 * channel) % in[channel].size()];
      // Integer frames hold [0, 1]: their inputs are domain-relative.
      if (bits != 32) {
        const int rgb = 2 - channel;
        v = (v - c.min[rgb]) / (c.max[rgb] - c.min[rgb]);
        if (std::isnan(v)) v = 0.5;
      }
      source.Put(x, y, channel, v);
    }
    source.Put(x, y, 3, 0.25 + 0.5 * (i % 3));
  }

  const int kind = c.kind == EModelKind::k1D   ? CRANDLE_LUT_1D
                   : c.kind == EModelKind::k3D ? CRANDLE_LUT_3D
                                               : CRANDLE_LUT_1D3D;
  const auto* table = reinterpret_cast<const crandle_uchar*>(built.model.table);
  const auto* shaper = reinterpret_cast<const crandle_uchar*>(built.model.shaper);
  const crandle_uint tableRowBytes = built.model.size * 16;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      crandle_lut_pixel(kind, tetrahedral, source.bytes.data(), crandle_uint(source.rowBytes), bits,
                        shaper, built.model.shaperSize, table, tableRowBytes, built.model.size,
                        reinterpret_cast<const crandle_uchar*>(constants.values.data()),
                        destination.bytes.data(), crandle_uint(destination.rowBytes / (bits / 2)),
                        bits, x, y);

  const double range = built.high - built.low;
  const double tolerance = 2e-6 * range;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      Bgra pixel;
      for (int channel = 0; channel < 4; ++channel)
        pixel[channel] =
            bits == 32 ? source.Get(x, y, channel) : source.Get(x, y, channel) / source.Top();
      const Bgra want = ModelPixel(built.model, pixel);
      for (int channel = 0; channel < 4; ++channel) {
        const double got = destination.Get(x, y, channel);
        if (bits == 32) {
          ASSERT_NEAR(got, want[channel], channel == 3 ? 0.0 : tolerance)
              << c.name << " at (" << x << ", " << y << ") channel " << channel;
        } else {
          // Exact, unless the model lies within the tolerance of a rounding boundary.
          const double low = ModelQuantize(want[channel] - tolerance, source.Top());
          const double high = ModelQuantize(want[channel] + tolerance, source.Top());
          ASSERT_TRUE(got >= low && got <= high)
              << c.name << " at (" << x << ", " << y << ") channel " << channel << ": " << got
              << " for " << want[channel] * source.Top();
        }
      }
    }
}

// The top of the domain reads the last entry exactly, the bottom the first, as texel-centre
// addressing does; the CPU engine's clamp below the last texel is not the kernels'.
INSTANTIATE_TEST_SUITE_P(KindsMethodsFormats, LUTKernelMathTest,
                         testing::Combine(testing::ValuesIn(kLUTCases), testing::Bool(),
                                          testing::Values(8u, 16u, 32u)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  (std::get<1>(test.param) ? "_tetrahedral_" : "_trilinear_") +
                                  std::to_string(std::get<2>(test.param));
                         });

TEST(LUTKernelMath, DomainEndsReadTheEndEntriesExactly) {
  for (const SLUTCase& c : kLUTCases)
    for (bool tetrahedral : {false, true}) {
      if (c.kind == EModelKind::k1D3D) continue;  // a shaper's ends are its own table's
      const SBuilt built = Build(c, tetrahedral);
      const auto constants = Tincta::COvHwCompositingEngine::LUTConstants(
          *built.lut,
          tetrahedral ? LUTInterpolationMethod::Tetrahedral : LUTInterpolationMethod::Trilinear);
      SFrame source(32, 2, 1), destination(32, 2, 1);
      for (int channel = 0; channel < 3; ++channel) {
        source.Put(0, 0, channel, c.min[2 - channel]);
        source.Put(1, 0, channel, c.max[2 - channel]);
      }
      const int kind = c.kind == EModelKind::k1D ? CRANDLE_LUT_1D : CRANDLE_LUT_3D;
      for (uint32_t x = 0; x < 2; ++x)
        crandle_lut_pixel(
            kind, tetrahedral, source.bytes.data(), crandle_uint(source.rowBytes), 32, nullptr, 0,
            reinterpret_cast<const crandle_uchar*>(built.model.table), built.model.size * 16,
            built.model.size, reinterpret_cast<const crandle_uchar*>(constants.values.data()),
            destination.bytes.data(), crandle_uint(destination.rowBytes / 16), 32, x, 0);
      const uint32_t n = built.model.size;
      const size_t lastEntry = c.kind == EModelKind::k1D ? n - 1 : size_t(n) * n * n - 1;
      for (int channel = 0; channel < 3; ++channel) {
        const int rgb = 2 - channel;
        EXPECT_EQ(destination.Get(0, 0, channel), built.model.table[rgb]) << c.name;
        EXPECT_EQ(destination.Get(1, 0, channel), built.model.table[4 * lastEntry + rgb]) << c.name;
      }
    }
}

// Operator choice and named parameters, as the GPU operators set them.
TEST(HwCompositingEngine, ChoosesKernelsAndCodesByKindShaperAndMethod) {
  using Tincta::COvHwCompositingEngine;
  struct SCase {
    uint32_t kind;
    bool shaper;
    LUTInterpolationMethod method;
    const char* module;
    uint32_t code;
  } const cases[] = {
      {0x806F, true, LUTInterpolationMethod::Tetrahedral, "COMPOP_LUT1D3D_TetrahedralInterpolation",
       512},
      {0x806F, true, LUTInterpolationMethod::Trilinear, "COMPOP_LUT1D3D", 512},
      {0x806F, false, LUTInterpolationMethod::Tetrahedral, "COMPOP_LUT3D_TetrahedralInterpolation",
       1024},
      {0x806F, false, LUTInterpolationMethod::Trilinear, "COMPOP_LUT3D", 1024},
      {0x0DE0, false, LUTInterpolationMethod::Tetrahedral, "COMPOP_LUT1D", 2048},
      {0x0DE0, true, LUTInterpolationMethod::Tetrahedral, "COMPOP_LUT1D", 2048},
      {0x0DE1, false, LUTInterpolationMethod::Trilinear, "COMPOP_LUT1D", 2048},
      {0x84F5, false, static_cast<LUTInterpolationMethod>(7), "COMPOP_LUT1D", 2048},
      {0x806F, false, static_cast<LUTInterpolationMethod>(2), "COMPOP_LUT3D", 1024},
  };
  for (const SCase& c : cases) {
    const auto chosen = COvHwCompositingEngine::ChooseLUTOperator(c.kind, c.shaper, c.method);
    EXPECT_EQ(chosen.module, c.module);
    EXPECT_EQ(chosen.entry, std::string("ShaderKernel_") + c.module);
    EXPECT_EQ(chosen.code, c.code);
  }
}

TEST(HwCompositingEngine, ParametersComeFromTheShaperAndSizesOnlyForTetrahedralCubes) {
  // Kernel loading needs a device; without one the operator fails as a missing kernel does.
  Tincta::COvHwCompositingEngine engine(nullptr);
  auto cube = MakeCube(5, {0, 0, 0, 0}, {1, 1, 1, 1});
  // Shaper over [-1, 3] with 4 entries: scale (1 - 1/4) / 4 = 0.1875, offset 1/8 + 0.1875.
  cube->SetInputShaper(MakeCurves(4, {-1, -1, -1, 0}, {3, 3, 3, 1}, true));
  Tincta::COvHwTexture texture(*cube, nullptr);
  Tincta::SHwLUTOperator chosen;
  const host::GPUKernel* kernel = nullptr;
  EXPECT_EQ(engine.PrepareLUTOperator(texture, LUTInterpolationMethod::Tetrahedral, chosen, kernel),
            static_cast<int>(0xa00f0001u));
  EXPECT_EQ(kernel, nullptr);
  const auto& p = engine.Parameters();
  for (const char* name : {"__scale1.x", "__scale1.y", "__scale1.z"})
    EXPECT_DOUBLE_EQ(*p.Parameter(name), 0.1875) << name;
  for (const char* name : {"__offset1.x", "__offset1.y", "__offset1.z"})
    EXPECT_DOUBLE_EQ(*p.Parameter(name), 0.3125) << name;
  EXPECT_EQ(*p.Parameter("__scale1.w"), 1.0);
  EXPECT_EQ(*p.Parameter("__offset1.w"), 0.0);
  for (const char* name : {"__textureSize.x", "__textureSize.y", "__textureSize.z"})
    EXPECT_EQ(*p.Parameter(name), 5.0) << name;
  EXPECT_EQ(*p.Parameter("__textureSize.w"), 0.0);

  Tincta::COvHwCompositingEngine curves(nullptr);
  Tincta::COvHwTexture oneD(*MakeCurves(8, {0, 0, 0, 0}, {1, 1, 1, 1}, false), nullptr);
  curves.PrepareLUTOperator(oneD, LUTInterpolationMethod::Tetrahedral, chosen, kernel);
  EXPECT_EQ(chosen.module, "COMPOP_LUT1D");
  EXPECT_FALSE(curves.Parameters().Parameter("__textureSize.x").has_value());
}

TEST(HwTexture, TransposedCopyTurnsRowsOf1024TexelsIntoColumns) {
  std::vector<std::string> lines;
  host::SetLogCallback(
      [](host::LogLevel, std::string_view message, void* context) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(message);
      },
      &lines);
  const size_t rows = 3, entries = 1024 * rows;
  std::vector<float> table(entries * 4);
  for (size_t i = 0; i < table.size(); ++i)
    table[i] = float(i);
  std::vector<float> out;
  ASSERT_TRUE(Tincta::bCopyTableForDevice(table.data(), entries, true, out));
  // Texel (x, row) of the source is texel (row, x) of the destination, rows of `rows` texels.
  for (size_t row = 0; row < rows; ++row)
    for (size_t x = 0; x < 1024; x += 97)
      for (int c = 0; c < 4; ++c)
        ASSERT_EQ(out[4 * (x * rows + row) + c], table[4 * (row * 1024 + x) + c]);
  EXPECT_FALSE(Tincta::bCopyTableForDevice(table.data(), 1000, true, out));
  host::ResetLogCallback();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), "Transposing LUT for device");

  ASSERT_TRUE(Tincta::bCopyTableForDevice(table.data(), 5, false, out));
  EXPECT_EQ(std::memcmp(out.data(), table.data(), 5 * 16), 0);
}

}  // namespace
}  // namespace crandle_test
