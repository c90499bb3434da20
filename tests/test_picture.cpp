// The picture steps: colour-map presets against their published tables, the blends worked by
// hand, colour that keeps a map's lightness, directions, enhancement, and bad settings.
#include "colormap.h"
#include "compute.h"
#include "histogram.h"
#include "picture.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using namespace testutil;
using Bytes = std::vector<int>;

namespace {

void expectEntry(const FlicColormap& map, int i, float r, float g, float b) {
    EXPECT_NEAR(r, map.colors[i][0], 1e-6) << i;
    EXPECT_NEAR(g, map.colors[i][1], 1e-6) << i;
    EXPECT_NEAR(b, map.colors[i][2], 1e-6) << i;
}

} // namespace

TEST(Picture, PresetsHoldThePublishedTables) {
    FlicColormap map;
    map.setMinMax(-2.0f, 5.0f);
    ASSERT_EQ(1, map.createPreset("viridis"));
    expectEntry(map, 0, 0.267004f, 0.004874f, 0.329415f);
    expectEntry(map, 128, 0.127568f, 0.566949f, 0.550556f);
    expectEntry(map, 255, 0.993248f, 0.906157f, 0.143936f);
    EXPECT_EQ(-2.0f, map.min); // presets keep the range
    ASSERT_EQ(1, map.createPreset("magma"));
    expectEntry(map, 0, 0.001462f, 0.000466f, 0.013866f);
    ASSERT_EQ(1, map.createPreset("inferno"));
    expectEntry(map, 255, 0.988362f, 0.998364f, 0.644924f);
    ASSERT_EQ(1, map.createPreset("plasma"));
    expectEntry(map, 0, 0.050383f, 0.029803f, 0.527975f);
    ASSERT_EQ(1, map.createPreset("cividis"));
    expectEntry(map, 0, 0.0f, 0.135112f, 0.304751f);
    // twilight is cyclic: its ends are (nearly) the same light grey.
    ASSERT_EQ(1, map.createPreset("twilight"));
    expectEntry(map, 0, 0.885750f, 0.850009f, 0.887974f);
    for (int c = 0; c < 3; c++)
        EXPECT_NEAR(map.colors[0][c], map.colors[255][c], 0.01);
    // The older presets by name; an unknown name changes nothing.
    ASSERT_EQ(1, map.createPreset("blue-white-red"));
    expectEntry(map, 0, 0.0f, 0.0f, 1.0f);
    ASSERT_EQ(1, map.createPreset("gray"));
    EXPECT_EQ(0, map.createPreset("jet"));
    EXPECT_EQ(0, map.createPreset(nullptr));
    expectEntry(map, 255, 1.0f, 1.0f, 1.0f);
    EXPECT_NE(nullptr, strstr(FlicColormap::presetNames(), "cividis, twilight"));
}

TEST(Picture, BlendsWorkedByHand) {
    // Non-zero LIC bytes 100, 200, 150: mean 150, sdev 50. Multiply factors 0.7, 1 (1.1
    // held), 0.9; byte 0 stays black.
    FlicImage lic = makeImage(4, 1, 1, {0, 100, 200, 150});
    FlicImage colours =
        makeImage(4, 1, 3, {200, 100, 50, 200, 100, 50, 200, 100, 50, 200, 100, 50});
    FlicImage out;
    ASSERT_EQ(1, flicBlend(lic, colours, FlicPicture::MULTIPLY, 0.9f, 0.2f, &out));
    EXPECT_EQ(pixelBytes(out), (Bytes{0, 0, 0, 140, 70, 35, 200, 100, 50, 180, 90, 45}));
    // Overlay: dark colours scaled by 2 * lic, light ones screened; 128 keeps the colour.
    lic = makeImage(4, 1, 1, {200, 100, 128, 128});
    colours = makeImage(4, 1, 3, {64, 64, 64, 200, 200, 200, 64, 64, 64, 200, 200, 200});
    ASSERT_EQ(1, flicBlend(lic, colours, FlicPicture::OVERLAY, 0.9f, 0.2f, &out));
    EXPECT_EQ(pixelBytes(out), (Bytes{100, 100, 100, 188, 188, 188, 64, 64, 64, 200, 200, 200}));
    // In place the grey picture becomes RGB; mismatched images are refused.
    ASSERT_EQ(1, flicBlend(lic, colours, FlicPicture::OVERLAY));
    EXPECT_EQ(3, lic.nChannels);
    FlicImage small(2, 1, 1);
    std::string message =
        stderrOf([&] { EXPECT_EQ(0, flicBlend(small, colours, FlicPicture::MULTIPLY)); });
    EXPECT_NE(std::string::npos, message.find("same size")) << message;
}

TEST(Picture, MultiplyKeepsAMapsWhiteWhereLightnessLosesIt) {
    // Magnitude rising from left to right: blue-white-red is white in the middle column.
    FlicVectorField field(64, 64);
    for (int y = 0; y < 64; y++)
        for (int x = 0; x < 64; x++) {
            field.vectors()[y * 64 + x].x = 0.0f;
            field.vectors()[y * 64 + x].y = 1.0f + x;
        }
    FlicImage noise(128, 128, 1);
    noise.createRandom(1, 1);
    FlicCompute engine;
    FlicPicture steps;
    steps.colour = FlicPicture::MAGNITUDE;
    ASSERT_EQ(1, steps.setColormap("blue-white-red"));
    FlicImage multiplied, lightness;
    ASSERT_EQ(1, steps.render(engine, field, noise, multiplied));
    steps.blend = FlicPicture::LIGHTNESS;
    ASSERT_EQ(1, steps.render(engine, field, noise, lightness));
    // The median over the middle columns (the streaks run down the columns).
    auto middleMedian = [](const FlicImage& picture, int channel) {
        std::vector<int> values;
        for (int y = 0; y < picture.height; y++)
            for (int x = 60; x < 68; x++)
                values.push_back(picture.data[y * picture.bytesPerLine + x * 3 + channel]);
        std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
        return values[values.size() / 2];
    };
    for (int c = 0; c < 3; c++)
        EXPECT_GE(middleMedian(multiplied, c), 200) << c; // near white
    // Lightness replacement gives the middle a saturated hue: its green stays low.
    EXPECT_LT(middleMedian(lightness, 1), 100);
    // The ends keep the map's ends: blue on the left, red on the right.
    const unsigned char* left = multiplied.data + 64 * multiplied.bytesPerLine;
    const unsigned char* right = left + 126 * 3;
    EXPECT_GT(left[2], left[0]);
    EXPECT_GT(right[0], right[2]);
}

