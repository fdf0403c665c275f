// Rounding of double-precision quotients by a division rounding mode, shared
// by the AVX2 division bodies (kernel sources only: it needs AVX).
#pragma once

#include <immintrin.h>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// Truncation, half to even, or half away from zero (as std::round): the
// nearest integer, and where t lies exactly halfway (t - r is exact, r being
// within a half of t) t moved a half away from zero instead.
template <int Mode>
inline __m256d round_by_mode(__m256d t) {
    if constexpr (Mode == rokRoundTruncate) return _mm256_round_pd(t, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m256d r = _mm256_round_pd(t, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    if constexpr (Mode != rokRoundHalfAway) return r;
    const __m256d sign = _mm256_set1_pd(-0.0), half = _mm256_set1_pd(0.5);
    const __m256d tie = _mm256_cmp_pd(_mm256_andnot_pd(sign, _mm256_sub_pd(t, r)), half, _CMP_EQ_OQ);
    return _mm256_blendv_pd(r, _mm256_add_pd(t, _mm256_or_pd(_mm256_and_pd(t, sign), half)), tie);
}

}  // namespace rok::kernels
