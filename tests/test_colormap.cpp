// Colour maps, their icol files, and the RGB / HSL conversions.
#include "colormap.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using namespace testutil;

namespace {

std::vector<float> entry(const FlicColormap& map, int i) {
    return {map.colors[i][0], map.colors[i][1], map.colors[i][2]};
}

} // namespace

TEST(Colormap, DefaultPresetsAndRange) {
    FlicColormap map; // grey ramp over 0..1
    EXPECT_EQ(entry(map, 51), (std::vector<float>{0.2f, 0.2f, 0.2f}));
    EXPECT_EQ(map.min + map.max + map.scale, 2.0f);
    map.setMinMax(2, 6);
    map.createHotIron(); // starts at red, not black; keeps the range
    float low, high;
    map.getMinMax(low, high);
    EXPECT_TRUE(low == 2 && high == 6 && map.scale == 0.25f);
    EXPECT_EQ(entry(map, 0), (std::vector<float>{1, 0, 0}));
    EXPECT_EQ(entry(map, 128), (std::vector<float>{1, 1, 0}));
    EXPECT_EQ(entry(map, 191), (std::vector<float>{1, 1, 63 / 127.0f}));
    map.createBlueWhiteRed();
    EXPECT_EQ(entry(map, 0), (std::vector<float>{0, 0, 1}));
    EXPECT_EQ(entry(map, 128), (std::vector<float>{1, 1, 1}));
    EXPECT_EQ(entry(map, 155), (std::vector<float>{1, 100 / 127.0f, 100 / 127.0f}));
    EXPECT_EQ(entry(map, 255), (std::vector<float>{1, 0, 0}));
    map.createHueRamp(); // red, yellow (1/6), green (1/3), magenta (5/6)
    EXPECT_EQ(entry(map, 0), (std::vector<float>{1, 0, 0}));
    EXPECT_EQ(entry(map, 51), (std::vector<float>{1, 1, 0}));
    EXPECT_EQ(entry(map, 102), (std::vector<float>{0, 1, 0}));
    EXPECT_EQ(entry(map, 255), (std::vector<float>{1, 0, 1}));
}

TEST(Colormap, GetColor1AndTransforms) {
    FlicColormap map;
    map.createHotIron();
    float rgb[3];
    for (float t : {0.0f, -3.0f, NAN}) {
        map.getColor1(t, rgb);
        EXPECT_EQ(rgb[1], 0.0f) << t; // entry 0
    }
    map.getColor1(1.0f, rgb);
    EXPECT_EQ(rgb[2], 1.0f);
    map.colors[127][1] = 0.2f;
    map.colors[128][1] = 0.6f;
    map.getColor1(0.5f, rgb); // halfway between entries 127 and 128
    EXPECT_FLOAT_EQ(rgb[1], 0.4f);

    map.createGreyRamp();
    map.setMinMax(1, 3);
    FlicColormap doubled;
    map.multiply(2, &doubled);
    EXPECT_FLOAT_EQ(doubled.colors[127][0], 254 / 255.0f);
    EXPECT_EQ(doubled.colors[128][0], 1.0f); // limited above from entry 128 up
    EXPECT_EQ(doubled.scale, 0.5f);          // range kept
    map.multiply(-1);
    EXPECT_FLOAT_EQ(map.colors[255][2], -1.0f); // no lower limit

    map.createGreyRamp();
    map.colors[0][0] = 0.7f;
    FlicColormap flipped;
    map.flip(&flipped);
    EXPECT_EQ(flipped.colors[255][0], 0.7f);
    flipped.flip();
    EXPECT_EQ(memcmp(flipped.colors, map.colors, sizeof map.colors), 0);
    map.gamma(0.5f);
    EXPECT_FLOAT_EQ(map.colors[51][1], std::sqrt(0.2f));
}

