// Pieces shared by the image operations of several families (not installed).
#ifndef MUSKEIP_IMAGE_COMMON_H
#define MUSKEIP_IMAGE_COMMON_H

#include "image.h"

namespace flic_image {

// Whether `image` holds the geometry it was made with. A working image or copy whose
// allocation failed is left empty by setSize (which reports it): operations then stop there.
inline bool has_geometry(const FlicImage& image, int width, int height, int nChannels) {
    return image.width == width && image.height == height && image.nChannels == nChannels;
}

} // namespace flic_image

#endif
