// Tiles as tasks: each tile of a tiled computation traced on its own (with the records of its
// earlier neighbours for coverage), the layout of tiles and phases for hosts that schedule them
// elsewhere, and the adding of finished tiles into a picture's records or a part of them.
#include "compute.h"

#include "messages.h"
#include "tiles_common.h"

#include <new>
#include <vector>

using namespace muskeip::detail;

int FlicCompute::computeTile(FlicVectorField* field, FlicImage* texture, int tile,
                             TileWindow& partial, FlicImage* mask, FlicImage* seedMap,
                             const int* earlier, long long earlierInts) {
    if (!field || !field->data || field->width < 2 || field->height < 2)
        return flic_error("LIC: the vector field needs at least 2 x 2 nodes");
    if (mask && (mask->width != field->width || mask->height != field->height))
        return flic_error("field and mask must have the same size");
    FlicImage unused;
    if (!checkInputs(field, texture, &unused, mask, seedMap) || !checkTileSettings()) return 0;
    if (seedMap && (seedMap->width != texture->width || seedMap->height != texture->height ||
                    seedMap->nChannels != 1 || !seedMap->data))
        return flic_error("LIC: the seed map of a tile must be a %d x %d grey image",
                          texture->width, texture->height);
    int tilesX, tilesY;
    tileGrid(texture->width, texture->height, tilesX, tilesY);
    if (tile < 0 || tile >= tilesX * tilesY)
        return flic_error("LIC: tile %d outside 0 .. %d", tile, tilesX * tilesY - 1);
    if (!checkModes(field)) return 0;
    derive(field, texture);
    if (earlier && earlierInts >= 0) {
        int x0, y0, x1, y1;
        tilePixels(texWidth, texHeight, tile, x0, y0, x1, y1);
        long long needed = static_cast<long long>(x1 - x0) * (y1 - y0) * recordStride;
        if (earlierInts != needed)
            return flic_error("LIC: the earlier records of tile %d hold %lld ints, its %d x %d "
                              "pixels need %lld",
                              tile, earlierInts, x1 - x0, y1 - y0, needed);
    }
    freeBuffers();
    if (!prepareModes()) return flic_error("LIC: no memory for tile %d", tile);
    setUpWindow(tile, partial);
    coveredRecords = earlier;
    coveredX0 = partial.tileX0;
    coveredY0 = partial.tileY0;
    coveredWidth = partial.tileX1 - partial.tileX0;
    if (kernelSteps == 0) { // no lines: compute copies the texture instead
        partial.records.clear();
        partial.overflow.clear();
        partial.numFieldLines = 0;
        coveredRecords = nullptr;
        return 1;
    }
    std::vector<unsigned> sobolCells;
    std::vector<int> sobolStart;
    bool quasiRandom = seedingMethod == 2;
    int done = allocateLineBuffers() &&
               (!quasiRandom || bucketSobolCells(*this, sobolCells, sobolStart)) &&
               traceTile(tile, partial, mask, seedMap, quasiRandom ? &sobolCells : nullptr,
                         quasiRandom ? &sobolStart : nullptr, false);
    freeBuffers();
    coveredRecords = nullptr;
    if (!done) return flic_error("LIC: no memory for tile %d", tile);
    return 1;
}

int FlicCompute::tilePhases(FlicVectorField* field, FlicImage* texture,
                            std::vector<int>& phaseOfTile) {
    if (!field || !field->data || field->width < 2 || field->height < 2)
        return flic_error("LIC: the vector field needs at least 2 x 2 nodes");
    FlicImage unused;
    if (!checkInputs(field, texture, &unused, nullptr, nullptr) || !checkTileSettings()) return 0;
    derive(field, texture);
    try {
        return phasesOfTiles(phaseOfTile);
    } catch (const std::bad_alloc&) {
        return flic_error("LIC: no memory for the tile phases");
    }
}

