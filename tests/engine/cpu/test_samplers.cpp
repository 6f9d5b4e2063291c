// The samplers and LUT programs of both tiers against a double-precision model and each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/cpu_texture.h"
#include "foundation/cpu_features.h"

namespace crandle_test {
namespace {

using namespace Tincta;

// A double-precision model of the samplers, written from the formulas: x = s x size - 0.5,
// clamped to [0, size - 1.01] (NaN to 0), truncated, then a + (b - a) x f in the order x, y, z.
using Rgba = std::array<double, 4>;

struct SAxisModel {
  size_t index;
  double fraction;
};

SAxisModel ModelAxis(double s, uint32_t size) {
  double x = s * size - 0.5;
  if (!(x > 0)) x = 0;  // negatives, -inf and NaN
  x = std::fmin(x, size - 1.01);
  const auto index = static_cast<size_t>(x);
  return {index, x - static_cast<double>(index)};
}

Rgba ModelLerp(const Rgba& a, const Rgba& b, double f) {
  Rgba out;
  for (int c = 0; c < 4; ++c)
    out[c] = a[c] + (b[c] - a[c]) * f;
  return out;
}

/// Trilinear sampling of a width x height x depth table; a 1-D one (height = depth = 1) at s alone.
Rgba ModelSample(const float* table, uint32_t width, uint32_t height, uint32_t depth, double s,
                 double t, double r) {
  const SAxisModel x = ModelAxis(s, width);
  const bool cube = height > 1 || depth > 1;
  const SAxisModel y = cube ? ModelAxis(t, height) : SAxisModel{0, 0};
  const SAxisModel z = cube ? ModelAxis(r, depth) : SAxisModel{0, 0};
  auto at = [&](size_t dx, size_t dy, size_t dz) {
    const size_t i = (x.index + dx) + (y.index + dy) * width + (z.index + dz) * width * height;
    return Rgba{table[4 * i], table[4 * i + 1], table[4 * i + 2], table[4 * i + 3]};
  };
  const Rgba c00 = ModelLerp(at(0, 0, 0), at(1, 0, 0), x.fraction);
  if (!cube) return c00;
  const Rgba c10 = ModelLerp(at(0, 1, 0), at(1, 1, 0), x.fraction);
  const Rgba c01 = ModelLerp(at(0, 0, 1), at(1, 0, 1), x.fraction);
  const Rgba c11 = ModelLerp(at(0, 1, 1), at(1, 1, 1), x.fraction);
  return ModelLerp(ModelLerp(c00, c10, y.fraction), ModelLerp(c01, c11, y.fraction), z.fraction);
}

/// How far a float kernel may stray from the model for entries within `largest` of zero and
/// `steepest` of their neighbours: x carries about `size` ulps of s, the lerps a few roundings.
double ModelTolerance(double largest, double steepest, uint32_t width, uint32_t height,
                      uint32_t depth) {
  return std::ldexp(16 * largest + 4 * steepest * (width + height + depth + 3), -24);
}

constexpr float kInf = std::numeric_limits<float>::infinity();
const float kNaN = std::numeric_limits<float>::quiet_NaN();

bool AVX2RunsHere() {
  const SProcessorFeatures& f = ProcessorFeatures();
  return f.avx && f.avx2 && f.fma && f.osSavesYmm;
}

// Runs once per table; the 256-bit one is skipped where the processor cannot run it.
class SamplerTest : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam() && !AVX2RunsHere()) GTEST_SKIP() << "this processor has no AVX2 + FMA";
  }
  const SCPUKernelTable& Kernels() const { return GetParam() ? CPUKernelsAVX2() : CPUKernelsSSE(); }
};

std::vector<float> RandomTable(size_t entries, std::mt19937& rng, float low = -0.25f,
                               float high = 1.25f) {
  std::uniform_real_distribution<float> value(low, high);
  std::vector<float> table(4 * entries);
  std::generate(table.begin(), table.end(), [&] { return value(rng); });
  return table;
}

