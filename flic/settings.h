// The words front ends use for the engine's and the picture's settings: one table per setting,
// mapping each name to the value of its enum (FlicCompute, FlicPicture), with the list of valid
// names for messages. Command line and Python module read these tables instead of keeping their
// own, so a setting is spelled the same everywhere.
#ifndef MUSKEIP_SETTINGS_H
#define MUSKEIP_SETTINGS_H

#include "api.h"

#include <cstddef>

// One name of a setting. An alias is accepted but left out of the listed names.
struct FlicSettingName {
    const char* name;
    int value;
    int alias;
};

// The names of one setting, ending with a null name; `setting` names the setting itself.
struct FlicSettingTable {
    const char* setting;
    const FlicSettingName* names;
};

// kernel: box, triangle, cubic (FlicCompute::FilterKernel).
MUSKEIP_API extern const FlicSettingTable flicKernelNames;
// integrator: rk43 (0, the adaptive pair), midpoint (1, the fixed-step pair of useEuler; euler
// is an alias).
MUSKEIP_API extern const FlicSettingTable flicIntegratorNames;
// seeding: raster (0), pattern (1), sobol (2): the engine's seeding orders.
MUSKEIP_API extern const FlicSettingTable flicSeedingNames;
// interpolation: bilinear, constant (FlicCompute::InterpolationMethod).
MUSKEIP_API extern const FlicSettingTable flicInterpolationNames;
// border: periodic, closed (FlicCompute::BorderMode).
MUSKEIP_API extern const FlicSettingTable flicBorderNames;
// noise: binary (1), uniform (0): the binary flag of FlicImage::createRandom.
MUSKEIP_API extern const FlicSettingTable flicNoiseNames;
// colour: none, magnitude, direction (FlicPicture::ColourSource; a scalar field is given as
// data, not by name).
MUSKEIP_API extern const FlicSettingTable flicColourNames;
// blend: multiply, lightness, overlay (FlicPicture::BlendMode).
MUSKEIP_API extern const FlicSettingTable flicBlendNames;
// equalize: none, global, adaptive (FlicPicture::EqualizeMode).
MUSKEIP_API extern const FlicSettingTable flicEqualizeNames;

// The value `name` stands for. Returns 1 with `value` set, or 0 for a name not in the table
// (nothing is reported; the caller words the message, see flicSettingNames).
MUSKEIP_API int flicSettingValue(const FlicSettingTable& table, const char* name, int& value);
// The first name that is not an alias for `value`, or null.
MUSKEIP_API const char* flicSettingName(const FlicSettingTable& table, int value);
// The valid names without aliases, separated by ", " ("box, triangle, cubic"), into `text` of
// `size` bytes (the names that fit whole; always terminated). Returns `text`.
MUSKEIP_API const char* flicSettingNames(const FlicSettingTable& table, char* text, size_t size);

#endif
