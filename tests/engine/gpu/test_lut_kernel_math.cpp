// The GPU LUT formulas (lut_kernel_math.h as host C++) against the model; operators and textures.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "engine/gpu/hw_compositing_engine.h"
#include "engine/gpu/hw_texture.h"
#include "host/pixel_convert.h"
#include "lut/lut3d.h"
#include "lut_kernel_math.h"
#include "support/lut_kernel_model.h"
#include "support/lut_samples.h"
#include "support/temp_dir.h"

namespace crandle_test {
namespace {

using host::LUTInterpolationMethod;
constexpr LUTInterpolationMethod kTetrahedral = LUTInterpolationMethod::Tetrahedral;
constexpr LUTInterpolationMethod kTrilinear = LUTInterpolationMethod::Trilinear;
using Tincta::COv3DLUT;
using Tincta::Vec4;

class LUTKernelMathTest : public testing::TestWithParam<std::tuple<SModelCase, bool, uint32_t>> {};

TEST_P(LUTKernelMathTest, PixelsFollowTheModel) {
  const auto& [c, tetrahedral, bits] = GetParam();
  const auto lut = BuildModelCase(c);
  const COv3DLUT* shaper = lut->InputShaper();
  const Tincta::SHwLUTConstants constants =
      Tincta::COvHwCompositingEngine::LUTConstants(*lut, tetrahedral ? kTetrahedral : kTrilinear);

  const uint32_t width = 64, height = 8;
  const size_t rowBytes = size_t(width + 3) * bits / 2;  // rows with a gap after them
  std::vector<uint8_t> source(rowBytes * height), destination(rowBytes * height);
  const SPixelRows in{source.data(), rowBytes, bits, width, height};
  const SPixelRows out{destination.data(), rowBytes, bits, width, height};
  FillModelSource(c, in, 7 + bits);

  const int kind = c.kind == EModelKind::k1D   ? CRANDLE_LUT_1D
                   : c.kind == EModelKind::k3D ? CRANDLE_LUT_3D
                                               : CRANDLE_LUT_1D3D;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      crandle_lut_pixel(kind, tetrahedral, source.data(), crandle_uint(rowBytes), bits,
                        reinterpret_cast<const crandle_uchar*>(shaper ? shaper->Table() : nullptr),
                        shaper ? shaper->Size() : 0u,
                        reinterpret_cast<const crandle_uchar*>(lut->Table()), lut->Size() * 16,
                        lut->Size(),
                        reinterpret_cast<const crandle_uchar*>(constants.values.data()),
                        destination.data(), crandle_uint(rowBytes / (bits / 2)), bits, x, y);
  ExpectFollowsModel(*lut, tetrahedral, 2e-6 * OutputRange(*lut), in, out, c.name);
}

INSTANTIATE_TEST_SUITE_P(KindsMethodsFormats, LUTKernelMathTest,
                         testing::Combine(testing::ValuesIn(kModelCases), testing::Bool(),
                                          testing::Values(8u, 16u, 32u)),
                         [](const auto& test) {
                           return std::string(std::get<0>(test.param).name) +
                                  (std::get<1>(test.param) ? "_tetrahedral_" : "_trilinear_") +
                                  std::to_string(std::get<2>(test.param));
                         });

// The branch-free pick of a tetrahedron, for every order of fractions, ties and clamped cells; the
// entries are random, so that a wrong corner or weight shows.
TEST(LUTKernelMath, TetrahedralFindsEveryOrderTieAndClampedCell) {
  const uint32_t n = 4;
  std::mt19937 rng(12);
  std::uniform_real_distribution<float> entry(0.0f, 1.0f);
  std::vector<float> table(size_t(n) * n * n * 4);
  for (float& v : table)
    v = entry(rng);
  // Cell (red, green, blue) and fractions; a fraction of -1 puts the axis past its last entry.
  // Tied axes share their cell, so that their fractions are equal after the rounding too.
  const std::tuple<uint32_t, uint32_t, uint32_t, float, float, float> cases[] = {
      {1, 1, 1, 0.7f, 0.4f, 0.1f},    {1, 1, 1, 0.7f, 0.1f, 0.4f},  {1, 1, 1, 0.4f, 0.7f, 0.1f},
      {1, 1, 1, 0.1f, 0.7f, 0.4f},    {1, 1, 1, 0.4f, 0.1f, 0.7f},  {1, 1, 1, 0.1f, 0.4f, 0.7f},
      {1, 1, 2, 0.6f, 0.6f, 0.2f},    {2, 1, 1, 0.2f, 0.6f, 0.6f},  {1, 2, 1, 0.6f, 0.2f, 0.6f},
      {0, 0, 2, 0.3f, 0.3f, 0.8f},    {2, 0, 0, 0.8f, 0.3f, 0.3f},  {0, 2, 0, 0.3f, 0.8f, 0.3f},
      {2, 2, 2, 0.5f, 0.5f, 0.5f},    {1, 0, 2, 0.0f, 0.0f, 0.0f},  {1, 0, 2, 0.0f, 0.9f, 0.0f},
      {3, 1, 1, -1.0f, 0.2f, 0.6f},   {1, 3, 2, 0.6f, -1.0f, 0.2f}, {0, 1, 3, 0.2f, 0.6f, -1.0f},
      {3, 3, 3, -1.0f, -1.0f, -1.0f},
  };
  const auto coordinate = [&](uint32_t cell, float fraction) {
    // The texture coordinate of texel-centre position cell + fraction (past the end: 1).
    return fraction < 0 ? 1.0f : (float(cell) + fraction + 0.5f) / float(n);
  };
  for (const auto& [r, g, b, fr, fg, fb] : cases) {
    const float s[3] = {coordinate(r, fr), coordinate(g, fg), coordinate(b, fb)};
    const crandle_lut_vec4 got = crandle_lut_tetrahedral(
        reinterpret_cast<const crandle_uchar*>(table.data()), n * 16, n, s[0], s[1], s[2]);
    const Rgb want = ModelTetrahedral(table.data(), n, {s[0], s[1], s[2]});
    const float values[3] = {got.v0, got.v1, got.v2};
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(values[c], want[c], 2e-6)
          << fr << " " << fg << " " << fb << " in " << r << g << b;
  }
}

// Operator choice and named parameters, as the GPU operators set them.
TEST(HwCompositingEngine, ChoosesKernelsAndCodesByKindShaperAndMethod) {
  using Tincta::COvHwCompositingEngine;
  const std::tuple<uint32_t, bool, LUTInterpolationMethod, const char*, uint32_t> cases[] = {
      {0x806F, true, kTetrahedral, "COMPOP_LUT1D3D_TetrahedralInterpolation", 512},
      {0x806F, true, kTrilinear, "COMPOP_LUT1D3D", 512},
      {0x806F, false, kTetrahedral, "COMPOP_LUT3D_TetrahedralInterpolation", 1024},
      {0x806F, false, kTrilinear, "COMPOP_LUT3D", 1024},
      {0x0DE0, false, kTetrahedral, "COMPOP_LUT1D", 2048},
      {0x0DE0, true, kTetrahedral, "COMPOP_LUT1D", 2048},
      {0x0DE1, false, kTrilinear, "COMPOP_LUT1D", 2048},
      {0x84F5, false, static_cast<LUTInterpolationMethod>(7), "COMPOP_LUT1D", 2048},
      {0x806F, false, static_cast<LUTInterpolationMethod>(2), "COMPOP_LUT3D", 1024},
  };
  for (const auto& [kind, shaper, method, module, code] : cases) {
    const auto chosen = COvHwCompositingEngine::ChooseLUTOperator(kind, shaper, method);
    EXPECT_EQ(std::tuple(chosen.module, chosen.entry, chosen.code),
              std::tuple(module, std::string("ShaderKernel_") + module, code));
  }
}

TEST(HwCompositingEngine, ParametersComeFromTheShaperAndSizesOnlyForTetrahedralCubes) {
  // Kernel loading needs a device; without one the operator fails as a missing kernel does.
  Tincta::COvHwCompositingEngine engine(nullptr);
  auto cube = SmoothCube(5, {0, 0, 0, 0}, {1, 1, 1, 1});
  // Shaper over [-1, 3] with 4 entries: scale (1 - 1/4) / 4 = 0.1875, offset 1/8 + 0.1875.
  cube->SetInputShaper(SmoothCurves(4, {-1, -1, -1, 0}, {3, 3, 3, 1}, true));
  Tincta::COvHwTexture texture(*cube, nullptr);
  Tincta::SHwLUTOperator chosen;
  const host::GPUKernel* kernel = nullptr;
  EXPECT_EQ(engine.PrepareLUTOperator(texture, kTetrahedral, chosen, kernel),
            static_cast<int>(0xa00f0001u));
  EXPECT_EQ(kernel, nullptr);
  const auto& p = engine.Parameters();
  for (const std::string axis : {"x", "y", "z", "w"}) {
    const bool w = axis == "w";
    EXPECT_DOUBLE_EQ(*p.Parameter("__scale1." + axis), w ? 1.0 : 0.1875) << axis;
    EXPECT_DOUBLE_EQ(*p.Parameter("__offset1." + axis), w ? 0.0 : 0.3125) << axis;
    EXPECT_EQ(*p.Parameter("__textureSize." + axis), w ? 0.0 : 5.0) << axis;
  }

  Tincta::COvHwCompositingEngine curves(nullptr);
  Tincta::COvHwTexture oneD(*SmoothCurves(8, {0, 0, 0, 0}, {1, 1, 1, 1}, false), nullptr);
  curves.PrepareLUTOperator(oneD, kTetrahedral, chosen, kernel);
  EXPECT_EQ(chosen.module, "COMPOP_LUT1D");
  EXPECT_FALSE(curves.Parameters().Parameter("__textureSize.x").has_value());
}

TEST(HwTexture, TransposedCopyTurnsRowsOf1024TexelsIntoColumns) {
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
  ASSERT_TRUE(Tincta::bCopyTableForDevice(table.data(), 5, false, out));
  EXPECT_EQ(std::memcmp(out.data(), table.data(), 5 * 16), 0);
  // The host's transpose refuses rows shorter than the texels they claim.
  EXPECT_NE(host::IR_Transpose(table.data(), 47, out.data(), 32, 3, 2, 16), 0);
  EXPECT_NE(host::IR_Transpose(nullptr, 48, out.data(), 32, 3, 2, 16), 0);
}

// The registry keeps the latest texture of a key; a texture over a loaded LUT borrows its table.
TEST(HwTexture, LoadsByKindRegistersUnderItsKeyAndBorrowsLoadedTables) {
  using Tincta::COvHwTexture;
  const TempDir dir;
  const std::string curves =
      dir.Write("curves.cube", "DOMAIN_MIN -1 -1 -1\nDOMAIN_MAX 3 3 3\n" + CubeText1D(1024));
  const std::string cube = dir.Write("cube.cube", CubeText3D(5));
  const std::string missing = (dir.Path() / "missing.cube").string();
  // What, the file, the kind asked for, the size limit; the kind and size then, the key's suffix.
  const std::tuple<const char*, std::string, uint32_t, uint32_t, uint32_t, uint32_t, const char*>
      cases[] = {
          {"3-D, kind from the file", cube, 0, 0, Tincta::kHwTexture3D, 5, "/3D"},
          {"1-D, kind from the file", curves, 0, 0, Tincta::kHwTexture1D, 1024, "/1D"},
          {"3-D refused as 1-D", cube, Tincta::kHwTexture1D, 0, Tincta::kHwTexture1D, 0, "/1D"},
          {"1-D refused as 3-D", curves, Tincta::kHwTexture3D, 0, Tincta::kHwTexture3D, 0, "/3D"},
          {"1-D as 2-D", curves, Tincta::kHwTexture2D, 0, Tincta::kHwTexture2D, 1024, "/2D"},
          {"1-D resampled", curves, Tincta::kHwTextureRectangle, 256, Tincta::kHwTextureRectangle,
           256, "/RECT"},
          {"3-D not resampled", cube, Tincta::kHwTexture3D, 2, Tincta::kHwTexture3D, 5, "/3D"},
          {"missing file", missing, 0, 0, 0, 0, "/1D"},
      };
  Tincta::COvHwTextureRegistry registry;
  for (const auto& [what, file, kind, sizeLimit, kindAfter, size, suffix] : cases) {
    SCOPED_TRACE(what);
    {
      const COvHwTexture texture(file, kind, &registry, sizeLimit);
      EXPECT_EQ(std::tuple(texture.bLoaded(), texture.Kind(), texture.Size(), texture.OwnsTable()),
                std::tuple(size != 0, kindAfter, size, 1u));
      EXPECT_EQ(registry.Find(file + suffix), &texture);
      EXPECT_EQ(registry.Count(), 1u);
      // A resampled table keeps the file's domain.
      EXPECT_TRUE(sizeLimit != 256 ||
                  (texture.DomainMin()[0] == -1.0f && texture.DomainMax()[2] == 3.0f));
    }
    EXPECT_EQ(registry.Find(file + suffix), nullptr);
    EXPECT_EQ(registry.Count(), 0u);
  }
  {
    const COvHwTexture first(cube, 0, &registry);
    {
      const COvHwTexture second(cube, 0, &registry);
      EXPECT_EQ(registry.Find(cube + "/3D"), &second);
    }
    EXPECT_EQ(registry.Find(cube + "/3D"), &first);
    EXPECT_EQ(registry.Find(cube + "/1D"), nullptr);
  }

  const auto lut = SmoothCube(3, {0, 0, 0, 0}, {1, 1, 1, 1});
  const float last = lut->Table()[4 * 26];
  {
    const COvHwTexture borrowed(*lut, nullptr);
    EXPECT_EQ(std::tuple(borrowed.OwnsTable(), borrowed.Table(), borrowed.Kind(), borrowed.Name()),
              std::tuple(0u, lut->Table(), Tincta::kHwTexture3D, ""));
  }
  ASSERT_EQ(lut->Size(), 3u);
  EXPECT_EQ(lut->Table()[4 * 26], last);
}

}  // namespace
}  // namespace crandle_test
