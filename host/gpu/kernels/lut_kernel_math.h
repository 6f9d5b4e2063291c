/* The per-pixel formulas of the LUT kernels, written once in plain C so that OpenCL C, CUDA and
   host C++ compile the very same lines; the host tests run them against a double-precision model.

   Frames hold blue, green, red, alpha. Tables hold red, green, blue, alpha entries of 16 bytes;
   a 3-D entry (r, g, b) sits at row g of slice b, column r. The constant block is row 0 the
   domain scale and row 1 the domain offset, both in blue, green, red, alpha order, and, for the
   tetrahedral kernels only, row 2 the cube's edge length as four floats.

   Edges: a table coordinate s in texture space becomes x = s * n - 0.5 clamped to [0, n - 1], so
   that s at or beyond the last texel centre reads the last entry exactly, as a texture with
   texel-centre addressing does (NaN reads the first entry). Interpolation is in 32-bit float. */
#ifndef CRANDLE_GPU_LUT_KERNEL_MATH_H
#define CRANDLE_GPU_LUT_KERNEL_MATH_H

/* Kernel sources include kernel_abi.h first: OpenCL sources are embedded with their includes
   inlined, and a guarded include is then never opened at run time. */
#ifndef CRANDLE_GPU_KERNEL_ABI_H
#include "kernel_abi.h"
#endif

/* The thread's pixel: x = global index 0, y = global index 1. */
#if defined(__OPENCL_VERSION__) || defined(__OPENCL_C_VERSION__)
#define CRANDLE_LUT_THREAD_X ((crandle_uint)get_global_id(0))
#define CRANDLE_LUT_THREAD_Y ((crandle_uint)get_global_id(1))
#elif defined(__CUDACC__)
#define CRANDLE_LUT_THREAD_X (blockIdx.x * blockDim.x + threadIdx.x)
#define CRANDLE_LUT_THREAD_Y (blockIdx.y * blockDim.y + threadIdx.y)
#endif

/* Four floats: a frame pixel in blue, green, red, alpha order, or a table entry in red, green,
   blue, alpha order; the comments of each function say which. */
typedef struct {
  float v0, v1, v2, v3;
} crandle_lut_vec4;

/* One axis of a lookup: the two neighbouring entries and the weight of the second. */
typedef struct {
  crandle_uint low, high;
  float fraction;
} crandle_lut_axis;

/* Where the domain value v lands in texture space. */
CRANDLE_DEVICE_FUNCTION float crandle_lut_map_domain(float v, float scale, float offset) {
  return v * scale + offset;
}

/* The texel-centre coordinate of s on an axis of n entries, clamped to [0, n - 1]. */
CRANDLE_DEVICE_FUNCTION crandle_lut_axis crandle_lut_axis_of(float s, crandle_uint n) {
  crandle_lut_axis axis;
  float x = s * (float)n - 0.5f;
  const float last = (float)(n > 0u ? n - 1u : 0u);
  /* The domain's ends land within a few roundings of s (2^-21, scaled to the axis) of the first
     and last texel centres; they snap there, so that they read those entries exactly. Written
     as comparisons so that NaN and negatives land on 0 in every compiler. */
  const float snap = (float)n * 4.76837158203125e-7f;
  x = x > snap ? x : 0.0f;
  x = x < last - snap ? x : last;
  /* x is in [0, n - 1], so the signed conversions are exact; CPU devices have no unsigned ones. */
  const int low = (int)x;
  axis.low = (crandle_uint)low;
  axis.high = axis.low + 1u < n ? axis.low + 1u : axis.low;
  axis.fraction = x - (float)low;
  return axis;
}

CRANDLE_DEVICE_FUNCTION float crandle_lut_lerp(float a, float b, float f) {
  return a + (b - a) * f;
}

