// Tile tasks from a window of the field: which nodes the lines of one tile can reach, and the
// tile's partial accumulation computed from those nodes alone, so that a task on another
// machine needs a window of the field, not all of it.
#include "compute.h"

#include "messages.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <typeinfo>

// How far, in field cells, the points of a line and its integrators' trial points can lie from
// its seed. Every output point is at most one output spacing s along the field direction (unit
// vectors, or slower below the normalization) from a point of the curve, and a line has at
// most N + M of them on each side: (N + M) s along the curve. An adaptive step of size h moves
// at most h, its trial points lie within h of its start, and the cubic between its ends within
// 1.3 h (the Hermite basis bounds the overshoot by 4/27 of each tangent); the step size never
// exceeds the larger of the initial and the largest step. A fixed-step integrator looks half a
// step ahead. Returns -1 for integrators of unknown reach.
double FlicCompute::lineReach() const {
    const FlicIntegrator* integrators[] = {forward, backward};
    double along = static_cast<double>(kernelSteps + extensionSteps);
    double reach = 0.0;
    for (const FlicIntegrator* in : integrators) {
        if (!in) return -1.0;
        double s = std::fabs(static_cast<double>(in->stepLength));
        double beyond;
        if (typeid(*in) == typeid(RK43) || typeid(*in) == typeid(RKDP) ||
            typeid(*in) == typeid(RKCK)) {
            const AdaptiveIntegrator* a = static_cast<const AdaptiveIntegrator*>(in);
            beyond = 2.0 * std::max(std::fabs(static_cast<double>(a->initialStep)),
                                    std::fabs(static_cast<double>(a->maxStep)));
        } else if (typeid(*in) == typeid(Euler) || typeid(*in) == typeid(Midpoint)) {
            beyond = s;
        } else {
            return -1.0;
        }
        // A margin for rounding on the way (forward differences, sums of steps).
        double r = along * s * 1.01 + beyond + 1.0;
        if (!std::isfinite(r)) return -1.0;
        reach = std::max(reach, r);
    }
    return reach;
}

int FlicCompute::tileFieldWindow(int fieldWidth, int fieldHeight, int width, int height,
                                 int channels, int tile, int& x0, int& y0, int& x1, int& y1) {
    std::vector<int> phases;
    int halo;
    if (!tileLayout(fieldWidth, fieldHeight, width, height, channels, phases, halo)) return 0;
    if (tile < 0 || tile >= static_cast<int>(phases.size()))
        return flic_error("LIC: tile %d outside 0 .. %d", tile, static_cast<int>(phases.size()) - 1);
    // The tile's pixels, as setUpWindow places them (tileLayout left the sizes derived).
    int tilesX, tilesY;
    tileGrid(width, height, tilesX, tilesY);
    int sizeX = tilesX == 1 ? width : tileSize, sizeY = tilesY == 1 ? height : tileSize;
    int px0 = tile % tilesX * sizeX, py0 = tile / tilesX * sizeY;
    int px1 = std::min(px0 + sizeX, width), py1 = std::min(py0 + sizeY, height);
    x0 = y0 = 0;
    x1 = fieldWidth;
    y1 = fieldHeight;
    double reach = lineReach();
    if (reach < 0.0) return 1; // unknown reach: the whole field
    // Seeds lie in the tile's pixels, at field coordinates pixel / scale; a point at field
    // coordinate c reads nodes floor(c) and floor(c) + 1.
    auto clip = [](double value, int limit) {
        return static_cast<int>(std::max(0.0, std::min(static_cast<double>(limit), value)));
    };
    x0 = clip(std::floor(px0 / static_cast<double>(scaleX) - reach) - 1.0, fieldWidth);
    y0 = clip(std::floor(py0 / static_cast<double>(scaleY) - reach) - 1.0, fieldHeight);
    x1 = clip(std::ceil(px1 / static_cast<double>(scaleX) + reach) + 2.0, fieldWidth);
    y1 = clip(std::ceil(py1 / static_cast<double>(scaleY) + reach) + 2.0, fieldHeight);
    return 1;
}

int FlicCompute::computeTileFromWindow(FlicVectorField* window, int x0, int y0, int fieldWidth,
                                       int fieldHeight, FlicImage* texture, int tile,
                                       TileWindow& partial, FlicImage* mask, FlicImage* seedMap,
                                       const int* earlier) {
    if (!window || !window->data || window->width < 1 || window->height < 1)
        return flic_error("LIC: the field window of tile %d is empty", tile);
    if (!texture || !texture->data)
        return flic_error("LIC: the texture of tile %d is empty", tile);
    if (x0 < 0 || y0 < 0 || window->width > fieldWidth - x0 || window->height > fieldHeight - y0)
        return flic_error("LIC: a %d x %d field window at (%d, %d) does not fit a %d x %d field",
                          window->width, window->height, x0, y0, fieldWidth, fieldHeight);
    int needX0, needY0, needX1, needY1;
    if (!tileFieldWindow(fieldWidth, fieldHeight, texture->width, texture->height,
                         texture->nChannels, tile, needX0, needY0, needX1, needY1))
        return 0;
    if (needX0 < x0 || needY0 < y0 || needX1 > x0 + window->width ||
        needY1 > y0 + window->height)
        return flic_error("LIC: the field window of tile %d holds columns %d .. %d and rows %d .. "
                          "%d, but its lines reach columns %d .. %d and rows %d .. %d",
                          tile, x0, x0 + window->width - 1, y0, y0 + window->height - 1, needX0,
                          needX1 - 1, needY0, needY1 - 1);
    // The whole field's storage, zeroed by the system page by page as it is first touched:
    // only the window's pages are ever written, and the lines read nothing beyond them.
    size_t floats = static_cast<size_t>(fieldWidth) * static_cast<size_t>(fieldHeight) * 2;
    float* whole = static_cast<float*>(calloc(floats, sizeof(float)));
    if (!whole) return flic_error("LIC: no memory for the field of tile %d", tile);
    for (int row = 0; row < window->height; row++)
        memcpy(whole + (static_cast<size_t>(y0 + row) * fieldWidth + x0) * 2,
               window->data + static_cast<size_t>(row) * window->width * 2,
               static_cast<size_t>(window->width) * 2 * sizeof(float));
    FlicVectorField field(fieldWidth, fieldHeight, whole);
    int done = computeTile(&field, texture, tile, partial, mask, seedMap, earlier);
    field.data = nullptr;
    free(whole);
    return done;
}
