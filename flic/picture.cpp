// FlicPicture: the post-processing steps of a LIC picture in their fixed order, the enhanced
// two-pass texture, and the blend of colour and LIC.
#include "picture.h"

#include "histogram.h"
#include "messages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

const float degrees = 3.14159265358979323846f / 180.0f;
const float pi = 3.14159265358979323846f;

// Runs a one-byte-per-pixel filter on each channel of the picture.
template <class Filter>
int each_channel(FlicImage& picture, Filter filter) {
    if (picture.nChannels == 1) return filter(picture);
    FlicImage bands[3];
    for (int c = 0; c < 3; c++) {
        picture.oneband(c, &bands[c]);
        if (!filter(bands[c])) return 0;
    }
    return picture.glue(bands[0], bands[1], bands[2]);
}

unsigned char* pixel_at(FlicImage& image, int x, int y) {
    return image.data + static_cast<std::ptrdiff_t>(y) * image.bytesPerLine +
           static_cast<std::ptrdiff_t>(x) * image.nChannels;
}

// (a * b + 127) / 255: the product of two bytes as a byte, rounded.
int byte_product(int a, int b) {
    return (a * b + 127) / 255;
}

int overlay_byte(int colour, int lic) {
    if (colour < 128) return byte_product(2 * colour, lic);
    return 255 - byte_product(2 * (255 - colour), 255 - lic);
}

// The multiply factor of each LIC byte: level at the mean of the non-zero bytes, `contrast`
// more per standard deviation above it, held to 0..1; byte 0 gives 0.
void multiply_factors(const FlicImage& lic, float level, float contrast, float factors[256]) {
    FlicHistogram histogram;
    histogram.count(lic);
    double mean = 0.0, sdev = 0.0;
    histogram.statistics(0, 1, mean, sdev);
    factors[0] = 0.0f;
    for (int v = 1; v < 256; v++) {
        double z = sdev > 0.0 ? (v - mean) / sdev : 0.0;
        double f = level + contrast * z;
        factors[v] = static_cast<float>(f < 0.0 ? 0.0 : f > 1.0 ? 1.0 : f);
    }
}

void blend_pixel(FlicPicture::BlendMode mode, const float* factors, unsigned char lic,
                 const unsigned char* colour, unsigned char* out) {
    for (int c = 0; c < 3; c++) {
        int value = 0;
        if (lic == 0)
            value = 0;
        else if (mode == FlicPicture::MULTIPLY)
            value = static_cast<int>(colour[c] * factors[lic] + 0.5f);
        else
            value = overlay_byte(colour[c], lic);
        out[c] = static_cast<unsigned char>(value);
    }
}

// The enhanced texture: the LIC of the high-passed LIC picture (the picture minus its blur
// of sigma 2, doubled about 128), stretched to the 0.5 .. 99.5 percentiles.
int high_pass(FlicImage& picture) {
    return each_channel(picture, [](FlicImage& band) {
        FlicImage blurred;
        if (!band.gaussBlur(2, &blurred)) return 0;
        for (int y = 0; y < band.height; y++) {
            unsigned char* row = band.data + static_cast<std::ptrdiff_t>(y) * band.bytesPerLine;
            const unsigned char* low =
                blurred.data + static_cast<std::ptrdiff_t>(y) * blurred.bytesPerLine;
            for (int x = 0; x < band.width; x++) {
                int v = 128 + 2 * (row[x] - low[x]);
                row[x] = static_cast<unsigned char>(v < 1 ? 1 : v > 255 ? 255 : v);
            }
        }
        return 1;
    });
}

} // namespace

FlicPicture::FlicPicture()
    : enhance(0), adjust(1), adjustMean(128.0f), adjustSdev(40.0f), equalize(NO_EQUALIZE),
      equalizeTiles(8), equalizeClip(2.0f), blur(0), median(0), colour(NO_COLOUR), blend(MULTIPLY),
      colormapGiven(0), rangeGiven(0), range{0.0f, 1.0f}, colourField(nullptr), multiplyLevel(0.9f),
      multiplyContrast(0.2f), emboss(NO_EMBOSS), light{0.0f, 0.0f, 3.0f}, zoomWidth(0),
      zoomHeight(0) {}

