// FlicVectorField container, utilities, "FLIC VECTOR" files, synthetic and derived fields.
#include "vectorfield.h"
#include "image.h"
#include "scalarfield.h"
#include "testutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

using namespace testutil;
using Floats = std::vector<float>;
using Bytes = std::vector<int>;

namespace {

FlicVectorField fieldOf(int width, int height, const Floats& components) {
    FlicVectorField field(width, height);
    std::copy(components.begin(), components.end(), field.data);
    return field;
}

// The components x0, y0, x1, y1, ... of a field.
Floats componentsOf(const FlicVectorField& field) {
    return Floats(field.data, field.data + 2 * field.width * field.height);
}

std::string bytesOf(const float* values, int count) {
    return std::string(reinterpret_cast<const char*>(values), 4 * count);
}

const float kHalfPi = 1.5707964f;
const Floats kOneToEight = {1, 2, 3, 4, 5, 6, 7, 8};

} // namespace

TEST(VectorField, OwnershipResizingAndCallback) {
    float caller[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    {
        FlicVectorField wrapped(2, 2, caller);
        EXPECT_TRUE(wrapped.data == caller && wrapped.buffer == nullptr);
        EXPECT_EQ(wrapped.vectors()[3].y, 8.0f);
        wrapped.setSize(2, 2); // same size: moves to new, owned storage
        EXPECT_TRUE(wrapped.data != caller && wrapped.data == wrapped.buffer);
        wrapped.data[0] = -1;
    }
    EXPECT_EQ(caller[0], 1.0f); // untouched, not freed

    // The callback stores inside the field only (guard values on either side).
    float memory[16] = {};
    FlicVectorField field(3, 2, memory + 2);
    float values[6] = {4, 5, 9, 9, 9, 9};
    for (auto p : std::vector<std::pair<int, int>>{{2, 1}, {3, 0}, {2, -1}, {0, 2}, {-1, 1}})
        FlicVectorField::pixelCallback(p.first, p.second, values, &field);
    const Floats stored = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 5};
    EXPECT_EQ(Floats(memory, memory + 16),
              (Floats{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 5, 0, 0}));
    FlicVectorField copy(field);
    EXPECT_NE(copy.data, field.data);
    EXPECT_EQ(componentsOf(copy), stored);
    field.setSize(0, 7);
    EXPECT_TRUE(!field.buffer && !field.data && field.width == 0 && field.height == 7);

    MessageCapture capture;
    EXPECT_EQ(copy.setSize(100000, 100000), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: vector field size 100000 x 100000 is too large");
    EXPECT_EQ(componentsOf(copy), stored);
}

TEST(VectorField, MaxNormalizeAndByteOrder) {
    FlicVectorField field = fieldOf(2, 2, {0, 0, 3, 4, -6, 8, 0, 0});
    EXPECT_FLOAT_EQ(field.getMax(), 10.0f);
    field.normalize(); // zero vectors stay zero
    EXPECT_EQ(componentsOf(field), (Floats{0, 0, 0.6f, 0.8f, -0.6f, 0.8f, 0, 0}));
    // A NaN length never becomes the maximum and is left alone by normalize.
    field.data[6] = NAN;
    EXPECT_FLOAT_EQ(field.getMax(), 1.0f);
    field.normalize();
    EXPECT_TRUE(std::isnan(field.data[6]));
    EXPECT_EQ(fieldOf(2, 1, {0, 0, 0, 0}).getMax() + FlicVectorField().getMax(), 0.0f);

    unsigned char bytes[9] = {1, 2, 3, 4, 5, 6, 7, 8, 99};
    swapByteOrder(2, bytes);
    swapByteOrder(0, bytes);
    swapByteOrder(-3, bytes);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), 9),
              std::string("\4\3\2\1\10\7\6\5\x63", 9));
}