TEST(Colormap, IcolRoundTripLayoutsAndFailures) {
    TempDir dir;
    std::string path = dir.path("map.icol");
    FlicColormap map, read;
    map.createHotIron();
    map.setMinMax(-2.5f, 100);
    ASSERT_EQ(map.writeIcol(path.c_str()), 1);
    std::string text = readFile(path);
    EXPECT_EQ(text.substr(0, 74), "   0 255   0   0     64 255 128   0    128 255 255   0    "
                                  "192 255 255 128\n");
    EXPECT_EQ(text.substr(64 * 74), "-2.5 100\n");
    ASSERT_EQ(read.readIcol(path.c_str()), 1);
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++) // whole 255ths, truncated, times 1/255 in single precision
            ASSERT_EQ(read.colors[i][c], static_cast<int>(map.colors[i][c] * 255) * (1 / 255.0f));
    EXPECT_EQ(read.min + read.max, 97.5f);

    // Plain layout; without a range line the range is 0..1, otherwise anywhere after.
    std::string plain;
    for (int i = 0; i < 256; i++)
        plain += std::to_string(i) + " " + std::to_string(255 - i) + " 51\n";
    writeFile(path, plain);
    ASSERT_EQ(read.readIcol(path.c_str()), 1);
    EXPECT_EQ(entry(read, 255), (std::vector<float>{255 * (1 / 255.0f), 0, 51 * (1 / 255.0f)}));
    EXPECT_EQ(read.min + read.max, 1.0f);
    writeFile(path, plain + "\n -1\n\n 3\n");
    ASSERT_EQ(read.readIcol(path.c_str()), 1);
    EXPECT_EQ(read.min + read.max, 2.0f);

    auto expectIllegal = [&](const std::string& contents) {
        writeFile(path, contents);
        EXPECT_EQ(stderrOf([&] { EXPECT_EQ(read.readIcol(path.c_str()), 0); }),
                  "Illegal format in " + path + ".\n");
    };
    expectIllegal("");
    expectIllegal("1 2 3 4\n");
    expectIllegal(plain.substr(0, 9) + "1 2\n" + plain);
    expectIllegal(text.substr(0, 74 * 30));       // grouped table cut short
    expectIllegal("256 1 1 1" + text.substr(16)); // index outside the table
    map.colors[0][1] = 40;                        // wider than 4 columns: runs into its neighbour
    map.colors[0][2] = NAN;
    map.writeIcol(path.c_str());
    EXPECT_EQ(readFile(path).substr(0, 17), "   0 25510200   0");
    expectIllegal(readFile(path));

    std::string missing = dir.path("no/such.icol");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(read.readIcol(missing.c_str()), 0); }),
              "Can't open " + missing + ".\n");
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(map.writeIcol(missing.c_str()), 0); }),
              "Can't open " + missing + ".\n");
}

TEST(Colormap, CheckNamesFileAndLineAndRefusesValuesBeyondAByte) {
    TempDir dir;
    std::string path = dir.path("m.icol");
    FlicColormap written;
    written.createPreset("hot-iron");
    ASSERT_EQ(1, written.writeIcol(path.c_str()));
    MessageCapture capture;
    EXPECT_EQ(1, FlicColormap::checkIcol(path.c_str()));
    EXPECT_TRUE(capture.errors().empty());

    std::string threeColumns;
    for (int i = 0; i < 256; i++)
        threeColumns += i == 2 ? "1 300 0\n" : "1 2 3\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", ":1: the file is empty"},
        {"1 2\n", ":1: the first line holds neither 16 numbers (index r g b four times) nor 3 "
                  "(r g b)"},
        {threeColumns, ":3: a number outside 0 .. 255 (300)"},
        {"1 2 3\n4 5\n", ":2: expected 3 numbers (r g b)"},
        {"1 2 3\n4 5 6\n", ":3: the table ends after 2 of 256 lines"},
        {"0 0 0 0 64 0 0 0 128 0 0 0 256 0 0 0\n", ":1: a number outside 0 .. 255 (256)"},
    };
    for (const auto& c : cases) {
        writeFile(path, c.first);
        capture.errors().clear();
        EXPECT_EQ(0, FlicColormap::checkIcol(path.c_str()));
        EXPECT_EQ(capture.onlyError(), "FLIC error: " + path + c.second);
    }
}

TEST(Colormap, HslConversions) {
    float hsl[3], rgb[3];
    float red[3] = {0, 1, 0.5f};
    HSL_to_RGB(red, rgb);
    EXPECT_EQ(std::vector<float>(rgb, rgb + 3), (std::vector<float>{1, 0, 0}));
    for (float h : {1.0f, -0.2f, NAN, 1e30f}) { // no sextant 0..5: output untouched
        float in[3] = {h, 1, 0.5f}, out[3] = {7, 8, 9};
        HSL_to_RGB(in, out);
        EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{7, 8, 9})) << h;
    }

    float out[3] = {7, 8, 9}, black[3] = {0, 0, 0}, grey[3] = {0.5f, 0.5f, 0.5f};
    RGB_to_HSL(black, out); // only l
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{7, 8, 0}));
    RGB_to_HSL(grey, out); // only l and s
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{7, 0, 0.5f}));
    float pureRed[3] = {1, 0, 0}, light[3] = {1, 0.8f, 0.6f};
    RGB_to_HSL(pureRed, hsl); // hue 1.0, the sextant HSL_to_RGB does not convert
    EXPECT_EQ(std::vector<float>(hsl, hsl + 3), (std::vector<float>{1, 1, 0.5f}));
    RGB_to_HSL(light, hsl); // l > 0.5: s = d / (2 - mx - mn)
    EXPECT_FLOAT_EQ(hsl[0], 0.5f / 6);
    EXPECT_FLOAT_EQ(hsl[1], 1.0f);

    const float colours[][3] = {{0.9f, 0.3f, 0.1f}, {0.6f, 0.7f, 0.2f}, {0.1f, 0.8f, 0.4f},
                                {0.2f, 0.5f, 0.9f}, {0.5f, 0.1f, 0.7f}, {0.8f, 0.2f, 0.6f},
                                {0.95f, 0.9f, 0.7f}};
    for (const auto& colour : colours) { // every sextant, both lightness halves
        RGB_to_HSL(colour, hsl);
        HSL_to_RGB(hsl, rgb);
        for (int c = 0; c < 3; c++)
            EXPECT_NEAR(rgb[c], colour[c], 1e-6f) << colour[0] << " " << c;
    }
}
