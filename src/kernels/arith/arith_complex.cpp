// AVX2 bodies of the complex multiplication and division row kernels and of
// the 32-bit-part addition and subtraction. Each covers the whole vectors
// from the first 32-byte aligned destination address (or from the start when
// the destination can never be aligned) and reports that span; the caller's
// scalar loop is the statement of the rule and runs over the rest.
#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "kernels/arith/arith_round.h"
#include "kernels/arith/arith_simd.h"

namespace rok::kernels {

namespace {

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// The whole-vector span of n samples of `Bytes` bytes, 32 / Bytes to a
// vector. Starting at the first aligned destination keeps the stores whole
// cache-line halves; a destination that is not aligned even to the sample
// size still gets the vector body, with unaligned stores from the start.
template <int Bytes>
Span vector_span(const void* d, int n) {
    constexpr int lanes = 32 / Bytes;
    if (n < 16) return {};
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    const int begin = mis % Bytes ? 0 : std::min<int>(n, int(((32 - mis) & 31) / Bytes));
    return {begin, begin + (n - begin) / lanes * lanes};
}

// Swaps the two 16-bit halves of every 32-bit lane: (re, im) -> (im, re).
inline __m256i swap_parts16(__m256i v) {
    const __m256i order = _mm256_setr_epi8(2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13,
                                           2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13);
    return _mm256_shuffle_epi8(v, order);
}

// Eight real and eight imaginary 32-bit results (already within 16 bits, or
// to be saturated) back to interleaved 16-bit complex samples. Each 128-bit
// lane holds four complex samples in both inputs and in the output.
inline __m256i interleave16(__m256i re, __m256i im) {
    return _mm256_unpacklo_epi16(_mm256_packs_epi32(re, re), _mm256_packs_epi32(im, im));
}

// ---- 32fc -------------------------------------------------------------------

// Four complex samples a step, on the interleaved (re, im) pairs; every part
// goes through the same products and sums, in the same order, as the scalar
// rule:
//   Mul: re = ar br - ai bi, im = ar bi + ai br
//   Div: den = ar ar + ai ai, re = (br ar + bi ai) / den, im = (bi ar - br ai) / den
// with the refined reciprocal-estimate division of the real kernel.
template <ArithOp Op>
inline __m256 complex_float4(__m256 x, __m256 y, bool& zero) {
    const __m256 ar = _mm256_moveldup_ps(x), ai = _mm256_movehdup_ps(x);
    const __m256 ys = _mm256_permute_ps(y, 0xB1);  // (bi, br)
    if constexpr (Op == ArithOp::Mul) {
        // (ar br, ar bi) -/+ (ai bi, ai br)
        return _mm256_addsub_ps(_mm256_mul_ps(ar, y), _mm256_mul_ps(ai, ys));
    } else {
        const __m256 sign = _mm256_set1_ps(-0.0f);
        const __m256 sq = _mm256_mul_ps(x, x);                                       // (ar ar, ai ai)
        const __m256 den = _mm256_moveldup_ps(_mm256_add_ps(sq, _mm256_permute_ps(sq, 0xB1)));
        // (br ar, bi ar) +/- (bi ai, br ai): addsub of the negated second term.
        const __m256 num = _mm256_addsub_ps(_mm256_mul_ps(y, ar), _mm256_xor_ps(_mm256_mul_ps(ys, ai), sign));
        const __m256 r0 = _mm256_rcp_ps(den);
        const __m256 q0 = _mm256_mul_ps(num, r0);
        const __m256 e = _mm256_sub_ps(_mm256_set1_ps(1.0f), _mm256_mul_ps(den, r0));
        __m256 q = _mm256_add_ps(q0, _mm256_mul_ps(_mm256_add_ps(_mm256_mul_ps(q0, e), q0), e));
        const __m256 z = _mm256_cmp_ps(den, _mm256_setzero_ps(), _CMP_EQ_OQ);
        if (!_mm256_testz_ps(z, z)) {
            // A zero divisor: infinity with the sign of the dividend, or the
            // pattern 0x7FBFFFFF for a zero or NaN dividend.
            zero = true;
            const __m256 inf = _mm256_or_ps(_mm256_and_ps(num, sign), _mm256_set1_ps(std::numeric_limits<float>::infinity()));
            const __m256 nan_like = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FBFFFFF));
            const __m256 no_sign = _mm256_cmp_ps(num, _mm256_setzero_ps(), _CMP_EQ_UQ);  // 0 or NaN
            q = _mm256_blendv_ps(q, _mm256_blendv_ps(inf, nan_like, no_sign), z);
        }
        return q;
    }
}

