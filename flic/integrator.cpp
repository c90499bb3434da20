// Field-line integrators: the shared field sampling, the fixed-step methods (Euler, midpoint)
// and the adaptive Runge-Kutta integrators with Hermite dense output.
//
// All arithmetic is single precision and written in the order the results are defined by; the
// build disables contraction into fused multiply-adds, so every result is reproducible.
#include "integrator.h"

#include "build_common.h"

#include <cmath>
#include <cstddef>
#include <new>

namespace {

// Outcomes of one field sample.
enum SampleOutcome { SAMPLE_OK = 0, SAMPLE_OUTSIDE = 1, SAMPLE_INVALID = 2 };

// Whether (x, y) lies in the admissible domain; false for a NaN coordinate.
FLIC_ALWAYS_INLINE bool inside(const FlicIntegrator& in, float x, float y) {
    return x >= 0.0f && x <= in.xMax && y >= 0.0f && y <= in.yMax;
}

// A corner vector turned, if need be, to agree with the heading (orientation fields). One at
// right angles to the heading takes its canonical sign (x > 0, or x = 0 and y > 0), and adding 0
// turns a negative zero into zero: the result never depends on the sign stored at the node.
FLIC_ALWAYS_INLINE Vec2f agreeing(const Vec2f& corner, const Vec2f& heading) {
    float dot = corner.x * heading.x + corner.y * heading.y;
    bool flip =
        dot < 0.0f || (dot == 0.0f && (corner.x < 0.0f || (corner.x == 0.0f && corner.y < 0.0f)));
    if (!flip) return Vec2f{corner.x + 0.0f, corner.y + 0.0f};
    return Vec2f{-corner.x + 0.0f, -corner.y + 0.0f};
}

// Bilinear interpolation of the four corners of an orientation field's cell, each turned to
// agree with the line's heading.
Vec2f interpolateOriented(const FlicIntegrator& in, float x, float y) {
    int ix = static_cast<int>(x);
    int iy = static_cast<int>(y);
    float fx = x - ix;
    float fy = y - iy;
    const Vec2f* a = in.field + static_cast<std::ptrdiff_t>(iy) * in.width + ix;
    const Vec2f* c = a + in.width;
    Vec2f a0 = agreeing(a[0], in.heading), a1 = agreeing(a[1], in.heading);
    Vec2f c0 = agreeing(c[0], in.heading), c1 = agreeing(c[1], in.heading);
    float fxy = fx * fy;
    Vec2f v;
    v.x = a0.x + (a1.x - a0.x) * fx + (c0.x - a0.x) * fy + fxy * (a0.x - c0.x - a1.x + c1.x);
    v.y = a0.y + (a1.y - a0.y) * fx + (c0.y - a0.y) * fy + fxy * (a0.y - c0.y - a1.y + c1.y);
    return v;
}

// Bilinear interpolation of the four nodes around an admissible point (x, y).
FLIC_ALWAYS_INLINE Vec2f interpolate(const FlicIntegrator& in, float x, float y) {
    if (in.orientation) return interpolateOriented(in, x, y);
    int ix = static_cast<int>(x);
    int iy = static_cast<int>(y);
    float fx = x - ix;
    float fy = y - iy;
    const Vec2f* a = in.field + static_cast<std::ptrdiff_t>(iy) * in.width + ix;
    const Vec2f* c = a + in.width;
    float fxy = fx * fy;
    Vec2f v;
    v.x = a[0].x + (a[1].x - a[0].x) * fx + (c[0].x - a[0].x) * fy +
          fxy * (a[0].x - c[0].x - a[1].x + c[1].x);
    v.y = a[0].y + (a[1].y - a[0].y) * fx + (c[0].y - a[0].y) * fy +
          fxy * (a[0].y - c[0].y - a[1].y + c[1].y);
    return v;
}

// Scale factor of the normalization rule for a valid magnitude.
FLIC_ALWAYS_INLINE float scaleFor(const FlicIntegrator& in, float speed) {
    return speed > in.normalization ? in.direction / speed : in.direction / in.normalization;
}

// The field sample of the fixed-step methods and the Euler fallback: outside, invalid
// (magnitude below 1e-10 or NaN, stored in `speed` first), or the scaled vector in `out`.
FLIC_ALWAYS_INLINE int sampleField(FlicIntegrator& in, float x, float y, Vec2f& out) {
    if (!inside(in, x, y)) return SAMPLE_OUTSIDE;
    Vec2f v = interpolate(in, x, y);
    float speed = sqrtf(v.x * v.x + v.y * v.y);
    in.speed = speed;
    if (static_cast<double>(speed) < 1e-10 || std::isnan(speed)) return SAMPLE_INVALID;
    if (in.orientation) in.heading = v;
    float s = scaleFor(in, speed);
    out.x = v.x * s;
    out.y = v.y * s;
    return SAMPLE_OK;
}

// Samples the tangent at (x, y) for a fixed-step line that is still running; a failed sample
// ends the line with the sample's outcome as its status.
FLIC_ALWAYS_INLINE void sampleWhileRunning(FixedIntegrator& in, float x, float y) {
    if (in.status != 0) return;
    int outcome = sampleField(in, x, y, in.tangent);
    if (outcome != SAMPLE_OK) in.status = outcome;
}

} // namespace

