// Sqrt, Ln and Exp. Integers follow the scale-factor rule on the exact
// result; single precision has the kernels' stated accuracy. Ln reports a
// zero argument (7) and a negative one (8, which wins) after the whole ROI.
#pragma once

#include <type_traits>

#include "arith/arith.h"
#include "arith/unary_rows.h"
#include "kernels/arith/math.h"

namespace rok::arith {

namespace detail {

inline RokStatus check_unary(const void* s, int ss, const void* d, int ds, RokiSize roi) {
    if (!s || !d) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    return rokStatusOk;
}

// The 32f square root of a row splits over two threads from this length.
constexpr int kSqrtThreadedLength = 4096;

// The ROI rows after the row at `a` that a streamed row may prefetch from;
// none for the whole image taken as one row.
template <class T, Layout L>
kernels::RowsAfter rows_after(const T* s, int ss, int ds, RokiSize roi, const T* a, int n) {
    if (L == Layout::AC4 || n != roi.width * channels(L)) return {};
    const long long y = (reinterpret_cast<const char*>(a) - reinterpret_cast<const char*>(s)) / ss;
    return {int(roi.height - 1 - y), ss, ds};
}

}  // namespace detail

// Sqrt: null -8, size -6, step -14. Integers: where every root rounds to 0
// (sf of 5 and more for 8u, 9 and more for 16 bits) the ROI is filled.
template <class T, Layout L, bool I = false>
RokStatus sqrt(const T* s, int ss, T* d, int ds, RokiSize roi, int sf) {
    if (RokStatus st = detail::check_unary(s, ss, d, ds, roi)) return st;
    if constexpr (std::is_floating_point_v<T>) {
        const bool stream = detail::streams<T, L>(roi);
        return unary_rows<T, L>(s, ss, d, ds, roi, [stream](const T* a, T* b, int n) {
            return threaded_1d(n, detail::kSqrtThreadedLength, [&](int off, int count) {
                kernels::sqrt_row(a + off, b + off, count, stream);
                return rokStatusOk;
            });
        });
    } else {
        if (sf >= (std::is_same_v<T, Rok8u> ? 5 : 9)) return fill_zero<T, L>(d, ds, roi);
        return unary_rows<T, L>(s, ss, d, ds, roi, [sf](const T* a, T* b, int n) {
            kernels::sqrt_row(a, b, n, sf);
            return rokStatusOk;
        });
    }
}

// Ln: null -8, size -6, step -14; warnings 7 and 8 once the ROI is done.
template <class T, Layout L, bool I = false>
RokStatus ln(const T* s, int ss, T* d, int ds, RokiSize roi, int sf) {
    if (RokStatus st = detail::check_unary(s, ss, d, ds, roi)) return st;
    const bool stream = detail::streams<T, L>(roi);
    return unary_rows<T, L>(s, ss, d, ds, roi, [=](const T* a, T* b, int n) {
        if constexpr (std::is_floating_point_v<T>) {
            return kernels::ln_row(a, b, n, stream, detail::rows_after<T, L>(s, ss, ds, roi, a, n));
        } else {
            (void)stream;
            return kernels::ln_row(a, b, n, sf);
        }
    });
}

// Exp: null -8, size -6, step -14. Integers look their results up in the
// window of samples where they vary, computed once for the call.
template <class T, Layout L, bool I = false>
RokStatus exp(const T* s, int ss, T* d, int ds, RokiSize roi, int sf) {
    if (RokStatus st = detail::check_unary(s, ss, d, ds, roi)) return st;
    if constexpr (std::is_floating_point_v<T>) {
        const bool stream = detail::streams<T, L>(roi);
        return unary_rows<T, L>(s, ss, d, ds, roi, [=](const T* a, T* b, int n) {
            kernels::exp_row(a, b, n, stream, detail::rows_after<T, L>(s, ss, ds, roi, a, n));
            return rokStatusOk;
        });
    } else {
        const kernels::ExpWindow<T> window = kernels::exp_window<T>(sf);
        return unary_rows<T, L>(s, ss, d, ds, roi, [&window](const T* a, T* b, int n) {
            kernels::exp_row(a, b, n, window);
            return rokStatusOk;
        });
    }
}

}  // namespace rok::arith
