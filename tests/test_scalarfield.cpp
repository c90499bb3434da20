// FlicScalarField container, generators, "FLIC SCALAR" files, range and pseudo-colouring.
#include "scalarfield.h"
#include "colormap.h"
#include "image.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

using namespace testutil;
using Floats = std::vector<float>;

namespace {

FlicScalarField makeField(int width, int height, const Floats& values) {
    FlicScalarField field(width, height);
    std::copy(values.begin(), values.end(), field.data);
    return field;
}

Floats valuesOf(const FlicScalarField& field) {
    return Floats(field.data, field.data + field.width * field.height);
}

std::string bytesOf(const Floats& values) {
    return std::string(reinterpret_cast<const char*>(values.data()), 4 * values.size());
}

} // namespace

TEST(ScalarField, ContainerAndCallback) {
    float caller[4] = {1, 2, 3, 4};
    FlicScalarField recorded(2, 3, caller); // size only: no storage attached
    EXPECT_EQ(recorded.width * recorded.height, 6);
    EXPECT_EQ(recorded.data, nullptr);

    FlicScalarField field = makeField(3, 2, {1, 2, 3, 4, 5, 6});
    FlicScalarField copy(field);
    EXPECT_NE(copy.data, field.data);
    EXPECT_EQ(valuesOf(copy), valuesOf(field));
    float values[2] = {7.5f, 99};
    FlicScalarField::pixelCallback(2, 1, values, &copy);
    EXPECT_EQ(valuesOf(copy), (Floats{1, 2, 3, 4, 5, 7.5f}));

    MessageCapture capture;
    EXPECT_EQ(field.setSize(100000, 100000), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: scalar field size 100000 x 100000 is too large");
    EXPECT_EQ(field.setSize(-1, 4), 0);
    EXPECT_EQ(capture.errors().back(), "FLIC error: illegal scalar field size -1 x 4");
    EXPECT_EQ(valuesOf(field), (Floats{1, 2, 3, 4, 5, 6}));
}

TEST(ScalarField, GeneratorsAndRange) {
    FlicScalarField field(3, 3);
    field.createCircle();
    EXPECT_EQ(valuesOf(field), (Floats{0.5f, 0.25f, 0.5f, 0.25f, 0, 0.25f, 0.5f, 0.25f, 0.5f}));
    field.createDipole(1, 0);
    EXPECT_EQ(field.data[4], 0.0f); // X = Y = 0: r = 1, theta = 0
    double r = std::sqrt(2.0);
    EXPECT_FLOAT_EQ(field.data[0], 0.5 * (std::cos(r) - std::sin(r) / r));
    EXPECT_FLOAT_EQ(field.data[5], std::cos(1.0) - std::sin(1.0)); // on the x axis
    field.createDipole(2, 0.25f);                                  // a quarter cycle
    EXPECT_FLOAT_EQ(field.data[5], std::cos(2 - 1.5707964) - std::sin(2 - 1.5707964) / 2);
    FlicScalarField row(3, 1); // a single row sits at position 0
    row.createCircle();
    EXPECT_EQ(valuesOf(row), (Floats{0.5f, 0.25f, 0.5f}));

    float low = 9, high = 9;
    makeField(5, 1, {5, 1, 3, -2, 4}).getRange(low, high); // first element the largest
    EXPECT_EQ(low + high, 3.0f);
    FlicScalarField().getRange(low, high);
    EXPECT_EQ(low + high, 0.0f);
}

TEST(ScalarFieldFiles, RoundTripsAndLayout) {
    TempDir dir;
    std::string path = dir.path("s.sca");
    Floats values = {1.0f, -0.1f, 3.4e38f, 1e-42f, -0.0f, std::numeric_limits<float>::quiet_NaN()};
    FlicScalarField field = makeField(3, 2, values), read;
    ASSERT_EQ(field.write(path.c_str(), 0), 1);
    EXPECT_EQ(bytesOf(valuesOf(field)), bytesOf(values)); // unchanged by the write
    std::string bytes = readFile(path);
    EXPECT_EQ(bytes.substr(0, 27), std::string("FLIC SCALAR BINARY\n3 2\n\x3f\x80\0\0", 27));
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(bytesOf(valuesOf(read)), bytesOf(values)); // bit-exact
    writeFile(path, bytes.substr(0, 23 + 8));            // short: zeros where it ends
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(valuesOf(read), (Floats{1, -0.1f, 0, 0, 0, 0}));

    field = makeField(2, 2, {1.5f, -2, 1e-7f, 123456789.0f});
    ASSERT_EQ(field.write(path.c_str(), 1), 1);
    EXPECT_EQ(readFile(path), "FLIC SCALAR ASCII\n2 2\n1.5\n-2\n1e-07\n1.23457e+08\n");
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(valuesOf(read), (Floats{1.5f, -2, 1e-7f, 123457000.0f}));
    writeFile(path, "x FLIC SCALAR\n2  2\n1 2\n3\n\n4"); // free layout
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(valuesOf(read), (Floats{1, 2, 3, 4}));
}

TEST(ScalarFieldFiles, Rejections) {
    TempDir dir;
    std::string path = dir.path("r.sca");
    FlicScalarField field = makeField(2, 2, {1, 2, 3, 4});
    MessageCapture capture;
    auto expectError = [&](const std::string& contents, const std::string& reason) {
        writeFile(path, contents);
        EXPECT_EQ(field.read(path.c_str()), 0) << contents;
        EXPECT_EQ(capture.errors().back(), "FLIC error: can't open " + path + " (" + reason + ")");
    };
    expectError("FLIC SCALAR ASCII\n10001 2\n", "illegal scalar field dimensions");
    EXPECT_EQ(valuesOf(field), (Floats{1, 2, 3, 4})); // not resized
    expectError("FLIC VECTOR ASCII\n2 2\n1 2 3 4\n", "header string 'FLIC SCALAR' not found");
    expectError("FLIC SCALAR ASCII\n3 2\n9 8 x", "illegal or missing scalar values");
    EXPECT_EQ(valuesOf(field), (Floats{9, 8, 0, 0, 0, 0})); // resized, values so far kept
    // A short file that announces the largest field costs no memory for the zeros it leaves.
    long peak = testutil::peakResidentKilobytes();
    expectError("FLIC SCALAR ASCII\n10000 10000\n7\n", "illegal or missing scalar values");
    writeFile(path, "FLIC SCALAR BINARY\n10000 10000\n\x3f\x80");
    EXPECT_EQ(field.read(path.c_str()), 1);
    EXPECT_EQ(field.data[0], 0.0f); // a value cut short reads as zero
    EXPECT_EQ(field.data[10000 * 10000 - 1], 0.0f);
    EXPECT_LT(testutil::peakResidentKilobytes() - peak, 100000L);
    EXPECT_EQ(field.write("/nonexistent-dir/f.sca", 0), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open /nonexistent-dir/f.sca (No such file or directory)");
}

TEST(ScalarField, AllocationFailureLeavesTheFieldAsItWas) {
    FlicScalarField field = makeField(2, 2, {1, 2, 3, 4});
    testutil::AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(field.setSize(30000, 30000), 0); // 3.6 GB
    EXPECT_EQ(capture.onlyError(), "FLIC error: no memory for a scalar field of 30000 x 30000");
    EXPECT_EQ(valuesOf(field), (Floats{1, 2, 3, 4}));
}

TEST(ScalarField, PseudoColor) {
    FlicColormap map;
    map.createHotIron();
    map.setMinMax(-1, 1);
    FlicImage image;
    makeField(3, 1, {0.5f, -3, -0.6f}).pseudoColor(map, image, 1);
    // t = 0.75: blue 63.25 / 127 (126.998 truncated); t <= 0: red; t = 0.2: green 51 / 127.
    EXPECT_EQ(pixelBytes(image), (std::vector<int>{255, 255, 126, 255, 0, 0, 255, 102, 0}));

    // A grey 3 x 2 image becomes RGB of its size; columns at 0, 0.4995 and 0.999.
    map.createGreyRamp();
    map.setMinMax(0, 1);
    FlicImage grey(3, 2, 1);
    makeField(2, 2, {0, 1, 0, 1}).pseudoColor(map, grey, 0);
    EXPECT_EQ(pixelBytes(grey), (std::vector<int>{0, 0, 0, 127, 127, 127, 254, 254, 254, //
                                                  0, 0, 0, 127, 127, 127, 254, 254, 254}));

    FlicImage dot(1, 1, 3); // one pixel: position 0
    makeField(2, 2, {1, 0, 0, 0}).pseudoColor(map, dot, 0);
    float unattached = 0;
    FlicScalarField(4, 4, &unattached).pseudoColor(map, dot, 1); // no values: image alone
    FlicScalarField().pseudoColor(map, dot, 0);
    EXPECT_EQ(pixelBytes(dot), (std::vector<int>{255, 255, 255}));
}
