// FlicScalarField container, generators, "FLIC SCALAR" files, range and pseudo-colouring.
#include "scalarfield.h"
#include "colormap.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

using testutil::MessageCapture;
using testutil::readFile;
using testutil::TempDir;
using testutil::writeFile;

namespace {

// A field whose node k holds values[k].
FlicScalarField makeField(int width, int height, const std::vector<float>& values) {
    FlicScalarField field(width, height);
    for (int k = 0; k < width * height; k++)
        field.data[k] = values[k];
    return field;
}

std::string floatsAsBytes(const float* values, int count) {
    return std::string(reinterpret_cast<const char*>(values), 4 * count);
}

} // namespace

TEST(ScalarField, ConstructionSizingAndCopies) {
    FlicScalarField empty;
    EXPECT_EQ(empty.buffer, nullptr);
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.width + empty.height, 0);

    // A caller's buffer is not attached: only the size is recorded.
    float caller[4] = {1, 2, 3, 4};
    FlicScalarField recorded(2, 2, caller);
    EXPECT_EQ(recorded.width, 2);
    EXPECT_EQ(recorded.height, 2);
    EXPECT_EQ(recorded.data, nullptr);
    EXPECT_EQ(recorded.buffer, nullptr);
    recorded.setSize(2, 2);
    EXPECT_NE(recorded.data, caller);
    EXPECT_EQ(recorded.data, recorded.buffer);

    FlicScalarField field = makeField(3, 2, {1, 2, 3, 4, 5, 6});
    FlicScalarField copy(field);
    EXPECT_NE(copy.data, field.data);
    EXPECT_EQ(floatsAsBytes(copy.data, 6), floatsAsBytes(field.data, 6));
    copy.setSize(1, 2); // realloc keeps the prefix
    EXPECT_EQ(copy.data[1], 2.0f);
    copy.setSize(0, 5);
    EXPECT_EQ(copy.width, 0);
    EXPECT_EQ(copy.height, 5);
    EXPECT_EQ(copy.data, copy.buffer);

    MessageCapture capture;
    EXPECT_EQ(field.setSize(100000, 100000), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: scalar field size 100000 x 100000 is too large");
    EXPECT_EQ(field.setSize(-1, 4), 0);
    EXPECT_EQ(capture.errors().back(), "FLIC error: illegal scalar field size -1 x 4");
    EXPECT_EQ(field.width, 3); // unchanged after both refusals
    EXPECT_EQ(field.data[5], 6.0f);
}

TEST(ScalarField, PixelCallbackStoresFirstValue) {
    FlicScalarField field = makeField(3, 2, {0, 0, 0, 0, 0, 0});
    float values[2] = {7.5f, 99};
    FlicScalarField::pixelCallback(1, 1, values, &field);
    FlicScalarField::pixelCallback(2, 0, values, &field);
    EXPECT_EQ(floatsAsBytes(field.data, 6),
              floatsAsBytes(std::vector<float>{0, 0, 7.5f, 0, 7.5f, 0}.data(), 6));
}

TEST(ScalarField, CircleAndDipoleAtKnownNodes) {
    FlicScalarField circle(3, 3);
    circle.createCircle();
    EXPECT_EQ(
        floatsAsBytes(circle.data, 9),
        floatsAsBytes(
            std::vector<float>{0.5f, 0.25f, 0.5f, 0.25f, 0, 0.25f, 0.5f, 0.25f, 0.5f}.data(), 9));

    FlicScalarField dipole(3, 3);
    dipole.createDipole(1, 0);
    EXPECT_EQ(dipole.data[4], 0.0f); // X = Y = 0: r = 1, theta = 0
    double r = std::sqrt(2.0);
    EXPECT_FLOAT_EQ(dipole.data[0], 0.5 * (std::cos(r) - std::sin(r) / r)); // sin^2 = 1/2
    EXPECT_FLOAT_EQ(dipole.data[5], std::cos(1.0) - std::sin(1.0));         // X = 1, Y = 0
    EXPECT_NEAR(dipole.data[1], 0.0f, 1e-12f); // on the y axis: sin(theta) = 0

    // The phase is in cycles: a quarter cycle shifts the wave by pi / 2 at radius 2.
    dipole.createDipole(2, 0.25f);
    double d = 2.0 - 1.5707964;
    EXPECT_FLOAT_EQ(dipole.data[5], std::cos(d) - std::sin(d) / 2);

    // A single row or column sits at position 0 of its axis.
    FlicScalarField row(3, 1);
    row.createCircle();
    EXPECT_EQ(row.data[0], 0.5f);
    EXPECT_EQ(row.data[1], 0.25f);
    row.createDipole(1, 0);
    EXPECT_FALSE(std::isnan(row.data[1]));
}

