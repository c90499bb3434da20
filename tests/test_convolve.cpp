// Packed-table convolution, Gaussian blur and the 3 x 3 median filter.
#include "convolve.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

using testutil::MessageCapture;

namespace {

// A compact grey image whose pixel (x, y) holds values[y * width + x].
FlicImage greyImage(int width, int height, const std::vector<int>& values) {
    FlicImage image(width, height);
    for (int i = 0; i < width * height; i++)
        image.data[i] = static_cast<unsigned char>(values[i]);
    return image;
}

std::vector<int> pixels(const FlicImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.nChannels * image.width; x++)
            out.push_back(image.data[y * image.bytesPerLine + x]);
    return out;
}

FlicImage noiseImage(int width, int height, int channels, int seed) {
    FlicImage image(width, height, channels);
    image.createRandom(0, seed);
    return image;
}

std::vector<int> convolveLine(const std::vector<int>& line, const std::vector<float>& kernel) {
    std::vector<unsigned char> bytes(line.begin(), line.end());
    flic_initPackedLuts(kernel.data(), static_cast<int>(kernel.size()));
    flic_fastconv(bytes.data(), static_cast<int>(bytes.size()), 1, bytes.data());
    return std::vector<int>(bytes.begin(), bytes.end());
}

} // namespace

TEST(PackedTables, EntriesOffsetsBiasAndGroupCount) {
    const float blur[] = {0.5f, 0.25f};
    flic_initPackedLuts(blur, 2);
    // v = 100: A = 4 * 0.25 * 100 = 100, B = 100 + rounding term 1, C = 0.
    EXPECT_EQ(globalLUT[100], 100u + (101u << 10));
    EXPECT_EQ(globalLUT[0], 1u << 10);
    EXPECT_EQ(globalLUT[FLIC_LUT_BIAS], 0u);
    EXPECT_EQ(globalLUT[FLIC_LUT_GROUPS], 1u);
    EXPECT_EQ(luts, globalLUT);

    // A negative weight -0.25 gets the field offset 256; the bias counts it twice.
    const float sharpen[] = {1.5f, -0.25f};
    flic_initPackedLuts(sharpen, 2);
    EXPECT_EQ(globalLUT[0], 257u << 10);
    // v = 255: A = round(765.0) = 765; B = floor(-254.5) + 256 + 1 = 2.
    EXPECT_EQ(globalLUT[255], 765u + (2u << 10));
    EXPECT_EQ(globalLUT[FLIC_LUT_BIAS], 512u);

    // Group count: threes of half-taps; a fourth group is written over table 2.
    std::vector<float> taps(12, 0.01f);
    taps[0] = 0.2f;
    taps[9] = 0.25f;
    testing::internal::CaptureStderr();
    flic_initPackedLuts(taps.data(), 4);
    EXPECT_EQ(globalLUT[FLIC_LUT_GROUPS], 2u);
    flic_initPackedLuts(taps.data(), 9);
    EXPECT_EQ(globalLUT[FLIC_LUT_GROUPS], 3u);
    flic_initPackedLuts(taps.data(), 10);
    EXPECT_EQ(globalLUT[FLIC_LUT_GROUPS], 4u);
    EXPECT_EQ(globalLUT[2 * FLIC_LUT_ENTRIES + 100], 100u + (1u << 10)); // 4 * 0.25 * 100
    flic_initPackedLuts(taps.data(), 0);
    EXPECT_EQ(globalLUT[FLIC_LUT_GROUPS], 0u);
    EXPECT_EQ(globalLUT[FLIC_LUT_BIAS], 0u);
    testing::internal::GetCapturedStderr();
}

