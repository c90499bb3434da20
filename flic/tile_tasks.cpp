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
                             const int* earlier) {
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
    freeBuffers();
    if (!prepareModes()) return flic_error("LIC: no memory for tile %d", tile);
    setUpWindow(tile, partial);
    coveredRecords = earlier;
    coveredX0 = partial.tileX0;
    coveredY0 = partial.tileY0;
    coveredWidth = partial.tileX1 - partial.tileX0;
    if (kernelSteps == 0) { // no lines: compute copies the texture instead
        setUpWindow(tile, partial);
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

void FlicCompute::addToArea(const TileWindow& partial, int x0, int y0, int width, int height,
                            int* records, bool withOverflow) {
    const int W = partial.imageWidth, H = partial.imageHeight, stride = partial.stride;
    auto add = [&](int x, int y, const int* from) {
        if (x < x0 || x >= x0 + width || y < y0 || y >= y0 + height) return;
        addRecords(records + (static_cast<std::ptrdiff_t>(y - y0) * width + (x - x0)) * stride,
                   from, 1, stride);
    };
    if (!partial.records.empty())
        for (int r = 0; r < partial.height; r++)
            for (int c = 0; c < partial.width; c++)
                add((partial.x0 + c) % W, (partial.y0 + r) % H,
                    partial.records.data() +
                        (static_cast<std::ptrdiff_t>(r) * partial.width + c) * stride);
    if (!withOverflow) return;
    for (size_t at = 0; at + 1 + stride <= partial.overflow.size(); at += 1 + stride)
        add(partial.overflow[at] % W, partial.overflow[at] / W, &partial.overflow[at + 1]);
}

void FlicCompute::addTile(const TileWindow& partial, int* records) {
    mergeWindow(const_cast<TileWindow&>(partial), records, MergeLocks{nullptr, 1}, false);
}
