// Exact byte statistics and the tone mappings on them: statistics at any size, contrast
// adjustment, percentile stretch, global and adaptive equalisation, bad settings.
#include "histogram.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace testutil;
using Bytes = std::vector<int>;

TEST(Histogram, StatisticsAreExactPerChannelAndWithoutZeros) {
    FlicHistogram histogram;
    EXPECT_EQ(4, histogram.count(makeImage(4, 1, 1, {0, 10, 20, 30})));
    double mean, sdev;
    EXPECT_EQ(4, histogram.statistics(-1, 0, mean, sdev));
    EXPECT_DOUBLE_EQ(15.0, mean);
    EXPECT_DOUBLE_EQ(std::sqrt(500.0 / 3.0), sdev);
    EXPECT_EQ(3, histogram.statistics(0, 1, mean, sdev)); // zeros left out
    EXPECT_DOUBLE_EQ(20.0, mean);
    EXPECT_DOUBLE_EQ(10.0, sdev);
    EXPECT_EQ(10, histogram.percentile(-1, 0.0));
    EXPECT_EQ(20, histogram.percentile(-1, 0.5));
    EXPECT_EQ(30, histogram.percentile(-1, 1.0));

    // RGB: each channel alone, or all bytes together.
    histogram.count(makeImage(2, 1, 3, {1, 2, 3, 5, 6, 7}));
    EXPECT_EQ(2, histogram.statistics(1, 0, mean, sdev));
    EXPECT_DOUBLE_EQ(4.0, mean);
    EXPECT_EQ(6, histogram.statistics(-1, 0, mean, sdev));
    EXPECT_DOUBLE_EQ(4.0, mean);

    // One byte has no spread; none gives zeros; an image without pixels counts nothing.
    histogram.count(makeImage(2, 1, 1, {0, 9}));
    EXPECT_EQ(1, histogram.statistics(0, 1, mean, sdev));
    EXPECT_DOUBLE_EQ(9.0, mean);
    EXPECT_DOUBLE_EQ(0.0, sdev);
    histogram.count(makeImage(2, 1, 1, {0, 0}));
    EXPECT_EQ(0, histogram.statistics(0, 1, mean, sdev));
    EXPECT_EQ(0.0, mean + sdev);
    EXPECT_EQ(0, histogram.percentile(0, 0.5));
    FlicImage empty;
    EXPECT_EQ(0, histogram.count(empty));
    EXPECT_EQ(0, histogram.nChannels);
}

TEST(Histogram, LargeImagesAgreeWithIntegerSums) {
    // 8192 x 8192 bytes of noise: the figures equal those of exact integer sums, where
    // single-precision running sums drift by whole grey levels.
    FlicImage noise(8192, 8192, 1);
    noise.createRandom(0, 3);
    long long n = 8192LL * 8192, sum = 0, squares = 0;
    for (long long k = 0; k < n; k++) {
        sum += noise.data[k];
        squares += noise.data[k] * noise.data[k];
    }
    FlicHistogram histogram;
    EXPECT_EQ(n, histogram.count(noise));
    double mean, sdev;
    histogram.statistics(0, 0, mean, sdev);
    double exactMean = static_cast<double>(sum) / n;
    double exactVariance = (squares - sum * exactMean) / (n - 1);
    EXPECT_NEAR(exactMean, mean, 1e-9);
    EXPECT_NEAR(std::sqrt(exactVariance), sdev, 1e-6);
}

TEST(Histogram, ContrastAdjustmentHitsItsTargetAtAnySize) {
    // Non-zero bytes 100 and 200: m = 150, s = 70.71; gain 40 / s.
    FlicImage image = makeImage(3, 1, 1, {0, 100, 200});
    EXPECT_EQ(1, flicAdjustContrast(image, 128.0f, 40.0f));
    EXPECT_EQ(pixelBytes(image), (Bytes{0, 100, 156}));
    // A single non-zero byte keeps gain 1 and moves to the mean; all-zero images stay.
    image = makeImage(3, 1, 1, {0, 50, 0});
    flicAdjustContrast(image, 128.0f, 40.0f);
    EXPECT_EQ(pixelBytes(image), (Bytes{0, 128, 0}));
    image = makeImage(2, 1, 1, {0, 0});
    flicAdjustContrast(image, 128.0f, 40.0f);
    EXPECT_EQ(pixelBytes(image), (Bytes{0, 0}));
    FlicImage empty;
    EXPECT_EQ(0, flicAdjustContrast(empty, 128.0f, 40.0f));

    // A faint 4096 x 4096 picture (bytes 100 .. 163) lands on 128 / 40 to within a grey level.
    FlicImage faint(4096, 4096, 1);
    faint.createRandom(0, 5);
    for (long long k = 0; k < 4096LL * 4096; k++)
        faint.data[k] = static_cast<unsigned char>(100 + faint.data[k] / 4);
    flicAdjustContrast(faint, 128.0f, 40.0f);
    FlicHistogram histogram;
    histogram.count(faint);
    double mean, sdev;
    histogram.statistics(0, 1, mean, sdev);
    EXPECT_NEAR(128.0, mean, 1.0);
    EXPECT_NEAR(40.0, sdev, 1.0);
}

