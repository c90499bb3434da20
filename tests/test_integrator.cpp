// Field-line integrators: fixed-step Euler and midpoint, adaptive RK43, RKDP and RKCK.
#include "integrator.h"
#include "lic_reference.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <memory>
#include <ostream>
#include <tuple>
#include <vector>

using testutil::rotationField;
using testutil::uniformField;

namespace {

const float NaN = std::numeric_limits<float>::quiet_NaN();
// Kinds of reference::makeIntegrator (the adaptive ones with the engine's settings).
const int kRK43 = 0, kMidpoint = 1, kRKDP = 3, kRKCK = 4, kEuler = 5;

// One result of next: the point, the status and the speed reported.
struct Point {
    float x, y;
    int status;
    float speed;
    bool operator==(const Point& o) const {
        return std::tie(x, y, status, speed) == std::tie(o.x, o.y, o.status, o.speed);
    }
    friend std::ostream& operator<<(std::ostream& out, const Point& p) {
        return out << "(" << p.x << ", " << p.y << ", status " << p.status << ", " << p.speed
                   << ")";
    }
};
using Points = std::vector<Point>;

void bind(FlicIntegrator& in, FlicVectorField& field, float stepLength) {
    in.setField(field.width, field.height, field.vectors());
    in.stepLength = stepLength;
}

std::unique_ptr<FlicIntegrator> make(int kind, int direction = 1) {
    return std::unique_ptr<FlicIntegrator>(reference::makeIntegrator(kind, direction));
}

AdaptiveIntegrator& adaptive(const std::unique_ptr<FlicIntegrator>& in) {
    return static_cast<AdaptiveIntegrator&>(*in);
}

// Binds `in`, starts a line at p with v (and the speed s unless negative) and returns `count`
// results of next(speed, status), or of next(status) when !withSpeed; the speed variable is -1
// before every call.
Points trace(FlicIntegrator& in, FlicVectorField& field, float h, Vec2f p, Vec2f v, int count,
             bool withSpeed = true, float s = -1) {
    bind(in, field, h);
    s < 0 ? in.init(p, v) : in.init(p, v, s);
    Points points;
    for (int i = 0; i < count; i++) {
        float speed = -1;
        int status = -1;
        const Vec2f& q = withSpeed ? in.next(speed, status) : in.next(status);
        points.push_back({q.x, q.y, status, speed});
    }
    return points;
}

} // namespace

TEST(Integrator, ConstructionAndBinding) {
    Euler euler(-1);
    EXPECT_EQ(std::tie(euler.direction, euler.normalization, euler.speed),
              std::make_tuple(-1.0f, 0.0f, 0.0f));
    EXPECT_EQ(RKCK(0.01f, 2.0f, 0.25f, 9.0f, 1).speed, 0.0f);
    FlicVectorField field = uniformField(7, 5, 1, 0);
    euler.setField(7, 5, field.vectors());
    EXPECT_EQ(std::tie(euler.xMax, euler.yMax), std::make_tuple(7.0f - 1.001f, 5.0f - 1.001f));
    // Near 2^24, width - 1.001 rounds to width - 1; the bound is lowered below it.
    euler.setField(1 << 24, 2, field.vectors());
    EXPECT_LT(static_cast<int>(euler.xMax), (1 << 24) - 1);
    // An unbound integrator has an empty domain: the first step leaves it.
    Midpoint unbound(1);
    unbound.init(Vec2f{0, 0}, Vec2f{1, 0});
    int status = -1;
    unbound.next(status);
    EXPECT_EQ(status, 1);
}

TEST(Integrator, StraightLinesOnUniformFieldsBothWays) {
    // |(3, 4)| = 5: each step moves stepLength along (0.6, 0.8) times the direction (up to
    // float rounding); the fixed-step methods report the sampled speed.
    FlicVectorField field = uniformField(80, 80, 3, 4);
    for (int kind : {kEuler, kMidpoint, kRK43, kRKDP, kRKCK})
        for (int direction : {1, -1}) {
            auto in = make(kind, direction);
            Points points = trace(*in, field, 0.75f, Vec2f{40, 40}, Vec2f{0.6f, 0.8f}, 40);
            for (int i = 1; i <= 40; i++) {
                const Point& p = points[i - 1];
                ASSERT_EQ(p.status, 0) << kind;
                EXPECT_NEAR(p.x, 40.0f + 0.6f * direction * 0.75f * i, 2e-4f) << kind;
                EXPECT_NEAR(p.y, 40.0f + 0.8f * direction * 0.75f * i, 2e-4f) << kind;
                EXPECT_TRUE((kind != kEuler && kind != kMidpoint) || p.speed == 5.0f) << kind;
            }
        }
}

