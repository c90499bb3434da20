// FlicCompute::computeFrames: an animated LIC. Every frame convolves the same traced lines with
// a kernel whose ripple moves along the line, so the texture appears to flow downstream, and
// frame F would be frame 0 again (the phase runs through one whole period).
//
// The kernel: a box window of the 2N samples j = k - N .. k + N - 1 around point k, times the
// ripple (1 + cos(theta_j - psi)) / 2 with theta_j = pi R (j - c) / N (R ripples along the
// window, c the seed's index) and psi = theta_k + phi, phi = -2 pi f / F for frame f. Chosen
// because the cosine splits into cos(theta_j) and sin(theta_j) terms: with running sums of the
// samples, of the samples times cos(theta_j) and times sin(theta_j) (and of cos and sin alone,
// for lines cut short), each frame's value at each point costs a few multiplications, and all
// F frames come from one pass over the lines. R = 0 is the plain box (every frame the still
// box picture); the weights of a whole window sum to N for every phase, so the frames keep
// one brightness. Arithmetic in double; values truncated like the still engine's.
#include "compute.h"

#include "engine_common.h"
#include "frame_values_common.h"
#include "messages.h"

#include <climits>
#include <cmath>
#include <new>
#include <vector>

using namespace muskeip::detail;

namespace {

const int maxFrames = 1024;
const int maxRipples = 64;
// Kernels longer than this are refused: the tables and sums of a line would grow absurdly.
const int maxAnimatedSteps = 1 << 14;

// The ripple's phase index of sample j: (j - c) mod period, never negative.
int ripplePhaseIndex(int j, int c, int period) {
    return static_cast<int>(((static_cast<long long>(j) - c) % period + period) % period);
}

// Where a line's frame values go (the picture's records, or a tile's window). `lasts` says
// whether the point's record stays where it is until the line is done, so that the frame
// kernel may fill it later: a window's overflow entries move as the overflow grows.
struct FrameSinkPicture {
    int* accum;
    std::ptrdiff_t stride;
    int* record(int, int pixel) const { return accum + pixel * stride; }
    bool lasts(int) const { return true; }
};

struct FrameSinkWindow {
    FlicCompute::TileWindow* window;
    const int* slots;
    int* records;
    int* record(int index, int pixel) const {
        int slot = slots[index];
        return slot >= 0 ? records + slot : window->record(pixel);
    }
    bool lasts(int index) const { return slots[index] >= 0; }
};

// The running sums over the line lo .. hi (index i holds the sums over lo .. i - 1): per channel
// the samples and the samples times cos and sin of their phase, then cos and sin alone.
struct LineSums {
    double *plain, *cosine, *sine, *cosOnly, *sinOnly;
};

template <class SINK>
void accumulateFrameLine(const FlicCompute& e, const LineSums& sums, const SINK& sink, int lo,
                         int hi, int first, int last, const double* phaseCos,
                         const double* phaseSin, const double* rippleCos, const double* rippleSin,
                         int period, bool box, FrameBatch& batch) {
    const int N = e.kernelSteps, C = e.texChannels, cells = e.numSubCells;
    const unsigned pixels = static_cast<unsigned>(e.texWidth) * static_cast<unsigned>(e.texHeight);
    const int frames = (e.recordStride - cells) / C;
    int m = ripplePhaseIndex(first, e.maxSteps, period);
    for (int k = first; k <= last; k++, m = m + 1 < period ? m + 1 : 0) {
        const FlicCompute::PointRecord& point = e.points[k];
        if (static_cast<unsigned>(point.pixel) >= pixels ||
            static_cast<unsigned>(point.cell) >= static_cast<unsigned>(cells))
            continue;
        int a = k - N > lo ? k - N : lo, b = k + N - 1 < hi ? k + N : hi + 1; // window [a, b)
        int ia = a - lo, ib = b - lo;
        double count = b - a;
        double kc = sums.cosOnly[ib] - sums.cosOnly[ia], ks = sums.sinOnly[ib] - sums.sinOnly[ia];
        double ck = rippleCos[m], sk = rippleSin[m];
        int* record = sink.record(k, point.pixel);
        record[point.cell] = wrapAdd(record[point.cell], 1);
        // With psi = theta_k + phi_f: cos(psi) X + sin(psi) Y = cos(phi) (ck X + sk Y) +
        // sin(phi) (ck Y - sk X), so each frame costs two products per sum.
        bool whole = a == k - N && b == k + N; // its cosines sum to 0: the weight is 2N
        double weightCos = ck * kc + sk * ks, weightSin = ck * ks - sk * kc;
        for (int ch = 0; ch < C; ch++) {
            const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(ch) * (hi - lo + 2);
            const double plain = sums.plain[row + ib] - sums.plain[row + ia];
            const double x = sums.cosine[row + ib] - sums.cosine[row + ia];
            const double y = sums.sine[row + ib] - sums.sine[row + ia];
            const double along = ck * x + sk * y, across = ck * y - sk * x;
            int* channelSums = record + cells + ch;
            if (box) { // no ripple: the still box kernel's integer mean
                int value = static_cast<int>(static_cast<long long>(plain) / (b - a));
                for (int f = 0; f < frames; f++)
                    channelSums[f * C] = wrapAdd(channelSums[f * C], value);
            } else if (whole && C == 1 && sink.lasts(k)) { // the common case: the kernel's
                int i = batch.count++;
                batch.targets[i] = reinterpret_cast<unsigned*>(channelSums);
                batch.plain[i] = plain;
                batch.along[i] = along;
                batch.across[i] = across;
            } else if (whole) {
                for (int f = 0; f < frames; f++) {
                    double v = (plain + phaseCos[f] * along + phaseSin[f] * across) * batch.inverse;
                    int value = v <= 0.0 ? 0 : v >= 255.0 ? 255 : static_cast<int>(v);
                    channelSums[f * C] = wrapAdd(channelSums[f * C], value);
                }
            } else {
                for (int f = 0; f < frames; f++) {
                    double weight = count + phaseCos[f] * weightCos + phaseSin[f] * weightSin;
                    double total = plain + phaseCos[f] * along + phaseSin[f] * across;
                    double v = weight > 0.0 ? total / weight : 0.0;
                    int value = v <= 0.0 ? 0 : v >= 255.0 ? 255 : static_cast<int>(v);
                    channelSums[f * C] = wrapAdd(channelSums[f * C], value);
                }
            }
        }
    }
}
} // namespace

