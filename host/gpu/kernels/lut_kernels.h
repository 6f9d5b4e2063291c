/* The entry points of the five LUT modules, written once for both back ends: each module's .cl
   and .cu source is one line naming its entry with one of these. One thread per pixel. */
#ifndef CRANDLE_GPU_LUT_KERNELS_H
#define CRANDLE_GPU_LUT_KERNELS_H

#include "kernel_abi.h"
#include "lut_kernel_math.h"

/* A LUT of one table (the curves of a 1-D LUT, or a cube) bound as `tableSlot`. */
#define CRANDLE_LUT_KERNEL_ONE_TABLE(entry, kind, tetrahedral, tableSlot)                         \
  CRANDLE_KERNEL void entry(                                                                      \
      CRANDLE_TEXTURE_PARAMETERS(texture0_RECT), CRANDLE_TEXTURE_PARAMETERS(tableSlot),           \
      CRANDLE_POINTER_PARAMETER(constants), CRANDLE_POINTER_PARAMETER(destination),               \
      crandle_uint pitch, crandle_uint destinationFormat, crandle_uint width,                     \
      crandle_uint height) {                                                                      \
    const crandle_uint x = CRANDLE_LUT_THREAD_X;                                                  \
    const crandle_uint y = CRANDLE_LUT_THREAD_Y;                                                  \
    if (x >= width || y >= height) return;                                                        \
    crandle_lut_pixel(kind, tetrahedral, texture0_RECT_texels, texture0_RECT_rowBytes,            \
                      texture0_RECT_format, 0, 0, tableSlot##_texels, tableSlot##_rowBytes,       \
                      tableSlot##_width, constants, destination, pitch, destinationFormat, x, y); \
  }

/* A cube with its input shaper: the shaper bound as "texture1_2D", the cube as "texture2_3D". */
#define CRANDLE_LUT_KERNEL_SHAPER_AND_CUBE(entry, tetrahedral)                                     \
  CRANDLE_KERNEL void entry(                                                                       \
      CRANDLE_TEXTURE_PARAMETERS(texture0_RECT), CRANDLE_TEXTURE_PARAMETERS(texture1_2D),          \
      CRANDLE_TEXTURE_PARAMETERS(texture2_3D), CRANDLE_POINTER_PARAMETER(constants),               \
      CRANDLE_POINTER_PARAMETER(destination), crandle_uint pitch, crandle_uint destinationFormat,  \
      crandle_uint width, crandle_uint height) {                                                   \
    const crandle_uint x = CRANDLE_LUT_THREAD_X;                                                   \
    const crandle_uint y = CRANDLE_LUT_THREAD_Y;                                                   \
    if (x >= width || y >= height) return;                                                         \
    crandle_lut_pixel(CRANDLE_LUT_1D3D, tetrahedral, texture0_RECT_texels, texture0_RECT_rowBytes, \
                      texture0_RECT_format, texture1_2D_texels, texture1_2D_width,                 \
                      texture2_3D_texels, texture2_3D_rowBytes, texture2_3D_width, constants,      \
                      destination, pitch, destinationFormat, x, y);                                \
  }

#endif
