// FlicImage arithmetic and compositing operations.
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace testutil;
using Bytes = std::vector<int>;

const std::string kSameSize = "Images must have same size.\n";

TEST(ImageOps, ColorToGreyGlueOneband) {
    FlicImage rgb = makeImage(3, 1, 3, {255, 0, 0, 0, 255, 0, 0, 0, 255});
    FlicImage grey;
    rgb.colorToGrey(&grey);
    EXPECT_EQ(pixelBytes(grey), (Bytes{76, 150, 28}));
    EXPECT_EQ(rgb.nChannels, 3); // unchanged when a result is given
    rgb.colorToGrey();
    EXPECT_EQ(pixelBytes(rgb), (Bytes{76, 150, 28}));
    // Read as compact triples (row gaps not skipped), written over the caller's bytes.
    unsigned char memory[12] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 1, 2, 3};
    FlicImage wrapped(1, 2, 3, 6, memory);
    wrapped.colorToGrey();
    EXPECT_EQ(pixelBytes(wrapped), (Bytes{18, 48}));
    EXPECT_EQ(memory[1], 48);

    // Glue reads one byte per pixel, each source by its own rows; an image may glue itself.
    FlicImage r = makeImage(2, 2, 1, {1, 2, 3, 4}), g = makeImage(2, 2, 1, {5, 6, 7, 8});
    unsigned char blueMemory[6] = {9, 10, 0, 11, 12, 0};
    FlicImage b(2, 2, 3, blueMemory), out;
    EXPECT_EQ(out.glue(r, g, b), 1);
    EXPECT_EQ(pixelBytes(out), (Bytes{1, 5, 9, 2, 6, 10, 3, 7, 11, 4, 8, 12}));
    r.glue(r, r, r);
    EXPECT_EQ(pixelBytes(r), (Bytes{1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4}));
    FlicImage narrow(1, 2, 1);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(out.glue(g, g, narrow), 0); }),
              "Images must have equal size.\n");
    EXPECT_EQ(out.data[11], 12);
    // A crop with exchanged corners records a negative width: glue takes that geometry and
    // has no rows to fill.
    FlicImage backwards = makeImage(2, 2, 1, {1, 2, 3, 4});
    EXPECT_EQ(backwards.crop(1, 0, -1, 1), 1);
    EXPECT_EQ(backwards.width, -1);
    EXPECT_EQ(out.glue(backwards, backwards, backwards), 1);
    EXPECT_EQ(out.width, -1);
    EXPECT_EQ(out.height, 2);
    EXPECT_EQ(out.data, nullptr);

    // oneband: past the last channel takes blue; a negative band reaches into the row before
    // (0 before the first byte).
    FlicImage two = makeImage(1, 2, 3, {1, 2, 3, 4, 5, 6});
    two.oneband(5, &out);
    EXPECT_EQ(pixelBytes(out), (Bytes{3, 6}));
    two.oneband(-1, &out);
    EXPECT_EQ(pixelBytes(out), (Bytes{0, 3}));
    two.oneband(1);
    EXPECT_EQ(pixelBytes(two), (Bytes{2, 5}));
}

TEST(ImageOps, BrightenAndAutoAdjust) {
    FlicImage image = makeImage(4, 1, 1, {0, 50, 150, 250}), out;
    image.brighten(255, 0, &out);
    EXPECT_EQ(pixelBytes(out), (Bytes{255, 205, 105, 5}));
    image.brighten(0, 255, &out);
    EXPECT_EQ(pixelBytes(out), pixelBytes(image));
    image.brighten(100, 100, &out); // no division: unchanged
    EXPECT_EQ(pixelBytes(out), pixelBytes(image));
    image.brighten(100, 200);
    EXPECT_EQ(pixelBytes(image), (Bytes{0, 0, 127, 255}));
    unsigned char memory[8] = {10, 20, 30, 99, 40, 50, 60, 99}; // row gaps stay
    FlicImage wrapped(1, 2, 3, 4, memory);
    wrapped.brighten(10, 60);
    EXPECT_EQ(Bytes(memory, memory + 8), (Bytes{0, 51, 102, 99, 153, 204, 255, 99}));

    // Non-zero bytes 100 and 140: mean 120, deviation sqrt(800); zeros stay zero.
    FlicImage source = makeImage(3, 1, 1, {0, 100, 140});
    float spread = std::sqrt(800.0f);
    out = source;
    out.autoAdjust(50, spread / 2);
    EXPECT_EQ(pixelBytes(out), (Bytes{0, 40, 60}));
    out = source;
    out.autoAdjust(250, spread * 2); // clamped
    EXPECT_EQ(pixelBytes(out), (Bytes{0, 210, 255}));
    FlicImage single = makeImage(3, 1, 1, {0, 9, 0}); // one non-zero byte: gain 1
    single.autoAdjust(100, 30);
    EXPECT_EQ(pixelBytes(single), (Bytes{0, 100, 0}));
    // With a result: this image's statistics, the result's own bytes.
    FlicImage target = makeImage(3, 1, 1, {0, 10, 60});
    source.autoAdjust(130, spread, &target);
    EXPECT_EQ(pixelBytes(target), (Bytes{0, 20, 70}));
}