int FlicPicture::setColormap(const char* name) {
    FlicColormap map;
    if (!map.createPreset(name)) {
        FILE* file = name ? fopen(name, "r") : nullptr;
        if (!file)
            return flic_error("colour map '%s' is neither a preset (%s) nor a readable file",
                              name ? name : "", FlicColormap::presetNames());
        fclose(file);
        if (!FlicColormap::checkIcol(name) || !map.readIcol(name)) return 0;
    }
    float min = 0.0f, max = 1.0f;
    colormap.getMinMax(min, max);
    colormap = map;
    colormap.setMinMax(min, max);
    colormapGiven = 1;
    return 1;
}

int FlicPicture::check() const {
    if (adjust && !(adjustSdev > 0.0f && std::isfinite(adjustMean) && std::isfinite(adjustSdev)))
        return flic_error("picture: contrast needs a finite mean and a standard deviation above "
                          "0, got %g and %g",
                          adjustMean, adjustSdev);
    if (equalize < NO_EQUALIZE || equalize > EQUALIZE_ADAPTIVE)
        return flic_error("picture: unknown equalisation %d", static_cast<int>(equalize));
    if (equalize == EQUALIZE_ADAPTIVE && !(equalizeTiles >= 2 && equalizeTiles <= 64 &&
                                           equalizeClip >= 1.0f && equalizeClip <= 256.0f))
        return flic_error("picture: adaptive equalisation needs 2 .. 64 tiles and a clip limit "
                          "of 1 .. 256, got %d and %g",
                          equalizeTiles, equalizeClip);
    if (blur < 0 || blur > 9) return flic_error("picture: blur %d outside 0 .. 9", blur);
    if (colour < NO_COLOUR || colour > SCALAR)
        return flic_error("picture: unknown colour source %d", static_cast<int>(colour));
    if (blend < MULTIPLY || blend > OVERLAY)
        return flic_error("picture: unknown blend mode %d", static_cast<int>(blend));
    if (colour == SCALAR &&
        (!colourField || !colourField->data || colourField->width < 1 || colourField->height < 1))
        return flic_error("picture: colour from a scalar field, but no field was given");
    if (rangeGiven && !(range[1] > range[0]))
        return flic_error("picture: colour range %g .. %g is empty", range[0], range[1]);
    if (emboss < NO_EMBOSS || emboss > EMBOSS_LIGHT)
        return flic_error("picture: unknown emboss mode %d", static_cast<int>(emboss));
    if (emboss == EMBOSS_LIGHT && !(light[2] >= 1.0f && light[2] <= 1530.0f))
        return flic_error("picture: emboss steepness %g outside 1 .. 1530", light[2]);
    if (zoomWidth < 0 || zoomHeight < 0 || (zoomWidth > 0) != (zoomHeight > 0))
        return flic_error("picture: zoom to %d x %d pixels", zoomWidth, zoomHeight);
    return 1;
}

int FlicPicture::colours(FlicVectorField& field, int width, int height, FlicImage& result) const {
    if (!result.setSize(width, height, 3)) return 0;
    // Magnitudes and directions are sampled onto the picture first; a caller's scalar field is
    // sampled by pseudoColor itself.
    FlicScalarField sampled(colour == SCALAR ? 0 : width, colour == SCALAR ? 0 : height);
    if (colour != SCALAR && !sampled.data)
        return flic_error("picture: no memory for %d x %d colour values", width, height);
    if (colour == MAGNITUDE) field.magnitude(sampled, 0);
    if (colour == DIRECTION) field.direction(sampled, 0);
    const FlicScalarField& values = colour == SCALAR ? *colourField : sampled;
    FlicColormap map = colormap;
    if (!colormapGiven) map.createPreset(colour == DIRECTION ? "twilight" : "viridis");
    float span[2] = {range[0], range[1]};
    if (colour == DIRECTION && !rangeGiven) {
        span[0] = -pi;
        span[1] = pi;
    } else if (!rangeGiven) {
        flicRobustRange(values, span);
    }
    map.setMinMax(span[0], span[1]);
    values.pseudoColor(map, result, 0);
    return 1;
}

