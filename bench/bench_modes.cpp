// Cost of the engine's modes for real data against the default at 1024^2, L = 20 (serial
// engine, the field of bench_lic): closed borders, no-data (a NaN disc in the field),
// orientation, two passes. Runs interleaved round by round; each figure is a median.
//
// Usage: bench_modes [--repeats N]
#include "measure.h"
#include "compute.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    const int repeats = args.number("--repeats", 7, 1);
    if (!args.ok("bench_modes [--repeats N]")) return 2;
    const int size = 1024;
    FlicVectorField field = vortexSaddle(size / 4 + 1, false);
    FlicVectorField holed = vortexSaddle(size / 4 + 1, true);
    FlicImage noise(size, size, 1);
    noise.createRandom(0, 1);
    const char* names[] = {"default", "closed borders", "no-data disc", "orientation", "2 passes"};
    const int modes = 5;
    std::vector<double> times[modes];
    for (int r = 0; r < repeats; r++)
        for (int m = 0; m < modes; m++) {
            FlicCompute engine;
            if (m == 1) engine.setBorders(FlicCompute::CLOSED, FlicCompute::CLOSED);
            if (m == 2) engine.setNoData(1);
            if (m == 3) engine.setOrientation(1);
            if (m == 4) engine.setPasses(2);
            FlicImage output;
            auto begin = std::chrono::steady_clock::now();
            engine.compute(m == 2 ? &holed : &field, &noise, &output);
            auto end = std::chrono::steady_clock::now();
            times[m].push_back(std::chrono::duration<double, std::milli>(end - begin).count());
        }
    printf("modes at %d^2, L = 20, serial engine; medians of %d runs\n", size, repeats);
    for (int m = 0; m < modes; m++)
        printf("%-16s %8.1f ms  %+6.1f %%\n", names[m], median(times[m]),
               100.0 * (median(times[m]) / median(times[0]) - 1.0));
    return 0;
}
