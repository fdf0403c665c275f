#include "kernels/arith/arith_simd.h"

#include "kernels/arith/arith_round.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace rok::kernels {

namespace {

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// The aligned whole-vector span of a row of n samples, or an empty one.
template <class P>
Span vector_span(const P* d, int n) {
    constexpr int lanes = 32 / sizeof(P);
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (n < 16 || mis % sizeof(P)) return {};
    const int begin = std::min<int>(n, int(((32 - mis) & 31) / sizeof(P)));
    return {begin, begin + (n - begin) / lanes * lanes};
}

// Two vectors a step: independent work that keeps the core busy while one
// waits for memory (it matters most when a sibling thread shares the core).
// Both are loaded before either is stored, which in-place rows need.
template <class P, class Block>
Span each_vector(const P* a, const P* b, P* d, int n, Block block) {
    constexpr int lanes = 32 / sizeof(P);
    const Span s = vector_span(d, n);
    int i = s.begin;
    for (; i + 2 * lanes <= s.end; i += 2 * lanes) {
        const __m256i r0 = block(load(a + i), load(b + i));
        const __m256i r1 = block(load(a + i + lanes), load(b + i + lanes));
        _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), r0);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d + i + lanes), r1);
    }
    if (i < s.end) _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), block(load(a + i), load(b + i)));
    return s;
}

// ---- exact results in wider lanes ------------------------------------------
// 8u results live in 16-bit lanes, 16-bit results in 32-bit lanes. A block of
// 32 bytes becomes two wide vectors: the low and the high half of each
// 128-bit lane, the order in which the narrowing packs put them back.

template <class P>
constexpr bool kByte = std::is_same_v<P, Rok8u>;

// Whether the exact result can be negative (and so is shifted arithmetically).
template <ArithOp Op, class P>
constexpr bool kSignedExact = std::is_signed_v<P> || Op == ArithOp::Sub;

template <class P>
inline void widen(__m256i x, __m256i& lo, __m256i& hi) {
    if constexpr (kByte<P>) {
        lo = _mm256_unpacklo_epi8(x, _mm256_setzero_si256());
        hi = _mm256_unpackhi_epi8(x, _mm256_setzero_si256());
    } else if constexpr (std::is_signed_v<P>) {
        lo = _mm256_srai_epi32(_mm256_unpacklo_epi16(x, x), 16);
        hi = _mm256_srai_epi32(_mm256_unpackhi_epi16(x, x), 16);
    } else {
        lo = _mm256_unpacklo_epi16(x, _mm256_setzero_si256());
        hi = _mm256_unpackhi_epi16(x, _mm256_setzero_si256());
    }
}

template <ArithOp Op, class P>
inline void exact(__m256i x, __m256i y, __m256i& lo, __m256i& hi) {
    if constexpr (!kByte<P> && Op == ArithOp::Mul) {
        // Full 32-bit products from the low and high 16-bit halves.
        const __m256i pl = _mm256_mullo_epi16(x, y);
        const __m256i ph = std::is_signed_v<P> ? _mm256_mulhi_epi16(x, y) : _mm256_mulhi_epu16(x, y);
        lo = _mm256_unpacklo_epi16(pl, ph);
        hi = _mm256_unpackhi_epi16(pl, ph);
        return;
    }
    __m256i xl, xh, yl, yh;
    widen<P>(x, xl, xh);
    widen<P>(y, yl, yh);
    if constexpr (kByte<P>) {
        if constexpr (Op == ArithOp::Add) lo = _mm256_add_epi16(xl, yl), hi = _mm256_add_epi16(xh, yh);
        else if constexpr (Op == ArithOp::Sub) lo = _mm256_sub_epi16(yl, xl), hi = _mm256_sub_epi16(yh, xh);
        else lo = _mm256_mullo_epi16(xl, yl), hi = _mm256_mullo_epi16(xh, yh);
    } else {
        if constexpr (Op == ArithOp::Add) lo = _mm256_add_epi32(xl, yl), hi = _mm256_add_epi32(xh, yh);
        else lo = _mm256_sub_epi32(yl, xl), hi = _mm256_sub_epi32(yh, xh);
    }
}

