// FlicCompute: configuration, start/stop, the compute driver with its three seeding orders, the
// field-line sampling with integer running-sum convolution, and the texture lookups.
#include "compute.h"

#include "build_common.h"
#include "engine_common.h"
#include "messages.h"
#include "sobol.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <unistd.h>

namespace {

const char* const kernelNames[3] = {"box", "triangle", "cubic"};

// Kernel and extension step counts beyond this are refused: the work arrays of a line would
// grow absurdly. The running sums wrap instead of overflowing, so a convolution value stays
// exact as long as value times divisor fits an int: up to about 300 kernel steps for the cubic
// kernel and 2900 for the triangle, whatever the line length; longer kernels give meaningless
// values, without undefined behaviour.
const int maxLineSteps = 1 << 19;

// Coordinates farther than this many periods from the texture are reduced with fmodf before
// the wrap loops. For the integer periods of a texture both give the same value for every
// coordinate the loops handle exactly; beyond 2^24 the loops would lose precision or never end.
const float farPeriods = 64.0f;

// Integer part of (length / h + 0.5): the division in single precision, the addition in
// double. -1 when the result is negative, NaN or above maxLineSteps.
int stepsFor(float length, float h) {
    double value = static_cast<double>(length / h) + 0.5;
    if (!(value > -1.0 && value < static_cast<double>(maxLineSteps) + 1.0)) return -1;
    int steps = static_cast<int>(value);
    return steps;
}

// Kernel steps N for a filter length: rounded up to a multiple of 6 for the cubic kernel.
int kernelStepsFor(float length, float h, int kernel) {
    int steps = stepsFor(length, h);
    if (steps > 0 && kernel == FlicCompute::CUBIC && steps % 6 != 0) steps += 6 - steps % 6;
    return steps;
}

// Wraps v periodically into [0, period) by adding or subtracting the period, as the texture
// lookups define it. NaN and infinite coordinates become 0; coordinates beyond `far`
// (farPeriods periods) are reduced with fmodf first.
FLIC_ALWAYS_INLINE float wrapCoordinate(float v, float period, float far) {
    if (!(v > -far && v < far)) {
        v = std::isfinite(v) ? fmodf(v, period) : 0.0f;
        if (v == 0.0f) v = 0.0f; // no negative zero
    }
    while (v < 0)
        v += period;
    while (v >= period)
        v -= period;
    return v;
}

// A texture's geometry as the lookups use it: taken once, kept in registers along a line.
struct TexelSource {
    const unsigned char* data;
    std::ptrdiff_t bytesPerLine;
    int channels;
    float periodX, periodY; // width - 1, height - 1: the last column and row are neighbours only
    float farX, farY;
    bool periodic; // pixels to read and at least 2 x 2 of them

    explicit TexelSource(const FlicImage* texture)
        : data(nullptr), bytesPerLine(0), channels(0), periodX(0), periodY(0), farX(0), farY(0),
          periodic(false) {
        if (!texture) return;
        data = texture->data;
        bytesPerLine = texture->bytesPerLine;
        channels = texture->nChannels;
        periodX = static_cast<float>(texture->width - 1);
        periodY = static_cast<float>(texture->height - 1);
        farX = farPeriods * periodX;
        farY = farPeriods * periodY;
        periodic = data && texture->width >= 2 && texture->height >= 2;
    }

    // Address of the texel at the wrapped position (x, y), with the position's fractions.
    // Positions already inside the periods (most of them) skip the wrapping.
    FLIC_ALWAYS_INLINE const unsigned char* locate(float x, float y, float& fx, float& fy) const {
        if (!(x >= 0.0f && x < periodX && y >= 0.0f && y < periodY)) {
            x = wrapCoordinate(x, periodX, farX);
            y = wrapCoordinate(y, periodY, farY);
        }
        int ix = static_cast<int>(x);
        int iy = static_cast<int>(y);
        fx = x - ix;
        fy = y - iy;
        return data + iy * bytesPerLine + static_cast<std::ptrdiff_t>(ix) * channels;
    }
};

// Bilinear mix of channel ch around p (right and upper neighbours `right` and `up` bytes away),
// truncated to int: a + (b - a) fx + (c - a) fy + fx fy (a - c - b + d) in single precision.
// The differences of the byte values are formed in int: for such small integers that is exactly
// what the float differences give, at a lower cost.
FLIC_ALWAYS_INLINE int bilinearTexel(const unsigned char* p, int ch, std::ptrdiff_t right,
                                     std::ptrdiff_t up, float fx, float fy) {
    int a = p[ch], b = p[ch + right], c = p[ch + up], d = p[ch + right + up];
    float ba = static_cast<float>(b - a), ca = static_cast<float>(c - a);
    float cross = static_cast<float>(a - c - b + d);
    return static_cast<int>(static_cast<float>(a) + ba * fx + ca * fy + fx * fy * cross);
}

// Wraps coordinate c along a texture axis of `count` pixels, `stride` bytes apart, into a pixel
// index, its fraction and the byte step to the neighbour. An axis of one pixel has no period:
// it is read at 0 with itself as neighbour.
void wrapAxis(float c, int count, std::ptrdiff_t stride, int& index, float& fraction,
              std::ptrdiff_t& step) {
    index = 0;
    fraction = 0.0f;
    step = 0;
    if (count < 2) return;
    float period = static_cast<float>(count - 1);
    c = wrapCoordinate(c, period, farPeriods * period);
    index = static_cast<int>(c);
    fraction = c - index;
    step = stride;
}

// Lookups on textures narrower or lower than 2 pixels (no wrap period) or without pixels: an
// axis of one pixel is read at 0 with itself as neighbour; an empty texture gives 0.
void degenerateLookup(const FlicImage* texture, float x, float y, int* out, int channels,
                      bool bilinear) {
    if (!texture || !texture->data || texture->width < 1 || texture->height < 1) {
        for (int ch = 0; ch < channels; ch++)
            out[ch] = 0;
        return;
    }
    std::ptrdiff_t stepX, stepY;
    int ix, iy;
    float fx, fy;
    wrapAxis(x, texture->width, texture->nChannels, ix, fx, stepX);
    wrapAxis(y, texture->height, texture->bytesPerLine, iy, fy, stepY);
    const unsigned char* p = texture->data +
                             static_cast<std::ptrdiff_t>(iy) * texture->bytesPerLine +
                             static_cast<std::ptrdiff_t>(ix) * texture->nChannels;
    for (int ch = 0; ch < channels; ch++)
        out[ch] = bilinear ? bilinearTexel(p, ch, stepX, stepY, fx, fy) : p[ch];
}

// The four lookups of the engine on a periodic texture: KIND selects constant or bilinear, one
// channel or all of them.
enum LookupKind {
    LOOKUP_POINTER,
    LOOKUP_CONST1,
    LOOKUP_CONSTN,
    LOOKUP_BILINEAR1,
    LOOKUP_BILINEARN
};

template <int KIND>
FLIC_ALWAYS_INLINE void periodicLookup(const TexelSource& source, float x, float y, int* out) {
    float fx, fy;
    const unsigned char* p = source.locate(x, y, fx, fy);
    int channels = KIND == LOOKUP_CONST1 || KIND == LOOKUP_BILINEAR1 ? 1 : source.channels;
    for (int ch = 0; ch < channels; ch++) {
        if (KIND == LOOKUP_CONST1 || KIND == LOOKUP_CONSTN)
            out[ch] = p[ch];
        else
            out[ch] = bilinearTexel(p, ch, source.channels, source.bytesPerLine, fx, fy);
    }
}

// A lookup as the public functions define it, on any texture.
template <int KIND>
FLIC_ALWAYS_INLINE void lookup(const FlicImage* texture, float x, float y, int* out) {
    TexelSource source(texture);
    if (source.periodic) return periodicLookup<KIND>(source, x, y, out);
    int channels = KIND == LOOKUP_CONST1 || KIND == LOOKUP_BILINEAR1 ? 1 : source.channels;
    degenerateLookup(texture, x, y, out, channels,
                     KIND == LOOKUP_BILINEAR1 || KIND == LOOKUP_BILINEARN);
}

// Truncating division of a non-negative int by a fixed positive divisor through one 64-bit
// multiplication (exact for every dividend below 2^31: m = floor(2^(31+l) / d) + 1 with
// 2^l >= d); negative dividends use the ordinary division.
struct FixedDivisor {
    int divisor;
    std::uint64_t multiplier;
    int shift;

