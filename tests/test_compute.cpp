// The LIC engine: configuration, start/stop reports, the driver's seeding orders, sampling and
// convolution, and byte-for-byte agreement with a literal reference computation.
#include "compute.h"
#include "lic_reference.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

using testutil::MessageCapture;

namespace {

const float NaN = std::numeric_limits<float>::quiet_NaN();
const float Inf = std::numeric_limits<float>::infinity();

void setNode(FlicVectorField& field, int x, int y, float vx, float vy) {
    field.vectors()[y * field.width + x] = Vec2f{vx, vy};
}

FlicVectorField uniformField(int width, int height, float vx, float vy) {
    FlicVectorField field(width, height);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++)
            setNode(field, x, y, vx, vy);
    return field;
}

// A vortex and a saddle over the unit square: smooth, with critical points and lines leaving.
FlicVectorField vortexSaddle(int width, int height) {
    FlicVectorField field(width, height);
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            float u = x / (width - 1.0f), v = y / (height - 1.0f);
            float ax = u - 0.3f, ay = v - 0.45f, bx = u - 0.72f, by = v - 0.6f;
            float wa = expf(-(ax * ax + ay * ay) * 12.0f);
            setNode(field, x, y, -ay * wa + 0.6f * bx, ax * wa - 0.6f * by);
        }
    return field;
}

// Counter-clockwise circles about the field's centre.
FlicVectorField circleField(int size) {
    FlicVectorField field(size, size);
    float c = (size - 1) / 2.0f;
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x++)
            setNode(field, x, y, -(y - c), x - c);
    return field;
}

FlicImage noise(int width, int height, int channels, unsigned seed) {
    FlicImage image(width, height, channels);
    for (int i = 0; i < width * height * channels; i++) {
        seed = seed * 1103515245u + 12345u;
        image.data[i] = static_cast<unsigned char>(seed >> 16);
    }
    return image;
}

std::vector<unsigned char> bytes(const FlicImage& image) {
    return std::vector<unsigned char>(image.data,
                                      image.data + image.width * image.height * image.nChannels);
}

void configure(FlicCompute& engine, const reference::Settings& s) {
    engine.setFilterLength(s.filterLength);
    engine.extensionLength = s.extensionLength;
    engine.stepLength = s.stepLength;
    engine.setNumSubPixels(s.numSubPixels);
    engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(s.kernel));
    engine.seedingMethod = s.seeding;
    engine.setInterpolationMethod(static_cast<FlicCompute::InterpolationMethod>(s.interpolation));
    engine.setNormalization(s.normalization);
    if (s.integrator == 1) engine.useEuler();
    if (s.integrator == 2) engine.useRK43(2.0f, 0.25f, 6.0f, 0.01f);
    if (s.integrator >= 3) {
        delete engine.forward;
        delete engine.backward;
        if (s.integrator == 3) {
            engine.forward = new RKDP(0.001f, 4.0f, 0.5f, 15.0f, 1);
            engine.backward = new RKDP(0.001f, 4.0f, 0.5f, 15.0f, -1);
        } else {
            engine.forward = new RKCK(0.001f, 4.0f, 0.5f, 15.0f, 1);
            engine.backward = new RKCK(0.001f, 4.0f, 0.5f, 15.0f, -1);
        }
        engine.setNormalization(s.normalization);
    }
}

// An RK43 seen by the engine as a foreign integrator: traced through the virtual `next`.
class WrappedRK43 : public RK43 {
  public:
    explicit WrappedRK43(int direction) : RK43(0.001f, 4.0f, 0.5f, 15.0f, direction) {}
};

// Runs engine and reference on the same input and compares every output byte.
void expectSameAsReference(const reference::Settings& s, FlicVectorField& field, FlicImage& texture,
                           const std::string& label) {
    FlicCompute engine;
    configure(engine, s);
    FlicImage output;
    ASSERT_EQ(engine.compute(&field, &texture, &output), 1) << label;
    reference::Lic lic(s);
    reference::Result expected = lic.run(field, texture);
    ASSERT_EQ(bytes(output), expected.image) << label;
    EXPECT_EQ(engine.numFieldLines, expected.lines) << label;
    EXPECT_EQ(engine.totalHits, expected.totalHits) << label;
}

// A test integrator that stays at its seed and records every seed it is started at.
class SeedRecorder : public FlicIntegrator {
  public:
    std::vector<Vec2f>* seeds;
    Vec2f at{0, 0};
    explicit SeedRecorder(std::vector<Vec2f>* seeds) : FlicIntegrator(1), seeds(seeds) {}
    void init(const Vec2f& p, const Vec2f&) override {
        at = p;
        if (seeds) seeds->push_back(p);
    }
    void init(const Vec2f& p, const Vec2f& v, float) override { init(p, v); }
    const Vec2f& next(int& statusOut) override {
        statusOut = 0;
        return at;
    }
    const Vec2f& next(float& speedOut, int& statusOut) override {
        speedOut = 1;
        return next(statusOut);
    }
};

