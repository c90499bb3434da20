// The lane tracer of the tiled engine: one thread traces the current lines of several tiles at
// once, one tile per lane. Tiles never share records while they run, so the lanes never wait
// on each other. Each lane walks its line exactly as the scalar tracer does (the same points
// on the integrators' cubics, the same statuses) until its integrator needs a Runge-Kutta
// trial step; the trial steps of all lanes are then computed together by one SIMD kernel, and
// each lane goes on with its result. A lane whose line is done convolves it, takes its tile's
// next seed, and when the tile is done merges it and takes the next ready tile.
#include "tiles_common.h"

#include "engine_common.h"
#include "messages.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <new>
#include <typeinfo>

using namespace muskeip::detail;

namespace {

// What a lane does next.
enum LaneStage {
    NEXT_SEED,      // take the tile's next seed
    CORE,           // the N kernel steps of the current side
    CORE_WAIT,      // a kernel step waits for its trial
    EXTENSION,      // the extension steps of the current side
    EXTENSION_WAIT, // an extension step waits for its trial
    LINE_DONE       // both sides traced: convolve and accumulate
};

// What a lane's run ends with.
enum RunOutcome { NEEDS_TRIAL, TILE_DONE, TILE_READY };

const int noFailure = INT_MAX;

} // namespace

namespace muskeip {
namespace detail {

// One lane: a tracer engine working on one tile, and where it stands in its current line.
struct Lane {
    FlicCompute* engine = nullptr;
    FlicCompute::TileWindow* window = nullptr;
    int tile = -1; // -1: no tile
    TileSeeds seeds{-1, 1, 0, 0, 0, 0};
    int stage = NEXT_SEED;
    bool waiting = false; // its integrator waits for a trial step
    int x = 0, y = 0;     // the current seed's pixel
    Vec2f seed{0.0f, 0.0f};
    AdaptiveIntegrator* integrator = nullptr; // of the side being traced
    int sign = 1;                             // the side: +1 forward, -1 backward
    int s = 1;                                // the side's next step
    int firstFailure = noFailure;             // the side's first step with a non-zero status
    int j = 0;                                // extension steps taken
    int lo = 0, hi = 0;                       // the ends of the traced line
};

// The steps of a lane, as the scalar tracer's traceAdaptiveSide and seedCell take them.
struct LaneSteps {
    static void startSide(Lane& lane, int sign) {
        FlicCompute& e = *lane.engine;
        lane.sign = sign;
        lane.s = 1;
        lane.firstFailure = noFailure;
        lane.integrator = static_cast<AdaptiveIntegrator*>(sign > 0 ? e.forward : e.backward);
        lane.stage = CORE;
    }

    // Points on the current cubic, at most `limit`; returns how many.
    static int runOnCubic(Lane& lane, int limit) {
        FlicCompute& e = *lane.engine;
        int c = e.maxSteps;
        int made = lane.integrator->pointsOnCubic(
            FlicLaneTracer::positions(e) + c + lane.sign * lane.s, lane.sign, limit);
        for (int r = 0; r < made; r++)
            e.points[c + lane.sign * (lane.s + r)].status = 0;
        lane.s += made;
        return made;
    }

    // Stores the point a full step made, with its status.
    static void completeFullStep(Lane& lane, int status) {
        FlicCompute& e = *lane.engine;
        int index = e.maxSteps + lane.sign * lane.s;
        FlicLaneTracer::positions(e)[index] = lane.integrator->position;
        e.points[index].status = status;
        if (status != 0 && lane.firstFailure == noFailure) lane.firstFailure = lane.s;
        lane.s++;
    }

    // A full step: true when made at once, false when it waits for a trial.
    static bool beginFullStep(Lane& lane) {
        int status;
        if (!lane.integrator->beginPoint(status)) return false;
        completeFullStep(lane, status);
        return true;
    }

    static void endSide(Lane& lane) {
        int c = lane.engine->maxSteps;
        if (lane.sign > 0) {
            lane.hi = c + (lane.s - 1);
            startSide(lane, -1);
        } else {
            lane.lo = c - (lane.s - 1);
            lane.stage = LINE_DONE;
        }
    }

    // After the kernel steps: the extension while the first step ran on.
    static void afterCore(Lane& lane) {
        FlicCompute& e = *lane.engine;
        if (e.extensionSteps > 0 && e.points[e.maxSteps + lane.sign].status == 0) {
            lane.j = 0;
            lane.stage = EXTENSION;
        } else {
            endSide(lane);
        }
    }

