/* COMPOP_LUT1D: every channel through its curve. */
#include "lut_kernels.h"
CRANDLE_LUT_KERNEL_ONE_TABLE(ShaderKernel_COMPOP_LUT1D, CRANDLE_LUT_1D, 0, texture1_2D)
