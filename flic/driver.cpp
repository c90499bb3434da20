// FlicCompute::compute: input checks, the three seeding orders of the serial engine and the
// normalisation of the accumulated sums.
#include "compute.h"

#include "engine_common.h"
#include "messages.h"

#include <climits>
#include <cstdio>

using namespace muskeip::detail;

// The most hit counters a record has: one per sub-pixel cell of 256 x 256.
static const int maxSubCells = 256 * 256;

// --- Driver -----------------------------------------------------------------------------------

int FlicCompute::checkPicture(int width, int height, int channels) const {
    if (numSubPixels < 1 || numSubPixels > 256)
        return flic_error("LIC: number of sub-pixels %d outside 1 .. 256", numSubPixels);
    if (kernelStepsFor(filterLength, stepLength, filterKernel) < 0 ||
        stepsFor(extensionLength, stepLength) < 0)
        return flic_error("LIC: filter length %g, extension %g and step %g give no usable "
                          "number of steps",
                          filterLength, extensionLength, stepLength);
    long long cells =
        static_cast<long long>(width) * height * (numSubPixels * numSubPixels + channels);
    long long lineEntries = (2LL * (kernelStepsFor(filterLength, stepLength, filterKernel) +
                                    stepsFor(extensionLength, stepLength)) +
                             1) *
                            channels;
    if (cells > INT_MAX || lineEntries > INT_MAX)
        return flic_error("LIC: %d x %d x %d texture too large for the work buffers", width, height,
                          channels);
    return 1;
}

long long FlicCompute::memoryNeeded(int width, int height, int channels) const {
    long long pixels = static_cast<long long>(width) * height;
    long long records = pixels * (numSubPixels * numSubPixels + channels) * 4;
    return records + 2 * pixels * channels; // the sums, the texture and the picture
}

long long FlicCompute::availableMemory() {
    FILE* file = fopen("/proc/meminfo", "r");
    if (!file) return -1;
    char line[256];
    long long kilobytes = -1;
    while (fgets(line, sizeof line, file))
        if (sscanf(line, "MemAvailable: %lld kB", &kilobytes) == 1) break;
    fclose(file);
    return kilobytes < 0 ? -1 : kilobytes * 1024;
}

int FlicCompute::checkResources(int width, int height, int channels, long long extraBytes) const {
    if (!checkPicture(width, height, channels)) return 0;
    long long needed = memoryNeeded(width, height, channels) + extraBytes;
    long long available = availableMemory();
    if (available < 0 || needed <= available) return 1;
    flic_error("a %d x %d picture needs about %.1f GB of memory, but only %.1f GB are available",
               width, height, needed / 1e9, available / 1e9);
    return -1;
}

int FlicCompute::checkInputs(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                             FlicImage* mask, FlicImage* seedMap) const {
    if (!texture || !texture->data || texture->width < 1 || texture->height < 1 ||
        texture->nChannels < 1)
        return flic_error("LIC: the input texture is empty");
    if (!output) return flic_error("LIC: no output image");
    if (!forward || !backward) return flic_error("LIC: the engine has no integrators");
    if (seedMap && !mask) return flic_error("LIC: a seed map needs a mask");
    if (mask && (!mask->data || mask->nChannels < 1)) return flic_error("LIC: the mask is empty");
    if (!checkPicture(texture->width, texture->height, texture->nChannels)) return 0;
    (void)field;
    return 1;
}

