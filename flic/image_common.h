// Pieces shared by the image operations of several families (not installed).
#ifndef MUSKEIP_IMAGE_COMMON_H
#define MUSKEIP_IMAGE_COMMON_H

#include "image.h"

#include <cstdio>

namespace flic_image {

// Whether `image` holds the geometry it was made with. A working image or copy whose
// allocation failed is left empty by setSize (which reports it): operations then stop there.
inline bool has_geometry(const FlicImage& image, int width, int height, int nChannels) {
    return image.width == width && image.height == height && image.nChannels == nChannels;
}

// Reads the next PNM header line (at most size - 1 characters), skipping lines whose first
// character is '#'. A file that ends first yields an empty line.
inline void read_pnm_header_line(FILE* file, char* line, int size) {
    do {
        if (!fgets(line, size, file)) {
            line[0] = '\0';
            return;
        }
    } while (line[0] == '#');
}

} // namespace flic_image

#endif
