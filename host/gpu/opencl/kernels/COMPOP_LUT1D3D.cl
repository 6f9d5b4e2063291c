/* COMPOP_LUT1D3D: the shaper, then the cube, trilinear. */
#include "lut_kernels.h"
CRANDLE_LUT_KERNEL_SHAPER_AND_CUBE(ShaderKernel_COMPOP_LUT1D3D, 0)