// --- FlicIntegrator -------------------------------------------------------------------------

FlicIntegrator::FlicIntegrator(int direction)
    : stepLength(0.0f), status(0), direction(static_cast<float>(direction)), width(0), height(0),
      xMax(-1.001f), yMax(-1.001f), field(nullptr), speed(0.0f), normalization(0.0f),
      orientation(0), heading{0.0f, 0.0f} {}

FlicIntegrator::~FlicIntegrator() {}

FlicIntegrator* FlicIntegrator::clone() const {
    return nullptr;
}

bool FlicIntegrator::hasInlineNext() const {
    return false;
}

// The admissible domain keeps the right and upper neighbours of every admissible point inside
// the grid. For fields wider or higher than single precision resolves near width - 1.001, the
// bound is lowered to the next float whose truncation still leaves room for that neighbour
// (ordinary sizes are not affected).
void FlicIntegrator::setField(int width, int height, Vec2f* field) {
    this->width = width;
    this->height = height;
    this->field = field;
    xMax = static_cast<float>(width) - 1.001f;
    yMax = static_cast<float>(height) - 1.001f;
    while (xMax >= 0.0f && static_cast<double>(xMax) >= static_cast<double>(width) - 1.0)
        xMax = nextafterf(xMax, 0.0f);
    while (yMax >= 0.0f && static_cast<double>(yMax) >= static_cast<double>(height) - 1.0)
        yMax = nextafterf(yMax, 0.0f);
}

// --- Fixed-step methods -----------------------------------------------------------------------

FixedIntegrator::FixedIntegrator(int direction) : FlicIntegrator(direction) {
    position.x = position.y = 0.0f;
    tangent.x = tangent.y = 0.0f;
}

FixedIntegrator::~FixedIntegrator() {}

void FixedIntegrator::init(const Vec2f& p, const Vec2f& v) {
    heading = v;
    position = p;
    tangent.x = direction * v.x;
    tangent.y = direction * v.y;
    status = 0;
}

void FixedIntegrator::init(const Vec2f& p, const Vec2f& v, float s) {
    init(p, v);
    speed = s;
}

Euler::Euler(int direction) : FixedIntegrator(direction) {}
Euler::~Euler() {}

FlicIntegrator* Euler::clone() const {
    return new (std::nothrow) Euler(*this);
}

// One Euler step: move along the tangent (always), then sample the end point while running.
FLIC_ALWAYS_INLINE void Euler::advance() {
    position.x = position.x + stepLength * tangent.x;
    position.y = position.y + stepLength * tangent.y;
    sampleWhileRunning(*this, position.x, position.y);
}

const Vec2f& Euler::next(int& statusOut) {
    advance();
    statusOut = status;
    return position;
}

const Vec2f& Euler::next(float& speedOut, int& statusOut) {
    advance();
    statusOut = status;
    speedOut = speed;
    return position;
}

