// Relief shading kernels (emboss, emboss2) and the FlicImage::emboss forms.
#include "emboss.h"

#include "image.h"
#include "image_common.h"
#include "messages.h"
#include "vectorfield.h"

#include <climits>
#include <cmath>

using flic_image::has_geometry;

namespace {

// Length of a light vector of full strength, in shade units.
const double kLightScale = 255.9;
// Shade of every border pixel.
const unsigned char kBorderValue = 128;

struct Light {
    int x, y, z;
};

// Truncation toward zero of a light component; values that are not numbers count as 0 and
// values beyond the int range are clamped, so odd angles or field values stay defined.
int truncate_component(double v) {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(v);
}

// The light's vertical component, shared by both kernels.
int vertical_light(float elevation) {
    return truncate_component(sin(static_cast<double>(elevation)) * kLightScale);
}

// Shade of the interior pixel at `b` (a pointer into a bump map with rows `w` bytes apart):
// the cosine between the light and the normal (left minus right column, next minus previous
// row, nz up), in shade units. Flat pixels get the light's vertical component.
inline int shade_at(const unsigned char* b, long w, const Light& light, int nz) {
    int nx = b[-w - 1] + b[-1] + b[w - 1] - b[-w + 1] - b[1] - b[w + 1];
    int ny = b[w - 1] + b[w] + b[w + 1] - b[-w - 1] - b[-w] - b[-w + 1];
    if (nx == 0 && ny == 0) return static_cast<unsigned char>(light.z);
    int d = light.x * nx + light.y * ny + nz * light.z;
    if (d < 0) return 0;
    float length = sqrtf(static_cast<float>(nx * nx + ny * ny + nz * nz));
    return static_cast<int>(static_cast<float>(d) / length);
}

// Writes a shade to output pixel `index`: grey, or the texture's colour darkened by it.
inline void store_shade(int shade, const unsigned char* texture, unsigned char* dst, long index) {
    if (!texture) {
        dst[index] = static_cast<unsigned char>(shade);
        return;
    }
    for (long c = 3 * index; c < 3 * index + 3; c++)
        dst[c] = static_cast<unsigned char>((texture[c] * shade) >> 8);
}

inline void store_border(const unsigned char* texture, unsigned char* dst, long index) {
    if (!texture) {
        dst[index] = kBorderValue;
        return;
    }
    for (long c = 3 * index; c < 3 * index + 3; c++)
        dst[c] = kBorderValue;
}

// Shades every pixel: interior pixels under lightAt(x, y, index), the first and last row and
// column with the border value.
template <class LightAt>
void shade_image(const unsigned char* bump, const unsigned char* texture, unsigned char* dst,
                 int width, int height, int nz, LightAt lightAt) {
    for (int y = 0; y < height; y++) {
        long rowStart = static_cast<long>(y) * width;
        bool borderRow = y == 0 || y == height - 1;
        for (int x = 0; x < width; x++) {
            long index = rowStart + x;
            if (borderRow || x == 0 || x == width - 1) {
                store_border(texture, dst, index);
                continue;
            }
            Light light = lightAt(index);
            store_shade(shade_at(bump + index, width, light, nz), texture, dst, index);
        }
    }
}

// Checks the arguments both kernels share. Returns 1 when there is work to do, 0 after
// reporting bad arguments, -1 when the image has no pixels.
int check_kernel_arguments(const char* name, int width45, const unsigned char* bump,
                           const unsigned char* dst, int width, int height) {
    if (width45 <= 0) return flic_error("%s: width45 must be positive, not %d", name, width45);
    if (width <= 0 || height <= 0) return -1;
    if (!bump || !dst) return flic_error("%s: no image data", name);
    return 1;
}

} // namespace

int emboss(float azimuth, float elevation, int width45, const unsigned char* bump,
           const unsigned char* texture, unsigned char* dst, int width, int height) {
    int status = check_kernel_arguments("emboss", width45, bump, dst, width, height);
    if (status <= 0) return status < 0 ? 1 : 0;
    double az = azimuth, el = elevation;
    Light light;
    light.x = truncate_component(cos(az) * cos(el) * kLightScale);
    light.y = truncate_component(sin(az) * cos(el) * kLightScale);
    light.z = vertical_light(elevation);
    int nz = 1530 / width45;
    shade_image(bump, texture, dst, width, height, nz, [&light](long) { return light; });
    return 1;
}

