# Every third-party package the project builds against, found in one place.

find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(pugixml REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(MURMURHASH REQUIRED IMPORTED_TARGET libmurmurhash)

if(CRANDLE_BUILD_TOOLS)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  # pkg-config rather than the CMake package: Debian's Imath config names a Python module that is
  # not installed with it.
  pkg_check_modules(OPENIMAGEIO REQUIRED IMPORTED_TARGET OpenImageIO)
endif()

if(CRANDLE_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()

if(CRANDLE_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()

# OpenGL through EGL: the texture upload is built only when the headers are there.
find_package(OpenGL COMPONENTS OpenGL EGL)

# GPU back ends of the host library. Either may be missing: the library is then built without
# it and reports it as not built in.
option(CRANDLE_GPU_OPENCL "Build the host GPU library's OpenCL back end when OpenCL is found" ON)
option(CRANDLE_GPU_CUDA "Build the host GPU library's CUDA driver back end when nvcc is found" ON)
set(CRANDLE_HAVE_OPENCL OFF)
if(CRANDLE_GPU_OPENCL)
  find_package(OpenCL 2.0)
  if(OpenCL_FOUND)
    set(CRANDLE_HAVE_OPENCL ON)
  endif()
endif()
# The CUDA back end needs only the compiler (kernels are built into embedded fatbins) and the
# driver API's header; the driver itself is opened at run time.
set(CRANDLE_HAVE_CUDA OFF)
if(CRANDLE_GPU_CUDA)
  find_package(CUDAToolkit)
  if(CUDAToolkit_FOUND AND CUDAToolkit_NVCC_EXECUTABLE)
    set(CRANDLE_HAVE_CUDA ON)
  endif()
endif()