TEST(Integrator, NormalizationKeepsSlowVectorsRelativeLength) {
    FlicVectorField field = uniformField(40, 40, 0.3f, 0.4f); // magnitude 0.5
    Euler euler(1);
    euler.normalization = 2.0f;
    Points points = trace(euler, field, 1.0f, Vec2f{5, 5}, Vec2f{1, 0}, 2);
    EXPECT_EQ(std::tie(euler.tangent.x, euler.tangent.y),
              std::make_tuple(0.3f * (1.0f / 2.0f), 0.4f * (1.0f / 2.0f)));
    EXPECT_EQ(points[1].x, 6.0f + 0.15f);
    euler.normalization = 0.25f; // faster than the threshold: unit length again
    int status;
    euler.next(status);
    EXPECT_FLOAT_EQ(std::hypot(euler.tangent.x, euler.tangent.y), 1.0f);
}

TEST(Integrator, FixedStepStatusAtBorderAndCriticalPoints) {
    Euler euler(1);
    // x = xMax is inside, x = width - 1 outside; one column wide, xMax < 0: every line leaves.
    FlicVectorField up = uniformField(4, 6, 0, 1), thin = uniformField(1, 6, 0, 1);
    EXPECT_EQ(trace(euler, up, 1, Vec2f{4 - 1.001f, 0}, Vec2f{0, 1}, 1),
              (Points{{4 - 1.001f, 1, 0, 1}}));
    EXPECT_EQ(trace(euler, up, 1, Vec2f{3, 0}, Vec2f{0, 1}, 1)[0].status, 1);
    EXPECT_EQ(trace(euler, thin, 1, Vec2f{0, 0}, Vec2f{0, 1}, 1)[0].status, 1);
    // Leaving the domain: status 1, the speed is the one sampled before, the line goes on.
    FlicVectorField flow = uniformField(8, 8, 2, 0);
    EXPECT_EQ(trace(euler, flow, 1, Vec2f{5.5f, 3}, Vec2f{1, 0}, 4),
              (Points{{6.5f, 3, 0, 2}, {7.5f, 3, 1, 2}, {8.5f, 3, 1, 2}, {9.5f, 3, 1, 2}}));
    // Zero corners from x = 6: status 2 with the rejected magnitude; the line goes on straight.
    FlicVectorField stop = testutil::makeField(12, 4, [](float x, float) {
        return Vec2f{x < 6 ? 1.0f : 0.0f, 0};
    });
    EXPECT_EQ(trace(euler, stop, 1, Vec2f{4.25f, 1.5f}, Vec2f{1, 0}, 3),
              (Points{{5.25f, 1.5f, 0, 0.75f}, {6.25f, 1.5f, 2, 0}, {7.25f, 1.5f, 2, 0}}));
    EXPECT_EQ(euler.tangent.x, 1.0f);
    // NaN data: status 2 with a NaN magnitude; cell (3, 4) has the NaN node as a corner.
    FlicVectorField bad = uniformField(8, 8, 1, 0);
    bad.vectors()[4 * 8 + 4].x = NaN;
    Points points = trace(euler, bad, 1, Vec2f{2.5f, 4.5f}, Vec2f{1, 0}, 2);
    EXPECT_TRUE(std::isnan(points[0].speed) && std::isnan(points[1].speed));
    EXPECT_EQ(std::tie(points[0].status, points[1].status, points[1].x),
              std::make_tuple(2, 2, 4.5f));
}

TEST(Integrator, MidpointStepAndMidpointOutsideDomain) {
    // Rotation: the tangent at the midpoint (26, 17) is (-1, 10) normalized.
    FlicVectorField rot = rotationField(32, 16);
    Midpoint mid(1);
    Point p = trace(mid, rot, 2.0f, Vec2f{26, 16}, Vec2f{0, 1}, 1)[0];
    float s = 1.0f / sqrtf(1.0f * 1.0f + 10.0f * 10.0f);
    EXPECT_EQ(std::tie(p.x, p.y, p.status),
              std::make_tuple(26.0f + 2.0f * (-1.0f * s), 16.0f + 2.0f * (10.0f * s), 0));
    // The end point was sampled for the next call.
    float ex = -(p.y - 16.0f), ey = p.x - 16.0f, es = sqrtf(ex * ex + ey * ey);
    EXPECT_NEAR(mid.tangent.x, ex / es, 1e-6f);
    EXPECT_NEAR(mid.tangent.y, ey / es, 1e-6f);
    EXPECT_NEAR(p.speed, es, 1e-4f);
    // A midpoint beyond yMax (5.5 + 1.6 = 7.1): status 1, the full step is still taken with
    // the previous tangent, the end point is not sampled and the speed is left alone.
    FlicVectorField flow = uniformField(8, 8, 0, 3);
    mid.speed = 42.0f;
    float x = 3.0f + 4.0f * 0.6f, y = 5.5f + 4.0f * 0.8f;
    EXPECT_EQ(trace(mid, flow, 4, Vec2f{3, 5.5f}, Vec2f{0.6f, 0.8f}, 2),
              (Points{{x, y, 1, 42}, {x + 4.0f * 0.6f, y + 4.0f * 0.8f, 1, 42}}));
}

