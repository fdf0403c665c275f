// AVX2 bodies of the integer arithmetic row kernels. Each computes the
// samples of a row from the first 32-byte aligned destination address to the
// last whole vector and reports that span; the caller runs its scalar rule
// over the samples before and after it, so the scalar loop stays the one
// statement of each rule. An empty span means "all scalar": rows shorter than
// 16 samples, a destination that can never be aligned (16-bit samples at an
// odd address), or a scale factor the vector body does not cover.
#pragma once

#include "kernels/arith/arith.h"
#include "frame/generated/roki_types.h"

namespace rok::kernels {

struct Span {
    int begin = 0, end = 0;
};

// Add, Sub, Mul of 8u, 16u and 16s (operand order as arith_row), scaled by
// 2^-sf with round half to even, or shifted left with saturation, exactly as
// the scalar rule. Covers every negative scale factor and the positive ones
// up to 14 (8u) or 30 (16-bit types), and the unsigned products up to 16
// (8u) or 32 (16u): every scale factor below each zero cut-off.
template <ArithOp Op, class P>
Span scaled_span(const P* a, const P* b, P* d, int n, int sf);

// MulScale of 8u and 16u: (p + 1 + (p >> bits)) >> bits with p = a * b.
template <class P>
Span mul_scale_span(const P* a, const P* b, P* d, int n);

// Division d = b / a of 8u, 16u and 16s, rounded by `mode`, every scale
// factor: for -30 <= sf <= 7 (8u: all) a float quotient estimate, then an
// exact correction from the remainder, so the results equal the exact
// rule's; 16-bit samples beyond that through the double-precision steps of
// the scalar rule. Sets *zero when a divisor in the span was 0.
template <class P>
Span divide_span(const P* a, const P* b, P* d, int n, int sf, int mode, bool* zero);

// 16s division by a constant, d = s / value (value != 0), round half to
// even, for 0 <= sf with |value| * 2^sf < 2^15: exact integer division by a
// multiplier and a shift, 16 samples per step.
Span divide16s_constant_span(const Rok16s* s, Rok16s value, Rok16s* d, int n, int sf);

// 32fc Mul and Div (d = b / a), four complex samples a vector, with the
// products, sums and reciprocal-estimate division of the scalar rule in the
// same order, so results are bit-identical. Sets *zero when a divisor in the
// span was 0.
template <ArithOp Op>
Span complex_float_span(const Rok32fc* a, const Rok32fc* b, Rok32fc* d, int n, bool* zero);

// 16sc Mul with the scale-factor rule, every sf up to 31 (all the scale
// factors before every result rounds to 0).
Span complex_mul16_span(const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n, int sf);

// 16sc Div d = b / a = b conj(a) / |a|^2, scaled by 2^-sf and rounded by
// `mode`, every scale factor, exactly (double precision, see the kernel).
// Sets *zero when a divisor in the span was 0.
Span complex_div16_span(const Rok16sc* a, const Rok16sc* b, Rok16sc* d, int n, int sf, int mode, bool* zero);

// Add and Sub of 32-bit samples (the parts of 32sc) with the scale-factor
// rule and saturation to int32, every sf up to 63.
template <ArithOp Op>
Span scaled32_span(const Rok32s* a, const Rok32s* b, Rok32s* d, int n, int sf);

// 32sc Mul with the scale-factor rule, every sf up to 63 (all before every
// result rounds to 0). 32sc Div needs up to 128 exact bits and has no
// vector body.
Span complex_mul32_span(const Rok32sc* a, const Rok32sc* b, Rok32sc* d, int n, int sf);

}  // namespace rok::kernels
