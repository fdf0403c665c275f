// Weighted row sums, vectorised along the row: eight lanes per register,
// four registers at a time, the taps in the same order and each one fused
// (one rounding per tap) in the vector body and the scalar loop alike, so
// that the body and the tail agree to the bit.
#include "kernels/transform/wavelet.h"

#include <immintrin.h>

#include <cmath>
#include <cstdint>

namespace rok::kernels::wavelet {

namespace {

inline const float* tap_row(const float* first, std::ptrdiff_t strideBytes, int k) {
    return reinterpret_cast<const float*>(reinterpret_cast<const char*>(first) + strideBytes * k);
}

inline float weighted_one(const float* first, std::ptrdiff_t strideBytes, const float* w, int taps, float start,
                          int i) {
    float acc = start;
    for (int k = 0; k < taps; ++k) acc = std::fma(w[k], tap_row(first, strideBytes, k)[i], acc);
    return acc;
}

}  // namespace

void weighted_rows_32f(const float* first, std::ptrdiff_t strideBytes, const float* w, int taps, float* dst, int n,
                       bool accumulate) {
    int i = 0;
    // Scalar head up to a 32-byte boundary of the destination.
    while (i < n && (reinterpret_cast<std::uintptr_t>(dst + i) & 31) != 0) {
        dst[i] = weighted_one(first, strideBytes, w, taps, accumulate ? dst[i] : 0.0f, i);
        ++i;
    }
    for (; i + 32 <= n; i += 32) {
        __m256 a0 = accumulate ? _mm256_load_ps(dst + i) : _mm256_setzero_ps();
        __m256 a1 = accumulate ? _mm256_load_ps(dst + i + 8) : _mm256_setzero_ps();
        __m256 a2 = accumulate ? _mm256_load_ps(dst + i + 16) : _mm256_setzero_ps();
        __m256 a3 = accumulate ? _mm256_load_ps(dst + i + 24) : _mm256_setzero_ps();
        for (int k = 0; k < taps; ++k) {
            const float* r = tap_row(first, strideBytes, k) + i;
            const __m256 wk = _mm256_set1_ps(w[k]);
            a0 = _mm256_fmadd_ps(wk, _mm256_loadu_ps(r), a0);
            a1 = _mm256_fmadd_ps(wk, _mm256_loadu_ps(r + 8), a1);
            a2 = _mm256_fmadd_ps(wk, _mm256_loadu_ps(r + 16), a2);
            a3 = _mm256_fmadd_ps(wk, _mm256_loadu_ps(r + 24), a3);
        }
        _mm256_store_ps(dst + i, a0);
        _mm256_store_ps(dst + i + 8, a1);
        _mm256_store_ps(dst + i + 16, a2);
        _mm256_store_ps(dst + i + 24, a3);
    }
    for (; i + 8 <= n; i += 8) {
        __m256 a = accumulate ? _mm256_load_ps(dst + i) : _mm256_setzero_ps();
        for (int k = 0; k < taps; ++k)
            a = _mm256_fmadd_ps(_mm256_set1_ps(w[k]), _mm256_loadu_ps(tap_row(first, strideBytes, k) + i), a);
        _mm256_store_ps(dst + i, a);
    }
    for (; i < n; ++i) dst[i] = weighted_one(first, strideBytes, w, taps, accumulate ? dst[i] : 0.0f, i);
}

void split_32f(const float* src, int pixels, int ch, float* even, float* odd) {
    int p = 0;
    if (ch == 1) {
        // Sixteen samples in, eight even and eight odd out: the in-lane
        // shuffle pairs them up and one cross-lane permute puts them in order.
        for (; p + 16 <= pixels; p += 16) {
            const __m256 lo = _mm256_loadu_ps(src + p);
            const __m256 hi = _mm256_loadu_ps(src + p + 8);
            const __m256 ev = _mm256_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
            const __m256 od = _mm256_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
            _mm256_storeu_ps(even + p / 2, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(ev), 0xd8)));
            _mm256_storeu_ps(odd + p / 2, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(od), 0xd8)));
        }
    }
    for (; p < pixels; ++p) {
        float* out = (p & 1) ? odd + (p / 2) * ch : even + (p / 2) * ch;
        for (int c = 0; c < ch; ++c) out[c] = src[p * ch + c];
    }
}

void merge_32f(const float* even, const float* odd, int pairs, int ch, float* dst) {
    int p = 0;
    if (ch == 1) {
        for (; p + 8 <= pairs; p += 8) {
            const __m256 ev = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_loadu_ps(even + p)), 0xd8));
            const __m256 od = _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(_mm256_loadu_ps(odd + p)), 0xd8));
            _mm256_storeu_ps(dst + 2 * p, _mm256_unpacklo_ps(ev, od));
            _mm256_storeu_ps(dst + 2 * p + 8, _mm256_unpackhi_ps(ev, od));
        }
    }
    for (; p < pairs; ++p)
        for (int c = 0; c < ch; ++c) {
            dst[(2 * p) * ch + c] = even[p * ch + c];
            dst[(2 * p + 1) * ch + c] = odd[p * ch + c];
        }
}

}  // namespace rok::kernels::wavelet