// The pixel (x, y) and cell (i, j) of every seed the engine visits on a W x H texture over a
// (W + 1) x (H + 1) field (scale 1): lines deposit only at their seed (no extension).
std::vector<std::vector<int>> visitingOrder(int seeding, int width, int height, int subPixels) {
    FlicVectorField field = uniformField(width + 1, height + 1, 1, 0);
    FlicImage texture = noise(width, height, 1, 3);
    FlicCompute engine;
    engine.seedingMethod = seeding;
    engine.setNumSubPixels(subPixels);
    engine.extensionLength = 0;
    engine.setFilterLength(1);
    std::vector<Vec2f> seeds;
    delete engine.forward;
    delete engine.backward;
    engine.forward = new SeedRecorder(&seeds);
    engine.backward = new SeedRecorder(nullptr);
    FlicImage output;
    engine.compute(&field, &texture, &output);
    std::vector<std::vector<int>> order;
    for (const Vec2f& p : seeds) {
        float cx = p.x * subPixels, cy = p.y * subPixels;
        int X = static_cast<int>(cx), Y = static_cast<int>(cy);
        order.push_back({X / subPixels, Y / subPixels, X % subPixels, Y % subPixels});
    }
    return order;
}

} // namespace

TEST(Compute, DefaultsAndDerivedStepCounts) {
    FlicCompute engine;
    EXPECT_EQ(engine.filterLength, 20.0f);
    EXPECT_EQ(engine.extensionLength, 80.0f);
    EXPECT_EQ(engine.stepLength, 1.0f);
    EXPECT_EQ(engine.offsetLength, 20.0f);
    EXPECT_EQ(engine.normalization, 0.0f);
    EXPECT_EQ(engine.numSubPixels, 1);
    EXPECT_EQ(engine.filterKernel, FlicCompute::TRIANGLE);
    EXPECT_EQ(engine.seedingMethod, 1);
    EXPECT_EQ(engine.interpolationMethod, FlicCompute::BILINEAR);
    EXPECT_EQ(FlicCompute::BOX, 0);
    EXPECT_EQ(FlicCompute::CUBIC, 2);
    EXPECT_EQ(FlicCompute::CONSTANT, 0);
    for (int j = 0; j < 256; j++)
        ASSERT_TRUE(engine.zaehlrohr[j][0] == 0 && engine.zaehlrohr[j][1] == 0);
    auto* rk = dynamic_cast<RK43*>(engine.forward);
    ASSERT_NE(rk, nullptr);
    EXPECT_EQ(rk->tolerance, 0.001f);
    EXPECT_EQ(rk->initialStep, 4.0f);
    EXPECT_EQ(rk->minStep, 0.5f);
    EXPECT_EQ(rk->maxStep, 15.0f);
    EXPECT_EQ(engine.forward->direction, 1.0f);
    EXPECT_EQ(engine.backward->direction, -1.0f);
    const int table[16][2] = {{0, 0}, {2, 0}, {0, 2}, {2, 2}, {1, 1}, {3, 1}, {1, 3}, {3, 3},
                              {1, 0}, {3, 0}, {1, 2}, {3, 2}, {0, 1}, {2, 1}, {0, 3}, {2, 3}};
    EXPECT_EQ(memcmp(table, FlicCompute::offset, sizeof table), 0);

    FlicVectorField field = uniformField(11, 6, 1, 0);
    FlicImage texture = noise(40, 20, 3, 1);
    engine.start(&field, &texture);
    EXPECT_EQ(engine.kernelSteps, 20);
    EXPECT_EQ(engine.extensionSteps, 80);
    EXPECT_EQ(engine.maxSteps, 100);
    EXPECT_EQ(engine.numSubCells, 1);
    EXPECT_EQ(engine.recordStride, 4);
    EXPECT_EQ(engine.scaleX, 4.0f);
    EXPECT_EQ(engine.scaleY, 4.0f);
    EXPECT_EQ(engine.fieldMaxX, static_cast<float>(11 - 1.001));
    EXPECT_EQ(engine.fieldMaxY, static_cast<float>(6 - 1.001));
    EXPECT_EQ(engine.forward->stepLength, 2.0f * 1.0f / 8.0f);
    EXPECT_EQ(engine.forward->field, field.vectors());
    EXPECT_EQ(engine.backward->width, 11);
    EXPECT_EQ(engine.getPixel, &FlicCompute::getPixelBilinearN);
    for (int i = 0; i < 40 * 20 * 4; i++)
        ASSERT_EQ(engine.accum[i], 0);
    engine.stop();
    EXPECT_EQ(engine.accum, nullptr);
    EXPECT_EQ(engine.points, nullptr);

    struct Case {
        float length;
        int kernel;
        int steps;
    } cases[] = {{20, FlicCompute::CUBIC, 24},     {2.4f, FlicCompute::TRIANGLE, 2},
                 {0.4f, FlicCompute::TRIANGLE, 0}, {0.4f, FlicCompute::CUBIC, 0},
                 {18, FlicCompute::CUBIC, 18},     {2.5f, FlicCompute::BOX, 3},
                 {1, FlicCompute::CUBIC, 6}};
    for (const Case& c : cases) {
        engine.setFilterLength(c.length);
        engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(c.kernel));
        engine.setInterpolationMethod(FlicCompute::CONSTANT);
        engine.setNumSubPixels(3);
        FlicImage grey = noise(40, 20, 1, 1);
        engine.start(&field, &grey);
        EXPECT_EQ(engine.kernelSteps, c.steps) << c.length;
        EXPECT_EQ(engine.numSubCells, 9);
        EXPECT_EQ(engine.recordStride, 10);
        EXPECT_EQ(engine.getPixel, &FlicCompute::getPixelConst1);
        engine.stop();
    }
}