TEST(ImageOps, MixAndMask) {
    // Pure red (hue 1.0), dark orange and black take the grey image's lightness.
    FlicImage colour = makeImage(3, 1, 3, {255, 0, 0, 128, 64, 0, 0, 0, 0});
    FlicImage grey = makeImage(3, 1, 1, {64, 191, 128}), mixed;
    Bytes expected = {128, 0, 0, 255, 191, 127, 128, 128, 128};
    ASSERT_EQ(grey.mix(colour, &mixed), 1);
    EXPECT_EQ(pixelBytes(mixed), expected);
    ASSERT_EQ(colour.mix(grey), 1);
    EXPECT_EQ(pixelBytes(colour), expected);
    const std::string channels = "Illegal number of channels (1 and 3 required).\n";
    FlicImage four(3, 1, 4), small(2, 1, 3);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(grey.mix(grey), 0); }), channels);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(mixed.mix(mixed), 0); }), channels);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(grey.mix(small), 0); }), kSameSize);

    FlicImage image = makeImage(2, 1, 1, {10, 20}), mask = makeImage(2, 1, 1, {0, 3});
    ASSERT_EQ(image.applyMask(mask, &mixed), 1);
    EXPECT_EQ(pixelBytes(mixed), (Bytes{10, 0, 20, 255}));
    EXPECT_EQ(image.nChannels, 2); // this image reports the new count too
    FlicImage copy(image);         // and reading it stays inside its block
    EXPECT_EQ(copy.data[0], 10);
    FlicImage rgb = makeImage(2, 1, 3, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(rgb.applyMask(mask), 1);
    EXPECT_EQ(pixelBytes(rgb), (Bytes{1, 2, 3, 0, 4, 5, 6, 255}));
    FlicImage pair = makeImage(2, 1, 2, {1, 2, 3, 4}); // no room for alpha: copied
    ASSERT_EQ(pair.applyMask(mask), 1);
    EXPECT_EQ(pixelBytes(pair), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(four.applyMask(mask), 0); }), kSameSize);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(pair.applyMask(rgb), 0); }),
              "mask must only have one component.\n");
    EXPECT_EQ(four.nChannels + pair.nChannels, 6); // unchanged by the refusals
    // The alpha channel must give a geometry an image can have; otherwise nothing changes.
    FlicImage wide, wideMask, masked;
    ASSERT_EQ(wide.setSize(2147483644, 0, 1), 1);
    ASSERT_EQ(wideMask.setSize(2147483644, 0, 1), 1);
    testutil::MessageCapture capture;
    EXPECT_EQ(wide.applyMask(wideMask, &masked), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: image size 2147483644 x 0 x 2 exceeds the 32-bit byte count");
    EXPECT_EQ(wide.nChannels, 1);
}

TEST(ImageOps, MultiplySubtractCrop) {
    FlicImage rgb = makeImage(2, 1, 3, {255, 100, 1, 0, 77, 254}), out;
    FlicImage white = makeImage(2, 1, 1, {255, 255}), half = makeImage(2, 1, 1, {128, 128});
    ASSERT_EQ(rgb.multiply(white, &out), 1);
    EXPECT_EQ(pixelBytes(out), pixelBytes(rgb));
    ASSERT_EQ(half.multiply(rgb, &out), 1); // grey first: still three channels
    EXPECT_EQ(pixelBytes(out), (Bytes{128, 50, 0, 0, 38, 127}));
    ASSERT_EQ(rgb.subtract(rgb, &out), 1);
    EXPECT_EQ(pixelBytes(out), Bytes(6, 128));
    FlicImage a = makeImage(3, 1, 1, {0, 255, 100}), b = makeImage(3, 1, 1, {200, 0, 90});
    ASSERT_EQ(a.subtract(b), 1);
    EXPECT_EQ(pixelBytes(a), (Bytes{0, 255, 138}));
    FlicImage tall(2, 2, 1);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.multiply(tall), 0); }), kSameSize);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.subtract(tall), 0); }), kSameSize);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.subtract(white), 0); }),
              "Images must have same number of channels.\n");
    EXPECT_EQ(pixelBytes(rgb), (Bytes{255, 100, 1, 0, 77, 254}));

    FlicImage grey = makeImage(3, 2, 1, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(grey.crop(-1, -1, 3, 2, &out), 1); // a black frame all round
    EXPECT_EQ(pixelBytes(out), (Bytes{0, 0, 0, 0, 0, 0, 1, 2, 3, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(rgb.crop(0, 0, 2, 0, &out), 1); // colour: the row's byte at x in every channel
    EXPECT_EQ(pixelBytes(out), (Bytes{255, 255, 255, 100, 100, 100, 0, 0, 0}));
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.crop(-2147483647 - 1, 0, 2147483647, 0), 0); }),
              "crop rectangle is too large.\n");
}

