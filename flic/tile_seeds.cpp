// TileSeeds: the seed cells of one tile, one at a time, in the order the serial engine visits
// them restricted to the tile. The lane tracer takes seeds of several tiles in turns, so the
// seeding loops are kept as an iterator's state.
#include "tiles_common.h"

using namespace muskeip::detail;

TileSeeds::TileSeeds(int method, int subPixels, int x0, int y0, int x1, int y1,
                     const unsigned* cells, int first, int end)
    : method(method), s(subPixels), x0(x0), y0(y0), x1(x1), y1(y1), cells(cells), k(first),
      end(end), x(x0), y(y0), i(0), j(0), o(0), done(false) {
    if (s < 1 || x0 >= x1 || y0 >= y1 || (method == 2 && !cells) || method < 0 || method > 2)
        done = true;
    if (method == 1 && !done) startOffset();
}

int TileSeeds::firstX(int offset) const {
    return x0 + ((FlicCompute::offset[offset][0] - x0) % 4 + 4) % 4;
}

int TileSeeds::firstY(int offset) const {
    return y0 + ((FlicCompute::offset[offset][1] - y0) % 4 + 4) % 4;
}

// Moves on from offset o (cell i, j) to the first offset, in order, that has a pixel in the
// tile; past the last offset to the next cell, past the last cell to the end.
void TileSeeds::startOffset() {
    for (;;) {
        x = firstX(o);
        y = firstY(o);
        if (x < x1 && y < y1) return;
        if (++o < 16) continue;
        o = 0;
        if (++i < s) continue;
        i = 0;
        if (++j < s) continue;
        done = true;
        return;
    }
}

bool TileSeeds::nextQuasiRandom(int& outX, int& outY, int& outI, int& outJ) {
    if (k >= end) {
        done = true;
        return false;
    }
    unsigned cell = cells[k++];
    unsigned cellsAcross = static_cast<unsigned>(x1 - x0) * s;
    int X = static_cast<int>(cell % cellsAcross) + x0 * s;
    int Y = static_cast<int>(cell / cellsAcross) + y0 * s;
    outX = X / s;
    outY = Y / s;
    outI = X % s;
    outJ = Y % s;
    return true;
}

// Past the end of a row: the next row, past the last row the next offset (pattern) or cell.
void TileSeeds::nextRow() {
    int step = method == 1 ? 4 : 1;
    x = method == 1 ? firstX(o) : x0;
    y += step;
    if (y < y1) return;
    if (method == 1) {
        o++;
        if (o == 16) {
            o = 0;
            if (++i == s) {
                i = 0;
                if (++j == s) done = true;
            }
        }
        if (!done) startOffset();
        return;
    }
    y = y0;
    if (++i == s) {
        i = 0;
        if (++j == s) done = true;
    }
}
