// The threshold family and Otsu's threshold. Each form has its own check
// order; the 16u members of Threshold, Threshold_Val (and so LTVal, GTVal)
// and Threshold_LTValGTVal share their rows among threads.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <type_traits>

#include "arith/unary_rows.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "kernels/arith/threshold.h"
#include "kernels/stats/histogram.h"
#include "frame/generated/roki_types.h"

namespace rok::arith {

using kernels::ThresholdKind;

namespace detail {

// Four values per channel, so AC4 blocks can run the four-channel kernel;
// the alpha lane's results are never kept. ptr is null where the form has
// no such parameter.
template <class T, Layout L>
struct ChannelValues {
    T v[4] = {};
    const T* ptr = nullptr;
    explicit ChannelValues(const T* values) {
        if (!values) return;
        for (int c = 0; c < processed_channels(L); ++c) v[c] = values[c];
        ptr = v;
    }
    ChannelValues(const ChannelValues&) = delete;
    ChannelValues& operator=(const ChannelValues&) = delete;
};

template <class T, Layout L>
RokStatus threshold_rows(bool threaded, const T* s, int ss, T* d, int ds, RokiSize roi, ThresholdKind kind,
                         const T* t, const T* v, const T* t2, const T* v2) {
    constexpr int ch = channels(L);
    const ChannelValues<T, L> ct(t), cv(v), ct2(t2), cv2(v2);
    // AC4 rows go through a cached block, so they never stream.
    const kernels::ThresholdParams<T> p{ct.ptr, cv.ptr, ct2.ptr, cv2.ptr, ch, L != Layout::AC4 && streams<T, L>(roi)};
    const long long samples = static_cast<long long>(roi.width) * ch;
    if constexpr (L == Layout::AC4) {
        return for_rows(threaded, roi.height, [&](int y) {
            const T* src = row(s, ss, y);
            ac4_row(row(d, ds, y), roi.width, [&](T* block, int first, int n) {
                kernels::threshold_row(src + 4 * first, block, 4 * n, kind, p);
            });
        });
    } else {
        // Rows laid end to end run as one row (every row holds whole pixels,
        // so the channel pattern runs on unbroken), or for threads as bands
        // of 16 rows: a short row would pay a call and a kernel start-up for
        // little work.
        const long long bytes = samples * static_cast<long long>(sizeof(T));
        if (ss == bytes && ds == bytes && samples * roi.height <= INT_MAX) {
            constexpr int kBand = 16;
            const int band = threaded ? kBand : roi.height;
            return for_rows(threaded, (roi.height + band - 1) / band, [&](int i) {
                const int y = i * band;
                kernels::threshold_row(row(s, ss, y), row(d, ds, y), int(samples) * std::min(band, roi.height - y), kind, p);
            });
        }
        return for_rows(threaded, roi.height, [&](int y) {
            kernels::threshold_row(row(s, ss, y), row(d, ds, y), int(samples), kind, p);
        });
    }
}

template <class T>
constexpr bool threaded_type = std::is_same_v<T, Rok16u>;

}  // namespace detail

// The in-place forms (I) run the same rows with the destination as source.

// Threshold with cmpOp 0 (less: values below the threshold become it) or 4
// (greater: values above become it). Checks: null -8, size -6, steps -14,
// cmpOp other than 0 and 4 -9999.
template <class T, Layout L, bool I = false>
RokStatus threshold(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t, int op) {
    if (any_null(s, d, t)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (op != rokCompareLess && op != rokCompareGreater) return rokStatusBadMode;
    return detail::threshold_rows<T, L>(detail::threaded_type<T>, s, ss, d, ds, roi,
                                        op == rokCompareLess ? ThresholdKind::Lt : ThresholdKind::Gt, t, nullptr,
                                        nullptr, nullptr);
}

// Threshold_LT and Threshold_GT: Threshold with the operation fixed, its
// checks without the cmpOp; on the calling thread.
template <ThresholdKind K, class T, Layout L>
RokStatus threshold_fixed(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t) {
    if (any_null(s, d, t)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    return detail::threshold_rows<T, L>(false, s, ss, d, ds, roi, K, t, nullptr, nullptr, nullptr);
}
template <class T, Layout L, bool I = false>
RokStatus threshold_lt(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t) {
    return threshold_fixed<ThresholdKind::Lt, T, L>(s, ss, d, ds, roi, t);
}
template <class T, Layout L, bool I = false>
RokStatus threshold_gt(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t) {
    return threshold_fixed<ThresholdKind::Gt, T, L>(s, ss, d, ds, roi, t);
}

// Threshold_Val: value where src < threshold (cmpOp 0) or src > threshold
// (cmpOp 4). Checks: cmpOp other than 0 and 4 -9999 before anything else,
// then null -8, size -6, steps -14.
template <class T, Layout L, bool I = false>
RokStatus threshold_val(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t, const T* v, int op) {
    if (op != rokCompareLess && op != rokCompareGreater) return rokStatusBadMode;
    if (any_null(s, d, t, v)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    return detail::threshold_rows<T, L>(detail::threaded_type<T>, s, ss, d, ds, roi,
                                        op == rokCompareLess ? ThresholdKind::LtVal : ThresholdKind::GtVal, t, v,
                                        nullptr, nullptr);
}

template <class T, Layout L, bool I = false>
RokStatus threshold_lt_val(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t, const T* v) {
    return threshold_val<T, L, I>(s, ss, d, ds, roi, t, v, rokCompareLess);
}
template <class T, Layout L, bool I = false>
RokStatus threshold_gt_val(const T* s, int ss, T* d, int ds, RokiSize roi, const T* t, const T* v) {
    return threshold_val<T, L, I>(s, ss, d, ds, roi, t, v, rokCompareGreater);
}

// Threshold_LTValGTVal: valueLT below thresholdLT, valueGT above
// thresholdGT. Checks: null -8, size -6, steps -14, then thresholdGT below
// thresholdLT in any channel -18 (equal thresholds are allowed).
template <class T, Layout L, bool I = false>
RokStatus threshold_lt_gt(const T* s, int ss, T* d, int ds, RokiSize roi, const T* tLT, const T* vLT, const T* tGT,
                          const T* vGT) {
    if (any_null(s, d, tLT, vLT) || any_null(tGT, vGT)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    for (int c = 0; c < processed_channels(L); ++c)
        if (tGT[c] < tLT[c]) return rokStatusBadThresholds;
    return detail::threshold_rows<T, L>(detail::threaded_type<T>, s, ss, d, ds, roi, ThresholdKind::LtValGtVal, tLT,
                                        vLT, tGT, vGT);
}

// ComputeThreshold_Otsu: null -8, size -6, step -14.
inline RokStatus threshold_otsu(const Rok8u* s, int ss, RokiSize roi, Rok8u* level) {
    if (any_null(s, level)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(ss)) return rokStatusBadStep;
    // The histograms' 8u count, in bands of rows small enough that its
    // 32-bit counters cannot wrap.
    std::uint64_t hist[256] = {};
    const int band = int(std::min<long long>(roi.height, std::max(1LL, 0xFFFFFFFFLL / roi.width)));
    for (int y = 0; y < roi.height; y += band) {
        std::uint32_t counts[1][256] = {};
        kernels::histogram_8u(row(s, ss, y), ss, roi.width, std::min(band, roi.height - y), 1, 1, counts);
        for (int v = 0; v < 256; ++v) hist[v] += counts[0][v];
    }
    *level = kernels::otsu_level(hist);
    return rokStatusOk;
}

}  // namespace rok::arith