// Wide lanes back to samples with saturation. The values handed in are
// either within the signed wide range of the pack or already clamped.
template <class P>
inline __m256i narrow(__m256i lo, __m256i hi) {
    if constexpr (kByte<P>) return _mm256_packus_epi16(lo, hi);
    else if constexpr (std::is_signed_v<P>) return _mm256_packs_epi32(lo, hi);
    else return _mm256_packus_epi32(lo, hi);
}

// Lane-width helpers, so one body serves 16- and 32-bit lanes.
template <class P> inline __m256i add_w(__m256i a, __m256i b) { return kByte<P> ? _mm256_add_epi16(a, b) : _mm256_add_epi32(a, b); }
template <class P> inline __m256i set_w(int v) { return kByte<P> ? _mm256_set1_epi16(short(v)) : _mm256_set1_epi32(v); }
template <class P> inline __m256i srl_w(__m256i a, __m128i c) { return kByte<P> ? _mm256_srl_epi16(a, c) : _mm256_srl_epi32(a, c); }
template <class P> inline __m256i sra_w(__m256i a, __m128i c) { return kByte<P> ? _mm256_sra_epi16(a, c) : _mm256_sra_epi32(a, c); }
template <class P> inline __m256i sll_w(__m256i a, __m128i c) { return kByte<P> ? _mm256_sll_epi16(a, c) : _mm256_sll_epi32(a, c); }
template <class P> inline __m256i minu_w(__m256i a, __m256i b) { return kByte<P> ? _mm256_min_epu16(a, b) : _mm256_min_epu32(a, b); }
template <class P> inline __m256i mins_w(__m256i a, __m256i b) { return kByte<P> ? _mm256_min_epi16(a, b) : _mm256_min_epi32(a, b); }
template <class P> inline __m256i maxs_w(__m256i a, __m256i b) { return kByte<P> ? _mm256_max_epi16(a, b) : _mm256_max_epi32(a, b); }

// Clamps an exact result to the sample range: its sign and saturation are
// then all a left shift needs (any clamped-off value saturates anyway).
template <ArithOp Op, class P>
inline __m256i clamp_to_sample(__m256i x) {
    if constexpr (std::is_signed_v<P>) return maxs_w<P>(mins_w<P>(x, set_w<P>(32767)), set_w<P>(-32768));
    else if constexpr (Op == ArithOp::Sub) return maxs_w<P>(x, _mm256_setzero_si256());  // |b - a| fits already
    else return minu_w<P>(x, set_w<P>(kByte<P> ? 255 : 65535));                           // non-negative
}

// ---- Add, Sub, Mul --------------------------------------------------------

// Scale factor 0: saturating instructions where they exist.
template <ArithOp Op, class P>
Span unscaled(const P* a, const P* b, P* d, int n) {
    return each_vector(a, b, d, n, [](__m256i x, __m256i y) {
        if constexpr (Op == ArithOp::Add) {
            if constexpr (kByte<P>) return _mm256_adds_epu8(x, y);
            else if constexpr (std::is_signed_v<P>) return _mm256_adds_epi16(x, y);
            else return _mm256_adds_epu16(x, y);
        } else if constexpr (Op == ArithOp::Sub) {
            if constexpr (kByte<P>) return _mm256_subs_epu8(y, x);
            else if constexpr (std::is_signed_v<P>) return _mm256_subs_epi16(y, x);
            else return _mm256_subs_epu16(y, x);
        } else {
            __m256i lo, hi;
            exact<Op, P>(x, y, lo, hi);
            if constexpr (!std::is_signed_v<P>) {  // unsigned products may use the top bit
                lo = clamp_to_sample<Op, P>(lo);
                hi = clamp_to_sample<Op, P>(hi);
            }
            return narrow<P>(lo, hi);
        }
    });
}