TEST(ScalarFieldFiles, BinaryIsBigEndianAndRoundTripsBitExact) {
    TempDir dir;
    std::string path = dir.path("s.sca");
    float values[6] = {1.0f,   -0.1f, 3.4e38f,
                       1e-42f, -0.0f, std::numeric_limits<float>::quiet_NaN()};
    FlicScalarField field = makeField(3, 2, std::vector<float>(values, values + 6));
    ASSERT_EQ(field.write(path.c_str(), 0), 1);
    EXPECT_EQ(floatsAsBytes(field.data, 6), floatsAsBytes(values, 6)); // unchanged
    std::string bytes = readFile(path);
    ASSERT_EQ(bytes.size(), 23u + 24u);
    EXPECT_EQ(bytes.substr(0, 23), "FLIC SCALAR BINARY\n3 2\n");
    EXPECT_EQ(bytes.substr(23, 4), std::string("\x3f\x80\x00\x00", 4)); // 1.0 big-endian

    FlicScalarField read;
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(read.width, 3);
    EXPECT_EQ(read.height, 2);
    EXPECT_EQ(floatsAsBytes(read.data, 6), floatsAsBytes(values, 6));

    // A short binary file leaves zeros where it ends.
    writeFile(path, bytes.substr(0, 23 + 8));
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(read.data[1], -0.1f);
    EXPECT_EQ(read.data[2], 0.0f);
    EXPECT_EQ(read.data[5], 0.0f);
}

TEST(ScalarFieldFiles, AsciiLayoutAndTolerance) {
    TempDir dir;
    std::string path = dir.path("a.sca");
    FlicScalarField field = makeField(2, 2, {1.5f, -2, 1e-7f, 123456789.0f});
    ASSERT_EQ(field.write(path.c_str(), 1), 1);
    EXPECT_EQ(readFile(path), "FLIC SCALAR ASCII\n2 2\n1.5\n-2\n1e-07\n1.23457e+08\n");
    FlicScalarField read;
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(read.data[0], 1.5f);
    EXPECT_EQ(read.data[3], 123457000.0f);

    // Mode word anywhere in the first line, values in any layout.
    writeFile(path, "x FLIC SCALAR\n2  2\n1 2\n3\n\n4");
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(read.data[3], 4.0f);
}