    static bool extensionEnds(const Lane& lane) {
        const FlicCompute& e = *lane.engine;
        return lane.j == e.extensionSteps ||
               e.points[e.maxSteps + lane.sign * (1 + lane.j)].status != 0;
    }
};

} // namespace detail
} // namespace muskeip

// Runs a lane until its integrator needs a trial step or its tile has no seeds left.
// A lane `alone` in its thread traces its next lines with the scalar tracer, which is faster
// for a single line than a trial kernel run for one lane, until its tile is done or another
// tile is ready for the thread (TILE_READY).
static int runLane(Lane& lane, FlicImage* mask, FlicImage* seedMap,
                   const TileSchedule* alone = nullptr) {
    FlicCompute& e = *lane.engine;
    const int n = e.kernelSteps, m = e.extensionSteps;
    for (;;) {
        switch (lane.stage) {
        case NEXT_SEED: {
            int x, y, i, j;
            do { // most cells are covered: passed over here
                if (!lane.seeds.next(x, y, i, j)) return TILE_DONE;
            } while (FlicLaneTracer::coversCell(e, x, y, i, j));
            if (alone) {
                FlicLaneTracer::seedCell(e, x, y, i, j, mask, seedMap);
                if (alone->mayTake(1)) return TILE_READY;
                break;
            }
            Vec2f seed, v;
            if (!FlicLaneTracer::seedOfCell(e, x, y, i, j, seed)) break;
            lane.x = x;
            lane.y = y;
            lane.seed = seed;
            if (!FlicLaneTracer::beginLine(e, seed, v)) {
                FlicLaneTracer::markSeed(e, x, y, seed, mask, seedMap);
                break;
            }
            e.forward->init(seed, v);
            e.backward->init(seed, v);
            FlicLaneTracer::positions(e)[e.maxSteps] = seed;
            LaneSteps::startSide(lane, 1);
            break;
        }
        case CORE:
            while (lane.s <= n) {
                LaneSteps::runOnCubic(lane, n - lane.s + 1);
                if (lane.s <= n && !LaneSteps::beginFullStep(lane)) {
                    lane.stage = CORE_WAIT;
                    return NEEDS_TRIAL;
                }
            }
            LaneSteps::afterCore(lane);
            break;
        case EXTENSION: {
            int allowed = m - lane.j;
            if (lane.firstFailure != noFailure && lane.firstFailure - 1 - lane.j < allowed)
                allowed = lane.firstFailure - 1 - lane.j;
            int made = LaneSteps::runOnCubic(lane, allowed);
            lane.j += made;
            if (made < allowed) {
                if (!LaneSteps::beginFullStep(lane)) {
                    lane.stage = EXTENSION_WAIT;
                    return NEEDS_TRIAL;
                }
                lane.j++;
            }
            if (LaneSteps::extensionEnds(lane)) LaneSteps::endSide(lane);
            break;
        }
        case LINE_DONE:
            FlicLaneTracer::finishLine(e, lane.lo, lane.hi);
            FlicLaneTracer::markSeed(e, lane.x, lane.y, lane.seed, mask, seedMap);
            lane.stage = NEXT_SEED;
            break;
        default: // the waiting stages are left by resumeLane only
            return NEEDS_TRIAL;
        }
    }
}

// Hands a trial's results to the lane's integrator (as the scalar stepper leaves them: the
// end point once computed, its vector once sampled, the last speed) and goes on. Returns true
// when the integrator needs another trial.
static bool resumeLane(Lane& lane, const TrialBatch& batch, int l) {
    AdaptiveIntegrator& in = *lane.integrator;
    if (batch.reached[l] >= 1) in.p1 = Vec2f{batch.y1x[l], batch.y1y[l]};
    if (batch.reached[l] >= 2) in.d1 = Vec2f{batch.d1x[l], batch.d1y[l]};
    if (batch.speedTaken[l]) in.speed = batch.speed[l];
    int status;
    if (!in.continuePoint(batch.code[l], Vec2f{batch.errX[l], batch.errY[l]}, status)) return true;
    LaneSteps::completeFullStep(lane, status);
    if (lane.stage == CORE_WAIT) {
        lane.stage = CORE;
    } else {
        lane.j++;
        lane.stage = EXTENSION;
        if (LaneSteps::extensionEnds(lane)) LaneSteps::endSide(lane);
    }
    return false;
}

