// The CUDA driver, loaded at module start when the platform has one.
#pragma once

namespace CRANDLE::detail {

/// Result of `LoadCudaDriver` when the library or a required entry point is missing.
inline constexpr int kCudaDriverMissing = 999;

/// Loads the platform's CUDA driver library ("libcuda.so.1"), calls cuInit(flags) and resolves
/// the driver entry points into process-wide pointers. Returns 0, cuInit's own non-zero result,
/// or 999 when the library or a required entry point is missing (normal without a GPU).
/// Runs once per process; later calls return the first result.
int LoadCudaDriver(unsigned flags);

/// An entry point resolved by `LoadCudaDriver`, or null (the driver is absent or lacks it).
void* CudaDriverEntryPoint(const char* name);

}  // namespace CRANDLE::detail
