// Colour maps, their icol files, and the RGB / HSL conversions.
#include "colormap.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

using testutil::readFile;
using testutil::TempDir;
using testutil::writeFile;

namespace {

void expectEntry(const FlicColormap& map, int i, float r, float g, float b) {
    EXPECT_FLOAT_EQ(map.colors[i][0], r) << "entry " << i;
    EXPECT_FLOAT_EQ(map.colors[i][1], g) << "entry " << i;
    EXPECT_FLOAT_EQ(map.colors[i][2], b) << "entry " << i;
}

// Runs `operation` and returns what it wrote to standard error.
template <typename Operation>
std::string stderrOf(Operation operation) {
    testing::internal::CaptureStderr();
    operation();
    return testing::internal::GetCapturedStderr();
}

bool sameMap(const FlicColormap& a, const FlicColormap& b) {
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++)
            if (a.colors[i][c] != b.colors[i][c]) return false;
    return true;
}

} // namespace

TEST(Colormap, NewMapIsGreyRampOverUnitRange) {
    FlicColormap map;
    float low = -1, high = -1;
    map.getMinMax(low, high);
    EXPECT_EQ(low, 0.0f);
    EXPECT_EQ(high, 1.0f);
    EXPECT_EQ(map.scale, 1.0f);
    expectEntry(map, 0, 0, 0, 0);
    expectEntry(map, 51, 0.2f, 0.2f, 0.2f);
    expectEntry(map, 255, 1, 1, 1);

    map.setMinMax(2, 6);
    map.getMinMax(low, high);
    EXPECT_EQ(low, 2.0f);
    EXPECT_EQ(high, 6.0f);
    EXPECT_EQ(map.scale, 0.25f);
    map.setMinMax(3, 3); // no check: the scale becomes infinite
    EXPECT_TRUE(std::isinf(map.scale));
}

TEST(Colormap, PresetsAtTheirDefiningEntries) {
    FlicColormap map;
    map.setMinMax(-5, 5);
    map.createHotIron();
    expectEntry(map, 0, 1, 0, 0); // starts at red, not black
    expectEntry(map, 127, 1, 1, 0);
    expectEntry(map, 128, 1, 1, 0);
    expectEntry(map, 191, 1, 1, 63 / 127.0f);
    expectEntry(map, 255, 1, 1, 1);
    EXPECT_EQ(map.min, -5.0f); // presets keep the range

    map.createBlueWhiteRed();
    expectEntry(map, 0, 0, 0, 1);
    expectEntry(map, 127, 1, 1, 1);
    expectEntry(map, 128, 1, 1, 1);
    expectEntry(map, 128 + 27, 1, 100 / 127.0f, 100 / 127.0f);
    expectEntry(map, 255, 1, 0, 0);

    map.createHueRamp();
    expectEntry(map, 0, 1, 0, 0);                 // red
    expectEntry(map, 51, 1, 1, 0);                // hue 1/6: yellow
    expectEntry(map, 102, 0, 1, 0);               // hue 1/3: green
    expectEntry(map, 255, 1, 0, 1);               // hue 5/6: magenta
    EXPECT_NEAR(map.colors[153][2], 1.0f, 1e-6f); // hue 1/2: cyan
    EXPECT_NEAR(map.colors[153][0], 0.0f, 1e-6f);

    map.createGreyRamp();
    expectEntry(map, 128, 128 / 255.0f, 128 / 255.0f, 128 / 255.0f);
}

TEST(Colormap, GetColor1Interpolates) {
    FlicColormap map;
    map.createHotIron();
    float rgb[3];
    map.getColor1(0.0f, rgb);
    EXPECT_EQ(rgb[1], 0.0f);
    map.getColor1(-3.0f, rgb);
    EXPECT_EQ(rgb[1], 0.0f);
    map.getColor1(std::numeric_limits<float>::quiet_NaN(), rgb);
    EXPECT_EQ(rgb[1], 0.0f);
    map.getColor1(1.0f, rgb);
    EXPECT_EQ(rgb[2], 1.0f);
    map.getColor1(7.0f, rgb);
    EXPECT_EQ(rgb[2], 1.0f);
    map.getColor1(std::nextafter(1.0f, 0.0f), rgb); // still inside the table
    EXPECT_NEAR(rgb[2], 1.0f, 1e-4f);

    map.createBlueWhiteRed();
    map.colors[127][1] = 0.2f;
    map.colors[128][1] = 0.6f;
    map.getColor1(0.5f, rgb); // u = 127.5: halfway between entries 127 and 128
    EXPECT_FLOAT_EQ(rgb[1], 0.4f);
    map.getColor1(10.25f / 255, rgb); // a quarter of the way from entry 10 to 11
    EXPECT_FLOAT_EQ(rgb[0], (10 + 0.25f) / 127);
}

