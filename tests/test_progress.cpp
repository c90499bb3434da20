// The engine's progress callback: how often and with which values it is called, and that it
// changes no byte of the result.
#include "compute.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

void record(float done, void* user) {
    static_cast<std::vector<float>*>(user)->push_back(done);
}

std::vector<unsigned char> computeWith(FlicCompute& engine, FlicVectorField& field, int width,
                                       int height) {
    FlicImage texture(width, height, 1), output;
    texture.createRandom(0, 5);
    EXPECT_EQ(1, engine.compute(&field, &texture, &output));
    return std::vector<unsigned char>(output.data, output.data + output.width * output.height);
}

} // namespace

TEST(Progress, LeavesEveryOutputByteUnchangedInEverySeedingOrder) {
    FlicVectorField field = testutil::vortexSaddle(33, 33);
    for (int seeding = 0; seeding <= 2; seeding++)
        for (int subPixels = 1; subPixels <= 2; subPixels++) {
            SCOPED_TRACE("seeding " + std::to_string(seeding) + ", S " + std::to_string(subPixels));
            FlicCompute plain, watched;
            plain.seedingMethod = watched.seedingMethod = seeding;
            plain.setNumSubPixels(subPixels);
            watched.setNumSubPixels(subPixels);
            std::vector<float> done;
            watched.setProgressCallback(record, &done);
            EXPECT_EQ(computeWith(plain, field, 97, 61), computeWith(watched, field, 97, 61));
            EXPECT_EQ(plain.numFieldLines, watched.numFieldLines);
            // Whole percents, rising, at most 100 of them, ending with 1.
            ASSERT_FALSE(done.empty());
            EXPECT_LE(done.size(), 100u);
            EXPECT_GT(done.front(), 0.0f);
            EXPECT_EQ(1.0f, done.back());
            for (size_t i = 1; i < done.size(); i++)
                EXPECT_LT(done[i - 1], done[i]);
        }
}

TEST(Progress, ReportsEachRunAnewOnlyWhileInstalledAndWhenSeeding) {
    FlicVectorField field = testutil::vortexSaddle(17, 17);
    FlicCompute engine;
    std::vector<float> done;
    engine.setProgressCallback(record, &done);
    computeWith(engine, field, 400, 300); // 120000 candidates: every percent is reached
    EXPECT_EQ(100u, done.size());
    EXPECT_FLOAT_EQ(0.01f, done.front());
    computeWith(engine, field, 400, 300);
    EXPECT_EQ(200u, done.size()); // the second run starts again from 0
    engine.setProgressCallback(nullptr, nullptr);
    computeWith(engine, field, 400, 300);
    EXPECT_EQ(200u, done.size());

    done.clear();
    engine.setProgressCallback(record, &done);
    engine.setFilterLength(0.4f); // no kernel steps: the texture is copied, nothing seeded
    computeWith(engine, field, 40, 30);
    engine.setFilterLength(20.0f);
    FlicImage texture(40, 30, 1), output, mask(5, 5, 1); // mask not of the field's size
    EXPECT_EQ(0, engine.compute(&field, &texture, &output, &mask));
    EXPECT_TRUE(done.empty());
    engine.seedingMethod = 7; // no seeds at all: a black picture, and still a report of 1
    EXPECT_EQ(computeWith(engine, field, 40, 30), std::vector<unsigned char>(40 * 30, 0));
    EXPECT_EQ(done, std::vector<float>{1.0f});
}
