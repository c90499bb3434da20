// FlicCompute's four texture lookups, on any texture (also one without a wrap period).
#include "compute.h"

#include "lookup_common.h"

#include <cstddef>

namespace {

// Wraps coordinate c along a texture axis of `count` pixels, `stride` bytes apart, into a pixel
// index, its fraction and the byte step to the neighbour. An axis of one pixel has no period:
// it is read at 0 with itself as neighbour.
void wrapAxis(float c, int count, std::ptrdiff_t stride, int& index, float& fraction,
              std::ptrdiff_t& step) {
    index = 0;
    fraction = 0.0f;
    step = 0;
    if (count < 2) return;
    float period = static_cast<float>(count - 1);
    c = wrapCoordinate(c, period, farPeriods * period);
    index = static_cast<int>(c);
    fraction = c - index;
    step = stride;
}

// Lookups on textures narrower or lower than 2 pixels (no wrap period) or without pixels: an
// axis of one pixel is read at 0 with itself as neighbour; an empty texture gives 0.
void degenerateLookup(const FlicImage* texture, float x, float y, int* out, int channels,
                      bool bilinear) {
    if (!texture || !texture->data || texture->width < 1 || texture->height < 1) {
        for (int ch = 0; ch < channels; ch++)
            out[ch] = 0;
        return;
    }
    std::ptrdiff_t stepX, stepY;
    int ix, iy;
    float fx, fy;
    wrapAxis(x, texture->width, texture->nChannels, ix, fx, stepX);
    wrapAxis(y, texture->height, texture->bytesPerLine, iy, fy, stepY);
    const unsigned char* p = texture->data +
                             static_cast<std::ptrdiff_t>(iy) * texture->bytesPerLine +
                             static_cast<std::ptrdiff_t>(ix) * texture->nChannels;
    for (int ch = 0; ch < channels; ch++)
        out[ch] = bilinear ? bilinearTexel(p, ch, stepX, stepY, fx, fy) : p[ch];
}

// A lookup as the public functions define it, on any texture.
template <int KIND>
FLIC_ALWAYS_INLINE void lookup(const FlicImage* texture, float x, float y, int* out) {
    TexelSource source(texture);
    if (source.periodic) return periodicLookup<KIND>(source, x, y, out);
    int channels = KIND == LOOKUP_CONST1 || KIND == LOOKUP_BILINEAR1 ? 1 : source.channels;
    degenerateLookup(texture, x, y, out, channels,
                     KIND == LOOKUP_BILINEAR1 || KIND == LOOKUP_BILINEARN);
}

} // namespace

// --- Texture lookups --------------------------------------------------------------------------

void FlicCompute::getPixelConst1(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_CONST1>(texture, x, y, out);
}

void FlicCompute::getPixelConstN(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_CONSTN>(texture, x, y, out);
}

void FlicCompute::getPixelBilinear1(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_BILINEAR1>(texture, x, y, out);
}

void FlicCompute::getPixelBilinearN(FlicImage* texture, float x, float y, int* out) {
    lookup<LOOKUP_BILINEARN>(texture, x, y, out);
}
