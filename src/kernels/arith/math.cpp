#include "kernels/arith/math.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "kernels/rules.h"

namespace rok::kernels {

namespace {

// ---- single precision ------------------------------------------------------
// ln 2 split so that n * kLn2Hi is exact for |n| < 512 (kLn2Hi has 15
// significant bits); kLn2Lo is the rest.
constexpr float kLn2Hi = 0.693145751953125f;
constexpr float kLn2Lo = 1.4286068203094172e-06f;

inline __m256 splat(float v) { return _mm256_set1_ps(v); }

// e^x = 2^k 2^(j/8) e^r with n = 8 k + j = round(8 x / ln 2) and
// |r| <= ln 2 / 16. n comes from adding 1.5 * 2^23, which leaves it in the
// low bits of t. r = (x - n c_hi) - n c_lo with c_hi + c_lo = ln 2 / 8 and
// c_hi of 12 bits, so the first part is exact. e^r - 1 = r + r^2 q(r), q
// the linear minimax fit of (e^r - 1 - r) / r^2 for the relative error of
// e^r (2.6e-8, 0.43 of the last place at most: one multiply-add fewer than
// a quadratic q, for a bound still under 1 ulp). 2^(j/8) is a table held as
// a float and its remainder, picked by one permute each, so
// y = T_hi + (T_hi (e^r - 1) + T_lo) is rounded once where it matters.
// Largest error over every float: 0.983 ulp.
alignas(32) constexpr float kExp2Hi[8] = {1.0f, 1.0905077457427979f, 1.1892070770263672f, 1.2968395948410034f,
                                          1.4142135381698608f, 1.5422108173370361f, 1.6817928552627563f, 1.8340080976486206f};
alignas(32) constexpr float kExp2Lo[8] = {0.0f, -1.3077539939843064e-08f, 3.797635272917432e-08f, -4.018999533172973e-08f,
                                          2.4203234971764687e-08f, 8.070904833346049e-09f, -2.4755326677450284e-08f,
                                          -1.1239277952768134e-08f};

struct ExpParts {
    __m256 y;   // in [0.95, 1.92]
    __m256i t;  // n in the low bits of 1.5 * 2^23 + n: e^x = y 2^(n >> 3)
};

inline ExpParts exp_parts(__m256 x) {
    const __m256 shifter = splat(12582912.0f);
    const __m256 t = _mm256_fmadd_ps(x, splat(11.541560173034668f), shifter);
    const __m256 nf = _mm256_sub_ps(t, shifter);
    const __m256 r = _mm256_fnmadd_ps(nf, splat(3.993272912339307e-06f), _mm256_fnmadd_ps(nf, splat(0.086639404296875f), x));
    const __m256 r2 = _mm256_mul_ps(r, r);
    const __m256 u = _mm256_fmadd_ps(r2, _mm256_fmadd_ps(splat(0.166669789913356f), r, splat(0.5000645233669604f)), r);
    // The permutes read the low three bits of t's bits, which are n's (the
    // shifter's are 0 there).
    const __m256i tb = _mm256_castps_si256(t);
    const __m256 hi = _mm256_permutevar8x32_ps(_mm256_load_ps(kExp2Hi), tb);
    const __m256 lo = _mm256_permutevar8x32_ps(_mm256_load_ps(kExp2Lo), tb);
    return {_mm256_add_ps(hi, _mm256_fmadd_ps(hi, u, lo)), tb};
}

// |x| <= 87: e^x is a normal number, so 2^k goes straight into y's exponent.
// The shifter's bits end in twelve 0 bits, so t's bits shifted up by 20 are
// n's, and their top nine bits are k = n >> 3 in the exponent field.
inline __m256 exp_normal(__m256 x) {
    const ExpParts e = exp_parts(x);
    const __m256i k = _mm256_and_si256(_mm256_slli_epi32(e.t, 20), _mm256_set1_epi32(int(0xFF800000u)));
    return _mm256_castsi256_ps(_mm256_add_epi32(_mm256_castps_si256(e.y), k));
}

// Any x: clamped to [-104, 89] (beyond, the results are 0 and +inf), 2^k
// applied as 2^(k/2) 2^(k - k/2), each a normal number, so results near
// overflow and denormal results are rounded once, at the last product; for
// normal results this is the same value as exp_normal's.
inline __m256 exp_any(__m256 x) {
    const __m256 xc = _mm256_min_ps(_mm256_max_ps(x, splat(-104.0f)), splat(89.0f));
    const ExpParts e = exp_parts(xc);
    const __m256i k = _mm256_srai_epi32(_mm256_sub_epi32(e.t, _mm256_set1_epi32(0x4B400000)), 3);
    const __m256i k1 = _mm256_srai_epi32(k, 1), k2 = _mm256_sub_epi32(k, k1);
    auto pow2 = [](__m256i k) {
        return _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_add_epi32(k, _mm256_set1_epi32(127)), 23));
    };
    const __m256 y = _mm256_mul_ps(_mm256_mul_ps(e.y, pow2(k1)), pow2(k2));
    return _mm256_blendv_ps(y, _mm256_add_ps(x, x), _mm256_cmp_ps(x, x, _CMP_UNORD_Q));  // NaN in, quiet NaN out
}

