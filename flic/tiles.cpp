// FlicCompute's tiled mode: the picture is cut into square tiles, each traced into a private
// window of accumulation records around it (the tile grown by the reach of its lines). Tiles
// run in phases: a tile judges coverage from its own lines and those of its neighbours of
// earlier phases, which are merged before it starts, so the picture depends on the settings
// and never on the threads or their timing. The windows' integer sums are added into the
// picture's records in any order. Each tile (with the sums of its earlier neighbours) is also
// a task of its own, for hosts that run tiles elsewhere.
#include "compute.h"

#include "engine_common.h"
#include "messages.h"
#include "sobol.h"
#include "tiles_common.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <exception>
#include <thread>

using namespace muskeip::detail;

namespace {

// Tiles smaller than this would trace most lines for their neighbours.
const int minTileSize = 8;
// More threads than this are a mistake, not a machine.
const int maxThreads = 1024;

// Picture rows merged under one lock: the rows of one tile row.
struct MergeLocks {
    std::mutex* bands; // one per band of `rows` picture rows, or null: no locking
    int rows;
};

// Adds `count` records of `stride` ints from `from` to `to` (wrap-around additions).
void addRecords(int* to, const int* from, long long count, int stride) {
    long long n = count * stride;
    for (long long k = 0; k < n; k++)
        to[k] = wrapAdd(to[k], from[k]);
}

// Adds a tile's window and overflow into the picture's records, each picture row band under its
// lock when locks are given; with `clear`, each window row is zeroed once added, so that the
// window is ready for the next tile without a pass of its own.
void mergeWindow(FlicCompute::TileWindow& partial, int* records, const MergeLocks& locks,
                 bool clear, bool withOverflow = true) {
    const int W = partial.imageWidth, H = partial.imageHeight, stride = partial.stride;
    if (W < 1 || H < 1) return;
    int firstColumns = std::min(partial.width, W - partial.x0); // up to the right edge
    int rows = partial.records.empty() ? 0 : partial.height;
    for (int r = 0; r < rows; r++) {
        int y = (partial.y0 + r) % H;
        std::unique_lock<std::mutex> lock;
        if (locks.bands) lock = std::unique_lock<std::mutex>(locks.bands[y / locks.rows]);
        int* from =
            partial.records.data() + static_cast<std::ptrdiff_t>(r) * partial.width * stride;
        int* row = records + static_cast<std::ptrdiff_t>(y) * W * stride;
        addRecords(row + static_cast<std::ptrdiff_t>(partial.x0) * stride, from, firstColumns,
                   stride);
        if (firstColumns < partial.width)
            addRecords(row, from + static_cast<std::ptrdiff_t>(firstColumns) * stride,
                       partial.width - firstColumns, stride);
        if (clear) std::fill(from, from + static_cast<std::ptrdiff_t>(partial.width) * stride, 0);
    }
    if (!withOverflow) return;
    for (size_t at = 0; at + 1 + stride <= partial.overflow.size(); at += 1 + stride) {
        int pixel = partial.overflow[at];
        std::unique_lock<std::mutex> lock;
        if (locks.bands) lock = std::unique_lock<std::mutex>(locks.bands[pixel / W / locks.rows]);
        addRecords(records + static_cast<std::ptrdiff_t>(pixel) * stride, &partial.overflow[at + 1],
                   1, stride);
    }
}

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

// The cells of the quasi-random seeding, bucketed by tile in the order of the sequence: cells
// of tile t are cells[start[t]] .. cells[start[t + 1] - 1], each packed as the cell's column
// plus its row times the tile's width in cells, both counted from the tile's first cell.
struct SobolBuckets {
    std::vector<unsigned> cells;
    std::vector<int> start;
};

// Draws the sequence as the serial engine does (all but the last of texWidth * texHeight
// pairs) and calls visit(X, Y) with the cell of each pair brought into the grid.
template <class VISIT>
void drawSobolCells(int width, int height, int s, VISIT visit) {
    KvSobol sobol;
    int cellsX = width * s, cellsY = height * s;
    sobol.init(cellsX, cellsY);
    int pixels = width * height;
    int X, Y;
    for (int counter = 0; sobol.next(X, Y);) {
        counter++;
        if (counter >= pixels) break;
        visit(cellInGrid(X, cellsX), cellInGrid(Y, cellsY));
    }
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
    return slot < 0 ? nullptr : records.data() + slot;
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

// The offsets of an axis's pixels in a window that covers `count` of them from `first` on
// (within the picture): `unit` ints per pixel, INT_MIN for pixels outside.
static void fillSlots(std::vector<int>& slots, int total, int first, int count, long long unit) {
    slots.assign(static_cast<size_t>(total), INT_MIN);
    for (int k = 0; k < count; k++)
        slots[static_cast<size_t>(first + k)] = static_cast<int>(k * unit);
}

// Places the tile and its window: the tile grown by the halo on every side, cut off at the
// picture's edges (the few points a line puts across an edge, at wrapped pixels, go to the
// overflow, so windows of tiles on opposite edges never meet).
void FlicCompute::setUpWindow(int tile, TileWindow& partial) const {
    int tilesX, tilesY;
    tileGrid(texWidth, texHeight, tilesX, tilesY);
    int sizeX = tilesX == 1 ? texWidth : tileSize, sizeY = tilesY == 1 ? texHeight : tileSize;
    int tx = tile % tilesX, ty = tile / tilesX;
    partial.tileX0 = tx * sizeX;
    partial.tileY0 = ty * sizeY;
    partial.tileX1 = std::min(partial.tileX0 + sizeX, texWidth);
    partial.tileY1 = std::min(partial.tileY0 + sizeY, texHeight);
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

// --- Tracing one tile -------------------------------------------------------------------------

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
        int x, y, i, j;
        while (seeds.next(x, y, i, j))
            seedCell(x, y, i, j, mask, seedMap);
    } catch (const std::bad_alloc&) {
        window = nullptr;
        return 0;
    }
    endTile(partial);
    return 1;
}

int FlicCompute::beginTile(int tile, TileWindow& partial, bool zeroed) {
    setUpWindow(tile, partial);
    try {
        fillSlots(partial.columnSlots, texWidth, partial.x0, partial.width, recordStride);
        fillSlots(partial.rowSlots, texHeight, partial.y0, partial.height,
                  static_cast<long long>(partial.width) * recordStride);
        size_t size = static_cast<size_t>(partial.width) * partial.height * recordStride;
        if (!zeroed)
            partial.records.assign(size, 0);
        else if (partial.records.size() < size)
            partial.records.resize(size, 0); // the rest is zero already
        partial.overflow.clear();
    } catch (const std::bad_alloc&) {
        return 0;
    }
    window = &partial;
    numFieldLines = 0;
    return 1;
}

void FlicCompute::endTile(TileWindow& partial) {
    partial.numFieldLines = numFieldLines;
    window = nullptr;
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

// Buckets the quasi-random cells by tile in one pass over the sequence per count and fill:
// 4 bytes per output pixel. Returns 0 without memory.
static int bucketSobolCells(const FlicCompute& engine, std::vector<unsigned>& cells,
                            std::vector<int>& start) {
    int tilesX, tilesY;
    engine.tileGrid(engine.texWidth, engine.texHeight, tilesX, tilesY);
    int s = engine.numSubPixels, W = engine.texWidth, H = engine.texHeight;
    int sizeX = tilesX == 1 ? W : engine.tileSize, sizeY = tilesY == 1 ? H : engine.tileSize;
    auto tileOf = [&](int X, int Y) { return (Y / s / sizeY) * tilesX + X / s / sizeX; };
    try {
        start.assign(static_cast<size_t>(tilesX) * tilesY + 1, 0);
        drawSobolCells(W, H, s, [&](int X, int Y) { start[tileOf(X, Y) + 1]++; });
        for (size_t t = 1; t < start.size(); t++)
            start[t] += start[t - 1];
        cells.assign(static_cast<size_t>(start.back()), 0);
        std::vector<int> fill(start.begin(), start.end() - 1);
        drawSobolCells(W, H, s, [&](int X, int Y) {
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

// --- The threaded driver ----------------------------------------------------------------------

bool muskeip::detail::mergeFinishedTile(FlicCompute::TileWindow& partial, PictureRecords& picture,
                                        std::vector<int>& overflow) {
    mergeWindow(partial, picture.records, MergeLocks{picture.bands, picture.bandRows}, true, false);
    try {
        overflow.insert(overflow.end(), partial.overflow.begin(), partial.overflow.end());
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

namespace {

// The threads of a tiled computation besides the calling one. They are started before the
// computation sets up its tracers and schedule, so that a core woken from idle (which takes
// milliseconds on some machines) is awake when the first tiles are ready; each waits for the
// schedule to open and then runs work(k). Closing, also on every early return, opens the
// schedule as failed if it was not opened yet and joins the threads.
class TileThreads {
  public:
    explicit TileThreads(TileSchedule& schedule) : schedule(schedule) {}
    ~TileThreads() { close(); }

    // Starts threads 1 .. count - 1 (fewer when the system refuses more).
    template <class WORK>
    void start(int count, WORK& work) {
        try {
            pool.reserve(count > 1 ? count - 1 : 0);
            for (int k = 1; k < count; k++)
                pool.emplace_back([this, &work, k] {
                    if (schedule.awaitOpening()) work(k, false);
                });
        } catch (const std::exception&) {
            // fewer threads than asked: the ones that started share the tiles
        }
    }

    void close() {
        schedule.open(false);
        for (std::thread& thread : pool)
            if (thread.joinable()) thread.join();
        pool.clear();
    }

  private:
    TileSchedule& schedule;
    std::vector<std::thread> pool;
};

} // namespace

// The pictures a tiled computation normalises its bands of rows into: the frames (or the one
// picture) and the coverage image when one is asked for. They replace the output only once
// every tile has succeeded, so a failed computation leaves the output as it was.
struct FlicCompute::TiledPictures {
    std::vector<FlicImage> frames;
    FlicImage covered;
    bool covering = false;

    // Sizes them for the engine's picture. Returns 0 without memory (said as an error).
    int size(const FlicCompute& e) {
        try {
            frames.resize(e.frameCount > 0 ? e.frameCount : 1);
        } catch (const std::bad_alloc&) {
            return flic_error("LIC: no memory for the pictures");
        }
        for (FlicImage& frame : frames)
            if (!frame.setSize(e.texWidth, e.texHeight, e.texChannels)) return 0;
        covering = e.coverage && covered.setSize(e.texWidth, e.texHeight, 1);
        return 1;
    }
    // Rows begin .. end - 1 from the picture's records; returns their hits (wrapping).
    int rows(const FlicCompute& e, int begin, int end) {
        FlicImage* coverage = covering ? &covered : nullptr;
        if (e.frameCount > 0) return e.normalizeFrameRows(frames.data(), begin, end, coverage);
        return normalizeRows(e.accum, e.texWidth, begin, end, e.numSubCells, e.texChannels,
                             &frames[0], coverage);
    }
    // Swaps them into the output (frameCount images when there are frames) and the engine's
    // coverage image.
    void deliver(FlicCompute& e, FlicImage* output) {
        for (size_t f = 0; f < frames.size(); f++)
            output[f].swap(frames[f]);
        if (covering) e.coverage->swap(covered);
    }
};

// Runs every tile on numThreads threads (the calling thread among them), each thread tracing
// the lines of one tile at a time or, with SIMD lanes, of several tiles at once; adds the
// windows into accum under per-band locks; threads that find no tile to take normalise the
// bands of rows whose tiles are all merged. The calling thread reports progress by tiles.
int FlicCompute::computeTiled(FlicImage* output, FlicImage* mask, FlicImage* seedMap) {
    int tilesX, tilesY;
    tileGrid(texWidth, texHeight, tilesX, tilesY);
    const int tiles = tilesX * tilesY;
    int threads = numThreads;
    if (threads == 0) threads = static_cast<int>(std::thread::hardware_concurrency());
    threads = std::max(1, std::min(threads, tiles));
    // Each tile's window: its rows, for the bands of rows, and the largest one's size, for the
    // lanes.
    std::vector<int> tops, bottoms;
    long long windowBytes = 0;
    try {
        tops.resize(tiles);
        bottoms.resize(tiles);
    } catch (const std::bad_alloc&) {
        return flic_error("LIC: no memory for the tile schedule");
    }
    for (int tile = 0; tile < tiles; tile++) {
        TileWindow placed;
        setUpWindow(tile, placed);
        tops[tile] = placed.y0;
        bottoms[tile] = placed.y0 + placed.height;
        windowBytes = std::max(windowBytes, static_cast<long long>(placed.width) * placed.height *
                                                recordStride * static_cast<long long>(sizeof(int)));
    }
    LanePlan plan = planLanes(*this, windowBytes);
    const int lanes = plan.tiles; // tracers per thread
    flic_info("LIC: tiled mode (tile size %d, tiles %d, threads %d), %s", tileSize, tiles, threads,
              plan.note.c_str());

    // What the threads share, filled in before the schedule opens.
    TileSchedule schedule;
    schedule.tiles = tiles;
    schedule.threads = threads;
    std::vector<unsigned> sobolCells;
    std::vector<int> sobolStart;
    std::vector<std::unique_ptr<FlicCompute>> tracers; // one per lane of every thread
    std::vector<TileWindow> windows;                   // per tracer, kept zeroed between its tiles
    // Per thread: the overflow of its tiles, added when every tile is done: overflow may fall
    // anywhere, and coverage is judged from the windows of the earlier neighbours only.
    std::vector<std::vector<int>> overflows;
    std::unique_ptr<std::mutex[]> bands;
    PictureRecords picture;
    picture.records = accum;
    picture.bandRows = tilesY == 1 ? texHeight : tileSize;
    const std::vector<unsigned>* cells = seedingMethod == 2 ? &sobolCells : nullptr;
    const std::vector<int>* starts = seedingMethod == 2 ? &sobolStart : nullptr;

    auto work = [&](int k, bool reports) {
        if (lanes > 1) {
            LaneWork job{this,
                         &tracers[k * lanes],
                         &windows[k * lanes],
                         &plan,
                         &schedule,
                         mask,
                         seedMap,
                         cells,
                         starts,
                         &picture,
                         &overflows[k],
                         reports};
            FlicLaneTracer::traceTiles(job);
        } else {
            FlicCompute* tracer = tracers[k].get();
            TileWindow& partial = windows[k];
            for (int tile; (tile = schedule.take(true)) >= 0;) {
                bool ok = tracer->traceTile(tile, partial, mask, seedMap, cells, starts, true) &&
                          mergeFinishedTile(partial, picture, overflows[k]);
                int done = schedule.finish(tile, partial.numFieldLines, ok);
                if (reports) reportProgress(done, tiles);
            }
        }
    };
    TileThreads pool(schedule);
    pool.start(threads, work);

    auto release = [&] {
        pool.close();
        for (auto& tracer : tracers)
            tracer->freeBuffers();
    };
    if (seedingMethod == 2 && !bucketSobolCells(*this, sobolCells, sobolStart)) {
        release();
        return flic_error("LIC: no memory for the quasi-random seeds of the tiles");
    }
    for (int k = 0; k < threads * lanes; k++) {
        std::unique_ptr<FlicCompute> tracer(new (std::nothrow) FlicCompute);
        if (!tracer || !tracer->becomeTracerOf(*this)) {
            if (tracer) tracer->freeBuffers();
            release();
            return flic_error("LIC: no memory for %d tile tracers", threads * lanes);
        }
        tracer->coveredRecords = accum; // read only inside a tile, see below
        tracer->coveredWidth = texWidth;
        tracers.push_back(std::move(tracer));
    }
    bands.reset(new (std::nothrow) std::mutex[tilesY]);
    if (!bands) {
        release();
        return flic_error("LIC: no memory for the tile locks");
    }
    if (threads > 1) picture.bands = bands.get();

    // The picture's records are touched here, page by page, so that the threads' merges do not
    // all stop at once to have fresh zero pages mapped (page faults serialise in the kernel;
    // touching them from two threads at once, or by the other threads while this one starts on
    // the tiles, was slower, with stalls of up to tens of milliseconds).
    if (threads > 1) {
        size_t count = static_cast<size_t>(texWidth) * texHeight * recordStride;
        for (size_t k = 0; k < count; k += 1024)
            accum[k] = 0;
    }
    // A tile may start once every tile of an earlier phase that reaches into it, or into which
    // it reaches, has been merged; tiles of later phases that reach into it wait for it. So
    // while a tile runs, nothing is added to its pixels but by itself, and it judges coverage
    // from its own lines and exactly those of its earlier neighbours.
    try {
        windows.resize(static_cast<size_t>(threads) * lanes);
        overflows.resize(threads);
        std::vector<int> phaseOf;
        phasesOfTiles(phaseOf);
        schedule.later.assign(tiles, std::vector<int>());
        schedule.waitingFor.assign(tiles, 0);
        tileNeighbours(phaseOf, schedule.later, schedule.waitingFor);
        prioritiseTiles(schedule, phaseOf);
        for (int tile = 0; tile < tiles; tile++)
            if (schedule.waitingFor[tile] == 0) schedule.ready.push_back(tile);
        schedule.rowBands.setUp(texHeight, tops, bottoms);
    } catch (const std::bad_alloc&) {
        release();
        return flic_error("LIC: no memory for the tile schedule");
    }
    TiledPictures pictures;
    if (!pictures.size(*this)) {
        release();
        return 0;
    }
    schedule.rowBands.normalize = [&](int begin, int end) {
        return pictures.rows(*this, begin, end);
    };
    schedule.open(true);

    work(0, true);
    pool.close();
    reportProgress(tiles, tiles);
    release();
    if (schedule.failed) return flic_error("LIC: no memory for the tile windows");
    for (std::vector<int>& overflow : overflows) {
        const size_t entry = 1 + static_cast<size_t>(recordStride);
        for (size_t e = 0; e + entry <= overflow.size(); e += entry)
            schedule.rowBands.touch(overflow[e] / texWidth);
        TileWindow entries;
        entries.imageWidth = texWidth;
        entries.imageHeight = texHeight;
        entries.stride = recordStride;
        entries.overflow.swap(overflow);
        mergeWindow(entries, accum, MergeLocks{nullptr, 1}, false);
    }
    schedule.rowBands.normalizeTouched();
    numFieldLines = schedule.lines;
    for (auto& tracer : tracers)
        tracedPoints += tracer->tracedPoints;
    totalHits = wrapAdd(totalHits, schedule.rowBands.totalHits());
    pictures.deliver(*this, output);
    return 1;
}

// --- Tiles as tasks ---------------------------------------------------------------------------

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
