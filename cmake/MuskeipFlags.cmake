# The compile flags every part of muskeip is built with: the library, the command line, the
# tests, the fuzz build and the Python package.
#
# MUSKEIP_EXACT_FLAGS: results must be exactly those of the written single-precision
# arithmetic: no contraction into fused multiply-adds, no value-changing optimisations.
# MUSKEIP_SPEED_FLAGS: the library's own code only; neither changes a result. Without errno to
# set, sqrtf compiles to the processor's square root (no library call kept for negative or NaN
# arguments); calls between the library's exported functions bind to its own definitions, so
# that they can be inlined into each other (preloading another library cannot replace them).
# MUSKEIP_WARNING_FLAGS: the warnings the tree is kept free of; with MUSKEIP_WERROR (CI) they
# are errors.
set(MUSKEIP_EXACT_FLAGS -ffp-contract=off -fno-fast-math)
set(MUSKEIP_SPEED_FLAGS -fno-math-errno -fno-semantic-interposition)
set(MUSKEIP_WARNING_FLAGS -Wall -Wextra)
option(MUSKEIP_WERROR "Treat compiler warnings as errors" OFF)
if(MUSKEIP_WERROR)
    list(APPEND MUSKEIP_WARNING_FLAGS -Werror)
endif()