// |x| <= 87 in every lane: all-ones when exp_normal serves.
inline __m256 exp_inside(__m256 x) { return _mm256_cmp_ps(_mm256_andnot_ps(splat(-0.0f), x), splat(87.0f), _CMP_LE_OQ); }

struct ExpKernel {
    __m256 one(__m256 x, __m256) const {
        return _mm256_movemask_ps(exp_inside(x)) == 0xFF ? exp_normal(x) : exp_any(x);
    }
    // Two vectors at once, so their chains interleave. Both are inside when
    // the larger of their magnitudes, compared as integers (NaN above
    // every number), is at most 87's: then taking 87's bits plus 1 off it
    // leaves the sign bit set in every lane.
    void two(__m256 a, __m256 b, __m256& ya, __m256& yb) const {
        const __m256i magnitude = _mm256_castps_si256(splat(-0.0f));
        const __m256i larger = _mm256_max_epi32(_mm256_andnot_si256(magnitude, _mm256_castps_si256(a)),
                                                _mm256_andnot_si256(magnitude, _mm256_castps_si256(b)));
        if (_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_sub_epi32(larger, _mm256_set1_epi32(0x42AE0001)))) == 0xFF) {
            ya = exp_normal(a);
            yb = exp_normal(b);
        } else {
            ya = one(a, a);
            yb = one(b, b);
        }
    }
};

// ln x = k ln 2 - ln c + ln(1 + r) with x = 2^k z, z in [0.71875, 1.4375)
// cut into eight intervals of equal width in bits (1/16 below 1, 1/8 above),
// r = z c - 1 and c a multiple of 1/16 (1/32 in the top interval) near 1/z.
// Taking the bits of 0.71875 off x's bits leaves k in the exponent field and
// the interval number in the three bits below it. With so short a c, z c - 1
// is a multiple of 2^-28 below 2^-4 in magnitude (of 2^-27 below 2^-3 where
// z >= 1 and c is a multiple of 1/16): at most 24 significant bits, so the
// one fma that forms r is exact. The interval around 1, [0.96875, 1.0625),
// uses c = 1, keeping full relative precision near x = 1. The neighbours of that interval start far
// enough from 1 (ln x at least 1/32 away from 0) and the one above 1 takes
// c = 15/16, whose r is near 0 at its low end, so that r + (the small
// terms) never carries a rounding error comparable to the result's last
// place. -ln c = T_hi + T_lo with T_hi a multiple of 2^-16, so k ln2_hi +
// T_hi is exact (|k| < 152). ln(1 + r) = r - r^2 / 2 + r^3 P(r), P a cubic
// fitted on [-0.0567, 0.1133] (relative error below 2^-28). Largest error
// over every positive float: 0.784 ulp.
alignas(32) constexpr float kLnC[8] = {1.3125f, 1.25f, 1.125f, 1.0625f, 1.0f, 0.9375f, 0.8125f, 0.71875f};
alignas(32) constexpr float kLnTHi[8] = {-0.27192688f, -0.223144531f, -0.117782593f, -0.0606231689f,
                                         0.0f, 0.0645446777f, 0.207641602f, 0.330245972f};
