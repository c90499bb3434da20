// Zoom: the triangle filter, weights and border mirroring, truncation with wrap-around,
// channels, in-place resizing, bad sizes and long lines.
#include "image.h"
#include "testutil.h"
#include "zoom.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace testutil;
using Bytes = std::vector<int>;

namespace {

// Zooms an image of the given bytes into a separate result, checking that the source stays as
// it was.
Bytes zoomed(int width, int height, int channels, const Bytes& bytes, int newWidth, int newHeight) {
    FlicImage source = makeImage(width, height, channels, bytes), result;
    EXPECT_EQ(source.zoom(newWidth, newHeight, &result), 1);
    EXPECT_TRUE(result.width == newWidth && result.height == newHeight);
    EXPECT_EQ(pixelBytes(source), bytes);
    return pixelBytes(result);
}

} // namespace

TEST(Zoom, TriangleFilterEnlargingReducingAndSameSize) {
    EXPECT_EQ(triangle_filter_function(0.25f) + triangle_filter_function(-0.5f), 1.25f);
    EXPECT_EQ(triangle_filter_function(-1.0f) + triangle_filter_function(NAN), 0.0f);
    FlicImage noise(13, 9, 3);
    noise.createRandom(0, 4);
    EXPECT_EQ(zoomed(13, 9, 3, pixelBytes(noise), 13, 9), pixelBytes(noise));
    // Index 3 (centre 1.5) reaches sample 2, mirrored to 1.
    EXPECT_EQ(zoomed(2, 1, 1, {0, 100}, 4, 1), (Bytes{0, 50, 100, 100}));
    EXPECT_EQ(zoomed(1, 2, 1, {0, 100}, 1, 4), (Bytes{0, 50, 100, 100}));
    // Rows first, each pass truncating: 50.5 -> 50.
    EXPECT_EQ(zoomed(2, 2, 1, {0, 101, 101, 0}, 4, 4),
              (Bytes{0, 50, 101, 101, 50, 50, 50, 50, 101, 50, 0, 0, 101, 50, 0, 0}));
    EXPECT_EQ(zoomed(1, 1, 1, {100}, 3, 3), Bytes(9, 100));
    // Halving: 0.25, 0.5, 0.25 around even indices; index -1 mirrors to 1.
    const Bytes eight = {0, 100, 40, 80, 200, 0, 12, 60};
    EXPECT_EQ(zoomed(8, 1, 1, eight, 4, 1), (Bytes{50, 65, 120, 21}));
    EXPECT_EQ(zoomed(1, 8, 1, eight, 1, 4), (Bytes{50, 65, 120, 21}));
    // 3 -> 1: weights 1/3, 2/9, 1/9 each side; rows 17, 77, 137 (truncated), column 70.
    EXPECT_EQ(zoomed(3, 3, 1, {0, 20, 40, 60, 80, 100, 120, 140, 160}, 1, 1), Bytes{70});
    // 3 -> 2: the weights of output 0 sum to 10/9; 255 * 10/9 = 283 wraps to 27.
    EXPECT_EQ(zoomed(3, 1, 1, {255, 255, 255}, 2, 1), (Bytes{27, 226}));
}

TEST(Zoom, ChannelsInPlaceWrappedRowsAndBadSizes) {
    const Bytes rgb = {0, 100, 200, 100, 0, 50};
    const Bytes row = {0, 100, 200, 50, 50, 125, 100, 0, 50, 100, 0, 50};
    EXPECT_EQ(zoomed(2, 1, 3, rgb, 4, 1), row);
    FlicImage image = makeImage(2, 1, 3, rgb);
    EXPECT_EQ(image.zoom(4, 2, &image), 1); // a result equal to the image is in place
    EXPECT_EQ(image.bytesPerLine, 12);
    Bytes twice = row;
    twice.insert(twice.end(), row.begin(), row.end());
    EXPECT_EQ(pixelBytes(image), twice);

    unsigned char memory[] = {0, 100, 7, 7, 100, 0, 7, 7};
    FlicImage wrapped(2, 2, 4, memory), result;
    wrapped.zoom(4, 2, &result);
    EXPECT_EQ(pixelBytes(result), (Bytes{0, 50, 100, 100, 100, 50, 0, 0}));

    MessageCapture capture;
    FlicImage grey = greyImage(3, 2, {1, 2, 3, 4, 5, 6}), empty;
    EXPECT_EQ(grey.zoom(-1, 4) + empty.zoom(4, 4) + grey.zoom(70000, 70000), 0);
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{"FLIC error: zoom: new size -1 x 4 is negative",
                                        "FLIC error: zoom: the image to be zoomed has no pixels",
                                        "FLIC error: zoom: new size 70000 x 70000 x 1 is too "
                                        "large"}));
    EXPECT_EQ(pixelBytes(grey), (Bytes{1, 2, 3, 4, 5, 6}));
    // A single row stretched to 100 million pixels fits an image, not its filter weights.
    FlicImage single = makeImage(2, 1, 1, {0, 100});
    capture.errors().clear();
    EXPECT_EQ(single.zoom(100000000, 1), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: zoom: new size 100000000 x 1 x 1 is too large");
    EXPECT_EQ(pixelBytes(single), (Bytes{0, 100}));
    capture.errors().clear();
    FlicImage rgb3 = makeImage(1, 1, 3, {1, 2, 3});
    EXPECT_EQ(rgb3.zoom(2147483647, 2147483647), 0); // a byte count beyond 64 bits
    EXPECT_EQ(capture.onlyError(),
              "FLIC error: zoom: new size 2147483647 x 2147483647 x 3 is too large");
    EXPECT_EQ(grey.zoom(0, 5), 1);
    EXPECT_TRUE(grey.width == 0 && grey.height == 5);
}

TEST(Zoom, LongLinesMatchShortLines) {
    // A pattern in a 16400-pixel band and in an 80-pixel one; with even offsets both see the
    // same weights at corresponding outputs.
    FlicImage pattern(40, 6);
    pattern.createRandom(0, 21);
    for (bool rows : {true, false})
        for (int up : {1, 0}) {
            auto scaled = [up](int v) { return up ? 2 * v : v / 2; };
            auto run = [&](int length, int start) {
                FlicImage band = bandImage(rows, length, pattern, start);
                EXPECT_EQ(band.zoom(scaled(band.width), scaled(band.height)), 1);
                return bandBytes(band, rows, scaled(start - 20), scaled(start + 60));
            };
            EXPECT_EQ(run(16400, 9000), run(80, 20)) << rows << up;
        }
}

TEST(Zoom, WithoutMemoryNothingChanges) {
    FlicImage big(20000, 20000), single = makeImage(2, 1, 1, {0, 100});
    big.data[0] = 7;
    AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(big.zoom(20000, 19999), 0); // no memory for the intermediate image
    // The filter weights of a row 50 million pixels long (1.2 GB) cannot be held.
    EXPECT_EQ(single.zoom(50000000, 1), 0);
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{
                  "FLIC error: no memory for an image of 20000 x 20000 x 1 bytes",
                  "FLIC error: zoom: no memory for the filter weights of new size 50000000 x 1"}));
    EXPECT_TRUE(big.height == 20000 && big.data[0] == 7);
    EXPECT_EQ(pixelBytes(single), (Bytes{0, 100}));
}