TEST(Integrator, AdaptiveStepSizesGrowToTheMaximum) {
    // Accepted steps 4, 8, 15, 15, ...: the intervals end at t1 = 4, 12, 27, 42, 57.
    FlicVectorField field = uniformField(80, 8, 1, 0);
    for (int kind : {kRK43, kRKDP, kRKCK}) {
        auto in = make(kind);
        AdaptiveIntegrator& rk = adaptive(in);
        bind(rk, field, 1.0f);
        rk.init(Vec2f{5, 4}, Vec2f{1, 0});
        for (int i = 1; i <= 57; i++) {
            int status;
            const Vec2f& p = rk.next(status);
            EXPECT_NEAR(p.x, 5.0f + i, 1e-4f);
            float t1 = i <= 4 ? 4 : i <= 12 ? 12 : i <= 27 ? 27 : i <= 42 ? 42 : 57;
            ASSERT_EQ(std::make_tuple(status, p.y, rk.t, rk.t1, rk.stepSize),
                      std::make_tuple(0, 4.0f, i, t1, i <= 4 ? 8.0f : 15.0f))
                << kind << " " << i;
        }
        rk.init(Vec2f{5, 4}, Vec2f{1, 0}); // a new line starts again from the initial step
        EXPECT_EQ(std::tie(rk.stepSize, rk.t, rk.t1), std::make_tuple(4.0f, 0.0f, 0.0f));
    }
}

// Step-size settings that can never finish a step end the line (status 1, straight on) instead
// of looping: a zero initial or maximum step never advances the line, and a tolerance no step
// meets halves the trial step down to zero when no positive minimum stops it first.
TEST(Integrator, AdaptiveSettingsThatCannotProgressEndTheLine) {
    FlicVectorField field = uniformField(40, 8, 1, 0);
    struct Settings {
        float tolerance, initialStep, minStep, maxStep;
    } cases[] = {{0.001f, 0.0f, 0.5f, 15.0f}, {0.001f, -2.0f, 0.5f, 15.0f},
                 {0.001f, 4.0f, 0.5f, 0.0f},  {-1.0f, 4.0f, 0.0f, 15.0f},
                 {-1.0f, 4.0f, -1.0f, 15.0f}, {0.0f, 4.0f, 0.0f, 15.0f},
                 {1e-30f, 4.0f, 0.0f, 15.0f}, {0.001f, 4.0f, 0.5f, 1e-30f}};
    for (const Settings& c : cases) {
        RK43 rk43(c.tolerance, c.initialStep, c.minStep, c.maxStep, 1);
        RKDP rkdp(c.tolerance, c.initialStep, c.minStep, c.maxStep, 1);
        RKCK rkck(c.tolerance, c.initialStep, c.minStep, c.maxStep, 1);
        for (FlicIntegrator* in : std::initializer_list<FlicIntegrator*>{&rk43, &rkdp, &rkck}) {
            bind(*in, field, 0.5f);
            in->init(Vec2f{5, 4}, Vec2f{1, 0});
            int status = -1;
            float x = 5;
            for (int i = 0; i < 20 && status != 1; i++)
                x = in->next(status).x;
            EXPECT_EQ(status, 1) << c.tolerance << " " << c.initialStep << " " << c.minStep << " "
                                 << c.maxStep;
            const Vec2f& p = in->next(status);
            EXPECT_EQ(status, 1);
            EXPECT_EQ(p.x, x + 0.5f); // straight on along the last tangent
            EXPECT_EQ(p.y, 4.0f);
        }
    }
}

