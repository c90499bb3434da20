// FlicImage arithmetic and compositing operations.
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace {

// An image of the given geometry whose bytes (compact, row by row) are `bytes`.
FlicImage makeImage(int width, int height, int channels, const std::vector<int>& bytes) {
    FlicImage image(width, height, channels);
    for (size_t i = 0; i < bytes.size(); i++)
        image.data[i] = static_cast<unsigned char>(bytes[i]);
    return image;
}

// The image's pixel bytes, row by row (by bytesPerLine), as numbers.
std::vector<int> bytesOf(const FlicImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.height; y++)
        for (int i = 0; i < image.nChannels * image.width; i++)
            out.push_back(image.data[y * image.bytesPerLine + i]);
    return out;
}

// Runs `operation` and returns what it wrote to standard error.
template <typename Operation>
std::string stderrOf(Operation operation) {
    testing::internal::CaptureStderr();
    operation();
    return testing::internal::GetCapturedStderr();
}

} // namespace

TEST(ImageOps, ColorToGrey) {
    FlicImage rgb = makeImage(3, 1, 3, {255, 0, 0, 0, 255, 0, 0, 0, 255});
    FlicImage grey;
    rgb.colorToGrey(&grey);
    EXPECT_EQ(grey.nChannels, 1);
    EXPECT_EQ(bytesOf(grey), (std::vector<int>{76, 150, 28}));
    EXPECT_EQ(rgb.nChannels, 3); // source unchanged with a separate result

    rgb.colorToGrey();
    EXPECT_EQ(rgb.nChannels, 1);
    EXPECT_EQ(rgb.bytesPerLine, 3);
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{76, 150, 28}));

    // Grey images are copied into a result and otherwise left alone.
    FlicImage copy;
    rgb.colorToGrey(&copy);
    EXPECT_EQ(bytesOf(copy), bytesOf(rgb));
    rgb.colorToGrey(&rgb);
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{76, 150, 28}));

    // The source is read as compact triples: row gaps of a wrapped image are not skipped.
    unsigned char memory[12] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 1, 2, 3};
    FlicImage wrapped(1, 2, 3, 6, memory);
    wrapped.colorToGrey();
    EXPECT_EQ(wrapped.nChannels, 1);
    EXPECT_NE(wrapped.data, memory);
    int first = static_cast<int>(0.3 * 10 + 0.59 * 20 + 0.11 * 30);
    int second = static_cast<int>(0.3 * 40 + 0.59 * 50 + 0.11 * 60);
    EXPECT_EQ(bytesOf(wrapped), (std::vector<int>{first, second}));
    EXPECT_EQ(memory[0], first); // written over the caller's bytes from the front
}

TEST(ImageOps, Glue) {
    FlicImage r = makeImage(2, 2, 1, {1, 2, 3, 4});
    FlicImage g = makeImage(2, 2, 1, {5, 6, 7, 8});
    unsigned char blueMemory[6] = {9, 10, 0, 11, 12, 0}; // rows 3 bytes apart
    FlicImage b(2, 2, 3, blueMemory);
    FlicImage out;
    EXPECT_EQ(out.glue(r, g, b), 1);
    EXPECT_EQ(out.nChannels, 3);
    EXPECT_EQ(bytesOf(out), (std::vector<int>{1, 5, 9, 2, 6, 10, 3, 7, 11, 4, 8, 12}));

    // Gluing an image with itself makes a grey RGB image.
    r.glue(r, r, r);
    EXPECT_EQ(bytesOf(r), (std::vector<int>{1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4}));

    FlicImage narrow = makeImage(1, 2, 1, {0, 0});
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(out.glue(g, narrow, g), 0); }),
              "Images must have equal size.\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(out.glue(g, g, narrow), 0); }),
              "Images must have equal size.\n");
    EXPECT_EQ(out.width, 2); // unchanged
    EXPECT_EQ(out.data[11], 12);
}