    FixedDivisor() : FixedDivisor(1) {}
    explicit FixedDivisor(long long d) {
        if (d < 1) d = 1;
        if (d > INT_MAX) d = INT_MAX;
        divisor = static_cast<int>(d);
        int l = 0;
        while ((static_cast<std::uint64_t>(1) << l) < static_cast<std::uint64_t>(divisor))
            l++;
        shift = 31 + l;
        multiplier = ((static_cast<std::uint64_t>(1) << shift) / divisor) + 1;
    }
    FLIC_ALWAYS_INLINE int divide(int n) const {
        if (n >= 0) return static_cast<int>((static_cast<std::uint64_t>(n) * multiplier) >> shift);
        return n / divisor;
    }
};

} // namespace

// --- FlicWatch --------------------------------------------------------------------------------

FlicWatch::FlicWatch() {
    reset();
    startTicks = 0;
    memset(&startTimes, 0, sizeof startTimes);
}

void FlicWatch::reset() {
    elapsedTicks = userTicks = systemTicks = childUserTicks = childSystemTicks = 0;
}

void FlicWatch::start() {
    startTicks = times(&startTimes);
}

void FlicWatch::stop() {
    struct tms now;
    clock_t ticks = times(&now);
    elapsedTicks += ticks - startTicks;
    userTicks += now.tms_utime - startTimes.tms_utime;
    systemTicks += now.tms_stime - startTimes.tms_stime;
    childUserTicks += now.tms_cutime - startTimes.tms_cutime;
    childSystemTicks += now.tms_cstime - startTimes.tms_cstime;
}

float FlicWatch::seconds() const {
    return static_cast<float>(elapsedTicks) / static_cast<float>(sysconf(_SC_CLK_TCK));
}

// --- Configuration ----------------------------------------------------------------------------

const int FlicCompute::offset[16][2] = {{0, 0}, {2, 0}, {0, 2}, {2, 2}, {1, 1}, {3, 1},
                                        {1, 3}, {3, 3}, {1, 0}, {3, 0}, {1, 2}, {3, 2},
                                        {0, 1}, {2, 1}, {0, 3}, {2, 3}};

FlicCompute::FlicCompute()
    : filterLength(20.0f), extensionLength(80.0f), stepLength(1.0f), offsetLength(20.0f),
      normalization(0.0f), numSubPixels(1), filterKernel(TRIANGLE), seedingMethod(1),
      interpolationMethod(BILINEAR), texWidth(0), texHeight(0), texChannels(0), fieldMaxX(0),
      fieldMaxY(0), scaleX(0), scaleY(0), kernelSteps(0), extensionSteps(0), lengthBias(0),
      maxSteps(0), recordStride(0), numSubCells(0), totalHits(0), numFieldLines(0), field(nullptr),
      texture(nullptr), forward(nullptr), backward(nullptr), accum(nullptr), samples(nullptr),
      sums(nullptr), points(nullptr), getPixel(nullptr), positions(nullptr) {
    memset(zaehlrohr, 0, sizeof zaehlrohr);
    // Without memory for them the engine has no integrators, and compute refuses to run.
    installIntegrators(new (std::nothrow) RK43(0.001f, 4.0f, 0.5f, 15.0f, 1),
                       new (std::nothrow) RK43(0.001f, 4.0f, 0.5f, 15.0f, -1));
}

FlicCompute::~FlicCompute() {
    delete forward;
    delete backward;
}

void FlicCompute::setNormalization(float value) {
    normalization = value;
    if (forward) forward->normalization = value;
    if (backward) backward->normalization = value;
}

