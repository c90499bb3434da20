// The engine's texture lookups as inline pieces for the line loop (not installed): wrapping,
// the texel source of a texture, the bilinear mix and four lookups at once with SSE2.
#ifndef MUSKEIP_LOOKUP_COMMON_H
#define MUSKEIP_LOOKUP_COMMON_H

#include "build_common.h"
#include "image.h"
#include "vectorfield.h"

#include <cmath>
#include <cstddef>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Coordinates farther than this many periods from the texture are reduced with fmodf before
// the wrap loops. For the integer periods of a texture both give the same value for every
// coordinate the loops handle exactly; beyond 2^24 the loops would lose precision or never end.
constexpr float farPeriods = 64.0f;

// Wraps v periodically into [0, period) by adding or subtracting the period, as the texture
// lookups define it. NaN and infinite coordinates become 0; coordinates beyond `far`
// (farPeriods periods) are reduced with fmodf first.
FLIC_ALWAYS_INLINE float wrapCoordinate(float v, float period, float far) {
    if (!(v > -far && v < far)) {
        v = std::isfinite(v) ? fmodf(v, period) : 0.0f;
        if (v == 0.0f) v = 0.0f; // no negative zero
    }
    while (v < 0)
        v += period;
    while (v >= period)
        v -= period;
    return v;
}

// A texture's geometry as the lookups use it: taken once, kept in registers along a line.
struct TexelSource {
    const unsigned char* data;
    std::ptrdiff_t bytesPerLine;
    int channels;
    float periodX, periodY; // width - 1, height - 1: the last column and row are neighbours only
    float farX, farY;
    bool periodic; // pixels to read and at least 2 x 2 of them

    explicit TexelSource(const FlicImage* texture)
        : data(nullptr), bytesPerLine(0), channels(0), periodX(0), periodY(0), farX(0), farY(0),
          periodic(false) {
        if (!texture) return;
        data = texture->data;
        bytesPerLine = texture->bytesPerLine;
        channels = texture->nChannels;
        periodX = static_cast<float>(texture->width - 1);
        periodY = static_cast<float>(texture->height - 1);
        farX = farPeriods * periodX;
        farY = farPeriods * periodY;
        periodic = data && texture->width >= 2 && texture->height >= 2;
    }

    // Address of the texel at the wrapped position (x, y), with the position's fractions.
    // Positions already inside the periods (most of them) skip the wrapping.
    FLIC_ALWAYS_INLINE const unsigned char* locate(float x, float y, float& fx, float& fy) const {
        if (!(x >= 0.0f && x < periodX && y >= 0.0f && y < periodY)) {
            x = wrapCoordinate(x, periodX, farX);
            y = wrapCoordinate(y, periodY, farY);
        }
        int ix = static_cast<int>(x);
        int iy = static_cast<int>(y);
        fx = x - ix;
        fy = y - iy;
        return data + iy * bytesPerLine + static_cast<std::ptrdiff_t>(ix) * channels;
    }
};

// Bilinear mix of channel ch around p (right and upper neighbours `right` and `up` bytes away),
// truncated to int: a + (b - a) fx + (c - a) fy + fx fy (a - c - b + d) in single precision.
// The differences of the byte values are formed in int: for such small integers that is exactly
// what the float differences give, at a lower cost.
FLIC_ALWAYS_INLINE int bilinearTexel(const unsigned char* p, int ch, std::ptrdiff_t right,
                                     std::ptrdiff_t up, float fx, float fy) {
    int a = p[ch], b = p[ch + right], c = p[ch + up], d = p[ch + right + up];
    float ba = static_cast<float>(b - a), ca = static_cast<float>(c - a);
    float cross = static_cast<float>(a - c - b + d);
    return static_cast<int>(static_cast<float>(a) + ba * fx + ca * fy + fx * fy * cross);
}

// The four lookups of the engine on a periodic texture: KIND selects constant or bilinear, one
// channel or all of them.
enum LookupKind {
    LOOKUP_POINTER,
    LOOKUP_CONST1,
    LOOKUP_CONSTN,
    LOOKUP_BILINEAR1,
    LOOKUP_BILINEARN
};

template <int KIND>
FLIC_ALWAYS_INLINE void periodicLookup(const TexelSource& source, float x, float y, int* out) {
    float fx, fy;
    const unsigned char* p = source.locate(x, y, fx, fy);
    int channels = KIND == LOOKUP_CONST1 || KIND == LOOKUP_BILINEAR1 ? 1 : source.channels;
    for (int ch = 0; ch < channels; ch++) {
        if (KIND == LOOKUP_CONST1 || KIND == LOOKUP_CONSTN)
            out[ch] = p[ch];
        else
            out[ch] = bilinearTexel(p, ch, source.channels, source.bytesPerLine, fx, fy);
    }
}

