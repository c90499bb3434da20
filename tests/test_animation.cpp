// Animated LIC: frames from one trace, a ripple that moves downstream, a seamless loop.
#include "compute.h"
#include "engine_common.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using testutil::MessageCapture;
using testutil::noiseImage;
using testutil::pixelBytes;
using testutil::uniformField;
using testutil::vortexSaddle;

namespace {

// Correlation of picture b shifted by `shift` pixels along x against picture a.
double shiftedCorrelation(const FlicImage& a, const FlicImage& b, int shift) {
    double sa = 0, sb = 0, ab = 0, aa = 0, bb = 0, n = 0;
    for (int y = 0; y < a.height; y++)
        for (int x = 8; x + 8 < a.width; x++) {
            double u = a.data[y * a.bytesPerLine + x], v = b.data[y * b.bytesPerLine + x + shift];
            sa += u;
            sb += v;
            ab += u * v;
            aa += u * u;
            bb += v * v;
            n++;
        }
    double cov = ab / n - (sa / n) * (sb / n);
    return cov / std::sqrt((aa / n - (sa / n) * (sa / n)) * (bb / n - (sb / n) * (sb / n)));
}

// The shift in -5 .. 5 at which b matches a best.
int bestShift(const FlicImage& a, const FlicImage& b, double& best) {
    int at = 0;
    best = -2;
    for (int shift = -5; shift <= 5; shift++) {
        double r = shiftedCorrelation(a, b, shift);
        if (r > best) {
            best = r;
            at = shift;
        }
    }
    return at;
}

} // namespace

TEST(Animation, WithoutRipplesEveryFrameIsTheBoxPicture) {
    FlicVectorField field = vortexSaddle(25, 21);
    // The serial engine; tiles with windows of their own (extension 80); tiles that add into
    // the picture directly (extension 8: a halo of 11 pixels, two of which fit a tile of 24).
    struct Setting {
        int tile;
        float extension;
    } settings[] = {{0, 80}, {24, 80}, {24, 8}};
    for (int channels : {1, 3})
        for (const Setting& setting : settings) {
            FlicImage texture = noiseImage(70, 61, channels, 4);
            FlicCompute still;
            still.setFilterKernel(FlicCompute::BOX);
            still.setFilterLength(9);
            still.extensionLength = setting.extension;
            still.setTileSize(setting.tile);
            FlicImage picture;
            ASSERT_EQ(still.compute(&field, &texture, &picture), 1);
            FlicCompute animated;
            animated.setFilterLength(9);
            animated.extensionLength = setting.extension;
            animated.setAnimationRipples(0);
            animated.setTileSize(setting.tile);
            animated.setNumThreads(3);
            std::vector<FlicImage> frames(3);
            ASSERT_EQ(animated.computeFrames(&field, &texture, 3, frames.data()), 1);
            for (const FlicImage& frame : frames)
                EXPECT_EQ(pixelBytes(frame), pixelBytes(picture))
                    << channels << " " << setting.tile << " " << setting.extension;
            EXPECT_EQ(animated.numFieldLines, still.numFieldLines);
            EXPECT_EQ(animated.totalHits, still.totalHits);
        }
}

TEST(Animation, TheTextureFlowsDownstreamAndTheLoopCloses) {
    FlicVectorField field = uniformField(33, 17, 1.0f, 0.0f);
    FlicImage texture = noiseImage(128, 64, 1, 6);
    FlicCompute engine;
    engine.setFilterLength(10);
    const int F = 8;
    std::vector<FlicImage> frames(F);
    ASSERT_EQ(engine.computeFrames(&field, &texture, F, frames.data()), 1);
    for (int f = 0; f < F; f++) {
        const FlicImage& next = frames[(f + 1) % F]; // the last frame leads on to the first
        double best;
        int shift = bestShift(frames[f], next, best);
        EXPECT_GT(shift, 0) << "frame " << f; // downstream: the field points to +x
        EXPECT_LE(shift, 3) << "frame " << f;
        EXPECT_GT(best, 0.6) << "frame " << f;
    }
    EXPECT_NE(pixelBytes(frames[0]), pixelBytes(frames[1]));

    // The same frames from the tiled engine on any thread count.
    std::vector<FlicImage> one(F), three(F);
    for (int threads : {1, 3}) {
        FlicCompute tiled;
        tiled.setFilterLength(10);
        tiled.setTileSize(32);
        tiled.setNumThreads(threads);
        tiled.setBorders(FlicCompute::CLOSED, FlicCompute::CLOSED);
        ASSERT_EQ(tiled.computeFrames(&field, &texture, F, (threads == 1 ? one : three).data()), 1);
    }
    for (int f = 0; f < F; f++)
        EXPECT_EQ(pixelBytes(one[f]), pixelBytes(three[f])) << f;
}

TEST(Animation, BadSettingsAreRefused) {
    FlicVectorField field = uniformField(9, 9, 1.0f, 0.0f);
    FlicImage texture = noiseImage(20, 20, 1, 1);
    struct Bad {
        int frames, ripples, passes;
        const char* message;
    } bad[] = {{0, 2, 1, "FLIC error: LIC: number of frames 0 outside 1 .. 1024"},
               {1025, 2, 1, "FLIC error: LIC: number of frames 1025 outside 1 .. 1024"},
               {4, 65, 1, "FLIC error: LIC: number of ripples 65 outside 0 .. 64"},
               {4, 2, 2, "FLIC error: LIC: passes apply to still pictures, not to frames"}};
    for (const Bad& b : bad) {
        FlicCompute engine;
        engine.setAnimationRipples(b.ripples);
        engine.setPasses(b.passes);
        std::vector<FlicImage> frames(4, FlicImage(3, 2, 1));
        frames[0].clear(7);
        MessageCapture capture;
        EXPECT_EQ(engine.computeFrames(&field, &texture, b.frames, frames.data()), 0);
        EXPECT_EQ(MessageCapture::onlyError(), b.message);
        EXPECT_EQ(frames[0].data[0], 7);
    }
}

// The frames divide their sums by the hits through reciprocals; the quotient must be the
// integer division's for every sum a pixel can hold (0 .. 255 x hits), up to the hit limit.
TEST(Animation, FrameSumsDivideExactlyThroughReciprocals) {
    using muskeip::detail::divideByReciprocal;
    using muskeip::detail::kReciprocalHitsLimit;
    EXPECT_EQ(divideByReciprocal(0, 0.0), 0); // a pixel without hits
    long long wrong = 0;
    for (int hits = 1; hits <= 600; hits++) {
        double reciprocal = 1.0 / hits;
        for (int sum = 0; sum <= 255 * hits; sum++)
            wrong += divideByReciprocal(sum, reciprocal) != sum / hits;
    }
    EXPECT_EQ(wrong, 0);
    // Large counts: sums at, just after and just before each multiple of the hits.
    for (int hits : {kReciprocalHitsLimit - 1, kReciprocalHitsLimit - 3, 3 << 21 | 1, 1000003,
                     999983, 49 << 10}) {
        double reciprocal = 1.0 / hits;
        for (long long q = 0; q <= 255; q++)
            for (long long sum : {q * hits, q * hits + 1, q * hits + hits - 1, q * hits + hits / 2})
                if (sum <= 255LL * hits) {
                    EXPECT_EQ(divideByReciprocal(static_cast<int>(sum), reciprocal), sum / hits)
                        << sum << " / " << hits;
                }
    }
}