void FlicCompute::setProgressCallback(ProgressCallback callback, void* user) {
    progressCallback = callback;
    progressUser = user;
}

// Calls the progress callback when `done` of `total` candidates reach another whole percent.
void FlicCompute::reportProgress(long long done, long long total) {
    if (!progressCallback || total <= 0) return;
    int percent = static_cast<int>(done >= total ? 100 : done * 100 / total);
    if (percent <= progressPercent) return;
    progressPercent = percent;
    progressCallback(static_cast<float>(percent) / 100.0f, progressUser);
}

// Replaces the integrator pair. A null one (no memory) drops both new ones and keeps the pair in
// place; returns 0 after reporting.
int FlicCompute::installIntegrators(FlicIntegrator* forwardOne, FlicIntegrator* backwardOne) {
    if (!forwardOne || !backwardOne) {
        delete forwardOne;
        delete backwardOne;
        return flic_error("LIC: no memory for the integrators");
    }
    delete forward;
    delete backward;
    forward = forwardOne;
    backward = backwardOne;
    forward->normalization = normalization;
    backward->normalization = normalization;
    return 1;
}

// The operation's name is historical: it installs the midpoint method.
void FlicCompute::useEuler() {
    installIntegrators(new (std::nothrow) Midpoint(1), new (std::nothrow) Midpoint(-1));
}

void FlicCompute::useRK43(float initialStep, float minStep, float maxStep, float tolerance) {
    installIntegrators(new (std::nothrow) RK43(tolerance, initialStep, minStep, maxStep, 1),
                       new (std::nothrow) RK43(tolerance, initialStep, minStep, maxStep, -1));
}

// --- start / stop -----------------------------------------------------------------------------

void FlicCompute::start(FlicVectorField* field, FlicImage* texture) {
    int kernel = filterKernel;
    const char* name = kernel >= 0 && kernel < 3 ? kernelNames[kernel] : "unknown";
    flic_info("computing LIC image (L=%.0f, filter=%s, mask=%dx%d)", filterLength, name,
              numSubPixels, numSubPixels);
    watch.reset();
    watch.start();
    derive(field, texture);

    // A second start without stop does not leak the previous buffers.
    freeBuffers();
    long long records = static_cast<long long>(texWidth) * texHeight;
    if (kernelSteps >= 0 && extensionSteps >= 0 && records > 0 && recordStride > 0) {
        accum = static_cast<int*>(calloc(static_cast<size_t>(records) * recordStride, sizeof(int)));
        allocateLineBuffers();
    }
    totalHits = 0;
    numFieldLines = 0;
}

// Steps of start that derive the working quantities: the inputs, the scales, the integrators'
// step and field, N, M, the record layout and the texture lookup.
void FlicCompute::derive(FlicVectorField* field, FlicImage* texture) {
    this->field = field;
    this->texture = texture;
    texWidth = texture->width;
    texHeight = texture->height;
    texChannels = texture->nChannels;

    fieldMaxX = static_cast<float>(field->width - 1.001);
    fieldMaxY = static_cast<float>(field->height - 1.001);
    scaleX = static_cast<float>(texWidth / (field->width - 1.0));
    scaleY = static_cast<float>(texHeight / (field->height - 1.0));
    float integratorStep = 2.0f * stepLength / (scaleX + scaleY);
    FlicIntegrator* pair[2] = {forward, backward};
    for (FlicIntegrator* integrator : pair) {
        if (!integrator) continue;
        integrator->stepLength = integratorStep;
        integrator->setField(field->width, field->height, field->vectors());
    }

    kernelSteps = kernelStepsFor(filterLength, stepLength, filterKernel);
    extensionSteps = stepsFor(extensionLength, stepLength);
    lengthBias = 0;
    maxSteps = kernelSteps + extensionSteps;
    numSubCells = numSubPixels * numSubPixels;
    recordStride = numSubCells + texChannels;

    if (interpolationMethod == CONSTANT)
        getPixel = texChannels == 1 ? getPixelConst1 : getPixelConstN;
    else
        getPixel = texChannels == 1 ? getPixelBilinear1 : getPixelBilinearN;
}

// The work arrays of one line, sized for the longest line of the current settings.
int FlicCompute::allocateLineBuffers() {
    long long lineLength = 2LL * maxSteps + 1;
    points = static_cast<PointRecord*>(malloc(sizeof(PointRecord) * lineLength));
    samples = static_cast<int*>(malloc(sizeof(int) * lineLength * texChannels));
    sums = static_cast<int*>(malloc(sizeof(int) * lineLength * texChannels));
    positions = static_cast<Vec2f*>(malloc(sizeof(Vec2f) * lineLength));
    windowSlots = static_cast<int*>(malloc(sizeof(int) * lineLength));
    return points && samples && sums && positions && windowSlots;
}

void FlicCompute::freeBuffers() {
    free(points);
    free(accum);
    free(samples);
    free(sums);
    free(positions);
    free(windowSlots);
    windowSlots = nullptr;
    points = nullptr;
    accum = samples = sums = nullptr;
    positions = nullptr;
}

void FlicCompute::stop() {
    freeBuffers();
    float average = static_cast<float>(totalHits) / static_cast<float>(texWidth * texHeight);
    flic_info("total number of field lines = %d", numFieldLines);
    flic_info("average number of hits per pixel = %.2f", average);
    watch.stop();
    flic_info("time for LIC computation = %.2f sec", watch.seconds());
}

// --- Driver -----------------------------------------------------------------------------------

