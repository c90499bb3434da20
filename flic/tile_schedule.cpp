// The schedule of a tiled computation: which tile a thread takes next, which tiles wait for
// which, and the order in which ready tiles go.
#include "tiles_common.h"

#include "engine_common.h"

#include <algorithm>
#include <climits>

using namespace muskeip::detail;

int TileSchedule::take(bool wait, int held) {
    if (!wait && !mayTake(held)) return -1;
    std::unique_lock<std::mutex> lock(state);
    if (wait) {
        waitingThreads++;
        publish();
        while (ready.empty() && !failed && (tilesDone < tiles || !rowBands.ready.empty())) {
            if (rowBands.ready.empty()) {
                changed.wait(lock);
                continue;
            }
            int band = rowBands.ready.back();
            rowBands.ready.pop_back();
            lock.unlock();
            rowBands.normalizeBand(band); // nothing is added to its rows any more
            lock.lock();
        }
        waitingThreads--;
    }
    int tile = -1;
    if (!ready.empty() && !failed &&
        (held == 0 || (waitingThreads == 0 && held < tilesPerThread()))) {
        inFlight++;
        size_t pick = 0;
        for (size_t k = 1; k < ready.size(); k++)
            if (takenBefore(ready[k], ready[pick])) pick = k;
        tile = ready[pick];
        startedAt[tile] = std::chrono::steady_clock::now();
        ready[pick] = ready.back();
        ready.pop_back();
    }
    publish();
    return tile;
}

long long TileSchedule::tilesPerThread() const {
    long long readyTiles = static_cast<long long>(ready.size());
    if (readyTiles < threads) return 1; // leave the ready tiles to threads that hold fewer
    return (readyTiles + inFlight + threads - 1) / threads;
}

bool TileSchedule::mayTake(int held) const {
    if (readyCount.load(std::memory_order_relaxed) == 0) return false;
    return held == 0 || (threadsWaiting.load(std::memory_order_relaxed) == 0 &&
                         held < fairShare.load(std::memory_order_relaxed));
}

void TileSchedule::publish() {
    readyCount.store(static_cast<int>(ready.size()), std::memory_order_relaxed);
    fairShare.store(static_cast<int>(std::min<long long>(tilesPerThread(), INT_MAX)),
                    std::memory_order_relaxed);
    threadsWaiting.store(waitingThreads, std::memory_order_relaxed);
}

bool TileSchedule::takenBefore(int a, int b) const {
    if (priority[a] != priority[b]) return priority[a] > priority[b];
    double costA = neighbourCount[a] ? neighbourSeconds[a] / neighbourCount[a] : 0.0;
    double costB = neighbourCount[b] ? neighbourSeconds[b] / neighbourCount[b] : 0.0;
    if (costA != costB) return costA > costB;
    return a < b;
}

bool TileSchedule::awaitOpening() {
    std::unique_lock<std::mutex> lock(state);
    while (!opened)
        changed.wait(lock);
    return !failed;
}

void TileSchedule::open(bool ok) {
    std::lock_guard<std::mutex> lock(state);
    if (opened) return;
    opened = true;
    if (!ok) failed = true;
    publish();
    changed.notify_all();
}

int TileSchedule::finish(int tile, int tileLines, bool ok) {
    std::lock_guard<std::mutex> lock(state);
    if (!ok) failed = true;
    inFlight--;
    lines += tileLines;
    int done = ++tilesDone;
    double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt[tile]).count();
    rowBands.tileMerged(tile);
    for (int next : later[tile]) {
        neighbourSeconds[next] += took;
        neighbourCount[next]++;
        if (--waitingFor[next] == 0) ready.push_back(next);
    }
    publish();
    changed.notify_all();
    return done;
}

void RowBands::setUp(int pictureHeight, const std::vector<int>& tops,
                     const std::vector<int>& bottoms) {
    height = pictureHeight;
    int count = (height + rows - 1) / rows;
    waitingFor.assign(count, 0);
    hits.assign(count, 0);
    first.resize(tops.size());
    last.resize(tops.size());
    for (size_t t = 0; t < tops.size(); t++) {
        first[t] = tops[t] / rows;
        last[t] = (bottoms[t] - 1) / rows;
        for (int b = first[t]; b <= last[t]; b++)
            waitingFor[b]++;
    }
    ready.clear();
    ready.reserve(count);
    for (int b = count - 1; b >= 0; b--)
        if (waitingFor[b] == 0) ready.push_back(b);
}

void RowBands::tileMerged(int tile) {
    if (first.empty()) return; // no bands: the picture is normalised elsewhere
    for (int b = first[tile]; b <= last[tile]; b++)
        if (--waitingFor[b] == 0) ready.push_back(b); // reserved: cannot throw
}

void RowBands::normalizeBand(int b) {
    hits[b] = normalize(b * rows, std::min(height, (b + 1) * rows));
}

// The per-band counts of waiting tiles are all zero once every tile is merged; they hold the
// marks.
void RowBands::touch(int row) {
    if (row >= 0 && row < height) waitingFor[row / rows] = 1;
}

void RowBands::normalizeTouched() {
    for (size_t b = 0; b < waitingFor.size(); b++)
        if (waitingFor[b]) {
            normalizeBand(static_cast<int>(b));
            waitingFor[b] = 0;
        }
}

int RowBands::totalHits() const {
    int total = 0;
    for (int h : hits)
        total = wrapAdd(total, h);
    return total;
}

// Tile priorities for the schedule: the number of tiles on the longest chain of waiting tiles
// that starts at the tile, so that tiles which hold up many others are taken first and the
// threads do not run out of ready tiles while a chain is still long.
void muskeip::detail::prioritiseTiles(TileSchedule& schedule, const std::vector<int>& phaseOf) {
    const int tiles = static_cast<int>(phaseOf.size());
    std::vector<int> order(tiles);
    for (int t = 0; t < tiles; t++)
        order[t] = t;
    // tiles wait only for tiles of earlier phases: the later phases first
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return phaseOf[a] > phaseOf[b]; });
    schedule.priority.assign(tiles, 1);
    schedule.startedAt.resize(tiles);
    schedule.neighbourSeconds.assign(tiles, 0.0);
    schedule.neighbourCount.assign(tiles, 0);
    for (int t : order)
        for (int next : schedule.later[t])
            schedule.priority[t] = std::max(schedule.priority[t], schedule.priority[next] + 1);
}
