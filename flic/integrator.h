// Field-line integrators: trace a line through a FlicVectorField one output point per call of
// `next`, at equal arc-length spacing `stepLength` (grid units).
//
//   FlicIntegrator (abstract)
//     FixedIntegrator (abstract) -> Euler, Midpoint
//     AdaptiveIntegrator (abstract) -> RK43, RKDP, RKCK
//
// Status of a line: 0 running, 1 left the domain, 2 critical point or invalid field value. A
// non-zero status is final until the next `init`; later calls still return points, continuing
// the line straight along its last tangent.
#ifndef MUSKEIP_INTEGRATOR_H
#define MUSKEIP_INTEGRATOR_H

#include "api.h"

#include "vectorfield.h"

#include <csetjmp>

class MUSKEIP_API FlicIntegrator {
  public:
    float stepLength;    // arc length advanced by each `next`, in grid units (set by the owner)
    int status;          // 0 running, 1 left the domain, 2 critical point / invalid value
    float direction;     // +1 follows the field, -1 runs against it
    int width;           // columns of the bound field
    int height;          // rows of the bound field
    float xMax;          // largest admissible x: width - 1.001
    float yMax;          // largest admissible y: height - 1.001
    Vec2f* field;        // the bound field's values, row-major; not owned
    float speed;         // field magnitude at the most recent sample (before scaling)
    float normalization; // vectors slower than this are divided by it instead of their length
    // Orientation fields (1): the sign of the field's vectors is ignored. Each sample flips the
    // cell's corner vectors to agree with `heading`, the field direction the line follows
    // (set by init, and by every accepted sample or step), before interpolating them.
    int orientation;
    Vec2f heading;

    virtual ~FlicIntegrator();
    // Starts a line at point p with the (already scaled) field direction v at p.
    virtual void init(const Vec2f& p, const Vec2f& v) = 0;
    // Advances one step; reports the status; returns the new point (valid until the next call).
    virtual const Vec2f& next(int& statusOut) = 0;
    // As init(p, v), also setting `speed` to s.
    virtual void init(const Vec2f& p, const Vec2f& v, float s) = 0;
    // As next(status), also reporting a speed for the new point.
    virtual const Vec2f& next(float& speedOut, int& statusOut) = 0;

    // Binds the integrator to a field of width x height values (not copied, not owned) and
    // derives the admissible domain [0, xMax] x [0, yMax].
    void setField(int width, int height, Vec2f* field);

    // A new integrator of the same kind and state (bound to the same field), for engines that
    // trace lines on several threads at once; null when the kind cannot be copied (the
    // default for integrator classes of other libraries) or without memory.
    virtual FlicIntegrator* clone() const;
    // True when next(int&) is AdaptiveIntegrator's own, so that the engine may call its inline
    // body and take runs of points in bulk. A class that overrides next(int&) must say false.
    virtual bool hasInlineNext() const;

  protected:
    // Direction +1 or -1; normalization and speed 0; no field bound (every point is outside).
    explicit FlicIntegrator(int direction);
};

// Common state of the fixed-step methods.
class MUSKEIP_API FixedIntegrator : public FlicIntegrator {
  public:
    Vec2f position; // the current point; `next` returns a reference to it
    Vec2f tangent;  // scaled field vector with which the next step is taken

    ~FixedIntegrator() override;
    // position = p, tangent = direction * v, status = 0.
    void init(const Vec2f& p, const Vec2f& v) override;
    // As above, and speed = s.
    void init(const Vec2f& p, const Vec2f& v, float s) override;

  protected:
    explicit FixedIntegrator(int direction);
};

// Explicit Euler: one field sample per step, taken at the end of the step.
class MUSKEIP_API Euler : public FixedIntegrator {
  public:
    explicit Euler(int direction);
    ~Euler() override;
    FlicIntegrator* clone() const override;
    const Vec2f& next(int& statusOut) override;
    const Vec2f& next(float& speedOut, int& statusOut) override;

  private:
    void advance();
};

// Midpoint method: samples the field half a step ahead, then at the end of the step.
class MUSKEIP_API Midpoint : public FixedIntegrator {
  public:
    explicit Midpoint(int direction);
    ~Midpoint() override;
    FlicIntegrator* clone() const override;
    const Vec2f& next(int& statusOut) override;
    const Vec2f& next(float& speedOut, int& statusOut) override;

