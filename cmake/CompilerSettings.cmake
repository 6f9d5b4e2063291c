# Warning and sanitizer flags shared by every target of the project.

add_library(crandle_warnings INTERFACE)
target_compile_options(crandle_warnings INTERFACE -Wall -Wextra -Wno-missing-field-initializers)
# The same shadowing check under its name in each compiler (clang builds the fuzz targets).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(crandle_warnings INTERFACE -Wshadow=local)
else()
  target_compile_options(crandle_warnings INTERFACE -Wshadow-uncaptured-local)
endif()
if(CRANDLE_WERROR)
  target_compile_options(crandle_warnings INTERFACE -Werror)
endif()

if(CRANDLE_SANITIZE)
  set(_crandle_sanitize_flags -fsanitize=${CRANDLE_SANITIZE} -fno-omit-frame-pointer)
  if(CRANDLE_SANITIZE MATCHES "undefined")
    list(APPEND _crandle_sanitize_flags -fno-sanitize-recover=undefined)
  endif()
  add_compile_options(${_crandle_sanitize_flags})
  add_link_options(${_crandle_sanitize_flags})
endif()

# Fuzzers instrument the libraries they link; the fuzz targets add -fsanitize=fuzzer themselves.
if(CRANDLE_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "CRANDLE_BUILD_FUZZERS needs clang")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
