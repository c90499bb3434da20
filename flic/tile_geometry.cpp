// The geometry of the tiled mode: its settings checked, the grid of tiles, the halo their lines
// can reach, each tile's window of records and the slots that find a pixel's record in it, and
// the phases that say which tiles may run at the same time.
#include "compute.h"

#include "engine_common.h"
#include "messages.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

using namespace muskeip::detail;

namespace {

// Tiles smaller than this would trace most lines for their neighbours.
const int minTileSize = 8;
// More threads than this are a mistake, not a machine.
const int maxThreads = 1024;

// Whether tiles i and j of an axis (tiles of `size` pixels over `total`) reach into each
// other: one's window (the tile grown by `halo` on both sides) meets the other's pixels.
// Windows stop at the picture's edges; what a line puts beyond them goes to the overflow.
bool reachEachOther(long long i, long long j, int size, int total, long long halo) {
    long long a = i * size, b = std::min<long long>(a + size, total);
    long long c = j * size, d = std::min<long long>(c + size, total);
    return a - halo < d && c - halo < b;
}

// Colours of the tiles along one axis (`count` tiles of `size` pixels over `total`, halo
// `halo`): two tiles of one colour never reach into each other. Greedy, smallest colour
// first, so two colours unless the halo is wider than a tile; only tiles near enough to
// reach are compared.
std::vector<int> axisColours(int count, int size, int total, long long halo, int& colours) {
    std::vector<int> colour(count, 0);
    long long near = halo / size + 2;
    colours = 1;
    for (int i = 0; i < count; i++) {
        std::vector<bool> taken(colours + 1, false);
        for (int j = i - 1; j >= 0 && i - j <= near; j--)
            if (reachEachOther(i, j, size, total, halo)) taken[colour[j]] = true;
        while (taken[colour[i]])
            colour[i]++;
        colours = std::max(colours, colour[i] + 1);
    }
    return colour;
}
} // namespace

// --- Tile windows -----------------------------------------------------------------------------

int* FlicCompute::TileWindow::windowRecord(int pixel) {
    // A window whose tables were not made for this picture (not set up by a tile's start)
    // keeps every record in its overflow.
    if (pixel < 0 || imageWidth <= 0 || columnSlots.size() != static_cast<size_t>(imageWidth) ||
        rowSlots.size() != static_cast<size_t>(imageHeight) || pixel / imageWidth >= imageHeight)
        return nullptr;
    int slot = windowSlot(*this, pixel);
    // A window whose tile added into the picture's records directly has none of its own.
    return slot < 0 || static_cast<size_t>(slot) >= records.size() ? nullptr
                                                                   : records.data() + slot;
}

int* FlicCompute::TileWindow::record(int pixel) {
    if (int* inside = windowRecord(pixel)) return inside;
    size_t at = overflow.size();
    overflow.resize(at + 1 + stride, 0);
    overflow[at] = pixel;
    return overflow.data() + at + 1;
}

// --- Settings and geometry --------------------------------------------------------------------

int FlicCompute::checkTileSettings() const {
    if (tileSize < 0) return flic_error("LIC: tile size %d is negative", tileSize);
    if (tileSize > 0 && tileSize < minTileSize)
        return flic_error("LIC: tile size %d is below the smallest tile of %d pixels", tileSize,
                          minTileSize);
    if (numThreads < 0 || numThreads > maxThreads)
        return flic_error("LIC: number of threads %d outside 0 .. %d", numThreads, maxThreads);
    if (simdLanes < 0) return flic_error("LIC: SIMD lanes %d is negative", simdLanes);
    return 1;
}

void FlicCompute::tileGrid(int width, int height, int& tilesX, int& tilesY) const {
    tilesX = tilesY = 1;
    if (tileSize <= 0) return;
    if (width > tileSize) tilesX = static_cast<int>((width + (tileSize - 1LL)) / tileSize);
    if (height > tileSize) tilesY = static_cast<int>((height + (tileSize - 1LL)) / tileSize);
}

// Pixels around a tile that its lines can reach: the values of a line lie within M steps of
// its seed, each step at most h output pixels along the field's mean scale, so at most
// 2 h max(scale) / (scaleX + scaleY) pixels along an axis; two pixels more for rounding.
// Points beyond it (lines that leave the field and are wrapped back) still count: they go to
// the window's overflow.
int FlicCompute::haloPixels() const {
    double step = 2.0 * stepLength * std::max(scaleX, scaleY) / (scaleX + scaleY);
    double reach = std::ceil(extensionSteps * step) + 2.0;
    if (!(reach >= 0.0)) return 0;
    return reach > INT_MAX / 4 ? INT_MAX / 4 : static_cast<int>(reach);
}

void FlicCompute::tilePixels(int width, int height, int tile, int& x0, int& y0, int& x1,
                             int& y1) const {
    int tilesX, tilesY;
    tileGrid(width, height, tilesX, tilesY);
    int sizeX = tilesX == 1 ? width : tileSize, sizeY = tilesY == 1 ? height : tileSize;
    x0 = tile % tilesX * sizeX;
    y0 = tile / tilesX * sizeY;
    x1 = std::min(x0 + sizeX, width);
    y1 = std::min(y0 + sizeY, height);
}

