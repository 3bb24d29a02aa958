# Compiler flags shared by the library, its tests and tools.
#
# The numerics are bit-exact: every "stored" value is rounded to float exactly
# where the algorithm says so.  -ffp-contract=off forbids fused multiply-add
# contraction, and GCC's SLP vectoriser is switched off because GCC 12 pairs
# the x and y computations and drops the float rounding between two steps.
# Never add -ffast-math or -Ofast.
set(VRNCAL_FP_FLAGS -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND VRNCAL_FP_FLAGS -fno-tree-slp-vectorize)
endif()

set(VRNCAL_SANITIZE_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer)

function(vrncal_set_flags target)
  target_compile_options(${target} PRIVATE ${VRNCAL_FP_FLAGS} -Wall -Wextra)
  if(VRNCAL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(VRNCAL_SANITIZE)
    target_compile_options(${target} PRIVATE ${VRNCAL_SANITIZE_FLAGS})
    target_link_options(${target} PRIVATE ${VRNCAL_SANITIZE_FLAGS})
  endif()
endfunction()
