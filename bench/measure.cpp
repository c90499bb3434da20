// The benchmarks' field, noise, medians and options.
#include "measure.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
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

BenchArgs::BenchArgs(int argc, char** argv)
    : arguments(argv + 1, argv + std::max(argc, 1)), used(arguments.size(), false) {}

// The index of `name` among the arguments (and of its value, the next one), marked used; -1
// when it is not given. A value missing at the end, or the name given twice, is a problem.
int BenchArgs::find(const char* name, bool takesValue) {
    for (size_t i = 0; i < arguments.size(); i++) {
        if (used[i] || strcmp(arguments[i], name) != 0) continue;
        used[i] = true;
        for (size_t later = i + 1; later < arguments.size(); later++)
            if (strcmp(arguments[later], name) == 0) problem = std::string(name) + " given twice";
        if (!takesValue) return static_cast<int>(i);
        if (i + 1 == arguments.size()) {
            problem = std::string(name) + " needs a value";
            return -1;
        }
        used[i + 1] = true;
        return static_cast<int>(i + 1);
    }
    return -1;
}

bool BenchArgs::flag(const char* name) {
    return find(name, false) >= 0;
}

int BenchArgs::number(const char* name, int fallback, int minimum) {
    int at = find(name, true);
    if (at < 0) return fallback;
    char* end = nullptr;
    errno = 0;
    long value = strtol(arguments[at], &end, 10);
    if (end == arguments[at] || *end != '\0' || errno != 0 || value < minimum ||
        value > std::numeric_limits<int>::max()) {
        problem = std::string(name) + " wants a whole number of at least " +
                  std::to_string(minimum) + ", not \"" + arguments[at] + "\"";
        return fallback;
    }
    return static_cast<int>(value);
}

const char* BenchArgs::text(const char* name, const char* fallback) {
    int at = find(name, true);
    return at < 0 ? fallback : arguments[at];
}

bool BenchArgs::ok(const char* usage) const {
    std::string wrong = problem;
    for (size_t i = 0; i < arguments.size() && wrong.empty(); i++)
        if (!used[i]) wrong = std::string("unknown argument \"") + arguments[i] + "\"";
    if (wrong.empty()) return true;
    fprintf(stderr, "%s\nusage: %s\n", wrong.c_str(), usage);
    return false;
}

BenchOptions benchOptions(BenchArgs& args, int repeats, int tile) {
    BenchOptions options;
    options.quick = args.flag("--quick");
    options.repeats = args.number("--repeats", options.quick ? 1 : repeats, 1);
    options.tile = args.number("--tile", tile, 1);
    return options;
}
