/* COMPOP_LUT3D: one thread per pixel; the formulas are those of lut_kernel_math.h. */
#include "kernel_abi.h"
#include "lut_kernel_math.h"

CRANDLE_KERNEL void ShaderKernel_COMPOP_LUT3D(CRANDLE_TEXTURE_PARAMETERS(texture0_RECT),
                                              CRANDLE_TEXTURE_PARAMETERS(texture1_3D),
                                              CRANDLE_POINTER_PARAMETER(constants),
                                              CRANDLE_POINTER_PARAMETER(destination),
                                              crandle_uint pitch, crandle_uint destinationFormat,
                                              crandle_uint width, crandle_uint height) {
  const crandle_uint x = CRANDLE_LUT_THREAD_X;
  const crandle_uint y = CRANDLE_LUT_THREAD_Y;
  if (x >= width || y >= height) return;
  crandle_lut_pixel(CRANDLE_LUT_3D, 0, texture0_RECT_texels, texture0_RECT_rowBytes,
                    texture0_RECT_format, 0, 0, texture1_3D_texels, texture1_3D_rowBytes,
                    texture1_3D_width, constants, destination, pitch, destinationFormat, x, y);
}
