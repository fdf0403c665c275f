// Bitwise logic of two images or of an image and a constant, and Not. The
// row loop, constant patterns and AC4 blocks are the arithmetic ones; only
// the checks differ: pointers, then steps, then size.
#pragma once

#include "arith/arith.h"

namespace rok::arith {

// And, Or, Xor: null -8, any of the three steps below 1 -14, size -6. The
// last argument is the scale-factor slot of the arithmetic shapes; logic has
// no scaling and ignores it.
template <ArithOp Op, class T, Layout L, bool InPlace>
RokStatus logic(const T* s1, int s1Step, const T* s2, int s2Step, T* d, int dStep, RokiSize roi) {
    if (any_null(s1, s2, d)) return rokStatusNullPtr;
    if (any_step_below_one(s1Step, s2Step, dStep)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<Op, Source::Image, T, L, InPlace>(s1, s1Step, s2, s2Step, d, dStep, roi, 0, 0);
}

template <class T, Layout L, bool I = false>
RokStatus logic_and(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int) {
    return logic<ArithOp::And, T, L, I>(a, as, b, bs, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_or(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int) {
    return logic<ArithOp::Or, T, L, I>(a, as, b, bs, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_xor(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int) {
    return logic<ArithOp::Xor, T, L, I>(a, as, b, bs, d, ds, roi);
}

// AndC, OrC, XorC: null -8 (the constant array too), step -14, size -6.
template <ArithOp Op, class T, Layout L, bool InPlace>
RokStatus logic_constant(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<Op, Source::Constant, T, L, InPlace>(v, 0, s, ss, d, ds, roi, 0, 0);
}

template <class T, Layout L, bool I = false>
RokStatus logic_and_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int) {
    return logic_constant<ArithOp::And, T, L, I>(s, ss, v, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_or_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int) {
    return logic_constant<ArithOp::Or, T, L, I>(s, ss, v, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_xor_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int) {
    return logic_constant<ArithOp::Xor, T, L, I>(s, ss, v, d, ds, roi);
}

// Not is XorC with 255 in every channel: same checks, same kernel.
template <class T, Layout L, bool I = false>
RokStatus logic_not(const T* s, int ss, T* d, int ds, RokiSize roi, int) {
    static constexpr T kAllOnes[4] = {T(255), T(255), T(255), T(255)};
    return logic_constant<ArithOp::Xor, T, L, I>(s, ss, kAllOnes, d, ds, roi);
}

}  // namespace rok::arith
