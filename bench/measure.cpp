// The benchmarks' field, noise, medians and options.
#include "measure.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

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

FlicImage whiteNoise(int size) {
    FlicImage image(size, size, 1);
    unsigned state = 12345;
    for (int i = 0; i < size * size; i++) {
        state = state * 1103515245u + 12345u;
        image.data[i] = static_cast<unsigned char>(state >> 16);
    }
    return image;
}

double median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

BenchOptions benchOptions(int argc, char** argv, int repeats, int tile) {
    BenchOptions options{false, repeats, tile};
    for (int i = 1; i < argc; i++) {
        if (!strcmp(argv[i], "--quick")) {
            options.quick = true;
            options.repeats = 1;
        } else if (!strcmp(argv[i], "--repeats") && i + 1 < argc) {
            options.repeats = std::max(1, atoi(argv[++i]));
        } else if (!strcmp(argv[i], "--tile") && i + 1 < argc) {
            options.tile = atoi(argv[++i]);
        }
    }
    return options;
}