Midpoint::Midpoint(int direction) : FixedIntegrator(direction) {}
Midpoint::~Midpoint() {}

FlicIntegrator* Midpoint::clone() const {
    return new (std::nothrow) Midpoint(*this);
}

// One midpoint step: the tangent is re-sampled half a step ahead (x tested before y), the full
// step taken with whatever tangent results, and the end point sampled for the next call.
FLIC_ALWAYS_INLINE void Midpoint::advance() {
    if (status == 0) {
        float half = stepLength * 0.5f;
        float mx = position.x + half * tangent.x;
        float my = position.y + half * tangent.y;
        if (!(mx >= 0.0f && mx <= xMax) || !(my >= 0.0f && my <= yMax)) {
            status = SAMPLE_OUTSIDE;
        } else {
            sampleWhileRunning(*this, mx, my);
        }
    }
    position.x = position.x + stepLength * tangent.x;
    position.y = position.y + stepLength * tangent.y;
    sampleWhileRunning(*this, position.x, position.y);
}

const Vec2f& Midpoint::next(int& statusOut) {
    advance();
    statusOut = status;
    return position;
}

const Vec2f& Midpoint::next(float& speedOut, int& statusOut) {
    advance();
    statusOut = status;
    speedOut = speed;
    return position;
}

// --- Adaptive integration ---------------------------------------------------------------------

AdaptiveIntegrator::AdaptiveIntegrator(float tolerance, float initialStep, float minStep,
                                       float maxStep, int direction)
    : FlicIntegrator(direction), t0(0.0f), t1(0.0f), t(0.0f), speed0(0.0f), speedInterp(0.0f),
      speedStep(0.0f), tolerance(tolerance), initialStep(initialStep), stepSize(initialStep),
      minStep(minStep), maxStep(maxStep), fallback(0) {
    Vec2f zero = {0.0f, 0.0f};
    p0 = p1 = d0 = d1 = m0 = m1 = zero;
    ca = cb = cc = cd = position = zero;
    diff1 = diff2 = diff3 = zero;
}

AdaptiveIntegrator::~AdaptiveIntegrator() {}

void AdaptiveIntegrator::init(const Vec2f& p, const Vec2f& v) {
    heading = v;
    p1 = p;
    position = p;
    d1.x = direction * v.x;
    d1.y = direction * v.y;
    t1 = 0.0f;
    t = 0.0f;
    stepSize = initialStep;
    status = 0;
    fallback = 0;
}

void AdaptiveIntegrator::init(const Vec2f& p, const Vec2f& v, float s) {
    init(p, v);
    speed = s;
}

FLIC_ALWAYS_INLINE Vec2f AdaptiveIntegrator::derivative(float x, float y) {
    if (!inside(*this, x, y)) longjmp(jumpBuffer, 1);
    Vec2f v = interpolate(*this, x, y);
    if (std::isnan(v.x) || std::isnan(v.y)) longjmp(jumpBuffer, 2);
    float s = sqrtf(v.x * v.x + v.y * v.y);
    speed = s;
    if (static_cast<double>(s) < 1e-10) longjmp(jumpBuffer, 2);
    float scale = scaleFor(*this, s);
    v.x = v.x * scale;
    v.y = v.y * scale;
    return v;
}

FLIC_ALWAYS_INLINE void AdaptiveIntegrator::endDerivative(const Vec2f& y1, Vec2f& dydx1) {
    if (!inside(*this, y1.x, y1.y)) longjmp(jumpBuffer, 1);
    dydx1 = interpolate(*this, y1.x, y1.y);
    if (std::isnan(dydx1.x) || std::isnan(dydx1.y)) {
        dydx1.x = dydx1.y = 0.0f;
        longjmp(jumpBuffer, 2);
    }
    float s = sqrtf(dydx1.x * dydx1.x + dydx1.y * dydx1.y);
    speed = s;
    if (static_cast<double>(s) < 1e-10) longjmp(jumpBuffer, 2);
    float scale = scaleFor(*this, s);
    dydx1.x = dydx1.x * scale;
    dydx1.y = dydx1.y * scale;
}

