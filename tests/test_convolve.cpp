// Packed-table convolution, Gaussian blur and the 3 x 3 median filter.
#include "convolve.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace testutil;
using Bytes = std::vector<int>;

namespace {

Bytes line(const Bytes& values, const std::vector<float>& kernel) {
    std::vector<unsigned char> bytes(values.begin(), values.end());
    flic_initPackedLuts(kernel.data(), static_cast<int>(kernel.size()));
    flic_fastconv(bytes.data(), static_cast<int>(bytes.size()), 1, bytes.data());
    return Bytes(bytes.begin(), bytes.end());
}

const float kBlur[] = {0.5f, 0.25f};

} // namespace

TEST(PackedTables, EntriesBiasGroupsWarningAndExit) {
    flic_initPackedLuts(kBlur, 2);
    // v = 100: A = 4 * (0.5 / 2) * 100, B = 4 * 0.25 * 100 + rounding term 1, C = 0.
    EXPECT_EQ(luts[100], 100u + (101u << 10));
    EXPECT_EQ(luts[FLIC_LUT_BIAS] + luts[FLIC_LUT_GROUPS], 1u);
    // -0.25 gets the offset 256 (counted twice in the bias); v = 255: B = -255 + 256 + 1.
    const float sharpen[] = {1.5f, -0.25f};
    flic_initPackedLuts(sharpen, 2);
    EXPECT_EQ(luts[255], 765u + (2u << 10));
    EXPECT_EQ(luts[FLIC_LUT_BIAS], 512u);
    std::vector<float> taps(12, 0.01f);
    taps[9] = 0.25f;
    stderrOf([&] {
        for (int n : {0, 4, 9, 10}) {
            flic_initPackedLuts(taps.data(), n);
            EXPECT_EQ(luts[FLIC_LUT_GROUPS], static_cast<unsigned>((n + 2) / 3));
        }
    });
    EXPECT_EQ(luts[2 * FLIC_LUT_ENTRIES + 100], 100u + (1u << 10)); // group 4 over table 2
    // Of the groups beyond the third, the last one is what table 2 holds.
    std::vector<float> longer(17, 0.0f);
    longer[9] = 0.25f;
    longer[15] = 0.1f;
    stderrOf([&] { flic_initPackedLuts(longer.data(), 17); });
    EXPECT_EQ(luts[FLIC_LUT_GROUPS], 6u);
    EXPECT_EQ(luts[2 * FLIC_LUT_ENTRIES + 100], 40u + (1u << 10));

    const float dark[] = {0.9f};
    EXPECT_EQ(stderrOf([&] { flic_initPackedLuts(dark, 1); }),
              "Warning: filter sum != 1 (=0.900000)\n");
    const float tooStrong[] = {2.0f, -0.5f};
    EXPECT_EXIT(FlicImage(4, 4).convolve(2, tooStrong), testing::ExitedWithCode(1),
                "\\|1\\.000000\\|\\+\\|-0\\.500000\\|\\+\\|0\\.000000\\| > 1\n");
}

TEST(FastConv, RoundingClampingBordersAndStride) {
    EXPECT_EQ(line({0, 0, 100, 0, 0}, {0.5f, 0.25f}), (Bytes{0, 25, 50, 25, 0}));
    EXPECT_EQ(line({200, 0, 0, 0, 40}, {0.5f, 0.25f}), (Bytes{150, 50, 0, 10, 30}));
    EXPECT_EQ(line({77}, {0.5f, 0.25f}), Bytes{77});
    // Sharpening within the bound: results below 0 and above 255 are clamped.
    EXPECT_EQ(line({40, 40, 0, 255, 200, 200}, {1.5f, -0.25f}), (Bytes{40, 50, 0, 255, 186, 200}));
    // Quarter units: 0.9 * 6 = 5.4 packs as round(10.8) = 11 half-units -> 6.
    stderrOf([] { EXPECT_EQ(line({100, 255, 6, 10}, {0.9f}), (Bytes{90, 230, 6, 9})); });

    flic_initPackedLuts(kBlur, 2);
    unsigned char strided[15] = {0, 7, 7, 0, 7, 7, 100, 7, 7, 0, 7, 7, 0, 7, 7};
    flic_fastconv(strided, 5, 3, strided);
    EXPECT_EQ(Bytes(strided, strided + 15),
              (Bytes{0, 7, 7, 25, 7, 7, 50, 7, 7, 25, 7, 7, 0, 7, 7}));
}

