// The frame values of an animation's points (not installed): for every point of a line whose
// kernel window lies wholly on the line, and a one-channel texture, the values of all frames
// added to its pixel's frame sums. This loop (points x frames) is most of an animation's cost,
// so it is written once here and built for several instruction sets; the arithmetic is double
// precision without contraction, so every build gives the same values.
#ifndef MUSKEIP_FRAME_VALUES_COMMON_H
#define MUSKEIP_FRAME_VALUES_COMMON_H

namespace muskeip {
namespace detail {

// One line's points: the frames' phase table, 1 / (2N), and per point where its frame sums are
// and its running-sum differences (the plain samples and the cosine and sine parts relative to
// the point's own ripple phase).
struct FrameBatch {
    int count = 0, frames = 0;
    const double* phaseCos = nullptr;
    const double* phaseSin = nullptr;
    double inverse = 0.0;
    unsigned** targets = nullptr;
    double* plain = nullptr;
    double* along = nullptr;
    double* across = nullptr;
};

typedef void (*FrameKernel)(const FrameBatch& batch);

// The kernels built for AVX2 and AVX-512 (null where the library was built without them).
FrameKernel frameKernelAVX2();
FrameKernel frameKernelAVX512();
// The widest kernel the processor runs, chosen once.
FrameKernel frameKernel();

namespace {

// Frame f of a point: (plain + cos(phi_f) along + sin(phi_f) across) / 2N, clamped to 0 .. 255
// and truncated. A function of each file's own (internal) copy, so that no build of it for
// one instruction set stands in for another's.
inline void addFrameValues(const FrameBatch& batch) {
    const int frames = batch.frames;
    const double* phaseCos = batch.phaseCos;
    const double* phaseSin = batch.phaseSin;
    const double inverse = batch.inverse;
    for (int i = 0; i < batch.count; i++) {
        unsigned* to = batch.targets[i];
        const double plain = batch.plain[i], along = batch.along[i], across = batch.across[i];
        for (int f = 0; f < frames; f++) {
            double v = (plain + phaseCos[f] * along + phaseSin[f] * across) * inverse;
            v = v < 0.0 ? 0.0 : v;
            v = v > 255.0 ? 255.0 : v;
            to[f] += static_cast<unsigned>(static_cast<int>(v));
        }
    }
}

} // namespace
} // namespace detail
} // namespace muskeip

#endif
