// Cost of the picture steps at 4096^2 against the LIC itself (tiled engine, every core, L = 20,
// the field of bench_lic): contrast with exact statistics (and the single-precision
// autoAdjust), adaptive equalisation, colour by magnitude with each blend, and the enhanced
// two-pass texture. Runs interleaved round by round; each figure is a median.
//
// Usage: bench_picture [--repeats N] [--size N]
#include "measure.h"
#include "compute.h"
#include "histogram.h"
#include "picture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

namespace {

double seconds(const std::function<void()>& work) {
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    const int repeats = args.number("--repeats", 5, 1), size = args.number("--size", 4096, 64);
    if (!args.ok("bench_picture [--repeats N] [--size N]")) return 2;
    FlicVectorField field = vortexSaddle(size / 4 + 1);
    FlicImage noise(size, size, 1);
    noise.createRandom(1, 1);
    FlicCompute engine;
    engine.setTileSize(256);
    FlicImage lic;
    engine.compute(&field, &noise, &lic);

    FlicPicture magnitude;
    magnitude.adjust = 0;
    magnitude.colour = FlicPicture::MAGNITUDE;
    const char* names[] = {"LIC (tiled, all cores)",       "contrast, exact statistics",
                           "contrast, autoAdjust (float)", "equalize adaptive 8x8",
                           "colour magnitude, multiply",   "colour magnitude, lightness",
                           "colour magnitude, overlay",    "enhance (LIC + 2nd LIC + stretch)"};
    const int stages = 8;
    std::vector<double> times[stages];
    for (int r = 0; r < repeats; r++)
        for (int s = 0; s < stages; s++) {
            FlicImage picture(lic);
            FlicPicture steps = magnitude;
            steps.blend = s == 5   ? FlicPicture::LIGHTNESS
                          : s == 6 ? FlicPicture::OVERLAY
                                   : FlicPicture::MULTIPLY;
            FlicPicture enhanced;
            enhanced.adjust = 0;
            enhanced.enhance = 1;
            times[s].push_back(seconds([&] {
                if (s == 0) engine.compute(&field, &noise, &picture);
                if (s == 1) flicAdjustContrast(picture, 128.0f, 40.0f);
                if (s == 2) picture.autoAdjust(128.0f, 40.0f);
                if (s == 3) flicEqualize(picture, 8, 2.0f);
                if (s >= 4 && s <= 6) steps.finish(picture, field);
                if (s == 7) enhanced.render(engine, field, noise, picture);
            }));
        }
    double base = median(times[0]);
    printf("picture steps at %d^2; medians of %d interleaved runs\n", size, repeats);
    for (int s = 0; s < stages; s++)
        printf("%-34s %8.1f ms  %5.2f x LIC\n", names[s], 1e3 * median(times[s]),
               median(times[s]) / base);
    return 0;
}
