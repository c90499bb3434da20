// FlicCompute::sample: tracing a field line both ways, sampling the texture along it, the
// running-sum convolution and the accumulation of the values into the pixels it passes.
#include "compute.h"

#include "engine_common.h"
#include "lookup_common.h"

#include <climits>
#include <cmath>
#include <cstdlib>

using namespace muskeip::detail;

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
    Vec2f P = data[static_cast<std::ptrdiff_t>(iy) * w + ix];
    Vec2f Q = data[static_cast<std::ptrdiff_t>(iy) * w + right];
    Vec2f R = data[static_cast<std::ptrdiff_t>(up) * w + ix];
    Vec2f T = data[static_cast<std::ptrdiff_t>(up) * w + right];
    if (orientation) { // an orientation field: the corners agree with the first non-zero one
        Vec2f reference = P;
        for (const Vec2f* corner : {&Q, &R, &T})
            if (reference.x == 0.0f && reference.y == 0.0f) reference = *corner;
        // The reference itself in its canonical sign (x > 0, or x = 0 and y > 0); corners at
        // right angles to it as well; -0 reads as +0: nothing depends on the stored signs.
        if (reference.x < 0.0f || (reference.x == 0.0f && reference.y < 0.0f))
            reference = Vec2f{-reference.x, -reference.y};
        for (Vec2f* corner : {&P, &Q, &R, &T}) {
            float dot = corner->x * reference.x + corner->y * reference.y;
            if (dot < 0.0f ||
                (dot == 0.0f && (corner->x < 0.0f || (corner->x == 0.0f && corner->y < 0.0f)))) {
                corner->x = -corner->x;
                corner->y = -corner->y;
            }
            corner->x = corner->x + 0.0f;
            corner->y = corner->y + 0.0f;
        }
    }
    Vec2f v;
    v.x = P.x + (Q.x - P.x) * fx + (R.x - P.x) * fy + fx * fy * (P.x - R.x - Q.x + T.x);
    v.y = P.y + (Q.y - P.y) * fx + (R.y - P.y) * fy + fx * fy * (P.y - R.y - Q.y + T.y);
    return v;
}

// Checks a seed and finds the direction its line starts in: 1 with `v` when a line is to be
// traced (counted in numFieldLines), 0 when the seed gives none.
int FlicCompute::beginLine(const Vec2f& seed, Vec2f& v) {
    if (!points || (!accum && !window) || !samples || !sums || !positions || !field || !texture ||
        !forward || !backward || !getPixel || kernelSteps < 1)
        return 0;
    // Seeds outside the field would read beyond its nodes.
    if (!(seed.x >= 0.0f && seed.x < field->width && seed.y >= 0.0f && seed.y < field->height))
        return 0;
    if (noDataCells && !keepsPoint(seed)) return 0; // no line from a no-data cell
    v = seedVector(seed);
    float length2 = v.x * v.x + v.y * v.y;
    if (length2 == 0.0f || std::isnan(length2)) return 0;
    numFieldLines++;
    float length = sqrtf(length2);
    v.x = v.x / length;
    v.y = v.y / length;
    if (orientation && (v.x < 0.0f || (v.x == 0.0f && v.y < 0.0f))) {
        // An orientation field has no sign: a line starts along the canonical one of +-v, so
        // that the picture does not depend on the signs stored at the nodes.
        v.x = -v.x;
        v.y = -v.y;
    }
    return 1;
}

void FlicCompute::sample(const Vec2f& seed) {
    Vec2f v;
    if (!beginLine(seed, v)) return;
    forward->init(seed, v);
    backward->init(seed, v);
    positions[maxSteps] = seed;
    int hi = traceSide(forward, 1);
    int lo = traceSide(backward, -1);
    finishLine(lo, hi);
}