int emboss2(float elevation, int width45, const unsigned char* bump, const unsigned char* texture,
            unsigned char* dst, int width, int height, const float (*field)[2]) {
    int status = check_kernel_arguments("emboss2", width45, bump, dst, width, height);
    if (status <= 0) return status < 0 ? 1 : 0;
    float horizontal = static_cast<float>(cos(static_cast<double>(elevation)) * kLightScale);
    int nz = 1530 / width45;
    Light fixed;
    fixed.x = truncate_component(cos(M_PI / 2) * horizontal);
    fixed.y = truncate_component(sin(M_PI / 2) * horizontal);
    fixed.z = vertical_light(elevation);
    if (!field) {
        shade_image(bump, texture, dst, width, height, nz, [&fixed](long) { return fixed; });
        return 1;
    }
    // The light follows the field's direction, with its components exchanged.
    auto lightAt = [&fixed, horizontal, field](long index) {
        float vx = field[index][0], vy = field[index][1];
        float length = sqrtf(vx * vx + vy * vy);
        Light light = {0, 0, fixed.z};
        if (length > 0) {
            light.x = truncate_component(horizontal * vy / length);
            light.y = truncate_component(horizontal * vx / length);
        }
        return light;
    };
    shade_image(bump, texture, dst, width, height, nz, lightAt);
    return 1;
}

namespace {

// Elevation of the light in the field form: 0.2 pi, computed in double.
const float kFieldElevation = static_cast<float>(0.2 * M_PI);
const int kFieldWidth45 = 3;

// The height map and texture of an image, rows contiguous as the kernels read them: a grey
// image is its own height map; a colour image is the texture and its grey copy the height
// map. Images with padding between rows are read through a compact copy. `ready` is false
// when a copy could not be made (no memory, reported by setSize).
class ShadingInputs {
  public:
    explicit ShadingInputs(FlicImage& image) {
        FlicImage* source = &image;
        if (image.bytesPerLine != static_cast<long long>(image.width) * image.nChannels) {
            compact = image;
            source = &compact;
            ready = has_geometry(compact, image.width, image.height, image.nChannels);
        }
        if (image.nChannels < 3) {
            bump = source->data;
            return;
        }
        source->colorToGrey(&grey);
        ready = ready && has_geometry(grey, image.width, image.height, 1);
        bump = grey.data;
        texture = source->data;
    }
    const unsigned char* bump = nullptr;
    const unsigned char* texture = nullptr;
    bool ready = true;

  private:
    FlicImage compact, grey;
};

// Sizes the output like `image`. Bytes the kernels do not write (images of other than one or
// three channels) are cleared.
bool prepare_output(const FlicImage& image, FlicImage& output) {
    if (!output.setSize(image.width, image.height, image.nChannels)) return false;
    if (image.nChannels != 1 && image.nChannels != 3) output.clear(0);
    return true;
}

} // namespace

int FlicImage::emboss(float azimuth, float elevation, int width45, FlicImage* result) {
    if (result == this) result = nullptr;
    if (width45 <= 0) return flic_error("emboss: width45 must be positive, not %d", width45);
    ShadingInputs inputs(*this);
    if (!inputs.ready) return 0;
    FlicImage temporary;
    FlicImage& output = result ? *result : temporary;
    if (!prepare_output(*this, output)) return 0;
    ::emboss(azimuth, elevation, width45, inputs.bump, inputs.texture, output.data, width, height);
    if (!result) swap(temporary);
    return 1;
}

int FlicImage::emboss(FlicVectorField& field, FlicImage* result) {
    if (result == this) result = nullptr;
    bool hasPixels = width > 0 && height > 0;
    if (hasPixels && (field.width < 1 || field.height < 1 || !field.data))
        return flic_error("emboss: the vector field has no values");
    // A field of another size is resampled to the image's size first.
    FlicVectorField resampled;
    const FlicVectorField* light = &field;
    if (field.width != width || field.height != height) {
        field.resample(width, height, &resampled);
        if (resampled.width != width || resampled.height != height) return 0;
        light = &resampled;
    }
    ShadingInputs inputs(*this);
    if (!inputs.ready) return 0;
    FlicImage temporary;
    FlicImage& output = result ? *result : temporary;
    if (!prepare_output(*this, output)) return 0;
    const float(*vectors)[2] = reinterpret_cast<const float(*)[2]>(light->data);
    ::emboss2(kFieldElevation, kFieldWidth45, inputs.bump, inputs.texture, output.data, width,
              height, vectors);
    // Grey pictures show regions without flow in black; colour pictures are left unmasked.
    if (nChannels == 1 && hasPixels) {
        long count = static_cast<long>(width) * height;
        for (long i = 0; i < count; i++)
            if (vectors[i][0] == 0.0f && vectors[i][1] == 0.0f) output.data[i] = 0;
    }
    if (!result) swap(temporary);
    return 1;
}