TEST(Colormap, MultiplyFlipGamma) {
    FlicColormap map;
    map.setMinMax(1, 3);
    FlicColormap doubled;
    map.multiply(2, &doubled);
    EXPECT_FLOAT_EQ(doubled.colors[127][0], 254 / 255.0f);
    for (int i = 128; i < 256; i++)
        EXPECT_EQ(doubled.colors[i][1], 1.0f) << i;
    EXPECT_EQ(doubled.min, 1.0f);
    EXPECT_EQ(doubled.max, 3.0f);
    EXPECT_EQ(doubled.scale, 0.5f);
    EXPECT_FLOAT_EQ(map.colors[200][0], 200 / 255.0f); // source unchanged

    map.multiply(-1);
    EXPECT_FLOAT_EQ(map.colors[255][2], -1.0f); // no lower limit
    map.createGreyRamp();

    map.colors[0][0] = 0.7f;
    FlicColormap flipped;
    map.flip(&flipped);
    EXPECT_EQ(flipped.colors[255][0], 0.7f);
    EXPECT_EQ(flipped.colors[0][0], 1.0f);
    EXPECT_EQ(flipped.scale, 0.5f);
    FlicColormap twice(map);
    twice.flip();
    EXPECT_FALSE(sameMap(twice, map));
    twice.flip();
    EXPECT_TRUE(sameMap(twice, map));

    map.gamma(2);
    EXPECT_EQ(map.colors[51][1], static_cast<float>(pow(static_cast<double>(51 / 255.0f), 2)));
    EXPECT_FLOAT_EQ(map.colors[0][0], 0.49f);
    map.gamma(0.5f, &flipped);
    EXPECT_FLOAT_EQ(flipped.colors[51][1], 0.2f);
}

TEST(Colormap, IcolWriteLayoutAndRoundTrip) {
    TempDir dir;
    std::string path = dir.path("map.icol");
    FlicColormap map;
    map.createHotIron();
    map.setMinMax(-2.5f, 100);
    ASSERT_EQ(map.writeIcol(path.c_str()), 1);
    std::string text = readFile(path);
    EXPECT_EQ(text.substr(0, 74), "   0 255   0   0     64 255 128   0    128 255 255   0    "
                                  "192 255 255 128\n");
    EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1), "-2.5 100\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 65);

    FlicColormap read;
    read.createBlueWhiteRed();
    ASSERT_EQ(read.readIcol(path.c_str()), 1);
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++)
            EXPECT_EQ(read.colors[i][c], static_cast<int>(map.colors[i][c] * 255) * (1.0f / 255.0f))
                << i << " " << c;
    EXPECT_EQ(read.min, -2.5f);
    EXPECT_EQ(read.max, 100.0f);
    EXPECT_FLOAT_EQ(read.scale, 1 / 102.5f);

    // Components outside 0..1 are written as they truncate; infinite ones at the int limits,
    // NaN as 0.
    map.createGreyRamp();
    map.colors[0][0] = -1;
    map.colors[0][1] = std::numeric_limits<float>::infinity();
    map.colors[0][2] = std::numeric_limits<float>::quiet_NaN();
    ASSERT_EQ(map.writeIcol(path.c_str()), 1);
    EXPECT_EQ(readFile(path).substr(0, 24), "   0-2552147483647   0  ");
    // Numbers wider than four columns run into their neighbours: the file no longer reads.
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(read.readIcol(path.c_str()), 0); }),
              "Illegal format in " + path + ".\n");
    map.colors[0][1] = 0;
    ASSERT_EQ(map.writeIcol(path.c_str()), 1);
    ASSERT_EQ(read.readIcol(path.c_str()), 1);
    EXPECT_EQ(read.colors[0][0], -1.0f);
}

TEST(Colormap, IcolPlainLayoutAndFailures) {
    TempDir dir;
    std::string path = dir.path("plain.icol");
    std::string plain;
    for (int i = 0; i < 256; i++)
        plain += std::to_string(i) + " " + std::to_string(255 - i) + " 51\n";
    writeFile(path, plain);
    FlicColormap map;
    map.setMinMax(4, 8);
    ASSERT_EQ(map.readIcol(path.c_str()), 1);
    expectEntry(map, 0, 0, 1, 0.2f);
    expectEntry(map, 255, 1, 0, 0.2f);
    EXPECT_EQ(map.min, 0.0f); // no range line: 0..1
    EXPECT_EQ(map.max, 1.0f);

    // The range may stand anywhere after the table, across line ends.
    writeFile(path, plain + "\n  -1\n\n 3\n");
    ASSERT_EQ(map.readIcol(path.c_str()), 1);
    EXPECT_EQ(map.min, -1.0f);
    EXPECT_EQ(map.max, 3.0f);

    // Group indices decide the entry, whatever the line order.
    std::string grouped;
    for (int k = 63; k >= 0; k--)
        for (int g = 0; g < 4; g++)
            grouped += std::to_string(k + 64 * g) + " 255 0 0" + (g < 3 ? " " : "\n");
    writeFile(path, grouped);
    ASSERT_EQ(map.readIcol(path.c_str()), 1);
    expectEntry(map, 17, 1, 0, 0);

    auto expectIllegal = [&](const std::string& contents) {
        writeFile(path, contents);
        EXPECT_EQ(stderrOf([&] { EXPECT_EQ(map.readIcol(path.c_str()), 0); }),
                  "Illegal format in " + path + ".\n")
            << contents.substr(0, 40);
    };
    expectIllegal("");
    expectIllegal("1 2 3 4\n");
    expectIllegal("1 2\n");
    expectIllegal(plain.substr(0, plain.size() / 2));               // plain table cut short
    expectIllegal(plain.substr(0, 9) + "1 2\n" + plain);            // a later line of two numbers
    expectIllegal(grouped.substr(0, grouped.size() / 2));           // grouped table cut short
    expectIllegal("256 1 1 1 0 0 0 0 0 0 0 0 0 0 0 0\n" + grouped); // index outside the table

    std::string missing = dir.path("nothing/here.icol");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(map.readIcol(missing.c_str()), 0); }),
              "Can't open " + missing + ".\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(map.writeIcol(missing.c_str()), 0); }),
              "Can't open " + missing + ".\n");
}