TEST(Compute, IntegratorChoice) {
    FlicCompute engine;
    engine.setNormalization(0.5f);
    EXPECT_EQ(engine.forward->normalization, 0.5f);
    EXPECT_EQ(engine.backward->normalization, 0.5f);
    engine.useEuler();
    ASSERT_NE(dynamic_cast<Midpoint*>(engine.forward), nullptr);
    ASSERT_NE(dynamic_cast<Midpoint*>(engine.backward), nullptr);
    EXPECT_EQ(engine.forward->direction, 1.0f);
    EXPECT_EQ(engine.backward->direction, -1.0f);
    EXPECT_EQ(engine.backward->normalization, 0.5f);
    engine.useRK43(3.0f, 0.25f, 9.0f, 0.02f);
    auto* rk = dynamic_cast<RK43*>(engine.backward);
    ASSERT_NE(rk, nullptr);
    EXPECT_EQ(rk->initialStep, 3.0f);
    EXPECT_EQ(rk->minStep, 0.25f);
    EXPECT_EQ(rk->maxStep, 9.0f);
    EXPECT_EQ(rk->tolerance, 0.02f);
    EXPECT_EQ(rk->direction, -1.0f);
    EXPECT_EQ(rk->normalization, 0.5f);
    // Without integrators the threshold is only stored.
    delete engine.forward;
    delete engine.backward;
    engine.forward = engine.backward = nullptr;
    engine.setNormalization(2.0f);
    EXPECT_EQ(engine.normalization, 2.0f);
    engine.useRK43(4.0f, 0.5f, 15.0f, 0.001f);
    EXPECT_EQ(engine.forward->normalization, 2.0f);
}

TEST(Compute, ReportsUnderVerbosityOnly) {
    FlicVectorField field = vortexSaddle(17, 17);
    FlicImage texture = noise(32, 32, 1, 7);
    FlicImage output;
    {
        MessageCapture capture(1);
        FlicCompute engine;
        engine.setFilterKernel(FlicCompute::CUBIC);
        engine.setNumSubPixels(2);
        ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
        const auto& infos = MessageCapture::infos();
        ASSERT_EQ(infos.size(), 4u);
        EXPECT_EQ(infos[0], "FLIC info: computing LIC image (L=20, filter=cubic, mask=2x2)");
        EXPECT_EQ(infos[1], "FLIC info: total number of field lines = " +
                                std::to_string(engine.numFieldLines));
        char average[64];
        snprintf(average, sizeof average, "%.2f",
                 static_cast<float>(engine.totalHits) / (32.0f * 32.0f));
        EXPECT_EQ(infos[2],
                  std::string("FLIC info: average number of hits per pixel = ") + average);
        EXPECT_EQ(infos[3].rfind("FLIC info: time for LIC computation = ", 0), 0u);
        EXPECT_EQ(infos[3].substr(infos[3].size() - 4), " sec");
        EXPECT_GT(engine.numFieldLines, 0);

        MessageCapture::infos().clear();
        FlicImage mask(5, 5);
        mask.clear(9);
        output.clear(77);
        EXPECT_EQ(engine.compute(&field, &texture, &output, &mask), 0);
        ASSERT_EQ(infos.size(), 1u);
        EXPECT_EQ(infos[0], "FLIC info: field and mask must have the same size");
        EXPECT_EQ(output.data[0], 77);
        EXPECT_TRUE(MessageCapture::errors().empty());
    }
    {
        MessageCapture quiet(0);
        FlicCompute engine;
        FlicImage mask(5, 5);
        EXPECT_EQ(engine.compute(&field, &texture, &output, &mask), 0);
        EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
        EXPECT_TRUE(MessageCapture::infos().empty());
        EXPECT_TRUE(MessageCapture::errors().empty());
    }
}

TEST(Compute, ShortFilterCopiesTheTexture) {
    MessageCapture capture(1);
    FlicVectorField field = vortexSaddle(9, 9);
    FlicImage texture = noise(21, 13, 3, 5);
    FlicImage output, mask(9, 9), seedMap;
    mask.clear(4);
    FlicCompute engine;
    engine.setFilterLength(0.4f);
    ASSERT_EQ(engine.compute(&field, &texture, &output, &mask, &seedMap), 1);
    EXPECT_EQ(bytes(output), bytes(texture));
    EXPECT_EQ(engine.numFieldLines, 0);
    EXPECT_EQ(bytes(seedMap), std::vector<unsigned char>(21 * 13, 1));
    ASSERT_EQ(MessageCapture::infos().size(), 4u);
    EXPECT_EQ(MessageCapture::infos()[1], "FLIC info: total number of field lines = 0");
    EXPECT_EQ(MessageCapture::infos()[2], "FLIC info: average number of hits per pixel = 0.00");
}

