// The parts of the tiled engine shared by its files: a tile's seed order as an iterator, the
// quasi-random cells bucketed by tile, the adding of windows into the picture, the schedule of
// tiles over the threads and the plan of the SIMD lanes (not installed).
#ifndef MUSKEIP_TILES_COMMON_H
#define MUSKEIP_TILES_COMMON_H

#include "compute.h"
#include "lane_trials_common.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace muskeip {
namespace detail {

// The seed cells of one tile in the engine's seeding order restricted to the tile: pixel
// (x, y), sub-pixel cell (i, j). Method 0 raster, 1 the interleaved 4 x 4 pattern, 2 the
// quasi-random cells of the tile (`cells` first .. end - 1, packed as in the tile buckets);
// any other method has no seeds.
class TileSeeds {
  public:
    TileSeeds(int method, int subPixels, int x0, int y0, int x1, int y1,
              const unsigned* cells = nullptr, int first = 0, int end = 0);
    // The next seed cell; false when the tile has none left. Inline: it runs once per cell.
    bool next(int& outX, int& outY, int& outI, int& outJ) {
        if (done) return false;
        if (method == 2) return nextQuasiRandom(outX, outY, outI, outJ);
        outX = x;
        outY = y;
        outI = i;
        outJ = j;
        x += method == 1 ? 4 : 1;
        if (x >= x1) nextRow();
        return true;
    }

  private:
    int method, s, x0, y0, x1, y1;
    const unsigned* cells;
    int k, end;        // quasi-random: the next bucket entry and its end
    int x, y, i, j, o; // raster and pattern: the next cell, o the pattern's offset
    bool done;
    int firstX(int o) const; // the pattern's first column and row of offset o in the tile
    int firstY(int o) const;
    void startOffset(); // pattern: the first cell of offset o or of the next offsets
    void nextRow();
    bool nextQuasiRandom(int& outX, int& outY, int& outI, int& outJ);
};

// The seeds of tile `tile`, whose window `partial` has been set up; the quasi-random buckets
// when the seeding is quasi-random.
TileSeeds seedsOfTile(const FlicCompute& engine, int tile, const FlicCompute::TileWindow& partial,
                      const std::vector<unsigned>* sobolCells, const std::vector<int>* sobolStart);

// Bands of the picture's rows, normalised while tiles still run. A band is ready once every
// tile whose window meets it has been merged: after that only the overflow, added when all
// tiles are done, changes its records. A thread with no tile to take normalises a ready band
// instead of sleeping, so the threads that finish first fill the time the last tiles take.
struct RowBands {
    static const int rows = 32;             // picture rows per band
    std::vector<int> waitingFor;            // per band: tiles whose windows meet it, not merged
    std::vector<int> first, last;           // per tile: the first and last band it meets
    std::vector<int> ready;                 // bands to normalise
    std::vector<int> hits;                  // per band: the hits its normalisation counted
    std::function<int(int, int)> normalize; // rows begin .. end - 1; returns their hits
    int height = 0;

    // Bands for a picture `height` rows high whose tiles' windows cover rows tops[t] ..
    // bottoms[t] - 1; bands that no window meets are ready at once. Throws std::bad_alloc.
    void setUp(int height, const std::vector<int>& tops, const std::vector<int>& bottoms);
    // Counts tile `tile` as merged; its bands that waited for it alone become ready.
    void tileMerged(int tile);
    // Normalises band b, keeping its hits.
    void normalizeBand(int b);
    // Once every tile is merged: marks the band of picture row `row` for normalizeTouched (the
    // overflow added to it); rows outside the picture are ignored.
    void touch(int row);
    // Normalises the marked bands again.
    void normalizeTouched();
    // The wrapping sum of the bands' hits.
    int totalHits() const;
};

// Tiles waiting, ready and done, shared by the threads of one computation under one lock. A
// tile is ready once every tile of an earlier phase that reaches into it, or into which it
// reaches, is done.
struct TileSchedule {
    std::mutex state;
    std::condition_variable changed;
    std::vector<int> ready; // tiles to take, in the order takenBefore gives
    // Per tile: the longest chain of tiles waiting on it, counted in tiles (the larger, the
    // sooner it is taken); when it was taken; the seconds its earlier neighbours took, summed,
    // and their count. Timing steers only the order of the tiles, never the picture.
    std::vector<int> priority;
    std::vector<std::chrono::steady_clock::time_point> startedAt;
    std::vector<double> neighbourSeconds;
    std::vector<int> neighbourCount;
    std::vector<std::vector<int>> later; // per tile: the tiles that wait for it
    std::vector<int> waitingFor;         // per tile: tiles it still waits for
    int tiles = 0, tilesDone = 0, lines = 0;
    int threads = 1;        // threads that take tiles
    int inFlight = 0;       // tiles taken and not yet done
    int waitingThreads = 0; // threads asleep in take
    // What take(false, held) decides on, also read without the lock (see mayTake): the ready
    // tiles' count, tilesPerThread, and whether a thread waits.
    std::atomic<int> readyCount{0}, fairShare{0}, threadsWaiting{0};
    bool failed = false;
    bool opened = false; // the tiles may be taken (set once by open)
    RowBands rowBands;   // normalised by threads that have no tile to take

