// The trial kernel for 16 lanes with AVX-512 (this file alone is built with -mavx512f; it
// includes nothing but intrinsics, so no inline function of a shared header is built for it).
#include "lane_trials_common.h"

#if defined(__AVX512F__)
// The compiler's AVX-512 intrinsics start many results from a deliberately undefined vector,
// which its own warnings take for an uninitialised one.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

using namespace muskeip::detail;

namespace {

struct OpsAVX512 {
    typedef float VF __attribute__((vector_size(64)));
    typedef int VI __attribute__((vector_size(64)));
    static VF sqrt(VF v) {
        return reinterpret_cast<VF>(_mm512_sqrt_ps(reinterpret_cast<__m512>(v)));
    }
    // Lanes l, l + 4, l + 8, l + 12 of part k: four 128-bit loads joined.
    static __m512 quad(const float* base, VI index, int k) {
        __m512 v = _mm512_castps128_ps512(_mm_loadu_ps(base + index[k]));
        v = _mm512_insertf32x4(v, _mm_loadu_ps(base + index[k + 4]), 1);
        v = _mm512_insertf32x4(v, _mm_loadu_ps(base + index[k + 8]), 2);
        return _mm512_insertf32x4(v, _mm_loadu_ps(base + index[k + 12]), 3);
    }
    static void row(const float* base, VI index, VF* out) {
        __m512 r0 = quad(base, index, 0), r1 = quad(base, index, 1);
        __m512 r2 = quad(base, index, 2), r3 = quad(base, index, 3);
        FLIC_TRANSPOSE4(_mm512_unpacklo_ps, _mm512_unpackhi_ps, _mm512_shuffle_ps, r0, r1, r2, r3,
                        out);
    }
    static VF load(const float* p) { return reinterpret_cast<VF>(_mm512_load_ps(p)); }
    static void store(float* p, VF v) { _mm512_store_ps(p, reinterpret_cast<__m512>(v)); }
    static void store(int* p, VI v) { _mm512_store_si512(p, reinterpret_cast<__m512i>(v)); }
};

void trialsAVX512(TrialBatch& batch) {
    Rk43Trials<OpsAVX512>(batch).run(batch);
}

} // namespace

TrialKernel muskeip::detail::trialKernelAVX512() {
    return trialsAVX512;
}
#else
muskeip::detail::TrialKernel muskeip::detail::trialKernelAVX512() {
    return nullptr;
}
#endif
