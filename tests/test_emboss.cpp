// Relief shading: the emboss and emboss2 kernels.
#include "emboss.h"
#include "image.h"
#include "vectorfield.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using testutil::MessageCapture;

namespace {

const float kPi = 3.14159265358979f;

// A 3 x 3 height map whose right column is `rise` higher than the rest: at the centre
// Nx = -3 * rise, Ny = 0.
std::vector<unsigned char> risingToTheRight(int rise) {
    return {0, 0, static_cast<unsigned char>(rise), 0, 0, static_cast<unsigned char>(rise),
            0, 0, static_cast<unsigned char>(rise)};
}

// The same with the top row (y = 2) higher: Nx = 0, Ny = 3 * rise.
std::vector<unsigned char> risingUpwards(int rise) {
    unsigned char r = static_cast<unsigned char>(rise);
    return {0, 0, 0, 0, 0, 0, r, r, r};
}

// Centre shade of a 3 x 3 grey emboss.
int centreShade(float azimuth, float elevation, int width45, std::vector<unsigned char> bump) {
    std::vector<unsigned char> out(9, 7);
    EXPECT_EQ(emboss(azimuth, elevation, width45, bump.data(), nullptr, out.data(), 3, 3), 1);
    for (int i = 0; i < 9; i++) {
        if (i == 4) continue;
        EXPECT_EQ(out[i], 128) << i;
    }
    return out[4];
}

// Centre shade of a 3 x 3 grey emboss2 under a uniform field vector (or none).
int centreShade2(float elevation, std::vector<unsigned char> bump, const float* vector) {
    std::vector<unsigned char> out(9, 7);
    std::vector<float> field;
    for (int i = 0; vector && i < 9; i++) {
        field.push_back(vector[0]);
        field.push_back(vector[1]);
    }
    const float(*vectors)[2] = vector ? reinterpret_cast<const float(*)[2]>(field.data()) : nullptr;
    EXPECT_EQ(emboss2(elevation, 3, bump.data(), nullptr, out.data(), 3, 3, vectors), 1);
    EXPECT_EQ(out[0], 128);
    return out[4];
}

} // namespace

TEST(EmbossKernel, ConstantImagesShowTheBackgroundShade) {
    const int width = 6, height = 5;
    std::vector<unsigned char> flat(width * height, 90), out(width * height);
    auto expectInsideAndBorder = [&](int inside, const char* what) {
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++) {
                bool border = x == 0 || y == 0 || x == width - 1 || y == height - 1;
                EXPECT_EQ(out[y * width + x], border ? 128 : inside) << what << x << "," << y;
            }
    };
    emboss(0.3f, kPi / 2, 3, flat.data(), nullptr, out.data(), width, height);
    expectInsideAndBorder(255, "overhead light ");
    emboss(0.3f, 0.0f, 3, flat.data(), nullptr, out.data(), width, height);
    expectInsideAndBorder(0, "grazing light ");
    // The background shade is the vertical light component cut to a byte:
    // trunc(sin(-0.5) * 255.9) = -122, stored as 134.
    emboss(0.3f, -0.5f, 3, flat.data(), nullptr, out.data(), width, height);
    expectInsideAndBorder(134, "light from below ");
    emboss2(kPi / 2, 3, flat.data(), nullptr, out.data(), width, height, nullptr);
    expectInsideAndBorder(255, "emboss2 overhead ");
}

TEST(EmbossKernel, LambertShadingWithIntegerVectors) {
    // Elevation pi/4: Lz = 180, horizontal strength 180; width45 3: Nz = 510.
    const float el = kPi / 4;
    // Nx = -90: d = 180 * -90 + 510 * 180 = 75600, |N| = sqrt(268200) = 517.88 -> 145.
    EXPECT_EQ(centreShade(0.0f, el, 3, risingToTheRight(30)), 145);
    // Lit from the side the surface faces: d = 108000 -> 208.
    EXPECT_EQ(centreShade(kPi, el, 3, risingToTheRight(30)), 208);
    // Ny = +90 (next row minus previous row) faces azimuth pi/2.
    EXPECT_EQ(centreShade(kPi / 2, el, 3, risingUpwards(30)), 208);
    EXPECT_EQ(centreShade(-kPi / 2, el, 3, risingUpwards(30)), 145);
    // width45 sets Nz = 1530 / width45: 1 -> 1530, d = -16200 + 275400 = 259200,
    // |N| = sqrt(2349000) = 1532.64 -> 169.
    EXPECT_EQ(centreShade(0.0f, el, 1, risingToTheRight(30)), 169);
    // A slope facing away from a low light is black: d < 0.
    EXPECT_EQ(centreShade(0.0f, 0.1f, 3, risingToTheRight(255)), 0);

    // A colour texture is darkened channel by channel: c * 145 >> 8.
    std::vector<unsigned char> bump = risingToTheRight(30), texture(27), out(27, 7);
    for (int i = 0; i < 9; i++) {
        texture[3 * i] = 200;
        texture[3 * i + 1] = 100;
        texture[3 * i + 2] = 10;
    }
    emboss(0.0f, el, 3, bump.data(), texture.data(), out.data(), 3, 3);
    for (int i = 0; i < 27; i++) {
        if (i / 3 == 4) continue;
        EXPECT_EQ(out[i], 128) << i;
    }
    EXPECT_EQ(out[12], 113);
    EXPECT_EQ(out[13], 56);
    EXPECT_EQ(out[14], 5);
}