// The control law: absolute error measure, accept when tolerance / e >= 1 (NaN included), then
// double h up to maxStep; otherwise halve h, or end the line when h is already below minStep
// (or zero).
FLIC_ALWAYS_INLINE bool AdaptiveIntegrator::controlStep(const Vec2f& err, float& h, float& hdid) {
    int verdict = judgeStep(err, h, hdid);
    if (verdict < 0) longjmp(jumpBuffer, 3);
    return verdict > 0;
}

// The control law without the jump: 1 accepted, 0 to be retried with the halved h, -1 the
// line ends (h already below minStep).
FLIC_ALWAYS_INLINE int AdaptiveIntegrator::judgeStep(const Vec2f& err, float& h, float& hdid) {
    float e = (fabsf(err.y) + fabsf(err.x)) + 1e-10f;
    float ratio = tolerance / e;
    if (!(ratio < 1.0f)) {
        hdid = h;
        h = 2.0f * h;
        if (h > maxStep) h = maxStep;
        return 1;
    }
    // A step already halved to zero cannot shrink further: without a positive minStep it
    // would be retried forever, so it ends the line like a step below minStep.
    if (minStep > fabsf(h) || h == 0.0f) return -1;
    h = h * 0.5f;
    return 0;
}

// One Euler step along d1 from the current output point (the fallback mode).
void AdaptiveIntegrator::eulerStep() {
    position.x = position.x + stepLength * d1.x;
    position.y = position.y + stepLength * d1.y;
    if (status == 0) {
        int outcome = sampleField(*this, position.x, position.y, d1);
        if (outcome != SAMPLE_OK) status = outcome;
    }
}

// An ended line continues straight along d1.
FLIC_ALWAYS_INLINE void AdaptiveIntegrator::endStraight() {
    position.x = position.x + stepLength * d1.x;
    position.y = position.y + stepLength * d1.y;
}

// Takes accepted steps until the interval [t0, t1] covers t. Returns false when a step does not
// advance t1 (a zero, negative or vanishing step size), which would otherwise repeat forever; the
// caller then ends the line as for a step below the minimum.
FLIC_ALWAYS_INLINE bool AdaptiveIntegrator::integrateTo(bool trackSpeed) {
    float hdid = 0.0f;
    do {
        p0 = p1;
        d0 = d1;
        t0 = t1;
        if (trackSpeed) speed0 = speed;
        step(p0, d0, stepSize, hdid, p1, d1);
        if (orientation) heading = Vec2f{direction * d1.x, direction * d1.y};
        float advanced = t1 + hdid;
        if (!(advanced > t1)) return false;
        t1 = advanced;
    } while (t > t1);
    return true;
}

// The cubic Hermite curve over [t0, t1], the output point at t on it and the forward
// differences for the output spacing.
FLIC_ALWAYS_INLINE void AdaptiveIntegrator::buildCubic() {
    float dt = t1 - t0;
    float u = (t - t0) / dt;
    float delta = stepLength / dt;
    m0.x = d0.x * dt;
    m0.y = d0.y * dt;
    m1.x = d1.x * dt;
    m1.y = d1.y * dt;
    ca.x = ((2.0f * p0.x - 2.0f * p1.x) + m0.x) + m1.x;
    ca.y = ((2.0f * p0.y - 2.0f * p1.y) + m0.y) + m1.y;
    cb.x = ((-3.0f * p0.x + 3.0f * p1.x) - 2.0f * m0.x) - m1.x;
    cb.y = ((-3.0f * p0.y + 3.0f * p1.y) - 2.0f * m0.y) - m1.y;
    cc = m0;
    cd = p0;
    position.x = ((ca.x * u + cb.x) * u + cc.x) * u + cd.x;
    position.y = ((ca.y * u + cb.y) * u + cc.y) * u + cd.y;
    float d2 = delta * delta;
    float d3 = d2 * delta;
    float ca3x = 3.0f * ca.x, ca3y = 3.0f * ca.y;
    diff1.x =
        ca.x * d3 + (cb.x + ca3x * u) * d2 + ((ca3x * u) * u + (2.0f * cb.x) * u + cc.x) * delta;
    diff1.y =
        ca.y * d3 + (cb.y + ca3y * u) * d2 + ((ca3y * u) * u + (2.0f * cb.y) * u + cc.y) * delta;
    diff2.x = 2.0f * (cb.x + ca3x * u) * d2 + (6.0f * ca.x) * d3;
    diff2.y = 2.0f * (cb.y + ca3y * u) * d2 + (6.0f * ca.y) * d3;
    diff3.x = (6.0f * ca.x) * d3;
    diff3.y = (6.0f * ca.y) * d3;
}

