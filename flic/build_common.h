// Compiler helpers shared by the library's own sources (not installed).
#ifndef MUSKEIP_BUILD_COMMON_H
#define MUSKEIP_BUILD_COMMON_H

// Forces inlining of the small helpers of the hot loops (field sampling, integration steps,
// texture lookups), where a call per sample would cost more than the work itself.
#if defined(__GNUC__)
#define FLIC_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define FLIC_ALWAYS_INLINE inline
#endif

#endif
