#include "kernels/arith/arith.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "kernels/arith/arith_simd.h"
#include "kernels/rules.h"

namespace rok::kernels {

namespace {

using Wide = __int128;
using UWide = unsigned __int128;

template <class T> struct Complex : std::false_type { using Part = T; };
template <> struct Complex<Rok16sc> : std::true_type { using Part = Rok16s; };
template <> struct Complex<Rok32sc> : std::true_type { using Part = Rok32s; };
template <> struct Complex<Rok32fc> : std::true_type { using Part = Rok32f; };

template <class P>
P saturate_wide(Wide x) {
    constexpr Wide lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    return P(x < lo ? lo : (x > hi ? hi : x));
}

// The scale-factor rule on a 128-bit exact result (complex 32-bit products).
template <class P>
P scale_wide(Wide x, int sf) {
    if (sf > 0) {
        if (sf >= 100) return P(0);  // |x| < 2^64 for every exact result
        x = (x + (Wide(1) << (sf - 1)) - 1 + ((x >> sf) & 1)) >> sf;
    } else if (sf < 0 && x != 0) {
        if (sf <= -40) return x > 0 ? std::numeric_limits<P>::max() : std::numeric_limits<P>::min();
        x *= Wide(1) << -sf;
    }
    return saturate_wide<P>(x);
}

// num * 2^-sf / den rounded by `mode`, then saturated; den may be zero (the
// result is then the saturated sign of num). Magnitudes are carried in U: the
// quotient of every caller is below 2^33 in magnitude, so a positive scale
// beyond 40 leaves nothing, and the left shift is done in 16-bit steps that
// stop as soon as the result saturates.
template <class P, class U>
P divide_scaled(bool negative, U num, U den, int sf, int mode) {
    constexpr P hi = std::numeric_limits<P>::max(), lo = std::numeric_limits<P>::min();
    if (num == 0) return P(0);
    if (den == 0) return negative ? lo : hi;
    constexpr U kSaturated = U(1) << 33;
    U q, r, divisor;
    if (sf >= 0) {
        if (sf > 40) return P(0);
        divisor = den << sf;
        q = num / divisor;
        r = num % divisor;
    } else {
        divisor = den;
        q = num / den;
        r = num % den;
        for (int left = sf < -96 ? 96 : -sf; left > 0 && q < kSaturated;) {
            const int c = std::min(left, 16);
            q = (q << c) + (r << c) / den;
            r = (r << c) % den;
            left -= c;
        }
        if (q >= kSaturated) return negative ? lo : hi;
    }
    const U twice = 2 * r;
    if ((mode == rokRoundNearestEven && (twice > divisor || (twice == divisor && (q & 1)))) ||
        (mode == rokRoundHalfAway && twice >= divisor))
        ++q;
    const std::int64_t m = std::int64_t(q);
    return saturate<P>(negative ? -m : m);
}

// Float division by the reciprocal estimate refined once; a zero divisor
// gives infinity with the dividend's sign, or the quiet-NaN-like pattern
// 0x7FBFFFFF for a zero or NaN dividend.
inline float zero_divisor_result(float a) {
    if (a == 0.0f || std::isnan(a)) return std::bit_cast<float>(0x7FBFFFFFu);
    return std::copysign(std::numeric_limits<float>::infinity(), a);
}

inline float divide_estimate(float a, float b) {
    if (b == 0.0f) return zero_divisor_result(a);
    const float r0 = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(b)));
    const float q0 = a * r0;
    const float e = 1.0f - b * r0;
    return q0 + (q0 * e + q0) * e;
}

// Samples to process before the destination is 32-byte aligned.
template <class T>
int head_to_align(const T* d, int n) {
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (mis % sizeof(T)) return n;  // never aligns: all scalar
    return std::min<int>(n, int(((32 - mis) & 31) / sizeof(T)));
}

// ---- integer, real ------------------------------------------------------

