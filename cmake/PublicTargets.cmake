# The two shared libraries as other code links them, in this build and once installed: a
# versioned file name and SONAME, and the usage requirements that their headers need. The aliases
# let a parent project (add_subdirectory) write the same names as a find_package user.

include(GNUInstallDirs)

# The SONAME moves with the major version; 0 while the interface may still change.
set(CRANDLE_SOVERSION 0)
set_target_properties(crandle_module crandle_host PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${CRANDLE_SOVERSION})
set_target_properties(crandle_module PROPERTIES EXPORT_NAME crandle INSTALL_RPATH "$ORIGIN")
set_target_properties(crandle_host PROPERTIES EXPORT_NAME host)

# A consumer of the module includes crandle/crandle.h, which includes the host's headers, and
# links the host library beside the module.
target_include_directories(crandle_module INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(crandle_module INTERFACE crandle_host)
target_compile_features(crandle_host INTERFACE cxx_std_20)

add_library(crandle::crandle ALIAS crandle_module)
add_library(crandle::host ALIAS crandle_host)