// ---- 16sc multiplication ---------------------------------------------------

// The scale-factor rule on exact 32-bit results, leaving values for the
// saturating pack. The imaginary part ar bi + ai br reaches 2^31 only when all
// four parts are -32768; it then wraps to INT32_MIN, which no exact result
// equals, so those lanes take the constant `corner` (2^31 scaled and
// saturated) instead.
struct Scale16 {
    int sf;
    __m128i count, left;
    __m256i mask, half, one, corner, lo, hi;
    explicit Scale16(int s)
        : sf(s),
          count(_mm_cvtsi32_si128(s > 0 ? s : 0)),
          left(_mm_cvtsi32_si128(s < -16 ? 16 : s < 0 ? -s : 0)),
          mask(_mm256_set1_epi32(s > 0 ? int((std::uint32_t(1) << s) - 1) : 0)),
          half(_mm256_set1_epi32(s > 0 ? int(std::uint32_t(1) << (s - 1)) : 0)),
          one(_mm256_set1_epi32(1)),
          corner(_mm256_set1_epi32(s <= 16 ? 32767 : 1 << (31 - s))),
          lo(_mm256_set1_epi32(-32768)),
          hi(_mm256_set1_epi32(32767)) {}

    __m256i operator()(__m256i v) const {
        __m256i r = v;
        if (sf > 0) {
            // floor(v / 2^sf), up by one when the remainder is above half, or
            // at half with an odd floor. Comparing rem > half - odd keeps the
            // sum inside 32 bits at sf = 31.
            const __m256i q = _mm256_sra_epi32(v, count);
            const __m256i rem = _mm256_and_si256(v, mask);
            const __m256i up = _mm256_cmpgt_epi32(rem, _mm256_sub_epi32(half, _mm256_and_si256(q, one)));
            r = _mm256_sub_epi32(q, up);
        } else if (sf < 0) {
            // Clamped to the sample range first, a shift by up to 16 stays in
            // the lane and the pack saturates it; larger shifts saturate
            // every non-zero value alike.
            r = _mm256_sll_epi32(_mm256_max_epi32(_mm256_min_epi32(v, hi), lo), left);
        }
        return r;
    }
    __m256i imaginary(__m256i v) const {
        const __m256i wrapped = _mm256_cmpeq_epi32(v, _mm256_set1_epi32(INT32_MIN));
        return _mm256_blendv_epi8((*this)(v), corner, wrapped);
    }
};

// Eight complex samples: exact parts from 16-bit pair products, then the
// scale rule. re = ar br - ai bi is formed as ar br + ai ~bi + ai (since
// -bi = ~bi + 1, and ~bi cannot overflow where -bi can); the pair sum may
// wrap inside the product instruction but the exact re fits 32 bits, so the
// wrapping arithmetic still ends on it.
inline __m256i complex_mul16(__m256i x, __m256i y, const Scale16& scale) {
    const __m256i high = _mm256_set1_epi32(int(0xFFFF0000u));
    const __m256i ai = _mm256_srai_epi32(x, 16);
    const __m256i re = _mm256_add_epi32(_mm256_madd_epi16(x, _mm256_xor_si256(y, high)), ai);
    const __m256i im = _mm256_madd_epi16(x, swap_parts16(y));
    return interleave16(scale(re), scale.imaginary(im));
}

// ---- 16sc division ---------------------------------------------------------

