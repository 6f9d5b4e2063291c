// The samplers and pixel kernels of both tiers against a double-precision model of the same
// formulas, against each other, and the LUT programs against independent computations.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "engine/cpu/cpu_kernels.h"
#include "engine/cpu/cpu_texture.h"
#include "engine/kernel_tiers.h"
#include "engine/sampler_model.h"
#include "lut/lut3d.h"

namespace crandle_test {
namespace {

using Tincta::COvCPUTextureUnits;
using Tincta::kSamplerLanes;
using Tincta::kTexture1D;
using Tincta::kTexture3D;
using Tincta::SCPUKernelTable;
using Tincta::SCPUTextureUnit;
using Tincta::SLUTDomainMapping;

constexpr float kInf = std::numeric_limits<float>::infinity();
const float kNaN = std::numeric_limits<float>::quiet_NaN();

std::vector<float> RandomTable(size_t entries, std::mt19937& rng, float low = -0.25f,
                               float high = 1.25f) {
  std::uniform_real_distribution<float> value(low, high);
  std::vector<float> table(4 * entries);
  for (float& v : table)
    v = value(rng);
  return table;
}

// Coordinates where the rules change, for a table of `size` texels along an axis.
std::vector<float> EdgeCoordinates(uint32_t size) {
  const float n = static_cast<float>(size);
  std::vector<float> s = {-kInf, -1e30f,           -1.0f, -0.0f, 0.0f,  1e-30f, 0.25f / n,
                          kNaN,  1.0f - 0.25f / n, 1.0f,  1.5f,  1e30f, kInf};
  for (uint32_t i : {0u, 1u, size / 2, size - 2, size - 1}) {
    s.push_back((static_cast<float>(i) + 0.5f) / n);  // texel centres
    s.push_back(static_cast<float>(i) / n);           // texel borders
  }
  return s;
}

std::vector<float> WithRandom(std::vector<float> s, size_t count, std::mt19937& rng) {
  std::uniform_real_distribution<float> value(-0.1f, 1.1f);
  for (size_t i = 0; i < count; ++i)
    s.push_back(value(rng));
  while (s.size() % kSamplerLanes != 0)
    s.push_back(value(rng));
  return s;
}

bool SameBits(float a, float b) {
  return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b);
}

using SamplerTest = TierTest;

TEST_P(SamplerTest, Linear1DFollowsTheModel) {
  std::mt19937 rng(11);
  for (uint32_t width : {2u, 3u, 17u, 256u, 4096u, 65536u}) {
    const std::vector<float> table = RandomTable(width, rng);
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(1, width, width, width, kTexture1D, 4, table.data(), false));
    const double tolerance = ModelTolerance(table.data(), width, 1, 1);
    const std::vector<float> s = WithRandom(EdgeCoordinates(width), 400, rng);
    for (size_t block = 0; block < s.size(); block += kSamplerLanes) {
      float texels[4 * kSamplerLanes];
      Kernels().sample1D(units.Unit(1), &s[block], texels);
      for (size_t p = 0; p < kSamplerLanes; ++p) {
        const Rgba expected = ModelSample1D(table.data(), width, s[block + p]);
        for (int c = 0; c < 4; ++c) {
          ASSERT_NEAR(texels[4 * p + c], expected[c], tolerance)
              << "width " << width << " s " << s[block + p] << " channel " << c;
        }
      }
    }
  }
}