// Places the tile and its window: the tile grown by the halo on every side, cut off at the
// picture's edges (the few points a line puts across an edge, at wrapped pixels, go to the
// overflow, so windows of tiles on opposite edges never meet).
void FlicCompute::setUpWindow(int tile, TileWindow& partial) const {
    tilePixels(texWidth, texHeight, tile, partial.tileX0, partial.tileY0, partial.tileX1,
               partial.tileY1);
    partial.imageWidth = texWidth;
    // Exact for every pixel index below 2^31: m = floor(2^(31 + l) / W) + 1 with 2^l >= W.
    int l = 0;
    while ((1LL << l) < texWidth)
        l++;
    partial.rowShift = 31 + l;
    partial.rowMultiplier = ((1ULL << partial.rowShift) / static_cast<unsigned>(texWidth)) + 1;
    partial.imageHeight = texHeight;
    partial.stride = recordStride;
    long long halo = haloPixels();
    long long left = std::max<long long>(0, partial.tileX0 - halo);
    long long right = std::min<long long>(texWidth, partial.tileX1 + halo);
    long long top = std::max<long long>(0, partial.tileY0 - halo);
    long long bottom = std::min<long long>(texHeight, partial.tileY1 + halo);
    partial.x0 = static_cast<int>(left);
    partial.y0 = static_cast<int>(top);
    partial.width = static_cast<int>(right - left);
    partial.height = static_cast<int>(bottom - top);
}

// Tiles that may run at the same time are those that do not reach into each other (see
// tileNeighbours): unless the halo is empty, at least one whole tile lies between them on some
// axis. Their windows, each the tile grown by the halo, stay apart when two halos fit in a
// tile; the picture's records must also be addressable by int slots.
bool FlicCompute::tilesShareNoRecords() const {
    long long halo = haloPixels();
    long long ints = static_cast<long long>(texWidth) * texHeight * recordStride;
    return tileSize > 0 && 2 * halo <= tileSize && ints <= INT_MAX;
}

// The phase of every tile: tiles of one phase never reach into each other, so they run at once
// and judge coverage from their own lines and those of the earlier phases. Returns the count.
int FlicCompute::phasesOfTiles(std::vector<int>& phaseOfTile) const {
    int tilesX, tilesY;
    tileGrid(texWidth, texHeight, tilesX, tilesY);
    int sizeX = tilesX == 1 ? texWidth : tileSize, sizeY = tilesY == 1 ? texHeight : tileSize;
    long long halo = haloPixels();
    int coloursX, coloursY;
    std::vector<int> columns = axisColours(tilesX, sizeX, texWidth, halo, coloursX);
    std::vector<int> rows = axisColours(tilesY, sizeY, texHeight, halo, coloursY);
    phaseOfTile.resize(static_cast<size_t>(tilesX) * tilesY);
    for (int ty = 0; ty < tilesY; ty++)
        for (int tx = 0; tx < tilesX; tx++)
            phaseOfTile[static_cast<size_t>(ty) * tilesX + tx] = rows[ty] * coloursX + columns[tx];
    return coloursX * coloursY;
}

// For every tile, the tiles of later phases that reach into it or into which it reaches
// (`later`), and how many of earlier phases it has so (`waitingFor`). Only tiles near enough
// to reach each other are compared.
void FlicCompute::tileNeighbours(const std::vector<int>& phaseOfTile,
                                 std::vector<std::vector<int>>& later,
                                 std::vector<int>& waitingFor) const {
    int tilesX, tilesY;
    tileGrid(texWidth, texHeight, tilesX, tilesY);
    int sizeX = tilesX == 1 ? texWidth : tileSize, sizeY = tilesY == 1 ? texHeight : tileSize;
    long long halo = haloPixels();
    int nearX = static_cast<int>(std::min<long long>(tilesX, halo / sizeX + 2));
    int nearY = static_cast<int>(std::min<long long>(tilesY, halo / sizeY + 2));
    for (int ty = 0; ty < tilesY; ty++)
        for (int tx = 0; tx < tilesX; tx++) {
            int tile = ty * tilesX + tx;
            for (int oy = std::max(0, ty - nearY); oy <= std::min(tilesY - 1, ty + nearY); oy++)
                for (int ox = std::max(0, tx - nearX); ox <= std::min(tilesX - 1, tx + nearX);
                     ox++) {
                    int other = oy * tilesX + ox;
                    if (phaseOfTile[other] <= phaseOfTile[tile] ||
                        !reachEachOther(tx, ox, sizeX, texWidth, halo) ||
                        !reachEachOther(ty, oy, sizeY, texHeight, halo))
                        continue;
                    later[tile].push_back(other);
                    waitingFor[other]++;
                }
        }
}