// The exact result is N 2^-sf / D rounded by the mode, with
// N = br ar + bi ai (or bi ar - br ai) and D = ar ar + ai ai, all integers of
// magnitude at most 2^31 and so exact doubles. Double precision gives it
// exactly: N 2^-s (s the scale factor clamped to -64 .. 40) is exact, and the
// correctly rounded quotient q of the true t = N 2^-s / D errs by at most
// |t| 2^-53. A rounding point p of the mode (an integer or a half-integer)
// that t does not hit lies at least 1 / (2 D 2^s) from t for s >= 0, which
// exceeds |t| 2^-53 = |N| 2^-53 / (D 2^s) since |N| < 2^52; for s < 0 it lies
// at least 1 / (2 D) away, which exceeds |t| 2^-53 wherever t is below the
// saturation point 2^15 (|t| < 2^16 with D <= 2^31). The points are
// themselves doubles, so q rounds to p only when t equals p. Hence q lies on
// the same side of every rounding point as t, and is a tie exactly when t
// is. Beyond the clamp nothing changes: at s = 40 every |t| <= 2^-9 rounds to
// 0, at s = -64 every non-zero t saturates.
template <int Mode>
inline __m128i round_quotient(__m256d num, __m256d den, __m256d scale) {
    __m256d r = round_by_mode<Mode>(_mm256_div_pd(_mm256_mul_pd(num, scale), den));
    r = _mm256_max_pd(_mm256_min_pd(r, _mm256_set1_pd(32767.0)), _mm256_set1_pd(-32768.0));
    return _mm256_cvttpd_epi32(r);  // NaN and infinity of zero divisors are replaced later
}

// Wrapped 32-bit exact values to doubles: INT32_MIN stands for +2^31.
inline __m256d unwrap(__m128i v) {
    const __m256d x = _mm256_cvtepi32_pd(v);
    return _mm256_add_pd(x, _mm256_and_pd(_mm256_cmp_pd(x, _mm256_set1_pd(-2147483648.0), _CMP_EQ_OQ),
                                          _mm256_set1_pd(4294967296.0)));
}

template <int Mode>
inline __m256i quotients8(__m256i num, __m256i den, __m256d scale) {
    const __m256d d0 = unwrap(_mm256_castsi256_si128(den)), d1 = unwrap(_mm256_extracti128_si256(den, 1));
    const __m128i q0 = round_quotient<Mode>(unwrap(_mm256_castsi256_si128(num)), d0, scale);
    const __m128i q1 = round_quotient<Mode>(unwrap(_mm256_extracti128_si256(num, 1)), d1, scale);
    return _mm256_set_m128i(q1, q0);
}

template <int Mode>
Span complex_div16_body(const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n, int sf, bool* zero) {
    const Span s = vector_span<4>(d, n);
    const __m256d scale = _mm256_set1_pd(std::ldexp(1.0, -std::clamp(sf, -64, 40)));
    const __m256i high = _mm256_set1_epi32(int(0xFFFF0000u));
    bool zeros = false;
    for (int i = s.begin; i < s.end; i += 8) {
        const __m256i x = load(a + i), y = load(b + i);
        const __m256i nr = _mm256_madd_epi16(x, y);  // br ar + bi ai: 2^31 wraps, unwrapped later
        // bi ar - br ai = bi ar + ~br ai + ai, as for the product.
        const __m256i ni = _mm256_add_epi32(_mm256_madd_epi16(x, _mm256_xor_si256(swap_parts16(y), high)),
                                            _mm256_srai_epi32(x, 16));
        const __m256i den = _mm256_madd_epi16(x, x);  // 2^31 wraps, unwrapped later
        __m256i re = quotients8<Mode>(nr, den, scale), im = quotients8<Mode>(ni, den, scale);
        const __m256i z = _mm256_cmpeq_epi32(den, _mm256_setzero_si256());
        if (!_mm256_testz_si256(z, z)) {
            // A zero divisor gives the saturated sign of each dividend part:
            // the part shifted to the top half saturates in the pack.
            zeros = true;
            re = _mm256_blendv_epi8(re, _mm256_slli_epi32(y, 16), z);
            im = _mm256_blendv_epi8(im, _mm256_and_si256(y, high), z);
        }
        store(d + i, interleave16(re, im));
    }
    if (zeros) *zero = true;
    return s;
}