CRANDLE_DEVICE_FUNCTION crandle_lut_vec4 crandle_lut_lerp4(crandle_lut_vec4 a, crandle_lut_vec4 b,
                                                           float f) {
  crandle_lut_vec4 out;
  out.v0 = crandle_lut_lerp(a.v0, b.v0, f);
  out.v1 = crandle_lut_lerp(a.v1, b.v1, f);
  out.v2 = crandle_lut_lerp(a.v2, b.v2, f);
  out.v3 = crandle_lut_lerp(a.v3, b.v3, f);
  return out;
}

/* The entry `offset` bytes into a table (red, green, blue, alpha). */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4
crandle_lut_entry_at(CRANDLE_GLOBAL const crandle_uchar* table, unsigned long offset) {
  CRANDLE_GLOBAL const float* e = (CRANDLE_GLOBAL const float*)(table + offset);
  crandle_lut_vec4 out;
  out.v0 = e[0];
  out.v1 = e[1];
  out.v2 = e[2];
  out.v3 = e[3];
  return out;
}

/* The table entry at column x, row y, slice z (red, green, blue, alpha). */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4
crandle_lut_entry(CRANDLE_GLOBAL const crandle_uchar* table, crandle_uint rowBytes,
                  crandle_uint height, crandle_uint x, crandle_uint y, crandle_uint z) {
  return crandle_lut_entry_at(table,
                              ((unsigned long)z * height + y) * rowBytes + (unsigned long)x * 16u);
}

/* Component c (0 red, 1 green, 2 blue) of a 1-D table at coordinate s: each channel has its own
   curve. */
CRANDLE_DEVICE_FUNCTION float crandle_lut_curve(CRANDLE_GLOBAL const crandle_uchar* table,
                                                crandle_uint width, float s, int c) {
  const crandle_lut_axis a = crandle_lut_axis_of(s, width);
  CRANDLE_GLOBAL const float* low = (CRANDLE_GLOBAL const float*)(table + a.low * 16u);
  CRANDLE_GLOBAL const float* high = (CRANDLE_GLOBAL const float*)(table + a.high * 16u);
  return crandle_lut_lerp(low[c], high[c], a.fraction);
}

/* A 1-D table per channel at texture coordinates (red, green, blue); returns red, green, blue
   in v0..v2 (v3 unused). */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4 crandle_lut_1d(CRANDLE_GLOBAL const crandle_uchar* table,
                                                        crandle_uint width, float sRed,
                                                        float sGreen, float sBlue) {
  crandle_lut_vec4 out;
  out.v0 = crandle_lut_curve(table, width, sRed, 0);
  out.v1 = crandle_lut_curve(table, width, sGreen, 1);
  out.v2 = crandle_lut_curve(table, width, sBlue, 2);
  out.v3 = 1.0f;
  return out;
}

/* A cube of n entries per axis, trilinear at texture coordinates (red, green, blue): the lerps
   run along red, then green, then blue. */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4
crandle_lut_trilinear(CRANDLE_GLOBAL const crandle_uchar* table, crandle_uint rowBytes,
                      crandle_uint n, float sRed, float sGreen, float sBlue) {
  const crandle_lut_axis r = crandle_lut_axis_of(sRed, n);
  const crandle_lut_axis g = crandle_lut_axis_of(sGreen, n);
  const crandle_lut_axis b = crandle_lut_axis_of(sBlue, n);
  const crandle_lut_vec4 c00 =
      crandle_lut_lerp4(crandle_lut_entry(table, rowBytes, n, r.low, g.low, b.low),
                        crandle_lut_entry(table, rowBytes, n, r.high, g.low, b.low), r.fraction);
  const crandle_lut_vec4 c10 =
      crandle_lut_lerp4(crandle_lut_entry(table, rowBytes, n, r.low, g.high, b.low),
                        crandle_lut_entry(table, rowBytes, n, r.high, g.high, b.low), r.fraction);
  const crandle_lut_vec4 c01 =
      crandle_lut_lerp4(crandle_lut_entry(table, rowBytes, n, r.low, g.low, b.high),
                        crandle_lut_entry(table, rowBytes, n, r.high, g.low, b.high), r.fraction);
  const crandle_lut_vec4 c11 =
      crandle_lut_lerp4(crandle_lut_entry(table, rowBytes, n, r.low, g.high, b.high),
                        crandle_lut_entry(table, rowBytes, n, r.high, g.high, b.high), r.fraction);
  return crandle_lut_lerp4(crandle_lut_lerp4(c00, c10, g.fraction),
                           crandle_lut_lerp4(c01, c11, g.fraction), b.fraction);
}

