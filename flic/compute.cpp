// FlicCompute: configuration, start/stop, the compute driver with its three seeding orders, the
// field-line sampling with integer running-sum convolution, and the texture lookups.
#include "compute.h"

#include "messages.h"
#include "sobol.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#if defined(__GNUC__)
#define FLIC_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define FLIC_ALWAYS_INLINE inline
#endif

namespace {

const char* const kernelNames[3] = {"box", "triangle", "cubic"};

// Kernel and extension step counts beyond this are refused: they would overflow the integer
// arithmetic of the convolution and the work arrays long before they make sense.
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
// lookups define it. NaN and infinite coordinates become 0; far coordinates are reduced with
// fmodf first (see farPeriods).
FLIC_ALWAYS_INLINE float wrapCoordinate(float v, float period) {
    float far = farPeriods * period;
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

// Lookups on textures narrower or lower than 2 pixels (no wrap period) or without pixels: an
// axis of one pixel is read at 0 with itself as neighbour; an empty texture gives 0.
void degenerateLookup(FlicImage* texture, float x, float y, int* out, int channels, bool bilinear) {
    if (!texture || !texture->data || texture->width < 1 || texture->height < 1) {
        for (int ch = 0; ch < channels; ch++)
            out[ch] = 0;
        return;
    }
    int stepX = 0, stepY = 0, ix = 0, iy = 0;
    float fx = 0.0f, fy = 0.0f;
    if (texture->width >= 2) {
        x = wrapCoordinate(x, static_cast<float>(texture->width - 1));
        ix = static_cast<int>(x);
        fx = x - ix;
        stepX = texture->nChannels;
    }
    if (texture->height >= 2) {
        y = wrapCoordinate(y, static_cast<float>(texture->height - 1));
        iy = static_cast<int>(y);
        fy = y - iy;
        stepY = texture->bytesPerLine;
    }
    const unsigned char* p = texture->data +
                             static_cast<std::ptrdiff_t>(iy) * texture->bytesPerLine +
                             static_cast<std::ptrdiff_t>(ix) * texture->nChannels;
    for (int ch = 0; ch < channels; ch++) {
        float a = p[ch], b = p[ch + stepX], c = p[ch + stepY], d = p[ch + stepX + stepY];
        out[ch] =
            bilinear ? static_cast<int>(a + (b - a) * fx + (c - a) * fy + fx * fy * (a - c - b + d))
                     : p[ch];
    }
}

FLIC_ALWAYS_INLINE bool hasPeriod(const FlicImage* texture) {
    return texture && texture->data && texture->width >= 2 && texture->height >= 2;
}

// Address of the texel at the wrapped position, with the fractions of the position.
FLIC_ALWAYS_INLINE const unsigned char* wrappedTexel(const FlicImage* texture, float x, float y,
                                                     float& fx, float& fy) {
    x = wrapCoordinate(x, static_cast<float>(texture->width - 1));
    y = wrapCoordinate(y, static_cast<float>(texture->height - 1));
    int ix = static_cast<int>(x);
    int iy = static_cast<int>(y);
    fx = x - ix;
    fy = y - iy;
    return texture->data + static_cast<std::ptrdiff_t>(iy) * texture->bytesPerLine +
           static_cast<std::ptrdiff_t>(ix) * texture->nChannels;
}

// Bilinear mix of channel ch around p, truncated to int.
FLIC_ALWAYS_INLINE int bilinearTexel(const unsigned char* p, int ch, int right, int up, float fx,
                                     float fy) {
    float a = p[ch], b = p[ch + right], c = p[ch + up], d = p[ch + right + up];
    return static_cast<int>(a + (b - a) * fx + (c - a) * fy + fx * fy * (a - c - b + d));
}

FLIC_ALWAYS_INLINE void lookupConst1(FlicImage* texture, float x, float y, int* out) {
    if (!hasPeriod(texture)) return degenerateLookup(texture, x, y, out, 1, false);
    float fx, fy;
    out[0] = *wrappedTexel(texture, x, y, fx, fy);
}

FLIC_ALWAYS_INLINE void lookupConstN(FlicImage* texture, float x, float y, int* out) {
    if (!hasPeriod(texture)) {
        int channels = texture ? texture->nChannels : 0;
        return degenerateLookup(texture, x, y, out, channels, false);
    }
    float fx, fy;
    const unsigned char* p = wrappedTexel(texture, x, y, fx, fy);
    for (int ch = 0; ch < texture->nChannels; ch++)
        out[ch] = p[ch];
}

FLIC_ALWAYS_INLINE void lookupBilinear1(FlicImage* texture, float x, float y, int* out) {
    if (!hasPeriod(texture)) return degenerateLookup(texture, x, y, out, 1, true);
    float fx, fy;
    const unsigned char* p = wrappedTexel(texture, x, y, fx, fy);
    out[0] = bilinearTexel(p, 0, texture->nChannels, texture->bytesPerLine, fx, fy);
}

FLIC_ALWAYS_INLINE void lookupBilinearN(FlicImage* texture, float x, float y, int* out) {
    if (!hasPeriod(texture)) {
        int channels = texture ? texture->nChannels : 0;
        return degenerateLookup(texture, x, y, out, channels, true);
    }
    float fx, fy;
    const unsigned char* p = wrappedTexel(texture, x, y, fx, fy);
    for (int ch = 0; ch < texture->nChannels; ch++)
        out[ch] = bilinearTexel(p, ch, texture->nChannels, texture->bytesPerLine, fx, fy);
}

// Compile-time choice of the texture lookup inside the line tracer: the four lookups of the
// engine are inlined; any other function installed in getPixel is called through the pointer.
enum LookupKind {
    LOOKUP_POINTER,
    LOOKUP_CONST1,
    LOOKUP_CONSTN,
    LOOKUP_BILINEAR1,
    LOOKUP_BILINEARN
};

template <int KIND>
struct Lookup {
    static FLIC_ALWAYS_INLINE void fetch(FlicCompute::TextureLookup pointer, FlicImage* texture,
                                         float x, float y, int* out) {
        switch (KIND) {
        case LOOKUP_CONST1:
            lookupConst1(texture, x, y, out);
            break;
        case LOOKUP_CONSTN:
            lookupConstN(texture, x, y, out);
            break;
        case LOOKUP_BILINEAR1:
            lookupBilinear1(texture, x, y, out);
            break;
        case LOOKUP_BILINEARN:
            lookupBilinearN(texture, x, y, out);
            break;
        default:
            pointer(texture, x, y, out);
            break;
        }
    }
};

// Truncating division of a non-negative int by a fixed positive divisor through one 64-bit
// multiplication (exact for every dividend below 2^31: m = floor(2^(31+l) / d) + 1 with
// 2^l >= d); negative dividends use the ordinary division.
struct FixedDivisor {
    int divisor;
    std::uint64_t multiplier;
    int shift;

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

// Integer arithmetic that wraps instead of overflowing (sums of absurdly long lines).
FLIC_ALWAYS_INLINE int wrapAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
FLIC_ALWAYS_INLINE int wrapSub(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}
FLIC_ALWAYS_INLINE int wrapMul(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

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
      sums(nullptr), points(nullptr), getPixel(nullptr) {
    memset(zaehlrohr, 0, sizeof zaehlrohr);
    forward = new RK43(0.001f, 4.0f, 0.5f, 15.0f, 1);
    backward = new RK43(0.001f, 4.0f, 0.5f, 15.0f, -1);
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

void FlicCompute::installIntegrators(FlicIntegrator* forwardOne, FlicIntegrator* backwardOne) {
    delete forward;
    delete backward;
    forward = forwardOne;
    backward = backwardOne;
    forward->normalization = normalization;
    backward->normalization = normalization;
}

// The operation's name is historical: it installs the midpoint method.
void FlicCompute::useEuler() {
    installIntegrators(new Midpoint(1), new Midpoint(-1));
}

void FlicCompute::useRK43(float initialStep, float minStep, float maxStep, float tolerance) {
    installIntegrators(new RK43(tolerance, initialStep, minStep, maxStep, 1),
                       new RK43(tolerance, initialStep, minStep, maxStep, -1));
}

// --- start / stop -----------------------------------------------------------------------------

void FlicCompute::start(FlicVectorField* field, FlicImage* texture) {
    int kernel = filterKernel;
    const char* name = kernel >= 0 && kernel < 3 ? kernelNames[kernel] : "unknown";
    flic_info("computing LIC image (L=%.0f, filter=%s, mask=%dx%d)", filterLength, name,
              numSubPixels, numSubPixels);
    watch.reset();
    watch.start();

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

    // A second start without stop does not leak the previous buffers.
    free(points);
    free(accum);
    free(samples);
    free(sums);
    points = nullptr;
    accum = samples = sums = nullptr;
    long long lineLength = 2LL * maxSteps + 1;
    long long records = static_cast<long long>(texWidth) * texHeight;
    if (kernelSteps >= 0 && extensionSteps >= 0 && records > 0 && recordStride > 0) {
        points = static_cast<PointRecord*>(malloc(sizeof(PointRecord) * lineLength));
        accum = static_cast<int*>(calloc(static_cast<size_t>(records) * recordStride, sizeof(int)));
        samples = static_cast<int*>(malloc(sizeof(int) * lineLength * texChannels));
        sums = static_cast<int*>(malloc(sizeof(int) * lineLength * texChannels));
    }
    totalHits = 0;
    numFieldLines = 0;

    if (interpolationMethod == CONSTANT)
        getPixel = texChannels == 1 ? getPixelConst1 : getPixelConstN;
    else
        getPixel = texChannels == 1 ? getPixelBilinear1 : getPixelBilinearN;
}

void FlicCompute::stop() {
    free(points);
    free(accum);
    free(samples);
    free(sums);
    points = nullptr;
    accum = samples = sums = nullptr;
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
    if (!checkInputs(field, texture, output, mask, seedMap)) return 0;

    start(field, texture);
    if (!points || !accum || !samples || !sums) {
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
    if (accum[static_cast<std::ptrdiff_t>(pixel) * recordStride + j * numSubPixels + i] != 0)
        return;
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

// Draws texWidth * texHeight pairs of the quasi-random sequence over all sub-pixel cells and
// uses all but the last.
void FlicCompute::seedQuasiRandom(FlicImage* mask, FlicImage* seedMap) {
    int s = numSubPixels;
    KvSobol sobol;
    sobol.init(texWidth * s, texHeight * s);
    int pixels = texWidth * texHeight;
    int X, Y;
    for (int counter = 0; sobol.next(X, Y);) {
        counter++;
        if (counter >= pixels) break;
        seedCell(X / s, Y / s, X % s, Y % s, mask, seedMap);
        reportProgress(counter, pixels);
    }
    free(sobol.xs);
    free(sobol.ys);
    sobol.xs = sobol.ys = nullptr;
}

// Divides every pixel's channel sums by its hits (truncating; low byte, no clamping).
void FlicCompute::normalize(FlicImage* output) {
    output->setSize(texWidth, texHeight, texChannels);
    int pixels = texWidth * texHeight;
    const int* record = accum;
    for (int p = 0; p < pixels; p++, record += recordStride) {
        int hits = 0;
        for (int s = 0; s < numSubCells; s++)
            hits = wrapAdd(hits, record[s]);
        totalHits = wrapAdd(totalHits, hits);
        unsigned char* out = output->data + static_cast<std::ptrdiff_t>(p) * texChannels;
        for (int ch = 0; ch < texChannels; ch++)
            out[ch] = hits == 0 ? 0
                                : static_cast<unsigned char>(
                                      static_cast<long long>(record[numSubCells + ch]) / hits);
    }
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
    if (!points || !accum || !samples || !sums || !field || !texture || !forward || !backward ||
        kernelSteps < 1)
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

    if (getPixel == getPixelBilinear1)
        traceAndConvolve<Lookup<LOOKUP_BILINEAR1>>(seed, v);
    else if (getPixel == getPixelBilinearN)
        traceAndConvolve<Lookup<LOOKUP_BILINEARN>>(seed, v);
    else if (getPixel == getPixelConst1)
        traceAndConvolve<Lookup<LOOKUP_CONST1>>(seed, v);
    else if (getPixel == getPixelConstN)
        traceAndConvolve<Lookup<LOOKUP_CONSTN>>(seed, v);
    else if (getPixel)
        traceAndConvolve<Lookup<LOOKUP_POINTER>>(seed, v);
}

// Samples the texture at point `index` of the line and records its pixel and sub-pixel cell.
// Positions are wrapped once into the field. Points too far out for int pixel coordinates get
// pixel -1, which the accumulation skips, like every index outside the image.
template <class L>
FLIC_ALWAYS_INLINE void FlicCompute::recordPoint(int index, float x, float y) {
    L::fetch(getPixel, texture, x * scaleX, y * scaleY, samples + index * texChannels);
    if (y < 0)
        y += fieldMaxY;
    else if (y > fieldMaxY)
        y -= fieldMaxY;
    if (x < 0)
        x += fieldMaxX;
    else if (x > fieldMaxX)
        x -= fieldMaxX;
    PointRecord& record = points[index];
    float px = x * scaleX, py = y * scaleY;
    const float intRange = 1.0e9f;
    if (!(fabsf(px) < intRange && fabsf(py) < intRange)) {
        record.pixel = -1;
        record.cell = 0;
        return;
    }
    record.pixel = wrapAdd(static_cast<int>(px), wrapMul(static_cast<int>(py), texWidth));
    int s = numSubPixels;
    if (s == 1) {
        record.cell = 0;
        return;
    }
    float cx = scaleX * static_cast<float>(s) * x;
    float cy = scaleY * static_cast<float>(s) * y;
    if (!(fabsf(cx) < intRange && fabsf(cy) < intRange)) {
        record.pixel = -1;
        record.cell = 0;
        return;
    }
    record.cell = static_cast<int>(cx) % s + (static_cast<int>(cy) % s) * s;
}

// Traces one side of the line (sign +1 forward, -1 backward): N core steps whatever the status,
// then extension steps while the status N - 1 places behind the newest point is 0. Returns the
// last index written.
template <class L>
FLIC_ALWAYS_INLINE int FlicCompute::traceSide(FlicIntegrator* integrator, int sign) {
    int c = maxSteps, n = kernelSteps, m = extensionSteps;
    int index = c;
    for (int k = 1; k <= n; k++) {
        index = c + sign * k;
        const Vec2f& p = integrator->next(points[index].status);
        recordPoint<L>(index, p.x, p.y);
    }
    if (m > 0 && points[c + sign].status == 0) {
        for (int j = 0;; j++) {
            index = c + sign * (n + 1 + j);
            const Vec2f& p = integrator->next(points[index].status);
            recordPoint<L>(index, p.x, p.y);
            if (j + 1 == m || points[c + sign * (2 + j)].status != 0) break;
        }
    }
    return index;
}

template <class L>
void FlicCompute::traceAndConvolve(const Vec2f& seed, const Vec2f& v) {
    forward->init(seed, v);
    backward->init(seed, v);
    int c = maxSteps;
    recordPoint<L>(c, seed.x, seed.y);
    int hi = traceSide<L>(forward, 1);
    int lo = traceSide<L>(backward, -1);
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

// Convolves the line with the kernel through its running sums and adds the values and a hit to
// the record of the pixel and cell of every point lo + N .. hi - N.
void FlicCompute::convolve(int lo, int hi) {
    int N = kernelSteps, C = texChannels;
    runningSums(samples, sums, lo, hi);
    int kernel = filterKernel;
    if (kernel == TRIANGLE || kernel == CUBIC) runningSums(sums, samples, lo, hi);
    if (kernel == CUBIC) runningSums(samples, sums, lo, hi);

    long long n = N;
    FixedDivisor divisor(kernel == TRIANGLE ? n * n : kernel == CUBIC ? 8 * n * n * n / 27 : 2 * n);
    const int* running = kernel == TRIANGLE ? samples : sums;
    const int far = N * C, near = N / 3 * C;
    unsigned pixels = static_cast<unsigned>(texWidth) * static_cast<unsigned>(texHeight);
    unsigned cells = static_cast<unsigned>(numSubCells);
    for (int k = lo + N; k <= hi - N; k++) {
        const PointRecord& point = points[k];
        if (static_cast<unsigned>(point.pixel) >= pixels ||
            static_cast<unsigned>(point.cell) >= cells)
            continue;
        int* record = accum + static_cast<std::ptrdiff_t>(point.pixel) * recordStride;
        record[point.cell] = wrapAdd(record[point.cell], 1);
        int* channelSums = record + numSubCells;
        const int* s = running + k * C;
        for (int ch = 0; ch < C; ch++) {
            int numerator;
            if (kernel == TRIANGLE)
                numerator = wrapSub(wrapAdd(s[ch + far], s[ch - far]), wrapMul(2, s[ch]));
            else if (kernel == CUBIC)
                numerator =
                    wrapSub(wrapSub(s[ch + far], wrapMul(3, wrapSub(s[ch + near], s[ch - near]))),
                            s[ch - far]);
            else
                numerator = wrapSub(s[ch + far], s[ch - far]);
            channelSums[ch] = wrapAdd(channelSums[ch], divisor.divide(numerator));
        }
    }
}

// Re-chooses the extension length from the counter tube: entry j holds the gain of extension
// step j and the number of lines that reached it. Only entries 0 .. 255 exist; an extension
// beyond 254 steps is evaluated over the steps the tube records.
void FlicCompute::evalZaehlrohr() {
    int M = extensionSteps;
    int top = M > 254 ? 254 : M;
    for (int j = top + 1; j >= 1; j--)
        zaehlrohr[j - 1][1] += zaehlrohr[j][1];
    if (M + 1 <= 1) {
        zaehlrohr[1][1] = 0;
        extensionSteps = 0;
        return;
    }
    float best = 0.0f;
    int choice = 0, gain = 0;
    for (int j = 1; j <= top; j++) {
        gain += zaehlrohr[j][0];
        float ratio = static_cast<float>(gain) /
                      static_cast<float>((kernelSteps + lengthBias + j) * zaehlrohr[j + 1][1]);
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
    lookupConst1(texture, x, y, out);
}

void FlicCompute::getPixelConstN(FlicImage* texture, float x, float y, int* out) {
    lookupConstN(texture, x, y, out);
}

void FlicCompute::getPixelBilinear1(FlicImage* texture, float x, float y, int* out) {
    lookupBilinear1(texture, x, y, out);
}

void FlicCompute::getPixelBilinearN(FlicImage* texture, float x, float y, int* out) {
    lookupBilinearN(texture, x, y, out);
}
