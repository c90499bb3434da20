// Colour maps: presets, lookup, transformations, the icol text files; RGB / HSL conversions.
#include "colormap.h"

#include "colormap_common.h"
#include "messages.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

const float kInverse255 = 1.0f / 255.0f;

// Truncates toward zero into an int; NaN gives 0 and values beyond the int range are held at
// its ends, so no conversion is undefined.
int truncate_to_int(float v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0f) return INT_MAX;
    if (v <= -2147483648.0f) return INT_MIN;
    return static_cast<int>(v);
}

void set_entry(float* entry, float r, float g, float b) {
    entry[0] = r;
    entry[1] = g;
    entry[2] = b;
}

int report_illegal_format(FILE* file, const char* filename) {
    fclose(file);
    fprintf(stderr, "Illegal format in %s.\n", filename);
    return 0;
}

// Applies the four (index, r, g, b) groups of one line of the four-group layout; false when
// an index lies outside the table.
bool apply_groups(float colors[256][3], const int numbers[16]) {
    for (int group = 0; group < 4; group++) {
        const int* n = numbers + 4 * group;
        if (n[0] < 0 || n[0] > 255) return false;
        set_entry(colors[n[0]], n[1] * kInverse255, n[2] * kInverse255, n[3] * kInverse255);
    }
    return true;
}

int scan_sixteen(const char* line, int n[16]) {
    return sscanf(line, "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d", &n[0], &n[1], &n[2], &n[3], &n[4],
                  &n[5], &n[6], &n[7], &n[8], &n[9], &n[10], &n[11], &n[12], &n[13], &n[14],
                  &n[15]);
}

// Reads the remaining 63 lines of the four-group layout.
bool read_grouped_table(FILE* file, float colors[256][3]) {
    char line[256];
    int numbers[16];
    for (int lines = 1; lines < 64; lines++) {
        if (!fgets(line, sizeof line, file) || scan_sixteen(line, numbers) != 16) return false;
        if (!apply_groups(colors, numbers)) return false;
    }
    return true;
}

// Reads entries 1..255 of the plain layout, one "r g b" line each.
bool read_plain_table(FILE* file, float colors[256][3]) {
    char line[256];
    int r, g, b;
    for (int i = 1; i < 256; i++) {
        if (!fgets(line, sizeof line, file) || sscanf(line, "%d%d%d", &r, &g, &b) != 3)
            return false;
        set_entry(colors[i], r * kInverse255, g * kInverse255, b * kInverse255);
    }
    return true;
}

} // namespace

// --- HSL ---------------------------------------------------------------------------------------

void RGB_to_HSL(const float* rgb, float* hsl) {
    float r = rgb[0], g = rgb[1], b = rgb[2];
    float mx = r > g ? r : g;
    if (b > mx) mx = b;
    float mn = r < g ? r : g;
    if (b < mn) mn = b;
    float l = (mx + mn) / 2;
    hsl[2] = l;
    if (l <= 0) return;
    float d = mx - mn;
    hsl[1] = d;
    if (!(d > 0)) return;
    double dd = d, dmx = mx, dmn = mn;
    hsl[1] = static_cast<float>(l <= 0.5 ? dd / (dmx + dmn) : dd / (2.0 - dmx - dmn));
    float r2 = (mx - r) / d, g2 = (mx - g) / d, b2 = (mx - b) / d;
    float h;
    if (r == mx)
        h = g == mn ? 5 + b2 : 1 - g2;
    else if (g == mx)
        h = b == mn ? 1 + r2 : 3 - b2;
    else
        h = r == mn ? 3 + g2 : 5 - r2;
    hsl[0] = h / 6;
}