TEST(Integrator, AdaptiveFallsBackToEulerAtTheBorder) {
    // Steps 4 and 8 reach t1 = 12 (x = 14); at t = 13 the step of 15 would reach x = 29,
    // outside: code 1, then Euler points exactly one step apart until x passes xMax = 22.999.
    FlicVectorField field = uniformField(24, 8, 1, 0);
    RK43 rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    Points points = trace(rk, field, 1, Vec2f{2, 4}, Vec2f{1, 0}, 23, false);
    EXPECT_EQ(std::make_tuple(rk.fallback, rk.stepSize), std::make_tuple(1, 15.0f));
    EXPECT_NEAR(points[12].x, 15.0f, 1e-4f);
    for (int i = 13; i < 23; i++)
        EXPECT_EQ(points[i], (Point{points[i - 1].x + 1.0f, 4.0f, i < 20 ? 0 : 1, -1.0f})) << i;
}

TEST(Integrator, AdaptiveStatusTwoIsReportedOnceThenOne) {
    FlicVectorField field = testutil::makeField(60, 8, [](float x, float) {
        return Vec2f{x < 21 ? 1.0f : 0.0f, 0};
    });
    for (int kind : {kRK43, kRKDP, kRKCK})
        for (bool withSpeed : {true, false}) {
            auto in = make(kind);
            Points points = trace(*in, field, 1, Vec2f{2, 4}, Vec2f{1, 0}, 25, withSpeed);
            EXPECT_EQ(std::tie(adaptive(in).fallback, in->status), std::make_tuple(1, 2)) << kind;
            auto first = std::find_if(points.begin(), points.end(),
                                      [](const Point& p) { return p.status != 0; });
            ASSERT_NE(first, points.end());
            // Status 2 with the rejected magnitude once, then 1 with the speed left alone.
            EXPECT_EQ(std::tie(first->status, first->speed),
                      std::make_tuple(2, withSpeed ? 0.0f : -1.0f));
            for (auto p = first + 1; p != points.end(); ++p)
                EXPECT_EQ(*p, (Point{(p - 1)->x + 1.0f, 4.0f, 1, -1.0f})) << kind;
        }
}

TEST(Integrator, AdaptiveFailuresAtStageAndEndPoints) {
    // A NaN corner of the cells (17..18, 4..5) has weight 0 at the first stage (17, 4) of the
    // step of 15 from x = 14, yet falls back; a stage failure leaves the accepted d1 = (1, 0).
    FlicVectorField field = uniformField(40, 8, 1, 0);
    field.vectors()[5 * 40 + 18].x = NaN;
    RKDP rkdp(0.001f, 4.0f, 0.5f, 15.0f, 1);
    trace(rkdp, field, 1, Vec2f{2, 4}, Vec2f{1, 0}, 12, false);
    EXPECT_EQ(rkdp.fallback, 0);
    int status;
    rkdp.next(status);
    EXPECT_EQ(std::tie(rkdp.fallback, rkdp.d1.x, rkdp.d1.y), std::make_tuple(1, 1.0f, 0.0f));
    // Slow uniform flow (0.1, 0) under normalization 1 with a steep initial tangent (1, 1):
    // the RK43 stages of the first step (h = 4) lie in cells (4, 4) and (2, 2), its end point
    // (3.5, 3.17) in cell (3, 3), whose corner (4, 3) is NaN. d1 becomes (0, 0), so the
    // fallback Euler step stays at the seed and samples it again.
    FlicVectorField slow = uniformField(12, 12, 0.1f, 0);
    slow.vectors()[3 * 12 + 4] = Vec2f{NaN, NaN};
    RK43 rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    rk.normalization = 1.0f;
    Points points = trace(rk, slow, 1, Vec2f{2.5f, 2.5f}, Vec2f{1, 1}, 2, false);
    EXPECT_EQ(rk.fallback, 1);
    EXPECT_NEAR(rk.p1.x, 3.5f, 1e-6f); // the end point that failed is kept
    EXPECT_EQ(points, (Points{{2.5f, 2.5f, 0, -1}, {2.5f + 0.1f, 2.5f, 0, -1}}));
}

TEST(Integrator, TooCurvedFieldEndsWithStatusOne) {
    // A line 0.02 away from the centre of a vortex: no step >= 0.5 meets the tolerance. The
    // field is wide enough for RKDP's far-flung stages of the first trial steps.
    FlicVectorField field = rotationField(241, 120.5f);
    for (int kind : {kRK43, kRKDP, kRKCK}) {
        auto in = make(kind);
        AdaptiveIntegrator& rk = adaptive(in);
        Points points = trace(rk, field, 0.25f, Vec2f{120.52f, 120.5f}, Vec2f{0, 1}, 2);
        // Halved from 4 to below minStep; the speed is left alone on the call that ends the
        // line. It goes on straight along d1, which for RK43 and RKDP holds the last rejected
        // attempt's end tangent (written in place), for RKCK still the initial one.
        EXPECT_EQ(std::make_tuple(rk.status, rk.fallback, rk.stepSize),
                  std::make_tuple(1, 0, 0.25f));
        float x = 120.52f + 0.25f * rk.d1.x, y = 120.5f + 0.25f * rk.d1.y;
        EXPECT_EQ(points,
                  (Points{{x, y, 1, -1}, {x + 0.25f * rk.d1.x, y + 0.25f * rk.d1.y, 1, -1}}))
            << kind;
        EXPECT_EQ(rk.d1.x == 0.0f && rk.d1.y == 1.0f, kind == kRKCK) << kind;
    }
}

