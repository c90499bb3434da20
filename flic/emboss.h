// Relief shading ("emboss"): grey values read as a height map, a surface normal estimated per
// pixel from 3 x 3 differences, and the pixel shaded by the cosine between the normal and a
// light direction, with integer light vectors and normals. The FlicImage::emboss forms are
// declared in image.h.
//
// Kernel arguments: `bump` is a grey height map of width x height bytes, rows contiguous;
// `texture` is null (grey output, one byte per pixel) or an RGB image of the same size, rows
// contiguous (RGB output, three bytes per pixel, each channel darkened by the shade); `dst`
// receives the output. Border pixels (first and last row and column) are set to 128; images
// of fewer than three rows or columns consist of border pixels only. Angles are in radians.
#ifndef MUSKEIP_EMBOSS_H
#define MUSKEIP_EMBOSS_H

#include "api.h"

// Shades under one light of the given azimuth and elevation. `width45` sets how steep a slope
// must be to face the light at 45 degrees. Returns 1, or 0 through flic_error (dst untouched)
// when width45 is not positive.
MUSKEIP_API int emboss(float azimuth, float elevation, int width45, const unsigned char* bump,
                       const unsigned char* texture, unsigned char* dst, int width, int height);

// Shades under a light whose horizontal direction follows the vector field (width x height
// (x, y) pairs) at every pixel, components exchanged; a zero vector gives a light straight
// from above. With a null field the light comes from azimuth pi/2. Returns 1, or 0 through
// flic_error (dst untouched) when width45 is not positive.
MUSKEIP_API int emboss2(float elevation, int width45, const unsigned char* bump,
                        const unsigned char* texture, unsigned char* dst, int width, int height,
                        const float (*field)[2]);

#endif
