// The samplers and pixel kernels of both tiers against a double-precision model and against each
// other; the LUT programs against the samplers and against independent computations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/cpu_texture.h"
#include "engine/sampler_model.h"
#include "foundation/cpu_features.h"
#include "lut/lut3d.h"

namespace crandle_test {
namespace {

using namespace Tincta;

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
  for (float& v : table)
    v = value(rng);
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

SLUTDomainMapping MappingOf(const COv3DLUT& lut) {
  SLUTDomainMapping mapping;
  for (int c = 0; c < 4; ++c) {
    mapping.scale[c] = lut.TextureScale()[c];
    mapping.offset[c] = lut.TextureOffset()[c];
  }
  return mapping;
}

// A 3-D LUT of n points per axis whose entry at node (r, g, b) is f(node), over [min, max].
COv3DLUT CubeOf(uint32_t n, const std::function<void(const double*, double*)>& f,
                Vec4 min = {0, 0, 0, 0}, Vec4 max = {1, 1, 1, 1}) {
  COv3DLUT lut;
  EXPECT_TRUE(lut.Allocate(n, true));
  lut.SetDomain(min, max);
  float* entry = lut.Table();
  for (uint32_t i = 0; i < n * n * n; ++i) {
    const uint32_t index[3] = {i % n, i / n % n, i / (n * n)};
    double node[3], out[3];
    for (int c = 0; c < 3; ++c)
      node[c] = min[c] + (max[c] - min[c]) * index[c] / (n - 1);
    f(node, out);
    for (int c = 0; c < 3; ++c)
      *entry++ = float(out[c]);
    *entry++ = 1.0f;
  }
  return lut;
}

TEST_P(SamplerTest, SamplersFollowTheModel) {
  struct SCase {
    uint32_t width, height, depth;
  };
  std::mt19937 rng(11);
  for (SCase e : {SCase{2, 1, 1}, SCase{3, 1, 1}, SCase{17, 1, 1}, SCase{4096, 1, 1},
                  SCase{65536, 1, 1}, SCase{2, 2, 2}, SCase{3, 3, 3}, SCase{5, 3, 7},
                  SCase{2, 9, 4}, SCase{33, 33, 33}, SCase{65, 65, 65}}) {
    const bool cube = e.height > 1;
    const std::vector<float> table = RandomTable(size_t(e.width) * e.height * e.depth, rng);
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(2, e.width, e.height, e.depth, cube ? kTexture3D : kTexture1D, 4,
                              table.data(), false));
    const double tolerance = ModelTolerance(1.25, 1.5, e.width, e.height, e.depth);
    // Each axis runs through its own edges, shifted against the others so that the edges of
    // one axis meet random values of another.
    const std::vector<float> s = Coordinates(e.width, 600, rng);
    std::vector<float> t = Coordinates(e.height, 600, rng), r = Coordinates(e.depth, 600, rng);
    t.resize(s.size(), 0.5f);
    r.resize(s.size(), 0.5f);
    std::rotate(t.begin(), t.begin() + 5, t.end());
    std::rotate(r.begin(), r.begin() + 11, r.end());
    for (size_t block = 0; block < s.size(); block += kSamplerLanes) {
      float texels[4 * kSamplerLanes];
      if (cube) {
        Kernels().sample3D(units.Unit(2), &s[block], &t[block], &r[block], texels);
      } else {
        Kernels().sample1D(units.Unit(2), &s[block], texels);
      }
      for (size_t p = 0; p < kSamplerLanes; ++p) {
        const size_t q = block + p;
        const Rgba want = ModelSample(table.data(), e.width, e.height, e.depth, s[q], t[q], r[q]);
        // At or below the first texel centre on every axis the first entry comes out exactly.
        const bool first =
            !(double(s[q]) * e.width > 0.5) &&
            (!cube || (!(double(t[q]) * e.height > 0.5) && !(double(r[q]) * e.depth > 0.5)));
        for (int c = 0; c < 4; ++c) {
          ASSERT_NEAR(texels[4 * p + c], want[c], first ? 0.0 : tolerance)
              << e.width << "x" << e.height << "x" << e.depth << " at (" << s[q] << ", " << t[q]
              << ", " << r[q] << ") channel " << c;
        }
      }
    }
  }
}

// Lane for lane the programs give the samplers' answers at the mapped coordinates, keep alpha,
// write nothing past the last pixel and give the same in place; the exchanging ones give the
// exchange of the result of the exchanged source, bit for bit, and leave the source exchanged.
// The 1-D program runs on a curve with curve pairs and on one too wide for them.
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
  SLUTDomainMapping mapping;
  for (int c = 0; c < 4; ++c) {
    mapping.scale[c] = 0.9f + 0.05f * c;
    mapping.offset[c] = 0.02f * c - 0.01f;
  }
  const SCPUKernelTable& k = Kernels();
  // Program i, plain or exchanging.
  auto run = [&](int i, bool exchanging, float* in, float* out, size_t n) {
    if (i == 0 || i == 3) {
      const SCPUTextureUnit& table = units.Unit(i == 0 ? 1 : 4);
      exchanging ? k.applyLUT1DExchanging(table, mapping, in, out, n)
                 : k.applyLUT1D(table, mapping, in, out, n);
    } else if (i == 1) {
      exchanging ? k.applyLUT3DExchanging(units.Unit(2), mapping, in, out, n)
                 : k.applyLUT3D(units.Unit(2), mapping, in, out, n);
    } else {
      exchanging ? k.applyLUT1D3DExchanging(units.Unit(3), units.Unit(2), mapping, in, out, n)
                 : k.applyLUT1D3D(units.Unit(3), units.Unit(2), mapping, in, out, n);
    }
  };
  std::uniform_real_distribution<float> value(-0.2f, 1.2f);
  for (size_t count = 1; count <= 19; ++count) {
    std::vector<float> source(4 * count);
    for (float& v : source)
      v = value(rng);
    source[0] = kNaN;  // a NaN colour lands on the first entry; a NaN alpha passes through
    if (count > 2) source[4 * 2 + 3] = kNaN;
    if (count > 3) source[4 * 3 + 1] = kInf;

    // What the samplers give, pixel by pixel: want[i] for program i.
    std::vector<float> want[4] = {source, source, source, source};
    for (size_t p = 0; p < count; ++p) {
      float mapped[3][8], shaped[3][8], curves[3][32], wideCurves[3][32], shaperOut[3][32],
          direct[32], viaShaper[32];
      for (int c = 0; c < 3; ++c) {
        std::fill_n(mapped[c], 8, source[4 * p + c] * mapping.scale[c] + mapping.offset[c]);
        k.sample1D(units.Unit(1), mapped[c], curves[c]);
        k.sample1D(units.Unit(4), mapped[c], wideCurves[c]);
        k.sample1D(units.Unit(3), mapped[c], shaperOut[c]);
        std::fill_n(shaped[c], 8, shaperOut[c][c]);
      }
      k.sample3D(units.Unit(2), mapped[0], mapped[1], mapped[2], direct);
      k.sample3D(units.Unit(2), shaped[0], shaped[1], shaped[2], viaShaper);
      for (int c = 0; c < 3; ++c) {
        want[0][4 * p + c] = curves[c][c];
        want[1][4 * p + c] = direct[c];
        want[2][4 * p + c] = viaShaper[c];
        want[3][4 * p + c] = wideCurves[c][c];
      }
    }

    constexpr float kGuard = -12345.0f;
    auto expectBits = [&](const std::vector<float>& got, std::vector<float> expected, int i,
                          const char* how) {
      expected.resize(got.size(), kGuard);
      EXPECT_EQ(std::memcmp(got.data(), expected.data(), 4 * got.size()), 0)
          << "program " << i << " " << how << ", " << count << " pixels";
    };
    for (int i = 0; i < 4; ++i) {
      std::vector<float> in = source, out(4 * (count + 3), kGuard);
      run(i, false, in.data(), out.data(), count);
      expectBits(out, want[i], i, "apart");
      run(i, false, in.data(), in.data(), count);
      expectBits(in, want[i], i, "in place");
      std::vector<float> held = Exchanged(source);
      held.resize(out.size(), kGuard);
      std::fill(out.begin(), out.end(), kGuard);
      run(i, true, held.data(), out.data(), count);
      expectBits(out, Exchanged(want[i]), i, "exchanging");
      expectBits(held, source, i, "exchanging, its source");
      in = Exchanged(source);
      run(i, true, in.data(), in.data(), count);
      expectBits(in, Exchanged(want[i]), i, "exchanging in place");
    }
  }
}

