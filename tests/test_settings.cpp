// The setting-name tables: every name maps to its enum value and back, aliases are accepted but
// not listed, and the list of names is cut to the caller's buffer.
#include "compute.h"
#include "picture.h"
#include "settings.h"

#include <gtest/gtest.h>

#include <string>

namespace {

int valueOf(const FlicSettingTable& table, const char* name) {
    int value = -99;
    EXPECT_EQ(1, flicSettingValue(table, name, value)) << table.setting << " " << name;
    return value;
}

std::string namesOf(const FlicSettingTable& table) {
    char text[128];
    return flicSettingNames(table, text, sizeof text);
}

TEST(Settings, NamesMapToTheEnumsAndBack) {
    EXPECT_EQ(FlicCompute::BOX, valueOf(flicKernelNames, "box"));
    EXPECT_EQ(FlicCompute::TRIANGLE, valueOf(flicKernelNames, "triangle"));
    EXPECT_EQ(FlicCompute::CUBIC, valueOf(flicKernelNames, "cubic"));
    EXPECT_EQ(FlicCompute::CONSTANT, valueOf(flicInterpolationNames, "constant"));
    EXPECT_EQ(FlicCompute::CLOSED, valueOf(flicBorderNames, "closed"));
    EXPECT_EQ(2, valueOf(flicSeedingNames, "sobol"));
    EXPECT_EQ(1, valueOf(flicNoiseNames, "binary"));
    EXPECT_EQ(FlicPicture::DIRECTION, valueOf(flicColourNames, "direction"));
    EXPECT_EQ(FlicPicture::OVERLAY, valueOf(flicBlendNames, "overlay"));
    EXPECT_EQ(FlicPicture::EQUALIZE_ADAPTIVE, valueOf(flicEqualizeNames, "adaptive"));
    // euler is another word for the fixed-step pair; the pair is named midpoint.
    EXPECT_EQ(1, valueOf(flicIntegratorNames, "euler"));
    EXPECT_STREQ("midpoint", flicSettingName(flicIntegratorNames, 1));
    EXPECT_STREQ("cubic", flicSettingName(flicKernelNames, FlicCompute::CUBIC));
    EXPECT_EQ(nullptr, flicSettingName(flicKernelNames, 7));

    // Unknown, differently cased and null names are refused and leave the value alone.
    int value = 42;
    EXPECT_EQ(0, flicSettingValue(flicKernelNames, "gauss", value));
    EXPECT_EQ(0, flicSettingValue(flicKernelNames, "Box", value));
    EXPECT_EQ(0, flicSettingValue(flicKernelNames, nullptr, value));
    EXPECT_EQ(42, value);
}

TEST(Settings, ListsForMessages) {
    EXPECT_EQ("box, triangle, cubic", namesOf(flicKernelNames));
    EXPECT_EQ("rk43, midpoint", namesOf(flicIntegratorNames));
    EXPECT_EQ("periodic, closed", namesOf(flicBorderNames));
    EXPECT_EQ("none, magnitude, direction", namesOf(flicColourNames));
    EXPECT_STREQ("kernel", flicKernelNames.setting);
    // A short buffer keeps the names that fit whole, always terminated.
    char shortText[12];
    EXPECT_STREQ("box", flicSettingNames(flicKernelNames, shortText, sizeof shortText));
    char one[1];
    EXPECT_STREQ("", flicSettingNames(flicKernelNames, one, 1));
}

} // namespace