int FlicCompute::checkInputs(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                             FlicImage* mask, FlicImage* seedMap) const {
    if (!texture || !texture->data || texture->width < 1 || texture->height < 1 ||
        texture->nChannels < 1)
        return flic_error("LIC: the input texture is empty");
    if (!output) return flic_error("LIC: no output image");
    if (!forward || !backward) return flic_error("LIC: the engine has no integrators");
    if (seedMap && !mask) return flic_error("LIC: a seed map needs a mask");
    if (mask && (!mask->data || mask->nChannels < 1)) return flic_error("LIC: the mask is empty");
    if (numSubPixels < 1 || numSubPixels > 256)
        return flic_error("LIC: number of sub-pixels %d outside 1 .. 256", numSubPixels);
    if (kernelStepsFor(filterLength, stepLength, filterKernel) < 0 ||
        stepsFor(extensionLength, stepLength) < 0)
        return flic_error("LIC: filter length %g, extension %g and step %g give no usable "
                          "number of steps",
                          filterLength, extensionLength, stepLength);
    long long cells = static_cast<long long>(texture->width) * texture->height *
                      (numSubPixels * numSubPixels + texture->nChannels);
    long long lineEntries = (2LL * (kernelStepsFor(filterLength, stepLength, filterKernel) +
                                    stepsFor(extensionLength, stepLength)) +
                             1) *
                            texture->nChannels;
    if (cells > INT_MAX || lineEntries > INT_MAX)
        return flic_error("LIC: %d x %d x %d texture too large for the work buffers",
                          texture->width, texture->height, texture->nChannels);
    (void)field;
    return 1;
}

