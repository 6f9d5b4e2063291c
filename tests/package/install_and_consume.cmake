# cmake -DBUILD_DIR=... -DWORK_DIR=... -DCONSUMER_DIR=... -DGENERATOR=... -DCXX=...
#       -P install_and_consume.cmake
#
# Installs the build into WORK_DIR/prefix, then builds consumer/consumer.cpp against that prefix
# with CMake's find_package and with pkg-config, and runs both programs. Any step that fails
# fails the test with its output.

foreach(name BUILD_DIR WORK_DIR CONSUMER_DIR GENERATOR CXX)
  if(NOT DEFINED ${name})
    message(FATAL_ERROR "${name} is not set")
  endif()
endforeach()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${out}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# What must be there, by name: a user's build scripts and loaders look for exactly these.
foreach(path lib/libcrandle.so.0 lib/libcrandle_host.so.0 lib/libcrandle.so lib/libcrandle_host.so
             include/crandle/crandle.h include/host/video_frame.h include/host/gpu.h bin/crandle
             lib/cmake/crandle/crandleConfig.cmake lib/cmake/crandle/crandleConfigVersion.cmake
             lib/pkgconfig/crandle.pc share/crandle/samples/warm-contrast.cube
             share/man/man1/crandle.1 share/bash-completion/completions/crandle)
  if(NOT EXISTS ${prefix}/${path})
    message(FATAL_ERROR "the install lacks ${path}")
  endif()
endforeach()
run("readelf" readelf -d ${prefix}/lib/libcrandle.so.0)
if(NOT output MATCHES "SONAME\\)[^\n]*\\[libcrandle\\.so\\.0\\]")
  message(FATAL_ERROR "libcrandle.so has no SONAME libcrandle.so.0:\n${output}")
endif()
# The installed tool runs from the prefix alone (its libraries found beside it).
run("installed tool" ${prefix}/bin/crandle info ${prefix}/share/crandle/samples/warm-contrast.cube)
# ... and finds its image commands there.
run("installed image commands" ${prefix}/bin/crandle apply
    ${prefix}/share/crandle/samples/warm-contrast.cube ${prefix}/share/crandle/samples/chart.png
    ${WORK_DIR}/chart-graded.png)

set(sample ${prefix}/share/crandle/samples/warm-contrast.cube)

# 1. find_package(crandle)
run("configure the find_package consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake
    -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_BUILD_TYPE=Release)
run("build the find_package consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
run("run the find_package consumer" ${WORK_DIR}/cmake/consumer ${WORK_DIR} ${sample})
message(STATUS "find_package consumer: ${output}")

# 2. pkg-config, with nothing but the compiler
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig)
run("pkg-config" pkg-config --cflags --libs crandle)
string(STRIP "${output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run("build the pkg-config consumer" ${CXX} -std=c++20 ${CONSUMER_DIR}/consumer.cpp ${flags}
    -o ${WORK_DIR}/consumer-pkgconfig)
run("run the pkg-config consumer" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib
    ${WORK_DIR}/consumer-pkgconfig ${WORK_DIR} ${sample})
message(STATUS "pkg-config consumer: ${output}")
