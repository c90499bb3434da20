// Trial steps of the RK43 integrator for several lines at once, one line per SIMD lane (not
// installed). Each lane does exactly the single-precision operations of RK43::rkstep, in the
// same order, so that its results equal the scalar stepper's bit for bit; where the scalar
// stepper stops at a failed field sample, the lane records the failure and is left out of the
// rest (its later values are not used).
#ifndef MUSKEIP_LANE_TRIALS_COMMON_H
#define MUSKEIP_LANE_TRIALS_COMMON_H

// The kernel's helpers are inlined into it, whatever the compiler's judgement of their size.
#if defined(__GNUC__)
#define FLIC_LANES_INLINE inline __attribute__((always_inline))
#else
#define FLIC_LANES_INLINE inline
#endif

namespace muskeip {
namespace detail {

// Four floats from each of four places p[0] .. p[3] (in each 128-bit part of the vectors)
// turned into four vectors of one float from every place: x0[k] = p[k][0] and so on. VF is a
// vector of 4, 8 or 16 floats; the shuffles stay within 128-bit parts.
#define FLIC_TRANSPOSE4(UNPACKLO, UNPACKHI, SHUFFLE, r0, r1, r2, r3, out)                          \
    do {                                                                                           \
        auto t0 = UNPACKLO(r0, r1), t1 = UNPACKLO(r2, r3);                                         \
        auto t2 = UNPACKHI(r0, r1), t3 = UNPACKHI(r2, r3);                                         \
        out[0] = reinterpret_cast<VF>(SHUFFLE(t0, t1, 0x44));                                      \
        out[1] = reinterpret_cast<VF>(SHUFFLE(t0, t1, 0xEE));                                      \
        out[2] = reinterpret_cast<VF>(SHUFFLE(t2, t3, 0x44));                                      \
        out[3] = reinterpret_cast<VF>(SHUFFLE(t2, t3, 0xEE));                                      \
    } while (0)

// One batch of trial steps in structure-of-arrays form. The field part is set once per
// computation; each trial fills the inputs of its lane.
struct TrialBatch {
    enum { maxLanes = 16 };
    // The field: nodes of (x, y) floats row by row, width nodes to a row; the admissible
    // domain [0, xMax] x [0, yMax]; the normalization threshold; the smallest valid speed
    // (the least float not below 1e-10); orientation fields (1) or vectors (0).
    const float* field = nullptr;
    int width = 0;
    float xMax = 0.0f, yMax = 0.0f, normalization = 0.0f, smallestSpeed = 0.0f;
    int orientation = 0;
    // Inputs per lane: start point y0, its scaled vector k1, step size h, the integrator's
    // direction (+1, -1) and heading. A lane without a trial gets y0 = k1 = (0, 0), h = 0.
    alignas(64) float y0x[maxLanes], y0y[maxLanes], k1x[maxLanes], k1y[maxLanes];
    alignas(64) float h[maxLanes], direction[maxLanes], headingX[maxLanes], headingY[maxLanes];
    // Results per lane: code 0 ran through, 1 a point outside the domain, 2 invalid field data;
    // reached 0 failed before the end point, 1 end point y1 computed, 2 also its vector d1
    // sampled (unscaled where the speed was too small, zero where it was NaN); the error
    // estimate; the speed of the last sample, where one was taken (speedTaken).
    alignas(64) int code[maxLanes], reached[maxLanes], speedTaken[maxLanes];
    alignas(64) float y1x[maxLanes], y1y[maxLanes], d1x[maxLanes], d1y[maxLanes];
    alignas(64) float errX[maxLanes], errY[maxLanes], speed[maxLanes];
};

// The kernels, one per instruction set, each for its lane count: 4 lanes (SSE2 on x86-64,
// compiler vectors elsewhere), 8 with AVX2, 16 with AVX-512. Null where the library was built
// without that instruction set; whether the processor has it is the caller's question.
typedef void (*TrialKernel)(TrialBatch& batch);
TrialKernel trialKernel4();
TrialKernel trialKernelAVX2();
TrialKernel trialKernelAVX512();

// The kernel body for lanes of K floats. OPS supplies the vector types VF (float) and VI
// (int) of K lanes, sqrt, load and store, and row(base, index, v): the four floats from
// base + index[l] of every lane l (two neighbouring nodes' x and y) into v[0] .. v[3]. Masks
// are int vectors of -1 (true) and 0.
template <class OPS>
struct Rk43Trials {
    typedef typename OPS::VF VF;
    typedef typename OPS::VI VI;

    const TrialBatch& b;
    VI zeroI, oneI, twoI;
    VF zeroF;
    VI alive; // lanes whose trial has not failed yet
    VI code;  // failure codes
    VF speed; // speed of the last sample
    VI speedTaken;

    explicit Rk43Trials(const TrialBatch& batch) : b(batch) {
        zeroI = VI{} + 0;
        oneI = zeroI + 1;
        twoI = zeroI + 2;
        zeroF = VF{} + 0.0f;
        code = zeroI;
        speed = zeroF;
        speedTaken = zeroI;
    }

    static VF select(VI mask, VF yes, VF no) { return mask ? yes : no; }
    static VI selectI(VI mask, VI yes, VI no) { return mask ? yes : no; }

    // Ends the lanes of `failing` that are still alive with `reason`.
    FLIC_LANES_INLINE void fail(VI failing, VI reason) {
        VI now = alive & failing;
        code = selectI(now, reason, code);
        alive = alive & ~now;
    }

