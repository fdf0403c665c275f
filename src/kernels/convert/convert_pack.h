// AVX2 helpers of the conversion kernels: rounding eight floats to int32 by
// the rule of a mode, and packing 32 int32 lanes that already lie in the
// destination's range into 32 destination samples. Included only by kernel
// translation units.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <type_traits>

namespace rok::kernels::pack {

// x rounded to int32 for a destination of range [lo, hi] (integers): with
// the processor's rounding control (CurrentMode) or half away from zero.
// Only the upper bound needs clamping before the conversion: anything below
// lo comes out at or below lo (past int32, as INT_MIN) and store32
// saturates it. min(hi, x) passes a NaN on, so NaN ends as INT_MIN, or as
// lo through the max of the second mode: the destination minimum either way.
template <bool CurrentMode>
inline __m256i round_clamped(__m256 x, __m256 lo, __m256 hi) {
    if constexpr (CurrentMode) {
        return _mm256_cvtps_epi32(_mm256_min_ps(hi, x));
    } else {
        x = _mm256_max_ps(_mm256_min_ps(hi, x), lo);
        const __m256 one = _mm256_set1_ps(1.0f);
        __m256 t = _mm256_round_ps(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
        const __m256 frac = _mm256_sub_ps(x, t);
        t = _mm256_add_ps(t, _mm256_and_ps(_mm256_cmp_ps(frac, _mm256_set1_ps(0.5f), _CMP_GE_OQ), one));
        t = _mm256_sub_ps(t, _mm256_and_ps(_mm256_cmp_ps(frac, _mm256_set1_ps(-0.5f), _CMP_LE_OQ), one));
        return _mm256_cvttps_epi32(t);
    }
}

// Stores 32 int32 lanes (a holds samples 0..7, b 8..15 ...) as D samples,
// saturating each lane to D's range (the packs saturate at every stage).
template <class D>
inline void store32(D* dst, __m256i a, __m256i b, __m256i c, __m256i d) {
    if constexpr (sizeof(D) == 1) {
        const __m256i ab = _mm256_packs_epi32(a, b), cd = _mm256_packs_epi32(c, d);
        const __m256i bytes = std::is_signed_v<D> ? _mm256_packs_epi16(ab, cd) : _mm256_packus_epi16(ab, cd);
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_permutevar8x32_epi32(bytes, order));
    } else {
        const __m256i ab = std::is_signed_v<D> ? _mm256_packs_epi32(a, b) : _mm256_packus_epi32(a, b);
        const __m256i cd = std::is_signed_v<D> ? _mm256_packs_epi32(c, d) : _mm256_packus_epi32(c, d);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_permute4x64_epi64(ab, 0xD8));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 16), _mm256_permute4x64_epi64(cd, 0xD8));
    }
}

// Samples before dst reaches a 32-byte boundary (at most n).
template <class D>
inline int head_to_boundary(const D* dst, int n) {
    const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(dst);
    if (addr % sizeof(D) != 0) return 0;
    const int head = int(((32 - addr % 32) % 32) / sizeof(D));
    return head < n ? head : n;
}

}  // namespace rok::kernels::pack