// Where the rules change along an axis of `size` texels, then random values, to a multiple of 8.
std::vector<float> Coordinates(uint32_t size, size_t random, std::mt19937& rng) {
  const float n = float(size);
  std::vector<float> s = {-kInf, -1e30f,           -1.0f, -0.0f, 0.0f,  1e-30f, 0.25f / n,
                          kNaN,  1.0f - 0.25f / n, 1.0f,  1.5f,  1e30f, kInf};
  for (uint32_t i : {0u, 1u, size / 2, size - 2, size - 1}) {
    s.push_back((float(i) + 0.5f) / n);  // texel centre
    s.push_back(float(i) / n);           // texel border
  }
  std::uniform_real_distribution<float> value(-0.1f, 1.1f);
  for (size_t i = 0; i < random || s.size() % kSamplerLanes != 0; ++i)
    s.push_back(value(rng));
  return s;
}

std::vector<float> Exchanged(std::vector<float> pixels) {
  for (size_t i = 0; i + 3 < pixels.size(); i += 4)
    std::swap(pixels[i], pixels[i + 2]);
  return pixels;
}

TEST_P(SamplerTest, SamplersFollowTheModel) {
  std::mt19937 rng(11);
  const uint32_t sizes[][3] = {{2, 1, 1},     {3, 1, 1},    {17, 1, 1},  {4096, 1, 1},
                               {65536, 1, 1}, {2, 2, 2},    {3, 3, 3},   {5, 3, 7},
                               {2, 9, 4},     {33, 33, 33}, {65, 65, 65}};
  for (const auto& [width, height, depth] : sizes) {
    const bool cube = height > 1;
    const std::vector<float> table = RandomTable(size_t(width) * height * depth, rng);
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(2, width, height, depth, cube ? kTexture3D : kTexture1D, 4,
                              table.data(), false));
    const double tolerance = ModelTolerance(1.25, 1.5, width, height, depth);
    // Each axis runs through its own edges, shifted against the others so that the edges of
    // one axis meet random values of another.
    const std::vector<float> s = Coordinates(width, 600, rng);
    std::vector<float> t = Coordinates(height, 600, rng), r = Coordinates(depth, 600, rng);
    for (auto [axis, shift] : {std::pair{&t, 5}, {&r, 11}}) {
      axis->resize(s.size(), 0.5f);
      std::rotate(axis->begin(), axis->begin() + shift, axis->end());
    }
    for (size_t block = 0; block < s.size(); block += kSamplerLanes) {
      float texels[4 * kSamplerLanes];
      cube ? Kernels().sample3D(units.Unit(2), &s[block], &t[block], &r[block], texels)
           : Kernels().sample1D(units.Unit(2), &s[block], texels);
      for (size_t p = 0; p < kSamplerLanes; ++p) {
        const size_t q = block + p;
        const Rgba want = ModelSample(table.data(), width, height, depth, s[q], t[q], r[q]);
        // At or below the first texel centre on every axis the first entry comes out exactly.
        const bool first =
            !(double(s[q]) * width > 0.5) &&
            (!cube || (!(double(t[q]) * height > 0.5) && !(double(r[q]) * depth > 0.5)));
        for (int c = 0; c < 4; ++c)
          ASSERT_NEAR(texels[4 * p + c], want[c], first ? 0.0 : tolerance)
              << width << "x" << height << "x" << depth << " at (" << s[q] << ", " << t[q] << ", "
              << r[q] << ") channel " << c;
      }
    }
  }
}