TEST(Compute, ZeroFieldSeedsEveryCellAndStaysBlack) {
    FlicVectorField field = uniformField(8, 6, 0, 0);
    FlicImage texture = noise(14, 10, 1, 9);
    FlicImage mask(8, 6), seedMap, output;
    for (int i = 0; i < 48; i++)
        mask.data[i] = static_cast<unsigned char>(10 + i);
    for (int seeding = 0; seeding < 3; seeding++) {
        FlicCompute engine;
        engine.seedingMethod = seeding;
        ASSERT_EQ(engine.compute(&field, &texture, &output, &mask, &seedMap), 1);
        EXPECT_EQ(engine.numFieldLines, 0);
        EXPECT_EQ(engine.totalHits, 0);
        EXPECT_EQ(bytes(output), std::vector<unsigned char>(14 * 10, 0));
        ASSERT_EQ(seedMap.width, 14);
        ASSERT_EQ(seedMap.nChannels, 1);
        // Every pixel was seeded (all but the last Sobol pair); its value is the mask's node
        // at the seed, truncated.
        int seeded = 0;
        for (int y = 0; y < 10; y++)
            for (int x = 0; x < 14; x++) {
                float sx = (x + 0.5f) * (1.0f / engine.scaleX);
                float sy = (y + 0.5f) * (1.0f / engine.scaleY);
                int expected = mask.data[static_cast<int>(sy) * 8 + static_cast<int>(sx)];
                if (seedMap.data[y * 14 + x] == expected) {
                    seeded++;
                } else {
                    EXPECT_EQ(seedMap.data[y * 14 + x], 1);
                }
            }
        EXPECT_EQ(seeded, seeding == 2 ? 14 * 10 - 1 : 14 * 10) << seeding;
    }
}

TEST(Compute, SeedMapWithSubPixelsHoldsTheLastSeedOfEachPixel) {
    // Zero field, S = 2: every cell is a seed; the last seed of a pixel is its cell (1, 1).
    FlicVectorField field = uniformField(5, 5, 0, 0);
    FlicImage texture = noise(8, 8, 1, 2);
    FlicImage mask(5, 5), seedMap, output;
    for (int i = 0; i < 25; i++)
        mask.data[i] = static_cast<unsigned char>(100 + i);
    FlicCompute engine;
    engine.setNumSubPixels(2);
    ASSERT_EQ(engine.compute(&field, &texture, &output, &mask, &seedMap), 1);
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++) {
            float sx = (x + 1.5f * 0.5f) * (1.0f / 2.0f), sy = (y + 1.5f * 0.5f) * (1.0f / 2.0f);
            EXPECT_EQ(seedMap.data[y * 8 + x],
                      mask.data[static_cast<int>(sy) * 5 + static_cast<int>(sx)]);
        }
}

TEST(Compute, ConstantTextureGivesConstantPicture) {
    FlicVectorField field = vortexSaddle(21, 21);
    FlicImage texture(40, 40, 1);
    texture.clear(173);
    for (int kernel = 0; kernel < 3; kernel++)
        for (int interpolation = 0; interpolation < 2; interpolation++) {
            FlicCompute engine;
            engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(kernel));
            engine.setInterpolationMethod(
                static_cast<FlicCompute::InterpolationMethod>(interpolation));
            FlicImage output;
            ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
            int covered = 0;
            for (int i = 0; i < 40 * 40; i++) {
                if (output.data[i] == 0) continue;
                covered++;
                EXPECT_EQ(output.data[i], 173) << kernel;
            }
            EXPECT_GT(covered, 40 * 40 * 9 / 10);
        }
}

TEST(Compute, BoxWithOneStepAveragesTwoSamples) {
    // Flow along +x on a scale-1 grid, no extension: every line leaves one value at its seed,
    // the mean of the texels one step behind and at the seed.
    FlicVectorField field = uniformField(13, 5, 1, 0);
    FlicImage texture(12, 4, 1);
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 12; x++)
            texture.data[y * 12 + x] = static_cast<unsigned char>(7 * x * x + 3 * y);
    FlicCompute engine;
    engine.setFilterKernel(FlicCompute::BOX);
    engine.setFilterLength(1.0f);
    engine.extensionLength = 0.0f;
    engine.setInterpolationMethod(FlicCompute::CONSTANT);
    FlicImage output;
    ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
    EXPECT_EQ(engine.numFieldLines, 48);
    // Row 3 and column 11 are read only as neighbours (wrap period size - 1).
    for (int y = 0; y < 3; y++)
        for (int x = 1; x < 11; x++)
            EXPECT_EQ(output.data[y * 12 + x],
                      (texture.data[y * 12 + x - 1] + texture.data[y * 12 + x]) / 2)
                << x << "," << y;
}