int FlicCompute::tileLayout(int fieldWidth, int fieldHeight, int width, int height, int channels,
                            std::vector<int>& phaseOfTile, int& halo,
                            std::vector<std::vector<int>>* neighbours) {
    halo = 0;
    if (fieldWidth < 2 || fieldHeight < 2)
        return flic_error("LIC: the vector field needs at least 2 x 2 nodes");
    if (width < 1 || height < 1 || channels < 1)
        return flic_error("LIC: no tile layout for a %d x %d x %d picture", width, height,
                          channels);
    // Stand-ins that carry the sizes: planning reads no value, so one of each is enough.
    float vector[2] = {0.0f, 0.0f};
    unsigned char pixel[4] = {0, 0, 0, 0};
    FlicVectorField field;
    field.width = fieldWidth;
    field.height = fieldHeight;
    field.data = vector;
    FlicImage texture(width, height, channels, 0, pixel);
    int phases = tilePhases(&field, &texture, phaseOfTile);
    if (phases) halo = haloPixels();
    if (phases && neighbours) {
        size_t tiles = phaseOfTile.size();
        std::vector<std::vector<int>> later(tiles);
        std::vector<int> waitingFor(tiles, 0);
        tileNeighbours(phaseOfTile, later, waitingFor);
        neighbours->assign(tiles, std::vector<int>());
        for (size_t tile = 0; tile < tiles; tile++)
            for (int other : later[tile]) {
                (*neighbours)[tile].push_back(other);
                (*neighbours)[other].push_back(static_cast<int>(tile));
            }
    }
    field.data = nullptr;
    this->field = nullptr;
    this->texture = nullptr;
    return phases;
}

namespace {

// Whether a partial accumulation can be added into its picture: a picture of at least one
// pixel with records of at least one int, the window inside the picture with all its records
// (or none), and overflow entries of whole records at pixels of the picture. Partials made by
// computeTile always can; others (read from elsewhere) are reported through flic_error.
int checkPartial(const FlicCompute::TileWindow& p) {
    const int W = p.imageWidth, H = p.imageHeight;
    if (W < 1 || H < 1 || p.stride < 1)
        return flic_error("LIC: a partial accumulation for a %d x %d picture with records of %d "
                          "ints cannot be added",
                          W, H, p.stride);
    if (p.x0 < 0 || p.y0 < 0 || p.width < 0 || p.height < 0 ||
        static_cast<long long>(p.x0) + p.width > W || static_cast<long long>(p.y0) + p.height > H)
        return flic_error("LIC: the window of a partial accumulation (%d x %d pixels at %d, %d) "
                          "is not inside its %d x %d picture",
                          p.width, p.height, p.x0, p.y0, W, H);
    // Compared by division: the window's ints may exceed what a long long counts.
    typedef unsigned long long Count;
    const Count have = p.records.size(), stride = static_cast<Count>(p.stride);
    if (have != 0 && (have % stride != 0 ||
                      have / stride != static_cast<Count>(p.width) * static_cast<Count>(p.height)))
        return flic_error("LIC: a partial accumulation holds %lld ints for a window of %d x %d "
                          "records of %d ints",
                          static_cast<long long>(have), p.width, p.height, p.stride);
    const size_t entry = 1 + static_cast<size_t>(p.stride);
    if (p.overflow.size() % entry != 0)
        return flic_error("LIC: the overflow of a partial accumulation is not made of entries "
                          "of %d ints",
                          static_cast<int>(entry));
    const long long pixels = static_cast<long long>(W) * H;
    for (size_t at = 0; at < p.overflow.size(); at += entry)
        if (p.overflow[at] < 0 || p.overflow[at] >= pixels)
            return flic_error("LIC: the overflow of a partial accumulation names pixel %d, "
                              "outside its %d x %d picture",
                              p.overflow[at], W, H);
    return 1;
}

} // namespace

int FlicCompute::addToArea(const TileWindow& partial, int x0, int y0, int width, int height,
                           int* records, bool withOverflow) {
    if (!checkPartial(partial)) return 0;
    const int W = partial.imageWidth, stride = partial.stride;
    auto add = [&](int x, int y, const int* from) {
        if (x < x0 || x - static_cast<long long>(x0) >= width || y < y0 ||
            y - static_cast<long long>(y0) >= height)
            return;
        addRecords(records + ((static_cast<std::ptrdiff_t>(y) - y0) * width + (x - x0)) * stride,
                   from, 1, stride);
    };
    if (!partial.records.empty())
        for (int r = 0; r < partial.height; r++)
            for (int c = 0; c < partial.width; c++)
                add(partial.x0 + c, partial.y0 + r,
                    partial.records.data() +
                        (static_cast<std::ptrdiff_t>(r) * partial.width + c) * stride);
    if (!withOverflow) return 1;
    for (size_t at = 0; at + 1 + stride <= partial.overflow.size(); at += 1 + stride)
        add(partial.overflow[at] % W, partial.overflow[at] / W, &partial.overflow[at + 1]);
    return 1;
}

int FlicCompute::addTile(const TileWindow& partial, int* records) {
    if (!checkPartial(partial)) return 0;
    mergeWindow(const_cast<TileWindow&>(partial), records, MergeLocks{nullptr, 1}, false);
    return 1;
}
