// The CUDA driver as the host GPU library reaches it: libcuda.so.1 opened at first use and every
// entry point resolved through the driver's own cuGetProcAddress, at the ABI of the toolkit the
// kernels were built with. Only host/gpu/cuda/ sources include this header (it needs <cuda.h>
// for the types; nothing links against the driver).
#pragma once

#include <cuda.h>

#include <string>

namespace host {

// Entry points by the member name the back end calls and the driver API name they resolve.
// <cuda.h> maps the names to their current versioned symbols (cuMemAlloc -> cuMemAlloc_v2), so
// each pointer has the signature of the version that cuGetProcAddress returns for CUDA_VERSION.
#define CRANDLE_CUDA_ENTRY_POINTS(X)                    \
  X(DeviceGetCount, cuDeviceGetCount)                   \
  X(DeviceGet, cuDeviceGet)                             \
  X(DeviceGetName, cuDeviceGetName)                     \
  X(DeviceTotalMem, cuDeviceTotalMem)                   \
  X(DeviceGetAttribute, cuDeviceGetAttribute)           \
  X(DevicePrimaryCtxRetain, cuDevicePrimaryCtxRetain)   \
  X(DevicePrimaryCtxRelease, cuDevicePrimaryCtxRelease) \
  X(DevicePrimaryCtxReset, cuDevicePrimaryCtxReset)     \
  X(CtxPushCurrent, cuCtxPushCurrent)                   \
  X(CtxPopCurrent, cuCtxPopCurrent)                     \
  X(StreamCreate, cuStreamCreate)                       \
  X(StreamDestroy, cuStreamDestroy)                     \
  X(StreamSynchronize, cuStreamSynchronize)             \
  X(EventCreate, cuEventCreate)                         \
  X(EventDestroy, cuEventDestroy)                       \
  X(EventRecord, cuEventRecord)                         \
  X(EventQuery, cuEventQuery)                           \
  X(EventSynchronize, cuEventSynchronize)               \
  X(MemAlloc, cuMemAlloc)                               \
  X(MemFree, cuMemFree)                                 \
  X(MemHostAlloc, cuMemHostAlloc)                       \
  X(MemFreeHost, cuMemFreeHost)                         \
  X(MemcpyHtoDAsync, cuMemcpyHtoDAsync)                 \
  X(MemcpyDtoDAsync, cuMemcpyDtoDAsync)                 \
  X(Memcpy2DAsync, cuMemcpy2DAsync)                     \
  X(ModuleLoadData, cuModuleLoadData)                   \
  X(ModuleUnload, cuModuleUnload)                       \
  X(ModuleGetFunction, cuModuleGetFunction)             \
  X(FuncGetParamInfo, cuFuncGetParamInfo)               \
  X(LaunchKernel, cuLaunchKernel)                       \
  X(GetErrorName, cuGetErrorName)

/// The resolved driver. Lives for the whole process once loaded.
struct CudaDriver {
#define CRANDLE_CUDA_MEMBER(member, symbol) decltype(&symbol) member = nullptr;
  CRANDLE_CUDA_ENTRY_POINTS(CRANDLE_CUDA_MEMBER)
#undef CRANDLE_CUDA_MEMBER

  /// cuDriverGetVersion's value (13000 for CUDA 13.0).
  int version = 0;
  /// The kernel module's release ("580.65.06") when the system tells it, else empty.
  std::string release;

  /// "CUDA_ERROR_OUT_OF_MEMORY" and the like, for messages.
  std::string ErrorName(CUresult result) const;
};

/// What loading the driver gave: the driver, or null and why not.
struct CudaDriverLoad {
  const CudaDriver* driver = nullptr;
  /// The driver's version ("CUDA 13.0, release 580.65.06") when loaded; else the reason, such as
  /// "libcuda.so.1 not found" or an old driver's release requirement.
  std::string message;
};

/// Opens the driver at the first call (thread-safe) and gives the same answer afterwards.
const CudaDriverLoad& LoadCudaDriver();

/// "13.0" for 13000.
std::string CudaVersionText(int version);

/// The lowest driver API version that runs the embedded kernels: the toolkit's major version (its
/// cubins run on any driver of that major version).
inline constexpr int kCudaRequiredDriverVersion = CUDA_VERSION / 1000 * 1000;

/// Why a module could not be loaded, in words that say what to do about it.
std::string CudaModuleLoadMessage(const CudaDriver& driver, CUresult result);

}  // namespace host