TEST(Integrator, AdaptiveSpeedIsInterpolatedAlongTheStep) {
    // Flow along x with magnitude x / 10; output points 0.75 apart fall anywhere in the steps.
    FlicVectorField field = testutil::makeField(64, 8, [](float x, float) {
        return Vec2f{x / 10.0f, 0};
    });
    RK43 rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    Points points = trace(rk, field, 0.75f, Vec2f{10, 3}, Vec2f{1, 0}, 40, true, 1.0f);
    for (int i = 0; i < 40; i++) {
        EXPECT_EQ(points[i].status, 0);
        EXPECT_NEAR(points[i].x, 10.75f + 0.75f * i, 1e-4f);
        EXPECT_NEAR(points[i].speed, points[i].x / 10.0f, 1e-4f) << i;
    }
    EXPECT_NEAR(rk.speed0, rk.p0.x / 10.0f, 1e-5f);
    // The form without speed does not touch the speed interpolation.
    float interp = rk.speedInterp;
    int status;
    rk.next(status);
    EXPECT_EQ(rk.speedInterp, interp);
}

TEST(Integrator, EmbeddedPairsAreAccurateOnACircle) {
    // One step of length h on a unit-speed circle of radius r ends at angle h / r.
    FlicVectorField field = rotationField(64, 32);
    const float r = 10.0f, h = 3.0f;
    const double ex = 32 + r * cos(h / r), ey = 32 + r * sin(h / r);
    Vec2f y0{42, 32}, k1{0, 1}, y1, d1, err;
    auto error = [&]() { return std::hypot(y1.x - ex, y1.y - ey); };
    auto estimate = [&]() { return std::fabs(err.x) + std::fabs(err.y); };
    RK43 rk43(0.001f, 4.0f, 0.5f, 15.0f, 1);
    RKDP rkdp(0.001f, 4.0f, 0.5f, 15.0f, 1);
    RKCK rkck(0.001f, 4.0f, 0.5f, 15.0f, 1);
    for (FlicIntegrator* in : std::initializer_list<FlicIntegrator*>{&rk43, &rkdp, &rkck})
        bind(*in, field, 1.0f);
    // The steppers jump on failure; a jump here would be a test failure.
    ASSERT_EQ(setjmp(rk43.jumpBuffer), 0);
    rk43.rkstep(y0, k1, h, y1, d1, err);
    EXPECT_LT(error(), 2e-4); // fourth order: r (h/r)^5 / 120 ~ 2e-5
    EXPECT_TRUE(estimate() > 0 && estimate() < 1e-3) << estimate();
    EXPECT_NEAR(std::hypot(d1.x, d1.y), 1.0, 1e-6); // unit end tangent
    ASSERT_EQ(setjmp(rkdp.jumpBuffer), 0);
    rkdp.rkdp(y0, k1, h, y1, d1, err);
    EXPECT_LT(error(), 2e-5); // fifth order: float rounding dominates
    EXPECT_TRUE(estimate() > 0 && estimate() < 1e-4) << estimate();
    ASSERT_EQ(setjmp(rkck.jumpBuffer), 0);
    rkck.rkck(y0, k1, h, y1, err);
    EXPECT_LT(error(), 2e-5);
    EXPECT_TRUE(estimate() > 0 && estimate() < 1e-4) << estimate();
    // Whole lines: a full turn (2 pi r / 0.5 points) keeps the radius with small drift.
    for (int kind : {kRK43, kRKDP, kRKCK}) {
        auto in = make(kind);
        double worst = 0;
        for (const Point& p : trace(*in, field, 0.5f, y0, k1, 126)) {
            ASSERT_EQ(p.status, 0);
            worst = std::max(worst, std::fabs(std::hypot(p.x - 32.0, p.y - 32.0) - r));
        }
        EXPECT_LT(worst, 2e-2) << kind; // RK43 stays below 2e-3
    }
}