alignas(32) constexpr float kLnTLo[8] = {-6.83560074e-06f, 9.79935749e-07f, -4.42882936e-07f, -1.45287117e-06f,
                                         0.0f, -6.15659701e-06f, -2.23678421e-06f, -4.28480917e-06f};

// `scaled` is 2^23 times what x's exponent was raised by (denormals). k
// goes in as k 2^23, the bits that also take it off z (a float exactly, as
// k has at most nine bits), times the halves of ln 2 scaled by 2^-23, so
// the products are those of k itself.
inline __m256 ln_core(__m256i bits, __m256 scaled = _mm256_setzero_ps(), bool is_scaled = false) {
    const __m256i offset = _mm256_set1_epi32(0x3F380000);  // 0.71875
    const __m256i rest = _mm256_sub_epi32(bits, offset);
    const __m256i k23 = _mm256_and_si256(rest, _mm256_set1_epi32(int(0xFF800000u)));
    const __m256i interval = _mm256_srli_epi32(rest, 20);  // the permutes read its low three bits
    const __m256 z = _mm256_castsi256_ps(_mm256_sub_epi32(bits, k23));
    const __m256 c = _mm256_permutevar8x32_ps(_mm256_load_ps(kLnC), interval);
    const __m256 t_hi = _mm256_permutevar8x32_ps(_mm256_load_ps(kLnTHi), interval);
    const __m256 t_lo = _mm256_permutevar8x32_ps(_mm256_load_ps(kLnTLo), interval);
    const __m256 r = _mm256_fmsub_ps(z, c, splat(1.0f));
    // r^2 (-1/2 + r P(r)) over r, r^2 and r^4 (Estrin's scheme: a shorter
    // chain than Horner's, for one multiplication more, lets more vectors
    // be in flight at once).
    const __m256 r2 = _mm256_mul_ps(r, r);
    const __m256 p01 = _mm256_fmadd_ps(splat(0.333334118f), r, splat(-0.5f));
    const __m256 p23 = _mm256_fmadd_ps(splat(0.199966878f), r, splat(-0.250062943f));
    const __m256 p4 = _mm256_fmadd_ps(splat(-0.147414029f), r2, p23);
    __m256 kf = _mm256_cvtepi32_ps(k23);
    if (is_scaled) kf = _mm256_sub_ps(kf, scaled);
    const __m256 hi = _mm256_fmadd_ps(kf, splat(kLn2Hi * 0x1p-23f), t_hi);
    const __m256 lo = _mm256_fmadd_ps(kf, splat(kLn2Lo * 0x1p-23f), t_lo);
    const __m256 small = _mm256_fmadd_ps(_mm256_mul_ps(r2, r2), p4, _mm256_fmadd_ps(r2, p01, lo));
    return _mm256_add_ps(hi, _mm256_add_ps(r, small));
}

