// Integer helpers shared by the engine's sources (not installed).
#ifndef MUSKEIP_ENGINE_COMMON_H
#define MUSKEIP_ENGINE_COMMON_H

#include "build_common.h"

// Integer arithmetic that wraps instead of overflowing (sums of absurdly long lines).
FLIC_ALWAYS_INLINE int wrapAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
FLIC_ALWAYS_INLINE int wrapSub(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}
FLIC_ALWAYS_INLINE int wrapMul(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

// A cell index brought into 0 .. cells - 1 by the non-negative remainder.
inline int cellInGrid(int index, int cells) {
    int r = index % cells;
    return r < 0 ? r + cells : r;
}

#endif
