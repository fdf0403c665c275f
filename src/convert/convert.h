// rokiConvert: depth conversion keeping the numeric value (exact widening,
// saturating narrowing, sign change, float to integer with a rounding mode,
// scaled integer and float pairs, bits to bytes).
#pragma once

#include <cstdint>
#include <type_traits>

#include "convert/rounding.h"
#include "core/core.h"
#include "convert/rows.h"
#include "frame/image.h"
#include "kernels/convert/convert.h"
#include "kernels/copy/copy_move.h"

namespace rok::convert {

// Bytes moved (read and written) from which widening conversions stream
// their output: half the largest cache, or a fixed 3.2 MB when the processor
// does not report its caches.
inline std::int64_t stream_bytes() {
    const int cache = core::max_cache_bytes();
    return cache > 0 ? cache / 2 : std::int64_t(838860) * 4;
}

// Widening, narrowing and sign change. CheckSteps: the multi-layout members
// reject steps below 1 after the size; the one-layout members and the two
// 16-bit to 32s pairs accept any step.
template <bool CheckSteps, class S, class D, Layout L>
RokStatus convert_value(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (CheckSteps && any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    // Widening that moves more than half the cache streams its output past it.
    const bool stream = L != Layout::AC4 && sizeof(D) > sizeof(S) &&
                        std::int64_t(roi.width) * roi.height * channels(L) * std::int64_t(sizeof(S) + sizeof(D)) >=
                            stream_bytes();
    for_each_row<L>(src, srcStep, dst, dstStep, roi,
                    [stream](const S* s, D* d, int n) { kernels::convert_value(s, d, n, stream); });
    if (stream) kernels::store_fence();
    return rokStatusOk;
}

template <class S, class D, Layout L>
RokStatus convert(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi) {
    return convert_value<true, S, D, L>(src, srcStep, dst, dstStep, roi);
}

template <class S, class D, Layout L>
RokStatus convert_any_step(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi) {
    return convert_value<false, S, D, L>(src, srcStep, dst, dstStep, roi);
}

// Float to integer with a rounding mode: 0 truncation and 1 nearest-even run
// under the processor's rounding control, set for the call; any other value
// rounds ties away from zero.
template <class S, class D, Layout L>
RokStatus convert_round(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, int roundMode) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    RoundingGuard guard(fe_mode_for(roundMode));
    for_each_row<L>(src, srcStep, dst, dstStep, roi,
                    [roundMode](const S* s, D* d, int n) { kernels::convert_float(s, d, n, roundMode); });
    return rokStatusOk;
}

// Scaled pairs (one channel, no step check): the value times 2^-scaleFactor,
// rounded by the mode, saturated.
template <class S, class D, Layout L>
RokStatus convert_sfs(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, int roundMode,
                      int scaleFactor) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if constexpr (std::is_floating_point_v<S>) {
        RoundingGuard guard(fe_mode_for(roundMode));
        for_each_row<L>(src, srcStep, dst, dstStep, roi, [=](const S* s, D* d, int n) {
            kernels::convert_float_sfs(s, d, n, roundMode, scaleFactor);
        });
    } else {
        for_each_row<L>(src, srcStep, dst, dstStep, roi, [=](const S* s, D* d, int n) {
            kernels::convert_int_sfs(s, d, n, roundMode, scaleFactor);
        });
    }
    return rokStatusOk;
}

// In place: the 32-bit results replace the 32-bit floats they come from.
template <class S, class D, Layout L>
RokStatus convert_sfs_in_place(S* srcDst, int srcDstStep, RokiSize roi, int roundMode, int scaleFactor) {
    static_assert(sizeof(S) == sizeof(D));
    return convert_sfs<S, D, L>(srcDst, srcDstStep, reinterpret_cast<D*>(srcDst), srcDstStep, roi, roundMode,
                                scaleFactor);
}

// Bits to bytes; the offset counts from the most significant bit of each
// row's first byte and may exceed 7 (it then starts in a later byte).
inline RokStatus convert_bits(const Rok8u* src, int srcStep, int srcBitOffset, Rok8u* dst, int dstStep,
                              RokiSize roi) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    if (srcBitOffset < 0) return rokStatusBadSize;
    for (int y = 0; y < roi.height; ++y)
        kernels::convert_bits(row(src, srcStep, y), srcBitOffset, row(dst, dstStep, y), roi.width);
    return rokStatusOk;
}

}  // namespace rok::convert
