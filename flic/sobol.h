// KvSobol: a two-dimensional quasi-random enumeration of an n x m integer grid, one
// one-dimensional Sobol sequence per axis (primitive polynomials x + 1 and x^2 + x + 1),
// each restricted to its range and stored as a permutation of it.
#ifndef MUSKEIP_SOBOL_H
#define MUSKEIP_SOBOL_H

#include "api.h"

class MUSKEIP_API KvSobol {
  public:
    int ix;    // next index into xs
    int iy;    // running index into ys, taken modulo m
    int n;     // length of xs (cells along x)
    int m;     // length of ys (cells along y)
    int count; // pairs drawn
    int* xs;   // permutation of 0 .. n - 1 (malloc/realloc storage)
    int* ys;   // permutation of 0 .. m - 1

    // Null arrays, zero lengths and indices.
    KvSobol();
    // Frees both arrays with free(); a user that frees them itself sets the pointers to null.
    ~KvSobol();
    KvSobol(const KvSobol&) = delete;
    KvSobol& operator=(const KvSobol&) = delete;

    // Stores the lengths, sizes both arrays to the next power of two, fills them and resets
    // the indices. When an array cannot be allocated both lengths become 0 (nothing to draw)
    // and an error is reported.
    void init(int n, int m);
    // Fills xs with the first n in-range values of the x-axis sequence.
    void initX(int n);
    // Fills ys with the first m in-range values of the y-axis sequence.
    void initY(int m);
    // Draws the next pair: X = xs[ix], Y = ys[iy mod m]; after each pass over xs the y-array
    // is shifted by one more place, so m passes give every (X, Y) once. Returns 1, or 0
    // (nothing drawn) when the sequence has no cells.
    int next(int& x, int& y);
};

#endif
