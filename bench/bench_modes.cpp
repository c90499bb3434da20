// Cost of the engine's modes for real data against the default at 1024^2, L = 20 (serial
// engine, the field of bench_lic): closed borders, no-data (a NaN disc in the field),
// orientation, two passes. Runs interleaved round by round; each figure is a median.
//
// Usage: bench_modes [--repeats N]
#include "compute.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace {

FlicVectorField vortexSaddle(int size, bool hole) {
    FlicVectorField field(size, size);
    Vec2f* v = field.vectors();
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x++) {
            float u = x / (size - 1.0f), w = y / (size - 1.0f);
            float ax = u - 0.3f, ay = w - 0.45f, bx = u - 0.72f, by = w - 0.6f;
            float weight = expf(-(ax * ax + ay * ay) * 12.0f);
            v[y * size + x] = Vec2f{-ay * weight + 0.6f * bx, ax * weight - 0.6f * by};
            float dx = u - 0.5f, dy = w - 0.2f;
            if (hole && dx * dx + dy * dy < 0.01f)
                v[y * size + x].x = std::numeric_limits<float>::quiet_NaN();
        }
    return field;
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    int repeats = 7;
    for (int i = 1; i < argc; i++)
        if (!strcmp(argv[i], "--repeats") && i + 1 < argc) repeats = std::max(1, atoi(argv[++i]));
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
