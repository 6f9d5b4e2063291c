/* COMPOP_LUT1D3D_TetrahedralInterpolation: one thread per pixel; the formulas are those of
 * lut_kernel_math.h. */
#include "kernel_abi.h"
#include "lut_kernel_math.h"

CRANDLE_KERNEL void ShaderKernel_COMPOP_LUT1D3D_TetrahedralInterpolation(
    CRANDLE_TEXTURE_PARAMETERS(texture0_RECT), CRANDLE_TEXTURE_PARAMETERS(texture1_2D),
    CRANDLE_TEXTURE_PARAMETERS(texture2_3D), CRANDLE_POINTER_PARAMETER(constants),
    CRANDLE_POINTER_PARAMETER(destination), crandle_uint pitch, crandle_uint destinationFormat,
    crandle_uint width, crandle_uint height) {
  const crandle_uint x = CRANDLE_LUT_THREAD_X;
  const crandle_uint y = CRANDLE_LUT_THREAD_Y;
  if (x >= width || y >= height) return;
  crandle_lut_pixel(CRANDLE_LUT_1D3D, 1, texture0_RECT_texels, texture0_RECT_rowBytes,
                    texture0_RECT_format, texture1_2D_texels, texture1_2D_width, texture2_3D_texels,
                    texture2_3D_rowBytes, texture2_3D_width, constants, destination, pitch,
                    destinationFormat, x, y);
}
