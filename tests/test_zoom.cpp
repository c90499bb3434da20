// Zoom: the triangle filter, contributor weights and mirroring, truncation with wrap-around,
// channels, in-place resizing and long lines.
#include "image.h"
#include "testutil.h"
#include "zoom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using testutil::MessageCapture;

namespace {

FlicImage image(int width, int height, int channels, const std::vector<int>& values) {
    FlicImage result(width, height, channels);
    for (int i = 0; i < width * height * channels; i++)
        result.data[i] = static_cast<unsigned char>(values[i]);
    return result;
}

std::vector<int> pixels(const FlicImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.nChannels * image.width; x++)
            out.push_back(image.data[y * image.bytesPerLine + x]);
    return out;
}

std::vector<int> zoomed(const FlicImage& source, int newWidth, int newHeight) {
    FlicImage copy(source);
    FlicImage result;
    EXPECT_EQ(copy.zoom(newWidth, newHeight, &result), 1);
    EXPECT_EQ(result.width, newWidth);
    EXPECT_EQ(result.height, newHeight);
    EXPECT_EQ(result.nChannels, source.nChannels);
    EXPECT_EQ(pixels(copy), pixels(source));
    return pixels(result);
}

} // namespace

TEST(TriangleFilter, TentValues) {
    EXPECT_EQ(triangle_filter_function(0.0f), 1.0f);
    EXPECT_EQ(triangle_filter_function(0.25f), 0.75f);
    EXPECT_EQ(triangle_filter_function(-0.5f), 0.5f);
    EXPECT_EQ(triangle_filter_function(1.0f), 0.0f);
    EXPECT_EQ(triangle_filter_function(-1.0f), 0.0f);
    EXPECT_EQ(triangle_filter_function(3.0f), 0.0f);
    EXPECT_EQ(triangle_filter_function(std::numeric_limits<float>::quiet_NaN()), 0.0f);
    EXPECT_EQ(triangle_filter_function(-std::numeric_limits<float>::infinity()), 0.0f);
}

TEST(Zoom, SameSizeIsTheIdentity) {
    FlicImage noise(13, 9, 3);
    noise.createRandom(0, 4);
    EXPECT_EQ(zoomed(noise, 13, 9), pixels(noise));
    FlicImage grey(1, 1);
    grey.data[0] = 201;
    EXPECT_EQ(zoomed(grey, 1, 1), std::vector<int>{201});
}

TEST(Zoom, EnlargingInterpolatesAndMirrorsAtTheBorders) {
    // Index 3 (centre 1.5) reaches past the end: sample 2 mirrors to 1.
    EXPECT_EQ(zoomed(image(2, 1, 1, {0, 100}), 4, 1), (std::vector<int>{0, 50, 100, 100}));
    EXPECT_EQ(zoomed(image(1, 2, 1, {0, 100}), 1, 4), (std::vector<int>{0, 50, 100, 100}));
    // Rows first, each pass truncating: 50.5 -> 50.
    EXPECT_EQ(zoomed(image(2, 2, 1, {0, 101, 101, 0}), 4, 4),
              (std::vector<int>{0, 50, 101, 101, 50, 50, 50, 50, 101, 50, 0, 0, 101, 50, 0, 0}));
    // Tripling: weights 2/3 and 1/3, the sum truncated.
    EXPECT_EQ(zoomed(image(2, 1, 1, {0, 90}), 6, 1), (std::vector<int>{0, 30, 60, 90, 90, 90}));
    // A single pixel spreads over the whole new image.
    EXPECT_EQ(zoomed(image(1, 1, 1, {100}), 3, 3), std::vector<int>(9, 100));
}

TEST(Zoom, ReducingAveragesWithTheStretchedTent) {
    // Weights 0.25, 0.5, 0.25 around every even source index; index -1 mirrors to 1.
    EXPECT_EQ(zoomed(image(8, 1, 1, {0, 100, 40, 80, 200, 0, 12, 60}), 4, 1),
              (std::vector<int>{50, 65, 120, 21}));
    EXPECT_EQ(zoomed(image(1, 8, 1, {0, 100, 40, 80, 200, 0, 12, 60}), 1, 4),
              (std::vector<int>{50, 65, 120, 21}));
    // 3 x 3 -> 1 x 1: weights 1/3, 2/9, 1/9 on both sides of index 0: rows give 17, 77,
    // 137 (truncated), the column 70.
    EXPECT_EQ(zoomed(image(3, 3, 1, {0, 20, 40, 60, 80, 100, 120, 140, 160}), 1, 1),
              std::vector<int>{70});
    // Weights summing above 1 wrap around instead of saturating: 3 -> 2 gives the first
    // output 255 * 10/9 = 283, stored as 283 - 256 = 27.
    EXPECT_EQ(zoomed(image(3, 1, 1, {255, 255, 255}), 2, 1), (std::vector<int>{27, 226}));
}