TEST(Convolve, OncePerPassRowsByBytesPerLineAndChannels) {
    Bytes point(25, 0);
    point[12] = 100;
    FlicImage source = greyImage(5, 5, point), result;
    EXPECT_EQ(source.convolve(2, kBlur, &result), 1);
    EXPECT_EQ(pixelBytes(source), point);
    // The outer product of the passes, each rounding on its own: 6.25 -> 6, 12.5 -> 13.
    EXPECT_EQ(pixelBytes(result), (Bytes{0,  0, 0, 0, 0,  0, 6, 13, 6, 0, 0, 13, 25,
                                         13, 0, 0, 6, 13, 6, 0, 0,  0, 0, 0, 0}));
    // {0.9} darkens once per pass: 100 -> 90 -> 81, 255 -> 230 -> 207.
    FlicImage dark = greyImage(2, 1, {100, 255});
    stderrOf([&] { dark.convolve(1, std::vector<float>{0.9f}.data()); });
    EXPECT_EQ(pixelBytes(dark), (Bytes{81, 207}));

    // Colour: the first `width` bytes of each row, into a grey result or in place.
    FlicImage rgb(3, 1, 3);
    rgb.clear(50);
    rgb.data[1] = 100;
    rgb.convolve(2, kBlur, &result);
    EXPECT_EQ(pixelBytes(result), (Bytes{63, 75, 63}));
    rgb.convolve(2, kBlur);
    EXPECT_EQ(pixelBytes(rgb), (Bytes{63, 75, 63, 50, 50, 50, 50, 50, 50}));
}

TEST(Convolve, UnusableKernelsWriteNothing) {
    FlicImage image(7, 6), result;
    image.createRandom(0, 5);
    Bytes before = pixelBytes(image);
    std::vector<float> ten(10, 0.05f);
    stderrOf([&] {
        EXPECT_EQ(image.convolve(10, ten.data()) + image.convolve(0, ten.data()) +
                      image.gaussBlur(0) + image.gaussBlur(10),
                  0);
    });
    EXPECT_EQ(image.gaussBlur(12, &result), 0);
    EXPECT_TRUE(result.width == 7 && result.height == 6);

    MessageCapture capture;
    const float notANumber[] = {NAN, 0.25f};
    EXPECT_EQ(image.convolve(2, notANumber) + image.convolve(2, nullptr), 0);
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{"FLIC error: convolution kernel weight 0 is not a number",
                                        "FLIC error: convolve: no kernel given for 2 half-taps"}));
    EXPECT_EQ(pixelBytes(image), before);
}

