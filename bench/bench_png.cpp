// PNG writing of a big LIC picture: the command line's writer (libpng with zlib level 1, the
// RLE strategy and the Up filter) against libpng's simplified interface with its defaults (zlib
// level 6, adaptive filters), which the command line used before. The picture is the default
// grey picture at 8192^2 (LIC of bench_lic's field, contrast 128,40) and its colour version
// (magnitude, viridis, multiply). Writers alternate round by round; figures are medians.
//
// Usage: bench_png [--repeats N] [--size N] [--folder DIR]
#include "measure.h"
#include "image_files.h"

#include "compute.h"
#include "picture.h"

#include <png.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

// The baseline: libpng's simplified writer with its default compression.
bool writeSimplified(const std::string& path, const FlicImage& image) {
    png_image png;
    memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = image.nChannels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    FILE* file = fopen(path.c_str(), "wb");
    if (!file) return false;
    const unsigned char* bottom = image.data;
    bool written = png_image_write_to_stdio(&png, file, 0, bottom, -image.bytesPerLine, nullptr);
    fclose(file);
    return written;
}

double seconds(bool (*write)(const std::string&, const FlicImage&), const std::string& path,
               const FlicImage& image) {
    auto start = std::chrono::steady_clock::now();
    if (!write(path, image)) {
        fprintf(stderr, "writing %s failed\n", path.c_str());
        exit(1);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool writeCommandLine(const std::string& path, const FlicImage& image) {
    return writePNG(path, image) == 1;
}

long long fileSize(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : -1;
}

void compare(const char* label, const FlicImage& image, int repeats, const std::string& folder) {
    std::vector<double> fast, simplified;
    std::string fastPath = folder + "/bench-png-fast.png", oldPath = folder + "/bench-png-old.png";
    for (int r = 0; r < repeats; r++) {
        simplified.push_back(seconds(writeSimplified, oldPath, image));
        fast.push_back(seconds(writeCommandLine, fastPath, image));
    }
    FlicImage back;
    bool same =
        readImage(fastPath, back) == 1 && back.width == image.width &&
        memcmp(back.data, image.data, static_cast<size_t>(image.bytesPerLine) * image.height) == 0;
    printf("%-22s libpng defaults %7.3f s (%lld bytes)   command line %7.3f s (%lld bytes)   "
           "%.2fx faster, read back %s\n",
           label, median(simplified), fileSize(oldPath), median(fast), fileSize(fastPath),
           median(simplified) / median(fast), same ? "identical" : "DIFFERENT");
    remove(fastPath.c_str());
    remove(oldPath.c_str());
}

} // namespace

int main(int argc, char** argv) {
    BenchArgs args(argc, argv);
    const int repeats = args.number("--repeats", 3, 1), size = args.number("--size", 8192, 64);
    const std::string folder = args.text("--folder", "/tmp");
    if (!args.ok("bench_png [--repeats N] [--size N] [--folder DIR]")) return 2;
    FlicVectorField field = vortexSaddle(size / 8 + 1);
    FlicImage noise(size, size, 1);
    noise.createRandom(1, 1);
    FlicCompute engine;
    engine.setTileSize(256);
    FlicImage lic;
    if (!engine.compute(&field, &noise, &lic)) return 1;

    FlicPicture grey;
    FlicImage picture(lic);
    if (!grey.finish(picture, field)) return 1;
    printf("%d x %d pixels, %d repeats\n", size, size, repeats);
    compare("grey (default)", picture, repeats, folder);
    FlicPicture colour;
    colour.colour = FlicPicture::MAGNITUDE;
    picture = lic;
    if (!colour.finish(picture, field)) return 1;
    compare("colour (magnitude)", picture, repeats, folder);
    return 0;
}
