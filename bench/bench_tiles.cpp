// Tiled engine benchmark: the serial engine against the tiled mode (tiles of 256 pixels) on 1,
// 2 and 8 threads, at 1024^2 and 2048^2 output pixels and L = 10, 20, 80 (default settings
// otherwise), with the hits per pixel of each. All runs of one size are interleaved round by
// round, so that the ratios compare runs made under the same load; each figure is a median.
// With --warm every timed run follows an untimed run of the same engine, so that its threads
// find the cores awake (an idle virtual core can take milliseconds to wake).
//
// Usage: bench_tiles [--quick] [--repeats N] [--tile T] [--warm]
#include "measure.h"
#include "compute.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    BenchOptions options = benchOptions(args, 5, 256);
    const bool warm = args.flag("--warm");
    if (!args.ok("bench_tiles [--quick] [--repeats N] [--tile T] [--warm]")) return 2;
    const int repeats = options.repeats, tile = options.tile;
    const bool quick = options.quick;
    const int sizes[] = {1024, 2048};
    const int lengths[] = {10, 20, 80};
    // Engine variants: tile size and threads (tile 0: the serial engine).
    const int variants[][2] = {{0, 1}, {tile, 1}, {tile, 2}, {tile, 8}};
    const int nv = 4, nl = 3;
    printf("serial engine vs tiles of %d pixels (threads 1, 2, 8); medians of %d runs%s\n", tile,
           repeats, warm ? ", each after an untimed run" : "");
    printf("%5s %3s | %8s %5s | %8s %5s %6s | %8s %6s | %8s %6s | %s\n", "size", "L", "serial",
           "hits", "tiled-1", "hits", "cost", "tiled-2", "gain", "tiled-8", "gain", "equal");
    for (int size : sizes) {
        if (quick && size > 1024) continue;
        FlicVectorField field = vortexSaddle(size / 4 + 1);
        FlicImage noise = whiteNoise(size);
        std::vector<double> times[nl][nv];
        float hits[nl][nv];
        bool equal[nl] = {true, true, true};
        for (int r = 0; r < repeats; r++)
            for (int l = 0; l < nl; l++) {
                FlicImage first;
                for (int v = 0; v < nv; v++) {
                    FlicCompute engine;
                    engine.setFilterLength(static_cast<float>(lengths[l]));
                    engine.setTileSize(variants[v][0]);
                    engine.setNumThreads(variants[v][1]);
                    FlicImage output;
                    if (warm) engine.compute(&field, &noise, &output);
                    auto begin = std::chrono::steady_clock::now();
                    engine.compute(&field, &noise, &output);
                    auto end = std::chrono::steady_clock::now();
                    times[l][v].push_back(
                        std::chrono::duration<double, std::milli>(end - begin).count());
                    hits[l][v] = static_cast<float>(engine.totalHits) / (1.0f * size * size);
                    if (v == 1) first = output;
                    if (v > 1 && memcmp(first.data, output.data, size * size) != 0)
                        equal[l] = false;
                }
            }
        for (int l = 0; l < nl; l++) {
            double t[nv];
            for (int v = 0; v < nv; v++)
                t[v] = median(times[l][v]);
            printf(
                "%5d %3d | %8.1f %5.2f | %8.1f %5.2f %+5.0f%% | %8.1f %5.2fx | %8.1f %5.2fx | %s\n",
                size, lengths[l], t[0], hits[l][0], t[1], hits[l][1], 100.0 * (t[1] / t[0] - 1.0),
                t[2], t[0] / t[2], t[3], t[0] / t[3], equal[l] ? "yes" : "NO");
        }
        fflush(stdout);
    }
    return 0;
}