template <ArithOp Op, class P>
using Exact = std::conditional_t<sizeof(P) == 4 || (Op == ArithOp::Mul && std::is_same_v<P, Rok16u>),
                                 std::int64_t, std::int32_t>;

template <ArithOp Op, class W, class P>
inline W exact(P a, P b) {
    if constexpr (Op == ArithOp::Add) return W(a) + W(b);
    else if constexpr (Op == ArithOp::Sub) return W(b) - W(a);
    else return W(a) * W(b);
}

// Saturation in the exact type itself, so the scalar loops keep lanes of
// that width instead of widening to 64 bits.
template <class P, class W>
inline P clamp_to(W x) {
    constexpr W lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    return P(x < lo ? lo : (x > hi ? hi : x));
}

// The scalar rule over samples [from, to).
template <ArithOp Op, class P>
void integer_scalar(const P* a, const P* b, P* d, int from, int to, int sf) {
    using W = Exact<Op, P>;
    constexpr P hi = std::numeric_limits<P>::max(), lo = std::numeric_limits<P>::min();
    if (sf == 0) {
        for (int i = from; i < to; ++i) d[i] = clamp_to<P>(exact<Op, W>(a[i], b[i]));
    } else if (sf > 0) {
        if (sf >= int(8 * sizeof(W)) - 1) {  // |exact| <= 2^(bits-2): every result rounds to 0
            std::fill(d + from, d + to, P(0));
            return;
        }
        const W bias = (W(1) << (sf - 1)) - 1;
        for (int i = from; i < to; ++i) {
            const W x = exact<Op, W>(a[i], b[i]);
            d[i] = clamp_to<P>(W((x + bias + ((x >> sf) & 1)) >> sf));
        }
    } else if (sf <= std::is_signed_v<P> - int(8 * sizeof(P))) {
        // Every non-zero result saturates: only the sign matters.
        for (int i = from; i < to; ++i) {
            const W x = exact<Op, W>(a[i], b[i]);
            d[i] = x > 0 ? hi : (x < 0 ? lo : P(0));
        }
    } else {
        const std::int64_t factor = std::int64_t(1) << -sf;
        for (int i = from; i < to; ++i) d[i] = saturate<P>(std::int64_t(exact<Op, W>(a[i], b[i])) * factor);
    }
}

// The vector body over the aligned middle of the row, the scalar rule over
// the rest (and over whole rows it does not cover).
template <ArithOp Op, class P>
void integer_row(const P* a, const P* b, P* d, int n, int sf) {
    Span v;
    if constexpr (sizeof(P) <= 2) v = scaled_span<Op, P>(a, b, d, n, sf);
    else if constexpr (Op == ArithOp::Add || Op == ArithOp::Sub) v = scaled32_span<Op>(a, b, d, n, sf);
    integer_scalar<Op>(a, b, d, 0, v.begin, sf);
    integer_scalar<Op>(a, b, d, v.end, n, sf);
}

// Real integer division through double precision, which is exact here: the
// scaled dividend b * 2^-sf and the divisor are exact doubles, their quotient
// is correctly rounded, and an unsaturated quotient (below 2^17) lies at
// least 2^-17 from any other rounding boundary while the double's error is
// below 2^-35, so truncation, half-even and half-away all land where the
// exact rational would. Beyond -32 or 40 the scale changes no result.
template <class P, class Round>
bool integer_div_loop(const P* a, const P* b, P* d, int from, int to, int sf, Round round) {
    constexpr double hi = std::numeric_limits<P>::max(), lo = std::numeric_limits<P>::min();
    const double scale = std::ldexp(1.0, -std::clamp(sf, -32, 40));
    int zeros = 0;
    for (int i = from; i < to; ++i) {
        const double dividend = double(b[i]) * scale, divisor = double(a[i]);
        zeros += a[i] == 0;
        // 0 / 0 is NaN: a zero dividend gives 0 whatever the divisor.
        const double q = std::min(std::max(round(dividend / divisor), lo), hi);
        d[i] = P(b[i] == 0 ? 0.0 : q);
    }
    return zeros != 0;
}

