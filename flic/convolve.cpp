// Packed-table convolution (flic_initPackedLuts, flic_fastconv) and the grey-image filters
// FlicImage::convolve, gaussBlur and medianFilter.
#include "convolve.h"

#include "image.h"
#include "messages.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

uint32_t globalLUT[FLIC_LUT_WORDS];
uint32_t* luts = globalLUT;

namespace {

// Largest half-kernel the three tables hold: three groups of three half-taps.
const int kMaxHalfTaps = 9;

// A packed field: the product w * v in quarter units, rounded half up (the float-to-int
// conversion truncates, the shift floors).
int quarter_product(float weight, float value) {
    return static_cast<int>(weight * value * 262144.0 + 32768.0) >> 16;
}

// Lifts the field of a negative weight to non-negative values; 0 for other weights.
int field_offset(float weight) {
    return weight < 0 ? static_cast<int>(-weight * 1024.0) : 0;
}

// Sum of the full symmetric filter: centre once, every other half-tap twice.
float full_filter_sum(const float* kernel, int n) {
    float sides = 0.0f;
    for (int j = 1; j < n; j++)
        sides += kernel[j];
    return kernel[0] + 2.0f * sides;
}

// Fills one table with the packed products of every grey value with the weights a, b, c.
void fill_table(uint32_t* table, float a, float b, float c, int oa, int ob, int oc) {
    for (int v = 0; v < FLIC_LUT_ENTRIES; v++) {
        float fv = static_cast<float>(v);
        uint32_t fieldA = static_cast<uint32_t>(quarter_product(a, fv) + oa);
        uint32_t fieldB = static_cast<uint32_t>(quarter_product(b, fv) + ob + 1);
        uint32_t fieldC = static_cast<uint32_t>(quarter_product(c, fv) + oc);
        table[v] = fieldA + (fieldB << 10) + (fieldC << 20);
    }
}

// The padded line of flic_fastconv, grown to the longest line seen so far. Like the tables it
// is process-wide state; growing happens outside the per-sample loop only.
struct PaddedLine {
    unsigned char* bytes = nullptr;
    size_t size = 0;
};
PaddedLine paddedLine;

// Makes the padded line hold at least `needed` bytes. Returns false after reporting when there
// is no memory for it (the line keeps its old size).
bool reserve_padded_line(size_t needed) {
    if (paddedLine.size >= needed) return true;
    void* grown = realloc(paddedLine.bytes, needed);
    if (!grown) return flic_error("convolve: no memory for a line of %zu bytes", needed);
    paddedLine.bytes = static_cast<unsigned char*>(grown);
    paddedLine.size = needed;
    return true;
}

// Bytes of the padded line for lines of n samples under the current tables.
size_t padded_line_bytes(int n) {
    return static_cast<size_t>(n) + 2 * static_cast<size_t>(3 * luts[FLIC_LUT_GROUPS] - 1);
}

// Copies the n samples into `padded` with `pad` copies of the first sample before them and of
// the last sample after them.
void build_padded_line(const unsigned char* src, int n, int stride, int pad,
                       unsigned char* padded) {
    memset(padded, src[0], pad);
    if (stride == 1) {
        memcpy(padded + pad, src, n);
    } else {
        long offset = 0;
        for (int i = 0; i < n; i++, offset += stride)
            padded[pad + i] = src[offset];
    }
    memset(padded + pad + n, src[static_cast<long>(n - 1) * stride], pad);
}

// Final rounding: S is four times the filtered value plus 2; clamped to a byte (written as
// selections, which compile without branches).
inline unsigned char packed_result(int sum) {
    int value = sum >> 2;
    value = value < 0 ? 0 : value;
    value = value > 255 ? 255 : value;
    return static_cast<unsigned char>(value);
}

// Convolution with Groups tap groups over a padded line; x(j) is sample j of the clamped line,
// found at padded[j + pad]. Each group keeps a left accumulator whose low field collects the
// samples at and before i - 3t and a right one whose top field collects those at and after
// i + 3t. The group loops have a fixed trip count and are unrolled by the compiler, so the
// sample loop carries Groups accumulator pairs in registers.
template <int Groups>
void convolve_groups(const unsigned char* padded, int n, unsigned char* dst, int dstStride,
                     const uint32_t* tables, uint32_t bias) {
    const int pad = 3 * Groups - 1;
    const unsigned char* x = padded + pad;
    uint32_t left[Groups], right[Groups];
    for (int t = 0; t < Groups; t++) {
        const uint32_t* e = tables + t * FLIC_LUT_ENTRIES;
        left[t] = (e[x[-3 * t - 2]] >> 10) + e[x[-3 * t - 1]];
        right[t] = (e[x[3 * t]] << 10) + e[x[3 * t + 1]];
    }
    long out = 0;
    for (int i = 0; i < n; i++, out += dstStride) {
        uint32_t fields = 0;
        for (int t = 0; t < Groups; t++) {
            const uint32_t* e = tables + t * FLIC_LUT_ENTRIES;
            left[t] = (left[t] >> 10) + e[x[i - 3 * t]];
            right[t] = (right[t] << 10) + e[x[i + 3 * t + 2]];
            fields += (left[t] & 1023) + ((right[t] >> 20) & 1023);
        }
        dst[out] = packed_result(static_cast<int>(fields) - static_cast<int>(bias));
    }
}

// Columns per strip of the column pass: the strip's accumulators (up to 6 words per column)
// stay in the first-level cache while the strip's rows are read in order.
const int kColumnStrip = 512;

// The column pass of convolve: the same arithmetic as convolve_groups applied to every column
// of a strip at once, row by row. Rows beyond the first and last are clamped, which is what
// the padded line holds.
template <int Groups>
void convolve_column_strip(const unsigned char* src, long srcStride, int columns, int n,
                           unsigned char* dst, long dstStride, const uint32_t* tables,
                           uint32_t bias) {
    uint32_t left[Groups][kColumnStrip], right[Groups][kColumnStrip];
    auto row = [src, srcStride, n](int j) {
        return src + (j < 0 ? 0 : (j >= n ? n - 1 : j)) * srcStride;
    };
    for (int t = 0; t < Groups; t++) {
        const uint32_t* e = tables + t * FLIC_LUT_ENTRIES;
        const unsigned char *l2 = row(-3 * t - 2), *l1 = row(-3 * t - 1);
        const unsigned char *r0 = row(3 * t), *r1 = row(3 * t + 1);
        for (int c = 0; c < columns; c++) {
            left[t][c] = (e[l2[c]] >> 10) + e[l1[c]];
            right[t][c] = (e[r0[c]] << 10) + e[r1[c]];
        }
    }
    for (int i = 0; i < n; i++) {
        const unsigned char *leftRow[Groups], *rightRow[Groups];
        for (int t = 0; t < Groups; t++) {
            leftRow[t] = row(i - 3 * t);
            rightRow[t] = row(i + 3 * t + 2);
        }
        unsigned char* out = dst + i * dstStride;
        for (int c = 0; c < columns; c++) {
            uint32_t fields = 0;
            for (int t = 0; t < Groups; t++) {
                const uint32_t* e = tables + t * FLIC_LUT_ENTRIES;
                left[t][c] = (left[t][c] >> 10) + e[leftRow[t][c]];
                right[t][c] = (right[t][c] << 10) + e[rightRow[t][c]];
                fields += (left[t][c] & 1023) + ((right[t][c] >> 20) & 1023);
            }
            out[c] = packed_result(static_cast<int>(fields) - static_cast<int>(bias));
        }
    }
}

// Convolves every column of a width x n block (rows srcStride apart) into dst (rows dstStride
// apart), strip by strip, with the tables last built.
template <int Groups>
void convolve_columns(const unsigned char* src, long srcStride, int width, int n,
                      unsigned char* dst, long dstStride) {
    uint32_t bias = luts[FLIC_LUT_BIAS];
    for (int x = 0; x < width; x += kColumnStrip) {
        int columns = width - x < kColumnStrip ? width - x : kColumnStrip;
        convolve_column_strip<Groups>(src + x, srcStride, columns, n, dst + x, dstStride, luts,
                                      bias);
    }
}

} // namespace

