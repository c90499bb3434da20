// SIMD lane benchmark: the tiled engine on one thread with the scalar tracer (simdLanes 1)
// against the lane tracer at each width this processor offers (4, 8, 16 lanes), and on two
// threads with the widest lanes against the serial engine; 1024^2 and 2048^2 output pixels,
// L = 20 and 80, tiles of 256 pixels, the field of bench_lic. Each figure is a median of runs
// interleaved round by round, so that ratios compare runs made under the same load; "ns/pt" is
// the time per traced line point (tracedPoints), and "equal" says whether every variant gave
// the bytes of the scalar tracer.
//
// Usage: bench_lanes [--quick] [--repeats N] [--tile T]
#include "measure.h"
#include "compute.h"
#include "messages.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::string lastPlan; // the engine's verbose report of its lanes

int keepPlan(const char* text) {
    if (strstr(text, "tiled mode")) lastPlan = text;
    return 0;
}

struct Variant {
    const char* name;
    int tile, threads, lanes;
};

} // namespace

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    BenchOptions options = benchOptions(args, 5, 256);
    if (!args.ok("bench_lanes [--quick] [--repeats N] [--tile T]")) return 2;
    const int repeats = options.repeats, tile = options.tile;
    const bool quick = options.quick;
    flic_verbosity = 1;
    flic_info_handler = keepPlan;
    const Variant variants[] = {{"serial", 0, 1, 1},        {"scalar-1", tile, 1, 1},
                                {"lanes4-1", tile, 1, 4},   {"lanes8-1", tile, 1, 8},
                                {"lanes16-1", tile, 1, 16}, {"scalar-2", tile, 2, 1},
                                {"widest-2", tile, 2, 0}};
    const int nv = sizeof variants / sizeof variants[0];
    printf("tiles of %d pixels; medians of %d interleaved runs; ms and ns per traced point\n", tile,
           repeats);
    for (int size : {1024, 2048}) {
        if (quick && size > 1024) continue;
        FlicVectorField field = vortexSaddle(size / 4 + 1);
        FlicImage noise = whiteNoise(size);
        for (int length : {20, 80}) {
            std::vector<double> times[nv];
            long long points[nv] = {0};
            std::string plans[nv];
            bool equal = true;
            for (int r = 0; r < repeats; r++) {
                FlicImage reference;
                for (int v = 0; v < nv; v++) {
                    FlicCompute engine;
                    engine.setFilterLength(static_cast<float>(length));
                    engine.setTileSize(variants[v].tile);
                    engine.setNumThreads(variants[v].threads);
                    engine.setSimdLanes(variants[v].lanes);
                    FlicImage output;
                    lastPlan.clear();
                    times[v].push_back(timeMs([&] { engine.compute(&field, &noise, &output); }));
                    points[v] = engine.tracedPoints;
                    plans[v] = lastPlan;
                    if (v == 1) reference = output;
                    if (v > 1 &&
                        memcmp(reference.data, output.data, static_cast<size_t>(size) * size) != 0)
                        equal = false;
                }
            }
            printf("\n%d^2, L = %d (equal bytes: %s)\n", size, length, equal ? "yes" : "NO");
            double scalar = median(times[1]), serial = median(times[0]);
            for (int v = 0; v < nv; v++) {
                double t = median(times[v]);
                const char* found = strstr(plans[v].c_str(), "), ");
                const char* plan = found ? found + 3 : "";
                printf("  %-10s %8.1f ms %6.2f ns/pt  x%.2f vs scalar-1  x%.2f vs serial  %s\n",
                       variants[v].name, t, 1e6 * t / static_cast<double>(points[v]), scalar / t,
                       serial / t, plan);
            }
            fflush(stdout);
        }
    }
    return 0;
}
