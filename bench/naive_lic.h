// A straightforward per-pixel LIC, the baseline the FLIC engine is measured against: what a
// user would write without the engine.
#ifndef MUSKEIP_BENCH_NAIVE_LIC_H
#define MUSKEIP_BENCH_NAIVE_LIC_H

#include "image.h"
#include "vectorfield.h"

// For every pixel of `output` (the texture's size, one channel), traces the field line through
// the pixel centre forward and backward with `halfLength` fixed Euler steps of one pixel on the
// bilinearly interpolated, normalized field, samples the noise bilinearly at every point and
// weights the samples with a triangle (tent) kernel of that half-length. A line ends early at
// the field border or at a zero vector; the weights actually used are normalized.
void naiveLic(const FlicVectorField& field, const FlicImage& noise, int halfLength,
              FlicImage& output);

#endif
