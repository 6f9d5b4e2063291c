#include "api/cuda_driver_loader.h"

#include <dlfcn.h>

#include <cstring>
#include <mutex>

namespace CRANDLE::detail {
namespace {

struct SEntryPoint {
  const char* name;
  bool required;
  void* address;
};

// The driver calls the GPU path makes through the host GPU library; the texture-object calls are
// newer and optional.
SEntryPoint gEntryPoints[] = {
    {"cuDriverGetVersion", true, nullptr},   {"cuDeviceGet", true, nullptr},
    {"cuDeviceGetCount", true, nullptr},     {"cuDeviceGetAttribute", true, nullptr},
    {"cuCtxCreate_v2", true, nullptr},       {"cuCtxDestroy_v2", true, nullptr},
    {"cuCtxSetCurrent", true, nullptr},      {"cuCtxSynchronize", true, nullptr},
    {"cuModuleLoadData", true, nullptr},     {"cuModuleUnload", true, nullptr},
    {"cuModuleGetFunction", true, nullptr},  {"cuLaunchKernel", true, nullptr},
    {"cuMemAlloc_v2", true, nullptr},        {"cuMemFree_v2", true, nullptr},
    {"cuMemAllocHost_v2", true, nullptr},    {"cuMemFreeHost", true, nullptr},
    {"cuMemcpyHtoD_v2", true, nullptr},      {"cuMemcpyDtoH_v2", true, nullptr},
    {"cuMemcpy3D_v2", true, nullptr},        {"cuArray3DCreate_v2", true, nullptr},
    {"cuArrayDestroy", true, nullptr},       {"cuTexObjectCreate", false, nullptr},
    {"cuTexObjectDestroy", false, nullptr},  {"cuGetErrorString", false, nullptr},
};

int gResult = kCudaDriverMissing;
std::once_flag gOnce;

int Load(unsigned flags) {
  // The handle stays open for the life of the process: the resolved pointers point into it.
  void* library = dlopen("libcuda.so.1", RTLD_NOW | RTLD_LOCAL);
  if (!library) return kCudaDriverMissing;
  using CuInit = int (*)(unsigned);
  auto cuInit = reinterpret_cast<CuInit>(dlsym(library, "cuInit"));
  if (!cuInit) return kCudaDriverMissing;
  if (const int status = cuInit(flags); status != 0) return status;
  bool complete = true;
  for (auto& entry : gEntryPoints) {
    entry.address = dlsym(library, entry.name);
    if (!entry.address && entry.required) complete = false;
  }
  return complete ? 0 : kCudaDriverMissing;
}

}  // namespace

int LoadCudaDriver(unsigned flags) {
  std::call_once(gOnce, [flags] { gResult = Load(flags); });
  return gResult;
}

void* CudaDriverEntryPoint(const char* name) {
  for (const auto& entry : gEntryPoints)
    if (std::strcmp(entry.name, name) == 0) return entry.address;
  return nullptr;
}

}  // namespace CRANDLE::detail
