#include "gpu/cuda/cuda_driver.h"

#include <dlfcn.h>

#include <fstream>
#include <mutex>
#include <sstream>

namespace host {
namespace {

// The release that first carried the driver API version the kernels need. Only the release
// number is what users see in their driver's listing, so the message names it.
constexpr const char* RequiredRelease() {
  static_assert(kCudaRequiredDriverVersion >= 13000, "update the release for this toolkit");
  return kCudaRequiredDriverVersion == 13000 ? "580" : "a release made for this CUDA version";
}

std::string TooOldMessage(int version, const std::string& release) {
  std::string text = "CUDA driver " + CudaVersionText(version);
  if (!release.empty()) text += " (release " + release + ")";
  text += " is too old: the kernels are built with CUDA " +
          CudaVersionText(kCudaRequiredDriverVersion) + " and need a driver of release " +
          RequiredRelease() + " or newer";
  return text;
}

// The kernel module's release from its /proc listing ("NVRM version: NVIDIA UNIX x86_64 Kernel
// Module  580.65.06  ..."): the driver API itself reports only the CUDA version it supports.
std::string ReadDriverRelease() {
  std::ifstream file("/proc/driver/nvidia/version");
  std::string line;
  if (!file || !std::getline(file, line)) return {};
  const auto marker = line.find("Kernel Module");
  if (marker == std::string::npos) return {};
  std::istringstream words(line.substr(marker + 13));
  std::string release;
  words >> release;
  return release;
}

CudaDriverLoad Load() {
  CudaDriverLoad load;
  // The handle stays open for the life of the process: the resolved pointers point into it.
  void* library = dlopen("libcuda.so.1", RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    load.message = "libcuda.so.1 not found";
    return load;
  }
  auto driverGetVersion =
      reinterpret_cast<decltype(&cuDriverGetVersion)>(dlsym(library, "cuDriverGetVersion"));
  auto init = reinterpret_cast<decltype(&cuInit)>(dlsym(library, "cuInit"));
  if (!driverGetVersion || !init) {
    load.message = "libcuda.so.1 lacks cuInit or cuDriverGetVersion";
    return load;
  }
  static CudaDriver driver;
  driver.release = ReadDriverRelease();
  if (driverGetVersion(&driver.version) != CUDA_SUCCESS) {
    load.message = "cuDriverGetVersion failed";
    return load;
  }
  if (driver.version < kCudaRequiredDriverVersion) {
    load.message = TooOldMessage(driver.version, driver.release);
    return load;
  }
  // cuGetProcAddress_v2 exists in every driver of CUDA 12.0 or newer.
  auto getProcAddress =
      reinterpret_cast<decltype(&cuGetProcAddress)>(dlsym(library, "cuGetProcAddress_v2"));
  if (!getProcAddress) {
    load.message = "libcuda.so.1 lacks cuGetProcAddress_v2";
    return load;
  }
  driver.GetErrorName =
      reinterpret_cast<decltype(&cuGetErrorName)>(dlsym(library, "cuGetErrorName"));
  if (const CUresult result = init(0); result != CUDA_SUCCESS) {
    // No device (or none usable) is the common reason on a machine with a driver installed.
    load.message = result == CUDA_ERROR_NO_DEVICE ? std::string("no CUDA device")
                                                  : "cuInit failed: " + driver.ErrorName(result);
    load.message += " (driver CUDA " + CudaVersionText(driver.version) + ")";
    return load;
  }
  bool complete = true;
  std::string missing;
#define CRANDLE_CUDA_RESOLVE(member, symbol)                                               \
  {                                                                                        \
    void* address = nullptr;                                                               \
    CUdriverProcAddressQueryResult found = CU_GET_PROC_ADDRESS_SYMBOL_NOT_FOUND;           \
    if (getProcAddress(#symbol, &address, CUDA_VERSION, CU_GET_PROC_ADDRESS_LEGACY_STREAM, \
                       &found) != CUDA_SUCCESS ||                                          \
        found != CU_GET_PROC_ADDRESS_SUCCESS || !address) {                                \
      complete = false;                                                                    \
      missing += missing.empty() ? #symbol : ", " #symbol;                                 \
    }                                                                                      \
    driver.member = reinterpret_cast<decltype(driver.member)>(address);                    \
  }
  CRANDLE_CUDA_ENTRY_POINTS(CRANDLE_CUDA_RESOLVE)
#undef CRANDLE_CUDA_RESOLVE
  if (!complete) {
    load.message = "CUDA driver " + CudaVersionText(driver.version) + " lacks " + missing;
    return load;
  }
  load.driver = &driver;
  load.message = "CUDA " + CudaVersionText(driver.version);
  if (!driver.release.empty()) load.message += ", release " + driver.release;
  return load;
}

}  // namespace

std::string CudaDriver::ErrorName(CUresult result) const {
  const char* name = nullptr;
  if (GetErrorName && GetErrorName(result, &name) == CUDA_SUCCESS && name) return name;
  return "CUDA error " + std::to_string(static_cast<int>(result));
}

const CudaDriverLoad& LoadCudaDriver() {
  static std::once_flag once;
  static CudaDriverLoad load;
  std::call_once(once, [] { load = Load(); });
  return load;
}

std::string CudaVersionText(int version) {
  return std::to_string(version / 1000) + "." + std::to_string(version % 1000 / 10);
}

std::string CudaModuleLoadMessage(const CudaDriver& driver, CUresult result) {
  std::string text = driver.ErrorName(result);
  // The fatbin holds cubins for the architectures it was built for and PTX for newer ones; either
  // error means this driver can use neither.
  if (result == CUDA_ERROR_UNSUPPORTED_PTX_VERSION || result == CUDA_ERROR_NO_BINARY_FOR_GPU ||
      result == CUDA_ERROR_INVALID_PTX) {
    text += ": the kernels are built with CUDA " + CudaVersionText(kCudaRequiredDriverVersion) +
            " and need a driver of release " + RequiredRelease() + " or newer (this one is CUDA " +
            CudaVersionText(driver.version) +
            (driver.release.empty() ? std::string() : ", release " + driver.release) + ")";
  }
  return text;
}

}  // namespace host