/* w0 * a + w1 * b + w2 * c + w3 * d per component. */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4 crandle_lut_blend4(float w0, crandle_lut_vec4 a, float w1,
                                                            crandle_lut_vec4 b, float w2,
                                                            crandle_lut_vec4 c, float w3,
                                                            crandle_lut_vec4 d) {
  crandle_lut_vec4 out;
  out.v0 = w0 * a.v0 + w1 * b.v0 + w2 * c.v0 + w3 * d.v0;
  out.v1 = w0 * a.v1 + w1 * b.v1 + w2 * c.v1 + w3 * d.v1;
  out.v2 = w0 * a.v2 + w1 * b.v2 + w2 * c.v2 + w3 * d.v2;
  out.v3 = w0 * a.v3 + w1 * b.v3 + w2 * c.v3 + w3 * d.v3;
  return out;
}

/* A cube of n entries per axis, tetrahedral at texture coordinates (red, green, blue): the cell
   is cut along its main diagonal into six tetrahedra, and the point's one is the walk from the
   cell's first corner to its last along the axes in decreasing order of their fractions f1 >= f2
   >= f3, with weights 1 - f1, f1 - f2, f2 - f3 and f3.
   Neighbouring pixels of a grainy picture fall in different tetrahedra at random, so the walk is
   found without branches (a mispredicted branch per pixel costs a CPU device more than the whole
   lookup, and divergence costs a GPU): the fractions are sorted with min and max, the two inner
   corners are byte offsets picked by selects, and only the four corners used are read. Ties give
   the same value whichever order they take (the corner between equal fractions has weight 0), so
   the axes of the largest and of the smallest fraction are picked independently. */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4
crandle_lut_tetrahedral(CRANDLE_GLOBAL const crandle_uchar* table, crandle_uint rowBytes,
                        crandle_uint n, float sRed, float sGreen, float sBlue) {
  const crandle_lut_axis r = crandle_lut_axis_of(sRed, n);
  const crandle_lut_axis g = crandle_lut_axis_of(sGreen, n);
  const crandle_lut_axis b = crandle_lut_axis_of(sBlue, n);
  const float fr = r.fraction, fg = g.fraction, fb = b.fraction;
  const unsigned long slice = (unsigned long)n * rowBytes;
  /* The cell's first corner, and the byte step to the upper neighbour on each axis (0 where an
     axis is clamped at its end); the walk's other corners are offsets from the first. */
  const unsigned long cell =
      (unsigned long)b.low * slice + (unsigned long)g.low * rowBytes + (unsigned long)r.low * 16u;
  const unsigned long stepRed = (unsigned long)(r.high - r.low) * 16u;
  const unsigned long stepGreen = (unsigned long)(g.high - g.low) * rowBytes;
  const unsigned long stepBlue = (unsigned long)(b.high - b.low) * slice;
  const unsigned long three = stepRed + stepGreen + stepBlue;
  const float gbMax = fg > fb ? fg : fb, gbMin = fg < fb ? fg : fb;
  const unsigned long one = fr >= gbMax ? stepRed : (fg >= fb ? stepGreen : stepBlue);
  const unsigned long two = three - (fr <= gbMin ? stepRed : (fg <= fb ? stepGreen : stepBlue));
  const float f1 = fr > gbMax ? fr : gbMax;
  const float f3 = fr < gbMin ? fr : gbMin;
  const float f2 = fr > gbMax ? gbMax : (fr < gbMin ? gbMin : fr);
  return crandle_lut_blend4(1.0f - f1, crandle_lut_entry_at(table, cell), f1 - f2,
                            crandle_lut_entry_at(table, cell + one), f2 - f3,
                            crandle_lut_entry_at(table, cell + two), f3,
                            crandle_lut_entry_at(table, cell + three));
}