int FlicCompute::compute(FlicVectorField* field, FlicImage* texture, FlicImage* output,
                         FlicImage* mask, FlicImage* seedMap) {
    if (!field || !field->data || field->width < 2 || field->height < 2)
        return flic_error("LIC: the vector field needs at least 2 x 2 nodes");
    if (mask && (mask->width != field->width || mask->height != field->height))
        return flic_info("field and mask must have the same size");
    if (!checkInputs(field, texture, output, mask, seedMap) || !checkTileSettings()) return 0;

    start(field, texture);
    if (!points || !accum || !samples || !sums || !positions) {
        stop();
        return flic_error("LIC: no memory for the work buffers");
    }
    if (seedMap) {
        seedMap->setSize(texWidth, texHeight, 1);
        seedMap->clear(1);
    }
    if (kernelSteps == 0) {
        *output = *texture;
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
    int pixel = y * texWidth + x;
    if (coverageRecord(pixel)[j * numSubPixels + i] != 0) return;
    float invX = 1.0f / scaleX, invY = 1.0f / scaleY;
    float invS = 1.0f / numSubPixels;
    Vec2f seed;
    seed.x = (x + (i + 0.5f) * invS) * invX;
    seed.y = (y + (j + 0.5f) * invS) * invY;
    sample(seed);
    if (seedMap) {
        int value;
        getPixelConst1(mask, seed.x, seed.y, &value);
        seedMap->data[static_cast<std::ptrdiff_t>(y) * seedMap->bytesPerLine + x] =
            static_cast<unsigned char>(value);
    }
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

namespace {

// Fixed divisors for the usual small hit counts of a pixel.
const int kDivisorTableSize = 256;

// A channel sum divided by the pixel's hits, truncating: through the table of fixed divisors
// for small counts, 0 without hits.
FLIC_ALWAYS_INLINE int divideByHits(int sum, int hits, const FixedDivisor* divisors) {
    if (hits > 0 && hits < kDivisorTableSize) return divisors[hits].divide(sum);
    if (hits == 0) return 0;
    return static_cast<int>(static_cast<long long>(sum) / hits);
}

} // namespace

// Draws texWidth * texHeight pairs of the quasi-random sequence over all sub-pixel cells and
// uses all but the last.
void FlicCompute::seedQuasiRandom(FlicImage* mask, FlicImage* seedMap) {
    int s = numSubPixels;
    KvSobol sobol;
    int cellsX = texWidth * s, cellsY = texHeight * s;
    sobol.init(cellsX, cellsY);
    int pixels = texWidth * texHeight;
    int X, Y;
    for (int counter = 0; sobol.next(X, Y);) {
        counter++;
        if (counter >= pixels) break;
        // The sequence of a single cell holds the sign bit (INT_MIN), not 0: taken modulo the
        // grid, every value names a cell of the image (in-range values are left as they are).
        X = cellInGrid(X, cellsX);
        Y = cellInGrid(Y, cellsY);
        seedCell(X / s, Y / s, X % s, Y % s, mask, seedMap);
        reportProgress(counter, pixels);
    }
    free(sobol.xs);
    free(sobol.ys);
    sobol.xs = sobol.ys = nullptr;
}

// Divides every pixel's channel sums by its hits (truncating; low byte, no clamping).
void FlicCompute::normalize(FlicImage* output) {
    normalizeRecords(accum, texWidth, texHeight, numSubCells, texChannels, output, &totalHits);
}

// The usual small hit counts divide through a table of fixed divisors.
int FlicCompute::normalizeRecords(const int* records, int width, int height, int subCells,
                                  int channels, FlicImage* output, int* totalHitsOut) {
    if (!output->setSize(width, height, channels)) return 0;
    FixedDivisor divisors[kDivisorTableSize];
    for (int d = 1; d < kDivisorTableSize; d++)
        divisors[d] = FixedDivisor(d);
    int pixels = width * height, total = 0;
    const int* record = records;
    unsigned char* out = output->data;
    if (subCells == 1 && channels == 1) { // the common case: records of hits and one sum
        for (int p = 0; p < pixels; p++, record += 2) {
            total = wrapAdd(total, record[0]);
            out[p] = static_cast<unsigned char>(divideByHits(record[1], record[0], divisors));
        }
    } else {
        int stride = subCells + channels;
        for (int p = 0; p < pixels; p++, record += stride, out += channels) {
            int hits = 0;
            for (int s = 0; s < subCells; s++)
                hits = wrapAdd(hits, record[s]);
            total = wrapAdd(total, hits);
            const int* channelSums = record + subCells;
            for (int ch = 0; ch < channels; ch++)
                out[ch] = static_cast<unsigned char>(divideByHits(channelSums[ch], hits, divisors));
        }
    }
    if (totalHitsOut) *totalHitsOut = wrapAdd(*totalHitsOut, total);
    return 1;
}

// --- Field-line sampling ----------------------------------------------------------------------

// Bilinear field vector at the seed; at the last column or row the neighbour is mirrored to the
// column or row before, so the interpolation extrapolates.
Vec2f FlicCompute::seedVector(const Vec2f& seed) const {
    const Vec2f* data = field->vectors();
    int w = field->width, h = field->height;
    int ix = static_cast<int>(seed.x), iy = static_cast<int>(seed.y);
    float fx = seed.x - ix, fy = seed.y - iy;
    int right = ix >= w - 1 ? ix - 1 : ix + 1;
    int up = iy >= h - 1 ? iy - 1 : iy + 1;
    const Vec2f& P = data[static_cast<std::ptrdiff_t>(iy) * w + ix];
    const Vec2f& Q = data[static_cast<std::ptrdiff_t>(iy) * w + right];
    const Vec2f& R = data[static_cast<std::ptrdiff_t>(up) * w + ix];
    const Vec2f& T = data[static_cast<std::ptrdiff_t>(up) * w + right];
    Vec2f v;
    v.x = P.x + (Q.x - P.x) * fx + (R.x - P.x) * fy + fx * fy * (P.x - R.x - Q.x + T.x);
    v.y = P.y + (Q.y - P.y) * fx + (R.y - P.y) * fy + fx * fy * (P.y - R.y - Q.y + T.y);
    return v;
}

void FlicCompute::sample(const Vec2f& seed) {
    if (!points || (!accum && !window) || !samples || !sums || !positions || !field || !texture ||
        !forward || !backward || !getPixel || kernelSteps < 1)
        return;
    // Seeds outside the field would read beyond its nodes.
    if (!(seed.x >= 0.0f && seed.x < field->width && seed.y >= 0.0f && seed.y < field->height))
        return;
    Vec2f v = seedVector(seed);
    float length2 = v.x * v.x + v.y * v.y;
    if (length2 == 0.0f || std::isnan(length2)) return;
    numFieldLines++;
    float length = sqrtf(length2);
    v.x = v.x / length;
    v.y = v.y / length;

    // The engine's own lookups are inlined into the line loop; textures without a wrap period
    // and lookups installed by the host go through the pointer.
    bool periodic = TexelSource(texture).periodic;
    if (periodic && getPixel == getPixelBilinear1)
        traceAndConvolve<LOOKUP_BILINEAR1>(seed, v);
    else if (periodic && getPixel == getPixelBilinearN)
        traceAndConvolve<LOOKUP_BILINEARN>(seed, v);
    else if (periodic && getPixel == getPixelConst1)
        traceAndConvolve<LOOKUP_CONST1>(seed, v);
    else if (periodic && getPixel == getPixelConstN)
        traceAndConvolve<LOOKUP_CONSTN>(seed, v);
    else
        traceAndConvolve<LOOKUP_POINTER>(seed, v);
}

// Traces one side of the line (sign +1 forward, -1 backward) into `positions`: N core steps
// whatever the status, then extension steps while the status N - 1 places behind the newest
// point is 0. Returns the last index written.
int FlicCompute::traceSide(FlicIntegrator* integrator, int sign) {
    if (integrator->hasInlineNext())
        return traceAdaptiveSide(static_cast<AdaptiveIntegrator*>(integrator), sign);
    int c = maxSteps, n = kernelSteps, m = extensionSteps;
    int index = c;
    for (int k = 1; k <= n; k++) {
        index = c + sign * k;
        positions[index] = integrator->next(points[index].status);
    }
    if (m > 0 && points[c + sign].status == 0) {
        for (int j = 0;; j++) {
            index = c + sign * (n + 1 + j);
            positions[index] = integrator->next(points[index].status);
            if (j + 1 == m || points[c + sign * (2 + j)].status != 0) break;
        }
    }
    return index;
}

// The same for the engine's adaptive integrators, taking the runs of points on the current
// cubic in bulk. Side step s (1, 2, ...) is index c + sign * s; `firstFailure` is the first side
// step with a non-zero status, so extension steps may run up to the one before it.
int FlicCompute::traceAdaptiveSide(AdaptiveIntegrator* integrator, int sign) {
    int c = maxSteps, n = kernelSteps, m = extensionSteps;
    const int none = INT_MAX;
    int firstFailure = none;
    int s = 1; // next side step
    auto runOnCubic = [&](int limit) {
        int made = integrator->pointsOnCubic(positions + c + sign * s, sign, limit);
        for (int r = 0; r < made; r++)
            points[c + sign * (s + r)].status = 0;
        s += made;
        return made;
    };
    auto fullStep = [&]() {
        int index = c + sign * s;
        positions[index] = integrator->nextPoint(points[index].status);
        if (points[index].status != 0 && firstFailure == none) firstFailure = s;
        s++;
    };
    while (s <= n) {
        runOnCubic(n - s + 1);
        if (s <= n) fullStep();
    }
    if (m > 0 && points[c + sign].status == 0) {
        // Extension step j is side step n + 1 + j; it is taken when j < m and side step 1 + j
        // has status 0, i.e. while 1 + j < firstFailure.
        for (int j = 0;;) {
            int allowed = m - j;
            if (firstFailure != none && firstFailure - 1 - j < allowed)
                allowed = firstFailure - 1 - j;
            int made = runOnCubic(allowed);
            j += made;
            if (made < allowed) {
                fullStep();
                j++;
            }
            if (j == m || points[c + sign * (1 + j)].status != 0) break;
        }
    }
    return c + sign * (s - 1);
}

namespace {

#if defined(__SSE2__)
// Four single-channel bilinear lookups at once: per lane exactly the single-precision
// operations of the wrap loops and of bilinearTexel, in the same order; only the texel reads
// are scalar. Returns false, having written nothing, when a coordinate is NaN, infinite or far
// (beyond farPeriods periods).
FLIC_ALWAYS_INLINE bool bilinearFour(const TexelSource& source, const Vec2f* at, float scaleX,
                                     float scaleY, int* out) {
    __m128 first = _mm_loadu_ps(&at[0].x);  // x0 y0 x1 y1
    __m128 second = _mm_loadu_ps(&at[2].x); // x2 y2 x3 y3
    __m128 x =
        _mm_mul_ps(_mm_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)), _mm_set1_ps(scaleX));
    __m128 y =
        _mm_mul_ps(_mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1)), _mm_set1_ps(scaleY));
    __m128 zero = _mm_setzero_ps();
    __m128 periodX = _mm_set1_ps(source.periodX), periodY = _mm_set1_ps(source.periodY);
    __m128 inside = _mm_and_ps(_mm_and_ps(_mm_cmpge_ps(x, zero), _mm_cmplt_ps(x, periodX)),
                               _mm_and_ps(_mm_cmpge_ps(y, zero), _mm_cmplt_ps(y, periodY)));
    if (_mm_movemask_ps(inside) != 15) {
        // Wrapped as the scalar loops do it, lane by lane (a lane that needs no more steps
        // gets + 0, which leaves its value); NaN and far coordinates go the scalar way.
        __m128 farX = _mm_set1_ps(source.farX), farY = _mm_set1_ps(source.farY);
        __m128 near =
            _mm_and_ps(_mm_and_ps(_mm_cmpgt_ps(x, _mm_sub_ps(zero, farX)), _mm_cmplt_ps(x, farX)),
                       _mm_and_ps(_mm_cmpgt_ps(y, _mm_sub_ps(zero, farY)), _mm_cmplt_ps(y, farY)));
        if (_mm_movemask_ps(near) != 15) return false;
        for (__m128 below; _mm_movemask_ps(below = _mm_cmplt_ps(x, zero));)
            x = _mm_add_ps(x, _mm_and_ps(below, periodX));
        for (__m128 above; _mm_movemask_ps(above = _mm_cmpge_ps(x, periodX));)
            x = _mm_sub_ps(x, _mm_and_ps(above, periodX));
        for (__m128 below; _mm_movemask_ps(below = _mm_cmplt_ps(y, zero));)
            y = _mm_add_ps(y, _mm_and_ps(below, periodY));
        for (__m128 above; _mm_movemask_ps(above = _mm_cmpge_ps(y, periodY));)
            y = _mm_sub_ps(y, _mm_and_ps(above, periodY));
    }
    __m128i ix = _mm_cvttps_epi32(x), iy = _mm_cvttps_epi32(y);
    __m128 fx = _mm_sub_ps(x, _mm_cvtepi32_ps(ix));
    __m128 fy = _mm_sub_ps(y, _mm_cvtepi32_ps(iy));
    alignas(16) int column[4], row[4], a[4], b[4], c[4], d[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(column), ix);
    _mm_store_si128(reinterpret_cast<__m128i*>(row), iy);
    const std::ptrdiff_t up = source.bytesPerLine;
    for (int lane = 0; lane < 4; lane++) {
        const unsigned char* p = source.data + row[lane] * up + column[lane];
        a[lane] = p[0];
        b[lane] = p[1];
        c[lane] = p[up];
        d[lane] = p[up + 1];
    }
    __m128i va = _mm_load_si128(reinterpret_cast<const __m128i*>(a));
    __m128i vb = _mm_load_si128(reinterpret_cast<const __m128i*>(b));
    __m128i vc = _mm_load_si128(reinterpret_cast<const __m128i*>(c));
    __m128i vd = _mm_load_si128(reinterpret_cast<const __m128i*>(d));
    __m128 ba = _mm_cvtepi32_ps(_mm_sub_epi32(vb, va));
    __m128 ca = _mm_cvtepi32_ps(_mm_sub_epi32(vc, va));
    __m128 cross = _mm_cvtepi32_ps(_mm_add_epi32(_mm_sub_epi32(_mm_sub_epi32(va, vc), vb), vd));
    __m128 v = _mm_add_ps(_mm_cvtepi32_ps(va), _mm_mul_ps(ba, fx));
    v = _mm_add_ps(v, _mm_mul_ps(ca, fy));
    v = _mm_add_ps(v, _mm_mul_ps(_mm_mul_ps(fx, fy), cross));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_cvttps_epi32(v));
    return true;
}
#endif