// The frame values of the line's points first .. last: the middle part, and on to each end
// where the line was cut (its window then covers only the samples the line has).
void FlicCompute::accumulateFrames(int lo, int hi, bool cutLo, bool cutHi) {
    const int N = kernelSteps, C = texChannels, c = maxSteps, frames = frameCount;
    const int length = hi - lo + 2;
    // The ripple's phase theta_j = pi R (j - c) / N repeats every 2N samples.
    const int period = 2 * N;
    LineSums line;
    line.plain = frameSums;
    line.cosine = line.plain + static_cast<std::ptrdiff_t>(C) * length;
    line.sine = line.cosine + static_cast<std::ptrdiff_t>(C) * length;
    line.cosOnly = line.sine + static_cast<std::ptrdiff_t>(C) * length;
    line.sinOnly = line.cosOnly + length;
    const double* rippleCos = frameTable;
    const double* rippleSin = rippleCos + period;
    const double* phaseCos = rippleSin + period;
    const double* phaseSin = phaseCos + frames;
    line.cosOnly[0] = line.sinOnly[0] = 0.0;
    for (int ch = 0; ch < C; ch++)
        line.plain[ch * length] = line.cosine[ch * length] = line.sine[ch * length] = 0.0;
    int m = ripplePhaseIndex(lo, c, period);
    for (int j = lo; j <= hi; j++, m = m + 1 < period ? m + 1 : 0) {
        int i = j - lo;
        line.cosOnly[i + 1] = line.cosOnly[i] + rippleCos[m];
        line.sinOnly[i + 1] = line.sinOnly[i] + rippleSin[m];
        for (int ch = 0; ch < C; ch++) {
            double x = samples[static_cast<std::ptrdiff_t>(j) * C + ch];
            std::ptrdiff_t at = static_cast<std::ptrdiff_t>(ch) * length + i;
            line.plain[at + 1] = line.plain[at] + x;
            line.cosine[at + 1] = line.cosine[at] + x * rippleCos[m];
            line.sine[at + 1] = line.sine[at] + x * rippleSin[m];
        }
    }
    // The points' own values go to the frame kernel in one batch per line.
    FrameBatch batch;
    batch.frames = frames;
    batch.phaseCos = phaseCos;
    batch.phaseSin = phaseSin;
    batch.inverse = 1.0 / (2.0 * N);
    batch.targets = frameTargets;
    batch.plain = line.sinOnly + length;
    batch.along = batch.plain + length;
    batch.across = batch.along + length;
    int first = cutLo ? lo : lo + N, last = cutHi ? hi : hi - N;
    bool box = animationRipples == 0;
    if (window)
        accumulateFrameLine(*this, line, FrameSinkWindow{window, windowSlots, windowRecords}, lo,
                            hi, first, last, phaseCos, phaseSin, rippleCos, rippleSin, period, box,
                            batch);
    else
        accumulateFrameLine(*this, line, FrameSinkPicture{accum, recordStride}, lo, hi, first, last,
                            phaseCos, phaseSin, rippleCos, rippleSin, period, box, batch);
    if (batch.count > 0) frameKernel()(batch);
}

