// Relief shading: the emboss and emboss2 kernels and the FlicImage::emboss forms.
#include "emboss.h"
#include "image.h"
#include "testutil.h"
#include "vectorfield.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace testutil;
using Bytes = std::vector<int>;

namespace {

const float kPi = 3.14159265358979f;

// Every pixel `inside`, the frame `border` (per channel).
Bytes framed(int width, int height, const Bytes& inside, const Bytes& border) {
    Bytes out;
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            const Bytes& v =
                x == 0 || y == 0 || x == width - 1 || y == height - 1 ? border : inside;
            out.insert(out.end(), v.begin(), v.end());
        }
    return out;
}

// 3 x 3 height maps: right column raised by 30 (Nx = -90) or top row raised (Ny = +90).
const std::vector<unsigned char> kRight = {0, 0, 30, 0, 0, 30, 0, 0, 30};
const std::vector<unsigned char> kUp = {0, 0, 0, 0, 0, 0, 30, 30, 30};

// Centre shade of a 3 x 3 grey emboss (the frame checked to be 128).
int shade(float azimuth, float elevation, int width45, const std::vector<unsigned char>& bump) {
    std::vector<unsigned char> out(9, 7);
    EXPECT_EQ(emboss(azimuth, elevation, width45, bump.data(), nullptr, out.data(), 3, 3), 1);
    EXPECT_EQ(Bytes(out.begin(), out.end()), framed(3, 3, {out[4]}, {128}));
    return out[4];
}

// The same with emboss2 under a uniform field vector, or none.
int shade2(const std::vector<unsigned char>& bump, const std::vector<float>& vector) {
    std::vector<unsigned char> out(9, 7);
    std::vector<float> field;
    for (int i = 0; i < 9 && !vector.empty(); i++)
        field.insert(field.end(), vector.begin(), vector.end());
    auto vectors = field.empty() ? nullptr : reinterpret_cast<const float(*)[2]>(field.data());
    EXPECT_EQ(emboss2(kPi / 4, 3, bump.data(), nullptr, out.data(), 3, 3, vectors), 1);
    return out[4];
}

} // namespace

TEST(Emboss, ConstantImagesShowTheBackgroundShade) {
    FlicImage grey(6, 5), result;
    grey.clear(90);
    EXPECT_EQ(grey.emboss(0.3f, kPi / 2, 3, &result), 1);
    EXPECT_EQ(pixelBytes(result), framed(6, 5, {255}, {128}));
    EXPECT_EQ(pixelBytes(grey), Bytes(30, 90));
    grey.emboss(0.3f, -0.5f, 3, &result); // Lz = trunc(-122.7) = -122, cut to a byte: 134
    EXPECT_EQ(pixelBytes(result), framed(6, 5, {134}, {128}));
    EXPECT_EQ(grey.emboss(0.3f, 0.0f, 3), 1);
    EXPECT_EQ(pixelBytes(grey), framed(6, 5, {0}, {128}));
    // A colour image keeps its hues: all channels scaled by 255 / 256.
    FlicImage rgb(4, 4, 3);
    for (int i = 0; i < 48; i++)
        rgb.data[i] = static_cast<unsigned char>(200 >> (i % 3));
    rgb.emboss(1.0f, kPi / 2, 3);
    EXPECT_EQ(pixelBytes(rgb), framed(4, 4, {199, 99, 49}, {128, 128, 128}));
}

TEST(Emboss, LambertShadingWithIntegerVectors) {
    // Elevation pi/4: Lz = 180 and horizontal strength 180; width45 3: Nz = 510.
    // d = 180 * -90 + 510 * 180 = 75600, |N| = sqrt(268200) = 517.88 -> 145.
    EXPECT_EQ(shade(0.0f, kPi / 4, 3, kRight), 145);
    EXPECT_EQ(shade(kPi / 2, kPi / 4, 3, kUp), 208); // d = 108000
    EXPECT_EQ(shade(0.0f, kPi / 4, 1, kRight), 169); // Nz = 1530: 259200 / 1532.64
    EXPECT_EQ(shade(0.0f, 0.1f, 3, {0, 0, 255, 0, 0, 255, 0, 0, 255}), 0); // d < 0
    // emboss2: the light follows the field with its components exchanged, from azimuth pi/2
    // without a field; a zero vector (or one with no direction) leaves Lz alone: 91800 -> 177.
    EXPECT_EQ(shade2(kUp, {}), 208);
    EXPECT_EQ(shade2(kRight, {}), 177);
    EXPECT_EQ(shade2(kUp, {1.0f, 0.0f}), 208);
    EXPECT_EQ(shade2(kRight, {0.0f, 2.0f}), 145);
    EXPECT_EQ(shade2(kRight, {0.0f, -0.5f}), 208);
    EXPECT_EQ(shade2(kRight, {3.0f, 4.0f}), 152); // Lx 144, Ly 108: 78840 / 517.88
    for (float odd : {0.0f, NAN, INFINITY})
        EXPECT_EQ(shade2(kRight, {odd, odd == 0.0f ? 0.0f : 1.0f}), 177) << odd;

    // A colour image: the relief of its grey copy (red 100 -> grey 30 in the right column),
    // its own colours darkened by the shade: c * 145 >> 8.
    FlicImage relief = makeImage(3, 3, 3, {0,  0,   0, 0, 0, 0, 100, 0, 0, 0, 0,   0, 200, 100,
                                           10, 100, 0, 0, 0, 0, 0,   0, 0, 0, 100, 0, 0});
    FlicImage result;
    relief.emboss(0.0f, kPi / 4, 3, &result);
    EXPECT_EQ(pixelBytes(result), framed(3, 3, {113, 56, 5}, {128, 128, 128}));
}

