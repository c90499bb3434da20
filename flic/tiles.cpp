// FlicCompute's tiled mode, run on threads: the picture is cut into square tiles, each traced
// into a window of accumulation records around it (the tile grown by the reach of its lines).
// Tiles run in phases: a tile judges coverage from its own lines and those of its neighbours
// of earlier phases, which are merged before it starts, so the picture depends on the settings
// and never on the threads or their timing. When the windows of tiles that run at once can
// never meet, tiles add into the picture's records directly; otherwise each window has records
// of its own, whose integer sums are added into the picture's in any order. The tiles'
// geometry and phases, the tracing of one tile and tiles run as tasks elsewhere have files of
// their own (tile_*.cpp).
#include "compute.h"

#include "engine_common.h"
#include "messages.h"
#include "tiles_common.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

using namespace muskeip::detail;

// --- Merging windows --------------------------------------------------------------------------

void muskeip::detail::addRecords(int* to, const int* from, long long count, int stride) {
    long long n = count * stride;
    for (long long k = 0; k < n; k++)
        to[k] = wrapAdd(to[k], from[k]);
}

void muskeip::detail::mergeWindow(FlicCompute::TileWindow& partial, int* records,
                                  const MergeLocks& locks, bool clear, bool withOverflow) {
    const int W = partial.imageWidth, stride = partial.stride;
    int rows = partial.records.empty() ? 0 : partial.height;
    for (int r = 0; r < rows; r++) {
        int y = partial.y0 + r;
        std::unique_lock<std::mutex> lock;
        if (locks.bands) lock = std::unique_lock<std::mutex>(locks.bands[y / locks.rows]);
        int* from =
            partial.records.data() + static_cast<std::ptrdiff_t>(r) * partial.width * stride;
        int* row = records + static_cast<std::ptrdiff_t>(y) * W * stride;
        addRecords(row + static_cast<std::ptrdiff_t>(partial.x0) * stride, from, partial.width,
                   stride);
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

// One tiled computation: what its threads share, set up step by step before the schedule
// opens, and the steps that set it up, run the tiles and finish the picture. Every step that
// can run out of memory returns 0 after a report; release() then frees what was made.
struct FlicCompute::TiledRun {
    FlicCompute& e;
    FlicImage* const mask;
    FlicImage* const seedMap;
    int tiles = 0, tilesY = 0, threads = 1;
    LanePlan plan;
    int lanes = 1;                  // tracers per thread (plan.tiles)
    std::vector<int> tops, bottoms; // each tile window's rows, for the bands of rows
    TileSchedule schedule;
    std::vector<unsigned> sobolCells;
    std::vector<int> sobolStart;
    std::vector<std::unique_ptr<FlicCompute>> tracers; // one per lane of every thread
    std::vector<TileWindow> windows;                   // per tracer, kept zeroed between its tiles
    // Per thread: the overflow of its tiles, added when every tile is done: overflow may fall
    // anywhere, and coverage is judged from the windows of the earlier neighbours only.
    std::vector<std::vector<int>> overflows;
    std::unique_ptr<std::mutex[]> bands;
    PictureRecords picture;
    TiledPictures pictures;

    TiledRun(FlicCompute& engine, FlicImage* mask, FlicImage* seedMap)
        : e(engine), mask(mask), seedMap(seedMap) {}

    // The tiles, the threads that take them (numThreads, 0: all cores, at most one per tile),
    // each tile window's rows and the lane plan for the largest window; says which tracer runs.
    int planTiles();
    // The quasi-random seeds bucketed by tile, when the engine seeds that way.
    int bucketSeeds();
    // threads x lanes tracers of the engine's picture, adding into the picture's records
    // directly when tiles share none (`direct`), else judging coverage from them.
    int makeTracers(bool direct);
    // The locks of the bands of rows, one per row of tiles (used with more than one thread).
    int makeBands();
    // The picture's records touched page by page before the threads write into them.
    void touchRecords() const;
    // The windows, overflows, phases, neighbours, priorities, ready tiles and bands of rows.
    int makeSchedule();
    // Thread k's share of the tiles: one tile at a time, or several at once in SIMD lanes.
    // The thread that `reports` reports progress.
    void work(int k, bool reports);
    // The tracers' buffers freed.
    void release();
    // After every tile: the overflows added and their bands normalised, the statistics
    // gathered and the pictures delivered into `output`.
    void finish(FlicImage* output);
};

int FlicCompute::TiledRun::planTiles() {
    int tilesX;
    e.tileGrid(e.texWidth, e.texHeight, tilesX, tilesY);
    tiles = tilesX * tilesY;
    threads = e.numThreads;
    if (threads == 0) threads = static_cast<int>(std::thread::hardware_concurrency());
    threads = std::max(1, std::min(threads, tiles));
    long long windowBytes = 0;
    try {
        tops.resize(tiles);
        bottoms.resize(tiles);
    } catch (const std::bad_alloc&) {
        return flic_error("LIC: no memory for the tile schedule");
    }
    for (int tile = 0; tile < tiles; tile++) {
        TileWindow placed;
        e.setUpWindow(tile, placed);
        tops[tile] = placed.y0;
        bottoms[tile] = placed.y0 + placed.height;
        windowBytes =
            std::max(windowBytes, static_cast<long long>(placed.width) * placed.height *
                                      e.recordStride * static_cast<long long>(sizeof(int)));
    }
    plan = planLanes(e, windowBytes, threads);
    lanes = plan.tiles;
    flic_info("LIC: tiled mode (tile size %d, tiles %d, threads %d), %s", e.tileSize, tiles,
              threads, plan.note.c_str());
    schedule.tiles = tiles;
    schedule.threads = threads;
    picture.records = e.accum;
    picture.bandRows = tilesY == 1 ? e.texHeight : e.tileSize;
    return 1;
}

int FlicCompute::TiledRun::bucketSeeds() {
    if (e.seedingMethod != 2 || bucketSobolCells(e, sobolCells, sobolStart)) return 1;
    return flic_error("LIC: no memory for the quasi-random seeds of the tiles");
}

int FlicCompute::TiledRun::makeTracers(bool direct) {
    for (int k = 0; k < threads * lanes; k++) {
        std::unique_ptr<FlicCompute> tracer(new (std::nothrow) FlicCompute);
        if (!tracer || !tracer->becomeTracerOf(e)) {
            if (tracer) tracer->freeBuffers();
            return flic_error("LIC: no memory for %d tile tracers", threads * lanes);
        }
        if (direct) {
            tracer->directRecords = e.accum; // no window records, no merging
        } else {
            tracer->coveredRecords = e.accum; // read only inside a tile, see makeSchedule
            tracer->coveredWidth = e.texWidth;
        }
        tracers.push_back(std::move(tracer));
    }
    return 1;
}

int FlicCompute::TiledRun::makeBands() {
    bands.reset(new (std::nothrow) std::mutex[tilesY]);
    if (!bands) return flic_error("LIC: no memory for the tile locks");
    if (threads > 1) picture.bands = bands.get();
    return 1;
}

// The pages are touched by one thread before the others start, so that the threads' first
// writes into them (merges, or lines added directly) do not all stop at once to have fresh
// zero pages mapped (page faults serialise in the kernel; touching them from two threads at
// once, or by the other threads while this one starts on the tiles, was slower, with stalls
// of up to tens of milliseconds).
void FlicCompute::TiledRun::touchRecords() const {
    if (threads < 2) return;
    size_t count = static_cast<size_t>(e.texWidth) * e.texHeight * e.recordStride;
    for (size_t k = 0; k < count; k += 1024)
        e.accum[k] = 0;
}

// A tile may start once every tile of an earlier phase that reaches into it, or into which it
// reaches, has been merged; tiles of later phases that reach into it wait for it. So while a
// tile runs, nothing is added to its pixels but by itself, and it judges coverage from its own
// lines and exactly those of its earlier neighbours.
int FlicCompute::TiledRun::makeSchedule() {
    try {
        windows.resize(static_cast<size_t>(threads) * lanes);
        overflows.resize(threads);
        std::vector<int> phaseOf;
        e.phasesOfTiles(phaseOf);
        schedule.later.assign(tiles, std::vector<int>());
        schedule.waitingFor.assign(tiles, 0);
        e.tileNeighbours(phaseOf, schedule.later, schedule.waitingFor);
        prioritiseTiles(schedule, phaseOf);
        for (int tile = 0; tile < tiles; tile++)
            if (schedule.waitingFor[tile] == 0) schedule.ready.push_back(tile);
        schedule.rowBands.setUp(e.texHeight, tops, bottoms);
    } catch (const std::bad_alloc&) {
        return flic_error("LIC: no memory for the tile schedule");
    }
    schedule.rowBands.normalize = [this](int begin, int end) {
        return pictures.rows(e, begin, end);
    };
    return 1;
}

void FlicCompute::TiledRun::work(int k, bool reports) {
    const std::vector<unsigned>* cells = e.seedingMethod == 2 ? &sobolCells : nullptr;
    const std::vector<int>* starts = e.seedingMethod == 2 ? &sobolStart : nullptr;
    if (lanes > 1) {
        LaneWork job{&e,
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
        return;
    }
    FlicCompute* tracer = tracers[k].get();
    TileWindow& partial = windows[k];
    for (int tile; (tile = schedule.take(true)) >= 0;) {
        bool ok = tracer->traceTile(tile, partial, mask, seedMap, cells, starts, true) &&
                  mergeFinishedTile(partial, picture, overflows[k]);
        int done = schedule.finish(tile, partial.numFieldLines, ok);
        if (reports) e.reportProgress(done, tiles);
    }
}

void FlicCompute::TiledRun::release() {
    for (auto& tracer : tracers)
        tracer->freeBuffers();
}

void FlicCompute::TiledRun::finish(FlicImage* output) {
    for (std::vector<int>& overflow : overflows) {
        const size_t entry = 1 + static_cast<size_t>(e.recordStride);
        for (size_t at = 0; at + entry <= overflow.size(); at += entry)
            schedule.rowBands.touch(overflow[at] / e.texWidth);
        TileWindow entries;
        entries.imageWidth = e.texWidth;
        entries.imageHeight = e.texHeight;
        entries.stride = e.recordStride;
        entries.overflow.swap(overflow);
        mergeWindow(entries, e.accum, MergeLocks{nullptr, 1}, false);
    }
    schedule.rowBands.normalizeTouched();
    e.numFieldLines = schedule.lines;
    for (auto& tracer : tracers)
        e.tracedPoints += tracer->tracedPoints;
    e.totalHits = wrapAdd(e.totalHits, schedule.rowBands.totalHits());
    pictures.deliver(e, output);
}

// Runs every tile on numThreads threads (the calling thread among them), each thread tracing
// the lines of one tile at a time or, with SIMD lanes, of several tiles at once; adds the
// windows into accum under per-band locks; threads that find no tile to take normalise the
// bands of rows whose tiles are all merged. The calling thread reports progress by tiles.
int FlicCompute::computeTiled(FlicImage* output, FlicImage* mask, FlicImage* seedMap) {
    TiledRun run(*this, mask, seedMap);
    if (!run.planTiles()) return 0;
    auto work = [&run](int k, bool reports) { run.work(k, reports); };
    TileThreads pool(run.schedule);
    pool.start(run.threads, work);
    auto fail = [&] {
        pool.close();
        run.release();
        return 0;
    };
    if (!run.bucketSeeds() || !run.makeTracers(tilesShareNoRecords()) || !run.makeBands())
        return fail();
    run.touchRecords();
    if (!run.makeSchedule() || !run.pictures.size(*this)) return fail();
    run.schedule.open(true);

    run.work(0, true);
    pool.close();
    reportProgress(run.tiles, run.tiles);
    run.release();
    if (run.schedule.failed) return flic_error("LIC: no memory for the tile windows");
    run.finish(output);
    return 1;
}
