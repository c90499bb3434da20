// The parts of the tiled engine shared by its drivers: a tile's seed order as an iterator and
// the schedule of tiles over the threads (not installed).
#ifndef MUSKEIP_TILES_COMMON_H
#define MUSKEIP_TILES_COMMON_H

#include "compute.h"

#include <condition_variable>
#include <mutex>
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
    // The next seed cell; false when the tile has none left.
    bool next(int& x, int& y, int& i, int& j);

  private:
    int method, s, x0, y0, x1, y1;
    const unsigned* cells;
    int k, end;          // quasi-random: the next bucket entry and its end
    int x, y, i, j, o;   // raster and pattern: the next cell, o the pattern's offset
    bool done;
    int firstX(int o) const; // the pattern's first column and row of offset o in the tile
    int firstY(int o) const;
    void startOffset();      // pattern: the first cell of offset o or of the next offsets
};

// Tiles waiting, ready and done, shared by the threads of one computation under one lock. A
// tile is ready once every tile of an earlier phase that reaches into it, or into which it
// reaches, is done.
struct TileSchedule {
    std::mutex state;
    std::condition_variable changed;
    std::vector<int> ready;               // tiles to take, the last first
    std::vector<std::vector<int>> later;  // per tile: the tiles that wait for it
    std::vector<int> waitingFor;          // per tile: tiles it still waits for
    int tiles = 0, tilesDone = 0, running = 0, lines = 0;
    bool failed = false;

    // A ready tile, or -1 when none: after a failure, when every tile is taken, or (without
    // `wait`) when none is ready yet. With `wait` it sleeps until one is ready or all are done.
    int take(bool wait);
    // Records a tile as done with its line count (ok false: it failed) and readies the tiles
    // that waited for it. Returns the number of tiles done.
    int finish(int tile, int lines, bool ok);
};

// Adds a finished tile's window into the picture's records (under the band locks when there
// are any) and keeps its overflow for the end; zeroes the window for the next tile. Returns
// false without memory.
bool mergeFinishedTile(FlicCompute::TileWindow& partial, int* records, std::mutex* bands,
                       int bandRows, std::vector<int>& overflow);

} // namespace detail
} // namespace muskeip

#endif