TEST(EmbossKernel, LightFollowsTheFieldWithComponentsExchanged) {
    const float el = kPi / 4;
    // Without a field the light comes from azimuth pi/2.
    EXPECT_EQ(centreShade2(el, risingUpwards(30), nullptr), 208);
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), nullptr), 177);
    // (1, 0): Lx = h * vy = 0, Ly = h * vx = 180, as without a field.
    const float alongX[] = {1.0f, 0.0f};
    EXPECT_EQ(centreShade2(el, risingUpwards(30), alongX), 208);
    // (0, 2): Lx = 180, Ly = 0 -> the same shade as emboss at azimuth 0.
    const float alongY[] = {0.0f, 2.0f};
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), alongY), 145);
    const float againstY[] = {0.0f, -0.5f};
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), againstY), 208);
    // (3, 4): Lx = trunc(180.95 * 4 / 5) = 144, Ly = trunc(180.95 * 3 / 5) = 108;
    // with Nx = -90: d = -12960 + 91800 = 78840 -> 152.
    const float oblique[] = {3.0f, 4.0f};
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), oblique), 152);
    // A zero vector (and one that is not a number or infinite) leaves only Lz:
    // d = 91800 -> 177.
    const float zero[] = {0.0f, 0.0f};
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), zero), 177);
    const float nan[] = {std::numeric_limits<float>::quiet_NaN(), 1.0f};
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), nan), 177);
    const float inf[] = {std::numeric_limits<float>::infinity(), 1.0f};
    EXPECT_EQ(centreShade2(el, risingToTheRight(30), inf), 177);
}

TEST(EmbossKernel, SmallImagesAreAllBorderAndBadWidthIsRejected) {
    for (int width : {1, 2, 3, 5}) {
        for (int height : {1, 2}) {
            for (bool colour : {false, true}) {
                int bytes = width * height * (colour ? 3 : 1);
                std::vector<unsigned char> bump(width * height, 50), texture(bytes, 200);
                std::vector<unsigned char> out(bytes + 16, 7);
                emboss(0.0f, 1.0f, 3, bump.data(), colour ? texture.data() : nullptr, out.data(),
                       width, height);
                emboss2(1.0f, 3, bump.data(), colour ? texture.data() : nullptr, out.data(), width,
                        height, nullptr);
                for (int i = 0; i < bytes + 16; i++)
                    EXPECT_EQ(out[i], i < bytes ? 128 : 7) << width << "x" << height << " " << i;
            }
        }
    }
    // Two columns: every pixel is a first or last one.
    std::vector<unsigned char> bump(2 * 4, 0), out(2 * 4 + 4, 7);
    emboss(0.0f, 1.0f, 3, bump.data(), nullptr, out.data(), 2, 4);
    EXPECT_EQ(std::vector<unsigned char>(out.begin(), out.begin() + 8),
              std::vector<unsigned char>(8, 128));
    EXPECT_EQ(out[8], 7);

    MessageCapture capture;
    std::vector<unsigned char> flat(9, 10), untouched(9, 7);
    for (int width45 : {0, -3}) {
        EXPECT_EQ(emboss(0.0f, 1.0f, width45, flat.data(), nullptr, untouched.data(), 3, 3), 0);
        EXPECT_EQ(emboss2(1.0f, width45, flat.data(), nullptr, untouched.data(), 3, 3, nullptr), 0);
    }
    EXPECT_EQ(untouched, std::vector<unsigned char>(9, 7));
    ASSERT_EQ(capture.errors().size(), 4u);
    EXPECT_EQ(capture.errors()[0], "FLIC error: emboss: width45 must be positive, not 0");
    EXPECT_EQ(capture.errors()[3], "FLIC error: emboss2: width45 must be positive, not -3");
    // No pixels: nothing to do.
    EXPECT_EQ(emboss(0.0f, 1.0f, 3, nullptr, nullptr, nullptr, 0, 5), 1);
}