void HSL_to_RGB(const float* hsl, float* rgb) {
    float h = hsl[0], s = hsl[1], l = hsl[2];
    float v = l <= 0.5 ? static_cast<float>(l * (1.0 + s)) : l + s - l * s;
    if (!(v > 0)) {
        set_entry(rgb, 0, 0, 0);
        return;
    }
    float m = l + l - v;
    float sv = (v - m) / v;
    float x = h * 6;
    // Only sextants 0..5 write; anything else (NaN and huge hues included) leaves rgb alone.
    if (!(x > -1.0f && x < 6.0f)) return;
    int sextant = static_cast<int>(x);
    float fract = x - sextant;
    float vsf = v * sv * fract;
    float mid1 = m + vsf;
    float mid2 = v - vsf;
    switch (sextant) {
    case 0:
        set_entry(rgb, v, mid1, m);
        break;
    case 1:
        set_entry(rgb, mid2, v, m);
        break;
    case 2:
        set_entry(rgb, m, v, mid1);
        break;
    case 3:
        set_entry(rgb, m, mid2, v);
        break;
    case 4:
        set_entry(rgb, mid1, m, v);
        break;
    case 5:
        set_entry(rgb, v, m, mid2);
        break;
    default:
        break;
    }
}

// --- Colour map --------------------------------------------------------------------------------

FlicColormap::FlicColormap() : min(0.0f), max(1.0f), scale(1.0f) {
    createGreyRamp();
}

void FlicColormap::setMinMax(float min, float max) {
    this->min = min;
    this->max = max;
    scale = 1 / (max - min);
}

void FlicColormap::getMinMax(float& min, float& max) const {
    min = this->min;
    max = this->max;
}

void FlicColormap::createGreyRamp() {
    for (int i = 0; i < 256; i++) {
        float v = i / 255.0f;
        set_entry(colors[i], v, v, v);
    }
}

void FlicColormap::createHotIron() {
    for (int i = 0; i < 128; i++) {
        set_entry(colors[i], 1, i / 127.0f, 0);
        set_entry(colors[128 + i], 1, 1, i / 127.0f);
    }
}

void FlicColormap::createBlueWhiteRed() {
    for (int i = 0; i < 128; i++)
        set_entry(colors[i], i / 127.0f, i / 127.0f, 1);
    for (int k = 0; k < 128; k++) {
        float v = (127 - k) / 127.0f;
        set_entry(colors[128 + k], 1, v, v);
    }
}

void FlicColormap::createHueRamp() {
    for (int i = 0; i < 256; i++) {
        float hsl[3] = {static_cast<float>(i / 255.0 * 5 / 6), 1.0f, 0.5f};
        HSL_to_RGB(hsl, colors[i]);
    }
}

int FlicColormap::createPreset(const char* name) {
    using muskeip::detail::colormap_tables;
    if (!name) return 0;
    if (!strcmp(name, "grey") || !strcmp(name, "gray")) {
        createGreyRamp();
    } else if (!strcmp(name, "hot-iron")) {
        createHotIron();
    } else if (!strcmp(name, "blue-white-red")) {
        createBlueWhiteRed();
    } else if (!strcmp(name, "hue")) {
        createHueRamp();
    } else {
        for (int k = 0; k < muskeip::detail::colormap_table_count; k++) {
            if (strcmp(name, colormap_tables[k].name) != 0) continue;
            memcpy(colors, colormap_tables[k].colors, sizeof colors);
            return 1;
        }
        return 0;
    }
    return 1;
}

const char* FlicColormap::presetNames() {
    return "grey, hot-iron, blue-white-red, hue, viridis, magma, inferno, plasma, cividis, "
           "twilight";
}

void FlicColormap::getColor1(float t, float* rgb) const {
    if (!(t > 0)) {
        set_entry(rgb, colors[0][0], colors[0][1], colors[0][2]);
        return;
    }
    float u = t * 255;
    int i = t < 1 ? static_cast<int>(u) : 255;
    if (i >= 255) {
        set_entry(rgb, colors[255][0], colors[255][1], colors[255][2]);
        return;
    }
    float f = u - i;
    for (int c = 0; c < 3; c++)
        rgb[c] = colors[i][c] + (colors[i + 1][c] - colors[i][c]) * f;
}

void FlicColormap::multiply(float f, FlicColormap* dest) {
    FlicColormap& out = dest ? *dest : *this;
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++) {
            float v = colors[i][c] * f;
            out.colors[i][c] = v > 1.0f ? 1.0f : v;
        }
    out.min = min;
    out.max = max;
    out.scale = scale;
}

void FlicColormap::flip(FlicColormap* dest) {
    FlicColormap flipped(*this);
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++)
            flipped.colors[i][c] = colors[255 - i][c];
    if (dest)
        *dest = flipped;
    else
        *this = flipped;
}