TEST(VectorFieldFiles, WritersReadersAndHeaderTolerance) {
    TempDir dir;
    std::string path = dir.path("f.vec");
    FlicVectorField field = fieldOf(2, 2, {1.5f, -2, 0.1f, 1e-7f, 123456789.0f, 0, 3, 4}), read;
    ASSERT_EQ(field.write(path.c_str(), 1), 1);
    EXPECT_EQ(readFile(path), "FLIC VECTOR ASCII\n2 2\n1.5 -2\n0.1 1e-07\n1.23457e+08 0\n3 4\n");
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(componentsOf(read), (Floats{1.5f, -2, 0.1f, 1e-7f, 123457000.0f, 0, 3, 4}));
    // Binary files are written in host order and read big-endian: every float comes back
    // byte-reversed.
    ASSERT_EQ(field.write(path.c_str(), 0), 1);
    EXPECT_EQ(readFile(path), "FLIC VECTOR BINARY\n2 2\n" + bytesOf(field.data, 8));
    ASSERT_EQ(read.read(path.c_str()), 1);
    swapByteOrder(8, field.data);
    EXPECT_EQ(bytesOf(read.data, 8), bytesOf(field.data, 8));

    // Big-endian values; the mode word anywhere on the line, in capitals (else ASCII); any
    // layout of ASCII values.
    float big[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    swapByteOrder(8, big);
    for (std::string text : {"BINARY FLIC VECTOR\n2 2\n" + bytesOf(big, 8),
                             std::string("xx FLIC VECTOR binary\n2 2\n1 2 3 4 5 6 7 8\n"),
                             std::string("FLIC VECTOR\n 2   2 extra\n1\n2\n3\n4\n\n5\n6\n7\n8")}) {
        writeFile(path, text);
        ASSERT_EQ(read.read(path.c_str()), 1) << text;
        EXPECT_EQ(componentsOf(read), kOneToEight) << text;
    }
    // A short binary file reads as zero vectors where it ends.
    writeFile(path, "FLIC VECTOR BINARY\n2 2\n" + bytesOf(big, 3));
    ASSERT_EQ(read.read(path.c_str()), 1);
    EXPECT_EQ(componentsOf(read), (Floats{1, 2, 0, 0, 0, 0, 0, 0}));
}

TEST(VectorFieldFiles, DimensionLimitsAndFailures) {
    TempDir dir;
    std::string path = dir.path("d.vec");
    FlicVectorField field = fieldOf(2, 2, kOneToEight);
    MessageCapture capture;
    auto fails = [&](const std::string& contents, const std::string& reason) {
        writeFile(path, contents);
        capture.errors().clear();
        EXPECT_EQ(field.read(path.c_str()), 0) << contents;
        EXPECT_EQ(capture.onlyError(), "FLIC error: can't open " + path + " (" + reason + ")");
    };
    for (std::string dims : {"1 5", "5 1", "10001 2", "2 10001", "7", ""})
        fails("FLIC VECTOR ASCII\n" + dims + "\n", "illegal vector field dimensions");
    fails("FLIC SCALAR ASCII\n2 2\n", "header string 'FLIC VECTOR' not found");
    EXPECT_EQ(componentsOf(field), kOneToEight); // unchanged
    // Missing values: the field has its new size and the entries read so far.
    fails("FLIC VECTOR ASCII\n3 2\n1 2\n3 4\n5", "illegal or missing vector values");
    EXPECT_EQ(componentsOf(field), (Floats{1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0}));

    for (std::string dims : {"10000 2", "2 10000"}) { // the limits themselves are accepted
        writeFile(path, "FLIC VECTOR BINARY\n" + dims + "\n");
        ASSERT_EQ(field.read(path.c_str()), 1) << dims;
        EXPECT_EQ(componentsOf(field), Floats(40000, 0.0f));
    }
    // The 800 MB of zero vectors a short file of the largest size leaves are never touched,
    // in binary and in ASCII (where a pair cut short reads as a zero vector).
    long peak = peakResidentKilobytes();
    writeFile(path, "FLIC VECTOR BINARY\n10000 10000\n");
    ASSERT_EQ(field.read(path.c_str()), 1);
    EXPECT_EQ(field.data[2 * 10000 * 10000 - 1], 0.0f);
    fails("FLIC VECTOR ASCII\n10000 10000\n1 2 3", "illegal or missing vector values");
    EXPECT_TRUE(field.data[0] == 1.0f && field.data[2] == 0.0f);
    EXPECT_LT(peakResidentKilobytes() - peak, 100000L);
    capture.errors().clear();
    EXPECT_EQ(field.read("/nonexistent-dir/f.vec") + field.write("/nonexistent-dir/f.vec", 1), 0);
    EXPECT_EQ(capture.errors(),
              std::vector<std::string>(
                  2, "FLIC error: can't open /nonexistent-dir/f.vec (No such file or directory)"));
}

TEST(VectorField, AllocationFailureLeavesTheFieldAsItWas) {
    FlicVectorField field = fieldOf(2, 2, kOneToEight);
    AddressSpaceLimit limit(256LL << 20);
    if (!limit.active()) GTEST_SKIP() << "address space cannot be limited in this build";
    MessageCapture capture;
    EXPECT_EQ(field.setSize(20000, 20000), 0); // 3.2 GB
    EXPECT_EQ(capture.onlyError(), "FLIC error: no memory for a vector field of 20000 x 20000");
    EXPECT_EQ(componentsOf(field), kOneToEight);
}

TEST(VectorFieldSynthetic, Generators) {
    const float identity[2][2] = {{1, 0}, {0, 1}}, matrix[2][2] = {{1, 2}, {3, 4}};
    const float zero[2] = {0, 0}, offset[2] = {0.5f, -1};
    FlicVectorField field(3, 3), line(3, 1), bruss(3, 4);
    field.setLinear(identity, zero); // the grid spans -2 .. 2 both ways
    EXPECT_EQ(componentsOf(field),
              (Floats{-2, -2, 0, -2, 2, -2, -2, 0, 0, 0, 2, 0, -2, 2, 0, 2, 2, 2}));
    field.setLinear(matrix, offset); // (2, 0): u = 2, v = -2
    EXPECT_EQ(field.vectors()[2].x, 2 - 4 + 0.5f);
    EXPECT_EQ(field.vectors()[2].y, 6 - 8 - 1.0f);
    line.setLinear(identity, zero); // a single row sits at the start of its range
    EXPECT_EQ(componentsOf(line), (Floats{-2, -2, 0, -2, 2, -2}));
    line.setBrusselator(1, 1, 1, 1);
    EXPECT_EQ(line.vectors()[0].x, 1.0f);

    field.setCircle(0);
    EXPECT_EQ(componentsOf(field), (Floats{0.5f, -0.5f, 0.5f, 0, 0.5f, 0.5f, 0, -0.5f, 0, 0, 0,
                                           0.5f, -0.5f, -0.5f, -0.5f, 0, -0.5f, 0.5f}));
    field.setCircle(kHalfPi); // away from the centre
    EXPECT_FLOAT_EQ(field.vectors()[8].x, 0.5f);
    EXPECT_FLOAT_EQ(field.vectors()[8].y, 0.5f);

    bruss.setBrusselator(2, 3, 1, 2);
    EXPECT_EQ(bruss.vectors()[0].x, 0.5f); // (a / xmax, 0) at the origin
    EXPECT_EQ(bruss.vectors()[0].y, 0.0f);
    EXPECT_FLOAT_EQ(bruss.vectors()[11].x, (4 * 3 + 1 - 3 * 2) / 2.0f); // X = 2, Y = 3
    EXPECT_FLOAT_EQ(bruss.vectors()[11].y, (2 * 2 - 4 * 3) / 3.0f);

    field.setSaddle();
    EXPECT_EQ(field.width * field.height, 4);
    EXPECT_EQ(componentsOf(field), (Floats{-1, 1, 1, 1, -1, -1, 1, -1}));
}

TEST(VectorFieldDerived, FromScalarFieldAndImage) {
    FlicScalarField ramp(4, 3), rows(1, 3);
    for (int k = 0; k < 12; k++)
        ramp.data[k] = static_cast<float>(k % 4); // grows by 1 per column
    FlicVectorField field;
    field.fromScalarField(ramp, kHalfPi); // the gradient, borders doubled like the inside
    ASSERT_EQ(field.width * field.height, 12);
    for (int k = 0; k < 12; k++) {
        EXPECT_EQ(field.vectors()[k].x, 2.0f) << k;
        EXPECT_NEAR(field.vectors()[k].y, 0.0f, 2e-7f) << k;
    }
    rows.data[0] = 0;
    rows.data[1] = 1;
    rows.data[2] = 5;
    field.fromScalarField(rows, 0); // along the iso-lines: (-dy, dx); no difference across
    EXPECT_EQ(componentsOf(field), (Floats{-2, 0, -5, 0, -8, 0}));
    MessageCapture capture;
    float unattached = 0;
    field.fromScalarField(FlicScalarField(3, 3, &unattached), 0);
    EXPECT_EQ(capture.onlyError(), "FLIC error: scalar field 3 x 3 has no values");
    EXPECT_EQ(field.width, 1);

    // Differences in integers, negative ones too.
    field.fromImage(greyImage(3, 2, {200, 100, 0, 200, 130, 60}), kHalfPi);
    EXPECT_FLOAT_EQ(field.vectors()[1].x, -200.0f);
    EXPECT_FLOAT_EQ(field.vectors()[4].x, -140.0f);
    EXPECT_FLOAT_EQ(field.vectors()[5].y, 120.0f); // 2 * (60 - 0)
    // RGB through its grey values: 0, 76 / 0, 150; the image itself stays RGB.
    FlicImage rgb = makeImage(2, 2, 3, {0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 255, 0});
    field.fromImage(rgb, 0);
    EXPECT_EQ(componentsOf(field), (Floats{0, 152, -148, 152, 0, 300, -148, 300}));
    EXPECT_EQ(rgb.nChannels, 3);
}

TEST(VectorFieldDerived, ColoursAndMagnitudes) {
    FlicVectorField field = fieldOf(3, 2, {-1, 0, 1, 0, 0, 1, 0, -1, -1, -0.0f, 0, 0});
    FlicImage image;
    field.vecToColor(image, 1);
    // Hues 1 (atan2 = pi: red), 0.5, 0.75, 0.25, 0 (atan2 = -pi) and 0.5 (zero vector).
    EXPECT_EQ(pixelBytes(image),
              (Bytes{255, 0, 0, 0, 255, 255, 127, 0, 255, 127, 255, 0, 255, 0, 0, 0, 255, 255}));

    // Stretch sampling: columns at 0, 0.4995, 0.999 between (1, 0) and (-1, 0). A grey image
    // becomes RGB; a wrapped one is written by its rows.
    FlicVectorField across = fieldOf(2, 2, {1, 0, -1, 0, 1, 0, -1, 0});
    FlicImage grey(3, 1, 1);
    across.vecToColor(grey, 0);
    EXPECT_EQ(pixelBytes(grey), (Bytes{0, 255, 255, 0, 255, 255, 255, 0, 0}));
    unsigned char memory[14];
    memset(memory, 9, sizeof memory);
    FlicImage wrapped(2, 2, 3, 7, memory);
    across.vecToColor(wrapped, 0);
    EXPECT_EQ(memory[3] + memory[6] + memory[13], 255 + 9 + 9);

    FlicVectorField lengths = fieldOf(2, 2, {0, 0, 3, 4, 0, 0, 3, 4});
    FlicScalarField result, stretched(3, 1);
    lengths.magnitude(result, 1);
    EXPECT_EQ(Floats(result.data, result.data + 4), (Floats{0, 5, 0, 5}));
    lengths.magnitude(stretched, 0); // stretch sampling as for the colours
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
    fieldOf(3, 1, {0, 0, 1, 0, 4, 0}).resample(4, 1, &target);
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

    fieldOf(1, 1, {4, 5}).resample(3, 2, &target); // degenerate sources stay in bounds
    EXPECT_EQ(componentsOf(target), (Floats{4, 5, 4, 5, 4, 5, 4, 5, 4, 5, 4, 5}));
    FlicVectorField().resample(2, 1, &target);
    EXPECT_EQ(componentsOf(target), (Floats{0, 0, 0, 0}));
    MessageCapture capture;
    target.resample(100000, 100000);
    EXPECT_EQ(target.width, 2);
}