namespace {

// A run of `width` pixels of frame f: the sums divided by the hits. `exact` tells that every
// pixel of the run has fewer hits than kReciprocalHitsLimit (and none negative): as frame values
// are 0 .. 255 for each hit, its sums are then 0 .. 255 x hits and the reciprocals serve.
void divideFrameRun(unsigned char* out, const int* sums, std::ptrdiff_t stride, int width,
                    int channels, const int* hits, const double* reciprocals, bool exact,
                    const FixedDivisor* divisors) {
    if (exact && channels == 1) {
        for (int x = 0; x < width; x++)
            out[x] =
                static_cast<unsigned char>(divideByReciprocal(sums[x * stride], reciprocals[x]));
    } else if (exact) {
        for (int x = 0; x < width; x++)
            for (int ch = 0; ch < channels; ch++)
                out[x * channels + ch] = static_cast<unsigned char>(
                    divideByReciprocal(sums[x * stride + ch], reciprocals[x]));
    } else {
        for (int x = 0; x < width; x++)
            for (int ch = 0; ch < channels; ch++)
                out[x * channels + ch] = static_cast<unsigned char>(
                    divideByHits(sums[x * stride + ch], hits[x], divisors));
    }
}

} // namespace

// Divides each frame's sums by the pixel's hits into its picture, as the still engine does.
void FlicCompute::normalizeFrames(FlicImage* outputs) {
    FlicImage* covered = sizeFrames(outputs) ? coverage : nullptr;
    totalHits = wrapAdd(totalHits, normalizeFrameRows(outputs, 0, texHeight, covered));
}

bool FlicCompute::sizeFrames(FlicImage* outputs) {
    for (int f = 0; f < frameCount; f++)
        outputs[f].setSize(texWidth, texHeight, texChannels);
    return coverage && coverage->setSize(texWidth, texHeight, 1);
}

// Row by row and frame by frame, so that each picture is written in order while the row's
// records stay in the cache.
int FlicCompute::normalizeFrameRows(FlicImage* outputs, int rowBegin, int rowEnd,
                                    FlicImage* covered) const {
    // Locals, so that the stores into the pictures need not reload the engine's members.
    const int W = texWidth, C = texChannels, cells = numSubCells;
    const int frames = frameCount;
    const std::ptrdiff_t stride = recordStride;
    const FixedDivisor* divisors = hitDivisors();
    // A row in runs of up to `run` pixels, whose hits and reciprocals stay on the stack.
    const int run = 256;
    int hits[run];
    double reciprocals[run];
    int total = 0;
    for (int y = rowBegin; y < rowEnd; y++)
        for (int x0 = 0; x0 < W; x0 += run) {
            const int n = W - x0 < run ? W - x0 : run;
            const std::ptrdiff_t pixel = static_cast<std::ptrdiff_t>(y) * W + x0;
            const int* records = accum + pixel * stride;
            bool exact = true;
            for (int x = 0; x < n; x++) {
                int sum = 0;
                for (int s = 0; s < cells; s++)
                    sum = wrapAdd(sum, records[x * stride + s]);
                hits[x] = sum;
                total = wrapAdd(total, sum);
                exact = exact && sum >= 0 && sum < kReciprocalHitsLimit;
                reciprocals[x] = sum > 0 ? 1.0 / sum : 0.0;
            }
            for (int f = 0; f < frames; f++)
                divideFrameRun(outputs[f].data + pixel * C, records + cells + f * C, stride, n, C,
                               hits, reciprocals, exact, divisors);
            if (covered)
                for (int x = 0; x < n; x++)
                    covered->data[pixel + x] = hits[x] ? 255 : 0;
        }
    return total;
}

