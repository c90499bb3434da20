// LIC benchmark: the FLIC engine (default settings: RK43, triangle kernel, S = 1) against the
// per-pixel baseline of naive_lic.cpp, at 512^2, 1024^2 and 2048^2 output pixels and filter
// lengths 10, 20, 40 and 80, printed side by side with the ratio baseline / FLIC.
//
// Usage: bench_lic [--quick] [--repeats N]
//   Each time is the median of N + 4 FLIC runs and N baseline runs (N = 3 by default); --quick:
//   N runs of each (N = 1 by default) and no 2048^2 row. The runs of one output size are
//   interleaved.
#include "measure.h"
#include "compute.h"
#include "naive_lic.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    const bool quick = args.flag("--quick");
    const int naiveRepeats = args.number("--repeats", quick ? 1 : 3, 1);
    const int flicRepeats = quick ? naiveRepeats : naiveRepeats + 4;
    if (!args.ok("bench_lic [--quick] [--repeats N]")) return 2;
    const int sizes[] = {512, 1024, 2048};
    const int lengths[] = {10, 20, 40, 80};
    printf("FLIC (RK43, triangle, S = 1) vs per-pixel baseline; medians of %d / %d runs\n",
           flicRepeats, naiveRepeats);
    printf("%6s %4s | %10s %9s %7s | %10s %9s | %8s\n", "size", "L", "FLIC ms", "ns/pixel", "hits",
           "naive ms", "ns/pixel", "ratio");
    for (int size : sizes) {
        if (quick && size > 1024) continue;
        FlicVectorField field = vortexSaddle(size / 4 + 1);
        FlicImage noise = whiteNoise(size);
        double pixels = static_cast<double>(size) * size;
        // All runs of one size are interleaved (round by round: every L, FLIC then baseline),
        // so that the ratios, also L = 80 against L = 10, compare runs under the same load.
        const int cases = sizeof lengths / sizeof lengths[0];
        std::vector<double> flicTimes[cases], naiveTimes[cases];
        float hits[cases];
        FlicImage output, baseline;
        for (int r = 0; r < std::max(flicRepeats, naiveRepeats); r++)
            for (int c = 0; c < cases; c++) {
                FlicCompute engine;
                engine.setFilterLength(static_cast<float>(lengths[c]));
                if (r < flicRepeats)
                    flicTimes[c].push_back(
                        timeMs([&] { engine.compute(&field, &noise, &output); }));
                hits[c] = static_cast<float>(engine.totalHits) / static_cast<float>(pixels);
                if (r < naiveRepeats)
                    naiveTimes[c].push_back(
                        timeMs([&] { naiveLic(field, noise, lengths[c], baseline); }));
            }
        for (int c = 0; c < cases; c++) {
            double flic = median(flicTimes[c]), naive = median(naiveTimes[c]);
            printf("%6d %4d | %10.1f %9.1f %7.2f | %10.1f %9.1f | %7.1fx\n", size, lengths[c], flic,
                   flic * 1e6 / pixels, hits[c], naive, naive * 1e6 / pixels, naive / flic);
        }
        printf("%6s FLIC L=80 / L=10: %.2f\n", "",
               median(flicTimes[cases - 1]) / median(flicTimes[0]));
        fflush(stdout);
    }
    return 0;
}