// Records the points of a line: texture sample, output pixel and sub-pixel cell. The engine's
// values are copied once per line so that they stay in registers.
template <int KIND>
struct PointRecorder {
    TexelSource source;
    FlicImage* texture;
    FlicCompute::TextureLookup pointer;
    float scaleX, scaleY, fieldMaxX, fieldMaxY;
    float cellScaleX, cellScaleY; // scale * S
    int texWidth, subPixels, channels;
    int* samples;
    FlicCompute::PointRecord* points;
    const int* accum;
    std::ptrdiff_t recordStride;
    unsigned pixels;
    const FlicCompute::TileWindow* window; // tiled mode: values go to this window
    int* slots;                            // tiled mode: each point's record in the window

    PointRecorder(const FlicCompute& engine, const FlicCompute::TileWindow* window, int* slots)
        : source(engine.texture), texture(engine.texture), pointer(engine.getPixel),
          scaleX(engine.scaleX), scaleY(engine.scaleY), fieldMaxX(engine.fieldMaxX),
          fieldMaxY(engine.fieldMaxY),
          cellScaleX(engine.scaleX * static_cast<float>(engine.numSubPixels)),
          cellScaleY(engine.scaleY * static_cast<float>(engine.numSubPixels)),
          texWidth(engine.texWidth), subPixels(engine.numSubPixels), channels(engine.texChannels),
          samples(engine.samples), points(engine.points), accum(engine.accum),
          recordStride(engine.recordStride),
          pixels(static_cast<unsigned>(engine.texWidth) * static_cast<unsigned>(engine.texHeight)),
          window(window), slots(slots) {}

    // The texture value(s) of point `index` at (x, y) in field coordinates, looked up at the
    // unwrapped position.
    FLIC_ALWAYS_INLINE void sampleTexture(int index, float x, float y) const {
        int* out = samples + static_cast<std::ptrdiff_t>(index) * channels;
        if (KIND == LOOKUP_POINTER)
            pointer(texture, x * scaleX, y * scaleY, out);
        else
            periodicLookup<KIND>(source, x * scaleX, y * scaleY, out);
    }

