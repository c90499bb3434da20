// FlicVectorField container, utilities, "FLIC VECTOR" files, synthetic and derived fields.
#include "vectorfield.h"
#include "image.h"
#include "scalarfield.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

using testutil::MessageCapture;
using testutil::readFile;
using testutil::TempDir;
using testutil::writeFile;

namespace {

// A field whose node i holds (i + 0.5, -i).
FlicVectorField rampField(int width, int height) {
    FlicVectorField field(width, height);
    for (int i = 0; i < width * height; i++) {
        field.data[2 * i] = i + 0.5f;
        field.data[2 * i + 1] = -static_cast<float>(i);
    }
    return field;
}

std::string floatsAsBytes(const float* values, int count) {
    return std::string(reinterpret_cast<const char*>(values), 4 * count);
}

} // namespace

TEST(VectorField, ConstructionOwnershipAndResizing) {
    FlicVectorField empty;
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.width, 0);

    float caller[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    {
        FlicVectorField wrapped(2, 2, caller);
        EXPECT_EQ(wrapped.data, caller);
        EXPECT_EQ(wrapped.buffer, nullptr);
        EXPECT_EQ(wrapped.vectors()[3].y, 8.0f);
        wrapped.setSize(2, 2); // same size: moves to new, owned storage
        EXPECT_NE(wrapped.data, caller);
        EXPECT_EQ(wrapped.data, wrapped.buffer);
        wrapped.data[0] = -1;
    }
    EXPECT_EQ(caller[0], 1.0f); // untouched, not freed

    FlicVectorField field(3, 3);
    field.setSize(0, 7);
    EXPECT_EQ(field.buffer, nullptr);
    EXPECT_EQ(field.data, nullptr);
    EXPECT_EQ(field.width, 0);
    EXPECT_EQ(field.height, 7);

    FlicVectorField copy = rampField(3, 2);
    FlicVectorField second(copy);
    EXPECT_NE(second.data, copy.data);
    EXPECT_EQ(floatsAsBytes(second.data, 12), floatsAsBytes(copy.data, 12));

    MessageCapture capture;
    EXPECT_EQ(copy.setSize(100000, 100000), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: vector field size 100000 x 100000 is too large");
    EXPECT_EQ(copy.width, 3);
}

TEST(VectorField, PixelCallbackStoresInsideOnly) {
    FlicVectorField field(3, 2);
    memset(field.data, 0, 6 * sizeof(Vec2f));
    float values[6] = {4, 5, 9, 9, 9, 9};
    FlicVectorField::pixelCallback(2, 1, values, &field);
    EXPECT_EQ(field.vectors()[5].x, 4.0f);
    EXPECT_EQ(field.vectors()[5].y, 5.0f);
    FlicVectorField::pixelCallback(3, 0, values, &field);  // x = width
    FlicVectorField::pixelCallback(0, -1, values, &field); // y = -1
    FlicVectorField::pixelCallback(0, 2, values, &field);  // y = height
    for (int i = 0; i < 5; i++)
        EXPECT_EQ(field.vectors()[i].x, 0.0f);
}

TEST(VectorField, MaxAndNormalize) {
    FlicVectorField field(2, 2);
    float values[8] = {0, 0, 3, 4, -6, 8, 0, 0};
    memcpy(field.data, values, sizeof values);
    EXPECT_FLOAT_EQ(field.getMax(), 10.0f);
    field.normalize();
    EXPECT_FLOAT_EQ(field.vectors()[1].x, 0.6f);
    EXPECT_FLOAT_EQ(field.vectors()[1].y, 0.8f);
    EXPECT_FLOAT_EQ(field.vectors()[2].x, -0.6f);
    EXPECT_EQ(field.vectors()[0].x, 0.0f); // zero vectors stay zero
    EXPECT_EQ(field.vectors()[3].y, 0.0f);

    // A NaN length never becomes the maximum and is left alone by normalize.
    field.data[6] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FLOAT_EQ(field.getMax(), 1.0f);
    field.normalize();
    EXPECT_TRUE(std::isnan(field.data[6]));

    FlicVectorField zero(2, 1);
    memset(zero.data, 0, 16);
    EXPECT_EQ(zero.getMax(), 0.0f);
    FlicVectorField empty;
    EXPECT_EQ(empty.getMax(), 0.0f);
}

TEST(VectorField, SwapByteOrderReversesEachWord) {
    unsigned char bytes[9] = {1, 2, 3, 4, 5, 6, 7, 8, 99};
    swapByteOrder(2, bytes);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), 9),
              std::string("\4\3\2\1\10\7\6\5\x63", 9));
    swapByteOrder(0, bytes);
    swapByteOrder(-3, bytes);
    EXPECT_EQ(bytes[0], 4);
}