#if defined(__SSE2__)
// Four single-channel bilinear lookups at once: per lane exactly the single-precision
// operations of the wrap loops and of bilinearTexel, in the same order; only the texel reads
// are scalar. Returns false, having written nothing, when a coordinate is NaN, infinite or far
// (beyond farPeriods periods).
FLIC_ALWAYS_INLINE bool bilinearFour(const TexelSource& source, const Vec2f* at, float scaleX,
                                     float scaleY, int* out) {
    __m128 first = _mm_loadu_ps(&at[0].x);  // x0 y0 x1 y1
    __m128 second = _mm_loadu_ps(&at[2].x); // x2 y2 x3 y3
    __m128 x =
        _mm_mul_ps(_mm_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)), _mm_set1_ps(scaleX));
    __m128 y =
        _mm_mul_ps(_mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1)), _mm_set1_ps(scaleY));
    __m128 zero = _mm_setzero_ps();
    __m128 periodX = _mm_set1_ps(source.periodX), periodY = _mm_set1_ps(source.periodY);
    __m128 inside = _mm_and_ps(_mm_and_ps(_mm_cmpge_ps(x, zero), _mm_cmplt_ps(x, periodX)),
                               _mm_and_ps(_mm_cmpge_ps(y, zero), _mm_cmplt_ps(y, periodY)));
    if (_mm_movemask_ps(inside) != 15) {
        // Wrapped as the scalar loops do it, lane by lane (a lane that needs no more steps
        // gets + 0, which leaves its value); NaN and far coordinates go the scalar way.
        __m128 farX = _mm_set1_ps(source.farX), farY = _mm_set1_ps(source.farY);
        __m128 near =
            _mm_and_ps(_mm_and_ps(_mm_cmpgt_ps(x, _mm_sub_ps(zero, farX)), _mm_cmplt_ps(x, farX)),
                       _mm_and_ps(_mm_cmpgt_ps(y, _mm_sub_ps(zero, farY)), _mm_cmplt_ps(y, farY)));
        if (_mm_movemask_ps(near) != 15) return false;
        for (__m128 below; _mm_movemask_ps(below = _mm_cmplt_ps(x, zero));)
            x = _mm_add_ps(x, _mm_and_ps(below, periodX));
        for (__m128 above; _mm_movemask_ps(above = _mm_cmpge_ps(x, periodX));)
            x = _mm_sub_ps(x, _mm_and_ps(above, periodX));
        for (__m128 below; _mm_movemask_ps(below = _mm_cmplt_ps(y, zero));)
            y = _mm_add_ps(y, _mm_and_ps(below, periodY));
        for (__m128 above; _mm_movemask_ps(above = _mm_cmpge_ps(y, periodY));)
            y = _mm_sub_ps(y, _mm_and_ps(above, periodY));
    }
    __m128i ix = _mm_cvttps_epi32(x), iy = _mm_cvttps_epi32(y);
    __m128 fx = _mm_sub_ps(x, _mm_cvtepi32_ps(ix));
    __m128 fy = _mm_sub_ps(y, _mm_cvtepi32_ps(iy));
    alignas(16) int column[4], row[4], a[4], b[4], c[4], d[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(column), ix);
    _mm_store_si128(reinterpret_cast<__m128i*>(row), iy);
    const std::ptrdiff_t up = source.bytesPerLine;
    for (int lane = 0; lane < 4; lane++) {
        const unsigned char* p = source.data + row[lane] * up + column[lane];
        a[lane] = p[0];
        b[lane] = p[1];
        c[lane] = p[up];
        d[lane] = p[up + 1];
    }
    __m128i va = _mm_load_si128(reinterpret_cast<const __m128i*>(a));
    __m128i vb = _mm_load_si128(reinterpret_cast<const __m128i*>(b));
    __m128i vc = _mm_load_si128(reinterpret_cast<const __m128i*>(c));
    __m128i vd = _mm_load_si128(reinterpret_cast<const __m128i*>(d));
    __m128 ba = _mm_cvtepi32_ps(_mm_sub_epi32(vb, va));
    __m128 ca = _mm_cvtepi32_ps(_mm_sub_epi32(vc, va));
    __m128 cross = _mm_cvtepi32_ps(_mm_add_epi32(_mm_sub_epi32(_mm_sub_epi32(va, vc), vb), vd));
    __m128 v = _mm_add_ps(_mm_cvtepi32_ps(va), _mm_mul_ps(ba, fx));
    v = _mm_add_ps(v, _mm_mul_ps(ca, fy));
    v = _mm_add_ps(v, _mm_mul_ps(_mm_mul_ps(fx, fy), cross));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_cvttps_epi32(v));
    return true;
}
#endif

#endif