TEST(ImageOps, Brighten) {
    FlicImage image = makeImage(4, 1, 1, {0, 50, 150, 250});
    FlicImage same(image);
    same.brighten(0, 255);
    EXPECT_EQ(bytesOf(same), bytesOf(image));
    FlicImage inverted;
    image.brighten(255, 0, &inverted);
    EXPECT_EQ(bytesOf(inverted), (std::vector<int>{255, 205, 105, 5}));
    image.brighten(100, 200);
    EXPECT_EQ(bytesOf(image), (std::vector<int>{0, 0, 127, 255}));

    // With high equal to low nothing is divided: the bytes stay (and are copied to a result).
    image = makeImage(3, 1, 1, {7, 100, 200});
    image.brighten(100, 100);
    EXPECT_EQ(bytesOf(image), (std::vector<int>{7, 100, 200}));
    FlicImage copy;
    image.brighten(100, 100, &copy);
    EXPECT_EQ(bytesOf(copy), (std::vector<int>{7, 100, 200}));

    // Every channel alike; only the pixel bytes of a wrapped image's rows are touched.
    unsigned char memory[8] = {10, 20, 30, 99, 40, 50, 60, 99};
    FlicImage wrapped(1, 2, 3, 4, memory);
    wrapped.brighten(10, 60);
    EXPECT_EQ(std::vector<int>(memory, memory + 8),
              (std::vector<int>{0, 51, 102, 99, 153, 204, 255, 99}));
    image.brighten(-2147483647 - 1, 2147483647); // no overflow: all near the middle
    EXPECT_EQ(bytesOf(image), (std::vector<int>{127, 127, 127}));
}

TEST(ImageOps, AutoAdjust) {
    // Non-zero bytes 100 and 140: mean 120, standard deviation sqrt(800).
    FlicImage image = makeImage(3, 1, 1, {0, 100, 140});
    FlicImage adjusted(image);
    float wanted = std::sqrt(800.0f) / 2; // halves the spread
    adjusted.autoAdjust(50, wanted);
    EXPECT_EQ(bytesOf(adjusted), (std::vector<int>{0, 40, 60}));
    adjusted = image;
    adjusted.autoAdjust(250, std::sqrt(800.0f) * 2); // clamped above
    EXPECT_EQ(bytesOf(adjusted), (std::vector<int>{0, 210, 255}));
    adjusted = image;
    adjusted.autoAdjust(-100, std::sqrt(800.0f)); // clamped below, zeros stay zero
    EXPECT_EQ(bytesOf(adjusted), (std::vector<int>{0, 0, 0}));

    // Only zeros: nothing changes. A single non-zero byte: gain 1, moved to the mean.
    FlicImage zeros = makeImage(2, 2, 1, {0, 0, 0, 0});
    zeros.autoAdjust(100, 30);
    EXPECT_EQ(bytesOf(zeros), (std::vector<int>{0, 0, 0, 0}));
    FlicImage single = makeImage(2, 1, 1, {0, 9});
    single.autoAdjust(100, 30);
    EXPECT_EQ(bytesOf(single), (std::vector<int>{0, 100}));
    // A flat image (spread 0 is below 0.1) keeps gain 1.
    FlicImage flat = makeImage(3, 1, 1, {20, 20, 20});
    flat.autoAdjust(30.4f, 50);
    EXPECT_EQ(bytesOf(flat), (std::vector<int>{30, 30, 30}));

    // With a separate result the statistics come from this image but the result's own bytes
    // are adjusted, not a copy of this image.
    FlicImage target = makeImage(3, 1, 1, {0, 10, 60});
    image.autoAdjust(120, std::sqrt(800.0f), &target);
    EXPECT_EQ(bytesOf(target), (std::vector<int>{0, 10, 60}));
    image.autoAdjust(130, std::sqrt(800.0f), &target);
    EXPECT_EQ(bytesOf(target), (std::vector<int>{0, 20, 70}));
    EXPECT_EQ(bytesOf(image), (std::vector<int>{0, 100, 140}));
}