// The trial a lane's integrator asks for, into lane l of the batch (an empty one without).
static void fillTrial(TrialBatch& batch, int l, const Lane* lane) {
    const AdaptiveIntegrator* in = lane ? lane->integrator : nullptr;
    batch.y0x[l] = in ? in->p0.x : 0.0f;
    batch.y0y[l] = in ? in->p0.y : 0.0f;
    batch.k1x[l] = in ? in->d0.x : 0.0f;
    batch.k1y[l] = in ? in->d0.y : 0.0f;
    batch.h[l] = in ? in->stepSize : 0.0f;
    batch.direction[l] = in ? in->direction : 1.0f;
    batch.headingX[l] = in ? in->heading.x : 0.0f;
    batch.headingY[l] = in ? in->heading.y : 0.0f;
}

// The field part of the batch, from an integrator bound to the computation's field.
static void bindField(TrialBatch& batch, const FlicIntegrator& in) {
    batch.field = reinterpret_cast<const float*>(in.field);
    batch.width = in.width;
    batch.xMax = in.xMax;
    batch.yMax = in.yMax;
    batch.normalization = in.normalization;
    batch.orientation = in.orientation;
    // The samplers refuse speeds below 1e-10 compared in double: the least float not below it.
    float smallest = 1e-10f;
    if (static_cast<double>(smallest) < 1e-10) smallest = nextafterf(smallest, 1.0f);
    batch.smallestSpeed = smallest;
}

// Gives an idle lane tile `tile` and its seeds. Returns false without memory.
static bool startTile(Lane& lane, int tile, const LaneWork& work) {
    lane.tile = tile;
    lane.stage = NEXT_SEED;
    lane.waiting = false;
    if (!FlicLaneTracer::beginTile(*lane.engine, tile, *lane.window)) return false;
    lane.seeds = seedsOfTile(*lane.engine, tile, *lane.window, work.sobolCells, work.sobolStart);
    return true;
}

// Ends a lane's tile: merged when it succeeded, reported to the schedule either way.
static void finishLaneTile(Lane& lane, bool ok, LaneWork& work) {
    FlicLaneTracer::endTile(*lane.engine, *lane.window);
    ok = ok && mergeFinishedTile(*lane.window, *work.picture, *work.overflow);
    int done = work.schedule->finish(lane.tile, lane.window->numFieldLines, ok);
    lane.tile = -1;
    if (work.reports) FlicLaneTracer::reportProgress(*work.parent, done, work.schedule->tiles);
}

void FlicLaneTracer::traceTiles(LaneWork& work) {
    Lane lanes[TrialBatch::maxLanes];
    const LanePlan& plan = *work.plan;
    const int K = plan.tiles;
    for (int l = 0; l < K; l++) {
        lanes[l].engine = work.tracers[l].get();
        lanes[l].window = &work.windows[l];
    }
    std::unique_ptr<TrialBatch> batch(new (std::nothrow) TrialBatch);
    if (!batch) {
        for (int tile; (tile = work.schedule->take(false)) >= 0;)
            work.schedule->finish(tile, 0, false);
        return;
    }
    bindField(*batch, *lanes[0].engine->forward);
    // The lanes that hold a tile, and the idle ones: each round costs in proportion to the
    // tiles in hand, however wide the lanes.
    int active[TrialBatch::maxLanes], idle[TrialBatch::maxLanes];
    int activeCount = 0, idleCount = 0;
    for (int l = K - 1; l >= 0; l--)
        idle[idleCount++] = l;
    for (;;) {
        // Idle lanes take ready tiles; only a thread with no tile at all waits for one.
        while (idleCount > 0) {
            bool wait = activeCount == 0;
            int tile = work.schedule->take(wait, activeCount);
            if (tile < 0) {
                if (wait) return; // every tile is done, or one failed
                break;
            }
            int l = idle[--idleCount];
            if (startTile(lanes[l], tile, work)) {
                active[activeCount++] = l;
            } else {
                finishLaneTile(lanes[l], false, work);
                idle[idleCount++] = l;
            }
        }
        // Every lane runs until it asks for a trial; a lane whose tile is done becomes idle. The
        // lanes that ask are packed into the first slots of the narrowest kernel that holds
        // them.
        int asking[TrialBatch::maxLanes], count = 0, kept = 0;
        for (int a = 0; a < activeCount; a++) {
            int l = active[a];
            Lane& lane = lanes[l];
            if (!lane.waiting) {
                int outcome;
                try {
                    outcome = runLane(lane, work.mask, work.seedMap,
                                      activeCount == 1 ? work.schedule : nullptr);
                } catch (const std::bad_alloc&) { // a window's overflow could not grow
                    outcome = -1;
                }
                if (outcome == TILE_READY) { // its next lines wait for the next round
                    active[kept++] = l;
                    continue;
                }
                if (outcome != NEEDS_TRIAL) {
                    finishLaneTile(lane, outcome == TILE_DONE, work);
                    idle[idleCount++] = l;
                    continue;
                }
                lane.waiting = true;
            }
            active[kept++] = l;
            asking[count++] = l;
        }
        activeCount = kept;
        if (count == 0) continue; // take more tiles, or wait for them
        int kernel = 0;
        while (plan.widths[kernel] < count)
            kernel++;
        for (int slot = 0; slot < plan.widths[kernel]; slot++)
            fillTrial(*batch, slot, slot < count ? &lanes[asking[slot]] : nullptr);
        plan.kernels[kernel](*batch);
        for (int slot = 0; slot < count; slot++) {
            Lane& lane = lanes[asking[slot]];
            lane.waiting = resumeLane(lane, *batch, slot);
        }
    }
}

