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
        return flic_error("LIC: tile %d outside 0 .. %d", tile,
                          static_cast<int>(phases.size()) - 1);
    int px0, py0, px1, py1; // tileLayout left the sizes derived
    tilePixels(width, height, tile, px0, py0, px1, py1);
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
                                       const int* earlier, long long earlierInts) {
    if (!window || !window->data || window->width < 1 || window->height < 1)
        return flic_error("LIC: the field window of tile %d is empty", tile);
    if (!texture || !texture->data) return flic_error("LIC: the texture of tile %d is empty", tile);
    if (x0 < 0 || y0 < 0 || window->width > fieldWidth - x0 || window->height > fieldHeight - y0)
        return flic_error("LIC: a %d x %d field window at (%d, %d) does not fit a %d x %d field",
                          window->width, window->height, x0, y0, fieldWidth, fieldHeight);
    int needX0, needY0, needX1, needY1;
    if (!tileFieldWindow(fieldWidth, fieldHeight, texture->width, texture->height,
                         texture->nChannels, tile, needX0, needY0, needX1, needY1))
        return 0;
    if (needX0 < x0 || needY0 < y0 || needX1 > x0 + window->width || needY1 > y0 + window->height)
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
    int done = computeTile(&field, texture, tile, partial, mask, seedMap, earlier, earlierInts);
    field.data = nullptr;
    free(whole);
    return done;
}

// The texture is read at the lines' points in pixels, wrapped with the period width - 1 (the
// last column is a neighbour only) and read at the wrapped column and the next one; rows alike.
// Along one axis: the first data column and the count of columns that hold every column read
// for positions in [low, high], wrapping modulo `size`; the whole axis when they would not be
// fewer.
static void cyclicSpan(double low, double high, int size, int& first, int& count) {
    first = 0;
    count = size;
    int period = size - 1;
    if (period < 1 || !(high - low + 4.0 < period)) return;
    double start = std::floor(low) - 1.0;
    double wrapped = std::fmod(start, static_cast<double>(period));
    if (wrapped < 0.0) wrapped += period;
    first = static_cast<int>(wrapped);
    count = static_cast<int>(std::ceil(high) - start) + 5; // the next column and a margin
    if (count >= size) {
        first = 0;
        count = size;
    }
}

int FlicCompute::tileTextureWindow(int fieldWidth, int fieldHeight, int width, int height,
                                   int channels, int tile, int& x0, int& y0, int& w, int& h) {
    int fx0, fy0, fx1, fy1; // also derives the settings and checks the tile
    if (!tileFieldWindow(fieldWidth, fieldHeight, width, height, channels, tile, fx0, fy0, fx1,
                         fy1))
        return 0;
    x0 = y0 = 0;
    w = width;
    h = height;
    double reach = lineReach();
    if (reach < 0.0) return 1;
    int px0, py0, px1, py1;
    tilePixels(width, height, tile, px0, py0, px1, py1);
    double rx = reach * scaleX, ry = reach * scaleY;
    cyclicSpan(px0 - rx, px1 + rx, width, x0, w);
    cyclicSpan(py0 - ry, py1 + ry, height, y0, h);
    return 1;
}

int FlicCompute::computeTileFromWindows(FlicVectorField* fieldWindow, int fieldX0, int fieldY0,
                                        int fieldWidth, int fieldHeight, FlicImage* textureWindow,
                                        int textureX0, int textureY0, int width, int height,
                                        const double* textureMeans, int tile, TileWindow& partial,
                                        const int* earlier, long long earlierInts) {
    if (!textureWindow || !textureWindow->data || !textureMeans || width < 1 || height < 1)
        return flic_error("LIC: the texture window of tile %d is empty", tile);
    int channels = textureWindow->nChannels;
    int needX0, needY0, needW, needH;
    if (!tileTextureWindow(fieldWidth, fieldHeight, width, height, channels, tile, needX0, needY0,
                           needW, needH))
        return 0;
    // Every column and row named must lie in the given window (both taken cyclically).
    auto holds = [](int given0, int givenCount, int need0, int needCount, int size) {
        if (givenCount >= size) return true;
        int offset = ((need0 - given0) % size + size) % size;
        return offset + needCount <= givenCount;
    };
    if (textureX0 < 0 || textureY0 < 0 || textureX0 >= width || textureY0 >= height ||
        textureWindow->width > width || textureWindow->height > height ||
        !holds(textureX0, textureWindow->width, needX0, needW, width) ||
        !holds(textureY0, textureWindow->height, needY0, needH, height))
        return flic_error("LIC: the texture window of tile %d (%d x %d pixels from (%d, %d)) does "
                          "not hold the %d x %d pixels from (%d, %d) its lines read",
                          tile, textureWindow->width, textureWindow->height, textureX0, textureY0,
                          needW, needH, needX0, needY0);
    // As for the field: storage of the whole texture, written only where the window lies.
    size_t rowBytes = static_cast<size_t>(width) * channels;
    unsigned char* whole = static_cast<unsigned char*>(calloc(rowBytes * height, 1));
    if (!whole) return flic_error("LIC: no memory for the texture of tile %d", tile);
    for (int r = 0; r < textureWindow->height; r++) {
        const unsigned char* from =
            textureWindow->data + static_cast<std::ptrdiff_t>(r) * textureWindow->bytesPerLine;
        unsigned char* row = whole + static_cast<size_t>((textureY0 + r) % height) * rowBytes;
        for (int c = 0; c < textureWindow->width; c++)
            memcpy(row + static_cast<size_t>((textureX0 + c) % width) * channels,
                   from + static_cast<size_t>(c) * channels, channels);
    }
    FlicImage texture(width, height, channels, static_cast<int>(rowBytes), whole);
    givenTextureMean = textureMeans;
    int done =
        computeTileFromWindow(fieldWindow, fieldX0, fieldY0, fieldWidth, fieldHeight, &texture,
                              tile, partial, nullptr, nullptr, earlier, earlierInts);
    givenTextureMean = nullptr;
    texture.data = nullptr;
    free(whole);
    return done;
}
