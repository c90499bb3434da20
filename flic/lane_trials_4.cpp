// The trial kernel for 4 lanes: SSE2 on x86-64, the compiler's generic vectors elsewhere.
#include "lane_trials_common.h"

#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

using namespace muskeip::detail;

namespace {

struct Ops4 {
    typedef float VF __attribute__((vector_size(16)));
    typedef int VI __attribute__((vector_size(16)));
    static VF sqrt(VF v) {
#if defined(__SSE2__)
        return reinterpret_cast<VF>(_mm_sqrt_ps(reinterpret_cast<__m128>(v)));
#else
        VF r;
        for (int l = 0; l < 4; l++)
            r[l] = __builtin_sqrtf(v[l]);
        return r;
#endif
    }
    static void row(const float* base, VI index, VF* out) {
#if defined(__SSE2__)
        __m128 r0 = _mm_loadu_ps(base + index[0]), r1 = _mm_loadu_ps(base + index[1]);
        __m128 r2 = _mm_loadu_ps(base + index[2]), r3 = _mm_loadu_ps(base + index[3]);
        FLIC_TRANSPOSE4(_mm_unpacklo_ps, _mm_unpackhi_ps, _mm_shuffle_ps, r0, r1, r2, r3, out);
#else
        for (int k = 0; k < 4; k++)
            for (int l = 0; l < 4; l++)
                out[k][l] = base[index[l] + k];
#endif
    }
    static VF load(const float* p) {
        VF v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    static void store(float* p, VF v) {
        std::memcpy(p, &v, sizeof v);
    }
    static void store(int* p, VI v) {
        std::memcpy(p, &v, sizeof v);
    }
};

void trials4(TrialBatch& batch) {
    Rk43Trials<Ops4>(batch).run(batch);
}

} // namespace

TrialKernel muskeip::detail::trialKernel4() {
    return trials4;
}