// Any x: denormals scaled by 2^24 first; 0, negatives, +inf and NaN set.
inline __m256 ln_any(__m256 x) {
    const __m256 small = _mm256_cmp_ps(x, splat(std::numeric_limits<float>::min()), _CMP_LT_OQ);
    const __m256 xs = _mm256_blendv_ps(x, _mm256_mul_ps(x, splat(16777216.0f)), small);
    __m256 y = ln_core(_mm256_castps_si256(xs), _mm256_and_ps(small, splat(24.0f * 0x1p23f)), true);
    const float inf = std::numeric_limits<float>::infinity();
    y = _mm256_blendv_ps(y, splat(inf), _mm256_cmp_ps(x, splat(inf), _CMP_EQ_OQ));
    y = _mm256_blendv_ps(y, splat(-inf), _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ));
    y = _mm256_blendv_ps(y, splat(std::numeric_limits<float>::quiet_NaN()), _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_LT_OQ));
    return _mm256_blendv_ps(y, _mm256_add_ps(x, x), _mm256_cmp_ps(x, x, _CMP_UNORD_Q));
}

// Positive normal numbers (bits 0x00800000 .. 0x7F7FFFFF) need nothing of
// ln_any's. Adding 0x7F800000 to the bits moves exactly those to the signed
// integers below -2^24 (0, denormals and negative numbers wrap to at least
// -2^23, +inf and NaN land in [-2^24, -2^23)), so one comparison of the
// larger key of two vectors checks both.
inline __m256i ln_key(__m256 x) { return _mm256_add_epi32(_mm256_castps_si256(x), _mm256_set1_epi32(0x7F800000)); }
inline bool ln_all_normal(__m256i key) {
    return _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_set1_epi32(-0x1000000), key))) == 0xFF;
}

inline __m256 ln8(__m256 x) {
    return ln_all_normal(ln_key(x)) ? ln_core(_mm256_castps_si256(x)) : ln_any(x);
}

// Also notes the lanes in use that were 0 or below 0.
struct LnKernel {
    __m256 zeros = _mm256_setzero_ps(), negatives = _mm256_setzero_ps();
    __m256 one(__m256 x, __m256 lanes) {
        zeros = _mm256_or_ps(zeros, _mm256_and_ps(lanes, _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_EQ_OQ)));
        negatives = _mm256_or_ps(negatives, _mm256_and_ps(lanes, _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_LT_OQ)));
        return ln8(x);
    }
    // Two vectors at once, so their chains interleave; positive normal
    // numbers are neither 0 nor negative.
    void two(__m256 a, __m256 b, __m256& ya, __m256& yb) {
        if (ln_all_normal(_mm256_max_epi32(ln_key(a), ln_key(b)))) {
            ya = ln_core(_mm256_castps_si256(a));
            yb = ln_core(_mm256_castps_si256(b));
        } else {
            const __m256 all = _mm256_castsi256_ps(_mm256_set1_epi32(-1));
            ya = one(a, all);
            yb = one(b, all);
        }
    }
};

struct SqrtKernel {
    __m256 one(__m256 x, __m256) const { return _mm256_sqrt_ps(x); }
    void two(__m256 a, __m256 b, __m256& ya, __m256& yb) const {
        ya = _mm256_sqrt_ps(a);
        yb = _mm256_sqrt_ps(b);
    }
};

// Whole vectors run in chunks of one 4 KiB page of samples. Before each
// chunk one line of the source and one of the destination eight pages
// further on are prefetched, in this row or, past its end, in the rows of
// the ROI that follow (never outside the ROI): the page's address
// translation is then done while the chunks before it are computed,
// instead of when the loads and the stores (for which the hardware
// prefetchers, stopping at page boundaries, do nothing) reach it. Measured
// at 3840x2160 with 4 KiB pages: 15-25% less time for Exp and Ln (streamed),
// about as fast as the loop without prefetches on 2 MiB pages; at 1920x1080
// (plain stores) 5-8% less for Exp. Four pages ahead is too close.
constexpr int kChunk = 4096 / sizeof(float);
constexpr int kPrefetchAhead = 8 * kChunk;

