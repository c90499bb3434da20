// FlicImage point operations and compositing: contrast stretching, grey conversion, channel
// extraction and assembly, colouring by lightness, masking, products, differences, cropping and
// the seed fill. Their error texts go straight to standard error.
#include "image.h"

#include "colormap.h"
#include "image_common.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

using flic_image::has_geometry;

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

unsigned char clamp_byte(long long v) {
    return static_cast<unsigned char>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

bool same_size(const FlicImage& a, const FlicImage& b) {
    return a.width == b.width && a.height == b.height;
}

bool report(const char* text) {
    fputs(text, stderr);
    return false;
}

// Number of bytes of one row that the whole-image loops touch.
long long row_bytes(const FlicImage& image) {
    return image.data && image.height > 0 && image.width > 0
               ? static_cast<long long>(image.nChannels) * image.width
               : 0;
}

// Statistics of the non-zero bytes of an image, the background (zero bytes) skipped.
struct NonZeroStatistics {
    long count = 0;
    float sum = 0.0f;
    float sumOfSquares = 0.0f;
};

NonZeroStatistics non_zero_statistics(const FlicImage& image) {
    NonZeroStatistics stats;
    long long bytes = row_bytes(image);
    for (int y = 0; bytes > 0 && y < image.height; y++) {
        const unsigned char* row = row_of(image, y);
        for (long long i = 0; i < bytes; i++) {
            int v = row[i];
            if (v == 0) continue;
            stats.count++;
            stats.sum += v;
            stats.sumOfSquares += v * v;
        }
    }
    return stats;
}

// (int)(((v - m) * g + mean) + 0.5), the sum in single precision and the half added in double,
// clamped to 0..255 (in double first, so a huge or NaN result stays defined: NaN gives 0).
unsigned char adjusted_byte(int v, float m, float g, float mean) {
    double t = static_cast<double>((v - m) * g + mean) + 0.5;
    if (!(t >= 0)) return 0;
    if (t >= 255) return 255;
    return static_cast<unsigned char>(static_cast<int>(t));
}

// Converts an HSL colour back to bytes (int)(c * 255.0 + 0.5). A hue of exactly 1.0, which
// RGB_to_HSL gives pure reds and which HSL_to_RGB leaves unconverted, is taken as the same
// hue 0.
void hsl_to_bytes(float* hsl, unsigned char* out) {
    if (hsl[0] == 1.0f) hsl[0] = 0.0f;
    float rgb[3] = {hsl[2], hsl[2], hsl[2]};
    HSL_to_RGB(hsl, rgb);
    for (int c = 0; c < 3; c++)
        out[c] = static_cast<unsigned char>(static_cast<int>(rgb[c] * 255.0 + 0.5));
}

// Colour pixel `colour` with the lightness of grey byte `grey`.
void mix_pixel(const unsigned char* colour, unsigned char grey, unsigned char* out) {
    float rgb[3] = {colour[0] / 255.0f, colour[1] / 255.0f, colour[2] / 255.0f};
    float hsl[3] = {0.0f, 0.0f, 0.0f};
    RGB_to_HSL(rgb, hsl);
    hsl[2] = grey / 255.0f;
    hsl_to_bytes(hsl, out);
}

// One pending span of the seed fill: the span [left, right] of row `row` was filled, and the
// row row + direction is to be examined below it.
struct FillSegment {
    int row, left, right, direction;
};

const int kFillStackSize = 10000;

// The scan-line seed fill of one byte per pixel over a width x height area.
class SeedFill {
  public:
    SeedFill(FlicImage& image, int width, int height, unsigned char oldValue,
             unsigned char newValue, int* bbox)
        : image(image), width(width), height(height), oldValue(oldValue), newValue(newValue),
          bbox(bbox) {}

    int run(int x, int y);

  private:
    unsigned char& pixel(int x, int y) {
        return image.data[static_cast<long>(y) * image.bytesPerLine + x];
    }
    void push(int row, int left, int right, int direction);
    void fill_row(const FillSegment& segment);

    FlicImage& image;
    int width, height;
    unsigned char oldValue, newValue;
    int* bbox;
    FillSegment stack[kFillStackSize];
    int depth = 0;
    int filled = 0;
};

// Extends the bounding box by the span, then stores it when there is room and the row it
// points to lies inside the image; otherwise it is dropped.
void SeedFill::push(int row, int left, int right, int direction) {
    if (row < bbox[1]) bbox[1] = row;
    if (row > bbox[3]) bbox[3] = row;
    if (left < bbox[0]) bbox[0] = left;
    if (right > bbox[2]) bbox[2] = right;
    int next = row + direction;
    if (depth < kFillStackSize && next >= 0 && next <= height - 1)
        stack[depth++] = FillSegment{row, left, right, direction};
}

void SeedFill::fill_row(const FillSegment& segment) {
    int dir = segment.direction, x1 = segment.left, x2 = segment.right;
    int y = segment.row + dir;
    int x = x1;
    while (x >= 0 && pixel(x, y) == oldValue) {
        pixel(x, y) = newValue;
        filled++;
        x--;
    }
    int left = x + 1;
    bool skip = x >= x1; // nothing set at x1
    if (!skip) {
        if (left < x1) push(y, left, x1 - 1, -dir); // leak to the left
        x = x1 + 1;
    }
    do {
        if (!skip) {
            while (x <= width - 1 && pixel(x, y) == oldValue) {
                pixel(x, y) = newValue;
                filled++;
                x++;
            }
            push(y, left, x - 1, dir);
            if (x > x2 + 1) push(y, x2 + 1, x - 1, -dir); // leak to the right
        }
        skip = false;
        for (x++; x <= x2 && pixel(x, y) != oldValue; x++) {
        }
        left = x;
    } while (x <= x2);
}

int SeedFill::run(int x, int y) {
    push(y, x, x, 1);
    push(y + 1, x, x, -1);
    while (depth > 0)
        fill_row(stack[--depth]);
    return filled;
}

} // namespace