TEST_P(SamplerTest, Trilinear3DFollowsTheModel) {
  struct SExtent {
    uint32_t width, height, depth;
  };
  std::mt19937 rng(12);
  for (SExtent e : {SExtent{2, 2, 2}, SExtent{3, 3, 3}, SExtent{5, 3, 7}, SExtent{2, 9, 4},
                    SExtent{17, 17, 17}, SExtent{33, 33, 33}, SExtent{65, 65, 65}}) {
    const std::vector<float> table = RandomTable(size_t(e.width) * e.height * e.depth, rng);
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(2, e.width, e.height, e.depth, kTexture3D, 4, table.data(), false));
    const double tolerance = ModelTolerance(table.data(), e.width, e.height, e.depth);
    // Each axis runs through its own edge list and random values, shifted against the others so
    // that edges of one axis meet random values of another.
    const std::vector<float> s = WithRandom(EdgeCoordinates(e.width), 600, rng);
    std::vector<float> t = WithRandom(EdgeCoordinates(e.height), 600, rng);
    std::vector<float> r = WithRandom(EdgeCoordinates(e.depth), 600, rng);
    t.resize(s.size(), 0.5f);
    r.resize(s.size(), 0.5f);
    std::rotate(t.begin(), t.begin() + 5, t.end());
    std::rotate(r.begin(), r.begin() + 11, r.end());
    for (size_t block = 0; block < s.size(); block += kSamplerLanes) {
      float texels[4 * kSamplerLanes];
      Kernels().sample3D(units.Unit(2), &s[block], &t[block], &r[block], texels);
      for (size_t p = 0; p < kSamplerLanes; ++p) {
        const size_t q = block + p;
        const Rgba expected =
            ModelSample3D(table.data(), e.width, e.height, e.depth, s[q], t[q], r[q]);
        for (int c = 0; c < 4; ++c) {
          ASSERT_NEAR(texels[4 * p + c], expected[c], tolerance)
              << e.width << "x" << e.height << "x" << e.depth << " at (" << s[q] << ", " << t[q]
              << ", " << r[q] << ") channel " << c;
        }
      }
    }
  }
}

// At or below the first centre: exactly the first entry. Beyond the last centre: 0.99 of the
// last entry and 0.01 of the one before, the same bits wherever the coordinate lies.
TEST_P(SamplerTest, EndsOfTheTable) {
  std::mt19937 rng(13);
  for (uint32_t n : {2u, 3u, 33u, 256u}) {
    const std::vector<float> table = RandomTable(n, rng);
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(1, n, 1, 1, kTexture1D, 4, table.data(), false));
    const float below[8] = {-kInf, -1e30f, -1.0f, -0.0f, 0.0f, 0.2f / n, 0.45f / n, kNaN};
    const float beyond[8] = {(n - 0.45f) / n, (n - 0.2f) / n, 1.0f, 1.01f, 2.0f, 1e30f, kInf, 1.5f};
    float low[32], high[32];
    Kernels().sample1D(units.Unit(1), below, low);
    Kernels().sample1D(units.Unit(1), beyond, high);
    for (int p = 0; p < 8; ++p) {
      for (int c = 0; c < 4; ++c) {
        EXPECT_TRUE(SameBits(low[4 * p + c], table[c])) << "n " << n << " s " << below[p];
        EXPECT_TRUE(SameBits(high[4 * p + c], high[c])) << "n " << n << " s " << beyond[p];
        const double mix = 0.01 * table[4 * (n - 2) + c] + 0.99 * table[4 * (n - 1) + c];
        EXPECT_NEAR(high[4 * p + c], mix, 4e-6 * n) << "n " << n << " s " << beyond[p];
      }
    }
    // Exact centres give their own entry, up to the rounding of the coordinate.
    float centres[8], texels[32];
    const uint32_t picks[8] = {0, 1, n / 3, n / 2, n - 2, n - 2, n - 1, 0};
    for (int p = 0; p < 8; ++p)
      centres[p] = (picks[p] + 0.5f) / n;
    Kernels().sample1D(units.Unit(1), centres, texels);
    for (int p = 0; p < 8; ++p) {
      for (int c = 0; c < 3; ++c) {
        const double expected = picks[p] == n - 1
                                    ? 0.01 * table[4 * (n - 2) + c] + 0.99 * table[4 * (n - 1) + c]
                                    : table[4 * picks[p] + c];
        EXPECT_NEAR(texels[4 * p + c], expected, 4e-6 * n) << "n " << n << " centre " << picks[p];
      }
    }
  }
}

