// FlicImage container: construction, ownership, resizing, sampling, noise, statistics and the
// PNM and histogram files.
#include "image.h"

#include "image_common.h"

#include "messages.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <utility>

namespace {

// Bytes of one row that the whole-image loops touch, nChannels * width, formed without
// overflow (applyMask may raise the channel count of an image of extreme width).
long long row_byte_count(const FlicImage& image) {
    return static_cast<long long>(image.nChannels) * image.width;
}

// Whether the byte count width * height * nChannels fits a 32-bit int, and so does the row's
// byte count nChannels * width that becomes bytesPerLine (for images of at least one row the
// first implies the second; a row of a degenerate geometry may be longer than the image).
// The products are formed in double, exact wherever they are near the int range (below 2^53)
// and free of overflow for any three ints.
bool byte_count_fits(int width, int height, int nChannels) {
    double row = static_cast<double>(width) * nChannels;
    double count = row * height;
    return count <= INT_MAX && count >= INT_MIN && row <= INT_MAX && row >= INT_MIN;
}

// Wraps a coordinate into [0, period) by repeated addition/subtraction of the period, the way
// the image samplers define it. Coordinates too large for the loop to make progress in single
// precision (or infinite) are first reduced with fmodf; NaN is left for the caller.
float wrap_coordinate(float v, float period) {
    if (!(std::fabs(v) < 1.0e6f * period)) {
        if (std::isinf(v)) return 0.0f;
        if (!std::isnan(v)) v = std::fmod(v, period);
    }
    while (v < 0)
        v += period;
    while (v >= period)
        v -= period;
    return v;
}

// Truncated index of a wrapped coordinate; NaN (which skips the wrapping) gives 0.
int wrapped_index(float v) {
    return std::isnan(v) ? 0 : static_cast<int>(v);
}

} // namespace

FlicImage::FlicImage()
    : buffer(nullptr), data(nullptr), width(0), height(0), nChannels(0), bytesPerLine(0) {}

FlicImage::FlicImage(int width, int height) : FlicImage(width, height, 1) {}

FlicImage::FlicImage(int width, int height, int nChannels) : FlicImage() {
    setSize(width, height, nChannels);
}

FlicImage::FlicImage(int width, int height, int bytesPerLine, unsigned char* data)
    : FlicImage(width, height, 1, bytesPerLine, data) {}

FlicImage::FlicImage(int width, int height, int nChannels, int bytesPerLine, unsigned char* data)
    : FlicImage() {
    if (data) {
        this->width = width;
        this->height = height;
        this->nChannels = nChannels;
        this->bytesPerLine = bytesPerLine;
        this->data = data;
    } else {
        setSize(width, height, nChannels);
    }
}

FlicImage::FlicImage(const FlicImage& other) : FlicImage() {
    *this = other;
}

FlicImage::~FlicImage() {
    if (buffer) free(buffer);
}

void FlicImage::swap(FlicImage& other) {
    std::swap(buffer, other.buffer);
    std::swap(data, other.data);
    std::swap(width, other.width);
    std::swap(height, other.height);
    std::swap(nChannels, other.nChannels);
    std::swap(bytesPerLine, other.bytesPerLine);
}

void FlicImage::operator=(const FlicImage& other) {
    if (&other == this) return;
    if (!setSize(other.width, other.height, other.nChannels)) return;
    long long rowBytes = row_byte_count(*this);
    if (rowBytes <= 0 || !data || !other.data) return;
    for (int y = 0; y < height; y++)
        memcpy(data + static_cast<long>(y) * bytesPerLine,
               other.data + static_cast<long>(y) * other.bytesPerLine, rowBytes);
}

int FlicImage::setSize(int width, int height, int nChannels) {
    if (!byte_count_fits(width, height, nChannels))
        return flic_error("image size %d x %d x %d exceeds the 32-bit byte count", width, height,
                          nChannels);
    int size = static_cast<int>(static_cast<long long>(width) * height * nChannels);
    unsigned char* block = nullptr;
    if (size >= 1) {
        block = static_cast<unsigned char*>(buffer ? realloc(buffer, size) : malloc(size));
        // A failed realloc keeps the old block: the image stays as it was.
        if (!block)
            return flic_error("no memory for an image of %d x %d x %d bytes", width, height,
                              nChannels);
    } else if (buffer) {
        free(buffer);
    }
    buffer = block;
    this->width = width;
    this->height = height;
    this->nChannels = nChannels;
    bytesPerLine = nChannels * width;
    data = buffer;
    return 1;
}

void FlicImage::clear(int value) {
    long long rowBytes = row_byte_count(*this);
    if (rowBytes <= 0 || !data) return;
    for (int y = 0; y < height; y++)
        memset(data + static_cast<long>(y) * bytesPerLine, value & 0xff, rowBytes);
}

