// Box filter and window sums: rectangular neighbourhoods summed by running
// sums, so the cost per pixel does not grow with the mask. The neighbourhood
// of destination pixel (x, y) is the mask as laid (not flipped): columns
// x - ax .. x - ax + mw - 1 and rows y - ay .. y - ay + mh - 1.
#pragma once

#include "frame/image.h"
#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::filter {

// The fixed-point reciprocal of the box mean for an area and layout:
// (mult * sum + 2^(shift-1)) >> shift.
struct BoxMultiplier {
    long long mult;
    int shift;
};
BoxMultiplier box_multiplier(long long area, bool oneChannel);

// The engine: means (box) or plain sums (window, into 32f) of the mask over
// the ROI. In place when src is dst: the rows are then read with dstStep.
template <class T, class D>
RokStatus run_box(const T* src, int srcStep, D* dst, int dstStep, RokiSize roi, Layout layout, RokiSize mask,
                  RokiPoint anchor, bool window);

namespace detail {
inline RokStatus box_mask_checks(RokiSize mask, RokiPoint anchor) {
    if (mask.width < 1 || mask.height < 1) return rokStatusBadMaskSize;
    if (anchor.x < 0 || anchor.x >= mask.width || anchor.y < 0 || anchor.y >= mask.height) return rokStatusBadAnchor;
    return rokStatusOk;
}
}  // namespace detail

// rokiFilterBox R: null, step, size, mask, anchor. The same pointer for
// source and destination runs in place with the destination step.
template <class T, Layout L>
RokStatus box(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, RokiSize mask, RokiPoint anchor) {
    if (src == nullptr || dst == nullptr) return rokStatusNullPtr;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (RokStatus s = detail::box_mask_checks(mask, anchor)) return s;
    if (src == dst) return run_box<T, T>(dst, dstStep, dst, dstStep, roi, L, mask, anchor, false);
    return run_box<T, T>(src, srcStep, dst, dstStep, roi, L, mask, anchor, false);
}

template <class T, Layout L>
RokStatus box_inplace(T* srcDst, int step, RokiSize roi, RokiSize mask, RokiPoint anchor) {
    return box<T, L>(srcDst, step, srcDst, step, roi, mask, anchor);
}

// rokiSumWindowRow / rokiSumWindowColumn: null, mask length, anchor, then a
// ROI height below 1 succeeds with nothing written; width, then steps.
template <class S, Layout L, bool Rows>
RokStatus window_sum(const S* src, int srcStep, Rok32f* dst, int dstStep, RokiSize roi, int length, int anchor) {
    if (src == nullptr || dst == nullptr) return rokStatusNullPtr;
    if (length < 1) return rokStatusBadMaskSize;
    if (anchor < 0 || anchor >= length) return rokStatusBadAnchor;
    if (roi.height < 1) return rokStatusOk;
    if (roi.width < 1) return rokStatusBadSize;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    const RokiSize mask = Rows ? RokiSize{length, 1} : RokiSize{1, length};
    const RokiPoint at = Rows ? RokiPoint{anchor, 0} : RokiPoint{0, anchor};
    return run_box<S, Rok32f>(src, srcStep, dst, dstStep, roi, L, mask, at, true);
}

template <class S, Layout L>
RokStatus window_row(const S* src, int srcStep, Rok32f* dst, int dstStep, RokiSize roi, int length, int anchor) {
    return window_sum<S, L, true>(src, srcStep, dst, dstStep, roi, length, anchor);
}
template <class S, Layout L>
RokStatus window_column(const S* src, int srcStep, Rok32f* dst, int dstStep, RokiSize roi, int length, int anchor) {
    return window_sum<S, L, false>(src, srcStep, dst, dstStep, roi, length, anchor);
}

}  // namespace rok::filter
