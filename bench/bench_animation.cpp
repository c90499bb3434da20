// Animated LIC: 32 frames of one trace (computeFrames) against one still picture, at 1024^2,
// L = 20, the field of bench_lic, serial engine and tiles of 256 on every core; 32 separate
// pictures cost 32 still pictures. Runs interleaved; each figure is a median.
//
// Usage: bench_animation [--repeats N] [--frames F]
#include "compute.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

FlicVectorField vortexSaddle(int size) {
    FlicVectorField field(size, size);
    Vec2f* v = field.vectors();
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x++) {
            float u = x / (size - 1.0f), w = y / (size - 1.0f);
            float ax = u - 0.3f, ay = w - 0.45f, bx = u - 0.72f, by = w - 0.6f;
            float weight = expf(-(ax * ax + ay * ay) * 12.0f);
            v[y * size + x] = Vec2f{-ay * weight + 0.6f * bx, ax * weight - 0.6f * by};
        }
    return field;
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

template <class Work>
double timeMs(Work work) {
    auto begin = std::chrono::steady_clock::now();
    work();
    auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::milli>(end - begin).count();
}

} // namespace

int main(int argc, char** argv) {
    int repeats = 5, frames = 32;
    for (int i = 1; i < argc; i++) {
        if (!strcmp(argv[i], "--repeats") && i + 1 < argc) repeats = std::max(1, atoi(argv[++i]));
        if (!strcmp(argv[i], "--frames") && i + 1 < argc) frames = std::max(1, atoi(argv[++i]));
    }
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
