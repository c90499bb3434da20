# The compile flags every part of muskeip is built with: the library, the command line, the
# tests, the fuzz build and the Python package.
#
# MUSKEIP_EXACT_FLAGS: results must be exactly those of the written single-precision
# arithmetic: no contraction into fused multiply-adds, no value-changing optimisations.
# MUSKEIP_WARNING_FLAGS: the warnings the tree is kept free of; with MUSKEIP_WERROR (CI) they
# are errors.
set(MUSKEIP_EXACT_FLAGS -ffp-contract=off -fno-fast-math)
set(MUSKEIP_WARNING_FLAGS -Wall -Wextra)
option(MUSKEIP_WERROR "Treat compiler warnings as errors" OFF)
if(MUSKEIP_WERROR)
    list(APPEND MUSKEIP_WARNING_FLAGS -Werror)
endif()
