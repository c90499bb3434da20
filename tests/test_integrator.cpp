// Field-line integrators: fixed-step Euler and midpoint, adaptive RK43, RKDP and RKCK.
#include "integrator.h"
#include "vectorfield.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

namespace {

const float NaN = std::numeric_limits<float>::quiet_NaN();

FlicVectorField uniformField(int width, int height, float vx, float vy) {
    FlicVectorField field(width, height);
    for (int i = 0; i < width * height; i++) {
        field.data[2 * i] = vx;
        field.data[2 * i + 1] = vy;
    }
    return field;
}

void setNode(FlicVectorField& field, int x, int y, float vx, float vy) {
    field.vectors()[y * field.width + x] = Vec2f{vx, vy};
}

// Counter-clockwise rotation about (c, c); bilinear interpolation reproduces it exactly.
FlicVectorField rotationField(int size, float c) {
    FlicVectorField field(size, size);
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x++)
            setNode(field, x, y, -(y - c), x - c);
    return field;
}

void bind(FlicIntegrator& in, FlicVectorField& field, float stepLength) {
    in.setField(field.width, field.height, field.vectors());
    in.stepLength = stepLength;
}

std::unique_ptr<FlicIntegrator> make(int kind, int direction) {
    switch (kind) {
    case 0:
        return std::make_unique<Euler>(direction);
    case 1:
        return std::make_unique<Midpoint>(direction);
    case 2:
        return std::make_unique<RK43>(0.001f, 4.0f, 0.5f, 15.0f, direction);
    case 3:
        return std::make_unique<RKDP>(0.001f, 4.0f, 0.5f, 15.0f, direction);
    default:
        return std::make_unique<RKCK>(0.001f, 4.0f, 0.5f, 15.0f, direction);
    }
}

} // namespace

TEST(Integrator, ConstructionAndBinding) {
    Euler euler(-1);
    EXPECT_EQ(euler.direction, -1.0f);
    EXPECT_EQ(euler.normalization, 0.0f);
    EXPECT_EQ(euler.speed, 0.0f);
    RKCK rk(0.01f, 2.0f, 0.25f, 9.0f, 1);
    EXPECT_EQ(rk.tolerance, 0.01f);
    EXPECT_EQ(rk.initialStep, 2.0f);
    EXPECT_EQ(rk.minStep, 0.25f);
    EXPECT_EQ(rk.maxStep, 9.0f);
    EXPECT_EQ(rk.direction, 1.0f);
    EXPECT_EQ(rk.speed, 0.0f);

    FlicVectorField field = uniformField(7, 5, 1, 0);
    euler.setField(7, 5, field.vectors());
    EXPECT_EQ(euler.xMax, 7.0f - 1.001f);
    EXPECT_EQ(euler.yMax, 5.0f - 1.001f);
    EXPECT_EQ(euler.field, field.vectors());

    // An unbound integrator has an empty domain: the first step leaves it.
    Midpoint unbound(1);
    unbound.stepLength = 1;
    unbound.init(Vec2f{0, 0}, Vec2f{1, 0});
    int status = -1;
    unbound.next(status);
    EXPECT_EQ(status, 1);
}

TEST(Integrator, HugeFieldWidthKeepsTheRightNeighbourInside) {
    // Near 2^24, width - 1.001 rounds to width - 1; the bound is lowered below it.
    Euler euler(1);
    Vec2f dummy{0, 0};
    euler.setField(1 << 24, 2, &dummy);
    EXPECT_LT(static_cast<int>(euler.xMax), (1 << 24) - 1);
    EXPECT_EQ(euler.yMax, 2.0f - 1.001f);
}

TEST(Integrator, EulerOnUniformFieldMovesExactlyStepLength) {
    FlicVectorField field = uniformField(40, 40, 3, 4);
    for (int direction : {1, -1}) {
        Euler euler(direction);
        bind(euler, field, 0.75f);
        Vec2f seed{20, 20}, v{0.6f, 0.8f};
        euler.init(seed, v);
        float x = seed.x, y = seed.y;
        float tx = direction * 0.6f, ty = direction * 0.8f;
        for (int i = 0; i < 10; i++) {
            float speed = -1;
            int status = -1;
            const Vec2f& p = euler.next(speed, status);
            x = x + 0.75f * tx;
            y = y + 0.75f * ty;
            ASSERT_EQ(p.x, x) << i;
            ASSERT_EQ(p.y, y) << i;
            EXPECT_EQ(&p, &euler.position);
            EXPECT_EQ(status, 0);
            EXPECT_EQ(speed, 5.0f);
            // After the first step the tangent is the sampled field, scaled and signed.
            tx = 3 * (direction / 5.0f);
            ty = 4 * (direction / 5.0f);
        }
        if (direction == -1) {
            EXPECT_EQ(euler.tangent.x, -0.6f);
        }
    }
}