    // The pixel and cell of point `index`, taken from its position wrapped once into the field.
    // Points too far out for int pixel coordinates get pixel -1, which the accumulation skips,
    // like every pixel or cell index outside the image.
    FLIC_ALWAYS_INLINE void locatePixel(int index, float x, float y) const {
        if (y < 0)
            y += fieldMaxY;
        else if (y > fieldMaxY)
            y -= fieldMaxY;
        if (x < 0)
            x += fieldMaxX;
        else if (x > fieldMaxX)
            x -= fieldMaxX;
        FlicCompute::PointRecord& point = points[index];
        const float intRange = 1.0e9f;
        float px = x * scaleX, py = y * scaleY;
        if (!(fabsf(px) + fabsf(py) < intRange)) { // also false for NaN
            point.pixel = -1;
            point.cell = 0;
            return;
        }
        point.pixel = wrapAdd(static_cast<int>(px), wrapMul(static_cast<int>(py), texWidth));
        // The record will be updated once the line's sums are done: ask for it now.
        if (static_cast<unsigned>(point.pixel) < pixels) {
            if (window) {
                int slot = windowSlot(*window, point.pixel);
                slots[index] = slot;
                if (slot >= 0) __builtin_prefetch(window->records.data() + slot, 1);
            } else {
                __builtin_prefetch(accum + point.pixel * recordStride, 1);
            }
        }
        if (subPixels == 1) {
            point.cell = 0;
            return;
        }
        float cx = cellScaleX * x, cy = cellScaleY * y;
        if (!(fabsf(cx) + fabsf(cy) < intRange)) {
            point.pixel = -1;
            point.cell = 0;
            return;
        }
        point.cell =
            static_cast<int>(cx) % subPixels + (static_cast<int>(cy) % subPixels) * subPixels;
    }
};

// Convolution values of the points lo + N .. hi - N from the running sums of the kernel, each
// added with one hit to the record of the point's pixel and cell (integer arithmetic,
// truncating division; sums wrap rather than overflow).
// Where the serial engine puts a line's values: the accumulation records of the picture.
struct PictureSink {
    int* accum;
    std::ptrdiff_t recordStride;
    FLIC_ALWAYS_INLINE int* record(int, int pixel) const { return accum + pixel * recordStride; }
};

// Where a tile puts them: the window records found for each point while it was located, or
// the window's overflow list.
struct WindowSink {
    FlicCompute::TileWindow* window;
    const int* slots;
    int* records;
    FLIC_ALWAYS_INLINE int* record(int index, int pixel) const {
        int slot = slots[index];
        return slot >= 0 ? records + slot : window->record(pixel);
    }
};

template <int KERNEL, bool SINGLE_CHANNEL, class SINK>
void accumulateLine(const int* running, const FlicCompute::PointRecord* points, const SINK& sink,
                    int lo, int hi, int N, int channels, int numSubCells, unsigned pixels,
                    const FixedDivisor& divisor) {
    const int C = SINGLE_CHANNEL ? 1 : channels;
    const std::ptrdiff_t far = static_cast<std::ptrdiff_t>(N) * C;
    const std::ptrdiff_t near = static_cast<std::ptrdiff_t>(N / 3) * C;
    const unsigned cells = static_cast<unsigned>(numSubCells);
    for (int k = lo + N; k <= hi - N; k++) {
        const FlicCompute::PointRecord& point = points[k];
        if (static_cast<unsigned>(point.pixel) >= pixels ||
            static_cast<unsigned>(point.cell) >= cells)
            continue;
        int* record = sink.record(k, point.pixel);
        record[point.cell] = wrapAdd(record[point.cell], 1);
        int* channelSums = record + numSubCells;
        const int* s = running + static_cast<std::ptrdiff_t>(k) * C;
        for (int ch = 0; ch < C; ch++) {
            int numerator;
            if (KERNEL == FlicCompute::TRIANGLE)
                numerator = wrapSub(wrapAdd(s[ch + far], s[ch - far]), wrapMul(2, s[ch]));
            else if (KERNEL == FlicCompute::CUBIC)
                numerator =
                    wrapSub(wrapSub(s[ch + far], wrapMul(3, wrapSub(s[ch + near], s[ch - near]))),
                            s[ch - far]);
            else
                numerator = wrapSub(s[ch + far], s[ch - far]);
            channelSums[ch] = wrapAdd(channelSums[ch], divisor.divide(numerator));
        }
    }
}

// The line's values through the accumulation of the engine's kernel and channel count.
template <class SINK>
void accumulateKernel(const FlicCompute& e, const SINK& sink, int lo, int hi,
                      const FixedDivisor& divisor) {
    unsigned pixels = static_cast<unsigned>(e.texWidth) * static_cast<unsigned>(e.texHeight);
    bool single = e.texChannels == 1;
    int N = e.kernelSteps, C = e.texChannels, kernel = e.filterKernel, numSubCells = e.numSubCells;
    const int *samples = e.samples, *sums = e.sums;
    const FlicCompute::PointRecord* points = e.points;
    if (kernel == FlicCompute::TRIANGLE) {
        if (single)
            accumulateLine<FlicCompute::TRIANGLE, true>(samples, points, sink, lo, hi, N, C,
                                                        numSubCells, pixels, divisor);
        else
            accumulateLine<FlicCompute::TRIANGLE, false>(samples, points, sink, lo, hi, N, C,
                                                         numSubCells, pixels, divisor);
    } else if (kernel == FlicCompute::CUBIC) {
        if (single)
            accumulateLine<FlicCompute::CUBIC, true>(sums, points, sink, lo, hi, N, C, numSubCells,
                                                     pixels, divisor);
        else
            accumulateLine<FlicCompute::CUBIC, false>(sums, points, sink, lo, hi, N, C, numSubCells,
                                                      pixels, divisor);
    } else {
        // the box formula, also for kernel values outside the enumeration
        if (single)
            accumulateLine<FlicCompute::BOX, true>(sums, points, sink, lo, hi, N, C, numSubCells,
                                                   pixels, divisor);
        else
            accumulateLine<FlicCompute::BOX, false>(sums, points, sink, lo, hi, N, C, numSubCells,
                                                    pixels, divisor);
    }
}

} // namespace