// Statistics come from this image; the bytes adjusted are the target's own (with a separate
// result, those it holds after being sized, not a copy of this image).
void FlicImage::autoAdjust(float mean, float sdev, FlicImage* result) {
    if (result == this) result = nullptr;
    if (result && !result->setSize(width, height, nChannels)) return;
    NonZeroStatistics stats = non_zero_statistics(*this);
    float m = 128.0f, g = 1.0f;
    if (stats.count > 0) {
        m = stats.sum / stats.count;
        // A single non-zero byte has no spread: the gain stays 1.
        if (stats.count > 1) {
            float variance = (stats.sumOfSquares - (stats.count * m) * m) / (stats.count - 1);
            float s = sqrtf(variance);
            if (static_cast<double>(s) > 0.1) g = sdev / s;
        }
    }
    FlicImage& target = result ? *result : *this;
    long long bytes = row_bytes(target);
    for (int y = 0; bytes > 0 && y < target.height; y++) {
        unsigned char* row = row_of(target, y);
        for (long long i = 0; i < bytes; i++)
            if (row[i] != 0) row[i] = adjusted_byte(row[i], m, g, mean);
    }
}

// ((v - low) * 255) / (high - low), truncating, clamped. With high equal to low the bytes are
// left as they are (copied into a separate result).
void FlicImage::brighten(int low, int high, FlicImage* result) {
    if (result == this) result = nullptr;
    if (result && !result->setSize(width, height, nChannels)) return;
    FlicImage& target = result ? *result : *this;
    long long bytes = row_bytes(*this);
    long long range = static_cast<long long>(high) - low;
    for (int y = 0; bytes > 0 && y < height; y++) {
        const unsigned char* in = row_of(*this, y);
        unsigned char* out = row_of(target, y);
        for (long long i = 0; i < bytes; i++)
            out[i] = range == 0 ? in[i]
                                : clamp_byte(((in[i] - static_cast<long long>(low)) * 255) / range);
    }
}

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
        if (!has_geometry(self, width, height, nChannels)) return 0;
        return glue(&r == this ? self : r, &g == this ? self : g, &b == this ? self : b);
    }
    if (!setSize(r.width, r.height, 3)) return 0;
    // Images without pixels (a crop with exchanged corners records a negative width) have no
    // rows to address.
    if (width <= 0 || !data || !r.data || !g.data || !b.data) return 1;
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