// Add with scale factor 1: the rounded-up average, less one where the sum
// was odd and the average came out odd (half to even).
template <class P>
Span halved_sum(const P* a, const P* b, P* d, int n) {
    return each_vector(a, b, d, n, [](__m256i x, __m256i y) {
        if constexpr (kByte<P>) {
            const __m256i avg = _mm256_avg_epu8(x, y);
            const __m256i odd = _mm256_and_si256(_mm256_and_si256(_mm256_xor_si256(x, y), avg), _mm256_set1_epi8(1));
            return _mm256_sub_epi8(avg, odd);
        } else {
            // Signed samples are averaged with the sign bit flipped (a bias
            // of 2^15 on each operand), then flipped back.
            const __m256i flip = _mm256_set1_epi16(std::is_signed_v<P> ? short(0x8000) : 0);
            const __m256i avg = _mm256_xor_si256(_mm256_avg_epu16(_mm256_xor_si256(x, flip), _mm256_xor_si256(y, flip)), flip);
            const __m256i odd = _mm256_and_si256(_mm256_and_si256(_mm256_xor_si256(x, y), avg), _mm256_set1_epi16(1));
            return _mm256_sub_epi16(avg, odd);
        }
    });
}

// 8u Mul with scale factor 1: p >> 1 for each product p, saturated by the
// pack, plus the half-to-even step: p is odd with an odd half exactly when
// bit 0 and bit 1 of p are set, and those two bits come from the two low bits
// of the factors alone (p0 = x0 y0, p1 = x1 y0 ^ x0 y1), so the step is
// computed on the bytes and added with saturation.
Span halved_products8u(const Rok8u* a, const Rok8u* b, Rok8u* d, int n) {
    return each_vector(a, b, d, n, [](__m256i x, __m256i y) {
        const __m256i zero = _mm256_setzero_si256();
        const __m256i lo = _mm256_mullo_epi16(_mm256_unpacklo_epi8(x, zero), _mm256_unpacklo_epi8(y, zero));
        const __m256i hi = _mm256_mullo_epi16(_mm256_unpackhi_epi8(x, zero), _mm256_unpackhi_epi8(y, zero));
        const __m256i half = _mm256_packus_epi16(_mm256_srli_epi16(lo, 1), _mm256_srli_epi16(hi, 1));
        // x0 y0 (x1 ^ y1) = x0 y0 (x1 y0 ^ x0 y1) when x0 y0 = 1.
        const __m256i both = _mm256_and_si256(x, y), either = _mm256_srli_epi16(_mm256_xor_si256(x, y), 1);
        const __m256i up = _mm256_and_si256(_mm256_and_si256(both, either), _mm256_set1_epi8(1));
        return _mm256_adds_epu8(half, up);
    });
}

// Whether (x + 2^(sf-1) - 1 + odd) cannot overflow the wide lane for every
// scale factor the kernel takes; unsigned products use the top bit and
// round from the shifted value instead.
template <ArithOp Op, class P>
constexpr bool kBiasFits = Op != ArithOp::Mul || std::is_signed_v<P>;

// sf >= 1: x / 2^sf rounded half to even.
template <ArithOp Op, class P>
Span scaled_down(const P* a, const P* b, P* d, int n, int sf) {
    const __m128i count = _mm_cvtsi32_si128(sf), count1 = _mm_cvtsi32_si128(sf - 1);
    const __m256i bias = set_w<P>(int((1u << (sf - 1)) - 1)), one = set_w<P>(1);
    const __m256i below = set_w<P>(int((1u << (sf - 1)) - 1));
    const bool short_bias = kByte<P> && Op == ArithOp::Mul && sf <= 8;  // 255 * 255 + 2^7 < 2^16
    auto round = [&](__m256i x) {
        if (kBiasFits<Op, P> || short_bias) {
            const __m256i odd = _mm256_and_si256(kSignedExact<Op, P> ? sra_w<P>(x, count) : srl_w<P>(x, count), one);
            const __m256i s = add_w<P>(add_w<P>(x, bias), odd);
            return kSignedExact<Op, P> ? sra_w<P>(s, count) : srl_w<P>(s, count);
        }
        // Unsigned: t keeps the half bit; round up when it is set and either
        // a lower bit is set or the quotient is odd.
        const __m256i t = srl_w<P>(x, count1), q = srl_w<P>(t, _mm_cvtsi32_si128(1));
        const __m256i sticky = minu_w<P>(_mm256_and_si256(x, below), one);
        return add_w<P>(q, _mm256_and_si256(_mm256_and_si256(t, _mm256_or_si256(q, sticky)), one));
    };
    return each_vector(a, b, d, n, [&](__m256i x, __m256i y) {
        __m256i lo, hi;
        exact<Op, P>(x, y, lo, hi);
        return narrow<P>(round(lo), round(hi));
    });
}

