// Mesh import, scan conversion and line drawing throughput.
#if __has_include(<benchmark/benchmark.h>)
#include <benchmark/benchmark.h>

#include "muskeip.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

// Writes a UCD file of an n x n vertex grid over [0,1]^2, two triangles per cell, with a
// rotating vector (and its length as the scalar value) at every vertex.
std::string writeGridMesh(int n) {
    char path[] = "/tmp/muskeip-bench-XXXXXX";
    int fd = mkstemp(path);
    FILE* file = fdopen(fd, "w");
    int cells = (n - 1) * (n - 1);
    fprintf(file, "%d %d\nheader\n", n * n, 2 * cells);
    for (int j = 0; j < n; j++)
        for (int i = 0; i < n; i++) {
            double x = double(i) / (n - 1), y = double(j) / (n - 1);
            fprintf(file, "%g %g %g %g\n", x, y, y - 0.5, 0.5 - x);
        }
    fprintf(file, "triangles\n");
    for (int j = 0; j + 1 < n; j++)
        for (int i = 0; i + 1 < n; i++) {
            int a = j * n + i + 1, b = a + 1, c = a + n, d = c + 1;
            fprintf(file, "%d %d %d\n%d %d %d\n", a, b, d, a, d, c);
        }
    fclose(file);
    return path;
}

void BM_VectorFieldReadUCD(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    std::string path = writeGridMesh(n);
    FlicVectorField field;
    for (auto _ : state)
        benchmark::DoNotOptimize(field.readUCD(path.c_str(), 512, 512));
    state.counters["triangles"] = 2.0 * (n - 1) * (n - 1);
    unlink(path.c_str());
}
BENCHMARK(BM_VectorFieldReadUCD)->Arg(50)->Arg(200)->Unit(benchmark::kMillisecond);

void countPixel(int, int, float* values, void* user) {
    *static_cast<float*>(user) += values[0];
}

void BM_ScanConvertTriangles(benchmark::State& state) {
    // 1000 triangles of about 30 x 30 pixels on a 1024 x 1024 canvas, 3 attributes.
    const int count = 1000;
    FlicScanConvert::Vertex triangles[count][3];
    srand(1);
    for (auto& triangle : triangles) {
        float x = rand() % 990, y = rand() % 990;
        for (int k = 0; k < 3; k++) {
            triangle[k].x = x + rand() % 40;
            triangle[k].y = y + rand() % 40;
            for (float& a : triangle[k].attributes)
                a = float(rand() % 100);
        }
    }
    FlicScanConvert converter(3);
    converter.setCanvas(1024, 1024);
    float sum = 0;
    converter.setPixelCallback(countPixel, &sum);
    for (auto _ : state)
        for (auto& triangle : triangles)
            converter.scanConvert(3, triangle);
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_ScanConvertTriangles)->Unit(benchmark::kMicrosecond);

void BM_DrawLine(benchmark::State& state) {
    // 1000 lines across a 1024 x 1024 grey image; range(0) is the pixel width, range(1) = 1
    // moves the end points a million pixels outside (only the visible part is walked).
    FlicImage image(1024, 1024);
    image.clear(0);
    FlicGraphics graphics;
    graphics.setColor(255, 255, 255);
    graphics.setPixelWidth(static_cast<int>(state.range(0)));
    int reach = state.range(1) ? 1000000 : 0;
    for (auto _ : state)
        for (int i = 0; i < 1000; i++)
            graphics.drawLine(image, -reach, i, 1023 + reach, 1023 - i);
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_DrawLine)->Args({1, 0})->Args({3, 0})->Args({1, 1})->Unit(benchmark::kMicrosecond);

void BM_DrawUCD(benchmark::State& state) {
    std::string path = writeGridMesh(200);
    FlicImage image(1024, 1024);
    image.clear(0);
    FlicGraphics graphics;
    graphics.setColor(255, 255, 255);
    for (auto _ : state)
        benchmark::DoNotOptimize(graphics.drawUCD(image, path.c_str()));
    unlink(path.c_str());
}
BENCHMARK(BM_DrawUCD)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

#else
#include <cstdio>

int main() {
    puts("bench_meshes: Google Benchmark is not installed (make bench installs it)");
    return 0;
}
#endif