TEST(Picture, DirectionColoursFollowTheAngle) {
    FlicVectorField field(4, 1);
    const float vectors[8] = {1, 0, 0, 1, -1, 0, 0, 0};
    for (int k = 0; k < 8; k++)
        field.data[k] = vectors[k];
    FlicScalarField angles;
    field.direction(angles, 1);
    ASSERT_EQ(4, angles.width);
    EXPECT_EQ(0.0f, angles.data[0]);
    EXPECT_FLOAT_EQ(1.5707964f, angles.data[1]);
    EXPECT_FLOAT_EQ(3.1415927f, angles.data[2]);
    EXPECT_EQ(0.0f, angles.data[3]); // zero vector
    // Default map for directions: twilight over -pi .. pi, so angle 0 is the middle entry.
    FlicPicture steps;
    steps.colour = FlicPicture::DIRECTION;
    FlicImage colours;
    FlicVectorField right = uniformField(8, 8, 1.0f, 0.0f);
    ASSERT_EQ(1, steps.colours(right, 8, 8, colours));
    FlicColormap twilight;
    twilight.createPreset("twilight");
    float middle[3];
    twilight.getColor1(0.5f, middle);
    for (int c = 0; c < 3; c++)
        EXPECT_NEAR(middle[c] * 255.0f, colours.data[c], 1.0f) << c;
}

TEST(Picture, EnhancementSharpensStreaks) {
    // A horizontal flow: streaks run along rows, so neighbouring rows differ more once the
    // texture between the passes is high-passed.
    FlicVectorField field = uniformField(32, 32, 1.0f, 0.0f);
    FlicImage noise(128, 128, 1);
    noise.createRandom(1, 2);
    FlicCompute engine;
    FlicPicture steps;
    FlicImage plain, enhanced;
    ASSERT_EQ(1, steps.render(engine, field, noise, plain));
    steps.enhance = 1;
    ASSERT_EQ(1, steps.render(engine, field, noise, enhanced));
    auto acrossRows = [](const FlicImage& picture) {
        double sum = 0.0;
        for (int y = 0; y + 1 < picture.height; y++)
            for (int x = 0; x < picture.width; x++)
                sum += std::abs(picture.data[y * picture.bytesPerLine + x] -
                                picture.data[(y + 1) * picture.bytesPerLine + x]);
        return sum / ((picture.height - 1) * picture.width);
    };
    EXPECT_GT(acrossRows(enhanced), 1.1 * acrossRows(plain));
}

TEST(Picture, BadSettingsAreReportedBeforeAnyWork) {
    FlicPicture steps;
    FlicImage picture = makeImage(2, 2, 1, {1, 2, 3, 4});
    FlicVectorField field = uniformField(4, 4, 1.0f, 0.0f);
    struct Case {
        void (*set)(FlicPicture&);
        const char* message;
    } cases[] = {
        {[](FlicPicture& p) { p.blur = 10; }, "blur 10 outside 0 .. 9"},
        {[](FlicPicture& p) { p.colour = FlicPicture::SCALAR; }, "no field was given"},
        {[](FlicPicture& p) { p.zoomWidth = 5; }, "zoom to 5 x 0 pixels"},
        {[](FlicPicture& p) { p.adjustSdev = 0.0f; }, "standard deviation above 0"},
        {[](FlicPicture& p) {
             p.equalize = FlicPicture::EQUALIZE_ADAPTIVE;
             p.equalizeTiles = 1;
         },
         "2 .. 64 tiles"},
        {[](FlicPicture& p) {
             p.rangeGiven = 1;
             p.range[0] = p.range[1] = 3.0f;
         },
         "colour range 3 .. 3 is empty"},
        {[](FlicPicture& p) { p.blend = static_cast<FlicPicture::BlendMode>(7); },
         "unknown blend mode 7"},
    };
    for (const Case& c : cases) {
        FlicPicture bad;
        c.set(bad);
        std::string message = stderrOf([&] { EXPECT_EQ(0, bad.finish(picture, field)); });
        EXPECT_NE(std::string::npos, message.find(c.message)) << message;
        EXPECT_EQ(pixelBytes(picture), (Bytes{1, 2, 3, 4}));
    }
    std::string message = stderrOf([&] { EXPECT_EQ(0, steps.setColormap("no-such-map")); });
    EXPECT_NE(std::string::npos, message.find("neither a preset (grey, hot-iron")) << message;
    EXPECT_EQ(0, steps.colormapGiven);
    // Colour on an RGB picture is refused.
    FlicImage rgb = makeImage(1, 1, 3, {1, 2, 3});
    steps.colour = FlicPicture::MAGNITUDE;
    message = stderrOf([&] { EXPECT_EQ(0, steps.finish(rgb, field)); });
    EXPECT_NE(std::string::npos, message.find("grey LIC picture")) << message;
}