FrameKernel muskeip::detail::frameKernel() {
    static const FrameKernel chosen = [] {
        FrameKernel kernel = addFrameValues;
#if defined(__x86_64__) || defined(__i386__)
        if (__builtin_cpu_supports("avx2") && frameKernelAVX2()) kernel = frameKernelAVX2();
        if (__builtin_cpu_supports("avx512f") && frameKernelAVX512()) kernel = frameKernelAVX512();
#endif
        return kernel;
    }();
    return chosen;
}

int FlicCompute::computeFrames(FlicVectorField* field, FlicImage* texture, int frames,
                               FlicImage* outputs, FlicImage* mask, FlicImage* seedMap) {
    if (!outputs) return flic_error("LIC: no output images for the frames");
    if (frames < 1 || frames > maxFrames)
        return flic_error("LIC: number of frames %d outside 1 .. %d", frames, maxFrames);
    if (animationRipples < 0 || animationRipples > maxRipples)
        return flic_error("LIC: number of ripples %d outside 0 .. %d", animationRipples,
                          maxRipples);
    if (passes != 1) return flic_error("LIC: passes apply to still pictures, not to frames");
    if (!field || !field->data || field->width < 2 || field->height < 2)
        return flic_error("LIC: the vector field needs at least 2 x 2 nodes");
    if (mask && (mask->width != field->width || mask->height != field->height))
        return flic_info("field and mask must have the same size");
    if (!checkInputs(field, texture, &outputs[0], mask, seedMap) || !checkTileSettings() ||
        !checkModes(field))
        return 0;
    long long entries = static_cast<long long>(texture->width) * texture->height *
                        (static_cast<long long>(numSubPixels) * numSubPixels +
                         static_cast<long long>(texture->nChannels) * frames);
    if (entries > INT_MAX)
        return flic_error("LIC: %d frames of %d x %d x %d pixels are too many for the work "
                          "buffers",
                          frames, texture->width, texture->height, texture->nChannels);
    int N = kernelStepsFor(filterLength, stepLength, filterKernel);
    if (N > maxAnimatedSteps)
        return flic_error("LIC: animated kernels reach %d steps at most, not %d", maxAnimatedSteps,
                          N);
    // The ripple over its period of 2N samples and the frames' phases, one table.
    const double pi = 3.14159265358979323846;
    try {
        frameTableStore.assign(4 * static_cast<size_t>(N) + 2 * static_cast<size_t>(frames), 0.0);
    } catch (const std::bad_alloc&) {
        return flic_error("LIC: no memory for the frames' tables");
    }
    for (int m = 0; m < 2 * N; m++) {
        double theta = pi * animationRipples * m / N;
        frameTableStore[m] = std::cos(theta);
        frameTableStore[2 * N + m] = std::sin(theta);
    }
    for (int f = 0; f < frames; f++) {
        double phi = -2.0 * pi * f / frames;
        frameTableStore[4 * N + f] = std::cos(phi);
        frameTableStore[4 * N + frames + f] = std::sin(phi);
    }
    frameTable = frameTableStore.data();
    frameCount = frames;
    int done = computeOnce(field, texture, outputs, mask, seedMap);
    frameCount = 0;
    frameTable = nullptr;
    return done;
}