// sf <= -1: x * 2^-sf with saturation. Clamping to the sample range first
// keeps the shift inside the lane; a shift by the sample width saturates
// every non-zero value, so larger ones are the same.
template <ArithOp Op, class P>
Span scaled_up(const P* a, const P* b, P* d, int n, int sf) {
    // Compared before negating: the most negative factor has no positive.
    const int bits = 8 * int(sizeof(P));
    const __m128i count = _mm_cvtsi32_si128(sf < -bits ? bits : -sf);
    auto shift = [&](__m256i x) {
        const __m256i s = sll_w<P>(clamp_to_sample<Op, P>(x), count);
        if constexpr (std::is_signed_v<P>) return s;
        else return minu_w<P>(s, set_w<P>(kByte<P> ? 255 : 65535));
    };
    return each_vector(a, b, d, n, [&](__m256i x, __m256i y) {
        __m256i lo, hi;
        exact<Op, P>(x, y, lo, hi);
        return narrow<P>(shift(lo), shift(hi));
    });
}

// ---- integer division -----------------------------------------------------

// Eight quotients of x * 2^-sf / v rounded by Mode, saturated later by the
// packs. q0 is the nearest integer to a float estimate good to 2^-4, so it
// is within 1 of the answer; the remainder N - q0 v is exact in float (an
// integer below 2^16, or a multiple of 2^-sf below 2^16 with sf <= 7) and
// says which way to correct. Estimates beyond +-`limit` saturate whatever the
// correction, so they are clamped there first.
template <int Mode>
inline __m256i divide8(__m256i x, __m256i v, __m256 scale, __m256 eps, __m256 limit) {
    const __m256 sign = _mm256_set1_ps(-0.0f);
    const __m256 vf = _mm256_cvtepi32_ps(v);
    const __m256 num = _mm256_mul_ps(_mm256_cvtepi32_ps(x), scale);  // exact: a power of two
    const __m256 r0 = _mm256_rcp_ps(vf);
    const __m256 r1 = _mm256_mul_ps(r0, _mm256_fnmadd_ps(vf, r0, _mm256_set1_ps(2.0f)));
    __m256 q = _mm256_mul_ps(num, r1);
    q = _mm256_max_ps(_mm256_min_ps(q, limit), _mm256_xor_ps(limit, sign));
    q = _mm256_round_ps(q, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    const __m256i qi = _mm256_cvttps_epi32(q);
    // With r = (N - q0 v) * sign(v) and D = |v|, the exact quotient is
    // t = q0 + r / D. eps lies below the grid of 2r, so adding it to 2r turns
    // a tie into a strict comparison.
    const __m256 r = _mm256_xor_ps(_mm256_fnmadd_ps(q, vf, num), _mm256_and_ps(vf, sign));
    const __m256 twice = _mm256_add_ps(r, r);
    const __m256 den = _mm256_andnot_ps(sign, vf);
    // t < 0 where the signs of N and v differ (N == 0 gives t == 0, q0 == 0
    // and r == 0, which no comparison below moves).
    const __m256 negative = _mm256_castsi256_ps(_mm256_srai_epi32(_mm256_xor_si256(x, v), 31));
    __m256 up, down;
    if constexpr (Mode == rokRoundTruncate) {  // floor for t >= 0, ceiling for t < 0
        up = _mm256_and_ps(negative, _mm256_cmp_ps(r, _mm256_setzero_ps(), _CMP_GT_OQ));
        down = _mm256_andnot_ps(negative, _mm256_cmp_ps(r, _mm256_setzero_ps(), _CMP_LT_OQ));
    } else {
        // Half to even: a tie goes up (down) from an odd q0. Half away: a
        // tie goes up when t >= 0 and down when t < 0.
        __m256 tie_up, tie_down;
        if constexpr (Mode == rokRoundHalfAway) {
            tie_up = _mm256_andnot_ps(negative, eps);
            tie_down = _mm256_and_ps(negative, eps);
        } else {
            tie_up = tie_down = _mm256_and_ps(_mm256_castsi256_ps(_mm256_srai_epi32(_mm256_slli_epi32(qi, 31), 31)), eps);
        }
        up = _mm256_cmp_ps(_mm256_add_ps(twice, tie_up), den, _CMP_GT_OQ);
        down = _mm256_cmp_ps(_mm256_sub_ps(twice, tie_down), _mm256_xor_ps(den, sign), _CMP_LT_OQ);
    }
    return _mm256_add_epi32(_mm256_sub_epi32(qi, _mm256_castps_si256(up)), _mm256_castps_si256(down));
}

// 8u quotients need no correction. A quotient t = x 2^-sf / v below 256
// that is not a tie lies at least 2^-sf / 510 from every rounding point
// (half-integers, or integers for truncation), while the correctly rounded
// float quotient errs by at most t 2^-24 <= 2^(-16-sf); a tie k + 1/2 and
// an integer t are exact in float. So rounding the float quotient by the
// mode is exact, and anything from 256 up saturates.
template <int Mode>
inline __m256i divide8_bytes(__m256i x, __m256i v, __m256 scale) {
    __m256 q = _mm256_div_ps(_mm256_mul_ps(_mm256_cvtepi32_ps(x), scale), _mm256_cvtepi32_ps(v));
    q = _mm256_min_ps(q, _mm256_set1_ps(256.0f));  // also takes the inf and NaN of zero divisors, replaced later
    if constexpr (Mode == rokRoundTruncate) q = _mm256_round_ps(q, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    else if constexpr (Mode == rokRoundHalfAway) q = _mm256_floor_ps(_mm256_add_ps(q, _mm256_set1_ps(0.5f)));
    else q = _mm256_round_ps(q, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    return _mm256_cvttps_epi32(q);
}

// The result for a zero divisor, in 32-bit lanes that the packs saturate:
// the saturated sign of the dividend.
template <class P>
inline __m256i zero_divisor8(__m256i x) {
    if constexpr (std::is_signed_v<P>) return _mm256_slli_epi32(x, 16);
    else return _mm256_slli_epi32(_mm256_min_epu32(x, _mm256_set1_epi32(1)), 16);
}

template <class P, int Mode>
Span divide_body(const P* a, const P* b, P* d, int n, int sf, bool* zero) {
    const __m256 scale = _mm256_set1_ps(sf >= 0 ? 1.0f / float(1 << sf) : float(1 << -sf));
    const __m256 eps = _mm256_set1_ps(sf > 0 ? 1.0f / float(1 << sf) : 1.0f);
    const __m256 limit = _mm256_set1_ps(100000.0f);  // beyond every sample range
    bool zeros = false;
    // 16-bit quotients of one wide vector; z marks the zero divisors.
    auto wide = [&](__m256i x, __m256i v, __m256i z) {
        return _mm256_blendv_epi8(divide8<Mode>(x, v, scale, eps, limit), zero_divisor8<P>(x), z);
    };
    const Span s = each_vector(a, b, d, n, [&](__m256i v, __m256i x) {
        const __m256i z = kByte<P> ? _mm256_cmpeq_epi8(v, _mm256_setzero_si256()) : _mm256_cmpeq_epi16(v, _mm256_setzero_si256());
        zeros |= !_mm256_testz_si256(z, z);
        __m256i xl, xh, vl, vh, zl, zh;
        if constexpr (kByte<P>) {  // bytes to 16-bit lanes, then as 16u to 32-bit lanes
            widen<Rok8u>(x, xl, xh);
            widen<Rok8u>(v, vl, vh);
            __m256i a0, a1, b0, b1, c0, c1, e0, e1;
            widen<Rok16u>(xl, a0, a1);
            widen<Rok16u>(vl, b0, b1);
            widen<Rok16u>(xh, c0, c1);
            widen<Rok16u>(vh, e0, e1);
            const __m256i lo = _mm256_packs_epi32(divide8_bytes<Mode>(a0, b0, scale), divide8_bytes<Mode>(a1, b1, scale));
            const __m256i hi = _mm256_packs_epi32(divide8_bytes<Mode>(c0, e0, scale), divide8_bytes<Mode>(c1, e1, scale));
            // A zero divisor gives 255 for a non-zero dividend and 0 for a
            // zero one, set on the bytes in place of whatever its float
            // quotient (infinity or NaN, clamped) packed to.
            const __m256i nonzero = _mm256_xor_si256(_mm256_cmpeq_epi8(x, _mm256_setzero_si256()), _mm256_set1_epi8(-1));
            return _mm256_blendv_epi8(_mm256_packus_epi16(lo, hi), nonzero, z);
        } else {
            widen<P>(x, xl, xh);
            widen<P>(v, vl, vh);
            widen<Rok16s>(z, zl, zh);  // sign extension turns the mask into 32-bit lanes
            return narrow<P>(wide(xl, vl, zl), wide(xh, vh, zh));
        }
    });
    if (zeros) *zero = true;
    return s;
}

// 16-bit quotients at the scale factors the float body does not take: the
// scalar rule's double-precision steps, four lanes at a time (the argument
// that they are exact is at the scalar loop): b 2^-sf (sf clamped to
// -32 .. 40) over a, rounded by the mode, clamped to the sample range; a zero
// dividend gives 0 whatever the divisor, a zero divisor otherwise the
// saturated sign of the dividend (the infinity clamped).
template <class P, int Mode>
Span divide_double_body(const P* a, const P* b, P* d, int n, int sf, bool* zero) {
    const __m256d scale = _mm256_set1_pd(std::ldexp(1.0, -std::clamp(sf, -32, 40)));
    const __m256d lo = _mm256_set1_pd(std::numeric_limits<P>::min()), hi = _mm256_set1_pd(std::numeric_limits<P>::max());
    auto quarter = [&](__m128i x, __m128i v) {
        const __m256d q = _mm256_div_pd(_mm256_mul_pd(_mm256_cvtepi32_pd(x), scale), _mm256_cvtepi32_pd(v));
        const __m256d r = _mm256_max_pd(_mm256_min_pd(round_by_mode<Mode>(q), hi), lo);
        return _mm_andnot_si128(_mm_cmpeq_epi32(x, _mm_setzero_si128()), _mm256_cvttpd_epi32(r));
    };
    auto wide = [&](__m256i x, __m256i v) {
        return _mm256_set_m128i(quarter(_mm256_extracti128_si256(x, 1), _mm256_extracti128_si256(v, 1)),
                                quarter(_mm256_castsi256_si128(x), _mm256_castsi256_si128(v)));
    };
    bool zeros = false;
    const Span s = each_vector(a, b, d, n, [&](__m256i v, __m256i x) {
        const __m256i z = _mm256_cmpeq_epi16(v, _mm256_setzero_si256());
        zeros |= !_mm256_testz_si256(z, z);
        __m256i xl, xh, vl, vh;
        widen<P>(x, xl, xh);
        widen<P>(v, vl, vh);
        return narrow<P>(wide(xl, vl), wide(xh, vh));
    });
    if (zeros) *zero = true;
    return s;
}

}  // namespace

// ---- MulScale ---------------------------------------------------------------

// (p + 1 + (p >> bits)) >> bits for p = a * b. 8u works on the 16-bit
// products (p + 1 + 254 < 2^16). 16u splits p into its 16-bit halves h, l:
// the result is h plus the carry out of l + h + 1 (h + 1 cannot wrap, since
// p <= 0xFFFE0001).
template <class P>
Span mul_scale_span(const P* a, const P* b, P* d, int n) {
    if constexpr (kByte<P>) {
        // With p = 256 u + w: (p + 1 + u) >> 8 = u + ((u + w + 1) >> 8), and
        // ((p + 1) * 257) >> 16 = u + ((256 (u + w + 1) + w + 1) >> 16),
        // the same for u + w + 1 <= 511 (the second sum reaches 2^16 only
        // from u + w + 1 >= 256). p + 1 <= 65026 fits.
        const __m256i one = _mm256_set1_epi16(1), m257 = _mm256_set1_epi16(257);
        auto scale = [&](__m256i p) { return _mm256_mulhi_epu16(_mm256_add_epi16(p, one), m257); };
        return each_vector(a, b, d, n, [&](__m256i x, __m256i y) {
            __m256i lo, hi;
            exact<ArithOp::Mul, P>(x, y, lo, hi);
            return _mm256_packus_epi16(scale(lo), scale(hi));
        });
    } else {
        return each_vector(a, b, d, n, [](__m256i x, __m256i y) {
            const __m256i l = _mm256_mullo_epi16(x, y), h = _mm256_mulhi_epu16(x, y);
            // Carry when l >= 2^16 - (h + 1), a value in 1 .. 2^16 - 1.
            const __m256i need = _mm256_sub_epi16(_mm256_setzero_si256(), _mm256_add_epi16(h, _mm256_set1_epi16(1)));
            const __m256i carry = _mm256_cmpeq_epi16(_mm256_max_epu16(l, need), l);
            return _mm256_sub_epi16(h, carry);
        });
    }
}

template <ArithOp Op, class P>
Span scaled_span(const P* a, const P* b, P* d, int n, int sf) {
    constexpr int lane_bits = kByte<P> ? 16 : 32;
    if (sf == 0) return unscaled<Op>(a, b, d, n);
    if (sf == 1 && Op == ArithOp::Add) return halved_sum(a, b, d, n);
    if constexpr (kByte<P> && Op == ArithOp::Mul)
        if (sf == 1) return halved_products8u(a, b, d, n);
    // Unsigned products round from the shifted value and so take every scale
    // factor up to the lane width; the others add a bias that must fit.
    if (sf > 0) return sf <= lane_bits - (kBiasFits<Op, P> ? 2 : 0) ? scaled_down<Op>(a, b, d, n, sf) : Span{};
    return scaled_up<Op>(a, b, d, n, sf);
}

template <class P>
Span divide_span(const P* a, const P* b, P* d, int n, int sf, int mode, bool* zero) {
    // 8u quotients from -16 down all saturate (x 2^16 / 255 > 255 for x >= 1)
    // and from 9 up all round to 0 (255 / 2^9 < 1/2), so the float body's
    // results there are those of the ends, where its argument holds.
    if constexpr (kByte<P>) sf = std::clamp(sf, -16, 9);
    else if (sf < -30 || sf > 7) {
        if (mode == rokRoundTruncate) return divide_double_body<P, rokRoundTruncate>(a, b, d, n, sf, zero);
        if (mode == rokRoundHalfAway) return divide_double_body<P, rokRoundHalfAway>(a, b, d, n, sf, zero);
        return divide_double_body<P, rokRoundNearestEven>(a, b, d, n, sf, zero);
    }
    if (mode == rokRoundTruncate) return divide_body<P, rokRoundTruncate>(a, b, d, n, sf, zero);
    if (mode == rokRoundHalfAway) return divide_body<P, rokRoundHalfAway>(a, b, d, n, sf, zero);
    return divide_body<P, rokRoundNearestEven>(a, b, d, n, sf, zero);
}

template Span divide_span<Rok8u>(const Rok8u*, const Rok8u*, Rok8u*, int, int, int, bool*);
template Span divide_span<Rok16u>(const Rok16u*, const Rok16u*, Rok16u*, int, int, int, bool*);
template Span divide_span<Rok16s>(const Rok16s*, const Rok16s*, Rok16s*, int, int, int, bool*);

Span divide16s_constant_span(const Rok16s* s, Rok16s value, Rok16s* d, int n, int sf) {
    const bool negate = value < 0;
    const int mag = negate ? -int(value) : int(value);
    if (mag == 1 && sf == 0)  // the sample itself, or its saturated negation
        return each_vector(s, s, d, n, [&](__m256i x, __m256i) {
            return negate ? _mm256_subs_epi16(_mm256_setzero_si256(), x) : x;
        });
    // Magnitudes (up to 32768) are divided by D = |value| * 2^sf, which must
    // stay below 2^15 so that the remainders compare as signed numbers.
    if (sf < 0 || sf > 14 || (mag << sf) > 32767) return {};
    const int den = mag << sf;
    // floor(x / D) = mulhi(x, m) >> (l - 1) with 2^(l-1) < D <= 2^l and
    // m = ceil(2^(15+l) / D) < 2^16: the product overshoots x / D by
    // x (m D - 2^(15+l)) / (D 2^(15+l)) < 1 / D for x <= 2^15, too little to
    // reach the next integer.
    int l = 1;
    while ((1 << l) < den) ++l;
    const unsigned m = unsigned(((std::uint64_t(1) << (15 + l)) + den - 1) / den);
    const __m128i shift = _mm_cvtsi32_si128(l - 1);
    const __m256i vm = _mm256_set1_epi16(short(m)), vden = _mm256_set1_epi16(short(den));
    const __m256i half = _mm256_set1_epi16(short(den / 2)), one = _mm256_set1_epi16(1);
    // Half to even on magnitudes, with r the remainder: an odd D has no ties,
    // so up when r > (D - 1) / 2; an even D goes up when r > D / 2, or
    // r == D / 2 and q is odd, that is when r + (q odd) > D / 2.
    auto divide = [&](__m256i x, auto odd_den) {
        const __m256i ax = _mm256_abs_epi16(x);  // -32768 gives 0x8000: 32768 unsigned
        __m256i q = _mm256_srl_epi16(_mm256_mulhi_epu16(ax, vm), shift);
        __m256i r = _mm256_sub_epi16(ax, _mm256_mullo_epi16(q, vden));
        if constexpr (!decltype(odd_den)::value) r = _mm256_add_epi16(r, _mm256_and_si256(q, one));
        q = _mm256_sub_epi16(q, _mm256_cmpgt_epi16(r, half));
        q = _mm256_sign_epi16(q, x);  // back to the sign of x
        return negate ? _mm256_subs_epi16(_mm256_setzero_si256(), q) : q;
    };
    if (den % 2)
        return each_vector(s, s, d, n, [&](__m256i x, __m256i) { return divide(x, std::true_type{}); });
    return each_vector(s, s, d, n, [&](__m256i x, __m256i) { return divide(x, std::false_type{}); });
}

template Span mul_scale_span<Rok8u>(const Rok8u*, const Rok8u*, Rok8u*, int);
template Span mul_scale_span<Rok16u>(const Rok16u*, const Rok16u*, Rok16u*, int);

#define ROK_SCALED(OP)                                                                          \
    template Span scaled_span<ArithOp::OP, Rok8u>(const Rok8u*, const Rok8u*, Rok8u*, int, int);     \
    template Span scaled_span<ArithOp::OP, Rok16u>(const Rok16u*, const Rok16u*, Rok16u*, int, int); \
    template Span scaled_span<ArithOp::OP, Rok16s>(const Rok16s*, const Rok16s*, Rok16s*, int, int);
ROK_SCALED(Add)
ROK_SCALED(Sub)
ROK_SCALED(Mul)
#undef ROK_SCALED

}  // namespace rok::kernels