// A band beyond the last channel takes the last one; a negative band is used as it is, and
// bytes it would reach before the start of the pixel memory read as 0.
void FlicImage::oneband(int band, FlicImage* result) {
    if (result == this) result = nullptr;
    FlicImage temporary;
    FlicImage& target = result ? *result : temporary;
    if (!target.setSize(width, height, 1)) return;
    int channel = band < nChannels ? band : nChannels - 1;
    for (int y = 0; data && y < height; y++) {
        unsigned char* out = row_of(target, y);
        long rowStart = static_cast<long>(y) * bytesPerLine;
        for (int x = 0; x < width; x++) {
            long offset = rowStart + channel + static_cast<long>(x) * nChannels;
            out[x] = offset < 0 ? 0 : data[offset];
        }
    }
    if (!result) swap(temporary);
}

int FlicImage::mix(const FlicImage& other, FlicImage* result) {
    if (!same_size(*this, other)) return report("Images must have same size.\n");
    const FlicImage* grey = nChannels == 1 ? this : &other;
    const FlicImage* colour = nChannels == 1 ? &other : this;
    if (grey->nChannels != 1 || colour->nChannels != 3)
        return report("Illegal number of channels (1 and 3 required).\n");
    FlicImage mixed(width, height, 3);
    if (!has_geometry(mixed, width, height, 3)) return 0;
    for (int y = 0; mixed.data && y < height; y++) {
        const unsigned char* g = row_of(*grey, y);
        const unsigned char* c = row_of(*colour, y);
        unsigned char* out = row_of(mixed, y);
        for (int x = 0; x < width; x++)
            mix_pixel(c + 3 * x, g[x], out + 3 * x);
    }
    (result ? *result : *this).swap(mixed);
    return 1;
}

// This image's channel count becomes 2 (grey) or 4 (RGB) even when a separate result is given.
// Its owned block then grows to match that count, so loops over the claimed channels stay
// inside it. Other channel counts get no room for an alpha byte: their pixels are copied.
int FlicImage::applyMask(const FlicImage& mask, FlicImage* result) {
    if (!same_size(*this, mask)) return report("Images must have same size.\n");
    if (mask.nChannels != 1) return report("mask must only have one component.\n");
    int c = nChannels;
    bool addsAlpha = c == 1 || c == 3;
    // The raised channel count must give a geometry an image can have (the message comes from
    // setSize); only then does this image take it.
    FlicImage masked;
    if (!masked.setSize(width, height, addsAlpha ? c + 1 : c)) return 0;
    if (addsAlpha) {
        long long claimed = static_cast<long long>(width) * height * (c + 1);
        if (buffer && data == buffer && claimed > 0) {
            long long held = static_cast<long long>(width) * height * c;
            unsigned char* grown = static_cast<unsigned char*>(realloc(buffer, claimed));
            if (!grown) {
                fprintf(stderr, "no memory for an alpha channel.\n");
                return 0;
            }
            memset(grown + held, 0, claimed - held);
            buffer = data = grown;
        }
        nChannels = c + 1;
    }
    for (int y = 0; masked.data && y < height; y++) {
        const unsigned char* in = row_of(*this, y);
        const unsigned char* alpha = row_of(mask, y);
        unsigned char* out = row_of(masked, y);
        for (int x = 0; x < width; x++) {
            memcpy(out, in + x * c, c);
            if (nChannels > c) out[c] = alpha[x] ? 255 : 0;
            out += nChannels;
        }
    }
    (result ? *result : *this).swap(masked);
    return 1;
}

