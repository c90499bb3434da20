// Separable convolution of grey images through packed look-up tables, and the filters built on
// it (Gaussian blur) or next to it (3 x 3 median). The FlicImage members convolve, gaussBlur
// and medianFilter are declared in image.h.
//
// Packed tables: for each grey value v a 32-bit word holds the products of v with three
// filter weights (quarter units, rounded) in three 10-bit fields. Two running accumulators per
// group of three half-taps, one shifted right and one shifted left by a field per sample, add
// up the contributions of the neighbouring samples without any multiplication.
#ifndef MUSKEIP_CONVOLVE_H
#define MUSKEIP_CONVOLVE_H

#include "api.h"

#include <cstdint>

extern "C" {

// Word layout of the table block: three tables of 256 packed entries (half-taps 0-2, 3-5,
// 6-8), then the total offset bias and the number of tap groups in use.
enum { FLIC_LUT_ENTRIES = 256, FLIC_LUT_BIAS = 768, FLIC_LUT_GROUPS = 769, FLIC_LUT_WORDS = 770 };

// The process-wide table block shared by flic_initPackedLuts and flic_fastconv, and the
// pointer through which it is reached.
MUSKEIP_API extern uint32_t globalLUT[FLIC_LUT_WORDS];
MUSKEIP_API extern uint32_t* luts;

// Builds the packed tables for a symmetric half-kernel of n taps (kernel[0] the centre weight,
// kernel[j] the weight at distance j). Writes "Warning: filter sum != 1 (=%f)" to standard
// error when the full filter does not sum to 1 and goes on. A group of three half-taps whose
// absolute weights (the centre halved) exceed 1 cannot be packed: the group is written to
// standard error as "|a|+|b|+|c| > 1" and the process ends with exit status 1. More than nine
// half-taps or none leave a group count that makes flic_fastconv write nothing; a weight that
// is not a number is reported through flic_error with the same effect.
MUSKEIP_API void flic_initPackedLuts(const float* kernel, int n);

// Convolves the n samples src[0], src[stride], ... (borders clamped to the edge samples) with
// the tables last built and writes the n results to dst at the same step. Writes nothing when
// the tables hold no usable kernel or n < 1. src and dst may be the same line.
MUSKEIP_API void flic_fastconv(const unsigned char* src, int n, int stride, unsigned char* dst);
}

#endif