  private:
    void advance();
};

// Embedded Runge-Kutta integration with adaptive internal steps and equally spaced output
// points on the cubic Hermite curve of the last accepted step (forward differencing).
// Failures inside a step are signalled by longjmp to `jumpBuffer` (set only by `next`):
// 1 a point outside the domain, 2 invalid field data, 3 a rejected step below minStep.
class MUSKEIP_API AdaptiveIntegrator : public FlicIntegrator {
  public:
    Vec2f p0, p1;              // ends of the last accepted step
    Vec2f d0, d1;              // scaled field vectors at p0 and p1
    Vec2f m0, m1;              // Hermite tangents: d0, d1 times the step's length
    float t0, t1;              // arc-length parameters of p0 and p1
    float t;                   // arc-length parameter of the current output point
    float speed0;              // speed at p0
    float speedInterp;         // speed interpolated at the current output point
    float speedStep;           // change of speedInterp per output point
    Vec2f ca, cb, cc, cd;      // output cubic ((ca u + cb) u + cc) u + cd, u in [0, 1]
    Vec2f position;            // the current output point
    Vec2f diff1, diff2, diff3; // forward differences of the cubic for the output spacing
    float tolerance;           // bound on the error estimate of one step
    float initialStep;         // trial step size at the start of every line
    float stepSize;            // current trial step size
    float minStep;             // a rejected step smaller than this ends the line
    float maxStep;             // upper bound of the step size
    int fallback;              // 1 once the line continues with Euler steps
    jmp_buf jumpBuffer;        // jump target of the steppers, set by `next`

    ~AdaptiveIntegrator() override;
    // p1 = position = p, d1 = direction * v, t = t1 = 0, stepSize = initialStep, status and
    // fallback 0.
    void init(const Vec2f& p, const Vec2f& v) override;
    // As above, and speed = s.
    void init(const Vec2f& p, const Vec2f& v, float s) override;
    // One output point; the reported status is 1 on every call after the line has ended.
    const Vec2f& next(int& statusOut) override;
    // The body of next(int&), inline for callers that know the dynamic type: points on the
    // current cubic cost six additions; everything else goes out of line.
    const Vec2f& nextPoint(int& statusOut) {
        if (pointOnCubic(statusOut)) return position;
        return nextOutOfLine(statusOut);
    }
    // Up to `count` further points of a running line that lie on the current cubic, written to
    // out[0], out[stride], ...: each the point next(int&) would return, with status 0. Stops
    // at the first point that needs integration. Returns how many points were written.
    int pointsOnCubic(Vec2f* out, long stride, int count) {
        if (status != 0 || fallback != 0) return 0;
        float at = t;
        Vec2f p = position, first = diff1, second = diff2;
        const Vec2f third = diff3;
        int made = 0;
        for (; made < count; made++) {
            float ahead = at + stepLength;
            if (ahead > t1) break;
            at = ahead;
            forwardDifferenceStep(p, first, second, third);
            out[made * stride] = p;
        }
        t = at;
        position = p;
        diff1 = first;
        diff2 = second;
        return made;
    }
    // Driving next(int&) from outside, for tracers that compute the trial steps of several
    // lines at once. beginPoint does what next(int&) does up to the first trial step it needs:
    // it returns 1 with the point made (position, status in statusOut), or 0 when a trial step
    // of size stepSize from p0 (field vector d0, heading) must be computed. The caller then
    // writes what the trial left behind (p1 = its end point once computed, d1 = the end
    // point's vector once sampled, speed) and calls continuePoint with the trial's failure code
    // (0 none, 1 a point outside the domain, 2 invalid field data) and error estimate; it
    // returns 1 or 0 in the same way. The points and states are those of next(int&).
    int beginPoint(int& statusOut);
    int continuePoint(int code, const Vec2f& err, int& statusOut);
    // The trial step beginPoint or continuePoint asked for, computed by this integrator's own
    // stepper, leaving p1, d1 and speed as described there. Returns the failure code, or -1
    // when the kind has no single trial step of its own (the default).
    virtual int trialInPlace(Vec2f& err);
    // The same with the speed linearly interpolated along the step.
    const Vec2f& next(float& speedOut, int& statusOut) override;
    // From y0 with scaled field vector dydx0, takes one accepted step with trial size h (in/out):
    // y1 and dydx1 the new point and its scaled field vector, hdid the accepted size, h the
    // proposal for the next step. Does not return on failure (jumps with code 1, 2 or 3).
    virtual void step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
                      Vec2f& dydx1) = 0;

  protected:
    AdaptiveIntegrator(float tolerance, float initialStep, float minStep, float maxStep,
                       int direction);

    // Scaled field vector at (x, y); jumps with code 1 outside the domain, 2 on invalid data.
    Vec2f derivative(float x, float y);
    // The same for the end point of a step, written into dydx1 with the end-point rules: the
    // unscaled vector first, (0, 0) when a component is NaN.
    void endDerivative(const Vec2f& y1, Vec2f& dydx1);
    // Step-size control after one trial step with error vector err: returns true when the step
    // is accepted (hdid, h updated); else halves h or jumps with code 3.
    bool controlStep(const Vec2f& err, float& h, float& hdid);
    int judgeStep(const Vec2f& err, float& h, float& hdid);

  private:
    void eulerStep();
    void endStraight();
    bool integrateTo(bool trackSpeed);
    void buildCubic();
    int newInterval(bool trackSpeed);
    // One output point further on a cubic by forward differences: p += d1, d1 += d2, d2 += d3.
    static void forwardDifferenceStep(Vec2f& p, Vec2f& d1, Vec2f& d2, const Vec2f& d3) {
        p.x = p.x + d1.x;
        p.y = p.y + d1.y;
        d1.x = d1.x + d2.x;
        d1.y = d1.y + d2.y;
        d2.x = d2.x + d3.x;
        d2.y = d2.y + d3.y;
    }
    const Vec2f& nextOutOfLine(int& statusOut);
    // The next point of a running line when it lies on the current cubic (status 0); false,
    // with nothing changed, when it does not.
    bool pointOnCubic(int& statusOut) {
        if (status != 0 || fallback != 0) return false;
        float ahead = t + stepLength;
        if (ahead > t1) return false;
        t = ahead;
        forwardDifferenceStep(position, diff1, diff2, diff3);
        statusOut = 0;
        return true;
    }
    // The rest of next(int&) up to the integration: an ended line goes straight on, a line in
    // fallback takes an Euler step, a point still on the cubic is taken (1, status in
    // statusOut); otherwise t is advanced and the next step starts from p1 (0).
    int pointOffCubic(int& statusOut);
};