/* A frame pixel (blue, green, red, alpha) as floats: 8- and 16-bit samples map full scale to 1. */
CRANDLE_DEVICE_FUNCTION crandle_lut_vec4
crandle_lut_read_pixel(CRANDLE_GLOBAL const crandle_uchar* texels, crandle_uint rowBytes,
                       crandle_uint formatBits, crandle_uint x, crandle_uint y) {
  CRANDLE_GLOBAL const crandle_uchar* row = texels + (unsigned long)y * rowBytes;
  crandle_lut_vec4 p;
  if (formatBits == 8u) {
    CRANDLE_GLOBAL const crandle_uchar* s = row + (unsigned long)x * 4u;
    p.v0 = (float)s[0] / 255.0f;
    p.v1 = (float)s[1] / 255.0f;
    p.v2 = (float)s[2] / 255.0f;
    p.v3 = (float)s[3] / 255.0f;
  } else if (formatBits == 16u) {
    CRANDLE_GLOBAL const unsigned short* s =
        (CRANDLE_GLOBAL const unsigned short*)(row + (unsigned long)x * 8u);
    p.v0 = (float)s[0] / 65535.0f;
    p.v1 = (float)s[1] / 65535.0f;
    p.v2 = (float)s[2] / 65535.0f;
    p.v3 = (float)s[3] / 65535.0f;
  } else {
    CRANDLE_GLOBAL const float* s = (CRANDLE_GLOBAL const float*)(row + (unsigned long)x * 16u);
    p.v0 = s[0];
    p.v1 = s[1];
    p.v2 = s[2];
    p.v3 = s[3];
  }
  return p;
}

/* An integer sample of full scale `top` from a float: clamped to [0, 1] (NaN to 0), rounded half
   up, as the host's pixel conversion does. */
CRANDLE_DEVICE_FUNCTION crandle_uint crandle_lut_quantize(float v, float top) {
  float scaled = v * top + 0.5f;
  scaled = scaled > 0.0f ? scaled : 0.0f;
  scaled = scaled < top ? scaled : top;
  return (crandle_uint)scaled;
}

/* Writes a pixel (blue, green, red, alpha) at (x, y) of a frame whose rows are `pitch` pixels
   apart. */
CRANDLE_DEVICE_FUNCTION void crandle_lut_write_pixel(CRANDLE_GLOBAL crandle_uchar* destination,
                                                     crandle_uint pitch, crandle_uint formatBits,
                                                     crandle_uint x, crandle_uint y,
                                                     crandle_lut_vec4 p) {
  const unsigned long index = (unsigned long)y * pitch + x;
  if (formatBits == 8u) {
    CRANDLE_GLOBAL crandle_uchar* d = destination + index * 4u;
    d[0] = (crandle_uchar)crandle_lut_quantize(p.v0, 255.0f);
    d[1] = (crandle_uchar)crandle_lut_quantize(p.v1, 255.0f);
    d[2] = (crandle_uchar)crandle_lut_quantize(p.v2, 255.0f);
    d[3] = (crandle_uchar)crandle_lut_quantize(p.v3, 255.0f);
  } else if (formatBits == 16u) {
    CRANDLE_GLOBAL unsigned short* d = (CRANDLE_GLOBAL unsigned short*)(destination + index * 8u);
    d[0] = (unsigned short)crandle_lut_quantize(p.v0, 65535.0f);
    d[1] = (unsigned short)crandle_lut_quantize(p.v1, 65535.0f);
    d[2] = (unsigned short)crandle_lut_quantize(p.v2, 65535.0f);
    d[3] = (unsigned short)crandle_lut_quantize(p.v3, 65535.0f);
  } else {
    CRANDLE_GLOBAL float* d = (CRANDLE_GLOBAL float*)(destination + index * 16u);
    d[0] = p.v0;
    d[1] = p.v1;
    d[2] = p.v2;
    d[3] = p.v3;
  }
}