TEST(PackedTables, FilterSumWarningAndGroupBoundExit) {
    const float dark[] = {0.9f};
    testing::internal::CaptureStderr();
    flic_initPackedLuts(dark, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: filter sum != 1 (=0.900000)\n");

    const float exact[] = {0.4f, 0.2f, 0.1f};
    testing::internal::CaptureStderr();
    flic_initPackedLuts(exact, 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // The centre weight is halved before the bound is checked: 2.0 -> 1.0.
    FlicImage image(4, 4);
    image.clear(10);
    const float tooStrong[] = {2.0f, -0.5f};
    EXPECT_EXIT(image.convolve(2, tooStrong), testing::ExitedWithCode(1),
                "\\|1\\.000000\\|\\+\\|-0\\.500000\\|\\+\\|0\\.000000\\| > 1\n");
    // The same bound in a later group, with all three of its weights.
    const float lateGroup[] = {0.5f, 0.0f, 0.0f, 0.6f, -0.3f, 0.2f};
    EXPECT_EXIT(flic_initPackedLuts(lateGroup, 6), testing::ExitedWithCode(1),
                "\\|0\\.600000\\|\\+\\|-0\\.300000\\|\\+\\|0\\.200000\\| > 1\n");
}

TEST(FastConv, LinesWithStrideClampedBordersAndRounding) {
    EXPECT_EQ(convolveLine({0, 0, 100, 0, 0}, {0.5f, 0.25f}), (std::vector<int>{0, 25, 50, 25, 0}));
    // Clamp-to-edge: the border sample counts for the missing neighbours.
    EXPECT_EQ(convolveLine({200, 0, 0, 0, 40}, {0.5f, 0.25f}),
              (std::vector<int>{150, 50, 0, 10, 30}));
    // Rounding in quarter units: 0.9 * 6 = 5.4 packs as round(10.8) = 11 half-units -> 6.
    testing::internal::CaptureStderr();
    EXPECT_EQ(convolveLine({100, 255, 6, 0, 10}, {0.9f}), (std::vector<int>{90, 230, 6, 0, 9}));
    testing::internal::GetCapturedStderr();
    // Sharpening: results below 0 and above 255 are clamped.
    EXPECT_EQ(convolveLine({100, 100, 200, 100, 100}, {1.5f, -0.25f}),
              (std::vector<int>{100, 75, 250, 75, 100}));
    EXPECT_EQ(convolveLine({0, 0, 0, 255, 255, 255}, {1.5f, -0.25f}),
              (std::vector<int>{0, 0, 0, 255, 255, 255}));
    EXPECT_EQ(convolveLine({40, 40, 0, 255, 200, 200}, {1.5f, -0.25f}),
              (std::vector<int>{40, 50, 0, 255, 186, 200}));
    // A single sample is its own clamped neighbourhood.
    EXPECT_EQ(convolveLine({77}, {0.5f, 0.25f}), (std::vector<int>{77}));

    // Samples `stride` bytes apart; the bytes in between stay as they are.
    const float blur[] = {0.5f, 0.25f};
    flic_initPackedLuts(blur, 2);
    unsigned char interleaved[15];
    for (int i = 0; i < 15; i++)
        interleaved[i] = static_cast<unsigned char>(i % 3 == 0 ? (i == 6 ? 100 : 0) : 7);
    flic_fastconv(interleaved, 5, 3, interleaved);
    const int expected[15] = {0, 7, 7, 25, 7, 7, 50, 7, 7, 25, 7, 7, 0, 7, 7};
    for (int i = 0; i < 15; i++)
        EXPECT_EQ(interleaved[i], expected[i]) << i;

    // Tables without a usable kernel: nothing is written.
    flic_initPackedLuts(blur, 0);
    unsigned char line[3] = {1, 2, 3};
    unsigned char out[3] = {9, 9, 9};
    flic_fastconv(line, 3, 1, out);
    EXPECT_EQ(out[0] + out[1] + out[2], 27);
}

TEST(Convolve, SeparablePassesActOncePerDirection) {
    const float blur[] = {0.5f, 0.25f};
    FlicImage row = greyImage(5, 1, {0, 0, 100, 0, 0});
    EXPECT_EQ(row.convolve(2, blur), 1);
    EXPECT_EQ(pixels(row), (std::vector<int>{0, 25, 50, 25, 0}));
    FlicImage column = greyImage(1, 5, {0, 0, 100, 0, 0});
    column.convolve(2, blur);
    EXPECT_EQ(pixels(column), (std::vector<int>{0, 25, 50, 25, 0}));

    // A point spreads into the outer product of the two passes, each pass rounding on its
    // own (6.25 -> 6, 12.5 -> 13).
    std::vector<int> point(25, 0);
    point[12] = 100;
    FlicImage source = greyImage(5, 5, point);
    FlicImage result;
    EXPECT_EQ(source.convolve(2, blur, &result), 1);
    EXPECT_EQ(pixels(source), point);
    EXPECT_EQ(pixels(result), (std::vector<int>{0,  0, 0, 0, 0,  0, 6, 13, 6, 0, 0, 13, 25,
                                                13, 0, 0, 6, 13, 6, 0, 0,  0, 0, 0, 0}));

    // The kernel {0.9} darkens once per pass: 100 -> 90 -> 81, 255 -> 230 -> 207.
    testing::internal::CaptureStderr();
    FlicImage dark = greyImage(2, 2, {100, 255, 0, 6});
    dark.convolve(1, std::vector<float>{0.9f}.data());
    FlicImage darkRow = greyImage(2, 1, {100, 100});
    darkRow.convolve(1, std::vector<float>{0.9f}.data());
    FlicImage darkWhite = greyImage(2, 1, {255, 255});
    darkWhite.convolve(1, std::vector<float>{0.9f}.data());
    std::string warning = "Warning: filter sum != 1 (=0.900000)\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), warning + warning + warning);
    EXPECT_EQ(pixels(darkRow), (std::vector<int>{81, 81}));
    EXPECT_EQ(pixels(darkWhite), (std::vector<int>{207, 207}));
}

TEST(Convolve, RowsByBytesPerLineAndColourImages) {
    // A wrapped image with padding bytes between rows: only its pixels take part.
    unsigned char memory[3 * 8];
    for (int i = 0; i < 24; i++)
        memory[i] = 99;
    for (int y = 0; y < 3; y++)
        for (int x = 0; x < 5; x++)
            memory[y * 8 + x] = (x == 2 && y == 1) ? 100 : 0;
    FlicImage wrapped(5, 3, 8, memory);
    const float blur[] = {0.5f, 0.25f};
    wrapped.convolve(2, blur);
    const int expected[3][5] = {{0, 6, 13, 6, 0}, {0, 13, 25, 13, 0}, {0, 6, 13, 6, 0}};
    for (int y = 0; y < 3; y++) {
        for (int x = 0; x < 5; x++)
            EXPECT_EQ(memory[y * 8 + x], expected[y][x]) << x << "," << y;
        for (int x = 5; x < 8; x++)
            EXPECT_EQ(memory[y * 8 + x], 99);
    }

    // A colour image is filtered as the first `width` bytes of each row: into a separate
    // result as a grey image, in place with the other bytes left alone.
    FlicImage rgb(3, 1, 3);
    for (int i = 0; i < 9; i++)
        rgb.data[i] = static_cast<unsigned char>(i == 1 ? 100 : 50);
    FlicImage grey;
    rgb.convolve(2, blur, &grey);
    EXPECT_EQ(grey.nChannels, 1);
    EXPECT_EQ(pixels(grey), (std::vector<int>{63, 75, 63}));
    rgb.convolve(2, blur);
    EXPECT_EQ(pixels(rgb), (std::vector<int>{63, 75, 63, 50, 50, 50, 50, 50, 50}));
}

TEST(Convolve, UnsupportedKernelsWriteNothing) {
    FlicImage image = noiseImage(7, 6, 1, 5);
    std::vector<int> before = pixels(image);
    std::vector<float> longKernel(10, 0.05f);
    testing::internal::CaptureStderr();
    EXPECT_EQ(image.convolve(10, longKernel.data()), 0);
    EXPECT_EQ(image.convolve(0, longKernel.data()), 0);
    EXPECT_EQ(image.convolve(-3, nullptr), 0);
    EXPECT_EQ(image.gaussBlur(10), 0);
    EXPECT_EQ(image.gaussBlur(0), 0);
    EXPECT_EQ(image.gaussBlur(-1), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: filter sum != 1 (=0.950000)\n");
    EXPECT_EQ(pixels(image), before);

    FlicImage result;
    EXPECT_EQ(image.gaussBlur(12, &result), 0);
    EXPECT_EQ(result.width, 7);
    EXPECT_EQ(result.height, 6);
    EXPECT_EQ(result.nChannels, 1);

    // A weight that is not a number and a missing kernel are reported.
    MessageCapture capture;
    const float notANumber[] = {NAN, 0.25f};
    EXPECT_EQ(image.convolve(2, notANumber), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: convolution kernel weight 0 is not a number");
    capture.errors().clear();
    EXPECT_EQ(image.convolve(2, nullptr), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: convolve: no kernel given for 2 half-taps");
    EXPECT_EQ(pixels(image), before);
}

TEST(GaussBlur, IdentityAndConstantImages) {
    FlicImage image = noiseImage(9, 7, 1, 3);
    std::vector<int> before = pixels(image);
    FlicImage result;
    EXPECT_EQ(image.gaussBlur(1, &result), 1);
    EXPECT_EQ(pixels(result), before);
    EXPECT_EQ(image.gaussBlur(1, &image), 1);
    EXPECT_EQ(pixels(image), before);

    // With one and two half-taps every constant image stays constant, borders included.
    for (int n = 1; n <= 2; n++) {
        for (int v = 0; v < 256; v++) {
            FlicImage flat(6, 5);
            flat.clear(v);
            flat.gaussBlur(n);
            EXPECT_EQ(pixels(flat), std::vector<int>(30, v)) << "n " << n << " v " << v;
        }
    }
    // Every product is rounded on its own and each tap group adds its own rounding term, so
    // longer kernels lift some constants: n = 3 rounds 3.56 + 6.74 + 5.70 up to 17 quarters
    // for v = 8; with n = 4 the second group's rounding term turns 0 into 1, then 2 (the
    // products of 1 round to 0 + 1 + 1 + 0 quarters); with n = 9 the three groups' rounding
    // terms make 6 quarters, so 0 becomes 1 (every product of 1 rounds to 0).
    for (int n = 3; n <= 9; n++) {
        for (int v : {0, 8, 128, 255}) {
            FlicImage flat(12, 11);
            flat.clear(v);
            flat.gaussBlur(n);
            std::vector<int> values = pixels(flat);
            EXPECT_EQ(values, std::vector<int>(values.size(), values[0])) << n << " " << v;
            EXPECT_GE(values[0], v);
        }
    }
    FlicImage eight(4, 4);
    eight.clear(8);
    eight.gaussBlur(3);
    EXPECT_EQ(pixels(eight), std::vector<int>(16, 9));
    FlicImage black(4, 4);
    black.clear(0);
    black.gaussBlur(4);
    EXPECT_EQ(pixels(black), std::vector<int>(16, 2));
    black.clear(0);
    black.gaussBlur(9);
    EXPECT_EQ(pixels(black), std::vector<int>(16, 1));
}

TEST(GaussBlur, SmoothsTowardsTheLocalMean) {
    FlicImage image = greyImage(9, 1, {0, 0, 0, 0, 255, 0, 0, 0, 0});
    image.gaussBlur(3);
    std::vector<int> values = pixels(image);
    // Symmetric, peaked at the spike and decreasing outwards, with the mass kept.
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(values[i], values[8 - i]);
    EXPECT_GT(values[4], values[3]);
    EXPECT_GT(values[3], values[2]);
    EXPECT_GT(values[2], values[1]);
    int total = 0;
    for (int v : values)
        total += v;
    EXPECT_NEAR(total, 255, 3);
}

TEST(MedianFilter, SpikesEdgesCornersAndChannels) {
    std::vector<int> flat(25, 50);
    flat[12] = 255;
    flat[0] = 0;
    FlicImage spike = greyImage(5, 5, flat);
    EXPECT_EQ(spike.medianFilter(), 1);
    EXPECT_EQ(pixels(spike), std::vector<int>(25, 50));

    std::vector<int> edge;
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 6; x++)
            edge.push_back(x < 3 ? 10 : 200);
    FlicImage step = greyImage(6, 4, edge);
    FlicImage result;
    step.medianFilter(&result);
    EXPECT_EQ(pixels(result), edge);

    // The clamped neighbourhood of a corner holds the corner four times, its two edge
    // neighbours twice and the diagonal once: corner and diagonal make five of nine.
    FlicImage corner = greyImage(3, 3, {200, 0, 0, 0, 200, 0, 0, 0, 0});
    corner.medianFilter();
    EXPECT_EQ(pixels(corner), (std::vector<int>{200, 0, 0, 0, 0, 0, 0, 0, 0}));

    // A colour image: the first `width` bytes of each row are filtered as grey pixels, the
    // rest of the row is kept.
    FlicImage rgb(3, 3, 3);
    for (int i = 0; i < 27; i++)
        rgb.data[i] = static_cast<unsigned char>(i % 9 < 3 ? 30 : 90);
    rgb.data[9 + 1] = 250;
    rgb.medianFilter();
    std::vector<int> expected;
    for (int i = 0; i < 27; i++)
        expected.push_back(i % 9 < 3 ? 30 : 90);
    EXPECT_EQ(pixels(rgb), expected);

    FlicImage empty;
    EXPECT_EQ(empty.medianFilter(), 1);
    EXPECT_EQ(empty.width, 0);
}

namespace {

// A long line (or column) of noise framed by constant margins, and the same pattern in a
// short one: the filtered pattern and the margins must agree, whatever the line length.
void expectLargeMatchesSmall(bool horizontal, void (*filter)(FlicImage&)) {
    const int longSide = 16400, shortSide = 5, patternLength = 40, offset = 9000, margin = 20;
    FlicImage pattern = noiseImage(patternLength, shortSide, 1, 11);
    auto makeImage = [&](int length, int start) {
        FlicImage image = horizontal ? FlicImage(length, shortSide) : FlicImage(shortSide, length);
        image.clear(77);
        for (int s = 0; s < shortSide; s++)
            for (int i = 0; i < patternLength; i++) {
                int x = horizontal ? start + i : s, y = horizontal ? s : start + i;
                image.data[y * image.bytesPerLine + x] = pattern.data[s * patternLength + i];
            }
        return image;
    };
    FlicImage large = makeImage(longSide, offset);
    FlicImage small = makeImage(patternLength + 2 * margin, margin);
    filter(large);
    filter(small);
    auto at = [horizontal](const FlicImage& image, int along, int across) {
        return horizontal ? image.data[across * image.bytesPerLine + along]
                          : image.data[along * image.bytesPerLine + across];
    };
    int mismatches = 0;
    for (int s = 0; s < shortSide; s++) {
        for (int i = 0; i < patternLength + 2 * margin; i++)
            mismatches += at(large, offset - margin + i, s) != at(small, i, s);
        mismatches += at(large, 0, s) != at(small, 0, s);
        mismatches += at(large, longSide - 1, s) != at(small, 0, s);
    }
    EXPECT_EQ(mismatches, 0) << (horizontal ? "horizontal" : "vertical");
}

} // namespace

TEST(Convolve, LongLinesMatchShortLines) {
    for (bool horizontal : {true, false}) {
        expectLargeMatchesSmall(horizontal, [](FlicImage& image) { image.gaussBlur(9); });
        expectLargeMatchesSmall(horizontal, [](FlicImage& image) { image.gaussBlur(2); });
        expectLargeMatchesSmall(horizontal, [](FlicImage& image) { image.medianFilter(); });
    }
}

TEST(Convolve, EqualsLineConvolutionOfRowsThenColumns) {
    // Wider than one column strip of the column pass, for one, two and three tap groups.
    const int width = 1100, height = 37;
    FlicImage source = noiseImage(width, height, 1, 8);
    for (int n : {2, 5, 9}) {
        FlicImage result;
        ASSERT_EQ(source.gaussBlur(n, &result), 1);
        // The same kernel applied line by line through flic_fastconv; the tables still hold it.
        std::vector<unsigned char> lines(source.data, source.data + width * height);
        for (int y = 0; y < height; y++)
            flic_fastconv(&lines[y * width], width, 1, &lines[y * width]);
        for (int x = 0; x < width; x++)
            flic_fastconv(&lines[x], height, width, &lines[x]);
        EXPECT_EQ(pixels(result), std::vector<int>(lines.begin(), lines.end())) << n;
    }
}