    // A ready tile, or -1 when none: after a failure, when every tile is taken, or (without
    // `wait`) when none is ready yet. With `wait` it normalises ready bands of rows while no
    // tile is ready, and sleeps while neither is, until a tile is ready or all tiles are done
    // and no band is left.
    // A thread that already holds `held` tiles (the lane tracer) gets another only while no
    // thread waits for one and its tiles stay within tilesPerThread.
    int take(bool wait, int held = 0);
    // How many tiles a thread may hold at once: one while fewer tiles are ready than there are
    // threads (a second tile in a lane thread runs at a fraction of the thread's speed, and a
    // tile that others wait for should not), else a fair share of the tiles at hand.
    long long tilesPerThread() const;
    // Whether take(false, held) would likely give a tile, judged without the lock: a lane
    // tracer asks after every trial step while one of its lanes is empty, and a lane alone in
    // its thread after every line, and they should not take the lock in vain.
    bool mayTake(int held) const;
    // Whether ready tile a goes before ready tile b: the longer chain first; between equal
    // chains the tile whose earlier neighbours took longer on average (a field's costly
    // regions are wide, so costly tiles start early and the last tiles to finish, while other
    // threads may have nothing left to do, are cheap ones); then the lower number.
    bool takenBefore(int a, int b) const;
    // Waits until the schedule is opened; returns false when it was opened as failed.
    bool awaitOpening();
    // Opens the schedule (once; later calls do nothing): ok true once the ready tiles and the
    // threads' work are in place, false to let waiting threads go without taking a tile.
    void open(bool ok);
    // Stores the figures mayTake reads (under the lock).
    void publish();
    // Records a tile as done (and merged) with its line count (ok false: it failed) and readies
    // the tiles and bands of rows that waited for it. Returns the number of tiles done.
    int finish(int tile, int lines, bool ok);
};

// Sets the tiles' priorities from their phases and the tiles that wait for them (`later`),
// and sizes the schedule's per-tile timing.
void prioritiseTiles(TileSchedule& schedule, const std::vector<int>& phaseOf);

// The picture's records as the threads add finished tiles into them, under a lock per band of
// bandRows rows (no locks with one thread).
struct PictureRecords {
    int* records = nullptr;
    std::mutex* bands = nullptr;
    int bandRows = 1;
};

// Picture rows merged under one lock: the rows of one tile row.
struct MergeLocks {
    std::mutex* bands; // one per band of `rows` picture rows, or null: no locking
    int rows;
};

// Adds `count` records of `stride` ints from `from` to `to` (wrap-around additions).
void addRecords(int* to, const int* from, long long count, int stride);

// Adds a tile's window and overflow into the picture's records, each picture row band under its
// lock when locks are given; with `clear`, each window row is zeroed once added, so that the
// window is ready for the next tile without a pass of its own. The window lies inside the
// picture (as setUpWindow places it, or as FlicCompute's checks of outside partials demand).
void mergeWindow(FlicCompute::TileWindow& partial, int* records, const MergeLocks& locks,
                 bool clear, bool withOverflow = true);

// The cells of the quasi-random seeding bucketed by tile in the order of the sequence (drawn
// as the serial engine draws it): cells of tile t are cells[start[t]] .. cells[start[t + 1] -
// 1], each packed as the cell's column plus its row times the tile's width in cells, both
// counted from the tile's first cell. 4 bytes per output pixel; returns 0 without memory.
int bucketSobolCells(const FlicCompute& engine, std::vector<unsigned>& cells,
                     std::vector<int>& start);

// Adds a finished tile's window into the picture's records and keeps its overflow for the
// end; zeroes the window for the next tile. Returns false without memory.
bool mergeFinishedTile(FlicCompute::TileWindow& partial, PictureRecords& picture,
                       std::vector<int>& overflow);

// How a tiled computation traces its tiles: `lanes` tiles at once per thread, or one at a
// time with the scalar tracer (lanes 1); `note` says which and why, for the verbose report.
// The trial kernels offered up to that width, narrowest first: a batch in which only a few
// lanes ask for a trial takes the narrowest kernel that holds them.
struct LanePlan {
    int lanes = 1;
    // Tiles a thread holds at once, at most `lanes`: as many as keep the windows of all
    // threads within laneWindowBudget bytes, for the windows of the tiles in hand compete for
    // the shared cache (sixteen windows of 1.6 MB made the widest lanes slower than narrower
    // ones; on two threads, eight tiles in hand each were slower than four).
    int tiles = 1;
    int kernelCount = 0;
    int widths[3] = {0, 0, 0};
    TrialKernel kernels[3] = {nullptr, nullptr, nullptr};
    std::string note;
};
constexpr long long laneWindowBudget = 12LL << 20;
// The plan for the engine's settings (simdLanes, integrators, field) on this processor, for
// tile windows of at most `windowBytes` bytes traced on `threads` threads.
LanePlan planLanes(const FlicCompute& engine, long long windowBytes, int threads);

// What one thread of the tiled driver hands to the lane tracer: its plan.tiles tracers and
// windows, the shared schedule and the computation's inputs.
struct LaneWork {
    FlicCompute* parent; // reports progress
    std::unique_ptr<FlicCompute>* tracers;
    FlicCompute::TileWindow* windows;
    const LanePlan* plan;
    TileSchedule* schedule;
    FlicImage* mask;
    FlicImage* seedMap;
    const std::vector<unsigned>* sobolCells;
    const std::vector<int>* sobolStart;
    PictureRecords* picture;
    std::vector<int>* overflow;
    bool reports; // this thread reports progress
};

} // namespace detail
} // namespace muskeip