// The programs' pixels, lane for lane, equal the samplers' answers at the mapped coordinates;
// alpha is the source's; nothing beyond the last pixel is touched; in place gives the same.
TEST_P(SamplerTest, ProgramsAgreeWithTheSamplersForEveryTail) {
  std::mt19937 rng(14);
  const uint32_t curveSize = 37, cubeSize = 9, shaperSize = 21;
  const std::vector<float> curve = RandomTable(curveSize, rng);
  const std::vector<float> cube = RandomTable(cubeSize * cubeSize * cubeSize, rng);
  std::vector<float> shaper = RandomTable(shaperSize, rng, 0.0f, 1.0f);
  COvCPUTextureUnits units;
  ASSERT_TRUE(units.bUpload(1, curveSize, 1, 1, kTexture1D, 4, curve.data(), false));
  ASSERT_TRUE(units.bUpload(2, cubeSize, cubeSize, cubeSize, kTexture3D, 4, cube.data(), false));
  ASSERT_TRUE(
      units.bUpload(3, shaperSize, shaperSize, shaperSize, kTexture3D, 4, shaper.data(), false));
  SLUTDomainMapping mapping;
  for (int c = 0; c < 4; ++c) {
    mapping.scale[c] = 0.9f + 0.05f * c;
    mapping.offset[c] = 0.02f * c - 0.01f;
  }
  const SCPUKernelTable& k = Kernels();
  std::uniform_real_distribution<float> value(-0.2f, 1.2f);

  for (size_t count = 1; count <= 19; ++count) {
    std::vector<float> source(4 * count);
    for (float& v : source)
      v = value(rng);
    source[0] = kNaN;  // a NaN colour must land on the first entry; a NaN alpha passes through
    if (count > 2) source[4 * 2 + 3] = kNaN;
    if (count > 3) source[4 * 3 + 1] = kInf;

    // What the samplers say, pixel by pixel.
    std::vector<float> mapped[3], want1D(4 * count), want3D(4 * count), want1D3D(4 * count);
    for (int c = 0; c < 3; ++c) {
      for (size_t p = 0; p < count; ++p) {
        mapped[c].push_back(source[4 * p + c] * mapping.scale[c] + mapping.offset[c]);
      }
      mapped[c].resize((count + 7) / 8 * 8, 0.0f);
    }
    for (size_t block = 0; block < count; block += 8) {
      float curveOut[3][32], shaped[3][32], cubeOut[32], shapedPlanes[3][8], cube1D3D[32];
      for (int c = 0; c < 3; ++c) {
        k.sample1D(units.Unit(1), &mapped[c][block], curveOut[c]);
        k.sample1D(units.Unit(3), &mapped[c][block], shaped[c]);
        for (int p = 0; p < 8; ++p)
          shapedPlanes[c][p] = shaped[c][4 * p + c];
      }
      k.sample3D(units.Unit(2), &mapped[0][block], &mapped[1][block], &mapped[2][block], cubeOut);
      k.sample3D(units.Unit(2), shapedPlanes[0], shapedPlanes[1], shapedPlanes[2], cube1D3D);
      for (size_t p = block; p < std::min(count, block + 8); ++p) {
        const size_t q = p - block;
        for (int c = 0; c < 3; ++c) {
          want1D[4 * p + c] = curveOut[c][4 * q + c];
          want3D[4 * p + c] = cubeOut[4 * q + c];
          want1D3D[4 * p + c] = cube1D3D[4 * q + c];
        }
        want1D[4 * p + 3] = want3D[4 * p + 3] = want1D3D[4 * p + 3] = source[4 * p + 3];
      }
    }

    auto check = [&](const char* name, const std::vector<float>& want, auto&& run) {
      constexpr float kGuard = -12345.0f;
      std::vector<float> out(4 * (count + 3), kGuard);
      run(source.data(), out.data());
      std::vector<float> inPlace = source;
      run(inPlace.data(), inPlace.data());
      for (size_t i = 0; i < 4 * count; ++i) {
        ASSERT_TRUE(SameBits(out[i], want[i]))
            << name << " count " << count << " float " << i << ": " << out[i] << " vs " << want[i];
        ASSERT_TRUE(SameBits(inPlace[i], want[i])) << name << " in place, count " << count;
      }
      for (size_t i = 4 * count; i < out.size(); ++i)
        ASSERT_EQ(out[i], kGuard) << name;
    };
    check("1-D", want1D, [&](const float* in, float* out) {
      k.applyLUT1D(units.Unit(1), mapping, in, out, count);
    });
    check("3-D", want3D, [&](const float* in, float* out) {
      k.applyLUT3D(units.Unit(2), mapping, in, out, count);
    });
    check("1-D + 3-D", want1D3D, [&](const float* in, float* out) {
      k.applyLUT1D3D(units.Unit(3), units.Unit(2), mapping, in, out, count);
    });
  }
}

