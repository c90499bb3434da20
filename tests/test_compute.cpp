// The LIC engine: configuration, start/stop reports, seeding, sampling and convolution, and
// byte-for-byte agreement with a literal reference computation (seeding orders included).
#include "compute.h"
#include "lic_reference.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

using testutil::imageBytes;
using testutil::MessageCapture;
using testutil::noiseImage;
using testutil::rotationField;
using testutil::uniformField;
using testutil::vortexSaddle;
using Bytes = std::vector<unsigned char>;

namespace {

const float NaN = std::numeric_limits<float>::quiet_NaN();
const float Inf = std::numeric_limits<float>::infinity();

// The vortex-saddle field with four zero nodes in its middle row and one NaN node.
FlicVectorField holesField(int width, int height) {
    FlicVectorField field = vortexSaddle(width, height);
    for (int x = width / 2 - 3; x < width / 2 + 1; x++)
        field.vectors()[(height / 2) * width + x] = Vec2f{0, 0};
    field.vectors()[5 * width + width - 7] = Vec2f{NaN, 1};
    return field;
}

void configure(FlicCompute& engine, const reference::Settings& s) {
    engine.setFilterLength(s.filterLength);
    engine.extensionLength = s.extensionLength;
    engine.stepLength = s.stepLength;
    engine.setNumSubPixels(s.numSubPixels);
    engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(s.kernel));
    engine.seedingMethod = s.seeding;
    engine.setInterpolationMethod(static_cast<FlicCompute::InterpolationMethod>(s.interpolation));
    engine.setNormalization(s.normalization); // useEuler and useRK43 must hand it on
    if (s.integrator == 1) engine.useEuler();
    if (s.integrator == 2) engine.useRK43(2.0f, 0.25f, 6.0f, 0.01f);
    if (s.integrator >= 3) {
        delete engine.forward;
        delete engine.backward;
        engine.forward = reference::makeIntegrator(s.integrator, 1);
        engine.backward = reference::makeIntegrator(s.integrator, -1);
        engine.setNormalization(s.normalization);
    }
}

// Runs engine and reference on the same input and compares every output byte.
void expectSameAsReference(const reference::Settings& s, FlicVectorField& field, FlicImage& texture,
                           const std::string& label) {
    FlicCompute engine;
    configure(engine, s);
    FlicImage output;
    ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
    reference::Result expected = reference::Lic(s, field, texture).run();
    ASSERT_EQ(imageBytes(output), expected.image) << label;
    EXPECT_EQ(std::tie(engine.numFieldLines, engine.totalHits),
              std::tie(expected.lines, expected.totalHits))
        << label;
}

} // namespace

TEST(Compute, DefaultsAndDerivedStepCounts) {
    FlicCompute engine;
    EXPECT_EQ(std::tie(engine.filterLength, engine.extensionLength, engine.stepLength,
                       engine.offsetLength, engine.normalization),
              std::make_tuple(20.0f, 80.0f, 1.0f, 20.0f, 0.0f));
    EXPECT_EQ(std::make_tuple(engine.numSubPixels, engine.filterKernel, engine.seedingMethod,
                              engine.interpolationMethod, FlicCompute::BOX, FlicCompute::CUBIC,
                              FlicCompute::CONSTANT),
              std::make_tuple(1, FlicCompute::TRIANGLE, 1, FlicCompute::BILINEAR, 0, 2, 0));
    const int zeros[256][2] = {};
    EXPECT_EQ(memcmp(engine.zaehlrohr, zeros, sizeof zeros), 0);
    // N and M: rounded half up; the cubic kernel rounds N up to a multiple of 6 (0 stays 0).
    FlicVectorField field = uniformField(11, 6, 1, 0);
    FlicImage texture = noiseImage(40, 20, 1, 1);
    const std::tuple<float, FlicCompute::FilterKernel, int> cases[] = {
        {20, FlicCompute::TRIANGLE, 20}, {20, FlicCompute::CUBIC, 24},
        {2.4f, FlicCompute::BOX, 2},     {0.4f, FlicCompute::TRIANGLE, 0},
        {0.4f, FlicCompute::CUBIC, 0},   {18, FlicCompute::CUBIC, 18},
        {2.5f, FlicCompute::BOX, 3},     {1, FlicCompute::CUBIC, 6}};
    for (const auto& [length, kernel, steps] : cases) {
        engine.setFilterLength(length);
        engine.setFilterKernel(kernel);
        engine.start(&field, &texture);
        EXPECT_EQ(std::tie(engine.kernelSteps, engine.extensionSteps), std::make_tuple(steps, 80))
            << length;
        engine.stop();
    }
}

