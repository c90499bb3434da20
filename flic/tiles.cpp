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
    LanePlan plan = planLanes(*this, windowBytes, threads);
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
    const bool direct = tilesShareNoRecords();

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
        if (direct) {
            tracer->directRecords = accum; // no window records, no merging: see above
        } else {
            tracer->coveredRecords = accum; // read only inside a tile, see below
            tracer->coveredWidth = texWidth;
        }
        tracers.push_back(std::move(tracer));
    }
    bands.reset(new (std::nothrow) std::mutex[tilesY]);
    if (!bands) {
        release();
        return flic_error("LIC: no memory for the tile locks");
    }
    if (threads > 1) picture.bands = bands.get();

    // The picture's records are touched here, page by page, so that the threads' first writes
    // into them (merges, or lines added directly) do not all stop at once to have fresh zero
    // pages mapped (page faults serialise in the kernel; touching them from two threads at
    // once, or by the other threads while this one starts on the tiles, was slower, with stalls
    // of up to tens of milliseconds).
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
