// The engine's progress callback: how often and with which values it is called, and that it
// changes no byte of the result.
#include "compute.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Calls {
    std::vector<float> done;
};

void record(float done, void* user) {
    static_cast<Calls*>(user)->done.push_back(done);
}

// A vortex with a sink beside it: lines of all lengths, some ending at the critical points.
FlicVectorField vortexField(int size) {
    FlicVectorField field(size, size);
    Vec2f* v = field.vectors();
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x++) {
            float u = x / (size - 1.0f) - 0.4f, w = y / (size - 1.0f) - 0.5f;
            v[y * size + x] = Vec2f{-w - 0.3f * u, u - 0.3f * w};
        }
    return field;
}

FlicImage noise(int width, int height) {
    FlicImage image(width, height, 1);
    image.createRandom(0, 5);
    return image;
}

std::vector<unsigned char> computeWith(FlicCompute& engine, FlicVectorField& field,
                                       FlicImage& texture) {
    FlicImage output;
    EXPECT_EQ(1, engine.compute(&field, &texture, &output));
    return std::vector<unsigned char>(output.data, output.data + output.width * output.height);
}

} // namespace

TEST(Progress, LeavesEveryOutputByteUnchangedInEverySeedingOrder) {
    FlicVectorField field = vortexField(33);
    FlicImage texture = noise(97, 61);
    for (int seeding = 0; seeding <= 2; seeding++)
        for (int subPixels = 1; subPixels <= 2; subPixels++) {
            SCOPED_TRACE("seeding " + std::to_string(seeding) + ", sub-pixels " +
                         std::to_string(subPixels));
            FlicCompute plain, watched;
            plain.seedingMethod = watched.seedingMethod = seeding;
            plain.setNumSubPixels(subPixels);
            watched.setNumSubPixels(subPixels);
            Calls calls;
            watched.setProgressCallback(record, &calls);
            std::vector<unsigned char> expected = computeWith(plain, field, texture);
            EXPECT_EQ(expected, computeWith(watched, field, texture));
            EXPECT_EQ(plain.numFieldLines, watched.numFieldLines);

            // Whole percents, rising, at most 100 of them, ending with 1.
            ASSERT_FALSE(calls.done.empty());
            EXPECT_LE(calls.done.size(), 100u);
            EXPECT_GT(calls.done.front(), 0.0f);
            EXPECT_EQ(1.0f, calls.done.back());
            for (size_t i = 1; i < calls.done.size(); i++)
                EXPECT_LT(calls.done[i - 1], calls.done[i]);
        }
}

TEST(Progress, ReportsEachRunAnewAndStopsWhenRemoved) {
    FlicVectorField field = vortexField(17);
    FlicImage texture = noise(400, 300); // 120000 candidates: every percent is reached
    FlicCompute engine;
    Calls calls;
    engine.setProgressCallback(record, &calls);
    computeWith(engine, field, texture);
    EXPECT_EQ(100u, calls.done.size());
    EXPECT_FLOAT_EQ(0.01f, calls.done.front());
    computeWith(engine, field, texture);
    EXPECT_EQ(200u, calls.done.size()); // the second run starts again from 0

    engine.setProgressCallback(nullptr, nullptr);
    computeWith(engine, field, texture);
    EXPECT_EQ(200u, calls.done.size());
}

TEST(Progress, SilentWithoutSeedingOrOnRejectedInput) {
    FlicVectorField field = vortexField(17);
    FlicImage texture = noise(40, 30);
    FlicCompute engine;
    Calls calls;
    engine.setProgressCallback(record, &calls);

    engine.setFilterLength(0.4f); // no kernel steps: the texture is copied, nothing seeded
    FlicImage output;
    EXPECT_EQ(1, engine.compute(&field, &texture, &output));
    EXPECT_TRUE(calls.done.empty());

    engine.setFilterLength(20.0f);
    FlicImage mask(5, 5, 1); // not the field's size: refused before any work
    EXPECT_EQ(0, engine.compute(&field, &texture, &output, &mask));
    EXPECT_TRUE(calls.done.empty());

    engine.seedingMethod = 7; // no seeds at all still finishes at 1
    EXPECT_EQ(1, engine.compute(&field, &texture, &output));
    ASSERT_EQ(1u, calls.done.size());
    EXPECT_EQ(1.0f, calls.done[0]);
}
