// Resampling of images to any new size with a separable triangle filter. FlicImage::zoom is
// declared in image.h.
#ifndef MUSKEIP_ZOOM_H
#define MUSKEIP_ZOOM_H

#include "api.h"

// The tent filter of the resampler: 1 - |t| for |t| < 1, else 0 (also for a NaN argument).
MUSKEIP_API float triangle_filter_function(float t);

#endif