// useEuler (the midpoint method) and useRK43 with their settings and the engine's threshold are
// fixed by the reference comparison, whose configurations install them.
TEST(Compute, ThresholdWithoutIntegratorsIsStoredForLaterOnes) {
    FlicCompute engine;
    delete engine.forward;
    delete engine.backward;
    engine.forward = engine.backward = nullptr;
    FlicVectorField field = uniformField(3, 3, 1, 0);
    FlicImage texture(4, 4), output;
    MessageCapture capture;
    EXPECT_EQ(engine.compute(&field, &texture, &output), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: LIC: the engine has no integrators");
    engine.setNormalization(2.0f);
    engine.useRK43(4.0f, 0.5f, 15.0f, 0.001f);
    EXPECT_EQ(engine.forward->normalization, 2.0f);
}

TEST(Compute, ReportsUnderVerbosityOnly) {
    FlicVectorField field = vortexSaddle(17, 17);
    FlicImage texture = noiseImage(32, 32, 1, 7), output, mask(5, 5), seedMap;
    const auto& infos = MessageCapture::infos();
    {
        MessageCapture capture(1);
        FlicCompute engine;
        engine.setFilterKernel(FlicCompute::CUBIC);
        engine.setNumSubPixels(2);
        ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
        ASSERT_EQ(infos.size(), 4u);
        EXPECT_EQ(infos[0], "FLIC info: computing LIC image (L=20, filter=cubic, mask=2x2)");
        EXPECT_GT(engine.numFieldLines, 0);
        EXPECT_EQ(infos[1], "FLIC info: total number of field lines = " +
                                std::to_string(engine.numFieldLines));
        char average[80];
        snprintf(average, sizeof average, "FLIC info: average number of hits per pixel = %.2f",
                 static_cast<float>(engine.totalHits) / (32.0f * 32.0f));
        EXPECT_EQ(infos[2], average);
        EXPECT_EQ(infos[3].rfind("FLIC info: time for LIC computation = ", 0), 0u);
        EXPECT_EQ(infos[3].substr(infos[3].size() - 4), " sec");

        MessageCapture::infos().clear();
        output.clear(77);
        EXPECT_EQ(engine.compute(&field, &texture, &output, &mask), 0);
        EXPECT_EQ(infos,
                  std::vector<std::string>{"FLIC info: field and mask must have the same size"});
        EXPECT_EQ(output.data[0], 77);

        // Below half a pixel N = 0: the texture is copied and no line is traced.
        MessageCapture::infos().clear();
        FlicImage fieldMask(17, 17);
        engine.setFilterLength(0.4f);
        ASSERT_EQ(engine.compute(&field, &texture, &output, &fieldMask, &seedMap), 1);
        EXPECT_EQ(std::make_pair(imageBytes(output), imageBytes(seedMap)),
                  std::make_pair(imageBytes(texture), Bytes(32 * 32, 1)));
        ASSERT_EQ(infos.size(), 4u);
        EXPECT_EQ(infos[1], "FLIC info: total number of field lines = 0");
        EXPECT_EQ(infos[2], "FLIC info: average number of hits per pixel = 0.00");
        EXPECT_TRUE(MessageCapture::errors().empty());
    }
    MessageCapture quiet(0);
    FlicCompute engine;
    EXPECT_EQ(engine.compute(&field, &texture, &output, &mask), 0);
    EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
    EXPECT_TRUE(infos.empty() && MessageCapture::errors().empty());
}

TEST(Compute, ZeroVectorsSeedNoLine) {
    // On a zero field every cell becomes a seed, no line is traced, the output is black and
    // the seed map holds the mask's value at each pixel's last seed (for S = 2 cell (1, 1)).
    FlicVectorField field = uniformField(8, 6, 0, 0);
    FlicImage texture = noiseImage(14, 10, 1, 9), mask(8, 6);
    for (int i = 0; i < 48; i++)
        mask.data[i] = static_cast<unsigned char>(10 + i); // never 1, the unseeded value
    for (int seeding = 0; seeding < 3; seeding++)
        for (int subPixels = 1; subPixels <= 2; subPixels++) {
            FlicCompute engine;
            engine.seedingMethod = seeding;
            engine.setNumSubPixels(subPixels);
            FlicImage output, seedMap;
            ASSERT_EQ(engine.compute(&field, &texture, &output, &mask, &seedMap), 1);
            EXPECT_EQ(std::tie(engine.numFieldLines, engine.totalHits), std::make_tuple(0, 0));
            EXPECT_EQ(imageBytes(output), Bytes(14 * 10, 0));
            reference::Settings s;
            s.seeding = seeding;
            s.numSubPixels = subPixels;
            EXPECT_EQ(imageBytes(seedMap), reference::Lic(s, field, texture).run(&mask).seedMap);
        }

    // Seeds in the last column or row interpolate towards the mirrored neighbour: on nodes
    // alternating (1, 0), (-1, 0) they lie on a zero vector.
    FlicVectorField alternating = testutil::makeField(3, 3, [](float x, float y) {
        return Vec2f{static_cast<int>(x + y) % 2 ? -1.0f : 1.0f, 0};
    });
    FlicCompute engine;
    engine.start(&alternating, &texture);
    engine.sample(Vec2f{2.5f, 0});
    engine.sample(Vec2f{0, 2.5f});
    EXPECT_EQ(engine.numFieldLines, 0);
    engine.sample(Vec2f{0.25f, 0});
    engine.stop();
    engine.sample(Vec2f{0.25f, 0}); // outside start/stop: nothing happens
    EXPECT_EQ(engine.numFieldLines, 1);
}

TEST(Compute, MatchesTheLiteralComputationByteForByte) {
    FlicVectorField smooth = vortexSaddle(25, 21), coarse = vortexSaddle(11, 8);
    FlicVectorField circles = rotationField(19, 9), holes = holesField(25, 21);
    // Lines over the small textures run on for many texture periods past their borders.
    FlicVectorField slant = uniformField(4, 4, 1.0f, 0.37f), swirl = rotationField(5, 2);
    FlicImage grey = noiseImage(48, 40, 1, 11), odd = noiseImage(37, 29, 1, 12),
              rgb = noiseImage(30, 26, 3, 13);
    FlicImage small = noiseImage(12, 9, 1, 17), colour = noiseImage(7, 11, 3, 18);
    const std::pair<FlicVectorField*, FlicImage*> inputs[] = {
        {&smooth, &grey}, {&coarse, &odd},  {&circles, &rgb}, {&holes, &grey},  {&smooth, &odd},
        {&holes, &rgb},   {&slant, &small}, {&swirl, &small}, {&slant, &colour}};
    const float lengths[] = {20, 3, 7.3f, 1, 12, 40}, extensions[] = {80, 0, 13, 40};
    // Every kernel, seeding order, S = 1 .. 3 and integrator, with the other settings drawn.
    unsigned pick = 1;
    reference::Settings s;
    for (s.kernel = 0; s.kernel < 3; s.kernel++)
        for (s.seeding = 0; s.seeding < 3; s.seeding++)
            for (s.numSubPixels = 1; s.numSubPixels <= 3; s.numSubPixels++)
                for (s.integrator = 0; s.integrator < 5; s.integrator++) {
                    pick = pick * 1664525u + 1013904223u;
                    s.interpolation = (pick >> 8) & 1;
                    s.filterLength = lengths[(pick >> 9) % 6];
                    s.extensionLength = extensions[(pick >> 12) % 4];
                    s.normalization = (pick >> 14) % 3 == 2 ? 0.3f : 0.0f;
                    s.stepLength = (pick >> 16) % 4 == 0 ? 0.7f : 1.0f;
                    const auto& in = inputs[(pick >> 18) % 9];
                    expectSameAsReference(s, *in.first, *in.second,
                                          testing::PrintToString(std::make_tuple(
                                              s.kernel, s.seeding, s.numSubPixels, s.integrator)));
                }
}

TEST(Compute, HostileInputsNeitherCrashNorHang) {
    FlicImage texture = noiseImage(40, 40, 1, 4), output;
    for (int integrator = 0; integrator < 3; integrator++)
        for (float value : {NaN, Inf, -Inf, 1e30f, -1e38f, 1e-30f, 0.0f}) {
            FlicVectorField field = vortexSaddle(21, 21);
            for (int i = 0; i < 21 * 21 * 2; i++)
                if (i % 7 == 0 || i % 11 == 3) field.data[i] = value;
            FlicCompute engine;
            if (integrator == 1) engine.useEuler();
            if (integrator == 2) engine.setNormalization(NaN);
            engine.setNumSubPixels(2);
            ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
            EXPECT_EQ(output.width, 40);
            EXPECT_GT(engine.numFieldLines, 0);
        }
    // Lines far longer than the field wrap around it many times.
    FlicVectorField tiny = vortexSaddle(3, 3);
    FlicCompute engine, sobol, pattern;
    engine.setFilterLength(300);
    engine.extensionLength = 2000;
    ASSERT_EQ(engine.compute(&tiny, &texture, &output), 1);
    // Textures of one pixel or row: a 1 x 1 output draws one Sobol pair and uses none.
    FlicVectorField field = vortexSaddle(9, 9);
    FlicImage dot(1, 1, 1), line(5, 1, 3);
    dot.data[0] = 200;
    sobol.seedingMethod = 2;
    ASSERT_EQ(sobol.compute(&field, &dot, &output), 1);
    EXPECT_EQ(std::make_tuple(sobol.numFieldLines, output.data[0]), std::make_tuple(0, 0));
    ASSERT_EQ(pattern.compute(&field, &dot, &output), 1);
    EXPECT_EQ(std::make_tuple(pattern.numFieldLines, output.data[0]), std::make_tuple(1, 200));
    ASSERT_EQ(pattern.compute(&field, &line, &output), 1);
    EXPECT_EQ(output.width, 5);
}

TEST(Compute, RejectsUnusableInputs) {
    MessageCapture capture(0);
    FlicVectorField field = vortexSaddle(9, 9), thin = uniformField(1, 9, 1, 0);
    FlicImage texture = noiseImage(16, 16, 1, 1), empty, output(3, 3, 1);
    output.clear(5);
    FlicCompute engine;
    EXPECT_EQ(engine.compute(nullptr, &texture, &output), 0);
    EXPECT_EQ(engine.compute(&thin, &texture, &output), 0);
    EXPECT_EQ(engine.compute(&field, &empty, &output), 0);
    EXPECT_EQ(engine.compute(&field, &texture, nullptr), 0);
    EXPECT_EQ(engine.compute(&field, &texture, &output, nullptr, &output), 0);
    engine.setNumSubPixels(0);
    EXPECT_EQ(engine.compute(&field, &texture, &output), 0);
    engine.setNumSubPixels(1);
    for (float length : {NaN, -5.0f, 1e9f}) {
        engine.setFilterLength(length);
        EXPECT_EQ(engine.compute(&field, &texture, &output), 0);
    }
    const auto& errors = MessageCapture::errors();
    ASSERT_EQ(errors.size(), 9u);
    EXPECT_EQ(errors[0], "FLIC error: LIC: the vector field needs at least 2 x 2 nodes");
    EXPECT_EQ(errors[2], "FLIC error: LIC: the input texture is empty");
    EXPECT_EQ(errors[3], "FLIC error: LIC: no output image");
    EXPECT_EQ(errors[4], "FLIC error: LIC: a seed map needs a mask");
    EXPECT_EQ(errors[5], "FLIC error: LIC: number of sub-pixels 0 outside 1 .. 256");
    EXPECT_EQ(errors[7], "FLIC error: LIC: filter length -5, extension 80 and step 1 give no "
                         "usable number of steps");
    EXPECT_EQ(std::make_tuple(output.width, output.data[0]), std::make_tuple(3, 5)); // untouched
    engine.setFilterLength(20); // the engine stays usable
    EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
}

// The resource check answers before any buffer is made: settings and sizes the engine cannot
// take (0), memory the system does not have (-1).
TEST(Compute, ResourcesCheckedBeforeTheWork) {
    MessageCapture capture(0);
    FlicCompute engine;
    EXPECT_EQ(1, engine.checkResources(512, 512, 1));
    EXPECT_EQ(0, engine.checkResources(40000, 40000, 1));
    EXPECT_EQ("FLIC error: LIC: 40000 x 40000 x 1 texture too large for the work buffers",
              MessageCapture::onlyError());
    // (S^2 + channels) x 4 bytes of records a pixel, and the texture and the picture.
    EXPECT_EQ(100LL * 50 * (4 + 3) * 4 + 2 * 100 * 50 * 3, [&] {
        engine.setNumSubPixels(2);
        return engine.memoryNeeded(100, 50, 3);
    }());
    MessageCapture::errors().clear();
    if (FlicCompute::availableMemory() > 0) {
        EXPECT_EQ(-1, engine.checkResources(64, 64, 1, 1LL << 60));
        EXPECT_EQ(0u,
                  MessageCapture::onlyError().find("FLIC error: a 64 x 64 picture needs about "))
            << MessageCapture::onlyError();
    }
}

TEST(Compute, ValuesOutsideTheEnumerationsActAsBoxAndBilinear) {
    FlicVectorField field = vortexSaddle(9, 9);
    FlicImage texture = noiseImage(24, 20, 1, 8);
    auto run = [&](int kernel, int interpolation) {
        FlicCompute engine;
        engine.setFilterLength(6);
        engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(kernel));
        engine.setInterpolationMethod(static_cast<FlicCompute::InterpolationMethod>(interpolation));
        FlicImage output;
        EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
        return imageBytes(output);
    };
    for (int kernel : {7, -1})
        EXPECT_EQ(run(kernel, 1), run(FlicCompute::BOX, 1)) << kernel;
    for (int interpolation : {-3, 2})
        EXPECT_EQ(run(1, interpolation), run(1, FlicCompute::BILINEAR)) << interpolation;
    EXPECT_NE(run(1, 0), run(1, FlicCompute::BILINEAR));
}

