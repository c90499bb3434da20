// The trial kernel for 8 lanes with AVX2 (this file alone is built with -mavx2; it includes
// nothing but intrinsics, so no inline function of a shared header is built for AVX2).
#include "lane_trials_common.h"

#if defined(__AVX2__)
#include <immintrin.h>

using namespace muskeip::detail;

namespace {

struct OpsAVX2 {
    typedef float VF __attribute__((vector_size(32)));
    typedef int VI __attribute__((vector_size(32)));
    static VF sqrt(VF v) {
        return reinterpret_cast<VF>(_mm256_sqrt_ps(reinterpret_cast<__m256>(v)));
    }
    // Lanes l and l + 4 of part k: two 128-bit loads joined.
    static __m256 pair(const float* base, VI index, int k) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(base + index[k])),
                                    _mm_loadu_ps(base + index[k + 4]), 1);
    }
    static void row(const float* base, VI index, VF* out) {
        __m256 r0 = pair(base, index, 0), r1 = pair(base, index, 1);
        __m256 r2 = pair(base, index, 2), r3 = pair(base, index, 3);
        FLIC_TRANSPOSE4(_mm256_unpacklo_ps, _mm256_unpackhi_ps, _mm256_shuffle_ps, r0, r1, r2, r3,
                        out);
    }
    static VF load(const float* p) { return reinterpret_cast<VF>(_mm256_load_ps(p)); }
    static void store(float* p, VF v) { _mm256_store_ps(p, reinterpret_cast<__m256>(v)); }
    static void store(int* p, VI v) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(p), reinterpret_cast<__m256i>(v));
    }
};

void trialsAVX2(TrialBatch& batch) {
    Rk43Trials<OpsAVX2>(batch).run(batch);
}

} // namespace

TrialKernel muskeip::detail::trialKernelAVX2() {
    return trialsAVX2;
}
#else
muskeip::detail::TrialKernel muskeip::detail::trialKernelAVX2() {
    return nullptr;
}
#endif
