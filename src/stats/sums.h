// Sums, means, norms, norms of a difference, relative norms and dot products.
// None of them is threaded: each is one pass on the calling thread.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "frame/image.h"
#include "stats/totals.h"

namespace rok::stats {

template <class T, Layout L>
RokStatus sum(const T* src, int step, RokiSize roi, Rok64f* out, int hint = rokHintDefault) {
    if (any_null(src, out)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    totals<T, L>(FloatTerm::Value, src, step, nullptr, 0, roi, hint, out);
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus mean(const T* src, int step, RokiSize roi, Rok64f* out, int hint = rokHintDefault) {
    if (!out) return rokStatusNullPtr;
    const RokStatus st = sum<T, L>(src, step, roi, out, hint);
    if (st != rokStatusOk) return st;
    // The pixel count is a 32-bit product, as callers of this family expect.
    const std::int32_t count = std::int32_t(std::uint32_t(roi.width) * std::uint32_t(roi.height));
    for (int c = 0; c < processed_channels(L); ++c) out[c] /= count;
    return rokStatusOk;
}

enum class Norm { Inf, L1, L2 };

// The type that holds |x| of every sample: unsigned for integer data.
template <class T>
struct Magnitude : std::make_unsigned<T> {};
template <>
struct Magnitude<Rok32f> {
    using type = Rok32f;
};

// The norm of kind K of src (b null) or of a - b, per channel.
template <class T, Layout L, Norm K>
void norm_values(const T* a, int as, const T* b, int bs, RokiSize roi, int hint, Rok64f* out) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    if constexpr (K == Norm::Inf) {
        using U = typename Magnitude<T>::type;
        U best[4] = {};
        const std::size_t m = std::size_t(roi.width) * nc;
        if (b) {
            if constexpr (!std::is_same_v<T, Rok32s>) kernels::diff_max_abs(a, as, b, bs, m, roi.height, nc, best);
        } else {
            kernels::max_abs(a, as, m, roi.height, nc, best);
        }
        for (int c = 0; c < outs; ++c) out[c] = double(best[c]);
    } else {
        totals<T, L>(K == Norm::L1 ? FloatTerm::Abs : FloatTerm::Square, a, as, b, bs, roi, hint, out);
        if constexpr (K == Norm::L2)
            for (int c = 0; c < outs; ++c) out[c] = std::sqrt(out[c]);
    }
}

template <class T, Layout L, Norm K>
RokStatus norm(const T* src, int step, RokiSize roi, Rok64f* out, int hint = rokHintDefault) {
    if (any_null(src, out)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (step < 1) return rokStatusBadStep;
    norm_values<T, L, K>(src, step, static_cast<const T*>(nullptr), 0, roi, hint, out);
    return rokStatusOk;
}

template <class T, Layout L, Norm K>
RokStatus norm_diff(const T* a, int as, const T* b, int bs, RokiSize roi, Rok64f* out, int hint = rokHintDefault) {
    if (any_null(a, b, out)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(as, bs)) return rokStatusBadStep;
    norm_values<T, L, K>(a, as, b, bs, roi, hint, out);
    return rokStatusOk;
}

// ||a - b|| / ||b||. A zero denominator (for float data: one below the
// smallest normal double) leaves the numerator as the channel's result and
// makes the call's status the division-by-zero warning.
template <class T, Layout L, Norm K>
RokStatus norm_rel(const T* a, int as, const T* b, int bs, RokiSize roi, Rok64f* out, int hint = rokHintDefault) {
    if (any_null(a, b, out)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(as, bs)) return rokStatusBadStep;
    Rok64f num[4], den[4];
    norm_values<T, L, K>(a, as, b, bs, roi, hint, num);
    norm_values<T, L, K>(b, bs, static_cast<const T*>(nullptr), 0, roi, hint, den);
    RokStatus st = rokStatusOk;
    for (int c = 0; c < processed_channels(L); ++c) {
        const bool zero = std::is_same_v<T, Rok32f> ? den[c] < DBL_MIN : den[c] == 0;
        if (zero) st = rokStatusDivByZero;
        out[c] = zero ? num[c] : num[c] / den[c];
    }
    return st;
}

// Integer data up to 16 bits: exact 64-bit totals converted at the end;
// 32-bit data: double-precision partials with fused products (sixteen for
// one channel, eight per channel otherwise).
template <class T, Layout L>
RokStatus dot_prod(const T* a, int as, const T* b, int bs, RokiSize roi, Rok64f* out) {
    if (any_null(a, b, out)) return rokStatusNullPtr;
    if (bad_size(roi) || as == 0 || bs == 0) return rokStatusBadSize;
    constexpr int nc = channels(L), outs = processed_channels(L);
    const std::size_t m = std::size_t(roi.width) * nc;
    if constexpr (sizeof(T) <= 2) {
        std::int64_t acc[4] = {};
        kernels::dot(a, as, b, bs, m, roi.height, nc, acc);
        for (int c = 0; c < outs; ++c) out[c] = double(acc[c]);
    } else {
        double part[32] = {};
        kernels::double_dot(a, as, b, bs, m, roi.height, nc, part);
        combine_double(part, nc, outs, out, kernels::dot_partials(nc));
    }
    return rokStatusOk;
}

}  // namespace rok::stats