TEST(EmbossKernel, LongLinesMatchShortLines) {
    // A pattern inside a long row band (or column band) and inside a short one: the shades
    // around the pattern (up to the short band's border) agree, whatever the image length.
    const int longSide = 16400, shortSide = 4, patternLength = 30, offset = 9000, margin = 3;
    std::vector<unsigned char> pattern(patternLength * shortSide);
    for (size_t i = 0; i < pattern.size(); i++)
        pattern[i] = static_cast<unsigned char>((i * 37 + i * i * 11) % 251);
    for (bool horizontal : {true, false}) {
        auto shade = [&](int length, int start) {
            int width = horizontal ? length : shortSide, height = horizontal ? shortSide : length;
            std::vector<unsigned char> bump(static_cast<size_t>(width) * height, 60);
            for (int s = 0; s < shortSide; s++)
                for (int i = 0; i < patternLength; i++) {
                    int x = horizontal ? start + i : s, y = horizontal ? s : start + i;
                    bump[static_cast<size_t>(y) * width + x] = pattern[s * patternLength + i];
                }
            std::vector<unsigned char> out(bump.size());
            emboss(0.7f, 0.6f, 3, bump.data(), nullptr, out.data(), width, height);
            std::vector<int> window;
            for (int s = 0; s < shortSide; s++)
                for (int i = start - margin + 1; i < start + patternLength + margin - 1; i++)
                    window.push_back(horizontal ? out[static_cast<size_t>(s) * width + i]
                                                : out[static_cast<size_t>(i) * width + s]);
            return window;
        };
        EXPECT_EQ(shade(longSide, offset), shade(patternLength + 2 * margin, margin))
            << (horizontal ? "horizontal" : "vertical");
    }
}

namespace {

std::vector<int> bytesOf(const FlicImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.height; y++)
        for (int x = 0; x < image.nChannels * image.width; x++)
            out.push_back(image.data[y * image.bytesPerLine + x]);
    return out;
}

// Per pixel: `inside` for interior pixels, `border` for the frame, repeated per channel.
std::vector<int> framed(int width, int height, std::vector<int> inside, std::vector<int> border) {
    std::vector<int> out;
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) {
            bool edge = x == 0 || y == 0 || x == width - 1 || y == height - 1;
            const std::vector<int>& value = edge ? border : inside;
            out.insert(out.end(), value.begin(), value.end());
        }
    return out;
}

FlicVectorField uniformField(int width, int height, float vx, float vy) {
    FlicVectorField field(width, height);
    for (int i = 0; i < width * height; i++)
        field.vectors()[i] = {vx, vy};
    return field;
}

} // namespace

