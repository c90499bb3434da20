// Image files of the command line: PNG through libpng, PNM through the library, chosen by the
// file name's extension when writing and by the file's first bytes when reading.
#ifndef MUSKEIP_TOOLS_IMAGE_FILES_H
#define MUSKEIP_TOOLS_IMAGE_FILES_H

#include <string>

class FlicImage;

enum ImageFormat { FORMAT_UNKNOWN, FORMAT_PNG, FORMAT_PGM, FORMAT_PPM, FORMAT_PNM };

// The output format a file name asks for: .png, .pgm, .ppm or .pnm (any case).
ImageFormat imageFormatFor(const std::string& path);
// True when the file starts with the PNG signature.
bool isPNGFile(const std::string& path);

// Reads an 8-bit grey or RGB PNG into `image` (row 0 the bottom row). Palettes are expanded,
// 16-bit samples reduced, alpha composed onto black. Returns 1, or 0 through flic_ioerror.
int readPNG(const std::string& path, FlicImage& image);
// Writes a grey (1 channel) or RGB (3 channels) image as PNG, with `alpha` (one channel of the
// image's size, may be null) as its alpha channel. Returns 1, or 0 through flic_ioerror.
int writePNG(const std::string& path, const FlicImage& image, const FlicImage* alpha = nullptr);

// Whether a file can be created at `path` (its folder exists and is writable, and the path is
// not a folder), checked before long work. False after a report through flic_ioerror.
bool checkWritable(const std::string& path);

// Reads a PNG or PNM file (told apart by their first bytes). Returns 1, or 0 with a report.
int readImage(const std::string& path, FlicImage& image);
// Writes the image in the format of the file name: PNG, PGM (grey, colours greyed), PPM
// (colour, grey repeated) or PNM (as it is); `ascii` selects P2/P3 for the PNM forms.
// Returns 1, or 0 with a report. `alpha` (may be null) goes into PNG files only.
int writeImage(const std::string& path, const FlicImage& image, bool ascii,
               const FlicImage* alpha = nullptr);

#endif