void flic_initPackedLuts(const float* kernel, int n) {
    if (n >= 1) {
        float sum = full_filter_sum(kernel, n);
        if (std::fabs(sum - 1.0f) > 0.001) fprintf(stderr, "Warning: filter sum != 1 (=%f)\n", sum);
    }
    uint32_t bias = 0;
    uint32_t g = 0;
    for (long long tap = 0; tap < n; tap += 3, g++) {
        float a = kernel[tap];
        float b = tap + 1 < n ? kernel[tap + 1] : 0.0f;
        float c = tap + 2 < n ? kernel[tap + 2] : 0.0f;
        if (g == 0) a = a * 0.5f;
        if (std::fabs(a) + std::fabs(b) + std::fabs(c) > 1.0f) {
            fprintf(stderr, "|%f|+|%f|+|%f| > 1\n", a, b, c);
            exit(1);
        }
        if (std::isnan(a) || std::isnan(b) || std::isnan(c)) {
            flic_error("convolution kernel weight %lld is not a number", tap);
            luts[FLIC_LUT_BIAS] = 0;
            luts[FLIC_LUT_GROUPS] = 0;
            return;
        }
        int oa = field_offset(a), ob = field_offset(b), oc = field_offset(c);
        bias += static_cast<uint32_t>(2 * (oa + ob + oc));
        // Groups beyond the third all land in table 2, each over the one before: only the
        // last of them is filled, so an absurd tap count costs a pass over the taps, not a
        // table per group.
        bool lastGroup = tap + 3 >= n;
        if (g < 3 || lastGroup)
            fill_table(luts + (g < 3 ? g : 2) * FLIC_LUT_ENTRIES, a, b, c, oa, ob, oc);
    }
    luts[FLIC_LUT_BIAS] = bias;
    luts[FLIC_LUT_GROUPS] = g;
}

