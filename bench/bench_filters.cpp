// Throughput of the image filters on a 4096 x 4096 grey noise image, in Mpixel/s of source
// pixels: gaussBlur(n) for n = 2, 5, 9 next to a straightforward float separable convolution
// of the same kernel, and zoom to twice and half the size. Every figure is the median of
// several timed repetitions after one warm-up run.
//
// Usage: bench_filters [--repeats N] [--size N]
#include "measure.h"
#include "muskeip.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace {

// The Gaussian half-kernel gaussBlur builds: n taps, standard deviation n, full sum 1.
std::vector<float> gaussian_half_kernel(int n) {
    std::vector<float> kernel(n);
    kernel[0] = 1.0f;
    float sum = 1.0f;
    for (int i = 1; i < n; i++) {
        float t = static_cast<float>(i) / static_cast<float>(n);
        kernel[i] = expf((t * -0.5f) * t);
        sum += kernel[i] + kernel[i];
    }
    for (float& k : kernel)
        k /= sum;
    return kernel;
}

// Baseline: separable convolution in float with clamped borders, rows into a float image,
// then columns (row by row, so memory is read in order) rounded into bytes.
void float_separable_convolution(const FlicImage& source, const std::vector<float>& half,
                                 std::vector<float>& rows, FlicImage& target) {
    const int width = source.width, height = source.height, n = static_cast<int>(half.size());
    for (int y = 0; y < height; y++) {
        const unsigned char* in = source.data + static_cast<long>(y) * source.bytesPerLine;
        float* out = rows.data() + static_cast<size_t>(y) * width;
        for (int x = 0; x < width; x++) {
            float sum = half[0] * in[x];
            for (int j = 1; j < n; j++)
                sum += half[j] * (in[std::max(x - j, 0)] + in[std::min(x + j, width - 1)]);
            out[x] = sum;
        }
    }
    for (int y = 0; y < height; y++) {
        unsigned char* out = target.data + static_cast<long>(y) * target.bytesPerLine;
        const float* centre = rows.data() + static_cast<size_t>(y) * width;
        for (int x = 0; x < width; x++) {
            float sum = half[0] * centre[x];
            for (int j = 1; j < n; j++) {
                const float* below = rows.data() + static_cast<size_t>(std::max(y - j, 0)) * width;
                const float* above =
                    rows.data() + static_cast<size_t>(std::min(y + j, height - 1)) * width;
                sum += half[j] * (below[x] + above[x]);
            }
            int value = static_cast<int>(sum + 0.5f);
            out[x] = static_cast<unsigned char>(std::min(std::max(value, 0), 255));
        }
    }
}

// Median wall-clock seconds of `repetitions` runs of `work`, after one untimed run.
double median_seconds(int repetitions, const std::function<void()>& work) {
    work();
    std::vector<double> seconds;
    for (int r = 0; r < repetitions; r++) {
        auto start = std::chrono::steady_clock::now();
        work();
        auto stop = std::chrono::steady_clock::now();
        seconds.push_back(std::chrono::duration<double>(stop - start).count());
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[seconds.size() / 2];
}

void print_row(const char* name, double pixels, double seconds) {
    printf("%-22s %9.1f ms %9.1f Mpixel/s\n", name, seconds * 1e3, pixels / seconds / 1e6);
}

} // namespace

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    const int repetitions = args.number("--repeats", 7, 1), size = args.number("--size", 4096, 16);
    if (!args.ok("bench_filters [--repeats N] [--size N]")) return 2;
    FlicImage source(size, size);
    source.createRandom(0, 1);
    FlicImage target;
    const double pixels = static_cast<double>(size) * size;

    printf("filters on a %d x %d grey image, median of %d runs, Mpixel/s of source pixels\n", size,
           size, repetitions);
    std::vector<float> rows(static_cast<size_t>(size) * size);
    for (int n : {2, 5, 9}) {
        char name[32];
        double packed = median_seconds(repetitions, [&] { source.gaussBlur(n, &target); });
        snprintf(name, sizeof name, "gaussBlur(%d)", n);
        print_row(name, pixels, packed);
        std::vector<float> half = gaussian_half_kernel(n);
        FlicImage baseline(size, size);
        double plain = median_seconds(
            repetitions, [&] { float_separable_convolution(source, half, rows, baseline); });
        snprintf(name, sizeof name, "float separable(%d)", n);
        print_row(name, pixels, plain);
    }
    double up = median_seconds(repetitions, [&] { source.zoom(2 * size, 2 * size, &target); });
    print_row("zoom 2x up", pixels, up);
    double down = median_seconds(repetitions, [&] { source.zoom(size / 2, size / 2, &target); });
    print_row("zoom 2x down", pixels, down);
    return 0;
}