TEST_P(SamplerTest, PixelKernelsForEveryTail) {
  std::mt19937 rng(15);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  const SCPUKernelTable& k = Kernels();
  for (size_t count = 0; count <= 19; ++count) {
    std::vector<float> first(4 * (count + 2)), second(4 * (count + 2));
    for (float& v : first)
      v = value(rng);
    for (float& v : second)
      v = value(rng);
    const float weight = value(rng);
    std::vector<float> mixed = first;
    k.mix(mixed.data(), second.data(), weight, count);
    std::vector<float> swapped = first;
    k.swapRedBlue(swapped.data(), count);
    for (size_t p = 0; p < count + 2; ++p) {
      for (int c = 0; c < 4; ++c) {
        const size_t i = 4 * p + c;
        if (p >= count) {
          ASSERT_EQ(mixed[i], first[i]) << "mix wrote past " << count;
          ASSERT_EQ(swapped[i], first[i]) << "swap wrote past " << count;
          continue;
        }
        const double expected =
            c == 3 ? first[i] : (double(first[i]) - second[i]) * weight + second[i];
        ASSERT_NEAR(mixed[i], expected, 3e-7 * 8) << "pixel " << p << " channel " << c;
        const size_t from = 4 * p + (c == 0 ? 2 : c == 2 ? 0 : c);
        ASSERT_EQ(swapped[i], first[from]) << "pixel " << p << " channel " << c;
      }
    }
  }
  for (size_t bytes : {0u, 1u, 15u, 16u, 63u, 64u, 65u, 127u, 128u, 129u, 1000u}) {
    std::vector<uint8_t> from(bytes + 8), to(bytes + 8, 0xAB);
    for (size_t i = 0; i < from.size(); ++i)
      from[i] = static_cast<uint8_t>(i * 7 + 1);
    k.copyBlock(to.data(), from.data(), bytes);
    for (size_t i = 0; i < to.size(); ++i)
      ASSERT_EQ(to[i], i < bytes ? from[i] : 0xAB) << bytes;
    std::vector<uint32_t> words(bytes + 3, 7u);
    k.fill32(words.data(), 0xDEADBEEF, bytes);
    for (size_t i = 0; i < words.size(); ++i)
      ASSERT_EQ(words[i], i < bytes ? 0xDEADBEEF : 7u);
  }
}

// Inside its domain an identity cube gives its input back; only the top 1% of the last cell,
// where the 1.01 clamp holds x below the last texel, stays behind the input.
TEST_P(SamplerTest, IdentityCubesOfEverySizeReproduceTheirInput) {
  std::mt19937 rng(16);
  for (uint32_t n = 2; n <= 65; ++n) {
    Tincta::COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(n, true));
    float* entry = lut.Table();
    for (uint32_t b = 0; b < n; ++b) {
      for (uint32_t g = 0; g < n; ++g) {
        for (uint32_t r = 0; r < n; ++r) {
          *entry++ = float(r) / float(n - 1);
          *entry++ = float(g) / float(n - 1);
          *entry++ = float(b) / float(n - 1);
          *entry++ = 1.0f;
        }
      }
    }
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(1, n, n, n, kTexture3D, 4, lut.Table(), false));
    SLUTDomainMapping mapping;
    for (int c = 0; c < 4; ++c) {
      mapping.scale[c] = lut.TextureScale()[c];
      mapping.offset[c] = lut.TextureOffset()[c];
    }
    const float top = float((n - 1.01) / (n - 1));
    std::uniform_real_distribution<float> value(0.0f, top);
    std::vector<float> pixels;
    for (uint32_t i = 0; i + 1 < n; ++i) {
      const float node = float(i) / float(n - 1);
      pixels.insert(pixels.end(), {node, top - node * 0.5f, node * 0.5f, 0.25f});
    }
    for (int i = 0; i < 200; ++i)
      pixels.insert(pixels.end(), {value(rng), value(rng), value(rng), 1});
    pixels.insert(pixels.end(), {top, 0, top, 1});
    std::vector<float> out(pixels.size());
    Kernels().applyLUT3D(units.Unit(1), mapping, pixels.data(), out.data(), pixels.size() / 4);
    for (size_t i = 0; i < pixels.size(); ++i) {
      ASSERT_NEAR(out[i], pixels[i], 1e-5) << "size " << n << " float " << i;
    }
    const float corner[4] = {1, 1, 1, 1};
    float cornerOut[4];
    Kernels().applyLUT3D(units.Unit(1), mapping, corner, cornerOut, 1);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(cornerOut[c], top, 1e-5) << "size " << n;
  }
}