template <bool Stream, class K>
void whole_vectors(const float* s, float* d, int& i, int n, K& k, RowsAfter next) {
    while (i + 16 <= n) {
        const long long at = i + kPrefetchAhead, row = at / n, col = at % n;
        if (row <= next.count) {
            _mm_prefetch(reinterpret_cast<const char*>(s) + row * next.src_step + col * 4, _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(d) + row * next.dst_step + col * 4, Stream ? _MM_HINT_NTA : _MM_HINT_T0);
        }
        auto put = [&](__m256 a, __m256 b) {
            __m256 ya, yb;
            k.two(a, b, ya, yb);
            if constexpr (Stream) {
                _mm256_stream_ps(d + i, ya);
                _mm256_stream_ps(d + i + 8, yb);
            } else {
                _mm256_storeu_ps(d + i, ya);
                _mm256_storeu_ps(d + i + 8, yb);
            }
        };
        // The next block is loaded before this one is stored. A load that
        // follows a store whose address differs by a multiple of 4 KiB
        // waits for it as if they overlapped; with the destination a little
        // ahead of the source (a few dozen bytes, modulo 4 KiB) every load
        // met the stores just made and the loop ran 1.3x as long.
        const int end = std::min(n, i + kChunk);
        __m256 a = _mm256_loadu_ps(s + i), b = _mm256_loadu_ps(s + i + 8);
        for (; i + 32 <= end; i += 16) {
            const __m256 na = _mm256_loadu_ps(s + i + 16), nb = _mm256_loadu_ps(s + i + 24);
            put(a, b);
            a = na;
            b = nb;
        }
        put(a, b);
        i += 16;
    }
    if constexpr (Stream) _mm_sfence();  // ordered before the stores that follow, as plain stores are
}

// Every sample through the vector code: masked loads and stores for the
// samples before the first 32-byte aligned destination address and after
// the last whole vector (no scalar twin, so every sample gets the same
// result wherever it lies). K::one(x, lanes) does one vector whose `lanes`
// are in use, K::two(a, b, ya, yb) two whole ones.
template <class K>
void float_rows(const float* s, float* d, int n, K& k, bool stream, RowsAfter next = {}) {
    const __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    auto partial = [&](int at, int count) {
        const __m256i lanes = _mm256_cmpgt_epi32(_mm256_set1_epi32(count), index);
        _mm256_maskstore_ps(d + at, lanes, k.one(_mm256_maskload_ps(s + at, lanes), _mm256_castsi256_ps(lanes)));
    };
    const auto address = reinterpret_cast<std::uintptr_t>(d);
    const int head = address % 4 ? 0 : std::min(n, int((32 - address % 32) % 32 / 4));
    if (head > 0) partial(0, head);
    int i = head;
    if (stream && (address + 4 * std::uintptr_t(head)) % 32 == 0) {
        whole_vectors<true>(s, d, i, n, k, next);
    }
    whole_vectors<false>(s, d, i, n, k, next);
    if (i + 8 <= n) {
        _mm256_storeu_ps(d + i, k.one(_mm256_loadu_ps(s + i), _mm256_castsi256_ps(_mm256_set1_epi32(-1))));
        i += 8;
    }
    if (i < n) partial(i, n - i);
}

// ---- integers --------------------------------------------------------------

template <class T>
constexpr double kLow = std::numeric_limits<T>::min();
template <class T>
constexpr double kHigh = std::numeric_limits<T>::max();

// Beyond +-40 the scale changes no result: sqrt and ln of a 16-bit sample
// are below 2^9, so 2^-40 leaves less than a half and 2^40 saturates all but 0.
inline int clamp_sf(int sf) { return std::clamp(sf, -40, 40); }

// y to the nearest integer, ties to even, whatever the rounding mode; then
// saturated to T.
template <class T>
T round_saturate(double y) {
    if (y <= kLow<T>) return std::numeric_limits<T>::min();
    if (y >= kHigh<T>) return std::numeric_limits<T>::max();
    double r = std::floor(y);
    const double rest = y - r;
    if (rest > 0.5 || (rest == 0.5 && std::fmod(r, 2.0) != 0.0)) r += 1.0;
    return T(std::min(r, kHigh<T>));
}

