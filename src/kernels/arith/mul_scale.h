// The MulScale product (p + 1 + (p >> bits)) >> bits, p = a * b, on whole
// vectors: shared by MulScale and alpha premultiplication (kernel sources
// only: it needs AVX2).
#pragma once

#include <immintrin.h>

namespace rok::kernels {

// 32 bytes by 32 bytes. The 16-bit products p = 256 u + w give
// (p + 1 + u) >> 8 = u + ((u + w + 1) >> 8), and ((p + 1) * 257) >> 16 =
// u + ((256 (u + w + 1) + w + 1) >> 16), the same for u + w + 1 <= 511 (the
// second sum reaches 2^16 only from u + w + 1 >= 256). p + 1 <= 65026 fits.
inline __m256i mul_scale_8u(__m256i x, __m256i y) {
    const __m256i zero = _mm256_setzero_si256(), one = _mm256_set1_epi16(1), m257 = _mm256_set1_epi16(257);
    auto scale = [&](__m256i p) { return _mm256_mulhi_epu16(_mm256_add_epi16(p, one), m257); };
    const __m256i lo = _mm256_mullo_epi16(_mm256_unpacklo_epi8(x, zero), _mm256_unpacklo_epi8(y, zero));
    const __m256i hi = _mm256_mullo_epi16(_mm256_unpackhi_epi8(x, zero), _mm256_unpackhi_epi8(y, zero));
    return _mm256_packus_epi16(scale(lo), scale(hi));
}

// Sixteen 16u by sixteen 16u. p splits into its 16-bit halves h, l: the
// result is h plus the carry out of l + h + 1 (h + 1 cannot wrap, since
// p <= 0xFFFE0001); the carry comes when l >= 2^16 - (h + 1).
inline __m256i mul_scale_16u(__m256i x, __m256i y) {
    const __m256i l = _mm256_mullo_epi16(x, y), h = _mm256_mulhi_epu16(x, y);
    const __m256i need = _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_add_epi16(h, _mm256_set1_epi16(1)));
    const __m256i carry = _mm256_cmpeq_epi16(_mm256_max_epu16(l, need), l);
    return _mm256_sub_epi16(h, carry);
}

}  // namespace rok::kernels
