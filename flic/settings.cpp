// The setting-name tables and their look-ups.
#include "settings.h"

#include "compute.h"
#include "picture.h"

#include <cstdio>
#include <cstring>

namespace {

const FlicSettingName kernels[] = {{"box", FlicCompute::BOX, 0},
                                   {"triangle", FlicCompute::TRIANGLE, 0},
                                   {"cubic", FlicCompute::CUBIC, 0},
                                   {nullptr, 0, 0}};
const FlicSettingName integrators[] = {
    {"rk43", 0, 0}, {"midpoint", 1, 0}, {"euler", 1, 1}, {nullptr, 0, 0}};
const FlicSettingName seedings[] = {
    {"raster", 0, 0}, {"pattern", 1, 0}, {"sobol", 2, 0}, {nullptr, 0, 0}};
const FlicSettingName interpolations[] = {{"bilinear", FlicCompute::BILINEAR, 0},
                                          {"constant", FlicCompute::CONSTANT, 0},
                                          {nullptr, 0, 0}};
const FlicSettingName borders[] = {
    {"periodic", FlicCompute::PERIODIC, 0}, {"closed", FlicCompute::CLOSED, 0}, {nullptr, 0, 0}};
const FlicSettingName noises[] = {{"binary", 1, 0}, {"uniform", 0, 0}, {nullptr, 0, 0}};
const FlicSettingName colours[] = {{"none", FlicPicture::NO_COLOUR, 0},
                                   {"magnitude", FlicPicture::MAGNITUDE, 0},
                                   {"direction", FlicPicture::DIRECTION, 0},
                                   {nullptr, 0, 0}};
const FlicSettingName blends[] = {{"multiply", FlicPicture::MULTIPLY, 0},
                                  {"lightness", FlicPicture::LIGHTNESS, 0},
                                  {"overlay", FlicPicture::OVERLAY, 0},
                                  {nullptr, 0, 0}};
const FlicSettingName equalizations[] = {{"none", FlicPicture::NO_EQUALIZE, 0},
                                         {"global", FlicPicture::EQUALIZE_GLOBAL, 0},
                                         {"adaptive", FlicPicture::EQUALIZE_ADAPTIVE, 0},
                                         {nullptr, 0, 0}};

} // namespace

const FlicSettingTable flicKernelNames = {"kernel", kernels};
const FlicSettingTable flicIntegratorNames = {"integrator", integrators};
const FlicSettingTable flicSeedingNames = {"seeding", seedings};
const FlicSettingTable flicInterpolationNames = {"interpolation", interpolations};
const FlicSettingTable flicBorderNames = {"border", borders};
const FlicSettingTable flicNoiseNames = {"noise", noises};
const FlicSettingTable flicColourNames = {"colour", colours};
const FlicSettingTable flicBlendNames = {"blend", blends};
const FlicSettingTable flicEqualizeNames = {"equalize", equalizations};

int flicSettingValue(const FlicSettingTable& table, const char* name, int& value) {
    for (const FlicSettingName* entry = table.names; name && entry->name; entry++)
        if (strcmp(entry->name, name) == 0) {
            value = entry->value;
            return 1;
        }
    return 0;
}

const char* flicSettingName(const FlicSettingTable& table, int value) {
    for (const FlicSettingName* entry = table.names; entry->name; entry++)
        if (!entry->alias && entry->value == value) return entry->name;
    return nullptr;
}

const char* flicSettingNames(const FlicSettingTable& table, char* text, size_t size) {
    if (!text || size == 0) return text;
    text[0] = '\0';
    size_t used = 0;
    for (const FlicSettingName* entry = table.names; entry->name; entry++) {
        if (entry->alias) continue;
        int written = snprintf(text + used, size - used, "%s%s", used ? ", " : "", entry->name);
        if (written < 0 || static_cast<size_t>(written) >= size - used) {
            text[used] = '\0'; // only names that fit whole
            break;
        }
        used += written;
    }
    return text;
}
