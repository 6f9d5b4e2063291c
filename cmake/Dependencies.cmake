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

# The CUDA toolkit compiles the host GPU library's CUDA kernels; without it that back end is left out.
include(CudaKernels)