// Outcomes of starting a new interval, telling `next` what to report.
enum IntervalOutcome { INTERVAL_BUILT, INTERVAL_FALLBACK, INTERVAL_ENDED };

// Integrates until the new output point at t is covered and builds the cubic there, or handles
// a stepper's jump. Kept out of line so that the forward-differencing path of `next` stays free
// of the register saving a function calling setjmp needs. The jump target is set here, right
// before the integration loop: every longjmp unwinds only the frames of the steppers called
// from this function within the same `next` call, none of which holds an object with a
// destructor.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
int AdaptiveIntegrator::newInterval(bool trackSpeed) {
    int code = setjmp(jumpBuffer);
    if (code == 1 || code == 2) {
        fallback = 1;
        eulerStep();
        return INTERVAL_FALLBACK;
    }
    if (code != 0 || !integrateTo(trackSpeed)) {
        endStraight();
        status = 1;
        return INTERVAL_ENDED;
    }
    buildCubic();
    if (trackSpeed) {
        float dt = t1 - t0;
        float u = (t - t0) / dt;
        float delta = stepLength / dt;
        speedInterp = speed0 + (speed - speed0) * u;
        speedStep = (speed - speed0) * delta;
    }
    return INTERVAL_BUILT;
}

const Vec2f& AdaptiveIntegrator::next(int& statusOut) {
    return nextPoint(statusOut);
}

// next(int&) for every case but a point on the current cubic.
const Vec2f& AdaptiveIntegrator::nextOutOfLine(int& statusOut) {
    if (pointOffCubic(statusOut)) return position;
    int outcome = newInterval(false);
    statusOut = outcome == INTERVAL_FALLBACK ? status : outcome == INTERVAL_ENDED ? 1 : 0;
    return position;
}

int AdaptiveIntegrator::pointOffCubic(int& statusOut) {
    if (status != 0) {
        endStraight();
        statusOut = 1;
        return 1;
    }
    if (fallback != 0) {
        eulerStep();
        statusOut = status;
        return 1;
    }
    t = t + stepLength;
    if (t > t1) {
        p0 = p1;
        d0 = d1;
        t0 = t1;
        return 0;
    }
    forwardDifferenceStep(position, diff1, diff2, diff3);
    statusOut = 0;
    return 1;
}

// --- Driven from outside --------------------------------------------------------------------

// next(int&) up to its first trial step (see newInterval and integrateTo for the same steps).
int AdaptiveIntegrator::beginPoint(int& statusOut) {
    if (pointOnCubic(statusOut)) return 1;
    return pointOffCubic(statusOut);
}

// The rest of newInterval after one trial step: fallback, step control, the next trial or the
// cubic.
int AdaptiveIntegrator::continuePoint(int code, const Vec2f& err, int& statusOut) {
    if (code == 1 || code == 2) {
        fallback = 1;
        eulerStep();
        statusOut = status;
        return 1;
    }
    float hdid = 0.0f;
    int verdict = code == 0 ? judgeStep(err, stepSize, hdid) : -1;
    if (verdict == 0) return 0; // the same trial again with half the size
    float advanced = t1 + hdid;
    if (verdict > 0 && orientation) heading = Vec2f{direction * d1.x, direction * d1.y};
    if (verdict < 0 || !(advanced > t1)) {
        endStraight();
        status = 1;
        statusOut = 1;
        return 1;
    }
    t1 = advanced;
    if (t > t1) {
        p0 = p1;
        d0 = d1;
        t0 = t1;
        return 0;
    }
    buildCubic();
    statusOut = 0;
    return 1;
}