// Trilinear and linear interpolation reproduce affine functions exactly, so a table sampled from
// one over an unusual domain must give the function's own value: an answer computed without any
// of the sampler's formulas.
TEST_P(SamplerTest, AffineTablesOverOtherDomainsGiveTheFunction) {
  std::mt19937 rng(17);
  const Tincta::Vec4 min{-0.25f, 0.0f, 0.1f, 0.0f}, max{1.5f, 4.0f, 0.9f, 1.0f};
  const double m[3][3] = {{0.8, 0.15, -0.05}, {-0.1, 0.3, 0.2}, {0.05, -0.2, 1.1}};
  const double shift[3] = {0.02, -0.1, 0.3};
  auto affine = [&](const double v[3], int row) {
    return m[row][0] * v[0] + m[row][1] * v[1] + m[row][2] * v[2] + shift[row];
  };
  for (uint32_t n : {2u, 5u, 33u}) {
    Tincta::COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(n, true));
    lut.SetDomain(min, max);
    float* entry = lut.Table();
    for (uint32_t b = 0; b < n; ++b) {
      for (uint32_t g = 0; g < n; ++g) {
        for (uint32_t r = 0; r < n; ++r) {
          const uint32_t idx[3] = {r, g, b};
          double node[3];
          for (int c = 0; c < 3; ++c)
            node[c] = min[c] + (max[c] - min[c]) * idx[c] / (n - 1);
          for (int c = 0; c < 3; ++c)
            *entry++ = static_cast<float>(affine(node, c));
          *entry++ = 1.0f;
        }
      }
    }
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(1, n, n, n, kTexture3D, 4, lut.Table(), false));
    SLUTDomainMapping mapping;
    for (int c = 0; c < 4; ++c) {
      mapping.scale[c] = lut.TextureScale()[c];
      mapping.offset[c] = lut.TextureOffset()[c];
    }
    std::vector<float> pixels;
    for (int i = 0; i < 300; ++i) {
      for (int c = 0; c < 3; ++c) {
        const double reach = (max[c] - min[c]) * (n - 1.01) / (n - 1);
        pixels.push_back(
            static_cast<float>(min[c] + reach * std::uniform_real_distribution<double>(0, 1)(rng)));
      }
      pixels.push_back(0.5f);
    }
    std::vector<float> out(pixels.size());
    Kernels().applyLUT3D(units.Unit(1), mapping, pixels.data(), out.data(), pixels.size() / 4);
    for (size_t p = 0; p < pixels.size() / 4; ++p) {
      const double v[3] = {pixels[4 * p], pixels[4 * p + 1], pixels[4 * p + 2]};
      for (int c = 0; c < 3; ++c) {
        ASSERT_NEAR(out[4 * p + c], affine(v, c), 1e-5) << "size " << n << " pixel " << p;
      }
      ASSERT_EQ(out[4 * p + 3], 0.5f);
    }
  }
}