TEST(VectorFieldFiles, AsciiWriterLayoutAndRoundTrip) {
    TempDir dir;
    FlicVectorField field(2, 2);
    float values[8] = {1.5f, -2, 0.1f, 1e-7f, 123456789.0f, 0, 3, 4};
    memcpy(field.data, values, sizeof values);
    ASSERT_EQ(field.write(dir.path("a.vec").c_str(), 1), 1);
    EXPECT_EQ(readFile(dir.path("a.vec")),
              "FLIC VECTOR ASCII\n2 2\n1.5 -2\n0.1 1e-07\n1.23457e+08 0\n3 4\n");
    FlicVectorField read;
    ASSERT_EQ(read.read(dir.path("a.vec").c_str()), 1);
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.data[0], 1.5f);
    EXPECT_EQ(read.data[4], 123457000.0f); // six significant digits
}

TEST(VectorFieldFiles, BinaryIsWrittenInHostOrderAndReadBigEndian) {
    TempDir dir;
    FlicVectorField field = rampField(3, 2);
    ASSERT_EQ(field.write(dir.path("b.vec").c_str(), 0), 1);
    EXPECT_EQ(readFile(dir.path("b.vec")),
              "FLIC VECTOR BINARY\n3 2\n" + floatsAsBytes(field.data, 12));

    FlicVectorField read;
    ASSERT_EQ(read.read(dir.path("b.vec").c_str()), 1);
    float expected[12];
    memcpy(expected, field.data, sizeof expected);
    swapByteOrder(12, expected); // every float comes back byte-reversed
    EXPECT_EQ(floatsAsBytes(read.data, 12), floatsAsBytes(expected, 12));

    // A big-endian file reads as the intended values.
    float big[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    swapByteOrder(8, big);
    writeFile(dir.path("big.vec"), "FLIC VECTOR BINARY\n2 2\n" + floatsAsBytes(big, 8));
    ASSERT_EQ(read.read(dir.path("big.vec").c_str()), 1);
    EXPECT_EQ(read.vectors()[3].x, 7.0f);
    EXPECT_EQ(read.vectors()[3].y, 8.0f);

    // A short file reads as zero vectors where it ends.
    writeFile(dir.path("short.vec"), "FLIC VECTOR BINARY\n2 2\n" + floatsAsBytes(big, 3));
    read.setSize(2, 2);
    for (int i = 0; i < 8; i++)
        read.data[i] = 55;
    ASSERT_EQ(read.read(dir.path("short.vec").c_str()), 1);
    EXPECT_EQ(read.data[0], 1.0f);
    for (int i = 2; i < 8; i++)
        EXPECT_EQ(read.data[i], 0.0f) << i;
}

TEST(VectorFieldFiles, HeaderTolerance) {
    TempDir dir;
    std::string path = dir.path("h.vec");
    float big[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    swapByteOrder(8, big);
    FlicVectorField field;
    // Mode word before the header string: binary.
    writeFile(path, "BINARY FLIC VECTOR\n2 2\n" + floatsAsBytes(big, 8));
    ASSERT_EQ(field.read(path.c_str()), 1);
    EXPECT_EQ(field.data[7], 8.0f);
    // Lower-case or missing mode words read as ASCII; the value layout is free.
    writeFile(path, "xx FLIC VECTOR binary\n2 2\n1 2 3 4 5 6 7 8\n");
    ASSERT_EQ(field.read(path.c_str()), 1);
    EXPECT_EQ(field.data[5], 6.0f);
    writeFile(path, "FLIC VECTOR\n 2   2 extra\n1\n2\n3\n4\n\n5\n6\n7\n8");
    ASSERT_EQ(field.read(path.c_str()), 1);
    EXPECT_EQ(field.data[7], 8.0f);
}

TEST(VectorFieldFiles, DimensionLimitsAndFailures) {
    TempDir dir;
    std::string path = dir.path("d.vec");
    FlicVectorField field = rampField(2, 2);
    auto expectDimensionsRejected = [&](const std::string& dims) {
        writeFile(path, "FLIC VECTOR ASCII\n" + dims + "\n");
        MessageCapture capture;
        EXPECT_EQ(field.read(path.c_str()), 0) << dims;
        EXPECT_EQ(capture.onlyError(),
                  "FLIC error: can't open " + path + " (illegal vector field dimensions)");
        EXPECT_EQ(field.width, 2); // unchanged
        EXPECT_EQ(field.data[2], 1.5f);
    };
    expectDimensionsRejected("1 5");
    expectDimensionsRejected("5 1");
    expectDimensionsRejected("10001 2");
    expectDimensionsRejected("2 10001");
    expectDimensionsRejected("7");
    expectDimensionsRejected("");

    // The upper limit itself is accepted (binary, so reading is one block). The 800 MB of zero
    // vectors the short file leaves are never touched, in binary and in ASCII.
    long peak = testutil::peakResidentKilobytes();
    writeFile(path, "FLIC VECTOR BINARY\n10000 10000\n");
    ASSERT_EQ(field.read(path.c_str()), 1);
    EXPECT_EQ(field.width, 10000);
    EXPECT_EQ(field.data[2 * 10000 * 10000 - 1], 0.0f);
    writeFile(path, "FLIC VECTOR ASCII\n10000 10000\n1 2 3");
    EXPECT_EQ(field.read(path.c_str()), 0);
    EXPECT_EQ(field.data[2], 0.0f); // a pair cut short reads as a zero vector
    EXPECT_LT(testutil::peakResidentKilobytes() - peak, 100000L);

    MessageCapture capture;
    writeFile(path, "FLIC SCALAR ASCII\n2 2\n");
    EXPECT_EQ(field.read(path.c_str()), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open " + path + " (header string 'FLIC VECTOR' not found)");

    // Missing values: the field has its new size and the entries read so far.
    writeFile(path, "FLIC VECTOR ASCII\n3 2\n1 2\n3 4\n5");
    EXPECT_EQ(field.read(path.c_str()), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open " + path + " (illegal or missing vector values)");
    EXPECT_EQ(field.width, 3);
    EXPECT_EQ(field.height, 2);
    EXPECT_EQ(field.data[3], 4.0f);

    EXPECT_EQ(field.read("/nonexistent-dir/f.vec"), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open /nonexistent-dir/f.vec (No such file or directory)");
    EXPECT_EQ(field.write("/nonexistent-dir/f.vec", 1), 0);
    EXPECT_EQ(capture.errors().back(),
              "FLIC error: can't open /nonexistent-dir/f.vec (No such file or directory)");
}

TEST(VectorField, AllocationFailureLeavesTheFieldAsItWas) {
    FlicVectorField field = rampField(2, 2);
    testutil::AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(field.setSize(20000, 20000), 0); // 3.2 GB
    EXPECT_EQ(capture.onlyError(), "FLIC error: no memory for a vector field of 20000 x 20000");
    EXPECT_EQ(field.width, 2);
    EXPECT_EQ(field.data[2], 1.5f);
}

namespace {

typedef std::vector<float> Floats;

// The components x0, y0, x1, y1, ... of a field.
Floats componentsOf(const FlicVectorField& field) {
    return Floats(field.data, field.data + 2 * field.width * field.height);
}

FlicVectorField fieldOf(int width, int height, const Floats& components) {
    FlicVectorField field(width, height);
    memcpy(field.data, components.data(), components.size() * sizeof(float));
    return field;
}

std::vector<int> pixelBytes(const FlicImage& image) {
    std::vector<int> out;
    for (int y = 0; y < image.height; y++)
        for (int i = 0; i < 3 * image.width; i++)
            out.push_back(image.data[y * image.bytesPerLine + i]);
    return out;
}

const float kHalfPi = 1.5707964f;

} // namespace

TEST(VectorFieldSynthetic, Generators) {
    FlicVectorField field(5, 5);
    const float identity[2][2] = {{1, 0}, {0, 1}}, matrix[2][2] = {{1, 2}, {3, 4}};
    const float zero[2] = {0, 0}, offset[2] = {0.5f, -1};
    field.setLinear(identity, zero);
    EXPECT_EQ(field.vectors()[0].x + field.vectors()[0].y, -4.0f);
    EXPECT_EQ(field.vectors()[24].x + field.vectors()[24].y, 4.0f);
    EXPECT_EQ(field.vectors()[12].x + field.vectors()[12].y, 0.0f);
    EXPECT_EQ(field.vectors()[16].x, -1.0f); // (1, 3): u = -1
    field.setLinear(matrix, offset);         // (4, 0): u = 2, v = -2
    EXPECT_EQ(field.vectors()[4].x, 2 - 4 + 0.5f);
    EXPECT_EQ(field.vectors()[4].y, 6 - 8 - 1.0f);

    FlicVectorField circle(3, 3);
    circle.setCircle(0);
    EXPECT_EQ(componentsOf(circle), (Floats{0.5f, -0.5f, 0.5f, 0, 0.5f, 0.5f, 0, -0.5f, 0, 0, 0,
                                            0.5f, -0.5f, -0.5f, -0.5f, 0, -0.5f, 0.5f}));
    circle.setCircle(kHalfPi); // away from the centre
    EXPECT_FLOAT_EQ(circle.vectors()[8].x, 0.5f);
    EXPECT_FLOAT_EQ(circle.vectors()[8].y, 0.5f);

    FlicVectorField bruss(3, 4);
    bruss.setBrusselator(2, 3, 1, 2);
    EXPECT_EQ(bruss.vectors()[0].x, 0.5f); // (a / xmax, 0) at the origin
    EXPECT_EQ(bruss.vectors()[0].y, 0.0f);
    EXPECT_FLOAT_EQ(bruss.vectors()[11].x, (4 * 3 + 1 - 3 * 2) / 2.0f); // X = 2, Y = 3
    EXPECT_FLOAT_EQ(bruss.vectors()[11].y, (2 * 2 - 4 * 3) / 3.0f);

    field.setSaddle();
    EXPECT_EQ(field.width * field.height, 4);
    EXPECT_EQ(componentsOf(field), (Floats{-1, 1, 1, 1, -1, -1, 1, -1}));

    FlicVectorField line(3, 1); // a single row sits at the start of its range
    line.setLinear(identity, zero);
    EXPECT_EQ(componentsOf(line), (Floats{-2, -2, 0, -2, 2, -2}));
    line.setBrusselator(1, 1, 1, 1);
    EXPECT_EQ(line.vectors()[0].x, 1.0f);
}

TEST(VectorFieldDerived, FromScalarFieldAndImage) {
    FlicScalarField ramp(4, 3);
    for (int k = 0; k < 12; k++)
        ramp.data[k] = static_cast<float>(k % 4); // grows by 1 per column
    FlicVectorField field;
    field.fromScalarField(ramp, kHalfPi); // the gradient, borders doubled like the inside
    ASSERT_EQ(field.width * field.height, 12);
    for (int k = 0; k < 12; k++) {
        EXPECT_EQ(field.vectors()[k].x, 2.0f) << k;
        EXPECT_NEAR(field.vectors()[k].y, 0.0f, 2e-7f) << k;
    }
    FlicScalarField rows(1, 3); // one node wide: no difference across
    rows.data[0] = 0;
    rows.data[1] = 1;
    rows.data[2] = 5;
    field.fromScalarField(rows, 0); // along the iso-lines: (-dy, dx)
    EXPECT_EQ(componentsOf(field), (Floats{-2, 0, -5, 0, -8, 0}));

    MessageCapture capture;
    float unattached = 0;
    field.fromScalarField(FlicScalarField(3, 3, &unattached), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: scalar field 3 x 3 has no values");
    EXPECT_EQ(field.width, 1);

    FlicImage image(3, 2, 1); // differences in integers, negative ones too
    unsigned char bytes[6] = {200, 100, 0, 200, 130, 60};
    memcpy(image.data, bytes, 6);
    field.fromImage(image, kHalfPi);
    EXPECT_FLOAT_EQ(field.vectors()[1].x, -200.0f);
    EXPECT_FLOAT_EQ(field.vectors()[4].x, -140.0f);
    EXPECT_FLOAT_EQ(field.vectors()[5].y, 120.0f); // 2 * (60 - 0)
    FlicImage rgb(2, 2, 3);                        // through the grey values: 0, 76 / 0, 150
    unsigned char colours[12] = {0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 255, 0};
    memcpy(rgb.data, colours, 12);
    field.fromImage(rgb, 0);
    EXPECT_EQ(componentsOf(field), (Floats{0, 152, -148, 152, 0, 300, -148, 300}));
    EXPECT_EQ(rgb.nChannels, 3);
}

TEST(VectorFieldDerived, ColoursAndMagnitudes) {
    FlicVectorField field = fieldOf(3, 2, {-1, 0, 1, 0, 0, 1, 0, -1, -1, -0.0f, 0, 0});
    FlicImage image;
    field.vecToColor(image, 1);
    EXPECT_EQ(pixelBytes(image), (std::vector<int>{255, 0, 0,      // atan2 = pi: hue 1, red
                                                   0, 255, 255,    // hue 0.5
                                                   127, 0, 255,    // hue 0.75
                                                   127, 255, 0,    // hue 0.25
                                                   255, 0, 0,      // atan2 = -pi: hue 0
                                                   0, 255, 255})); // zero vector: hue 0.5

    // Stretch sampling: columns at 0, 0.4995, 0.999 between (1, 0) and (-1, 0). A grey image
    // becomes RGB; a wrapped one is written by its rows.
    FlicVectorField across = fieldOf(2, 2, {1, 0, -1, 0, 1, 0, -1, 0});
    FlicImage grey(3, 1, 1);
    across.vecToColor(grey, 0);
    EXPECT_EQ(pixelBytes(grey), (std::vector<int>{0, 255, 255, 0, 255, 255, 255, 0, 0}));
    unsigned char memory[14];
    memset(memory, 9, sizeof memory);
    FlicImage wrapped(2, 2, 3, 7, memory);
    across.vecToColor(wrapped, 0);
    EXPECT_EQ(memory[3] + memory[6] + memory[13], 255 + 9 + 9);

    FlicVectorField lengths = fieldOf(2, 2, {0, 0, 3, 4, 0, 0, 3, 4});
    FlicScalarField result;
    lengths.magnitude(result, 1);
    EXPECT_EQ(Floats(result.data, result.data + 4), (Floats{0, 5, 0, 5}));
    FlicScalarField stretched(3, 1);
    lengths.magnitude(stretched, 0);
    EXPECT_FLOAT_EQ(stretched.data[1], 5 * 0.4995f);
    EXPECT_FLOAT_EQ(stretched.data[2], 5 * 0.999f);
    float unattached = 0;
    FlicScalarField recorded(2, 1, &unattached); // gets storage of its recorded size
    lengths.magnitude(recorded, 0);
    ASSERT_NE(recorded.data, nullptr);
    EXPECT_FLOAT_EQ(recorded.data[1], 5 * 0.999f);
}

TEST(VectorFieldDerived, ResampleIsCellCentredBilinear) {
    // x = column + 2 * row, y = 10 x: samples at 0.25 and 0.75 each way.
    FlicVectorField field = fieldOf(2, 2, {0, 0, 1, 10, 2, 20, 3, 30}), target;
    field.resample(2, 2, &target);
    EXPECT_EQ(componentsOf(target),
              (Floats{0.75f, 7.5f, 1.25f, 12.5f, 1.75f, 17.5f, 2.25f, 22.5f}));
    EXPECT_EQ(field.vectors()[3].x, 3.0f);
    // Past the last column the neighbour is mirrored: 0, 1, 4 sampled at 1.25 and 1.75.
    FlicVectorField ramp = fieldOf(3, 1, {0, 0, 1, 0, 4, 0});
    ramp.resample(4, 1, &target);
    EXPECT_EQ(componentsOf(target), (Floats{0.25f, 0, 0.75f, 0, 1.75f, 0, 3.25f, 0}));

    // In place the field owns the new storage; a caller's buffer is left alone.
    float caller[8] = {0, 0, 1, 10, 2, 20, 3, 30};
    FlicVectorField wrapped(2, 2, caller);
    wrapped.resample(1, 1);
    EXPECT_EQ(wrapped.data, wrapped.buffer);
    EXPECT_EQ(componentsOf(wrapped), (Floats{1.5f, 15}));
    EXPECT_EQ(caller[7], 30.0f);
    field.resample(4, 3);
    EXPECT_EQ(field.width * field.height, 12);
    EXPECT_FLOAT_EQ(field.vectors()[0].x, 0.125f + 2 * (1.0f / 6));

    FlicVectorField single = fieldOf(1, 1, {4, 5}); // degenerate sources stay in bounds
    single.resample(3, 2, &target);
    EXPECT_EQ(componentsOf(target), (Floats{4, 5, 4, 5, 4, 5, 4, 5, 4, 5, 4, 5}));
    FlicVectorField().resample(2, 1, &target);
    EXPECT_EQ(componentsOf(target), (Floats{0, 0, 0, 0}));
    MessageCapture capture;
    target.resample(100000, 100000);
    EXPECT_EQ(target.width, 2);
}