TEST(EmbossImage, SingleLightOnGreyAndColourImages) {
    FlicImage grey(6, 5);
    grey.clear(90);
    FlicImage result;
    EXPECT_EQ(grey.emboss(0.3f, kPi / 2, 3, &result), 1);
    EXPECT_EQ(bytesOf(result), framed(6, 5, {255}, {128}));
    EXPECT_EQ(bytesOf(grey), std::vector<int>(30, 90));
    EXPECT_EQ(grey.emboss(0.3f, 0.0f, 3), 1);
    EXPECT_EQ(bytesOf(grey), framed(6, 5, {0}, {128}));

    // A colour image keeps its hues: every channel is scaled by the same shade (255 / 256).
    FlicImage rgb(4, 4, 3);
    for (int i = 0; i < 16; i++) {
        rgb.data[3 * i] = 200;
        rgb.data[3 * i + 1] = 100;
        rgb.data[3 * i + 2] = 50;
    }
    EXPECT_EQ(rgb.emboss(1.0f, kPi / 2, 3), 1);
    EXPECT_EQ(rgb.nChannels, 3);
    EXPECT_EQ(bytesOf(rgb), framed(4, 4, {199, 99, 49}, {128, 128, 128}));

    // The relief comes from the grey copy: a right column of red 100 is grey 30 (Nx = -90,
    // shade 145 under azimuth 0, elevation pi/4), the colours from the image itself.
    FlicImage relief(3, 3, 3);
    relief.clear(0);
    for (int y = 0; y < 3; y++)
        relief.data[y * 9 + 6] = 100;
    relief.data[12] = 200;
    relief.data[13] = 100;
    relief.data[14] = 10;
    relief.emboss(0.0f, kPi / 4, 3, &result);
    EXPECT_EQ(bytesOf(result), framed(3, 3, {113, 56, 5}, {128, 128, 128}));

    // Rows with padding between them are read by bytesPerLine.
    unsigned char memory[4 * 7];
    for (int i = 0; i < 28; i++)
        memory[i] = static_cast<unsigned char>(i % 7 < 4 ? 90 : 250);
    FlicImage wrapped(4, 4, 7, memory);
    wrapped.emboss(0.3f, kPi / 2, 3, &result);
    EXPECT_EQ(bytesOf(result), framed(4, 4, {255}, {128}));

    MessageCapture capture;
    FlicImage untouched(3, 3);
    untouched.clear(5);
    FlicImage noResult;
    EXPECT_EQ(untouched.emboss(0.0f, 1.0f, 0, &noResult), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: emboss: width45 must be positive, not 0");
    EXPECT_EQ(bytesOf(untouched), std::vector<int>(9, 5));
    EXPECT_EQ(noResult.width, 0);
}

TEST(EmbossImage, LightFromAFieldAndTheZeroVectorMask) {
    // Elevation 0.2 pi: Lz = trunc(sin(0.2 pi) * 255.9) = 150 on flat ground.
    FlicImage grey(5, 4);
    grey.clear(40);
    FlicVectorField along = uniformField(5, 4, 1.0f, 0.0f);
    FlicImage result;
    EXPECT_EQ(grey.emboss(along, &result), 1);
    EXPECT_EQ(bytesOf(result), framed(5, 4, {150}, {128}));

    // A zero field blacks out a grey image completely, border included.
    FlicVectorField still = uniformField(5, 4, 0.0f, 0.0f);
    grey.emboss(still, &result);
    EXPECT_EQ(bytesOf(result), std::vector<int>(20, 0));
    // Only the pixels without flow.
    FlicVectorField partly = uniformField(5, 4, 0.0f, 2.0f);
    partly.vectors()[0] = {0.0f, 0.0f};
    partly.vectors()[7] = {0.0f, 0.0f};
    grey.emboss(partly, &result);
    std::vector<int> expected = framed(5, 4, {150}, {128});
    expected[0] = 0;
    expected[7] = 0;
    EXPECT_EQ(bytesOf(result), expected);

    // Colour output is not masked: texture * 150 >> 8.
    FlicImage rgb(3, 3, 3);
    rgb.clear(200);
    FlicVectorField still3 = uniformField(3, 3, 0.0f, 0.0f);
    EXPECT_EQ(rgb.emboss(still3), 1);
    EXPECT_EQ(bytesOf(rgb), framed(3, 3, {117, 117, 117}, {128, 128, 128}));

    // A field of another size is resampled to the image first; the field keeps its size.
    FlicVectorField coarse = uniformField(2, 2, 0.0f, 0.0f);
    grey.emboss(coarse);
    EXPECT_EQ(coarse.width, 2);
    EXPECT_EQ(grey.width, 5);
    EXPECT_EQ(bytesOf(grey), std::vector<int>(20, 0));

    MessageCapture capture;
    FlicVectorField empty;
    FlicImage kept(3, 3);
    kept.clear(9);
    EXPECT_EQ(kept.emboss(empty), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: emboss: the vector field has no values");
    EXPECT_EQ(bytesOf(kept), std::vector<int>(9, 9));
}

TEST(EmbossImage, LargeImagesMatchSmallImages) {
    // A relief pattern inside a 16400-pixel row band and inside a short one.
    const int longSide = 16400, shortSide = 4, length = 30, offset = 9000;
    for (bool horizontal : {true, false}) {
        auto shadeWindow = [&](int size, int start) {
            FlicImage image =
                horizontal ? FlicImage(size, shortSide, 3) : FlicImage(shortSide, size, 3);
            image.clear(60);
            for (int s = 0; s < shortSide; s++)
                for (int i = 0; i < length; i++) {
                    int x = horizontal ? start + i : s, y = horizontal ? s : start + i;
                    unsigned char* pixel = image.data + y * image.bytesPerLine + 3 * x;
                    pixel[0] = static_cast<unsigned char>(i * 7 + s * 40);
                    pixel[1] = static_cast<unsigned char>(i * i + s);
                }
            FlicVectorField field = uniformField(image.width, image.height, 0.3f, -0.8f);
            image.emboss(field);
            std::vector<int> window;
            for (int s = 0; s < shortSide; s++)
                for (int i = start - 1; i < start + length + 1; i++) {
                    int x = horizontal ? i : s, y = horizontal ? s : i;
                    for (int c = 0; c < 3; c++)
                        window.push_back(image.data[y * image.bytesPerLine + 3 * x + c]);
                }
            return window;
        };
        EXPECT_EQ(shadeWindow(longSide, offset), shadeWindow(length + 4, 2))
            << (horizontal ? "horizontal" : "vertical");
    }
}
