// Number of samples inside an inclusive range, per channel.
#pragma once

#include <cstdint>

#include "frame/image.h"
#include "frame/layout.h"
#include "kernels/stats/stats.h"
#include "frame/generated/roki_types.h"

namespace rok::stats {

// C1 passes its bounds by value, the others by array; both arrive here as
// pointers to the processed channels' bounds.
template <class T, Layout L>
RokStatus count_in_range(const T* src, int step, RokiSize roi, int* counts, const T* lower, const T* upper) {
    if (any_null(src, counts, lower, upper)) return rokStatusNullPtr;
    if (step < 1) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    constexpr int nc = channels(L), outs = processed_channels(L);
    for (int c = 0; c < outs; ++c)
        if (upper[c] < lower[c]) return rokStatusBadRange;
    // The alpha lanes of AC4 get channel 0's bounds; their count is dropped.
    T lo[4], hi[4];
    for (int c = 0; c < nc; ++c) {
        lo[c] = lower[c < outs ? c : 0];
        hi[c] = upper[c < outs ? c : 0];
    }
    std::int64_t n[4] = {};
    kernels::count_in_range(src, step, std::size_t(roi.width) * nc, roi.height, nc, lo, hi, n);
    for (int c = 0; c < outs; ++c) counts[c] = int(n[c]);
    return rokStatusOk;
}

}  // namespace rok::stats
