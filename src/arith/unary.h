// Abs, Sqr and Complement. Sqr is Mul of the image by itself: its kernel,
// scale-factor rule and cut-off, on the calling thread.
#pragma once

#include "arith/arith.h"
#include "arith/unary_rows.h"
#include "kernels/arith/unary.h"

namespace rok::arith {

// Abs: null -8, size -6, step -14. The last argument is the shapes'
// scale-factor slot, unused.
template <class T, Layout L, bool I = false>
RokStatus abs(const T* s, int ss, T* d, int ds, RokiSize roi, int) {
    if (any_null(s, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    return unary_rows<T, L>(s, ss, d, ds, roi, [](const T* a, T* b, int n) {
        kernels::abs_row(a, b, n);
        return rokStatusOk;
    });
}

// Sqr: null -8, size -6, step -14; then x * x by Mul's rule (32f: the
// rounded product).
template <class T, Layout L, bool I = false>
RokStatus sqr(const T* s, int ss, T* d, int ds, RokiSize roi, int sf) {
    if (any_null(s, d)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    return run<ArithOp::Mul, Source::Image, T, L, I, false>(s, ss, s, ss, d, ds, roi, sf, rokRoundNearestEven);
}

// Complement (in place): null -8, step -14, size -6.
template <class T, Layout L, bool I = false>
RokStatus complement(const T* s, int ss, T* d, int ds, RokiSize roi, int) {
    if (any_null(s, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    return unary_rows<T, L>(s, ss, d, ds, roi, [](const T* a, T* b, int n) {
        kernels::complement_row(a, b, n);
        return rokStatusOk;
    });
}

}  // namespace rok::arith