// Classical fourth-order Runge-Kutta with an embedded third-order error estimate.
class MUSKEIP_API RK43 : public AdaptiveIntegrator {
  public:
    RK43(float tolerance, float initialStep, float minStep, float maxStep, int direction);
    ~RK43() override;
    FlicIntegrator* clone() const override;
    bool hasInlineNext() const override;
    void step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
              Vec2f& dydx1) override;
    // One step of size h: y1, its scaled field vector dydx1 and the error estimate err.
    void rkstep(const Vec2f& y0, const Vec2f& dydx0, float h, Vec2f& y1, Vec2f& dydx1, Vec2f& err);
    int trialInPlace(Vec2f& err) override;
};

// Dormand-Prince 5(4) pair; the fifth-order solution is carried forward.
class MUSKEIP_API RKDP : public AdaptiveIntegrator {
  public:
    RKDP(float tolerance, float initialStep, float minStep, float maxStep, int direction);
    ~RKDP() override;
    FlicIntegrator* clone() const override;
    bool hasInlineNext() const override;
    void step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
              Vec2f& dydx1) override;
    void rkdp(const Vec2f& y0, const Vec2f& dydx0, float h, Vec2f& y1, Vec2f& dydx1, Vec2f& err);
};

// Cash-Karp 5(4) pair; the end point is tested and sampled only after acceptance.
class MUSKEIP_API RKCK : public AdaptiveIntegrator {
  public:
    RKCK(float tolerance, float initialStep, float minStep, float maxStep, int direction);
    ~RKCK() override;
    FlicIntegrator* clone() const override;
    bool hasInlineNext() const override;
    void step(const Vec2f& y0, const Vec2f& dydx0, float& h, float& hdid, Vec2f& y1,
              Vec2f& dydx1) override;
    void rkck(const Vec2f& y0, const Vec2f& dydx0, float h, Vec2f& y1, Vec2f& err);
};

#endif