// The lane tracer (outside the library's namespace: the engine's friend): takes tiles from the
// schedule until none is left, traces the lines of one tile per lane, each lane's points exactly
// those of the scalar tracer, and merges each tile when it is done (a tile that runs out of memory
// is marked failed in the schedule).
struct FlicLaneTracer {
    static void traceTiles(muskeip::detail::LaneWork& work);

    // The engine's own steps that a lane takes (see FlicCompute).
    static void seedCell(FlicCompute& e, int x, int y, int i, int j, FlicImage* mask,
                         FlicImage* seedMap) {
        e.seedCell(x, y, i, j, mask, seedMap);
    }
    static int seedOfCell(const FlicCompute& e, int x, int y, int i, int j, Vec2f& seed) {
        return e.seedOfCell(x, y, i, j, seed);
    }
    static bool coversCell(const FlicCompute& e, int x, int y, int i, int j) {
        return e.coversCell(x, y, i, j);
    }
    static int beginLine(FlicCompute& e, const Vec2f& seed, Vec2f& v) {
        return e.beginLine(seed, v);
    }
    static void finishLine(FlicCompute& e, int lo, int hi) { e.finishLine(lo, hi); }
    static void markSeed(const FlicCompute& e, int x, int y, const Vec2f& seed, FlicImage* mask,
                         FlicImage* seedMap) {
        e.markSeed(x, y, seed, mask, seedMap);
    }
    static int beginTile(FlicCompute& e, int tile, FlicCompute::TileWindow& partial) {
        return e.beginTile(tile, partial, true);
    }
    static void endTile(FlicCompute& e, FlicCompute::TileWindow& partial) { e.endTile(partial); }
    static void reportProgress(FlicCompute& e, long long done, long long total) {
        e.reportProgress(done, total);
    }
    static Vec2f* positions(FlicCompute& e) { return e.positions; }
};

#endif