template <class P>
bool integer_div_scalar(const P* a, const P* b, P* d, int from, int to, int sf, int mode) {
    if (mode == rokRoundTruncate) return integer_div_loop(a, b, d, from, to, sf, [](double x) { return std::trunc(x); });
    if (mode == rokRoundHalfAway) return integer_div_loop(a, b, d, from, to, sf, [](double x) { return std::round(x); });
    return integer_div_loop(a, b, d, from, to, sf, [](double x) { return std::nearbyint(x); });
}

template <class P>
RokStatus integer_div_row(const P* a, const P* b, P* d, int n, int sf, int mode) {
    bool zero = false;
    Span v;
    if constexpr (sizeof(P) <= 2) v = divide_span(a, b, d, n, sf, mode, &zero);
    zero |= integer_div_scalar(a, b, d, 0, v.begin, sf, mode);
    zero |= integer_div_scalar(a, b, d, v.end, n, sf, mode);
    return zero ? rokStatusDivByZero : rokStatusOk;
}

// ---- integer, complex ---------------------------------------------------

// The scalar rule over samples [from, to); true when a divisor was zero.
template <ArithOp Op, class T>
bool complex_int_scalar(const T* a, const T* b, T* d, int from, int to, int sf, int mode) {
    using P = typename Complex<T>::Part;
    bool zero = false;
    for (int i = from; i < to; ++i) {
        const Wide ar = a[i].re, ai = a[i].im, br = b[i].re, bi = b[i].im;
        T r;
        if constexpr (Op == ArithOp::Mul) {
            r.re = scale_wide<P>(ar * br - ai * bi, sf);
            r.im = scale_wide<P>(ar * bi + ai * br, sf);
        } else {  // b / a = b * conj(a) / |a|^2
            const Wide nr = br * ar + bi * ai, ni = bi * ar - br * ai, den = ar * ar + ai * ai;
            if (den == 0) {
                zero = true;
                r.re = divide_scaled<P, UWide>(br < 0, UWide(br < 0 ? -br : br), 0, sf, mode);
                r.im = divide_scaled<P, UWide>(bi < 0, UWide(bi < 0 ? -bi : bi), 0, sf, mode);
            } else {
                r.re = divide_scaled<P, UWide>(nr < 0, UWide(nr < 0 ? -nr : nr), UWide(den), sf, mode);
                r.im = divide_scaled<P, UWide>(ni < 0, UWide(ni < 0 ? -ni : ni), UWide(den), sf, mode);
            }
        }
        d[i] = r;
    }
    return zero;
}

// Vector bodies cover every scale factor each type can meet, except 32sc
// Div, whose exact quotient needs up to 128 bits: it stays scalar.
template <ArithOp Op, class T>
RokStatus complex_int_row(const T* a, const T* b, T* d, int n, int sf, int mode) {
    bool zero = false;
    Span v;
    if constexpr (std::is_same_v<T, Rok16sc>) {
        if constexpr (Op == ArithOp::Mul) v = complex_mul16_span(a, b, d, n, sf);
        else v = complex_div16_span(a, b, d, n, sf, mode, &zero);
    } else if constexpr (Op == ArithOp::Mul) {
        v = complex_mul32_span(a, b, d, n, sf);
    }
    zero |= complex_int_scalar<Op>(a, b, d, 0, v.begin, sf, mode);
    zero |= complex_int_scalar<Op>(a, b, d, v.end, n, sf, mode);
    return zero ? rokStatusDivByZero : rokStatusOk;
}

// ---- float --------------------------------------------------------------

template <ArithOp Op>
inline float float_op(float a, float b) {
    if constexpr (Op == ArithOp::Add) return a + b;
    else if constexpr (Op == ArithOp::Sub) return b - a;
    else if constexpr (Op == ArithOp::Mul) return a * b;
    else return divide_estimate(b, a);
}

