// rokiScale: maps the whole range of 8u onto the whole range of a wider type
// and back.
#pragma once

#include <cfenv>
#include <cstdint>

#include "convert/rounding.h"
#include "convert/rows.h"
#include "frame/image.h"
#include "kernels/convert/convert.h"
#include "kernels/copy/copy_move.h"

namespace rok::convert {

// Outputs of at least this many pixels are streamed past the cache: about
// 2.7 MB of 16-bit results (or 8-bit results of the fast down path) and
// about 3.2 MB of floats.
constexpr std::int64_t kStream16Pixels = 1398101;
constexpr std::int64_t kStreamFloatPixels = 838860;

inline RokStatus check_images(const void* src, int srcStep, const void* dst, int dstStep, RokiSize roi) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    return rokStatusOk;
}

template <class S, class D, Layout L>
RokStatus scale_up(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi) {
    if (RokStatus s = check_images(src, srcStep, dst, dstStep, roi)) return s;
    const bool stream = L != Layout::AC4 && sizeof(D) == 2 && at_least(roi, kStream16Pixels);
    for_each_row<L>(src, srcStep, dst, dstStep, roi,
                    [stream](const S* s, D* d, int n) { kernels::scale_up(s, d, n, stream); });
    if (stream) kernels::store_fence();
    return rokStatusOk;
}

// vMin + x * ((vMax - vMin) / 255), the quotient formed once in single
// precision. The range is tested before anything else.
template <class S, class D, Layout L>
RokStatus scale_up_range(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Rok32f vMin, Rok32f vMax) {
    if (!(vMax - vMin > 0.0f)) return rokStatusBadScaleRange;
    if (RokStatus s = check_images(src, srcStep, dst, dstStep, roi)) return s;
    const float step = (vMax - vMin) / 255.0f;
    const bool stream = L != Layout::AC4 && at_least(roi, kStreamFloatPixels);
    for_each_row<L>(src, srcStep, dst, dstStep, roi,
                    [=](const S* s, D* d, int n) { kernels::scale_up_float(s, d, n, vMin, step, stream); });
    if (stream) kernels::store_fence();
    return rokStatusOk;
}

// hint rokHintAccurate: the exact linear map rounded to nearest-even (the
// rounding control is set to nearest for the call); any other hint: the
// fixed-point form, at most one unit away.
template <class S, class D, Layout L>
RokStatus scale_down(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, int hint) {
    if (RokStatus s = check_images(src, srcStep, dst, dstStep, roi)) return s;
    if (hint == rokHintAccurate) {
        RoundingGuard guard(FE_TONEAREST);
        for_each_row<L>(src, srcStep, dst, dstStep, roi,
                        [](const S* s, D* d, int n) { kernels::scale_down_accurate(s, d, n); });
    } else {
        const bool stream = L != Layout::AC4 && sizeof(S) == 2 && at_least(roi, kStream16Pixels);
        for_each_row<L>(src, srcStep, dst, dstStep, roi,
                        [stream](const S* s, D* d, int n) { kernels::scale_down_fast(s, d, n, stream); });
        if (stream) kernels::store_fence();
    }
    return rokStatusOk;
}

// Clamp to [vMin, vMax] (upper bound first), then nearest-even of x*k + b
// with k = 255 / (vMax - vMin), b = 0 - k*vMin. The range is tested before
// anything else.
template <class S, class D, Layout L>
RokStatus scale_down_range(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Rok32f vMin, Rok32f vMax) {
    if (!(vMax - vMin > 0.0f)) return rokStatusBadScaleRange;
    if (RokStatus s = check_images(src, srcStep, dst, dstStep, roi)) return s;
    RoundingGuard guard(FE_TONEAREST);
    const float k = 255.0f / (vMax - vMin);
    const float kv = k * vMin;
    const float b = 0.0f - kv;
    for_each_row<L>(src, srcStep, dst, dstStep, roi,
                    [=](const S* s, D* d, int n) { kernels::scale_down_float(s, d, n, vMin, vMax, k, b); });
    return rokStatusOk;
}

}  // namespace rok::convert