TEST(Integrator, NormalizationKeepsSlowVectorsRelativeLength) {
    FlicVectorField field = uniformField(40, 40, 0.3f, 0.4f); // magnitude 0.5
    Euler euler(1);
    bind(euler, field, 1.0f);
    euler.normalization = 2.0f;
    euler.init(Vec2f{5, 5}, Vec2f{1, 0});
    int status;
    euler.next(status);
    EXPECT_EQ(euler.tangent.x, 0.3f * (1.0f / 2.0f));
    EXPECT_EQ(euler.tangent.y, 0.4f * (1.0f / 2.0f));
    const Vec2f& p = euler.next(status);
    EXPECT_EQ(p.x, 6.0f + 0.15f);
    // Faster than the threshold: unit length again.
    euler.normalization = 0.25f;
    euler.next(status);
    EXPECT_FLOAT_EQ(std::hypot(euler.tangent.x, euler.tangent.y), 1.0f);
}

TEST(Integrator, FixedStepStatusAtBorderAndCriticalPoints) {
    FlicVectorField field = uniformField(4, 6, 0, 1);
    Euler euler(1);
    bind(euler, field, 1.0f);
    int status;
    float speed;
    // x exactly xMax is inside; x = width - 1 is outside.
    euler.init(Vec2f{euler.xMax, 0}, Vec2f{0, 1});
    euler.next(status);
    EXPECT_EQ(status, 0);
    euler.init(Vec2f{3.0f, 0}, Vec2f{0, 1});
    euler.next(status);
    EXPECT_EQ(status, 1);

    // A field one column wide has a negative xMax: every line leaves at once.
    FlicVectorField thin = uniformField(1, 6, 0, 1);
    Euler narrow(1);
    bind(narrow, thin, 1.0f);
    narrow.init(Vec2f{0, 1}, Vec2f{0, 1});
    narrow.next(status);
    EXPECT_EQ(status, 1);

    // Leaving the domain: status 1, the speed is the one sampled before, the line goes on.
    FlicVectorField flow = uniformField(8, 8, 2, 0);
    bind(euler, flow, 1.0f);
    euler.init(Vec2f{5.5f, 3}, Vec2f{1, 0});
    euler.next(speed, status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(speed, 2.0f);
    setNode(flow, 0, 0, 9, 0); // not on the line: only shows that nothing is sampled any more
    Vec2f last = euler.next(speed, status);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(last.x, 7.5f);
    for (int i = 0; i < 3; i++) {
        const Vec2f& p = euler.next(speed, status);
        EXPECT_EQ(status, 1);
        EXPECT_EQ(speed, 2.0f);
        EXPECT_EQ(p.x, last.x + 1.0f);
        last = p;
    }

    // Zero vectors on all four corners: status 2, the rejected magnitude is reported, the
    // line continues straight with its previous tangent.
    FlicVectorField stop = uniformField(12, 4, 1, 0);
    for (int y = 0; y < 4; y++)
        for (int x = 6; x < 12; x++)
            setNode(stop, x, y, 0, 0);
    bind(euler, stop, 1.0f);
    euler.init(Vec2f{2.25f, 1.5f}, Vec2f{1, 0});
    int seen2 = 0;
    for (int i = 0; i < 8; i++) {
        const Vec2f& p = euler.next(speed, status);
        EXPECT_EQ(p.x, 3.25f + i);
        EXPECT_EQ(p.y, 1.5f);
        if (p.x >= 6.0f) {
            EXPECT_EQ(status, 2);
            EXPECT_EQ(speed, 0.0f);
            EXPECT_EQ(euler.tangent.x, 1.0f);
            seen2++;
        } else if (p.x > 5.0f) {
            EXPECT_EQ(status, 0); // fading but valid: 1 - 0.25
            EXPECT_EQ(speed, 0.75f);
        }
    }
    EXPECT_EQ(seen2, 5);

    // NaN data: status 2, NaN magnitude reported.
    FlicVectorField bad = uniformField(8, 8, 1, 0);
    setNode(bad, 4, 4, NaN, 0);
    bind(euler, bad, 1.0f);
    euler.init(Vec2f{2.5f, 4.5f}, Vec2f{1, 0});
    euler.next(speed, status);
    EXPECT_EQ(status, 2); // cell (3, 4) has the NaN node as a corner
    EXPECT_TRUE(std::isnan(speed));
    euler.next(speed, status);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(euler.position.x, 4.5f);
}

TEST(Integrator, MidpointStepAndMidpointOutsideDomain) {
    // Rotation: the midpoint tangent differs from the start tangent.
    FlicVectorField rot = rotationField(32, 16);
    Midpoint mid(1);
    bind(mid, rot, 2.0f);
    Vec2f seed{26, 16};
    mid.init(seed, Vec2f{0, 1});
    int status;
    float speed;
    const Vec2f& p = mid.next(speed, status);
    // Literal midpoint step: midpoint (26, 17), field there (-1, 10).
    float len = sqrtf(1.0f * 1.0f + 10.0f * 10.0f);
    float s = 1.0f / len;
    EXPECT_EQ(p.x, 26.0f + 2.0f * (-1.0f * s));
    EXPECT_EQ(p.y, 16.0f + 2.0f * (10.0f * s));
    EXPECT_EQ(status, 0);
    // The end point was sampled for the next call.
    float ex = -(p.y - 16.0f), ey = p.x - 16.0f;
    float es = 1.0f / sqrtf(ex * ex + ey * ey);
    EXPECT_NEAR(mid.tangent.x, ex * es, 1e-6f);
    EXPECT_NEAR(mid.tangent.y, ey * es, 1e-6f);
    EXPECT_NEAR(speed, sqrtf(ex * ex + ey * ey), 1e-4f);
}

TEST(Integrator, MidpointLeavingAtTheMidpointKeepsTangentAndSpeed) {
    FlicVectorField flow = uniformField(8, 8, 0, 3);
    Midpoint mid(1);
    bind(mid, flow, 4.0f);
    mid.init(Vec2f{3, 5.5f}, Vec2f{0.6f, 0.8f});
    mid.speed = 42.0f;
    int status;
    float speed;
    const Vec2f& q = mid.next(speed, status); // midpoint y = 5.5 + 1.6 = 7.1 > yMax
    EXPECT_EQ(status, 1);
    EXPECT_EQ(q.x, 3.0f + 4.0f * 0.6f);
    EXPECT_EQ(q.y, 5.5f + 4.0f * 0.8f);
    EXPECT_EQ(mid.tangent.x, 0.6f);
    EXPECT_EQ(speed, 42.0f);
    mid.next(speed, status);
    EXPECT_EQ(mid.position.y, 5.5f + 4.0f * 0.8f + 4.0f * 0.8f);
}

TEST(Integrator, EveryIntegratorTracesStraightLinesBothWays) {
    FlicVectorField field = uniformField(80, 80, 3, 4);
    for (int kind = 0; kind < 5; kind++) {
        for (int direction : {1, -1}) {
            auto in = make(kind, direction);
            bind(*in, field, 0.5f);
            Vec2f seed{40, 40};
            in->init(seed, Vec2f{0.6f, 0.8f});
            for (int i = 1; i <= 40; i++) {
                int status = -1;
                const Vec2f& p = in->next(status);
                ASSERT_EQ(status, 0) << kind;
                float along = direction * 0.5f * i;
                EXPECT_NEAR(p.x, 40.0f + 0.6f * along, 2e-4f) << kind << " " << i;
                EXPECT_NEAR(p.y, 40.0f + 0.8f * along, 2e-4f) << kind << " " << i;
            }
        }
    }
}

TEST(Integrator, AdaptiveStepSizesGrowToTheMaximum) {
    FlicVectorField field = uniformField(80, 8, 1, 0);
    for (int kind = 2; kind < 5; kind++) {
        auto owner = make(kind, 1);
        auto& rk = static_cast<AdaptiveIntegrator&>(*owner);
        bind(rk, field, 1.0f);
        rk.init(Vec2f{5, 4}, Vec2f{1, 0});
        const float expectedT1[] = {4, 12, 27, 42, 57};
        const float expectedStep[] = {8, 15, 15, 15, 15};
        int integrations = 0;
        float lastT1 = 0;
        for (int i = 1; i <= 57; i++) {
            int status;
            const Vec2f& p = rk.next(status);
            EXPECT_EQ(status, 0);
            EXPECT_NEAR(p.x, 5.0f + i, 1e-4f);
            EXPECT_EQ(p.y, 4.0f);
            if (rk.t1 != lastT1) {
                ASSERT_LT(integrations, 5);
                EXPECT_EQ(rk.t1, expectedT1[integrations]) << kind;
                EXPECT_EQ(rk.stepSize, expectedStep[integrations]) << kind;
                lastT1 = rk.t1;
                integrations++;
            }
        }
        EXPECT_EQ(integrations, 5);
        EXPECT_EQ(rk.t, 57.0f);
        // A new line starts again from the initial step.
        rk.init(Vec2f{5, 4}, Vec2f{1, 0});
        EXPECT_EQ(rk.stepSize, 4.0f);
        EXPECT_EQ(rk.t1, 0.0f);
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
    for (const Settings& c : cases)
        for (int kind = 2; kind < 5; kind++) {
            std::unique_ptr<FlicIntegrator> owner;
            if (kind == 2)
                owner = std::make_unique<RK43>(c.tolerance, c.initialStep, c.minStep, c.maxStep, 1);
            if (kind == 3)
                owner = std::make_unique<RKDP>(c.tolerance, c.initialStep, c.minStep, c.maxStep, 1);
            if (kind == 4)
                owner = std::make_unique<RKCK>(c.tolerance, c.initialStep, c.minStep, c.maxStep, 1);
            bind(*owner, field, 0.5f);
            owner->init(Vec2f{5, 4}, Vec2f{1, 0});
            int status = -1;
            float x = 5;
            for (int i = 0; i < 20 && status != 1; i++)
                x = owner->next(status).x;
            EXPECT_EQ(status, 1) << kind << " " << c.tolerance << " " << c.initialStep << " "
                                 << c.minStep << " " << c.maxStep;
            const Vec2f& p = owner->next(status);
            EXPECT_EQ(status, 1);
            EXPECT_EQ(p.x, x + 0.5f); // straight on along the last tangent
            EXPECT_EQ(p.y, 4.0f);
        }
}

TEST(Integrator, AdaptiveFallsBackToEulerAtTheBorder) {
    FlicVectorField field = uniformField(24, 8, 1, 0);
    RK43 rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    bind(rk, field, 1.0f);
    rk.init(Vec2f{2, 4}, Vec2f{1, 0});
    int status = 0, i = 0;
    // Steps 4 and 8 reach t1 = 12 (x = 14); the step of 15 would reach x = 29, outside.
    for (; i < 12; i++)
        rk.next(status);
    EXPECT_EQ(rk.fallback, 0);
    const Vec2f& p = rk.next(status); // t = 13 > t1: the step jumps with code 1
    EXPECT_EQ(rk.fallback, 1);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(rk.stepSize, 15.0f); // last trial size survives
    float x = p.x;
    EXPECT_NEAR(x, 15.0f, 1e-4f);
    // Euler points from here on, exactly one step apart, until x passes xMax = 22.999.
    while (status == 0) {
        const Vec2f& q = rk.next(status);
        EXPECT_EQ(q.x, x + 1.0f);
        x = q.x;
    }
    EXPECT_EQ(status, 1);
    EXPECT_GT(x, rk.xMax);
    EXPECT_LT(x - 1.0f, rk.xMax);
    rk.next(status);
    EXPECT_EQ(status, 1);
}

TEST(Integrator, AdaptiveStatusTwoIsReportedOnceThenOne) {
    FlicVectorField field = uniformField(60, 8, 1, 0);
    for (int y = 0; y < 8; y++)
        for (int x = 21; x < 60; x++)
            setNode(field, x, y, 0, 0);
    for (int kind = 2; kind < 5; kind++) {
        auto owner = make(kind, 1);
        auto& rk = static_cast<AdaptiveIntegrator&>(*owner);
        bind(rk, field, 1.0f);
        rk.init(Vec2f{2, 4}, Vec2f{1, 0});
        std::vector<int> statuses;
        std::vector<float> speeds;
        for (int i = 0; i < 25; i++) {
            int status;
            float speed = -7.0f;
            rk.next(speed, status);
            statuses.push_back(status);
            speeds.push_back(speed);
        }
        EXPECT_EQ(rk.fallback, 1) << kind;
        EXPECT_EQ(rk.status, 2) << kind;
        int first2 = -1;
        for (size_t i = 0; i < statuses.size(); i++)
            if (statuses[i] != 0) {
                first2 = static_cast<int>(i);
                break;
            }
        ASSERT_GE(first2, 0);
        EXPECT_EQ(statuses[first2], 2) << kind;
        EXPECT_EQ(speeds[first2], 0.0f);     // the rejected magnitude
        EXPECT_EQ(rk.position.x, 2.0f + 25); // straight continuation along d1 = (1, 0)
        for (size_t i = first2 + 1; i < statuses.size(); i++) {
            EXPECT_EQ(statuses[i], 1) << kind;
            EXPECT_EQ(speeds[i], -7.0f) << kind; // caller's variable untouched
        }
    }
}

TEST(Integrator, NaNWithZeroWeightStillFallsBack) {
    FlicVectorField field = uniformField(40, 8, 1, 0);
    // Corner of the cells (17..18, 4..5); the stage at x = 17, y = 4 gives it weight 0.
    setNode(field, 18, 5, NaN, 0);
    RKDP rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    bind(rk, field, 1.0f);
    rk.init(Vec2f{2, 4}, Vec2f{1, 0});
    int status = 0;
    for (int i = 0; i < 12; i++)
        rk.next(status);
    EXPECT_EQ(rk.fallback, 0);
    rk.next(status); // the step of 15 from x = 14 has its first stage at x = 17
    EXPECT_EQ(rk.fallback, 1);
    // The failing sample was a stage point, so d1 is still the accepted (1, 0).
    EXPECT_EQ(rk.d1.x, 1.0f);
    EXPECT_EQ(rk.d1.y, 0.0f);
}

TEST(Integrator, AdaptiveEndSampleNaNZeroesTheTangent) {
    // Slow uniform flow (0.1, 0) under normalization 1 with a steep initial tangent (1, 1):
    // the RK43 stages of the first step (h = 4) lie in cells (4, 4) and (2, 2), its end point
    // (3.5, 3.17) in cell (3, 3), whose corner (4, 3) is NaN.
    FlicVectorField field = uniformField(12, 12, 0.1f, 0);
    setNode(field, 4, 3, NaN, NaN);
    RK43 rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    bind(rk, field, 1.0f);
    rk.normalization = 1.0f;
    rk.init(Vec2f{2.5f, 2.5f}, Vec2f{1, 1});
    int status;
    const Vec2f& p = rk.next(status);
    EXPECT_EQ(rk.fallback, 1);
    EXPECT_NEAR(rk.p1.x, 3.5f, 1e-6f); // the end point that failed is kept
    // The fallback Euler step along d1 = (0, 0) stays at the seed and samples it again.
    EXPECT_EQ(p.x, 2.5f);
    EXPECT_EQ(p.y, 2.5f);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(rk.d1.x, 0.1f);
    EXPECT_EQ(rk.d1.y, 0.0f);
    rk.next(status);
    EXPECT_EQ(rk.position.x, 2.5f + 0.1f);
}

TEST(Integrator, TooCurvedFieldEndsWithStatusOne) {
    // A line 0.02 away from the centre of a vortex: no step >= 0.5 meets the tolerance. The
    // field is wide enough for RKDP's far-flung stages of the first trial steps.
    FlicVectorField field = rotationField(241, 120.5f);
    for (int kind = 2; kind < 5; kind++) {
        auto owner = make(kind, 1);
        auto& rk = static_cast<AdaptiveIntegrator&>(*owner);
        bind(rk, field, 0.25f);
        rk.init(Vec2f{120.52f, 120.5f}, Vec2f{0, 1});
        float speed = -3.0f;
        int status = -1;
        const Vec2f& p = rk.next(speed, status);
        EXPECT_EQ(status, 1) << kind;
        EXPECT_EQ(rk.status, 1);
        EXPECT_EQ(speed, -3.0f); // unchanged on the call that ends through code 3
        EXPECT_EQ(rk.fallback, 0);
        EXPECT_EQ(rk.stepSize, 0.25f); // halved from 4 down to below minStep
        // Still inside; advanced straight along d1, which for RK43 and RKDP holds the last
        // rejected attempt's end tangent (written in place), for RKCK still the initial one.
        EXPECT_EQ(p.x, 120.52f + 0.25f * rk.d1.x);
        EXPECT_EQ(p.y, 120.5f + 0.25f * rk.d1.y);
        if (kind == 4) {
            EXPECT_EQ(rk.d1.x, 0.0f);
            EXPECT_EQ(rk.d1.y, 1.0f);
        } else {
            EXPECT_NE(rk.d1.x, 0.0f);
        }
        Vec2f before = p;
        rk.next(speed, status);
        EXPECT_EQ(status, 1);
        EXPECT_EQ(speed, -3.0f);
        EXPECT_EQ(rk.position.x, before.x + 0.25f * rk.d1.x);
    }
}

TEST(Integrator, AdaptiveSpeedIsInterpolatedAlongTheStep) {
    // Flow along x with magnitude growing linearly in x: |v| = x / 10 (x-component only).
    FlicVectorField field(64, 8);
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 64; x++)
            setNode(field, x, y, x / 10.0f, 0);
    RK43 rk(0.001f, 4.0f, 0.5f, 15.0f, 1);
    bind(rk, field, 1.0f);
    rk.init(Vec2f{10, 3}, Vec2f{1, 0}, 1.0f);
    for (int i = 1; i <= 30; i++) {
        float speed;
        int status;
        const Vec2f& p = rk.next(speed, status);
        EXPECT_EQ(status, 0);
        EXPECT_NEAR(p.x, 10.0f + i, 1e-4f);
        EXPECT_NEAR(speed, p.x / 10.0f, 1e-4f) << i;
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
    const double angle = h / r;
    const double ex = 32 + r * cos(angle), ey = 32 + r * sin(angle);
    Vec2f y0{42, 32}, k1{0, 1}, y1, d1, err;

    RK43 rk43(0.001f, 4.0f, 0.5f, 15.0f, 1);
    RKDP rkdp(0.001f, 4.0f, 0.5f, 15.0f, 1);
    RKCK rkck(0.001f, 4.0f, 0.5f, 15.0f, 1);
    for (AdaptiveIntegrator* in :
         {static_cast<AdaptiveIntegrator*>(&rk43), static_cast<AdaptiveIntegrator*>(&rkdp),
          static_cast<AdaptiveIntegrator*>(&rkck)})
        bind(*in, field, 1.0f);

    // The steppers jump on failure; a jump here would be a test failure.
    ASSERT_EQ(setjmp(rk43.jumpBuffer), 0);
    rk43.rkstep(y0, k1, h, y1, d1, err);
    double e43 = std::hypot(y1.x - ex, y1.y - ey);
    EXPECT_LT(e43, 2e-4); // fourth order: r (h/r)^5 / 120 ~ 2e-5
    EXPECT_GT(std::fabs(err.x) + std::fabs(err.y), 0.0f);
    EXPECT_LT(std::fabs(err.x) + std::fabs(err.y), 1e-3f);
    EXPECT_NEAR(std::hypot(d1.x, d1.y), 1.0, 1e-6); // unit end tangent

    ASSERT_EQ(setjmp(rkdp.jumpBuffer), 0);
    rkdp.rkdp(y0, k1, h, y1, d1, err);
    double edp = std::hypot(y1.x - ex, y1.y - ey);
    EXPECT_LT(edp, 2e-5); // fifth order: float rounding dominates
    EXPECT_LT(std::fabs(err.x) + std::fabs(err.y), 1e-4f);
    EXPECT_GT(std::fabs(err.x) + std::fabs(err.y), 0.0f);

    ASSERT_EQ(setjmp(rkck.jumpBuffer), 0);
    rkck.rkck(y0, k1, h, y1, err);
    double eck = std::hypot(y1.x - ex, y1.y - ey);
    EXPECT_LT(eck, 2e-5);
    EXPECT_LT(std::fabs(err.x) + std::fabs(err.y), 1e-4f);
    EXPECT_GT(std::fabs(err.x) + std::fabs(err.y), 0.0f);

    // Whole lines: a full turn keeps the radius with small drift for every adaptive method.
    for (int kind = 2; kind < 5; kind++) {
        auto in = make(kind, 1);
        bind(*in, field, 0.5f);
        in->init(y0, k1);
        double worst = 0;
        for (int i = 0; i < 126; i++) { // 2 pi r / 0.5
            int status;
            const Vec2f& p = in->next(status);
            ASSERT_EQ(status, 0);
            worst = std::max(worst, std::fabs(std::hypot(p.x - 32.0, p.y - 32.0) - r));
        }
        EXPECT_LT(worst, 2e-2) << kind; // RK43 stays below 2e-3
    }
}