TEST(Compute, VisitingOrders) {
    // Interleaved pattern on 5 x 5: per offset, rows oy, oy + 4 and columns ox, ox + 4.
    std::vector<std::vector<int>> expected;
    for (const int* o : FlicCompute::offset)
        for (int y = o[1]; y < 5; y += 4)
            for (int x = o[0]; x < 5; x += 4)
                expected.push_back({x, y, 0, 0});
    auto pattern = visitingOrder(1, 5, 5, 1);
    EXPECT_EQ(pattern, expected);
    ASSERT_GE(pattern.size(), 9u);
    EXPECT_EQ(pattern[0], (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(pattern[1], (std::vector<int>{4, 0, 0, 0}));
    EXPECT_EQ(pattern[4], (std::vector<int>{2, 0, 0, 0}));  // ox = 2: only x = 2
    EXPECT_EQ(pattern[8], (std::vector<int>{2, 2, 0, 0}));  // then (2, 2)
    EXPECT_EQ(pattern[9], (std::vector<int>{1, 1, 0, 0}));  // ox = 1: x = 1 only
    EXPECT_EQ(pattern[10], (std::vector<int>{3, 1, 0, 0})); // ox = 3: x = 3 only

    // S = 2: the whole pattern once per cell, cells (0,0), (1,0), (0,1), (1,1).
    auto cells = visitingOrder(1, 4, 4, 2);
    ASSERT_EQ(cells.size(), 64u);
    for (int n = 0; n < 64; n++) {
        EXPECT_EQ(cells[n][2], (n / 16) % 2);
        EXPECT_EQ(cells[n][3], n / 32);
    }
    EXPECT_EQ(cells[16], (std::vector<int>{0, 0, 1, 0}));

    // Raster: rows bottom to top, columns left to right.
    auto raster = visitingOrder(0, 3, 2, 1);
    std::vector<std::vector<int>> rows = {{0, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 0, 0},
                                          {0, 1, 0, 0}, {1, 1, 0, 0}, {2, 1, 0, 0}};
    EXPECT_EQ(raster, rows);

    // Quasi-random on 2 x 2: arrays (1, 0) and (1, 0); pairs (1,1), (0,0), (1,0), and the
    // fourth, (0,1), is drawn but not used.
    auto sobol = visitingOrder(2, 2, 2, 1);
    std::vector<std::vector<int>> pairs = {{1, 1, 0, 0}, {0, 0, 0, 0}, {1, 0, 0, 0}};
    EXPECT_EQ(sobol, pairs);

    // Any other method seeds nothing.
    EXPECT_TRUE(visitingOrder(7, 4, 4, 1).empty());
}

TEST(Compute, MatchesTheLiteralComputationByteForByte) {
    FlicVectorField smooth = vortexSaddle(25, 21);
    FlicVectorField coarse = vortexSaddle(11, 8);
    FlicVectorField circles = circleField(19);
    // A field with holes: zero and NaN nodes end lines with status 2.
    FlicVectorField holes = vortexSaddle(25, 21);
    for (int x = 9; x < 13; x++)
        setNode(holes, x, 10, 0, 0);
    setNode(holes, 18, 5, NaN, 1);
    FlicImage grey = noise(48, 40, 1, 11);
    FlicImage odd = noise(37, 29, 1, 12);
    FlicImage rgb = noise(30, 26, 3, 13);

    struct Input {
        FlicVectorField* field;
        FlicImage* texture;
    } inputs[] = {{&smooth, &grey}, {&coarse, &odd}, {&circles, &rgb},
                  {&holes, &grey},  {&smooth, &odd}, {&holes, &rgb}};
    const float lengths[] = {20, 3, 7.3f, 1, 12, 40};
    const float extensions[] = {80, 0, 13, 40};
    const float normalizations[] = {0, 0, 0.3f};
    unsigned pick = 1;
    int cases = 0;
    for (int kernel = 0; kernel < 3; kernel++)
        for (int seeding = 0; seeding < 3; seeding++)
            for (int subPixels = 1; subPixels <= 3; subPixels++)
                for (int integrator = 0; integrator < 5; integrator++) {
                    pick = pick * 1664525u + 1013904223u;
                    reference::Settings s;
                    s.kernel = kernel;
                    s.seeding = seeding;
                    s.numSubPixels = subPixels;
                    s.integrator = integrator;
                    s.interpolation = (pick >> 8) & 1;
                    s.filterLength = lengths[(pick >> 9) % 6];
                    s.extensionLength = extensions[(pick >> 12) % 4];
                    s.normalization = normalizations[(pick >> 14) % 3];
                    s.stepLength = (pick >> 16) % 4 == 0 ? 0.7f : 1.0f;
                    const Input& in = inputs[(pick >> 18) % 6];
                    std::string label =
                        "kernel " + std::to_string(kernel) + " seeding " + std::to_string(seeding) +
                        " S " + std::to_string(subPixels) + " integrator " +
                        std::to_string(integrator) + " L " + std::to_string(s.filterLength);
                    expectSameAsReference(s, *in.field, *in.texture, label);
                    cases++;
                }
    EXPECT_EQ(cases, 135);
}

TEST(Compute, LinesFarBeyondTheTextureWrapLikeTheLiteralLoops) {
    // Lines over a small texture run on for many texture periods past its border.
    FlicVectorField field = uniformField(4, 4, 1.0f, 0.37f);
    FlicVectorField swirl = circleField(5);
    FlicImage texture = noise(12, 9, 1, 17), colour = noise(7, 11, 3, 18);
    for (int integrator : {0, 1})
        for (int interpolation : {0, 1}) {
            reference::Settings s;
            s.integrator = integrator;
            s.interpolation = interpolation;
            s.filterLength = 30;
            s.extensionLength = 120;
            expectSameAsReference(s, field, texture, "uniform grey");
            expectSameAsReference(s, swirl, texture, "swirl grey");
            expectSameAsReference(s, field, colour, "uniform colour");
        }
}

TEST(Compute, AdaptiveLinesAreTheSameThroughTheVirtualInterface) {
    // The engine takes the points on an adaptive integrator's cubic in bulk; an integrator of a
    // type it does not know is called point by point. Both must trace the same lines.
    FlicVectorField holes = vortexSaddle(33, 29);
    for (int x = 12; x < 17; x++)
        setNode(holes, x, 14, 0, 0);
    setNode(holes, 25, 7, NaN, 0);
    FlicImage texture = noise(64, 56, 1, 5);
    for (float extension : {80.0f, 5.0f, 0.0f})
        for (float length : {20.0f, 2.0f, 60.0f}) {
            FlicCompute plain, wrapped;
            for (FlicCompute* engine : {&plain, &wrapped}) {
                engine->setFilterLength(length);
                engine->extensionLength = extension;
            }
            delete wrapped.forward;
            delete wrapped.backward;
            wrapped.forward = new WrappedRK43(1);
            wrapped.backward = new WrappedRK43(-1);
            FlicImage a, b;
            ASSERT_EQ(plain.compute(&holes, &texture, &a), 1);
            ASSERT_EQ(wrapped.compute(&holes, &texture, &b), 1);
            EXPECT_EQ(bytes(a), bytes(b)) << length << " " << extension;
            EXPECT_EQ(plain.totalHits, wrapped.totalHits);
        }
}

TEST(Compute, StreaksFollowTheCircles) {
    FlicVectorField field = circleField(65);
    FlicImage texture = noise(256, 256, 1, 21);
    FlicImage output;
    FlicCompute engine;
    ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
    // Correlation of each pixel with its neighbour two pixels along the circle and two pixels
    // across it, over an annulus.
    double along = 0, across = 0, mean = 0, var = 0;
    int n = 0;
    for (int y = 0; y < 256; y++)
        for (int x = 0; x < 256; x++) {
            double dx = x + 0.5 - 128, dy = y + 0.5 - 128, r = std::hypot(dx, dy);
            if (r < 40 || r > 110) continue;
            double tx = -dy / r, ty = dx / r;
            int ax = static_cast<int>(std::lround(x + 2 * tx)),
                ay = static_cast<int>(std::lround(y + 2 * ty));
            int cx = static_cast<int>(std::lround(x + 2 * dx / r)),
                cy = static_cast<int>(std::lround(y + 2 * dy / r));
            double v = output.data[y * 256 + x] - 128.0;
            along += v * (output.data[ay * 256 + ax] - 128.0);
            across += v * (output.data[cy * 256 + cx] - 128.0);
            mean += v;
            var += v * v;
            n++;
        }
    double m = mean / n, variance = var / n - m * m;
    double corrAlong = (along / n - m * m) / variance;
    double corrAcross = (across / n - m * m) / variance;
    EXPECT_GT(corrAlong, 0.8);
    EXPECT_LT(corrAcross, 0.4);
}

TEST(Compute, HostileFieldsNeitherCrashNorHang) {
    FlicImage texture = noise(40, 40, 1, 4);
    const float values[] = {NaN, Inf, -Inf, 1e30f, -1e38f, 1e-30f, 0.0f};
    for (int integrator = 0; integrator < 3; integrator++)
        for (float value : values) {
            FlicVectorField field = vortexSaddle(21, 21);
            for (int i = 0; i < 21 * 21; i += 7)
                field.data[i] = value;
            for (int i = 3; i < 21 * 21 * 2; i += 11)
                field.data[i] = value;
            FlicCompute engine;
            if (integrator == 1) engine.useEuler();
            if (integrator == 2) engine.setNormalization(NaN);
            engine.setNumSubPixels(2);
            FlicImage output;
            ASSERT_EQ(engine.compute(&field, &texture, &output), 1);
            EXPECT_EQ(output.width, 40);
            EXPECT_GT(engine.numFieldLines, 0);
        }
    // Lines far longer than the field wrap around it many times.
    FlicVectorField tiny = vortexSaddle(3, 3);
    FlicCompute engine;
    engine.setFilterLength(300);
    engine.extensionLength = 2000;
    FlicImage output;
    ASSERT_EQ(engine.compute(&tiny, &texture, &output), 1);
}

TEST(Compute, RejectsUnusableInputs) {
    MessageCapture capture(0);
    FlicVectorField field = vortexSaddle(9, 9);
    FlicVectorField thin = uniformField(1, 9, 1, 0);
    FlicImage texture = noise(16, 16, 1, 1), empty, output, mask(9, 9);
    output.setSize(3, 3, 1);
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
    engine.setFilterLength(NaN);
    EXPECT_EQ(engine.compute(&field, &texture, &output), 0);
    engine.setFilterLength(-5);
    EXPECT_EQ(engine.compute(&field, &texture, &output), 0);
    engine.setFilterLength(1e9f);
    EXPECT_EQ(engine.compute(&field, &texture, &output), 0);
    const auto& errors = MessageCapture::errors();
    ASSERT_EQ(errors.size(), 9u);
    EXPECT_EQ(errors[0], "FLIC error: LIC: the vector field needs at least 2 x 2 nodes");
    EXPECT_EQ(errors[2], "FLIC error: LIC: the input texture is empty");
    EXPECT_EQ(errors[3], "FLIC error: LIC: no output image");
    EXPECT_EQ(errors[4], "FLIC error: LIC: a seed map needs a mask");
    EXPECT_EQ(errors[5], "FLIC error: LIC: number of sub-pixels 0 outside 1 .. 256");
    EXPECT_EQ(errors[7], "FLIC error: LIC: filter length -5, extension 80 and step 1 give no "
                         "usable number of steps");
    EXPECT_EQ(output.width, 3); // untouched
    EXPECT_EQ(output.data[0], 5);
    // The engine stays usable.
    engine.setFilterLength(20);
    EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
    // Sampling outside start/stop or outside the field does nothing.
    engine.sample(Vec2f{2, 2});
    EXPECT_EQ(engine.numFieldLines, engine.numFieldLines);
}

TEST(Compute, ValuesOutsideTheEnumerationsActAsBoxAndBilinear) {
    FlicVectorField field = vortexSaddle(9, 9);
    FlicImage texture = noise(24, 20, 1, 8);
    auto run = [&](int kernel, int interpolation) {
        FlicCompute engine;
        engine.setFilterLength(6);
        engine.setFilterKernel(static_cast<FlicCompute::FilterKernel>(kernel));
        engine.setInterpolationMethod(static_cast<FlicCompute::InterpolationMethod>(interpolation));
        FlicImage output;
        EXPECT_EQ(engine.compute(&field, &texture, &output), 1);
        return bytes(output);
    };
    EXPECT_EQ(run(7, 1), run(FlicCompute::BOX, 1));
    EXPECT_EQ(run(-1, 1), run(FlicCompute::BOX, 1));
    EXPECT_EQ(run(1, -3), run(1, FlicCompute::BILINEAR));
    EXPECT_EQ(run(1, 2), run(1, FlicCompute::BILINEAR));
    EXPECT_NE(run(1, 0), run(1, FlicCompute::BILINEAR));
}

// The quasi-random order of a grid one cell wide or high holds the sign bit, not 0, on that
// axis: every candidate still names a pixel of the image.
TEST(Compute, QuasiRandomSeedingOnTexturesOnePixelWideOrHigh) {
    FlicVectorField vertical = uniformField(3, 3, 0, 1), horizontal = uniformField(3, 3, 1, 0);
    FlicImage column(1, 6, 1), row(6, 1, 1);
    column.clear(200);
    row.clear(200);
    FlicCompute engine;
    engine.seedingMethod = 2;
    FlicImage output;
    ASSERT_EQ(engine.compute(&vertical, &column, &output), 1);
    EXPECT_GT(engine.numFieldLines, 0);
    EXPECT_EQ(bytes(output), std::vector<unsigned char>(6, 200));
    ASSERT_EQ(engine.compute(&horizontal, &row, &output), 1);
    EXPECT_GT(engine.numFieldLines, 0);
    EXPECT_EQ(bytes(output), std::vector<unsigned char>(6, 200));
}

TEST(Compute, TinyTexturesAreSafe) {
    FlicVectorField field = vortexSaddle(9, 9);
    FlicImage dot(1, 1, 1), line(5, 1, 3);
    dot.data[0] = 200;
    for (int i = 0; i < 15; i++)
        line.data[i] = static_cast<unsigned char>(10 * i);
    FlicImage output;
    FlicCompute sobol;
    sobol.seedingMethod = 2;
    ASSERT_EQ(sobol.compute(&field, &dot, &output), 1);
    EXPECT_EQ(sobol.numFieldLines, 0); // one pair drawn, none used
    EXPECT_EQ(output.data[0], 0);
    FlicCompute pattern;
    ASSERT_EQ(pattern.compute(&field, &dot, &output), 1);
    EXPECT_EQ(pattern.numFieldLines, 1);
    EXPECT_EQ(output.data[0], 200);
    ASSERT_EQ(pattern.compute(&field, &line, &output), 1);
    EXPECT_EQ(output.width, 5);
}

TEST(Compute, TextureLookupsWrapPeriodically) {
    FlicImage t(5, 4, 1);
    for (int i = 0; i < 20; i++)
        t.data[i] = static_cast<unsigned char>(i * 12);
    int v = -1;
    // Period 4 in x, 3 in y: the last column and row are only right/upper neighbours.
    FlicCompute::getPixelConst1(&t, 4.5f, 3.2f, &v);
    EXPECT_EQ(v, t.data[0 * 5 + 0]);
    FlicCompute::getPixelConst1(&t, -0.5f, -1.0f, &v);
    EXPECT_EQ(v, t.data[2 * 5 + 3]);
    FlicCompute::getPixelBilinear1(&t, 3.5f, 2.5f, &v);
    float a = t.data[13], b = t.data[14], c = t.data[18], d = t.data[19];
    EXPECT_EQ(
        v, static_cast<int>(a + (b - a) * 0.5f + (c - a) * 0.5f + 0.5f * 0.5f * (a - c - b + d)));
    // Ordinary coordinates agree with the plain wrap loops, far and non-finite ones end.
    for (float x = -300.0f; x < 300.0f; x += 0.37f) {
        FlicCompute::getPixelBilinear1(&t, x, -x * 0.71f, &v);
        EXPECT_EQ(v, reference::texel(t, x, -x * 0.71f, 0, true)) << x;
    }
    for (float x : {1e30f, -3e20f, Inf, -Inf, NaN, 1.7e7f}) {
        FlicCompute::getPixelBilinear1(&t, x, x, &v);
        EXPECT_GE(v, 0);
        EXPECT_LE(v, 255);
        FlicCompute::getPixelConst1(&t, x, 1.0f, &v);
        EXPECT_GE(v, 0);
    }
    FlicCompute::getPixelBilinear1(&t, 1e30f, 2.0f, &v);
    int exact;
    FlicCompute::getPixelBilinear1(&t, fmodf(1e30f, 4.0f), 2.0f, &exact);
    EXPECT_EQ(v, exact);

    FlicImage rgb(3, 3, 3);
    for (int i = 0; i < 27; i++)
        rgb.data[i] = static_cast<unsigned char>(i);
    int out[3];
    FlicCompute::getPixelConstN(&rgb, 1.2f, 1.7f, out);
    EXPECT_EQ(out[0], 12);
    EXPECT_EQ(out[2], 14);
    FlicCompute::getPixelBilinearN(&rgb, 0.5f, 0.0f, out);
    EXPECT_EQ(out[1], static_cast<int>(1.0f + (4.0f - 1.0f) * 0.5f));
}

TEST(Compute, CounterTubeChoosesTheBestExtension) {
    FlicCompute engine;
    engine.kernelSteps = 10;
    engine.extensionSteps = 3;
    // gains g[1..3] = 30, 5, 40; line counts n[1..4] = 2, 1, 1, 1.
    int g[] = {0, 30, 5, 40}, n[] = {0, 2, 1, 1, 1};
    for (int j = 0; j < 4; j++)
        engine.zaehlrohr[j][0] = g[j];
    for (int j = 0; j < 5; j++)
        engine.zaehlrohr[j][1] = n[j];
    engine.zaehlrohr[9][1] = 77;
    engine.evalZaehlrohr();
    // Suffix sums n = 5, 5, 3, 2, 1; ratios 30/(11*3), 35/(12*2), 75/(13*1): the last is best.
    EXPECT_EQ(engine.extensionSteps, 3);
    EXPECT_EQ(engine.zaehlrohr[0][1], 5);
    for (int j = 1; j <= 4; j++)
        EXPECT_EQ(engine.zaehlrohr[j][1], 0);
    EXPECT_EQ(engine.zaehlrohr[3][0], 0);
    EXPECT_EQ(engine.zaehlrohr[9][1], 77); // above M + 1: untouched

    engine.extensionSteps = 0;
    engine.zaehlrohr[1][1] = 4;
    engine.evalZaehlrohr();
    EXPECT_EQ(engine.extensionSteps, 0);
    EXPECT_EQ(engine.zaehlrohr[0][1], 9);
    EXPECT_EQ(engine.zaehlrohr[1][1], 0);

    // Extensions beyond the tube's 256 entries stay inside it.
    FlicCompute::TextureLookup lookup = engine.getPixel;
    engine.extensionSteps = 100000;
    for (int j = 0; j < 256; j++)
        engine.zaehlrohr[j][0] = engine.zaehlrohr[j][1] = 1;
    engine.evalZaehlrohr();
    EXPECT_EQ(engine.getPixel, lookup);
    EXPECT_GE(engine.extensionSteps, 1);
    EXPECT_LE(engine.extensionSteps, 254);

    // Counts of any size: the gain is summed beyond the int range (30 + INT_MAX twice would
    // wrap negative and lose to step 1), the stored suffix sums wrap, nothing is undefined.
    engine.kernelSteps = 0;
    engine.extensionSteps = 2;
    engine.zaehlrohr[1][0] = INT_MAX;
    engine.zaehlrohr[2][0] = INT_MAX;
    engine.zaehlrohr[1][1] = engine.zaehlrohr[2][1] = engine.zaehlrohr[3][1] = 1;
    engine.evalZaehlrohr(); // ratios INT_MAX / (1 * 2) and 2 INT_MAX / (2 * 1)
    EXPECT_EQ(engine.extensionSteps, 2);
    for (int j = 0; j < 256; j++)
        engine.zaehlrohr[j][0] = engine.zaehlrohr[j][1] = INT_MAX;
    engine.kernelSteps = INT_MAX;
    engine.lengthBias = INT_MAX;
    engine.extensionSteps = INT_MAX;
    engine.evalZaehlrohr();
    EXPECT_GE(engine.extensionSteps, 0);
    EXPECT_LE(engine.extensionSteps, 254);
    EXPECT_EQ(engine.zaehlrohr[255][0], INT_MAX); // the gain beyond the evaluated steps stays
}
