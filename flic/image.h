// FlicImage: the library's 8-bit raster image of one (grey) or three (RGB) channels.
//
// Layout: row y starts at data + y * bytesPerLine; pixel x occupies nChannels bytes at
// x * nChannels within the row; channels are interleaved R, G, B. Row 0 is the bottom row of
// the picture. The image owns `buffer` (malloc/realloc/free) and may instead wrap caller memory
// through `data`, which it never frees.
//
// Operations taking a trailing `FlicImage* result` work in place when it is null and write into
// `result` (resized as needed) otherwise.
#ifndef MUSKEIP_IMAGE_H
#define MUSKEIP_IMAGE_H

#include "api.h"

class FlicVectorField;

class MUSKEIP_API FlicImage {
  public:
    unsigned char* buffer; // owned pixel block, or null
    unsigned char* data;   // first byte of row 0 (== buffer after every setSize)
    int width;             // pixels per row
    int height;            // number of rows
    int nChannels;         // bytes per pixel: 1 grey, 3 RGB
    int bytesPerLine;      // distance between row starts in bytes

    // Empty image: no pixels, null pointers, zero geometry.
    FlicImage();
    // Grey image of the given size with uninitialised pixels.
    FlicImage(int width, int height);
    // Image of the given size and channel count with uninitialised pixels.
    FlicImage(int width, int height, int nChannels);
    // Wraps caller memory as a grey image with the given row distance; with null `data` it
    // allocates a compact grey image instead (bytesPerLine is then ignored).
    FlicImage(int width, int height, int bytesPerLine, unsigned char* data);
    // As above with an explicit channel count.
    FlicImage(int width, int height, int nChannels, int bytesPerLine, unsigned char* data);
    // Deep, compact copy (rows read by the other image's bytesPerLine).
    FlicImage(const FlicImage& other);
    // Frees the owned block; wrapped memory stays the caller's.
    ~FlicImage();
    // Deep, compact copy into this image (resized to the other's geometry).
    void operator=(const FlicImage& other);
    // Exchanges pixels (owned block or wrapped memory) and geometry with `other`: nothing is
    // copied and nothing can fail.
    void swap(FlicImage& other);

    // --- Container, sampling, statistics, files -------------------------------------------

    // Sets the geometry and (re)allocates the owned block (contents not initialised); a pixel
    // count of zero or less frees the block. Always ends with data == buffer. Returns 1, or 0
    // (image unchanged, error reported) when the byte count does not fit a 32-bit int.
    int setSize(int width, int height, int nChannels);
    // Sets every byte of every row to the low byte of `value`.
    void clear(int value);
    // Bilinear sample of a compact grey image at a position wrapped with period size - 1.
    unsigned char interp(float x, float y) const;
    // Nearest-lower sample of a compact grey image at a wrapped position.
    unsigned char interpConst(float x, float y) const;
    // Fills every byte with white noise from drand48 (seeded with `seed` when it is > 0):
    // 0/255 when `binary` is non-zero, else uniform 0..255.
    void createRandom(int binary, int seed);
    // Mean and standard deviation of all bytes, in single precision.
    void getStatistics(float& mean, float& sdev) const;
    // Writes a 256-line histogram "value count" file and prints the mean on standard output.
    // Returns 1, or 0 with a message on standard error when the file cannot be created.
    int writeHistogram(const char* filename) const;
    // Writes a PNM file (P5/P6 binary, P2/P3 when `ascii` is non-zero). Returns 1, or 0 with a
    // message on standard error when the file cannot be created.
    int writePNM(const char* filename, int ascii = 0) const;
    // Reads a P2, P3, P5 or P6 file into this image, resizing it. Returns 1, or 0 with a report
    // through flic_ioerror/flic_error (image unchanged).
    int readPNM(const char* filename);

    // --- Arithmetic and compositing -------------------------------------------------------