int AdaptiveIntegrator::trialInPlace(Vec2f&) {
    return -1;
}

const Vec2f& AdaptiveIntegrator::next(float& speedOut, int& statusOut) {
    if (status != 0) {
        endStraight();
        statusOut = 1;
        return position;
    }
    if (fallback != 0) {
        eulerStep();
        statusOut = status;
        speedOut = speed;
        return position;
    }
    t = t + stepLength;
    if (t > t1) {
        int outcome = newInterval(true);
        if (outcome == INTERVAL_FALLBACK) {
            statusOut = status;
            speedOut = speed;
        } else if (outcome == INTERVAL_ENDED) {
            statusOut = 1;
        } else {
            statusOut = 0;
            speedOut = speedInterp;
        }
        return position;
    }
    forwardDifferenceStep(position, diff1, diff2, diff3);
    speedInterp = speedInterp + speedStep;
    statusOut = 0;
    speedOut = speedInterp;
    return position;
}

// --- Runge-Kutta steppers ---------------------------------------------------------------------

RK43::RK43(float tolerance, float initialStep, float minStep, float maxStep, int direction)
    : AdaptiveIntegrator(tolerance, initialStep, minStep, maxStep, direction) {}
RK43::~RK43() {}

FlicIntegrator* RK43::clone() const {
    return new (std::nothrow) RK43(*this);
}

bool RK43::hasInlineNext() const {
    return true;
}

void RK43::rkstep(const Vec2f& y0, const Vec2f& dydx0, float h, Vec2f& y1, Vec2f& dydx1,
                  Vec2f& err) {
    const Vec2f& k1 = dydx0;
    float hh = h * 0.5f;
    Vec2f k2 = derivative(y0.x + hh * k1.x, y0.y + hh * k1.y);
    Vec2f k3 = derivative(y0.x + hh * k2.x, y0.y + hh * k2.y);
    Vec2f k4 = derivative(y0.x + h * k3.x, y0.y + h * k3.y);
    y1.x = y0.x + ((k4.x + k1.x) / 6.0f + (k2.x + k3.x) / 3.0f) * h;
    y1.y = y0.y + ((k4.y + k1.y) / 6.0f + (k2.y + k3.y) / 3.0f) * h;
    endDerivative(y1, dydx1);
    err.x = ((k4.x - dydx1.x) * h) / 6.0f;
    err.y = ((k4.y - dydx1.y) * h) / 6.0f;
}

// One trial from p0 into p1 and d1, as step takes it; a failure's jump lands here.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
int RK43::trialInPlace(Vec2f& err) {
    int code = setjmp(jumpBuffer);
    if (code != 0) return code;
    rkstep(p0, d0, stepSize, p1, d1, err);
    return 0;
}

void RK43::step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
                Vec2f& dydx1) {
    Vec2f err;
    do {
        rkstep(y0, dydx0, h, y1, dydx1, err);
    } while (!controlStep(err, h, hdid));
}