// The quasi-random order of a grid one cell wide or high holds the sign bit, not 0, on that
// axis: every candidate still names a pixel of the image.
TEST(Compute, QuasiRandomSeedingOnTexturesOnePixelWideOrHigh) {
    FlicVectorField vertical = uniformField(3, 3, 0, 1), horizontal = uniformField(3, 3, 1, 0);
    FlicImage column(1, 6, 1), row(6, 1, 1), output;
    FlicCompute engine;
    engine.seedingMethod = 2;
    for (auto [field, texture] :
         {std::make_pair(&vertical, &column), std::make_pair(&horizontal, &row)}) {
        texture->clear(200);
        ASSERT_EQ(engine.compute(field, texture, &output), 1);
        EXPECT_GT(engine.numFieldLines, 0);
        EXPECT_EQ(imageBytes(output), Bytes(6, 200));
    }
}

TEST(Compute, TextureLookupsWrapPeriodically) {
    // Periods 4 x 3 and 2 x 4: the last column and row are only right and upper neighbours.
    FlicImage grey = noiseImage(5, 4, 1, 6), rgb = noiseImage(3, 5, 3, 7);
    int v, w, bilinear[3], constant[3];
    // Ordinary coordinates, whole periods included, agree with the plain wrap loops.
    for (float x = -300.0f; x < 300.0f; x += 0.37f) {
        float y = -x * 0.71f, r = std::round(x);
        FlicCompute::getPixelBilinear1(&grey, x, y, &v);
        FlicCompute::getPixelConst1(&grey, r, r, &w);
        EXPECT_EQ(std::make_pair(v, w), std::make_pair(reference::texel(grey, x, y, 0, true),
                                                       reference::texel(grey, r, r, 0, false)));
        FlicCompute::getPixelBilinearN(&rgb, x, y, bilinear);
        FlicCompute::getPixelConstN(&rgb, r, y, constant);
        for (int ch = 0; ch < 3; ch++)
            EXPECT_EQ(std::make_pair(bilinear[ch], constant[ch]),
                      std::make_pair(reference::texel(rgb, x, y, ch, true),
                                     reference::texel(rgb, r, y, ch, false)))
                << x;
    }
    // Far and non-finite coordinates end.
    for (float x : {1e30f, -3e20f, Inf, -Inf, NaN, 1.7e7f}) {
        FlicCompute::getPixelBilinear1(&grey, x, x, &v);
        FlicCompute::getPixelConst1(&grey, x, 1.0f, &w);
        EXPECT_TRUE(v >= 0 && v <= 255 && w >= 0) << x;
    }
    FlicCompute::getPixelBilinear1(&grey, 1e30f, 2.0f, &v);
    FlicCompute::getPixelBilinear1(&grey, fmodf(1e30f, 4.0f), 2.0f, &w);
    EXPECT_EQ(v, w);
}

