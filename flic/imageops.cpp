// FlicImage point operations and compositing: contrast stretching, grey conversion, channel
// extraction and assembly, colouring by lightness, masking, products, differences, cropping and
// the seed fill. Their error texts go straight to standard error.
#include "image.h"

#include <cstdio>
#include <cstring>

namespace {

unsigned char* row_of(FlicImage& image, int y) {
    return image.data + static_cast<long>(y) * image.bytesPerLine;
}

const unsigned char* row_of(const FlicImage& image, int y) {
    return image.data + static_cast<long>(y) * image.bytesPerLine;
}

// Luminance 0.3 R + 0.59 G + 0.11 B in double precision, truncated.
unsigned char grey_of(const unsigned char* rgb) {
    return static_cast<unsigned char>(
        static_cast<int>(0.3 * rgb[0] + 0.59 * rgb[1] + 0.11 * rgb[2]));
}

} // namespace

// The source is read as width * height compact RGB triples from `data`. In place, the grey bytes
// are written over the front of the pixel memory, then the image becomes one channel.
void FlicImage::colorToGrey(FlicImage* result) {
    if (result == this) result = nullptr;
    if (nChannels <= 2) {
        if (result) *result = *this;
        return;
    }
    long pixelCount = width > 0 && height > 0 ? static_cast<long>(width) * height : 0;
    if (result) {
        if (!result->setSize(width, height, 1)) return;
        for (long k = 0; k < pixelCount; k++)
            result->data[k] = grey_of(data + 3 * k);
        return;
    }
    for (long k = 0; k < pixelCount; k++)
        data[k] = grey_of(data + 3 * k);
    // An owned block shrinks and keeps its front; a wrapped image gets a block of its own, so
    // the grey bytes written into the caller's memory are carried over.
    unsigned char* wrapped = data != buffer ? data : nullptr;
    setSize(width, height, 1);
    if (wrapped && data && pixelCount > 0) memcpy(data, wrapped, pixelCount);
}

// Every source row is addressed by its own bytesPerLine, one byte per pixel.
int FlicImage::glue(const FlicImage& r, const FlicImage& g, const FlicImage& b) {
    if (g.width != r.width || g.height != r.height || g.width != b.width || g.height != b.height) {
        fputs("Images must have equal size.\n", stderr);
        return 0;
    }
    if (&r == this || &g == this || &b == this) {
        // Resizing this image would destroy a source: glue from a copy of it.
        FlicImage self(*this);
        return glue(&r == this ? self : r, &g == this ? self : g, &b == this ? self : b);
    }
    if (!setSize(r.width, r.height, 3)) return 0;
    for (int y = 0; y < height; y++) {
        const unsigned char* red = row_of(r, y);
        const unsigned char* green = row_of(g, y);
        const unsigned char* blue = row_of(b, y);
        unsigned char* out = row_of(*this, y);
        for (int x = 0; x < width; x++) {
            out[3 * x] = red[x];
            out[3 * x + 1] = green[x];
            out[3 * x + 2] = blue[x];
        }
    }
    return 1;
}
