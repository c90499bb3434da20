// The frame-value kernel built for AVX-512 (this file alone is built with -mavx512f).
#include "frame_values_common.h"

#if defined(__AVX512F__)
muskeip::detail::FrameKernel muskeip::detail::frameKernelAVX512() {
    return addFrameValues;
}
#else
muskeip::detail::FrameKernel muskeip::detail::frameKernelAVX512() {
    return nullptr;
}
#endif
