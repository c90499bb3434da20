// Tracing one tile of the tiled mode: a tracer engine made from the computation's settings,
// the tile's seed cells in the seeding order restricted to it (the quasi-random cells bucketed
// by tile), and its lines' values put into the tile's window.
#include "compute.h"

#include "engine_common.h"
#include "tiles_common.h"

#include <algorithm>
#include <climits>
#include <new>
#include <vector>

using namespace muskeip::detail;

namespace {

// The offsets of an axis's pixels in a window that covers `count` of them from `first` on
// (within the picture): `unit` ints per pixel counted from the pixel `origin` (the window's
// first, or 0 when the slots point into the picture's records), INT_MIN for pixels outside.
void fillSlots(std::vector<int>& slots, int total, int first, int count, long long unit,
               int origin) {
    slots.assign(static_cast<size_t>(total), INT_MIN);
    for (int k = first; k < first + count; k++)
        slots[static_cast<size_t>(k)] = static_cast<int>((k - origin) * unit);
}

} // namespace

int FlicCompute::becomeTracerOf(const FlicCompute& parent) {
    filterLength = parent.filterLength;
    extensionLength = parent.extensionLength;
    stepLength = parent.stepLength;
    offsetLength = parent.offsetLength;
    normalization = parent.normalization;
    numSubPixels = parent.numSubPixels;
    filterKernel = parent.filterKernel;
    seedingMethod = parent.seedingMethod;
    interpolationMethod = parent.interpolationMethod;
    texWidth = parent.texWidth;
    texHeight = parent.texHeight;
    texChannels = parent.texChannels;
    fieldMaxX = parent.fieldMaxX;
    fieldMaxY = parent.fieldMaxY;
    scaleX = parent.scaleX;
    scaleY = parent.scaleY;
    kernelSteps = parent.kernelSteps;
    extensionSteps = parent.extensionSteps;
    lengthBias = parent.lengthBias;
    maxSteps = parent.maxSteps;
    recordStride = parent.recordStride;
    numSubCells = parent.numSubCells;
    field = parent.field;
    texture = parent.texture;
    getPixel = parent.getPixel;
    tileSize = parent.tileSize;
    frameCount = parent.frameCount;
    frameTable = parent.frameTable;
    animationRipples = parent.animationRipples;
    borderX = parent.borderX;
    borderY = parent.borderY;
    noData = parent.noData;
    orientation = parent.orientation;
    endsEarly = parent.endsEarly;
    noDataCells = parent.noDataCells;
    weightPrefix = parent.weightPrefix;
    squarePrefix = parent.squarePrefix;
    textureMean = parent.textureMean;
    delete forward;
    delete backward;
    forward = parent.forward->clone();
    backward = parent.backward->clone();
    return forward && backward && allocateLineBuffers();
}

// Seeds the cells of the tile in the seeding order restricted to it, judging coverage from
// the window, into which the lines' values go (`zeroed`: the window's records are known to be
// zero already, as mergeWindow leaves them). Returns 0 without memory.
int FlicCompute::traceTile(int tile, TileWindow& partial, FlicImage* mask, FlicImage* seedMap,
                           const std::vector<unsigned>* sobolCells,
                           const std::vector<int>* sobolStart, bool zeroed) {
    if (!beginTile(tile, partial, zeroed)) return 0;
    TileSeeds seeds = seedsOfTile(*this, tile, partial, sobolCells, sobolStart);
    try {
        // Most cells are covered by the tile's lines: passed over here, without a call, by the
        // window's hits (seedCell also asks the earlier tiles' records).
        const int* records = windowRecords;
        const int s = numSubPixels;
        int x, y, i, j;
        while (seeds.next(x, y, i, j))
            if (windowCellHits(records, partial, x, y, j * s + i) == 0)
                seedCell(x, y, i, j, mask, seedMap);
    } catch (const std::bad_alloc&) {
        endTile(partial);
        return 0;
    }
    endTile(partial);
    return 1;
}

int FlicCompute::beginTile(int tile, TileWindow& partial, bool zeroed) {
    setUpWindow(tile, partial);
    try {
        // Slots into the picture's records count from its first pixel, with its rows' width;
        // slots into the window's own records from the window's first pixel, with its width.
        bool direct = directRecords != nullptr;
        int rowWidth = direct ? texWidth : partial.width;
        fillSlots(partial.columnSlots, texWidth, partial.x0, partial.width, recordStride,
                  direct ? 0 : partial.x0);
        fillSlots(partial.rowSlots, texHeight, partial.y0, partial.height,
                  static_cast<long long>(rowWidth) * recordStride, direct ? 0 : partial.y0);
        size_t size = static_cast<size_t>(partial.width) * partial.height * recordStride;
        if (direct)
            partial.records.clear(); // nothing to merge
        else if (!zeroed)
            partial.records.assign(size, 0);
        else if (partial.records.size() < size)
            partial.records.resize(size, 0); // the rest is zero already
        partial.overflow.clear();
    } catch (const std::bad_alloc&) {
        return 0;
    }
    window = &partial;
    windowRecords = directRecords ? directRecords : partial.records.data();
    numFieldLines = 0;
    return 1;
}

void FlicCompute::endTile(TileWindow& partial) {
    partial.numFieldLines = numFieldLines;
    window = nullptr;
    windowRecords = nullptr;
}

TileSeeds muskeip::detail::seedsOfTile(const FlicCompute& engine, int tile,
                                       const FlicCompute::TileWindow& partial,
                                       const std::vector<unsigned>* sobolCells,
                                       const std::vector<int>* sobolStart) {
    const unsigned* cells = sobolCells ? sobolCells->data() : nullptr;
    return TileSeeds(engine.seedingMethod, engine.numSubPixels, partial.tileX0, partial.tileY0,
                     partial.tileX1, partial.tileY1, cells, cells ? (*sobolStart)[tile] : 0,
                     cells ? (*sobolStart)[tile + 1] : 0);
}

// In one pass over the sequence per count and fill.
int muskeip::detail::bucketSobolCells(const FlicCompute& engine, std::vector<unsigned>& cells,
                                      std::vector<int>& start) {
    int tilesX, tilesY;
    engine.tileGrid(engine.texWidth, engine.texHeight, tilesX, tilesY);
    int s = engine.numSubPixels, W = engine.texWidth, H = engine.texHeight;
    int sizeX = tilesX == 1 ? W : engine.tileSize, sizeY = tilesY == 1 ? H : engine.tileSize;
    auto tileOf = [&](int X, int Y) { return (Y / s / sizeY) * tilesX + X / s / sizeX; };
    try {
        start.assign(static_cast<size_t>(tilesX) * tilesY + 1, 0);
        drawSobolCells(W, H, s, [&](int X, int Y, int) { start[tileOf(X, Y) + 1]++; });
        for (size_t t = 1; t < start.size(); t++)
            start[t] += start[t - 1];
        cells.assign(static_cast<size_t>(start.back()), 0);
        std::vector<int> fill(start.begin(), start.end() - 1);
        drawSobolCells(W, H, s, [&](int X, int Y, int) {
            int t = tileOf(X, Y);
            int tx = t % tilesX, ty = t / tilesX;
            unsigned across = static_cast<unsigned>(std::min(sizeX, W - tx * sizeX)) * s;
            cells[fill[t]++] = static_cast<unsigned>(X - tx * sizeX * s) +
                               static_cast<unsigned>(Y - ty * sizeY * s) * across;
        });
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}