    // Linear stretch of the non-zero bytes to the wanted mean and standard deviation. With a
    // separate result, the statistics are this image's but the bytes adjusted are the result's.
    void autoAdjust(float mean, float sdev, FlicImage* result = nullptr);
    // Maps `low` to 0 and `high` to 255, clamped; high equal to low leaves the bytes as they are.
    void brighten(int low, int high, FlicImage* result = nullptr);
    // RGB to one-channel luminance 0.3 R + 0.59 G + 0.11 B.
    void colorToGrey(FlicImage* result = nullptr);
    // Extracts one channel as a grey image.
    void oneband(int band, FlicImage* result = nullptr);
    // Builds this image as RGB from three grey images. Returns 1, or 0 with a message on
    // standard error if sizes differ.
    int glue(const FlicImage& r, const FlicImage& g, const FlicImage& b);
    // Gives the colour image of the pair the lightness of the grey one. Returns 1, or 0 with a
    // message on standard error (sizes differ, not one grey and one RGB image).
    int mix(const FlicImage& other, FlicImage* result = nullptr);
    // Appends an alpha channel from a one-channel mask; this image's nChannels becomes 2 or 4
    // even with a separate result. Returns 1, or 0 with a message on standard error.
    int applyMask(const FlicImage& mask, FlicImage* result = nullptr);
    // Product of two images scaled by 1/255. Returns 1, or 0 with a message on standard error.
    int multiply(const FlicImage& other, FlicImage* result = nullptr);
    // Difference of two images around 128. Returns 1, or 0 with a message on standard error.
    int subtract(const FlicImage& other, FlicImage* result = nullptr);
    // Cuts out (or pads with black to) the rectangle with inclusive corners; a colour pixel
    // repeats the source row's byte at x in all its channels. Returns 1, or 0 with a message
    // when the rectangle is too large for an image.
    int crop(int x0, int y0, int x1, int y1, FlicImage* result = nullptr);
    // Scan-line seed fill of the connected region of equal value (one byte per pixel, at most
    // 10000 pending spans), writing the bounding box to `bbox`. Returns the pixels filled.
    int floodFill(int x, int y, int value, int* bbox = nullptr, FlicImage* result = nullptr);

    // --- Filters ----------------------------------------------------------------------------
    // The convolution filters read one byte per pixel (the first `width` bytes of each row).

    // Separable convolution with a symmetric half-kernel of n taps (k[0] the centre), rows then
    // columns, through the packed tables of flic_initPackedLuts (its warning and its exit(1)
    // for weights that cannot be packed apply). A separate result becomes a grey image.
    // Returns 1, or 0 when the kernel has no taps or more than nine (nothing is written; a
    // separate result is only sized) or a missing kernel or a weight that is not a number
    // (reported through flic_error).
    int convolve(int n, const float* kernel, FlicImage* result = nullptr);
    // Gaussian blur with a kernel of n half-taps and standard deviation n pixels (n = 1 is the
    // identity). Returns 1, or 0 for n outside 1 to 9 as for convolve.
    int gaussBlur(int n, FlicImage* result = nullptr);
    // 3 x 3 median filter with clamped borders; further bytes of each row are kept. Returns 1,
    // or 0 when there is no memory for the filtered copy (reported; nothing changed).
    int medianFilter(FlicImage* result = nullptr);
    // Resamples to newWidth x newHeight with the triangle filter, anchored at pixel 0; sums
    // are truncated to their low 8 bits. Returns 1, or 0 through flic_error for a negative
    // size, an image without pixels or a size beyond the byte count (image unchanged).
    int zoom(int newWidth, int newHeight, FlicImage* result = nullptr);
    // Relief shading under one light direction (radians); a colour image is shaded by the
    // relief of its grey copy. Returns 1, or 0 through flic_error when width45 is not positive
    // (image and result unchanged).
    int emboss(float azimuth, float elevation, int width45, FlicImage* result = nullptr);
    // Relief shading with the light's horizontal direction taken from a vector field
    // (resampled to the image's size when it differs); on a grey image, pixels whose vector is
    // (0, 0) become black. Returns 1, or 0 through flic_error for an empty field.
    int emboss(FlicVectorField& field, FlicImage* result = nullptr);
};

// Reads a PNM file of any maxval: up to 255 exactly as FlicImage::readPNM; above (two bytes per
// binary sample), every sample scaled to v * 255 / maxval, rounded. Returns 1, or 0 through
// flic_ioerror (a short file is refused).
MUSKEIP_API int flicReadWidePNM(const char* filename, FlicImage& image);

#endif