TEST(ScalarFieldFiles, Rejections) {
    TempDir dir;
    std::string path = dir.path("r.sca");
    FlicScalarField field = makeField(2, 2, {1, 2, 3, 4});
    MessageCapture capture;
    for (std::string dims : {"1 5", "5 1", "10001 2", "2 10001", "3", ""}) {
        writeFile(path, "FLIC SCALAR ASCII\n" + dims + "\n1 2 3 4 5 6 7 8 9 10\n");
        EXPECT_EQ(field.read(path.c_str()), 0) << dims;
        EXPECT_EQ(capture.errors().back(),
                  "FLIC error: can't open " + path + " (illegal scalar field dimensions)");
        EXPECT_EQ(field.width, 2); // not resized
        EXPECT_EQ(field.data[3], 4.0f);
    }
    writeFile(path, "FLIC VECTOR ASCII\n2 2\n1 2 3 4\n");
    EXPECT_EQ(field.read(path.c_str()), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open " + path + " (header string 'FLIC SCALAR' not found)");

    writeFile(path, "FLIC SCALAR ASCII\n3 2\n9 8 x");
    EXPECT_EQ(field.read(path.c_str()), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open " + path + " (illegal or missing scalar values)");
    EXPECT_EQ(field.width, 3); // resized, values so far kept
    EXPECT_EQ(field.data[1], 8.0f);

    EXPECT_EQ(field.read("/nonexistent-dir/f.sca"), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open /nonexistent-dir/f.sca (No such file or directory)");
    EXPECT_EQ(field.write("/nonexistent-dir/f.sca", 0), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open /nonexistent-dir/f.sca (No such file or directory)");
    EXPECT_EQ(capture.errors().size(), 10u);
}

TEST(ScalarField, GetRange) {
    float low = 9, high = 9;
    makeField(5, 1, {5, 1, 3, -2, 4}).getRange(low, high); // first element the largest
    EXPECT_EQ(low, -2.0f);
    EXPECT_EQ(high, 5.0f);
    makeField(3, 1, {-1, 7, 0}).getRange(low, high);
    EXPECT_EQ(low, -1.0f);
    EXPECT_EQ(high, 7.0f);
    FlicScalarField().getRange(low, high);
    EXPECT_EQ(low, 0.0f);
    EXPECT_EQ(high, 0.0f);
}

TEST(ScalarField, PseudoColor) {
    FlicColormap map; // grey ramp over 0..1
    FlicScalarField field = makeField(3, 1, {0, 1, 0.5f});
    FlicImage image;
    field.pseudoColor(map, image, 1);
    EXPECT_EQ(image.width, 3);
    EXPECT_EQ(image.nChannels, 3);
    std::vector<int> expected = {0, 0, 0, 255, 255, 255, 127, 127, 127};
    for (int i = 0; i < 9; i++)
        EXPECT_EQ(image.data[i], expected[i]) << i;

    map.setMinMax(-1, 1); // 0 maps to the middle, -1 and below to entry 0
    map.createHotIron();
    FlicScalarField signedField = makeField(3, 1, {0.5f, -3, -0.6f});
    signedField.pseudoColor(map, image, 1);
    EXPECT_EQ(image.width, 3);
    EXPECT_EQ(image.data[0], 255);
    EXPECT_EQ(image.data[2], 126); // t = 0.75: blue 63.25 / 127, times 255 = 126.998
    EXPECT_EQ(image.data[4], 0);   // entry 0: red
    EXPECT_EQ(image.data[7], 102); // t = 0.2: green 51 / 127 of the way
    EXPECT_EQ(image.data[8], 0);

    // Stretch sampling onto a grey 3 x 2 image: it becomes RGB of the same size. Columns sit at
    // 0, 0.4995, 0.999 of a field that grows by 1 per column.
    map.createGreyRamp();
    map.setMinMax(0, 1);
    FlicScalarField ramp = makeField(2, 2, {0, 1, 0, 1});
    FlicImage grey(3, 2, 1);
    grey.clear(9);
    ramp.pseudoColor(map, grey, 0);
    EXPECT_EQ(grey.width, 3);
    EXPECT_EQ(grey.height, 2);
    EXPECT_EQ(grey.nChannels, 3);
    std::vector<int> row = {0, 0, 0, 127, 127, 127, 254, 254, 254};
    for (int i = 0; i < 18; i++)
        EXPECT_EQ(grey.data[i], row[i % 9]) << i;

    // A one-pixel target samples position 0; a field without values leaves the image alone.
    FlicImage dot(1, 1, 3);
    FlicScalarField high = makeField(2, 2, {1, 0, 0, 0});
    high.pseudoColor(map, dot, 0);
    EXPECT_EQ(dot.data[1], 255);
    FlicScalarField().pseudoColor(map, dot, 0);
    float unattached = 0;
    FlicScalarField(4, 4, &unattached).pseudoColor(map, dot, 0); // size recorded, no storage
    EXPECT_EQ(dot.data[1], 255);
}