TEST(ImageOps, FloodFill) {
    FlicImage image = makeImage(5, 4, 1, {0, 0, 0, 0, 0, 0, 1, 1, 1, 0, //
                                          0, 1, 0, 1, 0, 0, 1, 1, 1, 0});
    FlicImage filled;
    int box[4];
    EXPECT_EQ(image.floodFill(0, 0, 7, box, &filled), 11);
    EXPECT_EQ(pixelBytes(filled),
              (Bytes{7, 7, 7, 7, 7, 7, 1, 1, 1, 7, 7, 1, 0, 1, 7, 7, 1, 1, 1, 7}));
    EXPECT_EQ(Bytes(box, box + 4), (Bytes{0, 0, 4, 3}));
    EXPECT_EQ(image.data[0], 0);
    EXPECT_EQ(image.floodFill(2, 2, 9, box), 1); // the row above the seed is in the box
    EXPECT_EQ(Bytes(box, box + 4), (Bytes{2, 2, 2, 3}));
    EXPECT_EQ(image.floodFill(2, 3, 5, box), 8); // top row: the box reaches y = height
    EXPECT_EQ(Bytes(box, box + 4), (Bytes{1, 1, 3, 4}));
    // Nothing when the pixel holds the value (as a low byte too) or lies outside.
    EXPECT_EQ(image.floodFill(2, 2, 9 + 256, box), 0);
    EXPECT_EQ(Bytes(box, box + 4), (Bytes{2, 2, 2, 2}));
    EXPECT_EQ(image.floodFill(-1, 7, 3, box), 0);
    EXPECT_EQ(Bytes(box, box + 4), (Bytes{-1, 7, -1, 7}));
    EXPECT_EQ(image.floodFill(5, 0, 3) + image.floodFill(0, 4, 3), 0);
    unsigned char memory[8] = {0, 0, 5, 5, 0, 1, 5, 5}; // by the image's rows
    FlicImage wrapped(2, 2, 4, memory);
    EXPECT_EQ(wrapped.floodFill(1, 0, 3), 3);
    EXPECT_EQ(Bytes(memory, memory + 8), (Bytes{3, 3, 5, 5, 3, 1, 5, 5}));

    // 15000 teeth under an open row need more than 10000 pending spans: the fill is partial.
    const int teeth = 15000, width = 2 * teeth - 1;
    FlicImage comb(width, 4, 1);
    comb.clear(0);
    for (int y = 1; y < 4; y++)
        for (int x = 1; x < width; x += 2)
            comb.data[y * width + x] = 1;
    int done = comb.floodFill(0, 0, 2);
    EXPECT_GT(done, width);
    EXPECT_LT(done, width + 3 * teeth);
}

TEST(ImageOps, WithoutMemoryNothingChanges) {
    FlicImage grey(20000, 20000), rgb(20000, 20000, 3); // 1.6 GB, never touched
    grey.data[0] = 7;
    AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(stderrOf([&] {
                  EXPECT_EQ(grey.mix(rgb), 0);
                  EXPECT_EQ(grey.multiply(grey), 0);
                  EXPECT_EQ(grey.subtract(grey), 0);
                  EXPECT_EQ(grey.glue(grey, grey, grey), 0); // no memory for the copy of itself
              }),
              "");
    std::string grey400 = "FLIC error: no memory for an image of 20000 x 20000 x 1 bytes";
    EXPECT_EQ(capture.errors(), (std::vector<std::string>{
                                    "FLIC error: no memory for an image of 20000 x 20000 x 3 bytes",
                                    grey400, grey400, grey400}));
    EXPECT_TRUE(grey.width == 20000 && grey.nChannels == 1 && grey.data[0] == 7);
}