TEST(ImageOps, Oneband) {
    FlicImage rgb = makeImage(2, 1, 3, {1, 2, 3, 4, 5, 6});
    FlicImage band;
    rgb.oneband(1, &band);
    EXPECT_EQ(band.nChannels, 1);
    EXPECT_EQ(bytesOf(band), (std::vector<int>{2, 5}));
    rgb.oneband(5, &band); // beyond the last channel: blue
    EXPECT_EQ(bytesOf(band), (std::vector<int>{3, 6}));
    // A negative band reaches back into the previous row; before the first byte reads 0.
    FlicImage two = makeImage(1, 2, 3, {1, 2, 3, 4, 5, 6});
    two.oneband(-1, &band);
    EXPECT_EQ(bytesOf(band), (std::vector<int>{0, 3}));
    rgb.oneband(0);
    EXPECT_EQ(rgb.nChannels, 1);
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{1, 4}));
    rgb.oneband(0, &rgb);
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{1, 4}));
}

TEST(ImageOps, Mix) {
    // Pure red, a dark orange and black, given the lightness of the grey image.
    FlicImage colour = makeImage(3, 1, 3, {255, 0, 0, 128, 64, 0, 0, 0, 0});
    FlicImage grey = makeImage(3, 1, 1, {64, 191, 128});
    FlicImage mixed;
    ASSERT_EQ(grey.mix(colour, &mixed), 1);
    EXPECT_EQ(mixed.nChannels, 3);
    std::vector<int> expected = {128, 0, 0, 255, 191, 127, 128, 128, 128};
    EXPECT_EQ(bytesOf(mixed), expected);
    ASSERT_EQ(colour.mix(grey), 1); // the other order, in place
    EXPECT_EQ(bytesOf(colour), expected);

    FlicImage other = makeImage(3, 1, 1, {0, 0, 0});
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(grey.mix(other), 0); }),
              "Illegal number of channels (1 and 3 required).\n");
    FlicImage four(3, 1, 4);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(grey.mix(four), 0); }),
              "Illegal number of channels (1 and 3 required).\n");
    FlicImage small(2, 1, 3);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(grey.mix(small), 0); }), "Images must have same size.\n");
    EXPECT_EQ(bytesOf(grey), (std::vector<int>{64, 191, 128}));
}

TEST(ImageOps, ApplyMask) {
    FlicImage grey = makeImage(2, 1, 1, {10, 20});
    FlicImage mask = makeImage(2, 1, 1, {0, 3});
    FlicImage masked;
    ASSERT_EQ(grey.applyMask(mask, &masked), 1);
    EXPECT_EQ(masked.nChannels, 2);
    EXPECT_EQ(bytesOf(masked), (std::vector<int>{10, 0, 20, 255}));
    EXPECT_EQ(grey.nChannels, 2); // this image reports the new count too
    EXPECT_EQ(grey.bytesPerLine, 2);
    FlicImage copy(grey); // reading the claimed channels stays inside the block
    EXPECT_EQ(copy.data[0], 10);

    FlicImage rgb = makeImage(2, 1, 3, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(rgb.applyMask(mask), 1);
    EXPECT_EQ(rgb.nChannels, 4);
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{1, 2, 3, 0, 4, 5, 6, 255}));

    FlicImage two = makeImage(2, 1, 2, {1, 2, 3, 4}); // other counts: no room for alpha
    ASSERT_EQ(two.applyMask(mask), 1);
    EXPECT_EQ(two.nChannels, 2);
    EXPECT_EQ(bytesOf(two), (std::vector<int>{1, 2, 3, 4}));

    FlicImage wide = makeImage(3, 1, 1, {0, 0, 0});
    FlicImage rgbMask(2, 1, 3);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(wide.applyMask(mask), 0); }),
              "Images must have same size.\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(masked.applyMask(rgbMask), 0); }),
              "mask must only have one component.\n");
    EXPECT_EQ(wide.nChannels, 1);
    EXPECT_EQ(masked.nChannels, 2);
}