template <ArithOp Op>
RokStatus float_row(const float* a, const float* b, float* d, int n) {
    bool zero = false;
    int i = 0;
    if (n >= 16) {
        const int head = head_to_align(d, n);
        for (; i < head; ++i) {
            if constexpr (Op == ArithOp::Div) zero |= a[i] == 0.0f;
            d[i] = float_op<Op>(a[i], b[i]);
        }
        const __m256 one = _mm256_set1_ps(1.0f), zeros = _mm256_setzero_ps();
        for (; i + 8 <= n; i += 8) {
            const __m256 x = _mm256_loadu_ps(a + i), y = _mm256_loadu_ps(b + i);
            __m256 r;
            if constexpr (Op == ArithOp::Add) r = _mm256_add_ps(x, y);
            else if constexpr (Op == ArithOp::Sub) r = _mm256_sub_ps(y, x);
            else if constexpr (Op == ArithOp::Mul) r = _mm256_mul_ps(x, y);
            else {
                const __m256 r0 = _mm256_rcp_ps(x);
                const __m256 q0 = _mm256_mul_ps(y, r0);
                const __m256 e = _mm256_sub_ps(one, _mm256_mul_ps(x, r0));
                r = _mm256_add_ps(q0, _mm256_mul_ps(_mm256_add_ps(_mm256_mul_ps(q0, e), q0), e));
                const __m256 z = _mm256_cmp_ps(x, zeros, _CMP_EQ_OQ);
                if (!_mm256_testz_ps(z, z)) {
                    // Patch from register copies: in place, d is the dividend.
                    zero = true;
                    alignas(32) float divisor[8], dividend[8], quotient[8];
                    _mm256_store_ps(divisor, x);
                    _mm256_store_ps(dividend, y);
                    _mm256_store_ps(quotient, r);
                    for (int k = 0; k < 8; ++k)
                        if (divisor[k] == 0.0f) quotient[k] = zero_divisor_result(dividend[k]);
                    r = _mm256_load_ps(quotient);
                }
            }
            _mm256_store_ps(d + i, r);
        }
    }
    for (; i < n; ++i) {
        if constexpr (Op == ArithOp::Div) zero |= a[i] == 0.0f;
        d[i] = float_op<Op>(a[i], b[i]);
    }
    return zero ? rokStatusDivByZero : rokStatusOk;
}

// A product kept as its own rounded value. GCC's vectoriser recognises the
// complex product loop and emits a fused multiply-add-subtract for it, even
// with contraction off; an opaque value breaks the pattern.
inline float separate(float x) {
    asm("" : "+x"(x));
    return x;
}

// The scalar rule over samples [from, to); true when a divisor was zero.
template <ArithOp Op>
bool complex_float_scalar(const Rok32fc* a, const Rok32fc* b, Rok32fc* d, int from, int to) {
    bool zero = false;
    for (int i = from; i < to; ++i) {
        const float ar = a[i].re, ai = a[i].im, br = b[i].re, bi = b[i].im;
        Rok32fc r;
        if constexpr (Op == ArithOp::Mul) {
            r.re = ar * br - separate(ai * bi);
            r.im = ar * bi + separate(ai * br);
        } else {
            const float den = ar * ar + ai * ai;
            zero |= den == 0.0f;
            r.re = divide_estimate(br * ar + bi * ai, den);
            r.im = divide_estimate(bi * ar - br * ai, den);
        }
        d[i] = r;
    }
    return zero;
}

template <ArithOp Op>
RokStatus complex_float_row(const Rok32fc* a, const Rok32fc* b, Rok32fc* d, int n) {
    bool zero = false;
    const Span v = complex_float_span<Op>(a, b, d, n, &zero);
    zero |= complex_float_scalar<Op>(a, b, d, 0, v.begin);
    zero |= complex_float_scalar<Op>(a, b, d, v.end, n);
    return zero ? rokStatusDivByZero : rokStatusOk;
}

// ---- MulScale -----------------------------------------------------------