void FlicCompute::finishLine(int lo, int hi) {
    tracedPoints += hi - lo + 1;
    // The engine's own lookups are inlined into the line loop; textures without a wrap period
    // and lookups installed by the host go through the pointer.
    bool periodic = TexelSource(texture).periodic;
    if (periodic && getPixel == getPixelBilinear1)
        convolveLine<LOOKUP_BILINEAR1>(lo, hi);
    else if (periodic && getPixel == getPixelBilinearN)
        convolveLine<LOOKUP_BILINEARN>(lo, hi);
    else if (periodic && getPixel == getPixelConst1)
        convolveLine<LOOKUP_CONST1>(lo, hi);
    else if (periodic && getPixel == getPixelConstN)
        convolveLine<LOOKUP_CONSTN>(lo, hi);
    else
        convolveLine<LOOKUP_POINTER>(lo, hi);
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
    const int* windowRecords;              // tiled mode: what the slots count from

    PointRecorder(const FlicCompute& engine, const FlicCompute::TileWindow* window, int* slots,
                  const int* windowRecords)
        : source(engine.texture), texture(engine.texture), pointer(engine.getPixel),
          scaleX(engine.scaleX), scaleY(engine.scaleY), fieldMaxX(engine.fieldMaxX),
          fieldMaxY(engine.fieldMaxY),
          cellScaleX(engine.scaleX * static_cast<float>(engine.numSubPixels)),
          cellScaleY(engine.scaleY * static_cast<float>(engine.numSubPixels)),
          texWidth(engine.texWidth), subPixels(engine.numSubPixels), channels(engine.texChannels),
          samples(engine.samples), points(engine.points), accum(engine.accum),
          recordStride(engine.recordStride),
          pixels(static_cast<unsigned>(engine.texWidth) * static_cast<unsigned>(engine.texHeight)),
          window(window), slots(slots), windowRecords(windowRecords) {}

    // Asks for a record that will be updated once the line's sums are done: its first cache
    // line, and for the long records of animations its last one too.
    template <bool LONG>
    FLIC_ALWAYS_INLINE void prefetchRecord(const int* record) const {
        __builtin_prefetch(record, 1);
        if (LONG) {
            __builtin_prefetch(record + 16, 1);
            __builtin_prefetch(record + recordStride - 1, 1);
        }
    }

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
    // WINDOWED: tiled mode, where the record is looked up in the tile's window.
    // LONG: records longer than a cache line (animations).
    template <bool WINDOWED, bool LONG>
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
        int ix = static_cast<int>(px), iy = static_cast<int>(py);
        point.pixel = wrapAdd(ix, wrapMul(iy, texWidth));
        // The record will be updated once the line's sums are done: ask for it now.
        if (static_cast<unsigned>(point.pixel) < pixels) {
            if (WINDOWED) {
                // The point's column and row are the pixel's unless the index wrapped.
                bool plain = static_cast<unsigned>(ix) < static_cast<unsigned>(texWidth) &&
                             static_cast<unsigned>(iy) < static_cast<unsigned>(window->imageHeight);
                int slot = plain ? windowSlotAt(*window, ix, iy) : windowSlot(*window, point.pixel);
                slots[index] = slot;
                if (slot >= 0) prefetchRecord<LONG>(windowRecords + slot);
            } else {
                prefetchRecord<LONG>(accum + point.pixel * recordStride);
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

// The divisor of a whole kernel of half-length N: 2N, N^2 or 8 N^3 / 27.
FixedDivisor kernelDivisor(int kernel, long long n) {
    return FixedDivisor(kernel == FlicCompute::TRIANGLE ? n * n
                        : kernel == FlicCompute::CUBIC  ? 8 * n * n * n / 27
                                                        : 2 * n);
}

// What the values of a cut line need: prefix sums of the kernel's weights and of their squares
// over the offsets -N .. N - 1, the whole kernel's squares-to-sum-squared ratio and the texture's
// mean per channel.
struct CutKernel {
    const long long* weightPrefix;
    const double* squarePrefix;
    double wholeShare;
    const double* textureMean;
};

// The kernel's running-sum formula at running sums s of channel ch (offsets `far` = N and
// `near` = N / 3 points, in entries): the weighted sum of the samples around the point.
template <int KERNEL>
FLIC_ALWAYS_INLINE int kernelNumerator(const int* s, int ch, std::ptrdiff_t far,
                                       std::ptrdiff_t near) {
    if (KERNEL == FlicCompute::TRIANGLE)
        return wrapSub(wrapAdd(s[ch + far], s[ch - far]), wrapMul(2, s[ch]));
    if (KERNEL == FlicCompute::CUBIC)
        return wrapSub(wrapSub(s[ch + far], wrapMul(3, wrapSub(s[ch + near], s[ch - near]))),
                       s[ch - far]);
    return wrapSub(s[ch + far], s[ch - far]);
}

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
        for (int ch = 0; ch < C; ch++)
            channelSums[ch] =
                wrapAdd(channelSums[ch], divisor.divide(kernelNumerator<KERNEL>(s, ch, far, near)));
    }
}

// The same for a line that ended early on one side or both: the points kLo .. kHi, each divided
// by the sum of the weights over the samples lo .. hi its kernel covers (weightPrefix: prefix
// sums of the weights of the offsets -N .. N - 1); a point whose kernel covers the whole line
// part divides as accumulateLine does.
template <int KERNEL, class SINK>
void accumulateCutLine(const FlicCompute& e, const int* running, const SINK& sink, int lo, int hi,
                       int kLo, int kHi, const FixedDivisor& divisor, const CutKernel& cut) {
    const long long* weightPrefix = cut.weightPrefix;
    const int N = e.kernelSteps, C = e.texChannels, numSubCells = e.numSubCells;
    const std::ptrdiff_t far = static_cast<std::ptrdiff_t>(N) * C;
    const std::ptrdiff_t near = static_cast<std::ptrdiff_t>(N / 3) * C;
    const unsigned pixels = static_cast<unsigned>(e.texWidth) * static_cast<unsigned>(e.texHeight);
    for (int k = kLo; k <= kHi; k++) {
        const FlicCompute::PointRecord& point = e.points[k];
        if (static_cast<unsigned>(point.pixel) >= pixels ||
            static_cast<unsigned>(point.cell) >= static_cast<unsigned>(numSubCells))
            continue;
        int first = lo - k > -N ? lo - k : -N, last = hi - k < N - 1 ? hi - k : N - 1;
        bool whole = first == -N && last == N - 1;
        long long weight = weightPrefix[last + N + 1] - weightPrefix[first + N];
        if (!whole && weight <= 0) continue;
        double spread = 1.0; // the part's spread brought to the whole kernel's
        if (!whole) {
            double squares = cut.squarePrefix[last + N + 1] - cut.squarePrefix[first + N];
            double w = static_cast<double>(weight);
            spread = std::sqrt(cut.wholeShare / (squares / (w * w)));
        }
        int* record = sink.record(k, point.pixel);
        record[point.cell] = wrapAdd(record[point.cell], 1);
        int* channelSums = record + numSubCells;
        const int* s = running + static_cast<std::ptrdiff_t>(k) * C;
        for (int ch = 0; ch < C; ch++) {
            int numerator = kernelNumerator<KERNEL>(s, ch, far, near);
            int value;
            if (whole) {
                value = divisor.divide(numerator);
            } else {
                double mean = cut.textureMean[ch];
                double v = mean + (numerator / static_cast<double>(weight) - mean) * spread;
                value = v <= 0.0 ? 0 : v >= 255.0 ? 255 : static_cast<int>(v);
            }
            channelSums[ch] = wrapAdd(channelSums[ch], value);
        }
    }
}

template <class SINK>
void accumulateCutKernel(const FlicCompute& e, const int* samples, const int* sums,
                         const SINK& sink, int lo, int hi, int kLo, int kHi,
                         const FixedDivisor& divisor, const CutKernel& weightPrefix) {
    if (e.filterKernel == FlicCompute::TRIANGLE)
        accumulateCutLine<FlicCompute::TRIANGLE>(e, samples, sink, lo, hi, kLo, kHi, divisor,
                                                 weightPrefix);
    else if (e.filterKernel == FlicCompute::CUBIC)
        accumulateCutLine<FlicCompute::CUBIC>(e, sums, sink, lo, hi, kLo, kHi, divisor,
                                              weightPrefix);
    else
        accumulateCutLine<FlicCompute::BOX>(e, sums, sink, lo, hi, kLo, kHi, divisor, weightPrefix);
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

// Pixels and cells of the points first .. last, their records asked for.
template <bool LONG, class RECORDER>
FLIC_ALWAYS_INLINE void locatePoints(const RECORDER& recorder, bool windowed,
                                     const Vec2f* positions, int first, int last) {
    if (windowed)
        for (int i = first; i <= last; i++)
            recorder.template locatePixel<true, LONG>(i, positions[i].x, positions[i].y);
    else
        for (int i = first; i <= last; i++)
            recorder.template locatePixel<false, LONG>(i, positions[i].x, positions[i].y);
}

} // namespace

template <int KIND>
void FlicCompute::convolveLine(int lo, int hi) {
    bool cutLo = false, cutHi = false;
    if (endsEarly) endLineEarly(lo, hi, cutLo, cutHi);

    // Sampling after tracing, in a loop of its own, lets the texture reads of many points be
    // under way at once. Pixels and cells are needed only where values are accumulated.
    const PointRecorder<KIND> recorder(*this, window, windowSlots, windowRecords);
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
    // Values go to lo + N .. hi - N, and on to each end where the line was cut.
    int first = cutLo ? lo : lo + kernelSteps, last = cutHi ? hi : hi - kernelSteps;
    if (frameCount > 0)
        locatePoints<true>(recorder, window != nullptr, positions, first, last);
    else
        locatePoints<false>(recorder, window != nullptr, positions, first, last);
    if (frameCount > 0)
        accumulateFrames(lo, hi, cutLo, cutHi);
    else if (cutLo || cutHi)
        accumulateCut(lo, hi, cutLo, cutHi);
    else
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

    FixedDivisor divisor = kernelDivisor(kernel, kernelSteps);
    if (window)
        accumulateKernel(*this, WindowSink{window, windowSlots, windowRecords}, lo, hi, divisor);
    else
        accumulateKernel(*this, PictureSink{accum, recordStride}, lo, hi, divisor);
}

// A line that ended early (cut on the sides said): zero samples continue it past each cut end,
// the running sums run over the continued line, and the points up to each cut end get values.
void FlicCompute::accumulateCut(int lo, int hi, bool cutLo, bool cutHi) {
    const int N = kernelSteps, C = texChannels, kernel = filterKernel;
    int padLo = cutLo ? lo - N : lo, padHi = cutHi ? hi + N : hi;
    for (std::ptrdiff_t e = static_cast<std::ptrdiff_t>(hi + 1) * C; e < (padHi + 1) * C; e++)
        samples[e] = 0;
    for (std::ptrdiff_t e = static_cast<std::ptrdiff_t>(padLo) * C; e < lo * C; e++)
        samples[e] = 0;
    if (kernel == TRIANGLE || kernel == CUBIC)
        runningSumsTwice(padLo, padHi);
    else
        runningSums(samples, sums, padLo, padHi);
    if (kernel == CUBIC) runningSums(samples, sums, padLo, padHi);
    int kLo = cutLo ? lo : lo + N, kHi = cutHi ? hi : hi - N;
    FixedDivisor divisor = kernelDivisor(kernel, N);
    double whole = static_cast<double>(weightPrefix[2 * N]);
    CutKernel cut{weightPrefix, squarePrefix, squarePrefix[2 * N] / (whole * whole), textureMean};
    if (window)
        accumulateCutKernel(*this, samples, sums, WindowSink{window, windowSlots, windowRecords},
                            lo, hi, kLo, kHi, divisor, cut);
    else
        accumulateCutKernel(*this, samples, sums, PictureSink{accum, recordStride}, lo, hi, kLo,
                            kHi, divisor, cut);
}