TEST(Compute, CounterTubeChoosesTheBestExtension) {
    FlicCompute engine;
    engine.kernelSteps = 10;
    engine.extensionSteps = 3;
    // Gains g[1..3] = 30, 5, 40; line counts n[1..4] = 2, 1, 1, 1; an entry above M + 1.
    const int before[10][2] = {{0, 0}, {30, 2}, {5, 1}, {40, 1}, {0, 1}, {}, {}, {}, {}, {0, 77}};
    memcpy(engine.zaehlrohr, before, sizeof before);
    engine.evalZaehlrohr();
    // Suffix sums n = 5, 5, 3, 2, 1; ratios 30/(11*3), 35/(12*2), 75/(13*1): the last is best.
    // Entry 0 keeps the total, the used entries are cleared, the one above is left alone.
    const int after[10][2] = {{0, 5}, {}, {}, {}, {}, {}, {}, {}, {}, {0, 77}};
    EXPECT_EQ(engine.extensionSteps, 3);
    EXPECT_EQ(memcmp(engine.zaehlrohr, after, sizeof after), 0);

    engine.extensionSteps = 0;
    engine.zaehlrohr[1][1] = 4;
    engine.evalZaehlrohr();
    EXPECT_EQ(
        std::make_tuple(engine.extensionSteps, engine.zaehlrohr[0][1], engine.zaehlrohr[1][1]),
        std::make_tuple(0, 9, 0));

    // Extensions beyond the tube's 256 entries stay inside it.
    FlicCompute::TextureLookup lookup = engine.getPixel;
    engine.extensionSteps = 100000;
    for (auto& entry : engine.zaehlrohr)
        entry[0] = entry[1] = 1;
    engine.evalZaehlrohr();
    EXPECT_EQ(engine.getPixel, lookup);
    EXPECT_TRUE(engine.extensionSteps >= 1 && engine.extensionSteps <= 254);

    // Counts of any size: the gain is summed beyond the int range (30 + INT_MAX twice would
    // wrap negative and lose to step 1), the stored suffix sums wrap, nothing is undefined.
    engine.kernelSteps = 0;
    engine.extensionSteps = 2;
    engine.zaehlrohr[1][0] = INT_MAX;
    engine.zaehlrohr[2][0] = INT_MAX;
    engine.zaehlrohr[1][1] = engine.zaehlrohr[2][1] = engine.zaehlrohr[3][1] = 1;
    engine.evalZaehlrohr(); // ratios INT_MAX / (1 * 2) and 2 INT_MAX / (2 * 1)
    EXPECT_EQ(engine.extensionSteps, 2);
    for (auto& entry : engine.zaehlrohr)
        entry[0] = entry[1] = INT_MAX;
    engine.kernelSteps = engine.lengthBias = engine.extensionSteps = INT_MAX;
    engine.evalZaehlrohr();
    EXPECT_TRUE(engine.extensionSteps >= 0 && engine.extensionSteps <= 254);
    EXPECT_EQ(engine.zaehlrohr[255][0], INT_MAX); // the gain beyond the evaluated steps stays
}
