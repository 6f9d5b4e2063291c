# Compiles `#include "HEADER"` with the include directories, definitions and language standard
# that the build gives SOURCE (read from compile_commands.json), and checks the outcome:
#   EXPECT=reachable    the header compiles;
#   EXPECT=unreachable  the compiler cannot find the header (any other failure is an error).
#
#   cmake -DBUILD_DIR=... -DSOURCE=<absolute source path> -DHEADER=look/look_grid.h
#         -DEXPECT=unreachable -P check_layer_include.cmake

foreach(name BUILD_DIR SOURCE HEADER EXPECT)
  if(NOT DEFINED ${name})
    message(FATAL_ERROR "${name} is not set")
  endif()
endforeach()

file(READ ${BUILD_DIR}/compile_commands.json commands)
string(JSON count LENGTH "${commands}")
math(EXPR last "${count} - 1")
set(command "")
foreach(i RANGE ${last})
  string(JSON file GET "${commands}" ${i} file)
  if(file STREQUAL SOURCE)
    string(JSON command GET "${commands}" ${i} command)
    break()
  endif()
endforeach()
if(command STREQUAL "")
  message(FATAL_ERROR "${SOURCE} is not compiled by this build")
endif()

separate_arguments(arguments UNIX_COMMAND "${command}")
list(POP_FRONT arguments compiler)
get_filename_component(launcher ${compiler} NAME)
if(launcher STREQUAL "ccache")
  list(POP_FRONT arguments compiler)
endif()
set(flags "")
set(takeNext FALSE)
foreach(argument IN LISTS arguments)
  if(takeNext)
    list(APPEND flags ${argument})
    set(takeNext FALSE)
  elseif(argument MATCHES "^-(I|D|U|std=)")
    list(APPEND flags ${argument})
  elseif(argument STREQUAL "-isystem" OR argument STREQUAL "-iquote")
    list(APPEND flags ${argument})
    set(takeNext TRUE)
  endif()
endforeach()

string(MAKE_C_IDENTIFIER "${SOURCE}_${HEADER}" probeName)
set(probe ${BUILD_DIR}/layer-probes/${probeName}.cpp)
file(WRITE ${probe} "#include \"${HEADER}\"\n")
execute_process(
  COMMAND ${compiler} ${flags} -fsyntax-only ${probe}
  RESULT_VARIABLE result
  OUTPUT_VARIABLE output
  ERROR_VARIABLE output)

string(REPLACE "." "\\." headerPattern "${HEADER}")
if(EXPECT STREQUAL "reachable")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${HEADER} should compile for ${SOURCE}:\n${output}")
  endif()
  message(STATUS "${HEADER} is reachable from ${SOURCE}")
elseif(EXPECT STREQUAL "unreachable")
  if(result EQUAL 0)
    message(FATAL_ERROR "${HEADER} must not be reachable from ${SOURCE}, but it compiled")
  endif()
  if(NOT output MATCHES "${headerPattern}: No such file or directory|'${headerPattern}' file not found")
    message(FATAL_ERROR "${HEADER} failed for another reason than not being found:\n${output}")
  endif()
  message(STATUS "${HEADER} is not found from ${SOURCE}, as the layers require")
else()
  message(FATAL_ERROR "EXPECT is reachable or unreachable, not '${EXPECT}'")
endif()
