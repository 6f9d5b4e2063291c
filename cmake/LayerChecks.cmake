# Proof that the build holds the layers of src/CMakeLists.txt: each check compiles one include
# with the flags of one source file of a layer. A wrong-way include must not be found; the
# allowed ones beside it must compile, so a check cannot pass for the wrong reason.
#
#   tincta_layer_check(<name> <source under src/> <header> reachable|unreachable)

function(tincta_layer_check name source header expect)
  add_test(NAME layers.${name}
    COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${CMAKE_BINARY_DIR}
            -DSOURCE=${PROJECT_SOURCE_DIR}/src/${source} -DHEADER=${header} -DEXPECT=${expect}
            -P ${PROJECT_SOURCE_DIR}/cmake/check_layer_include.cmake)
endfunction()

tincta_layer_check(foundation_sees_itself foundation/file.cpp foundation/hex_codec.h reachable)
tincta_layer_check(foundation_not_lut foundation/file.cpp lut/lut3d.h unreachable)

tincta_layer_check(lut_sees_foundation lut/lut3d.cpp foundation/file.h reachable)
tincta_layer_check(lut_not_look lut/lut3d.cpp look/look_grid.h unreachable)
tincta_layer_check(lut_not_engine lut/lut3d.cpp engine/frame_buffer/frame_buffer.h unreachable)

tincta_layer_check(look_sees_lut look/look_grid.cpp lut/lut3d.h reachable)
tincta_layer_check(look_not_engine look/look_grid.cpp engine/frame_buffer/frame_buffer.h unreachable)
tincta_layer_check(look_not_api look/look_grid.cpp api/apply_paths.h unreachable)

tincta_layer_check(frame_buffer_sees_itself engine/frame_buffer/frame_buffer.cpp
                   engine/frame_buffer/frame_buffer_format.h reachable)
tincta_layer_check(frame_buffer_not_convert engine/frame_buffer/frame_buffer.cpp
                   engine/convert/converter_list.h unreachable)
tincta_layer_check(frame_buffer_not_lut engine/frame_buffer/frame_buffer.cpp lut/lut3d.h unreachable)

tincta_layer_check(convert_sees_frame_buffer engine/convert/converter_list.cpp
                   engine/frame_buffer/complex_frame_buffer.h reachable)
tincta_layer_check(convert_not_cpu engine/convert/converter_list.cpp engine/cpu/cpu_kernels.h
                   unreachable)

tincta_layer_check(engine_sees_lut engine/cpu/cpu_compositing_engine.cpp lut/lut3d.h reachable)
tincta_layer_check(engine_sees_convert engine/cpu/cpu_compositing_engine.cpp
                   engine/convert/converter_list.h reachable)
tincta_layer_check(engine_not_look engine/cpu/cpu_compositing_engine.cpp look/look_grid.h unreachable)
tincta_layer_check(engine_not_api engine/cpu/cpu_compositing_engine.cpp api/apply_paths.h unreachable)

tincta_layer_check(api_sees_look api/exports.cpp look/look_grid.h reachable)
tincta_layer_check(api_sees_engine api/exports.cpp engine/cpu/cpu_compositing_engine.h reachable)