TEST(ImageOps, MultiplyAndSubtract) {
    FlicImage rgb = makeImage(2, 1, 3, {255, 100, 1, 0, 77, 254});
    FlicImage white = makeImage(2, 1, 1, {255, 255});
    FlicImage half = makeImage(2, 1, 1, {128, 128});
    FlicImage out;
    ASSERT_EQ(rgb.multiply(white, &out), 1);
    EXPECT_EQ(bytesOf(out), bytesOf(rgb));
    ASSERT_EQ(half.multiply(rgb, &out), 1); // grey first: still three channels out
    EXPECT_EQ(out.nChannels, 3);
    EXPECT_EQ(bytesOf(out), (std::vector<int>{128, 50, 0, 0, 38, 127}));
    FlicImage product = makeImage(2, 1, 1, {16, 200});
    ASSERT_EQ(product.multiply(product), 1);
    EXPECT_EQ(bytesOf(product), (std::vector<int>{1, 156}));

    ASSERT_EQ(rgb.subtract(rgb, &out), 1);
    EXPECT_EQ(bytesOf(out), (std::vector<int>(6, 128)));
    FlicImage a = makeImage(3, 1, 1, {0, 255, 100});
    FlicImage b = makeImage(3, 1, 1, {200, 0, 90});
    ASSERT_EQ(a.subtract(b), 1);
    EXPECT_EQ(bytesOf(a), (std::vector<int>{0, 255, 138}));

    FlicImage tall(2, 2, 1);
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.multiply(tall), 0); }), "Images must have same size.\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.subtract(tall), 0); }), "Images must have same size.\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.subtract(white), 0); }),
              "Images must have same number of channels.\n");
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{255, 100, 1, 0, 77, 254}));
}

TEST(ImageOps, Crop) {
    FlicImage grey = makeImage(3, 2, 1, {1, 2, 3, 4, 5, 6});
    FlicImage framed;
    ASSERT_EQ(grey.crop(-1, -1, 3, 2, &framed), 1);
    EXPECT_EQ(framed.width, 5);
    EXPECT_EQ(framed.height, 4);
    EXPECT_EQ(bytesOf(framed),
              (std::vector<int>{0, 0, 0, 0, 0, 0, 1, 2, 3, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(grey.crop(1, 1, 2, 1), 1);
    EXPECT_EQ(bytesOf(grey), (std::vector<int>{5, 6}));

    // Colour: every channel of a pixel repeats the byte at x of the source row.
    FlicImage rgb = makeImage(2, 1, 3, {10, 20, 30, 40, 50, 60});
    ASSERT_EQ(rgb.crop(0, 0, 2, 0, &framed), 1);
    EXPECT_EQ(framed.nChannels, 3);
    EXPECT_EQ(bytesOf(framed), (std::vector<int>{10, 10, 10, 20, 20, 20, 0, 0, 0}));

    // Reversed corners give an empty image; an impossible size is refused.
    ASSERT_EQ(rgb.crop(1, 0, 0, 0, &framed), 1);
    EXPECT_EQ(framed.width, 0);
    testutil::MessageCapture capture;
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(rgb.crop(-2147483647 - 1, 0, 2147483647, 0), 0); }),
              "crop rectangle is too large.\n");
    EXPECT_EQ(rgb.crop(0, 0, 99999, 99999), 0);
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: image size 100000 x 100000 x 3 exceeds the 32-bit byte count");
    EXPECT_EQ(bytesOf(rgb), (std::vector<int>{10, 20, 30, 40, 50, 60}));
}