// Trilinear interpolation reproduces affine maps exactly, so a cube made from one gives the map's
// own value, found without the sampler's formulas: the identity at every size, another map over an
// unusual domain. Only the top 1% of the last cell, held back by the 1.01 clamp, is left out.
TEST_P(SamplerTest, AffineCubesGiveTheFunction) {
  std::mt19937 rng(16);
  std::uniform_real_distribution<double> unit(0, 1);
  static const double maps[2][3][4] = {
      {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}},
      {{0.8, 0.15, -0.05, 0.02}, {-0.1, 0.3, 0.2, -0.1}, {0.05, -0.2, 1.1, 0.3}}};
  for (uint32_t n = 2; n <= 65; ++n) {
    for (bool unusual : {false, true}) {
      if (unusual && n != 2 && n != 5 && n != 33) continue;
      const Vec4 min = unusual ? Vec4{-0.25f, 0.5f, 0.1f, 0} : Vec4{0, 0, 0, 0};
      const Vec4 max = unusual ? Vec4{1.5f, 4.0f, 0.9f, 1} : Vec4{1, 1, 1, 1};
      const auto f = [m = maps[unusual]](const double* v, double* out) {
        for (int c = 0; c < 3; ++c)
          out[c] = m[c][0] * v[0] + m[c][1] * v[1] + m[c][2] * v[2] + m[c][3];
      };
      const COv3DLUT lut = CubeOf(n, f, min, max);
      COvCPUTextureUnits units;
      ASSERT_TRUE(units.bUpload(1, n, n, n, kTexture3D, 4, lut.Table(), false));
      // Grid nodes along the diagonal, random points, then the top of the domain.
      std::vector<float> pixels;
      for (uint32_t i = 0; i < n + 200; ++i) {
        for (int c = 0; c < 4; ++c) {
          const double u = i + 1 < n ? double(i) / (n - 1) : i + 1 == n ? 1 : unit(rng);
          const double reach = (max[c] - min[c]) * (n - 1.01) / (n - 1);
          pixels.push_back(c == 3 ? 0.25f * (i % 4) : float(min[c] + reach * u));
        }
      }
      std::vector<float> out(pixels.size());
      Kernels().applyLUT3D(units.Unit(1), MappingOf(lut), pixels.data(), out.data(), n + 200);
      for (size_t p = 0; p < pixels.size() / 4; ++p) {
        double want[3];
        const double v[3] = {pixels[4 * p], pixels[4 * p + 1], pixels[4 * p + 2]};
        f(v, want);
        for (int c = 0; c < 3; ++c)
          ASSERT_NEAR(out[4 * p + c], want[c], 1e-5) << "size " << n << " pixel " << p;
        ASSERT_EQ(out[4 * p + 3], pixels[4 * p + 3]);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Tiers, SamplerTest, testing::Values(false, true),
                         [](const auto& tier) { return tier.param ? "AVX2" : "SSE"; });

// The tables differ only by the fused a + (b - a) x f of the 256-bit one, which moves one
// interpolation by at most 1 ulp of the operands (all in [-0.05, 1.05]). Trilinear sampling has
// three levels, but the later ones scale the earlier differences by fractions below 1, so both
// kinds stay within 2 ulp.
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
  SLUTDomainMapping mapping;
  for (int c = 0; c < 4; ++c) {
    mapping.scale[c] = 1.0f - 1.0f / n;
    mapping.offset[c] = 0.5f / n;
  }
  const size_t pixels = 1 << 16;
  const std::vector<float> source = RandomTable(pixels, rng, -0.05f, 1.05f);
  auto compare = [&](const char* name, double bound, auto&& run) {
    std::vector<float> a(source.size()), b(source.size());
    run(CPUKernelsSSE(), a.data());
    run(CPUKernelsAVX2(), b.data());
    for (size_t i = 0; i < a.size(); ++i) {
      ASSERT_LE(std::fabs(double(a[i]) - b[i]), std::ldexp(bound, -23))
          << name << " float " << i << ": " << a[i] << " vs " << b[i];
    }
  };
  compare("3-D", 2.0, [&](const SCPUKernelTable& k, float* out) {
    k.applyLUT3D(units.Unit(2), mapping, source.data(), out, pixels);
  });
  compare("1-D", 2.0, [&](const SCPUKernelTable& k, float* out) {
    k.applyLUT1D(units.Unit(1), mapping, source.data(), out, pixels);
  });
}

}  // namespace
}  // namespace crandle_test
