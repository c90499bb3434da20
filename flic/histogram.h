// FlicHistogram: exact byte counts of an image, with the statistics and tone mappings that are
// built on them (contrast adjustment, equalisation, percentile stretch). Integer counts make the
// figures exact at any image size, where single-precision running sums drift on large images.
#ifndef MUSKEIP_HISTOGRAM_H
#define MUSKEIP_HISTOGRAM_H

#include "api.h"

#include "image.h"

class MUSKEIP_API FlicHistogram {
  public:
    long long counts[3][256]; // bytes of each value, per channel (grey images use channel 0)
    int nChannels;            // channels counted, 0 before count

    FlicHistogram();
    // Counts the bytes of every channel of the image (the first width * nChannels bytes of each
    // row). Returns the number of pixels counted (0 for an image without pixels).
    long long count(const FlicImage& image);
    // Mean and standard deviation (divided by n - 1) of one channel, or of all channels
    // together for channel -1, computed exactly from the counts; with skipZeros, bytes of 0
    // (the pixels no field line reached) are left out. Returns the number of bytes the figures
    // describe; with none, mean and sdev are 0, with one, sdev is 0.
    long long statistics(int channel, int skipZeros, double& mean, double& sdev) const;
    // The smallest byte value v of one channel (-1: all) such that at least `fraction` of its
    // non-zero bytes are <= v; 0 when the channel has no non-zero byte.
    int percentile(int channel, double fraction) const;
};

// Contrast adjustment with exact statistics: every non-zero byte v becomes
// (v - m) * (sdev / s) + mean, rounded and held to 0..255, where m and s are the exact mean and
// standard deviation of all non-zero bytes (the gain stays 1 when s <= 0.1 or there is a single
// non-zero byte; m is 128 when there is none). Zero bytes stay 0. Returns 1, or 0 for an image
// without pixels (nothing changed).
MUSKEIP_API int flicAdjustContrast(FlicImage& image, float mean, float sdev);
// Linear stretch of each channel's non-zero bytes so that the given lower and upper
// percentiles (fractions, 0 <= low < high <= 1) map to 1 and 255, held to 1..255. Returns 1, or
// 0 through flic_error for bad percentiles (image unchanged).
MUSKEIP_API int flicStretchContrast(FlicImage& image, double low, double high);
// Histogram equalisation of each channel's non-zero bytes onto 1..255 (zero bytes stay 0).
// tiles = 0 equalises the whole picture; tiles = 2..64 is contrast-limited adaptive
// equalisation over a tiles x tiles grid: each tile's histogram is clipped at clipLimit times
// its mean bin count (the excess spread evenly over all bins), and every pixel blends the
// mappings of its four nearest tile centres bilinearly. Returns 1, or 0 through flic_error for
// tiles or clipLimit out of range (image unchanged).
MUSKEIP_API int flicEqualize(FlicImage& image, int tiles = 0, float clipLimit = 2.0f);

#endif
