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
#include "messages.h"

#include <climits>
#include <cmath>
#include <new>

using namespace muskeip::detail;

namespace {

const int maxFrames = 1024;
const int maxRipples = 64;
// Kernels longer than this are refused: the tables and sums of a line would grow absurdly.
const int maxAnimatedSteps = 1 << 14;

// Where a line's frame values go (the picture's records, or a tile's window).
struct FrameSinkPicture {
    int* accum;
    std::ptrdiff_t stride;
    int* record(int, int pixel) const { return accum + pixel * stride; }
};

struct FrameSinkWindow {
    FlicCompute::TileWindow* window;
    const int* slots;
    int* records;
    int* record(int index, int pixel) const {
        int slot = slots[index];
        return slot >= 0 ? records + slot : window->record(pixel);
    }
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
                         int period, bool box) {
    const int N = e.kernelSteps, C = e.texChannels, cells = e.numSubCells;
    const unsigned pixels = static_cast<unsigned>(e.texWidth) * static_cast<unsigned>(e.texHeight);
    const int frames = (e.recordStride - cells) / C, c = e.maxSteps;
    for (int k = first; k <= last; k++) {
        const FlicCompute::PointRecord& point = e.points[k];
        if (static_cast<unsigned>(point.pixel) >= pixels ||
            static_cast<unsigned>(point.cell) >= static_cast<unsigned>(cells))
            continue;
        int a = k - N > lo ? k - N : lo, b = k + N - 1 < hi ? k + N : hi + 1; // window [a, b)
        int ia = a - lo, ib = b - lo;
        double count = b - a;
        double kc = sums.cosOnly[ib] - sums.cosOnly[ia], ks = sums.sinOnly[ib] - sums.sinOnly[ia];
        int m = static_cast<int>(((static_cast<long long>(k - c) % period) + period) % period);
        double ck = rippleCos[m], sk = rippleSin[m];
        int* record = sink.record(k, point.pixel);
        record[point.cell] = wrapAdd(record[point.cell], 1);
        for (int f = 0; f < frames; f++) {
            // psi = theta_k + phi_f
            double cp = ck * phaseCos[f] - sk * phaseSin[f],
                   sp = sk * phaseCos[f] + ck * phaseSin[f];
            double weight = count + cp * kc + sp * ks;
            int* channelSums = record + cells + f * C;
            for (int ch = 0; ch < C; ch++) {
                const double* plain = sums.plain + static_cast<std::ptrdiff_t>(ch) * (hi - lo + 2);
                const double* cosine =
                    sums.cosine + static_cast<std::ptrdiff_t>(ch) * (hi - lo + 2);
                const double* sine = sums.sine + static_cast<std::ptrdiff_t>(ch) * (hi - lo + 2);
                double total = (plain[ib] - plain[ia]) + cp * (cosine[ib] - cosine[ia]) +
                               sp * (sine[ib] - sine[ia]);
                int value;
                if (box) { // no ripple: the still box kernel's integer mean
                    value =
                        static_cast<int>(static_cast<long long>(plain[ib] - plain[ia]) / (b - a));
                } else {
                    double v = weight > 0.0 ? total / weight : 0.0;
                    value = v <= 0.0 ? 0 : v >= 255.0 ? 255 : static_cast<int>(v);
                }
                channelSums[ch] = wrapAdd(channelSums[ch], value);
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
    for (int j = lo; j <= hi; j++) {
        int i = j - lo;
        int m = static_cast<int>(((static_cast<long long>(j - c) % period) + period) % period);
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
    int first = cutLo ? lo : lo + N, last = cutHi ? hi : hi - N;
    if (window)
        accumulateFrameLine(
            *this, line, FrameSinkWindow{window, windowSlots, window->records.data()}, lo, hi,
            first, last, phaseCos, phaseSin, rippleCos, rippleSin, period, animationRipples == 0);
    else
        accumulateFrameLine(*this, line, FrameSinkPicture{accum, recordStride}, lo, hi, first, last,
                            phaseCos, phaseSin, rippleCos, rippleSin, period,
                            animationRipples == 0);
}

// Divides each frame's sums by the pixel's hits into its picture, as the still engine does.
void FlicCompute::normalizeFrames(FlicImage* outputs) {
    const int pixels = texWidth * texHeight;
    for (int f = 0; f < frameCount; f++)
        outputs[f].setSize(texWidth, texHeight, texChannels);
    for (int p = 0; p < pixels; p++) {
        const int* record = accum + static_cast<std::ptrdiff_t>(p) * recordStride;
        int hits = 0;
        for (int s = 0; s < numSubCells; s++)
            hits = wrapAdd(hits, record[s]);
        totalHits = wrapAdd(totalHits, hits);
        for (int f = 0; f < frameCount; f++) {
            unsigned char* out = outputs[f].data + static_cast<std::ptrdiff_t>(p) * texChannels;
            const int* channelSums = record + numSubCells + f * texChannels;
            for (int ch = 0; ch < texChannels; ch++)
                out[ch] = static_cast<unsigned char>(
                    hits > 0 ? static_cast<int>(static_cast<long long>(channelSums[ch]) / hits)
                             : 0);
        }
    }
    if (coverage && coverage->setSize(texWidth, texHeight, 1))
        for (int p = 0; p < pixels; p++) {
            int hits = 0;
            for (int s = 0; s < numSubCells; s++)
                hits |= accum[static_cast<std::ptrdiff_t>(p) * recordStride + s];
            coverage->data[p] = hits ? 255 : 0;
        }
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
