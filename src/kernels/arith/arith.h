// Row kernels of the pixel arithmetic: one template per operation, explicitly
// instantiated for the sample types that use it.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

enum class ArithOp { Add, Sub, Mul, Div, MulScale, And, Or, Xor };

// Bitwise operations: no scaling, no saturation, any sample width.
constexpr bool is_logic(ArithOp op) { return op == ArithOp::And || op == ArithOp::Or || op == ArithOp::Xor; }

// Computes n samples (complex types: n complex samples):
//   Add d = s1 + s2, Sub d = s2 - s1, Mul d = s1 * s2, Div d = s2 / s1,
//   MulScale d = s1 * s2 / max (integer approximation, see the kernel),
//   And, Or, Xor d = s1 op s2 bit by bit (8u, 16u and 32s).
// Integer results are scaled by 2^-sf and saturated; Div rounds with `mode`
// (rokRoundTruncate, rokRoundNearestEven, rokRoundHalfAway), the other
// operations round half to even. Float types ignore sf and mode.
// Returns rokStatusDivByZero when a divisor was zero, else rokStatusOk.
// s2 may equal d (in place).
template <ArithOp Op, class T>
RokStatus arith_row(const T* s1, const T* s2, T* d, int n, int sf, int mode);

// DivC of 16s samples by one constant: d = s / value, value != 0, scaled and
// rounded as arith_row's Div. s may equal d.
void divide_by_constant(const Rok16s* s, Rok16s value, Rok16s* d, int n, int sf);

}  // namespace rok::kernels
