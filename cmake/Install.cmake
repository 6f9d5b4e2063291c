# What `cmake --install` puts under the prefix, and how other builds find it:
#
#   lib/libcrandle.so.0, lib/libcrandle_host.so.0    the module and the reference host (SONAME .0)
#   include/crandle/, include/host/                  their headers
#   bin/crandle                                      the tool
#   lib/crandle/libcrandle_image_commands.so         its image commands, opened on first use
#   share/man/man1/crandle.1                         its manual page
#   share/bash-completion/completions/crandle        its bash completion
#   share/crandle/samples/                           the sample LUTs and image
#   lib/cmake/crandle/                               find_package(crandle): crandle::crandle, crandle::host
#   lib/pkgconfig/crandle.pc                         pkg-config --cflags --libs crandle
#
# The installed tree is relocatable: the tool and the module find their libraries beside them
# ($ORIGIN), the CMake package and crandle.pc find the prefix from where they lie.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS crandle_module crandle_host
  EXPORT crandleTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/crandle ${PROJECT_SOURCE_DIR}/include/host
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

if(TARGET crandle_cli)
  file(RELATIVE_PATH _crandle_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(crandle_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${_crandle_bin_to_lib}")
  install(TARGETS crandle_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  # The tool looks for it at the same place relative to itself (tools/crandle/CMakeLists.txt).
  set_target_properties(crandle_image_commands PROPERTIES INSTALL_RPATH "$ORIGIN/..")
  install(TARGETS crandle_image_commands LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/crandle
    COMPONENT runtime)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/crandle.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
  # bash-completion loads a command's completion on demand from a file named as the command.
  install(FILES ${PROJECT_SOURCE_DIR}/tools/crandle/completion/crandle.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME crandle
    COMPONENT runtime)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/samples/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/crandle/samples COMPONENT runtime)

set(_crandle_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/crandle)
install(EXPORT crandleTargets NAMESPACE crandle:: DESTINATION ${_crandle_cmake_dir}
  COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/package/crandleConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/crandleConfig.cmake
  INSTALL_DESTINATION ${_crandle_cmake_dir})
# 0.x releases promise nothing to each other; from 1.0 on, the same major version is compatible.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(_crandle_compatibility SameMinorVersion)
else()
  set(_crandle_compatibility SameMajorVersion)
endif()
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/crandleConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY ${_crandle_compatibility})
install(FILES ${PROJECT_BINARY_DIR}/package/crandleConfig.cmake
              ${PROJECT_BINARY_DIR}/package/crandleConfigVersion.cmake
  DESTINATION ${_crandle_cmake_dir} COMPONENT development)

configure_file(${PROJECT_SOURCE_DIR}/cmake/package/crandle.pc.in
  ${PROJECT_BINARY_DIR}/package/crandle.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/crandle.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
