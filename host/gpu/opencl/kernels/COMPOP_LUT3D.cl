/* COMPOP_LUT3D: the cube, trilinear. */
#include "lut_kernels.h"
CRANDLE_LUT_KERNEL_ONE_TABLE(ShaderKernel_COMPOP_LUT3D, CRANDLE_LUT_3D, 0, texture1_3D)
