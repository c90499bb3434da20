// FlicImage::zoom: separable resampling, rows first into an intermediate image, then columns.
// For every output position a list of source samples and weights is built once per pass and
// applied to every row (or column) and channel.
#include "zoom.h"

#include "image.h"
#include "messages.h"

#include <climits>
#include <cmath>
#include <new>
#include <vector>

float triangle_filter_function(float t) {
    float a = std::fabs(t);
    if (a < 1.0f) return 1.0f - a;
    return 0.0f;
}

namespace {

// The resampling filter and its support radius in source samples at scale 1.
float (*filterf)(float) = triangle_filter_function;
const float fwidth = 1.0f;

struct Contributor {
    int pixel;    // source index along the pass
    float weight; // filter weight
};

// The contributor lists of one pass: list i holds entries first[i] .. first[i + 1] - 1.
struct ContributorLists {
    std::vector<Contributor> entries;
    std::vector<int> first;
};

// Source index for filter position j: mirrored about sample 0 below the line (-1 -> 1) and
// about the outer edge of the last sample above it (size -> size - 1). Lines too short for
// one mirroring are clamped; the weights at such positions are zero.
int mirrored_index(int j, int size) {
    if (j < 0)
        j = -j;
    else if (j >= size)
        j = 2 * size - 1 - j;
    if (j < 0) return 0;
    if (j >= size) return size - 1;
    return j;
}

// Builds the lists for resampling a line of `size` samples to `newSize`. Positions are
// anchored at index 0: output i sits at source position i / scale.
void build_contributors(int size, int newSize, ContributorLists& lists) {
    float scale = static_cast<float>(newSize) / static_cast<float>(size);
    bool reducing = scale < 1.0f;
    float support = reducing ? fwidth / scale : fwidth;
    float fscale = 1.0f / scale;
    lists.entries.clear();
    lists.first.assign(1, 0);
    for (int i = 0; i < newSize; i++) {
        float center = static_cast<float>(i) / scale;
        int left = static_cast<int>(ceilf(center - support));
        int right = static_cast<int>(floorf(center + support));
        for (int j = left; j <= right; j++) {
            float weight = reducing ? filterf((center - static_cast<float>(j)) / fscale) / fscale
                                    : filterf(center - static_cast<float>(j));
            // A zero weight adds exactly +0 to a sum of non-negative terms: left out.
            if (weight != 0.0f) lists.entries.push_back({mirrored_index(j, size), weight});
        }
        lists.first.push_back(static_cast<int>(lists.entries.size()));
    }
}

// The stored value of a weighted sum: truncated toward zero, low 8 bits (no clamping).
inline unsigned char wrapped_byte(float sum) {
    return static_cast<unsigned char>(static_cast<int>(sum));
}

// Resamples every row of `source` (all channels) to the width of `target`.
void resample_rows(const FlicImage& source, const ContributorLists& lists, FlicImage& target) {
    int channels = source.nChannels;
    std::vector<float> line(static_cast<size_t>(source.width) * channels);
    for (int k = 0; k < source.height; k++) {
        const unsigned char* row = source.data + static_cast<long>(k) * source.bytesPerLine;
        for (size_t s = 0; s < line.size(); s++)
            line[s] = row[s];
        unsigned char* out = target.data + static_cast<long>(k) * target.bytesPerLine;
        for (int i = 0; i < target.width; i++) {
            for (int c = 0; c < channels; c++) {
                float sum = 0.0f;
                for (int e = lists.first[i]; e < lists.first[i + 1]; e++) {
                    const Contributor& con = lists.entries[e];
                    sum += line[static_cast<size_t>(con.pixel) * channels + c] * con.weight;
                }
                out[static_cast<long>(i) * channels + c] = wrapped_byte(sum);
            }
        }
    }
}

// Resamples every column of `source` to the height of `target`. Each output row is summed
// for all columns at once, contributor by contributor, so every value sees the same sequence
// of additions as a column-by-column sum while rows are read contiguously.
// `sums` holds a float for every byte of a source row.
void resample_columns(const FlicImage& source, const ContributorLists& lists, FlicImage& target,
                      std::vector<float>& sums) {
    size_t rowValues = static_cast<size_t>(source.width) * source.nChannels;
    for (int i = 0; i < target.height; i++) {
        for (size_t s = 0; s < rowValues; s++)
            sums[s] = 0.0f;
        for (int e = lists.first[i]; e < lists.first[i + 1]; e++) {
            const Contributor& con = lists.entries[e];
            const unsigned char* row =
                source.data + static_cast<long>(con.pixel) * source.bytesPerLine;
            for (size_t s = 0; s < rowValues; s++)
                sums[s] += static_cast<float>(row[s]) * con.weight;
        }
        unsigned char* out = target.data + static_cast<long>(i) * target.bytesPerLine;
        for (size_t s = 0; s < rowValues; s++)
            out[s] = wrapped_byte(sums[s]);
    }
}

// Formed in double: exact near the int range, and no product of three ints overflows it.
bool byte_count_fits(int width, int height, int channels) {
    return static_cast<double>(width) * height * channels <= INT_MAX;
}

// Whether the contributor lists of a pass from `size` to `newSize` samples fit a 32-bit byte
// count, like the images themselves. Each output position takes at most the samples within its
// support on both sides (twice the support plus one); the lists outgrow the image only for
// lines far longer than the image is high, as when a single row is stretched.
bool contributors_fit(int size, int newSize) {
    if (size <= 0 || newSize <= 0) return true;
    double scale = static_cast<double>(newSize) / size;
    double support = scale < 1.0 ? fwidth / scale : fwidth;
    double entries = newSize * (2.0 * support + 1.0);
    double bytes = entries * sizeof(Contributor) + (newSize + 1.0) * sizeof(int);
    return bytes <= INT_MAX;
}

// Both passes of zoom, for sizes already checked. Every work buffer is made before the target
// is resized, so running out of memory (a failed image reported by setSize, or std::bad_alloc
// from the lists, caught by zoom) leaves the source and the target as they were. Rows go first:
// the source is read completely before the target is resized, so zooming in place is safe.
int zoom_passes(const FlicImage& source, bool hasPixels, int newWidth, int newHeight,
                FlicImage& target) {
    FlicImage intermediate(newWidth, source.height, source.nChannels);
    if (intermediate.width != newWidth) return 0;
    bool columnPass = hasPixels && newWidth > 0 && newHeight > 0;
    ContributorLists rowLists, columnLists;
    std::vector<float> sums;
    if (hasPixels && newWidth > 0) {
        build_contributors(source.width, newWidth, rowLists);
        resample_rows(source, rowLists, intermediate);
    }
    if (columnPass) {
        build_contributors(intermediate.height, newHeight, columnLists);
        sums.resize(static_cast<size_t>(intermediate.width) * intermediate.nChannels);
    }
    // The column pass works from the intermediate alone: resizing the target in place has
    // already replaced the source's geometry.
    if (!target.setSize(newWidth, newHeight, intermediate.nChannels)) return 0;
    if (columnPass) resample_columns(intermediate, columnLists, target, sums);
    return 1;
}

} // namespace

int FlicImage::zoom(int newWidth, int newHeight, FlicImage* result) {
    if (result == this) result = nullptr;
    if (newWidth < 0 || newHeight < 0)
        return flic_error("zoom: new size %d x %d is negative", newWidth, newHeight);
    bool hasPixels = width > 0 && height > 0 && nChannels > 0 && data;
    if (!hasPixels && newWidth > 0 && newHeight > 0)
        return flic_error("zoom: the image to be zoomed has no pixels");
    if (!byte_count_fits(newWidth, height, nChannels) ||
        !byte_count_fits(newWidth, newHeight, nChannels) || !contributors_fit(width, newWidth) ||
        !contributors_fit(height, newHeight))
        return flic_error("zoom: new size %d x %d x %d is too large", newWidth, newHeight,
                          nChannels);

    try {
        return zoom_passes(*this, hasPixels, newWidth, newHeight, result ? *result : *this);
    } catch (const std::bad_alloc&) {
        return flic_error("zoom: no memory for the filter weights of new size %d x %d", newWidth,
                          newHeight);
    }
}
