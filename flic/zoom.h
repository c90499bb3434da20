// Resampling of images to any new size with a separable triangle filter. FlicImage::zoom is
// declared in image.h.
#ifndef MUSKEIP_ZOOM_H
#define MUSKEIP_ZOOM_H

// The tent filter of the resampler: 1 - |t| for |t| < 1, else 0 (also for a NaN argument).
float triangle_filter_function(float t);

#endif
