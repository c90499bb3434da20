// FlicHistogram and the tone mappings built on exact byte counts: contrast adjustment,
// percentile stretch and (contrast-limited adaptive) histogram equalisation. Every mapping is a
// 256-entry table per channel (per tile for the adaptive one), applied to the non-zero bytes.
#include "histogram.h"

#include "messages.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace {

typedef unsigned char ToneTable[256];

unsigned char* row_start(FlicImage& image, int y) {
    return image.data + static_cast<std::ptrdiff_t>(y) * image.bytesPerLine;
}

bool has_pixels(const FlicImage& image) {
    return image.data && image.width > 0 && image.height > 0 && image.nChannels >= 1 &&
           image.nChannels <= 3;
}

unsigned char held_byte(double t) {
    if (!(t >= 0.0)) return 0;
    if (t >= 255.0) return 255;
    return static_cast<unsigned char>(static_cast<int>(t));
}

// Replaces every non-zero byte of each channel by its channel's table entry.
void apply_tables(FlicImage& image, const ToneTable* tables) {
    int channels = image.nChannels;
    for (int y = 0; y < image.height; y++) {
        unsigned char* row = row_start(image, y);
        for (int x = 0; x < image.width; x++)
            for (int c = 0; c < channels; c++) {
                unsigned char& v = row[x * channels + c];
                if (v) v = tables[c][v];
            }
    }
}

// The equalising table of a histogram of the non-zero bytes (bins 1..255, counts as doubles
// so that clipped histograms fit): the cumulative share of each value spread over 1..255,
// starting from the lowest value present. A histogram with one value or none keeps its bytes.
void equalising_table(const double* bins, ToneTable table) {
    double total = 0.0, first = -1.0;
    for (int v = 1; v < 256; v++) {
        if (first < 0.0 && bins[v] > 0.0) first = bins[v];
        total += bins[v];
    }
    table[0] = 0;
    double below = 0.0;
    for (int v = 1; v < 256; v++) {
        below += bins[v];
        if (!(total > first))
            table[v] = static_cast<unsigned char>(v);
        else
            table[v] = held_byte(1.0 + 254.0 * (below - first) / (total - first) + 0.5);
        if (table[v] == 0) table[v] = 1; // values below the lowest present: not no-data
    }
}

// Limits every bin to clipLimit times the mean bin count and spreads the excess evenly.
void clip_bins(double* bins, float clipLimit) {
    double total = 0.0;
    for (int v = 1; v < 256; v++)
        total += bins[v];
    double limit = clipLimit * total / 255.0, excess = 0.0;
    for (int v = 1; v < 256; v++)
        if (bins[v] > limit) {
            excess += bins[v] - limit;
            bins[v] = limit;
        }
    for (int v = 1; v < 256; v++)
        bins[v] += excess / 255.0;
}

// The adaptive tables of one channel: tiles x tiles tables, tile (tx, ty) covering pixels
// [tx * width / tiles, (tx + 1) * width / tiles) and likewise for rows.
void tile_tables(const FlicImage& image, int channel, int tilesX, int tilesY, float clipLimit,
                 std::vector<unsigned char>& tables) {
    tables.assign(static_cast<size_t>(tilesX) * tilesY * 256, 0);
    for (int ty = 0; ty < tilesY; ty++)
        for (int tx = 0; tx < tilesX; tx++) {
            double bins[256] = {0.0};
            int x0 = static_cast<int>(static_cast<long long>(tx) * image.width / tilesX);
            int x1 = static_cast<int>(static_cast<long long>(tx + 1) * image.width / tilesX);
            int y0 = static_cast<int>(static_cast<long long>(ty) * image.height / tilesY);
            int y1 = static_cast<int>(static_cast<long long>(ty + 1) * image.height / tilesY);
            for (int y = y0; y < y1; y++) {
                const unsigned char* row =
                    image.data + static_cast<std::ptrdiff_t>(y) * image.bytesPerLine;
                for (int x = x0; x < x1; x++)
                    bins[row[x * image.nChannels + channel]] += 1.0;
            }
            bins[0] = 0.0;
            clip_bins(bins, clipLimit);
            equalising_table(bins, &tables[(static_cast<size_t>(ty) * tilesX + tx) * 256]);
        }
}

// Position of a pixel among the tile centres along one axis: the lower tile and the weight of
// the upper one.
void tile_blend(int pixel, int size, int tiles, int& lower, int& upper, float& weight) {
    float f = (pixel + 0.5f) * tiles / size - 0.5f;
    lower = static_cast<int>(std::floor(f));
    weight = f - lower;
    if (lower < 0) {
        lower = 0;
        weight = 0.0f;
    }
    if (lower >= tiles - 1) {
        lower = tiles - 1;
        weight = 0.0f;
    }
    upper = lower + 1 < tiles ? lower + 1 : lower;
}

void equalize_adaptive(FlicImage& image, int tiles, float clipLimit) {
    int tilesX = tiles < image.width ? tiles : image.width;
    int tilesY = tiles < image.height ? tiles : image.height;
    std::vector<int> lowerX(image.width), upperX(image.width);
    std::vector<float> weightX(image.width);
    for (int x = 0; x < image.width; x++)
        tile_blend(x, image.width, tilesX, lowerX[x], upperX[x], weightX[x]);
    std::vector<unsigned char> tables;
    for (int c = 0; c < image.nChannels; c++) {
        tile_tables(image, c, tilesX, tilesY, clipLimit, tables);
        for (int y = 0; y < image.height; y++) {
            int ty0, ty1;
            float wy;
            tile_blend(y, image.height, tilesY, ty0, ty1, wy);
            unsigned char* row = row_start(image, y);
            for (int x = 0; x < image.width; x++) {
                unsigned char& v = row[x * image.nChannels + c];
                if (!v) continue;
                const unsigned char* t00 = &tables[(ty0 * tilesX + lowerX[x]) * 256];
                const unsigned char* t01 = &tables[(ty0 * tilesX + upperX[x]) * 256];
                const unsigned char* t10 = &tables[(ty1 * tilesX + lowerX[x]) * 256];
                const unsigned char* t11 = &tables[(ty1 * tilesX + upperX[x]) * 256];
                float wx = weightX[x];
                float top = t00[v] + (t01[v] - t00[v]) * wx;
                float bottom = t10[v] + (t11[v] - t10[v]) * wx;
                v = held_byte(top + (bottom - top) * wy + 0.5f);
            }
        }
    }
}

} // namespace