// A 1-D curve over a domain, and a shaper in front of a cube (shaper entries already in the
// cube's texel-centre coordinates), against interpolation computed from the curve's own knots.
TEST_P(SamplerTest, CurvesAndShapedCubesGiveTheInterpolatedFunction) {
  std::mt19937 rng(18);
  auto curve = [](double u, int c) { return std::pow(u, 0.6 + 0.4 * c); };
  // Piecewise linear through the curve's knots at u = i / (size - 1).
  auto knotsAt = [&](double u, uint32_t size, int c) {
    const double t = u * (size - 1);
    const auto i = std::min<uint32_t>(static_cast<uint32_t>(t), size - 2);
    const double a = curve(double(i) / (size - 1), c), b = curve(double(i + 1) / (size - 1), c);
    return a + (b - a) * (t - i);
  };
  const Tincta::Vec4 min{-1.0f, 0.5f, 0.0f, 0.0f}, max{3.0f, 1.5f, 2.0f, 1.0f};

  for (uint32_t size : {2u, 128u, 4096u}) {
    Tincta::COv3DLUT lut;
    ASSERT_TRUE(lut.Allocate(size, false));
    lut.SetDomain(min, max);
    for (uint32_t i = 0; i < size; ++i) {
      for (int c = 0; c < 3; ++c)
        lut.Table()[4 * i + c] = float(curve(double(i) / (size - 1), c));
      lut.Table()[4 * i + 3] = 1.0f;
    }
    COvCPUTextureUnits units;
    ASSERT_TRUE(units.bUpload(1, size, size, size, kTexture1D, 4, lut.Table(), false));
    SLUTDomainMapping mapping;
    for (int c = 0; c < 4; ++c) {
      mapping.scale[c] = lut.TextureScale()[c];
      mapping.offset[c] = lut.TextureOffset()[c];
    }
    std::vector<float> pixels;
    for (int i = 0; i < 300; ++i) {
      for (int c = 0; c < 3; ++c) {
        const double reach = (size - 1.01) / (size - 1);
        pixels.push_back(float(min[c] + (max[c] - min[c]) * reach *
                                            std::uniform_real_distribution<double>(0, 1)(rng)));
      }
      pixels.push_back(0.75f);
    }
    std::vector<float> out(pixels.size());
    Kernels().applyLUT1D(units.Unit(1), mapping, pixels.data(), out.data(), pixels.size() / 4);
    for (size_t p = 0; p < pixels.size() / 4; ++p) {
      for (int c = 0; c < 3; ++c) {
        const double u = (pixels[4 * p + c] - min[c]) / (max[c] - min[c]);
        ASSERT_NEAR(out[4 * p + c], knotsAt(u, size, c), 2e-5) << "size " << size;
      }
    }
  }

  // Shaper of L entries holding curve(u) in cube coordinates, then an affine cube of N points.
  const uint32_t shaperSize = 64, n = 17;
  std::vector<float> shaper(4 * shaperSize), cube(4 * n * n * n);
  for (uint32_t i = 0; i < shaperSize; ++i) {
    for (int c = 0; c < 3; ++c) {
      shaper[4 * i + c] = float(curve(double(i) / (shaperSize - 1), c) * (1.0 - 1.0 / n) + 0.5 / n);
    }
    shaper[4 * i + 3] = 1.0f;
  }
  for (uint32_t b = 0, e = 0; b < n; ++b) {
    for (uint32_t g = 0; g < n; ++g) {
      for (uint32_t r = 0; r < n; ++r, ++e) {
        const double u[3] = {double(r) / (n - 1), double(g) / (n - 1), double(b) / (n - 1)};
        cube[4 * e] = float(0.5 * u[0] + 0.25 * u[2]);
        cube[4 * e + 1] = float(u[1] - 0.125 * u[0]);
        cube[4 * e + 2] = float(2.0 * u[2] + 0.1);
        cube[4 * e + 3] = 1.0f;
      }
    }
  }
  COvCPUTextureUnits units;
  ASSERT_TRUE(
      units.bUpload(1, shaperSize, shaperSize, shaperSize, kTexture3D, 4, shaper.data(), false));
  ASSERT_TRUE(units.bUpload(2, n, n, n, kTexture3D, 4, cube.data(), false));
  SLUTDomainMapping mapping;  // the shaper's domain 0..1
  for (int c = 0; c < 4; ++c) {
    mapping.scale[c] = float(1.0 - 1.0 / shaperSize);
    mapping.offset[c] = float(0.5 / shaperSize);
  }
  // Stay where neither clamp bites: shaper input below its last 1%, shaper output below the
  // cube's.
  const double cubeReach = (n - 1.01) / (n - 1);
  std::vector<float> pixels;
  while (pixels.size() < 4 * 300) {
    float v[3];
    bool inside = true;
    for (int c = 0; c < 3; ++c) {
      v[c] = float(
          std::uniform_real_distribution<double>(0, (shaperSize - 1.01) / (shaperSize - 1))(rng));
      inside = inside && knotsAt(v[c], shaperSize, c) < cubeReach;
    }
    if (inside) pixels.insert(pixels.end(), {v[0], v[1], v[2], 0.125f});
  }
  std::vector<float> out(pixels.size());
  Kernels().applyLUT1D3D(units.Unit(1), units.Unit(2), mapping, pixels.data(), out.data(),
                         pixels.size() / 4);
  for (size_t p = 0; p < pixels.size() / 4; ++p) {
    double u[3];
    for (int c = 0; c < 3; ++c)
      u[c] = knotsAt(pixels[4 * p + c], shaperSize, c);
    EXPECT_NEAR(out[4 * p], 0.5 * u[0] + 0.25 * u[2], 2e-5);
    EXPECT_NEAR(out[4 * p + 1], u[1] - 0.125 * u[0], 2e-5);
    EXPECT_NEAR(out[4 * p + 2], 2.0 * u[2] + 0.1, 4e-5);
    EXPECT_EQ(out[4 * p + 3], 0.125f);
  }
}