/* Which tables a LUT kernel reads and how it interpolates the cube. */
#define CRANDLE_LUT_1D 0
#define CRANDLE_LUT_3D 1
#define CRANDLE_LUT_1D3D 2

/* One pixel of a LUT kernel: reads the source pixel at (x, y), maps its blue, green and red
   through the domain rows of `constants`, runs the shaper (1D3D) and the table, keeps alpha and
   writes the destination pixel. `shaper` is the 1-D table of a 1D3D kernel and `table` the LUT's
   own (the curves of a 1-D LUT, or the cube). Trilinear cubes take their edge length from the
   table's width, tetrahedral ones from row 2 of the constants. */
CRANDLE_DEVICE_FUNCTION void crandle_lut_pixel(
    int kind, int tetrahedral, CRANDLE_GLOBAL const crandle_uchar* sourceTexels,
    crandle_uint sourceRowBytes, crandle_uint sourceFormat,
    CRANDLE_GLOBAL const crandle_uchar* shaper, crandle_uint shaperWidth,
    CRANDLE_GLOBAL const crandle_uchar* table, crandle_uint tableRowBytes, crandle_uint tableWidth,
    CRANDLE_GLOBAL const crandle_uchar* constantBytes, CRANDLE_GLOBAL crandle_uchar* destination,
    crandle_uint pitch, crandle_uint destinationFormat, crandle_uint x, crandle_uint y) {
  CRANDLE_GLOBAL const float* constants = (CRANDLE_GLOBAL const float*)constantBytes;
  const crandle_lut_vec4 p =
      crandle_lut_read_pixel(sourceTexels, sourceRowBytes, sourceFormat, x, y);
  /* Constants and pixels share the blue, green, red, alpha order. */
  float sBlue = crandle_lut_map_domain(p.v0, constants[0], constants[4]);
  float sGreen = crandle_lut_map_domain(p.v1, constants[1], constants[5]);
  float sRed = crandle_lut_map_domain(p.v2, constants[2], constants[6]);
  crandle_lut_vec4 rgb;
  if (kind == CRANDLE_LUT_1D) {
    rgb = crandle_lut_1d(table, tableWidth, sRed, sGreen, sBlue);
  } else {
    if (kind == CRANDLE_LUT_1D3D) {
      /* The shaper's outputs are the cube's texture coordinates. */
      const crandle_lut_vec4 shaped = crandle_lut_1d(shaper, shaperWidth, sRed, sGreen, sBlue);
      sRed = shaped.v0;
      sGreen = shaped.v1;
      sBlue = shaped.v2;
    }
    if (tetrahedral) {
      /* Never past the bound table, whatever the constants say. */
      crandle_uint n = (crandle_uint)constants[8];
      n = n < tableWidth ? n : tableWidth;
      n = n > 0u ? n : 1u;
      rgb = crandle_lut_tetrahedral(table, tableRowBytes, n, sRed, sGreen, sBlue);
    } else {
      rgb = crandle_lut_trilinear(table, tableRowBytes, tableWidth, sRed, sGreen, sBlue);
    }
  }
  crandle_lut_vec4 out;
  out.v0 = rgb.v2;
  out.v1 = rgb.v1;
  out.v2 = rgb.v0;
  out.v3 = p.v3;
  crandle_lut_write_pixel(destination, pitch, destinationFormat, x, y, out);
}

#endif