// ---- 32-bit parts ------------------------------------------------------------

// The scale-factor rule on exact results in 64-bit lanes, saturated to int32.
// AVX2 has no 64-bit arithmetic right shift: the floor of v / 2^sf is the
// logical shift with the sign bits shifted in by hand. As for 16sc, the
// imaginary part of a product, ar bi + ai br, reaches 2^63 only when all four
// parts are INT32_MIN; it wraps to INT64_MIN, which no exact result equals,
// and those lanes take `corner`, 2^63 scaled and saturated.
struct Scale64 {
    int sf;
    __m128i count, fill, left;
    __m256i mask, half, one, corner, lo, hi;
    explicit Scale64(int s)
        : sf(s),
          count(_mm_cvtsi32_si128(s > 0 ? s : 0)),
          fill(_mm_cvtsi32_si128(s > 0 ? 64 - s : 0)),
          left(_mm_cvtsi32_si128(s < -32 ? 32 : s < 0 ? -s : 0)),
          mask(_mm256_set1_epi64x(s > 0 ? std::int64_t((std::uint64_t(1) << s) - 1) : 0)),
          half(_mm256_set1_epi64x(s > 0 ? std::int64_t(std::uint64_t(1) << (s - 1)) : 0)),
          one(_mm256_set1_epi64x(1)),
          corner(_mm256_set1_epi64x(s <= 32 ? INT32_MAX : std::int64_t(1) << (63 - s))),
          lo(_mm256_set1_epi64x(INT32_MIN)),
          hi(_mm256_set1_epi64x(INT32_MAX)) {}

    __m256i clamp(__m256i v) const {
        v = _mm256_blendv_epi8(v, hi, _mm256_cmpgt_epi64(v, hi));
        return _mm256_blendv_epi8(v, lo, _mm256_cmpgt_epi64(lo, v));
    }
    __m256i operator()(__m256i v) const {
        if (sf > 0) {
            // floor(v / 2^sf), up by one when the remainder is above half, or
            // at half with an odd floor (rem > half - odd: no overflow).
            const __m256i negative = _mm256_cmpgt_epi64(_mm256_setzero_si256(), v);
            const __m256i q = _mm256_or_si256(_mm256_srl_epi64(v, count), _mm256_sll_epi64(negative, fill));
            const __m256i rem = _mm256_and_si256(v, mask);
            v = _mm256_sub_epi64(q, _mm256_cmpgt_epi64(rem, _mm256_sub_epi64(half, _mm256_and_si256(q, one))));
        } else if (sf < 0) {
            // Shifts beyond 32 saturate every non-zero clamped value alike.
            v = _mm256_sll_epi64(clamp(v), left);
        }
        return clamp(v);
    }
    __m256i imaginary(__m256i v) const {
        const __m256i wrapped = _mm256_cmpeq_epi64(v, _mm256_set1_epi64x(INT64_MIN));
        return _mm256_blendv_epi8((*this)(v), corner, wrapped);
    }
};

// The low 32 bits of the 64-bit lanes of r0 (samples 0..3) and r1 (4..7).
inline __m256i narrow64(__m256i r0, __m256i r1) {
    const __m256 s = _mm256_shuffle_ps(_mm256_castsi256_ps(r0), _mm256_castsi256_ps(r1), 0x88);  // 0 1 4 5 | 2 3 6 7
    return _mm256_permute4x64_epi64(_mm256_castps_si256(s), 0xD8);
}

}  // namespace

template <ArithOp Op>
Span complex_float_span(const Rok32fc* a, const Rok32fc* b, Rok32fc* d, int n, bool* zero) {
    const Span s = vector_span<8>(d, n);
    bool zeros = false;
    int i = s.begin;
    for (; i + 8 <= s.end; i += 8) {  // two vectors a step, both loaded before either is stored
        const __m256 r0 = complex_float4<Op>(_mm256_loadu_ps(&a[i].re), _mm256_loadu_ps(&b[i].re), zeros);
        const __m256 r1 = complex_float4<Op>(_mm256_loadu_ps(&a[i + 4].re), _mm256_loadu_ps(&b[i + 4].re), zeros);
        _mm256_storeu_ps(&d[i].re, r0);
        _mm256_storeu_ps(&d[i + 4].re, r1);
    }
    if (i < s.end) _mm256_storeu_ps(&d[i].re, complex_float4<Op>(_mm256_loadu_ps(&a[i].re), _mm256_loadu_ps(&b[i].re), zeros));
    if (zeros) *zero = true;
    return s;
}

