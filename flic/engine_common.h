// Integer helpers, step counts, the quasi-random cells, the tile-window lookup and the seed
// cells' coverage check shared by the engine's sources (not installed).
#ifndef MUSKEIP_ENGINE_COMMON_H
#define MUSKEIP_ENGINE_COMMON_H

#include "build_common.h"
#include "compute.h"
#include "sobol.h"

#include <climits>
#include <cstdint>

// Helpers of the engine's own sources, not part of the library's interface.
namespace muskeip {
namespace detail {

// Integer arithmetic that wraps instead of overflowing (sums of absurdly long lines).
FLIC_ALWAYS_INLINE int wrapAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
FLIC_ALWAYS_INLINE int wrapSub(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}
FLIC_ALWAYS_INLINE int wrapMul(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

// Kernel and extension step counts beyond this are refused: the work arrays of a line would
// grow absurdly. The running sums wrap instead of overflowing, so a convolution value stays
// exact as long as value times divisor fits an int: up to about 300 kernel steps for the cubic
// kernel and 2900 for the triangle, whatever the line length; longer kernels give meaningless
// values, without undefined behaviour.
constexpr int maxLineSteps = 1 << 19;

// Integer part of (length / h + 0.5): the division in single precision, the addition in
// double. -1 when the result is negative, NaN or above maxLineSteps.
inline int stepsFor(float length, float h) {
    double value = static_cast<double>(length / h) + 0.5;
    if (!(value > -1.0 && value < static_cast<double>(maxLineSteps) + 1.0)) return -1;
    int steps = static_cast<int>(value);
    return steps;
}

// Kernel steps N for a filter length: rounded up to a multiple of 6 for the cubic kernel.
inline int kernelStepsFor(float length, float h, int kernel) {
    int steps = stepsFor(length, h);
    if (steps > 0 && kernel == FlicCompute::CUBIC && steps % 6 != 0) steps += 6 - steps % 6;
    return steps;
}

// Truncating division of a non-negative int by a fixed positive divisor through one 64-bit
// multiplication (exact for every dividend below 2^31: m = floor(2^(31+l) / d) + 1 with
// 2^l >= d); negative dividends use the ordinary division.
struct FixedDivisor {
    int divisor;
    std::uint64_t multiplier;
    int shift;

    FixedDivisor() : FixedDivisor(1) {}
    explicit FixedDivisor(long long d) {
        if (d < 1) d = 1;
        if (d > INT_MAX) d = INT_MAX;
        divisor = static_cast<int>(d);
        int l = 0;
        while ((static_cast<std::uint64_t>(1) << l) < static_cast<std::uint64_t>(divisor))
            l++;
        shift = 31 + l;
        multiplier = ((static_cast<std::uint64_t>(1) << shift) / divisor) + 1;
    }
    FLIC_ALWAYS_INLINE int divide(int n) const {
        if (n >= 0) return static_cast<int>((static_cast<std::uint64_t>(n) * multiplier) >> shift);
        return n / divisor;
    }
};

// Rows rowBegin .. rowEnd - 1 of normalizeRecords: the picture's pixels (and the coverage's,
// when given) from the records of a width-pixel-wide picture, whose images are sized already.
// Returns the rows' hits (wrapping).
int normalizeRows(const int* records, int width, int rowBegin, int rowEnd, int subCells,
                  int channels, FlicImage* output, FlicImage* coverage);

// Truncating quotient sum / hits through the reciprocal fl(1 / hits) in double (0 for hits 0),
// exact for sums in 0 .. 255 x hits and hits below kReciprocalHitsLimit: sum x reciprocal
// lies within 2^-44 of the quotient (at most 255, relative error 2^-52); adding 2^-40 lifts a
// whole quotient above its integer, and a quotient that is no integer lies at least
// 1 / hits > 2^-23 below the next one, so truncation gives the integer quotient.
constexpr int kReciprocalHitsLimit = 1 << 23;
FLIC_ALWAYS_INLINE int divideByReciprocal(int sum, double reciprocal) {
    return static_cast<int>(sum * reciprocal + 1.0 / (1LL << 40));
}

// Fixed divisors for the usual small hit counts of a pixel.
constexpr int kDivisorTableSize = 256;
// The table of them, divisors[d] for d = 1 .. kDivisorTableSize - 1 (made once, on first use).
const FixedDivisor* hitDivisors();

// A channel sum divided by the pixel's hits, truncating: through the table of fixed divisors
// for small counts, 0 without hits.
FLIC_ALWAYS_INLINE int divideByHits(int sum, int hits, const FixedDivisor* divisors) {
    if (hits > 0 && hits < kDivisorTableSize) return divisors[hits].divide(sum);
    if (hits == 0) return 0;
    return static_cast<int>(static_cast<long long>(sum) / hits);
}

// A cell index brought into 0 .. cells - 1 by the non-negative remainder.
inline int cellInGrid(int index, int cells) {
    int r = index % cells;
    return r < 0 ? r + cells : r;
}

// Draws width x height pairs of the quasi-random sequence over the s x s sub-pixel cells of
// width x height pixels and calls visit(X, Y, counter) for all but the last, with the cell of
// the pair brought into the grid (the sequence of a single cell holds the sign bit, INT_MIN,
// not 0: taken modulo the grid, every value names a cell; in-range values are left as they
// are) and the pair's count, 1 .. width x height - 1.
template <class VISIT>
void drawSobolCells(int width, int height, int s, VISIT visit) {
    KvSobol sobol;
    int cellsX = width * s, cellsY = height * s;
    sobol.init(cellsX, cellsY);
    int pixels = width * height;
    int X, Y;
    for (int counter = 0; sobol.next(X, Y);) {
        counter++;
        if (counter >= pixels) break;
        visit(cellInGrid(X, cellsX), cellInGrid(Y, cellsY), counter);
    }
}

// Offset of the record of picture pixel (px, py), or of pixel index `pixel` (its row found by
// one multiplication), in a tile's window, or -1 when the pixel lies outside the window.
FLIC_ALWAYS_INLINE int windowSlotAt(const FlicCompute::TileWindow& w, int px, int py) {
    int column = w.columnSlots[px], row = w.rowSlots[py];
    return (column | row) < 0 ? -1 : column + row;
}
// The hit counter of cell `cell` (j x subPixels + i) of picture pixel (px, py) inside a tile's
// window, in the records its slots point into.
FLIC_ALWAYS_INLINE int windowCellHits(const int* records, const FlicCompute::TileWindow& w, int px,
                                      int py, int cell) {
    return records[windowSlotAt(w, px, py) + cell];
}
FLIC_ALWAYS_INLINE int windowSlot(const FlicCompute::TileWindow& w, int pixel) {
    int py =
        static_cast<int>((static_cast<unsigned long long>(pixel) * w.rowMultiplier) >> w.rowShift);
    return windowSlotAt(w, pixel - py * w.imageWidth, py);
}

} // namespace detail
} // namespace muskeip

FLIC_ALWAYS_INLINE bool FlicCompute::coversCell(int x, int y, int i, int j) const {
    int cell = j * numSubPixels + i;
    if (window ? muskeip::detail::windowCellHits(windowRecords, *window, x, y, cell) != 0
               : accum[(static_cast<std::ptrdiff_t>(y) * texWidth + x) * recordStride + cell] != 0)
        return true;
    return coveredRecords &&
           coveredRecords[(static_cast<std::ptrdiff_t>(y - coveredY0) * coveredWidth +
                           (x - coveredX0)) *
                              recordStride +
                          cell] != 0;
}

#endif
