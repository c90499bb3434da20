// FlicImage arithmetic and compositing operations.
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

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
