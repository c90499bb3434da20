// What the benchmarks share: the field and the noise they measure on, and timing helpers.
#ifndef MUSKEIP_BENCH_MEASURE_H
#define MUSKEIP_BENCH_MEASURE_H

#include "image.h"
#include "vectorfield.h"

#include <chrono>
#include <string>
#include <vector>

// A size x size field: a Gaussian vortex at (0.3, 0.45) of the unit square on a saddle flow
// centred at (0.72, 0.6). With `hole`, the nodes within 0.1 of (0.5, 0.2) are no-data (NaN).
FlicVectorField vortexSaddle(int size, bool hole = false);

// A size x size grey white-noise image from a fixed linear congruential sequence.
FlicImage whiteNoise(int size);

// A benchmark's command line. Each option is asked for by name, with its default; afterwards
// ok() says whether every argument was one of them with a valid value. A mistyped option must
// not let a run go ahead on the defaults and be reported as if it had taken effect.
class BenchArgs {
  public:
    BenchArgs(int argc, char** argv);
    // Whether the flag `name` is given.
    bool flag(const char* name);
    // The whole number after `name`, or `fallback` without it; a value that is not a number,
    // or is below `minimum`, makes ok() fail.
    int number(const char* name, int fallback, int minimum);
    // The text after `name`, or `fallback` without it.
    const char* text(const char* name, const char* fallback);
    // True when every argument was asked for and valid; otherwise prints what is wrong and
    // `usage` to stderr and returns false.
    bool ok(const char* usage) const;

  private:
    int find(const char* name, bool takesValue);
    std::vector<const char*> arguments;
    std::vector<bool> used;
    std::string problem;
};

// The options of the engine benchmarks: --quick (one run each, the small sizes only),
// --repeats N (at least 1) and --tile T (at least 1), with the benchmark's defaults.
struct BenchOptions {
    bool quick;
    int repeats;
    int tile;
};
BenchOptions benchOptions(BenchArgs& args, int repeats, int tile);

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