TEST(GaussBlur, IdentityConstantsAndLineEquivalence) {
    FlicImage noise(9, 7), result;
    noise.createRandom(0, 3);
    EXPECT_EQ(noise.gaussBlur(1, &result), 1);
    EXPECT_EQ(pixelBytes(result), pixelBytes(noise));
    // One and two half-taps keep every constant, borders included. Longer kernels round each
    // product on its own and add one rounding term per tap group, which lifts some constants:
    // n = 3 rounds 3.56 + 6.74 + 5.70 up to 17 quarters for 8; n = 4 turns 0 into 1, then 2
    // (the products of 1 round to 0 + 1 + 1 + 0), and 77 into 78, then 79; n = 9 turns 0 into 1
    // (6 quarters).
    for (int n = 1; n <= 9; n++)
        for (int v = 0; v < 256; v++) {
            FlicImage flat(6, 5);
            flat.clear(v);
            flat.gaussBlur(n);
            Bytes out = pixelBytes(flat);
            EXPECT_EQ(out, Bytes(30, out[0])) << n << " " << v;
            bool twice = n == 4 && (v == 0 || v == 77);
            int lifted = twice ? 2 : (n == 3 && v == 8) || (n == 9 && v == 0) ? 1 : 0;
            EXPECT_TRUE(n <= 2 || lifted ? out[0] == v + lifted : out[0] >= v) << n << " " << v;
        }
    // The column pass (strips of columns) equals flic_fastconv column by column.
    FlicImage wide(1100, 37);
    wide.createRandom(0, 8);
    for (int n : {2, 5, 9}) {
        wide.gaussBlur(n, &result);
        std::vector<unsigned char> ref(wide.data, wide.data + 1100 * 37);
        for (int y = 0; y < 37; y++)
            flic_fastconv(&ref[y * 1100], 1100, 1, &ref[y * 1100]);
        for (int x = 0; x < 1100; x++)
            flic_fastconv(&ref[x], 37, 1100, &ref[x]);
        EXPECT_EQ(pixelBytes(result), Bytes(ref.begin(), ref.end())) << n;
    }
}

TEST(MedianFilter, SpikesEdgesCornersAndChannels) {
    Bytes flat(25, 50);
    flat[12] = 255;
    flat[0] = 0;
    FlicImage spike = greyImage(5, 5, flat), result;
    EXPECT_EQ(spike.medianFilter(), 1);
    EXPECT_EQ(pixelBytes(spike), Bytes(25, 50));
    Bytes edge;
    for (int i = 0; i < 24; i++)
        edge.push_back(i % 6 < 3 ? 10 : 200);
    greyImage(6, 4, edge).medianFilter(&result);
    EXPECT_EQ(pixelBytes(result), edge);
    // Clamped neighbourhoods count a corner four times and its edge neighbours twice.
    FlicImage corners = greyImage(3, 3, {200, 0, 200, 0, 200, 0, 0, 0, 0});
    corners.medianFilter();
    EXPECT_EQ(pixelBytes(corners), (Bytes{200, 200, 200, 0, 0, 0, 0, 0, 0}));
    // Colour: the first `width` bytes of each row are filtered, the rest kept.
    FlicImage rgb(3, 3, 3);
    for (int i = 0; i < 27; i++)
        rgb.data[i] = static_cast<unsigned char>(i % 9 < 3 ? 30 : 90);
    Bytes kept = pixelBytes(rgb);
    rgb.data[10] = 250;
    rgb.medianFilter();
    EXPECT_EQ(pixelBytes(rgb), kept);
}

TEST(Filters, LongLinesMatchShortLines) {
    // A noise pattern in a 16400-pixel band and in a short one, along rows and down columns.
    FlicImage pattern(40, 5);
    pattern.createRandom(0, 11);
    for (int filter = 0; filter < 3; filter++)
        for (bool rows : {true, false}) {
            auto run = [&](int length, int start) {
                FlicImage band = bandImage(rows, length, pattern, start);
                filter == 2 ? band.medianFilter() : band.gaussBlur(filter == 0 ? 9 : 2);
                return bandBytes(band, rows, start - 20, start + 60);
            };
            EXPECT_EQ(run(16400, 9000), run(80, 20)) << rows << filter;
        }
}

TEST(Filters, WithoutMemoryNothingChanges) {
    FlicImage big(20000, 20000); // 400 MB, never touched
    big.data[0] = 7;
    AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(big.medianFilter(), 0); // no memory for the filtered copy
    EXPECT_EQ(big.gaussBlur(3), 0);   // nor for the intermediate of the row pass
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{
                  "FLIC error: no memory for an image of 20000 x 20000 x 1 bytes",
                  "FLIC error: convolve: no memory for an intermediate image of 20000 x 20000 "
                  "bytes"}));
    EXPECT_TRUE(big.width == 20000 && big.data[0] == 7);
}
