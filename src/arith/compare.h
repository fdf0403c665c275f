// Compare and CompareEqualEps, of two images or of an image and a constant,
// into one-channel 8-bit masks: 255 where the test holds in every compared
// channel (channels 0..2 of AC4), 0 elsewhere.
#pragma once

#include <algorithm>
#include <climits>

#include "arith/arith.h"
#include "kernels/arith/compare.h"

namespace rok::arith {

using kernels::CompareKind;

namespace detail {

// The rows after the checks. b is the second image, or for
// Source::Constant the per-channel constants.
template <Source S, class T, Layout L>
RokStatus compare_rows(const T* a, int as, const T* b, int bs, Rok8u* d, int ds, RokiSize roi, CompareKind kind,
                       float eps) {
    constexpr int ch = channels(L);
    constexpr int kBlockSamples = 1024;
    constexpr int block_pixels = kBlockSamples / ch;
    T pattern[S == Source::Constant ? kBlockSamples : 1];
    if constexpr (S == Source::Constant) {
        for (int i = 0; i < kBlockSamples; ++i) pattern[i] = b[i % ch < processed_channels(L) ? i % ch : 0];
    }
    if constexpr (ch == 1 && S == Source::Image) {
        // Rows laid end to end in all three images make one row.
        if (as == static_cast<long long>(roi.width) * static_cast<long long>(sizeof(T)) && bs == as &&
            ds == roi.width && static_cast<long long>(roi.width) * roi.height <= INT_MAX) {
            kernels::compare_samples(a, b, d, roi.width * roi.height, kind, eps);
            return rokStatusOk;
        }
        return serial_rows(roi.height, [&](int y) {
            kernels::compare_samples(row(a, as, y), row(b, bs, y), row(d, ds, y), roi.width, kind, eps);
        });
    } else {
        return serial_rows(roi.height, [&](int y) {
            const T* ar = row(a, as, y);
            Rok8u* dr = row(d, ds, y);
            alignas(32) Rok8u masks[ch == 1 ? 1 : kBlockSamples];
            for (int x = 0; x < roi.width; x += block_pixels) {
                const int n = std::min(block_pixels, roi.width - x);
                const T* br = S == Source::Image ? row(b, bs, y) + ch * x : pattern;
                if constexpr (ch == 1) {
                    kernels::compare_samples(ar + x, br, dr + x, n, kind, eps);
                } else {
                    kernels::compare_samples(ar + ch * x, br, masks, ch * n, kind, eps);
                    kernels::fold_masks(masks, dr + x, n, ch, processed_channels(L));
                }
            }
        });
    }
}

}  // namespace detail

// Compare: null -8, any step below 1 -14, size -6; then a cmpOp outside 0..4
// is no error: nothing is written and the status is 0.
template <class T, Layout L>
RokStatus compare(const T* a, int as, const T* b, int bs, Rok8u* d, int ds, RokiSize roi, int op) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (op < rokCompareLess || op > rokCompareGreater) return rokStatusOk;
    return detail::compare_rows<Source::Image, T, L>(a, as, b, bs, d, ds, roi, CompareKind(op), 0.0f);
}

// CompareC: as Compare, with the constant array checked with the pointers.
template <class T, Layout L>
RokStatus compare_c(const T* s, int ss, const T* v, Rok8u* d, int ds, RokiSize roi, int op) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (op < rokCompareLess || op > rokCompareGreater) return rokStatusOk;
    return detail::compare_rows<Source::Constant, T, L>(s, ss, v, 0, d, ds, roi, CompareKind(op), 0.0f);
}

// CompareEqualEps: null -8, steps -14, size -6, eps below 0 -36 (-0.0 and
// NaN are not below 0).
template <class T, Layout L>
RokStatus compare_equal_eps(const T* a, int as, const T* b, int bs, Rok8u* d, int ds, RokiSize roi, Rok32f eps) {
    if (any_null(a, b, d)) return rokStatusNullPtr;
    if (any_step_below_one(as, bs, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (eps < 0.0f) return rokStatusBadEps;
    return detail::compare_rows<Source::Image, T, L>(a, as, b, bs, d, ds, roi, CompareKind::EqualEps, eps);
}

template <class T, Layout L>
RokStatus compare_equal_eps_c(const T* s, int ss, const T* v, Rok8u* d, int ds, RokiSize roi, Rok32f eps) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (eps < 0.0f) return rokStatusBadEps;
    return detail::compare_rows<Source::Constant, T, L>(s, ss, v, 0, d, ds, roi, CompareKind::EqualEps, eps);
}

}  // namespace rok::arith