void FlicColormap::gamma(float g, FlicColormap* dest) {
    FlicColormap& out = dest ? *dest : *this;
    for (int i = 0; i < 256; i++)
        for (int c = 0; c < 3; c++)
            out.colors[i][c] = static_cast<float>(pow(static_cast<double>(colors[i][c]), g));
    out.min = min;
    out.max = max;
    out.scale = scale;
}

int FlicColormap::writeIcol(const char* filename) const {
    FILE* file = fopen(filename, "w");
    if (!file) {
        fprintf(stderr, "Can't open %s.\n", filename);
        return 0;
    }
    for (int k = 0; k < 64; k++) {
        for (int group = 0; group < 4; group++) {
            int i = k + 64 * group;
            fprintf(file, "%4d%4d%4d%4d", i, truncate_to_int(colors[i][0] * 255),
                    truncate_to_int(colors[i][1] * 255), truncate_to_int(colors[i][2] * 255));
            fputs(group < 3 ? "   " : "\n", file);
        }
    }
    fprintf(file, "%g %g\n", static_cast<double>(min), static_cast<double>(max));
    fclose(file);
    return 1;
}

// The first line tells the layout: sixteen numbers for the four-group table, three for the
// plain one. A range follows the table anywhere; without one the range becomes 0..1.
int FlicColormap::readIcol(const char* filename) {
    FILE* file = fopen(filename, "r");
    if (!file) {
        fprintf(stderr, "Can't open %s.\n", filename);
        return 0;
    }
    char line[256];
    int numbers[16];
    if (!fgets(line, sizeof line, file)) return report_illegal_format(file, filename);
    int count = scan_sixteen(line, numbers);
    if (count == 16) {
        if (!apply_groups(colors, numbers) || !read_grouped_table(file, colors))
            return report_illegal_format(file, filename);
    } else if (count == 3) {
        set_entry(colors[0], numbers[0] * kInverse255, numbers[1] * kInverse255,
                  numbers[2] * kInverse255);
        if (!read_plain_table(file, colors)) return report_illegal_format(file, filename);
    } else {
        return report_illegal_format(file, filename);
    }
    float low, high;
    if (fscanf(file, "%f%f", &low, &high) == 2)
        setMinMax(low, high);
    else
        setMinMax(0, 1);
    fclose(file);
    return 1;
}

namespace {

// The first out-of-range number of a line of (index, r, g, b) groups or of one (r, g, b) triple:
// its position, or -1 when all are in 0..255.
int out_of_range(const int* numbers, int count) {
    for (int k = 0; k < count; k++)
        if (numbers[k] < 0 || numbers[k] > 255) return k;
    return -1;
}

} // namespace

int FlicColormap::checkIcol(const char* filename) {
    FILE* file = fopen(filename, "r");
    if (!file) return flic_ioerror(filename, nullptr);
    char line[256];
    int numbers[16];
    int expected = 0, lines = 0, bad = -1;
    const char* problem = nullptr;
    while (!problem && lines < (expected ? expected : 1)) {
        if (!fgets(line, sizeof line, file)) {
            fclose(file);
            if (lines == 0) return flic_error("%s:1: the file is empty", filename);
            return flic_error("%s:%d: the table ends after %d of %d lines", filename, lines + 1,
                              lines, expected);
        }
        lines++;
        int count = scan_sixteen(line, numbers);
        if (!expected) expected = count == 16 ? 64 : count == 3 ? 256 : 0;
        if (!expected) {
            problem = "the first line holds neither 16 numbers (index r g b four times) nor 3 "
                      "(r g b)";
        } else if (count < (expected == 64 ? 16 : 3)) {
            problem = expected == 64 ? "expected 16 numbers (index r g b four times)"
                                     : "expected 3 numbers (r g b)";
        } else if ((bad = out_of_range(numbers, expected == 64 ? 16 : 3)) >= 0) {
            problem = "a number outside 0 .. 255";
        }
    }
    fclose(file);
    if (!problem) return 1;
    if (bad >= 0) return flic_error("%s:%d: %s (%d)", filename, lines, problem, numbers[bad]);
    return flic_error("%s:%d: %s", filename, lines > 0 ? lines : 1, problem);
}