namespace {

// Dormand-Prince 5(4) tableau, each fraction a single-precision quotient.
const float DP_A21 = 1.0f / 5.0f;
const float DP_A31 = 3.0f / 40.0f, DP_A32 = 9.0f / 40.0f;
const float DP_A41 = 44.0f / 45.0f, DP_A42 = -(56.0f / 15.0f), DP_A43 = 32.0f / 9.0f;
const float DP_A51 = 19372.0f / 6561.0f, DP_A52 = -(25360.0f / 2187.0f),
            DP_A53 = 64448.0f / 6561.0f, DP_A54 = -(212.0f / 729.0f);
const float DP_A61 = 9017.0f / 3168.0f, DP_A62 = -(355.0f / 33.0f), DP_A63 = 46732.0f / 5247.0f,
            DP_A64 = 49.0f / 176.0f, DP_A65 = -(5103.0f / 18656.0f);
const float DP_B1 = 35.0f / 384.0f, DP_B3 = 500.0f / 1113.0f, DP_B4 = 125.0f / 192.0f,
            DP_B5 = -(2187.0f / 6784.0f), DP_B6 = 11.0f / 84.0f;
const float DP_E1 = 35.0f / 384.0f - 5179.0f / 57600.0f;
const float DP_E3 = 500.0f / 1113.0f - 7571.0f / 16695.0f;
const float DP_E4 = 125.0f / 192.0f - 393.0f / 640.0f;
const float DP_E5 = -(2187.0f / 6784.0f) + 92097.0f / 339200.0f;
const float DP_E6 = 11.0f / 84.0f - 187.0f / 2100.0f;
const float DP_E7 = -(1.0f / 40.0f);

// Cash-Karp 5(4) tableau.
const float CK_A21 = 1.0f / 5.0f;
const float CK_A31 = 3.0f / 40.0f, CK_A32 = 9.0f / 40.0f;
const float CK_A41 = 3.0f / 10.0f, CK_A42 = -(9.0f / 10.0f), CK_A43 = 6.0f / 5.0f;
const float CK_A51 = -(11.0f / 54.0f), CK_A52 = 5.0f / 2.0f, CK_A53 = -(70.0f / 27.0f),
            CK_A54 = 35.0f / 27.0f;
const float CK_A61 = 1631.0f / 55296.0f, CK_A62 = 175.0f / 512.0f, CK_A63 = 575.0f / 13824.0f,
            CK_A64 = 44275.0f / 110592.0f, CK_A65 = 253.0f / 4096.0f;
const float CK_B1 = 37.0f / 378.0f, CK_B3 = 250.0f / 621.0f, CK_B4 = 125.0f / 594.0f,
            CK_B6 = 512.0f / 1771.0f;
const float CK_E1 = 37.0f / 378.0f - 2825.0f / 27648.0f;
const float CK_E3 = 250.0f / 621.0f - 18575.0f / 48384.0f;
const float CK_E4 = 125.0f / 594.0f - 13525.0f / 55296.0f;
const float CK_E5 = -(277.0f / 14336.0f);
const float CK_E6 = 512.0f / 1771.0f - 1.0f / 4.0f;

} // namespace

RKDP::RKDP(float tolerance, float initialStep, float minStep, float maxStep, int direction)
    : AdaptiveIntegrator(tolerance, initialStep, minStep, maxStep, direction) {}
RKDP::~RKDP() {}

FlicIntegrator* RKDP::clone() const {
    return new (std::nothrow) RKDP(*this);
}

bool RKDP::hasInlineNext() const {
    return true;
}

void RKDP::rkdp(const Vec2f& y0, const Vec2f& dydx0, float h, Vec2f& y1, Vec2f& dydx1, Vec2f& err) {
    const Vec2f& k1 = dydx0;
    Vec2f k2 = derivative(y0.x + h * (DP_A21 * k1.x), y0.y + h * (DP_A21 * k1.y));
    Vec2f k3 = derivative(y0.x + h * (DP_A31 * k1.x + DP_A32 * k2.x),
                          y0.y + h * (DP_A31 * k1.y + DP_A32 * k2.y));
    Vec2f k4 = derivative(y0.x + h * (DP_A41 * k1.x + DP_A42 * k2.x + DP_A43 * k3.x),
                          y0.y + h * (DP_A41 * k1.y + DP_A42 * k2.y + DP_A43 * k3.y));
    Vec2f k5 =
        derivative(y0.x + h * (DP_A51 * k1.x + DP_A52 * k2.x + DP_A53 * k3.x + DP_A54 * k4.x),
                   y0.y + h * (DP_A51 * k1.y + DP_A52 * k2.y + DP_A53 * k3.y + DP_A54 * k4.y));
    Vec2f k6 = derivative(
        y0.x + h * (DP_A61 * k1.x + DP_A62 * k2.x + DP_A63 * k3.x + DP_A64 * k4.x + DP_A65 * k5.x),
        y0.y + h * (DP_A61 * k1.y + DP_A62 * k2.y + DP_A63 * k3.y + DP_A64 * k4.y + DP_A65 * k5.y));
    y1.x = y0.x + h * (DP_B1 * k1.x + DP_B3 * k3.x + DP_B4 * k4.x + DP_B5 * k5.x + DP_B6 * k6.x);
    y1.y = y0.y + h * (DP_B1 * k1.y + DP_B3 * k3.y + DP_B4 * k4.y + DP_B5 * k5.y + DP_B6 * k6.y);
    endDerivative(y1, dydx1);
    const Vec2f& k7 = dydx1;
    err.x = h * (DP_E1 * k1.x + DP_E3 * k3.x + DP_E4 * k4.x + DP_E5 * k5.x + DP_E6 * k6.x +
                 DP_E7 * k7.x);
    err.y = h * (DP_E1 * k1.y + DP_E3 * k3.y + DP_E4 * k4.y + DP_E5 * k5.y + DP_E6 * k6.y +
                 DP_E7 * k7.y);
}