template <class P>
void mul_scale_row(const P* a, const P* b, P* d, int n) {
    constexpr int bits = 8 * sizeof(P);
    auto scalar = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            const std::uint64_t p = std::uint32_t(a[i]) * std::uint32_t(b[i]);
            d[i] = P((p + 1 + (p >> bits)) >> bits);
        }
    };
    const Span v = mul_scale_span(a, b, d, n);
    scalar(0, v.begin);
    scalar(v.end, n);
}

}  // namespace

template <ArithOp Op, class T>
RokStatus arith_row(const T* s1, const T* s2, T* d, int n, int sf, int mode) {
    using P = typename Complex<T>::Part;
    constexpr bool complex = Complex<T>::value;
    if constexpr (Op == ArithOp::MulScale) {
        mul_scale_row(s1, s2, d, n);
    } else if constexpr (std::is_floating_point_v<P>) {
        if constexpr (!complex) return float_row<Op>(s1, s2, d, n);
        else if constexpr (Op == ArithOp::Add || Op == ArithOp::Sub)
            return float_row<Op>(&s1->re, &s2->re, &d->re, 2 * n);
        else return complex_float_row<Op>(s1, s2, d, n);
    } else if constexpr (complex && (Op == ArithOp::Add || Op == ArithOp::Sub)) {
        integer_row<Op, P>(&s1->re, &s2->re, &d->re, 2 * n, sf);
    } else if constexpr (complex) {
        return complex_int_row<Op>(s1, s2, d, n, sf, mode);
    } else if constexpr (Op == ArithOp::Div) {
        return integer_div_row(s1, s2, d, n, sf, mode);
    } else {
        integer_row<Op, P>(s1, s2, d, n, sf);
    }
    return rokStatusOk;
}

void divide_by_constant(const Rok16s* s, Rok16s value, Rok16s* d, int n, int sf) {
    const Span v = divide16s_constant_span(s, value, d, n, sf);
    auto rest = [&](int from, int to) {
        if (from == to) return;  // the common case: an aligned row of whole vectors
        Rok16s divisor[256];
        std::fill(divisor, divisor + 256, value);
        for (int i = from; i < to; i += 256)
            integer_div_row(divisor, s + i, d + i, std::min(256, to - i), sf, rokRoundNearestEven);
    };
    rest(0, v.begin);
    rest(v.end, n);
}

#define ROK_ARITH_TYPES(OP)                                                              \
    template RokStatus arith_row<ArithOp::OP, Rok8u>(const Rok8u*, const Rok8u*, Rok8u*, int, int, int);     \
    template RokStatus arith_row<ArithOp::OP, Rok16u>(const Rok16u*, const Rok16u*, Rok16u*, int, int, int); \
    template RokStatus arith_row<ArithOp::OP, Rok16s>(const Rok16s*, const Rok16s*, Rok16s*, int, int, int); \
    template RokStatus arith_row<ArithOp::OP, Rok16sc>(const Rok16sc*, const Rok16sc*, Rok16sc*, int, int, int); \
    template RokStatus arith_row<ArithOp::OP, Rok32sc>(const Rok32sc*, const Rok32sc*, Rok32sc*, int, int, int); \
    template RokStatus arith_row<ArithOp::OP, Rok32f>(const Rok32f*, const Rok32f*, Rok32f*, int, int, int); \
    template RokStatus arith_row<ArithOp::OP, Rok32fc>(const Rok32fc*, const Rok32fc*, Rok32fc*, int, int, int);
ROK_ARITH_TYPES(Add)
ROK_ARITH_TYPES(Sub)
ROK_ARITH_TYPES(Mul)
ROK_ARITH_TYPES(Div)
#undef ROK_ARITH_TYPES
template RokStatus arith_row<ArithOp::MulScale, Rok8u>(const Rok8u*, const Rok8u*, Rok8u*, int, int, int);
template RokStatus arith_row<ArithOp::MulScale, Rok16u>(const Rok16u*, const Rok16u*, Rok16u*, int, int, int);

}  // namespace rok::kernels
