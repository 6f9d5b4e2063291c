/* COMPOP_LUT1D3D_TetrahedralInterpolation: the shaper, then the cube, tetrahedral. */
#include "lut_kernels.h"
CRANDLE_LUT_KERNEL_SHAPER_AND_CUBE(ShaderKernel_COMPOP_LUT1D3D_TetrahedralInterpolation, 1)
