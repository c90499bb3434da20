// KvSobol: per-axis Sobol sequences in Gray-code order, restricted to the grid's range.
#include "sobol.h"

#include "messages.h"

#include <climits>
#include <cstdlib>

namespace {

// Smallest k >= 1 with 2^k >= length, for length >= 2; 0 below 2 (a single slot).
int bitCount(int length) {
    if (length < 2) return 0;
    int k = 1;
    while (k < 31 && (1 << k) < length)
        k++;
    return k;
}

// The top bit of a k-bit number; with k = 0 the shift by -1 wraps to the sign bit.
int topBit(int k) {
    return k >= 1 ? 1 << (k - 1) : INT_MIN;
}

// Stores the first `length` values below `length` of the Gray-code sequence with direction
// numbers v[0 .. k-1] into `out`. Every k-bit value occurs once per cycle of 2^k steps, so
// the loop ends within one cycle.
void fillAxis(int* out, int length, int k, const int* v) {
    int t = 0, x = 0, stored = 0;
    while (stored < length) {
        int c = 0;
        for (int bits = t; (bits & 1) && c < k - 1; bits >>= 1)
            c++;
        t++;
        x ^= v[c];
        if (x < length) out[stored++] = x;
    }
}

// Grows or allocates an array of 2^k ints; null when that fails.
int* sizeArray(int* array, int k) {
    size_t bytes = sizeof(int) * (static_cast<size_t>(1) << k);
    return static_cast<int*>(array ? realloc(array, bytes) : malloc(bytes));
}

} // namespace

KvSobol::KvSobol() : ix(0), iy(0), n(0), m(0), count(0), xs(nullptr), ys(nullptr) {}

KvSobol::~KvSobol() {
    free(xs);
    free(ys);
}

void KvSobol::init(int n, int m) {
    this->n = n;
    this->m = m;
    int* grownX = sizeArray(xs, bitCount(n));
    if (grownX) xs = grownX;
    int* grownY = grownX ? sizeArray(ys, bitCount(m)) : nullptr;
    if (grownY) ys = grownY;
    ix = iy = count = 0;
    if (!grownX || !grownY) {
        this->n = this->m = 0;
        flic_error("no memory for a %d x %d Sobol sequence", n, m);
        return;
    }
    initX(n);
    initY(m);
}

void KvSobol::initX(int n) {
    int k = bitCount(n);
    int v[32];
    v[0] = topBit(k);
    for (int i = 1; i < k; i++)
        v[i] = v[i - 1] ^ (v[i - 1] >> 1);
    fillAxis(xs, n, k, v);
}

void KvSobol::initY(int m) {
    int k = bitCount(m);
    int v[32];
    v[0] = topBit(k);
    if (k >= 2) v[1] = 1 << (k - 2);
    for (int i = 2; i < k; i++)
        v[i] = v[i - 2] ^ v[i - 1] ^ (v[i - 2] >> 2);
    fillAxis(ys, m, k, v);
}

int KvSobol::next(int& x, int& y) {
    if (n <= 0 || m <= 0 || !xs || !ys) return 0;
    x = xs[ix];
    ix++;
    y = ys[iy % m];
    iy++;
    if (ix == n) {
        ix = 0;
        iy = iy + 1 - n;
    }
    count++;
    return 1;
}