TEST(Histogram, StretchAndEqualisationMapNonZeroBytes) {
    // Values 1 .. 100 stretched between their extremes: 50 -> 1 + 254 * 49 / 99 = 126.7 -> 127.
    Bytes ramp;
    for (int v = 1; v <= 100; v++)
        ramp.push_back(v);
    FlicImage image = makeImage(100, 1, 1, ramp);
    EXPECT_EQ(1, flicStretchContrast(image, 0.0, 1.0));
    EXPECT_EQ(1, pixelBytes(image)[0]);
    EXPECT_EQ(127, pixelBytes(image)[49]);
    EXPECT_EQ(255, pixelBytes(image)[99]);
    std::string message = stderrOf([&] { EXPECT_EQ(0, flicStretchContrast(image, 0.6, 0.4)); });
    EXPECT_NE(std::string::npos, message.find("percentiles 0.6 and 0.4")) << message;
    EXPECT_EQ(255, pixelBytes(image)[99]);

    // Global: counts 10:2, 20:1, 30:1; the cumulative share above the lowest value over 1..255.
    image = makeImage(5, 1, 1, {0, 10, 10, 20, 30});
    EXPECT_EQ(1, flicEqualize(image));
    EXPECT_EQ(pixelBytes(image), (Bytes{0, 1, 1, 128, 255}));
    // One value only: kept.
    image = makeImage(3, 1, 1, {0, 70, 70});
    flicEqualize(image);
    EXPECT_EQ(pixelBytes(image), (Bytes{0, 70, 70}));
}

TEST(Histogram, AdaptiveEqualisationWorksPerRegionAndRefusesBadSettings) {
    // Left half 100..115, right half 116..131 (a ramp in each). Globally each half gets half
    // of the output range; adaptively, far from the middle, each gets nearly all of it.
    FlicImage image(64, 16, 1), global;
    for (int y = 0; y < 16; y++)
        for (int x = 0; x < 64; x++)
            image.data[y * image.bytesPerLine + x] =
                static_cast<unsigned char>(100 + (x < 32 ? 0 : 16) + y);
    global = image;
    EXPECT_EQ(1, flicEqualize(global));
    EXPECT_EQ(1, flicEqualize(image, 2, 256.0f));
    auto spanOfColumn = [](const FlicImage& picture, int x) {
        int low = 255, high = 0;
        for (int y = 0; y < picture.height; y++) {
            int v = picture.data[y * picture.bytesPerLine + x];
            low = v < low ? v : low;
            high = v > high ? v : high;
        }
        return high - low;
    };
    EXPECT_LT(spanOfColumn(global, 0), 130);
    EXPECT_GT(spanOfColumn(image, 0), 230);
    EXPECT_GT(spanOfColumn(image, 63), 230);

    Bytes before = pixelBytes(image);
    for (int tiles : {1, 65, -2}) {
        std::string message = stderrOf([&] { EXPECT_EQ(0, flicEqualize(image, tiles, 2.0f)); });
        EXPECT_NE(std::string::npos, message.find("tiles per side outside 2 .. 64")) << tiles;
    }
    std::string message = stderrOf([&] { EXPECT_EQ(0, flicEqualize(image, 4, 0.5f)); });
    EXPECT_NE(std::string::npos, message.find("clip limit 0.5 outside 1 .. 256")) << message;
    EXPECT_EQ(before, pixelBytes(image));
    // More tiles than pixels: the grid shrinks to the picture.
    FlicImage tiny = makeImage(2, 2, 1, {10, 20, 30, 40});
    EXPECT_EQ(1, flicEqualize(tiny, 8, 2.0f));
}