    // A corner vector turned to agree with the heading, as the scalar sampler turns it.
    static FLIC_LANES_INLINE void agree(VF& cx, VF& cy, VF hx, VF hy, VF zero) {
        VF dot = cx * hx + cy * hy;
        VI flip = (dot < zero) | ((dot == zero) & ((cx < zero) | ((cx == zero) & (cy < zero))));
        cx = select(flip, -cx, cx) + zero;
        cy = select(flip, -cy, cy) + zero;
    }

    // Bilinear interpolation at admissible points (x, y) (lanes not alive at (0, 0)).
    FLIC_LANES_INLINE void interpolate(VF x, VF y, VF& vx, VF& vy) const {
        VI ix = __builtin_convertvector(x, VI);
        VI iy = __builtin_convertvector(y, VI);
        VF fx = x - __builtin_convertvector(ix, VF);
        VF fy = y - __builtin_convertvector(iy, VF);
        VI a = (iy * b.width + ix) * 2;
        VI c = a + b.width * 2;
        VF lower[4], upper[4];
        OPS::row(b.field, a, lower);
        OPS::row(b.field, c, upper);
        VF a0x = lower[0], a0y = lower[1], a1x = lower[2], a1y = lower[3];
        VF c0x = upper[0], c0y = upper[1], c1x = upper[2], c1y = upper[3];
        if (b.orientation) {
            VF hx = OPS::load(b.headingX), hy = OPS::load(b.headingY);
            agree(a0x, a0y, hx, hy, zeroF);
            agree(a1x, a1y, hx, hy, zeroF);
            agree(c0x, c0y, hx, hy, zeroF);
            agree(c1x, c1y, hx, hy, zeroF);
        }
        VF fxy = fx * fy;
        vx = a0x + (a1x - a0x) * fx + (c0x - a0x) * fy + fxy * (a0x - c0x - a1x + c1x);
        vy = a0y + (a1y - a0y) * fx + (c0y - a0y) * fy + fxy * (a0y - c0y - a1y + c1y);
    }

    // The admissible lanes' points, the others moved to (0, 0) so that nothing is read
    // outside the field; lanes outside the domain fail with code 1.
    FLIC_LANES_INLINE void admit(VF& x, VF& y) {
        VI inside = (x >= zeroF) & (x <= b.xMax) & (y >= zeroF) & (y <= b.yMax);
        fail(~inside, oneI);
        x = select(alive, x, zeroF);
        y = select(alive, y, zeroF);
    }

    // The speed of (vx, vy) recorded for the alive lanes; lanes below the smallest speed fail
    // with code 2. Returns the speed.
    FLIC_LANES_INLINE VF speedOf(VF vx, VF vy) {
        VF s = OPS::sqrt(vx * vx + vy * vy);
        speed = select(alive, s, speed);
        speedTaken = speedTaken | alive;
        fail(s < b.smallestSpeed, twoI);
        return s;
    }

    // Vectors slower than the threshold are divided by it instead of their length.
    FLIC_LANES_INLINE VF scaleFor(VF s, VF direction) const {
        return select(s > b.normalization, direction / s, direction / b.normalization);
    }

    // The scaled field vector at (x, y), as the scalar derivative gives it.
    FLIC_LANES_INLINE void derivative(VF x, VF y, VF direction, VF& vx, VF& vy) {
        admit(x, y);
        interpolate(x, y, vx, vy);
        fail((vx != vx) | (vy != vy), twoI);
        VF s = speedOf(vx, vy);
        VF scale = scaleFor(s, direction);
        vx = vx * scale;
        vy = vy * scale;
    }

    void run(TrialBatch& out) {
        alive = zeroI - 1;
        VF y0x = OPS::load(b.y0x), y0y = OPS::load(b.y0y);
        VF k1x = OPS::load(b.k1x), k1y = OPS::load(b.k1y);
        VF h = OPS::load(b.h), direction = OPS::load(b.direction);
        VF hh = h * 0.5f;
        VF k2x, k2y, k3x, k3y, k4x, k4y;
        derivative(y0x + hh * k1x, y0y + hh * k1y, direction, k2x, k2y);
        derivative(y0x + hh * k2x, y0y + hh * k2y, direction, k3x, k3y);
        derivative(y0x + h * k3x, y0y + h * k3y, direction, k4x, k4y);
        VF y1x = y0x + ((k4x + k1x) / 6.0f + (k2x + k3x) / 3.0f) * h;
        VF y1y = y0y + ((k4y + k1y) / 6.0f + (k2y + k3y) / 3.0f) * h;
        VI reached = selectI(alive, oneI, zeroI);
        // The end point: its vector unscaled first, zero where a component is NaN.
        VF x = y1x, y = y1y;
        admit(x, y);
        VF d1x, d1y;
        interpolate(x, y, d1x, d1y);
        reached = selectI(alive, twoI, reached);
        VI nan = alive & ((d1x != d1x) | (d1y != d1y));
        d1x = select(nan, zeroF, d1x);
        d1y = select(nan, zeroF, d1y);
        fail(nan, twoI);
        VF s = speedOf(d1x, d1y);
        VF scale = scaleFor(s, direction);
        d1x = select(alive, d1x * scale, d1x);
        d1y = select(alive, d1y * scale, d1y);
        OPS::store(out.code, code);
        OPS::store(out.reached, reached);
        OPS::store(out.speedTaken, speedTaken);
        OPS::store(out.y1x, y1x);
        OPS::store(out.y1y, y1y);
        OPS::store(out.d1x, d1x);
        OPS::store(out.d1y, d1y);
        OPS::store(out.errX, ((k4x - d1x) * h) / 6.0f);
        OPS::store(out.errY, ((k4y - d1y) * h) / 6.0f);
        OPS::store(out.speed, speed);
    }
};

} // namespace detail
} // namespace muskeip

#endif
