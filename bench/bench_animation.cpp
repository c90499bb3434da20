// Animated LIC: 32 frames of one trace (computeFrames) against one still picture, at 1024^2,
// L = 20, the field of bench_lic, serial engine and tiles of 256 on every core; 32 separate
// pictures cost 32 still pictures. Runs interleaved; each figure is a median.
//
// Usage: bench_animation [--repeats N] [--frames F]
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
    const int repeats = args.number("--repeats", 5, 1), frames = args.number("--frames", 32, 1);
    if (!args.ok("bench_animation [--repeats N] [--frames F]")) return 2;
    const int size = 1024;
    FlicVectorField field = vortexSaddle(size / 4 + 1);
    FlicImage noise(size, size, 1);
    noise.createRandom(0, 1);
    printf("%d frames at %d^2, L = 20, against one still picture; medians of %d runs\n", frames,
           size, repeats);
    for (int tile : {0, 256}) {
        std::vector<double> still, animated;
        for (int r = 0; r < repeats; r++) {
            FlicCompute one, many;
            one.setTileSize(tile);
            many.setTileSize(tile);
            FlicImage picture;
            std::vector<FlicImage> outputs(frames);
            still.push_back(timeMs([&] { one.compute(&field, &noise, &picture); }));
            animated.push_back(
                timeMs([&] { many.computeFrames(&field, &noise, frames, outputs.data()); }));
        }
        double s = median(still), a = median(animated);
        printf(
            "%-22s still %7.1f ms | %d frames %8.1f ms = %4.1f pictures (%d separate: %.0f ms)\n",
            tile ? "tiles of 256, all cores" : "serial engine", s, frames, a, a / s, frames,
            frames * s);
    }
    return 0;
}
