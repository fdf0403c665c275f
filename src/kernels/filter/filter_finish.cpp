#include "kernels/filter/filter_finish.h"

#include <immintrin.h>

#include <cmath>
#include <limits>
#include <type_traits>

#include "kernels/rules.h"

namespace rok::kernels {

namespace {

// x rounded half away from zero, exactly (x - trunc(x) is exact in the
// precision of x).
template <class F>
F round_half_away(F x) {
    const F t = std::trunc(x);
    const F frac = x - t;
    if (frac >= F(0.5)) return t + 1;
    if (frac <= F(-0.5)) return t - 1;
    return t;
}

// A rounded floating value saturated to T; values at or beyond the range
// ends give the ends.
template <class T, class F>
T saturate_rounded(F r) {
    constexpr F lo = F(std::numeric_limits<T>::min());
    constexpr F hi = F(std::numeric_limits<T>::max());
    if (r != r) return T(0);  // only a NaN or infinite coefficient gets here
    if (r >= hi) return std::numeric_limits<T>::max();
    if (r <= lo) return std::numeric_limits<T>::min();
    return T(r);
}

template <class T>
T finish_one(std::int32_t s, const IntRule& r) {
    const std::int64_t w = s;
    switch (r.kind) {
        case IntFinish::Saturate:
            return saturate<T>(w);
        case IntFinish::ShiftEven: {
            // The vector lanes add the bias in 32 bits; so does this.
            const std::uint32_t biased = std::uint32_t(s) + (std::uint32_t(1) << (r.shift - 1)) - 1u +
                                         std::uint32_t((s >> r.shift) & 1);
            return saturate<T>(std::int32_t(biased) >> r.shift);
        }
        case IntFinish::Reciprocal:
            return saturate_rounded<T>(std::nearbyint(float(s) * r.reciprocal));
        case IntFinish::TruncShift:
            return saturate<T>(w >= 0 ? w >> r.shift : -((-w) >> r.shift));
        case IntFinish::TruncDivide:
            return saturate<T>(w / r.divisor);
        case IntFinish::DoubleEven:
            return saturate_rounded<T>(std::nearbyint(double(s) / double(r.divisor)));
        case IntFinish::HalfAwayShift: {
            const std::int64_t half = std::int64_t(1) << (r.shift - 1);
            return saturate<T>(w >= 0 ? (w + half) >> r.shift : -((-w + half) >> r.shift));
        }
        case IntFinish::HalfAwayDivide:
            return saturate_rounded<T>(round_half_away(double(s) / double(r.divisor)));
    }
    return T(0);
}

// Sixteen 32-bit results (two vectors) saturated into sixteen T.
inline void store16(Rok8u* d, __m256i v0, __m256i v1) {
    const __m256i w = _mm256_permute4x64_epi64(_mm256_packs_epi32(v0, v1), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d),
                     _mm_packus_epi16(_mm256_castsi256_si128(w), _mm256_extracti128_si256(w, 1)));
}
inline void store16(Rok16s* d, __m256i v0, __m256i v1) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_permute4x64_epi64(_mm256_packs_epi32(v0, v1), 0xD8));
}
inline void store16(Rok16u* d, __m256i v0, __m256i v1) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_permute4x64_epi64(_mm256_packus_epi32(v0, v1), 0xD8));
}

// Saturating float to T for the vector path: clamp in float, then round to
// nearest even (the default rounding of the conversion).
template <class T>
inline __m256i clamp_round(__m256 f) {
    const __m256 lo = _mm256_set1_ps(float(std::numeric_limits<T>::min()));
    const __m256 hi = _mm256_set1_ps(float(std::numeric_limits<T>::max()));
    return _mm256_cvtps_epi32(_mm256_min_ps(_mm256_max_ps(f, lo), hi));
}

template <class T>
void finish_int(const std::int32_t* acc, int n, const IntRule& r, T* dst) {
    int x = 0;
    auto load = [&](int i) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(acc + i)); };
    switch (r.kind) {
        case IntFinish::Saturate:
            for (; x + 16 <= n; x += 16) store16(dst + x, load(x), load(x + 8));
            break;
        case IntFinish::ShiftEven: {
            const __m128i k = _mm_cvtsi32_si128(r.shift);
            const __m256i bias = _mm256_set1_epi32((1 << (r.shift - 1)) - 1);
            const __m256i one = _mm256_set1_epi32(1);
            auto round = [&](__m256i s) {
                const __m256i odd = _mm256_and_si256(_mm256_sra_epi32(s, k), one);
                return _mm256_sra_epi32(_mm256_add_epi32(_mm256_add_epi32(s, bias), odd), k);
            };
            for (; x + 16 <= n; x += 16) store16(dst + x, round(load(x)), round(load(x + 8)));
            break;
        }
        case IntFinish::Reciprocal: {
            const __m256 rc = _mm256_set1_ps(r.reciprocal);
            auto scale = [&](__m256i s) { return clamp_round<T>(_mm256_mul_ps(_mm256_cvtepi32_ps(s), rc)); };
            for (; x + 16 <= n; x += 16) store16(dst + x, scale(load(x)), scale(load(x + 8)));
            break;
        }
        default:  // the rounding-mode forms: scalar
            break;
    }
    for (; x < n; ++x) dst[x] = finish_one<T>(acc[x], r);
}

template <class T>
T finish_float_one(float f, FloatFinish mode) {
    switch (mode) {
        case FloatFinish::Truncate: return saturate_rounded<T>(std::trunc(f));
        case FloatFinish::HalfAway: return saturate_rounded<T>(round_half_away(f));
        default: return saturate_rounded<T>(std::nearbyint(f));
    }
}

template <class T>
void finish_float(const float* acc, int n, FloatFinish mode, T* dst) {
    int x = 0;
    if constexpr ((sizeof(T) == 1 && std::is_unsigned_v<T>) || sizeof(T) == 2) {
        if (mode == FloatFinish::NearestEven)
            for (; x + 16 <= n; x += 16)
                store16(dst + x, clamp_round<T>(_mm256_loadu_ps(acc + x)), clamp_round<T>(_mm256_loadu_ps(acc + x + 8)));
    }
    for (; x < n; ++x) dst[x] = finish_float_one<T>(acc[x], mode);
}

}  // namespace

void filter_finish(const std::int32_t* a, int n, const IntRule& r, Rok8u* d) { finish_int(a, n, r, d); }
void filter_finish(const std::int32_t* a, int n, const IntRule& r, Rok16s* d) { finish_int(a, n, r, d); }
void filter_finish(const std::int32_t* a, int n, const IntRule& r, Rok16u* d) { finish_int(a, n, r, d); }

void filter_finish(const float* a, int n, FloatFinish m, Rok8u* d) { finish_float(a, n, m, d); }
void filter_finish(const float* a, int n, FloatFinish m, Rok8s* d) { finish_float(a, n, m, d); }
void filter_finish(const float* a, int n, FloatFinish m, Rok16s* d) { finish_float(a, n, m, d); }
void filter_finish(const float* a, int n, FloatFinish m, Rok16u* d) { finish_float(a, n, m, d); }
void filter_finish(const float* a, int n, FloatFinish m, Rok32s* d) { finish_float(a, n, m, d); }

}  // namespace rok::kernels
