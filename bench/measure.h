// What the benchmarks share: the field and the noise they measure on, and timing helpers.
#ifndef MUSKEIP_BENCH_MEASURE_H
#define MUSKEIP_BENCH_MEASURE_H

#include "image.h"
#include "vectorfield.h"

#include <chrono>
#include <vector>

// A size x size field: a Gaussian vortex at (0.3, 0.45) of the unit square on a saddle flow
// centred at (0.72, 0.6). With `hole`, the nodes within 0.1 of (0.5, 0.2) are no-data (NaN).
FlicVectorField vortexSaddle(int size, bool hole = false);

// A size x size grey white-noise image from a fixed linear congruential sequence.
FlicImage whiteNoise(int size);

// The options of the engine benchmarks: --quick (one run each, the small sizes only),
// --repeats N (at least 1) and --tile T, with the benchmark's defaults.
struct BenchOptions {
    bool quick;
    int repeats;
    int tile;
};
BenchOptions benchOptions(int argc, char** argv, int repeats, int tile);

// The median of the times (the upper one of an even count).
double median(std::vector<double> times);

// Milliseconds `work` takes.
template <class Work>
double timeMs(Work work) {
    auto begin = std::chrono::steady_clock::now();
    work();
    auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(end - begin).count();
}

#endif
