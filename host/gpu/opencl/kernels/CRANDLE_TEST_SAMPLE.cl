/* The host tests' kernel. Each thread reads texel coordinates (u, v, w; texel centres at n + 0.5)
   and writes two float4: the 2-D texture's texel at (u, v), its channels as stored (integers
   unscaled), and the 3-D texture's texel at (u + shift, v, w) plus bias. Coordinates are clamped
   to the edges, as the LUT kernels do. */
#include "kernel_abi.h"

CRANDLE_DEVICE_FUNCTION int ClampIndex(float coordinate, int shift, crandle_uint extent) {
  return clamp((int)floor(coordinate) + shift, 0, (int)extent - 1);
}

CRANDLE_DEVICE_FUNCTION float4 ReadPixel(CRANDLE_GLOBAL const crandle_uchar *row, int x,
                                         crandle_uint format) {
  if (format == 8) return convert_float4(vload4(x, row));
  if (format == 16) return convert_float4(vload4(x, (CRANDLE_GLOBAL const ushort *)row));
  return vload4(x, (CRANDLE_GLOBAL const float *)row);
}

CRANDLE_KERNEL void ShaderKernel_CRANDLE_TEST_SAMPLE(CRANDLE_TEXTURE_PARAMETERS(sample2D),
                                                      CRANDLE_TEXTURE_PARAMETERS(sample3D),
                                                      CRANDLE_POINTER_PARAMETER(coordinates),
                                                      CRANDLE_POINTER_PARAMETER(destination),
                                                      crandle_uint width, crandle_uint height,
                                                      int shift, float bias) {
  const crandle_uint x = (crandle_uint)get_global_id(0);
  const crandle_uint y = (crandle_uint)get_global_id(1);
  if (x >= width || y >= height) return;
  const crandle_uint i = y * width + x;
  const float4 c = vload4(i, (CRANDLE_GLOBAL const float *)coordinates);

  const int u2 = ClampIndex(c.x, 0, sample2D_width);
  const int v2 = ClampIndex(c.y, 0, sample2D_height);
  const float4 flat =
      ReadPixel(sample2D_texels + (size_t)v2 * sample2D_rowBytes, u2, sample2D_format);

  const int u3 = ClampIndex(c.x, shift, sample3D_width);
  const int v3 = ClampIndex(c.y, 0, sample3D_height);
  const int w3 = ClampIndex(c.z, 0, sample3D_depth);
  const float4 cube = ReadPixel(
      sample3D_texels + ((size_t)w3 * sample3D_height + (size_t)v3) * sample3D_rowBytes, u3,
      sample3D_format);

  CRANDLE_GLOBAL float *out = (CRANDLE_GLOBAL float *)destination;
  vstore4(flat, 2 * i, out);
  vstore4(cube + (float4)(bias), 2 * i + 1, out);
}