TEST(Colormap, HslConversions) {
    float hsl[3], rgb[3];
    float red[3] = {0, 1, 0.5f};
    HSL_to_RGB(red, rgb);
    EXPECT_EQ(rgb[0], 1.0f);
    EXPECT_EQ(rgb[1], 0.0f);
    EXPECT_EQ(rgb[2], 0.0f);

    // Sextant 6 and hues outside 0..1 write nothing.
    float untouched[3] = {0.25f, 0.5f, 0.75f};
    for (float h : {1.0f, 1.5f, -0.2f, std::numeric_limits<float>::quiet_NaN(), 1e30f}) {
        float in[3] = {h, 1, 0.5f};
        float out[3] = {0.25f, 0.5f, 0.75f};
        HSL_to_RGB(in, out);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 12),
                  std::string(reinterpret_cast<char*>(untouched), 12))
            << h;
    }
    float black[3] = {0.3f, 0.9f, 0};
    HSL_to_RGB(black, rgb);
    EXPECT_EQ(rgb[0] + rgb[1] + rgb[2], 0.0f);

    // Black sets only l; a grey sets l and s = 0 only.
    float out[3] = {7, 8, 9};
    float blackRgb[3] = {0, 0, 0};
    RGB_to_HSL(blackRgb, out);
    EXPECT_EQ(out[0], 7.0f);
    EXPECT_EQ(out[1], 8.0f);
    EXPECT_EQ(out[2], 0.0f);
    float grey[3] = {0.5f, 0.5f, 0.5f};
    RGB_to_HSL(grey, out);
    EXPECT_EQ(out[0], 7.0f);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_EQ(out[2], 0.5f);

    // Pure red comes out as hue 1.0 (the sextant HSL_to_RGB leaves alone); green and blue at
    // 1/3 and 2/3.
    float pureRed[3] = {1, 0, 0};
    RGB_to_HSL(pureRed, hsl);
    EXPECT_EQ(hsl[0], 1.0f);
    EXPECT_EQ(hsl[1], 1.0f);
    EXPECT_EQ(hsl[2], 0.5f);
    float pureGreen[3] = {0, 1, 0}, pureBlue[3] = {0, 0, 1};
    RGB_to_HSL(pureGreen, hsl);
    EXPECT_FLOAT_EQ(hsl[0], 1 / 3.0f);
    RGB_to_HSL(pureBlue, hsl);
    EXPECT_FLOAT_EQ(hsl[0], 2 / 3.0f);
    float light[3] = {1, 0.8f, 0.6f}; // l > 0.5: s = d / (2 - mx - mn)
    RGB_to_HSL(light, hsl);
    EXPECT_FLOAT_EQ(hsl[1], 1.0f);
    EXPECT_FLOAT_EQ(hsl[2], 0.8f);
    EXPECT_FLOAT_EQ(hsl[0], (1 - 0.5f) / 6);

    // Round trips through every sextant and both lightness halves.
    const float colours[][3] = {{0.9f, 0.3f, 0.1f},  {0.6f, 0.7f, 0.2f},  {0.1f, 0.8f, 0.4f},
                                {0.2f, 0.5f, 0.9f},  {0.5f, 0.1f, 0.7f},  {0.8f, 0.2f, 0.6f},
                                {0.95f, 0.9f, 0.7f}, {0.05f, 0.1f, 0.02f}};
    for (const auto& colour : colours) {
        RGB_to_HSL(colour, hsl);
        HSL_to_RGB(hsl, rgb);
        for (int c = 0; c < 3; c++)
            EXPECT_NEAR(rgb[c], colour[c], 1e-6f) << colour[0] << " " << c;
    }
}
