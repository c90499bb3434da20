// Throughput of the colouring, compositing and resampling operations on 1024 x 1024 data.
#if __has_include(<benchmark/benchmark.h>)
#include <benchmark/benchmark.h>

#include "muskeip.h"

#include <cstring>

namespace {

const int kSize = 1024;

FlicScalarField dipoleField() {
    FlicScalarField field(kSize, kSize);
    field.createDipole(20, 0);
    return field;
}

FlicVectorField circleField() {
    FlicVectorField field(kSize, kSize);
    field.setCircle(0.3f);
    return field;
}

void BM_PseudoColorStretched(benchmark::State& state) {
    FlicScalarField field = dipoleField();
    FlicColormap map;
    map.createHueRamp();
    map.setMinMax(-1, 1);
    FlicImage image(kSize, kSize, 3);
    for (auto _ : state) {
        field.pseudoColor(map, image, 0);
        benchmark::DoNotOptimize(image.data);
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_PseudoColorStretched);

void BM_VecToColor(benchmark::State& state) {
    FlicVectorField field = circleField();
    FlicImage image;
    for (auto _ : state) {
        field.vecToColor(image, 1);
        benchmark::DoNotOptimize(image.data);
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_VecToColor);

void BM_ResampleHalf(benchmark::State& state) {
    FlicVectorField field = circleField();
    FlicVectorField target;
    for (auto _ : state) {
        field.resample(kSize / 2, kSize / 2, &target);
        benchmark::DoNotOptimize(target.data);
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize / 4);
}
BENCHMARK(BM_ResampleHalf);

void BM_Mix(benchmark::State& state) {
    FlicImage colour(kSize, kSize, 3), grey(kSize, kSize, 1), out;
    colour.createRandom(0, 3);
    grey.createRandom(0, 4);
    for (auto _ : state) {
        grey.mix(colour, &out);
        benchmark::DoNotOptimize(out.data);
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_Mix);

void BM_FloodFillOpenImage(benchmark::State& state) {
    FlicImage image(kSize, kSize, 1);
    image.clear(0);
    int value = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(image.floodFill(kSize / 2, kSize / 2, value));
        value = 1 - value;
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_FloodFillOpenImage);

void BM_ColorToGrey(benchmark::State& state) {
    FlicImage colour(kSize, kSize, 3), grey;
    colour.createRandom(0, 5);
    for (auto _ : state) {
        colour.colorToGrey(&grey);
        benchmark::DoNotOptimize(grey.data);
    }
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
}
BENCHMARK(BM_ColorToGrey);

} // namespace

BENCHMARK_MAIN();
#else
#include <cstdio>

int main() {
    std::puts("Google Benchmark is not installed: nothing measured (make bench installs it).");
    return 0;
}
#endif
