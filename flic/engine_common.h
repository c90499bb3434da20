// Integer helpers shared by the engine's sources (not installed).
#ifndef MUSKEIP_ENGINE_COMMON_H
#define MUSKEIP_ENGINE_COMMON_H

#include "build_common.h"
#include "compute.h"

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

// Offset of the record of picture pixel `pixel` in a tile's window (its row found by one
// multiplication), or -1 when the pixel lies outside the window.
FLIC_ALWAYS_INLINE int windowSlot(const FlicCompute::TileWindow& w, int pixel) {
    int py =
        static_cast<int>((static_cast<unsigned long long>(pixel) * w.rowMultiplier) >> w.rowShift);
    int px = pixel - py * w.imageWidth;
    int dx = px - w.x0, dy = py - w.y0;
    if (dx < 0) dx += w.imageWidth;
    if (dy < 0) dy += w.imageHeight;
    if (dx >= w.width || dy >= w.height) return -1;
    return (dy * w.width + dx) * w.stride;
}

#endif