// Bit for bit the samplers' answers, alpha kept, nothing written past the last pixel; exchanging
// programs exchange around them and keep the exchange in their source only when asked.
TEST_P(SamplerTest, ProgramsMatchTheSamplersForEveryTail) {
  std::mt19937 rng(14);
  const std::vector<float> curve = RandomTable(37, rng), cube = RandomTable(9 * 9 * 9, rng);
  const std::vector<float> shaper = RandomTable(21, rng, 0.0f, 1.0f);
  const std::vector<float> wide = RandomTable(kMaxCurvePairWidth + 1, rng);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(1, 37, 1, 1, kTexture1D, 4, curve.data(), false));
  ASSERT_TRUE(units.bUpload(4, kMaxCurvePairWidth + 1, 1, 1, kTexture1D, 4, wide.data(), false));
  ASSERT_TRUE(units.Unit(1).curvePairs != nullptr && units.Unit(4).curvePairs == nullptr);
  ASSERT_TRUE(units.bUpload(2, 9, 9, 9, kTexture3D, 4, cube.data(), false));
  ASSERT_TRUE(units.bUpload(3, 21, 21, 21, kTexture3D, 4, shaper.data(), false));
  const SLUTDomainMapping mapping = {{0.9f, 0.95f, 1.0f, 1.05f}, {-0.01f, 0.01f, 0.03f, 0.05f}};
  const SCPUKernelTable& k = Kernels();
  std::uniform_real_distribution<float> value(-0.2f, 1.2f);
  for (size_t count = 1; count <= 19; ++count) {
    std::vector<float> source(4 * count);
    std::generate(source.begin(), source.end(), [&] { return value(rng); });
    source[0] = kNaN;  // a NaN colour lands on the first entry; a NaN alpha passes through
    if (count > 2) source[4 * 2 + 3] = kNaN;
    if (count > 3) source[4 * 3 + 1] = kInf;

    // What the samplers give, pixel by pixel: want[i] for program i.
    std::vector<float> want[4] = {source, source, source, source};
    for (size_t p = 0; p < count; ++p) {
      // curves[u][c]: the 1-D sampler of unit u (curves 1 and 4, shaper 3) at channel c.
      float mapped[3][8], shaped[3][8], curves[5][3][32], direct[32], viaShaper[32];
      for (int c = 0; c < 3; ++c) {
        std::fill_n(mapped[c], 8, source[4 * p + c] * mapping.scale[c] + mapping.offset[c]);
        for (int u : {1, 3, 4})
          k.sample1D(units.Unit(u), mapped[c], curves[u][c]);
        std::fill_n(shaped[c], 8, curves[3][c][c]);
      }
      k.sample3D(units.Unit(2), mapped[0], mapped[1], mapped[2], direct);
      k.sample3D(units.Unit(2), shaped[0], shaped[1], shaped[2], viaShaper);
      for (int c = 0; c < 3; ++c) {
        const float got[4] = {curves[1][c][c], direct[c], viaShaper[c], curves[4][c][c]};
        for (int i = 0; i < 4; ++i)
          want[i][4 * p + c] = got[i];
      }
    }

    constexpr float kGuard = -12345.0f;
    const auto bits = [&](const float* got, std::vector<float> expected, size_t size) {
      expected.resize(size, kGuard);
      return std::memcmp(got, expected.data(), 4 * size) == 0;
    };
    // Ways 0 to 3: apart, in place, streamed (into a 32-byte aligned destination; cached ones lie
    // off that grid), and apart with the source discarded, which only exchanging programs heed.
    for (int i = 0; i < 4; ++i)
      for (const bool exchanging : {false, true})
        for (const int way : {0, 1, 2, 3}) {
          SCOPED_TRACE(testing::Message() << "program " << i << " exchanging " << exchanging
                                          << " way " << way << ", " << count << " pixels");
          const bool inPlace = way == 1, streamed = way == 2;
          std::vector<float> in = exchanging ? Exchanged(source) : source;
          in.resize(4 * (count + 3), kGuard);
          const std::vector<float> held = in;
          alignas(32) float buffer[4 * (19 + 4)];
          std::fill(std::begin(buffer), std::end(buffer), kGuard);
          float* const out = inPlace ? in.data() : buffer + (streamed ? 0 : 4);
          // Program i: 1-D, 3-D, 1-D + 3-D, 1-D without curve pairs.
          const SCPUTextureUnit &curves = units.Unit(i == 0 ? 1 : 4), &grid = units.Unit(2);
          float *const from = in.data(), *const kept = way == 3 ? nullptr : from;
          const auto w = streamed ? EDestinationWrites::kStreamed : EDestinationWrites::kCached;
          if (i == 1)
            exchanging ? k.applyLUT3DExchanging(grid, mapping, from, kept, out, count, w)
                       : k.applyLUT3D(grid, mapping, from, out, count, w);
          else if (i == 2)
            exchanging
                ? k.applyLUT1D3DExchanging(units.Unit(3), grid, mapping, from, kept, out, count, w)
                : k.applyLUT1D3D(units.Unit(3), grid, mapping, from, out, count, w);
          else
            exchanging ? k.applyLUT1DExchanging(curves, mapping, from, kept, out, count, w)
                       : k.applyLUT1D(curves, mapping, from, out, count, w);
          EXPECT_TRUE(bits(out, exchanging ? Exchanged(want[i]) : want[i], in.size()));
          EXPECT_TRUE(inPlace || bits(in.data(), exchanging && way != 3 ? source : held, in.size()))
              << "its source";
        }
  }
}