// The rules, one sample at a time, in double precision: the integers stay
// exact and the results lie far enough from every rounding boundary.
template <class T>
T sqrt_rule(T x, int sf) {
    return x <= 0 ? T(0) : round_saturate<T>(std::ldexp(std::sqrt(double(x)), -clamp_sf(sf)));
}
template <class T>
bool negative(T x) {
    if constexpr (std::is_signed_v<T>) return x < 0;
    else return false;
}
template <class T>
T ln_rule(T x, int sf) {
    if (x == 0) return std::numeric_limits<T>::min();
    return negative(x) ? T(0) : round_saturate<T>(std::ldexp(std::log(double(x)), -clamp_sf(sf)));
}

template <class T>
inline __m256i load8(const T* p) {
    if constexpr (std::is_same_v<T, Rok8u>) return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
    else if constexpr (std::is_same_v<T, Rok16u>) return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    else return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// Rounds y (already scaled) to T's range in 32-bit lanes, and marks the
// lanes whose y lies within 2^-19 |y| of a tie: there the single-precision
// estimate cannot decide, and the double-precision rule does.
template <class T>
inline __m256i round_lanes(__m256 y, __m256& near) {
    const __m256 yc = _mm256_min_ps(_mm256_max_ps(y, splat(float(kLow<T>))), splat(float(kHigh<T>)));
    const __m256 r = _mm256_round_ps(yc, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    const __m256 abs = splat(-0.0f);
    const __m256 off = _mm256_andnot_ps(abs, _mm256_sub_ps(_mm256_andnot_ps(abs, _mm256_sub_ps(yc, r)), splat(0.5f)));
    near = _mm256_cmp_ps(off, _mm256_mul_ps(_mm256_andnot_ps(abs, yc), splat(1.0f / 524288.0f)), _CMP_LE_OQ);
    return _mm256_cvtps_epi32(r);
}

// 32-bit lanes of samples in range back to one vector of T (32 / sizeof(T)
// samples from 32 / sizeof(T) / 8 groups).
template <class T>
inline __m256i pack(const __m256i* g) {
    if constexpr (std::is_same_v<T, Rok8u>) {
        const __m256i w = _mm256_packus_epi16(_mm256_packs_epi32(g[0], g[1]), _mm256_packs_epi32(g[2], g[3]));
        return _mm256_permutevar8x32_epi32(w, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    } else if constexpr (std::is_same_v<T, Rok16u>) {
        return _mm256_permute4x64_epi64(_mm256_packus_epi32(g[0], g[1]), 0xD8);
    } else {
        return _mm256_permute4x64_epi64(_mm256_packs_epi32(g[0], g[1]), 0xD8);
    }
}

// The row: head and tail by the rule, the aligned middle in vectors of
// single-precision estimates (y(x) from 32-bit lanes), with the lanes near
// a tie done again by the rule. Returns the lanes that were 0 and below 0.
template <class T, class Y, class Rule>
void integer_rows(const T* s, T* d, int n, Y y, Rule rule, bool& zero, bool& below_zero) {
    constexpr int lanes = 32 / sizeof(T), groups = lanes / 8;
    auto scalar = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            zero |= s[i] == 0;
            below_zero |= negative(s[i]);
            d[i] = rule(s[i]);
        }
    };
    int i = 0;
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (n >= 2 * lanes && mis % sizeof(T) == 0) {
        const int head = int(((32 - mis) & 31) / sizeof(T));
        scalar(0, head);
        __m256i zeros = _mm256_setzero_si256(), negatives = _mm256_setzero_si256();
        for (i = head; i + lanes <= n; i += lanes) {
            __m256i x[groups], r[groups];
            __m256 near[groups];
            int any_near = 0;
            for (int k = 0; k < groups; ++k) {
                x[k] = load8(s + i + 8 * k);
                zeros = _mm256_or_si256(zeros, _mm256_cmpeq_epi32(x[k], _mm256_setzero_si256()));
                negatives = _mm256_or_si256(negatives, _mm256_cmpgt_epi32(_mm256_setzero_si256(), x[k]));
                r[k] = round_lanes<T>(y(x[k]), near[k]);
                any_near |= _mm256_movemask_ps(near[k]) << (8 * k);
            }
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), pack<T>(r));
            if (any_near) {
                alignas(32) std::int32_t source[lanes];
                for (int k = 0; k < groups; ++k) _mm256_store_si256(reinterpret_cast<__m256i*>(source + 8 * k), x[k]);
                for (int j = 0; j < lanes; ++j)
                    if (any_near >> j & 1) d[i + j] = rule(T(source[j]));
            }
        }
        zero |= !_mm256_testz_si256(zeros, zeros);
        below_zero |= !_mm256_testz_si256(negatives, negatives);
    }
    scalar(i, n);
}

