# Instruction-set flags are given per source file, never per target: each kernel set lives in a
# translation unit of its own and is picked at run time by the processor-feature record.
#
#   crandle_isa_sources(<target> <isa> file...)   isa: sse41, sse42 or avx2

function(crandle_isa_sources target isa)
  if(isa STREQUAL "sse41")
    set(flags -msse4.1)
  elseif(isa STREQUAL "sse42")
    set(flags -msse4.2)
  elseif(isa STREQUAL "avx2")
    # No contraction: a fused multiply-add happens only where a kernel spells it out, so the
    # tiers agree wherever they are meant to.
    set(flags -mavx2 -mfma -mf16c -ffp-contract=off)
  else()
    message(FATAL_ERROR "unknown instruction set '${isa}'")
  endif()
  target_sources(${target} PRIVATE ${ARGN})
  set_property(SOURCE ${ARGN} TARGET_DIRECTORY ${target} APPEND PROPERTY COMPILE_OPTIONS ${flags})
endfunction()