TEST(ImageOps, FloodFill) {
    // 5 x 4, row 0 first: a ring of 1s enclosing a 0, and a region of 0s around it.
    FlicImage image = makeImage(5, 4, 1, {0, 0, 0, 0, 0, //
                                          0, 1, 1, 1, 0, //
                                          0, 1, 0, 1, 0, //
                                          0, 1, 1, 1, 0});
    FlicImage filled;
    int box[4];
    EXPECT_EQ(image.floodFill(0, 0, 7, box, &filled), 11);
    EXPECT_EQ(bytesOf(filled),
              (std::vector<int>{7, 7, 7, 7, 7, 7, 1, 1, 1, 7, 7, 1, 0, 1, 7, 7, 1, 1, 1, 7}));
    EXPECT_EQ(box[0], 0);
    EXPECT_EQ(box[1], 0);
    EXPECT_EQ(box[2], 4);
    EXPECT_EQ(box[3], 3);
    EXPECT_EQ(image.data[0], 0); // the source is left alone

    // The enclosed pixel alone; the box still takes in the seed's row above.
    EXPECT_EQ(image.floodFill(2, 2, 9, box), 1);
    EXPECT_EQ(image.data[12], 9);
    EXPECT_EQ(box[0], 2);
    EXPECT_EQ(box[1], 2);
    EXPECT_EQ(box[2], 2);
    EXPECT_EQ(box[3], 3);
    // A seed in the top row: the box reaches y = height.
    EXPECT_EQ(image.floodFill(2, 3, 5, box), 8);
    EXPECT_EQ(box[3], 4);
    EXPECT_EQ(box[1], 1);

    // Already the fill value (also as its low byte), or outside: nothing, box (x, y, x, y).
    EXPECT_EQ(image.floodFill(2, 2, 9, box), 0);
    EXPECT_EQ(image.floodFill(2, 2, 9 + 256, box), 0);
    EXPECT_EQ(std::vector<int>(box, box + 4), (std::vector<int>{2, 2, 2, 2}));
    EXPECT_EQ(image.floodFill(-1, 7, 3, box), 0);
    EXPECT_EQ(std::vector<int>(box, box + 4), (std::vector<int>{-1, 7, -1, 7}));
    EXPECT_EQ(image.floodFill(5, 0, 3), 0);
    EXPECT_EQ(image.floodFill(0, 4, 3), 0);

    // A serpentine maze larger than one row fills completely; a wrapped image by its rows.
    const int w = 41, h = 41;
    FlicImage maze(w, h, 1);
    maze.clear(0);
    for (int y = 1; y < h; y += 2)
        for (int x = 0; x < w; x++)
            maze.data[y * w + x] = (x == ((y / 2) % 2 ? 0 : w - 1)) ? 0 : 1;
    int open = 0;
    for (int i = 0; i < w * h; i++)
        open += maze.data[i] == 0;
    EXPECT_EQ(maze.floodFill(0, 0, 2), open);
    unsigned char memory[8] = {0, 0, 5, 5, 0, 1, 5, 5};
    FlicImage wrapped(2, 2, 4, memory);
    EXPECT_EQ(wrapped.floodFill(1, 0, 3), 3);
    EXPECT_EQ(std::vector<int>(memory, memory + 8), (std::vector<int>{3, 3, 5, 5, 3, 1, 5, 5}));

    // A comb of 15000 open teeth under an open row needs more than 10000 pending segments:
    // the pushes that do not fit are dropped and the fill stays incomplete.
    const int teeth = 15000, combWidth = 2 * teeth - 1, combHeight = 4;
    FlicImage comb(combWidth, combHeight, 1);
    comb.clear(0);
    for (int y = 1; y < combHeight; y++)
        for (int x = 1; x < combWidth; x += 2)
            comb.data[y * combWidth + x] = 1;
    int reachable = combWidth + (combHeight - 1) * teeth;
    int done = comb.floodFill(0, 0, 2);
    EXPECT_GT(done, combWidth);
    EXPECT_LT(done, reachable);
}