inline __m256 scale_by(__m256 v, int sf) { return _mm256_mul_ps(v, splat(std::ldexp(1.0f, -clamp_sf(sf)))); }

// ---- integer exponential ----------------------------------------------------

// e^x 2^-sf to the nearest integer, saturated. e^0 2^-sf is a power of two
// and goes through the scale-factor rule (so 2^-1 rounds to 0, half to even);
// any other e^x is irrational and never a tie.
template <class T>
T exp_rule(long long x, int sf) {
    if (x == 0) return scale_saturate<T>(1, sf);
    const long double ln2 = 0.693147180559945309417232121458176568L;
    const long double a = static_cast<long double>(x) - static_cast<long double>(sf) * ln2;  // ln of the result
    if (a > std::log(static_cast<long double>(kHigh<T>) + 1.0L)) return std::numeric_limits<T>::max();
    if (a < -1.0L) return T(0);  // below e^-1 < 0.5
    return T(std::min(std::floor(std::exp(a) + 0.5L), static_cast<long double>(kHigh<T>)));
}

template <class T>
inline T from_window(T x, const ExpWindow<T>& w) {
    const long long j = std::clamp<long long>(static_cast<long long>(x) - w.lo, 0, 15);
    return w.values[j];
}

}  // namespace

// ---- single precision -------------------------------------------------------

void sqrt_row(const Rok32f* s, Rok32f* d, int n, bool stream) {
    SqrtKernel k;
    float_rows(s, d, n, k, stream);
}

void exp_row(const Rok32f* s, Rok32f* d, int n, bool stream, RowsAfter next) {
    ExpKernel k;
    float_rows(s, d, n, k, stream, next);
}

RokStatus ln_row(const Rok32f* s, Rok32f* d, int n, bool stream, RowsAfter next) {
    LnKernel k;
    float_rows(s, d, n, k, stream, next);
    if (_mm256_movemask_ps(k.negatives)) return rokStatusLnNegArg;
    return _mm256_movemask_ps(k.zeros) ? rokStatusLnZeroArg : rokStatusOk;
}

// ---- integers ---------------------------------------------------------------

template <class T>
void sqrt_row(const T* s, T* d, int n, int sf) {
    bool zero = false, below_zero = false;
    integer_rows(
        s, d, n,
        [sf](__m256i x) {
            // Negative samples give NaN, which the clamp turns into the
            // type's minimum; 0 is what they must give.
            const __m256 root = _mm256_sqrt_ps(_mm256_cvtepi32_ps(_mm256_max_epi32(x, _mm256_setzero_si256())));
            return scale_by(root, sf);
        },
        [sf](T x) { return sqrt_rule(x, sf); }, zero, below_zero);
}

template <class T>
RokStatus ln_row(const T* s, T* d, int n, int sf) {
    bool zero = false, below_zero = false;
    integer_rows(
        s, d, n,
        [sf](__m256i x) {
            const __m256 y = scale_by(ln8(_mm256_cvtepi32_ps(x)), sf);  // 0 gives -inf, clamped to the minimum
            return _mm256_blendv_ps(y, _mm256_setzero_ps(), _mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_setzero_si256(), x)));
        },
        [sf](T x) { return ln_rule(x, sf); }, zero, below_zero);
    if (below_zero) return rokStatusLnNegArg;
    return zero ? rokStatusLnZeroArg : rokStatusOk;
}