int FlicCompute::compute(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                         FlicImage* mask, FlicImage* seedMap) {
    if (!field || !field->data || field->width < 2 || field->height < 2)
        return flic_error("LIC: the vector field needs at least 2 x 2 nodes");
    if (mask && (mask->width != field->width || mask->height != field->height))
        return flic_info("field and mask must have the same size");
    if (!checkInputs(field, texture, output, mask, seedMap) || !checkTileSettings() ||
        !checkModes(field))
        return 0;
    if (passes == 1) return computeOnce(field, texture, output, mask, seedMap);
    // Each further pass takes the previous picture as its texture.
    FlicImage picture;
    if (!computeOnce(field, texture, &picture, mask, seedMap)) return 0;
    for (int pass = 2; pass <= passes; pass++) {
        FlicImage next;
        if (!computeOnce(field, &picture, pass == passes ? output : &next, mask, seedMap)) return 0;
        if (pass < passes) picture.swap(next);
    }
    return 1;
}

// One picture from one texture: start, seeding, normalisation, stop.
int FlicCompute::computeOnce(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                             FlicImage* mask, FlicImage* seedMap) {
    start(field, texture);
    if (!points || !accum || !samples || !sums || !positions || !prepareModes()) {
        stop();
        return flic_error("LIC: no memory for the work buffers");
    }
    if (seedMap) {
        seedMap->setSize(texWidth, texHeight, 1);
        seedMap->clear(1);
    }
    if (kernelSteps == 0) {
        for (int f = 0; f < (frameCount > 0 ? frameCount : 1); f++)
            output[f] = *texture;
        if (coverage && coverage->setSize(texWidth, texHeight, 1)) coverage->clear(255);
        stop();
        return 1;
    }
    progressPercent = 0;
    if (tileSize != 0) {
        int done = computeTiled(output, mask, seedMap);
        stop();
        return done;
    }
    switch (seedingMethod) {
    case 0:
        seedRaster(mask, seedMap);
        break;
    case 1:
        seedPattern(mask, seedMap);
        break;
    case 2:
        seedQuasiRandom(mask, seedMap);
        break;
    default:
        break; // no seeds: black output
    }
    reportProgress(1, 1);
    normalize(output);
    stop();
    return 1;
}

// Seeds a line in cell (i, j) of pixel (x, y) unless a line already covers that cell.
void FlicCompute::seedCell(int x, int y, int i, int j, FlicImage* mask, FlicImage* seedMap) {
    Vec2f seed;
    if (!seedOfCell(x, y, i, j, seed)) return;
    sample(seed);
    markSeed(x, y, seed, mask, seedMap);
}

int FlicCompute::seedOfCell(int x, int y, int i, int j, Vec2f& seed) const {
    if (coversCell(x, y, i, j)) return 0;
    float invX = 1.0f / scaleX, invY = 1.0f / scaleY;
    float invS = 1.0f / numSubPixels;
    seed.x = (x + (i + 0.5f) * invS) * invX;
    seed.y = (y + (j + 0.5f) * invS) * invY;
    return 1;
}

void FlicCompute::markSeed(int x, int y, const Vec2f& seed, FlicImage* mask,
                           FlicImage* seedMap) const {
    if (!seedMap) return;
    int value;
    getPixelConst1(mask, seed.x, seed.y, &value);
    seedMap->data[static_cast<std::ptrdiff_t>(y) * seedMap->bytesPerLine + x] =
        static_cast<unsigned char>(value);
}

void FlicCompute::seedPattern(FlicImage* mask, FlicImage* seedMap) {
    int s = numSubPixels;
    long long total = static_cast<long long>(s) * s * texWidth * texHeight, visited = 0;
    for (int j = 0; j < s; j++)
        for (int i = 0; i < s; i++)
            for (const int* o : offset)
                for (int y = o[1]; y < texHeight; y += 4) {
                    for (int x = o[0]; x < texWidth; x += 4)
                        seedCell(x, y, i, j, mask, seedMap);
                    visited += texWidth > o[0] ? (texWidth - o[0] + 3) / 4 : 0;
                    reportProgress(visited, total);
                }
}