template <int KIND>
void FlicCompute::traceAndConvolve(const Vec2f& seed, const Vec2f& v) {
    forward->init(seed, v);
    backward->init(seed, v);
    int c = maxSteps;
    positions[c] = seed;
    int hi = traceSide(forward, 1);
    int lo = traceSide(backward, -1);

    // Sampling after tracing, in a loop of its own, lets the texture reads of many points be
    // under way at once. Pixels and cells are needed only where values are accumulated.
    const PointRecorder<KIND> recorder(*this, window, windowSlots);
    int i = lo;
#if defined(__SSE2__)
    if (KIND == LOOKUP_BILINEAR1 && recorder.source.channels == 1) {
        for (; i + 3 <= hi; i += 4) {
            if (bilinearFour(recorder.source, positions + i, scaleX, scaleY, samples + i)) continue;
            for (int lane = 0; lane < 4; lane++)
                recorder.sampleTexture(i + lane, positions[i + lane].x, positions[i + lane].y);
        }
    }
#endif
    for (; i <= hi; i++)
        recorder.sampleTexture(i, positions[i].x, positions[i].y);
    for (int i = lo + kernelSteps; i <= hi - kernelSteps; i++)
        recorder.locatePixel(i, positions[i].x, positions[i].y);
    convolve(lo, hi);
}

// One running-sum pass over the line: out[c] = 0 and out[i + 1] - out[i] = in[i] for every
// index of lo .. hi, all channels at once.
void FlicCompute::runningSums(const int* in, int* out, int lo, int hi) const {
    int C = texChannels, c = maxSteps;
    for (int ch = 0; ch < C; ch++)
        out[c * C + ch] = 0;
    for (int e = (c + 1) * C, end = (hi + 1) * C; e < end; e++)
        out[e] = wrapAdd(out[e - C], in[e - C]);
    for (int e = c * C - 1, end = lo * C; e >= end; e--)
        out[e] = wrapSub(out[e + C], in[e]);
}

// The first and second running sums in one sweep: `sums` gets the first, `samples` (whose
// values are read just before they are overwritten) the second, exactly as two passes of
// runningSums would leave them.
void FlicCompute::runningSumsTwice(int lo, int hi) {
    int C = texChannels, c = maxSteps;
    for (int ch = 0; ch < C; ch++) {
        int* first = sums + ch;
        int* second = samples + ch;
        int s1 = 0, s2 = 0, x = second[c * C];
        first[c * C] = 0;
        second[c * C] = 0;
        for (int i = c + 1; i <= hi; i++) {
            int next1 = wrapAdd(s1, x);
            int next2 = wrapAdd(s2, s1);
            x = second[i * C];
            first[i * C] = next1;
            second[i * C] = next2;
            s1 = next1;
            s2 = next2;
        }
        s1 = 0;
        s2 = 0;
        for (int i = c - 1; i >= lo; i--) {
            s1 = wrapSub(s1, second[i * C]);
            s2 = wrapSub(s2, s1);
            first[i * C] = s1;
            second[i * C] = s2;
        }
    }
}

// Running sums for the kernel (one pass for box, two for triangle, three for cubic), then the
// convolution and accumulation of the line's middle part.
void FlicCompute::convolve(int lo, int hi) {
    int kernel = filterKernel;
    if (kernel == TRIANGLE || kernel == CUBIC)
        runningSumsTwice(lo, hi);
    else
        runningSums(samples, sums, lo, hi);
    if (kernel == CUBIC) runningSums(samples, sums, lo, hi);

    long long n = kernelSteps;
    FixedDivisor divisor(kernel == TRIANGLE ? n * n : kernel == CUBIC ? 8 * n * n * n / 27 : 2 * n);
    if (window)
        accumulateKernel(*this, WindowSink{window, windowSlots, window->records.data()}, lo, hi,
                         divisor);
    else
        accumulateKernel(*this, PictureSink{accum, recordStride}, lo, hi, divisor);
}

// Re-chooses the extension length from the counter tube: entry j holds the gain of extension
// step j and the number of lines that reached it. Only entries 0 .. 255 exist; an extension
// beyond 254 steps is evaluated over the steps the tube records. The counts come from the host:
// the suffix sums stored back wrap around like unsigned ints, the running gain is summed in 64
// bits and the weighted line counts in double, so no count makes the arithmetic undefined
// (counts of ordinary size give exactly the ratios of int arithmetic).
void FlicCompute::evalZaehlrohr() {
    int M = extensionSteps;
    int top = M > 254 ? 254 : M;
    for (int j = top + 1; j >= 1; j--)
        zaehlrohr[j - 1][1] = wrapAdd(zaehlrohr[j - 1][1], zaehlrohr[j][1]);
    if (M <= 0) {
        zaehlrohr[1][1] = 0;
        extensionSteps = 0;
        return;
    }
    float best = 0.0f;
    int choice = 0;
    long long gain = 0;
    for (int j = 1; j <= top; j++) {
        gain += zaehlrohr[j][0];
        double weight = static_cast<double>(static_cast<long long>(kernelSteps) + lengthBias + j);
        float ratio = static_cast<float>(gain) /
                      static_cast<float>(weight * static_cast<double>(zaehlrohr[j + 1][1]));
        if (ratio > best) {
            best = ratio;
            choice = j;
        }
        zaehlrohr[j][0] = 0;
        zaehlrohr[j][1] = 0;
    }
    zaehlrohr[top + 1][1] = 0;
    extensionSteps = choice;
}

// --- Texture lookups --------------------------------------------------------------------------

void FlicCompute::getPixelConst1(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_CONST1>(texture, x, y, out);
}

void FlicCompute::getPixelConstN(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_CONSTN>(texture, x, y, out);
}

void FlicCompute::getPixelBilinear1(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_BILINEAR1>(texture, x, y, out);
}

void FlicCompute::getPixelBilinearN(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_BILINEARN>(texture, x, y, out);
}