FlicHistogram::FlicHistogram() : nChannels(0) {
    memset(counts, 0, sizeof counts);
}

long long FlicHistogram::count(const FlicImage& image) {
    memset(counts, 0, sizeof counts);
    nChannels = 0;
    if (!has_pixels(image)) return 0;
    nChannels = image.nChannels;
    for (int y = 0; y < image.height; y++) {
        const unsigned char* row = image.data + static_cast<std::ptrdiff_t>(y) * image.bytesPerLine;
        if (nChannels == 1) {
            for (int x = 0; x < image.width; x++)
                counts[0][row[x]]++;
            continue;
        }
        for (int x = 0; x < image.width; x++)
            for (int c = 0; c < nChannels; c++)
                counts[c][row[x * nChannels + c]]++;
    }
    return static_cast<long long>(image.width) * image.height;
}

long long FlicHistogram::statistics(int channel, int skipZeros, double& mean, double& sdev) const {
    long long bins[256] = {0};
    for (int c = 0; c < nChannels; c++)
        if (channel < 0 || channel == c)
            for (int v = 0; v < 256; v++)
                bins[v] += counts[c][v];
    if (skipZeros) bins[0] = 0;
    long long n = 0, sum = 0;
    for (int v = 0; v < 256; v++) {
        n += bins[v];
        sum += bins[v] * v;
    }
    mean = sdev = 0.0;
    if (n == 0) return 0;
    mean = static_cast<double>(sum) / n;
    if (n == 1) return n;
    double squares = 0.0;
    for (int v = 0; v < 256; v++)
        squares += bins[v] * ((v - mean) * (v - mean));
    sdev = std::sqrt(squares / (n - 1));
    return n;
}

int FlicHistogram::percentile(int channel, double fraction) const {
    long long bins[256] = {0}, n = 0;
    for (int c = 0; c < nChannels; c++)
        if (channel < 0 || channel == c)
            for (int v = 1; v < 256; v++)
                bins[v] += counts[c][v];
    for (int v = 1; v < 256; v++)
        n += bins[v];
    if (n == 0) return 0;
    long long below = 0;
    for (int v = 1; v < 256; v++) {
        below += bins[v];
        if (below > 0 && below >= fraction * n) return v;
    }
    return 255;
}

int flicAdjustContrast(FlicImage& image, float mean, float sdev) {
    FlicHistogram histogram;
    if (!histogram.count(image)) return 0;
    double m = 128.0, s = 0.0, gain = 1.0;
    long long n = histogram.statistics(-1, 1, m, s);
    if (n == 0) m = 128.0;
    if (n > 1 && s > 0.1) gain = sdev / s;
    ToneTable table;
    table[0] = 0;
    for (int v = 1; v < 256; v++)
        table[v] = held_byte((v - m) * gain + mean + 0.5);
    ToneTable tables[3];
    for (int c = 0; c < 3; c++)
        memcpy(tables[c], table, sizeof table);
    apply_tables(image, tables);
    return 1;
}

int flicStretchContrast(FlicImage& image, double low, double high) {
    if (!(low >= 0.0 && low < high && high <= 1.0))
        return flic_error("stretch: percentiles %g and %g are not 0 <= low < high <= 1", low, high);
    FlicHistogram histogram;
    if (!histogram.count(image)) return 1;
    ToneTable tables[3];
    for (int c = 0; c < image.nChannels; c++) {
        int lo = histogram.percentile(c, low), hi = histogram.percentile(c, high);
        tables[c][0] = 0;
        for (int v = 1; v < 256; v++)
            tables[c][v] = hi > lo ? held_byte(1.0 + 254.0 * (v - lo) / (hi - lo) + 0.5)
                                   : static_cast<unsigned char>(v);
        for (int v = 1; v < 256; v++)
            if (tables[c][v] == 0) tables[c][v] = 1;
    }
    apply_tables(image, tables);
    return 1;
}

int flicEqualize(FlicImage& image, int tiles, float clipLimit) {
    if (tiles != 0 && (tiles < 2 || tiles > 64))
        return flic_error("equalize: %d tiles per side outside 2 .. 64 (0: the whole picture)",
                          tiles);
    if (tiles != 0 && !(clipLimit >= 1.0f && clipLimit <= 256.0f))
        return flic_error("equalize: clip limit %g outside 1 .. 256", clipLimit);
    if (!has_pixels(image)) return 1;
    if (tiles != 0) {
        equalize_adaptive(image, tiles, clipLimit);
        return 1;
    }
    FlicHistogram histogram;
    histogram.count(image);
    ToneTable tables[3];
    for (int c = 0; c < image.nChannels; c++) {
        double bins[256];
        for (int v = 0; v < 256; v++)
            bins[v] = static_cast<double>(histogram.counts[c][v]);
        bins[0] = 0.0;
        equalising_table(bins, tables[c]);
    }
    apply_tables(image, tables);
    return 1;
}