template <class T>
ExpWindow<T> exp_window(int sf) {
    // Results leave 0 where e^x 2^-sf reaches a half, x = ln(1/2) + sf ln 2,
    // and saturate before ln(2 max + 1) beyond it (at most 11.8 further on):
    // 16 values from just below that point cover every result that varies.
    const long double ln2 = 0.693147180559945309417232121458176568L;
    const long double rise = -ln2 + static_cast<long double>(sf) * ln2;
    const long long lo = std::clamp<long long>(static_cast<long long>(std::floor(rise)), std::numeric_limits<T>::min(),
                                               std::numeric_limits<T>::max());
    ExpWindow<T> w{int(lo), {}};
    for (int j = 0; j < 16; ++j) w.values[j] = exp_rule<T>(lo + j, sf);
    return w;
}

template <class T>
void exp_row(const T* s, T* d, int n, const ExpWindow<T>& w) {
    constexpr int lanes = 32 / sizeof(T);
    int i = 0;
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (n >= 2 * lanes && mis % sizeof(T) == 0) {
        const int head = int(((32 - mis) & 31) / sizeof(T));
        for (; i < head; ++i) d[i] = from_window(s[i], w);
        // The window index, clamped to 0..15, picks the result by a byte
        // shuffle (16-bit results: one for the low bytes, one for the high).
        alignas(16) std::uint8_t low[16], high[16];
        for (int j = 0; j < 16; ++j) {
            const auto v = static_cast<std::make_unsigned_t<T>>(w.values[j]);
            low[j] = std::uint8_t(v & 0xFF);
            high[j] = std::uint8_t(v >> 8 & 0xFF);
        }
        const __m256i tl = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(low)));
        const __m256i th = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(high)));
        for (; i + lanes <= n; i += lanes) {
            const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
            __m256i r;
            if constexpr (std::is_same_v<T, Rok8u>) {
                const __m256i idx = _mm256_min_epu8(_mm256_subs_epu8(x, _mm256_set1_epi8(char(w.lo))), _mm256_set1_epi8(15));
                r = _mm256_shuffle_epi8(tl, idx);
            } else {
                __m256i idx;
                if constexpr (std::is_same_v<T, Rok16u>)
                    idx = _mm256_min_epu16(_mm256_subs_epu16(x, _mm256_set1_epi16(short(w.lo))), _mm256_set1_epi16(15));
                else
                    idx = _mm256_max_epi16(_mm256_min_epi16(_mm256_subs_epi16(x, _mm256_set1_epi16(short(w.lo))), _mm256_set1_epi16(15)),
                                           _mm256_setzero_si256());
                const __m256i lo_sel = _mm256_or_si256(idx, _mm256_set1_epi16(short(0x8000)));
                const __m256i hi_sel = _mm256_or_si256(_mm256_slli_epi16(idx, 8), _mm256_set1_epi16(0x0080));
                r = _mm256_or_si256(_mm256_shuffle_epi8(tl, lo_sel), _mm256_shuffle_epi8(th, hi_sel));
            }
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), r);
        }
    }
    for (; i < n; ++i) d[i] = from_window(s[i], w);
}

#define ROK_MATH(T)                                                    \
    template void sqrt_row<T>(const T*, T*, int, int);                 \
    template RokStatus ln_row<T>(const T*, T*, int, int);              \
    template ExpWindow<T> exp_window<T>(int);                          \
    template void exp_row<T>(const T*, T*, int, const ExpWindow<T>&);
ROK_MATH(Rok8u)
ROK_MATH(Rok16u)
ROK_MATH(Rok16s)
#undef ROK_MATH

}  // namespace rok::kernels