INSTANTIATE_TEST_SUITE_P(Tiers, SamplerTest, testing::Values(ETier::SSE, ETier::AVX2), TierName);

// The two tables compute the same formulas; the fused a + (b - a) x f of the 256-bit table is the
// only difference allowed. One interpolation may move a result by at most 1 ulp of the magnitude
// of the values interpolated (the unfused form rounds three times, the fused once); the test
// allows 2. Trilinear sampling chains three levels of interpolation whose differences add up to
// at most 3 such ulps. Counted in ulps of the result itself, a small result interpolated between
// large entries can be much further apart, since its ulp is finer than the roundings in which
// the two tables differ; that count is only reported.
TEST(KernelTiers, AgreeUpToTheFusedInterpolation) {
  if (!TierRunsHere(ETier::AVX2)) GTEST_SKIP() << "this processor has no AVX2 + FMA";
  const SCPUKernelTable& sse = Tincta::CPUKernelsSSE();
  const SCPUKernelTable& avx2 = Tincta::CPUKernelsAVX2();
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
  std::vector<float> source(4 * pixels);
  std::uniform_real_distribution<float> value(-0.05f, 1.05f);
  for (float& v : source)
    v = value(rng);

  // ulp of the operands' magnitude: the table entries and mixed values lie below 1.05.
  const double operandUlp = std::ldexp(1.0, -23);
  int64_t worstResultUlps = 0;
  double worstOperandUlps = 0;
  auto compare = [&](const char* name, double bound, auto&& run) {
    std::vector<float> a(source.size()), b(source.size());
    run(sse, a.data());
    run(avx2, b.data());
    for (size_t i = 0; i < a.size(); ++i) {
      const double apart = std::fabs(double(a[i]) - b[i]);
      const double scale = std::max({double(std::fabs(a[i])), std::fabs(double(b[i])), 1.0});
      const double ulps = apart / (operandUlp * std::exp2(std::floor(std::log2(scale))));
      worstResultUlps = std::max(worstResultUlps, UlpDistance(a[i], b[i]));
      worstOperandUlps = std::max(worstOperandUlps, ulps);
      ASSERT_LE(ulps, bound) << name << " float " << i << ": " << a[i] << " vs " << b[i];
    }
  };
  compare("3-D", 3.0, [&](const SCPUKernelTable& k, float* out) {
    k.applyLUT3D(units.Unit(2), mapping, source.data(), out, pixels);
  });
  compare("1-D", 2.0, [&](const SCPUKernelTable& k, float* out) {
    k.applyLUT1D(units.Unit(1), mapping, source.data(), out, pixels);
  });
  compare("sample3D", 3.0, [&](const SCPUKernelTable& k, float* out) {
    for (size_t p = 0; p + 24 <= source.size(); p += 32) {
      k.sample3D(units.Unit(2), &source[p], &source[p + 8], &source[p + 16], &out[p]);
    }
  });
  compare("sample1D", 2.0, [&](const SCPUKernelTable& k, float* out) {
    for (size_t p = 0; p < pixels; p += 8)
      k.sample1D(units.Unit(1), &source[p], &out[4 * p]);
  });
  compare("mix", 2.0, [&](const SCPUKernelTable& k, float* out) {
    std::copy(source.begin(), source.end(), out);
    k.mix(out, cube.data(), 0.37f, std::min(pixels, cube.size() / 4));
  });
  RecordProperty("worst_operand_ulps", std::to_string(worstOperandUlps));
  RecordProperty("worst_result_ulps", static_cast<int>(worstResultUlps));
  std::printf("tiers apart by at most %.3f ulp of the operands (%lld ulp of a result)\n",
              worstOperandUlps, static_cast<long long>(worstResultUlps));
}

TEST(KernelTiers, OneTableIsChosenForTheProcess) {
  const SCPUKernelTable& active = Tincta::ActiveCPUKernels();
  EXPECT_EQ(&active, &Tincta::ActiveCPUKernels());
  EXPECT_STREQ(active.name, Tincta::KernelTierName(Tincta::ProcessorFeatures()));
  const char* isa = std::getenv("CRANDLE_CPU_ISA");
  if (isa != nullptr && std::strcmp(isa, "sse") == 0) {
    EXPECT_STREQ(active.name, "sse");
  }
}

}  // namespace
}  // namespace crandle_test