void FlicCompute::seedRaster(FlicImage* mask, FlicImage* seedMap) {
    int s = numSubPixels;
    long long total = static_cast<long long>(s) * s * texHeight, rows = 0;
    for (int j = 0; j < s; j++)
        for (int i = 0; i < s; i++)
            for (int y = 0; y < texHeight; y++) {
                for (int x = 0; x < texWidth; x++)
                    seedCell(x, y, i, j, mask, seedMap);
                reportProgress(++rows, total);
            }
}

// Seeds the cells the quasi-random sequence draws, in its order.
void FlicCompute::seedQuasiRandom(FlicImage* mask, FlicImage* seedMap) {
    int s = numSubPixels, pixels = texWidth * texHeight;
    drawSobolCells(texWidth, texHeight, s, [&](int X, int Y, int counter) {
        seedCell(X / s, Y / s, X % s, Y % s, mask, seedMap);
        reportProgress(counter, pixels);
    });
}

// Divides every pixel's channel sums by its hits (truncating; low byte, no clamping).
void FlicCompute::normalize(FlicImage* output) {
    if (frameCount > 0) return normalizeFrames(output);
    normalizeRecords(accum, texWidth, texHeight, numSubCells, texChannels, output, &totalHits,
                     coverage);
}

// The usual small hit counts divide through a table of fixed divisors.
int FlicCompute::normalizeRecords(const int* records, int width, int height, int subCells,
                                  int channels, FlicImage* output, int* totalHitsOut,
                                  FlicImage* coverageOut) {
    if (width < 1 || height < 1 || subCells < 0 || subCells > maxSubCells || channels < 1)
        return flic_error("LIC: no picture from %d x %d records of %d hit counters and %d "
                          "channels",
                          width, height, subCells, channels);
    if (!output->setSize(width, height, channels)) return 0;
    bool covering = coverageOut && coverageOut->setSize(width, height, 1);
    int total = normalizeRows(records, width, 0, height, subCells, channels, output,
                              covering ? coverageOut : nullptr);
    if (totalHitsOut) *totalHitsOut = wrapAdd(*totalHitsOut, total);
    return 1;
}

const FixedDivisor* muskeip::detail::hitDivisors() {
    struct Table {
        FixedDivisor divisors[kDivisorTableSize];
        Table() {
            for (int d = 1; d < kDivisorTableSize; d++)
                divisors[d] = FixedDivisor(d);
        }
    };
    static const Table table; // made by the first caller, the others wait for it
    return table.divisors;
}

int muskeip::detail::normalizeRows(const int* records, int width, int rowBegin, int rowEnd,
                                   int subCells, int channels, FlicImage* output,
                                   FlicImage* coverage) {
    const FixedDivisor* divisors = hitDivisors();
    const int stride = subCells + channels;
    const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(rowBegin) * width;
    const std::ptrdiff_t end = static_cast<std::ptrdiff_t>(rowEnd) * width;
    int total = 0;
    const int* record = records + first * stride;
    unsigned char* out = output->data + first * channels;
    if (subCells == 1 && channels == 1) { // the common case: records of hits and one sum
        for (std::ptrdiff_t p = first; p < end; p++, record += 2, out++) {
            total = wrapAdd(total, record[0]);
            *out = static_cast<unsigned char>(divideByHits(record[1], record[0], divisors));
        }
    } else {
        for (std::ptrdiff_t p = first; p < end; p++, record += stride, out += channels) {
            int hits = 0;
            for (int s = 0; s < subCells; s++)
                hits = wrapAdd(hits, record[s]);
            total = wrapAdd(total, hits);
            const int* channelSums = record + subCells;
            for (int ch = 0; ch < channels; ch++)
                out[ch] = static_cast<unsigned char>(divideByHits(channelSums[ch], hits, divisors));
        }
    }
    if (coverage)
        for (std::ptrdiff_t p = first; p < end; p++) {
            int hits = 0;
            for (int s = 0; s < subCells; s++)
                hits |= records[p * stride + s];
            coverage->data[(p / width) * coverage->bytesPerLine + p % width] = hits ? 255 : 0;
        }
    return total;
}