namespace {

// flic_fastconv with separate steps for reading and writing, so a pass can read a compact
// intermediate and write into rows of any length.
void fastconv_line(const unsigned char* src, int srcStride, int n, unsigned char* dst,
                   int dstStride) {
    uint32_t groups = luts[FLIC_LUT_GROUPS];
    if (n < 1 || groups < 1 || groups > 3) return;
    int pad = 3 * static_cast<int>(groups) - 1;
    // Without memory for the padded line nothing is written (reported).
    if (!reserve_padded_line(padded_line_bytes(n))) return;
    unsigned char* padded = paddedLine.bytes;
    build_padded_line(src, n, srcStride, pad, padded);
    uint32_t bias = luts[FLIC_LUT_BIAS];
    if (groups == 1)
        convolve_groups<1>(padded, n, dst, dstStride, luts, bias);
    else if (groups == 2)
        convolve_groups<2>(padded, n, dst, dstStride, luts, bias);
    else
        convolve_groups<3>(padded, n, dst, dstStride, luts, bias);
}

// Whether the tables last built hold a kernel flic_fastconv applies.
bool packed_tables_usable() {
    uint32_t groups = luts[FLIC_LUT_GROUPS];
    return groups >= 1 && groups <= 3;
}

// The image an operation writes to: `result`, or the image itself when `result` is null or
// the image itself.
FlicImage& target_of(FlicImage& image, FlicImage* result) {
    return result ? *result : image;
}

} // namespace

void flic_fastconv(const unsigned char* src, int n, int stride, unsigned char* dst) {
    fastconv_line(src, stride, n, dst, stride);
}