TEST(Zoom, ChannelsInPlaceAndResults) {
    FlicImage rgb = image(2, 1, 3, {0, 100, 200, 100, 0, 50});
    EXPECT_EQ(zoomed(rgb, 4, 1),
              (std::vector<int>{0, 100, 200, 50, 50, 125, 100, 0, 50, 100, 0, 50}));

    // In place the image itself takes the new size; a result equal to the image is in place.
    EXPECT_EQ(rgb.zoom(4, 2), 1);
    EXPECT_EQ(rgb.width, 4);
    EXPECT_EQ(rgb.height, 2);
    EXPECT_EQ(rgb.bytesPerLine, 12);
    EXPECT_EQ(pixels(rgb), (std::vector<int>{0, 100, 200, 50, 50, 125, 100, 0, 50, 100, 0, 50,
                                             0, 100, 200, 50, 50, 125, 100, 0, 50, 100, 0, 50}));
    FlicImage grey = image(2, 1, 1, {0, 100});
    EXPECT_EQ(grey.zoom(4, 1, &grey), 1);
    EXPECT_EQ(pixels(grey), (std::vector<int>{0, 50, 100, 100}));

    // A wrapped source is read by its bytesPerLine.
    unsigned char memory[] = {0, 100, 7, 7, 100, 0, 7, 7};
    FlicImage wrapped(2, 2, 4, memory);
    FlicImage result;
    wrapped.zoom(4, 2, &result);
    EXPECT_EQ(pixels(result), (std::vector<int>{0, 50, 100, 100, 100, 50, 0, 0}));
}

TEST(Zoom, EmptyAndInvalidSizes) {
    MessageCapture capture;
    FlicImage grey = image(3, 2, 1, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(grey.zoom(-1, 4), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: zoom: new size -1 x 4 is negative");
    EXPECT_EQ(pixels(grey), (std::vector<int>{1, 2, 3, 4, 5, 6}));
    capture.errors().clear();

    FlicImage empty;
    EXPECT_EQ(empty.zoom(4, 4), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: zoom: the image to be zoomed has no pixels");
    EXPECT_EQ(empty.width, 0);
    capture.errors().clear();

    EXPECT_EQ(grey.zoom(70000, 70000), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: zoom: new size 70000 x 70000 x 1 is too large");
    EXPECT_EQ(grey.width, 3);
    capture.errors().clear();

    // Zero sizes give an image without pixels.
    EXPECT_EQ(grey.zoom(0, 5), 1);
    EXPECT_EQ(grey.width, 0);
    EXPECT_EQ(grey.height, 5);
    EXPECT_EQ(grey.buffer, nullptr);
    EXPECT_TRUE(capture.errors().empty());
}

namespace {

// A long row (or column) of noise framed by constant margins, zoomed by `factor`, compared
// with the same pattern in a short one. Offsets and margins are even, so both see the same
// weights at corresponding outputs.
void expectLargeMatchesSmall(bool horizontal, int numerator, int denominator) {
    const int longSide = 16400, shortSide = 6, patternLength = 40, offset = 9000, margin = 20;
    FlicImage pattern(patternLength, shortSide);
    pattern.createRandom(0, 21);
    auto makeImage = [&](int length, int start) {
        FlicImage made = horizontal ? FlicImage(length, shortSide) : FlicImage(shortSide, length);
        made.clear(77);
        for (int s = 0; s < shortSide; s++)
            for (int i = 0; i < patternLength; i++) {
                int x = horizontal ? start + i : s, y = horizontal ? s : start + i;
                made.data[y * made.bytesPerLine + x] = pattern.data[s * patternLength + i];
            }
        return made;
    };
    auto zoomBy = [&](FlicImage& target) {
        int along = (horizontal ? target.width : target.height) * numerator / denominator;
        int across = shortSide * numerator / denominator;
        EXPECT_EQ(horizontal ? target.zoom(along, across) : target.zoom(across, along), 1);
    };
    FlicImage large = makeImage(longSide, offset);
    FlicImage small = makeImage(patternLength + 2 * margin, margin);
    zoomBy(large);
    zoomBy(small);
    auto at = [horizontal](const FlicImage& im, int along, int across) {
        return horizontal ? im.data[across * im.bytesPerLine + along]
                          : im.data[along * im.bytesPerLine + across];
    };
    int smallLength = (patternLength + 2 * margin) * numerator / denominator;
    int start = (offset - margin) * numerator / denominator;
    int across = shortSide * numerator / denominator;
    int mismatches = 0;
    for (int s = 0; s < across; s++)
        for (int i = 0; i < smallLength; i++)
            mismatches += at(large, start + i, s) != at(small, i, s);
    EXPECT_EQ(mismatches, 0) << (horizontal ? "horizontal " : "vertical ") << numerator << "/"
                             << denominator;
}

} // namespace

TEST(Zoom, LongLinesMatchShortLines) {
    for (bool horizontal : {true, false}) {
        expectLargeMatchesSmall(horizontal, 2, 1);
        expectLargeMatchesSmall(horizontal, 1, 2);
    }
}
