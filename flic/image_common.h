// Pieces shared by the image operations of several families (not installed).
#ifndef MUSKEIP_IMAGE_COMMON_H
#define MUSKEIP_IMAGE_COMMON_H

#include "image.h"

#include <utility>

namespace flic_image {

// Whether `image` holds the geometry it was made with. A working image or copy whose
// allocation failed is left empty by setSize (which reports it): operations then stop there.
inline bool has_geometry(const FlicImage& image, int width, int height, int nChannels) {
    return image.width == width && image.height == height && image.nChannels == nChannels;
}

// Gives `target` the pixels and geometry of `made`, a compact image of its own, as
// `target = made` would, but without copying: the blocks are exchanged, so nothing can fail
// and `made` frees what `target` owned before (a target wrapping caller memory lets go of it,
// as setSize does).
inline void take_pixels(FlicImage& made, FlicImage& target) {
    if (&made == &target) return;
    std::swap(target.buffer, made.buffer);
    std::swap(target.data, made.data);
    std::swap(target.width, made.width);
    std::swap(target.height, made.height);
    std::swap(target.nChannels, made.nChannels);
    std::swap(target.bytesPerLine, made.bytesPerLine);
}

} // namespace flic_image

#endif
