// The frame-value kernel built for AVX2 (this file alone is built with -mavx2).
#include "frame_values_common.h"

#if defined(__AVX2__)
muskeip::detail::FrameKernel muskeip::detail::frameKernelAVX2() {
    return addFrameValues;
}
#else
muskeip::detail::FrameKernel muskeip::detail::frameKernelAVX2() {
    return nullptr;
}
#endif