INSTANTIATE_TEST_SUITE_P(Tiers, SamplerTest, testing::Values(false, true),
                         [](const auto& tier) { return tier.param ? "AVX2" : "SSE"; });

// The 256-bit table's fused a + (b - a) x f moves an interpolation by at most 1 ulp of its operands
// (all in [-0.05, 1.05]); later trilinear levels scale that by fractions below 1: within 2 ulp.
TEST(KernelTiers, AgreeUpToTheFusedInterpolation) {
  const bool wide = AVX2RunsHere() && !ProcessorFeatures().wideVectorsSwitchedOff;
  EXPECT_STREQ(ActiveCPUKernels().name, wide ? "avx2" : "sse");  // what runs
  if (!AVX2RunsHere()) GTEST_SKIP() << "this processor has no AVX2 + FMA";
  std::mt19937 rng(19);
  const uint32_t n = 33, curveSize = 1024;
  const std::vector<float> cube = RandomTable(n * n * n, rng, 0.0f, 1.0f);
  const std::vector<float> curve = RandomTable(curveSize, rng, 0.0f, 1.0f);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(1, curveSize, 1, 1, kTexture1D, 4, curve.data(), false));
  ASSERT_TRUE(units.bUpload(2, n, n, n, kTexture3D, 4, cube.data(), false));
  const float scale = 1.0f - 1.0f / n, offset = 0.5f / n;
  const SLUTDomainMapping mapping = {{scale, scale, scale, scale},
                                     {offset, offset, offset, offset}};
  const size_t pixels = 1 << 16;
  const std::vector<float> source = RandomTable(pixels, rng, -0.05f, 1.05f);
  for (const bool cubic : {true, false}) {
    std::vector<float> out[2] = {source, source};
    for (int tier = 0; tier < 2; ++tier) {
      const SCPUKernelTable& k = tier ? CPUKernelsAVX2() : CPUKernelsSSE();
      constexpr EDestinationWrites kCached = EDestinationWrites::kCached;
      cubic
          ? k.applyLUT3D(units.Unit(2), mapping, source.data(), out[tier].data(), pixels, kCached)
          : k.applyLUT1D(units.Unit(1), mapping, source.data(), out[tier].data(), pixels, kCached);
    }
    for (size_t i = 0; i < source.size(); ++i)
      ASSERT_LE(std::fabs(double(out[0][i]) - out[1][i]), 0x1p-22)
          << (cubic ? "3-D" : "1-D") << " float " << i << ": " << out[0][i] << " vs " << out[1][i];
  }
}

}  // namespace
}  // namespace crandle_test
