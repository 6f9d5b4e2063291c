# Instruction-set flags are given per source file, never per target: each kernel set lives in a
# translation unit of its own and is picked at run time through the SIMD tier
# (src/foundation/simd_tier.h).
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

# Every SIMD tier below the machine's best is forced with CRANDLE_CPU_ISA, so that a suite runs
# each tier's kernels on any machine. The tier names are those of foundation/simd_tier.h.
#
#   crandle_add_forced_tier_tests(<test executable>)   adds the test <executable>.<tier> for
#                                                       each forced tier
set(CRANDLE_FORCED_SIMD_TIERS sse)

function(crandle_add_forced_tier_tests executable)
  foreach(tier IN LISTS CRANDLE_FORCED_SIMD_TIERS)
    add_test(NAME ${executable}.${tier} COMMAND ${executable})
    set_tests_properties(${executable}.${tier} PROPERTIES
      ENVIRONMENT CRANDLE_CPU_ISA=${tier} TIMEOUT 600 LABELS forced-tier)
  endforeach()
endfunction()