// Images narrower or lower than 2 pixels have no period to wrap with: such an axis is sampled
// at position 0 without a neighbour along it.
unsigned char FlicImage::interp(float x, float y) const {
    if (width < 1 || height < 1 || !data) return 0;
    if (width < 2 || height < 2) return interpConst(x, y);
    x = wrap_coordinate(x, static_cast<float>(width - 1));
    y = wrap_coordinate(y, static_cast<float>(height - 1));
    int ix = wrapped_index(x), iy = wrapped_index(y);
    float fx = x - ix, fy = y - iy;
    const unsigned char* p = data + static_cast<long>(iy) * width + ix;
    float a = p[0], b = p[1], c = p[width], d = p[width + 1];
    float v = ((b - a) * fx + a) + (c - a) * fy + (fx * fy) * (a - c - b + d);
    // A NaN coordinate makes its fraction, and so the mix, NaN: that has no int value.
    if (std::isnan(v)) return 0;
    return static_cast<unsigned char>(static_cast<int>(v));
}

unsigned char FlicImage::interpConst(float x, float y) const {
    if (width < 1 || height < 1 || !data) return 0;
    int ix = width < 2 ? 0 : wrapped_index(wrap_coordinate(x, static_cast<float>(width - 1)));
    int iy = height < 2 ? 0 : wrapped_index(wrap_coordinate(y, static_cast<float>(height - 1)));
    return data[static_cast<long>(iy) * width + ix];
}

void FlicImage::createRandom(int binary, int seed) {
    if (seed > 0) srand48(seed);
    long long rowBytes = row_byte_count(*this);
    if (!data) return;
    for (int y = 0; y < height; y++) {
        unsigned char* row = data + static_cast<long>(y) * bytesPerLine;
        for (long long i = 0; i < rowBytes; i++) {
            double r = drand48();
            if (binary)
                row[i] = r >= 0.5 ? 255 : 0;
            else
                row[i] = static_cast<unsigned char>(static_cast<int>(r * 255.9999));
        }
    }
}

void FlicImage::getStatistics(float& mean, float& sdev) const {
    float sum = 0.0f, sumsq = 0.0f;
    long long rowBytes = row_byte_count(*this);
    if (data) {
        for (int y = 0; y < height; y++) {
            const unsigned char* row = data + static_cast<long>(y) * bytesPerLine;
            for (long long i = 0; i < rowBytes; i++) {
                int v = row[i];
                sum += v;
                sumsq += v * v;
            }
        }
    }
    float n = static_cast<float>(row_byte_count(*this) * height);
    mean = sum / n;
    float variance = (sumsq - mean * (n * mean)) / (n - 1);
    sdev = sqrtf(variance);
}

int FlicImage::writeHistogram(const char* filename) const {
    int count[256] = {0};
    long long sum = 0; // the sum of more than 8 million bytes of 255 would overflow an int
    long long total = static_cast<long long>(width) * height;
    for (long long i = 0; data && i < total; i++) {
        count[data[i]]++;
        sum += data[i];
    }
    FILE* file = fopen(filename, "wb");
    if (!file) {
        fprintf(stderr, "FlicImage: Can't write histogram %s\n", filename);
        return 0;
    }
    for (int v = 0; v < 256; v++)
        fprintf(file, "%d %d\n", v, count[v]);
    fclose(file);
    printf("Mean = %g\n", static_cast<float>(sum) / static_cast<float>(total));
    return 1;
}

namespace {

// Writes the pixels of an ASCII PNM body; the pixel counter runs over the whole file and a
// newline follows every 16th pixel, a blank every other one.
void write_ascii_body(FILE* file, const FlicImage& image, bool colour) {
    long written = 0;
    for (int y = image.height - 1; y >= 0; y--) {
        const unsigned char* row = image.data + static_cast<long>(y) * image.bytesPerLine;
        for (int x = 0; x < image.width; x++) {
            if (colour)
                fprintf(file, "%03d %03d %03d", row[3 * x], row[3 * x + 1], row[3 * x + 2]);
            else
                fprintf(file, "%03d ", row[x]);
            written++;
            fputc(written % 16 == 0 ? '\n' : ' ', file);
        }
    }
}

} // namespace