void RKDP::step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
                Vec2f& dydx1) {
    Vec2f err;
    do {
        rkdp(y0, dydx0, h, y1, dydx1, err);
    } while (!controlStep(err, h, hdid));
}

RKCK::RKCK(float tolerance, float initialStep, float minStep, float maxStep, int direction)
    : AdaptiveIntegrator(tolerance, initialStep, minStep, maxStep, direction) {}
RKCK::~RKCK() {}

FlicIntegrator* RKCK::clone() const {
    return new (std::nothrow) RKCK(*this);
}

bool RKCK::hasInlineNext() const {
    return true;
}

void RKCK::rkck(const Vec2f& y0, const Vec2f& dydx0, float h, Vec2f& y1, Vec2f& err) {
    const Vec2f& k1 = dydx0;
    Vec2f k2 = derivative(y0.x + h * (CK_A21 * k1.x), y0.y + h * (CK_A21 * k1.y));
    Vec2f k3 = derivative(y0.x + h * (CK_A31 * k1.x + CK_A32 * k2.x),
                          y0.y + h * (CK_A31 * k1.y + CK_A32 * k2.y));
    Vec2f k4 = derivative(y0.x + h * (CK_A41 * k1.x + CK_A42 * k2.x + CK_A43 * k3.x),
                          y0.y + h * (CK_A41 * k1.y + CK_A42 * k2.y + CK_A43 * k3.y));
    Vec2f k5 =
        derivative(y0.x + h * (CK_A51 * k1.x + CK_A52 * k2.x + CK_A53 * k3.x + CK_A54 * k4.x),
                   y0.y + h * (CK_A51 * k1.y + CK_A52 * k2.y + CK_A53 * k3.y + CK_A54 * k4.y));
    Vec2f k6 = derivative(
        y0.x + h * (CK_A61 * k1.x + CK_A62 * k2.x + CK_A63 * k3.x + CK_A64 * k4.x + CK_A65 * k5.x),
        y0.y + h * (CK_A61 * k1.y + CK_A62 * k2.y + CK_A63 * k3.y + CK_A64 * k4.y + CK_A65 * k5.y));
    y1.x = y0.x + h * (CK_B1 * k1.x + CK_B3 * k3.x + CK_B4 * k4.x + CK_B6 * k6.x);
    y1.y = y0.y + h * (CK_B1 * k1.y + CK_B3 * k3.y + CK_B4 * k4.y + CK_B6 * k6.y);
    err.x = h * (CK_E1 * k1.x + CK_E3 * k3.x + CK_E4 * k4.x + CK_E5 * k5.x + CK_E6 * k6.x);
    err.y = h * (CK_E1 * k1.y + CK_E3 * k3.y + CK_E4 * k4.y + CK_E5 * k5.y + CK_E6 * k6.y);
}

void RKCK::step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
                Vec2f& dydx1) {
    Vec2f err;
    do {
        rkck(y0, dydx0, h, y1, err);
    } while (!controlStep(err, h, hdid));
    endDerivative(y1, dydx1);
}