int FlicPicture::finish(FlicImage& picture, FlicVectorField& field) const {
    if (!check()) return 0;
    if (adjust && !flicAdjustContrast(picture, adjustMean, adjustSdev)) return 0;
    if (equalize == EQUALIZE_GLOBAL && !flicEqualize(picture, 0, equalizeClip)) return 0;
    if (equalize == EQUALIZE_ADAPTIVE && !flicEqualize(picture, equalizeTiles, equalizeClip))
        return 0;
    int n = blur;
    if (n > 0 && !each_channel(picture, [n](FlicImage& band) { return band.gaussBlur(n); }))
        return 0;
    if (median && !each_channel(picture, [](FlicImage& band) { return band.medianFilter(); }))
        return 0;
    if (colour != NO_COLOUR) {
        if (picture.nChannels != 1)
            return flic_error("picture: colour goes onto a grey LIC picture, this one is RGB");
        FlicImage shades;
        if (!colours(field, picture.width, picture.height, shades)) return 0;
        int mixed = blend == LIGHTNESS
                        ? picture.mix(shades)
                        : flicBlend(picture, shades, blend, multiplyLevel, multiplyContrast);
        if (!mixed) return 0;
    }
    if (emboss == EMBOSS_FIELD && !picture.emboss(field)) return 0;
    if (emboss == EMBOSS_LIGHT &&
        !picture.emboss(light[0] * degrees, light[1] * degrees, static_cast<int>(light[2])))
        return 0;
    if (zoomWidth > 0 && !picture.zoom(zoomWidth, zoomHeight)) return 0;
    return 1;
}

int FlicPicture::render(FlicCompute& engine, FlicVectorField& field, FlicImage& texture,
                        FlicImage& picture, FlicImage* mask, FlicImage* seedMap) const {
    if (!check()) return 0;
    if (!engine.compute(&field, &texture, &picture, mask, seedMap)) return 0;
    if (enhance) {
        FlicImage passed(picture);
        if (!high_pass(passed)) return 0;
        if (!engine.compute(&field, &passed, &picture)) return 0;
        if (!flicStretchContrast(picture, 0.005, 0.995)) return 0;
    }
    return finish(picture, field);
}

int flicBlend(FlicImage& lic, const FlicImage& colours, FlicPicture::BlendMode mode, float level,
              float contrast, FlicImage* result) {
    if (lic.nChannels != 1 || colours.nChannels != 3 || lic.width != colours.width ||
        lic.height != colours.height || !lic.data || !colours.data)
        return flic_error("blend: needs a grey picture and an RGB one of the same size");
    if (mode == FlicPicture::LIGHTNESS) return lic.mix(colours, result);
    float factors[256];
    multiply_factors(lic, level, contrast, factors);
    FlicImage blended(lic.width, lic.height, 3);
    if (!blended.data) return 0;
    for (int y = 0; y < lic.height; y++)
        for (int x = 0; x < lic.width; x++)
            blend_pixel(mode, factors, *pixel_at(lic, x, y),
                        pixel_at(const_cast<FlicImage&>(colours), x, y), pixel_at(blended, x, y));
    if (result)
        result->swap(blended);
    else
        lic.swap(blended);
    return 1;
}

void flicRobustRange(const FlicScalarField& field, float range[2]) {
    std::vector<float> values;
    long long count = static_cast<long long>(field.width) * field.height;
    values.reserve(static_cast<size_t>(count > 0 ? count : 0));
    for (long long i = 0; field.data && i < count; i++)
        if (std::isfinite(field.data[i])) values.push_back(field.data[i]);
    range[0] = 0.0f;
    range[1] = 1.0f;
    if (values.empty()) return;
    size_t low = values.size() / 100, high = values.size() - 1 - values.size() / 100;
    std::nth_element(values.begin(), values.begin() + low, values.end());
    range[0] = values[low];
    std::nth_element(values.begin(), values.begin() + high, values.end());
    range[1] = values[high];
    if (!(range[1] > range[0])) range[1] = range[0] + 1.0f;
}