template Span complex_float_span<ArithOp::Mul>(const Rok32fc*, const Rok32fc*, Rok32fc*, int, bool*);
template Span complex_float_span<ArithOp::Div>(const Rok32fc*, const Rok32fc*, Rok32fc*, int, bool*);

Span complex_mul16_span(const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n, int sf) {
    if (sf > 31) return {};
    const Span s = vector_span<4>(d, n);
    const Scale16 scale(sf);
    for (int i = s.begin; i < s.end; i += 8) store(d + i, complex_mul16(load(a + i), load(b + i), scale));
    return s;
}

Span complex_div16_span(const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n, int sf, int mode, bool* zero) {
    if (mode == rokRoundTruncate) return complex_div16_body<rokRoundTruncate>(a, b, d, n, sf, zero);
    if (mode == rokRoundHalfAway) return complex_div16_body<rokRoundHalfAway>(a, b, d, n, sf, zero);
    return complex_div16_body<rokRoundNearestEven>(a, b, d, n, sf, zero);
}

template <ArithOp Op>
Span scaled32_span(const Rok32s* a, const Rok32s* b, Rok32s* d, int n, int sf) {
    if (sf > 63) return {};
    const Span s = vector_span<4>(d, n);
    const Scale64 scale(sf);
    for (int i = s.begin; i < s.end; i += 8) {
        const __m256i x = load(a + i), y = load(b + i);
        const __m256i x0 = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(x));
        const __m256i x1 = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(x, 1));
        const __m256i y0 = _mm256_cvtepi32_epi64(_mm256_castsi256_si128(y));
        const __m256i y1 = _mm256_cvtepi32_epi64(_mm256_extracti128_si256(y, 1));
        __m256i e0, e1;
        if constexpr (Op == ArithOp::Add) e0 = _mm256_add_epi64(x0, y0), e1 = _mm256_add_epi64(x1, y1);
        else e0 = _mm256_sub_epi64(y0, x0), e1 = _mm256_sub_epi64(y1, x1);
        store(d + i, narrow64(scale(e0), scale(e1)));
    }
    return s;
}

// Four complex samples a vector; the 32 x 32-bit products are exact in
// 64-bit lanes, and so is re = ar br - ai bi (|re| < 2^63); im wraps only at
// the corner that Scale64 takes apart. The results go back as (re, im)
// pairs of 32 bits.
Span complex_mul32_span(const Rok32sc* a, const Rok32sc* b, Rok32sc* d, int n, int sf) {
    if (sf > 63) return {};
    const Span s = vector_span<8>(d, n);
    const Scale64 scale(sf);
    for (int i = s.begin; i < s.end; i += 4) {
        const __m256i x = load(a + i), y = load(b + i);
        const __m256i xi = _mm256_srli_epi64(x, 32), yi = _mm256_srli_epi64(y, 32);
        const __m256i re = _mm256_sub_epi64(_mm256_mul_epi32(x, y), _mm256_mul_epi32(xi, yi));
        const __m256i im = _mm256_add_epi64(_mm256_mul_epi32(x, yi), _mm256_mul_epi32(xi, y));
        store(d + i, _mm256_blend_epi32(scale(re), _mm256_slli_epi64(scale.imaginary(im), 32), 0xAA));
    }
    return s;
}

template Span scaled32_span<ArithOp::Add>(const Rok32s*, const Rok32s*, Rok32s*, int, int);
template Span scaled32_span<ArithOp::Sub>(const Rok32s*, const Rok32s*, Rok32s*, int, int);

}  // namespace rok::kernels
