/* How the host GPU library passes arguments to kernels, in one header that OpenCL C, CUDA and
   host C++ all compile. Every kernel of a module takes, first, six parameters per texture slot
   that the module declares in the kernel registry (in the registry's order), then the launch's
   own arguments in order. */
#ifndef CRANDLE_GPU_KERNEL_ABI_H
#define CRANDLE_GPU_KERNEL_ABI_H

#if defined(__OPENCL_VERSION__)
#define CRANDLE_KERNEL __kernel
#define CRANDLE_GLOBAL __global
#define CRANDLE_DEVICE_FUNCTION static inline
typedef uint crandle_uint;
typedef uchar crandle_uchar;
#elif defined(__CUDACC__)
#define CRANDLE_KERNEL extern "C" __global__
#define CRANDLE_GLOBAL
#define CRANDLE_DEVICE_FUNCTION static __device__ __forceinline__
typedef unsigned int crandle_uint;
typedef unsigned char crandle_uchar;
#else
#include <stdint.h>
#define CRANDLE_KERNEL
#define CRANDLE_GLOBAL
#define CRANDLE_DEVICE_FUNCTION static inline
typedef uint32_t crandle_uint;
typedef uint8_t crandle_uchar;
#endif

/* The six parameters of one texture slot: its texels, the bytes from one row to the next, its
   extents (depth 1 for a 2-D texture) and its pixel format's bits per channel (8, 16 or 32). */
#define CRANDLE_TEXTURE_PARAMETERS(name)                                                    \
  CRANDLE_GLOBAL const crandle_uchar *name##_texels, crandle_uint name##_rowBytes,          \
      crandle_uint name##_width, crandle_uint name##_height, crandle_uint name##_depth,     \
      crandle_uint name##_format

/* A launch argument of kind Pointer arrives as a byte pointer; UInt32, Int32 and Float32 as the
   plain 32-bit types. */
#define CRANDLE_POINTER_PARAMETER(name) CRANDLE_GLOBAL crandle_uchar *name

#endif