TEST(Emboss, FieldLightAndTheZeroVectorMask) {
    // Elevation 0.2 pi: flat ground shows Lz = trunc(sin(0.2 pi) * 255.9) = 150.
    FlicImage grey(5, 4), result;
    grey.clear(40);
    FlicVectorField partly = uniformField(5, 4, 0.0f, 2.0f);
    partly.vectors()[0] = partly.vectors()[7] = {0.0f, 0.0f};
    EXPECT_EQ(grey.emboss(partly, &result), 1);
    Bytes expected = framed(5, 4, {150}, {128});
    expected[0] = expected[7] = 0;
    EXPECT_EQ(pixelBytes(result), expected);
    // A zero field (here resampled from 2 x 2) blacks out a grey image, border included.
    FlicVectorField coarse = uniformField(2, 2, 0.0f, 0.0f);
    EXPECT_EQ(grey.emboss(coarse), 1);
    EXPECT_EQ(coarse.width, 2);
    EXPECT_EQ(pixelBytes(grey), Bytes(20, 0));
    // Colour output is not masked: 200 * 150 >> 8.
    FlicImage rgb = makeImage(3, 3, 3, Bytes(27, 200));
    FlicVectorField still = uniformField(3, 3, 0.0f, 0.0f);
    rgb.emboss(still);
    EXPECT_EQ(pixelBytes(rgb), framed(3, 3, {117, 117, 117}, {128, 128, 128}));
    // Rows with padding are read by bytesPerLine.
    unsigned char memory[4 * 7];
    for (int i = 0; i < 28; i++)
        memory[i] = static_cast<unsigned char>(i % 7 < 4 ? 90 : 250);
    FlicImage wrapped(4, 4, 7, memory);
    FlicVectorField flow = uniformField(4, 4, 1.0f, 0.0f);
    wrapped.emboss(flow, &result);
    EXPECT_EQ(pixelBytes(result), framed(4, 4, {150}, {128}));
}

TEST(Emboss, SmallImagesBadWidthAndEmptyFields) {
    // Fewer than three rows or columns: every pixel is border, nothing beyond is written.
    for (int width : {1, 2, 5})
        for (int height : {1, 2, 4})
            for (bool colour : {false, true}) {
                if (width == 5 && height == 4) continue;
                int bytes = width * height * (colour ? 3 : 1);
                std::vector<unsigned char> bump(width * height, 50), texture(bytes, 200);
                std::vector<unsigned char> out(bytes + 16, 7);
                const unsigned char* tex = colour ? texture.data() : nullptr;
                emboss(0.0f, 1.0f, 3, bump.data(), tex, out.data(), width, height);
                emboss2(1.0f, 3, bump.data(), tex, out.data(), width, height, nullptr);
                for (int i = 0; i < bytes + 16; i++)
                    EXPECT_EQ(out[i], i < bytes ? 128 : 7) << width << "x" << height << " " << i;
            }

    MessageCapture capture;
    std::vector<unsigned char> flat(9, 10), untouched(9, 7);
    EXPECT_EQ(emboss(0.0f, 1.0f, 0, flat.data(), nullptr, untouched.data(), 3, 3), 0);
    EXPECT_EQ(emboss2(1.0f, -3, flat.data(), nullptr, untouched.data(), 3, 3, nullptr), 0);
    EXPECT_EQ(untouched, std::vector<unsigned char>(9, 7));
    FlicImage kept = greyImage(3, 3, Bytes(9, 5)), result;
    FlicVectorField empty;
    EXPECT_EQ(kept.emboss(0.0f, 1.0f, 0, &result) + kept.emboss(empty), 0);
    EXPECT_EQ(pixelBytes(kept), Bytes(9, 5));
    EXPECT_EQ(result.width, 0);
    EXPECT_EQ(capture.errors(),
              (std::vector<std::string>{"FLIC error: emboss: width45 must be positive, not 0",
                                        "FLIC error: emboss2: width45 must be positive, not -3",
                                        "FLIC error: emboss: width45 must be positive, not 0",
                                        "FLIC error: emboss: the vector field has no values"}));
}

TEST(Emboss, LongLinesMatchShortLines) {
    // A colour relief inside a 16400-pixel band and inside a short one, under a field.
    FlicImage pattern(30, 4, 3);
    pattern.createRandom(0, 9);
    for (bool rows : {true, false}) {
        auto run = [&](int length, int start) {
            FlicImage band = bandImage(rows, length, pattern, start);
            FlicVectorField field = uniformField(band.width, band.height, 0.3f, -0.8f);
            band.emboss(field);
            return bandBytes(band, rows, start - 1, start + 31);
        };
        EXPECT_EQ(run(16400, 9000), run(34, 2)) << rows;
    }
}

TEST(Emboss, WithoutMemoryNothingChanges) {
    FlicImage big(20000, 20000, 3); // 1.2 GB, never touched
    big.data[0] = 7;
    FlicVectorField field = uniformField(2, 2, 1, 0);
    AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(big.emboss(30, 45, 3), 0); // no memory for the grey height map
    EXPECT_EQ(big.emboss(field), 0);     // nor for the field resampled to the image's size
    EXPECT_EQ(capture.errors(), (std::vector<std::string>{
                                    "FLIC error: no memory for an image of 20000 x 20000 x 1 bytes",
                                    "FLIC error: no memory for a vector field of 20000 x 20000"}));
    EXPECT_TRUE(big.width == 20000 && big.nChannels == 3 && big.data[0] == 7);
}
