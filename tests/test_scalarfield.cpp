// FlicScalarField container, generators, "FLIC SCALAR" files, range and pseudo-colouring.
#include "scalarfield.h"
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