int FlicImage::writePNM(const char* filename, int ascii) const {
    FILE* file = fopen(filename, "wb");
    if (!file) {
        fprintf(stderr, "FlicImage: Can't open file %s\n", filename);
        return 0;
    }
    bool colour = nChannels == 3;
    const char* magic = colour ? (ascii ? "P3" : "P6") : (ascii ? "P2" : "P5");
    fprintf(file, "%s\n%d %d\n255\n", magic, width, height);
    if (data) {
        if (ascii) {
            write_ascii_body(file, *this, colour);
        } else {
            size_t rowBytes = static_cast<size_t>(colour ? 3 * width : width);
            for (int y = height - 1; y >= 0 && width > 0; y--)
                fwrite(data + static_cast<long>(y) * bytesPerLine, 1, rowBytes, file);
        }
    }
    fclose(file);
    return 1;
}

namespace {

// Pixel data a header may announce without the file holding it: a short file of up to this many
// bytes of pixels is read as far as it goes (the rest keeps what the resized block held, or
// repeats the last ASCII sample). Beyond it, a header whose data the file cannot hold is
// refused, so that a few bytes cannot make the reader claim and fill gigabytes.
const long long kUncheckedPixelBytes = 16LL << 20;

// Whether the rest of `file` can hold `count` samples (one byte each in the binary formats;
// at least a digit and a separator each in the ASCII formats), or the data is small enough to
// be read from a short file. Streams whose size is unknown (pipes) are not checked.
bool announced_size_acceptable(FILE* file, long long count, bool binary) {
    if (count <= kUncheckedPixelBytes) return true;
    struct stat info;
    long position = ftell(file);
    if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode) || position < 0) return true;
    long long available = static_cast<long long>(info.st_size) - position;
    long long needed = binary ? count : 2 * count - 1;
    return available >= needed;
}

// The file name as a format text that prints it literally ('%' doubled).
void literal_format(const char* text, char* format, size_t size) {
    size_t out = 0;
    for (const char* p = text; *p && out + 2 < size; p++) {
        format[out++] = *p;
        if (*p == '%') format[out++] = '%';
    }
    format[out] = '\0';
}

} // namespace

int FlicImage::readPNM(const char* filename) {
    FILE* file = fopen(filename, "rb");
    if (!file) return flic_ioerror(filename, nullptr);

    char magic[32] = "";
    char line[256];
    if (!fgets(magic, 32, file)) magic[0] = '\0';
    int w = 0, h = 0, maxValue = 0;
    flic_image::read_pnm_header_line(file, line, 255);
    int converted = sscanf(line, "%d %d", &w, &h);
    int numbers = converted > 0 ? converted : 0;
    flic_image::read_pnm_header_line(file, line, 255);
    converted = sscanf(line, "%d", &maxValue);
    numbers += converted > 0 ? converted : 0;

    int channels = (strncmp(magic, "P6", 2) == 0 || strncmp(magic, "P3", 2) == 0) ? 3 : 1;
    if (numbers != 3 || w <= 0 || h <= 0 || !byte_count_fits(w, h, channels)) {
        fclose(file);
        return flic_ioerror(filename, "couldn't read dimensions");
    }
    bool binary = strncmp(magic, "P5", 2) == 0 || strncmp(magic, "P6", 2) == 0;
    bool ascii = strncmp(magic, "P2", 2) == 0 || strncmp(magic, "P3", 2) == 0;
    long long samples = static_cast<long long>(w) * h * channels;
    if ((binary || ascii) && !announced_size_acceptable(file, samples, binary)) {
        fclose(file);
        return flic_ioerror(filename, "file too short for its dimensions");
    }

    if (binary) {
        if (!setSize(w, h, channels)) {
            fclose(file);
            return 0;
        }
        for (int y = h - 1; y >= 0; y--)
            if (fread(data + static_cast<long>(y) * bytesPerLine, 1, channels * w, file) == 0)
                break; // nothing more to read: the remaining rows keep their bytes
    } else if (ascii) {
        if (!setSize(w, h, channels)) {
            fclose(file);
            return 0;
        }
        // A sample that cannot be parsed repeats the last one. A failed scan leaves the stream
        // where it failed, so every later scan would fail the same way: stop scanning then.
        int v[3] = {0, 0, 0};
        bool readable = true;
        for (int y = h - 1; y >= 0; y--) {
            unsigned char* row = data + static_cast<long>(y) * bytesPerLine;
            for (int x = 0; x < w; x++) {
                if (readable) {
                    int got = channels == 1 ? fscanf(file, "%d", &v[0])
                                            : fscanf(file, "%d%d%d", &v[0], &v[1], &v[2]);
                    readable = got == channels;
                }
                for (int c = 0; c < channels; c++)
                    row[channels * x + c] = static_cast<unsigned char>(v[c]);
            }
        }
    } else {
        fclose(file);
        char format[1024];
        literal_format(filename, format, sizeof format);
        // The file name is the whole message; the reason is passed but not shown.
        return flic_error(format, "no PNM header found");
    }
    fclose(file);
    return 1;
}