// A channel an image lacks is taken from its channel 0, so a grey image scales every channel
// of a colour image.
int FlicImage::multiply(const FlicImage& other, FlicImage* result) {
    if (!same_size(*this, other)) return report("Images must have same size.\n");
    int ca = nChannels, cb = other.nChannels;
    int channels = ca > cb ? ca : cb;
    FlicImage product(width, height, channels);
    if (!has_geometry(product, width, height, channels)) return 0;
    for (int y = 0; product.data && y < height; y++) {
        const unsigned char* a = row_of(*this, y);
        const unsigned char* b = row_of(other, y);
        unsigned char* out = row_of(product, y);
        for (int x = 0; x < width; x++, a += ca, b += cb)
            for (int k = 0; k < channels; k++)
                *out++ = static_cast<unsigned char>((a[k < ca ? k : 0] * b[k < cb ? k : 0]) / 255);
    }
    (result ? *result : *this).swap(product);
    return 1;
}

int FlicImage::subtract(const FlicImage& other, FlicImage* result) {
    if (!same_size(*this, other)) return report("Images must have same size.\n");
    if (nChannels != other.nChannels) return report("Images must have same number of channels.\n");
    FlicImage difference(width, height, nChannels);
    if (!has_geometry(difference, width, height, nChannels)) return 0;
    long long bytes = row_bytes(difference);
    for (int y = 0; bytes > 0 && y < height; y++) {
        const unsigned char* a = row_of(*this, y);
        const unsigned char* b = row_of(other, y);
        unsigned char* out = row_of(difference, y);
        for (long long i = 0; i < bytes; i++)
            out[i] = clamp_byte(a[i] + 128 - b[i]);
    }
    (result ? *result : *this).swap(difference);
    return 1;
}

// Inside the image every channel of an output pixel takes the one byte at x of source row y
// (exact for grey images; a colour image repeats single bytes); outside it is black. Returns
// 1, or 0 (nothing changed) when the rectangle is too large for an image.
int FlicImage::crop(int x0, int y0, int x1, int y1, FlicImage* result) {
    long long cropWidth = static_cast<long long>(x1) - x0 + 1;
    long long cropHeight = static_cast<long long>(y1) - y0 + 1;
    if (cropWidth > 2147483647LL || cropHeight > 2147483647LL || cropWidth < -2147483647LL ||
        cropHeight < -2147483647LL)
        return report("crop rectangle is too large.\n");
    FlicImage cut;
    if (!cut.setSize(static_cast<int>(cropWidth), static_cast<int>(cropHeight), nChannels))
        return 0;
    unsigned char* out = cut.data;
    for (long long ty = 0; out && ty < cropHeight; ty++) {
        long long y = y0 + ty;
        bool rowInside = data && y >= 0 && y < height;
        for (long long tx = 0; tx < cropWidth; tx++) {
            long long x = x0 + tx;
            unsigned char v =
                rowInside && x >= 0 && x < width ? row_of(*this, static_cast<int>(y))[x] : 0;
            memset(out, v, nChannels);
            out += nChannels;
        }
    }
    (result ? *result : *this).swap(cut);
    return 1;
}

// The box starts as (x, y, x, y) and grows with every span pushed, also spans that are then
// dropped. Nothing is filled when (x, y) lies outside or already holds the low byte of value.
int FlicImage::floodFill(int x, int y, int value, int* bbox, FlicImage* result) {
    if (result == this) result = nullptr;
    int localBox[4];
    int* box = bbox ? bbox : localBox;
    box[0] = box[2] = x;
    box[1] = box[3] = y;
    if (result) *result = *this;
    FlicImage& target = result ? *result : *this;
    if (x < 0 || x > width - 1 || y < 0 || y > height - 1 || !target.data) return 0;
    unsigned char oldValue = target.data[static_cast<long>(y) * target.bytesPerLine + x];
    unsigned char newValue = static_cast<unsigned char>(value);
    if (oldValue == newValue) return 0;
    // The segment stack is large for a thread's stack: keep it on the heap.
    std::unique_ptr<SeedFill> fill(new (std::nothrow)
                                       SeedFill(target, width, height, oldValue, newValue, box));
    if (!fill) return report("no memory for the segment stack.\n");
    return fill->run(x, y);
}
