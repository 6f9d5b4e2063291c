# The grading library's layers, held by the build. A layer compiles against a view of src/ made at
# configure time in the build tree: links to its own folders and to those of the layers below it,
# nothing else. An include of a layer above or beside it is then "No such file or directory".
#
#   tincta_layer(<target> FOLDERS <folder under src/>... [BELOW <layer target>...])
#
# <target> must exist; it gets the view as its private include directory and links the layers
# below it publicly. The view's folders are kept on the target for the layers above.

function(tincta_layer target)
  cmake_parse_arguments(ARG "" "" "FOLDERS;BELOW" ${ARGN})
  set(folders ${ARG_FOLDERS})
  foreach(below IN LISTS ARG_BELOW)
    get_target_property(lower ${below} TINCTA_LAYER_FOLDERS)
    if(NOT lower)
      message(FATAL_ERROR "${target}: '${below}' is not a layer")
    endif()
    list(APPEND folders ${lower})
  endforeach()
  list(REMOVE_DUPLICATES folders)

  # A folder whose parent is in the view already comes with it.
  set(roots "")
  foreach(folder IN LISTS folders)
    set(covered FALSE)
    foreach(other IN LISTS folders)
      string(FIND "${folder}" "${other}/" at)
      if(at EQUAL 0)
        set(covered TRUE)
      endif()
    endforeach()
    if(NOT covered)
      list(APPEND roots ${folder})
    endif()
  endforeach()

  set(view ${PROJECT_BINARY_DIR}/layer-include/${target})
  # Removes the links, never what they point at.
  file(REMOVE_RECURSE ${view})
  foreach(folder IN LISTS roots)
    if(NOT IS_DIRECTORY ${PROJECT_SOURCE_DIR}/src/${folder})
      message(FATAL_ERROR "${target}: no folder src/${folder}")
    endif()
    get_filename_component(parent ${view}/${folder} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/src/${folder} ${view}/${folder} SYMBOLIC)
  endforeach()

  set_target_properties(${target} PROPERTIES TINCTA_LAYER_FOLDERS "${folders}")
  target_include_directories(${target} PRIVATE ${view})
  target_link_libraries(${target} PUBLIC ${ARG_BELOW})
endfunction()