// --- The plan ---------------------------------------------------------------------------------

namespace {

// The lane counts this build and processor offer, narrowest first, with their kernels.
struct OfferedWidths {
    int count = 0;
    int lanes[3];
    TrialKernel kernels[3];
    const char* names[3];
    void add(int width, TrialKernel kernel, const char* name) {
        if (!kernel) return;
        lanes[count] = width;
        kernels[count] = kernel;
        names[count] = name;
        count++;
    }
};

OfferedWidths offeredWidths() {
    OfferedWidths offered;
#if defined(__x86_64__) || defined(__i386__)
    offered.add(4, trialKernel4(), "SSE2");
    if (__builtin_cpu_supports("avx2")) offered.add(8, trialKernelAVX2(), "AVX2");
    if (__builtin_cpu_supports("avx512f")) offered.add(16, trialKernelAVX512(), "AVX-512");
#else
    offered.add(4, trialKernel4(), "vectors of 4");
#endif
    return offered;
}

// Whether the trial kernel can address every node's floats with int indices.
bool fieldFitsLanes(const FlicVectorField* field) {
    long long floats = 2LL * field->width * field->height + 2LL * field->width + 4;
    return floats < INT_MAX;
}

} // namespace

LanePlan muskeip::detail::planLanes(const FlicCompute& engine, long long windowBytes, int threads) {
    LanePlan plan;
    if (engine.simdLanes == 1) {
        plan.note = "the scalar tracer (1 lane asked for)";
        return plan;
    }
    if (!engine.forward || !engine.backward || typeid(*engine.forward) != typeid(RK43) ||
        typeid(*engine.backward) != typeid(RK43)) {
        plan.note = "the scalar tracer (the SIMD lanes trace RK43 lines only)";
        return plan;
    }
    if (!engine.field || !fieldFitsLanes(engine.field)) {
        plan.note = "the scalar tracer (the field is too large for the SIMD lanes)";
        return plan;
    }
    OfferedWidths offered = offeredWidths();
    if (offered.count == 0) {
        plan.note = "the scalar tracer (no SIMD kernel in this build)";
        return plan;
    }
    int pick = offered.count - 1; // 0: the widest
    if (engine.simdLanes > 1) {
        pick = 0;
        for (int k = 0; k < offered.count; k++)
            if (offered.lanes[k] <= engine.simdLanes) pick = k;
    }
    long long fit = windowBytes > 0 ? laneWindowBudget / std::max(1, threads) / windowBytes
                                    : offered.lanes[pick];
    if (fit < 2) {
        plan.note = "the scalar tracer (the tiles' windows are too large to trace several at once)";
        return plan;
    }
    plan.lanes = offered.lanes[pick];
    plan.tiles = static_cast<int>(std::min<long long>(plan.lanes, fit));
    plan.kernelCount = pick + 1;
    for (int k = 0; k <= pick; k++) {
        plan.widths[k] = offered.lanes[k];
        plan.kernels[k] = offered.kernels[k];
    }
    char note[96];
    std::snprintf(note, sizeof note, "%d SIMD lanes (%s)", plan.lanes, offered.names[pick]);
    plan.note = note;
    if (engine.simdLanes > 1 && engine.simdLanes != plan.lanes) {
        std::snprintf(note, sizeof note, ", %d asked for", engine.simdLanes);
        plan.note += note;
    }
    if (plan.tiles < plan.lanes) {
        std::snprintf(note, sizeof note,
                      ", at most %d tiles at once (the windows of all threads within %lld MB)",
                      plan.tiles, laneWindowBudget >> 20);
        plan.note += note;
    }
    return plan;
}
