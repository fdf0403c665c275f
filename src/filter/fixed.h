// Fixed-kernel filters: Prewitt, Sobel, Scharr, Laplace, Hipass, Lowpass,
// Gauss and Sharpen with built-in 3x3 or 5x5 masks, and Roberts. Each export
// checks its arguments here; fixed.cpp runs the filter's kernel (whose plan,
// kernels/filter/fixed_plans.h, states the mask as a column stage and a row
// stage) down the rows in strips. Roberts is the image subtraction of the
// arithmetic family.
#pragma once

#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "frame/generated/roki_types.h"
#include "kernels/arith/arith.h"
#include "kernels/filter/fixed_plans.h"

namespace rok::filter {

using kernels::fixed::Fixed;

// Runs filter f with a size x size mask (3 or 5).
template <class S, class D>
RokStatus run_fixed(Fixed f, int size, const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Layout layout);

namespace detail {
template <class S, class D>
RokStatus fixed_checks(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi) {
    if (src == nullptr || dst == nullptr) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    return rokStatusOk;
}
}  // namespace detail

// Filters without a mask argument (3x3).
template <Fixed F, class S, class D, Layout L>
RokStatus fixed3(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi) {
    if (RokStatus s = detail::fixed_checks(src, srcStep, dst, dstStep, roi)) return s;
    return run_fixed<S, D>(F, 3, src, srcStep, dst, dstStep, roi, L);
}

// Filters with a mask code: 33 (3x3) or 55 (5x5), anything else -33.
template <Fixed F, class S, class D, Layout L>
RokStatus fixed_mask(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, int mask) {
    if (RokStatus s = detail::fixed_checks(src, srcStep, dst, dstStep, roi)) return s;
    if (mask != rokMskSize3x3 && mask != rokMskSize5x5) return rokStatusBadMaskSize;
    return run_fixed<S, D>(F, mask == rokMskSize3x3 ? 3 : 5, src, srcStep, dst, dstStep, roi, L);
}

// SobelHorizMask / SobelVertMask: 33 gives 3x3, every other code 5x5.
template <Fixed F, class S, class D, Layout L>
RokStatus fixed_any_mask(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, int mask) {
    if (RokStatus s = detail::fixed_checks(src, srcStep, dst, dstStep, roi)) return s;
    return run_fixed<S, D>(F, mask == rokMskSize3x3 ? 3 : 5, src, srcStep, dst, dstStep, roi, L);
}

// Roberts: the ROI pixel minus its diagonal neighbour one row up, one column
// left (Down) or right (Up), both read with the source step, saturated.
template <bool Up, class T, Layout L>
RokStatus roberts(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi) {
    if (RokStatus s = detail::fixed_checks(src, srcStep, dst, dstStep, roi)) return s;
    constexpr int nc = channels(L);
    for (int y = 0; y < roi.height; ++y) {
        const T* here = row(src, srcStep, y);
        const T* diagonal = row(src, srcStep, y - 1) + (Up ? nc : -nc);
        T* out = row(dst, dstStep, y);
        if constexpr (L == Layout::AC4) {
            ac4_row(out, roi.width, [&](T* block, int x, int n) {
                kernels::arith_row<kernels::ArithOp::Sub, T>(diagonal + 4 * x, here + 4 * x, block, 4 * n, 0,
                                                             rokRoundNearestEven);
            });
        } else {
            kernels::arith_row<kernels::ArithOp::Sub, T>(diagonal, here, out, roi.width * nc, 0, rokRoundNearestEven);
        }
    }
    return rokStatusOk;
}

}  // namespace rok::filter