int FlicImage::convolve(int n, const float* kernel, FlicImage* result) {
    if (result == this) result = nullptr;
    if (n > 0 && !kernel) return flic_error("convolve: no kernel given for %d half-taps", n);
    if (result && !result->setSize(width, height, 1)) return 0;
    FlicImage& target = target_of(*this, result);
    flic_initPackedLuts(kernel, n);
    if (!packed_tables_usable()) return 0;
    if (width < 1 || height < 1 || !data) return 1;

    // Horizontal pass into a compact intermediate, then vertical pass into the target. Both
    // buffers are made first: without memory nothing is written.
    size_t bytes = static_cast<size_t>(width) * height;
    if (!reserve_padded_line(padded_line_bytes(width))) return 0;
    unsigned char* rows = static_cast<unsigned char*>(malloc(bytes));
    if (!rows)
        return flic_error("convolve: no memory for an intermediate image of %d x %d bytes", width,
                          height);
    for (int y = 0; y < height; y++)
        fastconv_line(data + static_cast<long>(y) * bytesPerLine, 1, width,
                      rows + static_cast<size_t>(y) * width, 1);
    uint32_t groups = luts[FLIC_LUT_GROUPS];
    if (groups == 1)
        convolve_columns<1>(rows, width, width, height, target.data, target.bytesPerLine);
    else if (groups == 2)
        convolve_columns<2>(rows, width, width, height, target.data, target.bytesPerLine);
    else
        convolve_columns<3>(rows, width, width, height, target.data, target.bytesPerLine);
    free(rows);
    return 1;
}

namespace {

// The unsupported-kernel outcome of convolve without building anything: nothing is written,
// a separate result is only sized.
int unsupported_kernel(const FlicImage& image, FlicImage* result) {
    if (result) result->setSize(image.width, image.height, 1);
    return 0;
}

// Gaussian half-kernel of n taps with standard deviation n, normalised so that the full
// filter sums to 1.
void gaussian_half_kernel(int n, float* kernel) {
    kernel[0] = 1.0f;
    float sum = 1.0f;
    for (int i = 1; i < n; i++) {
        float t = static_cast<float>(i) / static_cast<float>(n);
        kernel[i] = expf((t * -0.5f) * t);
        sum += kernel[i] + kernel[i];
    }
    for (int i = 0; i < n; i++)
        kernel[i] /= sum;
}

} // namespace

int FlicImage::gaussBlur(int n, FlicImage* result) {
    if (result == this) result = nullptr;
    // Only one to nine half-taps fit the packed tables; other lengths write nothing.
    if (n > kMaxHalfTaps) return unsupported_kernel(*this, result);
    if (n < 1) {
        const float single = 1.0f;
        return convolve(n, &single, result);
    }
    float kernel[kMaxHalfTaps];
    gaussian_half_kernel(n, kernel);
    return convolve(n, kernel, result);
}

namespace {

// Median of nine bytes: each value is inserted after every smaller or equal value already in
// the ascending list; the fifth of nine is the result.
unsigned char median_of_nine(const unsigned char* values) {
    unsigned char sorted[9];
    for (int count = 0; count < 9; count++) {
        unsigned char v = values[count];
        int at = count;
        while (at > 0 && sorted[at - 1] > v) {
            sorted[at] = sorted[at - 1];
            at--;
        }
        sorted[at] = v;
    }
    return sorted[4];
}

inline int clamp_index(int i, int size) {
    return i < 0 ? 0 : (i >= size ? size - 1 : i);
}

} // namespace

int FlicImage::medianFilter(FlicImage* result) {
    if (result == this) result = nullptr;
    // Bytes beyond the first `width` of each row (further channels) keep their values.
    FlicImage filtered(*this);
    // A copy that could not be made (no memory, reported by setSize) filters nothing.
    if (filtered.width != width || filtered.height != height) return 0;
    for (int y = 0; y < height && data; y++) {
        for (int x = 0; x < width; x++) {
            unsigned char window[9];
            int count = 0;
            for (int dy = -1; dy <= 1; dy++) {
                const unsigned char* row =
                    data + static_cast<long>(clamp_index(y + dy, height)) * bytesPerLine;
                for (int dx = -1; dx <= 1; dx++)
                    window[count++] = row[clamp_index(x + dx, width)];
            }
            filtered.data[static_cast<long>(y) * filtered.bytesPerLine + x] =
                median_of_nine(window);
        }
    }
    target_of(*this, result) = filtered;
    return 1;
}
