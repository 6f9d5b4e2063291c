/* COMPOP_LUT3D_TetrahedralInterpolation: the cube, tetrahedral. */
#include "lut_kernels.h"
CRANDLE_LUT_KERNEL_ONE_TABLE(ShaderKernel_COMPOP_LUT3D_TetrahedralInterpolation, CRANDLE_LUT_3D, 1,
                             texture1_3D)
